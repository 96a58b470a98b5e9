// The glob automaton: a reader that tokenises and parses an expression as the standard ECMAScript reader does, building states as it goes, and the one-pass whole-text match.
#include "filesystem/transformations/GlobAutomaton.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace kelvo::filesystem::detail {

namespace {

// Groups nested deeper than this are left to the expression engine: the
// reader recurses once per level.
constexpr int kDeepestNesting = 128;

// Counts of more than nine digits are left to the engine, which adds their
// digits up in a `long` and keeps an `int` of the sum.
constexpr std::size_t kLongestCount = 9;

// More states than this are not built. The engine refuses expressions of
// more than 100,000 states, and the automaton needs at most two for each of
// the engine's, so a valid expression never comes near.
constexpr std::size_t kMostStates = 1000000;

/// The tokens of the expression reader, one for each kind it tells apart.
enum class Token {
    endOfExpression,
    ordinaryCharacter,
    anyCharacter,
    lineBegin,
    lineEnd,
    wordBoundary,
    closure0,
    closure1,
    optional,
    alternation,
    groupBegin,
    plainGroupBegin,
    lookAheadBegin,
    groupEnd,
    bracketBegin,
    negatedBracketBegin,
    bracketEnd,
    bracketDash,
    collatingSymbol,
    className,
    equivalenceClassName,
    intervalBegin,
    intervalEnd,
    count,
    comma,
    escapedClass,
    hexadecimalNumber,
    backReference,
    unreadable, ///< something this reader does not take as the engine would
};

} // namespace

// ---- Reading the expression --------------------------------------------------------
//
// The tokeniser below follows the engine's one step for step: the same
// states (outside brackets, inside them, inside braces), the same tests in
// the same order, and the same questions put to the locale's character type
// (which characters narrow to an operator, which are digits). The parser
// follows the engine's grammar: a disjunction of alternatives, each a run of
// terms, each an assertion or an atom with any number of quantifiers. The
// engine has already accepted the expression; anything unexpected here makes
// the reader give up rather than guess.

class GlobAutomaton::Reader {
public:
    Reader(GlobAutomaton& automaton, std::wstring const& expression, std::locale const& locale)
        : automaton(automaton), ctype(std::use_facet<std::ctype<wchar_t>>(locale)),
          position(expression.data()), end(expression.data() + expression.size())
    {
        advance();
    }

    /// @returns whether the whole expression was read and its states built.
    bool read()
    {
        Fragment body;
        if (!disjunction(body, 0) || token != Token::endOfExpression)
            return false;
        std::int32_t const accept = add(Kind::accept);
        if (accept < 0)
            return false;
        link(body, accept);
        automaton.start = body.start;
        return true;
    }

private:
    using Kind = GlobAutomaton::Kind;

    /// A piece of the automaton: its states are those numbered `first` to
    /// `last`, it is entered at `start`, and it leaves through the `next` of
    /// `end`, which is not yet set. No state outside the range refers into
    /// it but to `start`, and none inside refers out, so it can be copied.
    struct Fragment {
        std::int32_t first = -1;
        std::int32_t last = -1;
        std::int32_t start = -1;
        std::int32_t end = -1;
    };

    enum class Mode { normal, bracket, brace };

    // ---- The tokeniser ----

    void advance()
    {
        if (position == end) {
            token = Token::endOfExpression;
            return;
        }
        if (mode == Mode::normal)
            scanNormal();
        else if (mode == Mode::bracket)
            scanInBracket();
        else
            scanInBrace();
    }

    void ordinary(wchar_t c)
    {
        token = Token::ordinaryCharacter;
        value.assign(1, c);
    }

