// Internal: composition to NFC, used to produce the native form on systems that store names composed.
#ifndef KELVO_SRC_TEXT_NORMALIZATION_H
#define KELVO_SRC_TEXT_NORMALIZATION_H

#include <kelvo/text/String.h>

namespace kelvo::unicode::detail {

/// Brings `text` to Normalization Form D in place, as `text = toNFD(text)`
/// would, without allocating when it is already decomposed. On failure
/// (out of memory) `text` is left as it was.
void decomposeInPlace(String& text);

/// @returns true when every code point of `text` is below U+0300, which makes
/// the text its own NFC (nothing can compose or reorder).
bool isTriviallyComposed(String const& text) noexcept;

/// @returns the Normalization Form C of `text`; values that are not Unicode
/// scalar values are kept and bound the text around them.
String toNFC(String const& text);

} // namespace kelvo::unicode::detail

#endif
