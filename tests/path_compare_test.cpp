// Tests of joining and appending paths and of the tolerant comparison behind every path comparison operator.
#include <kelvo/filesystem/Path.h>
#include <kelvo/filesystem/private.h>

#include <kelvo/text/Unicode.h>

#include <gtest/gtest.h>

#include <cctype>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using kelvo::filesystem::Path;
using kelvo::unicode::String;
using kelvo_private::filesystem::compare;

String text(char const* utf8) { return String(std::string(utf8)); }
String codePoints(std::initializer_list<char32_t> values) { return String(std::u32string(values)); }

// ------------------------------------------------------------- compare()

struct CompareRow {
    String a;
    String b;
    int expected;
};

TEST(PathCompareFunction, ReturnsMinusOneZeroOrOne)
{
    std::vector<CompareRow> const rows = {
        {U"", U"", 0},
        {U"", U"a", -1},
        {U"a", U"", 1},
        {U"a", U"a", 0},
        {U"a", U"b", -1},
        {U"b", U"a", 1},
        {U"A", U"b", -1},
        {U"a", U"B", 1},    // raw code points decide: 'a' is above 'B'
        {U"B", U"b", 0},
        {U"b", U"B", 0},
        {U"Readme.TXT", U"readme.txt", 0},
        {U"abc", U"abcd", -1},
        {U"abcd", U"abc", 1},
        {U"abcz", U"abd", -1},
        {U"/a/b", U"/a/b/", -1},
        {U"a/b", U"a\\b", -1}, // no backslash conversion: '/' is below '\'
        {U"[", U"{", -1},      // only A to Z are lowered among ASCII
        {U"@", U"`", -1},
        {U"zz", U"ZZZ", -1},
    };
    for (CompareRow const& row : rows) {
        SCOPED_TRACE(row.a.toUTF8String() + " vs " + row.b.toUTF8String());
        EXPECT_EQ(compare(row.a, row.b), row.expected);
    }
}

TEST(PathCompareFunction, TextsNotInNFDAreDecomposedFirst)
{
    std::vector<CompareRow> const rows = {
        {U"\u00E9", U"e\u0301", 0},
        {U"e\u0301", U"\u00E9", 0},
        {U"\u00C9", U"e\u0301", 0},    // case and composition at once
        {U"\u00E9", U"\u00C9", 0},
        {U"\u00E9", U"f", -1},         // "e" + U+0301 against "f"
        {U"\u00E9", U"e", 1},          // U+0301 against the end of "e"
        {U"\u00E9x", U"e\u0301y", -1},
        {U"\u212B", U"\u00E5", 0},     // Angstrom sign, ring-A
        {U"\u0130", U"i\u0307", 0},    // dotted capital I decomposes to I + U+0307
        {U"a\u0301\u0316", U"a\u0316\u0301", 0},
        {U"\uAC00", U"\u1100\u1161", 0},
        {U"\u00E4", U"B", 1},          // 'a' of the decomposition against 'B'
        {U"\u00C4", U"b", -1},         // 'A' against 'b'
    };
    for (CompareRow const& row : rows) {
        SCOPED_TRACE(row.a.toUTF8String() + " vs " + row.b.toUTF8String());
        EXPECT_EQ(compare(row.a, row.b), row.expected);
    }
}

TEST(PathCompareFunction, FoldsOutsideAsciiWithSimpleCaseFolding)
{
    EXPECT_EQ(compare(U"\u00C4", U"\u00E4"), 0);
    EXPECT_EQ(compare(U"\u03A3", U"\u03C3"), 0);
    EXPECT_EQ(compare(U"\u03C2", U"\u03C3"), 0);
    EXPECT_EQ(compare(U"\u03C2", U"\u03A3"), 0);
    EXPECT_EQ(compare(U"\u212A", U"k"), 0); // Kelvin sign folds to ASCII
    EXPECT_EQ(compare(U"\u212A", U"K"), 0);
    EXPECT_EQ(compare(U"\u017F", U"S"), 0); // long s
    EXPECT_EQ(compare(U"\U00010400", U"\U00010428"), 0);
    EXPECT_EQ(compare(U"\u0416", U"\u0436"), 0);
    // Different letters order by their raw code points.
    EXPECT_EQ(compare(U"\u0416", U"\u0437"), -1);
    EXPECT_EQ(compare(U"\u0436", U"\u0417"), 1);
    // Full foldings are not used: sharp s is not "ss".
    EXPECT_EQ(compare(U"\u00DF", U"ss"), 1);
}

