// Tests of file and tree comparison: sizes, blocks, unopenable files, and names compared as paths, also where their ordering is not strict weak.
#include <kelvo/filesystem.h>

#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::Path;
using namespace kelvo::testing;
namespace fs = kelvo::filesystem;

class FileComparison : public ScratchDirectory {
protected:
    void makeDirectory(std::string const& name) { ASSERT_EQ(::mkdir(at(name).c_str(), 0777), 0) << name; }
    Path path(std::string const& name) const { return Path(at(name)); }
};

// ---- compareFiles -------------------------------------------------------------------

TEST_F(FileComparison, EqualSizesDifferingInTheLastByteAreUnequal)
{
    writeFile("a", "abcdef");
    writeFile("b", "abcdeg");
    EXPECT_FALSE(fs::compareFiles(path("a"), path("b")));
}

TEST_F(FileComparison, TwoEmptyFilesAreEqual)
{
    writeFile("a", "");
    writeFile("b", "");
    EXPECT_TRUE(fs::compareFiles(path("a"), path("b")));
}

TEST_F(FileComparison, SizesOf1024And1025AreUnequal)
{
    writeFile("a", std::string(1024, 'x'));
    writeFile("b", std::string(1025, 'x'));
    EXPECT_FALSE(fs::compareFiles(path("a"), path("b")));
}

TEST_F(FileComparison, Two2048ByteFilesAreEqual)
{
    writeFile("a", std::string(2048, 'q'));
    writeFile("b", std::string(2048, 'q'));
    EXPECT_TRUE(fs::compareFiles(path("a"), path("b")));
}

TEST_F(FileComparison, LargeFilesCompareAcrossManyBlocks)
{
    std::string content(3 * 1024 * 1024 + 17, '\0');
    std::mt19937 random(7);
    for (char& c : content)
        c = static_cast<char>(random());
    writeFile("a", content);
    writeFile("b", content);
    EXPECT_TRUE(fs::compareFiles(path("a"), path("b")));
    content[content.size() - 1] ^= 1;
    writeFile("c", content);
    EXPECT_FALSE(fs::compareFiles(path("a"), path("c")));
    content[content.size() - 1] ^= 1;
    content[300000] ^= 0x40;
    writeFile("d", content);
    EXPECT_FALSE(fs::compareFiles(path("a"), path("d")));
}

TEST_F(FileComparison, TwoMissingPathsAreEqualButOneMissingIsNot)
{
    writeFile("a", "a");
    EXPECT_TRUE(fs::compareFiles(path("missing1"), path("missing2")));
    EXPECT_FALSE(fs::compareFiles(path("missing1"), path("a")));
    EXPECT_FALSE(fs::compareFiles(path("a"), path("missing1")));
}

TEST_F(FileComparison, DirectoriesOfEqualSizeCompareEqualAsFiles)
{
    makeDirectory("d1");
    makeDirectory("d2");
    ASSERT_EQ(fs::fileSize(path("d1")), fs::fileSize(path("d2")));
    EXPECT_TRUE(fs::compareFiles(path("d1"), path("d2")));
}

TEST_F(FileComparison, FilesThatCannotBeOpenedCountAsEqualOnceSizesAgree)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    writeFile("a", "one");
    writeFile("b", "two");
    ASSERT_EQ(::chmod(at("a").c_str(), 0), 0);
    ASSERT_EQ(::chmod(at("b").c_str(), 0644), 0);
    std::string const a = at("a");
    std::string const b = at("b");
    int const result = runUnprivileged([&] {
        return firstFailure({fs::compareFiles(Path(a), Path(b)), fs::compareFiles(Path(b), Path(a))});
    });
    if (result == kCannotDropPrivileges)
        GTEST_SKIP() << "cannot switch to an unprivileged user here";
    EXPECT_EQ(result, 0);
}

TEST_F(FileComparison, FilesWhoseStatusReportsNoSizeAreReadToTheirEnd)
{
    if (fs::fileSize(Path("/proc/self/stat")) != 0 || fs::fileSize(Path("/proc/self/status")) != 0)
        GTEST_SKIP() << "no /proc files of reported size 0 here";
    EXPECT_FALSE(fs::compareFiles(Path("/proc/self/stat"), Path("/proc/self/status")));
    EXPECT_TRUE(fs::compareFiles(Path("/proc/self/cmdline"), Path("/proc/self/cmdline")));
}

TEST_F(FileComparison, PathWithANulByteIsTakenAsMissing)
{
    writeFile("a", "same size 1");
    writeFile("b", "same size 2");
    makeDirectory("d");
    makeDirectory("e");
    std::string aThenNul = at("a");
    aThenNul.push_back('\0');
    aThenNul += "x";
    std::string dThenNul = at("d");
    dThenNul.push_back('\0');
    // Not the file before the NUL: a missing file against an existing one.
    EXPECT_FALSE(fs::compareFiles(Path(aThenNul), path("b")));
    EXPECT_FALSE(fs::compareFiles(path("b"), Path(aThenNul)));
    // Two missing files compare equal, as always.
    EXPECT_TRUE(fs::compareFiles(Path(aThenNul), Path(aThenNul)));
    EXPECT_FALSE(fs::compareDirectories(Path(dThenNul), path("e")));
    EXPECT_FALSE(fs::compareDirectories(path("e"), Path(dThenNul)));
}

