// Tests of kelvo::unicode::String: UTF-8 decoding and encoding, lossless bytes, the native and wide forms, and the string operations the library uses.
#include <kelvo/text/String.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using kelvo::unicode::String;

std::string bytes(std::initializer_list<unsigned> values)
{
    std::string out;
    for (unsigned v : values)
        out.push_back(static_cast<char>(v));
    return out;
}

String codePoints(std::initializer_list<char32_t> values) { return String(std::u32string(values)); }

// A plain reference encoder for scalar values, written out byte by byte.
std::string referenceUTF8(char32_t c)
{
    std::string out;
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (c >> 12)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (c >> 18)));
        out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
    return out;
}

std::string const kReplacementUTF8 = bytes({0xEF, 0xBF, 0xBD});

// ---------------------------------------------------------------- decoding

TEST(StringDecode, EmptyTextGivesEmptyString)
{
    String const s{std::string()};
    EXPECT_TRUE(s.empty());
    EXPECT_EQ(s.size(), 0u);
}

TEST(StringDecode, AsciiIsOneCodePointPerByte)
{
    String const s(std::string("a/b.TXT"));
    EXPECT_EQ(s, String(U"a/b.TXT"));
    EXPECT_EQ(s.size(), 7u);
}

TEST(StringDecode, NulByteIsKeptAsCodePointZero)
{
    String const s(std::string("a\0b", 3));
    ASSERT_EQ(s.size(), 3u);
    EXPECT_EQ(s[0], U'a');
    EXPECT_EQ(s[1], U'\0');
    EXPECT_EQ(s[2], U'b');
}

TEST(StringDecode, MultiByteSequencesAtEveryLengthBoundary)
{
    struct Case {
        std::string utf8;
        char32_t expected;
    };
    std::vector<Case> const cases = {
        {bytes({0x7F}), 0x7F},
        {bytes({0xC2, 0x80}), 0x80},
        {bytes({0xC3, 0xA9}), 0xE9},
        {bytes({0xDF, 0xBF}), 0x7FF},
        {bytes({0xE0, 0xA0, 0x80}), 0x800},
        {bytes({0xE2, 0x82, 0xAC}), 0x20AC},
        {bytes({0xED, 0x9F, 0xBF}), 0xD7FF},
        {bytes({0xEE, 0x80, 0x80}), 0xE000},
        {bytes({0xEF, 0xBF, 0xBD}), 0xFFFD},
        {bytes({0xEF, 0xBF, 0xBF}), 0xFFFF},
        {bytes({0xF0, 0x90, 0x80, 0x80}), 0x10000},
        {bytes({0xF0, 0x9F, 0x98, 0x80}), 0x1F600},
        {bytes({0xF4, 0x8F, 0xBF, 0xBF}), 0x10FFFF},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(testing::Message() << "code point " << std::hex << static_cast<std::uint32_t>(c.expected));
        String const s(c.utf8);
        ASSERT_EQ(s.size(), 1u);
        EXPECT_EQ(s[0], c.expected);
    }
}

TEST(StringDecode, MixedTextDecodesInOrder)
{
    String const s(std::string("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z"));
    EXPECT_EQ(s, codePoints({U'a', 0xE9, 0x20AC, 0x1F600, U'z'}));
}

