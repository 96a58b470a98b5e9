// Conformance of isNFD, toNFD and simpleCaseFold with the Unicode Consortium's normalization and case-folding data, and their safety on arbitrary 32-bit values.
#include <kelvo/text/String.h>
#include <kelvo/text/Unicode.h>

#include <kelvo/filesystem/Path.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

using kelvo::unicode::isNFD;
using kelvo::unicode::simpleCaseFold;
using kelvo::unicode::String;
using kelvo::unicode::toNFD;

constexpr char32_t kLastCodePoint = 0x10FFFF;

std::string hex(String const& s)
{
    std::ostringstream out;
    out << std::hex << std::uppercase;
    for (String::size_type i = 0; i < s.size(); ++i)
        out << (i ? " " : "") << static_cast<std::uint32_t>(s[i]);
    return out.str();
}

// "0044 0307" -> the code points.
String parseCodePoints(std::string const& field)
{
    String out;
    std::istringstream in(field);
    std::string word;
    while (in >> word)
        out.push_back(static_cast<char32_t>(std::stoul(word, nullptr, 16)));
    return out;
}

std::vector<std::string> splitFields(std::string const& line)
{
    std::vector<std::string> fields;
    std::string::size_type start = 0;
    for (;;) {
        std::string::size_type const p = line.find(';', start);
        if (p == std::string::npos) {
            fields.push_back(line.substr(start));
            return fields;
        }
        fields.push_back(line.substr(start, p - start));
        start = p + 1;
    }
}

struct NormalizationLine {
    int lineNumber;
    bool partOne;
    String columns[5];
};

struct NormalizationData {
    std::vector<NormalizationLine> lines;
    std::vector<bool> listedInPartOne = std::vector<bool>(kLastCodePoint + 1, false);
};

NormalizationData const& normalizationData()
{
    static NormalizationData const data = [] {
        NormalizationData d;
        std::ifstream in(KELVO_NORMALIZATION_TEST_FILE);
        std::string line;
        std::string part;
        int number = 0;
        while (std::getline(in, line)) {
            ++number;
            std::string::size_type const hash = line.find('#');
            if (hash != std::string::npos)
                line.erase(hash);
            if (line.empty())
                continue;
            if (line[0] == '@') {
                part = line.substr(0, line.find_first_of(" \t"));
                continue;
            }
            std::vector<std::string> const fields = splitFields(line);
            if (fields.size() < 5)
                continue;
            NormalizationLine entry{number, part == "@Part1", {}};
            for (int i = 0; i < 5; ++i)
                entry.columns[i] = parseCodePoints(fields[static_cast<std::size_t>(i)]);
            if (entry.partOne && entry.columns[0].size() == 1 && entry.columns[0][0] <= kLastCodePoint)
                d.listedInPartOne[entry.columns[0][0]] = true;
            d.lines.push_back(std::move(entry));
        }
        return d;
    }();
    return data;
}

struct CaseFoldingData {
    // The C or S mapping of each code point, or the code point itself.
    std::vector<char32_t> fold = std::vector<char32_t>(kLastCodePoint + 1);
    int mappings = 0;
};

CaseFoldingData const& caseFoldingData()
{
    static CaseFoldingData const data = [] {
        CaseFoldingData d;
        for (char32_t c = 0; c <= kLastCodePoint; ++c)
            d.fold[c] = c;
        std::ifstream in(KELVO_CASE_FOLDING_FILE);
        std::string line;
        while (std::getline(in, line)) {
            std::string::size_type const hash = line.find('#');
            if (hash != std::string::npos)
                line.erase(hash);
            std::vector<std::string> const fields = splitFields(line);
            if (fields.size() < 3)
                continue;
            std::string status;
            std::istringstream(fields[1]) >> status;
            if (status != "C" && status != "S")
                continue;
            String const code = parseCodePoints(fields[0]);
            String const mapping = parseCodePoints(fields[2]);
            if (code.size() != 1 || mapping.size() != 1)
                continue;
            d.fold[code[0]] = mapping[0];
            ++d.mappings;
        }
        return d;
    }();
    return data;
}

// Gathers failures and reports the first few, so that one broken table does
// not flood the output.
class FailureLog {
public:
    void add(std::string message)
    {
        ++count_;
        if (shown_.size() < 20)
            shown_.push_back(std::move(message));
    }
    bool empty() const { return count_ == 0; }
    void check() const
    {
        if (count_ == 0)
            return;
        std::string text;
        for (std::string const& m : shown_)
            text += m + "\n";
        ADD_FAILURE() << count_ << " failures, the first ones:\n" << text;
    }

private:
    int count_ = 0;
    std::vector<std::string> shown_;
};

