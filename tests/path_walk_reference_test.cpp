// Element walks, file names and comparisons checked against slow reference versions written from the rules, on long, accented, decomposed and invalid byte paths.
#include <kelvo/filesystem.h>
#include <kelvo/filesystem/private/Compare.h>
#include <kelvo/text/Unicode.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <string>
#include <vector>

namespace {

using kelvo::filesystem::Path;
using kelvo::unicode::String;

// ---- the reference walk ------------------------------------------------------------

// The elements of a path, cut from its native bytes by the rules of the walk
// written out step by step: a root name ("//" and a name), a root directory,
// each name (runs of separators between names count once; an empty name
// where a run follows the root directory), and "." for a trailing separator.
// Separators stand at the same places in the bytes as in the text, so the
// pieces of the bytes are exactly the native forms of the elements.
std::vector<std::string> referenceWalk(std::string const& s)
{
    std::vector<std::string> out;
    std::size_t const n = s.size();
    if (n == 0)
        return out;
    // Where the text after a root part resumes: the last separator of the run.
    auto separatorWalk = [&](std::size_t p) {
        for (;;) {
            if (p == n)
                return n;
            if (p + 1 == n)
                return p;
            if (s[p] != '/' || s[p + 1] != '/')
                return p;
            ++p;
        }
    };
    std::size_t pos = 0;
    if (n >= 3 && s[0] == '/' && s[1] == '/' && s[2] != '/') {
        std::size_t end = s.find('/', 2);
        if (end == std::string::npos)
            end = n;
        out.push_back(s.substr(0, end));
        std::size_t const next = separatorWalk(end);
        if (next == n)
            return out;
        pos = next;
    }
    if (s[pos] == '/') {
        out.push_back("/");
        std::size_t const next = separatorWalk(pos + 1);
        if (next == n)
            return out;
        pos = next;
    }
    for (;;) {
        std::size_t const p = s.find('/', pos);
        if (p != std::string::npos) {
            out.push_back(s.substr(pos, p - pos));
            pos = p + 1;
            while (pos < n && s[pos] == '/')
                ++pos;
            continue;
        }
        out.push_back(pos < n ? s.substr(pos) : std::string("."));
        return out;
    }
}

struct Element {
    String text;
    std::string native;
};

std::vector<Element> walkFrom(Path::iterator it, Path::iterator const& end)
{
    std::vector<Element> out;
    for (; it != end; ++it) {
        out.push_back(Element{it->string(), it->nativeString()});
        if (out.size() > 10000) {
            ADD_FAILURE() << "the walk does not end";
            break;
        }
    }
    return out;
}

// Checks every element of `p` against the reference, text and bytes, and
// every copy of the iterator taken on the way.
void checkWalk(Path const& p)
{
    std::string const native = p.nativeString();
    std::vector<std::string> const expected = referenceWalk(native);
    std::vector<Element> const walked = walkFrom(p.begin(), p.end());
    ASSERT_EQ(walked.size(), expected.size()) << native;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE("element " + std::to_string(i) + " of \"" + native + "\"");
        EXPECT_EQ(walked[i].native, expected[i]);
        // A piece of a normalised text is normalised: the element's text is
        // the text its bytes make.
        EXPECT_EQ(walked[i].text, Path(expected[i]).string());
    }
    // An iterator copied at any element walks on by itself and gives the
    // same rest as the one it was copied from.
    Path::iterator it = p.begin();
    for (std::size_t k = 0; k < expected.size(); ++k, ++it) {
        Path::iterator copy = it;
        std::vector<Element> const rest = walkFrom(copy, p.end());
        ASSERT_EQ(rest.size(), expected.size() - k) << native << " copied at " << k;
        for (std::size_t i = 0; i < rest.size(); ++i)
            EXPECT_EQ(rest[i].native, expected[k + i]) << native << " copied at " << k;
    }
    EXPECT_TRUE(it == p.end());
}

