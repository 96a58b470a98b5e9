// Tests of walking a path element by element, and of the extraction functor behind it.
#include <kelvo/filesystem/Path.h>

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

namespace {

using kelvo::filesystem::Path;
using kelvo::filesystem::PathIteratorExtractorFunc;
using kelvo::unicode::String;

String text(char const* utf8) { return String(std::string(utf8)); }

// Elements by explicit iterators, with a bound so that a broken end test
// fails instead of looping forever.
std::vector<String> elementsOf(Path const& p)
{
    std::vector<String> out;
    Path::iterator const end = p.end();
    for (Path::iterator it = p.begin(); it != end; ++it) {
        out.push_back(it->string());
        if (out.size() > 64) {
            ADD_FAILURE() << "iteration does not end";
            break;
        }
    }
    return out;
}

std::vector<String> elementsByRangeFor(Path const& p)
{
    std::vector<String> out;
    for (Path const& element : p) {
        out.push_back(element.string());
        if (out.size() > 64) {
            ADD_FAILURE() << "iteration does not end";
            break;
        }
    }
    return out;
}

std::vector<String> texts(std::initializer_list<char const*> list)
{
    std::vector<String> out;
    for (char const* s : list)
        out.push_back(text(s));
    return out;
}

struct IterationRow {
    char const* path;
    std::vector<String> elements;
};

std::vector<IterationRow> const kRows = {
    {"", texts({})},
    {"/", texts({"/"})},
    {"a", texts({"a"})},
    {"a/b", texts({"a", "b"})},
    {"/a/b", texts({"/", "a", "b"})},
    {"a//b", texts({"a", "b"})},
    {"a/b/", texts({"a", "b", "."})},
    {"/a/", texts({"/", "a", "."})},
    {"//server/share/x", texts({"//server", "/", "share", "x"})},
    {"//server//share", texts({"//server", "/", "share"})},
    {"//server", texts({"//server"})},
    {"//server/", texts({"//server", "/"})},
    {"///a", texts({"/", "", "a"})},
    {"//", texts({"/", "", "."})},
    {"./a/../b", texts({".", "a", "..", "b"})},
};

std::vector<IterationRow> const kMoreRows = {
    {"a\\b", texts({"a", "b"})},
    {"a///b//", texts({"a", "b", "."})},
    {"..", texts({".."})},
    {".", texts({"."})},
    {"./", texts({".", "."})},
    {"//server//", texts({"//server", "/"})},
    {"//s/a/b/", texts({"//s", "/", "a", "b", "."})},
    {"////a/b", texts({"/", "", "a", "b"})},
    {"/a//", texts({"/", "a", "."})},
    {"D\xC3\xA9j\xC3\xA0/\xC3\x89t\xC3\xA9", texts({"De\xCC\x81ja\xCC\x80", "E\xCC\x81te\xCC\x81"})},
};

TEST(PathIteration, WorkedTable)
{
    for (IterationRow const& row : kRows) {
        SCOPED_TRACE(std::string("path \"") + row.path + "\"");
        Path const p(row.path);
        EXPECT_EQ(elementsOf(p), row.elements);
        EXPECT_EQ(elementsByRangeFor(p), row.elements);
    }
}

TEST(PathIteration, FurtherSpellings)
{
    for (IterationRow const& row : kMoreRows) {
        SCOPED_TRACE(std::string("path \"") + row.path + "\"");
        Path const p(row.path);
        EXPECT_EQ(elementsOf(p), row.elements);
        EXPECT_EQ(elementsByRangeFor(p), row.elements);
    }
}

TEST(PathIteration, EmptyPathBeginEqualsEnd)
{
    Path const p;
    EXPECT_TRUE(p.begin() == p.end());
    EXPECT_FALSE(p.begin() != p.end());
    Path const fromEmptyText{String()};
    EXPECT_TRUE(fromEmptyText.begin() == fromEmptyText.end());
}

TEST(PathIteration, IncrementingTheEndStaysAtTheEnd)
{
    Path const p("a/b");
    Path::iterator it = p.begin();
    ++it;
    ++it;
    ASSERT_TRUE(it == p.end());
    ++it;
    EXPECT_TRUE(it == p.end());
    ++it;
    EXPECT_TRUE(it == p.end());
    EXPECT_TRUE(it->empty());

    Path::iterator end = p.end();
    ++end;
    EXPECT_TRUE(end == p.end());
}

TEST(PathIteration, TrailingDotIsVisitedBeforeTheEnd)
{
    Path const p("a/");
    Path::iterator it = p.begin();
    EXPECT_EQ(it->string(), String(U"a"));
    ++it;
    EXPECT_EQ(it->string(), String(U"."));
    EXPECT_TRUE(it.current == p.string().cend());
    EXPECT_FALSE(it.info.last);
    EXPECT_TRUE(it != p.end());
    ++it;
    EXPECT_TRUE(it == p.end());
}

TEST(PathIteration, RebuildingByJoining)
{
    struct Case {
        char const* path;
        char const* rebuilt;
    };
    for (Case const& c : {Case{"/a/b", "/a/b"}, Case{"a/b/", "a/b/."}, Case{"a/b", "a/b"}, Case{"a//b", "a/b"},
                          Case{"//server/share/x", "//server/share/x"}, Case{"./a/../b", "./a/../b"},
                          Case{"/", "/"}, Case{"", ""}}) {
        SCOPED_TRACE(c.path);
        Path const p(c.path);
        Path rebuilt;
        for (Path const& element : p)
            rebuilt /= element;
        EXPECT_EQ(rebuilt.string(), text(c.rebuilt));
    }
}

TEST(PathIteration, CopiesAdvanceIndependently)
{
    Path const p("/usr/local/share/doc/");
    Path::iterator it = p.begin();
    ++it; // "usr"
    ++it; // "local"
    ASSERT_EQ(it->string(), String(U"local"));
    Path::iterator copy = it;
    std::vector<String> fromOriginal;
    for (; it != p.end(); ++it)
        fromOriginal.push_back(it->string());
    std::vector<String> fromCopy;
    for (; copy != p.end(); ++copy)
        fromCopy.push_back(copy->string());
    EXPECT_EQ(fromOriginal, texts({"local", "share", "doc", "."}));
    EXPECT_EQ(fromCopy, fromOriginal);
}

TEST(PathIteration, CopyTakenBeforeTheRootDirectoryKeepsItsOwnState)
{
    // The copy still has to produce "/" after the root name; the original's
    // progress must not leak into it.
    Path const p("//server/share/");
    Path::iterator it = p.begin();
    Path::iterator copy = it;
    ASSERT_EQ(it->string(), String(U"//server"));
    ++it;
    ++it;
    ++it;
    EXPECT_EQ(it->string(), String(U"."));
    ++copy;
    EXPECT_EQ(copy->string(), String(U"/"));
    ++copy;
    EXPECT_EQ(copy->string(), String(U"share"));
}

TEST(PathIteration, DereferenceAndArrow)
{
    Path const p("dir/File.TXT");
    Path::iterator it = p.begin();
    EXPECT_EQ((*it).string(), String(U"dir"));
    EXPECT_EQ(it->size(), 3u);
    ++it;
    EXPECT_TRUE(*it == Path("file.txt"));
    EXPECT_EQ(it->extension().string(), String(U".TXT"));
    EXPECT_EQ(it->string(), String(U"File.TXT"));
}

TEST(PathIteration, ElementsAreDecomposedAndUsable)
{
    Path const p("\xC3\xA9/x");
    Path::iterator it = p.begin();
    EXPECT_EQ(it->string(), String(U"e\u0301"));
#if defined(__linux__)
    EXPECT_EQ(it->nativeString(), "\xC3\xA9");
#endif
}

TEST(PathIteration, IteratorTypes)
{
    static_assert(std::is_same<Path::iterator,
                               kelvo::parsing::TokenIterator<Path, String::const_iterator>>::value,
                  "paths iterate with the token iterator");
    Path const p("a");
    Path::iterator const it = p.begin();
    EXPECT_TRUE(it.begin == p.string().cbegin());
    EXPECT_TRUE(it.end == p.string().cend());
    EXPECT_TRUE(p.end().begin == p.string().cend());
    ASSERT_NE(it.extractor.target<PathIteratorExtractorFunc>(), nullptr);
    EXPECT_EQ(p.end().extractor.target<PathIteratorExtractorFunc>()->state, 0u);
}

// ------------------------------------------------- the extraction functor

TEST(PathExtractor, StartsAtStateZero)
{
    PathIteratorExtractorFunc const f;
    EXPECT_EQ(f.state, 0u);
}

TEST(PathExtractor, RootNameThenRootDirectoryThenNames)
{
    String const s(U"//server/share/x");
    PathIteratorExtractorFunc f;
    auto info = f(s.cbegin(), s.cend());
    EXPECT_EQ(info.token.string(), String(U"//server"));
    EXPECT_TRUE(info.next == s.cbegin() + 8);
    EXPECT_FALSE(info.last);
    EXPECT_EQ(f.state, 1u);

    info = f(info.next, s.cend());
    EXPECT_EQ(info.token.string(), String(U"/"));
    EXPECT_TRUE(info.next == s.cbegin() + 9);
    EXPECT_FALSE(info.last);
    EXPECT_EQ(f.state, 2u);

    info = f(info.next, s.cend());
    EXPECT_EQ(info.token.string(), String(U"share"));
    EXPECT_TRUE(info.next == s.cbegin() + 15);
    EXPECT_FALSE(info.last);

    info = f(info.next, s.cend());
    EXPECT_EQ(info.token.string(), String(U"x"));
    EXPECT_TRUE(info.next == s.cend());
    EXPECT_TRUE(info.last);
    EXPECT_EQ(f.state, 2u);
}

TEST(PathExtractor, SeparatorWalkStopsAtTheLastSeparatorOfARun)
{
    String const s(U"//server///share");
    PathIteratorExtractorFunc f;
    auto info = f(s.cbegin(), s.cend());
    EXPECT_EQ(info.token.string(), String(U"//server"));
    EXPECT_TRUE(info.next == s.cbegin() + 10);
    info = f(info.next, s.cend());
    EXPECT_EQ(info.token.string(), String(U"/"));
    EXPECT_TRUE(info.next == s.cbegin() + 11);
    info = f(info.next, s.cend());
    EXPECT_EQ(info.token.string(), String(U"share"));
    EXPECT_TRUE(info.last);
}

TEST(PathExtractor, RootNameAloneIsLast)
{
    String const s(U"//server");
    PathIteratorExtractorFunc f;
    auto const info = f(s.cbegin(), s.cend());
    EXPECT_EQ(info.token.string(), String(U"//server"));
    EXPECT_TRUE(info.next == s.cend());
    EXPECT_TRUE(info.last);
}

TEST(PathExtractor, NoRootNameGoesOnInTheSameCall)
{
    String const s(U"/a");
    PathIteratorExtractorFunc f;
    auto info = f(s.cbegin(), s.cend());
    EXPECT_EQ(info.token.string(), String(U"/"));
    EXPECT_TRUE(info.next == s.cbegin() + 1);
    EXPECT_EQ(f.state, 2u);

    String const relative(U"a/b");
    PathIteratorExtractorFunc g;
    info = g(relative.cbegin(), relative.cend());
    EXPECT_EQ(info.token.string(), String(U"a"));
    EXPECT_TRUE(info.next == relative.cbegin() + 2);
    EXPECT_FALSE(info.last);
    EXPECT_EQ(g.state, 2u);
}

TEST(PathExtractor, EmptyElementWhenStartingAtASeparator)
{
    String const s(U"//a");
    PathIteratorExtractorFunc f;
    f.state = 2;
    auto const info = f(s.cbegin(), s.cend());
    EXPECT_TRUE(info.token.empty());
    EXPECT_TRUE(info.next == s.cbegin() + 2);
    EXPECT_FALSE(info.last);
}

TEST(PathExtractor, TrailingSeparatorGivesDotThenEnd)
{
    String const s(U"a/");
    PathIteratorExtractorFunc f;
    auto info = f(s.cbegin(), s.cend());
    EXPECT_EQ(info.token.string(), String(U"a"));
    EXPECT_TRUE(info.next == s.cend());
    EXPECT_FALSE(info.last);

    info = f(s.cend(), s.cend());
    EXPECT_EQ(info.token.string(), String(U"."));
    EXPECT_TRUE(info.next == s.cend());
    EXPECT_FALSE(info.last);
    EXPECT_EQ(f.state, 3u);

    info = f(s.cend(), s.cend());
    EXPECT_TRUE(info.token.empty());
    EXPECT_TRUE(info.next == s.cend());
    EXPECT_TRUE(info.last);
    EXPECT_EQ(f.state, 3u);
}

} // namespace
