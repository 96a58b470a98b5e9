// Tests of generateElidedPath: which elements are kept on each side, the strict length test, and the paths returned unchanged.
#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using kelvo::filesystem::Path;
using kelvo::unicode::String;

std::string elided(char const* path, unsigned long width, char const* ellipsis = "...")
{
    return kelvo::filesystem::generateElidedPath(Path(path), width, String(ellipsis)).toUTF8String();
}

TEST(ElidedPath, AShorterPathIsReturnedAsItIs)
{
    EXPECT_EQ(elided("/a/b/c", 7), "/a/b/c");
    EXPECT_EQ(elided("", 1), "");
    EXPECT_EQ(elided("", 0), "");
}

TEST(ElidedPath, APathOfExactlyTheWidthIsProcessed)
{
    EXPECT_EQ(elided("/a/b/c", 6), "/a/.../c");
}

TEST(ElidedPath, OneOrTwoElementsAreNeverShortened)
{
    EXPECT_EQ(elided("/averyveryverylongname", 3), "/averyveryverylongname");
    EXPECT_EQ(elided("averyveryverylongname", 3), "averyveryverylongname");
    EXPECT_EQ(elided("/a/b", 1), "/a/b");
    EXPECT_EQ(elided("/first/last", 2), "/first/last");
    EXPECT_EQ(elided("/", 0), "/");
}

TEST(ElidedPath, TheMiddleOfThreeElementsIsDropped)
{
    EXPECT_EQ(elided("/first/middle/last", 17), "/first/.../last");
    EXPECT_EQ(elided("/first/middle/last", 10), "/first/.../last");
}

TEST(ElidedPath, ARelativePathGetsNoLeadingSeparator)
{
    EXPECT_EQ(elided("first/middle/last", 10), "first/.../last");
}

TEST(ElidedPath, TheElementBeforeTheFileNameIsKeptFirst)
{
    // Room for one more element: the tail side is served first.
    EXPECT_EQ(elided("/r/a1/a2/a3/f", 12), "/r/.../a3/f");
    EXPECT_EQ(elided("/r/a1/a2/a3/f", 11), "/r/.../a3/f");
    EXPECT_EQ(elided("/r/a1/a2/a3/f", 10), "/r/.../f");
    // More room: both sides grow, the tail first, and once a side is closed
    // it drops what it takes even when the other still has room.
    EXPECT_EQ(elided("/r/a1/a2/a3/a4/f", 15), "/r/a1/.../a4/f");
    EXPECT_EQ(elided("/r/a1/a2/a3/a4/f", 14), "/r/a1/.../a4/f");
    EXPECT_EQ(elided("/r/a1/a2/a3/a4/f", 13), "/r/.../a4/f");
    EXPECT_EQ(elided("/r/aaaaaa/b/c/f", 13), "/r/.../b/c/f");
}

TEST(ElidedPath, HeadAndTailAloneMayExceedTheWidth)
{
    EXPECT_EQ(elided("/averyveryverylongfirst/middle/averyverylonglast", 10),
              "/averyveryverylongfirst/.../averyverylonglast");
}

TEST(ElidedPath, AnEmptyEllipsisLeavesTwoSeparators)
{
    EXPECT_EQ(elided("/first/middle/last", 5, ""), "/first//last");
}

TEST(ElidedPath, NothingDroppedReturnsTheTextUnchanged)
{
    // Repeated separators make the text longer than its elements need.
    EXPECT_EQ(elided("a//b//c", 7, ""), "a//b//c");
}

TEST(ElidedPath, LengthsAreCountedInCodePointsOfTheStoredText)
{
    // "é" is stored decomposed, two code points.
    EXPECT_EQ(elided("/\xC3\xA9/b/c", 8), "/e\xCC\x81/b/c");
    EXPECT_EQ(elided("/\xC3\xA9/b/c", 7), "/e\xCC\x81/.../c");
    EXPECT_EQ(elided("/a/bb/c", 7, "\xE2\x80\xA6"), "/a/\xE2\x80\xA6/c");
    EXPECT_EQ(elided("/a/b/c/d", 8, "\xE2\x80\xA6"), "/a/\xE2\x80\xA6/c/d");
}

TEST(ElidedPath, RootNamesAndTrailingSeparators)
{
    EXPECT_EQ(elided("//server/share/a/b", 5, "..."), "//server/.../b");
    // The trailing separator is an element "." of its own.
    EXPECT_EQ(elided("/first/middle/last/", 10), "/first/.../.");
}

} // namespace
