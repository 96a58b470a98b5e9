// The free functions of kelvo::filesystem: status queries and setters, stream opening and the current directory.
#ifndef KELVO_FILESYSTEM_OPERATIONS_H
#define KELVO_FILESYSTEM_OPERATIONS_H

#include <kelvo/export.h>
#include <kelvo/filesystem/FileStatus.h>
#include <kelvo/filesystem/Path.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>

namespace kelvo::filesystem {

// ---- Status ---------------------------------------------------------------

/// @returns the status of `path`, following a final symbolic link; type
/// `none` with `unknownPermissions` when it cannot be obtained. Kinds are
/// told by single mode bits, so block devices and sockets report `directory`.
KELVO_FILESYSTEM_API FileStatus status(Path const& path);

/// @returns the status of `path` itself, not following a final symbolic link;
/// type `none` with `unknownPermissions` on failure. Every object whose mode
/// has the regular-file or character-device bit (and not the directory bit)
/// reports `symbolicLink`: links, but also regular files and devices.
KELVO_FILESYSTEM_API FileStatus symbolicLinkStatus(Path const& path);

/// @returns true when `path` can be stat'ed (a dangling link does not exist).
KELVO_FILESYSTEM_API bool exists(Path const& path);

/// @returns true when `status(path)` has type `directory`.
KELVO_FILESYSTEM_API bool isDirectory(Path const& path);

/// Sets the access bits of `path` (following links) to `permissions` & 0777.
/// @returns true on success, false on failure.
KELVO_FILESYSTEM_API bool setPermissions(Path const& path, Permissions permissions);

/// @returns the size in bytes of `path` (following links), or -1 on failure.
KELVO_FILESYSTEM_API std::int64_t fileSize(Path const& path);

/// @returns the modification time of `path` (following links) to the
/// microsecond, or the epoch on failure.
KELVO_FILESYSTEM_API FileTime getModificationTime(Path const& path);

/// Sets the modification time of `path` (following links) to `time`, keeping
/// the access time's seconds.
/// @returns true on success; false when `path` cannot be stat'ed (nothing is
/// changed) or the times cannot be set.
KELVO_FILESYSTEM_API bool setModificationTime(Path const& path, FileTime const& time);

// ---- Path transformations ---------------------------------------------------

// ---- File operations ---------------------------------------------------------

// ---- Streams ---------------------------------------------------------------

/// Opens `path` with `fopen` and the unchecked `mode`.
/// @returns the stream, owned by the caller, or null on failure.
KELVO_FILESYSTEM_API std::FILE* fopenWrapper(Path const& path, std::string const& mode);

/// As `fopenWrapper`, but refuses a file that `FileLock::isFileLocked` reports.
/// @returns null when the file is locked or cannot be opened.
KELVO_FILESYSTEM_API std::FILE* fopenWrapperWithLockCheck(Path const& path, std::string const& mode);

/// Opens `stream` on `path` with the `std::ios_base::openmode` bits `mode`;
/// failure is recorded in the stream as the standard library does.
KELVO_FILESYSTEM_API void fstreamWrapper(std::fstream& stream, Path const& path, unsigned int mode);

/// As `fstreamWrapper`, but a locked file leaves `stream` exactly as it was:
/// not opened and with no error bit set.
KELVO_FILESYSTEM_API void fstreamWrapperWithLockCheck(std::fstream& stream, Path const& path, unsigned int mode);

// ---- Current directory -------------------------------------------------------

/// @returns the process's working directory, however long, or an empty path
/// on failure.
KELVO_FILESYSTEM_API Path getCurrentDirectory();

/// Changes the process's working directory (for every thread).
/// @returns false when `path` does not exist or cannot be entered.
KELVO_FILESYSTEM_API bool setCurrentDirectory(Path const& path);

} // namespace kelvo::filesystem

#endif
