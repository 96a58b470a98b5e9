// Unicode normalisation and case folding of kelvo::unicode::String.
#ifndef KELVO_TEXT_UNICODE_H
#define KELVO_TEXT_UNICODE_H

#include <kelvo/export.h>
#include <kelvo/text/String.h>

#include <cstdint>

namespace kelvo::unicode {

/// @returns the simple (one-to-one) Unicode case folding of `c` (the C and S
/// mappings of the case-folding data), or `c` itself when it has none,
/// including for values that are not code points.
KELVO_FILESYSTEM_API char32_t simpleCaseFold(char32_t const& c);

/// @returns true exactly when `text` is in Normalization Form D. Values that
/// are not Unicode scalar values (surrogates, above U+10FFFF) count as
/// starters without a decomposition.
KELVO_FILESYSTEM_API bool isNFD(String const& text);

/// @returns the canonical decomposition of `text` with canonical ordering of
/// combining marks (Normalization Form D). Values that are not Unicode scalar
/// values are kept as they are and bound the text around them.
KELVO_FILESYSTEM_API String toNFD(String const& text);

/// @returns the canonical combining class of `c` (0 for a starter), or 0 for
/// values that are not code points.
KELVO_FILESYSTEM_API std::uint8_t canonicalCombiningClass(char32_t c);

/// @returns `text` in Normalization Form D without its nonspacing marks
/// (general category Mn: accents, cedillas, ogoneks, ...), so that "Résumé"
/// gives "Resume". Values that are not Unicode scalar values are kept.
KELVO_FILESYSTEM_API String withoutAccents(String const& text);

/// The character classes a shell pattern can name in a bracket expression
/// ("[[:alpha:]]").
enum class CharacterClass : std::uint8_t { alnum, alpha, blank, cntrl, digit, graph, lower, print, punct, space, upper, xdigit };

/// @returns true when `c` belongs to `characterClass`: for ASCII exactly as
/// the "C" locale classifies it; above ASCII by its Unicode properties
/// (letters are alpha, with lower and upper by their case; marks and
/// symbols and punctuation are punct; "digit" and "xdigit" hold ASCII digits
/// only). Values that are not Unicode scalar values belong to no class.
KELVO_FILESYSTEM_API bool hasCharacterClass(char32_t c, CharacterClass characterClass);

} // namespace kelvo::unicode

#endif