TEST(StringDecode, BytesThatAreNotUtf8BecomeEscapes)
{
    struct Case {
        char const* what;
        std::string utf8;
        String expected;
    };
    std::vector<Case> const cases = {
        {"lone continuation 80", bytes({0x80}), codePoints({0xDC80})},
        {"lone continuation BF", bytes({0xBF}), codePoints({0xDCBF})},
        {"byte FF", bytes({0xFF}), codePoints({0xDCFF})},
        {"byte FE", bytes({0xFE}), codePoints({0xDCFE})},
        {"bytes F5 to F7 are never leads", bytes({0xF5, 0xF6, 0xF7}), codePoints({0xDCF5, 0xDCF6, 0xDCF7})},
        {"overlong two-byte slash", bytes({0xC0, 0xAF}), codePoints({0xDCC0, 0xDCAF})},
        {"overlong two-byte C1", bytes({0xC1, 0xBF}), codePoints({0xDCC1, 0xDCBF})},
        {"overlong three-byte", bytes({0xE0, 0x80, 0xAF}), codePoints({0xDCE0, 0xDC80, 0xDCAF})},
        {"overlong four-byte", bytes({0xF0, 0x8F, 0xBF, 0xBF}), codePoints({0xDCF0, 0xDC8F, 0xDCBF, 0xDCBF})},
        {"encoded high surrogate", bytes({0xED, 0xA0, 0x80}), codePoints({0xDCED, 0xDCA0, 0xDC80})},
        {"encoded low surrogate", bytes({0xED, 0xB2, 0x80}), codePoints({0xDCED, 0xDCB2, 0xDC80})},
        {"beyond U+10FFFF", bytes({0xF4, 0x90, 0x80, 0x80}), codePoints({0xDCF4, 0xDC90, 0xDC80, 0xDC80})},
        {"truncated at the end", bytes({0xE2, 0x82}), codePoints({0xDCE2, 0xDC82})},
        {"truncated before ASCII", bytes({0xE2, 0x82, 0x41}), codePoints({0xDCE2, 0xDC82, U'A'})},
        {"lead before a lead", bytes({0xC3, 0xC3, 0xA9}), codePoints({0xDCC3, 0xE9})},
        {"four-byte truncated", bytes({0xF0, 0x9F, 0x98}), codePoints({0xDCF0, 0xDC9F, 0xDC98})},
        {"Latin-1 text", bytes({0x52, 0xE9, 0x73}), codePoints({U'R', 0xDCE9, U's'})},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(String(c.utf8), c.expected);
    }
}

// ---------------------------------------------------------------- encoding

TEST(StringEncode, EmptyStringEncodesEmpty)
{
    EXPECT_EQ(String().toUTF8String(), std::string());
    EXPECT_EQ(String().toNativeString(), std::string());
    EXPECT_EQ(String().toWString(), std::wstring());
}

TEST(StringEncode, ScalarValuesAtEveryLengthBoundary)
{
    for (char32_t c : {char32_t(0), char32_t(0x41), char32_t(0x7F), char32_t(0x80), char32_t(0x7FF), char32_t(0x800),
                       char32_t(0xD7FF), char32_t(0xE000), char32_t(0xFFFD), char32_t(0xFFFF), char32_t(0x10000),
                       char32_t(0x10FFFF)}) {
        SCOPED_TRACE(testing::Message() << "code point " << std::hex << static_cast<std::uint32_t>(c));
        EXPECT_EQ(codePoints({c}).toUTF8String(), referenceUTF8(c));
    }
    EXPECT_EQ(codePoints({0xE9}).toUTF8String(), bytes({0xC3, 0xA9}));
    EXPECT_EQ(codePoints({0x20AC}).toUTF8String(), bytes({0xE2, 0x82, 0xAC}));
    EXPECT_EQ(codePoints({0x1F600}).toUTF8String(), bytes({0xF0, 0x9F, 0x98, 0x80}));
}

TEST(StringEncode, EveryScalarValueRoundTrips)
{
    String all;
    std::string expected;
    all.reserve(0x110000);
    for (char32_t c = 0; c <= 0x10FFFF; ++c) {
        if (c >= 0xD800 && c <= 0xDFFF)
            continue;
        all.push_back(c);
        expected += referenceUTF8(c);
    }
    std::string const encoded = all.toUTF8String();
    ASSERT_EQ(encoded.size(), expected.size());
    EXPECT_TRUE(encoded == expected);
    String const decoded(encoded);
    ASSERT_EQ(decoded.size(), all.size());
    EXPECT_TRUE(decoded == all);
}

