// The table of the system's own calls, and the one the wrappers read.
#include "filesystem/posix/SystemCalls.h"

#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#if defined(__linux__)
#include <linux/fs.h>
#endif

namespace kelvo::filesystem::posix {

namespace {

int systemStat(char const* path, struct stat* information) { return ::stat(path, information); }

int systemLstat(char const* path, struct stat* information) { return ::lstat(path, information); }

int systemFstat(int descriptor, struct stat* information) { return ::fstat(descriptor, information); }

int systemOpen(char const* path, int flags, mode_t mode) { return ::open(path, flags, mode); }

int systemOpenat(int directory, char const* name, int flags, mode_t mode)
{
    return ::openat(directory, name, flags, mode);
}

int systemDuplicate(int descriptor) { return ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0); }

ssize_t systemCopyFileRange(int from, int to, std::size_t count)
{
#if defined(__linux__)
    return ::copy_file_range(from, nullptr, to, nullptr, count, 0);
#else
    (void)from;
    (void)to;
    (void)count;
    errno = ENOSYS;
    return -1;
#endif
}

int systemRemove(char const* path) { return std::remove(path); }

long systemPathconf(char const* path, int name) { return ::pathconf(path, name); }

int systemUtimes(char const* path, struct timeval const times[2]) { return ::utimes(path, times); }

std::FILE* systemFopen(char const* path, char const* mode) { return std::fopen(path, mode); }

char* systemGetenv(char const* name) { return std::getenv(name); }

int systemPollInput(int descriptor, int milliseconds)
{
    pollfd watched = {descriptor, POLLIN, 0};
    return ::poll(&watched, 1, milliseconds);
}

int systemRunThreadWithStack(std::size_t stackBytes, void* (*body)(void*), void* argument)
{
    pthread_attr_t attributes;
    int error = pthread_attr_init(&attributes);
    if (error != 0)
        return error;
    pthread_t thread;
    error = pthread_attr_setstacksize(&attributes, stackBytes);
    if (error == 0)
        error = pthread_create(&thread, &attributes, body, argument);
    pthread_attr_destroy(&attributes);
    if (error == 0)
        pthread_join(thread, nullptr);
    return error;
}

int systemCloneFile(int destination, int source)
{
#if defined(__linux__) && defined(FICLONE)
    return ::ioctl(destination, FICLONE, source);
#else
    (void)destination;
    (void)source;
    errno = EOPNOTSUPP;
    return -1;
#endif
}

int systemRenameat2(int fromDirectory, char const* from, int toDirectory, char const* to, unsigned flags)
{
#if defined(__linux__) && defined(RENAME_NOREPLACE)
    return ::renameat2(fromDirectory, from, toDirectory, to, flags);
#else
    if (flags == 0)
        return ::renameat(fromDirectory, from, toDirectory, to);
    errno = ENOSYS;
    return -1;
#endif
}

SystemCalls const kSystemCalls = {
    systemStat,
    systemLstat,
    systemFstat,
    ::fstatat,
    systemOpen,
    systemOpenat,
    ::read,
    ::write,
    ::close,
    systemDuplicate,
    systemCopyFileRange,
    ::fdopendir,
    ::readdir,
    ::closedir,
    ::rewinddir,
    ::telldir,
    ::seekdir,
    ::symlink,
    ::readlink,
    ::readlinkat,
    ::unlinkat,
    systemRemove,
    ::rmdir,
    ::mkdir,
    ::mkdirat,
    ::rename,
    ::realpath,
    systemPathconf,
    ::getcwd,
    ::chdir,
    ::chmod,
    systemUtimes,
    ::flock,
    systemFopen,
    systemGetenv,
    systemPollInput,
    ::pthread_atfork,
    systemRunThreadWithStack,
    systemCloneFile,
    ::fchmod,
    ::fchmodat,
    ::fchown,
    ::fchownat,
    ::futimens,
    ::utimensat,
    systemRenameat2,
    ::linkat,
    ::mkfifoat,
    ::mknodat,
    ::symlinkat,
    ::fsync,
    ::renameat,
};

} // namespace

SystemCalls theSystemCalls = kSystemCalls;

SystemCalls const& systemCallsOfTheSystem() noexcept { return kSystemCalls; }

} // namespace kelvo::filesystem::posix