TEST(PathCompareFunction, PrefixSortsFirst)
{
    EXPECT_EQ(compare(U"a", U"ab"), -1);
    EXPECT_EQ(compare(U"ab", U"a"), 1);
    EXPECT_EQ(compare(U"A", U"ab"), -1);
    EXPECT_EQ(compare(U"dir", U"dir/"), -1);
    // A real U+0000 inside a text equals the end of the shorter one; the
    // lengths then decide.
    EXPECT_EQ(compare(U"a", codePoints({U'a', 0})), -1);
    EXPECT_EQ(compare(codePoints({U'a', 0}), U"a"), 1);
    EXPECT_EQ(compare(codePoints({U'a', 0}), codePoints({U'a', 0})), 0);
}

TEST(PathCompareFunction, ValuesOutsideUnicodeCompareByValue)
{
    EXPECT_EQ(compare(codePoints({0xDC80}), codePoints({0xDC81})), -1);
    EXPECT_EQ(compare(codePoints({0x110000}), codePoints({0x10FFFF})), 1);
    EXPECT_EQ(compare(codePoints({0xFFFFFFFF}), codePoints({0xFFFFFFFF})), 0);
}

// ------------------------------------------------------- path operators

TEST(PathComparison, CaseInsensitiveEquality)
{
    EXPECT_TRUE(Path("Readme.TXT") == Path("readme.txt"));
    EXPECT_FALSE(Path("Readme.TXT") != Path("readme.txt"));
    EXPECT_TRUE(Path("a") != Path("b"));
    EXPECT_FALSE(Path("a") == Path("b"));
    EXPECT_TRUE(Path() == Path());
    EXPECT_TRUE(Path("") == Path());
    EXPECT_FALSE(Path() == Path("a"));
    EXPECT_TRUE(Path("a/b") == Path("a\\b"));
    EXPECT_FALSE(Path("a/b") == Path("a/b/"));
}

TEST(PathComparison, Ordering)
{
    EXPECT_TRUE(Path("a") < Path("b"));
    EXPECT_TRUE(Path("A") < Path("b"));
    EXPECT_FALSE(Path("a") < Path("B"));
    EXPECT_TRUE(Path("a") > Path("B"));
    EXPECT_TRUE(Path("a") >= Path("B"));
    EXPECT_FALSE(Path("a") <= Path("B"));
    EXPECT_FALSE(Path("B") < Path("b"));
    EXPECT_FALSE(Path("b") < Path("B"));
    EXPECT_TRUE(Path("B") <= Path("b"));
    EXPECT_TRUE(Path("B") >= Path("b"));
    EXPECT_TRUE(Path("abc") < Path("abcd"));
    EXPECT_FALSE(Path("abcd") < Path("abc"));
    EXPECT_TRUE(Path("abcd") > Path("abc"));
    EXPECT_TRUE(Path() < Path("a"));
    EXPECT_TRUE(Path() < Path("/"));
    EXPECT_FALSE(Path() < Path());
    EXPECT_TRUE(Path() <= Path());
    EXPECT_TRUE(Path() >= Path());
    EXPECT_FALSE(Path() > Path());
    EXPECT_TRUE(Path("b") > Path("a"));
    EXPECT_FALSE(Path("a") > Path("a"));
}

