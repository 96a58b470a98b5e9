// Tests of the failure paths of copy, removal and comparison, with faults injected at the system-call table: failing reads, full disks, refused deletions, exhausted descriptors and short writes.
#include <kelvo/filesystem.h>

#include "filesystem/posix/SystemCalls.h"

#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::Path;
using namespace kelvo::testing;
namespace fs = kelvo::filesystem;
namespace posix = kelvo::filesystem::posix;

// State shared with the fake calls, reset by the fixture.
int readCalls = 0;
int readFailsAt = 0; // 1-based call that fails, 0 for none
std::vector<long> readResults;
int writeCalls = 0;
int writeFailsAt = 0;
int writeError = 0;
std::vector<long> writeScript; // counts the fake write reports, one per call
std::vector<std::pair<long, std::size_t>> writeRequests; // (offset from the first buffer, count)
char const* firstWriteBuffer = nullptr;
int copyRangeCalls = 0;
int unlinkCalls = 0;
int unlinkFailsAt = 0;
int directoryOpens = 0;
int directoryOpenFailsAt = 0;

ssize_t countingRead(int descriptor, void* buffer, std::size_t count)
{
    ++readCalls;
    if (readCalls == readFailsAt) {
        errno = EIO;
        readResults.push_back(-1);
        return -1;
    }
    ssize_t const result = ::read(descriptor, buffer, count);
    readResults.push_back(static_cast<long>(result));
    return result;
}

ssize_t scriptedWrite(int descriptor, void const* buffer, std::size_t count)
{
    ++writeCalls;
    if (writeCalls == writeFailsAt) {
        errno = writeError;
        return -1;
    }
    if (firstWriteBuffer == nullptr)
        firstWriteBuffer = static_cast<char const*>(buffer);
    writeRequests.emplace_back(static_cast<char const*>(buffer) - firstWriteBuffer, count);
    std::size_t toWrite = count;
    if (static_cast<std::size_t>(writeCalls) <= writeScript.size())
        toWrite = std::min<std::size_t>(count, static_cast<std::size_t>(writeScript[static_cast<std::size_t>(writeCalls) - 1]));
    return ::write(descriptor, buffer, toWrite);
}

ssize_t noCopyRange(int, int, std::size_t)
{
    ++copyRangeCalls;
    errno = ENOSYS;
    return -1;
}

ssize_t countingCopyRange(int from, int to, std::size_t count)
{
    ++copyRangeCalls;
    return posix::systemCallsOfTheSystem().copyFileRange(from, to, count);
}

ssize_t failingCopyRange(int, int, std::size_t)
{
    ++copyRangeCalls;
    errno = EIO;
    return -1;
}

int refusingUnlinkAt(int directory, char const* name, int flags)
{
    ++unlinkCalls;
    if (unlinkCalls == unlinkFailsAt) {
        errno = EACCES;
        return -1;
    }
    return ::unlinkat(directory, name, flags);
}

int exhaustingOpenAt(int directory, char const* name, int flags, mode_t mode)
{
    if ((flags & O_DIRECTORY) != 0) {
        ++directoryOpens;
        if (directoryOpens == directoryOpenFailsAt) {
            errno = EMFILE;
            return -1;
        }
    }
    return ::openat(directory, name, flags, mode);
}

DIR* failingOpenDirectoryStream(int)
{
    errno = ENOMEM;
    return nullptr;
}

// Lets `listingsBeforeFailure` listings start, then fails every later one
// (the wrapper then closes the descriptor, as after a real failure).
int listingsBeforeFailure = 0;
DIR* failingOpenDirectoryStreamAfter(int descriptor)
{
    if (listingsBeforeFailure > 0) {
        --listingsBeforeFailure;
        return posix::systemCallsOfTheSystem().fdopendir(descriptor);
    }
    errno = ENOMEM;
    return nullptr;
}

