// Shell patterns compiled to tokens of one character each and matched with a single remembered star, so that no pattern takes more than its length times the name's.
#include <kelvo/filesystem/ShellPattern.h>

#include <kelvo/text/Unicode.h>

#include "filesystem/path/PathNativeAccess.h"
#include "text/Encoding.h"
#include "text/Normalization.h"

#include <cstring>
#include <utility>
#include <vector>

namespace kelvo::filesystem {

using kelvo::unicode::CharacterClass;
using kelvo::unicode::String;

namespace {

enum class TokenKind : std::uint8_t {
    literal, // one character: `count` code points of the unit pool from `first`
    any,     // "?"
    star,    // "*" (runs of stars are kept as one)
    set,     // "[...]": the set at `first`
    never,   // matches no character (a malformed piece that the C library fails on)
};

struct Token {
    TokenKind kind;
    std::uint32_t first = 0;
    std::uint32_t count = 0;
};

enum class MemberKind : std::uint8_t {
    character,      // the character whose code points are units[first, first + count)
    range,          // any single code point from low to high
    characterClass, // a named class
    failure,        // reached before a match, the whole set fails (an unknown class)
};

struct Member {
    MemberKind kind = MemberKind::character;
    CharacterClass characterClass = CharacterClass::alpha;
    char32_t low = 0;
    char32_t high = 0;
    // For a range under folding: its ends folded too, so "[A-Z]" holds "q".
    char32_t foldedLow = 0;
    char32_t foldedHigh = 0;
    std::uint32_t first = 0;
    std::uint32_t count = 0;
};

struct Set {
    std::vector<Member> members;
    bool negated = false;
    // A match by a member before this one fails the set (see
    // RawMember::failsAfterMatch).
    std::size_t failingBefore = 0;
};

enum class Shape : std::uint8_t {
    general,
    literal, // no star, "?" or set: the name must equal the units
    suffix,  // "*" then literals: the name must end with them
    prefix,  // literals then "*": the name must begin with them
};

inline char32_t lowerASCII(char32_t c) noexcept { return (c - U'A' < 26u) ? c + (U'a' - U'A') : c; }

inline char32_t fold(char32_t c) { return c < 0x80 ? lowerASCII(c) : kelvo::unicode::simpleCaseFold(c); }

/// @returns true when every one of the `size` code points at `data` is below
/// U+0300, which makes the text its own composed form.
inline bool isTriviallyComposed(char32_t const* data, std::size_t size) noexcept
{
    char32_t any = 0;
    for (std::size_t i = 0; i < size; ++i)
        any |= data[i] >= 0x300 ? 1 : 0;
    return any == 0;
}

inline bool isASCIILowerLetter(char32_t c) noexcept { return c >= U'a' && c <= U'z'; }

bool classNamed(String const& name, CharacterClass& out)
{
    static constexpr std::pair<char const*, CharacterClass> kNames[] = {
        {"alnum", CharacterClass::alnum}, {"alpha", CharacterClass::alpha}, {"blank", CharacterClass::blank},
        {"cntrl", CharacterClass::cntrl}, {"digit", CharacterClass::digit}, {"graph", CharacterClass::graph},
        {"lower", CharacterClass::lower}, {"print", CharacterClass::print}, {"punct", CharacterClass::punct},
        {"space", CharacterClass::space}, {"upper", CharacterClass::upper}, {"xdigit", CharacterClass::xdigit},
    };
    for (auto const& [text, value] : kNames) {
        std::size_t const length = std::strlen(text);
        if (name.size() != length)
            continue;
        bool same = true;
        for (std::size_t i = 0; i < length && same; ++i)
            same = name[i] == static_cast<char32_t>(text[i]);
        if (same) {
            out = value;
            return true;
        }
    }
    return false;
}

// The pattern as first read: one entry per pattern character, before
// literals are grouped into characters for the folding forms.
struct RawToken {
    TokenKind kind;
    char32_t character = 0; // literal
    std::uint32_t set = 0;  // set
};

struct RawMember {
    MemberKind kind;
    char32_t low = 0;
    char32_t high = 0;
    CharacterClass characterClass = CharacterClass::alpha;
    // The "[" of an unclosed "[=": an ordinary member, but a set that matched
    // an earlier member fails when it gets there.
    bool failsAfterMatch = false;
};

struct RawSet {
    std::vector<RawMember> members;
    bool negated = false;
    // Unclosed, and ending in a piece the C library fails on when it gets
    // there: a lone "\\" or a "-" with no range end.
    bool tailFails = false;
};

/// Reads the collating element "[.c.]" whose "[" is at `open`: its one
/// character in `character` (or a failing member for a longer one), and
/// `next` after it.
/// @returns false when it is not closed by ".]", which fails the whole set.
bool readCollating(String const& p, std::size_t open, RawMember& member, std::size_t& next)
{
    for (std::size_t k = open + 2; k + 1 < p.size(); ++k) {
        if (p[k] == U'.' && p[k + 1] == U']') {
            if (k == open + 3)
                member = RawMember{MemberKind::character, p[open + 2], p[open + 2]};
            else
                member = RawMember{MemberKind::failure};
            next = k + 2;
            return true;
        }
    }
    return false;
}

/// What reading a bracket expression gave.
enum class BracketOutcome {
    set,          // a closed set
    unterminated, // no closing "]": the "[" is an ordinary character
    broken,       // a piece the C library fails on wherever it is reached
};

/// Reads the bracket expression whose "[" is at `open`, filling `set` and
/// leaving `next` after its "]".
BracketOutcome readBracket(String const& p, std::size_t open, RawSet& set, std::size_t& next)
{
    std::size_t const size = p.size();
    auto at = [&p, size](std::size_t k) -> char32_t { return k < size ? p[k] : 0; };
    std::size_t i = open + 1;
    if (at(i) == U'!' || at(i) == U'^') {
        set.negated = true;
        ++i;
    }
    bool first = true;
    while (true) {
        if (i >= size)
            return BracketOutcome::unterminated;
        char32_t c = p[i];
        if (c == U']' && !first) {
            next = i + 1;
            return BracketOutcome::set;
        }
        first = false;
        if (c == U'[' && at(i + 1) == U':') {
            // A class name is lower-case letters closed by ":]"; anything else
            // leaves the "[" an ordinary member.
            std::size_t k = i + 2;
            String name;
            while (k < size && isASCIILowerLetter(p[k]) && p[k] != U'z')
                name.push_back(p[k++]);
            if (at(k) == U':' && at(k + 1) == U']') {
                RawMember member{MemberKind::characterClass};
                if (!classNamed(name, member.characterClass))
                    member.kind = MemberKind::failure;
                set.members.push_back(member);
                i = k + 2;
                continue;
            }
            ++i;
        } else if (c == U'[' && at(i + 1) == U'=') {
            // "[=c=]" is the one character c, and starts no range.
            if (i + 2 < size && at(i + 3) == U'=' && at(i + 4) == U']') {
                set.members.push_back(RawMember{MemberKind::character, p[i + 2], p[i + 2]});
                i += 5;
                continue;
            }
            set.members.push_back(RawMember{MemberKind::character, c, c, CharacterClass::alpha, true});
            ++i;
            continue;
        } else if (c == U'[' && at(i + 1) == U'.') {
            // "[.c.]" is the one character c, and may start a range; a
            // longer one fails when reached, an unclosed one always.
            RawMember collating{MemberKind::failure};
            if (!readCollating(p, i, collating, i))
                return BracketOutcome::broken;
            if (collating.kind == MemberKind::failure) {
                set.members.push_back(collating);
                continue;
            }
            c = collating.low;
        } else if (c == U'\\') {
            if (i + 1 >= size) {
                set.tailFails = true;
                return BracketOutcome::unterminated;
            }
            c = p[i + 1];
            i += 2;
        } else {
            ++i;
        }
        if (at(i) == U'-' && i + 1 < size && p[i + 1] != U']') {
            // A range: its end may be escaped or be "[.c.]".
            std::size_t k = i + 1;
            char32_t high = p[k];
            if (high == U'\\') {
                if (k + 1 >= size) {
                    set.tailFails = true;
                    return BracketOutcome::unterminated;
                }
                high = p[k + 1];
                k += 2;
            } else if (high == U'[' && at(k + 1) == U'.') {
                RawMember collating{MemberKind::failure};
                if (!readCollating(p, k, collating, k))
                    return BracketOutcome::broken;
                if (collating.kind == MemberKind::failure) {
                    set.members.push_back(collating);
                    i = k;
                    continue;
                }
                high = collating.low;
            } else {
                ++k;
            }
            set.members.push_back(RawMember{MemberKind::range, c, high});
            i = k;
            continue;
        }
        set.members.push_back(RawMember{MemberKind::character, c, c});
        if (at(i) == U'-' && i + 1 >= size) {
            // "[a-" at the end: a range with no end.
            set.tailFails = true;
            return BracketOutcome::unterminated;
        }
    }
}

/// @returns how an unclosed set reads: an ordinary "[" when the members
/// name "[" before any failing one, or reach the end without failing;
/// otherwise a token that matches nothing.
TokenKind unclosedSet(RawSet const& set)
{
    char32_t const c = U'[';
    std::size_t lastFailing = 0; // one past the last member that fails after a match
    for (std::size_t k = 0; k < set.members.size(); ++k) {
        if (set.members[k].failsAfterMatch)
            lastFailing = k + 1;
    }
    for (std::size_t k = 0; k < set.members.size(); ++k) {
        RawMember const& member = set.members[k];
        bool named = false;
        switch (member.kind) {
        case MemberKind::failure: return TokenKind::never;
        case MemberKind::character: named = member.low == c; break;
        case MemberKind::range: named = member.low <= c && c <= member.high; break;
        case MemberKind::characterClass: named = kelvo::unicode::hasCharacterClass(c, member.characterClass); break;
        }
        if (named)
            return k + 1 < lastFailing ? TokenKind::never : TokenKind::literal;
    }
    return set.tailFails ? TokenKind::never : TokenKind::literal;
}

void readPattern(String const& p, std::vector<RawToken>& tokens, std::vector<RawSet>& sets)
{
    std::size_t const size = p.size();
    std::size_t i = 0;
    while (i < size) {
        char32_t const c = p[i];
        if (c == U'*') {
            if (tokens.empty() || tokens.back().kind != TokenKind::star)
                tokens.push_back(RawToken{TokenKind::star});
            ++i;
        } else if (c == U'?') {
            tokens.push_back(RawToken{TokenKind::any});
            ++i;
        } else if (c == U'\\') {
            if (i + 1 >= size) {
                // A lone "\" at the end matches nothing, not even an end.
                tokens.push_back(RawToken{TokenKind::never});
                ++i;
            } else {
                tokens.push_back(RawToken{TokenKind::literal, p[i + 1]});
                i += 2;
            }
        } else if (c == U'[') {
            RawSet set;
            std::size_t next = i + 1;
            switch (readBracket(p, i, set, next)) {
            case BracketOutcome::set:
                tokens.push_back(RawToken{TokenKind::set, 0, static_cast<std::uint32_t>(sets.size())});
                sets.push_back(std::move(set));
                i = next;
                break;
            case BracketOutcome::unterminated:
                // The "[" is an ordinary character, and what follows it is
                // read again as pattern.
                tokens.push_back(RawToken{unclosedSet(set), U'['});
                ++i;
                break;
            case BracketOutcome::broken:
                tokens.push_back(RawToken{TokenKind::never});
                // Nothing after it can matter: the token never matches.
                i = size;
                break;
            }
        } else {
            tokens.push_back(RawToken{TokenKind::literal, c});
            ++i;
        }
    }
}

} // namespace

struct ShellPattern::Program {
    String text;
    NameFolding folding = NameFolding::exact;
    Shape shape = Shape::literal;
    std::vector<Token> tokens;
    std::u32string units;
    std::vector<Set> sets;
    // For the literal, suffix and prefix shapes: the literal code points.
    std::u32string fixed;
    // No star, "?" or set: one name (under the folding) matches.
    bool literalOnly = true;

