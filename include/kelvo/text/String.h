// kelvo::unicode::String: UTF-32 text, one char32_t per code point, with lossless UTF-8 conversion.
#ifndef KELVO_TEXT_STRING_H
#define KELVO_TEXT_STRING_H

#include <kelvo/export.h>

#include <string>
#include <utility>

namespace kelvo::unicode {

/// Unicode text held as a standard UTF-32 string and nothing else.
///
/// Every operation of `std::u32string` is available with the standard
/// semantics (searches return `npos` when nothing is found, `substr` and
/// `replace` clip at the end). On top of it come the conversions from and to
/// the byte forms the library exchanges with the operating system.
///
/// Bytes that do not form valid UTF-8 are never lost: each one decodes to the
/// code point U+DC00 plus the byte (U+DC80..U+DCFF) and encodes back to that
/// byte. Any other surrogate code point, and any value above U+10FFFF,
/// encodes as U+FFFD.
class KELVO_FILESYSTEM_API String : public std::u32string {
public:
    using std::u32string::basic_string;

    String() noexcept = default;
    String(String const&) = default;
    String(String&&) noexcept = default;
    String& operator=(String const&) = default;
    String& operator=(String&&) noexcept = default;
    ~String() = default;

    /// Copies standard UTF-32 text.
    String(std::u32string const& text) : std::u32string(text) {}
    /// Takes over standard UTF-32 text.
    String(std::u32string&& text) noexcept : std::u32string(std::move(text)) {}

    /// Decodes UTF-8 bytes. Never fails: every byte that is not part of a
    /// valid UTF-8 sequence becomes U+DC00 plus the byte.
    String(std::string const& utf8);

    /// Decodes NUL-terminated UTF-8 bytes as the `std::string` form does, so
    /// that a narrow literal can stand wherever a `String` is expected
    /// (`matchesGlobPattern(path, "*.txt")`). A null pointer gives an empty
    /// text.
    String(char const* utf8);

    /// @returns the UTF-8 encoding; U+DC80..U+DCFF become their single byte,
    /// other surrogates and values above U+10FFFF become U+FFFD.
    std::string toUTF8String() const;

    /// @returns the bytes the operating system's file calls expect for this
    /// text: on Linux the UTF-8 of its NFC composition, on macOS the UTF-8 of
    /// the text as it stands. Escaped bytes come back as themselves.
    std::string toNativeString() const;

    /// @returns the text with one code point per wchar_t (32-bit wchar_t).
    std::wstring toWString() const;
};

/// Exact comparison, by code-point value, with no folding or normalisation.
inline bool operator==(String const& a, String const& b) noexcept
{
    return static_cast<std::u32string const&>(a) == static_cast<std::u32string const&>(b);
}
inline bool operator!=(String const& a, String const& b) noexcept { return !(a == b); }
inline bool operator<(String const& a, String const& b) noexcept
{
    return static_cast<std::u32string const&>(a) < static_cast<std::u32string const&>(b);
}
inline bool operator>(String const& a, String const& b) noexcept { return b < a; }
inline bool operator<=(String const& a, String const& b) noexcept { return !(b < a); }
inline bool operator>=(String const& a, String const& b) noexcept { return !(a < b); }

/// Concatenation; each form returns a new String.
inline String operator+(String const& a, char32_t c)
{
    String r;
    r.reserve(a.size() + 1);
    r.append(a);
    r.push_back(c);
    return r;
}
inline String operator+(String&& a, char32_t c)
{
    a.push_back(c);
    return std::move(a);
}
inline String operator+(char32_t c, String const& a)
{
    String r;
    r.reserve(a.size() + 1);
    r.push_back(c);
    r.append(a);
    return r;
}
inline String operator+(String&& a, String const& b)
{
    a.append(b);
    return std::move(a);
}
inline String operator+(String const& a, String&& b)
{
    b.insert(0, a);
    return std::move(b);
}
inline String operator+(String&& a, String&& b)
{
    a.append(b);
    return std::move(a);
}
inline String operator+(String const& a, char32_t const* b)
{
    String r(a);
    r.append(b);
    return r;
}
inline String operator+(String&& a, char32_t const* b)
{
    a.append(b);
    return std::move(a);
}
inline String operator+(char32_t const* a, String const& b)
{
    String r(a);
    r.append(b);
    return r;
}
inline String operator+(char32_t const* a, String&& b)
{
    b.insert(0, a);
    return std::move(b);
}
inline String operator+(String const& a, String const& b)
{
    String r;
    r.reserve(a.size() + b.size());
    r.append(a);
    r.append(b);
    return r;
}

} // namespace kelvo::unicode

#endif