TEST(PathComparison, CompositionInsensitiveThroughEveryOperandKind)
{
    Path const precomposed("\xC3\xA9");
    Path const decomposed("e\xCC\x81");
    String const precomposedText(U"\u00E9");
    String const decomposedText(U"e\u0301");
    char const* const precomposedUtf8 = "\xC3\xA9";
    char const* const decomposedUtf8 = "e\xCC\x81";

    EXPECT_TRUE(precomposed == decomposed);
    EXPECT_FALSE(precomposed != decomposed);
    EXPECT_FALSE(precomposed < decomposed);
    EXPECT_FALSE(precomposed > decomposed);
    EXPECT_TRUE(precomposed <= decomposed);
    EXPECT_TRUE(precomposed >= decomposed);

    for (Path const* p : {&precomposed, &decomposed}) {
        for (String const* s : {&precomposedText, &decomposedText}) {
            EXPECT_TRUE(*p == *s);
            EXPECT_TRUE(*s == *p);
            EXPECT_FALSE(*p != *s);
            EXPECT_FALSE(*s != *p);
        }
        for (char const* u : {precomposedUtf8, decomposedUtf8}) {
            EXPECT_TRUE(*p == u);
            EXPECT_TRUE(u == *p);
            EXPECT_FALSE(*p != u);
            EXPECT_FALSE(u != *p);
        }
    }
    // Case and composition together.
    EXPECT_TRUE(Path("CAF\xC3\x89") == "cafe\xCC\x81");
    EXPECT_TRUE(Path("CAF\xC3\x89") == String(U"caf\u00E9"));
    EXPECT_FALSE(Path("CAF\xC3\x89") != String(U"caf\u00E9"));
    EXPECT_FALSE(Path("CAF\xC3\x89") != "caf\xC3\xA9");
}

TEST(PathComparison, TextOperandsWithoutBackslashes)
{
    Path const p("dir/File.txt");
    EXPECT_TRUE(p == String(U"DIR/file.TXT"));
    EXPECT_TRUE(String(U"DIR/file.TXT") == p);
    EXPECT_TRUE(p == "DIR/file.TXT");
    EXPECT_TRUE("DIR/file.TXT" == p);
    EXPECT_FALSE(p != String(U"DIR/file.TXT"));
    EXPECT_FALSE(p != "DIR/file.TXT");
    EXPECT_FALSE(p == String(U"dir/other.txt"));
    EXPECT_FALSE(p == "dir/other.txt");
    EXPECT_TRUE(p != String(U"dir/other.txt"));
    EXPECT_TRUE(String(U"dir/other.txt") != p);
    EXPECT_TRUE(p != "dir/other.txt");
    EXPECT_TRUE("dir/other.txt" != p);
    EXPECT_TRUE(Path() == String());
    EXPECT_TRUE(Path() == "");
    EXPECT_FALSE(Path() != "");
    EXPECT_TRUE(Path() == static_cast<char const*>(nullptr));
}

TEST(PathComparison, EqualityAndInequalityDisagreeOnBackslashes)
{
    // The == forms read a backslash as a separator, the != forms do not, so
    // "a/b" is both equal and unequal to "a\b".
    Path const p("a/b");
    String const backslashed(U"a\\b");
    EXPECT_TRUE(p == backslashed);
    EXPECT_TRUE(backslashed == p);
    EXPECT_TRUE(p != backslashed);
    EXPECT_TRUE(backslashed != p);
    EXPECT_TRUE(p == "a\\b");
    EXPECT_TRUE("a\\b" == p);
    EXPECT_TRUE(p != "a\\b");
    EXPECT_TRUE("a\\b" != p);
    // Between two paths both sides already hold "/".
    EXPECT_TRUE(p == Path("a\\b"));
    EXPECT_FALSE(p != Path("a\\b"));
}

TEST(PathComparison, SortingPaths)
{
    std::vector<Path> paths = {
        Path("delta"), Path("alpha/beta"), Path("alpha"), Path("\xC3\xA9t\xC3\xA9"), Path("charlie"),
        Path("alpha/"), Path("bravo.txt"), Path("bravo"), Path(""), Path("e"), Path("10"), Path("9"),
    };
    std::sort(paths.begin(), paths.end());
    std::vector<String> const expected = {
        U"", U"10", U"9", U"alpha", U"alpha/", U"alpha/beta", U"bravo", U"bravo.txt", U"charlie", U"delta", U"e",
        U"e\u0301te\u0301",
    };
    ASSERT_EQ(paths.size(), expected.size());
    for (std::size_t i = 0; i < paths.size(); ++i)
        EXPECT_EQ(paths[i].string(), expected[i]) << "position " << i;
    EXPECT_TRUE(std::is_sorted(paths.begin(), paths.end()));
}