// ----------------------------------------------------- normalization data

TEST(NormalizationConformance, TestDataIsRead)
{
    NormalizationData const& data = normalizationData();
    EXPECT_GT(data.lines.size(), 18000u);
    int partOne = 0;
    for (NormalizationLine const& l : data.lines)
        partOne += l.partOne ? 1 : 0;
    EXPECT_GT(partOne, 1000);
}

TEST(NormalizationConformance, ToNFDGivesTheDecomposedColumnsForEveryLine)
{
    FailureLog failures;
    for (NormalizationLine const& line : normalizationData().lines) {
        String const& c3 = line.columns[2];
        String const& c5 = line.columns[4];
        for (int i = 0; i < 5; ++i) {
            // c3 == toNFD(c1) == toNFD(c2) == toNFD(c3); c5 == toNFD(c4) == toNFD(c5).
            String const& expected = i < 3 ? c3 : c5;
            String const actual = toNFD(line.columns[i]);
            if (actual != expected)
                failures.add("line " + std::to_string(line.lineNumber) + ": toNFD(c" + std::to_string(i + 1) + " = "
                             + hex(line.columns[i]) + ") = " + hex(actual) + ", expected " + hex(expected));
        }
    }
    failures.check();
}

TEST(NormalizationConformance, PathsMadeFromUTF8HoldTheDecomposedColumnsForEveryLine)
{
    FailureLog failures;
    for (NormalizationLine const& line : normalizationData().lines) {
        for (int i = 0; i < 5; ++i) {
            // A path turns backslashes into "/" in both forms.
            String expected = i < 3 ? line.columns[2] : line.columns[4];
            for (char32_t& c : expected)
                c = c == U'\\' ? U'/' : c;
            std::string const given = line.columns[i].toUTF8String();
            kelvo::filesystem::Path const path(given);
            std::string bytes = given;
            for (char& c : bytes)
                c = c == '\\' ? '/' : c;
            if (path.string() != expected)
                failures.add("line " + std::to_string(line.lineNumber) + ": the text of a path made from c"
                             + std::to_string(i + 1) + " = " + hex(line.columns[i]) + " is " + hex(path.string()));
            if (path.nativeString() != bytes)
                failures.add("line " + std::to_string(line.lineNumber) + ": the native form of c" + std::to_string(i + 1)
                             + " is not its bytes");
        }
    }
    failures.check();
}

TEST(NormalizationConformance, IsNFDAgreesWithToNFDForEveryColumn)
{
    FailureLog failures;
    for (NormalizationLine const& line : normalizationData().lines) {
        for (int i = 0; i < 5; ++i) {
            String const& x = line.columns[i];
            bool const expected = toNFD(x) == x;
            if (isNFD(x) != expected)
                failures.add("line " + std::to_string(line.lineNumber) + ": isNFD(c" + std::to_string(i + 1) + " = "
                             + hex(x) + ") is " + (expected ? "false" : "true"));
        }
        // The decomposed columns are decomposed by definition.
        if (!isNFD(line.columns[2]) || !isNFD(line.columns[4]))
            failures.add("line " + std::to_string(line.lineNumber) + ": a decomposed column is not NFD");
    }
    failures.check();
}

#if defined(__linux__)

// File names on Linux are composed: the native form of a text is the UTF-8 of
// its NFC, so c2 == NFC(c1) == NFC(c2) == NFC(c3) and c4 == NFC(c4) == NFC(c5).
TEST(NormalizationConformance, NativeFormIsTheComposedColumnForEveryLine)
{
    FailureLog failures;
    for (NormalizationLine const& line : normalizationData().lines) {
        std::string const c2 = line.columns[1].toUTF8String();
        std::string const c4 = line.columns[3].toUTF8String();
        for (int i = 0; i < 5; ++i) {
            std::string const& expected = i < 3 ? c2 : c4;
            std::string const actual = line.columns[i].toNativeString();
            if (actual != expected)
                failures.add("line " + std::to_string(line.lineNumber) + ": native form of c" + std::to_string(i + 1)
                             + " = " + hex(line.columns[i]) + " is " + hex(String(actual)) + ", expected "
                             + (i < 3 ? hex(line.columns[1]) : hex(line.columns[3])));
        }
        // The same behind a plain prefix, which the composition may skip.
        std::string const prefixed = String(String(U"dir/") + line.columns[2]).toNativeString();
        if (prefixed != "dir/" + c2)
            failures.add("line " + std::to_string(line.lineNumber) + ": native form of a prefixed c3 is "
                         + hex(String(prefixed)));
    }
    failures.check();
}