    void scanNormal()
    {
        static char const kSpecial[] = "^$\\.*+?()[]{}|";
        wchar_t c = *position++;
        // A NUL is found by the search too, as the terminator.
        if (std::strchr(kSpecial, ctype.narrow(c, ' ')) == nullptr) {
            ordinary(c);
            return;
        }
        if (c == L'\\') {
            if (position == end) {
                token = Token::unreadable;
                return;
            }
            eatEscape();
            return;
        }
        if (c == L'(') {
            if (position != end && *position == L'?') {
                if (++position == end) {
                    token = Token::unreadable;
                    return;
                }
                wchar_t const kind = *position++;
                if (kind == L':')
                    token = Token::plainGroupBegin;
                else if (kind == L'=' || kind == L'!')
                    token = Token::lookAheadBegin;
                else
                    token = Token::unreadable;
            } else {
                token = Token::groupBegin;
            }
        } else if (c == L')') {
            token = Token::groupEnd;
        } else if (c == L'[') {
            mode = Mode::bracket;
            if (position != end && *position == L'^') {
                token = Token::negatedBracketBegin;
                ++position;
            } else {
                token = Token::bracketBegin;
            }
        } else if (c == L'{') {
            mode = Mode::brace;
            token = Token::intervalBegin;
        } else if (c == 0) {
            ordinary(c);
        } else if (c != L']' && c != L'}') {
            // The operator the character narrows to; the engine's table ends
            // at a NUL entry, so a NUL finds nothing.
            switch (ctype.narrow(c, '\0')) {
            case '^': token = Token::lineBegin; break;
            case '$': token = Token::lineEnd; break;
            case '.': token = Token::anyCharacter; break;
            case '*': token = Token::closure0; break;
            case '+': token = Token::closure1; break;
            case '?': token = Token::optional; break;
            case '|': token = Token::alternation; break;
            case '\n': token = Token::alternation; break;
            default: token = Token::unreadable; break;
            }
        } else {
            ordinary(c);
        }
    }

    void scanInBracket()
    {
        wchar_t const c = *position++;
        if (c == L'-') {
            token = Token::bracketDash;
        } else if (c == L'[') {
            if (position == end) {
                token = Token::unreadable;
            } else if (*position == L'.') {
                token = Token::collatingSymbol;
                eatClassName(*position++);
            } else if (*position == L':') {
                token = Token::className;
                eatClassName(*position++);
            } else if (*position == L'=') {
                token = Token::equivalenceClassName;
                eatClassName(*position++);
            } else {
                ordinary(c);
            }
        } else if (c == L']') {
            token = Token::bracketEnd;
            mode = Mode::normal;
        } else if (c == L'\\') {
            eatEscape();
        } else {
            ordinary(c);
        }
    }

    void scanInBrace()
    {
        wchar_t const c = *position++;
        if (ctype.is(std::ctype_base::digit, c)) {
            token = Token::count;
            value.assign(1, c);
            while (position != end && ctype.is(std::ctype_base::digit, *position))
                value += *position++;
        } else if (c == L',') {
            token = Token::comma;
        } else if (c == L'}') {
            mode = Mode::normal;
            token = Token::intervalEnd;
        } else {
            token = Token::unreadable;
        }
    }

    /// The name between "[:" and ":]" (or "." or "="), the closing pair eaten.
    void eatClassName(wchar_t delimiter)
    {
        value.clear();
        while (position != end && *position != delimiter)
            value += *position++;
        if (position == end || *position++ != delimiter || position == end || *position++ != L']')
            token = Token::unreadable;
    }

