// The chain of a path's parents as lengths into its text and native form, with each link's file name and a NUL-terminated native form made in place.
#include "filesystem/path/ParentChain.h"

#include "filesystem/path/PathInternal.h"
#include "filesystem/posix/System.h"

namespace kelvo::filesystem::detail {

namespace {

constexpr char kDotNative[] = ".";

} // namespace

// The rule of `Path::parentPath`, applied to a leading piece of a text in
// place instead of to a path of its own; the tests hold the two to the same
// answers for every short spelling.
std::size_t parentLength(char32_t const* text, std::size_t size) noexcept
{
    if (size == 0 || (size == 1 && text[0] == kSeparator))
        return 0;
    std::size_t afterLast = size;
    while (afterLast > 0 && text[afterLast - 1] != kSeparator)
        --afterLast;
    if (afterLast == 0)
        return 0;
    std::size_t const last = afterLast - 1;
    if (last == 0)
        return 1;
    // A trailing separator counts as an element "." whose parent is the text
    // before it; a run of separators goes with the element after it, but a
    // leading one stays as the root.
    std::size_t length = last;
    while (length >= 2 && text[length - 1] == kSeparator)
        --length;
    return length;
}

ParentChain::ParentChain(Path const& path)
    : carried(PathNativeAccess::nativeToCarry(path) != nullptr),
      wholeText(PathNativeAccess::text(path)),
      wholeNative(PathNativeAccess::native(path))
{
    char32_t const* const t = wholeText.data();
    std::size_t const size = wholeText.size();

    // The texts: each link is its child's parent, down to the empty path. Each
    // step looks only at the last element and the separators before it, so
    // the whole chain costs one pass over the text.
    for (std::size_t length = size;;) {
        Link link{length, 0, 0, 0};
        if (length == 1 && t[0] == kSeparator) {
            link.nameStart = 0; // the root "/" is its own file name
        } else if (length > 0 && t[length - 1] == kSeparator) {
            link.nameStart = length; // a trailing separator: the file name is "."
        } else {
            std::size_t start = length;
            while (start > 0 && t[start - 1] != kSeparator)
                --start;
            link.nameStart = start;
        }
        links.push_back(link);
        if (length == 0)
            break;
        length = parentLength(t, length);
    }

    // The native lengths, in one forward pass: every name start and every link
    // end lies on a separator or just after one, and from the shortest link to
    // the longest they only grow.
    std::size_t textCursor = 0;
    std::size_t nativeCursor = 0;
    for (std::size_t k = links.size(); k-- > 0;) {
        Link& link = links[k];
        link.nameNativeStart = nativeOffsetFrom(wholeText, wholeNative, link.nameStart, textCursor, nativeCursor);
        link.nativeLength = nativeOffsetFrom(wholeText, wholeNative, link.textLength, textCursor, nativeCursor);
    }

    buffer.reserve(wholeNative.size() + 1);
    buffer.assign(wholeNative.begin(), wholeNative.end());
    buffer.push_back('\0');

    wholeRootLength = static_cast<std::size_t>(rootNameEnd(t, t + size) - t)
                    + (hasRootDirectory(t, t + size) ? 1 : 0);
}

bool ParentChain::exists(std::size_t k)
{
    return withNative(k, [](char const* native) { return posix::canStat(native); });
}

bool ParentChain::isItsOwnRootPath(std::size_t k) const noexcept
{
    // Texts of different lengths never compare equal, so the link equals its
    // root path exactly when the root path is the whole of it. Any link at
    // least as long as the whole path's root path has that same root path.
    std::size_t const length = links[k].textLength;
    if (length >= wholeRootLength)
        return length == wholeRootLength;
    char32_t const* const t = wholeText.data();
    std::size_t const rootLength = static_cast<std::size_t>(rootNameEnd(t, t + length) - t)
                                 + (hasRootDirectory(t, t + length) ? 1 : 0);
    return rootLength == length;
}

Path ParentChain::text(std::size_t k) const
{
    return PathNativeAccess::fromPiece(wholeText.data(), links[k].textLength);
}

std::string_view ParentChain::native(std::size_t k) const noexcept
{
    return std::string_view(wholeNative.data(), links[k].nativeLength);
}

Path ParentChain::filenameText(std::size_t k) const
{
    Link const& link = links[k];
    if (link.nameStart == link.textLength)
        return PathNativeAccess::fromPiece(kDotText, 1);
    return PathNativeAccess::fromPiece(wholeText.data() + link.nameStart, link.textLength - link.nameStart);
}

std::string_view ParentChain::filenameNative(std::size_t k) const noexcept
{
    Link const& link = links[k];
    if (link.nameStart == link.textLength)
        return std::string_view(kDotNative, 1);
    return std::string_view(wholeNative.data() + link.nameNativeStart, link.nativeLength - link.nameNativeStart);
}

bool ParentChain::filenameIsDotOrDotDot(std::size_t k) const noexcept
{
    Link const& link = links[k];
    std::size_t const nameSize = link.textLength - link.nameStart;
    if (nameSize == 0)
        return link.textLength != 0; // the "." of a trailing separator
    char32_t const* const name = wholeText.data() + link.nameStart;
    return nameSize <= 2 && name[0] == kDot && (nameSize == 1 || name[1] == kDot);
}

} // namespace kelvo::filesystem::detail
