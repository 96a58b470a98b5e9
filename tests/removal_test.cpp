// Tests of removal: single objects, whole trees (links, FIFOs, odd names, large directories, a tree changed while it is removed) and removal by pattern.
#include <kelvo/filesystem.h>

#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <new>

#include <sched.h>
#include <cstdio>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::Path;
using kelvo::unicode::String;
using namespace kelvo::testing;
namespace fs = kelvo::filesystem;

constexpr int kSwapRounds = 1000;
constexpr int kFilesBesideThePair = 30;

class Removal : public ScratchDirectory {
protected:
    void makeDirectory(std::string const& name) { ASSERT_EQ(::mkdir(at(name).c_str(), 0777), 0) << name; }
    void makeLink(std::string const& target, std::string const& name)
    {
        ASSERT_EQ(::symlink(target.c_str(), at(name).c_str()), 0) << name;
    }
    void makeFifo(std::string const& name) { ASSERT_EQ(::mkfifo(at(name).c_str(), 0644), 0) << name; }
};

// ---- remove and removeDir ------------------------------------------------------

TEST_F(Removal, RemoveOfAMissingPathIsFalse)
{
    EXPECT_FALSE(fs::remove(Path(at("missing"))));
}

TEST_F(Removal, RemoveDeletesAnEmptyDirectoryButNotAFullOne)
{
    makeDirectory("empty");
    makeDirectory("full");
    writeFile("full/f", "x");
    EXPECT_TRUE(fs::remove(Path(at("empty"))));
    EXPECT_FALSE(isPresentOnDisk(at("empty")));
    EXPECT_FALSE(fs::remove(Path(at("full"))));
    EXPECT_EQ(readWholeFile(at("full/f")), "x");
}

TEST_F(Removal, RemoveDeletesFilesFifosAndLinksToFilesButNotTheirTargets)
{
    writeFile("file", "content");
    makeFifo("fifo");
    makeLink(at("file"), "link");
    EXPECT_TRUE(fs::remove(Path(at("link"))));
    EXPECT_FALSE(isPresentOnDisk(at("link")));
    EXPECT_EQ(readWholeFile(at("file")), "content");
    EXPECT_TRUE(fs::remove(Path(at("fifo"))));
    EXPECT_FALSE(isPresentOnDisk(at("fifo")));
    EXPECT_TRUE(fs::remove(Path(at("file"))));
    EXPECT_FALSE(isPresentOnDisk(at("file")));
}

TEST_F(Removal, RemoveRefusesALinkToADirectoryAndADanglingLink)
{
    makeDirectory("dir");
    makeLink(at("dir"), "toDir");
    makeLink(at("nowhere"), "dangling");
    EXPECT_FALSE(fs::remove(Path(at("toDir"))));
    EXPECT_TRUE(isLinkOnDisk(at("toDir")));
    EXPECT_TRUE(isDirectoryOnDisk(at("dir")));
    EXPECT_FALSE(fs::remove(Path(at("dangling"))));
    EXPECT_TRUE(isLinkOnDisk(at("dangling")));
}

TEST_F(Removal, RemoveDirDeletesOnlyEmptyDirectories)
{
    makeDirectory("empty");
    makeDirectory("full");
    writeFile("full/f");
    writeFile("file");
    EXPECT_TRUE(fs::removeDir(Path(at("empty"))));
    EXPECT_FALSE(isPresentOnDisk(at("empty")));
    EXPECT_FALSE(fs::removeDir(Path(at("full"))));
    EXPECT_FALSE(fs::removeDir(Path(at("file"))));
    EXPECT_FALSE(fs::removeDir(Path(at("missing"))));
    EXPECT_TRUE(isPresentOnDisk(at("full/f")));
    EXPECT_TRUE(isPresentOnDisk(at("file")));
}

// ---- removeAll and removeAllInDir ------------------------------------------------

