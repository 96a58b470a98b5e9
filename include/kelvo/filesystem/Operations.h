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

/// @returns the real, absolute form of `path` with every symbolic link, "."
/// and ".." resolved by the system; an empty path when an element is missing
/// or cannot be searched, or the links loop.
KELVO_FILESYSTEM_API Path canonical(Path const& path);

/// Removes "." and ".." elements. Each prefix that exists on disk is replaced
/// by its real form as the walk goes, so ".." after a symbolic link leads to
/// the parent of the link's target; past the existing prefix the rest is
/// handled as text. A ".." with nothing before it (or right after the root)
/// is dropped. A trailing separator of `path` is kept.
/// @returns the resolved path; empty for an empty `path` (and for one whose
/// dots climb out of everything, such as "/..").
KELVO_FILESYSTEM_API Path resolveDots(Path const& path);

/// @returns `base / path` for a relative `path` and a complete `base`; `path`
/// unchanged when it is empty, complete or has a root name, or when `base` is
/// not complete.
KELVO_FILESYSTEM_API Path complete(Path const& path, Path const& base);

/// @returns `path` completed against the current directory; `path` unchanged
/// when it is complete or the current directory cannot be found.
KELVO_FILESYSTEM_API Path systemComplete(Path const& path);

/// Accepts the flag and does nothing: the limits always come from the system.
KELVO_FILESYSTEM_API void setUseLongPathNames(bool useLongPathNames);

/// @returns the longest path in native bytes, as the system answers for "/"
/// at this call (32767 when it answers more than 2147483647; -1 when it sets
/// no limit or fails).
KELVO_FILESYSTEM_API std::int32_t getMaxNativeStringPathLength();

/// @returns the longest directory path in native bytes: the path limit less
/// 25 bytes kept for the names inside (32742 for a very large limit, -26 when
/// the system sets none).
KELVO_FILESYSTEM_API std::int32_t getMaxNativeStringDirectoryLength();

/// @returns the longest name in native bytes inside the directory of `path`
/// (`path` itself when it is "/"), as the system answers at this call; the
/// root's answer when that directory does not exist; 255 for an answer above
/// 2147483647; -1 when the system sets no limit or fails.
KELVO_FILESYSTEM_API std::int32_t getMaxNativeStringNameLength(Path const& path);

/// Checks the native length of `path` against the directory path limit and
/// the length of each name that does not exist yet against the name limit.
/// With `checkParent`, whether the parent exists is found out (replacing
/// `parentExists`) and an existing parent is measured in its real,
/// link-free form.
/// @returns true when the path fits (or the system sets no limit); false when
/// the path or one of its new names is too long.
KELVO_FILESYSTEM_API bool isValidPathLengthC(Path const& path, bool checkParent, bool parentExists);

/// @returns `isValidPathLengthC(path, true, false)`.
KELVO_FILESYSTEM_API bool isValidPathLength(Path const& path);

/// @returns true when a directory can be made at `path` as far as lengths go:
/// `path`, with its existing parent in real form, passes `isValidPathLengthC`
/// and is shorter than the path limit; false otherwise.
KELVO_FILESYSTEM_API bool isValidDirectoryPathLength(Path const& path);

/// Matches the whole text of `path` against `pattern`, in which "?" stands for
/// one character and "*" for any run. Nothing is escaped: every other
/// character keeps its meaning in an ECMAScript expression, so "." matches any
/// character, "[a-z]" is a class and "(", "+", "{", "|", "^", "$" and "\" are
/// operators. Matching is case-sensitive; the line terminators U+000A, U+000D,
/// U+2028 and U+2029 are matched only literally.
/// @returns true when the whole path matches; false when it does not, or when
/// the expression engine gives up while matching.
/// @throws std::regex_error, on every call, for a pattern that is not a valid
/// expression (an unbalanced "(" or "[", a trailing "\").
KELVO_FILESYSTEM_API bool matchesGlobPattern(Path const& path, kelvo::unicode::String const& pattern);

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
