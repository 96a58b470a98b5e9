// Status queries and setters of kelvo::filesystem (the FileStatus value is in FileStatus.h); their code is in src/filesystem/status/FileStatus.cpp.
#ifndef KELVO_FILESYSTEM_STATUS_H
#define KELVO_FILESYSTEM_STATUS_H

#include <kelvo/export.h>
#include <kelvo/filesystem/FileStatus.h>
#include <kelvo/filesystem/Path.h>

#include <cstdint>

namespace kelvo::filesystem {

/// @returns the status of `path`, following a final symbolic link; type
/// `none` with `unknownPermissions` when it cannot be obtained.
/// Kept: kinds are told by single mode bits, so block devices and sockets
/// report `directory` (see docs/odd-behaviours.md, 'File types are told by
/// single bits').
KELVO_FILESYSTEM_API FileStatus status(Path const& path);

/// @returns the status of `path` itself, not following a final symbolic link;
/// type `none` with `unknownPermissions` on failure.
/// Kept: every object whose mode has the regular-file or character-device bit
/// (and not the directory bit) reports `symbolicLink`: links, but also
/// regular files and devices (see docs/odd-behaviours.md, 'File types are
/// told by single bits').
KELVO_FILESYSTEM_API FileStatus symbolicLinkStatus(Path const& path);

/// @returns true when `path` can be stat'ed; false for a dangling link and
/// for what may not be reached (see docs/odd-behaviours.md, 'exists is false
/// for a dangling link and for what you may not reach').
KELVO_FILESYSTEM_API bool exists(Path const& path);

/// @returns true when `status(path)` has type `directory`.
KELVO_FILESYSTEM_API bool isDirectory(Path const& path);

/// Sets the access bits of `path` (following links) to `permissions` & 0777.
/// Kept: `Permissions::unknownPermissions` sets mode 0777 (see
/// docs/odd-behaviours.md, 'Status values drop the set-user-ID, set-group-ID
/// and sticky bits').
/// @returns true on success, false on failure.
KELVO_FILESYSTEM_API bool setPermissions(Path const& path, Permissions permissions);

/// @returns the size in bytes of `path` (following links), the `stat` size
/// of a directory, or -1 on failure (see docs/odd-behaviours.md, 'A failed
/// query looks like a value').
KELVO_FILESYSTEM_API std::int64_t fileSize(Path const& path);

/// @returns the modification time of `path` (following links) to the
/// microsecond, or the epoch on failure (see docs/odd-behaviours.md, 'A
/// failed query looks like a value').
KELVO_FILESYSTEM_API FileTime getModificationTime(Path const& path);

/// Sets the modification time of `path` (following links) to `time`.
/// Kept: the access time keeps its seconds, and its sub-second part only
/// where it can be passed on (see docs/odd-behaviours.md,
/// 'setModificationTime keeps only the access time's seconds').
/// @returns true on success; false when `path` cannot be stat'ed (nothing is
/// changed) or the times cannot be set.
KELVO_FILESYSTEM_API bool setModificationTime(Path const& path, FileTime const& time);

} // namespace kelvo::filesystem

#endif
