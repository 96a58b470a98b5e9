// Tests of directory creation: one level checked, one level bare, whole chains, modes under the umask, and paths that name no file.
#include <kelvo/filesystem.h>

#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::Path;
using namespace kelvo::testing;
namespace fs = kelvo::filesystem;

class DirectoryCreation : public ScratchDirectory {};

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

} // namespace
