// Tests of FileMutex: the lock file and its format, heartbeat and staleness, the two error messages, threads and forked children, the standard lock guards, and overlaps between processes.
#include <kelvo/filesystem.h>

#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <csignal>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::FileMutex;
using kelvo::filesystem::FileMutexGuard;
using kelvo::filesystem::Path;
using kelvo::testing::existsByDirectProbe;
using kelvo::testing::nowMicroseconds;
using kelvo::testing::setAge;
using kelvo::testing::setTimes;
using kelvo::testing::firstFailure;
using kelvo::testing::runInChild;
using kelvo::testing::runUnprivileged;
using std::chrono::seconds;

constexpr char kCannotWrite[] = "FileMutex can't write to mutex file. Check permissions.";
constexpr char kCannotRead[] = "FileMutex can't open mutex file. Check permissions.";

/// @returns the bytes of the file at `path` (empty when it cannot be read).
std::string readBytes(std::string const& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

/// @returns the 4 bytes of `identifier` in this machine's byte order.
std::string bytesOf(std::uint32_t identifier)
{
    char bytes[4];
    std::memcpy(bytes, &identifier, 4);
    return std::string(bytes, 4);
}

/// @returns the modification time of `path` in microseconds since the epoch,
/// by `stat`; -1 when it cannot be read.
long long modificationMicroseconds(std::string const& path)
{
    struct stat st;
    if (::stat(path.c_str(), &st) != 0)
        return -1;
    return static_cast<long long>(st.st_mtim.tv_sec) * 1000000 + st.st_mtim.tv_nsec / 1000;
}

/// Runs `action` and @returns the message of the std::logic_error it threw,
/// or "<no exception>".
template <typename Action>
std::string logicErrorOf(Action action)
{
    try {
        action();
    } catch (std::logic_error const& error) {
        return error.what();
    }
    return "<no exception>";
}

/// @returns a file name of this process in the system's temporary directory.
std::string privateFileName(char const* what)
{
    char const* base = std::getenv("TMPDIR");
    return std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/kelvo-file-mutex-" + what + "-"
        + std::to_string(::getpid());
}

/// Takes and releases a mutex on `file`.
/// @returns true when it was taken, held the file and left nothing behind.
bool takeAndRelease(std::string const& file)
{
    FileMutex mutex(Path(file), seconds(10));
    bool const taken = mutex.try_lock();
    bool const held = existsByDirectProbe(file);
    mutex.unlock();
    return taken && held && !existsByDirectProbe(file);
}

// Built before anything in this process uses a FileMutex, so its destructor
// runs after anything made on first use would have been destroyed: the
// process-wide state must still work then. A failure ends the process with a
// failure status, which fails whichever test case this process ran.
struct TakesAMutexAtExit {
    ~TakesAMutexAtExit()
    {
        if (!takeAndRelease(privateFileName("exit")))
            std::_Exit(3);
    }
} gTakesAMutexAtExit;

// Takes a mutex while static initialisers run, before main.
bool const gTakenWhileStarting = takeAndRelease(privateFileName("start"));

TEST(FileMutexStartAndExit, AMutexWorksInAStaticInitialiser)
{
    EXPECT_TRUE(gTakenWhileStarting);
}

class FileMutexTest : public kelvo::testing::ScratchDirectory {
protected:
    /// @returns this process's identifier, as `writeLockID` writes it.
    std::uint32_t ownIdentifier() const
    {
        FileMutex probe(Path(at("identifier-probe")), seconds(60));
        probe.writeLockID();
        std::uint32_t const identifier = probe.readLockID();
        ::unlink(at("identifier-probe").c_str());
        return identifier;
    }

    /// Writes the file `name` as another process holding the mutex would.
    void writeOtherOwner(std::string const& name) const { writeFile(name, bytesOf(~ownIdentifier())); }
};

// ---- taking, refreshing and releasing --------------------------------------------------

TEST_F(FileMutexTest, ConstructionTouchesNothing)
{
    FileMutex mutex(Path(at("m")), seconds(10));
    EXPECT_FALSE(existsByDirectProbe(at("m")));
}

TEST_F(FileMutexTest, TryLockOnAnAbsentFileWritesThisProcesssIdentifier)
{
    FileMutex mutex(Path(at("m")), seconds(10));
    EXPECT_TRUE(mutex.try_lock());
    std::string const bytes = readBytes(at("m"));
    ASSERT_EQ(bytes.size(), 4u);
    EXPECT_EQ(bytes, bytesOf(ownIdentifier()));
    EXPECT_EQ(mutex.readLockID(), ownIdentifier());
}

TEST_F(FileMutexTest, TheIdentifierIsDrawnOncePerProcess)
{
    std::uint32_t const first = ownIdentifier();
    EXPECT_EQ(ownIdentifier(), first);
    FileMutex other(Path(at("other")), seconds(1));
    other.writeLockID();
    EXPECT_EQ(other.readLockID(), first);
}

TEST_F(FileMutexTest, TryLockTwiceRewritesTheFileAndAdvancesItsTime)
{
    FileMutex mutex(Path(at("m")), seconds(60));
    ASSERT_TRUE(mutex.try_lock());
    ASSERT_TRUE(setAge(at("m"), 30000000)); // fresh still, but 30 s old
    long long const before = modificationMicroseconds(at("m"));
    EXPECT_TRUE(mutex.try_lock());
    long long const after = modificationMicroseconds(at("m"));
    EXPECT_GT(after, before + 20000000);
    EXPECT_EQ(readBytes(at("m")), bytesOf(ownIdentifier()));
}

TEST_F(FileMutexTest, UnlockRemovesTheFileOfThisProcess)
{
    FileMutex mutex(Path(at("m")), seconds(10));
    ASSERT_TRUE(mutex.try_lock());
    mutex.unlock();
    EXPECT_FALSE(existsByDirectProbe(at("m")));
}

TEST_F(FileMutexTest, UnlockOfAnAbsentFileDoesNothing)
{
    FileMutex mutex(Path(at("m")), seconds(10));
    EXPECT_NO_THROW(mutex.unlock());
    EXPECT_FALSE(existsByDirectProbe(at("m")));
}

TEST_F(FileMutexTest, DestructionLeavesTheFile)
{
    {
        FileMutex mutex(Path(at("m")), seconds(10));
        ASSERT_TRUE(mutex.try_lock());
    }
    EXPECT_EQ(readBytes(at("m")), bytesOf(ownIdentifier()));
}

TEST_F(FileMutexTest, AFreshFileOfAnotherProcessIsNotTakenNorRemoved)
{
    writeOtherOwner("m");
    ASSERT_TRUE(setAge(at("m"), 5000000));
    long long const time = modificationMicroseconds(at("m"));
    std::string const content = readBytes(at("m"));
    FileMutex mutex(Path(at("m")), seconds(10));
    EXPECT_FALSE(mutex.try_lock());
    EXPECT_EQ(readBytes(at("m")), content);
    EXPECT_EQ(modificationMicroseconds(at("m")), time);
    mutex.unlock();
    EXPECT_EQ(readBytes(at("m")), content);
    EXPECT_EQ(modificationMicroseconds(at("m")), time);
}

TEST_F(FileMutexTest, AStaleFileOfAnotherProcessIsTakenOver)
{
    writeOtherOwner("m");
    ASSERT_TRUE(setAge(at("m"), 20000000));
    FileMutex mutex(Path(at("m")), seconds(10));
    EXPECT_TRUE(mutex.try_lock());
    EXPECT_EQ(readBytes(at("m")), bytesOf(ownIdentifier()));
}

TEST_F(FileMutexTest, AStaleFileIsTakenOverWithoutBeingRead)
{
    // Two bytes cannot be read as an identifier: only a file that is not read
    // can be taken.
    writeFile("m", "ab");
    ASSERT_TRUE(setAge(at("m"), 20000000));
    FileMutex mutex(Path(at("m")), seconds(10));
    EXPECT_TRUE(mutex.try_lock());
    EXPECT_EQ(readBytes(at("m")), bytesOf(ownIdentifier()));
}

TEST_F(FileMutexTest, UnlockRemovesAStaleFileOfAnotherProcess)
{
    writeOtherOwner("m");
    ASSERT_TRUE(setAge(at("m"), 20000000));
    FileMutex mutex(Path(at("m")), seconds(10));
    mutex.unlock();
    EXPECT_FALSE(existsByDirectProbe(at("m")));
}

TEST_F(FileMutexTest, AFutureModificationTimeIsNeverStale)
{
    writeOtherOwner("m");
    ASSERT_TRUE(setTimes(at("m"), nowMicroseconds() + 3600LL * 1000000));
    FileMutex mutex(Path(at("m")), seconds(10));
    EXPECT_FALSE(mutex.isFileStale());
    EXPECT_FALSE(mutex.try_lock());
    FileMutex noLimit(Path(at("m")), seconds(0));
    EXPECT_FALSE(noLimit.isFileStale());
}

TEST_F(FileMutexTest, AFarFutureModificationTimeIsNeverStale)
{
    // The year 2500: beyond what a count of nanoseconds since 1970 can hold.
    writeOtherOwner("m");
    ASSERT_TRUE(setTimes(at("m"), 16725225600LL * 1000000));
    FileMutex mutex(Path(at("m")), seconds(10));
    EXPECT_FALSE(mutex.isFileStale());
    EXPECT_FALSE(mutex.try_lock());
}

// ---- staleness ---------------------------------------------------------------------------

TEST_F(FileMutexTest, StalenessCountsWholeSecondsStrictly)
{
    writeFile("m", "abcd");
    FileMutex mutex(Path(at("m")), seconds(10));
    ASSERT_TRUE(setAge(at("m"), 9000000));
    EXPECT_FALSE(mutex.isFileStale());
    // 10 s and 10.5 s both count as 10 whole seconds, which is not more than
    // 10 (10.5 leaves room for a slow machine between the two calls).
    ASSERT_TRUE(setAge(at("m"), 10000000));
    EXPECT_FALSE(mutex.isFileStale());
    ASSERT_TRUE(setAge(at("m"), 10500000));
    EXPECT_FALSE(mutex.isFileStale());
    ASSERT_TRUE(setAge(at("m"), 11000000));
    EXPECT_TRUE(mutex.isFileStale());
    ASSERT_TRUE(setAge(at("m"), 3600000000LL));
    EXPECT_TRUE(mutex.isFileStale());
}

TEST_F(FileMutexTest, AnAbsentFileIsNotStale)
{
    FileMutex mutex(Path(at("m")), seconds(0));
    EXPECT_FALSE(mutex.isFileStale());
}

TEST_F(FileMutexTest, WithALimitOfZeroAFileIsStaleAfterOneWholeSecond)
{
    writeFile("m", "abcd");
    FileMutex mutex(Path(at("m")), seconds(0));
    ASSERT_TRUE(setAge(at("m"), 0));
    EXPECT_FALSE(mutex.isFileStale());
    ASSERT_TRUE(setAge(at("m"), 1000000));
    EXPECT_TRUE(mutex.isFileStale());
}

// ---- the file's format and the two errors ------------------------------------------------

TEST_F(FileMutexTest, TheIdentifierIsReadInMachineByteOrder)
{
    writeFile("m", bytesOf(0x12345678u));
    FileMutex mutex(Path(at("m")), seconds(10));
    EXPECT_EQ(mutex.readLockID(), 0x12345678u);
    std::uint16_t const probe = 1;
    if (*reinterpret_cast<unsigned char const*>(&probe) == 1) {
        EXPECT_EQ(readBytes(at("m")), std::string("\x78\x56\x34\x12", 4));
    }
}

TEST_F(FileMutexTest, BytesBeyondTheFourthAreIgnored)
{
    writeFile("m", bytesOf(0xCAFEF00Du) + "\nmore");
    FileMutex mutex(Path(at("m")), seconds(10));
    EXPECT_EQ(mutex.readLockID(), 0xCAFEF00Du);
}

TEST_F(FileMutexTest, WriteLockIDTruncatesToExactlyFourBytes)
{
    writeFile("m", "a much longer content than four bytes");
    FileMutex mutex(Path(at("m")), seconds(10));
    mutex.writeLockID();
    EXPECT_EQ(readBytes(at("m")), bytesOf(ownIdentifier()));
}

TEST_F(FileMutexTest, AFreshTwoByteFileThrowsCannotOpen)
{
    writeFile("m", "ab");
    FileMutex mutex(Path(at("m")), seconds(10));
    EXPECT_EQ(logicErrorOf([&] { mutex.try_lock(); }), kCannotRead);
    EXPECT_EQ(logicErrorOf([&] { mutex.unlock(); }), kCannotRead);
    EXPECT_EQ(logicErrorOf([&] { mutex.lock(); }), kCannotRead);
    EXPECT_EQ(logicErrorOf([&] { mutex.readLockID(); }), kCannotRead);
    EXPECT_EQ(readBytes(at("m")), "ab");
}

TEST_F(FileMutexTest, AnEmptyFreshFileThrowsCannotOpen)
{
    writeFile("m", "");
    FileMutex mutex(Path(at("m")), seconds(10));
    EXPECT_EQ(logicErrorOf([&] { mutex.try_lock(); }), kCannotRead);
    EXPECT_TRUE(existsByDirectProbe(at("m")));
}

TEST_F(FileMutexTest, ReadingAnAbsentFileThrowsCannotOpen)
{
    FileMutex mutex(Path(at("m")), seconds(10));
    EXPECT_EQ(logicErrorOf([&] { mutex.readLockID(); }), kCannotRead);
}

TEST_F(FileMutexTest, AMissingDirectoryThrowsCannotWrite)
{
    FileMutex mutex(Path(at("missing/m")), seconds(10));
    EXPECT_EQ(logicErrorOf([&] { mutex.try_lock(); }), kCannotWrite);
    EXPECT_EQ(logicErrorOf([&] { mutex.lock(); }), kCannotWrite);
    EXPECT_EQ(logicErrorOf([&] { mutex.writeLockID(); }), kCannotWrite);
    EXPECT_NO_THROW(mutex.unlock());
    EXPECT_FALSE(existsByDirectProbe(at("missing")));
}

TEST_F(FileMutexTest, AReadOnlyDirectoryThrowsCannotWrite)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    ASSERT_EQ(::mkdir(at("readonly").c_str(), 0555), 0);
    ASSERT_EQ(::chmod(at("readonly").c_str(), 0555), 0);
    std::string const file = at("readonly/m");
    int const status = runUnprivileged([&] {
        FileMutex mutex(Path(file), seconds(10));
        std::string const tried = logicErrorOf([&] { mutex.try_lock(); });
        std::string const locked = logicErrorOf([&] { mutex.lock(); });
        return firstFailure({tried == kCannotWrite, locked == kCannotWrite, !existsByDirectProbe(file)});
    });
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(existsByDirectProbe(file));
}