    /// What follows a "\", outside or inside brackets.
    void eatEscape()
    {
        if (position == end) {
            token = Token::unreadable;
            return;
        }
        wchar_t const c = *position++;
        char const narrow = ctype.narrow(c, '\0');
        char const* translation = nullptr;
        static constexpr std::pair<char, char> kEscapes[] = {{'0', '\0'}, {'b', '\b'}, {'f', '\f'}, {'n', '\n'},
                                                             {'r', '\r'}, {'t', '\t'}, {'v', '\v'}};
        for (auto const& escape : kEscapes) {
            if (narrow != '\0' && escape.first == narrow) {
                translation = &escape.second;
                break;
            }
        }
        if (translation != nullptr && (c != L'b' || mode == Mode::bracket)) {
            ordinary(static_cast<wchar_t>(*translation));
        } else if (c == L'b') {
            token = Token::wordBoundary;
            value.assign(1, L'p');
        } else if (c == L'B') {
            token = Token::wordBoundary;
            value.assign(1, L'n');
        } else if (c == L'd' || c == L'D' || c == L's' || c == L'S' || c == L'w' || c == L'W') {
            token = Token::escapedClass;
            value.assign(1, c);
        } else if (c == L'c') {
            // The engine takes the character after "\c" as itself.
            if (position == end) {
                token = Token::unreadable;
                return;
            }
            ordinary(*position++);
        } else if (c == L'x' || c == L'u') {
            value.clear();
            int const digits = c == L'x' ? 2 : 4;
            for (int i = 0; i < digits; ++i) {
                if (position == end || !ctype.is(std::ctype_base::xdigit, *position)) {
                    token = Token::unreadable;
                    return;
                }
                value += *position++;
            }
            token = Token::hexadecimalNumber;
        } else if (ctype.is(std::ctype_base::digit, c)) {
            value.assign(1, c);
            while (position != end && ctype.is(std::ctype_base::digit, *position))
                value += *position++;
            token = Token::backReference;
        } else {
            ordinary(c);
        }
    }

    bool match(Token wanted)
    {
        if (token != wanted)
            return false;
        matched = value;
        advance();
        return true;
    }

    /// The number the matched digits spell in `radix`, worked out as the
    /// engine does; false for more digits than it adds up safely.
    bool matchedNumber(int radix, long& number) const
    {
        if (matched.size() > kLongestCount)
            return false;
        long sum = 0;
        for (wchar_t digit : matched)
            sum = sum * radix + automaton.traits.value(digit, radix);
        number = static_cast<int>(sum);
        return true;
    }

    // ---- Building states ----

    std::int32_t add(Kind kind)
    {
        if (automaton.states.size() >= kMostStates)
            return -1;
        State state;
        state.kind = kind;
        automaton.states.push_back(state);
        return static_cast<std::int32_t>(automaton.states.size() - 1);
    }

    bool single(Kind kind, Fragment& out)
    {
        std::int32_t const state = add(kind);
        if (state < 0)
            return false;
        out = {state, state, state, state};
        return true;
    }

    void link(Fragment const& from, std::int32_t to) { automaton.states[static_cast<std::size_t>(from.end)].next = to; }

    static Fragment joined(Fragment const& before, Fragment const& after)
    {
        return {before.first, after.last, before.start, after.end};
    }

    bool copy(Fragment const& original, Fragment& out)
    {
        std::size_t const count = static_cast<std::size_t>(original.last - original.first + 1);
        if (automaton.states.size() + count > kMostStates)
            return false;
        std::int32_t const offset = static_cast<std::int32_t>(automaton.states.size()) - original.first;
        for (std::size_t i = 0; i < count; ++i) {
            State state = automaton.states[static_cast<std::size_t>(original.first) + i];
            if (state.next >= 0)
                state.next += offset;
            if (state.alternative >= 0)
                state.alternative += offset;
            automaton.states.push_back(state);
        }
        out = {original.first + offset, original.last + offset, original.start + offset, original.end + offset};
        return true;
    }

    /// `inner` any number of times.
    bool star(Fragment const& inner, Fragment& out)
    {
        std::int32_t const loop = add(Kind::split);
        if (loop < 0)
            return false;
        automaton.states[static_cast<std::size_t>(loop)].alternative = inner.start;
        link(inner, loop);
        out = {inner.first, loop, loop, loop};
        return true;
    }

    /// `inner` once or not at all.
    bool optional(Fragment const& inner, Fragment& out)
    {
        std::int32_t const choice = add(Kind::split);
        std::int32_t const after = add(Kind::empty);
        if (choice < 0 || after < 0)
            return false;
        automaton.states[static_cast<std::size_t>(choice)].alternative = inner.start;
        automaton.states[static_cast<std::size_t>(choice)].next = after;
        link(inner, after);
        out = {inner.first, after, choice, after};
        return true;
    }

