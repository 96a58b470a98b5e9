// The operating-system calls behind atomic saves: unnamed and exclusive new files, flushes, owner and mode of a descriptor, links and renames relative to a directory.
#ifndef KELVO_SRC_FILESYSTEM_POSIX_SAVING_H
#define KELVO_SRC_FILESYSTEM_POSIX_SAVING_H

#include "filesystem/posix/System.h"

#include <cstddef>
#include <cstdint>

// As with the other wrappers: NUL-terminated native bytes in, one call (or a
// loop of the same call, where the name says so), a plain value out; every
// failure writes the calling thread's failure record and leaves errno as the
// failing call set it. Every descriptor opened here is close-on-exec.
namespace kelvo::filesystem::posix {

/// What a save needs to know of the object it replaces.
struct SavedObject {
    ObjectKind kind = ObjectKind::unknown; ///< the exact kind
    std::uint32_t accessBits = 0;          ///< the permission bits, set-id and sticky bits included
    std::uint32_t owner = 0;               ///< the owning user
    std::uint32_t group = 0;               ///< the owning group
};

/// Reads what a save keeps of `path` with `stat` (`follow`) or `lstat`.
/// @returns true and fills `object` on success; false on failure.
bool getSavedObject(char const* path, bool follow, SavedObject& object) noexcept;

/// Reads what a save keeps of the open `descriptor` with `fstat`.
/// @returns true and fills `object` on success; false on failure.
bool getSavedObjectOfDescriptor(int descriptor, SavedObject& object) noexcept;

/// Records that a save refuses to replace `path` because of what it is: a
/// directory with the reason a rename over it gives ("Is a directory"), any
/// other object that is not a regular file (a device, a FIFO, a socket) as
/// an operation the save does not support. Makes no call.
void recordRefusedTarget(char const* path, ObjectKind kind) noexcept;

/// What one attempt to make a new name gave.
enum class ExclusiveCreation {
    created,       ///< the name is new (and, for a file, open)
    alreadyExists, ///< something, a dangling link included, has the name
    failed,        ///< any other failure
};

/// What one attempt to make a file without a name gave.
enum class UnnamedFileResult {
    opened,      ///< the descriptor is open
    unsupported, ///< the system or the file system cannot make one here
    failed,      ///< any other failure (no permission, a full disk)
};

/// Makes a regular file without a name in the directory `directory`, open
/// for reading and writing, with `openat` and the access bits `mode` (less
/// the umask), to be given a name by `linkUnnamedFile`.
UnnamedFileResult openUnnamedFile(int directory, std::uint32_t mode, int& descriptor) noexcept;

/// @returns true when a file without a name can be given one by a process
/// without privileges here (the process's descriptors are visible under
/// /proc), checked with `stat`.
bool canNameUnnamedFiles() noexcept;

/// Gives the file without a name open on `descriptor` the name `name` in the
/// directory `directory` with `linkat`, through its entry under /proc (and,
/// where that is missing, through the descriptor itself, which needs
/// privileges).
/// @returns `created` on success, `alreadyExists` when something has the
/// name, `failed` on any other failure.
ExclusiveCreation linkUnnamedFile(int descriptor, int directory, char const* name) noexcept;

/// Makes the regular file `name` in `directory` with one `openat` that fails
/// when anything has the name, open for reading and writing, with the access
/// bits `mode` (less the umask), never following a link.
ExclusiveCreation createExclusive(int directory, char const* name, std::uint32_t mode, int& descriptor) noexcept;

/// Writes all `count` bytes of `buffer` to `descriptor` with `write`, again
/// after a short write or an interruption.
/// @returns true when all were written; false on failure (a file that
/// accepts no byte at all fails as a full disk).
bool writeAll(int descriptor, void const* buffer, std::size_t count) noexcept;

/// Flushes what `descriptor` (a file or a directory) holds to the storage
/// with `fsync`.
/// @returns true on success, false on failure.
bool flushToStorage(int descriptor) noexcept;

/// Sets the access bits of the open `descriptor` with `fchmod`.
/// @returns true on success, false on failure.
bool changeModeOfDescriptor(int descriptor, std::uint32_t bits) noexcept;

/// The owner or group `changeOwnerOfDescriptor` leaves as it is.
inline constexpr std::uint32_t kKeepOwner = 0xFFFFFFFFu;

/// What one change of owner gave.
enum class OwnerChange {
    changed,      ///< the owner and group are set
    notPermitted, ///< the process may not give the file away (not recorded: an answer, not a failure)
    failed,       ///< any other failure
};

/// Sets the owner and group of the open `descriptor` with `fchown`
/// (`kKeepOwner` for either leaves it).
OwnerChange changeOwnerOfDescriptor(int descriptor, std::uint32_t owner, std::uint32_t group) noexcept;

/// Renames `from` in the directory `fromDirectory` to `to` in `toDirectory`
/// with `renameat`, replacing what `to` named.
/// @returns true on success, false on failure.
bool renameAt(int fromDirectory, char const* from, int toDirectory, char const* to) noexcept;

} // namespace kelvo::filesystem::posix

#endif
