// Faults injected through the one system-call table into every family: each answers as it specifies, leaves no descriptor open, touches nothing outside its operation, and its failure record names the call and the path.
#include <kelvo/filesystem.h>
#include <kelvo/filesystem/Failure.h>

#include "filesystem/posix/SystemCalls.h"

#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::Failure;
using kelvo::filesystem::Path;
using namespace kelvo::testing;
namespace fs = kelvo::filesystem;
namespace posix = kelvo::filesystem::posix;

// What the fake calls refuse: the name (or path) they fail on, and how.
std::string refusedName;
int refusedError = 0;
int refusals = 0;

bool refuses(char const* name)
{
    if (name == nullptr || refusedName != name)
        return false;
    ++refusals;
    errno = refusedError;
    return true;
}

int refusingStat(char const* path, struct stat* information)
{
    return refuses(path) ? -1 : posix::systemCallsOfTheSystem().stat(path, information);
}

int refusingLstat(char const* path, struct stat* information)
{
    return refuses(path) ? -1 : posix::systemCallsOfTheSystem().lstat(path, information);
}

int refusingUnlinkat(int directory, char const* name, int flags)
{
    return refuses(name) ? -1 : ::unlinkat(directory, name, flags);
}

// Refuses only opens for reading, so that the copy's destination side is left alone.
int refusingReadingOpenat(int directory, char const* name, int flags, mode_t mode)
{
    if ((flags & O_ACCMODE) == O_RDONLY && refuses(name))
        return -1;
    return ::openat(directory, name, flags, mode);
}

dirent* failingReaddir(DIR*)
{
    ++refusals;
    errno = refusedError;
    return nullptr;
}

ssize_t failingWrite(int, void const*, std::size_t)
{
    ++refusals;
    errno = refusedError;
    return -1;
}

ssize_t noCopyFileRange(int, int, std::size_t)
{
    errno = ENOSYS;
    return -1;
}

int failingFlock(int, int)
{
    ++refusals;
    errno = refusedError;
    return -1;
}

std::FILE* refusingFopen(char const* path, char const* mode)
{
    return refuses(path) ? nullptr : std::fopen(path, mode);
}

int refusingMkdirat(int directory, char const* name, mode_t mode)
{
    return refuses(name) ? -1 : ::mkdirat(directory, name, mode);
}

class FailureFamilies : public ScratchDirectory {
protected:
    void SetUp() override
    {
        ScratchDirectory::SetUp();
        refusedName.clear();
        refusedError = EIO;
        refusals = 0;
        makeDirectory("canary");
        writeFile("canary/keep", "keep");
        canary = describeTree(at("canary"));
        fs::clearLastFailure();
        descriptorsBefore = openDescriptorCount();
    }
    void TearDown() override
    {
        posix::systemCalls() = posix::systemCallsOfTheSystem();
        EXPECT_EQ(openDescriptorCount(), descriptorsBefore) << "a descriptor was left open";
        EXPECT_EQ(describeTree(at("canary")), canary) << "something outside the operation changed";
        ScratchDirectory::TearDown();
    }

    void makeDirectory(std::string const& name) { ASSERT_EQ(::mkdir(at(name).c_str(), 0777), 0) << name; }
    Path path(std::string const& name) const { return Path(at(name)); }

    static void expectRecord(int error, char const* call, std::string const& path)
    {
        Failure const failure = fs::lastFailure();
        EXPECT_EQ(failure.error, std::error_code(error, std::generic_category()));
        EXPECT_EQ(failure.call, call);
        EXPECT_EQ(failure.path.nativeString(), path);
    }

    decltype(describeTree(std::string())) canary;
    int descriptorsBefore = 0;
};

TEST_F(FailureFamilies, TheTableStartsWithTheSystemsOwnCalls)
{
    posix::SystemCalls const& calls = posix::systemCalls();
    posix::SystemCalls const& system = posix::systemCallsOfTheSystem();
    EXPECT_EQ(std::memcmp(&calls, &system, sizeof calls), 0);
}

