// Tests of taking a path apart: root name and directory, root and relative paths, parent, file name, stem, extension, the absolute tests and replaceExtension.
#include <kelvo/filesystem/Path.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kelvo::filesystem::Path;
using kelvo::unicode::String;

String text(char const* utf8) { return String(std::string(utf8)); }

struct Row {
    char const* path;
    char const* rootName;
    char const* rootDirectory;
    char const* rootPath;
    char const* relativePath;
    char const* parentPath;
    char const* filename;
    char const* stem;
    char const* extension;
    bool isAbsolute;
    bool isComplete;
};

// One row per tricky spelling; results are compared exactly, code point for
// code point.
std::vector<Row> const kRows = {
    // path                     rootName    rootDir rootPath     relativePath    parentPath        filename   stem        extension  abs    complete
    {"",                        "",         "",     "",          "",             "",               "",        "",         "",        false, false},
    {"/",                       "",         "/",    "/",         "",             "",               "/",       "/",        "",        true,  true},
    {"a",                       "",         "",     "",          "a",            "",               "a",       "a",        "",        false, false},
    {"/a/b",                    "",         "/",    "/",         "a/b",          "/a",             "b",       "b",        "",        true,  true},
    {"/a",                      "",         "/",    "/",         "a",            "/",              "a",       "a",        "",        true,  true},
    {"a/b/",                    "",         "",     "",          "a/b/",         "a/b",            ".",       ".",        "",        false, false},
    {"a//b",                    "",         "",     "",          "a//b",         "a",              "b",       "b",        "",        false, false},
    {"//b",                     "//b",      "",     "//b",       "",             "/",              "b",       "b",        "",        true,  false},
    {"///a",                    "",         "/",    "/",         "a",            "/",              "a",       "a",        "",        true,  true},
    {"//server/share/x.txt",    "//server", "/",    "//server/", "share/x.txt",  "//server/share", "x.txt",   "x",        ".txt",    true,  true},
    {"//",                      "",         "/",    "/",         "",             "/",              ".",       ".",        "",        true,  true},
    {"a.tar.gz",                "",         "",     "",          "a.tar.gz",     "",               "a.tar.gz", "a.tar",   ".gz",     false, false},
    {".bashrc",                 "",         "",     "",          ".bashrc",      "",               ".bashrc", "",         ".bashrc", false, false},
    {"a.",                      "",         "",     "",          "a.",           "",               "a.",      "a",        "",        false, false},
    {"a..",                     "",         "",     "",          "a..",          "",               "a..",     "a.",       "",        false, false},
    {".",                       "",         "",     "",          ".",            "",               ".",       ".",        ".",       false, false},
    {"..",                      "",         "",     "",          "..",           "",               "..",      "..",       "",        false, false},
    {"x.d/f",                   "",         "",     "",          "x.d/f",        "x.d",            "f",       "f",        "",        false, false},
    {"a/..",                    "",         "",     "",          "a/..",         "a",              "..",      "..",       "",        false, false},
};

// Further spellings: repeated and trailing separators, case, backslashes and
// decomposed names.
std::vector<Row> const kMoreRows = {
    {"a\\b",                    "",         "",     "",          "a/b",          "a",              "b",       "b",        "",        false, false},
    {"a///b",                   "",         "",     "",          "a///b",        "a",              "b",       "b",        "",        false, false},
    {"a//",                     "",         "",     "",          "a//",          "a",              ".",       ".",        "",        false, false},
    {"/a/b//",                  "",         "/",    "/",         "a/b//",        "/a/b",           ".",       ".",        "",        true,  true},
    {"//server",                "//server", "",     "//server",  "",             "/",              "server",  "server",   "",        true,  false},
    {"//server/",               "//server", "/",    "//server/", "",             "//server",       ".",       ".",        "",        true,  true},
    {"//server//share",         "//server", "/",    "//server/", "share",        "//server",       "share",   "share",    "",        true,  true},
    {"\\\\server\\share",       "//server", "/",    "//server/", "share",        "//server",       "share",   "share",    "",        true,  true},
    {"/..",                     "",         "/",    "/",         "..",           "/",              "..",      "..",       "",        true,  true},
    {"./a",                     "",         "",     "",          "./a",          ".",              "a",       "a",        "",        false, false},
    {"Dir/File.TXT",            "",         "",     "",          "Dir/File.TXT", "Dir",            "File.TXT", "File",    ".TXT",    false, false},
    {"/x.y/z.",                 "",         "/",    "/",         "x.y/z.",       "/x.y",           "z.",      "z",        "",        true,  true},
    {"a/.b",                    "",         "",     "",          "a/.b",         "a",              ".b",      "",         ".b",      false, false},
    {"a/.",                     "",         "",     "",          "a/.",          "a",              ".",       ".",        "",        false, false},
    {"d\xC3\xA9j\xC3\xA0/\xC3\xA9t\xC3\xA9.caf\xC3\xA9",
                                "",         "",     "",          "de\xCC\x81ja\xCC\x80/e\xCC\x81te\xCC\x81.cafe\xCC\x81",
                                                                                 "de\xCC\x81ja\xCC\x80",
                                                                                                   "e\xCC\x81te\xCC\x81.cafe\xCC\x81",
                                                                                                              "e\xCC\x81te\xCC\x81",
                                                                                                                          ".cafe\xCC\x81",
                                                                                                                                     false, false},
};

