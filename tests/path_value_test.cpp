// Tests of the Path value: construction and normalisation, copies, moves, swaps, clearing, the native form and lossless bytes.
#include <kelvo/filesystem/Path.h>
#include <kelvo/text/Unicode.h>

#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using kelvo::filesystem::Path;
using kelvo::unicode::String;

std::string bytes(std::initializer_list<unsigned> values)
{
    std::string out;
    for (unsigned v : values)
        out.push_back(static_cast<char>(v));
    return out;
}

TEST(PathSeparators, Values)
{
    EXPECT_EQ(kelvo::filesystem::nativeSeparartor(), U'/');
    EXPECT_EQ(kelvo::filesystem::nonNativeSeparartor(), U'\\');
}

TEST(PathConstruction, DefaultIsEmpty)
{
    Path const p;
    EXPECT_TRUE(p.empty());
    EXPECT_EQ(p.size(), 0u);
    EXPECT_EQ(p.length(), 0u);
    EXPECT_EQ(p.string(), String());
    EXPECT_EQ(p.nativeString(), "");
}

TEST(PathConstruction, EveryFormBuildsTheSameText)
{
    String const expected(U"dir/file.txt");
    EXPECT_EQ(Path("dir/file.txt").string(), expected);
    EXPECT_EQ(Path(std::string("dir/file.txt")).string(), expected);
    EXPECT_EQ(Path(String(U"dir/file.txt")).string(), expected);
    String const lvalue(U"dir/file.txt");
    EXPECT_EQ(Path(lvalue).string(), expected);
    char const* variable = "dir/file.txt";
    EXPECT_EQ(Path(variable).string(), expected);
    EXPECT_TRUE(Path("").empty());
    EXPECT_TRUE(Path(std::string()).empty());
    EXPECT_TRUE(Path(String()).empty());
    EXPECT_TRUE(Path(static_cast<char const*>(nullptr)).empty());
}

TEST(PathConstruction, BackslashesBecomeSlashes)
{
    EXPECT_EQ(Path("a\\b\\c").string(), String(U"a/b/c"));
    EXPECT_EQ(Path(std::string("a\\b\\c")).string(), String(U"a/b/c"));
    EXPECT_EQ(Path(String(U"a\\b\\c")).string(), String(U"a/b/c"));
    String const lvalue(U"\\\\server\\share\\");
    EXPECT_EQ(Path(lvalue).string(), String(U"//server/share/"));
    EXPECT_EQ(lvalue, String(U"\\\\server\\share\\")); // the argument is untouched
    EXPECT_EQ(Path("a\\b\\c").nativeString(), "a/b/c");
}

TEST(PathConstruction, TextIsDecomposed)
{
    Path const fromUtf8("\xC3\xA9");
    EXPECT_EQ(fromUtf8.string(), String(U"e\u0301"));
    EXPECT_EQ(fromUtf8.length(), 2u);
    EXPECT_EQ(fromUtf8.size(), 2u);
    EXPECT_EQ(Path(String(U"\u00E9")).string(), String(U"e\u0301"));
    String const lvalue(U"\u00E9");
    EXPECT_EQ(Path(lvalue).string(), String(U"e\u0301"));
    EXPECT_EQ(Path(std::string("\xC3\xA9")).string(), String(U"e\u0301"));
    EXPECT_EQ(Path(String(U"R\u00E9sum\u00E9.pdf")).length(), 12u);
    // Singletons, Hangul and mark order are normalised too.
    EXPECT_EQ(Path(String(U"\u212B")).string(), String(U"A\u030A"));
    EXPECT_EQ(Path(String(U"\uD55C")).string(), String(U"\u1112\u1161\u11AB"));
    EXPECT_EQ(Path(String(U"a\u0301\u0316")).string(), String(U"a\u0316\u0301"));
    // Already decomposed text stays as it is.
    EXPECT_EQ(Path(String(U"e\u0301")).string(), String(U"e\u0301"));
}

TEST(PathConstruction, NothingElseIsNormalised)
{
    EXPECT_EQ(Path("a//b/./../").string(), String(U"a//b/./../"));
    EXPECT_EQ(Path("ReadMe.TXT").string(), String(U"ReadMe.TXT"));
    EXPECT_EQ(Path(" a /b ").string(), String(U" a /b "));
    EXPECT_EQ(Path("./").string(), String(U"./"));
    EXPECT_EQ(Path("///").string(), String(U"///"));
}

