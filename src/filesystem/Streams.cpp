// Opening C and C++ streams by Path, with or without the lock check, and reading and changing the current directory.
#include <kelvo/filesystem/FileLock.h>
#include <kelvo/filesystem/Operations.h>

#include "PathInternal.h"
#include "filesystem/posix/System.h"

#include <cerrno>
#include <cstddef>
#include <ios>
#include <string>
#include <vector>

namespace kelvo::filesystem {

namespace {

constexpr std::size_t kInitialWorkingDirectorySize = 1024;

// Asks whether another holder has `path` locked, leaving errno as it was: a
// refused open must not look like a failed one.
bool isLockedKeepingErrno(Path const& path)
{
    int const savedErrno = errno;
    bool const locked = FileLock::isFileLocked(path);
    errno = savedErrno;
    return locked;
}

} // namespace

std::FILE* fopenWrapper(Path const& path, std::string const& mode)
{
    return posix::openStream(PathNativeAccess::cString(path), mode.c_str());
}

std::FILE* fopenWrapperWithLockCheck(Path const& path, std::string const& mode)
{
    if (isLockedKeepingErrno(path))
        return nullptr;
    return fopenWrapper(path, mode);
}

void fstreamWrapper(std::fstream& stream, Path const& path, unsigned int mode)
{
    stream.open(PathNativeAccess::cString(path), static_cast<std::ios_base::openmode>(mode));
}

void fstreamWrapperWithLockCheck(std::fstream& stream, Path const& path, unsigned int mode)
{
    // A refused file leaves the stream untouched, error bits included: the
    // caller sees the refusal only as a stream that is not open.
    if (isLockedKeepingErrno(path))
        return;
    fstreamWrapper(stream, path, mode);
}

Path getCurrentDirectory()
{
    Path result;
    std::size_t size = kInitialWorkingDirectorySize;
    std::vector<char> buffer(size + 1, '\0');
    while (result.empty()) {
        switch (posix::getWorkingDirectory(buffer.data(), size)) {
        case posix::WorkingDirectoryResult::found:
            result = Path(std::string(buffer.data()));
            if (result.empty())
                return result; // nothing to grow for: the system named no directory
            break;
        case posix::WorkingDirectoryResult::bufferTooSmall:
            // No upper bound: the buffer doubles until the path fits.
            size *= 2;
            buffer.resize(size + 1, '\0');
            break;
        case posix::WorkingDirectoryResult::failed:
            return result;
        }
    }
    return result;
}

bool setCurrentDirectory(Path const& path)
{
    if (!exists(path))
        return false;
    return posix::changeWorkingDirectory(PathNativeAccess::cString(path));
}

} // namespace kelvo::filesystem
