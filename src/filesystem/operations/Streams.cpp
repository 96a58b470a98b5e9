// Opening C and C++ streams by Path, with or without the lock check.
#include <kelvo/filesystem/FileLock.h>
#include <kelvo/filesystem/Operations.h>

#include "filesystem/path/PathInternal.h"
#include "filesystem/posix/System.h"

#include <cerrno>
#include <ios>
#include <string>

namespace kelvo::filesystem {

namespace {

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
    char const* const native = PathNativeAccess::cStringForChange(path);
    if (native == nullptr)
        return nullptr;
    return posix::openStream(native, mode.c_str());
}

std::FILE* fopenWrapperWithLockCheck(Path const& path, std::string const& mode)
{
    if (isLockedKeepingErrno(path))
        return nullptr;
    return fopenWrapper(path, mode);
}

void fstreamWrapper(std::fstream& stream, Path const& path, unsigned int mode)
{
    char const* const native = PathNativeAccess::cStringForChange(path);
    if (native == nullptr) {
        // Named no file: the stream fails as an open of a missing file would.
        stream.setstate(std::ios_base::failbit);
        return;
    }
    stream.open(native, static_cast<std::ios_base::openmode>(mode));
}

void fstreamWrapperWithLockCheck(std::fstream& stream, Path const& path, unsigned int mode)
{
    // A refused file leaves the stream untouched, error bits included: the
    // caller sees the refusal only as a stream that is not open.
    if (isLockedKeepingErrno(path))
        return;
    fstreamWrapper(stream, path, mode);
}

} // namespace kelvo::filesystem
