// Tests of the path length limits and checks, with limits read from the system at run time and names of 255 and 256 bytes on disk.
#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>

#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::Path;
namespace fs = kelvo::filesystem;

constexpr long kLargest = 2147483647;

/// The path limit the library should report, worked out here from what the
/// system answers now.
std::int32_t expectedPathLimit()
{
    long const p = ::pathconf("/", _PC_PATH_MAX);
    return p > kLargest ? 32767 : static_cast<std::int32_t>(p);
}

std::int32_t expectedNameLimit(char const* directory)
{
    long const n = ::pathconf(directory, _PC_NAME_MAX);
    return n > kLargest ? 255 : static_cast<std::int32_t>(n);
}

/// @returns an absolute path of exactly `length` bytes below a directory that
/// does not exist, made of short elements so that no name is too long.
std::string pathOfLength(std::size_t length)
{
    std::string path = "/kelvo-no-such-directory";
    while (path.size() + 13 <= length)
        path += "/abcdefghij";
    path += "/";
    path.append(length - path.size(), 'z');
    return path;
}

class PathLimits : public kelvo::testing::ScratchDirectory {
protected:
    void SetUp() override
    {
        ScratchDirectory::SetUp();
        pathLimit = expectedPathLimit();
        ASSERT_GT(pathLimit, 100) << "this system sets no usable path limit";
        nameLimit = expectedNameLimit(scratch.c_str());
        ASSERT_GT(nameLimit, 0) << "this system sets no usable name limit";
    }

    std::int32_t pathLimit = 0;
    std::int32_t nameLimit = 0;
};

TEST_F(PathLimits, LimitsAreWhatTheSystemAnswers)
{
    EXPECT_EQ(fs::getMaxNativeStringPathLength(), pathLimit);
    EXPECT_EQ(fs::getMaxNativeStringDirectoryLength(), pathLimit - 25);
    EXPECT_EQ(fs::getMaxNativeStringNameLength(Path(at("x"))), nameLimit);
    EXPECT_EQ(fs::getMaxNativeStringNameLength(Path("/tmp/x")), expectedNameLimit("/tmp"));
    EXPECT_EQ(fs::getMaxNativeStringNameLength(Path("/")), expectedNameLimit("/"));
}

TEST_F(PathLimits, AMissingDirectoryOrASingleRelativeNameTakesTheRootsNameLimit)
{
    EXPECT_EQ(fs::getMaxNativeStringNameLength(Path("a")), expectedNameLimit("/"));
    EXPECT_EQ(fs::getMaxNativeStringNameLength(Path(at("missing/x"))), expectedNameLimit("/"));
    EXPECT_EQ(fs::getMaxNativeStringNameLength(Path()), expectedNameLimit("/"));
}

TEST_F(PathLimits, NameLimitOfADirectoryWithASmallerLimitIsItsOwn)
{
    // /proc reports its own name limit on Linux; elsewhere the test says so.
    long const proc = ::pathconf("/proc", _PC_NAME_MAX);
    if (proc <= 0)
        GTEST_SKIP() << "no /proc here to compare with";
    EXPECT_EQ(fs::getMaxNativeStringNameLength(Path("/proc/x")), expectedNameLimit("/proc"));
}

TEST_F(PathLimits, SetUseLongPathNamesChangesNothing)
{
    std::int32_t const before = fs::getMaxNativeStringPathLength();
    fs::setUseLongPathNames(true);
    EXPECT_EQ(fs::getMaxNativeStringPathLength(), before);
    EXPECT_EQ(fs::getMaxNativeStringDirectoryLength(), before - 25);
    fs::setUseLongPathNames(false);
    EXPECT_EQ(fs::getMaxNativeStringPathLength(), before);
}

TEST_F(PathLimits, FirstCheckAdmitsTheDirectoryLimitAndNoMore)
{
    std::size_t const limit = static_cast<std::size_t>(pathLimit - 25);
    std::string const fits = pathOfLength(limit);
    std::string const tooLong = pathOfLength(limit + 1);
    ASSERT_EQ(fits.size(), limit);
    ASSERT_EQ(tooLong.size(), limit + 1);
    EXPECT_TRUE(fs::isValidPathLengthC(Path(fits), false, false));
    EXPECT_TRUE(fs::isValidPathLengthC(Path(fits), true, false));
    EXPECT_FALSE(fs::isValidPathLengthC(Path(tooLong), false, false));
    EXPECT_FALSE(fs::isValidPathLengthC(Path(tooLong), false, true));
    EXPECT_FALSE(fs::isValidPathLength(Path(tooLong)));
}

