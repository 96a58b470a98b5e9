// Tests of atomic saves with faults injected at the system-call table: every step failing in turn, writes that fill the disk half-way, files without a name refused, names already taken, and saves through hidden names killed at random moments.
#include <kelvo/filesystem.h>

#include "filesystem/posix/SystemCalls.h"
#include "filesystem/saving/SaveNames.h"

#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/SaveCrashes.h"
#include "support/ScratchDirectory.h"
#include "support/SystemCallProbes.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = kelvo::filesystem;
namespace posix = kelvo::filesystem::posix;
namespace saving = kelvo::filesystem::saving;
using kelvo::filesystem::AtomicFile;
using kelvo::filesystem::Path;
using namespace kelvo::testing;

// What the fake calls do, reset by the fixture. A `...FailsAt` of 0 never
// fails; otherwise the call of that number (from 1) fails with the error.
int unnamedError = 0;          // every open of a file without a name fails with this
int directoryOpenError = 0;    // every open of a directory fails with this
int exclusiveCreations = 0;    // opens that make a named file
int exclusiveExistsFirst = 0;  // that many of them answer EEXIST first
int exclusiveError = 0;        // every named creation fails with this
int unnamedOpens = 0;
std::size_t writeFailsAfter = 0; // a write failing once this many bytes went through (0: never)
int writeError = 0;
std::size_t bytesWritten = 0;
std::size_t writeLimit = 0;      // every write takes at most this many bytes (0: no limit)
int writeInterruptions = 0;      // that many writes fail with EINTR first
int writesTakingNothing = 0;     // that many writes report 0 first
int fsyncCalls = 0;
int fsyncFailsAt = 0;
int linkCalls = 0;
int linkExistsFirst = 0;
int linkError = 0;
int renameError = 0;
int fchmodError = 0;
int fchownError = 0;
int fchownCalls = 0;
int procError = 0;

bool isUnnamed(int flags) { return (flags & O_TMPFILE) == O_TMPFILE; }

int fakeOpenAt(int directory, char const* name, int flags, mode_t mode)
{
    if (isUnnamed(flags)) {
        ++unnamedOpens;
        if (unnamedError != 0) {
            errno = unnamedError;
            return -1;
        }
    } else if ((flags & O_DIRECTORY) != 0 && directoryOpenError != 0) {
        errno = directoryOpenError;
        return -1;
    } else if ((flags & O_EXCL) != 0) {
        ++exclusiveCreations;
        if (exclusiveExistsFirst > 0) {
            --exclusiveExistsFirst;
            errno = EEXIST;
            return -1;
        }
        if (exclusiveError != 0) {
            errno = exclusiveError;
            return -1;
        }
    }
    return ::openat(directory, name, flags, mode);
}

ssize_t fakeWrite(int descriptor, void const* buffer, std::size_t count)
{
    if (writeInterruptions > 0) {
        --writeInterruptions;
        errno = EINTR;
        return -1;
    }
    if (writesTakingNothing > 0) {
        --writesTakingNothing;
        return 0;
    }
    if (writeFailsAfter != 0 && bytesWritten >= writeFailsAfter) {
        errno = writeError;
        return -1;
    }
    if (writeFailsAfter != 0)
        count = std::min(count, writeFailsAfter - bytesWritten);
    if (writeLimit != 0)
        count = std::min(count, writeLimit);
    ssize_t const written = ::write(descriptor, buffer, count);
    if (written > 0)
        bytesWritten += static_cast<std::size_t>(written);
    return written;
}

int fakeFsync(int descriptor)
{
    ++fsyncCalls;
    if (fsyncCalls == fsyncFailsAt) {
        errno = EIO;
        return -1;
    }
    return ::fsync(descriptor);
}

