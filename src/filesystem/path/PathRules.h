// Internal: the separator and dot constants, the root rules, normalisation and the in-step cutting of native forms.
#ifndef KELVO_SRC_FILESYSTEM_PATH_RULES_H
#define KELVO_SRC_FILESYSTEM_PATH_RULES_H

#include <kelvo/text/String.h>

#include <cstddef>
#include <string>

namespace kelvo::filesystem::detail {

// Constants rather than variables set at load, so that paths built by other
// static initialisers already see them.
constexpr char32_t kSeparator = U'/';
constexpr char32_t kOtherSeparator = U'\\';
constexpr char32_t kDot = U'.';
constexpr char32_t kSeparatorText[] = U"/";
constexpr char32_t kDotText[] = U".";

/// The end of the network root name ("//name", up to the next separator) at
/// the start of the text [first, last), or `first` when there is none.
inline char32_t const* rootNameEnd(char32_t const* first, char32_t const* last) noexcept
{
    if (last - first >= 3 && first[0] == kSeparator && first[1] == kSeparator && first[2] != kSeparator) {
        char32_t const* p = first + 2;
        while (p != last && *p != kSeparator)
            ++p;
        return p;
    }
    return first;
}

/// Whether the text [first, last) has a root directory: a separator after a
/// root name, or a leading separator.
inline bool hasRootDirectory(char32_t const* first, char32_t const* last) noexcept
{
    char32_t const* const nameEnd = rootNameEnd(first, last);
    if (nameEnd != first)
        return nameEnd != last;
    return first != last && *first == kSeparator;
}

/// Normalises a text as every path text is: decomposition when the text is
/// not already in NFD, then backslashes become "/" (a backslash is untouched
/// by decomposition, so the order does not matter to the result). If
/// decomposing throws, the text is left as it was.
void fixStuff(kelvo::unicode::String& text);

/// The tolerant comparison for two texts already in NFD (path texts are):
/// the same result as `kelvo_private::filesystem::compare` without the
/// decomposition step.
int compareDecomposed(kelvo::unicode::String const& a, kelvo::unicode::String const& b) noexcept;

/// The same without the first test for identical texts, for callers that
/// know the texts are unlikely to be.
int compareFoldedTexts(kelvo::unicode::String const& a, kelvo::unicode::String const& b) noexcept;

/// The same comparison for two texts given as their native forms marked
/// plain: all ASCII, one byte a code point.
int compareASCII(std::string const& a, std::string const& b) noexcept;
/// The same without the first test for identical bytes.
int compareASCIIFolded(std::string const& a, std::string const& b) noexcept;

/// Separators and dots are the marks by which a text and its native form are
/// cut in step: decomposition and composition never make, remove or move one,
/// and the native form holds each of them as one byte, in the same order.
inline bool isCutMark(char32_t c) noexcept { return c == kSeparator || c == kDot; }
inline bool isCutMark(char c) noexcept { return c == '/' || c == '.'; }

/// @returns the offset in `native` that matches the offset `p` of `text`,
/// where `native` is a native form of `text` and `p` lies at the start or
/// end of the text, just after a separator or dot, or on one.
std::size_t nativeOffset(kelvo::unicode::String const& text, std::string const& native, std::size_t p) noexcept;

/// The same, walking forward from a pair of offsets known to match
/// (`textCursor`, `nativeCursor`: both 0, or both just after the same
/// separator or dot), which are moved to the last matching pair at or before
/// `p`. A `p` before the cursor starts the walk again from the start.
std::size_t nativeOffsetFrom(kelvo::unicode::String const& text, std::string const& native, std::size_t p,
                             std::size_t& textCursor, std::size_t& nativeCursor) noexcept;

} // namespace kelvo::filesystem::detail

#endif