    // ---- The grammar ----

    bool disjunction(Fragment& out, int depth)
    {
        if (!alternative(out, depth))
            return false;
        while (match(Token::alternation)) {
            Fragment right;
            if (!alternative(right, depth))
                return false;
            std::int32_t const choice = add(Kind::split);
            std::int32_t const after = add(Kind::empty);
            if (choice < 0 || after < 0)
                return false;
            automaton.states[static_cast<std::size_t>(choice)].alternative = out.start;
            automaton.states[static_cast<std::size_t>(choice)].next = right.start;
            link(out, after);
            link(right, after);
            out = {out.first, after, choice, after};
        }
        return true;
    }

    /// A run of terms, possibly empty.
    bool alternative(Fragment& out, int depth)
    {
        if (!single(Kind::empty, out))
            return false;
        for (;;) {
            Fragment piece;
            bool found = false;
            if (!term(piece, depth, found))
                return false;
            if (!found)
                return true;
            link(out, piece.start);
            out = joined(out, piece);
        }
    }

    bool term(Fragment& out, int depth, bool& found)
    {
        found = true;
        if (match(Token::lineBegin))
            return single(Kind::textBegin, out);
        if (match(Token::lineEnd))
            return single(Kind::textEnd, out);
        if (match(Token::wordBoundary))
            return single(matched[0] == L'n' ? Kind::notWordBoundary : Kind::wordBoundary, out);
        if (token == Token::lookAheadBegin)
            return false;
        if (!atom(out, depth, found))
            return false;
        if (!found)
            return true;
        for (;;) {
            bool applied = false;
            if (!quantifier(out, applied))
                return false;
            if (!applied)
                return true;
        }
    }

    bool quantifier(Fragment& piece, bool& applied)
    {
        applied = true;
        // Greedy or lazy, the set of texts matched is the same; a "?" after
        // a quantifier only has to be taken off.
        if (match(Token::closure0)) {
            match(Token::optional);
            return star(piece, piece);
        }
        if (match(Token::closure1)) {
            match(Token::optional);
            Fragment looped;
            if (!star(piece, looped))
                return false;
            piece = {piece.first, looped.last, piece.start, looped.end};
            return true;
        }
        if (match(Token::optional)) {
            match(Token::optional);
            return optional(piece, piece);
        }
        if (!match(Token::intervalBegin)) {
            applied = false;
            return true;
        }
        long least = 0;
        if (!match(Token::count) || !matchedNumber(10, least))
            return false;
        bool unbounded = false;
        long extra = 0;
        if (match(Token::comma)) {
            long most = 0;
            if (match(Token::count)) {
                if (!matchedNumber(10, most))
                    return false;
                extra = most - least;
            } else {
                unbounded = true;
            }
        }
        if (!match(Token::intervalEnd))
            return false;
        match(Token::optional);
        if (!unbounded && extra < 0)
            return false;

        // As the engine does: the original piece is kept out of the result
        // and copied, `least` times, then once under a star or `extra` times
        // each under a choice between it and the common end.
        Fragment const original = piece;
        Fragment result;
        if (!single(Kind::empty, result))
            return false;
        result.first = original.first;
        for (long i = 0; i < least; ++i) {
            Fragment one;
            if (!copy(original, one))
                return false;
            link(result, one.start);
            result = joined(result, one);
        }
        if (unbounded) {
            Fragment one;
            Fragment looped;
            if (!copy(original, one) || !star(one, looped))
                return false;
            link(result, looped.start);
            result = joined(result, looped);
        } else if (extra > 0) {
            std::int32_t const after = add(Kind::empty);
            if (after < 0)
                return false;
            for (long i = 0; i < extra; ++i) {
                Fragment one;
                if (!copy(original, one))
                    return false;
                std::int32_t const choice = add(Kind::split);
                if (choice < 0)
                    return false;
                automaton.states[static_cast<std::size_t>(choice)].alternative = one.start;
                automaton.states[static_cast<std::size_t>(choice)].next = after;
                link(result, choice);
                result = {result.first, choice, result.start, one.end};
            }
            link(result, after);
            result.end = after;
        }
        result.last = static_cast<std::int32_t>(automaton.states.size() - 1);
        piece = result;
        return true;
    }