    bool folded() const noexcept { return folding != NameFolding::exact; }

    /// Brings `text` (already decomposed) to the folded form of this
    /// pattern: without accents when asked, each code point case-folded.
    void foldDecomposed(String& text) const
    {
        // Marks are U+0300 or above: a text below that has none to drop.
        if (folding == NameFolding::caseCompositionAndAccents
            && !isTriviallyComposed(text.data(), text.size()))
            text = kelvo::unicode::withoutAccents(text);
        for (char32_t& c : text)
            c = fold(c);
    }

    std::uint32_t addUnits(char32_t const* data, std::size_t size)
    {
        auto const first = static_cast<std::uint32_t>(units.size());
        units.append(data, size);
        return first;
    }

    void compile(String const& pattern);
};

void ShellPattern::Program::compile(String const& pattern)
{
    std::vector<RawToken> raw;
    std::vector<RawSet> rawSets;
    readPattern(pattern, raw, rawSets);

    for (RawSet const& rawSet : rawSets) {
        Set set;
        set.negated = rawSet.negated;
        for (RawMember const& rawMember : rawSet.members) {
            Member member;
            member.kind = rawMember.kind;
            member.characterClass = rawMember.characterClass;
            member.low = rawMember.low;
            member.high = rawMember.high;
            member.foldedLow = folded() ? fold(rawMember.low) : rawMember.low;
            member.foldedHigh = folded() ? fold(rawMember.high) : rawMember.high;
            if (member.kind == MemberKind::character) {
                String character(1, rawMember.low);
                if (folded()) {
                    character = kelvo::unicode::toNFD(character);
                    foldDecomposed(character);
                    // A mark dropped with the accents names nothing.
                    if (character.empty())
                        continue;
                }
                member.first = addUnits(character.data(), character.size());
                member.count = static_cast<std::uint32_t>(character.size());
            }
            set.members.push_back(member);
            if (rawMember.failsAfterMatch)
                set.failingBefore = set.members.size() - 1;
        }
        sets.push_back(std::move(set));
    }

    for (std::size_t i = 0; i < raw.size();) {
        RawToken const& token = raw[i];
        if (token.kind != TokenKind::literal) {
            tokens.push_back(Token{token.kind, token.set, 0});
            ++i;
            continue;
        }
        if (!folded()) {
            tokens.push_back(Token{TokenKind::literal, addUnits(&token.character, 1), 1});
            ++i;
            continue;
        }
        // Under folding, a run of literals is decomposed and folded as one
        // text, then cut into characters: a code point and the combining
        // marks after it.
        String run;
        for (; i < raw.size() && raw[i].kind == TokenKind::literal; ++i)
            run.push_back(raw[i].character);
        run = kelvo::unicode::toNFD(run);
        foldDecomposed(run);
        std::size_t start = 0;
        for (std::size_t k = 1; k <= run.size(); ++k) {
            if (k == run.size() || kelvo::unicode::canonicalCombiningClass(run[k]) == 0) {
                tokens.push_back(Token{TokenKind::literal, addUnits(run.data() + start, k - start),
                                       static_cast<std::uint32_t>(k - start)});
                start = k;
            }
        }
    }

    for (Token const& token : tokens)
        literalOnly = literalOnly && token.kind == TokenKind::literal;

    // The shapes that need no general walk: literals and one star, each
    // literal a single code point (so that they also serve folded names
    // whose characters are single code points).
    {
        std::size_t stars = 0;
        bool others = false;
        for (Token const& token : tokens) {
            stars += token.kind == TokenKind::star;
            others |= (token.kind != TokenKind::star && token.kind != TokenKind::literal)
                || (token.kind == TokenKind::literal && token.count != 1);
        }
        if (others || stars > 1)
            shape = Shape::general;
        else if (stars == 0)
            shape = Shape::literal;
        else if (tokens.front().kind == TokenKind::star)
            shape = Shape::suffix;
        else if (tokens.back().kind == TokenKind::star)
            shape = Shape::prefix;
        else
            shape = Shape::general;
        if (shape != Shape::general) {
            for (Token const& token : tokens) {
                if (token.kind == TokenKind::literal)
                    fixed.append(units, token.first, token.count);
            }
        }
    }
}

namespace {

/// A name as a sequence of characters of one code point each, in any
/// code-unit type that holds code points (bytes of ASCII, UTF-32).
template <typename Unit>
struct SimpleName {
    Unit const* data;
    std::size_t length;

