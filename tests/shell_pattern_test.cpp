// Tests of ShellPattern: every piece of the syntax, malformed patterns, the folding forms, names that are not UTF-8, long names against many stars, and thousands of generated pairs checked against the C library's fnmatch.
#include <kelvo/filesystem/ShellPattern.h>
#include <kelvo/text/Unicode.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include <fnmatch.h>

namespace {

using kelvo::filesystem::NameFolding;
using kelvo::filesystem::Path;
using kelvo::filesystem::ShellPattern;
using kelvo::unicode::String;

bool matches(char const* pattern, char const* name) { return ShellPattern(String(pattern)).matchesNative(name); }

bool matchesFolded(char const* pattern, char const* name, NameFolding folding = NameFolding::caseAndComposition)
{
    return ShellPattern(String(pattern), folding).matchesNative(name);
}

/// The C library's answer, in the "C" locale this test runs in.
bool oracle(std::string const& pattern, std::string const& name)
{
    return ::fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
}

struct Case {
    char const* pattern;
    char const* name;
    bool expected;
};

void checkTable(std::vector<Case> const& cases)
{
    for (Case const& c : cases) {
        EXPECT_EQ(matches(c.pattern, c.name), c.expected) << "pattern '" << c.pattern << "' name '" << c.name << "'";
        // Every row of the tables holds for the C library too.
        EXPECT_EQ(oracle(c.pattern, c.name), c.expected) << "fnmatch: pattern '" << c.pattern << "' name '" << c.name << "'";
    }
}

TEST(ShellPatternTest, LiteralsMatchThemselvesWholly)
{
    checkTable({
        {"", "", true},
        {"", "a", false},
        {"abc", "abc", true},
        {"abc", "abcd", false},
        {"abc", "ab", false},
        {"abc", "ABC", false},
        {"a.c", "abc", false}, // a dot is only a dot
        {"a.c", "a.c", true},
        {"a/b", "a/b", true}, // "/" is an ordinary character
        {"(a|b)", "(a|b)", true},
        {"a+", "aa", false},
        {"{a,b}", "a", false},
        {"{a,b}", "{a,b}", true},
    });
}

TEST(ShellPatternTest, StarStandsForAnyRunIncludingNone)
{
    checkTable({
        {"*", "", true},
        {"*", "anything", true},
        {"*", ".hidden", true}, // no rule about a leading dot
        {"*.h", "stdio.h", true},
        {"*.h", ".h", true},
        {"*.h", "stdio.hpp", false},
        {"std*", "stdio.h", true},
        {"std*", "st", false},
        {"a*b*c", "abc", true},
        {"a*b*c", "aXXbYYc", true},
        {"a*b*c", "aXXbYY", false},
        {"a**b", "ab", true},
        {"*a*", "bab", true},
        {"*a*", "bbb", false},
        {"*ab", "aab", true},
        {"*aab", "aaab", true},
        {"a*", "a", true},
    });
}

TEST(ShellPatternTest, QuestionMarkStandsForExactlyOneCharacter)
{
    checkTable({
        {"?", "a", true},
        {"?", "", false},
        {"?", "ab", false},
        {"??", "ab", true},
        {"?x", ".x", true},
        {"a?c", "abc", true},
        {"a?c", "ac", false},
        {"*?", "", false},
        {"*?", "a", true},
    });
    // One code point, not one byte.
    EXPECT_TRUE(matches("?", "\xc3\xa9"));
    EXPECT_TRUE(matches("a?b", "a\xe2\x82\xac" "b"));
    EXPECT_FALSE(matches("??", "\xc3\xa9"));
}

TEST(ShellPatternTest, BracketExpressions)
{
    checkTable({
        {"[abc]", "b", true},
        {"[abc]", "d", false},
        {"[abc]", "", false},
        {"[a-c]", "b", true},
        {"[a-c]", "d", false},
        {"[!a-c]", "d", true},
        {"[!a-c]", "b", false},
        {"[^a-c]", "d", true},
        {"[^a-c]", "a", false},
        {"[]]", "]", true},
        {"[]a]", "a", true},
        {"[!]]", "]", false},
        {"[!]]", "a", true},
        {"[^]]", "x", true},
        {"[-a]", "-", true},
        {"[a-]", "-", true},
        {"[a-]", "b", false},
        {"[a-c-e]", "-", true},
        {"[a-c-e]", "e", true},
        {"[a-c-e]", "d", false},
        {"[]-a]", "^", true},
        {"[z-a]", "m", false},
        {"[*]", "*", true},
        {"[*]", "a", false},
        {"[?]", "?", true},
        {"[.]", ".", true},
        {"[.]", "x", false},
        {"[[]", "[", true},
        {"[a[]", "[", true},
        {"x[ab]y", "xby", true},
        {"[ab][cd]", "bc", true},
        {"[ab][cd]", "bb", false},
        {"[!.]*", ".hidden", false},
        {"[!.]*", "shown", true},
    });
}

TEST(ShellPatternTest, NamedClasses)
{
    checkTable({
        {"[[:alpha:]]", "q", true},
        {"[[:alpha:]]", "Q", true},
        {"[[:alpha:]]", "1", false},
        {"[[:digit:]]", "7", true},
        {"[[:digit:]]", "x", false},
        {"[[:alnum:]]", "7", true},
        {"[[:alnum:]]", "_", false},
        {"[[:upper:]]", "Q", true},
        {"[[:upper:]]", "q", false},
        {"[[:lower:]]", "q", true},
        {"[[:lower:]]", "Q", false},
        {"[[:space:]]", " ", true},
        {"[[:space:]]", "\t", true},
        {"[[:blank:]]", "\t", true},
        {"[[:blank:]]", "\n", false},
        {"[[:punct:]]", "!", true},
        {"[[:punct:]]", "a", false},
        {"[[:xdigit:]]", "F", true},
        {"[[:xdigit:]]", "g", false},
        {"[[:cntrl:]]", "\x01", true},
        {"[[:print:]]", " ", true},
        {"[[:graph:]]", " ", false},
        {"[![:digit:]]", "a", true},
        {"[![:digit:]]", "5", false},
        {"[[:digit:]a]", "a", true},
        {"[a[:digit:]]", "5", true},
        {"[[:digit:][:upper:]]", "Z", true},
        {"[[:nope:]]", "n", false}, // an unknown class matches nothing
        {"[[:nope:]]", ":", false},
        {"[[=a=]]", "a", true},
        {"[[=a=]]", "b", false},
        {"[[.a.]]", "a", true},
        {"[[.a.]-c]", "b", true},
    });
    // Above ASCII, classes follow the characters' Unicode properties.
    EXPECT_TRUE(matches("[[:alpha:]]", "\xc3\xa9"));
    EXPECT_TRUE(matches("[[:lower:]]", "\xc3\xa9"));
    EXPECT_TRUE(matches("[[:upper:]]", "\xc3\x89"));
    EXPECT_FALSE(matches("[[:digit:]]", "\xd9\xa3")); // ARABIC-INDIC DIGIT THREE: digits are ASCII
}

TEST(ShellPatternTest, BackslashTakesTheNextCharacterLiterally)
{
    checkTable({
        {"\\*", "*", true},
        {"\\*", "a", false},
        {"\\?", "?", true},
        {"\\?", "a", false},
        {"\\[a]", "[a]", true},
        {"\\a", "a", true},
        {"\\\\", "\\", true},
        {"[\\]]", "]", true},
        {"[\\!a]", "!", true},
        {"[a\\-c]", "-", true},
        {"[a\\-c]", "b", false},
        {"[a-\\c]", "b", true},
        {"a\\", "a", false},  // a lone backslash at the end matches nothing
        {"a\\", "a\\", false},
        {"*\\", "x\\", false},
    });
}

TEST(ShellPatternTest, MalformedPatternsAreReadAsTheCLibraryReadsThem)
{
    checkTable({
        {"[", "[", true}, // an unclosed "[" is an ordinary character
        {"[", "", false},
        {"[ab", "[ab", true},
        {"[ab", "a", false},
        {"a[", "a[", true},
        {"[*", "[anything", true},
        {"[!", "[!", true},
        {"[]", "[]", true},
        {"[!]", "[!]", true},
        {"[a-", "a", false},
        {"[a-", "[a-", false},
        {"[a\\", "[a\\", false},
        {"[[:alpha:]", "[[:alpha:]", false}, // unclosed, but naming a class: nothing
        {"[[.a.]", "[[.a.]", false},
        {"[[", "[[", true},
        {"[ab", "[b", false},
        {"[\\a", "[a", true},
        {"[[:", "[[:", true},
        {"[[=a", "[[=a", true},
        {"[[.a.]]", "a", true},
        {"[[.].]]", "]", true},
        {"[[.ab.]]", "a", false}, // a collating element of two characters fails
        {"[[=a=]-c]", "-", true}, // an equivalence class starts no range
        {"[[=a=]-c]", "b", false},
        {"[[.a.]-c]", "b", true}, // a collating element does
        {"[a-[.c.]]", "b", true},
        {"[:alpha:]", "a", true}, // a set of ':', 'a', 'l', 'p', 'h'
        {"[:alpha:]", "x", false},
    });
}

TEST(ShellPatternTest, NamesThatAreNotUTF8KeepTheirBytesApart)
{
    std::string const invalid = "a\xff" "b";
    EXPECT_TRUE(ShellPattern(String("a?b")).matchesNative(invalid));
    EXPECT_TRUE(ShellPattern(String("a*")).matchesNative(invalid));
    EXPECT_TRUE(ShellPattern(String(invalid)).matchesNative(invalid));
    EXPECT_FALSE(ShellPattern(String("a\xfe" "b")).matchesNative(invalid));
    EXPECT_FALSE(ShellPattern(String("a\xc3\xbf" "b")).matchesNative(invalid)); // U+00FF is another name
    EXPECT_TRUE(ShellPattern(String("a[!x]b")).matchesNative(invalid));
    EXPECT_FALSE(ShellPattern(String("a[[:alpha:]]b")).matchesNative(invalid));
    // Two invalid bytes are two characters.
    EXPECT_TRUE(ShellPattern(String("??")).matchesNative(std::string("\xc3\x28")));
    EXPECT_FALSE(ShellPattern(String("?")).matchesNative(std::string("\xc3\x28")));
    EXPECT_TRUE(ShellPattern(String("??")).matchesNative(std::string("\xff\xfe")));
}

TEST(ShellPatternTest, ExactFormKeepsCompositionApart)
{
    std::string const composed = "r\xc3\xa9sum\xc3\xa9";        // NFC
    std::string const decomposed = "re\xcc\x81sume\xcc\x81";     // NFD
    EXPECT_TRUE(ShellPattern(String(composed)).matchesNative(composed));
    EXPECT_FALSE(ShellPattern(String(composed)).matchesNative(decomposed));
    EXPECT_TRUE(ShellPattern(String("r?sum?")).matchesNative(composed));
    EXPECT_FALSE(ShellPattern(String("r?sum?")).matchesNative(decomposed));
    EXPECT_FALSE(ShellPattern(String("R*")).matchesNative(composed));
}

TEST(ShellPatternTest, FoldedFormIgnoresCaseAndComposition)
{
    std::string const composed = "R\xc3\xa9sum\xc3\xa9.PDF";
    std::string const decomposed = "re\xcc\x81sume\xcc\x81.pdf";
    for (std::string const& name : {composed, decomposed}) {
        EXPECT_TRUE(matchesFolded("r\xc3\xa9sum\xc3\xa9.pdf", name.c_str())) << name;
        EXPECT_TRUE(matchesFolded("RE\xcc\x81SUME\xcc\x81.*", name.c_str())) << name;
        EXPECT_TRUE(matchesFolded("r?sum?.pdf", name.c_str())) << name; // "?" takes a letter with its accent
        EXPECT_FALSE(matchesFolded("r??sum?.pdf", name.c_str())) << name;
        EXPECT_TRUE(matchesFolded("*.[p]df", name.c_str())) << name;
        EXPECT_TRUE(matchesFolded("r[\xc3\x89]sum[\xc3\xa9]*", name.c_str())) << name;
        EXPECT_FALSE(matchesFolded("resume.pdf", name.c_str())) << name; // accents still count
        EXPECT_FALSE(matchesFolded("re*", name.c_str()) && !matchesFolded("r\xc3\xa9*", name.c_str())) << name;
        EXPECT_FALSE(matchesFolded("re", name.c_str())) << name;
    }
    // "e*" does not reach into "é": the star takes whole characters.
    EXPECT_FALSE(matchesFolded("e", "\xc3\xa9"));
    EXPECT_FALSE(matchesFolded("e?", "\xc3\xa9"));
    EXPECT_FALSE(matchesFolded("e*", "\xc3\xa9") && matchesFolded("e", "\xc3\xa9"));
    EXPECT_TRUE(matchesFolded("[A-Z]", "q"));
    EXPECT_TRUE(matchesFolded("[a-z]", "Q"));
    EXPECT_TRUE(matchesFolded("[[:upper:]]", "q"));
    EXPECT_TRUE(matchesFolded("[[:lower:]]", "Q"));
    EXPECT_FALSE(matchesFolded("[[:digit:]]", "Q"));
    EXPECT_TRUE(matchesFolded("STRASSE", "strasse"));
    EXPECT_TRUE(matchesFolded("\xce\xa3\xce\xbf\xcf\x86\xce\xaf\xce\xb1", "\xcf\x83\xce\xbf\xcf\x86\xce\xaf\xce\xb1")); // Σοφία
    EXPECT_TRUE(matchesFolded("\\*", "*"));
    EXPECT_FALSE(matchesFolded("\\*", "x"));
}

TEST(ShellPatternTest, AccentInsensitiveFormDropsMarks)
{
    NameFolding const accents = NameFolding::caseCompositionAndAccents;
    std::string const composed = "R\xc3\xa9sum\xc3\xa9";
    std::string const decomposed = "Re\xcc\x81sume\xcc\x81";
    for (std::string const& name : {composed, decomposed}) {
        EXPECT_TRUE(matchesFolded("resume", name.c_str(), accents)) << name;
        EXPECT_TRUE(matchesFolded("RESUME", name.c_str(), accents)) << name;
        EXPECT_TRUE(matchesFolded("r\xc3\xa8sum\xc3\xaa", name.c_str(), accents)) << name;
        EXPECT_TRUE(matchesFolded("r?sum?", name.c_str(), accents)) << name;
        EXPECT_TRUE(matchesFolded("r[a-z]sum[e]", name.c_str(), accents)) << name;
        EXPECT_FALSE(matchesFolded("resumes", name.c_str(), accents)) << name;
        EXPECT_FALSE(matchesFolded("resume", name.c_str(), NameFolding::caseAndComposition)) << name;
    }
    EXPECT_TRUE(matchesFolded("francais", "Fran\xc3\xa7" "ais", accents));
    EXPECT_TRUE(matchesFolded("*ANGSTROM*", "\xc3\x85ngstr\xc3\xb6m", accents));
}

TEST(ShellPatternTest, MatchesFileNameReadsTheLastElement)
{
    ShellPattern const exact(String("*.txt"));
    EXPECT_TRUE(exact.matchesFileName(Path("dir.d/notes.txt")));
    EXPECT_FALSE(exact.matchesFileName(Path("notes.txt/inner")));
    EXPECT_FALSE(exact.matchesFileName(Path("dir/NOTES.TXT")));
    ShellPattern const folded(String("*.txt"), NameFolding::caseAndComposition);
    EXPECT_TRUE(folded.matchesFileName(Path("dir/NOTES.TXT")));
    // A path made from decomposed bytes keeps them: the exact form sees them.
    EXPECT_FALSE(ShellPattern(String("caf\xc3\xa9")).matchesFileName(Path(std::string("d/cafe\xcc\x81"))));
    EXPECT_TRUE(ShellPattern(String("caf\xc3\xa9"), NameFolding::caseAndComposition)
                    .matchesFileName(Path(std::string("d/cafe\xcc\x81"))));
}

TEST(ShellPatternTest, ReportsItsTextFoldingAndLiteralness)
{
    ShellPattern const pattern(String("a*b"), NameFolding::caseAndComposition);
    EXPECT_EQ(pattern.text(), String("a*b"));
    EXPECT_EQ(pattern.folding(), NameFolding::caseAndComposition);
    EXPECT_FALSE(pattern.isLiteral());
    EXPECT_TRUE(ShellPattern(String("a\\*b")).isLiteral());
    EXPECT_FALSE(ShellPattern(String("a[b]")).isLiteral());
    EXPECT_TRUE(ShellPattern().isLiteral());
    EXPECT_TRUE(ShellPattern().matches(String()));
    EXPECT_FALSE(ShellPattern().matches(String("a")));
}

TEST(ShellPatternTest, ManyStarsAgainstALongNameFinishInLinearTime)
{
    // Exponential with backtracking into every star; here about a million
    // steps. Were the matcher exponential, the test would never end.
    std::string name(100000, 'a');
    std::string pattern;
    for (int i = 0; i < 30; ++i)
        pattern += "*a";
    pattern += "*b";
    EXPECT_FALSE(ShellPattern(String(pattern)).matchesNative(name));
    EXPECT_FALSE(ShellPattern(String(pattern), NameFolding::caseAndComposition).matchesNative(name));
    name.back() = 'b';
    EXPECT_TRUE(ShellPattern(String(pattern)).matchesNative(name));
    EXPECT_TRUE(ShellPattern(String(pattern), NameFolding::caseCompositionAndAccents).matchesNative(name));
    // A long pattern of sets and question marks against a long name.
    std::string longPattern;
    for (int i = 0; i < 2000; ++i)
        longPattern += "*[ab]?";
    EXPECT_TRUE(ShellPattern(String(longPattern)).matchesNative(std::string(5000, 'a')));
    EXPECT_FALSE(ShellPattern(String(longPattern)).matchesNative(std::string(3999, 'a')));
}

/// Generated pieces: the characters that mean something in a pattern, a few
/// that do not, and whole classes, valid or not.
std::string generatedPattern(std::mt19937& random)
{
    static char const* const kPieces[] = {
        "a", "b", "c", "A", "-", ".", "*", "*", "?", "[", "[", "]", "]", "!", "^", "\\", ":", "z",
        "[:alpha:]", "[:digit:]", "[:upper:]", "[:nope:]", "[=a=]", "[.b.]", "[:", ":]", "=", "0", "9",
    };
    std::uniform_int_distribution<std::size_t> length(0, 9);
    std::uniform_int_distribution<std::size_t> piece(0, sizeof kPieces / sizeof kPieces[0] - 1);
    std::string pattern;
    for (std::size_t i = length(random); i > 0; --i)
        pattern += kPieces[piece(random)];
    return pattern;
}

std::string generatedName(std::mt19937& random)
{
    static char const kCharacters[] = "abcA-.*?[]!^\\:z=09 ";
    std::uniform_int_distribution<std::size_t> length(0, 8);
    std::uniform_int_distribution<std::size_t> character(0, sizeof kCharacters - 2);
    std::string name;
    for (std::size_t i = length(random); i > 0; --i)
        name += kCharacters[character(random)];
    return name;
}

TEST(ShellPatternTest, AgreesWithFnmatchOnGeneratedPairs)
{
    std::mt19937 random(20261125);
    int checked = 0;
    int matched = 0;
    for (int p = 0; p < 3000; ++p) {
        std::string const pattern = generatedPattern(random);
        ShellPattern const compiled{String(pattern)};
        for (int n = 0; n < 8; ++n) {
            // Half the names are drawn from the pattern itself, so that
            // matches are not rare.
            std::string name = generatedName(random);
            if (n % 2 == 1) {
                name.clear();
                for (char c : pattern) {
                    if (c != '*' && c != '\\' && (random() % 4) != 0)
                        name += c == '?' ? 'a' : c;
                }
            }
            bool const expected = oracle(pattern, name);
            ASSERT_EQ(compiled.matchesNative(name), expected)
                << "pattern '" << pattern << "' name '" << name << "'";
            ++checked;
            matched += expected;
        }
    }
    EXPECT_EQ(checked, 24000);
    // The generator makes both answers common.
    EXPECT_GT(matched, 1000);
    EXPECT_LT(matched, 23000);
}

} // namespace