TEST(StringEncode, EscapedBytesEncodeAsThemselves)
{
    for (char32_t c = 0xDC80; c <= 0xDCFF; ++c) {
        std::string const expected(1, static_cast<char>(c - 0xDC00));
        EXPECT_EQ(codePoints({c}).toUTF8String(), expected);
        EXPECT_EQ(codePoints({c}).toNativeString(), expected);
    }
}

TEST(StringEncode, OtherSurrogatesEncodeAsReplacementCharacter)
{
    for (char32_t c : {char32_t(0xD800), char32_t(0xDB7F), char32_t(0xDBFF), char32_t(0xDC00), char32_t(0xDC7F),
                       char32_t(0xDD00), char32_t(0xDFFF)}) {
        SCOPED_TRACE(testing::Message() << "code point " << std::hex << static_cast<std::uint32_t>(c));
        EXPECT_EQ(codePoints({c}).toUTF8String(), kReplacementUTF8);
        EXPECT_EQ(codePoints({c}).toNativeString(), kReplacementUTF8);
    }
    // Every surrogate outside the escape range, in one text.
    String text;
    std::string expected;
    for (char32_t c = 0xD800; c <= 0xDFFF; ++c) {
        if (c >= 0xDC80 && c <= 0xDCFF)
            continue;
        text.push_back(c);
        expected += kReplacementUTF8;
    }
    EXPECT_TRUE(text.toUTF8String() == expected);
}

TEST(StringEncode, ValuesAboveUnicodeEncodeAsReplacementCharacter)
{
    for (char32_t c : {char32_t(0x110000), char32_t(0x1FFFFF), char32_t(0x7FFFFFFF), char32_t(0x80000000),
                       char32_t(0xFFFFFFFF)}) {
        SCOPED_TRACE(testing::Message() << "value " << std::hex << static_cast<std::uint32_t>(c));
        EXPECT_EQ(codePoints({c}).toUTF8String(), kReplacementUTF8);
        EXPECT_EQ(codePoints({c}).toNativeString(), kReplacementUTF8);
    }
    EXPECT_EQ(codePoints({U'a', 0x110000, U'b'}).toUTF8String(), "a" + kReplacementUTF8 + "b");
}

// ------------------------------------------------------- lossless bytes

TEST(StringLosslessBytes, EverySingleByteRoundTrips)
{
    for (unsigned b = 0; b < 256; ++b) {
        std::string const original(1, static_cast<char>(b));
        String const decoded(original);
        ASSERT_EQ(decoded.size(), 1u) << "byte " << b;
        EXPECT_EQ(decoded[0], b < 0x80 ? char32_t(b) : char32_t(0xDC00 + b)) << "byte " << b;
        EXPECT_EQ(decoded.toUTF8String(), original) << "byte " << b;
    }
}

TEST(StringLosslessBytes, EveryPairOfBytesRoundTrips)
{
    for (unsigned a = 0; a < 256; ++a) {
        for (unsigned b = 0; b < 256; ++b) {
            std::string const original = bytes({a, b});
            std::string const back = String(original).toUTF8String();
            if (back != original) {
                ADD_FAILURE() << "bytes " << a << " " << b << " did not round trip";
                return;
            }
        }
    }
}

TEST(StringLosslessBytes, EveryTripleStartingWithALeadByteRoundTrips)
{
    for (unsigned a = 0xE0; a < 0x100; ++a) {
        for (unsigned b = 0x70; b < 0x100; ++b) {
            for (unsigned c = 0x70; c < 0x100; ++c) {
                std::string const original = bytes({a, b, c});
                if (String(original).toUTF8String() != original) {
                    ADD_FAILURE() << "bytes " << a << " " << b << " " << c << " did not round trip";
                    return;
                }
            }
        }
    }
}