    std::size_t size() const noexcept { return length; }
    char32_t base(std::size_t i) const noexcept { return static_cast<char32_t>(data[i]); }
    bool single(std::size_t) const noexcept { return true; }
    bool equals(std::size_t i, char32_t const* units, std::size_t count) const noexcept
    {
        return count == 1 && static_cast<char32_t>(data[i]) == units[0];
    }
};

/// A folded name as a sequence of characters: a code point and the combining
/// marks after it, character i spanning code points starts[i] to
/// starts[i + 1].
struct ClusteredName {
    char32_t const* data;
    std::uint32_t const* starts;
    std::size_t length;

    std::size_t size() const noexcept { return length; }
    char32_t base(std::size_t i) const noexcept { return data[starts[i]]; }
    bool single(std::size_t i) const noexcept { return starts[i + 1] - starts[i] == 1; }
    bool equals(std::size_t i, char32_t const* units, std::size_t count) const noexcept
    {
        std::size_t const first = starts[i];
        return starts[i + 1] - first == count && std::memcmp(data + first, units, count * sizeof(char32_t)) == 0;
    }
};

struct Matcher {
    ShellPattern::Program const& program;

    template <typename Name>
    bool setMatches(Set const& set, Name const& name, std::size_t i) const
    {
        bool const folded = program.folded();
        std::size_t const count = set.members.size();
        for (std::size_t k = 0; k < count; ++k) {
            Member const& member = set.members[k];
            bool const matched = k >= set.failingBefore && !set.negated;
            switch (member.kind) {
            case MemberKind::failure: return false;
            case MemberKind::character:
                if (name.equals(i, program.units.data() + member.first, member.count))
                    return matched;
                break;
            case MemberKind::range:
                if (name.single(i)) {
                    char32_t const c = name.base(i);
                    if ((member.low <= c && c <= member.high)
                        || (folded && member.foldedLow <= c && c <= member.foldedHigh))
                        return matched;
                }
                break;
            case MemberKind::characterClass: {
                char32_t const c = name.base(i);
                CharacterClass const named = member.characterClass;
                bool held = kelvo::unicode::hasCharacterClass(c, named);
                // A folded name has lost its capitals: either case stands
                // for a cased letter.
                if (!held && folded && (named == CharacterClass::upper || named == CharacterClass::lower))
                    held = kelvo::unicode::hasCharacterClass(c, CharacterClass::upper)
                        || kelvo::unicode::hasCharacterClass(c, CharacterClass::lower);
                if (held)
                    return matched;
                break;
            }
            }
        }
        return set.negated;
    }

