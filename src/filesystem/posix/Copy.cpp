// POSIX wrappers for the copies that keep what users expect; Linux calls fenced where another system lacks them.
#include "filesystem/posix/Copy.h"

#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/SystemCalls.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvo::filesystem::posix {

namespace {

// Records the failure of `call` on `name` (which may be null).
void note(char const* call, char const* name) noexcept
{
    recordFailure(call, errno, name != nullptr ? std::string_view(name) : std::string_view());
}

// Whether the errno of a failed clone or in-kernel copy means that this pair
// of files cannot be handled that way at all, rather than a fault.
bool isUnsupported(int error) noexcept
{
    return error == EOPNOTSUPP || error == ENOTSUP || error == ENOSYS || error == EXDEV || error == EINVAL
        || error == ENOTTY || error == EBADF;
}

CreateResult created(int result, char const* call, char const* name) noexcept
{
    if (result == 0)
        return CreateResult::created;
    note(call, name);
    return errno == EEXIST ? CreateResult::exists : CreateResult::failed;
}

OwnerResult owned(int result, char const* name) noexcept
{
    if (result == 0)
        return OwnerResult::changed;
    note(name != nullptr ? "fchownat" : "fchown", name);
    return errno == EPERM ? OwnerResult::notAllowed : OwnerResult::failed;
}

void fillTimes(ObjectInformation const& information, struct timespec (&times)[2]) noexcept
{
    times[0].tv_sec = static_cast<time_t>(information.accessSeconds);
    times[0].tv_nsec = static_cast<long>(information.accessNanoseconds);
    times[1].tv_sec = static_cast<time_t>(information.modificationSeconds);
    times[1].tv_nsec = static_cast<long>(information.modificationNanoseconds);
}

} // namespace

TransferResult cloneContents(int destination, int source) noexcept
{
    if (systemCalls().cloneFile(destination, source) == 0)
        return TransferResult::done;
    note("ioctl", nullptr);
    return isUnsupported(errno) ? TransferResult::unsupported : TransferResult::failed;
}

TransferResult copyRangeOnce(int from, int to, std::size_t count, long& copied) noexcept
{
    ssize_t const result = systemCalls().copyFileRange(from, to, count);
    if (result >= 0) {
        copied = static_cast<long>(result);
        return TransferResult::done;
    }
    copied = 0;
    note("copy_file_range", nullptr);
    return isUnsupported(errno) ? TransferResult::unsupported : TransferResult::failed;
}

CreateResult createFileAt(int directory, char const* name, std::uint32_t mode, int& descriptor) noexcept
{
    int const flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    int const opened = systemCalls().openat(directory, name, flags, static_cast<mode_t>(mode));
    if (opened >= 0) {
        descriptor = opened;
        return CreateResult::created;
    }
    return created(-1, "openat", name);
}

CreateResult createDirectoryAt(int directory, char const* name, std::uint32_t mode) noexcept
{
    return created(systemCalls().mkdirat(directory, name, static_cast<mode_t>(mode)), "mkdirat", name);
}

CreateResult createFifoAt(int directory, char const* name, std::uint32_t mode) noexcept
{
    return created(systemCalls().mkfifoat(directory, name, static_cast<mode_t>(mode & 07777u)), "mkfifoat", name);
}

CreateResult createDeviceAt(int directory, char const* name, ObjectKind kind, std::uint32_t mode,
                            std::uint64_t device) noexcept
{
    mode_t const type = kind == ObjectKind::blockDevice ? S_IFBLK : S_IFCHR;
    int const result = systemCalls().mknodat(directory, name, type | static_cast<mode_t>(mode & 07777u),
                                             static_cast<dev_t>(device));
    return created(result, "mknodat", name);
}

CreateResult createSymbolicLinkAt(char const* target, int directory, char const* name) noexcept
{
    return created(systemCalls().symlinkat(target, directory, name), "symlinkat", name);
}

OwnerResult changeOwnerOf(int descriptor, std::uint32_t owner, std::uint32_t group) noexcept
{
    return owned(systemCalls().fchown(descriptor, static_cast<uid_t>(owner), static_cast<gid_t>(group)), nullptr);
}

