// Tests of sanitize and toDos8Dot3: the character sets, the filtering and truncation rules, and the "~N" numbering against files that exist.
#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>

#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include <unistd.h>

namespace {

using kelvo::filesystem::Path;
using kelvo::unicode::String;
namespace fs = kelvo::filesystem;

std::string sanitized(char const* text) { return fs::sanitize(Path(text)).string().toUTF8String(); }

// ---- sanitize --------------------------------------------------------------------

TEST(Sanitize, ReplacesUnsafeCharactersOneForOne)
{
    // The accent of the decomposed "é" becomes "_" after the kept "e".
    EXPECT_EQ(sanitized("/tmp/a+b/c:d \xC3\xA9.txt"), "/tmp/a_b/c_d e_.txt");
    EXPECT_EQ(fs::sanitize(Path("/tmp/a+b/c:d \xC3\xA9.txt")).length(), Path("/tmp/a+b/c:d \xC3\xA9.txt").length());
}

TEST(Sanitize, KeepsEveryAllowedCharacter)
{
    char const* allowed = "/Az09/ !#$&'()-@^_`{}~./x";
    EXPECT_EQ(sanitized(allowed), allowed);
    EXPECT_TRUE(fs::sanitize(Path(allowed)) == Path(allowed));
    EXPECT_TRUE(fs::sanitize(Path()).empty());
}

TEST(Sanitize, ReplacesEverythingElse)
{
    EXPECT_EQ(sanitized("a*b?c\"d<e>f|g%h,i;j=k[l]m+n"), "a_b_c_d_e_f_g_h_i_j_k_l_m_n");
    EXPECT_EQ(sanitized("tab\there"), "tab_here");
    EXPECT_EQ(sanitized("\xE4\xB8\xAD\xE6\x96\x87"), "__");
    // A backslash is already "/" in a path.
    EXPECT_EQ(sanitized("a\\b"), "a/b");
    EXPECT_EQ(fs::sanitize(Path(std::string("a\xFF"))).string().toUTF8String(), "a_");
}

// ---- toDos8Dot3 ------------------------------------------------------------------

class Dos8Dot3 : public kelvo::testing::ScratchDirectory {
protected:
    std::string shortName(std::string const& name) const
    {
        return fs::toDos8Dot3(Path(at(name))).string().toUTF8String();
    }
    std::string expected(std::string const& name) const { return at(name); }
};

TEST_F(Dos8Dot3, WorkedNames)
{
    ASSERT_EQ(::chdir(scratch.c_str()), 0);
    EXPECT_EQ(fs::toDos8Dot3(Path("dir/report.txt")).string().toUTF8String(), "dir/REPORT.TXT");
    EXPECT_EQ(fs::toDos8Dot3(Path("My Document.html")).string().toUTF8String(), "MYDOCU~1.HTM");
    EXPECT_EQ(fs::toDos8Dot3(Path("archive.tar.gz")).string().toUTF8String(), "ARCHIV~1.GZ");
    EXPECT_EQ(fs::toDos8Dot3(Path(".bashrc")).string().toUTF8String(), "FILE.BAS");
    EXPECT_EQ(fs::toDos8Dot3(Path("notes.")).string().toUTF8String(), "NOTES");
    EXPECT_EQ(fs::toDos8Dot3(Path("a+b.c")).string().toUTF8String(), "AB.C");
    EXPECT_EQ(fs::toDos8Dot3(Path("~$tmp")).string().toUTF8String(), "~$TMP");
    EXPECT_EQ(fs::toDos8Dot3(Path("dir/")).string().toUTF8String(), "dir/FILE");
    EXPECT_EQ(fs::toDos8Dot3(Path("a/..")).string().toUTF8String(), "a/FILE");
    EXPECT_EQ(fs::toDos8Dot3(Path("\xC3\xA9.txt")).string().toUTF8String(), "E.TXT");
}

TEST_F(Dos8Dot3, NamesWithNothingKeptBecomeFile)
{
    ASSERT_EQ(::chdir(scratch.c_str()), 0);
    EXPECT_EQ(fs::toDos8Dot3(Path("...")).string().toUTF8String(), "FILE");
    EXPECT_EQ(fs::toDos8Dot3(Path("   ")).string().toUTF8String(), "FILE");
    EXPECT_EQ(fs::toDos8Dot3(Path("\xE4\xB8\xAD\xE6\x96\x87")).string().toUTF8String(), "FILE");
    EXPECT_EQ(fs::toDos8Dot3(Path("")).string().toUTF8String(), "FILE");
    EXPECT_EQ(fs::toDos8Dot3(Path(". .txt")).string().toUTF8String(), "FILE.TXT");
}

TEST_F(Dos8Dot3, FilteringRules)
{
    ASSERT_EQ(::chdir(scratch.c_str()), 0);
    // Only the rightmost dot with something kept after it survives.
    EXPECT_EQ(fs::toDos8Dot3(Path("a.b.")).string().toUTF8String(), "A.B");
    EXPECT_EQ(fs::toDos8Dot3(Path("a.b. ")).string().toUTF8String(), "A.B");
    EXPECT_EQ(fs::toDos8Dot3(Path("x.+")).string().toUTF8String(), "X");
    EXPECT_EQ(fs::toDos8Dot3(Path("a,b;c=d[e]f.g")).string().toUTF8String(), "ABCDEF.G");
    EXPECT_EQ(fs::toDos8Dot3(Path("!#$&'()-.@^_")).string().toUTF8String(), "!#$&'()-.@^_");
    EXPECT_EQ(fs::toDos8Dot3(Path("12345678.abc")).string().toUTF8String(), "12345678.ABC");
    EXPECT_EQ(fs::toDos8Dot3(Path("123456789.abcd")).string().toUTF8String(), "123456~1.ABC");
    // The parent is used as it is, not shortened.
    EXPECT_EQ(fs::toDos8Dot3(Path("Long Directory Name/x.y")).string().toUTF8String(), "Long Directory Name/X.Y");
}

TEST_F(Dos8Dot3, ExistingNamesAreNumbered)
{
    EXPECT_EQ(shortName("report.txt"), expected("REPORT.TXT"));
    writeFile("REPORT.TXT");
    EXPECT_EQ(shortName("report.txt"), expected("REPORT~1.TXT"));
    writeFile("REPORT~1.TXT");
    EXPECT_EQ(shortName("report.txt"), expected("REPORT~2.TXT"));
}

TEST_F(Dos8Dot3, AShortBaseIsPaddedBeforeTheSuffix)
{
    writeFile("A.TXT");
    EXPECT_EQ(shortName("a.txt"), expected("A_____~1.TXT"));
    writeFile("FILE");
    EXPECT_EQ(shortName("..."), expected("FILE__~1"));
}

TEST_F(Dos8Dot3, NumberingAfterTruncationStartsFromOne)
{
    EXPECT_EQ(shortName("My Document.html"), expected("MYDOCU~1.HTM"));
    writeFile("MYDOCU~1.HTM");
    EXPECT_EQ(shortName("My Document.html"), expected("MYDOCU~2.HTM"));
}

TEST_F(Dos8Dot3, TheSuffixGrowsIntoTheBase)
{
    writeFile("REPORT.TXT");
    for (int i = 1; i <= 9; ++i)
        writeFile("REPORT~" + std::to_string(i) + ".TXT");
    EXPECT_EQ(shortName("report.txt"), expected("REPOR~10.TXT"));
    // A directory counts as an existing name too.
    ASSERT_EQ(::mkdir(at("REPOR~10.TXT").c_str(), 0777), 0);
    EXPECT_EQ(shortName("report.txt"), expected("REPOR~11.TXT"));
}

TEST_F(Dos8Dot3, TheParentsNativeFormIsKept)
{
    std::string const parent = at("b\xFF");
    ASSERT_EQ(::mkdir(parent.c_str(), 0777), 0);
    EXPECT_EQ(fs::toDos8Dot3(Path(parent + "/report.txt")).nativeString(), parent + "/REPORT.TXT");
    writeFile("b\xFF/REPORT.TXT");
    EXPECT_EQ(fs::toDos8Dot3(Path(parent + "/report.txt")).nativeString(), parent + "/REPORT~1.TXT");
}

TEST_F(Dos8Dot3, APathHoldingANulGivesTheFirstNameAtOnce)
{
    // The system reads a path up to its first NUL, so every candidate would
    // read as the existing scratch directory: such a candidate names no file
    // and is free at once.
    writeFile("NAME.TXT", "taken");
    std::string given = scratch;
    given.push_back('\0');
    given += "x/name.txt";
    std::string expected = scratch;
    expected.push_back('\0');
    expected += "x/NAME.TXT";
    auto const start = std::chrono::steady_clock::now();
    Path const shortName = fs::toDos8Dot3(Path(given));
    EXPECT_EQ(shortName.nativeString(), expected);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    // Beside an existing directory whose name holds no NUL, numbering still works.
    EXPECT_EQ(fs::toDos8Dot3(Path(at("name.txt"))).nativeString(), at("NAME__~1.TXT"));
}

} // namespace
