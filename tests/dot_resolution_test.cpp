// Tests of canonical, resolveDots, complete and systemComplete, on real directories with links, loops and closed directories.
#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>

#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::Path;
using kelvo::testing::kScratchUnreachable;
using kelvo::testing::unprivilegedSkipReason;
using kelvo::testing::runUnprivileged;
namespace fs = kelvo::filesystem;

/// The current directory as the system reports it.
std::string workingDirectory()
{
    char buffer[4096];
    return ::getcwd(buffer, sizeof buffer) ? std::string(buffer) : std::string();
}

class DotResolution : public kelvo::testing::ScratchDirectory {
protected:
    void makeDirectory(std::string const& name) const { ASSERT_EQ(::mkdir(at(name).c_str(), 0777), 0) << name; }
    void makeLink(std::string const& target, std::string const& name) const
    {
        ASSERT_EQ(::symlink(target.c_str(), at(name).c_str()), 0) << name;
    }
    void enterScratch() const { ASSERT_EQ(::chdir(scratch.c_str()), 0); }
};

// ---- canonical -----------------------------------------------------------------

TEST_F(DotResolution, CanonicalOfTheRootIsTheRoot)
{
    EXPECT_EQ(fs::canonical(Path("/")).nativeString(), "/");
}

TEST_F(DotResolution, CanonicalOfAPathWithAMissingElementIsEmpty)
{
    makeDirectory("d");
    EXPECT_TRUE(fs::canonical(Path(at("missing/d"))).empty());
    EXPECT_TRUE(fs::canonical(Path(at("d/missing"))).empty());
    EXPECT_TRUE(fs::canonical(Path(at("missing/../d"))).empty());
}

TEST_F(DotResolution, CanonicalResolvesLinksDotsAndDotDots)
{
    makeDirectory("d1");
    makeDirectory("d1/d2");
    writeFile("d1/d2/f", "x");
    makeLink(at("d1/d2"), "link");
    EXPECT_EQ(fs::canonical(Path(at("link/f"))).nativeString(), at("d1/d2/f"));
    EXPECT_EQ(fs::canonical(Path(at("link/../d2/./f"))).nativeString(), at("d1/d2/f"));
    EXPECT_EQ(fs::canonical(Path(at("d1//d2/"))).nativeString(), at("d1/d2"));
    enterScratch();
    EXPECT_EQ(fs::canonical(Path("link")).nativeString(), at("d1/d2"));
    EXPECT_EQ(fs::canonical(Path(".")).nativeString(), scratch);
    EXPECT_TRUE(fs::canonical(Path("")).empty());
}

TEST_F(DotResolution, CanonicalOfADanglingLinkOrALoopIsEmpty)
{
    makeLink(at("nowhere"), "dangling");
    makeLink(at("loop2"), "loop1");
    makeLink(at("loop1"), "loop2");
    EXPECT_TRUE(fs::canonical(Path(at("dangling"))).empty());
    EXPECT_TRUE(fs::canonical(Path(at("loop1"))).empty());
    EXPECT_TRUE(fs::canonical(Path(at("loop1/x"))).empty());
}