    template <typename Name>
    bool tokenMatches(Token const& token, Name const& name, std::size_t i) const
    {
        switch (token.kind) {
        case TokenKind::literal: return name.equals(i, program.units.data() + token.first, token.count);
        case TokenKind::any: return true;
        case TokenKind::set: return setMatches(program.sets[token.first], name, i);
        case TokenKind::star:
        case TokenKind::never: return false;
        }
        return false;
    }

    // Every token but the star takes exactly one character, so when a token
    // fails only the latest star needs to take one more character: the
    // earlier stars could not do better. Each retry moves that star's end one
    // character on, so the walk takes at most (tokens) x (characters) steps.
    template <typename Name>
    bool general(Name const& name) const
    {
        std::vector<Token> const& tokens = program.tokens;
        std::size_t const tokenCount = tokens.size();
        std::size_t const size = name.size();
        std::size_t t = 0;
        std::size_t n = 0;
        std::size_t afterStar = 0;
        std::size_t starEnd = 0;
        bool sawStar = false;
        while (n < size) {
            if (t < tokenCount) {
                if (tokens[t].kind == TokenKind::star) {
                    sawStar = true;
                    afterStar = ++t;
                    starEnd = n;
                    continue;
                }
                if (tokenMatches(tokens[t], name, n)) {
                    ++t;
                    ++n;
                    continue;
                }
            }
            if (!sawStar)
                return false;
            t = afterStar;
            n = ++starEnd;
        }
        while (t < tokenCount && tokens[t].kind == TokenKind::star)
            ++t;
        return t == tokenCount;
    }

