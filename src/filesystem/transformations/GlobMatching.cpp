// Glob matching: the pattern rewritten to an ECMAScript expression, with a per-thread cache of compiled patterns, a direct matcher for plain wildcard patterns and an automaton for the other expressions, all giving the engine's answers.
#include <kelvo/filesystem/Operations.h>

#include "filesystem/transformations/GlobAutomaton.h"
#include "filesystem/transformations/GlobMatching.h"
#include "filesystem/path/PathInternal.h"
#include "filesystem/posix/Threads.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <exception>
#include <locale>
#include <memory>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace kelvo::filesystem {

using kelvo::unicode::String;

namespace {

// ---- The expression ----------------------------------------------------------

// "?" stands for any one character, "*" for any run; nothing is escaped, so
// every other character keeps the meaning it has in an expression.
String expressionFor(String const& pattern)
{
    String expression;
    expression.reserve(pattern.size() + 8);
    for (char32_t c : pattern) {
        if (c == U'?')
            expression.push_back(U'.');
        else if (c == U'*')
            expression.append(U".*");
        else
            expression.push_back(c);
    }
    return expression;
}

// The expression engine reads an expression and matches a text by
// recursion, about 100 bytes of stack a character of the expression and 300
// to 900 bytes a character of the text in a release build, more for complex
// expressions and in instrumented builds. Work longer than the thresholds
// below runs on a thread of its own whose stack is sized to it, up to
// kLargestEngineStack; beyond that an expression is refused as too complex
// and a text answers false, as any failure of the engine while matching
// does. Only expressions the automaton does not take are matched by the
// engine (back-references, deep nesting, very long counts; a glob pattern
// cannot spell a look-ahead, its "?" being rewritten), and it reads every
// expression once, as the judge of what is valid.
constexpr std::size_t kLongestExpressionOnCallerStack = 1024;
constexpr std::size_t kLongestTextOnCallerStack = 256;
constexpr std::size_t kExpressionStackPerCharacter = 1024;
constexpr std::size_t kTextStackPerCharacter = 4096;
constexpr std::size_t kBaseEngineStack = std::size_t(1) << 20;
constexpr std::size_t kLargestEngineStack = std::size_t(1) << 30;

/// Runs `work` (which may throw) on the caller's stack when `characters` is
/// within `onCallerStack`, else on a thread with a stack of
/// `perCharacter` bytes a character.
/// @returns false, without running it, when that stack would exceed
/// kLargestEngineStack or the thread cannot be made; true when it ran. What
/// `work` throws is thrown again here.
template <typename Work>
bool runEngine(std::size_t characters, std::size_t onCallerStack, std::size_t perCharacter, Work&& work)
{
    if (characters <= onCallerStack) {
        work();
        return true;
    }
    if (characters > (kLargestEngineStack - kBaseEngineStack) / perCharacter)
        return false;
    struct Run {
        Work* work;
        std::exception_ptr thrown;
    } run{&work, nullptr};
    auto const body = [](void* argument) {
        Run& what = *static_cast<Run*>(argument);
        try {
            (*what.work)();
        } catch (...) {
            what.thrown = std::current_exception();
        }
    };
    if (!posix::runOnStackOf(kBaseEngineStack + characters * perCharacter, body, &run))
        return false;
    if (run.thrown)
        std::rethrow_exception(run.thrown);
    return true;
}

/// @returns whether the whole of `text` matches `expression`; a failure of
/// the engine while matching (its complexity or stack limit), or a text too
/// long for any stack it may be given, answers false.
bool matchesExpression(String const& text, std::wregex const& expression)
{
    bool matched = false;
    try {
        std::wstring const wide = text.toWString();
        if (!runEngine(wide.size(), kLongestTextOnCallerStack, kTextStackPerCharacter,
                       [&] { matched = std::regex_match(wide, expression); }))
            return false;
    } catch (std::regex_error const&) {
        return false;
    }
    return matched;
}

// ---- The direct matcher --------------------------------------------------------
//
// A pattern made only of "*", "?", "." and characters that the expression
// reader takes literally becomes an expression of three kinds of pieces: a
// literal, "." and ".*". Matched whole, "." takes any character but the four
// line terminators, a literal takes exactly itself (no case folding, no
// collation with the default flags), and ".*" takes any run without a line
// terminator. The matcher below decides exactly that, without recursion.

// The characters that do not stand for themselves in an expression.
constexpr char kSpecialCharacters[] = "^$\\.*+?()[]{}|";

// Two states per character at most, far below the engine's limit on the
// size of an expression, so that a pattern taken here would never have been
// refused for its size.
constexpr std::size_t kLongestDirectPattern = 16384;

bool isLineTerminator(char32_t c) noexcept
{
    return c == U'\n' || c == U'\r' || c == U'\u2028' || c == U'\u2029';
}

bool isAnyCharacter(char32_t token) noexcept { return token == U'?' || token == U'.'; }

bool tokenMatches(char32_t token, char32_t c) noexcept
{
    return isAnyCharacter(token) ? !isLineTerminator(c) : token == c;
}

/// The code point a unit of a text stands for: a code point itself, or an
/// ASCII byte of a listed name.
constexpr char32_t codePointOf(char32_t c) noexcept { return c; }
constexpr char32_t codePointOf(char c) noexcept { return static_cast<unsigned char>(c); }

/// @returns whether the `size` tokens at `tokens` match the characters at `text`.
template <typename Unit>
bool segmentMatchesAt(char32_t const* tokens, std::size_t size, Unit const* text) noexcept
{
    for (std::size_t i = 0; i < size; ++i) {
        if (!tokenMatches(tokens[i], codePointOf(text[i])))
            return false;
    }
    return true;
}

/// Whether the reader of expressions under `locale` takes each character of
/// `pattern` as the rewriting means it: the three wildcards as wildcards,
/// everything else as a literal. It tells characters apart by their narrow
/// form under the locale, so the same narrowing is asked here.
bool isDirectPattern(String const& pattern, std::locale const& locale)
{
    if (pattern.size() > kLongestDirectPattern)
        return false;
    auto const& ctype = std::use_facet<std::ctype<wchar_t>>(locale);
    if (ctype.narrow(L'.', ' ') != '.' || ctype.narrow(L'*', ' ') != '*')
        return false;
    for (char32_t c : pattern) {
        if (c == U'*' || c == U'?' || c == U'.')
            continue;
        char const narrow = ctype.narrow(static_cast<wchar_t>(c), ' ');
        // A NUL is found by the search too: the reader takes it as special.
        if (std::strchr(kSpecialCharacters, narrow) != nullptr)
            return false;
    }
    return true;
}

/// Matches `text` against a direct pattern. The pattern is cut at its stars
/// into segments; the first is anchored at the start, the last at the end,
/// and each one between is placed as far left as it goes, which is never
/// worse for what follows. A star covers no line terminator.
template <typename Unit>
bool matchesDirectly(String const& pattern, Unit const* name, std::size_t length) noexcept
{
    char32_t const* const tokens = pattern.data();
    std::size_t const tokenCount = pattern.size();

    std::size_t const firstStar = pattern.find(U'*');
    if (firstStar == String::npos)
        return length == tokenCount && segmentMatchesAt(tokens, tokenCount, name);

    std::size_t const lastStar = pattern.rfind(U'*');
    std::size_t const tailSize = tokenCount - lastStar - 1;
    if (length < firstStar + tailSize)
        return false;
    if (!segmentMatchesAt(tokens, firstStar, name))
        return false;
    std::size_t const end = length - tailSize;
    if (!segmentMatchesAt(tokens + lastStar + 1, tailSize, name + end))
        return false;

    std::size_t position = firstStar;
    std::size_t segmentStart = firstStar + 1;
    while (segmentStart < lastStar) {
        std::size_t segmentEnd = segmentStart;
        while (tokens[segmentEnd] != U'*')
            ++segmentEnd;
        std::size_t const segmentSize = segmentEnd - segmentStart;
        if (segmentSize > 0) {
            for (;;) {
                if (end - position < segmentSize)
                    return false;
                if (segmentMatchesAt(tokens + segmentStart, segmentSize, name + position))
                    break;
                if (isLineTerminator(codePointOf(name[position])))
                    return false;
                ++position;
            }
            position += segmentSize;
        }
        segmentStart = segmentEnd + 1;
    }
    for (; position < end; ++position) {
        if (isLineTerminator(codePointOf(name[position])))
            return false;
    }
    return true;
}

// ---- The per-thread cache ------------------------------------------------------

/// What the engine made of a pattern that the automaton does not take: the
/// compiled expression, or the error it raised.
struct EngineExpression {
    std::unique_ptr<std::wregex> expression;
    std::unique_ptr<std::regex_error> error;
};

/// What a pattern became under one locale: a direct pattern, an automaton,
/// or what the engine made of it, its error thrown again on each use. Every
/// call reads the pattern, the locale and the direct flag, first; the entry
/// is kept to 64 bytes (a text is 32): at 72 the plain wildcard patterns
/// measured 5 % slower.
struct CompiledPattern {
    String pattern;
    std::locale locale;
    bool direct = false;
    std::unique_ptr<detail::GlobAutomaton> automaton;
    std::unique_ptr<EngineExpression> engine;
};
static_assert(sizeof(CompiledPattern) <= 64, "a cache entry fits one cache line");

CompiledPattern compile(String const& pattern, std::locale const& locale)
{
    CompiledPattern compiled;
    compiled.pattern = pattern;
    compiled.locale = locale;
    if (isDirectPattern(pattern, locale)) {
        compiled.direct = true;
        return compiled;
    }
    // The expression takes the global locale, which is `locale`: the caller
    // read it just now, on this thread. The engine compiles it in any case,
    // as the judge of what is valid and of the error raised.
    std::wstring const text = expressionFor(pattern).toWString();
    auto engine = std::make_unique<EngineExpression>();
    try {
        bool const read = runEngine(text.size(), kLongestExpressionOnCallerStack, kExpressionStackPerCharacter,
                                    [&] { engine->expression = std::make_unique<std::wregex>(text); });
        if (!read)
            throw std::regex_error(std::regex_constants::error_complexity);
    } catch (std::regex_error const& error) {
        engine->error = std::make_unique<std::regex_error>(error);
        compiled.engine = std::move(engine);
        return compiled;
    }
    compiled.automaton = detail::GlobAutomaton::build(text, locale);
    if (!compiled.automaton)
        compiled.engine = std::move(engine);
    return compiled;
}

/// The answer for a pattern that is not direct: its automaton's, its error
/// thrown again, or the engine's answer. Kept out of line, so that the
/// direct matcher's path stays short.
[[gnu::noinline]] bool matchesExpressionPattern(String const& text, CompiledPattern const& compiled)
{
    if (compiled.automaton)
        return compiled.automaton->matches(text.data(), text.size());
    if (compiled.engine->error)
        throw std::regex_error(*compiled.engine->error);
    return matchesExpression(text, *compiled.engine->expression);
}

bool matchesCompiled(String const& text, CompiledPattern const& compiled)
{
    if (compiled.direct)
        return matchesDirectly(compiled.pattern, text.data(), text.size());
    return matchesExpressionPattern(text, compiled);
}

constexpr std::size_t kCachedPatterns = 8;

// Set when this thread's cache is gone, so that a call made while the thread
// ends compiles afresh instead of touching it.
thread_local bool cacheClosed = false;

struct PatternCache {
    std::vector<CompiledPattern> entries;