TEST_F(DotResolution, CanonicalBelowADirectoryWithoutSearchPermissionIsEmpty)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    makeDirectory("closed");
    makeDirectory("closed/inner");
    makeDirectory("open");
    ASSERT_EQ(::chmod(at("closed").c_str(), 0), 0);
    std::string const closedInner = at("closed/inner");
    std::string const open = at("open");
    std::string const closed = at("closed");
    int const result = runUnprivileged([&] {
        if (::access(open.c_str(), X_OK) != 0)
            return kScratchUnreachable;
        if (fs::canonical(Path(open)).nativeString() != open)
            return 1;
        if (!fs::canonical(Path(closedInner)).empty())
            return 2;
        if (fs::resolveDots(Path(closedInner + "/..")).nativeString() != closed)
            return 3;
        return 0;
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    EXPECT_EQ(result, 0) << "1: an open directory did not resolve, 2: a path below a closed directory resolved, "
                            "3: dot resolution below a closed directory did not fall back to text";
}

TEST_F(DotResolution, CanonicalKeepsTheBytesTheSystemReturned)
{
    // "é" decomposed on disk: the answer names this file, not an NFC twin.
    std::string const decomposed = "e\xCC\x81";
    writeFile(decomposed, "x");
    Path const result = fs::canonical(Path(at(decomposed)));
    EXPECT_EQ(result.nativeString(), at(decomposed));
    EXPECT_TRUE(fs::exists(result));
}

// ---- resolveDots ---------------------------------------------------------------

TEST_F(DotResolution, EmptyInputGivesAnEmptyPath)
{
    EXPECT_TRUE(fs::resolveDots(Path()).empty());
}

TEST_F(DotResolution, AMissingElementIsDroppedTextuallyByDotDot)
{
    struct stat st;
    ASSERT_NE(::stat("/kelvo-no-such-directory", &st), 0);
    ASSERT_NE(::stat("/b", &st), 0) << "this test needs \"/b\" to be missing";
    EXPECT_EQ(fs::resolveDots(Path("/kelvo-no-such-directory/../b")).string(), Path("/b").string());

    writeFile("b");
    EXPECT_EQ(fs::resolveDots(Path(at("missing/../b"))).nativeString(), at("b"));
    EXPECT_EQ(fs::resolveDots(Path(at("missing/../c"))).nativeString(), at("c"));
}

TEST_F(DotResolution, DotDotAfterAMissingRelativeNameLeavesNothing)
{
    enterScratch();
    EXPECT_TRUE(fs::resolveDots(Path("x/..")).empty());
    EXPECT_EQ(fs::resolveDots(Path("x/../")).string(), Path("/").string());
}

TEST_F(DotResolution, DotDotAfterAnExistingRelativeNameGivesTheRealCurrentDirectory)
{
    makeDirectory("real");
    makeDirectory("real/x");
    makeLink(at("real"), "alias");
    ASSERT_EQ(::chdir(at("alias").c_str()), 0);
    EXPECT_EQ(fs::resolveDots(Path("x/..")).nativeString(), at("real"));
}

TEST_F(DotResolution, DotDotRightAfterTheRootEmptiesTheResult)
{
    enterScratch();
    EXPECT_TRUE(fs::resolveDots(Path("/..")).empty());
    EXPECT_EQ(fs::resolveDots(Path("/../a")).string(), Path("a").string());
    writeFile("a");
    EXPECT_EQ(fs::resolveDots(Path("/../a")).nativeString(), at("a"));
}

TEST_F(DotResolution, ALeadingDotDotIsDropped)
{
    enterScratch();
    EXPECT_EQ(fs::resolveDots(Path("../a")).string(), Path("a").string());
    EXPECT_EQ(fs::resolveDots(Path("../../a/b")).string(), Path("a/b").string());
}

TEST_F(DotResolution, DotsAddNothing)
{
    enterScratch();
    EXPECT_EQ(fs::resolveDots(Path("./a/.")).string(), fs::resolveDots(Path("a")).string());
    EXPECT_EQ(fs::resolveDots(Path("./a/.")).string(), Path("a").string());
    writeFile("a");
    EXPECT_EQ(fs::resolveDots(Path("./a/.")).nativeString(), at("a"));
    EXPECT_EQ(fs::resolveDots(Path("a")).nativeString(), at("a"));
}

TEST_F(DotResolution, ATrailingSeparatorIsKeptButNotDoubled)
{
    EXPECT_EQ(fs::resolveDots(Path("/")).string(), Path("/").string());
    EXPECT_EQ(fs::resolveDots(Path(scratch + "/")).nativeString(), scratch + "/");
    EXPECT_EQ(fs::resolveDots(Path(at("missing/dir/"))).nativeString(), at("missing/dir/"));
    EXPECT_EQ(fs::resolveDots(Path(at("missing/dir/../"))).nativeString(), at("missing/"));
}

TEST_F(DotResolution, LinksAlongTheExistingPrefixAreResolved)
{
    makeDirectory("d1");
    makeDirectory("d1/d2");
    makeLink(at("d1/d2"), "link");
    // ".." after the link goes to the parent of its target.
    EXPECT_EQ(fs::resolveDots(Path(at("link/../f"))).nativeString(), at("d1/f"));
    EXPECT_EQ(fs::resolveDots(Path(at("link/new/../g"))).nativeString(), at("d1/d2/g"));
    enterScratch();
    EXPECT_EQ(fs::resolveDots(Path("link/x/y")).nativeString(), at("d1/d2/x/y"));
}

TEST_F(DotResolution, ADanglingLinkCountsAsMissing)
{
    makeLink(at("nowhere"), "dangling");
    EXPECT_EQ(fs::resolveDots(Path(at("dangling/../x"))).nativeString(), at("x"));
    EXPECT_EQ(fs::resolveDots(Path(at("dangling/y"))).nativeString(), at("dangling/y"));
}

TEST_F(DotResolution, ALinkLoopCountsAsMissing)
{
    makeLink(at("loop2"), "loop1");
    makeLink(at("loop1"), "loop2");
    EXPECT_EQ(fs::resolveDots(Path(at("loop1/./z"))).nativeString(), at("loop1/z"));
}

TEST_F(DotResolution, ARelativeInputWithNothingOnDiskStaysRelative)
{
    enterScratch();
    EXPECT_EQ(fs::resolveDots(Path("p/q/../r/./s")).string(), Path("p/r/s").string());
}

// ---- complete and systemComplete -------------------------------------------------

TEST(Complete, FollowsItsRulesInOrder)
{
    EXPECT_TRUE(fs::complete(Path(""), Path("/base")).empty());
    EXPECT_EQ(fs::complete(Path("a"), Path("rel")).string(), Path("a").string());
    EXPECT_EQ(fs::complete(Path("/a"), Path("/base")).string(), Path("/a").string());
    EXPECT_EQ(fs::complete(Path("//srv/a"), Path("/base")).string(), Path("//srv/a").string());
    EXPECT_EQ(fs::complete(Path("//srv"), Path("/base")).string(), Path("//srv").string());
    EXPECT_EQ(fs::complete(Path("a/b"), Path("/base")).string(), Path("/base/a/b").string());
    EXPECT_EQ(fs::complete(Path("a/b"), Path("/base/")).string(), Path("/base/a/b").string());
    EXPECT_EQ(fs::complete(Path("a"), Path("")).string(), Path("a").string());
    EXPECT_EQ(fs::complete(Path("a"), Path("//srv")).string(), Path("a").string());
}

TEST(Complete, JoinsTheNativeForms)
{
    Path const base(std::string("/b\xFF"));
    Path const relative(std::string("e\xCC\x81\xFE"));
    EXPECT_EQ(fs::complete(relative, base).nativeString(), "/b\xFF/e\xCC\x81\xFE");
}

TEST_F(DotResolution, SystemCompleteUsesTheCurrentDirectory)
{
    EXPECT_EQ(fs::systemComplete(Path("/x")).string(), Path("/x").string());
    enterScratch();
    EXPECT_EQ(fs::systemComplete(Path("a/b")).nativeString(), scratch + "/a/b");
    EXPECT_TRUE(fs::systemComplete(Path("")).empty());
}

TEST_F(DotResolution, SystemCompleteLeavesThePathWhenTheCurrentDirectoryIsGone)
{
    makeDirectory("gone");
    ASSERT_EQ(::chdir(at("gone").c_str()), 0);
    ASSERT_EQ(::rmdir(at("gone").c_str()), 0);
    ASSERT_TRUE(workingDirectory().empty()) << "the system still names a removed working directory";
    EXPECT_EQ(fs::systemComplete(Path("a")).string(), Path("a").string());
    EXPECT_EQ(fs::systemComplete(Path("/x")).string(), Path("/x").string());
}

} // namespace
