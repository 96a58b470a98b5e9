// Internal: UTF-8 decoding from raw bytes, shared by String and the path constructors.
#ifndef KELVO_SRC_TEXT_ENCODING_H
#define KELVO_SRC_TEXT_ENCODING_H

#include <kelvo/text/String.h>

#include <cstddef>

namespace kelvo::unicode::detail {

/// @returns true when every one of the `size` bytes at `data` is below 0x80.
bool isASCII(char const* data, std::size_t size) noexcept;

/// Replaces the contents of `out` with the decoding of the `size` UTF-8 bytes
/// at `data`; each byte that is not part of a valid sequence becomes U+DC00
/// plus the byte.
void decodeUTF8(char const* data, std::size_t size, String& out);

} // namespace kelvo::unicode::detail

#endif