TEST(PathWalkReference, TheReferenceAgreesWithTheWorkedTable)
{
    using List = std::vector<std::string>;
    EXPECT_EQ(referenceWalk(""), List{});
    EXPECT_EQ(referenceWalk("/"), List{"/"});
    EXPECT_EQ(referenceWalk("a//b"), (List{"a", "b"}));
    EXPECT_EQ(referenceWalk("a/b/"), (List{"a", "b", "."}));
    EXPECT_EQ(referenceWalk("//server/share/x"), (List{"//server", "/", "share", "x"}));
    EXPECT_EQ(referenceWalk("//server//share"), (List{"//server", "/", "share"}));
    EXPECT_EQ(referenceWalk("//server"), List{"//server"});
    EXPECT_EQ(referenceWalk("//server/"), (List{"//server", "/"}));
    EXPECT_EQ(referenceWalk("///a"), (List{"/", "", "a"}));
    EXPECT_EQ(referenceWalk("//"), (List{"/", "", "."}));
    EXPECT_EQ(referenceWalk("./a/../b"), (List{".", "a", "..", "b"}));
}

// Names whose bytes and code points differ in number both ways.
std::vector<std::string> const kNames = {
    "a",
    "Documents",
    "r\xC3\xA9sum\xC3\xA9",            // composed: 2 bytes, 2 code points each accent
    "Re\xCC\x81sume\xCC\x81",          // decomposed bytes
    "\xED\x95\x9C\xEA\xB8\x80",        // Hangul: 3 bytes, 3 code points each once decomposed
    "\xE1\xBA\xA1\xCC\x82",            // a with dot below and circumflex: marks reordered
    "\xE2\x84\xAB",                    // angstrom sign: a singleton
    "\xF0\x9F\x98\x80-smile",          // 4 bytes, 1 code point
    "raw\xFF\xFE",                     // not UTF-8
    "\x80\x80",                        // lone continuation bytes
    "cut\xC3",                         // a sequence cut short by what follows
    "x.tar.gz",
    ".",
    "..",
    "\xC3\xA9.\xC3\xA9",
};

TEST(PathWalkReference, LongAccentedPathsElementByElement)
{
    std::string longest;
    for (int round = 0; round < 8; ++round) {
        for (std::string const& name : kNames)
            longest += "/" + name;
    }
    checkWalk(Path(longest));
    checkWalk(Path(longest + "/"));
    checkWalk(Path("/" + longest));
    checkWalk(Path("//server" + longest));
    checkWalk(Path("//server/" + longest + "//"));
    checkWalk(Path(longest.substr(1)));
}

TEST(PathWalkReference, InvalidBytesNextToSeparators)
{
    for (std::string const& text :
         {std::string("\xC3/\xA9/\xE2\x84/\xF0\x9F\x98/x"), std::string("//\xFF\xFE/\x80//\xC3\xA9"),
          std::string("\xFF"), std::string("a/\xFF/"), std::string("///\xC3/\xC3"),
          std::string("//h\xC3\xA9\xFF/\xFF//\xFF/")}) {
        SCOPED_TRACE(text);
        checkWalk(Path(text));
    }
}

TEST(PathWalkReference, ComposedNativeFormsOfDecomposedTexts)
{
    // A path made from code points gets the composed UTF-8 of its text, made
    // on first use; its elements are then cut from that form.
    String text;
    for (int round = 0; round < 6; ++round)
        text += String(std::string("/d\xC3\xA9j\xC3\xA0/\xED\x95\x9C\xEA\xB8\x80/e\xCC\x81t\xC3\xA9//x"));
    Path const p(text);
    std::string const composed = p.nativeString();
    EXPECT_NE(composed, p.string().toUTF8String());
    checkWalk(p);
}

TEST(PathWalkReference, RandomPathsElementByElement)
{
    std::mt19937 random(20261125);
    std::vector<std::string> const separators = {"/", "//", "///", "\\"};
    for (int round = 0; round < 400; ++round) {
        std::string text;
        int const parts = static_cast<int>(random() % 30);
        if (random() % 4 == 0)
            text += "//";
        for (int i = 0; i < parts; ++i) {
            if (random() % 3 != 0)
                text += separators[random() % separators.size()];
            text += kNames[random() % kNames.size()];
        }
        if (random() % 3 == 0)
            text += separators[random() % separators.size()];
        SCOPED_TRACE(text);
        checkWalk(Path(text));
    }
}

