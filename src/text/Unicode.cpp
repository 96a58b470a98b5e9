// Normalisation and case folding of kelvo::unicode::String, bound to ICU, with fast paths that keep plain text away from it.
#include <kelvo/text/Unicode.h>

#include "Normalization.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unorm2.h>
#include <unicode/utypes.h>

#include <climits>
#include <cstdint>
#include <memory>
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

// A buffer of code units that lives on the stack for the short texts paths
// are made of, and on the heap beyond.
class UnitBuffer {
public:
    /// Makes room for `size` units; the previous contents are not kept.
    char16_t* reserve(std::size_t size)
    {
        if (size > capacity) {
            heap.reset(new char16_t[size]);
            units = heap.get();
            capacity = size;
        }
        return units;
    }
    char16_t* data() noexcept { return units; }

private:
    static constexpr std::size_t kInline = 256;
    char16_t inlineUnits[kInline];
    std::unique_ptr<char16_t[]> heap;
    char16_t* units = inlineUnits;
    std::size_t capacity = kInline;
};

// Converts the scalar values in [first, last) to UTF-16.
// @returns the number of units written into `buffer`.
int32_t toUTF16(char32_t const* first, char32_t const* last, UnitBuffer& buffer)
{
    std::size_t const count = static_cast<std::size_t>(last - first);
    if (count > static_cast<std::size_t>(INT32_MAX / 2))
        throw std::length_error("text too long for Unicode normalisation");
    char16_t* out = buffer.reserve(count * 2);
    char16_t* const begin = out;
    for (; first != last; ++first) {
        char32_t const c = *first;
        if (c < 0x10000) {
            *out++ = static_cast<char16_t>(c);
        } else {
            char32_t const v = c - 0x10000;
            *out++ = static_cast<char16_t>(0xD800 + (v >> 10));
            *out++ = static_cast<char16_t>(0xDC00 + (v & 0x3FF));
        }
    }
    return static_cast<int32_t>(out - begin);
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

// Normalises `length` units of `source` into `result`.
// @returns the number of units written.
int32_t normaliseUnits(UNormalizer2 const* form, char16_t const* source, int32_t length, UnitBuffer& result)
{
    // A canonical decomposition grows a text at most fourfold; composition
    // only shrinks it.
    std::size_t capacity = static_cast<std::size_t>(length) * 4 + 16;
    UErrorCode status = U_ZERO_ERROR;
    int32_t written = unorm2_normalize(form, reinterpret_cast<UChar const*>(source), length,
                                       reinterpret_cast<UChar*>(result.reserve(capacity)),
                                       static_cast<int32_t>(capacity), &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        capacity = static_cast<std::size_t>(written);
        status = U_ZERO_ERROR;
        written = unorm2_normalize(form, reinterpret_cast<UChar const*>(source), length,
                                   reinterpret_cast<UChar*>(result.reserve(capacity)),
                                   static_cast<int32_t>(capacity), &status);
    }
    if (U_FAILURE(status))
        throw std::runtime_error("Unicode normalisation failed");
    return written;
}

// Normalises the scalar values in [first, last) with ICU and appends them.
void normaliseRun(UNormalizer2 const* form, char32_t const* first, char32_t const* last, String& out)
{
    if (first == last)
        return;
    UnitBuffer source;
    int32_t const length = toUTF16(first, last, source);
    UnitBuffer result;
    int32_t const written = normaliseUnits(form, source.data(), length, result);
    appendUTF32(out, result.data(), result.data() + written);
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
    UnitBuffer source;
    int32_t const length = toUTF16(first, last, source);
    UErrorCode status = U_ZERO_ERROR;
    UBool const normalised = unorm2_isNormalized(form, reinterpret_cast<UChar const*>(source.data()), length, &status);
    if (U_FAILURE(status))
        throw std::runtime_error("Unicode normalisation check failed");
    return normalised != 0;
}

// Position of the first code point at or above `limit`, or the size. Blocks
// are tested whole first, without an early exit, so that the common case of a
// text entirely below the limit is scanned at vector speed.
std::size_t firstAtOrAbove(String const& text, char32_t limit) noexcept
{
    constexpr std::size_t kBlock = 16;
    char32_t const* const base = text.data();
    std::size_t const n = text.size();
    std::size_t i = 0;
    for (; i + kBlock <= n; i += kBlock) {
        bool above = false;
        for (std::size_t k = 0; k < kBlock; ++k)
            above |= base[i + k] >= limit;
        if (above)
            break;
    }
    while (i < n && base[i] < limit)
        ++i;
    return i;
}

bool containsNonScalar(char32_t const* first, char32_t const* last) noexcept
{
    bool found = false;
    for (; first != last; ++first)
        found |= !isScalarValue(*first);
    return found;
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

void decomposeInPlace(String& text)
{
    std::size_t const start = firstAtOrAbove(text, kFirstDecomposable);
    std::size_t const size = text.size();
    if (start == size)
        return;
    char32_t const* const tail = text.data() + start;
    if (containsNonScalar(tail, text.data() + size)) {
        if (!isNFD(text))
            text = toNFD(text);
        return;
    }
    UnitBuffer source;
    int32_t const length = toUTF16(tail, text.data() + size, source);
    UErrorCode status = U_ZERO_ERROR;
    int32_t const span = unorm2_spanQuickCheckYes(nfd(), reinterpret_cast<UChar const*>(source.data()), length, &status);
    if (U_FAILURE(status))
        throw std::runtime_error("Unicode normalisation check failed");
    if (span == length)
        return;
    UnitBuffer result;
    int32_t const written = normaliseUnits(nfd(), source.data(), length, result);
    // Everything that can fail is done before the text changes: once the room
    // is reserved, truncating and appending cannot throw.
    text.reserve(start + static_cast<std::size_t>(written));
    text.resize(start);
    appendUTF32(text, result.data(), result.data() + written);
}

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
