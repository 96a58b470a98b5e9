// Tests of the glob automaton on raw expressions: every construct against std::regex_match, under the classic and a UTF-8 locale, and what it leaves to the engine.
#include "filesystem/transformations/GlobAutomaton.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <locale>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using kelvo::filesystem::detail::GlobAutomaton;

std::unique_ptr<GlobAutomaton> automatonFor(std::wstring const& expression)
{
    return GlobAutomaton::build(expression, std::locale());
}

bool automatonMatches(GlobAutomaton const& automaton, std::wstring const& text)
{
    std::u32string const wide(text.begin(), text.end());
    return automaton.matches(wide.data(), wide.size());
}

std::string printable(std::wstring const& text)
{
    std::string out;
    for (wchar_t c : text) {
        if (c >= 0x20 && c < 0x7F) {
            out += static_cast<char>(c);
        } else {
            char escaped[16];
            std::snprintf(escaped, sizeof escaped, "\\u%04X", static_cast<unsigned>(c));
            out += escaped;
        }
    }
    return out;
}

/// Compares the automaton of each valid expression with the engine on every
/// name; @returns how many pairs were compared.
std::size_t compareWithEngine(std::vector<std::wstring> const& expressions, std::vector<std::wstring> const& names)
{
    std::size_t compared = 0;
    for (std::wstring const& expression : expressions) {
        std::unique_ptr<std::wregex> engine;
        try {
            engine = std::make_unique<std::wregex>(expression);
        } catch (std::regex_error const&) {
            continue;
        }
        std::unique_ptr<GlobAutomaton> const automaton = automatonFor(expression);
        if (!automaton) {
            ADD_FAILURE() << "no automaton for " << printable(expression);
            continue;
        }
        for (std::wstring const& name : names) {
            EXPECT_EQ(automatonMatches(*automaton, name), std::regex_match(name, *engine))
                << "expression " << printable(expression) << " name " << printable(name);
            ++compared;
        }
    }
    return compared;
}

std::vector<std::wstring> const kNames = {
    L"", L"a", L"b", L"c", L"d", L"A", L"-", L"]", L"}", L"ab", L"abc", L"abab", L"aab", L"aabc", L"abcd", L"ac",
    L"aac", L"abbc", L"a.c", L"a b", L"aa", L"aaa", L"aaaa", L"1", L"123", L"12a", L"\u00E9", L"e\u0301", L"\u00C9t\u00E9",
    L"\t", L"\n", L"\r", L"\f", L"\v", L"\b", std::wstring(1, L'\0'), L"\u2028", L"\u2029", L"\u0085", L"a\nb", L"_",
    L"*", L".", L"\\", L"ABC", L"Z", L"!", L"\x01", L"abcabc", L"ababc", L"abcbcd", L"x_1", L"\u4E2D", L"\u0660",
};

TEST(GlobAutomaton, EveryConstructAnswersAsTheEngine)
{
    std::vector<std::wstring> const expressions = {
        // Literals, any character, groups, alternation.
        L"abc", L"a.c", L"(ab)+", L"(?:ab)+", L"(a|b|)+", L"a|b|c", L"(a|ab)(c|bcd)(d*)", L"()", L"(?:)", L"a||b",
        L"(a(b(c)))", L"(?:a(?:b|c))*", L"|", L".*", L".+", L"..",
        // Quantifiers, greedy and lazy, counted.
        L"a*", L"a+", L"a?", L"a*?", L"a+?", L"a??", L"a{2}", L"a{0}", L"a{1,}", L"a{0,2}", L"a{2,3}", L"a{2,3}?",
        L"a{2,}?", L"a{0,0}", L"(ab){2,}", L"(a{2}){2}", L"a{1}{2}", L"a**", L"a+*", L"a?+", L"(a*)*", L"(a*)+b",
        L"(a|b)*c", L"((a|b)+c)+", L"(a?){3}", L"(|a)*", L"(^|a)*", L"($|a)+", L"(\\b|a)*", L"a{0,3}?b",
        // Anchors anywhere, word boundaries.
        L"^ab$", L"a^b", L"a$b", L"^*", L"$", L"^$", L"(^a|b)+", L"(a$|b)+", L"\\bab\\b", L"a\\Bb", L"\\B", L"\\b",
        L".*\\b", L"\\b.*\\b", L"\\w+\\b", L"\\B\\w*",
        // Brackets.
        L"[abc]+", L"[^abc]", L"[a-c]+", L"[-a]", L"[a-]", L"[a\\-z]+", L"[!--]", L"[a--]", L"[]", L"[^]", L"[]a]",
        L"[\\]]", L"[\\b]", L"[.]", L"[\\d]", L"[\\D]", L"[\\w-]", L"[\\s\\S]", L"[^\\w]", L"[^\\W\\d]", L"[\\x41-\\x5A]+",
        L"[a[]", L"[[a]", L"[\\u00e9]", L"[\\cA]", L"[\\0]", L"[\\n\\t]", L"[\\-]", L"[\\.]", L"[a-a]", L"[--/]",
        L"[[:alpha:]]+", L"[[:digit:][:space:]]+", L"[^[:upper:]]", L"[[:w:]]", L"[[:d:]]", L"[[:s:]]", L"[[:xdigit:]]+",
        L"[[:punct:]]", L"[[:blank:]]", L"[[:cntrl:]]", L"[[:print:]]", L"[[:graph:]]", L"[[:lower:]]", L"[[:alnum:]]",
        L"[[:ALPHA:]]", L"[[.a.]]", L"[[.hyphen.]]", L"[[.space.]x]", L"[[.NUL.]]", L"[[.tab.]-z]", L"[[=a=]]",
        L"[[=A=]b]",
        // Escapes.
        L"\\d+", L"\\D", L"\\w+", L"\\W", L"\\s", L"\\S", L"\\x41", L"\\u00e9", L"\\u00E9", L"\\cA", L"\\ca", L"\\0",
        L"\\n", L"\\t", L"\\r", L"\\f", L"\\v", L"\\.", L"\\*", L"\\\\", L"\\-", L"\\y", L"\\:", L"\\]", L"\\}",
        L"\\u2028",
        // Characters that are operators only in some places.
        L"a]", L"a}", L"]", L"}", std::wstring(1, L'\0'), L"\u2028", L".\u2029", L"\n", L"a\nb",
    };
    std::size_t const compared = compareWithEngine(expressions, kNames);
    EXPECT_GT(compared, expressions.size() * kNames.size() * 9 / 10);
}