TEST(PathNativeForm, EmptyPathHasEmptyNativeForm)
{
    Path const p;
    EXPECT_EQ(p.nativeString(), "");
    EXPECT_EQ(p.nativeString(), "");
    Path const fromEmptyText{String()};
    EXPECT_EQ(fromEmptyText.nativeString(), "");
}

TEST(PathNativeForm, TheSameAtEveryCall)
{
    Path const p("dir/\xC3\xA9.txt");
    std::string const first = p.nativeString();
    EXPECT_EQ(first, "dir/\xC3\xA9.txt");
    EXPECT_EQ(p.nativeString(), first);
}

TEST(PathNativeForm, AccentedPathIsComposedOnLinux)
{
    Path const precomposed("/home/R\xC3\xA9sum\xC3\xA9.pdf");
    Path const decomposed("/home/Re\xCC\x81sume\xCC\x81.pdf");
    EXPECT_EQ(precomposed.string(), String(U"/home/Re\u0301sume\u0301.pdf"));
    EXPECT_EQ(decomposed.string(), precomposed.string());
#if defined(__APPLE__)
    EXPECT_EQ(precomposed.nativeString(), "/home/Re\xCC\x81sume\xCC\x81.pdf");
#else
    // Made from bytes: those bytes, whichever composition they hold.
    EXPECT_EQ(precomposed.nativeString(), "/home/R\xC3\xA9sum\xC3\xA9.pdf");
    EXPECT_EQ(decomposed.nativeString(), "/home/Re\xCC\x81sume\xCC\x81.pdf");
    EXPECT_EQ(Path("\xEA\xB0\x81").nativeString(), "\xEA\xB0\x81");
    // Made from code points: their composed form.
    EXPECT_EQ(Path(decomposed.string()).nativeString(), "/home/R\xC3\xA9sum\xC3\xA9.pdf");
    EXPECT_EQ(Path(String(U"\u212B")).nativeString(), "\xC3\x85");
#endif
}

TEST(PathNativeForm, ClearEmptiesACachedForm)
{
    Path p("a/b");
    EXPECT_EQ(p.nativeString(), "a/b");
    p.clear();
    EXPECT_TRUE(p.empty());
    EXPECT_EQ(p.size(), 0u);
    EXPECT_EQ(p.string(), String());
    EXPECT_EQ(p.nativeString(), "");
    p.clear();
    EXPECT_TRUE(p.empty());
}

TEST(PathNativeForm, ClearCacheRecomputesTheSameForm)
{
    Path const p("x/\xC3\xBC");
    std::string const before = p.nativeString();
    p.clearCache();
    EXPECT_EQ(p.nativeString(), before);
    p.clearCache();
    p.clearCache();
    EXPECT_EQ(p.nativeString(), before);
    Path const empty;
    empty.clearCache();
    EXPECT_EQ(empty.nativeString(), "");
}

TEST(PathNativeForm, EveryChangeOfTextDropsTheCache)
{
    Path p("a");
    EXPECT_EQ(p.nativeString(), "a");
    p.appendSeparator();
    EXPECT_EQ(p.nativeString(), "a/");
    p /= Path("b.txt");
    EXPECT_EQ(p.nativeString(), "a/b.txt");
    p.replaceExtension(Path("md"));
    EXPECT_EQ(p.nativeString(), "a/b.md");
    p += Path("x");
    EXPECT_EQ(p.nativeString(), "a/b.mdx");
    p = Path("copy");
    EXPECT_EQ(p.nativeString(), "copy");
    Path const source("copied");
    p = source;
    EXPECT_EQ(p.nativeString(), "copied");
    Path moved("moved");
    p = std::move(moved);
    EXPECT_EQ(p.nativeString(), "moved");
    p /= Path();
    EXPECT_EQ(p.nativeString(), "moved");
    p.clear();
    EXPECT_EQ(p.nativeString(), "");
}

TEST(PathCopy, CopyStartsWithoutCacheAndYieldsTheSameForm)
{
    Path const original("d/\xC3\xA9");
    std::string const native = original.nativeString();
    Path const copy(original);
    EXPECT_EQ(copy.string(), original.string());
    EXPECT_EQ(copy.nativeString(), native);
    EXPECT_EQ(original.nativeString(), native);
}

