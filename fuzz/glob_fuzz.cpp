// Fuzz target: glob matching gives the answer, or the throw, of an expression compiled afresh from the rewritten pattern; the automaton behind it answers as the engine on the raw pattern too.
#include "FuzzCheck.h"

#include "filesystem/transformations/GlobAutomaton.h"

#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>
#include <kelvo/text/String.h>

#include <cstddef>
#include <cstdint>
#include <locale>
#include <memory>
#include <regex>
#include <string>

using kelvo::filesystem::Path;
using kelvo::unicode::String;
using kelvo::fuzzing::bytesOf;

namespace {

/// Longest pattern and name text compared, in code points: the engine's
/// backtracking stays small on texts this short.
constexpr std::size_t kLongest = 12;

/// The expression text of `pattern`, written out here independently of the
/// library: "?" becomes ".", "*" becomes ".*", the rest stays.
String rewritten(String const& pattern)
{
    String expression;
    for (char32_t c : pattern) {
        if (c == U'?')
            expression += String(".");
        else if (c == U'*')
            expression += String(".*");
        else
            expression.push_back(c);
    }
    return expression;
}

/// True for patterns whose expression could make the engine backtrack
/// without bound: a repeat put on a repeated piece or on a group (".*+",
/// "(.*){2}"), and counts of ten or more in braces.
bool tooHeavy(String const& pattern)
{
    for (std::size_t i = 1; i < pattern.size(); ++i) {
        char32_t const previous = pattern[i - 1];
        char32_t const c = pattern[i];
        bool const afterRepeat = previous == U'*' || previous == U'+' || previous == U'}' || previous == U')';
        if (afterRepeat && (c == U'+' || c == U'{'))
            return true;
        if (previous >= U'0' && previous <= U'9' && c >= U'0' && c <= U'9')
            return true;
    }
    return false;
}

/// True for raw expressions on which the engine could backtrack without
/// bound: a quantifier ("*", "+", "{") on a group or on a quantified piece
/// ("(a*)*", "a+{2}", "a*?+"), and counts of ten or more.
bool tooHeavyRaw(String const& expression)
{
    auto const isQuantifier = [](char32_t c) { return c == U'*' || c == U'+' || c == U'{'; };
    for (std::size_t i = 1; i < expression.size(); ++i) {
        char32_t const previous = expression[i - 1];
        char32_t const c = expression[i];
        bool const afterRepeat = previous == U')' || isQuantifier(previous) || previous == U'}' || previous == U'?';
        if (afterRepeat && isQuantifier(c))
            return true;
        if (previous >= U'0' && previous <= U'9' && c >= U'0' && c <= U'9')
            return true;
    }
    return false;
}

/// The automaton on `expression` as written, when the engine accepts it and
/// the automaton takes it, answers as the engine does.
void checkAutomaton(String const& expression, String const& text)
{
    if (tooHeavyRaw(expression))
        return;
    std::wstring const wide = expression.toWString();
    std::unique_ptr<std::wregex> engine;
    try {
        engine = std::make_unique<std::wregex>(wide);
    } catch (std::regex_error const&) {
        return;
    }
    std::unique_ptr<kelvo::filesystem::detail::GlobAutomaton> const automaton =
        kelvo::filesystem::detail::GlobAutomaton::build(wide, std::locale());
    if (!automaton)
        return;
    bool expected = false;
    try {
        expected = std::regex_match(text.toWString(), *engine);
    } catch (std::regex_error const&) {
        return;
    }
    KELVO_FUZZ_CHECK(automaton->matches(text.data(), text.size()) == expected);
    // Asked again, with its scratch sets used, it says the same.
    KELVO_FUZZ_CHECK(automaton->matches(text.data(), text.size()) == expected);
}

/// What the library says: 1 match, 0 no match, 2 throws std::regex_error.
int libraryAnswer(Path const& path, String const& pattern)
{
    try {
        return kelvo::filesystem::matchesGlobPattern(path, pattern) ? 1 : 0;
    } catch (std::regex_error const&) {
        return 2;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size < 1 || size > 4096)
        return 0;
    // Byte 0: how many of the following bytes are the pattern's; the rest
    // are the name's.
    std::size_t const patternBytes = data[0] < size - 1 ? data[0] : size - 1;
    String const pattern(bytesOf(data + 1, patternBytes));
    Path const path(bytesOf(data + 1 + patternBytes, size - 1 - patternBytes));
    if (pattern.size() > kLongest || path.string().size() > kLongest)
        return 0;
    checkAutomaton(pattern, path.string());
    if (tooHeavy(pattern))
        return 0;

    std::unique_ptr<std::wregex> fresh;
    try {
        fresh = std::make_unique<std::wregex>(rewritten(pattern).toWString());
    } catch (std::regex_error const&) {
    }
    int expected = 2;
    if (fresh) {
        try {
            expected = std::regex_match(path.string().toWString(), *fresh) ? 1 : 0;
        } catch (std::regex_error const&) {
            expected = 0;
        }
    }
    KELVO_FUZZ_CHECK(libraryAnswer(path, pattern) == expected);
    // Asked again, with the expression possibly remembered, it says the same.
    KELVO_FUZZ_CHECK(libraryAnswer(path, pattern) == expected);
    return 0;
}