TEST(PathComparison, SortingManyPathsAgreesWithCodePointOrderOnLowerCase)
{
    std::mt19937 random(99u);
    std::uniform_int_distribution<int> length(0, 12);
    std::uniform_int_distribution<int> letter(0, 5);
    char const alphabet[] = "ab/.z0";
    std::vector<Path> paths;
    std::vector<String> texts;
    for (int i = 0; i < 500; ++i) {
        std::string name;
        int const n = length(random);
        for (int k = 0; k < n; ++k)
            name.push_back(alphabet[letter(random)]);
        paths.emplace_back(name);
        texts.emplace_back(std::string(name));
    }
    // Cached forms travel with their texts while the sort moves and swaps.
    for (Path const& p : paths)
        (void)p.nativeString();
    std::sort(paths.begin(), paths.end());
    std::sort(texts.begin(), texts.end());
    for (std::size_t i = 0; i < paths.size(); ++i) {
        ASSERT_EQ(paths[i].string(), texts[i]) << "position " << i;
        ASSERT_EQ(paths[i].nativeString(), texts[i].toUTF8String()) << "position " << i;
    }
}

// ------------------------------------------------------------ joining

struct JoinRow {
    char const* left;
    char const* right;
    char const* result;
};

std::vector<JoinRow> const kJoinRows = {
    {"a", "", "a"},
    {"", "b", "b"},
    {"", "", ""},
    {"a/", "b", "a/b"},
    {"a/", "/b", "a/b"},
    {"a", "/b", "a/b"},
    {"a//", "/b", "a//b"},
    {"a", "b", "a/b"},
    {"/a", "/b", "/a/b"},
    {"/", "b", "/b"},
    {"/", "/b", "/b"},
    {"a", "/", "a/"},
    {"a/", "/", "a/"},
    {"a", "b/", "a/b/"},
    {"a\\", "\\b", "a/b"},
    {"", "/b", "/b"},
    {"d\xC3\xA9j\xC3\xA0", "\xC3\xA9t\xC3\xA9", "de\xCC\x81ja\xCC\x80/e\xCC\x81te\xCC\x81"},
};

TEST(PathJoin, SlashEqualsAppendsWithOneSeparator)
{
    for (JoinRow const& row : kJoinRows) {
        SCOPED_TRACE(std::string(row.left) + " / " + row.right);
        Path p(row.left);
        Path& self = (p /= Path(row.right));
        EXPECT_EQ(&self, &p);
        EXPECT_EQ(p.string(), text(row.result));
    }
}

TEST(PathJoin, SlashOperatorOnCopies)
{
    for (JoinRow const& row : kJoinRows) {
        SCOPED_TRACE(std::string(row.left) + " / " + row.right);
        Path const left(row.left);
        Path const right(row.right);
        Path const joined = left / right;
        EXPECT_EQ(joined.string(), text(row.result));
        EXPECT_EQ(left.string(), Path(row.left).string());
        EXPECT_EQ(right.string(), Path(row.right).string());
    }
}

TEST(PathJoin, SlashOperatorTakingTheLeftText)
{
    for (JoinRow const& row : kJoinRows) {
        SCOPED_TRACE(std::string(row.left) + " / " + row.right);
        Path left(row.left);
        Path const joined = std::move(left) / Path(row.right);
        EXPECT_EQ(joined.string(), text(row.result));
        EXPECT_TRUE(left.empty()); // NOLINT(bugprone-use-after-move)
    }
}

TEST(PathJoin, JoinedNativeFormFollowsTheText)
{
    Path p("dir");
    EXPECT_EQ(p.nativeString(), "dir");
    p /= Path("\xC3\xA9");
#if defined(__linux__)
    EXPECT_EQ(p.nativeString(), "dir/\xC3\xA9");
#endif
    Path const left("x");
    (void)left.nativeString();
    EXPECT_EQ((left / Path("y")).nativeString(), "x/y");
}

