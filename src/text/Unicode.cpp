// Normalisation and case folding of kelvo::unicode::String, bound to ICU, with fast paths that keep plain text away from it.
#include <kelvo/text/Unicode.h>

#include "Encoding.h"
#include "Normalization.h"
#include "SmallBuffer.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utypes.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <memory>
#include <new>
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

// Turns a failure reported by ICU into an exception: running out of memory
// is reported as every other allocation failure is, with std::bad_alloc.
void throwOnFailure(UErrorCode status, char const* message)
{
    if (status == U_MEMORY_ALLOCATION_ERROR)
        throw std::bad_alloc();
    if (U_FAILURE(status))
        throw std::runtime_error(message);
}

icu::Normalizer2 const* normalizer(bool compose)
{
    UErrorCode status = U_ZERO_ERROR;
    icu::Normalizer2 const* instance = compose ? icu::Normalizer2::getNFCInstance(status)
                                               : icu::Normalizer2::getNFDInstance(status);
    throwOnFailure(status, "Unicode normalisation data is not available");
    if (instance == nullptr)
        throw std::runtime_error("Unicode normalisation data is not available");
    return instance;
}

icu::Normalizer2 const* nfd()
{
    static icu::Normalizer2 const* const instance = normalizer(false);
    return instance;
}

icu::Normalizer2 const* nfc()
{
    static icu::Normalizer2 const* const instance = normalizer(true);
    return instance;
}

using UnitBuffer = detail::SmallBuffer<char16_t>;
using PointBuffer = detail::SmallBuffer<char32_t>;

// Converts the scalar values in [first, last) to UTF-16.
// @returns the number of units written into `buffer`.
// Writes the scalar value `c` as one or two UTF-16 units.
inline void putUTF16(char16_t*& out, char32_t c) noexcept
{
    if (c < 0x10000) {
        *out++ = static_cast<char16_t>(c);
    } else {
        char32_t const v = c - 0x10000;
        *out++ = static_cast<char16_t>(0xD800 + (v >> 10));
        *out++ = static_cast<char16_t>(0xDC00 + (v & 0x3FF));
    }
}

int32_t toUTF16(char32_t const* first, char32_t const* last, UnitBuffer& buffer)
{
    std::size_t const count = static_cast<std::size_t>(last - first);
    if (count > static_cast<std::size_t>(INT32_MAX / 2))
        throw std::length_error("text too long for Unicode normalisation");
    char16_t* out = buffer.reserve(count * 2);
    char16_t* const begin = out;
    for (; first != last; ++first)
        putUTF16(out, *first);
    return static_cast<int32_t>(out - begin);
}

// Converts the UTF-16 units [first, last), which hold scalar values only.
// @returns the number of code points written into `buffer`.
std::size_t toUTF32(char16_t const* first, char16_t const* last, PointBuffer& buffer)
{
    // At most one code point a unit.
    char32_t* const begin = buffer.reserve(static_cast<std::size_t>(last - first));
    char32_t* o = begin;
    while (first != last) {
        char32_t c = *first++;
        if (c >= 0xD800 && c <= 0xDBFF && first != last && *first >= 0xDC00 && *first <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (char32_t(*first) - 0xDC00);
            ++first;
        }
        *o++ = c;
    }
    return static_cast<std::size_t>(o - begin);
}

// Appends the UTF-16 units [first, last), which hold scalar values only.
void appendUTF32(String& out, char16_t const* first, char16_t const* last)
{
    PointBuffer points;
    std::size_t const count = toUTF32(first, last, points);
    out.append(points.data(), count);
}

// Normalises `length` units of `source`.
// @returns the number of units written to `result`.
int32_t normaliseUnits(icu::Normalizer2 const* form, char16_t const* source, int32_t length, UnitBuffer& result)
{
    // A canonical decomposition grows a text at most fourfold; composition
    // only shrinks it. The result is written straight into `result`.
    std::size_t const capacity = static_cast<std::size_t>(length) * 4 + 16;
    char16_t* const buffer = result.reserve(capacity);
    icu::UnicodeString const input(false, source, length);
    icu::UnicodeString output(buffer, 0, static_cast<int32_t>(capacity));
    UErrorCode status = U_ZERO_ERROR;
    form->normalize(input, output, status);
    throwOnFailure(status, "Unicode normalisation failed");
    if (output.isBogus())
        throw std::bad_alloc(); // the result could not be given room
    int32_t const written = output.length();
    if (output.getBuffer() != buffer) {
        // The normaliser needed more room than foreseen and moved the result
        // to storage of its own.
        char16_t* const larger = result.reserve(static_cast<std::size_t>(written));
        output.extract(0, written, larger);
    }
    return written;
}

