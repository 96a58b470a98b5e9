// Unicode normalisation and case folding of kelvo::unicode::String.
#ifndef KELVO_TEXT_UNICODE_H
#define KELVO_TEXT_UNICODE_H

#include <kelvo/export.h>
#include <kelvo/text/String.h>

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

} // namespace kelvo::unicode

#endif
