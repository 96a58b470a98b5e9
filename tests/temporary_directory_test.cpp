// Tests of TemporaryDirectory and the reapers: unique names, the sweep of old leftovers to the microsecond, nesting, what the destructor deletes, and scope-bound deletion.
#include <kelvo/filesystem.h>
#include <kelvo/filesystem/private.h>

#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <regex>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::DirectoryReaper;
using kelvo::filesystem::getTemporaryDirectory;
using kelvo::filesystem::Path;
using kelvo::filesystem::PathReaper;
using kelvo::filesystem::TemporaryDirectory;
using kelvo::testing::existsByDirectProbe;
using kelvo::testing::nameSetIn;
using kelvo::testing::setAge;
using kelvo::testing::firstFailure;
using kelvo::testing::runInChild;
using kelvo::unicode::String;
using kelvo_private::filesystem::restoreTemporaryDirectoryInternal;
using kelvo_private::filesystem::setTemporaryDirectoryInternal;
using std::chrono::microseconds;

static_assert(!std::is_copy_constructible_v<PathReaper> && !std::is_copy_assignable_v<PathReaper>);
static_assert(!std::is_copy_constructible_v<DirectoryReaper> && !std::is_copy_assignable_v<DirectoryReaper>);
static_assert(!std::is_copy_constructible_v<TemporaryDirectory> && !std::is_copy_assignable_v<TemporaryDirectory>);

/// @returns true when `name` is `prefix` followed by an unsigned 32-bit
/// number in decimal, without leading zeros.
bool isNumberedName(std::string const& name, std::string const& prefix)
{
    if (name.compare(0, prefix.size(), prefix) != 0)
        return false;
    std::string const digits = name.substr(prefix.size());
    if (digits.empty() || digits.size() > 10 || digits.find_first_not_of("0123456789") != std::string::npos)
        return false;
    if (digits.size() > 1 && digits[0] == '0')
        return false;
    return std::stoull(digits) <= 0xFFFFFFFFull;
}

class TemporaryDirectoryTest : public kelvo::testing::ScratchDirectory {
protected:
    void SetUp() override
    {
        ScratchDirectory::SetUp();
        // Everything made here goes into the scratch directory.
        setTemporaryDirectoryInternal(Path(scratch));
    }

    void TearDown() override
    {
        EXPECT_EQ(getTemporaryDirectory().nativeString(), scratch) << "an override was left on the stack";
        restoreTemporaryDirectoryInternal();
        ScratchDirectory::TearDown();
    }

    void makeDirectory(std::string const& name) const { ASSERT_EQ(::mkdir(at(name).c_str(), 0755), 0) << name; }
};

// ---- reapers ---------------------------------------------------------------------------

TEST_F(TemporaryDirectoryTest, DirectoryReaperDeletesAWholeTree)
{
    makeDirectory("tree");
    makeDirectory("tree/sub");
    writeFile("tree/sub/file", "x");
    writeFile("tree/top", "y");
    {
        DirectoryReaper reaper(Path(at("tree")));
        EXPECT_EQ(reaper.get().nativeString(), at("tree"));
    }
    EXPECT_FALSE(existsByDirectProbe(at("tree")));
}

TEST_F(TemporaryDirectoryTest, ACancelledDirectoryReaperDeletesNothing)
{
    makeDirectory("tree");
    writeFile("tree/file", "x");
    {
        DirectoryReaper reaper(Path(at("tree")));
        reaper.cancel();
        EXPECT_TRUE(reaper.get().empty());
    }
    EXPECT_TRUE(existsByDirectProbe(at("tree/file")));
}

TEST_F(TemporaryDirectoryTest, DirectoryReaperOfAFileDeletesIt)
{
    writeFile("file", "x");
    {
        DirectoryReaper reaper(Path(at("file")));
    }
    EXPECT_FALSE(existsByDirectProbe(at("file")));
}

