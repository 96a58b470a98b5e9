// Walking a path element by element: root name, root directory, names, and a final "." for a trailing separator.
#include <kelvo/filesystem/Path.h>

#include "filesystem/path/PathInternal.h"

#include <algorithm>

namespace kelvo::filesystem {

using kelvo::unicode::String;
using Iterator = String::const_iterator;
using Token = kelvo::parsing::TokenInfo<Path, Iterator>;

using detail::kDotText;
using detail::kSeparator;
using detail::kSeparatorText;

namespace {

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

// An element: a piece of the walked text, already normalised. When the text
// is that of `func.path`, the element gets the matching piece of the path's
// native form.
Path pieceOf(PathIteratorExtractorFunc const& func, Iterator first, Iterator last)
{
    std::size_t const size = static_cast<std::size_t>(last - first);
    if (size == 0)
        return Path();
    if (func.path == nullptr)
        return PathNativeAccess::fromPiece(&*first, size);
    return PathNativeAccess::fromPiece(*func.path, &*first, size);
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
            return Token{pieceOf(*this, first, nameEnd), next, next == last};
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
        return Token{pieceOf(*this, first, p), next, false};
    }
    if (first != last)
        return Token{pieceOf(*this, first, last), last, true};
    // The text ended with separators: a "." stands for the trailing one.
    state = 3;
    return Token{PathNativeAccess::fromPiece(kDotText, 1), last, false};
}

Path::iterator Path::begin() const
{
    String const& s = string();
    PathIteratorExtractorFunc extractor;
    extractor.path = this;
    return iterator(s.cbegin(), s.cend(), extractor);
}

Path::iterator Path::end() const
{
    String const& s = string();
    return iterator(s.cend(), s.cend(), PathIteratorExtractorFunc{});
}

} // namespace kelvo::filesystem
