// FileMutex: the lock file with the owner's identifier, its heartbeat and staleness, the process identifier, and the guard that keeps two processes from taking the file at once.
#include <kelvo/filesystem/FileMutex.h>

#include <kelvo/filesystem/Operations.h>

#include "filesystem/status/FileAge.h"
#include "filesystem/path/PathInternal.h"
#include "filesystem/temporary/RandomNumber.h"
#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/Process.h"
#include "filesystem/posix/System.h"
#include "filesystem/posix/Tree.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace kelvo::filesystem {

namespace {

// A FIFO, socket or device: reading or writing it may wait for a peer.
bool isSpecial(posix::ObjectInformation const& information) noexcept
{
    posix::ObjectKind const kind = posix::kindOf(information.mode);
    return kind != posix::ObjectKind::regularFile && kind != posix::ObjectKind::directory;
}

bool sameObject(posix::ObjectInformation const& a, posix::ObjectInformation const& b) noexcept
{
    return a.device == b.device && a.inode == b.inode;
}

constexpr char kCannotWrite[] = "FileMutex can't write to mutex file. Check permissions.";
constexpr char kCannotRead[] = "FileMutex can't open mutex file. Check permissions.";

constexpr std::size_t kIdentifierSize = 4;
static_assert(sizeof(std::uint32_t) == kIdentifierSize, "the identifier is written as 4 bytes");

// The value that means that no identifier has been drawn yet. Should a draw
// give it, the next call draws again.
constexpr std::uint32_t kNoIdentifier = 0xFFFFFFFF;

constexpr std::chrono::nanoseconds kRetryInterval(100000000);

// How long try_lock and unlock wait for another process's lock on the mutex
// file before going on without the lock: long enough that a crowd of
// processes taking turns on a busy machine always gets through, short enough
// that a stopped holder cannot stall them for good. How long a file that
// another process has just created is given to be written before it counts
// as too short. And the pauses between attempts.
constexpr std::chrono::seconds kGuardWaitLimit(10);
constexpr std::chrono::seconds kEmptyFileGrace(1);
constexpr std::chrono::microseconds kFirstGuardPause(50);
constexpr std::chrono::microseconds kLongestGuardPause(2000);

// The calling thread's answer to FileMutex::lastGuard. Per thread: a
// FileMutex is shared between threads, and each wants to hear about its own
// call.
thread_local FileMutexGuard lastGuardOfThread = FileMutexGuard::notYetUsed;

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

// An exclusive flock on the mutex file itself, held for the length of one
// try_lock or unlock. Every process of this library takes it before it looks
// at the file, so the test of the file and the write (or removal) that follows
// are one step for all of them: two processes can no longer both find the
// file absent or stale and both take it. Opening the file for reading or for
// writing is all it needs; the directory need not be listable.
//
// An absent file has nothing to lock, so try_lock creates it (exclusively:
// whoever creates it knows it was absent) and locks it. Between the creation
// and the lock another process may open and lock the new, still empty file;
// it takes an empty fresh file for one in the making, lets go and tries again
// until the limit, and only then treats it as the too short file it is. Since
// unlock removes the file under the lock, a waiter that gets the lock checks
// that the path still names the file it locked, and starts again with the
// new file (or the absent one) when it does not.
//
// Where no lock can be had (the file can neither be created nor opened, the
// file system refuses flock, another holder keeps it past kGuardWaitLimit),
// the call goes on with the plain file tests, and state() says why.
class MutexFileGuard {
public:
    enum class Purpose { taking, releasing };

    MutexFileGuard(FileMutex const& mutex, Path const& file, Purpose purpose)
    {
        char const* native = PathNativeAccess::cStringForChange(file);
        if (native != nullptr)
            take(mutex, native, purpose);
    }

    ~MutexFileGuard()
    {
        // Closing the only descriptor of the open file lets go of the lock.
        if (descriptor != -1)
            posix::closeObject(descriptor);
    }

    MutexFileGuard(MutexFileGuard const&) = delete;
    MutexFileGuard& operator=(MutexFileGuard const&) = delete;

    FileMutexGuard state() const { return outcome; }

    // True when this call created the file, which was therefore absent; it
    // is empty until writeIntoCreatedFile.
    bool createdTheFile() const { return created; }

    // True when unlock found nothing at the path.
    bool foundNoFile() const { return noFile; }

