// File operations: directory creation, removal, copy, move, rename and links, comparison, streams, the current directory, link reading and unique directories; their code is in src/filesystem/operations/, one file per group below.
#ifndef KELVO_FILESYSTEM_FILE_OPERATIONS_H
#define KELVO_FILESYSTEM_FILE_OPERATIONS_H

#include <kelvo/export.h>
#include <kelvo/filesystem/FileStatus.h>
#include <kelvo/filesystem/Path.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace kelvo::filesystem {

// ---- Directory creation: DirectoryCreation.cpp ------------------------------

/// Makes the directory `path` (mode 0777 less the umask) after checking that
/// it is not there already and that its length fits the system's limits.
/// @returns true when something exists at `path` already (of any kind, kept
/// so: see docs/odd-behaviours.md, 'Creating a directory over a file
/// succeeds') or the directory was made; false when the length check or
/// `mkdir` fails (a missing parent included), or when the native form holds
/// a NUL byte.
KELVO_FILESYSTEM_API bool createDirectory(Path const& path);

/// Makes the directory `path` with no check of its own.
/// @returns true iff `mkdir` succeeded (an existing directory gives false).
KELVO_FILESYSTEM_API bool createDirectoryValidated(Path const& path);

/// Makes `path` and every missing directory above it, top-most first.
/// @returns true when `path` exists already (of any kind, see
/// docs/odd-behaviours.md, 'Creating a directory over a file succeeds') or
/// the whole chain was made; false at the first `mkdir` that fails, leaving
/// what was made.
KELVO_FILESYSTEM_API bool createDirectories(Path const& path);

/// As `createDirectories` without the first check of `path` itself.
/// @returns true iff the chain was made (a final "." or ".." makes nothing).
KELVO_FILESYSTEM_API bool createDirectoriesValidated(Path const& path);

// ---- Removal: Removal.cpp ---------------------------------------------------

/// Deletes the object at `path`: `rmdir` when, through its links, it is a
/// directory, else the system's `remove`.
/// @returns true iff it existed and was deleted; false for a missing path, a
/// dangling link, a link to a directory and a non-empty directory.
/// Kept: a link is judged by what it names, so a link to a directory goes to
/// `rmdir`, which refuses it (see docs/odd-behaviours.md, 'remove cannot
/// remove a link to a directory or a dangling link').
KELVO_FILESYSTEM_API bool remove(Path const& path);

/// Deletes the empty directory `path` with `rmdir`.
/// @returns true on success, false on failure.
KELVO_FILESYSTEM_API bool removeDir(Path const& path);

/// Deletes `path` and, when it is itself a directory (not through a link),
/// everything below it. A symbolic link is never followed into: anything
/// that is not a directory, a link included, is deleted as `remove` deletes
/// it, so a link to a file goes (the link alone) while a link to a directory
/// or a dangling link stays, with false. The tree removed is the directory
/// whose status was read; one replaced meanwhile is left alone.
/// Kept: a link to a directory or a dangling link, at `path` or inside the
/// tree, stops the removal with false (see docs/odd-behaviours.md, 'remove
/// cannot remove a link to a directory or a dangling link').
/// @returns true when everything was deleted; false at the first failure,
/// leaving the rest in place.
KELVO_FILESYSTEM_API bool removeAll(Path const& path);

/// Deletes every entry below `directory`, depth first, then the directory.
/// Kept: called on a link to a directory, it empties what the link names and
/// then answers false, since the link is no directory (see
/// docs/odd-behaviours.md, 'A tree changed under a removal stops it with
/// false').
/// @returns true when all of it was deleted; false at the first failure, and
/// for a path that is not a directory (nothing is listed, `rmdir` fails).
KELVO_FILESYSTEM_API bool removeAllInDir(Path const& directory);

/// Calls `action` with the full path of each entry of `directory` (not
/// recursively) whose file name matches the glob `pattern`, until an action
/// answers false.
/// @returns false when `directory` is missing, not a directory or empty, or
/// when an action answered false; true otherwise (an entry that does not
/// match counts as a success). Kept: an empty directory answers false (see
/// docs/odd-behaviours.md, 'forEach of an empty directory returns false').
/// @throws std::bad_function_call at the first match when `action` is empty,
/// std::regex_error for a pattern that is not a valid expression.
KELVO_FILESYSTEM_API bool forEachMatching(Path const& directory, kelvo::unicode::String const& pattern,
                                          std::function<bool(Path const&)> action);

/// `forEachMatching` with `remove` as the action: matching subdirectories go
/// only when empty.
/// @returns as `forEachMatching`.
KELVO_FILESYSTEM_API bool removeMatching(Path const& directory, kelvo::unicode::String const& pattern);

