// FileMutex: the lock file with the owner's identifier, its heartbeat and staleness, the process identifier, and the guard that keeps two processes from taking the file at once.
#include <kelvo/filesystem/FileMutex.h>

#include <kelvo/filesystem/Operations.h>

#include "FileAge.h"
#include "PathInternal.h"
#include "RandomNumber.h"
#include "filesystem/posix/Process.h"
#include "filesystem/posix/System.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>

namespace kelvo::filesystem {

namespace {

constexpr char kCannotWrite[] = "FileMutex can't write to mutex file. Check permissions.";
constexpr char kCannotRead[] = "FileMutex can't open mutex file. Check permissions.";

constexpr std::size_t kIdentifierSize = 4;
static_assert(sizeof(std::uint32_t) == kIdentifierSize, "the identifier is written as 4 bytes");

// The value that means that no identifier has been drawn yet. Should a draw
// give it, the next call draws again.
constexpr std::uint32_t kNoIdentifier = 0xFFFFFFFF;

constexpr std::chrono::nanoseconds kRetryInterval(100000000);

// How long try_lock and unlock wait for another process's guard on the
// directory before going on without one, and the pauses between attempts.
constexpr std::chrono::seconds kGuardWaitLimit(1);
constexpr std::chrono::microseconds kFirstGuardPause(50);
constexpr std::chrono::microseconds kLongestGuardPause(2000);

constexpr int kGuardOpenFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

// The identifier of this process, reset in a child made by fork. Constant
// initialisation: usable before any static initialiser has run.
std::atomic<std::uint32_t> randomID{kNoIdentifier};

// Serialises every try_lock and unlock of the process. Made on first use and
// never destroyed, so that static initialisers and exit-time destructors may
// use a FileMutex in any order.
std::mutex& fileMutexMutex()
{
    static std::mutex* const mutex = new std::mutex();
    return *mutex;
}

// A fork waits until no thread is inside try_lock or unlock, so the child
// never starts with the process-wide mutex (or a guard) held by a thread it
// does not have; the child then draws an identifier of its own.
void prepareFork()
{
    fileMutexMutex().lock();
}

void resumeParentAfterFork()
{
    fileMutexMutex().unlock();
}

void resumeChildAfterFork()
{
    randomID.store(kNoIdentifier, std::memory_order_relaxed);
    fileMutexMutex().unlock();
}

// Registers the fork handlers once, before the first identifier is drawn and
// before the first try_lock or unlock: a fork before that has nothing to
// hand down.
void ensureForkHandlers()
{
    static bool const registered =
        posix::registerForkHandlers(prepareFork, resumeParentAfterFork, resumeChildAfterFork);
    (void)registered;
}

std::uint32_t getProcessRandomID()
{
    ensureForkHandlers();
    std::uint32_t current = randomID.load(std::memory_order_relaxed);
    if (current != kNoIdentifier)
        return current;
    std::uint32_t const drawn = detail::drawRandomNumber();
    // Two threads drawing at once agree on the first value stored.
    if (randomID.compare_exchange_strong(current, drawn, std::memory_order_relaxed))
        return drawn;
    return current;
}

// An exclusive flock on the directory of the mutex file, held for the length
// of one try_lock or unlock. Every process of this library takes it before it
// looks at the file, so the test of the file and the write (or removal) that
// follows are one step for all of them: two processes can no longer both find
// the file absent or stale and both take it. Where the directory cannot be
// opened or locked (no read permission, a file system without flock), or
// another holder keeps it longer than kGuardWaitLimit, the work goes on
// without the guard, as plain file tests.
class DirectoryGuard {
public:
    explicit DirectoryGuard(Path const& file)
    {
        Path const directory = file.parentPath();
        char const* native = directory.empty() ? "." : PathNativeAccess::cStringForChange(directory);
        if (native == nullptr)
            return;
        int const opened = posix::openDescriptor(native, kGuardOpenFlags);
        if (opened == -1)
            return;
        if (waitForLock(opened))
            descriptor = opened;
        else
            posix::closeDescriptor(opened);
    }