TEST_F(Removal, RemoveAllDeletesANestedTree)
{
    makeDirectory("t");
    makeDirectory("t/a");
    makeDirectory("t/a/b");
    makeDirectory("t/empty");
    writeFile("t/f", "1");
    writeFile("t/a/g", "2");
    writeFile("t/a/b/h", "3");
    makeFifo("t/a/fifo");
    writeFile("outside", "o");
    makeLink(at("outside"), "t/a/b/linkToFile");
    EXPECT_TRUE(fs::removeAll(Path(at("t"))));
    EXPECT_FALSE(isPresentOnDisk(at("t")));
    EXPECT_EQ(namesIn(scratch), std::vector<std::string>{"outside"});
    EXPECT_EQ(readWholeFile(at("outside")), "o");
}

TEST_F(Removal, RemoveAllOfAFileOrALinkToAFileDeletesJustThat)
{
    writeFile("file", "keep");
    writeFile("other", "gone");
    makeLink(at("file"), "link");
    EXPECT_TRUE(fs::removeAll(Path(at("link"))));
    EXPECT_FALSE(isPresentOnDisk(at("link")));
    EXPECT_EQ(readWholeFile(at("file")), "keep");
    EXPECT_TRUE(fs::removeAll(Path(at("other"))));
    EXPECT_FALSE(isPresentOnDisk(at("other")));
}

TEST_F(Removal, RemoveAllOfALinkToADirectoryNeverDescends)
{
    makeDirectory("target");
    writeFile("target/precious", "p");
    makeLink(at("target"), "link");
    EXPECT_FALSE(fs::removeAll(Path(at("link"))));
    EXPECT_TRUE(isLinkOnDisk(at("link")));
    EXPECT_EQ(readWholeFile(at("target/precious")), "p");
}

TEST_F(Removal, RemoveAllOfAMissingPathIsFalse)
{
    EXPECT_FALSE(fs::removeAll(Path(at("missing"))));
    EXPECT_FALSE(fs::removeAllInDir(Path(at("missing"))));
}

TEST_F(Removal, DanglingLinkInATreeStopsTheRemovalWithFalse)
{
    makeDirectory("top");
    makeDirectory("top/mid");
    makeLink(at("nowhere"), "top/mid/dangling");
    EXPECT_FALSE(fs::removeAll(Path(at("top"))));
    EXPECT_TRUE(isLinkOnDisk(at("top/mid/dangling")));
    EXPECT_TRUE(isDirectoryOnDisk(at("top/mid")));
    EXPECT_TRUE(isDirectoryOnDisk(at("top")));
}

TEST_F(Removal, LinkToADirectoryInATreeStopsTheRemovalAndItsTargetIsUntouched)
{
    makeDirectory("outside");
    writeFile("outside/keep", "k");
    makeDirectory("top");
    makeDirectory("top/mid");
    makeLink(at("outside"), "top/mid/toOutside");
    EXPECT_FALSE(fs::removeAll(Path(at("top"))));
    EXPECT_TRUE(isLinkOnDisk(at("top/mid/toOutside")));
    EXPECT_TRUE(isDirectoryOnDisk(at("top/mid")));
    EXPECT_EQ(readWholeFile(at("outside/keep")), "k");
}

TEST_F(Removal, RemoveAllInDirOfAnEmptyDirectoryRemovesIt)
{
    makeDirectory("empty");
    EXPECT_TRUE(fs::removeAllInDir(Path(at("empty"))));
    EXPECT_FALSE(isPresentOnDisk(at("empty")));
}

TEST_F(Removal, RemoveAllInDirOfAFileListsNothingAndFails)
{
    writeFile("file", "x");
    EXPECT_FALSE(fs::removeAllInDir(Path(at("file"))));
    EXPECT_EQ(readWholeFile(at("file")), "x");
}

TEST_F(Removal, RemoveAllInDirCalledOnALinkToADirectoryEmptiesWhatItNamesAndFails)
{
    makeDirectory("target");
    makeDirectory("target/inner");
    writeFile("target/inner/f", "f");
    writeFile("target/g", "g");
    makeLink(at("target"), "link");
    // Called directly, the link at the top is followed; the link itself is
    // no directory, so its rmdir fails and both stay.
    EXPECT_FALSE(fs::removeAllInDir(Path(at("link"))));
    EXPECT_TRUE(isLinkOnDisk(at("link")));
    EXPECT_TRUE(isDirectoryOnDisk(at("target")));
    EXPECT_TRUE(namesIn(at("target")).empty());
}

