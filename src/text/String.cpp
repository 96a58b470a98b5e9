// UTF-8 decoding and encoding of kelvo::unicode::String, lossless for bytes that are not UTF-8.
#include <kelvo/text/String.h>

#include "Encoding.h"
#include "Normalization.h"
#include "SmallBuffer.h"

#include <cstring>

namespace kelvo::unicode {

namespace {

constexpr char32_t kEscapeBase = 0xDC00;
constexpr char32_t kReplacement = 0xFFFD;

inline bool isContinuation(unsigned char byte) noexcept { return (byte & 0xC0) == 0x80; }

void appendUTF8(std::string& out, char32_t c)
{
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
        return;
    }
    if (c >= 0xDC80 && c <= 0xDCFF) {
        // An escaped byte read from the operating system goes back as itself.
        out.push_back(static_cast<char>(c - kEscapeBase));
        return;
    }
    if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF)
        c = kReplacement;
    if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (c >> 12)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (c >> 18)));
        out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

// Narrows `text` into `out` (reusing its room) when it is plain ASCII, the
// usual case; the test and the copy are loops without an early exit, which
// the compiler turns into vector instructions.
// @returns false, leaving `out` alone, when the text is not ASCII.
bool narrowASCII(char32_t const* in, std::size_t n, std::string& out)
{
    char32_t bits = 0;
    for (std::size_t i = 0; i < n; ++i)
        bits |= in[i];
    if (bits >= 0x80)
        return false;
    out.resize(n);
    char* const o = out.data();
    for (std::size_t i = 0; i < n; ++i)
        o[i] = static_cast<char>(in[i]);
    return true;
}

void encodeUTF8Into(std::u32string const& text, std::string& out)
{
    if (narrowASCII(text.data(), text.size(), out))
        return;
    out.clear();
    out.reserve(text.size() + text.size() / 2);
    for (char32_t const c : text)
        appendUTF8(out, c);
}

std::string encodeUTF8(std::u32string const& text)
{
    std::string out;
    encodeUTF8Into(text, out);
    return out;
}

} // namespace

namespace detail {

// Decodes one multi-byte sequence starting at `p` (whose lead byte is at least
// 0x80). On success stores the code point and returns the sequence length;
// returns 0 when the bytes do not form a valid, shortest-form sequence of a
// Unicode scalar value.
std::size_t decodeUTF8Sequence(unsigned char const* p, unsigned char const* end, char32_t& out) noexcept
{
    unsigned char const lead = p[0];
    std::size_t const available = static_cast<std::size_t>(end - p);
    if (lead >= 0xC2 && lead <= 0xDF) {
        if (available < 2 || !isContinuation(p[1]))
            return 0;
        out = (char32_t(lead & 0x1F) << 6) | char32_t(p[1] & 0x3F);
        return 2;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        if (available < 3 || !isContinuation(p[1]) || !isContinuation(p[2]))
            return 0;
        // Shortest form only, and no encoded surrogates.
        if (lead == 0xE0 && p[1] < 0xA0)
            return 0;
        if (lead == 0xED && p[1] >= 0xA0)
            return 0;
        out = (char32_t(lead & 0x0F) << 12) | (char32_t(p[1] & 0x3F) << 6) | char32_t(p[2] & 0x3F);
        return 3;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        if (available < 4 || !isContinuation(p[1]) || !isContinuation(p[2]) || !isContinuation(p[3]))
            return 0;
        if (lead == 0xF0 && p[1] < 0x90)
            return 0;
        if (lead == 0xF4 && p[1] >= 0x90)
            return 0;
        out = (char32_t(lead & 0x07) << 18) | (char32_t(p[1] & 0x3F) << 12)
            | (char32_t(p[2] & 0x3F) << 6) | char32_t(p[3] & 0x3F);
        return 4;
    }
    return 0;
}

bool isASCII(char const* data, std::size_t size) noexcept
{
    // No early exit, so that the compiler can test many bytes at once.
    unsigned char seen = 0;
    for (std::size_t i = 0; i < size; ++i)
        seen |= static_cast<unsigned char>(data[i]);
    return seen < 0x80;
}

void decodeUTF8(char const* data, std::size_t size, String& out)
{
    // Decoded into scratch space first, so that the text is written once,
    // at its final size.
    SmallBuffer<char32_t> points;
    char32_t* const first = points.reserve(size);
    char32_t* o = first;
    walkUTF8(
        data, size, [&o](char32_t c) { *o++ = c; },
        [&o](unsigned char byte) {
            *o++ = kEscapeBase + byte;
            return true;
        });
    out.assign(first, static_cast<String::size_type>(o - first));
}

} // namespace detail

namespace detail {

void encodeNative(String const& text, std::string& out)
{
#if defined(__APPLE__)
    // The system's own file names are decomposed: the text goes as it is.
    encodeUTF8Into(text, out);
#else
    // File names here are conventionally composed, and the file system
    // compares bytes, so the native form is the composed text.
    if (narrowASCII(text.data(), text.size(), out))
        return;
    if (isTriviallyComposed(text))
        encodeUTF8Into(text, out);
    else
        encodeUTF8Into(toNFC(text), out);
#endif
}

} // namespace detail

String::String(std::string const& utf8) { detail::decodeUTF8(utf8.data(), utf8.size(), *this); }

String::String(char const* utf8)
{
    if (utf8 != nullptr)
        detail::decodeUTF8(utf8, std::strlen(utf8), *this);
}

std::string String::toUTF8String() const { return encodeUTF8(*this); }

std::string String::toNativeString() const
{
    std::string out;
    detail::encodeNative(*this, out);
    return out;
}

std::wstring String::toWString() const
{
    static_assert(sizeof(wchar_t) == sizeof(char32_t), "wchar_t must hold a code point");
    std::wstring out;
    out.resize(size());
    for (size_type i = 0; i < size(); ++i)
        out[i] = static_cast<wchar_t>((*this)[i]);
    return out;
}

} // namespace kelvo::unicode