TEST_F(TemporaryDirectoryTest, PathReaperDeletesAFile)
{
    writeFile("file", "x");
    {
        PathReaper reaper(Path(at("file")));
        EXPECT_EQ(reaper.get().nativeString(), at("file"));
    }
    EXPECT_FALSE(existsByDirectProbe(at("file")));
}

TEST_F(TemporaryDirectoryTest, PathReaperOfAMissingPathDoesNothing)
{
    {
        PathReaper reaper(Path(at("missing")));
    }
    EXPECT_FALSE(existsByDirectProbe(at("missing")));
    EXPECT_EQ(nameSetIn(scratch), std::set<std::string>{});
}

TEST_F(TemporaryDirectoryTest, PathReaperDeletesOnlyAnEmptyDirectory)
{
    makeDirectory("empty");
    makeDirectory("full");
    writeFile("full/file", "x");
    {
        PathReaper empty(Path(at("empty")));
        PathReaper full(Path(at("full")));
    }
    EXPECT_FALSE(existsByDirectProbe(at("empty")));
    EXPECT_TRUE(existsByDirectProbe(at("full/file")));
}

TEST_F(TemporaryDirectoryTest, ACancelledPathReaperDeletesNothing)
{
    writeFile("file", "x");
    {
        PathReaper reaper(Path(at("file")));
        reaper.cancel();
        EXPECT_TRUE(reaper.get().empty());
    }
    EXPECT_TRUE(existsByDirectProbe(at("file")));
}

TEST_F(TemporaryDirectoryTest, AReaperOfTheEmptyPathDoesNothing)
{
    {
        PathReaper path{Path()};
        DirectoryReaper tree{Path()};
        EXPECT_TRUE(path.get().empty());
        EXPECT_TRUE(tree.get().empty());
    }
    EXPECT_TRUE(existsByDirectProbe(scratch));
}

// ---- unique names ------------------------------------------------------------------------

TEST_F(TemporaryDirectoryTest, UniqueNamesArePrefixAndDecimalNumberAndCreateNothing)
{
    std::set<std::string> seen;
    for (int i = 0; i < 20; ++i) {
        Path const candidate = TemporaryDirectory::makeUniqueTemporaryDirectory(Path(scratch), String(U"run-"));
        EXPECT_EQ(candidate.parentPath().nativeString(), scratch);
        std::string const name = candidate.filename().nativeString();
        EXPECT_TRUE(isNumberedName(name, "run-")) << name;
        EXPECT_FALSE(existsByDirectProbe(candidate.nativeString()));
        seen.insert(name);
    }
    EXPECT_GT(seen.size(), 15u) << "the numbers are not drawn afresh";
    EXPECT_EQ(nameSetIn(scratch), std::set<std::string>{});
}

TEST_F(TemporaryDirectoryTest, AUniqueNameIsNeverOneThatExists)
{
    // Names taken by existing entries of every kind are never returned.
    std::set<std::string> taken;
    for (int i = 0; i < 30; ++i) {
        Path const candidate = TemporaryDirectory::makeUniqueTemporaryDirectory(Path(scratch), String(U"x"));
        std::string const name = candidate.filename().nativeString();
        ASSERT_EQ(taken.count(name), 0u);
        if (i % 2 == 0)
            makeDirectory(name);
        else
            writeFile(name, "");
        taken.insert(name);
    }
    EXPECT_EQ(nameSetIn(scratch), taken);
}

TEST_F(TemporaryDirectoryTest, AUnicodePrefixIsWrittenInUTF8)
{
    String const prefix(std::string("R\xC3\xA9sum\xC3\xA9-"));
    Path const candidate = TemporaryDirectory::makeUniqueTemporaryDirectory(Path(scratch), prefix);
    EXPECT_TRUE(isNumberedName(candidate.filename().nativeString(), "R\xC3\xA9sum\xC3\xA9-"))
        << candidate.filename().nativeString();
}