TEST_F(FileMutexTest, AFileThatCannotBeReadThrowsCannotOpen)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    writeOtherOwner("m");
    ASSERT_EQ(::chmod(at("m").c_str(), 0200), 0);
    std::string const file = at("m");
    int const status = runUnprivileged([&] {
        FileMutex mutex(Path(file), seconds(10));
        return firstFailure({logicErrorOf([&] { mutex.try_lock(); }) == kCannotRead,
                             logicErrorOf([&] { mutex.unlock(); }) == kCannotRead});
    });
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(existsByDirectProbe(file));
}

TEST_F(FileMutexTest, APathHoldingANulByteIsNeverWrittenUnderTheShorterName)
{
    FileMutex mutex(Path(at("m") + std::string("\0x", 2)), seconds(10));
    EXPECT_EQ(logicErrorOf([&] { mutex.try_lock(); }), kCannotWrite);
    EXPECT_FALSE(existsByDirectProbe(at("m")));
}

// ---- waiting ---------------------------------------------------------------------------

TEST_F(FileMutexTest, LockTakesAFreeMutexAtOnce)
{
    FileMutex mutex(Path(at("m")), seconds(10));
    mutex.lock();
    EXPECT_EQ(readBytes(at("m")), bytesOf(ownIdentifier()));
}