// A swap made by "another process" at the very moment a walk opens a
// directory: just before the `swapAtOpening`-th opening of `swapPath` (the
// name exactly as the library hands it to openat), `swapAction` runs.
std::string swapPath;
int swapAtOpening = 0;
int openingsOfSwapPath = 0;
std::function<void()> swapAction;

int swappingOpenAt(int directory, char const* name, int flags, mode_t mode)
{
    if (swapPath == name && ++openingsOfSwapPath == swapAtOpening)
        swapAction();
    return ::openat(directory, name, flags, mode);
}

// A rename that always finds the two paths on different file systems.
int crossDeviceRename(char const*, char const*)
{
    errno = EXDEV;
    return -1;
}

class FaultInjection : public ScratchDirectory {
protected:
    void SetUp() override
    {
        ScratchDirectory::SetUp();
        readCalls = readFailsAt = 0;
        readResults.clear();
        writeCalls = writeFailsAt = writeError = 0;
        writeScript.clear();
        writeRequests.clear();
        firstWriteBuffer = nullptr;
        copyRangeCalls = 0;
        unlinkCalls = unlinkFailsAt = 0;
        directoryOpens = directoryOpenFailsAt = 0;
        listingsBeforeFailure = 0;
        swapPath.clear();
        swapAtOpening = openingsOfSwapPath = 0;
        swapAction = nullptr;
        descriptorsBefore = openDescriptorCount();
    }
    void TearDown() override
    {
        posix::systemCalls() = posix::systemCallsOfTheSystem();
        ScratchDirectory::TearDown();
    }

    void makeDirectory(std::string const& name) { ASSERT_EQ(::mkdir(at(name).c_str(), 0777), 0) << name; }
    Path path(std::string const& name) const { return Path(at(name)); }

    // A tree "src" of two levels, and "canary", a directory outside it.
    void makeSourceAndCanary()
    {
        makeDirectory("src");
        writeFile("src/a", "a");
        makeDirectory("src/sub");
        writeFile("src/sub/b", "b");
        makeDirectory("canary");
        writeFile("canary/keep", "keep");
        makeDirectory("canary/inner");
        writeFile("canary/inner/deep", "deep");
    }

    // Puts a link to the canary in the place of `name`, which moves to
    // `name` + ".real".
    std::function<void()> linkToTheCanaryInPlaceOf(std::string const& name)
    {
        return [this, name] {
            ASSERT_EQ(::rename(at(name).c_str(), at(name + ".real").c_str()), 0);
            ASSERT_EQ(::symlink(at("canary").c_str(), at(name).c_str()), 0);
        };
    }
    void expectNoDescriptorLeft() const { EXPECT_EQ(openDescriptorCount(), descriptorsBefore); }