TEST(PathCopy, CopiesAreIndependent)
{
    Path original("a/b");
    Path copy(original);
    copy /= Path("c");
    EXPECT_EQ(original.string(), String(U"a/b"));
    EXPECT_EQ(copy.string(), String(U"a/b/c"));
    original.clear();
    EXPECT_EQ(copy.string(), String(U"a/b/c"));
    Path const emptyCopy(original);
    EXPECT_TRUE(emptyCopy.empty());
}

TEST(PathCopy, CopyAssignment)
{
    Path target("old/text");
    EXPECT_EQ(target.nativeString(), "old/text");
    Path const source("new/\xC3\xA9");
    target = source;
    EXPECT_EQ(target.string(), String(U"new/e\u0301"));
    EXPECT_EQ(target.nativeString(), source.nativeString());
    EXPECT_EQ(source.string(), String(U"new/e\u0301"));

    Path& alias = target;
    target = alias;
    EXPECT_EQ(target.string(), String(U"new/e\u0301"));
    EXPECT_EQ(target.nativeString(), source.nativeString());

    target = Path();
    EXPECT_TRUE(target.empty());
    EXPECT_EQ(target.nativeString(), "");

    Path fromEmpty;
    fromEmpty = source;
    EXPECT_EQ(fromEmpty.string(), source.string());
}

TEST(PathMove, MoveConstructionTakesTheText)
{
    Path source("a/\xC3\xA9");
    std::string const native = source.nativeString();
    Path target(std::move(source));
    EXPECT_EQ(target.string(), String(U"a/e\u0301"));
    EXPECT_EQ(target.nativeString(), native);
    EXPECT_EQ(source.nativeString(), "");
    EXPECT_TRUE(source.empty()); // NOLINT(bugprone-use-after-move)
}

TEST(PathMove, MovedFromPathCanBeAssignedAndDestroyed)
{
    Path source("x/y");
    Path taken(std::move(source));
    EXPECT_TRUE(source.empty()); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(source.size(), 0u);
    source = Path("again");
    EXPECT_EQ(source.string(), String(U"again"));
    EXPECT_EQ(source.nativeString(), "again");

    Path second("z");
    Path alsoTaken(std::move(second));
    Path const copySource("copy");
    second = copySource;
    EXPECT_EQ(second.string(), String(U"copy"));

    {
        Path doomed("doomed");
        (void)doomed.nativeString();
        Path keeper(std::move(doomed));
        EXPECT_EQ(keeper.string(), String(U"doomed"));
    } // both destroyed here
}

TEST(PathMove, MoveAssignment)
{
    Path target("old");
    EXPECT_EQ(target.nativeString(), "old");
    Path source("new/\xC3\xA9");
    (void)source.nativeString();
    target = std::move(source);
    EXPECT_EQ(target.string(), String(U"new/e\u0301"));
    EXPECT_EQ(target.nativeString(), Path("new/\xC3\xA9").nativeString());
    EXPECT_TRUE(source.empty()); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(source.nativeString(), "");

    Path& alias = target;
    target = std::move(alias);
    EXPECT_EQ(target.string(), String(U"new/e\u0301"));

    source = std::move(target);
    EXPECT_EQ(source.string(), String(U"new/e\u0301"));
    EXPECT_TRUE(target.empty()); // NOLINT(bugprone-use-after-move)
}

TEST(PathMove, RvalueOperatorsLeaveTheLeftOperandEmpty)
{
    Path left("a");
    Path const joined = std::move(left) / Path("b");
    EXPECT_EQ(joined.string(), String(U"a/b"));
    EXPECT_TRUE(left.empty()); // NOLINT(bugprone-use-after-move)
    left = Path("c");
    Path const appended = std::move(left) + Path("d");
    EXPECT_EQ(appended.string(), String(U"cd"));
    EXPECT_TRUE(left.empty()); // NOLINT(bugprone-use-after-move)
    left = Path("usable");
    EXPECT_EQ(left.string(), String(U"usable"));
}

TEST(PathSwap, ExchangesTextsAndCaches)
{
    Path a("first");
    Path b("second/\xC3\xA9");
    std::string const nativeA = a.nativeString();
    std::string const nativeB = b.nativeString();
    a.swap(b);
    EXPECT_EQ(a.string(), String(U"second/e\u0301"));
    EXPECT_EQ(b.string(), String(U"first"));
    EXPECT_EQ(a.nativeString(), nativeB);
    EXPECT_EQ(b.nativeString(), nativeA);

    kelvo::filesystem::swap(a, b);
    EXPECT_EQ(a.string(), String(U"first"));
    EXPECT_EQ(b.string(), String(U"second/e\u0301"));

    using std::swap;
    swap(a, b);
    EXPECT_EQ(a.string(), String(U"second/e\u0301"));
    EXPECT_EQ(b.string(), String(U"first"));

    a.swap(a);
    EXPECT_EQ(a.string(), String(U"second/e\u0301"));
    EXPECT_EQ(a.nativeString(), nativeB);
}