TEST_F(FileMutexTest, LockReturnsAtTheFirstRetryAfterTheHolderGoesStale)
{
    // Another process's file that becomes stale (more than 1 whole second
    // old) 0.35 s from now.
    writeOtherOwner("m");
    long long const staleAt = nowMicroseconds() + 350000;
    ASSERT_TRUE(setTimes(at("m"), staleAt - 2000000));
    FileMutex mutex(Path(at("m")), seconds(1));
    ASSERT_FALSE(mutex.try_lock());
    mutex.lock();
    long long const returned = nowMicroseconds();
    EXPECT_EQ(readBytes(at("m")), bytesOf(ownIdentifier()));
    EXPECT_GE(returned, staleAt) << "taken before the file went stale";
    // Retries come every 100 ms, so the first one after the file went stale
    // comes within 100 ms of it; the rest is room for a slow machine.
    EXPECT_LT(returned, staleAt + 100000 + 1500000) << "not taken at the first retry after it went stale";
}

// ---- threads and processes ------------------------------------------------------------

TEST_F(FileMutexTest, ThreadsOfOneProcessShareOwnership)
{
    FileMutex first(Path(at("m")), seconds(10));
    ASSERT_TRUE(first.try_lock());
    bool secondTook = false;
    std::thread other([&] {
        FileMutex second(Path(at("m")), seconds(10));
        secondTook = second.try_lock();
    });
    other.join();
    EXPECT_TRUE(secondTook);
    EXPECT_EQ(readBytes(at("m")), bytesOf(ownIdentifier()));
}