TEST_F(TemporaryDirectoryTest, APrefixHoldingANulGivesANameAtOnceAndMakesAndDeletesNothing)
{
    // The system reads a name up to its first NUL, so every candidate would
    // read as the existing "pre" (or as the base itself): such a candidate
    // names no file and is free at once. The directory object then makes
    // nothing, and its destructor deletes nothing, not even with an age limit
    // of zero for the sweep.
    makeDirectory("pre");
    writeFile("pre/keep", "kept");
    makeDirectory("pre/fix1");
    writeFile("prefix1", "sibling");
    std::set<std::string> const before = nameSetIn(scratch);
    std::string const base = scratch;
    int const result = runInChild([&] {
        ::alarm(10); // a child that keeps drawing names dies here
        std::vector<bool> checks;
        for (std::u32string const& text : {std::u32string(U"pre") + U'\0' + U"fix", std::u32string(1, U'\0') + U"x"}) {
            String const prefix(text);
            std::string expectedStart = base + "/";
            expectedStart += prefix.toUTF8String();
            Path const candidate = TemporaryDirectory::makeUniqueTemporaryDirectory(Path(base), prefix);
            checks.push_back(candidate.nativeString().compare(0, expectedStart.size(), expectedStart) == 0);
            {
                TemporaryDirectory const directory(prefix, microseconds(0));
                std::string const current = getTemporaryDirectory().nativeString();
                checks.push_back(current.compare(0, expectedStart.size(), expectedStart) == 0);
            }
            checks.push_back(getTemporaryDirectory().nativeString() == base);
        }
        for (std::size_t i = 0; i < checks.size(); ++i) {
            if (!checks[i])
                return static_cast<int>(i) + 1;
        }
        return 0;
    });
    EXPECT_EQ(result, 0) << kelvo::testing::kChildDidNotExit << ": the child hung (killed by its alarm) or died";
    EXPECT_EQ(nameSetIn(scratch), before);
    EXPECT_EQ(nameSetIn(at("pre")), (std::set<std::string>{"fix1", "keep"}));
    EXPECT_EQ(kelvo::testing::readWholeFile(at("pre/keep")), "kept");
    EXPECT_EQ(kelvo::testing::readWholeFile(at("prefix1")), "sibling");
}

// ---- the directory's life ------------------------------------------------------------------

TEST_F(TemporaryDirectoryTest, APrefixedDirectoryIsCurrentForItsLifetimeAndThenDeleted)
{
    std::string made;
    {
        TemporaryDirectory temporary(String(U"kelvo-"), std::chrono::hours(1));
        made = getTemporaryDirectory().nativeString();
        EXPECT_EQ(temporary.get().nativeString(), made);
        EXPECT_EQ(Path(made).parentPath().nativeString(), scratch);
        EXPECT_TRUE(isNumberedName(Path(made).filename().nativeString(), "kelvo-")) << made;
        struct stat st;
        ASSERT_EQ(::stat(made.c_str(), &st), 0);
        EXPECT_TRUE(S_ISDIR(st.st_mode));
        writeFile(Path(made).filename().nativeString() + "/content", "x");
        ASSERT_EQ(::mkdir((made + "/sub").c_str(), 0755), 0);
        writeFile(Path(made).filename().nativeString() + "/sub/deeper", "y");
    }
    EXPECT_FALSE(existsByDirectProbe(made));
    EXPECT_EQ(getTemporaryDirectory().nativeString(), scratch);
    EXPECT_EQ(nameSetIn(scratch), std::set<std::string>{});
}

