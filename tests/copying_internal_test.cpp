// Tests of the data path and failure paths of copyFileWith and copyTreeWith, with calls replaced in the system-call table: clones taken or refused, in-kernel copies refused, writes failing half-way, renames that cannot refuse to replace, owners that cannot be set.
#include <kelvo/filesystem.h>

#include "filesystem/posix/Copy.h"
#include "filesystem/posix/SystemCalls.h"

#include "support/FileTrees.h"
#include "support/ScratchDirectory.h"
#include "support/SystemCallProbes.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::CopyOptions;
using kelvo::filesystem::CopyProgress;
using kelvo::filesystem::CopyResult;
using kelvo::filesystem::CopySkipReason;
using kelvo::filesystem::OverwritePolicy;
using kelvo::filesystem::Path;
using kelvo::filesystem::ReflinkPolicy;
using namespace kelvo::testing;
namespace fs = kelvo::filesystem;
namespace posix = kelvo::filesystem::posix;

// State shared with the fake calls, reset by the fixture.
int cloneCalls = 0;
int cloneError = 0; // 0: the fake clone works
int rangeCalls = 0;
int rangeError = 0; // 0: the system's own call
int writeCalls = 0;
int writeFailsAt = 0;
int writeError = 0;
int renameCalls = 0;
int renameError = 0;
std::string racingCreator; // made just before the rename, when not empty
int linkCalls = 0;
int ownerCalls = 0;

// A clone that works: copies every byte with plain calls, so that the copy
// is right exactly when the library took this path and no other.
int workingClone(int destination, int source)
{
    ++cloneCalls;
    if (cloneError != 0) {
        errno = cloneError;
        return -1;
    }
    char buffer[65536];
    off_t offset = 0;
    for (;;) {
        ssize_t const count = ::pread(source, buffer, sizeof buffer, offset);
        if (count < 0)
            return -1;
        if (count == 0)
            return 0;
        if (::pwrite(destination, buffer, static_cast<std::size_t>(count), offset) != count)
            return -1;
        offset += count;
    }
}

ssize_t scriptedRange(int from, int to, std::size_t count)
{
    ++rangeCalls;
    if (rangeError != 0) {
        errno = rangeError;
        return -1;
    }
    return posix::systemCallsOfTheSystem().copyFileRange(from, to, count);
}

ssize_t scriptedWrite(int descriptor, void const* buffer, std::size_t count)
{
    ++writeCalls;
    if (writeCalls == writeFailsAt) {
        errno = writeError;
        return -1;
    }
    return ::write(descriptor, buffer, count);
}

