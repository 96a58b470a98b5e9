// Tests of directory creation: one level checked, one level bare, whole chains, modes under the umask, and paths that name no file.
#include <kelvo/filesystem.h>

#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ResourceProbes.h"
#include "support/ScratchDirectory.h"

#include <climits>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::Path;
using namespace kelvo::testing;
namespace fs = kelvo::filesystem;

class DirectoryCreation : public ScratchDirectory {};

/// Checks what a walk down `base` followed by "/" `name` many times over
/// leaves when the path is longer than the system accepts: every level whose
/// path the system accepts (shorter than PATH_MAX) is a directory, and the
/// deepest of them is empty, since the next one could not be made.
::testing::AssertionResult madeUpToTheLimit(std::string const& base, std::string const& name)
{
    std::string level = base;
    int depth = 0;
    while (level.size() + 1 + name.size() < PATH_MAX) {
        level += "/" + name;
        ++depth;
        if (!isDirectoryOnDisk(level))
            return ::testing::AssertionFailure() << "level " << depth << " was not made";
    }
    if (!namesIn(level).empty())
        return ::testing::AssertionFailure() << "the deepest level " << depth << " is not empty";
    return ::testing::AssertionSuccess() << depth << " levels made";
}

/// The deepest chain of `name` directories below `base` whose path the system
/// still accepts.
std::string deepestAcceptedChain(std::string const& base, std::string const& name)
{
    std::string level = base;
    while (level.size() + 1 + name.size() < PATH_MAX)
        level += "/" + name;
    return level;
}

/// The walk written the plain way, by recursion, with the library's own path
/// functions and a plain mkdir: the reference for the library's loop.
bool referenceCreateDirectoriesValidated(Path const& path)
{
    Path const parent = path.parentPath();
    if (!parent.empty() && !fs::exists(parent) && !referenceCreateDirectoriesValidated(parent))
        return false;
    kelvo::unicode::String const name = path.filename().string();
    if (name == kelvo::unicode::String(U".") || name == kelvo::unicode::String(U".."))
        return true;
    return ::mkdir(path.nativeString().c_str(), 0777) == 0;
}

bool referenceCreateDirectories(Path const& path)
{
    return fs::exists(path) || referenceCreateDirectoriesValidated(path);
}

TEST_F(DirectoryCreation, CreateDirectoriesMakesTheMissingChainThenAnswersAtOnce)
{
    ASSERT_EQ(::mkdir(at("a").c_str(), 0777), 0);
    EXPECT_TRUE(fs::createDirectories(Path(at("a/b/c"))));
    EXPECT_TRUE(isDirectoryOnDisk(at("a/b")));
    EXPECT_TRUE(isDirectoryOnDisk(at("a/b/c")));
    EXPECT_TRUE(fs::createDirectories(Path(at("a/b/c"))));
    EXPECT_EQ(namesIn(at("a/b")), std::vector<std::string>{"c"});
}

TEST_F(DirectoryCreation, CreateDirectoriesOfAFinalDotDotMakesOnlyTheChainAboveIt)
{
    ASSERT_EQ(::mkdir(at("a").c_str(), 0777), 0);
    EXPECT_TRUE(fs::createDirectories(Path(at("a/b/.."))));
    EXPECT_TRUE(isDirectoryOnDisk(at("a/b")));
    EXPECT_EQ(namesIn(at("a")), std::vector<std::string>{"b"});
    EXPECT_TRUE(namesIn(at("a/b")).empty());
}

TEST_F(DirectoryCreation, CreateDirectoriesValidatedOfAFinalDotMakesTheParent)
{
    EXPECT_TRUE(fs::createDirectoriesValidated(Path(at("x/y/."))));
    EXPECT_TRUE(isDirectoryOnDisk(at("x/y")));
    EXPECT_TRUE(namesIn(at("x/y")).empty());
}

TEST_F(DirectoryCreation, CreateDirectoryMakesOneLevelOnly)
{
    EXPECT_FALSE(fs::createDirectory(Path(at("missing/child"))));
    EXPECT_FALSE(isPresentOnDisk(at("missing")));
    EXPECT_TRUE(fs::createDirectory(Path(at("one"))));
    EXPECT_TRUE(isDirectoryOnDisk(at("one")));
}