TEST_F(FileMutexTest, ThreadsTakingAndReleasingAtOnceNeverSeeAHalfWrittenFile)
{
    // Without the process-wide serialisation, one thread would read the file
    // while another has just truncated it, and throw.
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            FileMutex mutex(Path(at("m")), seconds(10));
            for (int i = 0; i < 200; ++i) {
                try {
                    if (!mutex.try_lock())
                        ++failures;
                    mutex.unlock();
                } catch (std::exception const&) {
                    ++failures;
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failures.load(), 0);
}

TEST_F(FileMutexTest, AForkedChildDoesNotShareOwnership)
{
    FileMutex mutex(Path(at("m")), seconds(10));
    ASSERT_TRUE(mutex.try_lock());
    std::uint32_t const parent = ownIdentifier();
    std::string const childFile = at("child");
    int const status = runInChild([&] {
        FileMutex inChild(Path(childFile), seconds(10));
        inChild.writeLockID();
        FileMutex shared(Path(at("m")), seconds(10));
        bool const refused = !shared.try_lock();
        shared.unlock(); // not the child's: left in place
        return firstFailure({refused, inChild.readLockID() != parent, existsByDirectProbe(at("m"))});
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(readBytes(at("m")), bytesOf(parent));
    EXPECT_NE(readBytes(childFile), bytesOf(parent));
    EXPECT_EQ(readBytes(childFile).size(), 4u);
    EXPECT_EQ(ownIdentifier(), parent) << "the parent's identifier changed";
}

TEST_F(FileMutexTest, ForkingWhileAnotherThreadTakesAndReleasesNeverHangsTheChild)
{
    std::atomic<bool> stop{false};
    std::thread busy([&] {
        FileMutex mutex(Path(at("busy")), seconds(10));
        while (!stop.load()) {
            mutex.try_lock();
            mutex.unlock();
        }
    });
    int hung = 0;
    for (int i = 0; i < 20; ++i) {
        std::string const file = at("child" + std::to_string(i));
        int const status = runInChild([&] {
            ::alarm(5); // a child stuck on a mutex that nobody will release dies here
            FileMutex mutex(Path(file), seconds(10));
            bool const took = mutex.try_lock();
            mutex.unlock();
            return took ? 0 : 1;
        });
        if (status != 0)
            ++hung;
    }
    stop = true;
    busy.join();
    EXPECT_EQ(hung, 0);
}

// ---- the lock on the mutex file, and what lastGuard reports ----------------------------

TEST_F(FileMutexTest, LastGuardIsNotYetUsedOnAThreadThatMadeNoCall)
{
    FileMutexGuard seen = FileMutexGuard::held;
    std::thread fresh([&] { seen = FileMutex::lastGuard(); });
    fresh.join();
    EXPECT_EQ(seen, FileMutexGuard::notYetUsed);
}

TEST_F(FileMutexTest, EveryCallOnAnOrdinaryFileIsGuarded)
{
    FileMutex mutex(Path(at("m")), seconds(10));
    ASSERT_TRUE(mutex.try_lock()); // absent: created and locked
    EXPECT_EQ(FileMutex::lastGuard(), FileMutexGuard::held);
    ASSERT_TRUE(mutex.try_lock()); // this process's own
    EXPECT_EQ(FileMutex::lastGuard(), FileMutexGuard::held);
    mutex.unlock();
    EXPECT_EQ(FileMutex::lastGuard(), FileMutexGuard::held);
    mutex.unlock(); // absent: nothing to guard, and nothing created
    EXPECT_EQ(FileMutex::lastGuard(), FileMutexGuard::held);
    EXPECT_FALSE(existsByDirectProbe(at("m")));
    writeOtherOwner("m");
    EXPECT_FALSE(mutex.try_lock());
    EXPECT_EQ(FileMutex::lastGuard(), FileMutexGuard::held);
}

TEST_F(FileMutexTest, TheLockOnTheFileIsLetGoWhenTheCallReturns)
{
    FileMutex mutex(Path(at("m")), seconds(10));
    ASSERT_TRUE(mutex.try_lock());
    EXPECT_TRUE(kelvo::testing::isFreeByDirectProbe(at("m")));
    writeOtherOwner("n");
    FileMutex other(Path(at("n")), seconds(10));
    EXPECT_FALSE(other.try_lock());
    EXPECT_TRUE(kelvo::testing::isFreeByDirectProbe(at("n")));
    other.unlock();
    EXPECT_TRUE(kelvo::testing::isFreeByDirectProbe(at("n")));
}

TEST_F(FileMutexTest, AHolderOfTheLockThatNeverLetsGoIsWaitedForAboutASecond)
{
    // Another open of the file holds its lock, as a stopped process inside
    // try_lock would: the calls go on without the lock, and say so.
    writeOtherOwner("m");
    std::string const content = readBytes(at("m"));
    int const holder = ::open(at("m").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(holder, 0);
    ASSERT_EQ(::flock(holder, LOCK_EX | LOCK_NB), 0);
    FileMutex mutex(Path(at("m")), seconds(10));
    EXPECT_FALSE(mutex.try_lock());
    EXPECT_EQ(FileMutex::lastGuard(), FileMutexGuard::timedOut);
    EXPECT_NO_THROW(mutex.unlock());
    EXPECT_EQ(FileMutex::lastGuard(), FileMutexGuard::timedOut);
    EXPECT_EQ(readBytes(at("m")), content);
    ::close(holder);
    EXPECT_FALSE(mutex.try_lock());
    EXPECT_EQ(FileMutex::lastGuard(), FileMutexGuard::held);
}

TEST_F(FileMutexTest, AFileNobodyMayOpenRunsUnguardedAndSaysSo)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    writeOtherOwner("m");
    ASSERT_EQ(::chmod(at("m").c_str(), 0000), 0);
    std::string const file = at("m");
    int const status = runUnprivileged([&] {
        FileMutex mutex(Path(file), seconds(10));
        std::string const tried = logicErrorOf([&] { mutex.try_lock(); });
        FileMutexGuard const afterTry = FileMutex::lastGuard();
        std::string const released = logicErrorOf([&] { mutex.unlock(); });
        FileMutexGuard const afterUnlock = FileMutex::lastGuard();
        return firstFailure({tried == kCannotRead, afterTry == FileMutexGuard::cannotOpen, released == kCannotRead,
                             afterUnlock == FileMutexGuard::cannotOpen});
    });
    if (char const* reason = kelvo::testing::unprivilegedSkipReason(status))
        GTEST_SKIP() << reason;
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(existsByDirectProbe(file));
}

TEST_F(FileMutexTest, AFileOneMayWriteButNotReadIsStillGuarded)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0777), 0);
    writeOtherOwner("m");
    ASSERT_TRUE(setAge(at("m"), 20000000)); // stale: taken over without being read
    ASSERT_EQ(::chmod(at("m").c_str(), 0222), 0);
    std::string const file = at("m");
    int const status = runUnprivileged([&] {
        FileMutex mutex(Path(file), seconds(10));
        bool const took = mutex.try_lock();
        FileMutexGuard const afterTry = FileMutex::lastGuard();
        return firstFailure({took, afterTry == FileMutexGuard::held});
    });
    if (char const* reason = kelvo::testing::unprivilegedSkipReason(status))
        GTEST_SKIP() << reason;
    EXPECT_EQ(status, 0);
    struct stat written;
    ASSERT_EQ(::stat(at("m").c_str(), &written), 0);
    EXPECT_EQ(written.st_size, 4); // read by size: a user who is not root may not read it
}