    // Writes `identifier` into the file this call created, through the
    // descriptor that created it: with a umask that takes the write
    // permission away, reopening the file would fail where creating it
    // succeeded. Lets go of the lock when the write succeeded.
    // @returns true when all its bytes were written and the file closed.
    bool writeIntoCreatedFile(std::uint32_t identifier)
    {
        if (posix::writeSome(descriptor, &identifier, kIdentifierSize) != static_cast<long>(kIdentifierSize))
            return false;
        int const written = descriptor;
        descriptor = -1;
        return posix::closeObject(written);
    }

private:
    void take(FileMutex const& mutex, char const* native, Purpose purpose)
    {
        auto const start = std::chrono::steady_clock::now();
        auto const deadline = start + kGuardWaitLimit;
        auto const emptyFileDeadline = start + kEmptyFileGrace;
        std::chrono::microseconds pause = kFirstGuardPause;
        auto waitAndGoOn = [&] {
            if (std::chrono::steady_clock::now() >= deadline)
                return false;
            std::this_thread::sleep_for(pause);
            pause = std::min(pause * 2, kLongestGuardPause);
            return true;
        };
        // Each pass opens the file afresh; a pass ends in a return or, when
        // the file changed under it, in another pass.
        for (;;) {
            switch (open(native, purpose)) {
            case Opening::opened:
                break;
            case Opening::finished:
                return;
            case Opening::goneMeanwhile:
                // Removed by another process between the creation that found
                // it and the opening that did not: try again.
                if (!waitAndGoOn()) {
                    outcome = FileMutexGuard::timedOut;
                    return;
                }
                continue;
            }
            for (;;) {
                posix::LockAttempt const attempt = posix::tryExclusiveLock(descriptor);
                if (attempt == posix::LockAttempt::taken)
                    break;
                if (attempt == posix::LockAttempt::failed) {
                    posix::setFailurePath(native);
                    goOnUnguarded(FileMutexGuard::notSupported);
                    return;
                }
                if (!waitAndGoOn()) {
                    goOnUnguarded(FileMutexGuard::timedOut);
                    return;
                }
            }
            posix::ObjectInformation locked;
            posix::ObjectInformation named;
            if (!posix::statDescriptor(descriptor, locked) || isSpecial(locked)) {
                // Replaced by a FIFO, socket or device since it was looked
                // at: never read or written.
                close();
                outcome = FileMutexGuard::cannotOpen;
                return;
            }
            if (!posix::getFileInformation(native, true, named) || !sameObject(named, locked)) {
                // Removed (or replaced) by the holder this call waited for.
                close();
                if (std::chrono::steady_clock::now() >= deadline) {
                    outcome = FileMutexGuard::timedOut;
                    return;
                }
                continue;
            }
            outcome = FileMutexGuard::held;
            if (created || locked.size != 0 || posix::kindOf(locked.mode) != posix::ObjectKind::regularFile || mutex.isFileStale())
                return;
            // Empty and fresh: most likely created by another process that has
            // not locked it yet. Let it go so that its maker can write it;
            // past the grace it is simply too short, and is kept locked.
            if (std::chrono::steady_clock::now() >= emptyFileDeadline)
                return;
            close();
            waitAndGoOn();
        }
    }

    enum class Opening {
        opened,        // `descriptor` is open on the file, not locked yet
        finished,      // nothing to lock: `outcome` and `noFile` tell the rest
        goneMeanwhile, // found, then gone before it could be opened
    };

