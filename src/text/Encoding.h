// Internal: UTF-8 decoding from raw bytes, shared by String and the path constructors.
#ifndef KELVO_SRC_TEXT_ENCODING_H
#define KELVO_SRC_TEXT_ENCODING_H

#include <kelvo/text/String.h>

#include <cstddef>
#include <string>

namespace kelvo::unicode::detail {

/// @returns true when every one of the `size` bytes at `data` is below 0x80.
bool isASCII(char const* data, std::size_t size) noexcept;

/// Decodes one multi-byte UTF-8 sequence starting at `p`, whose lead byte is
/// 0x80 or more.
/// @returns its length with the code point in `out`, or 0 when the bytes do
/// not form a valid, shortest-form sequence of a Unicode scalar value.
std::size_t decodeUTF8Sequence(unsigned char const* p, unsigned char const* end, char32_t& out) noexcept;

/// Walks the `size` UTF-8 bytes at `data`: calls `point(c)` for each code
/// point of a valid sequence and `invalid(byte)` for each byte that is not
/// part of one, stopping as soon as `invalid` answers false.
/// @returns true when the walk reached the end.
template <typename Point, typename Invalid>
bool walkUTF8(char const* data, std::size_t size, Point point, Invalid invalid)
{
    auto const* p = reinterpret_cast<unsigned char const*>(data);
    auto const* const end = p + size;
    while (p != end) {
        unsigned char const byte = *p;
        if (byte < 0x80) {
            point(static_cast<char32_t>(byte));
            ++p;
            continue;
        }
        char32_t c = 0;
        std::size_t const length = decodeUTF8Sequence(p, end, c);
        if (length == 0) {
            if (!invalid(byte))
                return false;
            ++p;
        } else {
            point(c);
            p += length;
        }
    }
    return true;
}

/// Replaces the contents of `out` with the decoding of the `size` UTF-8 bytes
/// at `data`; each byte that is not part of a valid sequence becomes U+DC00
/// plus the byte.
void decodeUTF8(char const* data, std::size_t size, String& out);

/// Replaces the contents of `out` with the decoding of the `size` UTF-8 bytes
/// at `data`, brought to Normalization Form D.
void decodeUTF8ToNFD(char const* data, std::size_t size, String& out);

/// Replaces the contents of `out` (reusing its room) with the native form of
/// `text`, as `text.toNativeString()` gives it.
void encodeNative(String const& text, std::string& out);

} // namespace kelvo::unicode::detail

#endif