TEST_F(FileMutexTest, ALinkToNothingIsFollowedAsBeforeWithoutTheLock)
{
    // The write follows the link and creates its target; nothing could be
    // locked before the target existed.
    ASSERT_EQ(::symlink(at("target").c_str(), at("m").c_str()), 0);
    FileMutex mutex(Path(at("m")), seconds(10));
    EXPECT_TRUE(mutex.try_lock());
    EXPECT_EQ(FileMutex::lastGuard(), FileMutexGuard::cannotOpen);
    EXPECT_EQ(readBytes(at("target")), bytesOf(ownIdentifier()));
    EXPECT_TRUE(mutex.try_lock()); // the link names a file now
    EXPECT_EQ(FileMutex::lastGuard(), FileMutexGuard::held);
    mutex.unlock(); // removes the link itself, as remove does
    EXPECT_FALSE(existsByDirectProbe(at("m")));
    EXPECT_TRUE(existsByDirectProbe(at("target")));
}

TEST_F(FileMutexTest, AFirstWriteThatFailsLeavesNoEmptyFileBehind)
{
    // A file size limit of 0 makes every write fail, after the file is made.
    std::string const fresh = at("fresh");
    std::string const stale = at("stale");
    writeOtherOwner("stale");
    ASSERT_TRUE(setAge(stale, 20000000));
    int const status = runInChild([&] {
        ::signal(SIGXFSZ, SIG_IGN);
        struct rlimit const none = {0, 0};
        if (::setrlimit(RLIMIT_FSIZE, &none) != 0)
            return 100;
        FileMutex made(Path(fresh), seconds(10));
        std::string const creating = logicErrorOf([&] { made.try_lock(); });
        // An existing file is rewritten by opening it for writing, which
        // empties it before the write fails: it is left empty.
        FileMutex rewritten(Path(stale), seconds(10));
        std::string const rewriting = logicErrorOf([&] { rewritten.try_lock(); });
        return firstFailure({creating == kCannotWrite, !existsByDirectProbe(fresh), rewriting == kCannotWrite});
    });
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(existsByDirectProbe(fresh));
    EXPECT_EQ(readBytes(stale), "");
    FileMutex mutex(Path(fresh), seconds(10));
    EXPECT_TRUE(mutex.try_lock()) << "a later try_lock still takes the mutex";
}

/// Runs `body` in a forked child that a signal ends after 10 seconds.
/// @returns the child's exit status, or kChildDidNotExit when it hung.
template <typename Body>
int runWithinTenSeconds(Body body)
{
    return runInChild([&] {
        ::alarm(10);
        return body();
    });
}

TEST_F(FileMutexTest, AFifoAtThePathNeverHangsAndCannotHoldAnIdentifier)
{
    ASSERT_EQ(::mkfifo(at("m").c_str(), 0666), 0);
    std::string const file = at("m");
    int const status = runWithinTenSeconds([&] {
        FileMutex mutex(Path(file), seconds(3600));
        std::string const tried = logicErrorOf([&] { mutex.try_lock(); });
        FileMutexGuard const afterTry = FileMutex::lastGuard();
        std::string const locked = logicErrorOf([&] { mutex.lock(); });
        std::string const released = logicErrorOf([&] { mutex.unlock(); });
        std::string const read = logicErrorOf([&] { mutex.readLockID(); });
        std::string const written = logicErrorOf([&] { mutex.writeLockID(); });
        return firstFailure({tried == kCannotRead, afterTry == FileMutexGuard::cannotOpen, locked == kCannotRead,
                             released == kCannotRead, read == kCannotRead, written == kCannotWrite,
                             S_ISFIFO(kelvo::testing::linkMode(file))});
    });
    EXPECT_EQ(status, 0) << "121: the child hung and was ended by its alarm";
}