int scriptedRename(int fromDirectory, char const* from, int toDirectory, char const* to, unsigned flags)
{
    ++renameCalls;
    if (!racingCreator.empty()) {
        int const made = ::open(racingCreator.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
        if (made >= 0) {
            (void)::write(made, "racer", 5);
            ::close(made);
        }
    }
    if (renameError != 0 && flags != 0) {
        errno = renameError;
        return -1;
    }
    return posix::systemCallsOfTheSystem().renameat2(fromDirectory, from, toDirectory, to, flags);
}

int countingLink(int fromDirectory, char const* from, int toDirectory, char const* to, int flags)
{
    ++linkCalls;
    return ::linkat(fromDirectory, from, toDirectory, to, flags);
}

int refusingOwner(int, uid_t, gid_t)
{
    ++ownerCalls;
    errno = EPERM;
    return -1;
}

/// @returns how many names in `directory` are the copy's temporaries.
int temporariesIn(std::string const& directory)
{
    int count = 0;
    for (std::string const& name : namesIn(directory))
        count += name.compare(0, 12, ".kelvo-copy-") == 0 ? 1 : 0;
    return count;
}

class CopyingInjected : public FaultedSystemCalls {
protected:
    void SetUp() override
    {
        FaultedSystemCalls::SetUp();
        cloneCalls = cloneError = rangeCalls = rangeError = 0;
        writeCalls = writeFailsAt = writeError = 0;
        renameCalls = renameError = linkCalls = ownerCalls = 0;
        racingCreator.clear();
        posix::systemCalls().cloneFile = workingClone;
        posix::systemCalls().copyFileRange = scriptedRange;
        posix::systemCalls().write = scriptedWrite;
        posix::systemCalls().renameat2 = scriptedRename;
        posix::systemCalls().linkat = countingLink;
    }
    Path path(std::string const& name) const { return Path(at(name)); }
    void makeTree(int files, std::size_t size)
    {
        ASSERT_EQ(::mkdir(at("from").c_str(), 0755), 0);
        for (int i = 0; i < files; ++i)
            ASSERT_TRUE(writeWholeFile(at("from/f" + std::to_string(i)), std::string(size, char('a' + i))));
    }
    void expectSameTree(int files)
    {
        for (int i = 0; i < files; ++i) {
            std::string const name = "f" + std::to_string(i);
            EXPECT_EQ(readWholeFile(at("to/" + name)), readWholeFile(at("from/" + name))) << name;
        }
    }
};

TEST_F(CopyingInjected, TheCloneIsTakenWhenItWorks)
{
    makeTree(4, 10000);
    CopyResult const result = fs::copyTreeWith(path("from"), path("to"));
    ASSERT_TRUE(result.succeeded());
    EXPECT_EQ(cloneCalls, 4);
    EXPECT_EQ(rangeCalls, 0);
    EXPECT_EQ(writeCalls, 0);
    expectSameTree(4);
}

TEST_F(CopyingInjected, ARefusedCloneFallsBackToTheInKernelCopyAndIsNotAskedAgain)
{
    cloneError = EOPNOTSUPP;
    makeTree(4, 10000);
    CopyResult const result = fs::copyTreeWith(path("from"), path("to"));
    ASSERT_TRUE(result.succeeded());
    EXPECT_EQ(cloneCalls, 1); // the pair of file systems refused once
    EXPECT_GE(rangeCalls, 4);
    EXPECT_EQ(writeCalls, 0);
    expectSameTree(4);
}

TEST_F(CopyingInjected, ARefusedInKernelCopyFallsBackToReadingAndWriting)
{
    for (int error : {ENOSYS, EXDEV}) {
        SCOPED_TRACE(error);
        cloneCalls = rangeCalls = writeCalls = 0;
        cloneError = EOPNOTSUPP;
        rangeError = error;
        makeTree(3, 300000);
        CopyResult const result = fs::copyTreeWith(path("from"), path("to"));
        ASSERT_TRUE(result.succeeded());
        EXPECT_EQ(rangeCalls, 1); // refused once, for the whole copy
        EXPECT_GE(writeCalls, 3 * 3); // 128 KiB blocks
        expectSameTree(3);
        removeTree(at("from"));
        removeTree(at("to"));
    }
}

TEST_F(CopyingInjected, NeverClonesWhenToldNever)
{
    makeTree(2, 100);
    CopyOptions options;
    options.reflink = ReflinkPolicy::never;
    ASSERT_TRUE(fs::copyTreeWith(path("from"), path("to"), options).succeeded());
    EXPECT_EQ(cloneCalls, 0);
    EXPECT_GE(rangeCalls, 2);
    expectSameTree(2);
}

TEST_F(CopyingInjected, AlwaysCloningFailsCleanlyWhereCloningCannotWork)
{
    cloneError = EOPNOTSUPP;
    ASSERT_TRUE(writeWholeFile(at("from"), std::string(5000, 'x')));
    CopyOptions options;
    options.reflink = ReflinkPolicy::always;
    CopyResult const result = fs::copyFileWith(path("from"), path("to"), options);
    ASSERT_EQ(result.failures.size(), 1u);
    EXPECT_EQ(result.failures[0].call, "ioctl");
    EXPECT_EQ(result.failures[0].error, std::errc::operation_not_supported);
    EXPECT_EQ(result.failures[0].path.nativeString(), at("to"));
    EXPECT_EQ(rangeCalls, 0);
    EXPECT_FALSE(isPresentOnDisk(at("to")));
    EXPECT_EQ(temporariesIn(scratch), 0);
}

TEST_F(CopyingInjected, AWriteFailingHalfWayLeavesNeitherTheTemporaryNorTheFinalName)
{
    cloneError = EOPNOTSUPP;
    rangeError = ENOSYS;
    writeFailsAt = 3;
    writeError = ENOSPC;
    ASSERT_TRUE(writeWholeFile(at("from"), std::string(1 << 20, 'y')));
    CopyResult const result = fs::copyFileWith(path("from"), path("to"));
    ASSERT_EQ(result.failures.size(), 1u);
    EXPECT_EQ(result.failures[0].call, "write");
    EXPECT_EQ(result.failures[0].error, std::errc::no_space_on_device);
    EXPECT_EQ(result.failures[0].path.nativeString(), at("to"));
    EXPECT_EQ(result.filesCopied, 0);
    EXPECT_FALSE(isPresentOnDisk(at("to")));
    EXPECT_EQ(temporariesIn(scratch), 0);
}

TEST_F(CopyingInjected, AFailedWriteInATreeStopsOnlyThatFile)
{
    cloneError = EOPNOTSUPP;
    rangeError = ENOSYS;
    makeTree(3, 1000);
    writeFailsAt = 2; // the second file's only write
    writeError = EIO;
    CopyResult const result = fs::copyTreeWith(path("from"), path("to"));
    ASSERT_EQ(result.failures.size(), 1u);
    EXPECT_EQ(result.filesCopied, 2);
    EXPECT_EQ(namesIn(at("to")).size(), 2u);
    EXPECT_EQ(temporariesIn(at("to")), 0);
}

TEST_F(CopyingInjected, CancelInTheMiddleOfAFileRemovesIt)
{
    cloneError = EOPNOTSUPP;
    rangeError = ENOSYS;
    ASSERT_TRUE(writeWholeFile(at("from"), std::string(1 << 20, 'z')));
    int reports = 0;
    CopyOptions options;
    options.progressIntervalBytes = 0;
    options.progress = [&](CopyProgress const& progress) {
        if (progress.finished)
            return true;
        EXPECT_EQ(progress.currentFile.nativeString(), at("from"));
        return ++reports < 3;
    };
    CopyResult const result = fs::copyFileWith(path("from"), path("to"), options);
    EXPECT_TRUE(result.cancelled);
    EXPECT_EQ(reports, 3);
    EXPECT_EQ(writeCalls, 3);
    EXPECT_FALSE(isPresentOnDisk(at("to")));
    EXPECT_EQ(temporariesIn(scratch), 0);
}

TEST_F(CopyingInjected, EveryBlockOfTheReadAndWriteLoopIsReportedWithZeroIntervals)
{
    cloneError = EOPNOTSUPP;
    rangeError = ENOSYS;
    ASSERT_TRUE(writeWholeFile(at("from"), std::string(1 << 20, 'z')));
    std::vector<std::int64_t> done;
    CopyOptions options;
    options.progressIntervalBytes = 0;
    options.progressIntervalMilliseconds = 0;
    options.progress = [&](CopyProgress const& progress) {
        done.push_back(progress.bytesDone);
        return true;
    };
    ASSERT_TRUE(fs::copyFileWith(path("from"), path("to"), options).succeeded());
    ASSERT_EQ(static_cast<int>(done.size()), writeCalls + 1);
    EXPECT_EQ(done.front(), 128 * 1024);
    EXPECT_EQ(done.back(), 1 << 20);
}

TEST_F(CopyingInjected, ARacingCreatorIsNeverOverwritten)
{
    ASSERT_TRUE(writeWholeFile(at("from"), "mine"));
    racingCreator = at("to");
    CopyResult const result = fs::copyFileWith(path("from"), path("to"));
    EXPECT_TRUE(result.failures.empty());
    ASSERT_EQ(result.skipped.size(), 1u);
    EXPECT_EQ(result.skipped[0].reason, CopySkipReason::exists);
    EXPECT_EQ(readWholeFile(at("to")), "racer");
    EXPECT_EQ(temporariesIn(scratch), 0);
}

TEST_F(CopyingInjected, WhereRenamesCannotRefuseToReplaceALinkTakesTheName)
{
    renameError = EINVAL;
    ASSERT_TRUE(writeWholeFile(at("from"), "mine"));
    CopyResult const made = fs::copyFileWith(path("from"), path("to"));
    ASSERT_TRUE(made.succeeded());
    EXPECT_EQ(linkCalls, 1);
    EXPECT_EQ(readWholeFile(at("to")), "mine");
    struct stat st;
    ASSERT_EQ(::stat(at("to").c_str(), &st), 0);
    EXPECT_EQ(st.st_nlink, 1u);

    racingCreator = at("other");
    CopyResult const raced = fs::copyFileWith(path("from"), path("other"));
    EXPECT_TRUE(raced.failures.empty());
    EXPECT_EQ(raced.skipped.size(), 1u);
    EXPECT_EQ(readWholeFile(at("other")), "racer");
    EXPECT_EQ(temporariesIn(scratch), 0);
}

TEST_F(CopyingInjected, AnOwnerTheProcessMayNotSetIsNoFailure)
{
    posix::systemCalls().fchown = refusingOwner;
    ASSERT_TRUE(writeWholeFile(at("from"), "x"));
    CopyResult const result = fs::copyFileWith(path("from"), path("to"));
    EXPECT_TRUE(result.succeeded());
    EXPECT_EQ(ownerCalls, 2); // the owner, then the group alone
    EXPECT_EQ(readWholeFile(at("to")), "x");

    CopyOptions options;
    options.keepOwner = false;
    ownerCalls = 0;
    ASSERT_TRUE(fs::copyFileWith(path("from"), path("to2"), options).succeeded());
    EXPECT_EQ(ownerCalls, 0);
}

TEST_F(CopyingInjected, AFailingTimeChangeFailsTheFileAndRemovesIt)
{
    posix::systemCalls().futimens = [](int, struct timespec const*) {
        errno = EROFS;
        return -1;
    };
    ASSERT_TRUE(writeWholeFile(at("from"), "x"));
    CopyResult const result = fs::copyFileWith(path("from"), path("to"));
    ASSERT_EQ(result.failures.size(), 1u);
    EXPECT_EQ(result.failures[0].call, "futimens");
    EXPECT_EQ(result.failures[0].path.nativeString(), at("to"));
    EXPECT_FALSE(isPresentOnDisk(at("to")));
    EXPECT_EQ(temporariesIn(scratch), 0);
}

TEST_F(CopyingInjected, TheUmaskIsReadWithoutChangingIt)
{
    mode_t const previous = ::umask(027);
    std::uint32_t mask = 0;
    bool const read = posix::readCreationMask(mask);
    mode_t const after = ::umask(previous);
    ASSERT_TRUE(read);
    EXPECT_EQ(mask, 027u);
    EXPECT_EQ(after, 027u);
}

TEST_F(CopyingInjected, WithoutTheUmaskEveryModeIsSetAfterTheWrite)
{
    posix::systemCalls().open = [](char const*, int, mode_t) {
        errno = EACCES;
        return -1;
    };
    std::uint32_t mask = 0;
    EXPECT_FALSE(posix::readCreationMask(mask));
    EXPECT_EQ(fs::lastFailure().call, "open");
    EXPECT_EQ(fs::lastFailure().path.nativeString(), "/proc/self/status");

    ASSERT_TRUE(writeWholeFile(at("from"), "x"));
    ASSERT_EQ(::chmod(at("from").c_str(), 0664), 0);
    int modeChanges = 0;
    static int* changes = nullptr;
    changes = &modeChanges;
    posix::systemCalls().fchmod = [](int descriptor, mode_t mode) {
        ++*changes;
        return ::fchmod(descriptor, mode);
    };
    mode_t const previous = ::umask(077);
    CopyResult const result = fs::copyFileWith(path("from"), path("to"));
    ::umask(previous);
    EXPECT_TRUE(result.succeeded());
    EXPECT_EQ(modeChanges, 1);
    struct stat st;
    ASSERT_EQ(::stat(at("to").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0664u);
}

} // namespace
