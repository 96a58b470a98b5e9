// The operating-system calls behind directory creation, removal, copy, move, links and comparison: thin POSIX wrappers working relative to directory descriptors.
#ifndef KELVO_SRC_FILESYSTEM_POSIX_TREE_H
#define KELVO_SRC_FILESYSTEM_POSIX_TREE_H

#include "filesystem/posix/System.h"

#include <cstddef>
#include <cstdint>

// As with the other wrappers: NUL-terminated native bytes in, one call, a plain
// value out; errno is left as the failing call set it, and nothing is retried.
// Every descriptor opened here is close-on-exec.
namespace kelvo::filesystem::posix {

/// The descriptor that stands for the working directory in the `...At` calls.
extern int const kWorkingDirectory;

/// What an object is opened for by `openAt`.
enum class OpenIntent {
    listDirectory,   ///< reading, and only when it is a directory
    readSource,      ///< reading, without waiting for a FIFO's writer or a device, never taking a terminal as the controlling one
    readSourceWaiting, ///< as `readSource`, but waiting where the system makes an open wait (a file under a lease)
    replaceContent,  ///< writing only, created with the given mode when missing, emptied when present
    createNew,       ///< writing only, created with the given mode; fails when anything is at the name
};

/// Opens `name` relative to the descriptor `directory` with `openat` for
/// `intent`, following a final link only when `followLink` is true,
/// close-on-exec, with the creation `mode` where the intent creates.
/// @returns the new descriptor, or -1 on failure.
int openAt(int directory, char const* name, OpenIntent intent, bool followLink, std::uint32_t mode = 0) noexcept;

/// Reads the status of `name` relative to `directory` with `fstatat`,
/// following a final link when `follow` is true.
/// @returns true and fills `information` on success; false on failure.
bool statAt(int directory, char const* name, bool follow, ObjectInformation& information) noexcept;

/// Reads the status of the open `descriptor` with `fstat`.
/// @returns true and fills `information` on success; false on failure.
bool statDescriptor(int descriptor, ObjectInformation& information) noexcept;

/// Reads the text of the symbolic link `name` relative to `directory` with
/// `readlinkat`, at most `size` bytes of it into `buffer` (no NUL added).
/// @returns the count of bytes placed (`size` when the text may be longer),
/// or -1 on failure (not a link, missing, no permission).
std::int64_t readLinkAt(int directory, char const* name, char* buffer, std::size_t size) noexcept;

/// Deletes `name` relative to `directory` with `unlinkat`: an empty directory
/// when `isDirectory` is true (as `rmdir` does), else any other object.
/// @returns true on success, false on failure.
bool unlinkAt(int directory, char const* name, bool isDirectory) noexcept;

/// Makes the directory `name` relative to `directory` with `mkdirat`.
/// @returns true on success, false on failure.
bool makeDirectoryAt(int directory, char const* name, std::uint32_t mode) noexcept;

/// Deletes the empty directory `path` with `rmdir`.
/// @returns true on success, false on failure.
bool removeDirectory(char const* path) noexcept;

/// Deletes the non-directory `path` (a link itself, not what it names) with
/// the C library's `remove`.
/// @returns true on success, false on failure.
bool removeObject(char const* path) noexcept;

/// Renames `from` to `to` with `rename`.
/// @returns true on success; false on failure (across file systems too).
bool renameObject(char const* from, char const* to) noexcept;

/// Makes a symbolic link at `link` holding `target` with `symlink`.
/// @returns true on success, false on failure.
bool makeSymbolicLink(char const* target, char const* link) noexcept;

/// Reads up to `count` bytes of `descriptor` into `buffer` with one `read`.
/// @returns the count read, 0 at the end, -1 on failure.
long readSome(int descriptor, void* buffer, std::size_t count) noexcept;

/// Writes up to `count` bytes of `buffer` to `descriptor` with one `write`.
/// @returns the count written, or -1 on failure.
long writeSome(int descriptor, void const* buffer, std::size_t count) noexcept;

/// Copies up to `count` bytes from the current offset of `from` to that of
/// `to` inside the kernel with `copy_file_range`, where the system has it.
/// @returns the count copied, 0 at the end of `from`, -1 on failure or where
/// the system cannot copy in the kernel (the caller then reads and writes).
long copyRange(int from, int to, std::size_t count) noexcept;

/// Starts a listing of the open directory `descriptor` with `fdopendir`; the
/// stream owns the descriptor from then on. On failure the descriptor is
/// closed here, so that it is owned by exactly one party either way.
/// @returns the stream, or null on failure.
DirectoryStream* openDirectoryStream(int descriptor) noexcept;

/// Opens the directory `path` (following a final link) for listing, as the
/// walks open theirs: `openat` for `OpenIntent::listDirectory`, then
/// `fdopendir`.
/// @returns the stream, or null on failure.
DirectoryStream* openDirectory(char const* path) noexcept;

/// Moves `stream` back to the first entry with `rewinddir`: a stream made
/// from a duplicated descriptor starts where the original's position was.
void rewindDirectoryStream(DirectoryStream* stream) noexcept;

/// Makes a second descriptor for what `descriptor` names with `dup`
/// (close-on-exec).
/// @returns the new descriptor, or -1 on failure.
int duplicateDescriptor(int descriptor) noexcept;

} // namespace kelvo::filesystem::posix

#endif