    template <typename Unit>
    bool simple(Unit const* data, std::size_t size) const
    {
        std::u32string const& fixed = program.fixed;
        std::size_t const count = fixed.size();
        auto const same = [&fixed, count](Unit const* at) {
            for (std::size_t k = 0; k < count; ++k) {
                if (static_cast<char32_t>(at[k]) != fixed[k])
                    return false;
            }
            return true;
        };
        switch (program.shape) {
        case Shape::literal: return size == count && same(data);
        case Shape::suffix: return size >= count && same(data + (size - count));
        case Shape::prefix: return size >= count && same(data);
        case Shape::general: break;
        }
        return general(SimpleName<Unit>{data, size});
    }

    /// Matches code points that are already decomposed when `decomposed`.
    bool folded(char32_t const* data, std::size_t size, bool decomposed) const
    {
        thread_local String text;
        thread_local std::vector<std::uint32_t> starts;
        text.assign(data, size);
        if (!decomposed)
            kelvo::unicode::detail::decomposeInPlace(text);
        program.foldDecomposed(text);
        // Below U+0300 no code point combines: each is a character.
        if (isTriviallyComposed(text.data(), text.size()))
            return simple(text.data(), text.size());
        starts.clear();
        for (std::size_t k = 0; k < text.size(); ++k) {
            if (k == 0 || kelvo::unicode::canonicalCombiningClass(text[k]) == 0)
                starts.push_back(static_cast<std::uint32_t>(k));
        }
        std::size_t const characters = starts.size();
        starts.push_back(static_cast<std::uint32_t>(text.size()));
        return general(ClusteredName{text.data(), starts.data(), characters});
    }

