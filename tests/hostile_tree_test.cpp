// Every tree walk on the worst tree at once: 30,000 levels, FIFOs, sockets and links to endless devices at the bottom, 64 descriptors allowed, a 256 KiB stack, as root and as an unprivileged user; and a removal of such a tree while another process swaps a directory of it for a link.
#include <kelvo/filesystem.h>

#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ResourceProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::Path;
using kelvo::unicode::String;
using namespace kelvo::testing;
namespace fs = kelvo::filesystem;

constexpr int kDepth = 30000;
constexpr unsigned kSecondsAllowed = 900;

/// Makes a chain of `depth` directories named "d" below `top` through
/// descriptors and puts a file, a FIFO, links to /dev/zero and /dev/urandom
/// and, when `withSocket`, a socket at its bottom.
/// @returns true when all of it is there.
bool makeHostileChain(std::string const& top, int depth, bool withSocket = true)
{
    int descriptor = ::open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    for (int level = 0; level < depth; ++level) {
        int const next = ::mkdirat(descriptor, "d", 0755) == 0
                             ? ::openat(descriptor, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC)
                             : -1;
        ::close(descriptor);
        if (next < 0)
            return false;
        descriptor = next;
    }
    int const file = ::openat(descriptor, "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    bool made = file >= 0 && ::write(file, "bottom", 6) == 6;
    if (file >= 0)
        ::close(file);
    made = made && ::mkfifoat(descriptor, "fifo", 0644) == 0 && ::symlinkat("/dev/zero", descriptor, "zero") == 0
        && ::symlinkat("/dev/urandom", descriptor, "random") == 0;
    // A socket's name must fit its address: it is made through the
    // descriptor's own path.
    std::string const socketPath = "/proc/self/fd/" + std::to_string(descriptor) + "/socket";
    made = made && (!withSocket || makeSocketFile(socketPath));
    ::close(descriptor);
    return made;
}

/// @returns the contents of `name` at the bottom of a chain of `depth`
/// directories "d" below `top`, reached through descriptors (its path is far
/// longer than the system takes); empty when it cannot be read.
std::string readAtBottom(std::string const& top, int depth, char const* name)
{
    int descriptor = ::open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int level = 0; level < depth && descriptor >= 0; ++level) {
        int const next = ::openat(descriptor, "d", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        ::close(descriptor);
        descriptor = next;
    }
    if (descriptor < 0)
        return "";
    std::string const path = "/proc/self/fd/" + std::to_string(descriptor) + "/" + name;
    std::string const content = readWholeFile(path);
    ::close(descriptor);
    return content;
}

/// Scratch space in /dev/shm where there is one: metadata in memory, so that
/// trees of 30,000 levels are made and removed in seconds.
class HostileTree : public MemoryScratchDirectory {
protected:
    HostileTree() : MemoryScratchDirectory("kelvo-hostile") {}

    void SetUp() override
    {
        MemoryScratchDirectory::SetUp();
        ASSERT_EQ(::chmod(area.c_str(), 0777), 0);
    }
};

// Runs every walk on the hostile chain under 64 descriptors and on a small
// stack. @returns 0, or the number of the first answer that was not the one
// expected.
int walkHostileTree(std::string const& area)
{
    std::string const a = area + "/a";
    std::string const b = area + "/b";
    std::string const c = area + "/c";
    std::string const copy = area + "/copy";
    std::string const temporary = area + "/temporary";
    if (::mkdir(a.c_str(), 0755) != 0 || ::mkdir(b.c_str(), 0755) != 0 || ::mkdir(c.c_str(), 0755) != 0
        || ::mkdir(temporary.c_str(), 0755) != 0)
        return 100;
    if (!makeHostileChain(a, kDepth) || !makeHostileChain(b, kDepth) || !makeHostileChain(c, kDepth, false))
        return 101;
    std::string const leftover = temporary + "/hostile-1";
    if (::mkdir(leftover.c_str(), 0755) != 0 || !makeHostileChain(leftover, kDepth, false)
        || !setAge(leftover, 3600LL * 1000000))
        return 102;
    if (!limitDescriptors(64))
        return 103;
    return runOnSmallStack([&] {
        std::vector<Path> copyUnreadable;
        std::vector<Path> compareUnreadable;
        // The endless devices make the copy false (their copies stop at the
        // bound) and the trees unequal; a socket counts as a directory that
        // cannot be listed, and is copied as an empty one. The comparison
        // stops at the first difference, "random", sorted before "socket",
        // so it lists nothing unreadable.
        bool const copied = fs::copyDirectory(Path(a), Path(copy), true, copyUnreadable);
        bool const compared = fs::compareDirectories(Path(a), Path(b), compareUnreadable);
        bool const copyHasTheFile = readAtBottom(copy, kDepth, "file") == "bottom";
        // The sweep of a TemporaryDirectory removes the old leftover, FIFO and
        // device links included.
        bool swept = false;
        {
            fs::TemporaryDirectory const outer{Path(temporary)};
            fs::TemporaryDirectory const inner(String("hostile-"), std::chrono::microseconds(1000000));
            swept = !isPresentOnDisk(leftover);
            // The outer one deletes `temporary` itself when it goes.
        }
        // The recursive walk, with and without following links, yields every
        // level and the five entries at the bottom; links to devices are not
        // directories, so following them enters nothing more.
        std::size_t walked = 0;
        std::size_t walkedFollowing = 0;
        fs::WalkOptions following;
        following.followSymbolicLinks = true;
        bool const walkedAll = fs::walkTree(Path(a), fs::WalkOptions(), [&](fs::DirectoryEntry const&, std::size_t) {
            ++walked;
            return fs::WalkAction::proceed;
        });
        bool const walkedAllFollowing = fs::walkTree(Path(a), following, [&](fs::DirectoryEntry const&, std::size_t) {
            ++walkedFollowing;
            return fs::WalkAction::proceed;
        });
        // Finding by name goes down the same walk.
        std::vector<fs::Failure> findFailures;
        std::size_t const fifos = fs::findMatching(Path(a), fs::ShellPattern(String(U"fifo")), fs::FindOptions(),
                                                   &findFailures)
                                      .size();
        // Two equal trees of special files differ in nothing; special files
        // are compared by kind and never opened.
        std::vector<fs::Failure> differenceFailures;
        bool const noDifferences = fs::differencesBetween(Path(a), Path(b), fs::DifferenceOptions(),
                                                          &differenceFailures)
                                       .empty();
        // The keeping copy recreates the FIFO, keeps the links as links and
        // skips the socket.
        std::string const kept = area + "/kept";
        fs::CopyResult const keeping = fs::copyTreeWith(Path(a), Path(kept));
        bool const keptAll = keeping.failures.empty() && keeping.skipped.size() == 1 && keeping.filesCopied == 1
            && keeping.linksCopied == 2 && keeping.specialFilesCopied == 1
            && readAtBottom(kept, kDepth, "file") == "bottom";
        std::size_t const entries = static_cast<std::size_t>(kDepth) + 5;
        // Removal classifies a socket by its followed status, which carries
        // the directory bit, so a socket stops the removal of its tree, and
        // every level above it stays.
        bool const removedA = fs::removeAll(Path(a));
        return firstFailure({!copied, copyUnreadable.size() == 1, !compared, compareUnreadable.empty(),
                             copyHasTheFile, swept, !isPresentOnDisk(temporary),
                             fs::removeAll(Path(copy)), fs::removeAllInDir(Path(c)), !removedA,
                             isPresentOnDisk(a),
                             !isPresentOnDisk(c), !isPresentOnDisk(copy), walkedAll, walked == entries,
                             walkedAllFollowing, walkedFollowing == entries, fifos == 1, findFailures.empty(),
                             noDifferences, differenceFailures.empty(), keptAll, fs::removeAll(Path(kept)),
                             !isPresentOnDisk(kept)});
    });
}

TEST_F(HostileTree, EveryWalkEndsRightOnADeepTreeOfSpecialFilesWithFewDescriptors)
{
    int const result = runBounded(kSecondsAllowed, [&] { return walkHostileTree(area); });
    EXPECT_EQ(result, 0) << kChildDidNotExit << ": killed or crashed; 100-103: set-up; else the check that failed";
}

TEST_F(HostileTree, EveryWalkEndsRightOnADeepTreeOfSpecialFilesWithFewDescriptorsForAnUnprivilegedUser)
{
    std::string const mine = area;
    int const result = runUnprivileged([&] {
        if (::access(mine.c_str(), W_OK | X_OK) != 0)
            return kScratchUnreachable;
        return runBounded(kSecondsAllowed, [&] { return walkHostileTree(mine); });
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    EXPECT_EQ(result, 0) << kChildDidNotExit << ": killed or crashed; 100-103: set-up; else the check that failed";
}

/// Starts a process that, after `delay` microseconds, swaps the first level
/// "d" of `area`/tree for a link to `canary` and back, again and again, until
/// killed. @returns its process number, or -1.
pid_t startSwapper(std::string const& area, std::string const& canary, useconds_t delay)
{
    pid_t const racer = ::fork();
    if (racer != 0)
        return racer;
    ::usleep(delay);
    std::string const first = area + "/tree/d";
    std::string const aside = area + "/aside";
    std::string const link = area + "/link";
    for (;;) {
        ::unlink(link.c_str());
        if (::symlink(canary.c_str(), link.c_str()) != 0)
            continue;
        if (::rename(first.c_str(), aside.c_str()) == 0) {
            ::rename(link.c_str(), first.c_str());
            ::usleep(200);
            ::unlink(first.c_str());
            ::rename(aside.c_str(), first.c_str());
        }
        ::usleep(100);
    }
}

/// Puts back the first level of `area`/tree that a killed swapper left aside.
void putBackFirstLevel(std::string const& area)
{
    ::unlink((area + "/link").c_str());
    if (isLinkOnDisk(area + "/tree/d"))
        ::unlink((area + "/tree/d").c_str());
    if (isDirectoryOnDisk(area + "/aside")
        && (isPresentOnDisk(area + "/tree/d") || ::rename((area + "/aside").c_str(), (area + "/tree/d").c_str()) != 0))
        removeTree(area + "/aside");
}

TEST_F(HostileTree, ADeepRemovalRacedBySwapsForALinkNeverDeletesOutsideTheTree)
{
    // The canary is what a link swapped into the tree points to.
    std::string const canary = area + "/canary";
    ASSERT_EQ(::mkdir(canary.c_str(), 0755), 0);
    ASSERT_TRUE(writeWholeFile(canary + "/precious", "keep"));
    ASSERT_EQ(::mkdir((canary + "/d").c_str(), 0755), 0);
    ASSERT_TRUE(writeWholeFile(canary + "/d/precious", "keep"));
    int const rounds = std::getenv("KELVO_STRESS") != nullptr ? 20 : 3;
    for (int round = 0; round < rounds; ++round) {
        std::string const tree = area + "/tree";
        ASSERT_EQ(::mkdir(tree.c_str(), 0755), 0);
        ASSERT_TRUE(makeHostileChain(tree, kDepth, false));
        pid_t const racer = startSwapper(area, canary, static_cast<useconds_t>(2000 + round * 40000));
        ASSERT_GE(racer, 0);
        int const result = runBounded(kSecondsAllowed, [&] {
            if (!limitDescriptors(64))
                return 103;
            return runOnSmallStack([&] {
                fs::removeAll(Path(tree));
                return 0;
            });
        });
        ::kill(racer, SIGKILL);
        ::waitpid(racer, nullptr, 0);
        EXPECT_EQ(result, 0) << "round " << round;
        EXPECT_EQ(readWholeFile(canary + "/precious"), "keep") << "round " << round;
        EXPECT_EQ(readWholeFile(canary + "/d/precious"), "keep") << "round " << round;
        // Put back whatever the racer left, and clear the rest away.
        putBackFirstLevel(area);
        removeTree(tree);
        ASSERT_FALSE(isPresentOnDisk(tree));
    }
}


TEST_F(HostileTree, DeepWalksRacedBySwapsForALinkNeverReachOutsideTheTree)
{
    // Nothing below the canary may be yielded, copied or compared: a walk
    // that does not follow links sees the swapped-in link as a link, and a
    // walk below the swap finds its way back up changed and stops.
    std::string const canary = area + "/canary";
    ASSERT_EQ(::mkdir(canary.c_str(), 0755), 0);
    ASSERT_TRUE(writeWholeFile(canary + "/precious", "keep"));
    ASSERT_EQ(::mkdir((canary + "/d").c_str(), 0755), 0);
    ASSERT_TRUE(writeWholeFile(canary + "/d/precious", "keep"));
    std::string const tree = area + "/tree";
    std::string const twin = area + "/twin";
    std::string const kept = area + "/kept";
    ASSERT_EQ(::mkdir(tree.c_str(), 0755), 0);
    ASSERT_TRUE(makeHostileChain(tree, kDepth, false));
    ASSERT_EQ(::mkdir(twin.c_str(), 0755), 0);
    ASSERT_TRUE(makeHostileChain(twin, kDepth, false));
    int const rounds = std::getenv("KELVO_STRESS") != nullptr ? 20 : 3;
    for (int round = 0; round < rounds; ++round) {
        pid_t const racer = startSwapper(area, canary, static_cast<useconds_t>(2000 + round * 40000));
        ASSERT_GE(racer, 0);
        int const result = runBounded(kSecondsAllowed, [&] {
            if (!limitDescriptors(64))
                return 103;
            return runOnSmallStack([&] {
                bool walkStayedInside = true;
                fs::walkTree(Path(tree), fs::WalkOptions(), [&](fs::DirectoryEntry const& entry, std::size_t) {
                    walkStayedInside = walkStayedInside && entry.getPath().filename() != Path("precious");
                    return fs::WalkAction::proceed;
                });
                bool differencesStayedInside = true;
                for (fs::TreeDifference const& difference : fs::differencesBetween(Path(tree), Path(twin)))
                    differencesStayedInside = differencesStayedInside
                                              && difference.first.filename() != Path("precious")
                                              && difference.second.filename() != Path("precious");
                fs::copyTreeWith(Path(tree), Path(kept));
                return firstFailure({walkStayedInside, differencesStayedInside});
            });
        });
        ::kill(racer, SIGKILL);
        ::waitpid(racer, nullptr, 0);
        putBackFirstLevel(area);
        EXPECT_EQ(result, 0) << "round " << round;
        // Whatever the copy took, it took from the tree, never through the link.
        EXPECT_TRUE(fs::findMatching(Path(kept), fs::ShellPattern(String(U"precious"))).empty()) << "round " << round;
        EXPECT_EQ(readWholeFile(canary + "/precious"), "keep") << "round " << round;
        EXPECT_EQ(readWholeFile(canary + "/d/precious"), "keep") << "round " << round;
        removeTree(kept);
        ASSERT_FALSE(isPresentOnDisk(kept));
    }
}

} // namespace