TEST(StringLosslessBytes, RandomByteStringsRoundTrip)
{
    std::mt19937 random(20240517u);
    std::uniform_int_distribution<int> length(0, 80);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int round = 0; round < 5000; ++round) {
        std::string original;
        int const n = length(random);
        for (int i = 0; i < n; ++i)
            original.push_back(static_cast<char>(byte(random)));
        String const decoded(original);
        EXPECT_LE(decoded.size(), original.size());
        if (decoded.toUTF8String() != original) {
            ADD_FAILURE() << "random byte string of round " << round << " did not round trip";
            return;
        }
    }
}

TEST(StringLosslessBytes, RandomHighByteStringsRoundTrip)
{
    // Mostly bytes above 0x7F, where valid and broken sequences mix densely.
    std::mt19937 random(77u);
    std::uniform_int_distribution<int> length(1, 40);
    std::uniform_int_distribution<int> byte(0x70, 0xFF);
    for (int round = 0; round < 5000; ++round) {
        std::string original;
        int const n = length(random);
        for (int i = 0; i < n; ++i)
            original.push_back(static_cast<char>(byte(random)));
        if (String(original).toUTF8String() != original) {
            ADD_FAILURE() << "high byte string of round " << round << " did not round trip";
            return;
        }
    }
}

TEST(StringLosslessBytes, EscapesSurviveNativeForm)
{
    std::string const original = bytes({0x52, 0xE9, 0x73, 0x75, 0x6D, 0xE9, 0xFF, 0x80});
    EXPECT_EQ(String(original).toNativeString(), original);
}

// ------------------------------------------------------------ wide form

TEST(StringWide, OneWideCharacterPerCodePoint)
{
    String const s = codePoints({U'a', 0xE9, 0x20AC, 0x1F600, 0x10FFFF, 0xDC80});
    std::wstring const w = s.toWString();
    ASSERT_EQ(w.size(), s.size());
    for (String::size_type i = 0; i < s.size(); ++i)
        EXPECT_EQ(static_cast<char32_t>(w[i]), s[i]) << "index " << i;
    EXPECT_EQ(String(U"a*b?.txt").toWString(), std::wstring(L"a*b?.txt"));
}

TEST(StringWide, DecomposedTextStaysDecomposed)
{
    EXPECT_EQ(String(U"e\u0301").toWString(), std::wstring(L"e\u0301"));
}

// ----------------------------------------------------------- native form

TEST(StringNative, AsciiIsUnchanged)
{
    EXPECT_EQ(String(U"/tmp/a b/c.txt").toNativeString(), "/tmp/a b/c.txt");
}

#if defined(__linux__)

TEST(StringNative, ComposesToNFC)
{
    struct Case {
        char const* what;
        String text;
        std::string native;
    };
    std::vector<Case> const cases = {
        {"e and acute", String(U"e\u0301"), bytes({0xC3, 0xA9})},
        {"precomposed stays", String(U"\u00E9"), bytes({0xC3, 0xA9})},
        {"A and ring", String(U"A\u030A"), bytes({0xC3, 0x85})},
        {"angstrom sign singleton", String(U"\u212B"), bytes({0xC3, 0x85})},
        {"hangul jamo", String(U"\u1100\u1161\u11A8"), bytes({0xEA, 0xB0, 0x81})},
        {"marks reordered then composed", String(U"a\u0301\u0316"), bytes({0xC3, 0xA1, 0xCC, 0x96})},
        {"composition exclusion stays decomposed", String(U"\u0915\u093C"), bytes({0xE0, 0xA4, 0x95, 0xE0, 0xA4, 0xBC})},
        {"whole path", String(U"/home/Re\u0301sume\u0301.pdf"), std::string("/home/R\xC3\xA9sum\xC3\xA9.pdf")},
        {"mark at the start", String(U"\u0301a"), bytes({0xCC, 0x81, 0x61})},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(c.text.toNativeString(), c.native);
    }
}