TEST_F(FailureFamilies, StatusOfAnUnreadableObjectIsNoneAndNamesStat)
{
    writeFile("f", "x");
    posix::systemCalls().stat = refusingStat;
    refusedName = at("f");
    EXPECT_EQ(fs::status(path("f")).getType(), fs::FileType::none);
    EXPECT_FALSE(fs::exists(path("f")));
    EXPECT_EQ(refusals, 2);
    expectRecord(EIO, "stat", at("f"));
}

TEST_F(FailureFamilies, LinkStatusNamesLstat)
{
    writeFile("f", "x");
    posix::systemCalls().lstat = refusingLstat;
    refusedName = at("f");
    EXPECT_EQ(fs::symbolicLinkStatus(path("f")).getType(), fs::FileType::none);
    expectRecord(EIO, "lstat", at("f"));
}

TEST_F(FailureFamilies, FailedListingReadEndsTheIterationAndNamesTheDirectory)
{
    makeDirectory("d");
    writeFile("d/a", "a");
    posix::systemCalls().readdir = failingReaddir;
    {
        fs::DirectoryIterator iterator(path("d"));
        EXPECT_TRUE(iterator.canIterate());
        EXPECT_TRUE(iterator == fs::DirectoryIterator());
    }
    EXPECT_EQ(refusals, 1);
    expectRecord(EIO, "readdir", at("d"));
    EXPECT_TRUE(existsByDirectProbe(at("d/a")));
}

TEST_F(FailureFamilies, RemovalRefusedDeepNamesTheEntry)
{
    makeDirectory("t");
    makeDirectory("t/a");
    makeDirectory("t/a/b");
    writeFile("t/a/b/f", "x");
    posix::systemCalls().unlinkat = refusingUnlinkat;
    refusedName = "f";
    EXPECT_FALSE(fs::removeAll(path("t")));
    EXPECT_EQ(errno, EIO);
    expectRecord(EIO, "unlinkat", at("t/a/b/f"));
    EXPECT_TRUE(existsByDirectProbe(at("t/a/b/f")));
}

TEST_F(FailureFamilies, RemovalOfAnEmptiedDirectoryRefusedNamesTheDirectory)
{
    makeDirectory("t");
    makeDirectory("t/a");
    makeDirectory("t/a/gone");
    writeFile("t/a/gone/f", "x");
    posix::systemCalls().unlinkat = refusingUnlinkat;
    refusedName = "gone";
    EXPECT_FALSE(fs::removeAll(path("t")));
    expectRecord(EIO, "unlinkat", at("t/a/gone"));
    EXPECT_FALSE(existsByDirectProbe(at("t/a/gone/f")));
}

TEST_F(FailureFamilies, CopyWithAFailedWriteNamesTheDestinationEntry)
{
    makeDirectory("from");
    makeDirectory("from/sub");
    writeFile("from/sub/f", "content");
    auto const source = describeTree(at("from"));
    posix::systemCalls().copyFileRange = noCopyFileRange;
    posix::systemCalls().write = failingWrite;
    refusedError = ENOSPC;
    EXPECT_FALSE(fs::copyDirectory(path("from"), path("to"), true));
    expectRecord(ENOSPC, "write", at("to/sub/f"));
    EXPECT_EQ(describeTree(at("from")), source);
}

TEST_F(FailureFamilies, CopyWithAnUnopenableSourceNamesTheSourceEntry)
{
    makeDirectory("from");
    makeDirectory("from/sub");
    writeFile("from/sub/f", "content");
    posix::systemCalls().openat = refusingReadingOpenat;
    refusedName = "f";
    EXPECT_FALSE(fs::copyDirectory(path("from"), path("to"), true));
    expectRecord(EIO, "openat", at("from/sub/f"));
    EXPECT_FALSE(existsByDirectProbe(at("to/sub/f")));
}