TEST_F(TemporaryDirectoryTest, NestedDirectoriesAreMadeInsideEachOther)
{
    std::string outerMade;
    {
        TemporaryDirectory outer(String(U"outer-"), std::chrono::hours(1));
        outerMade = outer.get().nativeString();
        {
            TemporaryDirectory inner(String(U"inner-"), std::chrono::hours(1));
            std::string const innerMade = inner.get().nativeString();
            EXPECT_EQ(Path(innerMade).parentPath().nativeString(), outerMade);
            EXPECT_EQ(outer.get().nativeString(), innerMade) << "get() answers the innermost";
            EXPECT_TRUE(existsByDirectProbe(innerMade));
        }
        EXPECT_EQ(getTemporaryDirectory().nativeString(), outerMade);
        EXPECT_EQ(nameSetIn(outerMade), std::set<std::string>{});
    }
    EXPECT_FALSE(existsByDirectProbe(outerMade));
    EXPECT_EQ(getTemporaryDirectory().nativeString(), scratch);
}

TEST_F(TemporaryDirectoryTest, AGivenDirectoryIsCreatedWithItsParentsAndDeletedToo)
{
    std::string const given = at("a/b/c");
    {
        TemporaryDirectory temporary{Path(given)};
        EXPECT_EQ(getTemporaryDirectory().nativeString(), given);
        EXPECT_TRUE(existsByDirectProbe(given));
        writeFile("a/b/c/file", "x");
    }
    EXPECT_FALSE(existsByDirectProbe(given));
    EXPECT_TRUE(existsByDirectProbe(at("a/b"))) << "only the given directory is deleted";
}

TEST_F(TemporaryDirectoryTest, AnExistingGivenDirectoryIsDeletedWithItsContents)
{
    makeDirectory("mine");
    writeFile("mine/precious", "x");
    {
        TemporaryDirectory temporary{Path(at("mine"))};
    }
    EXPECT_FALSE(existsByDirectProbe(at("mine")));
}

TEST_F(TemporaryDirectoryTest, TheDestructorDeletesWhateverIsCurrent)
{
    // Objects that are not strictly nested: the first one's destructor
    // deletes the directory the second one pushed, and takes its place.
    makeDirectory("first");
    makeDirectory("second");
    auto* first = new TemporaryDirectory(Path(at("first")));
    auto* second = new TemporaryDirectory(Path(at("second")));
    delete first;
    EXPECT_FALSE(existsByDirectProbe(at("second")));
    EXPECT_TRUE(existsByDirectProbe(at("first")));
    EXPECT_EQ(getTemporaryDirectory().nativeString(), at("first"));
    delete second;
    EXPECT_FALSE(existsByDirectProbe(at("first")));
}

TEST_F(TemporaryDirectoryTest, WithTheStackPoppedTheDestructorDeletesTheSystemDirectory)
{
    // Deliberately kept: when other code has popped its entry, the destructor
    // deletes the operating system's temporary directory. Here that is a
    // directory of the scratch area named by TMPDIR in a child process.
    makeDirectory("system-tmp");
    writeFile("system-tmp/someone-elses", "x");
    makeDirectory("given");
    std::string const systemTemporary = at("system-tmp");
    std::string const given = at("given");
    int const status = runInChild([&] {
        ::setenv("TMPDIR", systemTemporary.c_str(), 1);
        restoreTemporaryDirectoryInternal(); // the scratch override of SetUp
        {
            TemporaryDirectory temporary{Path(given)};
            restoreTemporaryDirectoryInternal();
        }
        return firstFailure({!existsByDirectProbe(systemTemporary), existsByDirectProbe(given),
                             !restoreTemporaryDirectoryInternal()});
    });
    EXPECT_EQ(status, 0);
}

// ---- the sweep ------------------------------------------------------------------------------