TEST(StringNative, EscapedByteNeverComposesWithAMark)
{
    // The escaped byte is not a character: the mark after it stays a mark.
    EXPECT_EQ(codePoints({0xDCFF, 0x301}).toNativeString(), bytes({0xFF, 0xCC, 0x81}));
    EXPECT_EQ(codePoints({0xDCFF, U'e', 0x301, 0xDC80}).toNativeString(), bytes({0xFF, 0xC3, 0xA9, 0x80}));
    EXPECT_EQ(codePoints({U'e', 0xDC80, 0x301}).toNativeString(), bytes({0x65, 0x80, 0xCC, 0x81}));
}

TEST(StringNative, UTF8FormIsNotComposed)
{
    EXPECT_EQ(String(U"e\u0301").toUTF8String(), bytes({0x65, 0xCC, 0x81}));
}

#endif

// ------------------------------------------------ string operations used

TEST(StringApi, SizeTypeAndNpos)
{
    static_assert(std::is_same<String::size_type, unsigned long>::value, "size type is unsigned long");
    static_assert(sizeof(String::size_type) == 8, "size type is 64 bits");
    static_assert(std::is_same<String::const_iterator, std::u32string::const_iterator>::value,
                  "iterators are the standard string's");
    static_assert(std::is_base_of<std::u32string, String>::value, "storage is the standard string");
    EXPECT_EQ(String::npos, static_cast<String::size_type>(-1));
    EXPECT_EQ(String::npos, std::u32string::npos);
}

TEST(StringApi, Constructors)
{
    EXPECT_TRUE(String().empty());
    EXPECT_EQ(String(3, U'/'), String(U"///"));
    EXPECT_EQ(String(0, U'x'), String());
    String const source(U"abcdef");
    EXPECT_EQ(String(source.cbegin() + 1, source.cbegin() + 4), String(U"bcd"));
    EXPECT_EQ(String(source.cbegin(), source.cbegin()), String());
    EXPECT_EQ(String(std::u32string(U"xyz")), String(U"xyz"));
    String moved(U"text");
    String const target(std::move(moved));
    EXPECT_EQ(target, String(U"text"));
    String assigned;
    assigned = String(U"other");
    EXPECT_EQ(assigned, String(U"other"));
}

TEST(StringApi, ElementAccess)
{
    String s(U"abc");
    String const& c = s;
    EXPECT_EQ(c[0], U'a');
    EXPECT_EQ(c[2], U'c');
    EXPECT_EQ(c.front(), U'a');
    EXPECT_EQ(c.back(), U'c');
    s[1] = U'X';
    s.back() = U'Z';
    EXPECT_EQ(s, String(U"aXZ"));
    EXPECT_EQ(*s.rbegin(), U'Z');
    EXPECT_EQ(std::u32string(s.rbegin(), s.rend()), std::u32string(U"ZXa"));
    EXPECT_EQ(s.end() - s.begin(), 3);
    EXPECT_EQ(c.cend() - c.cbegin(), 3);
    EXPECT_EQ(c.end() - c.begin(), 3);
}

TEST(StringApi, ConstIndexAtSizeReadsNul)
{
    String const s(U"ab");
    EXPECT_EQ(s[s.size()], U'\0');
    String const empty;
    EXPECT_EQ(empty[0], U'\0');
}

TEST(StringApi, SizeLengthEmpty)
{
    String const s(U"e\u0301x");
    EXPECT_EQ(s.size(), 3u);
    EXPECT_EQ(s.length(), 3u);
    EXPECT_FALSE(s.empty());
    EXPECT_TRUE(String().empty());
}

