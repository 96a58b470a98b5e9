// Internal: the automaton glob matching runs for expressions beyond plain wildcards, read as the standard ECMAScript reader reads them and matched in one pass over the name.
#ifndef KELVO_SRC_FILESYSTEM_GLOB_AUTOMATON_H
#define KELVO_SRC_FILESYSTEM_GLOB_AUTOMATON_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <locale>
#include <map>
#include <memory>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace kelvo::filesystem::detail {

/// A nondeterministic automaton for one wide ECMAScript expression, built by
/// reading the expression token by token as `std::wregex` reads it with the
/// default flags, and asked only whether a whole text matches. The answer is
/// found by carrying the set of live states along the text, one character at
/// a time: time linear in the text for a given expression, memory linear in
/// the expression, and no recursion at all while matching. Without
/// assertions, the sets met are also kept, with where each ASCII character
/// leads from them (at most 128 sets), so that a step is one look-up.
///
/// Character classes, word boundaries, collating names and counts are read
/// through a `std::regex_traits<wchar_t>` imbued with the same locale as the
/// expression's, so they answer as the expression's own traits do.
///
/// One object is used by one thread at a time: it keeps its scratch sets.
class GlobAutomaton {
public:
    /// Builds the automaton of `expression`, which `std::wregex` must have
    /// accepted with the default flags while `locale` was the global locale.
    /// @returns the automaton; null when the expression uses something the
    /// automaton does not reproduce (back-references, look-aheads, groups
    /// nested deeper than 128 levels, counts of more than nine digits, an
    /// expression of more than a million states) or something it does not
    /// read as the expression reader would.
    static std::unique_ptr<GlobAutomaton> build(std::wstring const& expression, std::locale const& locale);

    /// @returns whether all `length` characters at `text` match the whole
    /// expression, as `std::regex_match` with the default flags answers.
    bool matches(char32_t const* text, std::size_t length) const;

    GlobAutomaton(GlobAutomaton const&) = delete;
    GlobAutomaton& operator=(GlobAutomaton const&) = delete;
    ~GlobAutomaton();

private:
    using Traits = std::regex_traits<wchar_t>;
    using ClassMask = Traits::char_class_type;

    enum class Kind : std::uint8_t {
        character, ///< one character, exactly
        anyCharacter, ///< any character but the four line terminators
        set, ///< a bracket expression or an escaped class
        split, ///< goes on at both `next` and `alternative`
        empty, ///< goes on at `next`
        textBegin, ///< "^": only at the start of the text
        textEnd, ///< "$": only at its end
        wordBoundary, ///< "\b"
        notWordBoundary, ///< "\B"
        accept,
    };

    struct State {
        Kind kind = Kind::empty;
        wchar_t character = 0;
        std::int32_t next = -1;
        std::int32_t alternative = -1;
        std::int32_t set = -1;
    };

    /// A bracket expression, tested in the order the expression's own
    /// bracket matcher tests it.
    struct CharacterSet {
        std::vector<wchar_t> characters; ///< sorted, without repeats
        std::vector<std::pair<wchar_t, wchar_t>> ranges;
        ClassMask classes{};
        bool hasClasses = false;
        std::vector<std::wstring> equivalents; ///< primary sort keys
        std::vector<ClassMask> negatedClasses;
        bool negated = false;
    };

    class Reader;
    friend class Reader;

    GlobAutomaton() = default;

    bool setMatches(CharacterSet const& set, wchar_t c) const;
    bool consumes(State const& state, wchar_t c) const;
    bool isWordCharacter(wchar_t c) const;
    bool atWordBoundary(char32_t const* text, std::size_t length, std::size_t position) const;
    /// Adds to `list` the consuming states reached from `from` at
    /// `position` through empty moves and assertions; sets `accepted` when
    /// the accepting state is among them.
    void addReachable(std::int32_t from, char32_t const* text, std::size_t length, std::size_t position,
                      std::vector<std::int32_t>& list, bool& accepted) const;

    /// The consuming states reached from one state through empty moves,
    /// as a range of `closureStates`, and whether the accepting one is too.
    struct Closure {
        std::uint32_t begin = 0;
        std::uint32_t end = 0;
        bool accepts = false;
    };

    /// Works out the closures of the start and of every state a character
    /// leads to, when the expression has no assertion (so that they do not
    /// depend on the position) and they stay small; false otherwise.
    bool precomputeClosures();
    bool matchesWithClosures(char32_t const* text, std::size_t length) const;
    bool matchesStepByStep(char32_t const* text, std::size_t length) const;

    /// A set of live states met while matching, with the state set each
    /// ASCII character leads to, filled in as they are first met: a
    /// deterministic automaton made lazily from this one.
    struct LiveSet {
        std::vector<std::int32_t> key; ///< the states in order, then -1 when the set accepts
        bool accepts = false;
        std::array<std::int32_t, 128> following; ///< index of the set after each ASCII character; -1: not known yet
    };

    /// @returns the index of the live set holding `key`, added when new; -1
    /// when the cache is full (it is emptied then, for the caller to retry).
    std::int32_t liveSetFor(std::vector<std::int32_t> const& key) const;
    /// Builds into `key` the live set after `c` from the set `from`.
    void stepKey(LiveSet const& from, wchar_t c, std::vector<std::int32_t>& key) const;

    Traits traits;
    ClassMask wordClass{};
    std::vector<State> states;
    std::vector<CharacterSet> sets;
    std::int32_t start = -1;
    std::vector<Closure> closures; ///< by state; empty when not worked out
    std::vector<std::int32_t> closureStates;

    // Scratch kept between calls: the live states before and after a
    // character, a mark per state (the number of the step that last added
    // it), the step count, and the stack of the closure walk.
    mutable std::vector<std::int32_t> current;
    mutable std::vector<std::int32_t> following;
    mutable std::vector<std::size_t> marks;
    mutable std::size_t generation = 0;
    mutable std::vector<std::int32_t> pending;
    mutable std::vector<LiveSet> liveSets;
    mutable std::map<std::vector<std::int32_t>, std::int32_t> liveSetIndex;
};

} // namespace kelvo::filesystem::detail

#endif