TEST_F(FileMutexTest, AStaleFifoIsNotWrittenButIsRemovedByUnlock)
{
    ASSERT_EQ(::mkfifo(at("m").c_str(), 0666), 0);
    ASSERT_TRUE(setAge(at("m"), 20000000));
    std::string const file = at("m");
    int const status = runWithinTenSeconds([&] {
        FileMutex mutex(Path(file), seconds(10));
        std::string const tried = logicErrorOf([&] { mutex.try_lock(); });
        bool const stillThere = S_ISFIFO(kelvo::testing::linkMode(file));
        std::string const released = logicErrorOf([&] { mutex.unlock(); });
        return firstFailure({tried == kCannotWrite, stillThere, released == "<no exception>",
                             !existsByDirectProbe(file)});
    });
    EXPECT_EQ(status, 0) << "121: the child hung and was ended by its alarm";
}

TEST_F(FileMutexTest, ASocketAtThePathCannotHoldAnIdentifier)
{
    std::string const file = at("m");
    int const listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(listener, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(file.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, file.c_str(), file.size() + 1);
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
    int const status = runWithinTenSeconds([&] {
        FileMutex mutex(Path(file), seconds(3600));
        std::string const tried = logicErrorOf([&] { mutex.try_lock(); });
        FileMutexGuard const afterTry = FileMutex::lastGuard();
        std::string const written = logicErrorOf([&] { mutex.writeLockID(); });
        return firstFailure({tried == kCannotRead, afterTry == FileMutexGuard::cannotOpen, written == kCannotWrite});
    });
    ::close(listener);
    EXPECT_EQ(status, 0) << "121: the child hung and was ended by its alarm";
}

TEST_F(FileMutexTest, ADeviceAtThePathCannotHoldAnIdentifier)
{
    // Through a link, so that nothing is made in /dev; a limit of a century
    // keeps the device fresh whatever its time says.
    ASSERT_EQ(::symlink("/dev/zero", at("m").c_str()), 0);
    std::string const file = at("m");
    int const status = runWithinTenSeconds([&] {
        FileMutex mutex(Path(file), seconds(100LL * 366 * 24 * 3600));
        std::string const tried = logicErrorOf([&] { mutex.try_lock(); });
        FileMutexGuard const afterTry = FileMutex::lastGuard();
        std::string const released = logicErrorOf([&] { mutex.unlock(); });
        std::string const read = logicErrorOf([&] { mutex.readLockID(); });
        return firstFailure({tried == kCannotRead, afterTry == FileMutexGuard::cannotOpen, released == kCannotRead,
                             read == kCannotRead, existsByDirectProbe(file)});
    });
    EXPECT_EQ(status, 0) << "121: the child hung and was ended by its alarm";
}

// ---- the standard lock guards --------------------------------------------------------

TEST_F(FileMutexTest, WorksWithTheStandardLockGuards)
{
    FileMutex mutex(Path(at("m")), seconds(10));
    {
        std::lock_guard<FileMutex> guard(mutex);
        EXPECT_EQ(readBytes(at("m")), bytesOf(ownIdentifier()));
    }
    EXPECT_FALSE(existsByDirectProbe(at("m")));
    {
        std::unique_lock<FileMutex> lock(mutex, std::try_to_lock);
        EXPECT_TRUE(lock.owns_lock());
        lock.unlock();
        EXPECT_FALSE(existsByDirectProbe(at("m")));
        lock.lock();
        EXPECT_TRUE(existsByDirectProbe(at("m")));
    }
    EXPECT_FALSE(existsByDirectProbe(at("m")));
    FileMutex second(Path(at("n")), seconds(10));
    {
        std::scoped_lock both(mutex, second);
        EXPECT_TRUE(existsByDirectProbe(at("m")));
        EXPECT_TRUE(existsByDirectProbe(at("n")));
    }
    EXPECT_FALSE(existsByDirectProbe(at("m")));
    EXPECT_FALSE(existsByDirectProbe(at("n")));
}

TEST_F(FileMutexTest, UniqueLockTryToLockFailsAgainstAnotherHolder)
{
    writeOtherOwner("m");
    FileMutex mutex(Path(at("m")), seconds(10));
    std::unique_lock<FileMutex> lock(mutex, std::try_to_lock);
    EXPECT_FALSE(lock.owns_lock());
}

// ---- overlaps between processes ------------------------------------------------------

/// How the processes of an overlap measurement take the mutex.
enum class Algorithm {
    library, ///< FileMutex::lock and FileMutex::unlock
    plain,   ///< the file tests alone, without the guard between processes
    none,    ///< no mutex at all: every overlap the critical section can see
};

/// What an overlap measurement counted.
struct OverlapCount {
    long long criticalSections = 0; ///< critical sections run, over all processes
    long long overlaps = 0;         ///< those that found another holder inside
    long long errors = 0;           ///< exceptions thrown while taking or releasing
    long long unguarded = 0;        ///< library calls that ran without the lock on the mutex file
    bool complete = false;          ///< every process reported
};

/// Takes `mutex` as FileMutex::try_lock does, from the file tests alone.
bool plainTryLock(FileMutex& mutex, Path const& path, std::uint32_t own)
{
    if (kelvo::filesystem::exists(path) && !mutex.isFileStale() && mutex.readLockID() != own)
        return false;
    mutex.writeLockID();
    return true;
}

/// Releases `mutex` as FileMutex::unlock does, from the file tests alone.
void plainUnlock(FileMutex& mutex, Path const& path, std::uint32_t own)
{
    if (!kelvo::filesystem::exists(path))
        return;
    if (!mutex.isFileStale() && mutex.readLockID() != own)
        return;
    ::unlink(path.nativeString().c_str());
}

/// The life of one measuring process: `rounds` times take the mutex, run a
/// critical section that creates `marker` exclusively (finding it there means
/// that another process is inside too) and holds it for `holdMicroseconds`,
/// then release.
OverlapCount runRounds(Algorithm algorithm, std::string const& directory, int rounds, int holdMicroseconds,
                       int retryMilliseconds)
{
    OverlapCount count;
    Path const path(directory + "/mutex");
    std::string const marker = directory + "/inside";
    FileMutex mutex(path, seconds(3600));
    std::uint32_t own = 0;
    {
        FileMutex probe(Path(directory + "/id-" + std::to_string(::getpid())), seconds(3600));
        probe.writeLockID();
        own = probe.readLockID();
        ::unlink((directory + "/id-" + std::to_string(::getpid())).c_str());
    }
    for (int round = 0; round < rounds; ++round) {
        // Take, as lock does: at once, else at every retry (100 ms for lock).
        for (;;) {
            bool taken = false;
            try {
                taken = algorithm == Algorithm::library ? mutex.try_lock()
                    : algorithm == Algorithm::plain     ? plainTryLock(mutex, path, own)
                                                        : true;
            } catch (std::logic_error const&) {
                ++count.errors;
            }
            if (algorithm == Algorithm::library && FileMutex::lastGuard() != FileMutexGuard::held)
                ++count.unguarded;
            if (taken)
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(retryMilliseconds));
        }
        int const fd = ::open(marker.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd < 0 && errno == EEXIST)
            ++count.overlaps;
        ++count.criticalSections;
        ::usleep(static_cast<useconds_t>(holdMicroseconds));
        if (fd >= 0) {
            ::close(fd);
            ::unlink(marker.c_str());
        }
        try {
            if (algorithm == Algorithm::library)
                mutex.unlock();
            else if (algorithm == Algorithm::plain)
                plainUnlock(mutex, path, own);
        } catch (std::logic_error const&) {
            ++count.errors;
        }
        if (algorithm == Algorithm::library && FileMutex::lastGuard() != FileMutexGuard::held)
            ++count.unguarded;
    }
    return count;
}