TEST(StringApi, SearchesWithDefaultPositions)
{
    String const s(U"/a/b.c/d.e");
    EXPECT_EQ(s.find(U'/'), 0u);
    EXPECT_EQ(s.find(U'/', 1), 2u);
    EXPECT_EQ(s.find(U'z'), String::npos);
    EXPECT_EQ(s.find(String(U"b.c")), 3u);
    EXPECT_EQ(s.find(String(U"/"), 3), 6u);
    EXPECT_EQ(s.find(String(U"zz")), String::npos);
    EXPECT_EQ(s.find(String()), 0u);
    EXPECT_EQ(s.find_first_of(U'.'), 4u);
    EXPECT_EQ(s.find_first_of(U'.', 5), 8u);
    EXPECT_EQ(s.find_first_of(U'q'), String::npos);
    EXPECT_EQ(s.find_last_of(U'/'), 6u);
    EXPECT_EQ(s.find_last_of(U'/', 5), 2u);
    EXPECT_EQ(s.find_last_of(U'/', 0), 0u);
    EXPECT_EQ(s.find_last_of(U'/', String::npos), 6u);
    EXPECT_EQ(s.find_last_of(U'q'), String::npos);
    EXPECT_EQ(s.find_last_of(String(U"./")), 8u);
    EXPECT_EQ(s.find_last_of(String(U"./"), 7), 6u);
    EXPECT_EQ(s.find_last_of(String(U"xyz")), String::npos);
    EXPECT_EQ(s.find_first_not_of(U'/'), 1u);
    EXPECT_EQ(String(U"///a").find_first_not_of(U'/'), 3u);
    EXPECT_EQ(String(U"///a").find_first_not_of(U'/', 3), 3u);
    EXPECT_EQ(String(U"///").find_first_not_of(U'/'), String::npos);
    EXPECT_EQ(String().find(U'/'), String::npos);
    EXPECT_EQ(String().find_last_of(U'/'), String::npos);
}

TEST(StringApi, SubstrReplaceEraseClipAtTheEnd)
{
    String const s(U"abcdef");
    EXPECT_EQ(String(s.substr()), s);
    EXPECT_EQ(String(s.substr(2)), String(U"cdef"));
    EXPECT_EQ(String(s.substr(2, 2)), String(U"cd"));
    EXPECT_EQ(String(s.substr(4, 100)), String(U"ef"));
    EXPECT_EQ(String(s.substr(1, String::npos)), String(U"bcdef"));
    EXPECT_EQ(String(s.substr(6)), String());

    String r(U"abcdef");
    r.replace(2, 2, String(U"XYZ"));
    EXPECT_EQ(r, String(U"abXYZef"));
    r.replace(5, String::npos, String(U"!"));
    EXPECT_EQ(r, String(U"abXYZ!"));
    r.replace(4, 100, String());
    EXPECT_EQ(r, String(U"abXY"));

    String e(U"abcdef");
    e.erase(3);
    EXPECT_EQ(e, String(U"abc"));
    e.erase(0);
    EXPECT_TRUE(e.empty());
}

TEST(StringApi, AppendResizeClear)
{
    String s(U"a");
    s.append(String(U"bc"));
    s.append(2, U'/');
    s += String(U"d");
    s += U'e';
    EXPECT_EQ(s, String(U"abc//de"));
    s.resize(3);
    EXPECT_EQ(s, String(U"abc"));
    s.clear();
    EXPECT_TRUE(s.empty());
}

TEST(StringApi, SixConcatenationForms)
{
    String const left(U"ab");
    String const right(U"cd");
    {
        String const r = left + U'x';
        EXPECT_EQ(r, String(U"abx"));
        EXPECT_EQ(left, String(U"ab"));
    }
    {
        String a(U"ab");
        String const r = std::move(a) + U'x';
        EXPECT_EQ(r, String(U"abx"));
    }
    {
        String const r = U'x' + left;
        EXPECT_EQ(r, String(U"xab"));
        EXPECT_EQ(left, String(U"ab"));
    }
    {
        String a(U"ab");
        String const r = std::move(a) + right;
        EXPECT_EQ(r, String(U"abcd"));
        EXPECT_EQ(right, String(U"cd"));
    }
    {
        String b(U"cd");
        String const r = left + std::move(b);
        EXPECT_EQ(r, String(U"abcd"));
        EXPECT_EQ(left, String(U"ab"));
    }
    {
        String a(U"ab");
        String b(U"cd");
        String const r = std::move(a) + std::move(b);
        EXPECT_EQ(r, String(U"abcd"));
    }
    {
        String const r = left + right;
        EXPECT_EQ(r, String(U"abcd"));
    }
    static_assert(std::is_same<decltype(left + U'x'), String>::value, "String + char32_t is a String");
    static_assert(std::is_same<decltype(U'x' + left), String>::value, "char32_t + String is a String");
    static_assert(std::is_same<decltype(String() + right), String>::value, "String&& + String is a String");
    static_assert(std::is_same<decltype(left + String()), String>::value, "String + String&& is a String");
    static_assert(std::is_same<decltype(String() + String()), String>::value, "String&& + String&& is a String");
    EXPECT_EQ(String() + String(), String());
    EXPECT_EQ(String() + U'/', String(U"/"));
}