    PatternCache() = default;
    PatternCache(PatternCache const&) = delete;
    PatternCache& operator=(PatternCache const&) = delete;
    ~PatternCache() { cacheClosed = true; }

    /// @returns the entry of `pattern` under `locale`, made on a miss; the
    /// entry used last stands first.
    CompiledPattern const& find(String const& pattern, std::locale const& locale)
    {
        for (std::size_t i = 0; i < entries.size(); ++i) {
            CompiledPattern& entry = entries[i];
            if (entry.pattern == pattern && entry.locale == locale) {
                if (i > 0)
                    std::rotate(entries.begin(), entries.begin() + static_cast<std::ptrdiff_t>(i),
                                entries.begin() + static_cast<std::ptrdiff_t>(i) + 1);
                return entries.front();
            }
        }
        CompiledPattern compiled = compile(pattern, locale);
        if (entries.size() == kCachedPatterns)
            entries.pop_back();
        entries.insert(entries.begin(), std::move(compiled));
        return entries.front();
    }
};

thread_local PatternCache cache;

/// @returns whether the path text `text` matches `pattern` under the
/// current global locale: `matchesGlobPattern` of a path with that text.
bool matchesText(String const& text, String const& pattern)
{
    // Compiled expressions depend on the global locale at compile time, so it
    // is part of what a cached entry is found by.
    std::locale const locale;
    if (cacheClosed)
        return matchesCompiled(text, compile(pattern, locale));
    return matchesCompiled(text, cache.find(pattern, locale));
}

} // namespace