    bool atom(Fragment& out, int depth, bool& found)
    {
        found = true;
        if (match(Token::anyCharacter))
            return single(Kind::anyCharacter, out);
        wchar_t character = 0;
        bool isCharacter = false;
        if (!tryCharacter(character, isCharacter))
            return false;
        if (isCharacter) {
            if (!single(Kind::character, out))
                return false;
            automaton.states[static_cast<std::size_t>(out.start)].character = character;
            return true;
        }
        if (token == Token::backReference)
            return false;
        if (match(Token::escapedClass)) {
            CharacterSet set;
            set.negated = ctype.is(std::ctype_base::upper, matched[0]);
            if (!addClass(set, matched, false))
                return false;
            return addSet(std::move(set), out);
        }
        bool const plain = token == Token::plainGroupBegin;
        if (plain || token == Token::groupBegin) {
            if (depth >= kDeepestNesting)
                return false;
            advance();
            Fragment inner;
            if (!disjunction(inner, depth + 1) || !match(Token::groupEnd))
                return false;
            out = inner;
            return true;
        }
        bool const negated = token == Token::negatedBracketBegin;
        if (negated || token == Token::bracketBegin) {
            advance();
            return bracket(negated, out);
        }
        found = false;
        return true;
    }

    /// An ordinary character or a hexadecimal escape, as one character.
    bool tryCharacter(wchar_t& character, bool& isCharacter)
    {
        isCharacter = false;
        if (match(Token::hexadecimalNumber)) {
            long number = 0;
            if (!matchedNumber(16, number))
                return false;
            character = static_cast<wchar_t>(number);
            isCharacter = true;
        } else if (match(Token::ordinaryCharacter)) {
            character = matched[0];
            isCharacter = true;
        }
        return true;
    }

    bool addClass(CharacterSet& set, std::wstring const& name, bool negated)
    {
        ClassMask const mask = automaton.traits.lookup_classname(name.data(), name.data() + name.size(), false);
        if (mask == ClassMask())
            return false;
        if (negated) {
            set.negatedClasses.push_back(mask);
        } else {
            set.classes |= mask;
            set.hasClasses = true;
        }
        return true;
    }

    bool addSet(CharacterSet set, Fragment& out)
    {
        std::sort(set.characters.begin(), set.characters.end());
        set.characters.erase(std::unique(set.characters.begin(), set.characters.end()), set.characters.end());
        if (!single(Kind::set, out))
            return false;
        automaton.sets.push_back(std::move(set));
        automaton.states[static_cast<std::size_t>(out.start)].set = static_cast<std::int32_t>(automaton.sets.size() - 1);
        return true;
    }

    /// What the bracket expression has seen last: nothing that a range can
    /// follow, a character (not yet added), or a class.
    enum class Last { none, character, characterClass };