int fakeLinkat(int fromDirectory, char const* from, int toDirectory, char const* to, int flags)
{
    ++linkCalls;
    if (linkExistsFirst > 0) {
        --linkExistsFirst;
        errno = EEXIST;
        return -1;
    }
    if (linkError != 0) {
        errno = linkError;
        return -1;
    }
    return ::linkat(fromDirectory, from, toDirectory, to, flags);
}

int fakeRenameat(int fromDirectory, char const* from, int toDirectory, char const* to)
{
    if (renameError != 0) {
        errno = renameError;
        return -1;
    }
    return ::renameat(fromDirectory, from, toDirectory, to);
}

int fakeFchmod(int descriptor, mode_t mode)
{
    if (fchmodError != 0) {
        errno = fchmodError;
        return -1;
    }
    return ::fchmod(descriptor, mode);
}

int fakeFchown(int descriptor, uid_t owner, gid_t group)
{
    ++fchownCalls;
    if (fchownError != 0) {
        errno = fchownError;
        return -1;
    }
    return ::fchown(descriptor, owner, group);
}

int fakeStat(char const* path, struct stat* information)
{
    if (procError != 0 && std::strncmp(path, "/proc/", 6) == 0) {
        errno = procError;
        return -1;
    }
    return ::stat(path, information);
}

class AtomicFileFaults : public FaultedSystemCalls {
protected:
    void SetUp() override
    {
        FaultedSystemCalls::SetUp();
        unnamedError = directoryOpenError = exclusiveError = 0;
        exclusiveCreations = exclusiveExistsFirst = unnamedOpens = 0;
        writeFailsAfter = bytesWritten = writeLimit = 0;
        writeError = writeInterruptions = writesTakingNothing = 0;
        fsyncCalls = fsyncFailsAt = linkCalls = linkExistsFirst = linkError = 0;
        renameError = fchmodError = fchownError = fchownCalls = procError = 0;
        posix::SystemCalls& calls = posix::systemCalls();
        calls.openat = fakeOpenAt;
        calls.write = fakeWrite;
        calls.fsync = fakeFsync;
        calls.linkat = fakeLinkat;
        calls.renameat = fakeRenameat;
        calls.fchmod = fakeFchmod;
        calls.fchown = fakeFchown;
        calls.stat = fakeStat;
    }

    /// Expects a save of `newContents` over the file "doc" holding "old" to
    /// fail with `error` from `call`, leaving "doc" alone in the directory
    /// and no descriptor open.
    void expectCleanFailure(int error, char const* call, bool ownedByAnotherUser = false)
    {
        std::string const target = at("doc");
        std::string const newContents(200000, 'n');
        ASSERT_TRUE(writeWholeFile(target, "old"));
        if (ownedByAnotherUser) {
            ASSERT_EQ(::chown(target.c_str(), kUnprivilegedUser, kUnprivilegedGroup), 0);
        }
        int const descriptors = openDescriptorCount();
        fs::clearLastFailure();
        EXPECT_FALSE(fs::writeFileAtomically(Path(target), newContents));
        fs::Failure const failed = fs::lastFailure();
        EXPECT_EQ(failed.error.value(), error) << failed.error.message();
        EXPECT_EQ(failed.call, call);
        EXPECT_EQ(failed.path.nativeString(), target);
        EXPECT_TRUE(readWholeFile(target) == "old") << "the target changed";
        EXPECT_EQ(namesIn(scratch), std::vector<std::string>{"doc"});
        EXPECT_EQ(openDescriptorCount(), descriptors);
    }
};

/// The two ways a save makes its new file.
enum class Making { unnamed, hidden };

class EveryStepFails : public AtomicFileFaults, public ::testing::WithParamInterface<Making> {
protected:
    void SetUp() override
    {
        AtomicFileFaults::SetUp();
        if (GetParam() == Making::hidden)
            unnamedError = EOPNOTSUPP;
    }
};

TEST_P(EveryStepFails, OpeningTheDirectory)
{
    directoryOpenError = EACCES;
    expectCleanFailure(EACCES, "openat");
}