TEST(PathSwap, WithAnEmptyPath)
{
    Path a("full");
    Path b;
    a.swap(b);
    EXPECT_TRUE(a.empty());
    EXPECT_EQ(a.nativeString(), "");
    EXPECT_EQ(b.string(), String(U"full"));
}

TEST(PathValue, TypeShape)
{
    static_assert(std::is_nothrow_move_constructible<Path>::value, "moves are pointer exchanges");
    static_assert(std::is_nothrow_move_assignable<Path>::value, "moves are pointer exchanges");
    static_assert(sizeof(Path) == 2 * sizeof(void*), "a path is two pointers");
    static_assert(std::is_same<decltype(std::declval<Path const&>().length()), unsigned long>::value, "length type");
    Path const p("abc");
    EXPECT_EQ(p.length(), 3u);
    EXPECT_EQ(p.size(), p.length());
    EXPECT_FALSE(p.empty());
}

TEST(PathValue, StreamsTheUtf8OfItsText)
{
    std::ostringstream out;
    out << Path("a\\b\xC3\xA9") << '|' << Path();
    EXPECT_EQ(out.str(), "a/be\xCC\x81|");
}

// -------------------------------------------------------- lossless bytes

TEST(PathBytes, EverySingleByteButBackslashRoundTrips)
{
    for (unsigned b = 0; b < 256; ++b) {
        if (b == '\\')
            continue;
        std::string const original(1, static_cast<char>(b));
        Path const p(original);
        EXPECT_EQ(p.nativeString(), original) << "byte " << b;
        EXPECT_EQ(p.string().toUTF8String(), original) << "byte " << b;
    }
    EXPECT_EQ(Path(std::string("\\")).nativeString(), "/");
}

TEST(PathBytes, NamesThatAreNotUtf8RoundTrip)
{
    std::vector<std::string> const names = {
        bytes({0x52, 0xE9, 0x73, 0x75, 0x6D, 0xE9}),       // Latin-1 "Résumé"
        bytes({0x2F, 0x74, 0x6D, 0x70, 0x2F, 0xFF, 0xFE}), // "/tmp/" and two bad bytes
        bytes({0xC0, 0xAF, 0x2E, 0x2E}),                   // overlong slash
        bytes({0xED, 0xA0, 0x80, 0x78}),                   // encoded surrogate
        bytes({0xE2, 0x82}),                               // truncated
        bytes({0x80, 0x81, 0x82}),                         // continuation bytes only
        bytes({0xC3, 0xA9, 0xFF, 0xC3, 0xA9}),             // good, bad, good
    };
    // The text keeps the bad bytes as they are next to decomposed characters.
    EXPECT_EQ(Path(names[0]).string().toUTF8String(), names[0]);
    EXPECT_EQ(Path(names[1]).string().toUTF8String(), names[1]);
    EXPECT_EQ(Path(names.back()).string().toUTF8String(), bytes({0x65, 0xCC, 0x81, 0xFF, 0x65, 0xCC, 0x81}));
    for (std::string const& name : names) {
        Path const p(name);
        EXPECT_EQ(p.nativeString(), name);
        Path const viaText(p.string());
        EXPECT_EQ(viaText.nativeString(), name);
    }
}