    static std::string pattern(std::size_t size)
    {
        std::string content(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            content[i] = static_cast<char>('a' + i % 26);
        return content;
    }

    int descriptorsBefore = 0;
};

TEST_F(FaultInjection, TheTableStartsWithTheSystemsOwnCalls)
{
    posix::SystemCalls const& calls = posix::systemCalls();
    posix::SystemCalls const& system = posix::systemCallsOfTheSystem();
    EXPECT_EQ(std::memcmp(&calls, &system, sizeof calls), 0);
}

TEST_F(FaultInjection, SeventyThousandBytesTakeThreeReadsWithoutTheInKernelCopy)
{
    writeFile("from", pattern(70000));
    posix::systemCalls().copyFileRange = noCopyRange;
    posix::systemCalls().read = countingRead;
    EXPECT_TRUE(fs::copyFile(path("from"), path("to"), true));
    EXPECT_EQ(readResults, (std::vector<long>{32768, 32768, 4464, 0}));
    EXPECT_EQ(copyRangeCalls, 1);
    EXPECT_EQ(readWholeFile(at("to")), pattern(70000));
    expectNoDescriptorLeft();
}

TEST_F(FaultInjection, RegularFilesAreCopiedInTheKernelWhereItCan)
{
    writeFile("from", pattern(70000));
    posix::systemCalls().copyFileRange = countingCopyRange;
    posix::systemCalls().read = countingRead;
    EXPECT_TRUE(fs::copyFile(path("from"), path("to"), true));
    EXPECT_GE(copyRangeCalls, 1);
    EXPECT_EQ(readWholeFile(at("to")), pattern(70000));
    expectNoDescriptorLeft();
}

TEST_F(FaultInjection, FailingInKernelCopyFallsBackToReadingAndWriting)
{
    writeFile("from", pattern(100000));
    posix::systemCalls().copyFileRange = failingCopyRange;
    posix::systemCalls().read = countingRead;
    EXPECT_TRUE(fs::copyFile(path("from"), path("to"), true));
    EXPECT_EQ(copyRangeCalls, 1);
    EXPECT_EQ(readCalls, 5);
    EXPECT_EQ(readWholeFile(at("to")), pattern(100000));
    expectNoDescriptorLeft();
}

TEST_F(FaultInjection, ReadFailingMidCopyGivesAShortenedCopyReportedAsSuccess)
{
    writeFile("from", pattern(70000));
    posix::systemCalls().copyFileRange = noCopyRange;
    posix::systemCalls().read = countingRead;
    readFailsAt = 2;
    EXPECT_TRUE(fs::copyFile(path("from"), path("to"), true));
    EXPECT_EQ(readWholeFile(at("to")), pattern(32768));
    EXPECT_EQ(readWholeFile(at("from")), pattern(70000));
    expectNoDescriptorLeft();
}

TEST_F(FaultInjection, WriteFailingWithNoSpaceFailsTheCopyAndKeepsTheSource)
{
    writeFile("from", pattern(70000));
    posix::systemCalls().copyFileRange = noCopyRange;
    posix::systemCalls().write = scriptedWrite;
    writeFailsAt = 2;
    writeError = ENOSPC;
    EXPECT_FALSE(fs::copyFile(path("from"), path("to"), true));
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(readWholeFile(at("from")), pattern(70000));
    // What was written stays: nothing is rolled back.
    EXPECT_EQ(readWholeFile(at("to")), pattern(32768));
    expectNoDescriptorLeft();
}

TEST_F(FaultInjection, WriteFailingInATreeCopyFailsThatFileAndTheCopyGoesOn)
{
    makeDirectory("src");
    writeFile("src/a", "aaaa");
    writeFile("src/b", "bbbb");
    writeFile("src/c", "cccc");
    posix::systemCalls().copyFileRange = noCopyRange;
    posix::systemCalls().write = scriptedWrite;
    writeFailsAt = 2;
    writeError = ENOSPC;
    EXPECT_FALSE(fs::copyDirectory(path("src"), path("dst"), true));
    EXPECT_EQ(namesIn(at("dst")), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(writeCalls, 3);
    expectNoDescriptorLeft();
}

TEST_F(FaultInjection, ShortWritesResumeAtThePositionThePreviousWriteReturned)
{
    std::string const content = pattern(100);
    writeFile("from", content);
    posix::systemCalls().copyFileRange = noCopyRange;
    posix::systemCalls().write = scriptedWrite;
    writeScript = {30, 20, 50};
    EXPECT_TRUE(fs::copyFile(path("from"), path("to"), true));
    std::vector<std::pair<long, std::size_t>> const expected = {{0, 100}, {30, 70}, {20, 50}};
    EXPECT_EQ(writeRequests, expected);
    EXPECT_EQ(readWholeFile(at("to")), content.substr(0, 30) + content.substr(30, 20) + content.substr(20, 50));
    expectNoDescriptorLeft();
}

TEST_F(FaultInjection, WriteThatMakesNoProgressFailsInsteadOfSpinning)
{
    writeFile("from", pattern(10));
    posix::systemCalls().copyFileRange = noCopyRange;
    posix::systemCalls().write = scriptedWrite;
    writeScript = {0, 0, 0};
    EXPECT_FALSE(fs::copyFile(path("from"), path("to"), true));
    EXPECT_EQ(writeCalls, 1);
    expectNoDescriptorLeft();
}

TEST_F(FaultInjection, RefusedDeletionHalfWayStopsTheRemovalAtOnce)
{
    makeDirectory("t");
    for (int i = 0; i < 6; ++i)
        writeFile("t/f" + std::to_string(i), "x");
    posix::systemCalls().unlinkat = refusingUnlinkAt;
    unlinkFailsAt = 3;
    EXPECT_FALSE(fs::removeAll(path("t")));
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(unlinkCalls, 3); // nothing was tried after the refusal
    EXPECT_EQ(namesIn(at("t")).size(), 4u);
    expectNoDescriptorLeft();
}

TEST_F(FaultInjection, RefusedDeletionDeepInATreeLeavesEveryLevelAbove)
{
    makeDirectory("t");
    makeDirectory("t/a");
    makeDirectory("t/a/b");
    writeFile("t/a/b/f", "x");
    posix::systemCalls().unlinkat = refusingUnlinkAt;
    unlinkFailsAt = 2; // the file goes, then the rmdir of t/a/b is refused
    EXPECT_FALSE(fs::removeAllInDir(path("t")));
    EXPECT_EQ(unlinkCalls, 2);
    EXPECT_TRUE(isDirectoryOnDisk(at("t/a/b")));
    EXPECT_FALSE(isPresentOnDisk(at("t/a/b/f")));
    expectNoDescriptorLeft();
}

TEST_F(FaultInjection, RefusedDeletionHalfWayDownADeepTreeLeavesNoDescriptorOpen)
{
    // Deeper than the walk holds descriptors, with a file in every level, so
    // that the refusal comes while levels above have been let go of.
    int const depth = 120;
    makeDirectory("t");
    std::string level = "t";
    for (int i = 0; i < depth; ++i) {
        writeFile(level + "/f", "x");
        level += "/d";
        makeDirectory(level);
    }
    posix::systemCalls().unlinkat = refusingUnlinkAt;
    // Every level takes two deletions (its file and, on the way back, its
    // directory): the refusal comes half-way.
    unlinkFailsAt = depth;
    EXPECT_FALSE(fs::removeAll(path("t")));
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(unlinkCalls, depth);
    EXPECT_TRUE(isDirectoryOnDisk(at("t")));
    expectNoDescriptorLeft();

    // The same from removeAllInDir, refused at the very first deletion and
    // at the very last.
    posix::systemCalls() = posix::systemCallsOfTheSystem();
    unlinkCalls = 0;
    posix::systemCalls().unlinkat = refusingUnlinkAt;
    unlinkFailsAt = 1;
    EXPECT_FALSE(fs::removeAllInDir(path("t")));
    EXPECT_EQ(unlinkCalls, 1);
    expectNoDescriptorLeft();
}

TEST_F(FaultInjection, ListingThatCannotStartDeepInATreeLeavesNoDescriptorOpen)
{
    int const depth = 60;
    makeDirectory("t");
    std::string level = "t";
    for (int i = 0; i < depth; ++i) {
        level += "/d";
        makeDirectory(level);
        writeFile(level + "/f", "x");
    }
    posix::systemCalls().fdopendir = failingOpenDirectoryStreamAfter;
    listingsBeforeFailure = depth / 2;
    // A level that cannot be listed is not empty, so its rmdir fails and the
    // walk stops there.
    EXPECT_FALSE(fs::removeAll(path("t")));
    expectNoDescriptorLeft();
    EXPECT_TRUE(isDirectoryOnDisk(at("t")));
    posix::systemCalls() = posix::systemCallsOfTheSystem();
    EXPECT_TRUE(fs::removeAll(path("t")));
    expectNoDescriptorLeft();
}

TEST_F(FaultInjection, MoveDeletesNothingThroughASourceSwappedForALinkAfterTheCopy)
{
    makeSourceAndCanary();
    auto const source = describeTree(at("src"));
    auto const canary = describeTree(at("canary"));
    posix::systemCalls().rename = crossDeviceRename;
    posix::systemCalls().openat = swappingOpenAt;
    // The copy opens the source first; the deletion opens it second.
    swapPath = at("src");
    swapAtOpening = 2;
    swapAction = linkToTheCanaryInPlaceOf("src");
    EXPECT_FALSE(fs::move(path("src"), path("dst")));
    EXPECT_EQ(openingsOfSwapPath, 2);
    EXPECT_EQ(describeTree(at("canary")), canary);
    EXPECT_EQ(describeTree(at("src.real")), source);
    EXPECT_EQ(describeTree(at("dst")), source);
    EXPECT_TRUE(isLinkOnDisk(at("src")));
    expectNoDescriptorLeft();
}

TEST_F(FaultInjection, MoveDeletesNothingWhenAnotherDirectoryTookTheSourcesPlace)
{
    makeSourceAndCanary();
    auto const source = describeTree(at("src"));
    auto const canary = describeTree(at("canary"));
    posix::systemCalls().rename = crossDeviceRename;
    posix::systemCalls().openat = swappingOpenAt;
    swapPath = at("src");
    swapAtOpening = 2;
    swapAction = [this] {
        ASSERT_EQ(::rename(at("src").c_str(), at("src.real").c_str()), 0);
        ASSERT_EQ(::rename(at("canary").c_str(), at("src").c_str()), 0);
    };
    EXPECT_FALSE(fs::move(path("src"), path("dst")));
    EXPECT_EQ(openingsOfSwapPath, 2);
    EXPECT_EQ(describeTree(at("src")), canary);
    EXPECT_EQ(describeTree(at("src.real")), source);
    expectNoDescriptorLeft();

    // Without a swap the same move copies and deletes the source.
    posix::systemCalls().openat = posix::systemCallsOfTheSystem().openat;
    EXPECT_TRUE(fs::move(path("src.real"), path("dst2")));
    EXPECT_FALSE(isPresentOnDisk(at("src.real")));
    EXPECT_EQ(describeTree(at("dst2")), source);
    expectNoDescriptorLeft();
}

TEST_F(FaultInjection, RemoveAllDeletesNothingThroughATopSwappedForALinkAfterItsCheck)
{
    makeSourceAndCanary();
    auto const source = describeTree(at("src"));
    auto const canary = describeTree(at("canary"));
    posix::systemCalls().openat = swappingOpenAt;
    swapPath = at("src");
    swapAtOpening = 1;
    swapAction = linkToTheCanaryInPlaceOf("src");
    EXPECT_FALSE(fs::removeAll(path("src")));
    EXPECT_EQ(openingsOfSwapPath, 1);
    EXPECT_EQ(describeTree(at("canary")), canary);
    EXPECT_EQ(describeTree(at("src.real")), source);
    expectNoDescriptorLeft();
}

TEST_F(FaultInjection, RemoveAllDeletesNothingThroughASubdirectorySwappedForALinkAsItIsEntered)
{
    makeSourceAndCanary();
    auto const canary = describeTree(at("canary"));
    posix::systemCalls().openat = swappingOpenAt;
    // Subdirectories are opened by their name relative to their parent.
    swapPath = "sub";
    swapAtOpening = 1;
    swapAction = linkToTheCanaryInPlaceOf("src/sub");
    EXPECT_FALSE(fs::removeAll(path("src")));
    EXPECT_EQ(openingsOfSwapPath, 1);
    EXPECT_EQ(describeTree(at("canary")), canary);
    EXPECT_TRUE(isLinkOnDisk(at("src/sub")));
    EXPECT_EQ(readWholeFile(at("src/sub.real/b")), "b");
    expectNoDescriptorLeft();
}

TEST_F(FaultInjection, ExhaustedDescriptorsDuringAWalkFailWithoutALeak)
{
    makeDirectory("t");
    makeDirectory("t/a");
    makeDirectory("t/a/b");
    writeFile("t/a/b/f", "x");
    writeFile("t/g", "g");
    posix::systemCalls().openat = exhaustingOpenAt;

    directoryOpenFailsAt = 2; // t opens, t/a does not
    EXPECT_FALSE(fs::removeAll(path("t")));
    EXPECT_TRUE(isPresentOnDisk(at("t/a/b/f")));
    expectNoDescriptorLeft();

    // In a copy, a source subdirectory that cannot be opened lists nothing:
    // its copy is an empty directory. (The removal may have taken t/g.)
    writeFile("t/g", "g");
    directoryOpens = 0;
    directoryOpenFailsAt = 3; // the source, the destination, then the source's t/a
    EXPECT_TRUE(fs::copyDirectory(path("t"), path("copy"), true));
    EXPECT_TRUE(isDirectoryOnDisk(at("copy/a")));
    EXPECT_TRUE(namesIn(at("copy/a")).empty());
    EXPECT_EQ(readWholeFile(at("copy/g")), "g");
    expectNoDescriptorLeft();

    directoryOpens = 0;
    directoryOpenFailsAt = 2; // the second tree cannot be listed
    EXPECT_FALSE(fs::compareDirectories(path("t"), path("copy")));
    expectNoDescriptorLeft();
}

TEST_F(FaultInjection, ListingThatCannotStartClosesItsDescriptor)
{
    makeDirectory("t");
    makeDirectory("t/a");
    posix::systemCalls().fdopendir = failingOpenDirectoryStream;
    // Nothing can be listed, so only an empty directory could go.
    EXPECT_FALSE(fs::removeAll(path("t")));
    EXPECT_TRUE(isDirectoryOnDisk(at("t/a")));
    expectNoDescriptorLeft();
    EXPECT_TRUE(fs::removeAll(path("t/a")));
    expectNoDescriptorLeft();
}

// ---- Waiting on FIFOs and devices -----------------------------------------------------

int waitCalls = 0;
int waitFailure = 0; // errno for a failing wait, 0 for a wait that finds nothing

int scriptedWait(int, int)
{
    ++waitCalls;
    if (waitFailure != 0) {
        errno = waitFailure;
        return -1;
    }
    return 0;
}

TEST_F(FaultInjection, WriterThatFallsSilentEndsTheCopyWithWhatItSent)
{
    ASSERT_EQ(::mkfifo(at("pipe").c_str(), 0644), 0);
    int const writer = ::open(at("pipe").c_str(), O_RDWR | O_NONBLOCK);
    ASSERT_GE(writer, 0);
    ASSERT_EQ(::write(writer, "sent", 4), 4);
    waitCalls = 0;
    waitFailure = 0;
    posix::systemCalls().pollInput = scriptedWait;
    EXPECT_TRUE(fs::copyFile(path("pipe"), path("copy"), true));
    EXPECT_EQ(readWholeFile(at("copy")), "sent");
    EXPECT_EQ(waitCalls, 1); // the writer is there, silent: one wait, told "nothing came"
    ::close(writer);
}

TEST_F(FaultInjection, FailingWaitEndsTheCopyAsAFailedReadDoes)
{
    ASSERT_EQ(::mkfifo(at("pipe").c_str(), 0644), 0);
    int const writer = ::open(at("pipe").c_str(), O_RDWR | O_NONBLOCK);
    ASSERT_GE(writer, 0);
    ASSERT_EQ(::write(writer, "sent", 4), 4);
    waitCalls = 0;
    waitFailure = EIO;
    posix::systemCalls().pollInput = scriptedWait;
    EXPECT_TRUE(fs::copyFile(path("pipe"), path("copy"), true));
    EXPECT_EQ(readWholeFile(at("copy")), "sent");
    EXPECT_EQ(waitCalls, 1);
    // The comparison ends there too: the FIFO gave four bytes, the empty
    // file (of the same reported size, 0) none.
    ASSERT_EQ(::write(writer, "more", 4), 4);
    writeFile("empty", "");
    EXPECT_FALSE(fs::compareFiles(path("pipe"), path("empty")));
    EXPECT_EQ(waitCalls, 2);
    ::close(writer);
    expectNoDescriptorLeft();
}

} // namespace
