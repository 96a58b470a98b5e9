// Status queries and setters: the kind and access bits of a path, its size and its modification time.
#include <kelvo/filesystem/Operations.h>

#include "filesystem/path/PathInternal.h"
#include "filesystem/posix/System.h"

#include <cstdint>

namespace kelvo::filesystem {

namespace {

constexpr std::uint32_t kDirectoryBit = 040000;
constexpr std::uint32_t kSymbolicLinkBits = 0120000;
constexpr std::uint32_t kRegularFileBit = 0100000;
constexpr std::uint32_t kCharacterDeviceBit = 020000;
constexpr std::uint32_t kFifoBit = 010000;
constexpr std::uint32_t kBlockDeviceBits = 060000;
constexpr std::uint32_t kAccessBits = 0777;
constexpr std::int64_t kMicrosecondsPerSecond = 1000000;

// The kinds are told by single bits of the mode, tried in this order, rather
// than by the whole kind field. Kept: a socket reads as a directory and a
// regular file seen without following links as a link (see
// docs/odd-behaviours.md, 'File types are told by single bits').
FileType classify(std::uint32_t mode, bool useLstat) noexcept
{
    if ((mode & kDirectoryBit) != 0)
        return FileType::directory;
    if ((mode & kSymbolicLinkBits) != 0 && useLstat)
        return FileType::symbolicLink;
    if ((mode & kRegularFileBit) != 0)
        return FileType::regularFile;
    if ((mode & kCharacterDeviceBit) != 0)
        return FileType::characterDevice;
    if ((mode & kFifoBit) != 0)
        return FileType::fifo;
    if ((mode & kBlockDeviceBits) != 0)
        return FileType::blockDevice;
    return FileType::unknown;
}

// The one routine behind `status` and `symbolicLinkStatus`. The last flag is
// part of the routine's long-standing signature and is not read.
FileStatus statusSupport(Path const& path, bool useLstat, bool /*unused*/ = false)
{
    FileStatus result(FileType::none, Permissions::unknownPermissions);
    posix::FileInformation information;
    if (!posix::getFileInformation(PathNativeAccess::cString(path), !useLstat, information))
        return result;
    result.setType(classify(information.mode, useLstat));
    result.setPermissions(static_cast<Permissions>(information.mode & kAccessBits));
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
    return posix::changeMode(native, static_cast<std::uint32_t>(permissions) & kAccessBits);
}

std::int64_t fileSize(Path const& path)
{
    posix::FileInformation information;
    if (!posix::getFileInformation(PathNativeAccess::cString(path), true, information))
        return -1;
    return information.size;
}

FileTime getModificationTime(Path const& path)
{
    posix::FileInformation information;
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
    posix::FileInformation information;
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
