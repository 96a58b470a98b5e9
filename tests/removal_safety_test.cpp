// Tests of tree removal under pressure: links swapped in while every kind of removal runs (move across file systems included), a low descriptor limit, a tree 30,000 levels deep on a small stack, and FIFOs, sockets and links to devices inside trees.
#include <kelvo/filesystem.h>
#include <kelvo/filesystem/private.h>

#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ResourceProbes.h"
#include "support/ScratchDirectory.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::DirectoryReaper;
using kelvo::filesystem::Path;
using kelvo::filesystem::TemporaryDirectory;
using kelvo::unicode::String;
using kelvo_private::filesystem::restoreTemporaryDirectoryInternal;
using kelvo_private::filesystem::setTemporaryDirectoryInternal;
using namespace kelvo::testing;
namespace fs = kelvo::filesystem;

// Rounds of each race: a few by default so that the suite stays quick, the
// full count when the stress runs ask for it.
constexpr int kDefaultRaceRounds = 150;
constexpr int kStressRaceRounds = 2000;

int raceRounds()
{
    char const* stress = std::getenv("KELVO_STRESS");
    return stress != nullptr && stress[0] == '1' ? kStressRaceRounds : kDefaultRaceRounds;
}

// The name every raced tree goes by, and a pattern that matches it.
constexpr char kTreeName[] = "kelvo-race-1";
constexpr char kTreePrefix[] = "kelvo-race-";