TEST_F(DirectoryCreation, ExistingDirectoryIsTrueForTheCheckedFormAndFalseForTheBareOne)
{
    ASSERT_EQ(::mkdir(at("d").c_str(), 0777), 0);
    EXPECT_TRUE(fs::createDirectory(Path(at("d"))));
    EXPECT_FALSE(fs::createDirectoryValidated(Path(at("d"))));
    EXPECT_TRUE(fs::createDirectories(Path(at("d"))));
    EXPECT_FALSE(fs::createDirectoriesValidated(Path(at("d"))));
}

TEST_F(DirectoryCreation, AFileInTheWaySatisfiesTheCheckedFormsButStopsTheBareWalk)
{
    writeFile("f", "x");
    EXPECT_TRUE(fs::createDirectory(Path(at("f"))));
    EXPECT_TRUE(fs::createDirectories(Path(at("f"))));
    EXPECT_TRUE(isRegularOnDisk(at("f")));
    EXPECT_FALSE(fs::createDirectoriesValidated(Path(at("f/sub"))));
    EXPECT_FALSE(fs::createDirectories(Path(at("f/sub/deeper"))));
}

TEST_F(DirectoryCreation, ModesFollowTheUmask)
{
    {
        UmaskScope mask(022);
        ASSERT_TRUE(fs::createDirectory(Path(at("m022"))));
        ASSERT_TRUE(fs::createDirectories(Path(at("c022/inner"))));
    }
    {
        UmaskScope mask(077);
        ASSERT_TRUE(fs::createDirectoryValidated(Path(at("m077"))));
        ASSERT_TRUE(fs::createDirectoriesValidated(Path(at("c077/inner"))));
    }
    EXPECT_EQ(linkMode(at("m022")) & 07777, 0755u);
    EXPECT_EQ(linkMode(at("c022")) & 07777, 0755u);
    EXPECT_EQ(linkMode(at("c022/inner")) & 07777, 0755u);
    EXPECT_EQ(linkMode(at("m077")) & 07777, 0700u);
    EXPECT_EQ(linkMode(at("c077/inner")) & 07777, 0700u);
}

TEST_F(DirectoryCreation, RelativeChainInAnEmptyWorkingDirectoryEndsAtTheEmptyParent)
{
    ASSERT_EQ(::chdir(scratch.c_str()), 0);
    EXPECT_TRUE(fs::createDirectories(Path("x/y/z")));
    EXPECT_TRUE(isDirectoryOnDisk(at("x/y/z")));
    EXPECT_TRUE(fs::createDirectoriesValidated(Path("p/q")));
    EXPECT_TRUE(isDirectoryOnDisk(at("p/q")));
    EXPECT_TRUE(fs::createDirectoriesValidated(Path("single")));
    EXPECT_TRUE(isDirectoryOnDisk(at("single")));
}

TEST_F(DirectoryCreation, ReadOnlyDirectoryRefusesNewLevelsToAnUnprivilegedUser)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    ASSERT_EQ(::mkdir(at("ro").c_str(), 0555), 0);
    ASSERT_EQ(::chmod(at("ro").c_str(), 0555), 0);
    std::string const base = at("ro");
    int const result = runUnprivileged([&] {
        bool const chain = fs::createDirectories(Path(base + "/a/b"));
        bool const one = fs::createDirectory(Path(base + "/c"));
        bool const bare = fs::createDirectoryValidated(Path(base + "/d"));
        // What exists already still satisfies the checked form.
        bool const existing = fs::createDirectory(Path(base));
        return firstFailure({!chain, !one, !bare, existing, !isPresentOnDisk(base + "/a"),
                             !isPresentOnDisk(base + "/c"), !isPresentOnDisk(base + "/d")});
    });
    if (result == kCannotDropPrivileges)
        GTEST_SKIP() << "cannot switch to an unprivileged user here";
    EXPECT_EQ(result, 0);
}