TEST_F(Removal, RemoveAllInDirEmptiesAndRemovesATree)
{
    makeDirectory("d");
    makeDirectory("d/e");
    writeFile("d/e/f", "1");
    writeFile("d/g", "2");
    EXPECT_TRUE(fs::removeAllInDir(Path(at("d"))));
    EXPECT_FALSE(isPresentOnDisk(at("d")));
}

TEST_F(Removal, TreeOfDecomposedComposedTwinAndUndecodableNamesIsRemovedWhole)
{
    makeDirectory("odd");
    makeDirectory("odd/Re\xCC\x81sume\xCC\x81");   // NFD
    makeDirectory("odd/R\xC3\xA9sum\xC3\xA9");     // its NFC twin
    writeFile("odd/Re\xCC\x81sume\xCC\x81/\xC3\xA9", "nfc inside nfd");
    writeFile("odd/R\xC3\xA9sum\xC3\xA9/e\xCC\x81", "nfd inside nfc");
    writeFile("odd/bad\xFF\xFEname", "not UTF-8");
    writeFile("odd/\xC3\x85ngstr\xC3\xB6m", "1");   // U+00C5
    writeFile("odd/\xE2\x84\xAB" "ngstr\xC3\xB6m", "2"); // U+212B, its singleton twin
    makeDirectory("odd/\x80\x81");
    writeFile("odd/\x80\x81/x", "");
    EXPECT_TRUE(fs::removeAll(Path(at("odd"))));
    EXPECT_FALSE(isPresentOnDisk(at("odd")));
}

TEST_F(Removal, DirectoryOfTenThousandEntriesIsRemoved)
{
    makeDirectory("big");
    for (int i = 0; i < 10000; ++i) {
        std::string const name = "big/entry" + std::to_string(i);
        int fd = ::open(at(name).c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
        ASSERT_GE(fd, 0) << name;
        ::close(fd);
    }
    EXPECT_TRUE(fs::removeAll(Path(at("big"))));
    EXPECT_FALSE(isPresentOnDisk(at("big")));
}

TEST_F(Removal, UnprivilegedUserCannotEmptyAReadOnlyDirectoryAndNothingIsLost)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0777), 0);
    makeDirectory("shared");
    ASSERT_EQ(::chmod(at("shared").c_str(), 0777), 0);
    makeDirectory("shared/ro");
    writeFile("shared/ro/a", "a");
    writeFile("shared/ro/b", "b");
    ASSERT_EQ(::chmod(at("shared/ro").c_str(), 0555), 0);
    std::string const top = at("shared");
    int const result = runUnprivileged([&] {
        bool const all = fs::removeAll(Path(top));
        bool const one = fs::remove(Path(top + "/ro/a"));
        return firstFailure({!all, !one});
    });
    if (result == kCannotDropPrivileges)
        GTEST_SKIP() << "cannot switch to an unprivileged user here";
    EXPECT_EQ(result, 0);
    EXPECT_EQ(readWholeFile(at("shared/ro/a")), "a");
    EXPECT_EQ(readWholeFile(at("shared/ro/b")), "b");
}

TEST_F(Removal, PathWithANulByteRemovesNothing)
{
    writeFile("a", "x");
    makeDirectory("d");
    std::string fileThenNul = at("a");
    fileThenNul.push_back('\0');
    fileThenNul += "b";
    std::string dirThenNul = at("d");
    dirThenNul.push_back('\0');
    for (std::string const& text : {fileThenNul, dirThenNul}) {
        Path const path(text);
        EXPECT_FALSE(fs::remove(path));
        EXPECT_FALSE(fs::removeDir(path));
        EXPECT_FALSE(fs::removeAll(path));
        EXPECT_FALSE(fs::removeAllInDir(path));
    }
    EXPECT_EQ(readWholeFile(at("a")), "x");
    EXPECT_TRUE(isDirectoryOnDisk(at("d")));
}

// ---- A tree changed under the walk ----------------------------------------------