TEST_P(EveryStepFails, MakingTheNewFile)
{
    if (GetParam() == Making::unnamed)
        unnamedError = ENOSPC;
    else
        exclusiveError = ENOSPC;
    expectCleanFailure(ENOSPC, "openat");
}

TEST_P(EveryStepFails, WriteFillsTheDiskHalfWay)
{
    writeFailsAfter = 100000;
    writeError = ENOSPC;
    expectCleanFailure(ENOSPC, "write");
    EXPECT_EQ(bytesWritten, 100000u);
}

TEST_P(EveryStepFails, WriteTakesNothing)
{
    writesTakingNothing = 1;
    expectCleanFailure(ENOSPC, "write");
}

TEST_P(EveryStepFails, SettingTheBits)
{
    fchmodError = EIO;
    expectCleanFailure(EIO, "fchmod");
}

TEST_P(EveryStepFails, FlushingTheFile)
{
    fsyncFailsAt = 1;
    expectCleanFailure(EIO, "fsync");
}

TEST_P(EveryStepFails, GivingTheFileAName)
{
    linkError = EIO;
    if (GetParam() == Making::unnamed) {
        expectCleanFailure(EIO, "linkat");
    } else {
        // A hidden file has its name from the start.
        ASSERT_TRUE(fs::writeFileAtomically(Path(at("doc")), "saved"));
        EXPECT_EQ(linkCalls, 0);
    }
}

TEST_P(EveryStepFails, Renaming)
{
    renameError = EXDEV;
    expectCleanFailure(EXDEV, "renameat");
}

TEST_P(EveryStepFails, FlushingTheDirectoryAfterTheRename)
{
    fsyncFailsAt = 2;
    std::string const target = at("doc");
    ASSERT_TRUE(writeWholeFile(target, "old"));
    int const descriptors = openDescriptorCount();
    fs::clearLastFailure();
    EXPECT_FALSE(fs::writeFileAtomically(Path(target), "new"));
    EXPECT_EQ(fs::lastFailure().error.value(), EIO);
    EXPECT_EQ(fs::lastFailure().call, "fsync");
    EXPECT_EQ(fs::lastFailure().path.nativeString(), target);
    // The rename is done: only its durability is in doubt.
    EXPECT_EQ(readWholeFile(target), "new");
    EXPECT_EQ(namesIn(scratch), std::vector<std::string>{"doc"});
    EXPECT_EQ(openDescriptorCount(), descriptors);
}

TEST_P(EveryStepFails, EveryCallAfterAFailedWriteAnswersFalse)
{
    writeFailsAfter = 1;
    writeError = EIO;
    std::string const target = at("doc");
    ASSERT_TRUE(writeWholeFile(target, "old"));
    AtomicFile file{Path(target)};
    ASSERT_TRUE(file.isOpen());
    EXPECT_FALSE(file.write(std::string(100000, 'x')));
    EXPECT_FALSE(file.isOpen());
    EXPECT_FALSE(file.write("y"));
    fs::clearLastFailure();
    EXPECT_FALSE(file.commit());
    EXPECT_FALSE(fs::lastFailure());
    EXPECT_EQ(readWholeFile(target), "old");
    EXPECT_EQ(namesIn(scratch), std::vector<std::string>{"doc"});
}

TEST_P(EveryStepFails, ShortAndInterruptedWritesAreCompleted)
{
    writeLimit = 777;
    writeInterruptions = 3;
    std::string const contents = randomBytes(300000, 11);
    ASSERT_TRUE(fs::writeFileAtomically(Path(at("doc")), contents));
    EXPECT_EQ(readWholeFile(at("doc")), contents);
}

INSTANTIATE_TEST_SUITE_P(AtomicFile, EveryStepFails, ::testing::Values(Making::unnamed, Making::hidden),
                         [](::testing::TestParamInfo<Making> const& info) {
                             return info.param == Making::unnamed ? "Unnamed" : "Hidden";
                         });

