// Walking a path element by element: root name, root directory, names, and a final "." for a trailing separator.
#include <kelvo/filesystem/Path.h>

#include "filesystem/path/PathInternal.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

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

// An element cut from a text that is not that of a path with a native form
// of its own to carry: its native form is made from its text if asked for.
Path pieceOf(Iterator first, Iterator last)
{
    std::size_t const size = static_cast<std::size_t>(last - first);
    if (size == 0)
        return Path();
    return PathNativeAccess::fromPiece(&*first, size);
}

constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);
constexpr std::uint32_t kNoCursor = UINT32_MAX;

// The offset of `first` in `s`, when [first, last) is the rest of `s`;
// kNowhere for a range of another text.
std::size_t offsetIn(String const& s, Iterator first, Iterator last) noexcept
{
    if (!(last == s.cend()))
        return kNowhere;
    if (first == last)
        return s.size();
    char32_t const* const p = &*first;
    if (p < s.data() || p > s.data() + s.size())
        return kNowhere;
    return static_cast<std::size_t>(p - s.data());
}

// The first separator of `native` at or after `from`, or its end.
std::size_t nextSeparator(std::string const& native, std::size_t from) noexcept
{
    std::size_t const m = native.size();
    if (from >= m)
        return m;
    void const* const found = std::memchr(native.data() + from, '/', m - from);
    return found ? static_cast<std::size_t>(static_cast<char const*>(found) - native.data()) : m;
}

// Whether `q` can be the offset in `native` that matches the offset `t` of
// `s`, 0 < t < size: the two stand alike on or just after a separator. A
// cursor carried from the previous element always does; one that does not
// was not made for this position.
bool standsAlike(String const& s, std::string const& native, std::size_t t, std::size_t q) noexcept
{
    if (q == 0 || q >= native.size())
        return false;
    return (s[t] == kSeparator) == (native[q] == '/') && (s[t - 1] == kSeparator) == (native[q - 1] == '/');
}

// Where a call of the functor stands in the native form that elements get
// pieces of; `native` is null when elements get none.
struct NativeStep {
    std::string const* native = nullptr;
    std::size_t offset = 0;
};

NativeStep nativeStep(PathIteratorExtractorFunc const& func, Iterator first, Iterator last) noexcept
{
    NativeStep step;
    if (func.path == nullptr)
        return step;
    std::string const* const native = PathNativeAccess::nativeToCarry(*func.path);
    if (native == nullptr)
        return step;
    String const& s = PathNativeAccess::text(*func.path);
    std::size_t const t = offsetIn(s, first, last);
    if (t == kNowhere)
        return step;
    step.native = native;
    if (t == 0)
        step.offset = 0;
    else if (t >= s.size())
        step.offset = native->size();
    else if (func.nativeCursor != kNoCursor && standsAlike(s, *native, t, func.nativeCursor))
        step.offset = func.nativeCursor;
    else
        step.offset = detail::nativeOffset(s, *native, t);
    return step;
}

// Remembers the native offset that matches the next call's start.
void remember(PathIteratorExtractorFunc& func, std::size_t offset) noexcept
{
    func.nativeCursor = offset < kNoCursor ? static_cast<std::uint32_t>(offset) : kNoCursor;
}

// The element [first, last) of the text, with the bytes [from, to) of the
// native form `step.native` when there is one.
Path element(NativeStep const& step, Iterator first, Iterator last, std::size_t from, std::size_t to)
{
    if (step.native == nullptr || first == last)
        return pieceOf(first, last);
    return PathNativeAccess::piece(&*first, static_cast<std::size_t>(last - first), step.native->data() + from,
                                   to - from);
}

} // namespace

Token PathIteratorExtractorFunc::operator()(Iterator first, Iterator last)
{
    if (state == 3)
        return Token{Path(), last, true};
    NativeStep const step = nativeStep(*this, first, last);
    std::size_t const q = step.offset;
    if (state == 0) {
        state = 1;
        Iterator const nameEnd = rootNameEnd(first, last);
        if (nameEnd != first) {
            Iterator const next = separatorWalk(nameEnd, last);
            // The name is "//" and what follows up to the next separator;
            // what the walk skips after it is separators, one byte each.
            std::size_t const nameEndNative = step.native ? nextSeparator(*step.native, q + 2) : 0;
            remember(*this, nameEndNative + static_cast<std::size_t>(next - nameEnd));
            return Token{element(step, first, nameEnd, q, nameEndNative), next, next == last};
        }
    }
    if (state == 1) {
        state = 2;
        if (hasRootDirectory(first, last)) {
            Iterator const next = separatorWalk(first + 1, last);
            remember(*this, q + static_cast<std::size_t>(next - first));
            return Token{PathNativeAccess::fromPiece(kSeparatorText, 1), next, next == last};
        }
    }
    Iterator const p = std::find(first, last, kSeparator);
    if (p != last) {
        Iterator next = p + 1;
        while (next != last && *next == kSeparator)
            ++next;
        std::size_t const endNative = step.native ? nextSeparator(*step.native, q) : 0;
        remember(*this, endNative + static_cast<std::size_t>(next - p));
        return Token{element(step, first, p, q, endNative), next, false};
    }
    if (first != last) {
        std::size_t const endNative = step.native ? step.native->size() : 0;
        remember(*this, endNative);
        return Token{element(step, first, last, q, endNative), last, true};
    }
    // The text ended with separators: a "." stands for the trailing one.
    state = 3;
    return Token{PathNativeAccess::fromPiece(kDotText, 1), last, false};
}

// The function wrapper of the iterator keeps a functor of this size in place;
// a larger one would cost an allocation for every iterator made or copied.
static_assert(sizeof(PathIteratorExtractorFunc) <= 2 * sizeof(void*), "the element functor fits the wrapper");

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
