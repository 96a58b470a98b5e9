// Tests of FileLock: taking, refusing and releasing whole-file locks, the lock probe, and the validation callback.
#include <kelvo/filesystem/FileLock.h>
#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>

#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using kelvo::testing::existsByDirectProbe;
using kelvo::testing::isFreeByDirectProbe;

using kelvo::filesystem::FileLock;
using kelvo::filesystem::Path;
using kelvo::testing::descriptorsOpenOn;
using kelvo::testing::kScratchUnreachable;
using kelvo::testing::unprivilegedSkipReason;
using kelvo::testing::LockHeldByAnotherProcess;
using kelvo::testing::openDescriptorCount;
using kelvo::testing::runUnprivileged;

static_assert(!std::is_copy_constructible_v<FileLock>, "a FileLock owns its descriptor and cannot be copied");
static_assert(!std::is_copy_assignable_v<FileLock>, "a FileLock owns its descriptor and cannot be copied");
static_assert(std::is_nothrow_destructible_v<FileLock>, "releasing a lock never throws");
static_assert(std::is_default_constructible_v<FileLock>);

/// Every test leaves the process-wide validation callback empty, whatever it
/// installed, so that one test's predicate never leaks into the next.
class FileLockTest : public kelvo::testing::ScratchDirectory {
protected:
    void TearDown() override
    {
        FileLock::setValidationCallback(std::function<bool(Path const&)>());
        ScratchDirectory::TearDown();
    }

    void makeDirectory(std::string const& name) const { ASSERT_EQ(::mkdir(at(name).c_str(), 0755), 0) << name; }
};

// ---- lockFile ------------------------------------------------------------------

TEST_F(FileLockTest, LockFileTakesTheLockOnAnExistingFile)
{
    writeFile("data.txt", "content");
    FileLock lock;
    EXPECT_TRUE(lock.lockFile(Path(at("data.txt"))));
    EXPECT_FALSE(isFreeByDirectProbe(at("data.txt")));
    EXPECT_EQ(descriptorsOpenOn(at("data.txt")), 1);
}

TEST_F(FileLockTest, LockFileOnAMissingPathFailsAndCreatesNothing)
{
    writeFile("present.txt");
    int const descriptorsBefore = openDescriptorCount();
    FileLock lock;
    EXPECT_FALSE(lock.lockFile(Path(at("missing.txt"))));
    EXPECT_FALSE(existsByDirectProbe(at("missing.txt")));
    EXPECT_EQ(openDescriptorCount(), descriptorsBefore);
    // Still failing: the failed open left the object without a descriptor.
    EXPECT_FALSE(lock.lockFile(Path(at("missing.txt"))));
    EXPECT_FALSE(existsByDirectProbe(at("missing.txt")));
    // And that object really locks the next existing file it is given.
    EXPECT_TRUE(lock.lockFile(Path(at("present.txt"))));
    EXPECT_FALSE(isFreeByDirectProbe(at("present.txt")));
}

TEST_F(FileLockTest, LockFileInAMissingDirectoryFailsAndCreatesNothing)
{
    FileLock lock;
    EXPECT_FALSE(lock.lockFile(Path(at("absent/inner.txt"))));
    EXPECT_FALSE(existsByDirectProbe(at("absent")));
}

TEST_F(FileLockTest, LockFileOnAnEmptyPathFails)
{
    FileLock lock;
    EXPECT_FALSE(lock.lockFile(Path()));
}

TEST_F(FileLockTest, LockFileOnADirectoryFailsWithoutAskingTheCallback)
{
    makeDirectory("folder");
    int calls = 0;
    FileLock::setValidationCallback([&calls](Path const&) {
        ++calls;
        return true;
    });
    int const descriptorsBefore = openDescriptorCount();
    FileLock lock;
    EXPECT_FALSE(lock.lockFile(Path(at("folder"))));
    EXPECT_FALSE(lock.lockFile(Path(at("folder/"))));
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(openDescriptorCount(), descriptorsBefore);
    EXPECT_TRUE(isFreeByDirectProbe(at("folder")));
}

