// Status queries and setters: the kind and access bits of a path, its size and its modification time.
#include <kelvo/filesystem/Operations.h>

#include "filesystem/path/PathInternal.h"
#include "filesystem/posix/System.h"
#include "filesystem/status/FileTypes.h"

#include <cstdint>

namespace kelvo::filesystem {

namespace {

constexpr std::int64_t kMicrosecondsPerSecond = 1000000;

// The one routine behind `status` and `symbolicLinkStatus`.
FileStatus statusSupport(Path const& path, bool useLstat)
{
    FileStatus result(FileType::none, Permissions::unknownPermissions);
    posix::ObjectInformation information;
    if (!posix::getFileInformation(PathNativeAccess::cString(path), !useLstat, information))
        return result;
    result.setType(detail::fileTypeOf(posix::classify(information.mode, useLstat)));
    result.setPermissions(static_cast<Permissions>(posix::accessBitsOf(information.mode)));
    return result;
}

} // namespace

FileStatus status(Path const& path) { return statusSupport(path, false); }

FileStatus symbolicLinkStatus(Path const& path) { return statusSupport(path, true); }

bool exists(Path const& path) { return posix::canStat(PathNativeAccess::cString(path)); }

bool isDirectory(Path const& path) { return status(path).getType() == FileType::directory; }

bool setPermissions(Path const& path, Permissions permissions)
{
    char const* const native = PathNativeAccess::cStringForChange(path);
    if (native == nullptr)
        return false;
    return posix::changeMode(native, posix::accessBitsOf(static_cast<std::uint32_t>(permissions)));
}

std::int64_t fileSize(Path const& path)
{
    posix::ObjectInformation information;
    if (!posix::getFileInformation(PathNativeAccess::cString(path), true, information))
        return -1;
    return information.size;
}

FileTime getModificationTime(Path const& path)
{
    posix::ObjectInformation information;
    if (!posix::getFileInformation(PathNativeAccess::cString(path), true, information))
        return FileTime();
    // Computed in unsigned arithmetic: a time too far from the epoch for 64-bit
    // microseconds (a file system may store one) wraps instead of overflowing.
    std::uint64_t const microseconds = static_cast<std::uint64_t>(information.modificationSeconds)
            * static_cast<std::uint64_t>(kMicrosecondsPerSecond)
        + static_cast<std::uint64_t>(information.modificationNanoseconds / 1000);
    return FileTime(std::chrono::microseconds(static_cast<std::int64_t>(microseconds)));
}

bool setModificationTime(Path const& path, FileTime const& time)
{
    char const* const native = PathNativeAccess::cStringForChange(path);
    if (native == nullptr)
        return false;
    posix::ObjectInformation information;
    if (!posix::getFileInformation(native, true, information))
        return false;

    // Kept: the access time keeps its seconds, and its sub-second part goes
    // on as the nanoseconds times 1000 in 32-bit arithmetic, which the system
    // layer passes as 0 when it is out of range (see docs/odd-behaviours.md,
    // 'setModificationTime keeps only the access time's seconds').
    auto const accessNanoseconds = static_cast<std::uint32_t>(information.accessNanoseconds);
    auto const accessMicroseconds = static_cast<std::int32_t>(accessNanoseconds * 1000u);

    std::int64_t const count = time.time_since_epoch().count();
    std::int64_t const seconds = count / kMicrosecondsPerSecond;
    auto const modificationMicroseconds = static_cast<std::int32_t>(
        static_cast<std::uint32_t>(count) - static_cast<std::uint32_t>(seconds) * static_cast<std::uint32_t>(kMicrosecondsPerSecond));

    return posix::setFileTimes(native, information.accessSeconds, accessMicroseconds, seconds, modificationMicroseconds);
}

} // namespace kelvo::filesystem