// Normalises the scalar values in [first, last) with ICU and appends them.
void normaliseRun(icu::Normalizer2 const* form, char32_t const* first, char32_t const* last, String& out)
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
// Calls `run(first, last)` for each run of scalar values of `text` from
// `start` on, and `boundary(c)` for each value between runs that is not a
// scalar value, stopping as soon as `run` answers false.
// @returns false when a run answered false.
template <typename Run, typename Boundary>
bool forEachScalarRun(String const& text, std::size_t start, Run run, Boundary boundary)
{
    char32_t const* const base = text.data();
    std::size_t runStart = start;
    for (std::size_t i = start; i < text.size(); ++i) {
        if (!isScalarValue(base[i])) {
            if (!run(base + runStart, base + i))
                return false;
            boundary(base[i]);
            runStart = i + 1;
        }
    }
    return run(base + runStart, base + text.size());
}

String normalise(icu::Normalizer2 const* form, String const& text, std::size_t start)
{
    String out;
    out.reserve(text.size() + text.size() / 2);
    out.append(text, 0, start);
    forEachScalarRun(
        text, start,
        [&](char32_t const* first, char32_t const* last) {
            normaliseRun(form, first, last, out);
            return true;
        },
        [&out](char32_t c) { out.push_back(c); });
    return out;
}

bool isNormalisedRun(icu::Normalizer2 const* form, char32_t const* first, char32_t const* last)
{
    if (first == last)
        return true;
    UnitBuffer source;
    int32_t const length = toUTF16(first, last, source);
    UErrorCode status = U_ZERO_ERROR;
    UBool const normalised = form->isNormalized(icu::UnicodeString(false, source.data(), length), status);
    throwOnFailure(status, "Unicode normalisation check failed");
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
    icu::Normalizer2 const* const form = nfd();
    return forEachScalarRun(
        text, start, [form](char32_t const* first, char32_t const* last) { return isNormalisedRun(form, first, last); },
        [](char32_t) {});
}

String toNFD(String const& text)
{
    std::size_t const start = firstAtOrAbove(text, kFirstDecomposable);
    if (start == text.size())
        return text;
    return normalise(nfd(), text, start);
}

std::uint8_t canonicalCombiningClass(char32_t c)
{
    if (c < kFirstCombining || !isScalarValue(c))
        return 0;
    return u_getCombiningClass(static_cast<UChar32>(c));
}

String withoutAccents(String const& text)
{
    String decomposed = toNFD(text);
    auto const isAccent = [](char32_t c) {
        return c >= kFirstCombining && isScalarValue(c) && u_charType(static_cast<UChar32>(c)) == U_NON_SPACING_MARK;
    };
    decomposed.erase(std::remove_if(decomposed.begin(), decomposed.end(), isAccent), decomposed.end());
    return decomposed;
}

bool hasCharacterClass(char32_t c, CharacterClass characterClass)
{
    if (c < 0x80) {
        bool const upper = c >= U'A' && c <= U'Z';
        bool const lower = c >= U'a' && c <= U'z';
        bool const digit = c >= U'0' && c <= U'9';
        bool const graph = c > 0x20 && c < 0x7F;
        switch (characterClass) {
        case CharacterClass::alnum: return upper || lower || digit;
        case CharacterClass::alpha: return upper || lower;
        case CharacterClass::blank: return c == U' ' || c == U'\t';
        case CharacterClass::cntrl: return c < 0x20 || c == 0x7F;
        case CharacterClass::digit: return digit;
        case CharacterClass::graph: return graph;
        case CharacterClass::lower: return lower;
        case CharacterClass::print: return graph || c == U' ';
        case CharacterClass::punct: return graph && !(upper || lower || digit);
        case CharacterClass::space: return c == U' ' || (c >= U'\t' && c <= U'\r');
        case CharacterClass::upper: return upper;
        case CharacterClass::xdigit: return digit || (c >= U'a' && c <= U'f') || (c >= U'A' && c <= U'F');
        }
        return false;
    }
    if (!isScalarValue(c))
        return false;
    auto const point = static_cast<UChar32>(c);
    switch (characterClass) {
    case CharacterClass::alnum: return u_isalpha(point) != 0 || u_isdigit(point) != 0;
    case CharacterClass::alpha: return u_isalpha(point) != 0;
    case CharacterClass::blank: return u_isblank(point) != 0;
    case CharacterClass::cntrl: return u_iscntrl(point) != 0;
    case CharacterClass::digit: return false;
    case CharacterClass::graph: return u_isgraph(point) != 0;
    case CharacterClass::lower: return u_islower(point) != 0;
    case CharacterClass::print: return u_isprint(point) != 0;
    case CharacterClass::punct: return u_isgraph(point) != 0 && u_isalpha(point) == 0 && u_isdigit(point) == 0;
    case CharacterClass::space: return u_isspace(point) != 0;
    case CharacterClass::upper: return u_isupper(point) != 0;
    case CharacterClass::xdigit: return false;
    }
    return false;
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
    // One pass: decompose, and keep the text when nothing changed.
    UnitBuffer result;
    int32_t const written = normaliseUnits(nfd(), source.data(), length, result);
    if (written == length && std::equal(source.data(), source.data() + length, result.data()))
        return;
    PointBuffer points;
    std::size_t const count = toUTF32(result.data(), result.data() + written, points);
    // The one change to the text comes last, once everything that can fail
    // has succeeded; replace() keeps the text as it was if it throws.
    text.replace(start, String::npos, points.data(), count);
}