    bool bracket(bool negated, Fragment& out)
    {
        CharacterSet set;
        set.negated = negated;
        Last last = Last::none;
        wchar_t lastCharacter = 0;
        auto pushCharacter = [&](wchar_t c) {
            if (last == Last::character)
                set.characters.push_back(lastCharacter);
            last = Last::character;
            lastCharacter = c;
        };
        auto pushClass = [&] {
            if (last == Last::character)
                set.characters.push_back(lastCharacter);
            last = Last::characterClass;
        };

        wchar_t character = 0;
        bool isCharacter = false;
        if (!tryCharacter(character, isCharacter))
            return false;
        if (isCharacter) {
            last = Last::character;
            lastCharacter = character;
        } else if (match(Token::bracketDash)) {
            last = Last::character;
            lastCharacter = L'-';
        }
        for (;;) {
            if (match(Token::bracketEnd))
                break;
            if (match(Token::collatingSymbol)) {
                std::wstring const symbol =
                    automaton.traits.lookup_collatename(matched.data(), matched.data() + matched.size());
                if (symbol.empty())
                    return false;
                set.characters.push_back(symbol[0]);
                if (symbol.size() == 1)
                    pushCharacter(symbol[0]);
                else
                    pushClass();
            } else if (match(Token::equivalenceClassName)) {
                pushClass();
                std::wstring const symbol =
                    automaton.traits.lookup_collatename(matched.data(), matched.data() + matched.size());
                if (symbol.empty())
                    return false;
                set.equivalents.push_back(
                    automaton.traits.transform_primary(symbol.data(), symbol.data() + symbol.size()));
            } else if (match(Token::className)) {
                pushClass();
                if (!addClass(set, matched, false))
                    return false;
            } else if (!tryCharacter(character, isCharacter)) {
                return false;
            } else if (isCharacter) {
                pushCharacter(character);
            } else if (match(Token::bracketDash)) {
                if (match(Token::bracketEnd)) {
                    // "-]": the dash is itself.
                    pushCharacter(L'-');
                    break;
                }
                if (last == Last::characterClass)
                    return false;
                if (last == Last::character) {
                    wchar_t high = 0;
                    if (!tryCharacter(high, isCharacter))
                        return false;
                    if (!isCharacter) {
                        if (!match(Token::bracketDash))
                            return false;
                        high = L'-';
                    }
                    if (lastCharacter > high)
                        return false;
                    set.ranges.emplace_back(lastCharacter, high);
                    last = Last::none;
                } else {
                    pushCharacter(L'-');
                }
            } else if (match(Token::escapedClass)) {
                pushClass();
                if (!addClass(set, matched, ctype.is(std::ctype_base::upper, matched[0])))
                    return false;
            } else {
                return false;
            }
        }
        if (last == Last::character)
            set.characters.push_back(lastCharacter);
        return addSet(std::move(set), out);
    }

    GlobAutomaton& automaton;
    std::ctype<wchar_t> const& ctype;
    wchar_t const* position;
    wchar_t const* const end;
    Mode mode = Mode::normal;
    Token token = Token::endOfExpression;
    std::wstring value; ///< what the current token carries
    std::wstring matched; ///< what the token last matched carried
};

// ---- The automaton -------------------------------------------------------------------

namespace {

// Live sets kept per automaton: enough for the patterns of file names,
// about 70 KiB at most; past it the cache starts again.
constexpr std::size_t kMostLiveSets = 128;

} // namespace

GlobAutomaton::~GlobAutomaton() = default;

std::unique_ptr<GlobAutomaton> GlobAutomaton::build(std::wstring const& expression, std::locale const& locale)
{
    std::unique_ptr<GlobAutomaton> automaton(new GlobAutomaton());
    automaton->traits.imbue(locale);
    static wchar_t const kWord[] = L"w";
    automaton->wordClass = automaton->traits.lookup_classname(kWord, kWord + 1, false);
    Reader reader(*automaton, expression, locale);
    if (!reader.read())
        return nullptr;
    automaton->marks.assign(automaton->states.size(), 0);
    if (!automaton->precomputeClosures()) {
        automaton->closures.clear();
        automaton->closureStates.clear();
    }
    return automaton;
}

