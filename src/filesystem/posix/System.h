// The operating-system calls behind status, listing, file locks, the file mutex's lock file, streams and the current directory: thin POSIX wrappers.
#ifndef KELVO_SRC_FILESYSTEM_POSIX_SYSTEM_H
#define KELVO_SRC_FILESYSTEM_POSIX_SYSTEM_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

// Every wrapper takes NUL-terminated native path bytes, makes one call through
// the table of SystemCalls.h and turns the result into a plain value. On a
// failure it writes the calling thread's failure record (the call's name, the
// reason and the path it was given). None of them throws, and none clears
// errno: it is left as the failing call set it. A call
// that a signal interrupts is not retried, so that a caller using a signal as
// a timeout (on a FIFO that nobody opens, say) gets its failure back.
namespace kelvo::filesystem::posix {

/// What the status wrappers read of an object, with the system's own
/// structure and time-field names left behind.
struct ObjectInformation {
    std::uint32_t mode = 0;                   ///< the whole `st_mode`: kind bits and access bits
    std::int64_t size = 0;                    ///< `st_size`, in bytes
    std::uint64_t device = 0;                 ///< `st_dev`: with the inode, what the object is
    std::uint64_t inode = 0;                  ///< `st_ino`
    std::uint64_t links = 0;                  ///< `st_nlink`: the names the object has
    std::int64_t allocatedBytes = 0;          ///< `st_blocks` times 512: the room it takes on disk
    std::int64_t modificationSeconds = 0;     ///< whole seconds of the modification time
    std::int64_t modificationNanoseconds = 0; ///< its sub-second part, 0 to 999999999
    std::int64_t accessSeconds = 0;           ///< whole seconds of the access time
    std::int64_t accessNanoseconds = 0;       ///< its sub-second part, 0 to 999999999
    std::uint32_t owner = 0;                  ///< `st_uid`
    std::uint32_t group = 0;                  ///< `st_gid`
    std::uint64_t specialDevice = 0;          ///< `st_rdev`: the device a device file stands for
};

/// The kinds of object the library tells apart.
enum class ObjectKind {
    directory,
    symbolicLink,
    regularFile,
    characterDevice,
    fifo,
    blockDevice,
    socket,
    unknown,
};

/// @returns the kind that the kind field of `mode` names exactly.
ObjectKind kindOf(std::uint32_t mode) noexcept;

/// @returns the kind the library's statuses report for `mode`: single bits
/// of the mode, tried in the order directory, symbolic link (only when
/// `linkItself`, for a status that does not follow links), regular file,
/// character device, FIFO; `unknown` when none is set. Kept: a socket or a
/// block device reads as a directory, and a regular file seen without
/// following links as a link (see docs/odd-behaviours.md, 'File types are
/// told by single bits').
ObjectKind classify(std::uint32_t mode, bool linkItself) noexcept;

/// @returns true when the library's classification calls `mode` a directory.
inline bool isDirectoryMode(std::uint32_t mode) noexcept { return classify(mode, false) == ObjectKind::directory; }

/// @returns the nine access bits of `mode`.
inline std::uint32_t accessBitsOf(std::uint32_t mode) noexcept { return mode & 0777u; }

/// Reads the status of `path` with `stat` (`follow`) or `lstat`.
/// @returns true and fills `information` on success; false on any failure,
/// leaving `information` unspecified.
bool getFileInformation(char const* path, bool follow, ObjectInformation& information) noexcept;

/// @returns true when `stat` of `path` succeeds, false otherwise.
bool canStat(char const* path) noexcept;

/// Changes the access bits of `path` (following links) with `chmod`.
/// @returns true on success, false on failure.
bool changeMode(char const* path, std::uint32_t mode) noexcept;

/// Sets the access and modification times of `path` (following links) with
/// `utimes`, each given as whole seconds and microseconds.
/// @returns true on success; false when the system refuses (a missing file,
/// no permission, a microsecond value it does not accept).
bool setFileTimes(char const* path,
                  std::int64_t accessSeconds, std::int32_t accessMicroseconds,
                  std::int64_t modificationSeconds, std::int32_t modificationMicroseconds) noexcept;

/// An open listing of a directory.
struct DirectoryStream;

/// What a listing reported of an entry's kind, before any status call.
enum class ListedKind {
    directory,    ///< a directory
    link,         ///< a symbolic link
    directoryBit, ///< a block device or socket: its kind carries the directory bit
    other,        ///< a regular file, FIFO or character device
    unknown,      ///< the listing did not say
};

/// One entry of a listing.
struct ListedEntry {
    char const* name = nullptr; ///< NUL-terminated, valid until the next read or the close
    std::size_t length = 0;     ///< the name's length in bytes
    ListedKind kind = ListedKind::unknown;
    /// The exact kind the listing reported (`unknown` when it did not say).
    ObjectKind object = ObjectKind::unknown;
};

/// What one `readEntry` gave.
enum class EntryRead {
    entry,  ///< `entry` holds the next entry
    end,    ///< the listing is over
    failed, ///< the read failed (errno set); the listing cannot go on
};

/// Reads the next entry of `stream` with `readdir`, skipping "." and "..".
/// errno is left as it was unless the read failed.
EntryRead readEntry(DirectoryStream* stream, ListedEntry& entry) noexcept;

/// Closes `stream` (never null) and its descriptor with `closedir`.
void closeDirectory(DirectoryStream* stream) noexcept;

/// @returns the position of `stream` with `telldir`, for `seekDirectory`;
/// -1 on failure.
long tellDirectory(DirectoryStream* stream) noexcept;

/// Moves `stream` back to a `position` that `tellDirectory` gave, with
/// `seekdir`, so that the next read yields the entry that followed it.
void seekDirectory(DirectoryStream* stream, long position) noexcept;

/// Tells whether the listed `entry`, whose full path is `path`, is itself a
/// symbolic link: from the kind the listing reported when it reported one,
/// else from an `lstat` of `path`.
/// @returns true for a symbolic link; false otherwise, and when `lstat` fails.
bool isSymbolicLinkEntry(ListedEntry const& entry, char const* path) noexcept;

/// What one attempt to lock a descriptor without waiting gave.
enum class LockAttempt {
    taken, ///< the lock is held now
    busy,  ///< another holder has it (or a signal interrupted the call): worth trying again
    failed ///< the system refuses this lock on this descriptor (a file system without it, say)
};

/// Tries once to take an exclusive `flock` on `descriptor`, without waiting.
LockAttempt tryExclusiveLock(int descriptor) noexcept;

/// Releases the `flock` held on `descriptor`.
/// @returns true on success, false on failure.
bool unlockDescriptor(int descriptor) noexcept;

/// Closes `descriptor` with `close`, once (never retried: after an
/// interrupted close the number may already name another thread's file).
/// @returns true when `close` returned 0.
bool closeObject(int descriptor) noexcept;

/// How `openLockFile` opens a lock file. Every way opens without waiting (so
/// that a FIFO at the path never blocks the open), close-on-exec, and never
/// makes the file a controlling terminal.
enum class LockFileOpening {
    createNew,          ///< creates it for reading and writing, mode 0666 less the umask; fails when anything is at the path, a dangling link included
    existingForReading, ///< opens what is there, following a final link, for reading
    existingForWriting, ///< opens what is there, following a final link, for writing only, leaving its content as it is
    existingForReadingAndWriting, ///< opens what is there, following a final link, for reading and writing, leaving its content as it is
};

/// What one `openLockFile` gave.
enum class LockFileOpenResult {
    opened,        ///< the descriptor is open
    alreadyExists, ///< `createNew` found something at the path
    absent,        ///< the file, or a directory on the way to it, is missing; or a final link names nothing
    refused,       ///< any other failure: no permission, a socket at the path, too many links
};

/// Opens the lock file `path` with one `open`, as `opening` says.
/// @returns `opened` and sets `descriptor` on success; otherwise the reason,
/// leaving `descriptor` as it was.
LockFileOpenResult openLockFile(char const* path, LockFileOpening opening, int& descriptor) noexcept;

/// Opens `path` as a C stream with `fopen` and the unchecked `mode`.
/// @returns the stream, or null on failure.
std::FILE* openStream(char const* path, char const* mode) noexcept;

/// What `getWorkingDirectory` made of one attempt.
enum class WorkingDirectoryResult {
    found,          ///< the buffer holds the path
    bufferTooSmall, ///< the path does not fit (`ERANGE`)
    failed,         ///< any other failure
};

/// Writes the working directory into `buffer` of `size` bytes with `getcwd`.
WorkingDirectoryResult getWorkingDirectory(char* buffer, std::size_t size) noexcept;

/// Changes the working directory to `path` with `chdir`.
/// @returns true on success, false on failure.
bool changeWorkingDirectory(char const* path) noexcept;

/// Reads the bytes the symbolic link `path` holds with `readlink` into
/// `buffer` of `size` bytes (no NUL is added).
/// @returns how many bytes were read, `size` when they may not all have fit;
/// -1 on failure (not a link, missing, no search permission on the way).
std::int64_t readLinkContents(char const* path, char* buffer, std::size_t size) noexcept;

/// What `makeDirectory` made of one `mkdir`.
enum class MakeDirectoryResult {
    made,          ///< the directory is new
    alreadyExists, ///< something, a dangling link included, has the name (`EEXIST`)
    failed,        ///< any other failure: a missing parent, no permission, a name too long
};

/// Makes the directory `path` with one `mkdir` and the access bits `mode`
/// (less the umask).
MakeDirectoryResult makeDirectory(char const* path, std::uint32_t mode) noexcept;

} // namespace kelvo::filesystem::posix

#endif
