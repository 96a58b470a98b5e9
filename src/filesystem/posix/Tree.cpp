// POSIX wrappers for creation, removal, copy, links and comparison, relative to directory descriptors; generic UNIX code only.
#include "filesystem/posix/Tree.h"

#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/SystemCalls.h"

#include <cerrno>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvo::filesystem::posix {

namespace {

bool fill(struct stat const& st, ObjectInformation& information) noexcept
{
    fillInformation(st, information);
    return true;
}

// Records the failure of `call` on `path` and hands back `result`, for the
// wrappers whose failure value is a plain one.
template <typename Result>
Result failed(char const* call, char const* path, Result result) noexcept
{
    recordFailure(call, errno, path != nullptr ? std::string_view(path) : std::string_view());
    return result;
}

} // namespace

int const kWorkingDirectory = AT_FDCWD;

namespace {

int flagsFor(OpenIntent intent) noexcept
{
    switch (intent) {
    case OpenIntent::listDirectory:
        return O_RDONLY | O_DIRECTORY;
    case OpenIntent::readSource:
        return O_RDONLY | O_NONBLOCK | O_NOCTTY;
    case OpenIntent::readSourceWaiting:
        return O_RDONLY | O_NOCTTY;
    case OpenIntent::replaceContent:
        return O_WRONLY | O_CREAT | O_TRUNC;
    case OpenIntent::createNew:
        return O_WRONLY | O_CREAT | O_TRUNC | O_EXCL;
    }
    return O_RDONLY;
}

} // namespace

int openAt(int directory, char const* name, OpenIntent intent, bool followLink, std::uint32_t mode) noexcept
{
    int const flags = flagsFor(intent) | (followLink ? 0 : O_NOFOLLOW) | O_CLOEXEC;
    int const descriptor = systemCalls().openat(directory, name, flags, static_cast<mode_t>(mode));
    return descriptor >= 0 ? descriptor : failed("openat", name, -1);
}

bool statAt(int directory, char const* name, bool follow, ObjectInformation& information) noexcept
{
    struct stat st;
    if (systemCalls().fstatat(directory, name, &st, follow ? 0 : AT_SYMLINK_NOFOLLOW) != 0)
        return failed("fstatat", name, false);
    return fill(st, information);
}

std::int64_t readLinkAt(int directory, char const* name, char* buffer, std::size_t size) noexcept
{
    ssize_t const count = systemCalls().readlinkat(directory, name, buffer, size);
    return count >= 0 ? static_cast<std::int64_t>(count) : failed("readlinkat", name, std::int64_t{-1});
}

bool statDescriptor(int descriptor, ObjectInformation& information) noexcept
{
    struct stat st;
    if (systemCalls().fstat(descriptor, &st) != 0)
        return failed("fstat", nullptr, false);
    return fill(st, information);
}

bool unlinkAt(int directory, char const* name, bool isDirectory) noexcept
{
    if (systemCalls().unlinkat(directory, name, isDirectory ? AT_REMOVEDIR : 0) == 0)
        return true;
    return failed("unlinkat", name, false);
}

bool makeDirectoryAt(int directory, char const* name, std::uint32_t mode) noexcept
{
    if (systemCalls().mkdirat(directory, name, static_cast<mode_t>(mode)) == 0)
        return true;
    return failed("mkdirat", name, false);
}

bool removeDirectory(char const* path) noexcept
{
    return systemCalls().rmdir(path) == 0 || failed("rmdir", path, false);
}

bool removeObject(char const* path) noexcept
{
    return systemCalls().remove(path) == 0 || failed("remove", path, false);
}

bool renameObject(char const* from, char const* to) noexcept
{
    return systemCalls().rename(from, to) == 0 || failed("rename", from, false);
}

bool makeSymbolicLink(char const* target, char const* link) noexcept
{
    return systemCalls().symlink(target, link) == 0 || failed("symlink", link, false);
}

long readSome(int descriptor, void* buffer, std::size_t count) noexcept
{
    ssize_t const result = systemCalls().read(descriptor, buffer, count);
    return result >= 0 ? static_cast<long>(result) : failed("read", nullptr, -1L);
}

long writeSome(int descriptor, void const* buffer, std::size_t count) noexcept
{
    ssize_t const result = systemCalls().write(descriptor, buffer, count);
    return result >= 0 ? static_cast<long>(result) : failed("write", nullptr, -1L);
}

long copyRange(int from, int to, std::size_t count) noexcept
{
    ssize_t const result = systemCalls().copyFileRange(from, to, count);
    return result >= 0 ? static_cast<long>(result) : failed("copy_file_range", nullptr, -1L);
}

DirectoryStream* openDirectoryStream(int descriptor) noexcept
{
    DIR* const stream = systemCalls().fdopendir(descriptor);
    if (stream == nullptr) {
        recordFailure("fdopendir", errno, {});
        int const saved = errno;
        closeObject(descriptor);
        errno = saved;
    }
    return wrapStream(stream);
}

int duplicateDescriptor(int descriptor) noexcept
{
    int const duplicate = systemCalls().duplicate(descriptor);
    return duplicate >= 0 ? duplicate : failed("fcntl", nullptr, -1);
}

DirectoryStream* openDirectory(char const* path) noexcept
{
    int const descriptor = openAt(kWorkingDirectory, path, OpenIntent::listDirectory, true);
    return descriptor >= 0 ? openDirectoryStream(descriptor) : nullptr;
}

void rewindDirectoryStream(DirectoryStream* stream) noexcept
{
    systemCalls().rewinddir(reinterpret_cast<DIR*>(stream));
}

} // namespace kelvo::filesystem::posix