bool GlobAutomaton::precomputeClosures()
{
    for (State const& state : states) {
        if (state.kind == Kind::textBegin || state.kind == Kind::textEnd || state.kind == Kind::wordBoundary
            || state.kind == Kind::notWordBoundary)
            return false;
    }
    // A few entries a state on average; beyond that the closures are worked
    // out as the text is read.
    std::size_t const mostEntries = 8 * states.size() + 1024;
    closures.assign(states.size(), Closure());
    std::vector<bool> done(states.size(), false);
    auto const workOut = [&](std::int32_t from) {
        std::size_t const index = static_cast<std::size_t>(from);
        if (done[index])
            return true;
        done[index] = true;
        Closure& closure = closures[index];
        closure.begin = static_cast<std::uint32_t>(closureStates.size());
        ++generation;
        // Without assertions the text is never looked at.
        addReachable(from, nullptr, 0, 0, closureStates, closure.accepts);
        closure.end = static_cast<std::uint32_t>(closureStates.size());
        return closureStates.size() <= mostEntries;
    };
    if (!workOut(start))
        return false;
    for (State const& state : states) {
        // The piece a count copies is kept but never entered; its states
        // lead nowhere.
        bool const consuming =
            state.kind == Kind::character || state.kind == Kind::anyCharacter || state.kind == Kind::set;
        if (consuming && state.next >= 0 && !workOut(state.next))
            return false;
    }
    return true;
}

bool GlobAutomaton::setMatches(CharacterSet const& set, wchar_t c) const
{
    auto const found = [&] {
        if (std::binary_search(set.characters.begin(), set.characters.end(), c))
            return true;
        for (auto const& range : set.ranges) {
            if (range.first <= c && c <= range.second)
                return true;
        }
        if (set.hasClasses && traits.isctype(c, set.classes))
            return true;
        if (!set.equivalents.empty()) {
            std::wstring const key = traits.transform_primary(&c, &c + 1);
            if (std::find(set.equivalents.begin(), set.equivalents.end(), key) != set.equivalents.end())
                return true;
        }
        for (ClassMask const& mask : set.negatedClasses) {
            if (!traits.isctype(c, mask))
                return true;
        }
        return false;
    };
    return found() != set.negated;
}

bool GlobAutomaton::consumes(State const& state, wchar_t c) const
{
    switch (state.kind) {
    case Kind::character:
        return state.character == c;
    case Kind::anyCharacter:
        return c != L'\n' && c != L'\r' && c != L'\u2028' && c != L'\u2029';
    case Kind::set:
        return setMatches(sets[static_cast<std::size_t>(state.set)], c);
    default:
        return false;
    }
}

bool GlobAutomaton::isWordCharacter(wchar_t c) const { return traits.isctype(c, wordClass); }

bool GlobAutomaton::atWordBoundary(char32_t const* text, std::size_t length, std::size_t position) const
{
    bool const left = position > 0 && isWordCharacter(static_cast<wchar_t>(text[position - 1]));
    bool const right = position < length && isWordCharacter(static_cast<wchar_t>(text[position]));
    return left != right;
}

void GlobAutomaton::addReachable(std::int32_t from, char32_t const* text, std::size_t length, std::size_t position,
                                 std::vector<std::int32_t>& list, bool& accepted) const
{
    pending.clear();
    pending.push_back(from);
    while (!pending.empty()) {
        std::int32_t const index = pending.back();
        pending.pop_back();
        // Only the copied piece a count keeps unused has an unset end.
        if (index < 0)
            continue;
        std::size_t& mark = marks[static_cast<std::size_t>(index)];
        if (mark == generation)
            continue;
        mark = generation;
        State const& state = states[static_cast<std::size_t>(index)];
        switch (state.kind) {
        case Kind::character:
        case Kind::anyCharacter:
        case Kind::set:
            list.push_back(index);
            break;
        case Kind::split:
            pending.push_back(state.next);
            pending.push_back(state.alternative);
            break;
        case Kind::empty:
            pending.push_back(state.next);
            break;
        case Kind::textBegin:
            if (position == 0)
                pending.push_back(state.next);
            break;
        case Kind::textEnd:
            if (position == length)
                pending.push_back(state.next);
            break;
        case Kind::wordBoundary:
            if (atWordBoundary(text, length, position))
                pending.push_back(state.next);
            break;
        case Kind::notWordBoundary:
            if (!atWordBoundary(text, length, position))
                pending.push_back(state.next);
            break;
        case Kind::accept:
            accepted = true;
            break;
        }
    }
}