TEST_F(DirectoryCreation, ChainStopsAtTheFirstFailureLeavingTheLevelsAbove)
{
    // "a/f" is a file, so no level can be made below it; the levels made
    // above a failure stay.
    ASSERT_EQ(::mkdir(at("a").c_str(), 0777), 0);
    writeFile("a/f", "");
    EXPECT_FALSE(fs::createDirectories(Path(at("a/f/x/y"))));
    EXPECT_FALSE(isPresentOnDisk(at("a/f/x")));
    // A name longer than the system allows fails below two new levels.
    std::string const tooLong(300, 'l');
    EXPECT_FALSE(fs::createDirectories(Path(at("a/n1/n2/" + tooLong + "/x"))));
    EXPECT_TRUE(isDirectoryOnDisk(at("a/n1/n2")));
    EXPECT_TRUE(namesIn(at("a/n1/n2")).empty());
    EXPECT_TRUE(fs::createDirectories(Path(at("a/g/h"))));
}

TEST_F(DirectoryCreation, PathRejectedByTheLengthCheckIsNotMadeEvenWhereMkdirWouldSucceed)
{
    long const limit = ::pathconf("/", _PC_PATH_MAX);
    if (limit <= 0 || limit > 65536)
        GTEST_SKIP() << "the system sets no usable path limit";
    // Directories of 200-byte names down to a depth that leaves a new path
    // between the limit less 25 bytes and the limit itself.
    std::string const name(200, 'n');
    std::string deep = scratch;
    while (deep.size() + 1 + name.size() < static_cast<std::size_t>(limit) - 60) {
        deep += "/" + name;
        ASSERT_EQ(::mkdir(deep.c_str(), 0777), 0);
    }
    std::size_t const wanted = static_cast<std::size_t>(limit) - 10;
    std::string const last(wanted - deep.size() - 1, 'z');
    std::string const target = deep + "/" + last;
    ASSERT_GT(target.size(), static_cast<std::size_t>(limit) - 25);
    ASSERT_LT(target.size(), static_cast<std::size_t>(limit));

    EXPECT_FALSE(fs::createDirectory(Path(target)));
    EXPECT_FALSE(isPresentOnDisk(target));
    EXPECT_TRUE(fs::createDirectoryValidated(Path(target)));
    EXPECT_TRUE(isDirectoryOnDisk(target));
}

TEST_F(DirectoryCreation, PathWithANulByteMakesNothing)
{
    ASSERT_EQ(::mkdir(at("a").c_str(), 0777), 0);
    std::string withNul = at("b");
    withNul.push_back('\0');
    withNul += "c";
    std::string existingThenNul = at("a");
    existingThenNul.push_back('\0');
    existingThenNul += "x";
    for (std::string const& text : {withNul, existingThenNul}) {
        Path const path(text);
        ASSERT_NE(path.nativeString().find('\0'), std::string::npos);
        EXPECT_FALSE(fs::createDirectory(path));
        EXPECT_FALSE(fs::createDirectoryValidated(path));
        EXPECT_FALSE(fs::createDirectories(path));
        EXPECT_FALSE(fs::createDirectoriesValidated(path));
    }
    EXPECT_EQ(namesIn(scratch), std::vector<std::string>{"a"});
}

TEST_F(DirectoryCreation, EverySpellingMakesWhatTheRecursiveWalkMakes)
{
    // Each spelling is made twice from the same starting tree, once by the
    // library and once by the recursive walk, relative and absolute;
    // results and trees must agree.
    std::vector<std::string> const spellings = {
        "a", "a/b/c", "a/b/c/", "a//b///c", "a/./b", "a/../b", "a/b/..", "a/b/.", "./a/b", "a/b/../../c",
        "f/x", "f/x/y", "x/", ".", "..", "a/.../b", "e/x", "e/x/", "e//", "a\\b\\c", "a/b/c/d/e/f/g/h",
    };
    int round = 0;
    for (std::string const& spelling : spellings) {
        for (bool absolute : {false, true}) {
            for (bool validated : {false, true}) {
                std::string const tag = std::to_string(round++);
                std::string const mine = at("lib" + tag);
                std::string const theirs = at("ref" + tag);
                for (std::string const& top : {mine, theirs}) {
                    ASSERT_EQ(::mkdir(top.c_str(), 0777), 0);
                    ASSERT_EQ(::mkdir((top + "/e").c_str(), 0777), 0);
                    ASSERT_TRUE(writeWholeFile(top + "/f", "file"));
                }
                auto const make = [&](std::string const& top, bool reference) {
                    EXPECT_EQ(::chdir(top.c_str()), 0);
                    Path const path(absolute ? top + "/" + spelling : spelling);
                    if (reference)
                        return validated ? referenceCreateDirectoriesValidated(path) : referenceCreateDirectories(path);
                    return validated ? fs::createDirectoriesValidated(path) : fs::createDirectories(path);
                };
                bool const libraryResult = make(mine, false);
                bool const referenceResult = make(theirs, true);
                EXPECT_EQ(libraryResult, referenceResult) << spelling << (absolute ? " absolute" : " relative")
                                                          << (validated ? " validated" : "");
                EXPECT_EQ(describeTree(mine), describeTree(theirs)) << spelling << (absolute ? " absolute" : " relative")
                                                                    << (validated ? " validated" : "");
            }
        }
    }
}