#endif

TEST(NormalizationConformance, CodePointsNotListedAreTheirOwnNFD)
{
    // Checked in blocks, each code point between two "a": a starter keeps a
    // code point from being reordered with its neighbours, so a block is
    // unchanged exactly when each of its code points is. A block that changes
    // is checked code point by code point to name the culprit.
    NormalizationData const& data = normalizationData();
    FailureLog failures;
    std::vector<char32_t> block;
    String text;
    String single(1, U'\0');
    int checked = 0;
    auto checkBlock = [&] {
        text.assign(1, U'a');
        for (char32_t c : block) {
            text.push_back(c);
            text.push_back(U'a');
        }
        if (!isNFD(text) || toNFD(text) != text) {
            for (char32_t c : block) {
                single[0] = c;
                if (!isNFD(single))
                    failures.add("isNFD(" + hex(single) + ") is false");
                String const decomposed = toNFD(single);
                if (decomposed != single)
                    failures.add("toNFD(" + hex(single) + ") = " + hex(decomposed));
            }
            if (!block.empty() && failures.empty())
                failures.add("a block from " + hex(String(1, block.front())) + " changed under toNFD");
        }
        checked += static_cast<int>(block.size());
        block.clear();
    };
    for (char32_t c = 0; c <= kLastCodePoint; ++c) {
        if (data.listedInPartOne[c] || (c >= 0xD800 && c <= 0xDFFF))
            continue;
        block.push_back(c);
        if (block.size() == 4096)
            checkBlock();
    }
    checkBlock();
    failures.check();
    EXPECT_GT(checked, 1000000);
}

// ------------------------------------------------------ case-folding data

TEST(CaseFoldingConformance, TestDataIsRead)
{
    // Unicode 15 has about 1,400 C mappings and a few dozen S mappings.
    EXPECT_GT(caseFoldingData().mappings, 1400);
}

TEST(CaseFoldingConformance, EveryCodePointFoldsAsTheData)
{
    CaseFoldingData const& data = caseFoldingData();
    FailureLog failures;
    int mapped = 0;
    for (char32_t c = 0; c <= kLastCodePoint; ++c) {
        char32_t const expected = data.fold[c];
        char32_t const actual = simpleCaseFold(c);
        if (expected != c)
            ++mapped;
        if (actual != expected) {
            std::ostringstream m;
            m << std::hex << std::uppercase << "simpleCaseFold(" << static_cast<std::uint32_t>(c) << ") = "
              << static_cast<std::uint32_t>(actual) << ", expected " << static_cast<std::uint32_t>(expected);
            failures.add(m.str());
        }
    }
    failures.check();
    EXPECT_EQ(mapped, data.mappings);
}

TEST(CaseFoldingConformance, KnownFoldings)
{
    EXPECT_EQ(simpleCaseFold(U'A'), U'a');
    EXPECT_EQ(simpleCaseFold(U'Z'), U'z');
    EXPECT_EQ(simpleCaseFold(U'a'), U'a');
    EXPECT_EQ(simpleCaseFold(U'@'), U'@');
    EXPECT_EQ(simpleCaseFold(U'['), U'[');
    EXPECT_EQ(simpleCaseFold(U'\u00C4'), U'\u00E4');
    EXPECT_EQ(simpleCaseFold(U'\u03A3'), U'\u03C3');
    EXPECT_EQ(simpleCaseFold(U'\u03C2'), U'\u03C3'); // final sigma
    EXPECT_EQ(simpleCaseFold(U'\u212A'), U'k');      // Kelvin sign
    EXPECT_EQ(simpleCaseFold(U'\u017F'), U's');      // long s
    EXPECT_EQ(simpleCaseFold(U'\u1E9E'), U'\u00DF'); // capital sharp s: the S mapping, not "ss"
    EXPECT_EQ(simpleCaseFold(U'\u00DF'), U'\u00DF'); // only a full folding exists
    EXPECT_EQ(simpleCaseFold(U'\u0130'), U'\u0130'); // only T and F mappings
    EXPECT_EQ(simpleCaseFold(U'\U00010400'), U'\U00010428');
}

TEST(CaseFoldingConformance, SurrogatesAndValuesBeyondUnicodeFoldToThemselves)
{
    for (char32_t c = 0xD800; c <= 0xDFFF; ++c)
        EXPECT_EQ(simpleCaseFold(c), c);
    for (char32_t c : {char32_t(0x110000), char32_t(0x110041), char32_t(0x1FFFFF), char32_t(0x7FFFFFFF),
                       char32_t(0x80000000), char32_t(0x80000041), char32_t(0xFFFFFFFE), char32_t(0xFFFFFFFF)})
        EXPECT_EQ(simpleCaseFold(c), c);
}