bool GlobAutomaton::matches(char32_t const* text, std::size_t length) const
{
    return closures.empty() ? matchesStepByStep(text, length) : matchesWithClosures(text, length);
}

std::int32_t GlobAutomaton::liveSetFor(std::vector<std::int32_t> const& key) const
{
    auto const found = liveSetIndex.find(key);
    if (found != liveSetIndex.end())
        return found->second;
    if (liveSets.size() == kMostLiveSets) {
        liveSets.clear();
        liveSetIndex.clear();
        return -1;
    }
    LiveSet set;
    set.key = key;
    set.accepts = !key.empty() && key.back() < 0;
    set.following.fill(-1);
    liveSets.push_back(std::move(set));
    std::int32_t const index = static_cast<std::int32_t>(liveSets.size() - 1);
    liveSetIndex.emplace(key, index);
    return index;
}

void GlobAutomaton::stepKey(LiveSet const& from, wchar_t c, std::vector<std::int32_t>& key) const
{
    key.clear();
    ++generation;
    bool accepts = false;
    for (std::int32_t index : from.key) {
        if (index < 0)
            break;
        State const& state = states[static_cast<std::size_t>(index)];
        if (!consumes(state, c))
            continue;
        Closure const& closure = closures[static_cast<std::size_t>(state.next)];
        accepts = accepts || closure.accepts;
        for (std::uint32_t i = closure.begin; i < closure.end; ++i) {
            std::int32_t const reached = closureStates[i];
            std::size_t& mark = marks[static_cast<std::size_t>(reached)];
            if (mark != generation) {
                mark = generation;
                key.push_back(reached);
            }
        }
    }
    std::sort(key.begin(), key.end());
    if (accepts)
        key.push_back(-1);
}

bool GlobAutomaton::matchesWithClosures(char32_t const* text, std::size_t length) const
{
    // The live sets are those of a deterministic automaton, made as they are
    // met and kept between calls; each ASCII step is then one look-up.
    std::vector<std::int32_t>& key = pending;
    Closure const& initial = closures[static_cast<std::size_t>(start)];
    key.assign(closureStates.begin() + initial.begin, closureStates.begin() + initial.end);
    std::sort(key.begin(), key.end());
    if (initial.accepts)
        key.push_back(-1);
    std::int32_t set = liveSetFor(key);
    if (set < 0)
        set = liveSetFor(key);
    for (std::size_t position = 0; position < length; ++position) {
        LiveSet const* live = &liveSets[static_cast<std::size_t>(set)];
        if (live->key.empty() || (live->key.size() == 1 && live->accepts))
            return false;
        wchar_t const c = static_cast<wchar_t>(text[position]);
        bool const ascii = c >= 0 && c < 128;
        if (ascii && live->following[static_cast<std::size_t>(c)] >= 0) {
            set = live->following[static_cast<std::size_t>(c)];
            continue;
        }
        stepKey(*live, c, key);
        std::int32_t next = liveSetFor(key);
        if (next < 0) {
            // The cache was full and is empty now: the sets before are gone.
            next = liveSetFor(key);
        } else if (ascii) {
            liveSets[static_cast<std::size_t>(set)].following[static_cast<std::size_t>(c)] = next;
        }
        set = next;
    }
    return liveSets[static_cast<std::size_t>(set)].accepts;
}

bool GlobAutomaton::matchesStepByStep(char32_t const* text, std::size_t length) const
{
    current.clear();
    ++generation;
    bool accepted = false;
    addReachable(start, text, length, 0, current, accepted);
    for (std::size_t position = 0; position < length; ++position) {
        if (current.empty())
            return false;
        wchar_t const c = static_cast<wchar_t>(text[position]);
        following.clear();
        ++generation;
        accepted = false;
        for (std::int32_t index : current) {
            State const& state = states[static_cast<std::size_t>(index)];
            if (consumes(state, c))
                addReachable(state.next, text, length, position + 1, following, accepted);
        }
        current.swap(following);
    }
    return accepted;
}

} // namespace kelvo::filesystem::detail