void checkRow(Row const& row)
{
    SCOPED_TRACE(std::string("path \"") + row.path + "\"");
    Path const p(row.path);
    EXPECT_EQ(p.rootName().string(), text(row.rootName)) << "rootName";
    EXPECT_EQ(p.rootDirectory().string(), text(row.rootDirectory)) << "rootDirectory";
    EXPECT_EQ(p.rootPath().string(), text(row.rootPath)) << "rootPath";
    EXPECT_EQ(p.relativePath().string(), text(row.relativePath)) << "relativePath";
    EXPECT_EQ(p.parentPath().string(), text(row.parentPath)) << "parentPath";
    EXPECT_EQ(p.filename().string(), text(row.filename)) << "filename";
    EXPECT_EQ(p.stem().string(), text(row.stem)) << "stem";
    EXPECT_EQ(p.extension().string(), text(row.extension)) << "extension";
    EXPECT_EQ(p.isAbsolute(), row.isAbsolute) << "isAbsolute";
    EXPECT_EQ(p.isRelative(), !row.isAbsolute) << "isRelative";
    EXPECT_EQ(p.isComplete(), row.isComplete) << "isComplete";
    // Results are fresh paths whose native form matches their text.
    EXPECT_EQ(p.filename().nativeString(), Path(p.filename().string()).nativeString());
    // Taking a path apart leaves it as it was.
    EXPECT_EQ(p.string(), Path(row.path).string());
}

TEST(PathDecomposition, WorkedTable)
{
    for (Row const& row : kRows)
        checkRow(row);
}

TEST(PathDecomposition, FurtherSpellings)
{
    for (Row const& row : kMoreRows)
        checkRow(row);
}

TEST(PathDecomposition, ParentOfTrailingSeparatorIsThePathWithoutIt)
{
    EXPECT_EQ(Path("a/b/").parentPath().string(), String(U"a/b"));
    EXPECT_EQ(Path("a/b/").filename().string(), String(U"."));
}

TEST(PathDecomposition, ParentStripsEverySeparatorLeftButNeverALoneSlash)
{
    EXPECT_EQ(Path("a////b").parentPath().string(), String(U"a"));
    EXPECT_EQ(Path("/a//b").parentPath().string(), String(U"/a"));
    EXPECT_EQ(Path("////a").parentPath().string(), String(U"/"));
    EXPECT_EQ(Path("///a").parentPath().string(), String(U"/"));
    EXPECT_EQ(Path("/a").parentPath().string(), String(U"/"));
    EXPECT_EQ(Path("/").parentPath().string(), String());
}

TEST(PathDecomposition, StemAndExtensionDoNotAlwaysRebuildTheFilename)
{
    Path const dots("a..");
    EXPECT_EQ(dots.stem().string(), String(U"a."));
    EXPECT_EQ(dots.extension().string(), String());
    EXPECT_NE(dots.stem().string() + dots.extension().string(), dots.filename().string());
    Path const dot(".");
    EXPECT_EQ(dot.stem().string(), String(U"."));
    EXPECT_EQ(dot.extension().string(), String(U"."));
    EXPECT_EQ(dot.stem().string() + dot.extension().string(), String(U".."));
    Path const plain("a.tar.gz");
    EXPECT_EQ(plain.stem().string() + plain.extension().string(), plain.filename().string());
}

TEST(PathDecomposition, LetterCaseIsKeptInEveryResult)
{
    Path const p("//Server/Share/Dir/Name.Ext");
    EXPECT_EQ(p.rootName().string(), String(U"//Server"));
    EXPECT_EQ(p.relativePath().string(), String(U"Share/Dir/Name.Ext"));
    EXPECT_EQ(p.parentPath().string(), String(U"//Server/Share/Dir"));
    EXPECT_EQ(p.filename().string(), String(U"Name.Ext"));
    EXPECT_EQ(p.stem().string(), String(U"Name"));
    EXPECT_EQ(p.extension().string(), String(U".Ext"));
}

