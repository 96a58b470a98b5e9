// POSIX wrappers for creation, removal, copy, links and comparison, relative to directory descriptors; generic UNIX code only, the in-kernel copy fenced to Linux.
#include "filesystem/posix/Tree.h"

#include <cerrno>
#include <cstdio>

#include <sys/stat.h>
#include <unistd.h>

namespace kelvo::filesystem::posix {

namespace {

int systemOpenAt(int directory, char const* name, int flags, mode_t mode)
{
    return ::openat(directory, name, flags, mode);
}

int systemRemoveObject(char const* path) { return std::remove(path); }

ssize_t systemCopyRange(int from, int to, std::size_t count)
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

int systemDuplicate(int descriptor) { return ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0); }

TreeCalls const kSystemTreeCalls = {
    systemOpenAt,
    ::fstatat,
    ::fstat,
    ::unlinkat,
    ::mkdirat,
    ::rmdir,
    systemRemoveObject,
    ::rename,
    ::symlink,
    ::read,
    ::write,
    ::close,
    systemCopyRange,
    ::fdopendir,
    ::readdir,
    ::closedir,
    systemDuplicate,
    ::rewinddir,
};

TreeCalls calls = kSystemTreeCalls;

bool fill(int result, struct stat const& st, ObjectInformation& information) noexcept
{
    if (result != 0)
        return false;
    information.mode = static_cast<std::uint32_t>(st.st_mode);
    information.size = static_cast<std::int64_t>(st.st_size);
    information.device = static_cast<std::uint64_t>(st.st_dev);
    information.inode = static_cast<std::uint64_t>(st.st_ino);
    return true;
}

} // namespace

TreeCalls& treeCalls() noexcept { return calls; }

TreeCalls const& systemTreeCalls() noexcept { return kSystemTreeCalls; }

int openAt(int directory, char const* name, int flags, std::uint32_t mode) noexcept
{
    return calls.openAt(directory, name, flags | O_CLOEXEC, static_cast<mode_t>(mode));
}

bool statAt(int directory, char const* name, bool follow, ObjectInformation& information) noexcept
{
    struct stat st;
    return fill(calls.statAt(directory, name, &st, follow ? 0 : AT_SYMLINK_NOFOLLOW), st, information);
}

bool statDescriptor(int descriptor, ObjectInformation& information) noexcept
{
    struct stat st;
    return fill(calls.statDescriptor(descriptor, &st), st, information);
}

bool unlinkAt(int directory, char const* name, bool isDirectory) noexcept
{
    return calls.unlinkAt(directory, name, isDirectory ? AT_REMOVEDIR : 0) == 0;
}

bool makeDirectoryAt(int directory, char const* name, std::uint32_t mode) noexcept
{
    return calls.makeDirectoryAt(directory, name, static_cast<mode_t>(mode)) == 0;
}

bool removeDirectory(char const* path) noexcept { return calls.removeDirectory(path) == 0; }

bool removeObject(char const* path) noexcept { return calls.removeObject(path) == 0; }

bool renameObject(char const* from, char const* to) noexcept { return calls.rename(from, to) == 0; }

bool makeSymbolicLink(char const* target, char const* link) noexcept { return calls.symbolicLink(target, link) == 0; }

long readSome(int descriptor, void* buffer, std::size_t count) noexcept
{
    return static_cast<long>(calls.read(descriptor, buffer, count));
}

long writeSome(int descriptor, void const* buffer, std::size_t count) noexcept
{
    return static_cast<long>(calls.write(descriptor, buffer, count));
}

bool closeObject(int descriptor) noexcept { return calls.close(descriptor) == 0; }

long copyRange(int from, int to, std::size_t count) noexcept
{
    return static_cast<long>(calls.copyRange(from, to, count));
}

DIR* openDirectoryStream(int descriptor) noexcept
{
    DIR* stream = calls.openDirectoryStream(descriptor);
    if (stream == nullptr) {
        int const saved = errno;
        calls.close(descriptor);
        errno = saved;
    }
    return stream;
}

dirent* readDirectoryStream(DIR* stream) noexcept { return calls.readDirectory(stream); }

dirent* readDirectoryStream(DIR* stream, bool& failed) noexcept
{
    // readdir says nothing of the difference but through errno: cleared
    // before the call, and put back when the call did not fail.
    int const saved = errno;
    errno = 0;
    dirent* entry = calls.readDirectory(stream);
    if (entry == nullptr && errno != 0)
        failed = true;
    else
        errno = saved;
    return entry;
}

int duplicateDescriptor(int descriptor) noexcept { return calls.duplicate(descriptor); }

void rewindDirectoryStream(DIR* stream) noexcept { calls.rewindDirectory(stream); }

void closeDirectoryStream(DIR* stream) noexcept { calls.closeDirectoryStream(stream); }

} // namespace kelvo::filesystem::posix
