// FileLock: an advisory exclusive whole-file lock on an open descriptor, the lock test, and the validation callback.
#include <kelvo/filesystem/FileLock.h>

#include <kelvo/filesystem/Operations.h>

#include "filesystem/path/PathInternal.h"
#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/System.h"

namespace kelvo::filesystem {

namespace {

// Asked before every lock is taken; empty means that every file may be locked.
std::function<bool(Path const&)> shouldLockFileCallback;

// Opens what is at `native` without creating it, without waiting and
// close-on-exec, as `opening` says. @returns the descriptor, or -1.
int openExisting(char const* native, posix::LockFileOpening opening) noexcept
{
    int descriptor = -1;
    posix::openLockFile(native, opening, descriptor);
    return descriptor;
}

// Release as both the destructor and unlockFile do; results are ignored, as
// there is nothing left to do about them.
void releaseDescriptor(int descriptor) noexcept
{
    posix::unlockDescriptor(descriptor);
    posix::closeObject(descriptor);
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
    // A file that does not exist is never created by locking it.
    descriptor = openExisting(native, posix::LockFileOpening::existingForReadingAndWriting);
    if (descriptor == -1)
        return false;
    // Kept: when another holder has the file, the descriptor stays open and
    // stored, so the object answers yes to a later lockFile and its
    // destructor closes it (see docs/odd-behaviours.md, 'A FileLock that
    // failed once reports success ever after').
    if (posix::tryExclusiveLock(descriptor) == posix::LockAttempt::taken)
        return true;
    posix::setFailurePath(native);
    return false;
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
    int const testDescriptor = openExisting(native, posix::LockFileOpening::existingForReading);
    if (testDescriptor == -1) {
        // A missing file is free; one that exists but cannot be read counts
        // as held.
        return exists(path);
    }
    bool const taken = posix::tryExclusiveLock(testDescriptor) == posix::LockAttempt::taken;
    if (taken)
        posix::unlockDescriptor(testDescriptor);
    else
        posix::setFailurePath(native);
    posix::closeObject(testDescriptor);
    return !taken;
}

void FileLock::setValidationCallback(std::function<bool(Path const&)> callback)
{
    std::function<bool(Path const&)> replacement(callback);
    replacement.swap(shouldLockFileCallback);
    // `replacement` now holds the previous callback and is destroyed here.
}

} // namespace kelvo::filesystem