TEST_F(FileLockTest, LockFileOnALinkToADirectoryFails)
{
    makeDirectory("folder");
    ASSERT_EQ(::symlink(at("folder").c_str(), at("link").c_str()), 0);
    FileLock lock;
    EXPECT_FALSE(lock.lockFile(Path(at("link"))));
    EXPECT_TRUE(isFreeByDirectProbe(at("folder")));
}

TEST_F(FileLockTest, LockFileThroughALinkLocksTheTarget)
{
    writeFile("target.txt");
    ASSERT_EQ(::symlink(at("target.txt").c_str(), at("link").c_str()), 0);
    FileLock lock;
    EXPECT_TRUE(lock.lockFile(Path(at("link"))));
    EXPECT_FALSE(isFreeByDirectProbe(at("target.txt")));
    EXPECT_TRUE(FileLock::isFileLocked(Path(at("target.txt"))));
}

TEST_F(FileLockTest, ASocketCountsAsADirectoryAndIsNeverLocked)
{
    // Kinds are told apart by single mode bits, so a socket's mode reads as a
    // directory's and the lock refuses it before anything else.
    std::string const socketPath = at("sock");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(socketPath.size(), sizeof address.sun_path) << "scratch path too long for a socket name";
    std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size() + 1);
    int server = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(server, 0);
    ASSERT_EQ(::bind(server, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);

    int calls = 0;
    FileLock::setValidationCallback([&calls](Path const&) {
        ++calls;
        return true;
    });
    FileLock lock;
    EXPECT_FALSE(lock.lockFile(Path(socketPath)));
    EXPECT_EQ(calls, 0);
    EXPECT_FALSE(FileLock::isFileLocked(Path(socketPath)));
    ::close(server);
}

TEST_F(FileLockTest, SecondObjectOnALockedFileFailsThenReportsTrueWithItsStaleDescriptor)
{
    writeFile("shared.txt");
    Path const path(at("shared.txt"));
    FileLock first;
    FileLock second;
    EXPECT_TRUE(first.lockFile(path));
    EXPECT_FALSE(second.lockFile(path));
    // The refused object keeps its descriptor open on the file.
    EXPECT_EQ(descriptorsOpenOn(at("shared.txt")), 2);
    // Holding a descriptor is all it takes for a later call to succeed.
    EXPECT_TRUE(second.lockFile(path));
    EXPECT_EQ(descriptorsOpenOn(at("shared.txt")), 2);
    // ...although that object locks nothing: once the first lets go, the file
    // is free.
    first.unlockFile();
    EXPECT_TRUE(isFreeByDirectProbe(at("shared.txt")));
    EXPECT_FALSE(FileLock::isFileLocked(path));
    EXPECT_TRUE(second.lockFile(path));
    EXPECT_TRUE(isFreeByDirectProbe(at("shared.txt")));
}

TEST_F(FileLockTest, ObjectsOfOneProcessExcludeEachOtherOnEqualPathsSpelledDifferently)
{
    makeDirectory("dir");
    writeFile("dir/file.txt");
    FileLock first;
    FileLock second;
    EXPECT_TRUE(first.lockFile(Path(at("dir/file.txt"))));
    EXPECT_FALSE(second.lockFile(Path(at("dir/../dir/./file.txt"))));
}