/// Forks `processes` processes that start together and each run `rounds`
/// rounds of `runRounds` on one mutex in `directory`.
OverlapCount measureOverlaps(Algorithm algorithm, std::string const& directory, int processes, int rounds,
                             int holdMicroseconds, int retryMilliseconds = 100)
{
    OverlapCount total;
    int results[2];
    int start[2];
    if (::pipe(results) != 0 || ::pipe(start) != 0)
        return total;
    std::vector<pid_t> children;
    for (int i = 0; i < processes; ++i) {
        pid_t const child = ::fork();
        if (child == 0) {
            ::close(results[0]);
            ::close(start[1]);
            char go;
            if (::read(start[0], &go, 1) != 0)
                ::_exit(2);
            OverlapCount const mine = runRounds(algorithm, directory, rounds, holdMicroseconds, retryMilliseconds);
            long long const report[4] = {mine.criticalSections, mine.overlaps, mine.errors, mine.unguarded};
            ::_exit(::write(results[1], report, sizeof report) == static_cast<ssize_t>(sizeof report) ? 0 : 3);
        }
        if (child > 0)
            children.push_back(child);
    }
    ::close(results[1]);
    ::close(start[0]);
    ::close(start[1]); // every child starts when it sees the end of this pipe
    int reported = 0;
    long long report[4];
    while (::read(results[0], report, sizeof report) == static_cast<ssize_t>(sizeof report)) {
        total.criticalSections += report[0];
        total.overlaps += report[1];
        total.errors += report[2];
        total.unguarded += report[3];
        ++reported;
    }
    ::close(results[0]);
    for (pid_t child : children)
        ::waitpid(child, nullptr, 0);
    total.complete = reported == processes;
    return total;
}

/// @returns the positive integer in the environment variable `name`, or
/// `fallback`.
int countFromEnvironment(char const* name, int fallback)
{
    char const* value = std::getenv(name);
    int const parsed = value != nullptr ? std::atoi(value) : 0;
    return parsed > 0 ? parsed : fallback;
}

// A modest count by default; KELVO_MUTEX_OVERLAP_PROCESSES and
// KELVO_MUTEX_OVERLAP_ROUNDS raise it for a measuring run.
int overlapProcesses()
{
    return countFromEnvironment("KELVO_MUTEX_OVERLAP_PROCESSES", 4);
}

int overlapRounds()
{
    return countFromEnvironment("KELVO_MUTEX_OVERLAP_ROUNDS", 15);
}

// 100 ms, the interval of FileMutex::lock; KELVO_MUTEX_OVERLAP_RETRY_MS makes
// the waiters try more often, which makes collisions likelier.
int overlapRetryMilliseconds()
{
    return countFromEnvironment("KELVO_MUTEX_OVERLAP_RETRY_MS", 100);
}

constexpr int kHoldMicroseconds = 1000;

void report(char const* label, OverlapCount const& count, int processes, int rounds, int retryMilliseconds,
            std::chrono::steady_clock::duration took)
{
    std::cout << label << ": " << count.overlaps << " overlaps in " << count.criticalSections
              << " critical sections (" << processes << " processes x " << rounds << " rounds, retry every "
              << retryMilliseconds << " ms), " << count.errors << " errors, " << count.unguarded << " unguarded calls, "
              << std::chrono::duration_cast<std::chrono::milliseconds>(took).count() << " ms\n";
}