TEST_F(FileComparison, LinksAreComparedAsWhatTheyName)
{
    writeFile("a", "same");
    writeFile("b", "same");
    ASSERT_EQ(::symlink(at("a").c_str(), at("link").c_str()), 0);
    EXPECT_TRUE(fs::compareFiles(path("link"), path("b")));
}

// ---- compareDirectories -----------------------------------------------------------

TEST_F(FileComparison, MissingDirectoryIsUnequal)
{
    makeDirectory("d");
    EXPECT_FALSE(fs::compareDirectories(path("d"), path("missing")));
    EXPECT_FALSE(fs::compareDirectories(path("missing"), path("d")));
    EXPECT_FALSE(fs::compareDirectories(path("missing"), path("missing")));
}

TEST_F(FileComparison, TwoEmptyDirectoriesAndTwoFilesAreEqual)
{
    makeDirectory("d1");
    makeDirectory("d2");
    writeFile("f1", "different");
    writeFile("f2", "contents");
    EXPECT_TRUE(fs::compareDirectories(path("d1"), path("d2")));
    EXPECT_TRUE(fs::compareDirectories(path("f1"), path("f2")));
}

TEST_F(FileComparison, SameNamesMadeInDifferentOrdersAreEqual)
{
    makeDirectory("a");
    makeDirectory("b");
    std::vector<std::string> names = {"one", "two", "three", "four", "five", "six", "seven", "eight"};
    for (std::string const& name : names)
        writeFile("a/" + name, name);
    std::reverse(names.begin(), names.end());
    for (std::string const& name : names)
        writeFile("b/" + name, name);
    makeDirectory("a/sub");
    makeDirectory("b/sub");
    writeFile("a/sub/x", "x");
    writeFile("b/sub/x", "x");
    EXPECT_TRUE(fs::compareDirectories(path("a"), path("b")));
}

TEST_F(FileComparison, FileAgainstDirectoryOfTheSameNameIsUnequal)
{
    makeDirectory("a");
    makeDirectory("b");
    writeFile("a/x", "");
    makeDirectory("b/x");
    EXPECT_FALSE(fs::compareDirectories(path("a"), path("b")));
}

TEST_F(FileComparison, OneExtraEntryIsUnequal)
{
    makeDirectory("a");
    makeDirectory("b");
    writeFile("a/x", "");
    writeFile("b/x", "");
    writeFile("b/y", "");
    EXPECT_FALSE(fs::compareDirectories(path("a"), path("b")));
    EXPECT_FALSE(fs::compareDirectories(path("b"), path("a")));
}

TEST_F(FileComparison, DifferingContentsDeepInTheTreeAreFound)
{
    makeDirectory("a");
    makeDirectory("a/s");
    makeDirectory("a/s/t");
    makeDirectory("b");
    makeDirectory("b/s");
    makeDirectory("b/s/t");
    writeFile("a/s/t/f", "1234");
    writeFile("b/s/t/f", "1235");
    EXPECT_FALSE(fs::compareDirectories(path("a"), path("b")));
    writeFile("b/s/t/f", "1234");
    EXPECT_TRUE(fs::compareDirectories(path("a"), path("b")));
}

TEST_F(FileComparison, NamesCompareAsPathsDoIgnoringCaseAndComposition)
{
    makeDirectory("a");
    makeDirectory("b");
    writeFile("a/Readme.TXT", "r");
    writeFile("b/readme.txt", "r");
    writeFile("a/R\xC3\xA9sum\xC3\xA9", "cv");
    writeFile("b/Re\xCC\x81sume\xCC\x81", "cv");
    EXPECT_TRUE(fs::compareDirectories(path("a"), path("b")));
    writeFile("b/Re\xCC\x81sume\xCC\x81", "CV");
    EXPECT_FALSE(fs::compareDirectories(path("a"), path("b")));
}

TEST_F(FileComparison, LinksInTheTreeAreComparedAsWhatTheyName)
{
    makeDirectory("a");
    makeDirectory("b");
    makeDirectory("target");
    writeFile("target/inside", "i");
    ASSERT_EQ(::symlink(at("target").c_str(), at("a/sub").c_str()), 0);
    makeDirectory("b/sub");
    writeFile("b/sub/inside", "i");
    EXPECT_TRUE(fs::compareDirectories(path("a"), path("b")));
    writeFile("b/sub/inside", "j");
    EXPECT_FALSE(fs::compareDirectories(path("a"), path("b")));
}

TEST_F(FileComparison, TreesOfTenThousandAdversarialNamesCompareEqualAndUnequal)
{
    makeDirectory("a");
    makeDirectory("b");
    std::vector<std::string> const names = adversarialNames(10000);
    for (std::string const& name : names)
        ASSERT_TRUE(writeWholeFile(at("a/" + name), name));
    for (auto it = names.rbegin(); it != names.rend(); ++it)
        ASSERT_TRUE(writeWholeFile(at("b/" + *it), *it));
    EXPECT_TRUE(fs::compareDirectories(path("a"), path("b")));
    ASSERT_TRUE(writeWholeFile(at("b/" + names[5000]), std::string(names[5000].size(), '#')));
    EXPECT_FALSE(fs::compareDirectories(path("a"), path("b")));
}

} // namespace