TEST_F(FailureFamilies, CopyFileWithAFailedWriteNamesTheDestination)
{
    writeFile("from", "content");
    posix::systemCalls().copyFileRange = noCopyFileRange;
    posix::systemCalls().write = failingWrite;
    refusedError = ENOSPC;
    EXPECT_FALSE(fs::copyFile(path("from"), path("to"), true));
    expectRecord(ENOSPC, "write", at("to"));
}

TEST_F(FailureFamilies, ComparisonCountsAnUnopenableFileEqualAndNamesIt)
{
    for (char const* side : {"one", "two"}) {
        makeDirectory(side);
        makeDirectory(std::string(side) + "/sub");
        writeFile(std::string(side) + "/sub/f", "same");
    }
    posix::systemCalls().openat = refusingReadingOpenat;
    refusedName = "f";
    refusedError = EMFILE;
    // Kept: a file that cannot be opened compares as equal.
    EXPECT_TRUE(fs::compareDirectories(path("one"), path("two")));
    expectRecord(EMFILE, "openat", at("one/sub/f"));
}

TEST_F(FailureFamilies, ComparisonWithAFailedListingNamesTheDirectory)
{
    for (char const* side : {"one", "two"}) {
        makeDirectory(side);
        writeFile(std::string(side) + "/f", "same");
    }
    posix::systemCalls().readdir = failingReaddir;
    // Both sides list nothing, so they compare equal.
    EXPECT_TRUE(fs::compareDirectories(path("one"), path("two")));
    expectRecord(EIO, "readdir", at("two"));
}

TEST_F(FailureFamilies, LockRefusedBySystemIsNotTakenAndNamesTheFile)
{
    writeFile("locked", "");
    posix::systemCalls().flock = failingFlock;
    refusedError = ENOLCK;
    {
        fs::FileLock lock(path("locked"));
        // A test lock the system refuses counts as held by someone.
        EXPECT_TRUE(fs::FileLock::isFileLocked(path("locked")));
        expectRecord(ENOLCK, "flock", at("locked"));
    }
    EXPECT_TRUE(isFreeByDirectProbe(at("locked")));
}

TEST_F(FailureFamilies, StreamThatCannotOpenIsNullAndNamesFopen)
{
    writeFile("f", "x");
    posix::systemCalls().fopen = refusingFopen;
    refusedName = at("f");
    refusedError = EACCES;
    EXPECT_EQ(fs::fopenWrapper(path("f"), "r"), nullptr);
    expectRecord(EACCES, "fopen", at("f"));
}

TEST_F(FailureFamilies, MutexWhoseLockTheSystemRefusesIsTakenUnguardedAndNamesTheFile)
{
    posix::systemCalls().flock = failingFlock;
    refusedError = ENOLCK;
    {
        fs::FileMutex mutex(path("mutex"), std::chrono::seconds(60));
        EXPECT_TRUE(mutex.try_lock());
        EXPECT_TRUE(existsByDirectProbe(at("mutex")));
        EXPECT_EQ(fs::lastFailure().call, "flock");
        EXPECT_EQ(fs::lastFailure().path.nativeString(), at("mutex"));
        mutex.unlock();
    }
    EXPECT_GE(refusals, 1);
    EXPECT_FALSE(existsByDirectProbe(at("mutex")));
}

TEST_F(FailureFamilies, TemporaryDirectoryThatCannotBeMadeNamesMkdirat)
{
    posix::systemCalls().mkdirat = refusingMkdirat;
    refusedName = at("temporary");
    refusedError = EACCES;
    {
        fs::TemporaryDirectory temporary(path("temporary"));
        expectRecord(EACCES, "mkdirat", at("temporary"));
        EXPECT_FALSE(existsByDirectProbe(at("temporary")));
    }
}

} // namespace
