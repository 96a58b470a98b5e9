// Walking a path element by element: root name, root directory, names, and a final "." for a trailing separator.
#include <kelvo/filesystem/Path.h>

#include "PathInternal.h"

#include <algorithm>

namespace kelvo::filesystem {

using kelvo::unicode::String;
using Iterator = String::const_iterator;
using Token = kelvo::parsing::TokenInfo<Path, Iterator>;

namespace {

constexpr char32_t kSeparator = U'/';
constexpr char32_t kSeparatorText[] = U"/";
constexpr char32_t kDotText[] = U".";

// An element: a piece of the path's own text, already normalised.
Path pieceOf(Iterator first, Iterator last)
{
    return PathNativeAccess::fromPiece(first == last ? nullptr : &*first, static_cast<std::size_t>(last - first));
}

// Where the text after a root part resumes: the last separator of the run
// that follows `p`, so that the next step still sees a leading separator.
Iterator separatorWalk(Iterator p, Iterator last)
{
    for (;;) {
        if (p == last)
            return last;
        if (p + 1 == last)
            return p;
        if (*p != kSeparator)
            return p;
        if (*(p + 1) != kSeparator)
            return p;
        ++p;
    }
}

// The root rules on a range of the path's own text.
Iterator rootNameEnd(Iterator first, Iterator last)
{
    if (first == last)
        return first;
    return first + (detail::rootNameEnd(&*first, &*first + (last - first)) - &*first);
}

bool hasRootDirectory(Iterator first, Iterator last)
{
    return first != last && detail::hasRootDirectory(&*first, &*first + (last - first));
}

} // namespace

Token PathIteratorExtractorFunc::operator()(Iterator first, Iterator last)
{
    if (state == 3)
        return Token{Path(), last, true};
    if (state == 0) {
        state = 1;
        Iterator const nameEnd = rootNameEnd(first, last);
        if (nameEnd != first) {
            Iterator const next = separatorWalk(nameEnd, last);
            return Token{pieceOf(first, nameEnd), next, next == last};
        }
    }
    if (state == 1) {
        state = 2;
        if (hasRootDirectory(first, last)) {
            Iterator const next = separatorWalk(first + 1, last);
            return Token{PathNativeAccess::fromPiece(kSeparatorText, 1), next, next == last};
        }
    }
    Iterator const p = std::find(first, last, kSeparator);
    if (p != last) {
        Iterator next = p + 1;
        while (next != last && *next == kSeparator)
            ++next;
        return Token{pieceOf(first, p), next, false};
    }
    if (first != last)
        return Token{pieceOf(first, last), last, true};
    // The text ended with separators: a "." stands for the trailing one.
    state = 3;
    return Token{PathNativeAccess::fromPiece(kDotText, 1), last, false};
}

Path::iterator Path::begin() const
{
    String const& s = string();
    return iterator(s.cbegin(), s.cend(), PathIteratorExtractorFunc{});
}

Path::iterator Path::end() const
{
    String const& s = string();
    return iterator(s.cend(), s.cend(), PathIteratorExtractorFunc{});
}

} // namespace kelvo::filesystem