TEST(PathWalkReference, FileNamesCarryTheirOwnBytes)
{
    std::mt19937 random(17);
    for (int round = 0; round < 300; ++round) {
        std::string text;
        int const parts = 1 + static_cast<int>(random() % 12);
        for (int i = 0; i < parts; ++i)
            text += (random() % 2 ? "/" : "//") + kNames[random() % kNames.size()];
        if (random() % 5 == 0)
            text += "/";
        Path const p(text);
        std::string const native = p.nativeString();
        // The file name by its rules, on the bytes: "/" for "/", "." after a
        // trailing separator, else what follows the last separator.
        std::string expected;
        if (native == "/")
            expected = "/";
        else if (!native.empty() && native.back() == '/')
            expected = ".";
        else
            expected = native.substr(native.rfind('/') + 1);
        SCOPED_TRACE(text);
        EXPECT_EQ(p.filename().nativeString(), expected);
        EXPECT_EQ(p.filename().string(), Path(expected).string());
    }
    // The whole text, a lone separator, a trailing separator.
    EXPECT_EQ(Path(std::string("r\xC3\xA9sum\xC3\xA9")).filename().nativeString(), "r\xC3\xA9sum\xC3\xA9");
    EXPECT_EQ(Path(std::string("/")).filename().nativeString(), "/");
    EXPECT_EQ(Path(std::string("\xC3\xA9/")).filename().nativeString(), ".");
    EXPECT_EQ(Path(std::string("\xFF/\xC3\xA9\xFF")).filename().nativeString(), "\xC3\xA9\xFF");
}

TEST(PathWalkReference, ElementsOfDecomposedTextAreNotNormalisedAgain)
{
    // Marks after the separator belong to the next element and keep their
    // order; an element's text is exactly its piece of the path's text.
    Path const p(String(U"a\u0323\u0302/\u0301x/e\u0301"));
    std::vector<String> texts;
    for (Path const& element : p)
        texts.push_back(element.string());
    ASSERT_EQ(texts.size(), 3u);
    EXPECT_EQ(texts[0], String(U"a\u0323\u0302"));
    EXPECT_EQ(texts[1], String(U"\u0301x"));
    EXPECT_EQ(texts[2], String(U"e\u0301"));
}

// ---- the reference comparison --------------------------------------------------------