// The same object as the right operand, passed so that compilers do not take
// the join for a mistaken self-assignment.
Path const& itself(Path const& path) { return path; }

TEST(PathJoin, JoiningAPathToItself)
{
    Path relative("a");
    relative /= itself(relative);
    EXPECT_EQ(relative.string(), String(U"a/a"));
    Path bothSeparators("/a/");
    bothSeparators /= itself(bothSeparators);
    EXPECT_EQ(bothSeparators.string(), String(U"/a/a/"));
    Path cached("x/");
    EXPECT_EQ(cached.nativeString(), "x/");
    cached /= itself(cached);
    EXPECT_EQ(cached.string(), String(U"x/x/"));
    EXPECT_EQ(cached.nativeString(), "x/x/");
    Path empty;
    empty /= itself(empty);
    EXPECT_TRUE(empty.empty());
    Path const p("b/c");
    EXPECT_EQ((p / p).string(), String(U"b/c/b/c"));
}

TEST(PathAppend, AppendingAPathToItself)
{
    Path p("ab");
    p += p;
    EXPECT_EQ(p.string(), String(U"abab"));
    EXPECT_EQ((p + p).string(), String(U"abababab"));
}

TEST(PathJoin, ChainedJoins)
{
    Path const p = Path("/usr") / Path("local") / Path("bin/") / Path("/tool");
    EXPECT_EQ(p.string(), String(U"/usr/local/bin/tool"));
}

// ----------------------------------------------------------- appending

struct AppendRow {
    Path left;
    Path right;
    String result;
};

TEST(PathAppend, PlusAppendsTextWithoutSeparatorLogic)
{
    std::vector<AppendRow> const rows = {
        {Path("a"), Path("b"), U"ab"},
        {Path("a"), Path("\\b"), U"a/b"},
        {Path("a/"), Path("/b"), U"a//b"},
        {Path(""), Path("b"), U"b"},
        {Path("a"), Path(""), U"a"},
        {Path(""), Path(""), U""},
        {Path("file"), Path(".txt"), U"file.txt"},
        // A mark appended after a letter is put in canonical order again.
        {Path("e"), Path(String(U"\u0301")), U"e\u0301"},
        {Path(String(U"a\u0301")), Path(String(U"\u0316")), U"a\u0316\u0301"},
    };
    for (AppendRow const& row : rows) {
        SCOPED_TRACE(row.left.string().toUTF8String() + " + " + row.right.string().toUTF8String());
        Path const sum = row.left + row.right;
        EXPECT_EQ(sum.string(), row.result);
        Path copy(row.left);
        Path const rvalueSum = std::move(copy) + row.right;
        EXPECT_EQ(rvalueSum.string(), row.result);
        EXPECT_TRUE(copy.empty()); // NOLINT(bugprone-use-after-move)
        Path accumulated(row.left);
        Path& self = (accumulated += row.right);
        EXPECT_EQ(&self, &accumulated);
        EXPECT_EQ(accumulated.string(), row.result);
    }
}

TEST(PathAppend, PlusEqualsJoinsTheNativeForms)
{
    Path p("caf");
    EXPECT_EQ(p.nativeString(), "caf");
    p += Path("e");
    EXPECT_EQ(p.nativeString(), "cafe");
    p += Path(String(U"\u0301"));
    EXPECT_EQ(p.string(), String(U"cafe\u0301"));
#if defined(__linux__)
    // The pieces' bytes, joined: the accent stays a separate mark.
    EXPECT_EQ(p.nativeString(), "cafe\xCC\x81");
    // Two paths made from code points join to the composed form.
    Path q(String(U"caf"));
    q += Path(String(U"e\u0301"));
    EXPECT_EQ(q.nativeString(), "caf\xC3\xA9");
#endif
}

TEST(PathAppend, AppendSeparator)
{
    Path slashEnded("a/");
    slashEnded.appendSeparator();
    EXPECT_EQ(slashEnded.string(), String(U"a/"));
    Path empty;
    empty.appendSeparator();
    EXPECT_EQ(empty.string(), String(U"/"));
    Path plain("a");
    EXPECT_EQ(plain.nativeString(), "a");
    plain.appendSeparator();
    EXPECT_EQ(plain.string(), String(U"a/"));
    EXPECT_EQ(plain.nativeString(), "a/");
    Path root("/");
    root.appendSeparator();
    EXPECT_EQ(root.string(), String(U"/"));
}

