// Reading a symbolic link itself: the bytes it holds, its own size, access bits and time.
#include <kelvo/filesystem/Operations.h>

#include "filesystem/path/PathInternal.h"
#include "filesystem/posix/System.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace kelvo::filesystem {

namespace {

constexpr std::uint32_t kKindBits = 0170000;
constexpr std::uint32_t kSymbolicLinkKind = 0120000;
constexpr std::uint32_t kAccessBits = 0777;
constexpr std::int64_t kMicrosecondsPerSecond = 1000000;
// A first read of this many bytes holds almost every target; a longer one is
// read again with a buffer twice the size, up to the largest a string holds.
constexpr std::size_t kInitialTargetSize = 256;

/// Reads the bytes the link `native` holds into `target`.
/// @returns false when it is not a link or cannot be read.
bool readTarget(char const* native, std::string& target)
{
    std::string buffer(kInitialTargetSize, '\0');
    for (;;) {
        std::int64_t const got = posix::readLinkContents(native, &buffer[0], buffer.size());
        if (got < 0)
            return false;
        if (static_cast<std::size_t>(got) < buffer.size()) {
            buffer.resize(static_cast<std::size_t>(got));
            target = std::move(buffer);
            return true;
        }
        // The bytes filled the buffer: some may be missing.
        if (buffer.size() > buffer.max_size() / 2)
            return false;
        buffer.assign(buffer.size() * 2, '\0');
    }
}

} // namespace

Path readSymbolicLink(Path const& path)
{
    char const* const native = PathNativeAccess::cStringForChange(path);
    std::string target;
    if (native == nullptr || !readTarget(native, target))
        return Path();
    // The bytes as the system gave them are the native form.
    return Path(target);
}

bool readSymbolicLinkInformation(Path const& path, SymbolicLinkInformation& information)
{
    char const* const native = PathNativeAccess::cStringForChange(path);
    if (native == nullptr)
        return false;
    posix::ObjectInformation own;
    if (!posix::getFileInformation(native, false, own) || (own.mode & kKindBits) != kSymbolicLinkKind)
        return false;
    std::string target;
    // The link may have been replaced by something else between the two calls.
    if (!readTarget(native, target))
        return false;
    // As the modification times of files are: unsigned arithmetic, so that a
    // time too far from the epoch for 64-bit microseconds wraps.
    std::uint64_t const microseconds = static_cast<std::uint64_t>(own.modificationSeconds)
            * static_cast<std::uint64_t>(kMicrosecondsPerSecond)
        + static_cast<std::uint64_t>(own.modificationNanoseconds / 1000);
    information.target = Path(target);
    information.size = own.size;
    information.permissions = static_cast<Permissions>(own.mode & kAccessBits);
    information.modificationTime = FileTime(std::chrono::microseconds(static_cast<std::int64_t>(microseconds)));
    return true;
}

} // namespace kelvo::filesystem