TEST(StringApi, ExactComparisonIsByCodePoint)
{
    EXPECT_TRUE(String(U"abc") == String(U"abc"));
    EXPECT_FALSE(String(U"abc") != String(U"abc"));
    EXPECT_FALSE(String(U"a") == String(U"A"));
    EXPECT_TRUE(String(U"a") != String(U"A"));
    // No normalisation: precomposed and decomposed differ.
    EXPECT_FALSE(String(U"\u00E9") == String(U"e\u0301"));
    EXPECT_TRUE(String(U"\u00E9") != String(U"e\u0301"));

    EXPECT_TRUE(String(U"B") < String(U"a"));
    EXPECT_FALSE(String(U"a") < String(U"B"));
    EXPECT_TRUE(String(U"a") > String(U"B"));
    EXPECT_TRUE(String(U"a") < String(U"b"));
    EXPECT_TRUE(String(U"ab") < String(U"abc"));
    EXPECT_TRUE(String() < String(U"a"));
    EXPECT_FALSE(String() < String());
    EXPECT_TRUE(String() <= String());
    EXPECT_TRUE(String() >= String());
    EXPECT_TRUE(String(U"abc") >= String(U"ab"));
    EXPECT_FALSE(String(U"ab") >= String(U"abc"));
    EXPECT_TRUE(String(U"ab") <= String(U"abc"));
    EXPECT_FALSE(String(U"abc") <= String(U"ab"));
    EXPECT_TRUE(String(U"abd") > String(U"abc"));
    EXPECT_FALSE(String(U"abc") > String(U"abc"));
    // Code-point order, not UTF-16 order: U+FF61 sorts before U+10000.
    EXPECT_TRUE(codePoints({0xFF61}) < codePoints({0x10000}));
    EXPECT_TRUE(codePoints({0x10FFFF}) < codePoints({0x110000}));
    EXPECT_TRUE(codePoints({0x7FFFFFFF}) < codePoints({0xFFFFFFFF}));
}

TEST(StringConcatenation, WideLiteralsJoinOnEitherSide)
{
    String const middle(U"b");
    String const left = U"a" + middle;
    String const right = middle + U"c";
    EXPECT_EQ(left, String(U"ab"));
    EXPECT_EQ(right, String(U"bc"));
}

TEST(StringConcatenation, WideLiteralsJoinTemporaries)
{
    EXPECT_EQ(String(U"a") + U"/", String(U"a/"));
    EXPECT_EQ(U"/" + String(U"a"), String(U"/a"));
    EXPECT_EQ(String(U"a") + U"" + U"b", String(U"ab"));
}

TEST(StringConstruction, NarrowLiteralsStandForStrings)
{
    String const fromLiteral = "R\xC3\xA9sum\xC3\xA9";
    EXPECT_EQ(fromLiteral, String(std::string("R\xC3\xA9sum\xC3\xA9")));
    EXPECT_EQ(fromLiteral.size(), 6u);
    EXPECT_EQ(String("raw\xFF"), String(std::u32string{U'r', U'a', U'w', char32_t(0xDCFF)}));
    EXPECT_TRUE(String(static_cast<char const*>(nullptr)).empty());
    auto const takesString = [](String const& text) { return text.size(); };
    EXPECT_EQ(takesString("abc"), 3u);
}

} // namespace