TEST_F(FileLockTest, AnObjectHoldingADescriptorReportsTrueForAnyPathButADirectory)
{
    writeFile("held.txt");
    writeFile("other.txt");
    makeDirectory("folder");
    int calls = 0;
    FileLock::setValidationCallback([&calls](Path const&) {
        ++calls;
        return true;
    });
    FileLock lock;
    ASSERT_TRUE(lock.lockFile(Path(at("held.txt"))));
    EXPECT_EQ(calls, 1);

    // Another existing file: true, but that file is neither opened nor locked,
    // and the callback is not consulted.
    EXPECT_TRUE(lock.lockFile(Path(at("other.txt"))));
    EXPECT_EQ(descriptorsOpenOn(at("other.txt")), 0);
    EXPECT_TRUE(isFreeByDirectProbe(at("other.txt")));
    EXPECT_EQ(calls, 1);

    // A missing file: true, and still nothing is created.
    EXPECT_TRUE(lock.lockFile(Path(at("missing.txt"))));
    EXPECT_FALSE(existsByDirectProbe(at("missing.txt")));
    EXPECT_TRUE(lock.lockFile(Path()));

    // A directory: false, and the descriptor held stays as it was.
    EXPECT_FALSE(lock.lockFile(Path(at("folder"))));
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(isFreeByDirectProbe(at("held.txt")));
    EXPECT_EQ(descriptorsOpenOn(at("held.txt")), 1);
    EXPECT_TRUE(lock.lockFile(Path(at("held.txt"))));
}

