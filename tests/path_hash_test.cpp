// Tests of PathHash, PathLess and std::hash<Path>: equal paths hash equally, and PathLess is a strict weak ordering whose equivalence is ==.
#include <kelvo/filesystem.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace {

using kelvo::filesystem::Path;
using kelvo::filesystem::PathHash;
using kelvo::filesystem::PathLess;
using kelvo::unicode::String;

/// Code points chosen to meet every kind of equivalence == knows: ASCII case,
/// case beyond ASCII (with one-way foldings such as U+017F and U+03C2),
/// precomposed letters and their decompositions, singletons that decompose to
/// ASCII (U+212A, U+212B), combining marks in both orders, escaped bytes and
/// the separator.
std::vector<char32_t> const kAlphabet = {
    U'a', U'A', U'b', U'B', U'k', U'K', U's', U'S', U'z', U'Z', U'0', U'.', U'/', U'_', U'~',
    0x00E9, 0x00C9, 0x00C5, 0x00E5, 0x212B, 0x212A, 0x017F, 0x00DF, 0x1E9E, 0x03A3, 0x03C3, 0x03C2,
    0x0130, 0x0131, 0x0301, 0x0323, 0x0308, 0x030A, 0x0041, 0x0065, 0xDCFF, 0xDC80, 0x10400, 0x10428,
};

/// Upper and lower forms the variants swap between.
std::vector<std::pair<char32_t, char32_t>> const kCasePairs = {
    {U'a', U'A'}, {U'b', U'B'}, {U'k', U'K'}, {U's', U'S'}, {U'z', U'Z'}, {0x00E9, 0x00C9},
    {0x00E5, 0x00C5}, {0x03C3, 0x03A3}, {0x03C2, 0x03A3}, {0x017F, U'S'}, {0x00DF, 0x1E9E}, {0x10428, 0x10400},
};

String randomText(std::mt19937& random, std::size_t maxLength)
{
    std::uniform_int_distribution<std::size_t> length(0, maxLength);
    std::uniform_int_distribution<std::size_t> pick(0, kAlphabet.size() - 1);
    String text;
    for (std::size_t i = length(random); i > 0; --i)
        text.push_back(kAlphabet[pick(random)]);
    return text;
}

/// A text that == must find equal to `text`: some letters swapped for their
/// other case, then composed or left decomposed at random.
String variantOf(String const& text, std::mt19937& random)
{
    std::bernoulli_distribution coin(0.5);
    String variant;
    for (char32_t c : text) {
        char32_t out = c;
        for (auto const& pair : kCasePairs) {
            if (coin(random) && (c == pair.first || c == pair.second))
                out = c == pair.first ? pair.second : pair.first;
        }
        variant.push_back(out);
    }
    return variant;
}

std::vector<Path> population(unsigned seed, std::size_t count)
{
    std::mt19937 random(seed);
    std::vector<Path> paths;
    while (paths.size() < count) {
        String base = randomText(random, 6);
        paths.emplace_back(base);
        paths.emplace_back(variantOf(base, random));
        paths.emplace_back(variantOf(base, random));
    }
    return paths;
}

TEST(PathHashTest, AsciiFoldsAsLowering)
{
    // The hash folds ASCII by lowering it, as == does for two ASCII code
    // points; == folds an ASCII code point met by a non-ASCII one with the
    // Unicode folding. The two must agree for one fold to serve both cases.
    for (char32_t c = 0; c < 0x80; ++c) {
        char32_t lowered = (c >= U'A' && c <= U'Z') ? c + 0x20 : c;
        EXPECT_EQ(kelvo::unicode::simpleCaseFold(c), lowered) << static_cast<unsigned>(c);
    }
}

TEST(PathHashTest, EqualNamesHashEqually)
{
    PathHash hash;
    std::vector<std::pair<Path, Path>> const equalPairs = {
        {Path("README.txt"), Path("Readme.TXT")},
        {Path("R\xC3\xA9sum\xC3\xA9.pdf"), Path("re\xCC\x81SUME\xCC\x81.PDF")},
        {Path(String(U"\u212A")), Path("k")},              // KELVIN SIGN decomposes to K
        {Path(String(U"\u212B")), Path(String(U"\u00E5"))}, // ANGSTROM SIGN and a with ring
        {Path(String(U"\u017F")), Path("S")},              // long s folds to s
        {Path(String(U"\u03C2")), Path(String(U"\u03A3"))}, // final sigma and capital sigma
        {Path(String(U"\u1E9E")), Path(String(U"\u00DF"))}, // capital and small sharp s
        {Path("a\\b"), Path("A/B")},
        {Path(""), Path()},
    };
    for (auto const& [a, b] : equalPairs) {
        ASSERT_TRUE(a == b) << a << " " << b;
        EXPECT_EQ(hash(a), hash(b)) << a << " " << b;
        EXPECT_EQ(std::hash<Path>()(a), hash(b)) << a;
    }
}

TEST(PathHashTest, DifferentNamesUsuallyHashDifferently)
{
    PathHash hash;
    std::set<std::size_t> hashes;
    for (char const* name : {"a", "b", "ab", "ba", "a/b", "a.txt", "a.txT0", "", "/", "\xC3\xA9", "e"})
        hashes.insert(hash(Path(name)));
    EXPECT_EQ(hashes.size(), 11u);
    EXPECT_NE(hash(Path("a")), hash(Path(std::string("a\0", 2))));
}