// Random names built of pieces that cannot merge across their borders: ASCII
// (no backslash), bytes that never start a sequence, broken sequences closed
// by ASCII, and characters that come back unchanged from decomposition.
std::string randomName(std::mt19937& random)
{
    static std::vector<std::string> const broken = {
        bytes({0xE2, 0x82, 0x41}), bytes({0xC3, 0x7A}), bytes({0xF0, 0x9F, 0x98, 0x71}), bytes({0xC0, 0xAF}),
        bytes({0xE0, 0x80, 0xAF}), bytes({0xED, 0xA0, 0x80}), bytes({0xF4, 0x90, 0x80, 0x80}),
    };
    static std::vector<std::string> const characters = {
        "\xC3\xA9", "\xC3\x9F", "\xE6\x97\xA5", "\xF0\x9F\x98\x80", "\xE2\x82\xAC", "\xC3\x85", "\xEA\xB0\x81",
    };
    std::uniform_int_distribution<int> kind(0, 3);
    std::uniform_int_distribution<int> length(0, 30);
    std::uniform_int_distribution<int> ascii(0, 0x7F);
    std::uniform_int_distribution<int> never(0, 0x3F + 11);
    std::uniform_int_distribution<std::size_t> brokenPick(0, broken.size() - 1);
    std::uniform_int_distribution<std::size_t> characterPick(0, characters.size() - 1);
    std::string name;
    int const n = length(random);
    for (int i = 0; i < n; ++i) {
        switch (kind(random)) {
        case 0: {
            int c = ascii(random);
            if (c == '\\')
                c = '/';
            name.push_back(static_cast<char>(c));
            break;
        }
        case 1: {
            // 0x80..0xBF, or one of C0, C1, F5..FF.
            int const v = never(random);
            static unsigned const others[] = {0xC0, 0xC1, 0xF5, 0xF6, 0xF7, 0xF8, 0xF9, 0xFA, 0xFB, 0xFE, 0xFF};
            name.push_back(static_cast<char>(v < 0x40 ? 0x80 + v : others[v - 0x40]));
            break;
        }
        case 2: name += broken[brokenPick(random)]; break;
        default: name += characters[characterPick(random)]; break;
        }
    }
    return name;
}

TEST(PathBytes, RandomNamesRoundTripThroughTheNativeForm)
{
    std::mt19937 random(5150u);
    for (int round = 0; round < 3000; ++round) {
        std::string const name = randomName(random);
        Path const p(name);
        if (p.nativeString() != name) {
            ADD_FAILURE() << "random name of round " << round << " did not round trip";
            return;
        }
        // Copies, moves and joins keep the bytes.
        Path copy(p);
        Path const joined = Path("dir") / std::move(copy);
        std::string const expected = name.empty() ? "dir" : (name[0] == '/' ? "dir" + name : "dir/" + name);
        if (joined.nativeString() != expected) {
            ADD_FAILURE() << "joined random name of round " << round << " lost bytes";
            return;
        }
    }
}

TEST(PathMove, MovedFromPathHasNoOldNativeForm)
{
    Path source("/cached/path");
    ASSERT_EQ(source.nativeString(), "/cached/path");
    Path target(std::move(source));
    EXPECT_TRUE(source.empty());
    EXPECT_EQ(source.nativeString(), "");
    EXPECT_EQ(target.nativeString(), "/cached/path");

    Path other("/x");
    ASSERT_EQ(other.nativeString(), "/x");
    target = std::move(other);
    EXPECT_EQ(other.nativeString(), "");
    EXPECT_EQ(target.nativeString(), "/x");
}

TEST(PathConstruction, FromUTF8AgreesWithDecodingThenNormalising)
{
    // Whatever way a constructor takes (ASCII, valid UTF-8, bytes that are not
    // UTF-8), its text is the decoded text with "/" for "\\", decomposed.
    std::vector<std::string> const pieces = {
        "a", "Z", "/", "\\", ".", "\xC3\xA9", "e\xCC\x81", "\xCC\xA3", "\xCC\x81\xCC\xA3",
        "\xEA\xB0\x80", "\xF0\x9F\x98\x80", "\xE2\x84\xAB", "\xEF\xAC\x81", "\xFF", "\xC3", "\xED\xA0\x80",
        "\xE1\xBA\xA4", "\xC7\x84"};
    std::mt19937 random(7u);
    std::uniform_int_distribution<std::size_t> pick(0, pieces.size() - 1);
    std::uniform_int_distribution<int> count(0, 40);
    for (int round = 0; round < 3000; ++round) {
        std::string bytes;
        for (int i = count(random); i > 0; --i)
            bytes += pieces[pick(random)];
        String expected(bytes);
        for (char32_t& c : expected)
            if (c == U'\\')
                c = U'/';
        expected = kelvo::unicode::toNFD(expected);
        ASSERT_EQ(Path(bytes).string(), expected) << "round " << round;
        ASSERT_EQ(Path(bytes.c_str()).string(), expected) << "round " << round;
        ASSERT_EQ(Path(String(bytes)).string(), expected) << "round " << round;
    }
}

} // namespace