// The tolerant comparison of two decomposed texts, code point by code point.
int referenceCompare(String const& a, String const& b)
{
    std::size_t const n = a.size() > b.size() ? a.size() : b.size();
    for (std::size_t i = 0; i < n; ++i) {
        char32_t const x = i < a.size() ? a[i] : 0;
        char32_t const y = i < b.size() ? b[i] : 0;
        if (x == y)
            continue;
        char32_t fx = x, fy = y;
        if ((x | y) > 0x7F) {
            fx = kelvo::unicode::simpleCaseFold(x);
            fy = kelvo::unicode::simpleCaseFold(y);
        } else {
            fx = (x >= U'A' && x <= U'Z') ? x + 32 : x;
            fy = (y >= U'A' && y <= U'Z') ? y + 32 : y;
        }
        if (fx != fy)
            return x < y ? -1 : 1;
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

// A random text of `size` characters from `alphabet`, and a twin with some
// letters in the other case and, at one place, perhaps another character.
std::string randomText(std::mt19937& random, std::string const& alphabet, std::size_t size)
{
    std::string text;
    for (std::size_t i = 0; i < size; ++i)
        text += alphabet[random() % alphabet.size()];
    return text;
}

std::string twinOf(std::mt19937& random, std::string text, std::string const& alphabet)
{
    for (char& c : text) {
        if (random() % 3 == 0 && ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')))
            c = static_cast<char>(c ^ 0x20);
    }
    if (!text.empty() && random() % 2 == 0)
        text[random() % text.size()] = alphabet[random() % alphabet.size()];
    if (random() % 4 == 0)
        text.resize(random() % (text.size() + 1));
    return text;
}

TEST(PathCompareReference, AsciiPathsOfEveryLengthAgreeWithTheReference)
{
    // Letters, the characters next to them in the code ('@', '[', '`', '{'),
    // and separators: case pairs and near misses at every position, around
    // every group size the comparison steps by.
    std::string const alphabet = "aAzZbB@[`{/.09mM";
    std::mt19937 random(7);
    for (std::size_t size = 0; size <= 200; ++size) {
        for (int round = 0; round < 12; ++round) {
            std::string const left = randomText(random, alphabet, size);
            std::string const right = twinOf(random, left, alphabet);
            Path const a(left);
            Path const b(right);
            int const expected = referenceCompare(a.string(), b.string());
            SCOPED_TRACE("\"" + left + "\" and \"" + right + "\"");
            EXPECT_EQ(a == b, expected == 0);
            EXPECT_EQ(a != b, expected != 0);
            EXPECT_EQ(a < b, expected < 0);
            EXPECT_EQ(a <= b, expected <= 0);
            EXPECT_EQ(a > b, expected > 0);
            EXPECT_EQ(a >= b, expected >= 0);
            EXPECT_EQ(kelvo_private::filesystem::compare(a.string(), b.string()), expected);
            // The same texts from code points, whose native forms are made
            // on first use, compare alike.
            EXPECT_EQ(Path(a.string()) == Path(b.string()), expected == 0);
            EXPECT_EQ(Path(a.string()) < Path(b.string()), expected < 0);
        }
    }
}

TEST(PathCompareReference, AccentedPathsOfEveryLengthAgreeWithTheReference)
{
    std::vector<std::string> const pieces = {"e", "E", "\xC3\xA9", "\xC3\x89", "\xC3\x9F", "\xE1\xBA\x9E", "/", "a",
                                             "\xCE\xA3", "\xCF\x83", "\xCF\x82", "k", "\xE2\x84\xAA", "\xFF"};
    std::mt19937 random(11);
    for (std::size_t size = 0; size <= 120; ++size) {
        for (int round = 0; round < 6; ++round) {
            std::string left, right;
            for (std::size_t i = 0; i < size; ++i) {
                std::size_t const k = random() % pieces.size();
                left += pieces[k];
                // Mostly the same piece, sometimes its case twin or another.
                std::size_t const r = random() % 8;
                right += r < 5 ? pieces[k] : r < 7 ? pieces[k ^ 1] : pieces[random() % pieces.size()];
            }
            Path const a(left);
            Path const b(right);
            int const expected = referenceCompare(a.string(), b.string());
            SCOPED_TRACE("\"" + left + "\" and \"" + right + "\"");
            EXPECT_EQ(a == b, expected == 0);
            EXPECT_EQ(a != b, expected != 0);
            EXPECT_EQ(a < b, expected < 0);
            EXPECT_EQ(a >= b, expected >= 0);
        }
    }
}

TEST(PathAppendJunction, OnlyACombiningMarkAtTheJoinIsReordered)
{
    // A mark that starts the right operand may have to move before one that
    // ends the left: the result is the decomposition of the whole.
    Path const left(String(U"a\u0301"));
    Path const right(String(U"\u0323b"));
    EXPECT_EQ((left + right).string(), String(U"a\u0323\u0301b"));
    Path joined = left;
    joined += right;
    EXPECT_EQ(joined.string(), String(U"a\u0323\u0301b"));
    // A starter at the join changes nothing.
    EXPECT_EQ((left + Path(String(U"b\u0323"))).string(), String(U"a\u0301b\u0323"));
    EXPECT_EQ((Path(std::string("e\xCC\x81")) + Path(std::string("/\xC3\xA9"))).string(), String(U"e\u0301/e\u0301"));
}

} // namespace
