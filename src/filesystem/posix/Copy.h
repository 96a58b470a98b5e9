// The operating-system calls behind the copies that keep what users expect: cloning, in-kernel copies that tell an unsupported pair apart, owners, modes and times set on a copy, renames that never replace, FIFOs, devices and links made relative to a directory.
#ifndef KELVO_SRC_FILESYSTEM_POSIX_COPY_H
#define KELVO_SRC_FILESYSTEM_POSIX_COPY_H

#include "filesystem/posix/System.h"

#include <cstddef>
#include <cstdint>

// As with the other wrappers: NUL-terminated native bytes in, one call, a plain
// value out; every failure writes the calling thread's failure record (with
// the name given, which callers complete to a whole path); errno is left as
// the failing call set it, and nothing is retried.
namespace kelvo::filesystem::posix {

/// What one attempt to share blocks or to copy in the kernel gave.
enum class TransferResult {
    done,        ///< it worked
    unsupported, ///< this system or this pair of file systems cannot do it (not a fault: the caller falls back)
    failed,      ///< it failed for another reason (no space, an input/output error)
};

/// Makes the open regular file `destination` share the blocks of the open
/// `source` with one `ioctl(FICLONE)`.
TransferResult cloneContents(int destination, int source) noexcept;

/// Copies up to `count` bytes from the current offset of `from` to that of
/// `to` with one `copy_file_range`; `copied` receives the count (0 at the
/// end of `from`).
TransferResult copyRangeOnce(int from, int to, std::size_t count, long& copied) noexcept;

/// What one attempt to create an object under a chosen name gave.
enum class CreateResult {
    created, ///< the object is new
    exists,  ///< something, a dangling link included, has the name
    failed,  ///< any other failure
};

/// Creates the regular file `name` in `directory` for writing only, with the
/// creation `mode`, failing when anything is at the name (a link is never
/// followed); close-on-exec. `descriptor` receives it.
CreateResult createFileAt(int directory, char const* name, std::uint32_t mode, int& descriptor) noexcept;

/// Makes the directory `name` in `directory` with `mkdirat` and `mode`.
CreateResult createDirectoryAt(int directory, char const* name, std::uint32_t mode) noexcept;

/// Makes the FIFO `name` in `directory` with `mkfifoat` and `mode`.
CreateResult createFifoAt(int directory, char const* name, std::uint32_t mode) noexcept;

/// Makes the character (or, for `blockDevice`, block) device file `name` in
/// `directory` standing for `device` with `mknodat` and the access `mode`.
CreateResult createDeviceAt(int directory, char const* name, ObjectKind kind, std::uint32_t mode,
                            std::uint64_t device) noexcept;

/// Makes the symbolic link `name` in `directory` holding the NUL-terminated
/// bytes of `target` with `symlinkat`.
CreateResult createSymbolicLinkAt(char const* target, int directory, char const* name) noexcept;

/// What one attempt to give an object an owner gave.
enum class OwnerResult {
    changed,     ///< the owner and group are set
    notAllowed,  ///< the process may not give the object that owner or group
    failed,      ///< any other failure
};

/// Sets the owner and group of the open `descriptor` with `fchown`.
OwnerResult changeOwnerOf(int descriptor, std::uint32_t owner, std::uint32_t group) noexcept;

/// Sets only the group of the open `descriptor` with `fchown`.
OwnerResult changeGroupOf(int descriptor, std::uint32_t group) noexcept;

/// Sets the owner and group of `name` in `directory`, never following a link,
/// with `fchownat`.
OwnerResult changeOwnerAt(int directory, char const* name, std::uint32_t owner, std::uint32_t group) noexcept;

/// Sets only the group of `name` in `directory`, never following a link.
OwnerResult changeGroupAt(int directory, char const* name, std::uint32_t group) noexcept;

/// Sets the permission bits (with the set-user, set-group and sticky bits) of
/// the open `descriptor` to those of `mode` with `fchmod`.
/// @returns true on success, false on failure.
bool changeModeOf(int descriptor, std::uint32_t mode) noexcept;

/// Sets the permission bits of `name` in `directory` to those of `mode` with
/// `fchmodat` (a link's target: never call it on a link).
/// @returns true on success, false on failure.
bool changeModeAt(int directory, char const* name, std::uint32_t mode) noexcept;

/// Sets the access and modification times of the open `descriptor` to those
/// of `times`, to the nanosecond, with `futimens`.
/// @returns true on success, false on failure.
bool setTimesOf(int descriptor, ObjectInformation const& times) noexcept;

/// Sets the access and modification times of `name` in `directory` to those
/// of `times`, never following a link, with `utimensat`.
/// @returns true on success, false on failure.
bool setTimesAt(int directory, char const* name, ObjectInformation const& times) noexcept;

/// What one rename gave.
enum class RenameResult {
    renamed,     ///< `from` now has the name `to`
    exists,      ///< something has the name `to`, and the rename was not to replace it
    unsupported, ///< the file system cannot rename without replacing (the caller links and unlinks)
    failed,      ///< any other failure
};

/// Renames `from` of `fromDirectory` to `to` of `toDirectory` with
/// `renameat2`: replacing what has the name `to` only when `replace` is true,
/// else failing (atomically) when anything has it.
RenameResult renameAt(int fromDirectory, char const* from, int toDirectory, char const* to, bool replace) noexcept;

/// Gives the object `from` of `fromDirectory` the second name `to` of
/// `toDirectory` with `linkat`, never following a link.
CreateResult hardLinkAt(int fromDirectory, char const* from, int toDirectory, char const* to) noexcept;

/// Reads the process's file creation mask (the umask) from the system's
/// status of the process (/proc/self/status), without changing it as the
/// `umask` call would, with `open`, `read` and `close`.
/// @returns true and sets `mask` (its nine access bits) when the system tells
/// it; false where it does not.
bool readCreationMask(std::uint32_t& mask) noexcept;

} // namespace kelvo::filesystem::posix

#endif