TEST(PathDecomposition, BackslashSplitsAsSlash)
{
    Path const p("a\\b");
    EXPECT_EQ(p.string(), String(U"a/b"));
    EXPECT_EQ(p.parentPath().string(), String(U"a"));
    EXPECT_EQ(p.filename().string(), String(U"b"));
    Path const deeper("\\x\\y.z");
    EXPECT_EQ(deeper.rootDirectory().string(), String(U"/"));
    EXPECT_EQ(deeper.parentPath().string(), String(U"/x"));
    EXPECT_EQ(deeper.extension().string(), String(U".z"));
}

TEST(PathDecomposition, ExtensionIsTakenFromTheWholeText)
{
    // A dot in a directory name never makes an extension.
    EXPECT_EQ(Path("dir.d/file").extension().string(), String());
    EXPECT_EQ(Path("dir.d/").extension().string(), String());
    EXPECT_EQ(Path("dir.d/.").extension().string(), String());
    EXPECT_EQ(Path("a/b.c").extension().string(), String(U".c"));
}

TEST(PathDecomposition, DecompositionResultsAreDecomposedText)
{
    Path const p("\xC3\x89T\xC3\x89/\xC3\xA9t\xC3\xA9.\xC3\xA9");
    EXPECT_EQ(p.parentPath().string(), String(U"E\u0301TE\u0301"));
    EXPECT_EQ(p.filename().string(), String(U"e\u0301te\u0301.e\u0301"));
    EXPECT_EQ(p.stem().string(), String(U"e\u0301te\u0301"));
    EXPECT_EQ(p.extension().string(), String(U".e\u0301"));
#if defined(__linux__)
    EXPECT_EQ(p.extension().nativeString(), ".\xC3\xA9");
#endif
}

struct ExtensionRow {
    char const* path;
    char const* newExtension;
    char const* result;
};

TEST(PathReplaceExtension, WorkedResults)
{
    std::vector<ExtensionRow> const rows = {
        {"a.txt", ".md", "a.md"},
        {"a", "md", "a.md"},
        {"a.tar.gz", "", "a.tar"},
        {"x.d/f", ".bak", "x.d/f.bak"},
        {"a.", ".bak", "a.bak"},
        {"dir/", ".bak", "dir/.bak"},
    };
    for (ExtensionRow const& row : rows) {
        SCOPED_TRACE(std::string(row.path) + " with " + row.newExtension);
        Path p(row.path);
        p.replaceExtension(Path(row.newExtension));
        EXPECT_EQ(p.string(), text(row.result));
    }
}

TEST(PathReplaceExtension, FurtherCases)
{
    std::vector<ExtensionRow> const rows = {
        {"", "md", ".md"},
        {"", "", ""},
        {"a.txt", "", "a"},
        {"a", "", "a"},
        {".bashrc", "md", ".md"},
        {"a/b.c/d", "x", "a/b.c/d.x"},
        {"a/b.c/d.e", ".x", "a/b.c/d.x"},
        {"File.TXT", "Md", "File.Md"},
        {"a.b", "..c", "a..c"},
        {"r\xC3\xA9.txt", "\xC3\xA9", "re\xCC\x81.e\xCC\x81"},
        {"a\\b.c", "d", "a/b.d"},
        {"a.txt", "x\\y", "a.x/y"},
    };
    for (ExtensionRow const& row : rows) {
        SCOPED_TRACE(std::string(row.path) + " with " + row.newExtension);
        Path p(row.path);
        p.replaceExtension(Path(row.newExtension));
        EXPECT_EQ(p.string(), text(row.result));
    }
}

TEST(PathReplaceExtension, UnlikeExtensionTheTrailingDotIsReplaced)
{
    Path p("a.");
    EXPECT_EQ(p.extension().string(), String());
    p.replaceExtension(Path("md"));
    EXPECT_EQ(p.string(), String(U"a.md"));
    EXPECT_EQ(p.extension().string(), String(U".md"));
}

TEST(PathReplaceExtension, DropsTheNativeForm)
{
    Path p("a.txt");
    EXPECT_EQ(p.nativeString(), "a.txt");
    p.replaceExtension(Path("\xC3\xA9"));
#if defined(__linux__)
    EXPECT_EQ(p.nativeString(), "a.\xC3\xA9");
#endif
    EXPECT_EQ(p.string(), String(U"a.e\u0301"));
}

} // namespace