TEST_F(DirectoryCreation, ADeepChainWithinTheLimitIsMadeLevelByLevel)
{
    std::string const target = scratch + repeated("/d", 1000);
    ASSERT_LT(target.size(), static_cast<std::size_t>(PATH_MAX));
    EXPECT_TRUE(fs::createDirectories(Path(target)));
    std::string level = scratch;
    for (int depth = 1; depth <= 1000; ++depth) {
        level += "/d";
        ASSERT_TRUE(isDirectoryOnDisk(level)) << "level " << depth;
    }
    EXPECT_TRUE(namesIn(target).empty());
    EXPECT_TRUE(fs::createDirectories(Path(target)));
    EXPECT_FALSE(fs::createDirectoriesValidated(Path(target)));
}

TEST_F(DirectoryCreation, ALongPathOfTwentyThousandPartsIsMadeAsFarAsTheSystemAllowsInLittleMemory)
{
    // 60 KB: far beyond what the system accepts, so the walk climbs through
    // every level, makes those the system accepts and fails on the first it
    // refuses.
    std::string const target = scratch + repeated("/ab", 20000);
    ASSERT_GE(target.size(), 60000u);
    ChildMeasure const measure = measureInChild([&] { return fs::createDirectories(Path(target)) ? 1 : 0; });
    EXPECT_EQ(measure.exitStatus, 0) << "1: true for a path the system cannot hold; " << kChildDidNotExit
                                     << ": the child died; " << kBodyThrew << ": out of memory";
    EXPECT_GE(measure.peakGrowthKiB, 0);
    EXPECT_LT(measure.peakGrowthKiB, kMemoryBoundKiB + kSanitizerHeldKiB);
    EXPECT_TRUE(madeUpToTheLimit(scratch, "ab"));
}

TEST_F(DirectoryCreation, ALongPathOfTwentyThousandPartsIsMadeBareAsFarAsTheSystemAllowsInLittleMemory)
{
    std::string const target = scratch + repeated("/ab", 20000);
    ChildMeasure const measure = measureInChild([&] { return fs::createDirectoriesValidated(Path(target)) ? 1 : 0; });
    EXPECT_EQ(measure.exitStatus, 0) << "1: true for a path the system cannot hold; " << kChildDidNotExit
                                     << ": the child died; " << kBodyThrew << ": out of memory";
    EXPECT_GE(measure.peakGrowthKiB, 0);
    EXPECT_LT(measure.peakGrowthKiB, kMemoryBoundKiB + kSanitizerHeldKiB);
    EXPECT_TRUE(madeUpToTheLimit(scratch, "ab"));
}

TEST_F(DirectoryCreation, WalksOfAnyDepthRunOnASmallMachineStack)
{
    // 30,000 parts, then the deepest chain the system accepts through paths:
    // on a thread with a 256 KiB stack, in a child so that an overflow shows
    // as a failure.
    std::string const tooDeep = scratch + repeated("/a", 30000);
    std::string const deepest = deepestAcceptedChain(at("valid"), "d");
    int const result = runInChild([&] {
        return runOnSmallStack([&] {
            bool const chain = fs::createDirectories(Path(tooDeep));
            bool const bare = fs::createDirectoriesValidated(Path(tooDeep));
            bool const valid = fs::createDirectories(Path(deepest));
            return firstFailure({!chain, !bare, valid});
        });
    });
    EXPECT_EQ(result, 0) << kChildDidNotExit << ": the child died (a stack overflow); " << kThreadNotStarted
                         << ": no thread; " << kBodyThrew << ": out of memory; else the index of the wrong answer";
    EXPECT_TRUE(madeUpToTheLimit(scratch, "a"));
    EXPECT_TRUE(madeUpToTheLimit(at("valid"), "d"));
}