TEST_F(FileLockTest, LockFileFailsOnAFileThatCannotBeOpenedForWriting)
{
    writeFile("readonly.txt", "r");
    writeFile("writable.txt", "w");
    ASSERT_EQ(::chmod(at("readonly.txt").c_str(), 0444), 0);
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    ASSERT_EQ(::chmod(at("writable.txt").c_str(), 0666), 0);
    std::string const readOnly = at("readonly.txt");
    std::string const writable = at("writable.txt");
    int const result = runUnprivileged([&] {
        if (::access(writable.c_str(), W_OK) != 0)
            return kScratchUnreachable;
        FileLock lock;
        if (lock.lockFile(Path(readOnly)))
            return 1;
        // A readable free file is reported free.
        if (FileLock::isFileLocked(Path(readOnly)))
            return 2;
        // The failed open left no descriptor: the next file is really locked.
        if (!lock.lockFile(Path(writable)))
            return 3;
        if (!FileLock::isFileLocked(Path(writable)))
            return 4;
        return 0;
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    EXPECT_EQ(result, 0) << "1: locked a read-only file, 2: read-only file reported locked, "
                            "3: descriptor kept after a failed open, 4: lock not taken";
}

// ---- the validation callback ----------------------------------------------------

TEST_F(FileLockTest, CallbackReceivesThePathAndItsAnswerDecides)
{
    writeFile("allowed.txt");
    writeFile("refused.txt");
    std::vector<std::string> asked;
    FileLock::setValidationCallback([&asked](Path const& path) {
        asked.push_back(path.nativeString());
        return path.filename() == Path("allowed.txt");
    });
    FileLock allowed;
    FileLock refused;
    EXPECT_TRUE(allowed.lockFile(Path(at("allowed.txt"))));
    EXPECT_FALSE(refused.lockFile(Path(at("refused.txt"))));
    EXPECT_EQ(asked, (std::vector<std::string>{at("allowed.txt"), at("refused.txt")}));
    EXPECT_FALSE(isFreeByDirectProbe(at("allowed.txt")));
    EXPECT_TRUE(isFreeByDirectProbe(at("refused.txt")));
}

TEST_F(FileLockTest, RefusingCallbackMeansNoLockAndNoDescriptor)
{
    writeFile("vetoed.txt", "abc");
    Path const path(at("vetoed.txt"));
    int calls = 0;
    FileLock::setValidationCallback([&calls](Path const&) {
        ++calls;
        return false;
    });
    int const descriptorsBefore = openDescriptorCount();
    FileLock lock;
    EXPECT_FALSE(lock.lockFile(path));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(openDescriptorCount(), descriptorsBefore);
    EXPECT_EQ(descriptorsOpenOn(at("vetoed.txt")), 0);
    EXPECT_TRUE(isFreeByDirectProbe(at("vetoed.txt")));
    EXPECT_FALSE(FileLock::isFileLocked(path));
    // Asked again on every attempt, since nothing was opened the first time.
    EXPECT_FALSE(lock.lockFile(path));
    EXPECT_EQ(calls, 2);

    // Without the callback the same object locks for real.
    FileLock::setValidationCallback(std::function<bool(Path const&)>());
    EXPECT_TRUE(lock.lockFile(path));
    EXPECT_EQ(calls, 2);
    EXPECT_FALSE(isFreeByDirectProbe(at("vetoed.txt")));
}

TEST_F(FileLockTest, RefusingCallbackOnAMissingFileIsAskedAndCreatesNothing)
{
    int calls = 0;
    FileLock::setValidationCallback([&calls](Path const&) {
        ++calls;
        return false;
    });
    FileLock lock;
    EXPECT_FALSE(lock.lockFile(Path(at("missing.txt"))));
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(existsByDirectProbe(at("missing.txt")));
}

TEST_F(FileLockTest, IsFileLockedIgnoresTheCallback)
{
    writeFile("held.txt");
    writeFile("free.txt");
    FileLock holder;
    ASSERT_TRUE(holder.lockFile(Path(at("held.txt"))));
    int calls = 0;
    FileLock::setValidationCallback([&calls](Path const&) {
        ++calls;
        return false;
    });
    EXPECT_TRUE(FileLock::isFileLocked(Path(at("held.txt"))));
    EXPECT_FALSE(FileLock::isFileLocked(Path(at("free.txt"))));
    EXPECT_EQ(calls, 0);
}

TEST_F(FileLockTest, EmptyCallbackRemovesValidation)
{
    writeFile("a.txt");
    writeFile("b.txt");
    writeFile("c.txt");
    FileLock::setValidationCallback([](Path const&) { return false; });
    FileLock first;
    EXPECT_FALSE(first.lockFile(Path(at("a.txt"))));
    FileLock::setValidationCallback(std::function<bool(Path const&)>());
    EXPECT_TRUE(first.lockFile(Path(at("a.txt"))));

    FileLock::setValidationCallback([](Path const&) { return false; });
    FileLock second;
    EXPECT_FALSE(second.lockFile(Path(at("b.txt"))));
    FileLock::setValidationCallback(nullptr);
    EXPECT_TRUE(second.lockFile(Path(at("b.txt"))));
    EXPECT_FALSE(isFreeByDirectProbe(at("b.txt")));

    FileLock third;
    EXPECT_TRUE(third.lockFile(Path(at("c.txt"))));
}

TEST_F(FileLockTest, SettingACallbackReplacesThePreviousOneAndDestroysIt)
{
    writeFile("file.txt");
    auto firstState = std::make_shared<int>(0);
    std::weak_ptr<int> firstAlive = firstState;
    int firstCalls = 0;
    int secondCalls = 0;
    FileLock::setValidationCallback([firstState, &firstCalls](Path const&) {
        ++firstCalls;
        return false;
    });
    firstState.reset();
    EXPECT_FALSE(firstAlive.expired()) << "the installed callback is a copy kept alive by the library";
    FileLock::setValidationCallback([&secondCalls](Path const&) {
        ++secondCalls;
        return true;
    });
    EXPECT_TRUE(firstAlive.expired()) << "the replaced callback is destroyed";
    FileLock lock;
    EXPECT_TRUE(lock.lockFile(Path(at("file.txt"))));
    EXPECT_EQ(firstCalls, 0);
    EXPECT_EQ(secondCalls, 1);
}

// ---- unlockFile, construction, destruction -------------------------------------

TEST_F(FileLockTest, UnlockFileReleasesAndLaterLockFileReportsTrueWithoutLocking)
{
    writeFile("file.txt");
    Path const path(at("file.txt"));
    FileLock lock;
    ASSERT_TRUE(lock.lockFile(path));
    lock.unlockFile();
    EXPECT_EQ(descriptorsOpenOn(at("file.txt")), 0);
    EXPECT_TRUE(isFreeByDirectProbe(at("file.txt")));
    EXPECT_FALSE(FileLock::isFileLocked(path));

    // The closed number stays in the object, so this succeeds without locking.
    EXPECT_TRUE(lock.lockFile(path));
    EXPECT_EQ(descriptorsOpenOn(at("file.txt")), 0);
    EXPECT_TRUE(isFreeByDirectProbe(at("file.txt")));
    EXPECT_FALSE(FileLock::isFileLocked(path));
    FileLock other;
    EXPECT_TRUE(other.lockFile(path));
    EXPECT_TRUE(FileLock::isFileLocked(path));
}

TEST_F(FileLockTest, UnlockFileOnAnObjectHoldingNothingDoesNothing)
{
    writeFile("file.txt");
    int const descriptorsBefore = openDescriptorCount();
    FileLock lock;
    lock.unlockFile();
    lock.unlockFile();
    EXPECT_EQ(openDescriptorCount(), descriptorsBefore);
    // Still without a descriptor: the next call locks for real.
    EXPECT_TRUE(lock.lockFile(Path(at("file.txt"))));
    EXPECT_FALSE(isFreeByDirectProbe(at("file.txt")));
}

TEST_F(FileLockTest, AStaleNumberIsClosedAgainByASecondUnlockAndByTheDestructor)
{
    writeFile("file.txt");
    writeFile("bystander.txt");
    auto openedNumbers = [] {
        std::vector<int> numbers;
        for (int fd = 0; fd < 1024; ++fd) {
            if (::fcntl(fd, F_GETFD) != -1)
                numbers.push_back(fd);
        }
        return numbers;
    };
    // Finds the number the lock opens by comparing the open numbers around it.
    auto const before = openedNumbers();
    auto lock = std::make_unique<FileLock>();
    ASSERT_TRUE(lock->lockFile(Path(at("file.txt"))));
    auto const after = openedNumbers();
    int lockNumber = -1;
    for (int fd : after) {
        if (std::find(before.begin(), before.end(), fd) == before.end())
            lockNumber = fd;
    }
    ASSERT_GE(lockNumber, 0);
    lock->unlockFile();
    ASSERT_EQ(::fcntl(lockNumber, F_GETFD), -1);

    // The number is reused by an unrelated descriptor; the stale object closes
    // it again on a second unlockFile.
    auto reuseNumber = [&] {
        int fd = ::open(at("bystander.txt").c_str(), O_RDONLY);
        if (fd != lockNumber) {
            ::dup2(fd, lockNumber);
            ::close(fd);
        }
    };
    reuseNumber();
    ASSERT_NE(::fcntl(lockNumber, F_GETFD), -1);
    lock->unlockFile();
    errno = 0;
    EXPECT_EQ(::fcntl(lockNumber, F_GETFD), -1);
    EXPECT_EQ(errno, EBADF);

    // And so does the destructor.
    reuseNumber();
    ASSERT_NE(::fcntl(lockNumber, F_GETFD), -1);
    lock.reset();
    errno = 0;
    EXPECT_EQ(::fcntl(lockNumber, F_GETFD), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(FileLockTest, DestructorReleasesTheLockAndTheDescriptor)
{
    writeFile("file.txt");
    Path const path(at("file.txt"));
    int const descriptorsBefore = openDescriptorCount();
    {
        FileLock lock;
        ASSERT_TRUE(lock.lockFile(path));
        EXPECT_TRUE(FileLock::isFileLocked(path));
        EXPECT_EQ(openDescriptorCount(), descriptorsBefore + 1);
    }
    EXPECT_EQ(openDescriptorCount(), descriptorsBefore);
    EXPECT_FALSE(FileLock::isFileLocked(path));
    FileLock next;
    EXPECT_TRUE(next.lockFile(path));
}

TEST_F(FileLockTest, DestructorClosesTheDescriptorOfARefusedObject)
{
    writeFile("file.txt");
    Path const path(at("file.txt"));
    FileLock holder(path);
    int const descriptorsBefore = openDescriptorCount();
    {
        FileLock refused;
        EXPECT_FALSE(refused.lockFile(path));
        EXPECT_EQ(openDescriptorCount(), descriptorsBefore + 1);
    }
    EXPECT_EQ(openDescriptorCount(), descriptorsBefore);
    EXPECT_TRUE(FileLock::isFileLocked(path));
}

TEST_F(FileLockTest, ConstructorWithAPathTakesTheLock)
{
    writeFile("file.txt");
    Path const path(at("file.txt"));
    {
        FileLock lock(path);
        EXPECT_TRUE(FileLock::isFileLocked(path));
        EXPECT_FALSE(isFreeByDirectProbe(at("file.txt")));
        FileLock other;
        EXPECT_FALSE(other.lockFile(path));
        // Already holding: lockFile reports true again.
        EXPECT_TRUE(lock.lockFile(path));
    }
    EXPECT_FALSE(FileLock::isFileLocked(path));
}

TEST_F(FileLockTest, ConstructorOnAMissingFileLeavesTheObjectWithoutADescriptor)
{
    writeFile("file.txt");
    FileLock lock(Path(at("missing.txt")));
    EXPECT_FALSE(existsByDirectProbe(at("missing.txt")));
    EXPECT_TRUE(lock.lockFile(Path(at("file.txt"))));
    EXPECT_FALSE(isFreeByDirectProbe(at("file.txt")));
}

TEST_F(FileLockTest, ConstructorOnALockedFileKeepsItsDescriptor)
{
    writeFile("file.txt");
    Path const path(at("file.txt"));
    FileLock holder(path);
    FileLock late(path);
    EXPECT_EQ(descriptorsOpenOn(at("file.txt")), 2);
    EXPECT_TRUE(late.lockFile(Path(at("missing.txt"))));
    holder.unlockFile();
    EXPECT_FALSE(FileLock::isFileLocked(path));
}

TEST_F(FileLockTest, ConstructorConsultsTheCallback)
{
    writeFile("file.txt");
    int calls = 0;
    FileLock::setValidationCallback([&calls](Path const&) {
        ++calls;
        return false;
    });
    FileLock lock(Path(at("file.txt")));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(descriptorsOpenOn(at("file.txt")), 0);
    EXPECT_FALSE(FileLock::isFileLocked(Path(at("file.txt"))));
}

TEST_F(FileLockTest, LockIsSeenFromAnotherProcessAndEndsWithTheHolder)
{
    writeFile("file.txt");
    Path const path(at("file.txt"));
    {
        FileLock lock(path);
        int const childSees = kelvo::testing::runInChild([&] {
            FileLock attempt;
            if (attempt.lockFile(path))
                return 1;
            return FileLock::isFileLocked(path) ? 0 : 2;
        });
        EXPECT_EQ(childSees, 0) << "1: the child took a lock held by its parent, 2: the child saw the file free";
    }
    int const afterRelease = kelvo::testing::runInChild([&] {
        FileLock attempt;
        return attempt.lockFile(path) ? 0 : 1;
    });
    EXPECT_EQ(afterRelease, 0);
}

// ---- isFileLocked ----------------------------------------------------------------

TEST_F(FileLockTest, IsFileLockedIsFalseForAMissingFileAndCreatesNothing)
{
    EXPECT_FALSE(FileLock::isFileLocked(Path(at("missing.txt"))));
    EXPECT_FALSE(existsByDirectProbe(at("missing.txt")));
    EXPECT_FALSE(FileLock::isFileLocked(Path(at("absent/missing.txt"))));
    EXPECT_FALSE(FileLock::isFileLocked(Path()));
}

TEST_F(FileLockTest, IsFileLockedIsFalseForADirectory)
{
    makeDirectory("folder");
    EXPECT_FALSE(FileLock::isFileLocked(Path(at("folder"))));
    EXPECT_FALSE(FileLock::isFileLocked(Path(scratch)));
    // Even one that someone holds an flock on.
    int fd = ::open(at("folder").c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::flock(fd, LOCK_EX | LOCK_NB), 0);
    EXPECT_FALSE(FileLock::isFileLocked(Path(at("folder"))));
    ::close(fd);
}

TEST_F(FileLockTest, IsFileLockedIsTrueForAFileHeldInThisProcess)
{
    writeFile("file.txt");
    Path const path(at("file.txt"));
    FileLock lock;
    ASSERT_TRUE(lock.lockFile(path));
    int const descriptorsBefore = openDescriptorCount();
    EXPECT_TRUE(FileLock::isFileLocked(path));
    EXPECT_TRUE(FileLock::isFileLocked(path));
    EXPECT_EQ(openDescriptorCount(), descriptorsBefore);
    // The probe leaves the holder's lock in place.
    EXPECT_FALSE(isFreeByDirectProbe(at("file.txt")));
    FileLock other;
    EXPECT_FALSE(other.lockFile(path));
}

TEST_F(FileLockTest, IsFileLockedSeesAnFlockTakenOutsideTheLibrary)
{
    writeFile("file.txt");
    int fd = ::open(at("file.txt").c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::flock(fd, LOCK_SH), 0);
    EXPECT_TRUE(FileLock::isFileLocked(Path(at("file.txt"))));
    ::close(fd);
    EXPECT_FALSE(FileLock::isFileLocked(Path(at("file.txt"))));
}

TEST_F(FileLockTest, IsFileLockedIsTrueThroughALinkToAHeldFile)
{
    writeFile("file.txt");
    ASSERT_EQ(::symlink(at("file.txt").c_str(), at("link").c_str()), 0);
    FileLock lock(Path(at("file.txt")));
    EXPECT_TRUE(FileLock::isFileLocked(Path(at("link"))));
}

TEST_F(FileLockTest, IsFileLockedIsTrueForAFileHeldByAnotherProcessUntilItExits)
{
    writeFile("file.txt");
    Path const path(at("file.txt"));
    LockHeldByAnotherProcess other(at("file.txt"));
    ASSERT_TRUE(other.locked());
    EXPECT_TRUE(FileLock::isFileLocked(path));
    FileLock mine;
    EXPECT_FALSE(mine.lockFile(path));
    EXPECT_TRUE(FileLock::isFileLocked(path));

    ASSERT_TRUE(other.release());
    EXPECT_FALSE(FileLock::isFileLocked(path));
    FileLock afterwards;
    EXPECT_TRUE(afterwards.lockFile(path));
    EXPECT_TRUE(FileLock::isFileLocked(path));
}

TEST_F(FileLockTest, AnotherProcessCannotTakeALockHeldHere)
{
    writeFile("file.txt");
    FileLock mine(Path(at("file.txt")));
    LockHeldByAnotherProcess other(at("file.txt"));
    EXPECT_FALSE(other.locked());
    EXPECT_TRUE(other.release());
}

TEST_F(FileLockTest, IsFileLockedIsTrueForAFileThatExistsButCannotBeRead)
{
    writeFile("secret.txt", "hidden");
    ASSERT_EQ(::chmod(at("secret.txt").c_str(), 0000), 0);
    ASSERT_EQ(::chmod(scratch.c_str(), 0711), 0);
    std::string const secret = at("secret.txt");
    int const result = runUnprivileged([&] {
        if (::access(secret.c_str(), F_OK) != 0)
            return kScratchUnreachable;
        if (::access(secret.c_str(), R_OK) == 0)
            return 91;
        if (!FileLock::isFileLocked(Path(secret)))
            return 1;
        FileLock lock;
        if (lock.lockFile(Path(secret)))
            return 2;
        return 0;
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    ASSERT_NE(result, 91) << "the unprivileged child can still read a mode 0000 file";
    EXPECT_EQ(result, 0) << "1: an unreadable file was reported free, 2: an unreadable file was locked";
    // Nobody holds it really (readable again, so that an ordinary user's probe can open it).
    ASSERT_EQ(::chmod(secret.c_str(), 0600), 0);
    EXPECT_TRUE(isFreeByDirectProbe(secret));
}

TEST_F(FileLockTest, IsFileLockedIsFalseForAFileThatCannotBeReached)
{
    // A file behind a directory the caller cannot search cannot even be
    // stat'ed, so it counts as missing rather than locked.
    makeDirectory("private");
    writeFile("private/file.txt");
    // Mode 0600 denies search to everyone but root: to its owner when the
    // suite runs as an ordinary user, and to the child that gave up root.
    ASSERT_EQ(::chmod(at("private").c_str(), 0600), 0);
    ASSERT_EQ(::chmod(scratch.c_str(), 0711), 0);
    std::string const hidden = at("private/file.txt");
    std::string const privateDirectory = at("private");
    int const result = runUnprivileged([&] {
        if (::access(privateDirectory.c_str(), F_OK) != 0)
            return kScratchUnreachable;
        if (::access(hidden.c_str(), F_OK) == 0)
            return 91;
        return FileLock::isFileLocked(Path(hidden)) ? 1 : 0;
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    ASSERT_NE(result, 91) << "the unprivileged child can search a mode 0600 directory";
    EXPECT_EQ(result, 0);
}

TEST_F(FileLockTest, IsFileLockedIsFalseForAFreeFileAndLeavesItFree)
{
    writeFile("file.txt", "payload");
    Path const path(at("file.txt"));
    int const descriptorsBefore = openDescriptorCount();
    EXPECT_FALSE(FileLock::isFileLocked(path));
    EXPECT_EQ(openDescriptorCount(), descriptorsBefore);
    EXPECT_EQ(descriptorsOpenOn(at("file.txt")), 0);
    EXPECT_TRUE(isFreeByDirectProbe(at("file.txt")));
    FileLock lock;
    EXPECT_TRUE(lock.lockFile(path));
    // Another process can take it too once this one is done.
    lock.unlockFile();
    EXPECT_FALSE(FileLock::isFileLocked(path));
    LockHeldByAnotherProcess other(at("file.txt"));
    EXPECT_TRUE(other.locked());
}

TEST_F(FileLockTest, IsFileLockedIsFalseForAFreeWriteOnlyFileOfRoot)
{
    // Root opens anything for reading, so the probe takes and gives back its
    // trial lock; nothing stays locked.
    writeFile("file.txt");
    ASSERT_EQ(::chmod(at("file.txt").c_str(), 0200), 0);
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can read a write-only file";
    EXPECT_FALSE(FileLock::isFileLocked(Path(at("file.txt"))));
    EXPECT_TRUE(isFreeByDirectProbe(at("file.txt")));
}

// ---- names beyond ASCII ------------------------------------------------------------

TEST_F(FileLockTest, LocksFilesWithAccentedAndNonUTF8Names)
{
    // On disk in NFC, as Linux programs write names; the path is made from
    // those bytes, and its text is decomposed.
    std::string const composedName = "R\xC3\xA9sum\xC3\xA9.txt";
    std::string const invalidName = "raw\xFF\xFE-\x80.bin";
    writeFile(composedName, "cv");
    writeFile(invalidName, "bytes");
    Path const accented(at(composedName));
    ASSERT_EQ(accented.string(), Path(scratch + "/Re\xCC\x81sume\xCC\x81.txt").string());
    Path const invalid(at(invalidName));
    ASSERT_EQ(invalid.nativeString(), at(invalidName));

    FileLock first;
    FileLock second;
    EXPECT_TRUE(first.lockFile(accented));
    EXPECT_TRUE(second.lockFile(invalid));
    EXPECT_FALSE(isFreeByDirectProbe(at(composedName)));
    EXPECT_FALSE(isFreeByDirectProbe(at(invalidName)));
    EXPECT_TRUE(FileLock::isFileLocked(accented));
    EXPECT_TRUE(FileLock::isFileLocked(invalid));
    first.unlockFile();
    second.unlockFile();
    EXPECT_FALSE(FileLock::isFileLocked(accented));
    EXPECT_FALSE(FileLock::isFileLocked(invalid));
}

} // namespace