// ------------------------------------------------ arbitrary 32-bit values

TEST(ArbitraryValues, RandomValuesNeverBreakNormalisationOrFolding)
{
    std::mt19937 random(424242u);
    std::uniform_int_distribution<std::uint32_t> any(0, 0xFFFFFFFFu);
    std::uniform_int_distribution<int> pick(0, 5);
    std::uniform_int_distribution<int> length(0, 24);
    std::uniform_int_distribution<std::uint32_t> mark(0x300, 0x36F);
    std::uniform_int_distribution<std::uint32_t> latin(0xC0, 0x24F);
    std::uniform_int_distribution<std::uint32_t> hangul(0xAC00, 0xD7A3);
    std::uniform_int_distribution<std::uint32_t> surrogate(0xD800, 0xDFFF);
    for (int round = 0; round < 3000; ++round) {
        String x;
        int const n = length(random);
        for (int i = 0; i < n; ++i) {
            switch (pick(random)) {
            case 0: x.push_back(any(random)); break;
            case 1: x.push_back(mark(random)); break;
            case 2: x.push_back(latin(random)); break;
            case 3: x.push_back(hangul(random)); break;
            case 4: x.push_back(surrogate(random)); break;
            default: x.push_back(U'a' + static_cast<char32_t>(i % 26)); break;
            }
        }
        for (char32_t c : x) {
            char32_t const folded = simpleCaseFold(c);
            if (c > kLastCodePoint || (c >= 0xD800 && c <= 0xDFFF)) {
                ASSERT_EQ(folded, c);
            }
        }
        String const d = toNFD(x);
        ASSERT_EQ(isNFD(x), d == x) << hex(x);
        ASSERT_TRUE(isNFD(d)) << hex(x);
        ASSERT_EQ(toNFD(d), d) << hex(x);
        // Values that are not scalar values are kept, in order.
        String kept;
        String keptAfter;
        for (char32_t c : x)
            if (c > kLastCodePoint || (c >= 0xD800 && c <= 0xDFFF))
                kept.push_back(c);
        for (char32_t c : d)
            if (c > kLastCodePoint || (c >= 0xD800 && c <= 0xDFFF))
                keptAfter.push_back(c);
        ASSERT_EQ(kept, keptAfter) << hex(x);
    }
}

TEST(ArbitraryValues, ValuesThatAreNotScalarValuesBoundTheTextAroundThem)
{
    String const precomposed{std::u32string{0xD800, 0xE9, 0x110000}};
    String const expected{std::u32string{0xD800, U'e', 0x301, 0x110000}};
    EXPECT_FALSE(isNFD(precomposed));
    EXPECT_EQ(toNFD(precomposed), expected);
    EXPECT_TRUE(isNFD(expected));
    // Marks on either side of a boundary are not reordered across it.
    String const split{std::u32string{U'a', 0x301, 0xDC80, 0x316}};
    EXPECT_TRUE(isNFD(split));
    EXPECT_EQ(toNFD(split), split);
    String const unsplit{std::u32string{U'a', 0x301, 0x316}};
    EXPECT_FALSE(isNFD(unsplit));
    EXPECT_EQ(toNFD(unsplit), String(std::u32string{U'a', 0x316, 0x301}));
    String const big{std::u32string{0xFFFFFFFF, 0x80000000, 0x7FFFFFFF}};
    EXPECT_TRUE(isNFD(big));
    EXPECT_EQ(toNFD(big), big);
}

TEST(ArbitraryValues, PlainTextIsNFDWithoutChange)
{
    EXPECT_TRUE(isNFD(String()));
    EXPECT_EQ(toNFD(String()), String());
    String latin1;
    for (char32_t c = 0; c < 0xC0; ++c)
        latin1.push_back(c);
    EXPECT_TRUE(isNFD(latin1));
    EXPECT_EQ(toNFD(latin1), latin1);
    EXPECT_FALSE(isNFD(String(U"\u00C0")));
    EXPECT_EQ(toNFD(String(U"\u00C0")), String(U"A\u0300"));
    EXPECT_EQ(toNFD(String(U"R\u00E9sum\u00E9")), String(U"Re\u0301sume\u0301"));
    EXPECT_EQ(toNFD(String(U"\uAC01")), String(U"\u1100\u1161\u11A8"));
}

} // namespace