// Makes a chain of `depth` directories named "d" under `top`, through
// descriptors so that no path grows with the depth, with a file "f" holding
// the level's number in every level when `withFiles` is true.
// @returns true when the whole chain was made.
bool makeChain(std::string const& top, int depth, bool withFiles)
{
    int descriptor = ::open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    for (int level = 0; level < depth; ++level) {
        if (withFiles) {
            int const file = ::openat(descriptor, "f", O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
            if (file < 0) {
                ::close(descriptor);
                return false;
            }
            std::string const text = std::to_string(level);
            bool const written = ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
            ::close(file);
            if (!written) {
                ::close(descriptor);
                return false;
            }
        }
        if (::mkdirat(descriptor, "d", 0755) != 0) {
            ::close(descriptor);
            return false;
        }
        int const next = ::openat(descriptor, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(descriptor);
        if (next < 0)
            return false;
        descriptor = next;
    }
    ::close(descriptor);
    return true;
}

bool isCharacterDevice(char const* path)
{
    struct stat st;
    return ::stat(path, &st) == 0 && S_ISCHR(st.st_mode);
}

// ---- A second process that swaps directories for links ---------------------------------

// A forked process that, while armed, keeps exchanging each directory of
// `pairs` with the symbolic link beside it (renameat2 with RENAME_EXCHANGE,
// one pair after the other), so that whatever walks the tree meets a link
// where it saw a directory, and the directory again where it saw the link.
class LinkSwapper {
public:
    explicit LinkSwapper(std::vector<std::pair<std::string, std::string>> pairs)
    {
        shared = static_cast<Shared*>(
            ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
        if (shared == MAP_FAILED) {
            shared = nullptr;
            return;
        }
        new (shared) Shared();
        pid_t const parent = ::getpid();
        child = ::fork();
        if (child == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (::getppid() != parent)
                ::_exit(0);
            for (std::size_t next = 0;; next = (next + 1) % pairs.size()) {
                if (shared->armed.load() != 0) {
                    auto const& [directory, link] = pairs[next];
                    if (::renameat2(AT_FDCWD, directory.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE) == 0)
                        shared->swaps.fetch_add(1);
                    shared->attempts.fetch_add(1);
                    ::sched_yield();
                } else {
                    ::usleep(50);
                }
                shared->loops.fetch_add(1);
            }
        }
    }

    LinkSwapper(LinkSwapper const&) = delete;
    LinkSwapper& operator=(LinkSwapper const&) = delete;

    ~LinkSwapper()
    {
        if (child > 0) {
            ::kill(child, SIGKILL);
            ::waitpid(child, nullptr, 0);
        }
        if (shared != nullptr)
            ::munmap(shared, sizeof(Shared));
    }

    bool started() const { return child > 0; }

    /// Starts the exchanges and returns once the first has been tried, so
    /// that what runs next runs with the second process already busy.
    void arm()
    {
        long const before = shared->attempts.load();
        shared->armed.store(1);
        while (shared->attempts.load() == before)
            ::usleep(10);
    }

    /// Stops the exchanges and returns once none is under way or can start.
    void disarm()
    {
        shared->armed.store(0);
        // The loop under way when the flag fell ends, and the next one has
        // surely read it.
        long const seen = shared->loops.load();
        while (shared->loops.load() < seen + 2)
            ::usleep(20);
    }

    long swaps() const { return shared->swaps.load(); }

private:
    struct Shared {
        std::atomic<long> armed{0};
        std::atomic<long> loops{0};
        std::atomic<long> swaps{0};
        std::atomic<long> attempts{0};
    };
    Shared* shared = nullptr;
    pid_t child = -1;
};

// The rounds of one race, in `area`: a canary directory outside the tree,
// and in each round a fresh `world` holding the tree `kTreeName` and three
// links to the canary, each exchanged by the swapper with a directory of the
// tree at another depth (the top, a subdirectory, one below that).
class SwapRace {
public:
    /// With `topOnly`, only the top of the tree is exchanged; each level of
    /// the tree holds `filesPerLevel` files.
    /// With `belowTopOnly`, every level but the top is exchanged.
    explicit SwapRace(std::string area, bool topOnly = false, int filesPerLevel = 40, bool belowTopOnly = false)
        : area(std::move(area)), canary(this->area + "/canary"), world(this->area + "/world"),
          tree(world + "/" + kTreeName), topOnly(topOnly), belowTopOnly(belowTopOnly), filesPerLevel(filesPerLevel)
    {
    }

    std::string const& treePath() const { return tree; }
    std::string const& worldPath() const { return world; }

    /// Runs `rounds` rounds of `operation` on a fresh tree with the swapper
    /// busy. @returns the number of rounds after which the canary was not
    /// whole (it is made anew for the next one); -1 when the race could not
    /// be set up.
    int run(int rounds, std::function<void()> const& operation)
    {
        if (!makeCanary())
            return -1;
        expected = describeTree(canary);
        std::vector<std::pair<std::string, std::string>> pairs;
        if (!belowTopOnly)
            pairs.emplace_back(tree, world + "/swap0");
        if (!topOnly) {
            pairs.emplace_back(tree + "/sub", world + "/swap1");
            pairs.emplace_back(tree + "/sub/deeper", world + "/swap2");
        }
        LinkSwapper swapper(std::move(pairs));
        if (!swapper.started())
            return -1;
        int damaged = 0;
        for (int round = 0; round < rounds; ++round) {
            if (!buildWorld())
                return -1;
            swapper.arm();
            operation();
            swapper.disarm();
            // What is left moves out of the swapper's reach.
            if (::rename(world.c_str(), (area + "/left" + std::to_string(round)).c_str()) != 0)
                return -1;
            if (describeTree(canary) != expected) {
                ++damaged;
                removeTree(canary);
                if (!makeCanary())
                    return -1;
            }
        }
        swaps = swapper.swaps();
        return damaged;
    }

    long swapCount() const { return swaps; }

private:
    bool makeCanary() const
    {
        return ::mkdir(canary.c_str(), 0777) == 0 && ::mkdir((canary + "/inner").c_str(), 0777) == 0
               && writeWholeFile(canary + "/keep", "keep") && writeWholeFile(canary + "/inner/deep", "deep");
    }

    // The tree: three levels, each with files that keep the walk busy
    // between reading the kinds and opening a subdirectory.
    bool buildWorld() const
    {
        if (::mkdir(world.c_str(), 0777) != 0 || ::mkdir(tree.c_str(), 0777) != 0)
            return false;
        for (int i = 0; i < 3; ++i) {
            if (::symlink(canary.c_str(), (world + "/swap" + std::to_string(i)).c_str()) != 0)
                return false;
        }
        if (::mkdir((tree + "/sub").c_str(), 0777) != 0 || ::mkdir((tree + "/sub/deeper").c_str(), 0777) != 0)
            return false;
        for (std::string const& directory : {tree, tree + "/sub", tree + "/sub/deeper"}) {
            for (int i = 0; i < filesPerLevel; ++i) {
                if (!writeWholeFile(directory + "/h" + std::to_string(i), "h"))
                    return false;
            }
        }
        return true;
    }


    std::string area;
    std::string canary;
    std::string world;
    std::string tree;
    bool topOnly;
    bool belowTopOnly;
    int filesPerLevel;
    std::map<std::string, std::string> expected;
    long swaps = 0;
};

// Trees made and removed by the thousand: in a directory of /dev/shm where
// there is one (metadata changes cost least in memory), else in the scratch
// directory. `area` is that directory, removed at the end.
class MemoryScratch : public ScratchDirectory {
protected:
    void SetUp() override
    {
        ScratchDirectory::SetUp();
        area = scratch + "/area";
        char shared[] = "/dev/shm/kelvo-removal-XXXXXX";
        if (::mkdtemp(shared) != nullptr) {
            area = shared;
            ownArea = true;
        } else {
            ASSERT_EQ(::mkdir(area.c_str(), 0700), 0);
        }
    }

    void TearDown() override
    {
        if (ownArea)
            removeTree(area);
        ScratchDirectory::TearDown();
    }

    /// @returns the native path of `name` inside the area.
    std::string inArea(std::string const& name) const { return area + "/" + name; }

    std::string area;
    bool ownArea = false;
};

class RemovalSafety : public MemoryScratch {
protected:
    // Runs a race of `operation` and expects the canary whole after every round.
    void expectCanaryAlwaysWhole(std::function<void(SwapRace const&)> const& operation)
    {
        SwapRace race(area);
        int const rounds = raceRounds();
        int const damaged = race.run(rounds, [&] { operation(race); });
        ASSERT_GE(damaged, 0) << "the race could not be set up";
        EXPECT_EQ(damaged, 0) << damaged << " of " << rounds << " rounds deleted files of the canary";
        EXPECT_GT(race.swapCount(), 0) << "the second process never exchanged a directory for a link";
    }
};

// ---- Links swapped in while trees are removed -------------------------------------------

TEST_F(RemovalSafety, RemoveAllNeverDeletesThroughALinkSwappedInAtAnyDepth)
{
    expectCanaryAlwaysWhole([](SwapRace const& race) { (void)fs::removeAll(Path(race.treePath())); });
}

TEST_F(RemovalSafety, RemoveAllInDirNeverDeletesThroughALinkSwappedInBelowTheTop)
{
    // Called directly, removeAllInDir follows a link at the top by design, so
    // only the levels below it are exchanged: none may lead the walk out.
    SwapRace race(area, false, 40, true);
    int const rounds = raceRounds();
    int const damaged = race.run(rounds, [&] { (void)fs::removeAllInDir(Path(race.treePath())); });
    ASSERT_GE(damaged, 0) << "the race could not be set up";
    EXPECT_EQ(damaged, 0) << damaged << " of " << rounds << " rounds deleted files of the canary";
    EXPECT_GT(race.swapCount(), 0) << "the second process never exchanged a directory for a link";
}

TEST_F(RemovalSafety, RemoveAllMatchingNeverDeletesThroughALinkSwappedInAtAnyDepth)
{
    expectCanaryAlwaysWhole([](SwapRace const& race) {
        (void)fs::removeAllMatching(Path(race.worldPath()), String(std::string(kTreePrefix) + "*"));
    });
}

TEST_F(RemovalSafety, DirectoryReaperNeverDeletesThroughALinkSwappedInAtAnyDepth)
{
    expectCanaryAlwaysWhole([](SwapRace const& race) { DirectoryReaper const reaper{Path(race.treePath())}; });
}

TEST_F(RemovalSafety, TemporaryDirectoryDestructorNeverDeletesThroughALinkSwappedIn)
{
    expectCanaryAlwaysWhole([](SwapRace const& race) { TemporaryDirectory const directory{Path(race.treePath())}; });
}

TEST_F(RemovalSafety, TemporaryDirectorySweepNeverDeletesThroughALinkSwappedIn)
{
    expectCanaryAlwaysWhole([](SwapRace const& race) {
        // The tree is an old leftover of the prefix: every entry is older
        // than a negative limit. The new directory goes with the object.
        setTemporaryDirectoryInternal(Path(race.worldPath()));
        {
            TemporaryDirectory const directory{String(kTreePrefix), std::chrono::hours(-1)};
        }
        restoreTemporaryDirectoryInternal();
    });
}

// A move across file systems copies the source, then deletes it. A source
// swapped for a link to another directory between the copy and the deletion
// must not make the deletion empty that directory.
TEST_F(RemovalSafety, MoveAcrossFileSystemsNeverDeletesThroughALinkSwappedIn)
{
    // The source in memory, the destination on disk beside the scratch
    // directory; or, for root, a tmpfs of the test's own when /dev/shm is
    // missing or on the same file system.
    std::string const destinationArea = scratch + "/destination";
    ASSERT_EQ(::mkdir(destinationArea.c_str(), 0700), 0);
    struct stat source;
    struct stat destination;
    ASSERT_EQ(::stat(area.c_str(), &source), 0);
    ASSERT_EQ(::stat(destinationArea.c_str(), &destination), 0);
    std::string sourceArea = area;
    struct Unmount {
        std::string where;
        ~Unmount()
        {
            if (!where.empty())
                ::umount2(where.c_str(), MNT_DETACH);
        }
    } unmount;
    if (source.st_dev == destination.st_dev) {
        std::string const mounted = area + "/memory";
        ASSERT_EQ(::mkdir(mounted.c_str(), 0700), 0);
        if (::geteuid() != 0 || ::mount("tmpfs", mounted.c_str(), "tmpfs", 0, "size=64m") != 0)
            GTEST_SKIP() << "needs two file systems: /dev/shm is missing or beside the scratch directory, "
                            "and a tmpfs cannot be mounted here (needs root)";
        unmount.where = mounted;
        sourceArea = mounted;
    }

    // The top alone is exchanged, as often as the second process can, and
    // the tree is small, so that most of a round is spent between the copy
    // and the deletion.
    SwapRace race(sourceArea, true, 2);
    int round = 0;
    int const rounds = raceRounds();
    int const damaged = race.run(rounds, [&] {
        std::string const to = destinationArea + "/moved" + std::to_string(round++);
        (void)fs::move(Path(race.treePath()), Path(to));
        removeTree(to);
    });
    ASSERT_GE(damaged, 0) << "the race could not be set up";
    EXPECT_EQ(damaged, 0) << damaged << " of " << rounds << " moves deleted files of the canary";
    EXPECT_GT(race.swapCount(), 0) << "the second process never exchanged a directory for a link";
}

TEST_F(RemovalSafety, MoveAcrossFileSystemsStillDeletesTheSourceItCopied)
{
    std::string const destinationArea = scratch + "/destination";
    ASSERT_EQ(::mkdir(destinationArea.c_str(), 0700), 0);
    struct stat source;
    struct stat destination;
    ASSERT_EQ(::stat(area.c_str(), &source), 0);
    ASSERT_EQ(::stat(destinationArea.c_str(), &destination), 0);
    if (source.st_dev == destination.st_dev)
        GTEST_SKIP() << "needs /dev/shm on another file system than the scratch directory";
    std::string const from = area + "/tree";
    ASSERT_EQ(::mkdir(from.c_str(), 0777), 0);
    ASSERT_TRUE(makeChain(from, 40, true));
    auto const expected = describeTree(from);
    EXPECT_TRUE(fs::move(Path(from), Path(destinationArea + "/tree")));
    EXPECT_FALSE(isPresentOnDisk(from));
    EXPECT_EQ(describeTree(destinationArea + "/tree"), expected);

    // A link to a directory is copied as the directory; the link itself
    // cannot go through rmdir, so the move answers false and leaves both.
    ASSERT_EQ(::mkdir((area + "/target").c_str(), 0777), 0);
    ASSERT_TRUE(writeWholeFile(area + "/target/keep", "keep"));
    ASSERT_EQ(::symlink((area + "/target").c_str(), (area + "/link").c_str()), 0);
    EXPECT_FALSE(fs::move(Path(area + "/link"), Path(destinationArea + "/fromLink")));
    EXPECT_TRUE(isLinkOnDisk(area + "/link"));
    EXPECT_EQ(readWholeFile(area + "/target/keep"), "keep");
    EXPECT_EQ(readWholeFile(destinationArea + "/fromLink/keep"), "keep");
}

// ---- A low descriptor limit ---------------------------------------------------------------

// Each removal runs on a tree deeper than the process may hold descriptors,
// in a child limited to 64, and on a twin tree with no limit: the answers
// and what is left must be the same, and a tree that can go must be gone.
class RemovalUnderADescriptorLimit : public MemoryScratch {
protected:
    static constexpr int kDepth = 200;
    static constexpr rlim_t kLimit = 64;

    // Makes `world`/top, a chain of kDepth levels with a file in every level,
    // ending in a dangling link when `dangling` is true.
    bool makeWorld(std::string const& world, bool dangling) const
    {
        if (::mkdir(world.c_str(), 0777) != 0 || ::mkdir((world + "/top").c_str(), 0777) != 0)
            return false;
        if (!makeChain(world + "/top", kDepth, true))
            return false;
        if (!dangling)
            return true;
        int descriptor = ::open((world + "/top").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        for (int level = 0; level < kDepth && descriptor >= 0; ++level) {
            int const next = ::openat(descriptor, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            ::close(descriptor);
            descriptor = next;
        }
        bool const made = descriptor >= 0 && ::symlinkat("nowhere", descriptor, "dangling") == 0;
        if (descriptor >= 0)
            ::close(descriptor);
        return made;
    }

    // Runs `operation` on a world with no limit and on its twin in a child
    // limited to kLimit descriptors, and compares.
    void expectSameUnderTheLimit(std::function<bool(std::string const& world)> const& operation, bool dangling,
                                 bool answerExpected)
    {
        std::string const free = inArea(dangling ? "free-dangling" : "free");
        std::string const limited = inArea(dangling ? "limited-dangling" : "limited");
        ASSERT_TRUE(makeWorld(free, dangling));
        ASSERT_TRUE(makeWorld(limited, dangling));
        bool const freeAnswer = operation(free);
        int const limitedAnswer = runInChild([&] {
            rlimit const limit{kLimit, kLimit};
            if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
                return 3;
            return operation(limited) ? 1 : 0;
        });
        ASSERT_NE(limitedAnswer, 3) << "the limit could not be set";
        ASSERT_NE(limitedAnswer, kChildDidNotExit);
        EXPECT_EQ(freeAnswer, answerExpected);
        EXPECT_EQ(limitedAnswer == 1, freeAnswer) << "the answer changed under the limit";
        EXPECT_EQ(describeTree(limited), describeTree(free)) << "what is left changed under the limit";
        if (!dangling) {
            EXPECT_EQ(namesIn(limited), std::vector<std::string>{}) << "the tree did not go";
        }
    }

    void expectSameUnderTheLimit(std::function<bool(std::string const& world)> const& operation)
    {
        expectSameUnderTheLimit(operation, false, true);
        expectSameUnderTheLimit(operation, true, false);
    }
};

TEST_F(RemovalUnderADescriptorLimit, RemoveAll)
{
    expectSameUnderTheLimit([](std::string const& world) { return fs::removeAll(Path(world + "/top")); });
}

TEST_F(RemovalUnderADescriptorLimit, RemoveAllInDir)
{
    expectSameUnderTheLimit([](std::string const& world) { return fs::removeAllInDir(Path(world + "/top")); });
}

TEST_F(RemovalUnderADescriptorLimit, RemoveAllMatching)
{
    expectSameUnderTheLimit(
        [](std::string const& world) { return fs::removeAllMatching(Path(world), String("to?")); });
}

TEST_F(RemovalUnderADescriptorLimit, DirectoryReaper)
{
    // The reaper answers nothing: what is left is the answer.
    expectSameUnderTheLimit([](std::string const& world) {
        DirectoryReaper const reaper{Path(world + "/top")};
        return true;
    }, false, true);
    expectSameUnderTheLimit([](std::string const& world) {
        { DirectoryReaper const reaper{Path(world + "/top")}; }
        return false;
    }, true, false);
}

TEST_F(RemovalUnderADescriptorLimit, TemporaryDirectoryDestructorAndSweep)
{
    expectSameUnderTheLimit([](std::string const& world) {
        { TemporaryDirectory const directory{Path(world + "/top")}; }
        return true;
    }, false, true);
    expectSameUnderTheLimit([](std::string const& world) {
        // The sweep takes "top" as an old leftover; the new directory goes
        // with the object.
        setTemporaryDirectoryInternal(Path(world));
        { TemporaryDirectory const directory{String("to"), std::chrono::hours(-1)}; }
        restoreTemporaryDirectoryInternal();
        return false;
    }, true, false);
}

// ---- Depth on a small stack ---------------------------------------------------------------

// 30,000 levels, removed on a thread with a 256 KiB stack: a walk that
// recursed once per level would overflow it, one that held a descriptor per
// level would run out of them. Run as this process's user and as an
// unprivileged one.
class DeepRemoval : public MemoryScratch {
protected:
    static constexpr int kDepth = 30000;
    static constexpr std::size_t kStackSize = 256 * 1024;

    // Builds the chain in `top` and removes it with `removal` on a small
    // stack. @returns 0 when it answered true and the chain is gone, else
    // the number of the first check that failed.
    static int buildAndRemove(std::string const& top, std::function<bool(Path const&)> const& removal)
    {
        if (::mkdir(top.c_str(), 0755) != 0 || !makeChain(top, kDepth, true))
            return 10;
        int const answer = runOnSmallStack([&] { return removal(Path(top)) ? 1 : 0; }, kStackSize);
        return firstFailure({answer == 1, !existsByDirectProbe(top)});
    }

    void expectRemovedAsEveryone(std::function<bool(Path const&)> const& removal)
    {
        EXPECT_EQ(buildAndRemove(inArea("mine"), removal), 0);
        // The unprivileged child works in a directory it may write.
        ASSERT_EQ(::chmod(area.c_str(), 0777), 0);
        std::string const theirs = inArea("theirs");
        int const result = runUnprivileged([&] {
            if (::access(area.c_str(), W_OK | X_OK) != 0)
                return kScratchUnreachable;
            return buildAndRemove(theirs, removal);
        });
        if (char const* reason = unprivilegedSkipReason(result))
            GTEST_SKIP() << reason;
        EXPECT_EQ(result, 0);
    }
};

TEST_F(DeepRemoval, RemoveAllOfThirtyThousandLevelsOnASmallStack)
{
    expectRemovedAsEveryone([](Path const& top) { return fs::removeAll(top); });
}

TEST_F(DeepRemoval, RemoveAllInDirOfThirtyThousandLevelsOnASmallStack)
{
    expectRemovedAsEveryone([](Path const& top) { return fs::removeAllInDir(top); });
}

TEST_F(DeepRemoval, TemporaryDirectorySweepOfThirtyThousandLevelsOnASmallStack)
{
    // The chain is an old leftover of a prefix that is its own name: the
    // sweep of a new object with that prefix takes it, and the object's own
    // directory goes with the object.
    expectRemovedAsEveryone([](Path const& top) {
        setTemporaryDirectoryInternal(top.parentPath());
        {
            TemporaryDirectory const directory{String(top.filename().nativeString().c_str()), std::chrono::hours(-1)};
        }
        restoreTemporaryDirectoryInternal();
        return true;
    });
}

// ---- FIFOs, sockets and links to devices ------------------------------------------------

// Nothing in a tree is ever opened for reading or writing: a FIFO with no
// writer and links to endless devices are deleted as names. A socket reads
// as a directory to the library, so it stops a removal with false and stays.
// Each check runs in a child that an alarm ends if anything hangs.
class SpecialFilesInTrees : public ScratchDirectory {
protected:
    static constexpr unsigned kAlarmSeconds = 60;

    // Fills the directory `path` with a file, a FIFO and links to /dev/zero
    // and /dev/urandom. @returns true when all were made.
    static bool fillWithSpecialFiles(std::string const& path)
    {
        return ::mkdir(path.c_str(), 0777) == 0 && writeWholeFile(path + "/file", "f")
               && ::mkfifo((path + "/fifo").c_str(), 0644) == 0
               && ::symlink("/dev/zero", (path + "/zero").c_str()) == 0
               && ::symlink("/dev/urandom", (path + "/urandom").c_str()) == 0
               && ::mkdir((path + "/sub").c_str(), 0777) == 0 && ::mkfifo((path + "/sub/fifo").c_str(), 0644) == 0;
    }

    // Runs `body` in a child bounded by an alarm, from inside `directory`.
    int runBounded(std::string const& directory, std::function<int()> const& body)
    {
        return runInChild([&] {
            ::alarm(kAlarmSeconds);
            if (::chdir(directory.c_str()) != 0)
                return 100;
            return body();
        });
    }

    void SetUp() override
    {
        ScratchDirectory::SetUp();
        if (!isCharacterDevice("/dev/zero") || !isCharacterDevice("/dev/urandom"))
            GTEST_SKIP() << "/dev/zero and /dev/urandom are needed";
    }
};

TEST_F(SpecialFilesInTrees, RemoveAllDeletesFifosAndLinksToDevicesAndStopsAtASocket)
{
    int const result = runBounded(scratch, [] {
        bool const built = fillWithSpecialFiles("plain") && fillWithSpecialFiles("withSocket")
                           && makeSocketFile("withSocket/sub/socket") && ::symlink("/dev/zero", "zero") == 0;
        if (!built)
            return 50;
        bool const plain = fs::removeAll(Path("plain"));
        bool const withSocket = fs::removeAll(Path("withSocket"));
        bool const link = fs::removeAll(Path("zero"));
        return firstFailure({plain, !existsByDirectProbe("plain"), !withSocket,
                             existsByDirectProbe("withSocket/sub/socket"), existsByDirectProbe("withSocket"), link,
                             !existsByDirectProbe("zero"), isCharacterDevice("/dev/zero"),
                             isCharacterDevice("/dev/urandom")});
    });
    EXPECT_NE(result, kChildDidNotExit) << "the removal hung or crashed";
    EXPECT_EQ(result, 0);
}

TEST_F(SpecialFilesInTrees, TemporaryDirectorySweepDeletesFifosAndLinksToDevicesAndKeepsSockets)
{
    int const result = runBounded(scratch, [this] {
        bool const built = fillWithSpecialFiles("old-tree") && ::mkfifo("old-fifo", 0644) == 0
                           && ::symlink("/dev/zero", "old-zero") == 0 && ::symlink("/dev/urandom", "old-urandom") == 0
                           && makeSocketFile("old-socket") && fillWithSpecialFiles("old-socketTree")
                           && makeSocketFile("old-socketTree/socket") && writeWholeFile("young-file", "y");
        if (!built)
            return 50;
        setTemporaryDirectoryInternal(Path(scratch));
        {
            // Every entry of the prefix is older than a negative limit.
            TemporaryDirectory const directory{String("old-"), std::chrono::hours(-1)};
        }
        restoreTemporaryDirectoryInternal();
        return firstFailure({!existsByDirectProbe("old-tree"), !existsByDirectProbe("old-fifo"),
                             !existsByDirectProbe("old-zero"), !existsByDirectProbe("old-urandom"),
                             existsByDirectProbe("old-socket"), existsByDirectProbe("old-socketTree/socket"),
                             existsByDirectProbe("young-file"), isCharacterDevice("/dev/zero"),
                             isCharacterDevice("/dev/urandom")});
    });
    EXPECT_NE(result, kChildDidNotExit) << "the sweep hung or crashed";
    EXPECT_EQ(result, 0);
}

} // namespace
