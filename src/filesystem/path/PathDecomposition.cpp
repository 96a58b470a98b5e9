// Taking a path apart: root name and directory, relative and parent paths, file name, stem and extension.
#include <kelvo/filesystem/Path.h>

#include "filesystem/path/ParentChain.h"
#include "filesystem/path/PathInternal.h"

namespace kelvo::filesystem {

using kelvo::unicode::String;

using detail::kDot;
using detail::kDotText;
using detail::kSeparator;
using detail::kSeparatorText;

namespace {

// A piece of a path's text (or of a constant): results are built from one,
// with the matching piece of the path's native form.
struct Piece {
    char32_t const* first;
    std::size_t size;
};

Path pathOf(Path const& source, Piece piece) { return PathNativeAccess::fromPiece(source, piece.first, piece.size); }

// The parent of `s` is always a prefix of it: its length.
std::size_t parentLength(String const& s) noexcept { return detail::parentLength(s.data(), s.size()); }

Piece getFilename(String const& s) noexcept
{
    std::size_t const n = s.size();
    char32_t const* const t = s.data();
    if (n == 0)
        return {t, 0};
    if (n == 1 && t[0] == kSeparator)
        return {t, 1};
    if (t[n - 1] == kSeparator)
        return {kDotText, 1};
    // What follows the last separator, or the whole text.
    std::size_t p = n - 1;
    while (p > 0 && t[p - 1] != kSeparator)
        --p;
    return {t + p, n - p};
}

std::size_t rootNameLength(String const& s) noexcept
{
    return static_cast<std::size_t>(detail::rootNameEnd(s.data(), s.data() + s.size()) - s.data());
}

bool hasRootDirectory(String const& s) noexcept { return detail::hasRootDirectory(s.data(), s.data() + s.size()); }

// The length of the root path of `s`: root name and root directory, both
// leading pieces of the text.
std::size_t rootPathLength(String const& s) noexcept { return rootNameLength(s) + (hasRootDirectory(s) ? 1 : 0); }

} // namespace

Path Path::rootName() const
{
    String const& s = PathNativeAccess::text(*this);
    return pathOf(*this, {s.data(), rootNameLength(s)});
}

Path Path::rootDirectory() const
{
    if (!hasRootDirectory(PathNativeAccess::text(*this)))
        return Path();
    return PathNativeAccess::fromPiece(kSeparatorText, 1);
}

Path Path::rootPath() const
{
    String const& s = PathNativeAccess::text(*this);
    return pathOf(*this, {s.data(), rootPathLength(s)});
}

bool Path::isAbsolute() const { return rootPathLength(PathNativeAccess::text(*this)) != 0; }

bool Path::isRelative() const { return !isAbsolute(); }

bool Path::isComplete() const { return hasRootDirectory(PathNativeAccess::text(*this)); }

Path Path::relativePath() const
{
    String const& s = PathNativeAccess::text(*this);
    std::size_t const rootLength = rootPathLength(s);
    if (rootLength == 0)
        return *this;
    // Separators right after the root are skipped.
    String::size_type const i = s.find_first_not_of(kSeparator, rootLength);
    if (i == String::npos)
        return Path();
    return pathOf(*this, {s.data() + i, s.size() - i});
}

Path Path::parentPath() const
{
    String const& s = PathNativeAccess::text(*this);
    return pathOf(*this, {s.data(), parentLength(s)});
}

Path Path::filename() const
{
    String const& s = PathNativeAccess::text(*this);
    Piece const f = getFilename(s);
    std::string const* const native = PathNativeAccess::nativeToCarry(*this);
    if (native == nullptr || f.size == 0 || f.first == kDotText)
        return PathNativeAccess::fromPiece(f.first, f.size);
    // The file name is the whole text, or what follows its last separator;
    // its native piece is the whole native form, or what follows the last
    // separator there (separators are in step and one byte each).
    if (f.first == s.data())
        return PathNativeAccess::piece(f.first, f.size, native->data(), native->size());
    char const* const bytes = native->data();
    std::size_t from = native->size();
    while (from > 0 && bytes[from - 1] != '/')
        --from;
    return PathNativeAccess::piece(f.first, f.size, bytes + from, native->size() - from);
}

Path Path::stem() const
{
    Piece f = getFilename(PathNativeAccess::text(*this));
    bool const dotOrDotDot = (f.size == 1 && f.first[0] == kDot)
                          || (f.size == 2 && f.first[0] == kDot && f.first[1] == kDot);
    if (!dotOrDotDot) {
        // The file name holds no separator (but for the root "/" itself), so
        // its last dot starts the extension.
        std::size_t d = f.size;
        for (std::size_t i = f.size; i > 0; --i) {
            if (f.first[i - 1] == kSeparator)
                break;
            if (f.first[i - 1] == kDot) {
                d = i - 1;
                break;
            }
        }
        f.size = d;
    }
    return pathOf(*this, f);
}

Path Path::extension() const
{
    String const& s = PathNativeAccess::text(*this);
    // A name that ends in a dot has no extension, and neither has "..";
    // a lone "." keeps itself as its extension.
    if (s.size() >= 2 && s.back() == kDot)
        return Path();
    // The last dot counts only when no separator follows it.
    for (std::size_t i = s.size(); i > 0; --i) {
        char32_t const c = s[i - 1];
        if (c == kSeparator)
            return Path();
        if (c == kDot)
            return pathOf(*this, {s.data() + i - 1, s.size() - i + 1});
    }
    return Path();
}

void Path::replaceExtension(Path const& newExtension)
{
    String e = newExtension.string();
    bool const addDot = !e.empty() && e.front() != kDot;
    if (addDot)
        e.insert(e.begin(), kDot);
    String& s = mutableText();
    String::size_type const q = s.find_last_of(kSeparator);
    String::size_type d = s.find_last_of(kDot);
    if (d == String::npos || (q != String::npos && d < q))
        d = s.size();
    // The native form changes in step: its part from the matching dot is
    // replaced by the native form of the new extension.
    detail::OwnedNative replaced;
    if (PathNativeAccess::nativeToCarry(*this) != nullptr || PathNativeAccess::nativeToCarry(newExtension) != nullptr) {
        std::string const& mine = PathNativeAccess::native(*this);
        std::string const& theirs = PathNativeAccess::native(newExtension);
        std::size_t const cut = detail::nativeOffset(s, mine, d);
        replaced.reset(detail::acquireNative());
        replaced->reserve(cut + theirs.size() + 1);
        replaced->assign(mine, 0, cut);
        if (addDot)
            replaced->push_back('.');
        replaced->append(theirs);
    }
    s.replace(d, String::npos, e);
    setNative(replaced.release());
}

} // namespace kelvo::filesystem