/// `forEachMatching` with the decision of `removeAll` as the action.
/// @returns as `forEachMatching`.
KELVO_FILESYSTEM_API bool removeAllMatching(Path const& directory, kelvo::unicode::String const& pattern);

// ---- Copy, move, rename and links: CopyMove.cpp -----------------------------

/// Makes a symbolic link at `link` whose contents are `target`.
/// @returns true iff `symlink` succeeded.
KELVO_FILESYSTEM_API bool createSymbolicLink(Path const& target, Path const& link);

/// Renames `from` to `to` with the system's `rename`.
/// @returns true on success; false on failure, across file systems too.
KELVO_FILESYSTEM_API bool rename(Path const& from, Path const& to);

/// Copies the contents of the file `from` (following links) to `to`; a new
/// file gets the source's access bits less the umask, an existing one is
/// truncated and keeps its own mode. No time, owner or other attribute goes
/// with it.
/// `from` is opened without waiting on it: a FIFO is read for what its
/// writer sends (ending after a second without bytes), a device or FIFO at
/// most 16 MiB far.
/// @returns true when `to` exists after both files were closed; false when
/// `failIfExists` is set and `to` exists, when `from` is a directory or
/// cannot be opened (a socket), when a write fails, or when a device or FIFO
/// had more than 16 MiB to give (the first 16 MiB stay in `to`). A read
/// error ends the copy as the end of the file does: the shortened copy is
/// reported as a success (kept, see docs/odd-behaviours.md, 'copyFile
/// reports a read error as success').
KELVO_FILESYSTEM_API bool copyFile(Path const& from, Path const& to, bool failIfExists);

/// Makes at `to` a link to the canonical path that the link `from` resolves
/// to (not the link's own, possibly relative, text). Kept: a relative link
/// becomes an absolute one, and a regular file is accepted too (see
/// docs/odd-behaviours.md, 'copySymbolicLink copies the resolved target, not
/// the link's text').
/// @returns true iff the new link was made; false when `from` is not a link
/// to the library's status classification, when `to` exists and
/// `failIfExists` is set or it cannot be removed, or when `from` resolves to
/// itself.
KELVO_FILESYSTEM_API bool copySymbolicLink(Path const& from, Path const& to, bool failIfExists);

/// Copies the directory `from` (following links) to the new directory `to`:
/// files by contents, links as what they name, subdirectories with their
/// contents when `recursive` is set, else as empty directories. A failing
/// entry does not stop the copy. Every link met is followed, out of the tree
/// too (see docs/odd-behaviours.md, 'Copies follow links'), but for a link
/// back to a directory the copy stands in, which fails (see
/// docs/odd-behaviours.md, 'A link back into the tree is not followed
/// round'), and a listed directory swapped for a link while the copy runs.
/// @returns true when every entry was copied; false when `from` is missing or
/// not a directory, when `to` exists already, or when any entry failed.
KELVO_FILESYSTEM_API bool copyDirectory(Path const& from, Path const& to, bool recursive);

/// Copies as `copyDirectory(from, to, recursive)` does, and tells what the
/// copy had to leave out: `unreadable` is cleared, then receives the path of
/// every directory that could not be listed (for want of permission, an I/O
/// error), whose copy is therefore empty or partial. `from` itself is named
/// when it cannot be listed; so are sockets and block devices, which the
/// status classification calls directories but which list nothing.
/// @returns exactly what `copyDirectory(from, to, recursive)` returns, which
/// is true for a copy with unreadable directories when nothing else failed.
KELVO_FILESYSTEM_API bool copyDirectory(Path const& from, Path const& to, bool recursive,
                                        std::vector<Path>& unreadable);

/// Copies `from` (following links) to `to`, never overwriting: a directory
/// with everything below it, anything else as a file. Kept: the kind is read
/// through links, so a link is copied as what it names and the path for a
/// link (a copy of the link) is never taken (see docs/odd-behaviours.md,
/// 'Copies follow links').
/// @returns the result of the copy made.
KELVO_FILESYSTEM_API bool copy(Path const& from, Path const& to);

/// Moves `from` to `to`: a rename, else (across file systems) a copy that
/// never overwrites followed by the removal of the source. The copy follows
/// links as `copy` does (see docs/odd-behaviours.md, 'Copies follow links');
/// the removal never does.
/// @returns true when renamed, or copied and removed; false when the copy
/// failed (the source is untouched) or the removal failed.
KELVO_FILESYSTEM_API bool move(Path const& from, Path const& to);

// ---- Comparison: Comparison.cpp ---------------------------------------------

