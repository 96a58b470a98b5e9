// Normalisation and case folding of kelvo::unicode::String, bound to ICU, with fast paths that keep plain text away from it.
#include <kelvo/text/Unicode.h>

#include "Normalization.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unorm2.h>
#include <unicode/utypes.h>

#include <stdexcept>
#include <string>

namespace kelvo::unicode {

namespace {

// Every code point below this is its own NFD: no canonical decomposition and
// combining class 0.
constexpr char32_t kFirstDecomposable = 0xC0;
// Every code point below this is a starter that never composes with what
// follows it into something else than what NFC already holds.
constexpr char32_t kFirstCombining = 0x300;

inline bool isScalarValue(char32_t c) noexcept { return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }

UNormalizer2 const* normalizer(bool compose)
{
    UErrorCode status = U_ZERO_ERROR;
    UNormalizer2 const* instance = compose ? unorm2_getNFCInstance(&status) : unorm2_getNFDInstance(&status);
    if (U_FAILURE(status) || instance == nullptr)
        throw std::runtime_error("Unicode normalisation data is not available");
    return instance;
}

UNormalizer2 const* nfd()
{
    static UNormalizer2 const* const instance = normalizer(false);
    return instance;
}

UNormalizer2 const* nfc()
{
    static UNormalizer2 const* const instance = normalizer(true);
    return instance;
}

void appendUTF16(std::u16string& out, char32_t const* first, char32_t const* last)
{
    for (; first != last; ++first) {
        char32_t const c = *first;
        if (c < 0x10000) {
            out.push_back(static_cast<char16_t>(c));
        } else {
            char32_t const v = c - 0x10000;
            out.push_back(static_cast<char16_t>(0xD800 + (v >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + (v & 0x3FF)));
        }
    }
}

void appendUTF32(String& out, char16_t const* first, char16_t const* last)
{
    while (first != last) {
        char32_t c = *first++;
        if (c >= 0xD800 && c <= 0xDBFF && first != last && *first >= 0xDC00 && *first <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (char32_t(*first) - 0xDC00);
            ++first;
        }
        out.push_back(c);
    }
}

// Normalises the scalar values in [first, last) with ICU and appends them.
void normaliseRun(UNormalizer2 const* form, char32_t const* first, char32_t const* last, String& out)
{
    if (first == last)
        return;
    std::u16string source;
    source.reserve(static_cast<std::size_t>(last - first) + 8);
    appendUTF16(source, first, last);
    std::u16string result;
    result.resize(source.size() * 3 + 16);
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = unorm2_normalize(form, reinterpret_cast<UChar const*>(source.data()),
                                      static_cast<int32_t>(source.size()),
                                      reinterpret_cast<UChar*>(result.data()),
                                      static_cast<int32_t>(result.size()), &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        result.resize(static_cast<std::size_t>(length));
        status = U_ZERO_ERROR;
        length = unorm2_normalize(form, reinterpret_cast<UChar const*>(source.data()),
                                  static_cast<int32_t>(source.size()),
                                  reinterpret_cast<UChar*>(result.data()),
                                  static_cast<int32_t>(result.size()), &status);
    }
    if (U_FAILURE(status))
        throw std::runtime_error("Unicode normalisation failed");
    appendUTF32(out, result.data(), result.data() + length);
}

// Normalises `text` from `start` on, keeping values that are not scalar values
// as boundaries; what lies before `start` is copied as it is.
String normalise(UNormalizer2 const* form, String const& text, std::size_t start)
{
    String out;
    out.reserve(text.size() + text.size() / 2);
    out.append(text, 0, start);
    char32_t const* const base = text.data();
    std::size_t runStart = start;
    for (std::size_t i = start; i < text.size(); ++i) {
        if (!isScalarValue(base[i])) {
            normaliseRun(form, base + runStart, base + i, out);
            out.push_back(base[i]);
            runStart = i + 1;
        }
    }
    normaliseRun(form, base + runStart, base + text.size(), out);
    return out;
}

bool isNormalisedRun(UNormalizer2 const* form, char32_t const* first, char32_t const* last)
{
    if (first == last)
        return true;
    std::u16string source;
    source.reserve(static_cast<std::size_t>(last - first) + 8);
    appendUTF16(source, first, last);
    UErrorCode status = U_ZERO_ERROR;
    UBool const normalised = unorm2_isNormalized(form, reinterpret_cast<UChar const*>(source.data()),
                                                 static_cast<int32_t>(source.size()), &status);
    if (U_FAILURE(status))
        throw std::runtime_error("Unicode normalisation check failed");
    return normalised != 0;
}

// Position of the first code point at or above `limit`, or the size.
std::size_t firstAtOrAbove(String const& text, char32_t limit) noexcept
{
    char32_t const* const base = text.data();
    std::size_t const n = text.size();
    std::size_t i = 0;
    while (i < n && base[i] < limit)
        ++i;
    return i;
}

} // namespace

char32_t simpleCaseFold(char32_t const& c)
{
    if (c < 0x80)
        return (c >= U'A' && c <= U'Z') ? c + (U'a' - U'A') : c;
    if (c > 0x10FFFF)
        return c;
    return static_cast<char32_t>(u_foldCase(static_cast<UChar32>(c), U_FOLD_CASE_DEFAULT));
}

bool isNFD(String const& text)
{
    std::size_t const start = firstAtOrAbove(text, kFirstDecomposable);
    if (start == text.size())
        return true;
    UNormalizer2 const* const form = nfd();
    char32_t const* const base = text.data();
    std::size_t runStart = start;
    for (std::size_t i = start; i < text.size(); ++i) {
        if (!isScalarValue(base[i])) {
            if (!isNormalisedRun(form, base + runStart, base + i))
                return false;
            runStart = i + 1;
        }
    }
    return isNormalisedRun(form, base + runStart, base + text.size());
}

String toNFD(String const& text)
{
    std::size_t const start = firstAtOrAbove(text, kFirstDecomposable);
    if (start == text.size())
        return text;
    return normalise(nfd(), text, start);
}

namespace detail {

bool isTriviallyComposed(String const& text) noexcept
{
    return firstAtOrAbove(text, kFirstCombining) == text.size();
}

String toNFC(String const& text)
{
    std::size_t start = firstAtOrAbove(text, kFirstCombining);
    if (start == text.size())
        return text;
    // A combining mark may compose with the starter before it.
    if (start > 0)
        --start;
    return normalise(nfc(), text, start);
}

} // namespace detail

} // namespace kelvo::unicode