    ~DirectoryGuard()
    {
        if (descriptor == -1)
            return;
        posix::lockDescriptor(descriptor, LOCK_UN);
        posix::closeDescriptor(descriptor);
    }

    DirectoryGuard(DirectoryGuard const&) = delete;
    DirectoryGuard& operator=(DirectoryGuard const&) = delete;

private:
    static bool waitForLock(int opened)
    {
        auto const deadline = std::chrono::steady_clock::now() + kGuardWaitLimit;
        std::chrono::microseconds pause = kFirstGuardPause;
        for (;;) {
            switch (posix::tryExclusiveLock(opened)) {
            case posix::LockAttempt::taken:
                return true;
            case posix::LockAttempt::failed:
                return false;
            case posix::LockAttempt::busy:
                break;
            }
            if (std::chrono::steady_clock::now() >= deadline)
                return false;
            std::this_thread::sleep_for(pause);
            pause = std::min(pause * 2, kLongestGuardPause);
        }
    }

    int descriptor = -1;
};

} // namespace

FileMutex::FileMutex(Path const& path, std::chrono::seconds staleAfter) : path(path), staleAfter(staleAfter) {}

FileMutex::~FileMutex() = default;

void FileMutex::lock()
{
    if (try_lock())
        return;
    // No limit and no timeout; the process-wide mutex is not held while
    // sleeping.
    for (;;) {
        std::this_thread::sleep_for(kRetryInterval);
        if (try_lock())
            return;
    }
}

bool FileMutex::try_lock()
{
    ensureForkHandlers();
    std::lock_guard<std::mutex> serialised(fileMutexMutex());
    DirectoryGuard guard(path);
    // A stale file is taken over without being read.
    if (exists(path) && !isFileStale() && readLockID() != getProcessRandomID())
        return false;
    // Rewriting a file this process already owns is the heartbeat.
    writeLockID();
    return true;
}

void FileMutex::unlock()
{
    ensureForkHandlers();
    std::lock_guard<std::mutex> serialised(fileMutexMutex());
    DirectoryGuard guard(path);
    if (!exists(path))
        return;
    // A stale file is removed whoever wrote it.
    if (!isFileStale() && readLockID() != getProcessRandomID())
        return;
    remove(path);
}

void FileMutex::writeLockID() const
{
    std::FILE* stream = PathNativeAccess::cStringForChange(path) ? fopenWrapper(path, "wb") : nullptr;
    if (stream != nullptr) {
        std::uint32_t const identifier = getProcessRandomID();
        bool const written = std::fwrite(&identifier, 1, kIdentifierSize, stream) == kIdentifierSize;
        // The bytes reach the file when the stream is closed, so a failing
        // close (a full disk) is a failed write too.
        if (std::fclose(stream) == 0 && written)
            return;
    }
    throw std::logic_error(kCannotWrite);
}

std::uint32_t FileMutex::readLockID() const
{
    std::FILE* stream = PathNativeAccess::cStringForChange(path) ? fopenWrapper(path, "rb") : nullptr;
    if (stream != nullptr) {
        std::uint32_t identifier = 0;
        std::size_t const read = std::fread(&identifier, 1, kIdentifierSize, stream);
        std::fclose(stream);
        // Bytes beyond the fourth are ignored.
        if (read == kIdentifierSize)
            return identifier;
    }
    throw std::logic_error(kCannotRead);
}

bool FileMutex::isFileStale() const
{
    if (!exists(path))
        return false;
    // Whole seconds, truncated toward zero; a time in the future gives a
    // negative age, which is never stale for a limit of zero or more.
    auto const age = std::chrono::duration_cast<std::chrono::duration<long long>>(
        detail::ageOf(getModificationTime(path)));
    return staleAfter < age;
}

} // namespace kelvo::filesystem