TEST_F(TemporaryDirectoryTest, OldLeftoversWithThePrefixAreSwept)
{
    makeDirectory("app-old-dir");
    writeFile("app-old-dir/inside", "x");
    writeFile("app-old-file", "x");
    makeDirectory("app-young");
    makeDirectory("other-old");
    writeFile("xapp-old", "x");
    for (char const* name : {"app-old-dir", "app-old-file", "other-old", "xapp-old"})
        ASSERT_TRUE(setAge(at(name), 7200LL * 1000000)) << name;
    ASSERT_TRUE(setAge(at("app-young"), 60LL * 1000000));
    std::string made;
    {
        TemporaryDirectory temporary(String(U"app-"), std::chrono::hours(1));
        made = Path(temporary.get().nativeString()).filename().nativeString();
        EXPECT_EQ(nameSetIn(scratch), (std::set<std::string>{"app-young", "other-old", "xapp-old", made}));
    }
    EXPECT_EQ(nameSetIn(scratch), (std::set<std::string>{"app-young", "other-old", "xapp-old"}));
}

TEST_F(TemporaryDirectoryTest, AgesAreComparedToTheMicrosecond)
{
    // 10 s and 1 µs is older than 10 s (a comparison in whole seconds would
    // keep it); 9.5 s is younger.
    makeDirectory("job-just-over");
    makeDirectory("job-under");
    ASSERT_TRUE(setAge(at("job-just-over"), 10000001));
    ASSERT_TRUE(setAge(at("job-under"), 9500000));
    {
        TemporaryDirectory temporary(String(U"job-"), microseconds(10000000));
        EXPECT_FALSE(existsByDirectProbe(at("job-just-over")));
        EXPECT_TRUE(existsByDirectProbe(at("job-under")));
    }
    EXPECT_TRUE(existsByDirectProbe(at("job-under")));
}

TEST_F(TemporaryDirectoryTest, ALimitOfZeroSweepsEverythingWithThePrefixButFutureEntries)
{
    makeDirectory("z-now");
    makeDirectory("z-future");
    ASSERT_TRUE(setAge(at("z-now"), 1000));
    ASSERT_TRUE(setAge(at("z-future"), -3600LL * 1000000));
    {
        TemporaryDirectory temporary(String(U"z-"), microseconds(0));
        EXPECT_FALSE(existsByDirectProbe(at("z-now")));
        EXPECT_TRUE(existsByDirectProbe(at("z-future")));
    }
}

TEST_F(TemporaryDirectoryTest, ThePrefixIsAGlobPattern)
{
    // "?" in the prefix matches any one character, and "." any character.
    makeDirectory("a1-old");
    makeDirectory("aX-old");
    makeDirectory("b1-old");
    for (char const* name : {"a1-old", "aX-old", "b1-old"})
        ASSERT_TRUE(setAge(at(name), 7200LL * 1000000));
    {
        TemporaryDirectory temporary(String(U"a?-"), std::chrono::hours(1));
    }
    EXPECT_EQ(nameSetIn(scratch), (std::set<std::string>{"b1-old"}));
}

TEST_F(TemporaryDirectoryTest, AnInvalidPatternThrowsAndLeavesNothingPushedOrMade)
{
    makeDirectory("(old");
    ASSERT_TRUE(setAge(at("(old"), 7200LL * 1000000));
    EXPECT_THROW(TemporaryDirectory(String(U"("), std::chrono::hours(1)), std::regex_error);
    EXPECT_EQ(getTemporaryDirectory().nativeString(), scratch);
    EXPECT_EQ(nameSetIn(scratch), (std::set<std::string>{"(old"}));
}

TEST_F(TemporaryDirectoryTest, AMissingBaseIsCreatedWithTheDirectory)
{
    std::string const base = at("not/yet");
    setTemporaryDirectoryInternal(Path(base));
    std::string made;
    {
        TemporaryDirectory temporary(String(U"p-"), std::chrono::hours(1));
        made = temporary.get().nativeString();
        EXPECT_EQ(Path(made).parentPath().nativeString(), base);
        EXPECT_TRUE(existsByDirectProbe(made));
    }
    EXPECT_FALSE(existsByDirectProbe(made));
    EXPECT_TRUE(restoreTemporaryDirectoryInternal());
}

} // namespace
