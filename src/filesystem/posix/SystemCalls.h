// The one table of every system call the library makes, which a test may change an entry of to make a call fail.
#ifndef KELVO_SRC_FILESYSTEM_POSIX_SYSTEM_CALLS_H
#define KELVO_SRC_FILESYSTEM_POSIX_SYSTEM_CALLS_H

#include <dirent.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdio>

struct stat;
struct timeval;
struct timespec;

namespace kelvo::filesystem::posix {

/// The system calls the wrappers of this folder make, one pointer each, with
/// the system's own signatures (where the system's call takes a variable
/// argument list, a fixed one with the same meaning). The library only reads
/// the table; a test may put its own function in place of one (a read that
/// fails half-way, a lock the system refuses) and must put the system's back
/// from `systemCallsOfTheSystem`. Every entry starts as the system's own call.
struct SystemCalls {
    int (*stat)(char const* path, struct stat* information);
    int (*lstat)(char const* path, struct stat* information);
    int (*fstat)(int descriptor, struct stat* information);
    int (*fstatat)(int directory, char const* name, struct stat* information, int flags);
    int (*open)(char const* path, int flags, mode_t mode);
    int (*openat)(int directory, char const* name, int flags, mode_t mode);
    ssize_t (*read)(int descriptor, void* buffer, std::size_t count);
    ssize_t (*write)(int descriptor, void const* buffer, std::size_t count);
    int (*close)(int descriptor);
    /// `fcntl(descriptor, F_DUPFD_CLOEXEC, 0)`.
    int (*duplicate)(int descriptor);
    /// `copy_file_range` from and to the current offsets; fails with ENOSYS
    /// where the system has no such call.
    ssize_t (*copyFileRange)(int from, int to, std::size_t count);
    DIR* (*fdopendir)(int descriptor);
    dirent* (*readdir)(DIR* stream);
    int (*closedir)(DIR* stream);
    void (*rewinddir)(DIR* stream);
    long (*telldir)(DIR* stream);
    void (*seekdir)(DIR* stream, long position);
    int (*symlink)(char const* target, char const* link);
    ssize_t (*readlink)(char const* path, char* buffer, std::size_t size);
    ssize_t (*readlinkat)(int directory, char const* name, char* buffer, std::size_t size);
    int (*unlinkat)(int directory, char const* name, int flags);
    /// The C library's `remove`.
    int (*remove)(char const* path);
    int (*rmdir)(char const* path);
    int (*mkdir)(char const* path, mode_t mode);
    int (*mkdirat)(int directory, char const* name, mode_t mode);
    int (*rename)(char const* from, char const* to);
    char* (*realpath)(char const* path, char* resolved);
    long (*pathconf)(char const* path, int name);
    char* (*getcwd)(char* buffer, std::size_t size);
    int (*chdir)(char const* path);
    int (*chmod)(char const* path, mode_t mode);
    int (*utimes)(char const* path, struct timeval const times[2]);
    int (*flock)(int descriptor, int operation);
    std::FILE* (*fopen)(char const* path, char const* mode);
    char* (*getenv)(char const* name);
    /// `poll` of `descriptor` alone for input, for at most `milliseconds`.
    int (*pollInput)(int descriptor, int milliseconds);
    int (*pthreadAtfork)(void (*prepare)(), void (*parent)(), void (*child)());
    /// Runs `body(argument)` on a new thread whose stack holds `stackBytes`
    /// (`pthread_attr_setstacksize`, `pthread_create`) and joins it.
    /// @returns 0 when it ran, else the error number of the failing call.
    int (*runThreadWithStack)(std::size_t stackBytes, void* (*body)(void*), void* argument);
    /// `ioctl(destination, FICLONE, source)`: the destination shares the
    /// source's blocks; fails with EOPNOTSUPP where the system cannot.
    int (*cloneFile)(int destination, int source);
    int (*fchmod)(int descriptor, mode_t mode);
    int (*fchmodat)(int directory, char const* name, mode_t mode, int flags);
    int (*fchown)(int descriptor, uid_t owner, gid_t group);
    int (*fchownat)(int directory, char const* name, uid_t owner, gid_t group, int flags);
    int (*futimens)(int descriptor, struct timespec const times[2]);
    int (*utimensat)(int directory, char const* name, struct timespec const times[2], int flags);
    /// `renameat2`; fails with ENOSYS where the system has no such call.
    int (*renameat2)(int fromDirectory, char const* from, int toDirectory, char const* to, unsigned flags);
    int (*linkat)(int fromDirectory, char const* from, int toDirectory, char const* to, int flags);
    int (*mkfifoat)(int directory, char const* name, mode_t mode);
    int (*mknodat)(int directory, char const* name, mode_t mode, dev_t device);
    int (*symlinkat)(char const* target, int directory, char const* name);
    int (*fsync)(int descriptor);
    int (*renameat)(int fromDirectory, char const* from, int toDirectory, char const* to);
};

struct ObjectInformation;

/// Fills `information` from the system's status structure `st`: the one
/// reader of that structure, shared by the status wrappers.
void fillInformation(struct stat const& st, ObjectInformation& information) noexcept;

struct DirectoryStream;

/// @returns the system's stream `stream` under the library's name.
DirectoryStream* wrapStream(DIR* stream) noexcept;

/// The table every wrapper of this folder calls through; reach it with
/// `systemCalls`.
extern SystemCalls theSystemCalls;

/// @returns the table every wrapper of this folder calls through.
inline SystemCalls& systemCalls() noexcept { return theSystemCalls; }

/// @returns a table holding the system's own calls, to restore from.
SystemCalls const& systemCallsOfTheSystem() noexcept;

} // namespace kelvo::filesystem::posix

#endif