TEST_F(FileMutexTest, TheMeasurementNoticesASecondHolder)
{
    // Without a mutex two processes holding for 2 ms at a time collide: the
    // critical section does see a second holder.
    OverlapCount const count = measureOverlaps(Algorithm::none, scratch, 2, 20, 2000);
    ASSERT_TRUE(count.complete);
    EXPECT_EQ(count.criticalSections, 40);
    EXPECT_GT(count.overlaps, 0);
}

TEST_F(FileMutexTest, ProcessesTakingOneMutexNeverOverlap)
{
    int const processes = overlapProcesses();
    int const rounds = overlapRounds();
    int const retry = overlapRetryMilliseconds();
    auto const start = std::chrono::steady_clock::now();
    OverlapCount const count = measureOverlaps(Algorithm::library, scratch, processes, rounds, kHoldMicroseconds, retry);
    report("FileMutex", count, processes, rounds, retry, std::chrono::steady_clock::now() - start);
    ASSERT_TRUE(count.complete);
    EXPECT_EQ(count.criticalSections, static_cast<long long>(processes) * rounds);
    EXPECT_EQ(count.overlaps, 0);
    EXPECT_EQ(count.errors, 0);
    EXPECT_EQ(count.unguarded, 0);
    EXPECT_FALSE(existsByDirectProbe(at("mutex")));
}

TEST_F(FileMutexTest, PlainFileTestsAreMeasuredTheSameWay)
{
    // The file tests alone, as a comparison: their overlaps (and the errors
    // of reading a file another process has just truncated) are reported,
    // not asserted, since they depend on timing.
    int const processes = overlapProcesses();
    int const rounds = overlapRounds();
    int const retry = overlapRetryMilliseconds();
    auto const start = std::chrono::steady_clock::now();
    OverlapCount const count = measureOverlaps(Algorithm::plain, scratch, processes, rounds, kHoldMicroseconds, retry);
    report("plain file tests", count, processes, rounds, retry, std::chrono::steady_clock::now() - start);
    RecordProperty("overlaps", std::to_string(count.overlaps));
    RecordProperty("errors", std::to_string(count.errors));
    ASSERT_TRUE(count.complete);
    EXPECT_EQ(count.criticalSections, static_cast<long long>(processes) * rounds);
}

// ---- processes in a directory they may write but not list ------------------------------

// 16 processes by default, 300 rounds each under KELVO_STRESS=1;
// KELVO_MUTEX_OVERLAP_PROCESSES and KELVO_MUTEX_OVERLAP_ROUNDS set them for a
// measuring run (16 x 300 is the full size). Waiters retry every
// millisecond, which makes a collision likely wherever the test of the file
// and its write are not one step.
constexpr int kGuardProcesses = 16;
constexpr int kGuardRounds = 30;
// The full size, 16 x 300, for the stress runs (KELVO_STRESS=1).
constexpr int kGuardStressRounds = 300;

int guardRounds()
{
    char const* stress = std::getenv("KELVO_STRESS");
    return stress != nullptr && stress[0] == '1' ? kGuardStressRounds : kGuardRounds;
}
constexpr int kGuardRetryMilliseconds = 1;

/// Makes the directory `name` of the scratch directory with `mode`, and runs
/// the overlap measurement of FileMutex in it from a child that has given up
/// root (as the user itself when the tests do not run as root).
/// @returns the child's exit status: 0 when every critical section ran alone
/// and no call threw.
int unprivilegedOverlaps(std::string const& scratch, std::string const& name, mode_t mode, char const* label)
{
    std::string const directory = scratch + "/" + name;
    if (::chmod(scratch.c_str(), 0755) != 0 || ::mkdir(directory.c_str(), 0700) != 0
        || ::chmod(directory.c_str(), mode) != 0)
        return 100;
    return runUnprivileged([&] {
        int const processes = countFromEnvironment("KELVO_MUTEX_OVERLAP_PROCESSES", kGuardProcesses);
        int const rounds = countFromEnvironment("KELVO_MUTEX_OVERLAP_ROUNDS", guardRounds());
        auto const start = std::chrono::steady_clock::now();
        OverlapCount const count = measureOverlaps(Algorithm::library, directory, processes, rounds,
                                                   kHoldMicroseconds, kGuardRetryMilliseconds);
        report(label, count, processes, rounds, kGuardRetryMilliseconds, std::chrono::steady_clock::now() - start);
        std::cout.flush();
        return firstFailure({count.complete,
                             count.criticalSections == static_cast<long long>(processes) * rounds,
                             count.overlaps == 0, count.errors == 0, count.unguarded == 0,
                             !existsByDirectProbe(directory + "/mutex")});
    });
}

TEST_F(FileMutexTest, ProcessesInADirectoryTheyCannotListNeverOverlap)
{
    int const status = unprivilegedOverlaps(scratch, "write-only", 0333, "FileMutex, directory mode 0333");
    if (char const* reason = kelvo::testing::unprivilegedSkipReason(status))
        GTEST_SKIP() << reason;
    EXPECT_EQ(status, 0) << "1: a process did not report, 2: sections lost, 3: overlaps, 4: errors, 5: unguarded calls, 6: file left";
}

TEST_F(FileMutexTest, ProcessesInADirectoryTheyCanListNeverOverlap)
{
    int const status = unprivilegedOverlaps(scratch, "readable", 0777, "FileMutex, directory mode 0777");
    if (char const* reason = kelvo::testing::unprivilegedSkipReason(status))
        GTEST_SKIP() << reason;
    EXPECT_EQ(status, 0) << "1: a process did not report, 2: sections lost, 3: overlaps, 4: errors, 5: unguarded calls, 6: file left";
}

} // namespace