OwnerResult changeGroupOf(int descriptor, std::uint32_t group) noexcept
{
    return owned(systemCalls().fchown(descriptor, static_cast<uid_t>(-1), static_cast<gid_t>(group)), nullptr);
}

OwnerResult changeOwnerAt(int directory, char const* name, std::uint32_t owner, std::uint32_t group) noexcept
{
    return owned(systemCalls().fchownat(directory, name, static_cast<uid_t>(owner), static_cast<gid_t>(group),
                                        AT_SYMLINK_NOFOLLOW),
                 name);
}

OwnerResult changeGroupAt(int directory, char const* name, std::uint32_t group) noexcept
{
    return owned(systemCalls().fchownat(directory, name, static_cast<uid_t>(-1), static_cast<gid_t>(group),
                                        AT_SYMLINK_NOFOLLOW),
                 name);
}

bool changeModeOf(int descriptor, std::uint32_t mode) noexcept
{
    if (systemCalls().fchmod(descriptor, static_cast<mode_t>(mode & 07777u)) == 0)
        return true;
    note("fchmod", nullptr);
    return false;
}

bool changeModeAt(int directory, char const* name, std::uint32_t mode) noexcept
{
    if (systemCalls().fchmodat(directory, name, static_cast<mode_t>(mode & 07777u), 0) == 0)
        return true;
    note("fchmodat", name);
    return false;
}

bool setTimesOf(int descriptor, ObjectInformation const& information) noexcept
{
    struct timespec times[2];
    fillTimes(information, times);
    if (systemCalls().futimens(descriptor, times) == 0)
        return true;
    note("futimens", nullptr);
    return false;
}

bool setTimesAt(int directory, char const* name, ObjectInformation const& information) noexcept
{
    struct timespec times[2];
    fillTimes(information, times);
    if (systemCalls().utimensat(directory, name, times, AT_SYMLINK_NOFOLLOW) == 0)
        return true;
    note("utimensat", name);
    return false;
}

RenameResult renameAt(int fromDirectory, char const* from, int toDirectory, char const* to, bool replace) noexcept
{
#if defined(RENAME_NOREPLACE)
    unsigned const flags = replace ? 0u : RENAME_NOREPLACE;
#else
    unsigned const flags = replace ? 0u : 1u;
#endif
    if (systemCalls().renameat2(fromDirectory, from, toDirectory, to, flags) == 0)
        return RenameResult::renamed;
    note("renameat2", to);
    if (errno == EEXIST && !replace)
        return RenameResult::exists;
    if (!replace && (errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP))
        return RenameResult::unsupported;
    return RenameResult::failed;
}

CreateResult hardLinkAt(int fromDirectory, char const* from, int toDirectory, char const* to) noexcept
{
    return created(systemCalls().linkat(fromDirectory, from, toDirectory, to, 0), "linkat", to);
}

bool readCreationMask(std::uint32_t& mask) noexcept
{
    static char const kPath[] = "/proc/self/status";
    static char const kField[] = "\nUmask:";
    int const descriptor = systemCalls().open(kPath, O_RDONLY | O_CLOEXEC | O_NOCTTY, 0);
    if (descriptor < 0) {
        note("open", kPath);
        return false;
    }
    // The field comes early: the first few kilobytes hold it.
    char text[4096];
    std::size_t length = 0;
    while (length < sizeof text - 1) {
        ssize_t const count = systemCalls().read(descriptor, text + length, sizeof text - 1 - length);
        if (count < 0)
            note("read", kPath);
        if (count <= 0)
            break;
        length += static_cast<std::size_t>(count);
    }
    systemCalls().close(descriptor);
    text[length] = '\0';
    char const* field = std::strstr(text, kField);
    if (field == nullptr)
        return false;
    field += sizeof kField - 1;
    while (*field == ' ' || *field == '\t')
        ++field;
    std::uint32_t value = 0;
    int digits = 0;
    for (; *field >= '0' && *field <= '7'; ++field, ++digits)
        value = value * 8 + static_cast<std::uint32_t>(*field - '0');
    if (digits == 0)
        return false;
    mask = value & 0777u;
    return true;
}

} // namespace kelvo::filesystem::posix