/// Compares the contents of two files (following links). A device or FIFO
/// is read as `copyFile` reads it: without waiting on it, at most 16 MiB far.
/// @returns false when their sizes differ (a missing file has size -1) or
/// their bytes differ, or when a device or FIFO did not end within 16 MiB;
/// true when they are the same, and also when the sizes agree but a file
/// cannot be opened (two missing paths, two sockets compare equal). A path
/// whose native form holds a NUL byte counts as missing. Kept: see
/// docs/odd-behaviours.md, 'compareFiles calls two unopenable files equal'.
KELVO_FILESYSTEM_API bool compareFiles(Path const& a, Path const& b);

/// Compares two trees: the same names (compared as paths are: ignoring case
/// and composition) of the same kinds (following links, out of the trees
/// too), files of the same contents, directories compared alike. Each
/// listing is put in byte order and then sorted, with a sort that is safe
/// under any ordering, by the path ordering; names that ordering holds equal
/// stay in byte order. Kept: see docs/odd-behaviours.md, 'compareFiles calls
/// two unopenable files equal'.
/// @returns false when either path is missing (or its native form holds a
/// NUL byte) or any name, kind or file differs; true otherwise (two existing
/// non-directories list nothing and compare equal).
KELVO_FILESYSTEM_API bool compareDirectories(Path const& a, Path const& b);

/// Compares as `compareDirectories(a, b)` does, and tells what could not be
/// compared: `unreadable` is cleared, then receives the path of every
/// directory, on either side, that the comparison had to list and could not
/// (for want of permission, an I/O error; `a` or `b` themselves too, and
/// sockets and block devices, which the status classification calls
/// directories but which list nothing). The comparison stops at the first
/// difference, so only what it reached by then is named.
/// @returns exactly what `compareDirectories(a, b)` returns; a directory that
/// cannot be listed counts as empty there, so true does not mean that every
/// file was compared unless `unreadable` is empty.
KELVO_FILESYSTEM_API bool compareDirectories(Path const& a, Path const& b, std::vector<Path>& unreadable);

// ---- Streams: Streams.cpp ---------------------------------------------------

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
/// not opened and with no error bit set (kept, see docs/odd-behaviours.md,
/// 'fstreamWrapperWithLockCheck says nothing when it refuses').
KELVO_FILESYSTEM_API void fstreamWrapperWithLockCheck(std::fstream& stream, Path const& path, unsigned int mode);

// ---- Current directory: CurrentDirectory.cpp --------------------------------

/// @returns the process's working directory, however long, or an empty path
/// on failure.
KELVO_FILESYSTEM_API Path getCurrentDirectory();

/// Changes the process's working directory (for every thread).
/// @returns false when `path` does not exist or cannot be entered.
KELVO_FILESYSTEM_API bool setCurrentDirectory(Path const& path);

// ---- Reading links: SymbolicLinkReading.cpp ---------------------------------

/// A symbolic link as it is in itself, not the object it names.
struct SymbolicLinkInformation {
    /// The bytes the link holds, as a path whose native form is exactly them.
    Path target;
    /// The link's own size in bytes, as the system reports it (on most file
    /// systems the length of the target).
    std::int64_t size = -1;
    /// The link's own access bits.
    Permissions permissions = Permissions::unknownPermissions;
    /// When the link itself was made or last changed.
    FileTime modificationTime;
};

/// Reads what the symbolic link `path` holds, without following it: the
/// target as it was written when the link was made, relative or absolute,
/// however long.
/// @returns the target as a path whose native form is exactly the bytes the
/// link holds; an empty path when `path` is not a symbolic link, is missing or
/// cannot be reached, or when its native form holds a NUL byte.
KELVO_FILESYSTEM_API Path readSymbolicLink(Path const& path);

/// Reads the symbolic link `path` itself, without following it: its target
/// as `readSymbolicLink` reads it, its own size, access bits and time.
/// @returns true and fills `information` when `path` is a symbolic link;
/// false, leaving `information` as it was, when it is anything else, is
/// missing or cannot be reached, or when its native form holds a NUL byte.
KELVO_FILESYSTEM_API bool readSymbolicLinkInformation(Path const& path, SymbolicLinkInformation& information);

// ---- Unique directories: UniqueDirectory.cpp --------------------------------

/// Makes a new directory in `base` named `prefix` followed by a random
/// decimal number, readable, writable and searchable by its owner alone (mode
/// 0700 less the umask). Each name is tried with one `mkdir`, which fails on
/// anything already there, so the directory returned is always a new one, even
/// with other processes making names alike at the same moment; a taken name
/// is followed by a fresh draw, up to 10000 of them.
/// @returns the path of the new directory (`base / (prefix + number)`) on
/// success; an empty path when the directory cannot be made (`base` missing,
/// not a directory or not writable, `prefix` naming a missing subdirectory, a
/// NUL byte in the name, or every name drawn taken).
KELVO_FILESYSTEM_API Path createUniqueDirectory(Path const& base, kelvo::unicode::String const& prefix);

} // namespace kelvo::filesystem

#endif