namespace {

// The canonical decompositions of U+00C0 to U+02FF, taken from ICU once. Every
// code point below U+0300 is a starter, so a text made of them alone holds no
// mark to reorder: its NFD is the decompositions of its code points one after
// another, with no call into ICU.
struct LatinDecompositions {
    static constexpr std::size_t kCount = kFirstCombining - kFirstDecomposable;
    static constexpr std::size_t kLongest = 4;
    char32_t points[kCount][kLongest];
    unsigned char lengths[kCount];
    bool usable;
};

LatinDecompositions makeLatinDecompositions()
{
    LatinDecompositions table{};
    table.usable = true;
    icu::Normalizer2 const* const form = nfd();
    for (char32_t c = 0; c < kFirstCombining; ++c)
        table.usable = table.usable && u_getCombiningClass(static_cast<UChar32>(c)) == 0;
    for (char32_t c = kFirstDecomposable; c < kFirstCombining; ++c) {
        UErrorCode status = U_ZERO_ERROR;
        icu::UnicodeString const decomposed = form->normalize(icu::UnicodeString(static_cast<UChar32>(c)), status);
        throwOnFailure(status, "Unicode normalisation failed");
        std::size_t const i = c - kFirstDecomposable;
        std::size_t n = 0;
        for (int32_t k = 0; k < decomposed.length(); k = decomposed.moveIndex32(k, 1)) {
            if (n == LatinDecompositions::kLongest) {
                table.usable = false;
                break;
            }
            table.points[i][n++] = static_cast<char32_t>(decomposed.char32At(k));
        }
        table.lengths[i] = static_cast<unsigned char>(n);
    }
    return table;
}

LatinDecompositions const& latinDecompositions()
{
    static LatinDecompositions const table = makeLatinDecompositions();
    return table;
}

// Decodes and decomposes valid UTF-8 made of code points below U+0300.
// @returns false, with `out` untouched, for any other text.
bool decodeLatinToNFD(char const* data, std::size_t size, String& out)
{
    LatinDecompositions const& table = latinDecompositions();
    if (!table.usable)
        return false;
    // A byte gives at most one code point, two bytes at most four.
    PointBuffer points;
    char32_t* const first = points.reserve(size * 2);
    char32_t* o = first;
    auto const* p = reinterpret_cast<unsigned char const*>(data);
    auto const* const end = p + size;
    while (p != end) {
        unsigned char const byte = *p;
        if (byte < 0x80) {
            *o++ = byte;
            ++p;
            continue;
        }
        // Lead bytes 0xC2 to 0xCB start U+0080 to U+02FF.
        if (byte < 0xC2 || byte > 0xCB || p + 1 == end || (p[1] & 0xC0) != 0x80)
            return false;
        char32_t const c = (char32_t(byte & 0x1F) << 6) | char32_t(p[1] & 0x3F);
        p += 2;
        if (c < kFirstDecomposable) {
            *o++ = c;
            continue;
        }
        std::size_t const i = c - kFirstDecomposable;
        for (std::size_t k = 0; k < table.lengths[i]; ++k)
            *o++ = table.points[i][k];
    }
    out.assign(first, static_cast<std::size_t>(o - first));
    return true;
}

} // namespace

void decodeUTF8ToNFD(char const* data, std::size_t size, String& out)
{
    if (decodeLatinToNFD(data, size, out))
        return;
    // Valid UTF-8 goes straight to the normaliser's own encoding, and its
    // result straight into the text; bytes that are not UTF-8 take the long
    // way, since their escapes have no UTF-16 form.
    UnitBuffer source;
    char16_t* const first = source.reserve(size);
    char16_t* o = first;
    bool const valid = walkUTF8(
        data, size,
        [&o](char32_t c) { putUTF16(o, c); },
        [](unsigned char) { return false; });
    if (!valid) {
        decodeUTF8(data, size, out);
        decomposeInPlace(out);
        return;
    }
    UnitBuffer result;
    int32_t const written = normaliseUnits(nfd(), first, static_cast<int32_t>(o - first), result);
    PointBuffer points;
    std::size_t const count = toUTF32(result.data(), result.data() + written, points);
    out.assign(points.data(), count);
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
