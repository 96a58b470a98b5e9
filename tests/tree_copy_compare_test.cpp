// Tests of the directory copy and comparison walks: any depth with few descriptors and a small stack, link loops, directories that cannot be listed, and FIFOs, sockets and devices read without hanging.
#include <kelvo/filesystem.h>

#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ResourceProbes.h"
#include "support/ScratchDirectory.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

using kelvo::filesystem::FileType;
using kelvo::filesystem::Path;
using namespace kelvo::testing;
namespace fs = kelvo::filesystem;

// The most bytes the library reads from a FIFO or a device, as documented.
constexpr off_t kSpecialFileLimit = 16 * 1024 * 1024;

// ---- Helpers: processes, stacks, deep trees ------------------------------------------

constexpr std::size_t kSmallStack = 256 * 1024;

/// Runs a command (searched in PATH) and waits for it.
/// @returns its exit status, or -1 when it did not run or exit.
int runCommand(std::vector<std::string> const& arguments)
{
    std::vector<char*> argv;
    for (std::string const& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t child = 0;
    if (::posix_spawnp(&child, argv[0], nullptr, nullptr, argv.data(), environ) != 0)
        return -1;
    int status = 0;
    if (::waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

/// Writes `content` into `name` relative to `directory`.
bool writeAt(int directory, char const* name, std::string const& content)
{
    int const fd = ::openat(directory, name, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0)
        return false;
    bool const written = ::write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size());
    return ::close(fd) == 0 && written;
}

/// Makes under the existing directory `top` a chain of `depth` directories
/// named "d", through descriptors so that no path grows with the depth. Each
/// level's file "f" holds the level's number when `filesAtEveryLevel` is
/// set; the deepest directory's "f" holds `deepest` in any case.
/// @returns true when the whole chain was made.
bool makeChain(std::string const& top, int depth, bool filesAtEveryLevel, std::string const& deepest)
{
    int descriptor = ::open(top.c_str(), O_RDONLY | O_DIRECTORY);
    if (descriptor < 0)
        return false;
    bool made = true;
    for (int level = 0; made && level < depth; ++level) {
        if (filesAtEveryLevel && !writeAt(descriptor, "f", std::to_string(level)))
            made = false;
        int const next = made && ::mkdirat(descriptor, "d", 0755) == 0
            ? ::openat(descriptor, "d", O_RDONLY | O_DIRECTORY)
            : -1;
        ::close(descriptor);
        descriptor = next;
        made = next >= 0;
    }
    if (made)
        made = writeAt(descriptor, "f", deepest);
    if (descriptor >= 0)
        ::close(descriptor);
    return made;
}

/// @returns the contents of `name` relative to `directory`, or "<unreadable>".
std::string readAt(int directory, char const* name)
{
    int const fd = ::openat(directory, name, O_RDONLY | O_NOFOLLOW);
    if (fd < 0)
        return "<unreadable>";
    std::string content;
    char buffer[4096];
    for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;)
        content.append(buffer, static_cast<std::size_t>(n));
    ::close(fd);
    return content;
}

/// @returns the names in the open directory `directory`, sorted.
std::vector<std::string> namesAt(int directory)
{
    std::vector<std::string> names;
    int const copy = ::dup(directory);
    DIR* const stream = copy >= 0 ? ::fdopendir(copy) : nullptr;
    if (stream == nullptr)
        return names;
    ::rewinddir(stream);
    while (dirent* entry = ::readdir(stream)) {
        std::string const name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    ::closedir(stream);
    std::sort(names.begin(), names.end());
    return names;
}

/// Walks the chains under `a` and `b` side by side, through descriptors, and
/// checks that every level holds the same names and the same file contents.
/// @returns the number of levels seen alike, or -1 at the first difference.
int sameChains(std::string const& a, std::string const& b)
{
    int descriptorA = ::open(a.c_str(), O_RDONLY | O_DIRECTORY);
    int descriptorB = ::open(b.c_str(), O_RDONLY | O_DIRECTORY);
    int levels = 0;
    int result = -1;
    while (descriptorA >= 0 && descriptorB >= 0) {
        std::vector<std::string> const names = namesAt(descriptorA);
        if (names != namesAt(descriptorB))
            break;
        bool same = true;
        for (std::string const& name : names) {
            if (name != "d")
                same = same && readAt(descriptorA, name.c_str()) == readAt(descriptorB, name.c_str());
        }
        if (!same)
            break;
        ++levels;
        if (std::find(names.begin(), names.end(), "d") == names.end()) {
            result = levels;
            break;
        }
        int const nextA = ::openat(descriptorA, "d", O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
        int const nextB = ::openat(descriptorB, "d", O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
        ::close(descriptorA);
        ::close(descriptorB);
        descriptorA = nextA;
        descriptorB = nextB;
    }
    if (descriptorA >= 0)
        ::close(descriptorA);
    if (descriptorB >= 0)
        ::close(descriptorB);
    return result;
}

/// @returns a child's exit status for a failure of `limit` to be set.
constexpr int kCannotLimitDescriptors = 110;

/// @returns true when `paths` holds exactly the native paths `expected`, in any order.
bool namesExactly(std::vector<Path> const& paths, std::vector<std::string> expected)
{
    std::vector<std::string> got;
    for (Path const& path : paths)
        got.push_back(path.nativeString());
    std::sort(got.begin(), got.end());
    std::sort(expected.begin(), expected.end());
    return got == expected;
}

/// Removes the tree `top` (links not followed) with plain system calls,
/// holding one descriptor at any depth: down through the first subdirectory
/// left at each level, deleting everything else there, and back up through
/// "..", deleting the emptied directory. Directories that cannot be opened
/// are made accessible first.
/// @returns true when `top` is gone.
bool removeDeepTree(std::string const& top)
{
    struct stat st;
    if (::lstat(top.c_str(), &st) != 0)
        return true;
    if (!S_ISDIR(st.st_mode))
        return ::unlink(top.c_str()) == 0;
    ::chmod(top.c_str(), 0700);
    int descriptor = ::open(top.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    std::vector<std::string> trail;
    while (descriptor >= 0) {
        std::string subdirectory;
        for (std::string const& name : namesAt(descriptor)) {
            struct stat entry;
            if (::fstatat(descriptor, name.c_str(), &entry, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(entry.st_mode)) {
                if (subdirectory.empty())
                    subdirectory = name;
            } else {
                ::unlinkat(descriptor, name.c_str(), 0);
            }
        }
        if (!subdirectory.empty()) {
            ::fchmodat(descriptor, subdirectory.c_str(), 0700, 0);
            int const next = ::openat(descriptor, subdirectory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
            if (next < 0) {
                ::close(descriptor);
                return false;
            }
            ::close(descriptor);
            descriptor = next;
            trail.push_back(subdirectory);
            continue;
        }
        if (trail.empty()) {
            ::close(descriptor);
            break;
        }
        int const parent = ::openat(descriptor, "..", O_RDONLY | O_DIRECTORY);
        ::close(descriptor);
        if (parent < 0 || ::unlinkat(parent, trail.back().c_str(), AT_REMOVEDIR) != 0) {
            if (parent >= 0)
                ::close(parent);
            return false;
        }
        trail.pop_back();
        descriptor = parent;
    }
    return ::rmdir(top.c_str()) == 0;
}

class TreeCopyCompare : public ScratchDirectory {
protected:
    void TearDown() override
    {
        // Deep trees go before the fixture's own cleanup, which walks by path.
        if (!scratch.empty()) {
            EXPECT_TRUE(removeDeepTree(scratch)) << "the scratch tree could not be removed";
        }
        ScratchDirectory::TearDown();
    }

    void makeDirectory(std::string const& name, mode_t mode = 0755)
    {
        ASSERT_EQ(::mkdir(at(name).c_str(), 0777), 0) << name;
        ASSERT_EQ(::chmod(at(name).c_str(), mode), 0) << name;
    }
    void makeLink(std::string const& target, std::string const& name)
    {
        ASSERT_EQ(::symlink(target.c_str(), at(name).c_str()), 0) << name;
    }
    void makeFifo(std::string const& name) { ASSERT_EQ(::mkfifo(at(name).c_str(), 0644), 0) << name; }
    /// Leaves a socket file at `name`.
    void makeSocket(std::string const& name) { ASSERT_TRUE(makeSocketFile(at(name))) << name; }
    Path path(std::string const& name) const { return Path(at(name)); }
    off_t sizeOf(std::string const& name) const
    {
        struct stat st;
        return ::lstat(at(name).c_str(), &st) == 0 ? st.st_size : -1;
    }
    /// Lets an unprivileged user into the scratch directory.
    void openScratch() { ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0); }
};

// ---- Any depth, few descriptors ------------------------------------------------------

TEST_F(TreeCopyCompare, TwoHundredLevelsUnderSixtyFourDescriptorsAnswerAsWithoutALimit)
{
    makeDirectory("a");
    makeDirectory("b");
    makeDirectory("same");
    ASSERT_TRUE(makeChain(at("a"), 200, true, "deepest"));
    ASSERT_TRUE(makeChain(at("b"), 200, true, "deepesT"));
    ASSERT_TRUE(makeChain(at("same"), 200, true, "deepest"));

    // Without a limit first: the answers every run must give.
    bool const unlimitedCopy = fs::copyDirectory(path("a"), path("unlimited"), true);
    bool const unlimitedDiffer = fs::compareDirectories(path("a"), path("b"));
    bool const unlimitedSame = fs::compareDirectories(path("a"), path("same"));
    EXPECT_TRUE(unlimitedCopy);
    EXPECT_FALSE(unlimitedDiffer);
    EXPECT_TRUE(unlimitedSame);
    EXPECT_EQ(runCommand({"diff", "-r", at("a"), at("unlimited")}), 0);

    std::string const a = at("a");
    std::string const b = at("b");
    std::string const same = at("same");
    std::string const copy = at("limited");
    int const result = runBounded(300, [&] {
        if (!limitDescriptors(64))
            return kCannotLimitDescriptors;
        return firstFailure({fs::copyDirectory(Path(a), Path(copy), true) == unlimitedCopy,
                             fs::compareDirectories(Path(a), Path(b)) == unlimitedDiffer,
                             fs::compareDirectories(Path(b), Path(a)) == unlimitedDiffer,
                             fs::compareDirectories(Path(a), Path(same)) == unlimitedSame,
                             fs::compareDirectories(Path(a), Path(copy)) == unlimitedSame});
    });
    ASSERT_NE(result, kCannotLimitDescriptors);
    EXPECT_EQ(result, 0);
    // The copy made under the limit is complete.
    EXPECT_EQ(runCommand({"diff", "-r", a, copy}), 0);
    EXPECT_EQ(sameChains(a, copy), 201);
}

TEST_F(TreeCopyCompare, SixHundredLevelsDifferingInTheDeepestFileAreUnequalUnderAThousandDescriptors)
{
    makeDirectory("a");
    makeDirectory("b");
    ASSERT_TRUE(makeChain(at("a"), 600, false, "left"));
    ASSERT_TRUE(makeChain(at("b"), 600, false, "righ"));
    std::string const a = at("a");
    std::string const b = at("b");
    int const result = runBounded(300, [&] {
        if (!limitDescriptors(1024))
            return kCannotLimitDescriptors;
        return firstFailure({!fs::compareDirectories(Path(a), Path(b)), !fs::compareDirectories(Path(b), Path(a)),
                             fs::compareDirectories(Path(a), Path(a))});
    });
    ASSERT_NE(result, kCannotLimitDescriptors);
    EXPECT_EQ(result, 0);
}

// Copies and compares chains 30,000 levels deep on a thread with a 256 KiB
// stack, in a child running as `unprivileged` says.
void copyAndCompareThirtyThousandLevels(std::string const& scratch, bool unprivileged)
{
    constexpr int kDepth = 30000;
    std::string const a = scratch + "/a";
    std::string const b = scratch + "/b";
    std::string const out = scratch + "/out";
    std::string const copy = out + "/copy";
    ASSERT_EQ(::mkdir(a.c_str(), 0755), 0);
    ASSERT_EQ(::mkdir(b.c_str(), 0755), 0);
    ASSERT_EQ(::mkdir(out.c_str(), 0777), 0);
    ASSERT_EQ(::chmod(out.c_str(), 0777), 0);
    ASSERT_TRUE(makeChain(a, kDepth, false, "bottom"));
    ASSERT_TRUE(makeChain(b, kDepth, false, "bottoM"));

    auto const body = [&] {
        return runOnSmallStack([&] {
            return firstFailure({fs::copyDirectory(Path(a), Path(copy), true),
                                 fs::compareDirectories(Path(a), Path(copy)),
                                 !fs::compareDirectories(Path(a), Path(b)),
                                 !fs::compareDirectories(Path(copy), Path(b))});
        }, kSmallStack);
    };
    int const result = unprivileged ? runUnprivileged([&] { return runBounded(600, body); })
                                    : runBounded(600, body);
    if (unprivileged && unprivilegedSkipReason(result) != nullptr)
        GTEST_SKIP() << unprivilegedSkipReason(result);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(sameChains(a, copy), kDepth + 1);
}

TEST_F(TreeCopyCompare, ThirtyThousandLevelsAreCopiedAndComparedOnASmallStack)
{
    copyAndCompareThirtyThousandLevels(scratch, false);
}

TEST_F(TreeCopyCompare, ThirtyThousandLevelsAreCopiedAndComparedOnASmallStackByAnUnprivilegedUser)
{
    openScratch();
    copyAndCompareThirtyThousandLevels(scratch, true);
}

TEST_F(TreeCopyCompare, WideTreeWithFilesAtEveryLevelIsCopiedWhole)
{
    // Many directories side by side, each a few levels deep: the walk goes
    // down and back up again and again.
    makeDirectory("a");
    for (int i = 0; i < 40; ++i) {
        std::string const branch = "a/branch" + std::to_string(i);
        makeDirectory(branch);
        ASSERT_TRUE(makeChain(at(branch), 20 + i % 7, true, "end " + std::to_string(i)));
    }
    std::string const a = at("a");
    std::string const copy = at("copy");
    int const result = runBounded(300, [&] {
        if (!limitDescriptors(64))
            return kCannotLimitDescriptors;
        return firstFailure({fs::copyDirectory(Path(a), Path(copy), true), fs::compareDirectories(Path(a), Path(copy))});
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(runCommand({"diff", "-r", a, copy}), 0);
}

// ---- Link loops ----------------------------------------------------------------------

TEST_F(TreeCopyCompare, CopyOfALinkBackToAnAncestorFailsThatEntryAndCopiesTheRest)
{
    makeDirectory("a");
    makeDirectory("a/sub");
    writeFile("a/sub/file", "kept");
    makeLink("..", "a/sub/up");
    makeLink(".", "a/self");
    std::string const a = at("a");
    std::string const copy = at("copy");
    int const result = runBounded(120, [&] { return fs::copyDirectory(Path(a), Path(copy), true) ? 1 : 0; });
    EXPECT_EQ(result, 0) << "the copy must end, and say false";
    EXPECT_EQ(readWholeFile(at("copy/sub/file")), "kept");
    EXPECT_FALSE(isPresentOnDisk(at("copy/sub/up")));
    EXPECT_FALSE(isPresentOnDisk(at("copy/self")));
}

TEST_F(TreeCopyCompare, CopyIntoItsOwnSubdirectoryEndsAndFails)
{
    makeDirectory("a");
    makeDirectory("a/sub");
    writeFile("a/file", "x");
    std::string const a = at("a");
    std::string const inside = at("a/sub/copy");
    int const result = runBounded(120, [&] { return fs::copyDirectory(Path(a), Path(inside), true) ? 1 : 0; });
    EXPECT_EQ(result, 0) << "the copy must end, and say false";
    EXPECT_EQ(readWholeFile(at("a/sub/copy/file")), "x");
    EXPECT_TRUE(isDirectoryOnDisk(at("a/sub/copy/sub")));
    EXPECT_FALSE(isPresentOnDisk(at("a/sub/copy/sub/copy")));
}

TEST_F(TreeCopyCompare, LoopsCompareEqualOnlyToLoopsToTheSameLevel)
{
    for (char const* side : {"a", "b", "c", "d"}) {
        makeDirectory(side);
        makeDirectory(std::string(side) + "/sub");
        writeFile(std::string(side) + "/sub/file", "same");
    }
    makeLink("..", "a/sub/loop");
    makeLink("..", "b/sub/loop");
    makeLink(".", "c/sub/loop");   // to another level
    makeDirectory("d/sub/loop");   // no loop at all
    std::string const a = at("a");
    std::string const b = at("b");
    std::string const c = at("c");
    std::string const d = at("d");
    int const result = runBounded(120, [&] {
        return firstFailure({fs::compareDirectories(Path(a), Path(b)), fs::compareDirectories(Path(b), Path(a)),
                             !fs::compareDirectories(Path(a), Path(c)), !fs::compareDirectories(Path(a), Path(d)),
                             !fs::compareDirectories(Path(d), Path(a)), fs::compareDirectories(Path(a), Path(a))});
    });
    EXPECT_EQ(result, 0);
}

// ---- Directories that cannot be listed -----------------------------------------------

TEST_F(TreeCopyCompare, UnreadableSubdirectoryIsCopiedEmptyAndNamed)
{
    openScratch();
    makeDirectory("a");
    makeDirectory("a/open");
    writeFile("a/open/file", "copied");
    makeDirectory("a/locked");
    writeFile("a/locked/hidden", "never read");
    ASSERT_EQ(::chmod(at("a/locked").c_str(), 0), 0);
    makeDirectory("out", 0777);
    std::string const a = at("a");
    std::string const plain = at("out/plain");
    std::string const named = at("out/named");
    std::string const locked = at("a/locked");
    int const result = runUnprivileged([&] {
        std::vector<Path> unreadable{Path("left over")};
        return firstFailure({fs::copyDirectory(Path(a), Path(plain), true),
                             fs::copyDirectory(Path(a), Path(named), true, unreadable),
                             namesExactly(unreadable, {locked})});
    });
    if (unprivilegedSkipReason(result) != nullptr)
        GTEST_SKIP() << unprivilegedSkipReason(result);
    EXPECT_EQ(result, 0);
    for (std::string const& copy : {plain, named}) {
        EXPECT_EQ(readWholeFile(copy + "/open/file"), "copied");
        EXPECT_TRUE(isDirectoryOnDisk(copy + "/locked"));
        EXPECT_TRUE(namesIn(copy + "/locked").empty());
    }
}

TEST_F(TreeCopyCompare, UnreadableTopIsCopiedEmptyAndNamed)
{
    openScratch();
    makeDirectory("a");
    writeFile("a/file", "x");
    ASSERT_EQ(::chmod(at("a").c_str(), 0311), 0);
    makeDirectory("out", 0777);
    std::string const a = at("a");
    std::string const copy = at("out/copy");
    int const result = runUnprivileged([&] {
        std::vector<Path> unreadable;
        return firstFailure({fs::copyDirectory(Path(a), Path(copy), true, unreadable), namesExactly(unreadable, {a})});
    });
    if (unprivilegedSkipReason(result) != nullptr)
        GTEST_SKIP() << unprivilegedSkipReason(result);
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(isDirectoryOnDisk(copy));
}

TEST_F(TreeCopyCompare, UnreadableSubdirectoriesCompareAsEmptyAndAreNamed)
{
    openScratch();
    for (char const* side : {"a", "b"}) {
        makeDirectory(side);
        makeDirectory(std::string(side) + "/locked");
        writeFile(std::string(side) + "/file", "same");
    }
    writeFile("a/locked/one", "1");
    writeFile("b/locked/two", "2");
    ASSERT_EQ(::chmod(at("a/locked").c_str(), 0), 0);
    ASSERT_EQ(::chmod(at("b/locked").c_str(), 0), 0);
    std::string const a = at("a");
    std::string const b = at("b");
    int const result = runUnprivileged([&] {
        std::vector<Path> unreadable;
        bool const plain = fs::compareDirectories(Path(a), Path(b));
        bool const reported = fs::compareDirectories(Path(a), Path(b), unreadable);
        return firstFailure({plain, reported, namesExactly(unreadable, {a + "/locked", b + "/locked"})});
    });
    if (unprivilegedSkipReason(result) != nullptr)
        GTEST_SKIP() << unprivilegedSkipReason(result);
    EXPECT_EQ(result, 0);
}

TEST_F(TreeCopyCompare, NothingIsNamedWhenEverythingWasListed)
{
    makeDirectory("a");
    makeDirectory("a/sub");
    writeFile("a/sub/file", "x");
    std::vector<Path> unreadable{Path("stale")};
    EXPECT_TRUE(fs::copyDirectory(path("a"), path("copy"), true, unreadable));
    EXPECT_TRUE(unreadable.empty());
    unreadable.push_back(Path("stale"));
    EXPECT_TRUE(fs::compareDirectories(path("a"), path("copy"), unreadable));
    EXPECT_TRUE(unreadable.empty());
    // Non-directories list nothing and are not called unreadable.
    EXPECT_TRUE(fs::compareDirectories(path("a/sub/file"), path("copy/sub/file"), unreadable));
    EXPECT_TRUE(unreadable.empty());
    // The results of the plain forms stand for a missing path and an existing destination.
    EXPECT_FALSE(fs::copyDirectory(path("missing"), path("copy2"), true, unreadable));
    EXPECT_FALSE(fs::copyDirectory(path("a"), path("copy"), true, unreadable));
    EXPECT_FALSE(fs::compareDirectories(path("a"), path("missing"), unreadable));
}

// ---- FIFOs, sockets and devices ------------------------------------------------------

/// What the library answers for one kind of object, in a tree and by name.
struct SpecialCase {
    char const* kind;
    bool copied;        // copyFile and copyDirectory (with nothing else failing)
    bool compared;      // compareFiles and compareDirectories of two of them
    char const* copy;   // what the copy is: "empty", "limit" (the bound's worth), "directory", "" (none)
    bool copiedByCopy;  // what `copy` answers (by name only)
};

class SpecialFiles : public TreeCopyCompare {
protected:
    /// Puts an object of `kind` at `name`: "fifo", "socket", or a link to a device.
    void makeSpecial(std::string const& kind, std::string const& name)
    {
        if (kind == "fifo")
            makeFifo(name);
        else if (kind == "socket")
            makeSocket(name);
        else
            makeLink(kind, name);
    }
};

TEST_F(SpecialFiles, EachKindInATreeIsCopiedAndComparedWithoutHanging)
{
    SpecialCase const cases[] = {
        {"fifo", true, true, "empty", true},
        {"socket", true, true, "directory", true},
        {"/dev/null", true, true, "empty", true},
        {"/dev/zero", false, false, "limit", false},
        {"/dev/urandom", false, false, "limit", false},
    };
    for (SpecialCase const& special : cases) {
        SCOPED_TRACE(special.kind);
        std::string const tag = std::to_string(&special - cases);
        std::string const a = "a" + tag;
        std::string const b = "b" + tag;
        makeDirectory(a);
        makeDirectory(b);
        writeFile(a + "/plain", "plain");
        writeFile(b + "/plain", "plain");
        makeSpecial(special.kind, a + "/special");
        makeSpecial(special.kind, b + "/special");
        std::string const from = at(a);
        std::string const other = at(b);
        std::string const copy = at("copy" + tag);
        std::string const named = at("named" + tag);
        bool const socket = std::string(special.kind) == "socket";
        int const result = runBounded(120, [&] {
            std::vector<Path> copyUnreadable;
            std::vector<Path> compareUnreadable;
            return firstFailure({fs::copyDirectory(Path(from), Path(copy), true) == special.copied,
                                 fs::copyDirectory(Path(from), Path(named), true, copyUnreadable) == special.copied,
                                 fs::compareDirectories(Path(from), Path(other)) == special.compared,
                                 fs::compareDirectories(Path(from), Path(other), compareUnreadable) == special.compared,
                                 namesExactly(copyUnreadable, socket ? std::vector<std::string>{from + "/special"}
                                                                     : std::vector<std::string>{}),
                                 namesExactly(compareUnreadable,
                                              socket ? std::vector<std::string>{from + "/special", other + "/special"}
                                                     : std::vector<std::string>{})});
        });
        EXPECT_EQ(result, 0);
        EXPECT_EQ(readWholeFile(copy + "/plain"), "plain");
        std::string const made = "copy" + tag + "/special";
        if (std::string(special.copy) == "directory") {
            EXPECT_TRUE(isDirectoryOnDisk(at(made)));
        } else {
            EXPECT_TRUE(isRegularOnDisk(at(made)));
            EXPECT_EQ(sizeOf(made), std::string(special.copy) == "limit" ? kSpecialFileLimit : 0);
        }
    }
}

TEST_F(SpecialFiles, EachKindByNameIsCopiedAndComparedWithoutHanging)
{
    SpecialCase const cases[] = {
        {"fifo", true, true, "empty", true},
        // A socket cannot be opened, and `copy` takes it for a directory,
        // as the status does: it makes an empty one.
        {"socket", false, true, "", true},
        {"/dev/null", true, true, "empty", true},
        {"/dev/zero", false, false, "limit", false},
        {"/dev/urandom", false, false, "limit", false},
    };
    for (SpecialCase const& special : cases) {
        SCOPED_TRACE(special.kind);
        std::string const tag = std::to_string(&special - cases);
        makeSpecial(special.kind, "one" + tag);
        makeSpecial(special.kind, "two" + tag);
        std::string const one = at("one" + tag);
        std::string const two = at("two" + tag);
        std::string const copy = at("copy" + tag);
        std::string const viaCopy = at("via-copy" + tag);
        int const result = runBounded(120, [&] {
            return firstFailure({fs::copyFile(Path(one), Path(copy), true) == special.copied,
                                 fs::copy(Path(one), Path(viaCopy)) == special.copiedByCopy,
                                 fs::compareFiles(Path(one), Path(two)) == special.compared,
                                 fs::compareFiles(Path(one), Path(one)) == special.compared});
        });
        EXPECT_EQ(result, 0);
        std::string const made = "copy" + tag;
        if (std::string(special.copy) == "empty" || std::string(special.copy) == "limit") {
            EXPECT_TRUE(isRegularOnDisk(at(made)));
            EXPECT_EQ(sizeOf(made), std::string(special.copy) == "limit" ? kSpecialFileLimit : 0);
        } else {
            EXPECT_FALSE(isPresentOnDisk(at(made)));
            EXPECT_TRUE(isDirectoryOnDisk(at("via-copy" + tag)));
        }
    }
}

TEST_F(SpecialFiles, EachKindByNameIsMovedAcrossFileSystemsWithoutHanging)
{
    // Across file systems a move copies, then deletes the source: it answers
    // as the copy it makes, and the source goes only when the copy was made.
    char shared[] = "/dev/shm/kelvo-move-XXXXXX";
    if (::mkdtemp(shared) == nullptr)
        GTEST_SKIP() << "needs /dev/shm";
    std::string const destinationArea = shared;
    struct Cleanup {
        std::string where;
        ~Cleanup() { removeTree(where); }
    } const cleanup{destinationArea};
    struct stat source;
    struct stat destination;
    ASSERT_EQ(::stat(scratch.c_str(), &source), 0);
    ASSERT_EQ(::stat(destinationArea.c_str(), &destination), 0);
    if (source.st_dev == destination.st_dev)
        GTEST_SKIP() << "needs /dev/shm on another file system than the scratch directory";
    struct MoveCase {
        char const* kind;
        bool moved;       // what `move` answers
        char const* made; // what the destination is: "empty", "limit", "directory"
    };
    MoveCase const cases[] = {
        {"fifo", true, "empty"},
        {"/dev/null", true, "empty"},
        {"/dev/zero", false, "limit"},
        {"/dev/urandom", false, "limit"},
    };
    for (MoveCase const& special : cases) {
        SCOPED_TRACE(special.kind);
        std::string const tag = std::to_string(&special - cases);
        makeSpecial(special.kind, "from" + tag);
        std::string const from = at("from" + tag);
        std::string const to = destinationArea + "/to" + tag;
        int const result = runBounded(120, [&] { return fs::move(Path(from), Path(to)) ? 1 : 0; });
        ASSERT_NE(result, kChildDidNotExit) << "the move hung or died";
        EXPECT_EQ(result == 1, special.moved);
        // A source that was copied whole is gone; one cut short at the bound stays.
        EXPECT_EQ(isPresentOnDisk(from), !special.moved);
        struct stat made;
        ASSERT_EQ(::stat(to.c_str(), &made), 0);
        EXPECT_TRUE(S_ISREG(made.st_mode));
        EXPECT_EQ(made.st_size, std::string(special.made) == "limit" ? kSpecialFileLimit : 0);
    }
    // A socket is copied as the empty directory its status says it is, but
    // cannot be deleted as one: the move answers false and leaves both.
    makeSocket("socket");
    std::string const socketTo = destinationArea + "/socket";
    int const result = runBounded(120, [&] { return fs::move(path("socket"), Path(socketTo)) ? 1 : 0; });
    EXPECT_EQ(result, 0);
    struct stat left;
    ASSERT_EQ(::lstat(at("socket").c_str(), &left), 0);
    EXPECT_TRUE(S_ISSOCK(left.st_mode));
    EXPECT_TRUE(isDirectoryOnDisk(socketTo));
    EXPECT_TRUE(namesIn(socketTo).empty());
}

TEST_F(SpecialFiles, StatusClassifiesSocketsAsDirectoriesAndDevicesByTheirBits)
{
    makeSocket("socket");
    makeFifo("fifo");
    EXPECT_EQ(fs::status(path("socket")).getType(), FileType::directory);
    EXPECT_EQ(fs::status(path("fifo")).getType(), FileType::fifo);
    EXPECT_EQ(fs::status(Path("/dev/zero")).getType(), FileType::characterDevice);
    EXPECT_EQ(fs::status(Path("/dev/null")).getType(), FileType::characterDevice);
}

TEST_F(SpecialFiles, EmptyDeviceComparesEqualToAnEmptyFileAndAnEndlessOneDoesNot)
{
    writeFile("empty");
    int const result = runBounded(120, [&] {
        return firstFailure({fs::compareFiles(Path("/dev/null"), path("empty")),
                             !fs::compareFiles(Path("/dev/zero"), path("empty")),
                             !fs::compareFiles(Path("/dev/zero"), Path("/dev/urandom"))});
    });
    EXPECT_EQ(result, 0);
}

// A writer that has written and holds the FIFO open: the reader takes what
// was sent and, once the writer falls silent, ends there.
TEST_F(SpecialFiles, FifoWithAWriterGivesWhatWasSentInATreeAndByName)
{
    makeDirectory("a");
    makeDirectory("b");
    makeFifo("a/pipe");
    makeFifo("b/pipe");
    int const writer = ::open(at("a/pipe").c_str(), O_RDWR | O_NONBLOCK);
    ASSERT_GE(writer, 0);
    std::string const sent = "sent through the pipe";
    ASSERT_EQ(::write(writer, sent.data(), sent.size()), static_cast<ssize_t>(sent.size()));
    std::string const a = at("a");
    std::string const b = at("b");
    std::string const copy = at("copy");
    int const result = runBounded(120, [&] {
        // The tree's FIFO has a writer and bytes; the other one has neither.
        return firstFailure({fs::copyDirectory(Path(a), Path(copy), true)});
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(readWholeFile(at("copy/pipe")), sent);

    ASSERT_EQ(::write(writer, sent.data(), sent.size()), static_cast<ssize_t>(sent.size()));
    std::string const byName = at("by-name");
    int const second = runBounded(120, [&] {
        return firstFailure({fs::copyFile(Path(a + "/pipe"), Path(byName), true)});
    });
    EXPECT_EQ(second, 0);
    EXPECT_EQ(readWholeFile(byName), sent);

    ASSERT_EQ(::write(writer, sent.data(), sent.size()), static_cast<ssize_t>(sent.size()));
    int const third = runBounded(120, [&] {
        return firstFailure({!fs::compareDirectories(Path(a), Path(b))});
    });
    EXPECT_EQ(third, 0);
    ::close(writer);
}

TEST_F(SpecialFiles, BlockDeviceInATreeIsCopiedAsAnEmptyDirectoryAndNamed)
{
    std::string device;
    if (DIR* dev = ::opendir("/dev")) {
        while (dirent* entry = ::readdir(dev)) {
            std::string const candidate = std::string("/dev/") + entry->d_name;
            struct stat st;
            if (::lstat(candidate.c_str(), &st) == 0 && S_ISBLK(st.st_mode)) {
                device = candidate;
                break;
            }
        }
        ::closedir(dev);
    }
    if (device.empty())
        GTEST_SKIP() << "no block device here";
    makeDirectory("a");
    makeLink(device, "a/disk");
    std::string const a = at("a");
    std::string const copy = at("copy");
    int const result = runBounded(120, [&] {
        std::vector<Path> unreadable;
        return firstFailure({fs::status(Path(a + "/disk")).getType() == FileType::directory,
                             !fs::copyFile(Path(a + "/disk"), Path(copy + "-file"), true),
                             fs::copyDirectory(Path(a), Path(copy), true, unreadable),
                             namesExactly(unreadable, {a + "/disk"})});
    });
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(isDirectoryOnDisk(at("copy/disk")));
}

} // namespace