    bool codePoints(char32_t const* data, std::size_t size, bool decomposed) const
    {
        return program.folded() ? folded(data, size, decomposed) : simple(data, size);
    }

    bool native(char const* bytes, std::size_t size) const
    {
        bool const ascii = kelvo::unicode::detail::isASCII(bytes, size);
        if (!program.folded() && ascii)
            return simple(reinterpret_cast<unsigned char const*>(bytes), size);
        if (ascii) {
            // ASCII is its own decomposition, has no marks, and folds by
            // lowering its capitals.
            thread_local std::string lowered;
            lowered.assign(bytes, size);
            for (char& c : lowered)
                c = static_cast<char>(lowerASCII(static_cast<unsigned char>(c)));
            return simple(reinterpret_cast<unsigned char const*>(lowered.data()), size);
        }
        thread_local String decoded;
        kelvo::unicode::detail::decodeUTF8(bytes, size, decoded);
        return codePoints(decoded.data(), decoded.size(), false);
    }
};

} // namespace

ShellPattern::ShellPattern() : ShellPattern(String()) {}

ShellPattern::ShellPattern(String const& pattern, NameFolding folding)
{
    auto compiled = std::make_shared<Program>();
    compiled->text = pattern;
    compiled->folding = folding;
    compiled->compile(pattern);
    program = std::move(compiled);
}

bool ShellPattern::matches(String const& name) const
{
    return Matcher{*program}.codePoints(name.data(), name.size(), false);
}

bool ShellPattern::matchesNative(char const* bytes, std::size_t size) const
{
    return Matcher{*program}.native(bytes, size);
}

bool ShellPattern::matchesNative(std::string const& name) const { return matchesNative(name.data(), name.size()); }

bool ShellPattern::matchesFileName(Path const& path) const
{
    // The last element is what follows the last separator; a path ending in
    // one has "." for its last element, and is left to `filename`.
    String const& text = PathNativeAccess::text(path);
    if (!text.empty() && text.back() == U'/') {
        Path const name = path.filename();
        return program->folded() ? Matcher{*program}.codePoints(name.string().data(), name.string().size(), true)
                                 : matchesNative(name.nativeString());
    }
    std::size_t const slash = text.rfind(U'/');
    std::size_t const start = slash == String::npos ? 0 : slash + 1;
    Matcher const matcher{*program};
    if (program->folded())
        return matcher.codePoints(text.data() + start, text.size() - start, true);
    // Exactly: the name as the system holds it. A path that carries bytes of
    // its own is read in them; any other has for bytes the composed UTF-8 of
    // its text, which a text with no code point from U+0300 on already is.
    std::string const* const carried = PathNativeAccess::nativeToCarry(path);
    if (carried == nullptr && isTriviallyComposed(text.data() + start, text.size() - start))
        return matcher.simple(text.data() + start, text.size() - start);
    std::string const& bytes = carried != nullptr ? *carried : PathNativeAccess::native(path);
    std::size_t const byteSlash = bytes.rfind('/');
    std::size_t const byteStart = byteSlash == std::string::npos ? 0 : byteSlash + 1;
    return matcher.native(bytes.data() + byteStart, bytes.size() - byteStart);
}

String const& ShellPattern::text() const noexcept { return program->text; }

NameFolding ShellPattern::folding() const noexcept { return program->folding; }

bool ShellPattern::isLiteral() const noexcept { return program->literalOnly; }

} // namespace kelvo::filesystem