TEST_F(DirectoryCreation, WalksUnderALimitOfSixtyFourDescriptorsAnswerAsWithoutALimit)
{
    // 200 levels within the system's path limit, and 20,000 parts beyond it:
    // made once with no limit and once in a child that may hold only 64
    // descriptors. Answers and what is made must be the same.
    constexpr rlim_t kLimit = 64;
    std::string const within = repeated("/d", 200);
    std::string const beyond = repeated("/ab", 20000);
    auto run = [&](std::string const& base) {
        int answers = 0;
        if (fs::createDirectories(Path(base + "/chain" + within)))
            answers |= 1;
        if (fs::createDirectoriesValidated(Path(base + "/bare" + within)))
            answers |= 2;
        if (fs::createDirectories(Path(base + "/long" + beyond)))
            answers |= 4;
        if (fs::createDirectoriesValidated(Path(base + "/longbare" + beyond)))
            answers |= 8;
        // A chain that exists already: the checked form is true, the bare one false.
        if (fs::createDirectories(Path(base + "/chain" + within)))
            answers |= 16;
        if (fs::createDirectoriesValidated(Path(base + "/chain" + within)))
            answers |= 32;
        return answers;
    };
    ASSERT_EQ(::mkdir(at("free").c_str(), 0777), 0);
    ASSERT_EQ(::mkdir(at("limited").c_str(), 0777), 0);
    int const freeAnswers = run(at("free"));
    EXPECT_EQ(freeAnswers, 1 | 2 | 16);
    int const limitedAnswers = runInChild([&] {
        rlimit const limit{kLimit, kLimit};
        if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
            return 100;
        return run(at("limited"));
    });
    ASSERT_NE(limitedAnswers, 100) << "the limit could not be set";
    EXPECT_EQ(limitedAnswers, freeAnswers) << "the answers changed under the limit";
    for (char const* side : {"free", "limited"}) {
        std::string const base = at(side);
        EXPECT_TRUE(isDirectoryOnDisk(base + "/chain" + within)) << side;
        EXPECT_TRUE(namesIn(base + "/chain" + within).empty()) << side;
        EXPECT_TRUE(isDirectoryOnDisk(base + "/bare" + within)) << side;
        EXPECT_TRUE(madeUpToTheLimit(base + "/long", "ab")) << side;
        EXPECT_TRUE(madeUpToTheLimit(base + "/longbare", "ab")) << side;
    }
}

TEST_F(DirectoryCreation, WalksOfAnyDepthRunOnASmallMachineStackForAnUnprivilegedUser)
{
    // The same walks as an unprivileged user, in a directory it may write.
    ASSERT_EQ(::chmod(scratch.c_str(), 0777), 0);
    std::string const theirs = at("theirs");
    int const result = runUnprivileged([&] {
        if (::access(scratch.c_str(), W_OK | X_OK) != 0)
            return kScratchUnreachable;
        if (::mkdir(theirs.c_str(), 0777) != 0 || ::mkdir((theirs + "/valid").c_str(), 0777) != 0)
            return 10;
        std::string const tooDeep = theirs + repeated("/a", 30000);
        std::string const deepest = deepestAcceptedChain(theirs + "/valid", "d");
        return runOnSmallStack([&] {
            bool const chain = fs::createDirectories(Path(tooDeep));
            bool const bare = fs::createDirectoriesValidated(Path(tooDeep));
            bool const valid = fs::createDirectories(Path(deepest));
            return firstFailure({!chain, !bare, valid});
        });
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    EXPECT_EQ(result, 0) << kChildDidNotExit << ": the child died (a stack overflow); " << kThreadNotStarted
                         << ": no thread; " << kBodyThrew << ": out of memory; 10: no directory to work in; "
                         << "else the index of the wrong answer";
    EXPECT_TRUE(madeUpToTheLimit(theirs, "a"));
    EXPECT_TRUE(madeUpToTheLimit(theirs + "/valid", "d"));
}

} // namespace