TEST_F(AtomicFileFaults, UnnamedFilesAreTriedFirst)
{
    ASSERT_TRUE(fs::writeFileAtomically(Path(at("doc")), "saved"));
    EXPECT_EQ(unnamedOpens, 1);
    EXPECT_EQ(exclusiveCreations, 0);
    EXPECT_EQ(linkCalls, 1);
    EXPECT_EQ(fsyncCalls, 2);
}

TEST_F(AtomicFileFaults, HiddenNameWhenTheFileSystemRefusesUnnamedFiles)
{
    for (int error : {EOPNOTSUPP, EISDIR, EINVAL}) {
        unnamedError = error;
        exclusiveCreations = 0;
        ::umask(022);
        std::string const fresh = at("fresh-" + std::to_string(error));
        ASSERT_TRUE(fs::writeFileAtomically(Path(fresh), "new file")) << error;
        EXPECT_EQ(exclusiveCreations, 1);
        EXPECT_EQ(readWholeFile(fresh), "new file");
        struct stat st;
        ASSERT_EQ(::stat(fresh.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, 0644u);
        ASSERT_EQ(::chmod(fresh.c_str(), 0640), 0);
        ASSERT_TRUE(fs::writeFileAtomically(Path(fresh), "replaced"));
        ASSERT_EQ(::stat(fresh.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, 0640u);
        EXPECT_EQ(readWholeFile(fresh), "replaced");
        ::unlink(fresh.c_str());
    }
    EXPECT_TRUE(namesIn(scratch).empty());
    EXPECT_EQ(linkCalls, 0);
}

TEST_F(AtomicFileFaults, HiddenNameWhenDescriptorsCannotBeNamed)
{
    procError = ENOENT;
    ASSERT_TRUE(fs::writeFileAtomically(Path(at("doc")), "saved"));
    EXPECT_EQ(unnamedOpens, 0);
    EXPECT_EQ(exclusiveCreations, 1);
    EXPECT_EQ(readWholeFile(at("doc")), "saved");
}

TEST_F(AtomicFileFaults, LiveHiddenFileIsLockedAndSurvivesAnotherSave)
{
    unnamedError = EOPNOTSUPP;
    std::string const target = at("doc");
    ASSERT_TRUE(writeWholeFile(target, "old"));
    AtomicFile first{Path(target)};
    ASSERT_TRUE(first.write("first"));
    std::vector<std::string> const during = namesIn(scratch);
    ASSERT_EQ(during.size(), 2u);
    std::string const hidden = during[0];
    EXPECT_TRUE(saving::isHiddenName(hidden, ".doc.kelvo-save-")) << hidden;
    EXPECT_FALSE(isFreeByDirectProbe(at(hidden)));
    struct stat st;
    ASSERT_EQ(::stat(at(hidden).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    // Another save of the same file leaves the live one alone.
    ASSERT_TRUE(fs::writeFileAtomically(Path(target), "second"));
    EXPECT_TRUE(isPresentOnDisk(at(hidden)));
    ASSERT_TRUE(first.commit());
    EXPECT_EQ(readWholeFile(target), "first");
    EXPECT_EQ(namesIn(scratch), std::vector<std::string>{"doc"});
}

TEST_F(AtomicFileFaults, TakenNamesAreDrawnAgain)
{
    unnamedError = EOPNOTSUPP;
    exclusiveExistsFirst = 3;
    ASSERT_TRUE(fs::writeFileAtomically(Path(at("doc")), "saved"));
    EXPECT_EQ(exclusiveCreations, 4);
    exclusiveExistsFirst = 1000;
    exclusiveCreations = 0;
    fs::clearLastFailure();
    EXPECT_FALSE(fs::writeFileAtomically(Path(at("doc")), "never"));
    EXPECT_EQ(exclusiveCreations, 100);
    EXPECT_EQ(fs::lastFailure().error.value(), EEXIST);
    EXPECT_EQ(fs::lastFailure().call, "openat");
    EXPECT_EQ(readWholeFile(at("doc")), "saved");
    EXPECT_EQ(namesIn(scratch), std::vector<std::string>{"doc"});
}

TEST_F(AtomicFileFaults, TakenLinkNamesAreDrawnAgain)
{
    linkExistsFirst = 2;
    ASSERT_TRUE(fs::writeFileAtomically(Path(at("doc")), "saved"));
    EXPECT_EQ(linkCalls, 3);
    EXPECT_EQ(readWholeFile(at("doc")), "saved");
    EXPECT_EQ(namesIn(scratch), std::vector<std::string>{"doc"});
}

TEST_F(AtomicFileFaults, RefusedChangeOfOwnerIsQuiet)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root has files of another owner to keep";
    std::string const target = at("doc");
    ASSERT_TRUE(writeWholeFile(target, "old"));
    ASSERT_EQ(::chown(target.c_str(), kUnprivilegedUser, kUnprivilegedGroup), 0);
    fchownError = EPERM;
    fs::clearLastFailure();
    ASSERT_TRUE(fs::writeFileAtomically(Path(target), "new"));
    EXPECT_FALSE(fs::lastFailure());
    EXPECT_EQ(fchownCalls, 2); // owner and group, then the group alone
    struct stat st;
    ASSERT_EQ(::stat(target.c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, 0u);
    fchownError = EIO;
    expectCleanFailure(EIO, "fchown", true);
}

TEST(SaveNames, HiddenNamesAreRecognisedExactly)
{
    std::string const prefix = saving::hiddenPrefix("doc.txt");
    EXPECT_EQ(prefix, ".doc.txt.kelvo-save-");
    for (int i = 0; i < 100; ++i) {
        std::string const drawn = saving::newHiddenName(prefix);
        EXPECT_EQ(drawn.size(), prefix.size() + 6);
        EXPECT_TRUE(saving::isHiddenName(drawn, prefix)) << drawn;
    }
    EXPECT_FALSE(saving::isHiddenName(".doc.txt.kelvo-save-abcde", prefix));
    EXPECT_FALSE(saving::isHiddenName(".doc.txt.kelvo-save-abcdefg", prefix));
    EXPECT_FALSE(saving::isHiddenName(".doc.txt.kelvo-save-abc.ef", prefix));
    EXPECT_FALSE(saving::isHiddenName(".doc.txt.kelvo-save-abc\xC3\xA9", prefix));
    EXPECT_FALSE(saving::isHiddenName(".doc.tx.kelvo-save-abcdef", prefix));
    EXPECT_FALSE(saving::isHiddenName("doc.txt", prefix));
    std::string const longName(300, 'x');
    std::string const cut = saving::hiddenPrefix(longName);
    EXPECT_EQ(cut.size() + 6, saving::kLongestName);
    EXPECT_EQ(saving::newHiddenName(cut).size(), 255u);
}

TEST_F(AtomicFileFaults, SavesThroughHiddenNamesKilledAtRandomMomentsLeaveOldOrNewContents)
{
    // Every save, in the children killed and in this process, uses a hidden
    // name, so that killed saves leave stale hidden files behind.
    unnamedError = EOPNOTSUPP;
    bool const stress = stressRequested();
    std::size_t const size = stress ? std::size_t(64) << 20 : std::size_t(1) << 20;
    int const kills = stress ? 1000 : 30;
    CrashTally tally;
    EXPECT_TRUE(killSavesAtRandom(scratch, "document", randomBytes(size / 3, 21), randomBytes(size, 22), kills,
                                  [](std::string const& path, std::string const& contents) {
                                      return fs::writeFileAtomically(Path(path), contents);
                                  },
                                  tally));
    EXPECT_EQ(tally.oldContents + tally.newContents, kills);
    RecordProperty("old_contents_after_kill", tally.oldContents);
    RecordProperty("new_contents_after_kill", tally.newContents);
}

} // namespace
