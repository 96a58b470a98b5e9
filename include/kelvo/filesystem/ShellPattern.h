// kelvo::filesystem::ShellPattern: names matched against a shell pattern ("*.txt", "[a-c]?", "\*") in linear time, exactly or ignoring case, composition and accents.
#ifndef KELVO_FILESYSTEM_SHELL_PATTERN_H
#define KELVO_FILESYSTEM_SHELL_PATTERN_H

#include <kelvo/export.h>
#include <kelvo/filesystem/Path.h>
#include <kelvo/text/String.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace kelvo::filesystem {

/// How a name and a pattern are brought together before they are compared.
enum class NameFolding : std::uint8_t {
    /// Code point for code point, as the bytes decode: "?" is one code point,
    /// and "é" composed and "é" decomposed are different names.
    exact,
    /// As paths compare: both sides decomposed (NFD) and case-folded, so
    /// "README.TXT" matches "readme.*" and a composed name matches a
    /// decomposed pattern. "?" stands for one character: a code point with
    /// the combining marks that follow it.
    caseAndComposition,
    /// As `caseAndComposition`, with the nonspacing marks dropped from both
    /// sides first: "resume*" matches "Résumé.pdf".
    caseCompositionAndAccents,
};

/// A pattern with the shell's rules for file names, matched against a whole
/// name (never a path: "/" is an ordinary character here):
///
/// - `*` stands for any run of characters, the empty one included;
/// - `?` for exactly one character;
/// - `[...]` for one character of a set: single characters, ranges `a-z` (by
///   code point), classes `[:alpha:]` (alnum, alpha, blank, cntrl, digit,
///   graph, lower, print, punct, space, upper, xdigit), `[=c=]` and `[.c.]`
///   for the character c; `[!...]` and `[^...]` for one character outside
///   the set; a `]` right after the opening (or after `!`/`^`) belongs to the
///   set, a `-` first or last is itself;
/// - `\` takes the next character literally, inside a set too;
/// - every other character, "." included, stands for itself. A leading "."
///   of a name is matched by `*`, `?` and sets like any other character.
///
/// Malformed patterns are read as the C library's `fnmatch` reads them with
/// no flags: a `[` without its closing `]` is an ordinary character (but
/// matches nothing when the characters after it name the character at hand),
/// and a pattern ending in a lone `\`, a set naming an unknown class
/// ("[[:nope:]]") or a range without an end match nothing. Kept apart: a set
/// holding an unclosed "[=" or "[.", or a range up to "[:", which the C
/// library reads according to the member that matched (see
/// docs/odd-behaviours.md, 'ShellPattern and fnmatch part on a few malformed
/// sets').
///
/// Matching takes time proportional to the pattern's length times the
/// name's at worst, never more, whatever the stars; it allocates nothing for
/// names of up to a few hundred characters. This is not the rule of
/// `matchesGlobPattern`, whose patterns are regular expressions in disguise
/// (see docs/guide.md, 'Two kinds of patterns').
///
/// A `ShellPattern` is immutable once made; copies share the compiled form,
/// and one pattern may be used from several threads at once.
class KELVO_FILESYSTEM_API ShellPattern {
public:
    /// The empty pattern, which matches the empty name only.
    ShellPattern();
    /// Compiles `pattern` for names folded as `folding` says. Never fails:
    /// every text is a pattern.
    explicit ShellPattern(kelvo::unicode::String const& pattern, NameFolding folding = NameFolding::exact);

    /// @returns true when the whole of `name` matches the pattern.
    bool matches(kelvo::unicode::String const& name) const;
    /// @returns true when the name whose bytes are the `size` bytes at `bytes`
    /// matches: the bytes are decoded as the library decodes names (each byte
    /// that is not part of valid UTF-8 is a character of its own, matched by
    /// `?`, `*`, a negated set or that same byte in the pattern).
    bool matchesNative(char const* bytes, std::size_t size) const;
    /// @returns `matchesNative` of the bytes of `name`.
    bool matchesNative(std::string const& name) const;
    /// @returns true when the last element of `path` matches: its native
    /// bytes decoded (the name as the system holds it) for `exact`, its text
    /// for the folding forms.
    bool matchesFileName(Path const& path) const;

    /// @returns the pattern as it was given.
    kelvo::unicode::String const& text() const noexcept;
    /// @returns the folding it was compiled for.
    NameFolding folding() const noexcept;
    /// @returns true when the pattern holds no `*`, `?` or set, so that it
    /// matches exactly one name (under its folding).
    bool isLiteral() const noexcept;

    /// The compiled form, kept out of this header.
    struct Program;

private:
    std::shared_ptr<Program const> program;
};

} // namespace kelvo::filesystem

#endif
