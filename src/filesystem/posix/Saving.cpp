// POSIX wrappers for atomic saves: unnamed files (Linux), exclusive creation, write loops, flushes, owners and modes of descriptors, links and renames relative to a directory.
#include "filesystem/posix/Saving.h"

#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/SystemCalls.h"

#include <cerrno>
#include <cstdio>
#include <limits>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvo::filesystem::posix {

namespace {

void fillSavedObject(struct stat const& st, SavedObject& object) noexcept
{
    object.kind = kindOf(static_cast<std::uint32_t>(st.st_mode));
    object.accessBits = static_cast<std::uint32_t>(st.st_mode) & 07777u;
    object.owner = static_cast<std::uint32_t>(st.st_uid);
    object.group = static_cast<std::uint32_t>(st.st_gid);
}

// Where the system lets a process name an open descriptor by a path.
constexpr char kDescriptorDirectory[] = "/proc/self/fd";

// One write never asks for more than this: the kernel caps it near 2 GiB.
constexpr std::size_t kLargestWrite = std::size_t(1) << 30;

} // namespace

bool getSavedObject(char const* path, bool follow, SavedObject& object) noexcept
{
    struct stat st;
    SystemCalls const& calls = systemCalls();
    if ((follow ? calls.stat : calls.lstat)(path, &st) != 0) {
        recordFailure(follow ? "stat" : "lstat", errno, path);
        return false;
    }
    fillSavedObject(st, object);
    return true;
}

bool getSavedObjectOfDescriptor(int descriptor, SavedObject& object) noexcept
{
    struct stat st;
    if (systemCalls().fstat(descriptor, &st) != 0) {
        recordFailure("fstat", errno, {});
        return false;
    }
    fillSavedObject(st, object);
    return true;
}

void recordRefusedTarget(char const* path, ObjectKind kind) noexcept
{
    int const saved = errno;
    recordFailure("rename", kind == ObjectKind::directory ? EISDIR : ENOTSUP, path);
    errno = saved;
}

UnnamedFileResult openUnnamedFile(int directory, std::uint32_t mode, int& descriptor) noexcept
{
#if defined(O_TMPFILE)
    int const opened = systemCalls().openat(directory, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, static_cast<mode_t>(mode));
    if (opened >= 0) {
        descriptor = opened;
        return UnnamedFileResult::opened;
    }
    recordFailure("openat", errno, {});
    // A file system without unnamed files answers EOPNOTSUPP; a kernel that
    // does not know the flag sees a directory opened for writing.
    if (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)
        return UnnamedFileResult::unsupported;
    return UnnamedFileResult::failed;
#else
    (void)directory;
    (void)mode;
    (void)descriptor;
    return UnnamedFileResult::unsupported;
#endif
}

bool canNameUnnamedFiles() noexcept
{
#if defined(O_TMPFILE)
    struct stat st;
    if (systemCalls().stat(kDescriptorDirectory, &st) == 0)
        return true;
    recordFailure("stat", errno, kDescriptorDirectory);
    return false;
#else
    return false;
#endif
}

ExclusiveCreation linkUnnamedFile(int descriptor, int directory, char const* name) noexcept
{
    char path[sizeof kDescriptorDirectory + 24];
    std::snprintf(path, sizeof path, "%s/%d", kDescriptorDirectory, descriptor);
    SystemCalls const& calls = systemCalls();
    int result = calls.linkat(AT_FDCWD, path, directory, name, AT_SYMLINK_FOLLOW);
#if defined(AT_EMPTY_PATH)
    if (result != 0 && errno == ENOENT)
        result = calls.linkat(descriptor, "", directory, name, AT_EMPTY_PATH);
#endif
    if (result == 0)
        return ExclusiveCreation::created;
    recordFailure("linkat", errno, name);
    return errno == EEXIST ? ExclusiveCreation::alreadyExists : ExclusiveCreation::failed;
}

ExclusiveCreation createExclusive(int directory, char const* name, std::uint32_t mode, int& descriptor) noexcept
{
    int const flags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY;
    int const opened = systemCalls().openat(directory, name, flags, static_cast<mode_t>(mode));
    if (opened >= 0) {
        descriptor = opened;
        return ExclusiveCreation::created;
    }
    recordFailure("openat", errno, name);
    return errno == EEXIST ? ExclusiveCreation::alreadyExists : ExclusiveCreation::failed;
}

bool writeAll(int descriptor, void const* buffer, std::size_t count) noexcept
{
    char const* next = static_cast<char const*>(buffer);
    SystemCalls const& calls = systemCalls();
    while (count > 0) {
        std::size_t const asked = count < kLargestWrite ? count : kLargestWrite;
        ssize_t const written = calls.write(descriptor, next, asked);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            recordFailure("write", errno, {});
            return false;
        }
        if (written == 0) {
            // A regular file that takes no byte of a write has no room left.
            errno = ENOSPC;
            recordFailure("write", errno, {});
            return false;
        }
        next += written;
        count -= static_cast<std::size_t>(written);
    }
    return true;
}

bool flushToStorage(int descriptor) noexcept
{
    if (systemCalls().fsync(descriptor) == 0)
        return true;
    recordFailure("fsync", errno, {});
    return false;
}

bool changeModeOfDescriptor(int descriptor, std::uint32_t bits) noexcept
{
    if (systemCalls().fchmod(descriptor, static_cast<mode_t>(bits & 07777u)) == 0)
        return true;
    recordFailure("fchmod", errno, {});
    return false;
}

OwnerChange changeOwnerOfDescriptor(int descriptor, std::uint32_t owner, std::uint32_t group) noexcept
{
    uid_t const newOwner = owner == kKeepOwner ? static_cast<uid_t>(-1) : static_cast<uid_t>(owner);
    gid_t const newGroup = group == kKeepOwner ? static_cast<gid_t>(-1) : static_cast<gid_t>(group);
    if (systemCalls().fchown(descriptor, newOwner, newGroup) == 0)
        return OwnerChange::changed;
    if (errno == EPERM)
        return OwnerChange::notPermitted;
    recordFailure("fchown", errno, {});
    return OwnerChange::failed;
}

bool renameAt(int fromDirectory, char const* from, int toDirectory, char const* to) noexcept
{
    if (systemCalls().renameat(fromDirectory, from, toDirectory, to) == 0)
        return true;
    recordFailure("renameat", errno, from);
    return false;
}

} // namespace kelvo::filesystem::posix