TEST_F(PathLimits, APathLongerThanThePathLimitIsInvalid)
{
    std::string const path = pathOfLength(static_cast<std::size_t>(pathLimit) + 100);
    EXPECT_FALSE(fs::isValidPathLength(Path(path)));
    EXPECT_FALSE(fs::isValidDirectoryPathLength(Path(path)));
    EXPECT_FALSE(fs::isValidPathLengthC(Path(path), false, true));
}

TEST_F(PathLimits, NameOfTheLimitIsValidAndOneByteMoreIsNot)
{
    std::string const longest(static_cast<std::size_t>(nameLimit), 'n');
    std::string const oneMore(static_cast<std::size_t>(nameLimit) + 1, 'n');
    EXPECT_TRUE(fs::isValidPathLength(Path(at(longest))));
    EXPECT_FALSE(fs::isValidPathLength(Path(at(oneMore))));
    EXPECT_TRUE(fs::isValidDirectoryPathLength(Path(at(longest))));
    EXPECT_FALSE(fs::isValidDirectoryPathLength(Path(at(oneMore))));
    // What the system itself accepts agrees.
    EXPECT_EQ(::mkdir(at(longest).c_str(), 0777), 0);
    EXPECT_NE(::mkdir(at(oneMore).c_str(), 0777), 0);
}

TEST_F(PathLimits, NamesAreCountedInBytes)
{
    // Each "é" typed composed is two bytes of UTF-8 but one character.
    std::string name;
    while (name.size() + 2 <= static_cast<std::size_t>(nameLimit))
        name += "\xC3\xA9";
    std::string const oneMore = name + "\xC3\xA9";
    EXPECT_TRUE(fs::isValidPathLength(Path(at(name))));
    EXPECT_FALSE(fs::isValidPathLength(Path(at(oneMore))));
}

TEST_F(PathLimits, TheWalkChecksEveryNewName)
{
    std::string const longName(300, 'L');
    Path const path(at("a/" + longName + "/b"));
    EXPECT_FALSE(fs::isValidPathLengthC(path, false, false));
    // With the parent taken as existing, only "b" is new.
    EXPECT_TRUE(fs::isValidPathLengthC(path, false, true));
    // Checking the parent finds it missing and walks up to the long name.
    EXPECT_FALSE(fs::isValidPathLengthC(path, true, true));
    EXPECT_FALSE(fs::isValidPathLength(path));
    // Names that exist are taken as valid: the walk stops at an existing one.
    EXPECT_TRUE(fs::isValidPathLength(Path(at("a/b/c/d"))));
}

TEST_F(PathLimits, AnExistingParentIsMeasuredThroughItsLinks)
{
    // A deep directory reached through a short link: the apparent path is
    // short, the real one too long for one more name.
    std::string deep = scratch;
    std::string const element(200, 'd');
    std::size_t const target = static_cast<std::size_t>(pathLimit) - 90;
    while (deep.size() + 1 + element.size() < target) {
        deep += "/" + element;
        ASSERT_EQ(::mkdir(deep.c_str(), 0777), 0);
    }
    std::string const rest(target - deep.size() - 1, 'r');
    deep += "/" + rest;
    ASSERT_EQ(::mkdir(deep.c_str(), 0777), 0);
    ASSERT_EQ(deep.size(), target);
    ASSERT_EQ(::symlink(deep.c_str(), at("l").c_str()), 0);

    std::string const name(100, 'n');
    // The real path is target + 1 + 100 bytes, above the directory limit.
    EXPECT_FALSE(fs::isValidPathLength(Path(at("l/" + name))));
    EXPECT_FALSE(fs::isValidDirectoryPathLength(Path(at("l/" + name))));
    EXPECT_TRUE(fs::isValidPathLength(Path(at("l/short"))));
    EXPECT_TRUE(fs::isValidDirectoryPathLength(Path(at("l/short"))));
    // Without looking at the parent, only the apparent length counts.
    EXPECT_TRUE(fs::isValidPathLengthC(Path(at("l/" + name)), false, true));
}

TEST_F(PathLimits, DirectoryCheckOfOrdinaryPaths)
{
    EXPECT_TRUE(fs::isValidDirectoryPathLength(Path(at("new"))));
    EXPECT_TRUE(fs::isValidDirectoryPathLength(Path(at("missing/new"))));
    EXPECT_TRUE(fs::isValidDirectoryPathLength(Path("relative")));
    EXPECT_TRUE(fs::isValidDirectoryPathLength(Path("/")));
    EXPECT_TRUE(fs::isValidPathLength(Path()));
}

} // namespace