TEST(GlobAutomaton, ClassesFollowTheLocaleOfTheExpression)
{
    std::locale utf8;
    try {
        utf8 = std::locale("C.UTF-8");
    } catch (std::runtime_error const&) {
        GTEST_SKIP() << "no C.UTF-8 locale here";
    }
    std::locale const previous = std::locale::global(utf8);
    std::vector<std::wstring> const expressions = {
        L"\\w+", L"\\W", L"\\d", L"\\s", L"[[:alpha:]]+", L"[[:upper:]]", L"[[:lower:]]", L"[[:punct:]]", L"\\b\\w+\\b",
        L"[^[:alnum:]]", L"[[=e=]]", L"[[:space:]]", L"[\\w-]+",
    };
    std::size_t const compared = compareWithEngine(expressions, kNames);
    std::locale::global(previous);
    EXPECT_EQ(compared, expressions.size() * kNames.size());
}

TEST(GlobAutomaton, WhatItDoesNotReproduceIsLeftToTheEngine)
{
    EXPECT_EQ(automatonFor(L"(a)\\1"), nullptr);
    EXPECT_EQ(automatonFor(L"(?=a)a"), nullptr);
    EXPECT_EQ(automatonFor(L"(?!a)b"), nullptr);
    EXPECT_EQ(automatonFor(L"a{0000000001}"), nullptr);
    EXPECT_NE(automatonFor(L"a{000000001}"), nullptr);

    std::wstring deep;
    for (int i = 0; i < 128; ++i)
        deep = L"(" + deep + L"a)";
    std::unique_ptr<GlobAutomaton> const deepest = automatonFor(deep);
    ASSERT_NE(deepest, nullptr);
    EXPECT_TRUE(automatonMatches(*deepest, std::wstring(128, L'a')));
    EXPECT_FALSE(automatonMatches(*deepest, std::wstring(127, L'a')));
    EXPECT_EQ(automatonFor(L"(" + deep + L")"), nullptr);
}

TEST(GlobAutomaton, CountedRepeatsCopyTheirPiece)
{
    std::unique_ptr<GlobAutomaton> const automaton = automatonFor(L"(ab|c){2,4}");
    ASSERT_NE(automaton, nullptr);
    for (wchar_t const* name : {L"abc", L"cc", L"ababab", L"abcabc", L"ccccc", L"c", L"abab", L"ab"}) {
        EXPECT_EQ(automatonMatches(*automaton, name), std::regex_match(std::wstring(name), std::wregex(L"(ab|c){2,4}")))
            << printable(name);
    }
    // Nested counts multiply: 2 * 3 copies of "a".
    std::unique_ptr<GlobAutomaton> const nested = automatonFor(L"(a{3}){2}");
    ASSERT_NE(nested, nullptr);
    EXPECT_TRUE(automatonMatches(*nested, L"aaaaaa"));
    EXPECT_FALSE(automatonMatches(*nested, L"aaaaa"));
    EXPECT_FALSE(automatonMatches(*nested, L"aaaaaaa"));
}

TEST(GlobAutomaton, OneObjectAnswersManyTextsInTurn)
{
    // The scratch sets are kept between calls; answers must not leak from
    // one text into the next.
    std::unique_ptr<GlobAutomaton> const automaton = automatonFor(L"(a|b)*c\\b");
    ASSERT_NE(automaton, nullptr);
    for (int round = 0; round < 3; ++round) {
        EXPECT_TRUE(automatonMatches(*automaton, L"ababc"));
        EXPECT_FALSE(automatonMatches(*automaton, L"ababd"));
        EXPECT_FALSE(automatonMatches(*automaton, L""));
        EXPECT_TRUE(automatonMatches(*automaton, L"c"));
        EXPECT_FALSE(automatonMatches(*automaton, L"cc"));
    }
}

TEST(GlobAutomaton, AMillionCharactersTakeOnePass)
{
    std::unique_ptr<GlobAutomaton> const automaton = automatonFor(L"((a|aa)+)+b");
    ASSERT_NE(automaton, nullptr);
    std::wstring const as(1000000, L'a');
    EXPECT_FALSE(automatonMatches(*automaton, as));
    EXPECT_TRUE(automatonMatches(*automaton, as + L"b"));
}

} // namespace