    Opening open(char const* native, Purpose purpose)
    {
        using posix::LockFileOpenResult;
        LockFileOpenResult creation = LockFileOpenResult::refused;
        if (purpose == Purpose::taking) {
            creation = posix::openLockFile(native, posix::LockFileOpening::createNew, descriptor);
            if (creation == LockFileOpenResult::opened) {
                created = true;
                return Opening::opened;
            }
        }
        // A FIFO, socket or device is not opened at all: even a moment's
        // opening of a FIFO counts as a peer to whoever waits at its other
        // end.
        posix::ObjectInformation seen;
        if (posix::getFileInformation(native, true, seen) && isSpecial(seen)) {
            outcome = FileMutexGuard::cannotOpen;
            return Opening::finished;
        }
        // Reading or writing, whichever is allowed: the lock needs either.
        LockFileOpenResult existing = posix::openLockFile(native, posix::LockFileOpening::existingForReading, descriptor);
        if (existing == LockFileOpenResult::refused)
            existing = posix::openLockFile(native, posix::LockFileOpening::existingForWriting, descriptor);
        if (existing == LockFileOpenResult::opened)
            return Opening::opened;
        if (existing != LockFileOpenResult::absent) {
            outcome = FileMutexGuard::cannotOpen;
            return Opening::finished;
        }
        if (purpose == Purpose::releasing) {
            // Nothing to remove, and unlock never creates the file.
            noFile = true;
            outcome = FileMutexGuard::held;
            return Opening::finished;
        }
        // try_lock found nothing to open. When it could not create the file
        // either (no write permission, a missing directory), or a final link
        // names nothing (which the write follows, creating the link's
        // target), there is nothing to lock; otherwise another process
        // removed the file between the two opens.
        posix::ObjectInformation linkItself;
        // The file may go and come back between the two looks (another
        // process's unlock, then its try_lock): only a link itself that
        // names nothing counts, never a file made in between.
        bool const danglingLink = !posix::canStat(native) && posix::getFileInformation(native, false, linkItself)
                               && posix::kindOf(linkItself.mode) == posix::ObjectKind::symbolicLink;
        if (creation != LockFileOpenResult::alreadyExists || danglingLink) {
            outcome = FileMutexGuard::cannotOpen;
            return Opening::finished;
        }
        return Opening::goneMeanwhile;
    }

    // Without the lock: a file this call created is kept open to be written,
    // any other is let go.
    void goOnUnguarded(FileMutexGuard why)
    {
        outcome = why;
        if (!created)
            close();
    }

    void close()
    {
        posix::closeObject(descriptor);
        descriptor = -1;
        created = false;
    }

    int descriptor = -1;
    bool created = false;
    bool noFile = false;
    FileMutexGuard outcome = FileMutexGuard::cannotOpen;
};

// A FIFO, socket or device cannot hold an identifier, and opening one as a
// stream may wait for a peer without end: such a path is never opened, and
// reads and writes of it fail as those of a file one may not open do. A path
// that holds a NUL names no file at all, and fails the same way.
// @returns true when `file` may be opened as a stream.
bool isPlainFileOrAbsent(Path const& file)
{
    char const* native = PathNativeAccess::cStringForChange(file);
    if (native == nullptr)
        return false;
    posix::ObjectInformation seen;
    return !posix::getFileInformation(native, true, seen) || !isSpecial(seen);
}

} // namespace

FileMutex::FileMutex(Path const& path, std::chrono::seconds staleAfter) : path(path), staleAfter(staleAfter) {}

FileMutex::~FileMutex() = default;

void FileMutex::lock()
{
    if (try_lock())
        return;
    // Without limit by design: lock returns only once the mutex is taken (a
    // holder that never releases lets it go when its file turns stale). The
    // process-wide mutex is not held while sleeping.
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
    MutexFileGuard guard(*this, path, MutexFileGuard::Purpose::taking);
    lastGuardOfThread = guard.state();
    if (guard.createdTheFile()) {
        // It was absent: nothing to test, the identifier goes in.
        if (guard.writeIntoCreatedFile(getProcessRandomID()))
            return true;
        // An empty file left behind would be refused as too short by every
        // caller until it went stale: the call leaves the directory as it
        // found it.
        remove(path);
        throw std::logic_error(kCannotWrite);
    }
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
    MutexFileGuard guard(*this, path, MutexFileGuard::Purpose::releasing);
    lastGuardOfThread = guard.state();
    // What the guard found absent stays so for the call: a file made since
    // by another process is not this call's to read.
    if (guard.foundNoFile() || !exists(path))
        return;
    // A stale file is removed whoever wrote it.
    if (!isFileStale() && readLockID() != getProcessRandomID())
        return;
    remove(path);
}

FileMutexGuard FileMutex::lastGuard() noexcept
{
    return lastGuardOfThread;
}

void FileMutex::writeLockID() const
{
    std::FILE* stream = isPlainFileOrAbsent(path) ? fopenWrapper(path, "wb") : nullptr;
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
    std::FILE* stream = isPlainFileOrAbsent(path) ? fopenWrapper(path, "rb") : nullptr;
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