namespace detail {

// A plain wildcard pattern is ready once it is known to be one; any other
// goes through the per-thread cache on each match, as `matchesGlobPattern`
// does, so that what it compiled serves later calls too.
struct PreparedGlob::Compiled {
    String pattern;
    std::locale locale;
    bool direct = false;
    // The code points of a plain name, for a pattern that is not direct.
    mutable String scratch;
};

PreparedGlob::PreparedGlob(String const& pattern) : compiled(std::make_unique<Compiled>())
{
    compiled->pattern = pattern;
    compiled->direct = isDirectPattern(pattern, compiled->locale);
}

PreparedGlob::~PreparedGlob() = default;

bool PreparedGlob::isCurrent() const { return std::locale() == compiled->locale; }

bool PreparedGlob::matches(Path const& path) const
{
    String const& text = PathNativeAccess::text(path);
    if (compiled->direct)
        return matchesDirectly(compiled->pattern, text.data(), text.size());
    return matchesText(text, compiled->pattern);
}

bool PreparedGlob::isPlainName(char const* name, std::size_t length) noexcept
{
    for (std::size_t i = 0; i < length; ++i) {
        auto const byte = static_cast<unsigned char>(name[i]);
        if (byte >= 0x80 || byte == '\\')
            return false;
    }
    return true;
}

bool PreparedGlob::matchesPlainName(char const* name, std::size_t length) const
{
    if (compiled->direct)
        return matchesDirectly(compiled->pattern, name, length);
    String& text = compiled->scratch;
    text.resize(length);
    for (std::size_t i = 0; i < length; ++i)
        text[i] = codePointOf(name[i]);
    return matchesText(text, compiled->pattern);
}

} // namespace detail

bool matchesGlobPattern(Path const& path, String const& pattern)
{
    return matchesText(PathNativeAccess::text(path), pattern);
}

} // namespace kelvo::filesystem