TEST(PathHashTest, EqualImpliesEqualHashesOverRandomNames)
{
    std::vector<Path> const paths = population(20261123, 360);
    PathHash hash;
    std::size_t equalPairs = 0;
    for (Path const& a : paths) {
        for (Path const& b : paths) {
            if (a == b) {
                ++equalPairs;
                ASSERT_EQ(hash(a), hash(b)) << a << " " << b;
            }
        }
    }
    // The variants make equal pairs common, not only a path with itself.
    EXPECT_GT(equalPairs, paths.size() * 2);
}

TEST(PathLessTest, WorkedOrders)
{
    PathLess less;
    EXPECT_TRUE(less(Path("a"), Path("B")));
    EXPECT_FALSE(less(Path("B"), Path("a")));
    EXPECT_TRUE(less(Path("B"), Path("c")));
    EXPECT_TRUE(less(Path("a"), Path("b")));
    // Where operator< is not transitive, PathLess is.
    EXPECT_TRUE(Path("a") < Path("b"));
    EXPECT_TRUE(Path("b") < Path("Ba"));
    EXPECT_FALSE(Path("a") < Path("Ba"));
    EXPECT_TRUE(less(Path("a"), Path("b")));
    EXPECT_TRUE(less(Path("b"), Path("Ba")));
    EXPECT_TRUE(less(Path("a"), Path("Ba")));
    EXPECT_TRUE(less(Path(""), Path("a")));
    EXPECT_FALSE(less(Path(""), Path("")));
    EXPECT_TRUE(less(Path("abc"), Path("ABCD")));
    EXPECT_FALSE(less(Path("Readme.TXT"), Path("README.txt")));
    EXPECT_FALSE(less(Path("README.txt"), Path("Readme.TXT")));
}

TEST(PathLessTest, IsAStrictWeakOrderingWhoseEquivalenceIsEquality)
{
    std::vector<Path> const paths = population(7, 120);
    PathLess less;
    for (Path const& a : paths) {
        ASSERT_FALSE(less(a, a)) << a;
        for (Path const& b : paths) {
            bool const ab = less(a, b);
            bool const ba = less(b, a);
            ASSERT_FALSE(ab && ba) << a << " " << b;
            // Equivalent (neither orders first) exactly when equal.
            ASSERT_EQ(!ab && !ba, a == b) << a << " " << b;
            for (Path const& c : paths) {
                if (ab && less(b, c)) {
                    ASSERT_TRUE(less(a, c)) << a << " " << b << " " << c;
                }
                // Incomparability is transitive too.
                if (!ab && !ba && !less(b, c) && !less(c, b)) {
                    ASSERT_TRUE(!less(a, c) && !less(c, a)) << a << " " << b << " " << c;
                }
            }
        }
    }
}

TEST(PathLessTest, SortsIntoGroupsOfEqualNames)
{
    std::vector<Path> paths = population(99, 300);
    std::sort(paths.begin(), paths.end(), PathLess());
    for (std::size_t i = 1; i < paths.size(); ++i)
        ASSERT_FALSE(PathLess()(paths[i], paths[i - 1])) << i;
    // Equal paths stand next to each other once sorted.
    for (std::size_t i = 0; i < paths.size(); ++i) {
        for (std::size_t j = i + 1; j < paths.size(); ++j) {
            if (paths[i] == paths[j]) {
                for (std::size_t k = i + 1; k < j; ++k)
                    ASSERT_TRUE(paths[k] == paths[i]) << i << " " << k << " " << j;
            }
        }
    }
}

TEST(PathContainersTest, GroupNamesTheWayTheLibraryComparesThem)
{
    std::vector<Path> const names = {Path("README.txt"), Path("Readme.TXT"), Path("R\xC3\xA9sum\xC3\xA9"),
                                     Path("RE\xCC\x81SUME\xCC\x81"), Path("notes")};
    std::unordered_set<Path> hashed(names.begin(), names.end());
    EXPECT_EQ(hashed.size(), 3u);
    EXPECT_EQ(hashed.count(Path("readme.txt")), 1u);
    EXPECT_EQ(hashed.count(Path("r\xC3\xA9sum\xC3\xA9")), 1u);
    EXPECT_EQ(hashed.count(Path("readme")), 0u);

    std::set<Path, PathLess> ordered(names.begin(), names.end());
    EXPECT_EQ(ordered.size(), 3u);
    EXPECT_EQ(ordered.count(Path("NOTES")), 1u);
    std::vector<std::string> order;
    for (Path const& path : ordered)
        order.push_back(path.string().toUTF8String());
    // The first of each group is kept, in folded order.
    EXPECT_EQ(order, (std::vector<std::string>{"notes", "README.txt", "Re\xCC\x81sume\xCC\x81"}));

    std::unordered_map<Path, int> counts;
    std::map<Path, int, PathLess> sortedCounts;
    for (Path const& name : names) {
        ++counts[name];
        ++sortedCounts[name];
    }
    EXPECT_EQ(counts[Path("README.TXT")], 2);
    EXPECT_EQ(sortedCounts[Path("R\xC3\xA9SUM\xC3\x89")], 2);
    EXPECT_EQ(sortedCounts[Path("notes")], 1);
}

} // namespace