// A second process keeps exchanging a subdirectory of the tree with a
// symbolic link to a sentinel directory outside it while the tree is removed.
// Whatever the walk meets, the sentinel must come through whole. Each round's
// tree is built under another name and renamed into place, so that the
// exchanges never redirect the building itself.
TEST_F(Removal, SwappingASubdirectoryForALinkNeverReachesOutsideTheTree)
{
    // Metadata changes are cheapest in memory: the rounds run in a directory
    // of /dev/shm where there is one, else in the scratch directory.
    std::string area = scratch;
    char shared[] = "/dev/shm/kelvo-swap-XXXXXX";
    if (::mkdtemp(shared) != nullptr)
        area = shared;
    struct AreaRemover {
        std::string area;
        bool own;
        ~AreaRemover()
        {
            if (own)
                removeTree(area);
        }
    } const remover{area, area != scratch};

    std::string const sentinel = area + "/sentinel";
    ASSERT_EQ(::mkdir(sentinel.c_str(), 0777), 0);
    ASSERT_EQ(::mkdir((sentinel + "/inner").c_str(), 0777), 0);
    ASSERT_TRUE(writeWholeFile(sentinel + "/keep", "keep"));
    ASSERT_TRUE(writeWholeFile(sentinel + "/inner/deep", "deep"));
    auto const expected = describeTree(sentinel);
    std::string const tree = area + "/tree";
    std::string const stage = area + "/stage";

    // Exchanges that took place, counted by the child in shared memory.
    auto* swaps = static_cast<std::atomic<long>*>(
        ::mmap(nullptr, sizeof(std::atomic<long>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(swaps, MAP_FAILED);
    new (swaps) std::atomic<long>(0);
    auto* armed = static_cast<std::atomic<long>*>(
        ::mmap(nullptr, sizeof(std::atomic<long>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(armed, MAP_FAILED);
    new (armed) std::atomic<long>(0);

    pid_t const child = ::fork();
    ASSERT_GE(child, 0);
    // The child goes however the test ends.
    struct ChildStopper {
        pid_t child;
        ~ChildStopper()
        {
            if (child > 0) {
                ::kill(child, SIGKILL);
                ::waitpid(child, nullptr, 0);
            }
        }
    } stopper{child};
    if (child == 0) {
        std::string const a = tree + "/sub";
        std::string const b = tree + "/swap";
        for (;;) {
            // Idle while the parent builds and checks, busy while it removes.
            if (armed->load() == 0) {
                ::usleep(50);
                continue;
            }
            if (::renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) == 0)
                swaps->fetch_add(1);
            // Leaves the directory lock free between exchanges for a moment.
            ::sched_yield();
        }
    }

    int round = 0;
    for (; round < kSwapRounds && !HasFatalFailure(); ++round) {
        // Files beside the pair keep the walk busy between reading the
        // entries' kinds and opening the subdirectory (a listing of memory
        // gives the newest entries first, so the files come first there).
        ASSERT_EQ(::mkdir(stage.c_str(), 0777), 0);
        ASSERT_EQ(::symlink(sentinel.c_str(), (stage + "/swap").c_str()), 0);
        ASSERT_EQ(::mkdir((stage + "/sub").c_str(), 0777), 0);
        ASSERT_TRUE(writeWholeFile(stage + "/sub/f", "f"));
        for (int i = 0; i < kFilesBesideThePair; ++i)
            ASSERT_TRUE(writeWholeFile(stage + "/h" + std::to_string(i), "h"));
        ASSERT_EQ(::rename(stage.c_str(), tree.c_str()), 0);

        armed->store(1);
        (void)fs::removeAll(Path(tree));
        armed->store(0);

        ASSERT_EQ(describeTree(sentinel), expected) << "round " << round;
        // What is left moves out of the child's reach, to be cleared at the end.
        std::string const leftOver = area + "/left" + std::to_string(round);
        ASSERT_TRUE(::rename(tree.c_str(), leftOver.c_str()) == 0 || errno == ENOENT);
    }

    EXPECT_EQ(round, kSwapRounds);
    EXPECT_GT(swaps->load(), 0) << "the second process never exchanged the two";
    ::munmap(swaps, sizeof(std::atomic<long>));
    ::munmap(armed, sizeof(std::atomic<long>));
}

// ---- Removal by pattern ---------------------------------------------------------

TEST_F(Removal, RemoveMatchingDeletesOnlyMatchingNames)
{
    makeDirectory("d");
    writeFile("d/a.tmp", "");
    writeFile("d/b.txt", "");
    EXPECT_TRUE(fs::removeMatching(Path(at("d")), String("*.tmp")));
    EXPECT_EQ(namesIn(at("d")), std::vector<std::string>{"b.txt"});
    EXPECT_TRUE(fs::removeMatching(Path(at("d")), String("*.tmp")));
    EXPECT_EQ(namesIn(at("d")), std::vector<std::string>{"b.txt"});
}

TEST_F(Removal, RemoveMatchingInAnEmptyOrMissingDirectoryIsFalse)
{
    makeDirectory("empty");
    writeFile("file");
    EXPECT_FALSE(fs::removeMatching(Path(at("empty")), String("*")));
    EXPECT_FALSE(fs::removeMatching(Path(at("missing")), String("*")));
    EXPECT_FALSE(fs::removeMatching(Path(at("file")), String("*")));
    EXPECT_FALSE(fs::removeAllMatching(Path(at("empty")), String("*")));
}

TEST_F(Removal, RemoveAllMatchingDeletesAMatchingSubtreeThatRemoveMatchingCannot)
{
    makeDirectory("d");
    makeDirectory("d/cache");
    writeFile("d/cache/x", "x");
    makeDirectory("d/cache/y");
    writeFile("d/keep", "k");
    EXPECT_FALSE(fs::removeMatching(Path(at("d")), String("cach?")));
    EXPECT_TRUE(isDirectoryOnDisk(at("d/cache")));
    EXPECT_TRUE(fs::removeAllMatching(Path(at("d")), String("cach?")));
    EXPECT_EQ(namesIn(at("d")), std::vector<std::string>{"keep"});
}

TEST_F(Removal, RemoveAllMatchingKeepsTheRefusalOfALinkToADirectory)
{
    makeDirectory("outside");
    writeFile("outside/keep", "k");
    makeDirectory("d");
    makeLink(at("outside"), "d/m-link");
    EXPECT_FALSE(fs::removeAllMatching(Path(at("d")), String("m-*")));
    EXPECT_TRUE(isLinkOnDisk(at("d/m-link")));
    EXPECT_EQ(readWholeFile(at("outside/keep")), "k");
}

TEST_F(Removal, ForEachMatchingMatchesTheFileNameOnlyAndCountsMisses)
{
    makeDirectory("dir");
    writeFile("dir/alpha", "");
    writeFile("dir/beta", "");
    std::vector<std::string> seen;
    bool const result = fs::forEachMatching(Path(at("dir")), String("a*"), [&](Path const& entry) {
        seen.push_back(entry.nativeString());
        return true;
    });
    EXPECT_TRUE(result);
    EXPECT_EQ(seen, std::vector<std::string>{at("dir/alpha")});

    // A pattern that would match the whole path but never a name.
    seen.clear();
    EXPECT_TRUE(fs::forEachMatching(Path(at("dir")), String("/*"), [&](Path const& entry) {
        seen.push_back(entry.nativeString());
        return true;
    }));
    EXPECT_TRUE(seen.empty());
}

TEST_F(Removal, ForEachMatchingStopsWhenTheActionSaysNo)
{
    makeDirectory("dir");
    writeFile("dir/a1", "");
    writeFile("dir/a2", "");
    writeFile("dir/a3", "");
    int calls = 0;
    EXPECT_FALSE(fs::forEachMatching(Path(at("dir")), String("a?"), [&](Path const&) {
        ++calls;
        return calls < 2;
    }));
    EXPECT_EQ(calls, 2);
}

TEST_F(Removal, ForEachMatchingWithAnEmptyActionThrowsAtTheFirstMatchOnly)
{
    makeDirectory("dir");
    writeFile("dir/x", "");
    std::function<bool(Path const&)> const empty;
    EXPECT_TRUE(fs::forEachMatching(Path(at("dir")), String("nothing*"), empty));
    EXPECT_THROW(fs::forEachMatching(Path(at("dir")), String("x"), empty), std::bad_function_call);
}

TEST_F(Removal, ForEachMatchingWithAnInvalidPatternThrows)
{
    makeDirectory("dir");
    writeFile("dir/x", "");
    EXPECT_THROW(fs::removeMatching(Path(at("dir")), String("[x")), std::regex_error);
    EXPECT_TRUE(isPresentOnDisk(at("dir/x")));
}

} // namespace