TEST(PathJoin, RvalueOperatorsWithThePathOnBothSides)
{
    Path joined("a");
    Path const slash = std::move(joined) / joined;
    EXPECT_EQ(slash.string(), String(U"a/a"));

    Path appended("ab");
    Path const plus = std::move(appended) + appended;
    EXPECT_EQ(plus.string(), String(U"abab"));
}

// The comparison written out step by step, code point by code point, to check
// the library's faster walk against on long texts.
int referenceCompare(String const& rawA, String const& rawB)
{
    String const a = kelvo::unicode::toNFD(rawA);
    String const b = kelvo::unicode::toNFD(rawB);
    std::size_t const n = std::max(a.size(), b.size());
    for (std::size_t i = 0; i < n; ++i) {
        char32_t const x = i < a.size() ? a[i] : 0;
        char32_t const y = i < b.size() ? b[i] : 0;
        if (x == y)
            continue;
        char32_t fx, fy;
        if ((x | y) > 0x7F) {
            fx = kelvo::unicode::simpleCaseFold(x);
            fy = kelvo::unicode::simpleCaseFold(y);
        } else {
            fx = static_cast<char32_t>(std::tolower(static_cast<int>(x)));
            fy = static_cast<char32_t>(std::tolower(static_cast<int>(y)));
        }
        if (fx != fy)
            return x < y ? -1 : 1;
    }
    if (a.size() == b.size())
        return 0;
    return a.size() < b.size() ? -1 : 1;
}

TEST(PathCompareLong, AgreesWithTheStepByStepComparisonAtEveryPosition)
{
    // Texts long enough for the comparison's grouped walk, differing in case
    // or in value at every position, and in length.
    std::mt19937 random(20261122u);
    std::u32string const alphabet = U"aAbBzZ@[`{/._-0\u00e9\u00c9\u03c3\u03a3\u0130i\u017fs";
    std::uniform_int_distribution<std::size_t> pick(0, alphabet.size() - 1);
    for (std::size_t length : {15u, 16u, 17u, 31u, 32u, 33u, 100u, 257u}) {
        for (int round = 0; round < 200; ++round) {
            String a;
            for (std::size_t i = 0; i < length; ++i)
                a.push_back(alphabet[pick(random)]);
            String b = a;
            std::size_t const position = static_cast<std::size_t>(random()) % length;
            switch (round % 4) {
            case 0: b[position] = alphabet[pick(random)]; break;
            case 1: {
                char32_t const c = b[position];
                b[position] = (c >= U'a' && c <= U'z') ? c - 32 : (c >= U'A' && c <= U'Z') ? c + 32 : c;
                break;
            }
            case 2: b.resize(position); break;
            default: b.push_back(alphabet[pick(random)]); break;
            }
            ASSERT_EQ(compare(a, b), referenceCompare(a, b)) << "length " << length << ", round " << round;
            ASSERT_EQ(compare(b, a), referenceCompare(b, a)) << "length " << length << ", round " << round;
            ASSERT_EQ(Path(a) == Path(b), referenceCompare(a, b) == 0);
            ASSERT_EQ(Path(a) < Path(b), referenceCompare(a, b) < 0);
        }
    }
}

TEST(PathCompareLong, CaseDifferencesAcrossALongTextAreIgnored)
{
    String lower(400, U'x');
    String upper(400, U'X');
    lower[399] = U'/';
    upper[399] = U'/';
    EXPECT_EQ(compare(lower, upper), 0);
    EXPECT_TRUE(Path(lower) == Path(upper));
    upper[200] = U'Y';
    // "x" against "Y": the raw code points decide, so the lower-case text
    // sorts after.
    EXPECT_EQ(compare(lower, upper), 1);
    EXPECT_EQ(compare(upper, lower), -1);
}

} // namespace
