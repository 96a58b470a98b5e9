// FileLock: an advisory exclusive whole-file lock on an open descriptor, the lock test, and the validation callback.
#include <kelvo/filesystem/FileLock.h>

#include <kelvo/filesystem/Operations.h>

#include "filesystem/path/PathInternal.h"
#include "filesystem/posix/System.h"

#include <fcntl.h>
#include <sys/file.h>

namespace kelvo::filesystem {

namespace {

// Asked before every lock is taken; empty means that every file may be locked.
std::function<bool(Path const&)> shouldLockFileCallback;

// Descriptors are not handed down to programs this process starts.
constexpr int kLockOpenFlags = O_RDWR | O_NONBLOCK | O_CLOEXEC;
constexpr int kTestOpenFlags = O_RDONLY | O_NONBLOCK | O_CLOEXEC;

// Release as both the destructor and unlockFile do; results are ignored, as
// there is nothing left to do about them.
void releaseDescriptor(int descriptor) noexcept
{
    posix::lockDescriptor(descriptor, LOCK_UN);
    posix::closeDescriptor(descriptor);
}

} // namespace

FileLock::FileLock(Path const& path)
{
    lockFile(path);
}

FileLock::~FileLock()
{
    if (descriptor != -1)
        releaseDescriptor(descriptor);
}

bool FileLock::lockFile(Path const& path)
{
    if (isDirectory(path))
        return false;
    // An object that holds a descriptor answers yes for any path, without
    // looking at it: callers lock once and then ask again freely.
    if (descriptor != -1)
        return true;
    if (shouldLockFileCallback && !shouldLockFileCallback(path))
        return false;
    char const* const native = PathNativeAccess::cStringForChange(path);
    if (native == nullptr)
        return false;
    // No O_CREAT: a file that does not exist is never created by locking it.
    descriptor = posix::openDescriptor(native, kLockOpenFlags);
    if (descriptor == -1)
        return false;
    // Kept: when another holder has the file, the descriptor stays open and
    // stored, so the object answers yes to a later lockFile and its
    // destructor closes it (see docs/odd-behaviours.md, 'A FileLock that
    // failed once reports success ever after').
    return posix::lockDescriptor(descriptor, LOCK_EX | LOCK_NB);
}

void FileLock::unlockFile()
{
    if (descriptor == -1)
        return;
    // Kept: the closed number stays in the object rather than being reset,
    // so a later lockFile answers yes without locking (see
    // docs/odd-behaviours.md, 'A FileLock that failed once reports success
    // ever after').
    releaseDescriptor(descriptor);
}

bool FileLock::isFileLocked(Path const& path)
{
    if (isDirectory(path))
        return false;
    char const* const native = PathNativeAccess::cStringForChange(path);
    if (native == nullptr)
        return false; // names no file, so nothing can hold it
    int const testDescriptor = posix::openDescriptor(native, kTestOpenFlags);
    if (testDescriptor == -1) {
        // A missing file is free; one that exists but cannot be read counts
        // as held.
        return exists(path);
    }
    bool const taken = posix::lockDescriptor(testDescriptor, LOCK_EX | LOCK_NB);
    if (taken)
        posix::lockDescriptor(testDescriptor, LOCK_UN);
    posix::closeDescriptor(testDescriptor);
    return !taken;
}

void FileLock::setValidationCallback(std::function<bool(Path const&)> callback)
{
    std::function<bool(Path const&)> replacement(callback);
    replacement.swap(shouldLockFileCallback);
    // `replacement` now holds the previous callback and is destroyed here.
}

} // namespace kelvo::filesystem
