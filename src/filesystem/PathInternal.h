// Internal helpers shared by the path sources and the filesystem code: the text store, native-form access and the path-to-path comparison.
#ifndef KELVO_SRC_FILESYSTEM_PATH_INTERNAL_H
#define KELVO_SRC_FILESYSTEM_PATH_INTERNAL_H

#include <kelvo/filesystem/Path.h>

#include <cstddef>
#include <memory>
#include <string>

namespace kelvo::filesystem {

namespace detail {

/// Texts of paths come from and go back to a small per-thread store, so that
/// the short-lived paths of everyday work (a file name, a parent, a join)
/// cost no allocation once a thread has made a few.
/// @returns an empty text, recycled when one is at hand. @throws std::bad_alloc.
kelvo::unicode::String* acquireText();
/// Takes back a text that no path holds any longer (null is ignored).
void releaseText(kelvo::unicode::String* text) noexcept;
/// The same for the strings that hold native forms.
/// @returns an empty string. @throws std::bad_alloc.
std::string* acquireNative();
/// Takes back a native-form string (null is ignored).
void releaseNative(std::string* native) noexcept;
/// Frees the texts and strings this thread keeps for reuse.
void emptyTextStore() noexcept;

struct TextReleaser {
    void operator()(kelvo::unicode::String* text) const noexcept { releaseText(text); }
};
using OwnedText = std::unique_ptr<kelvo::unicode::String, TextReleaser>;

/// The end of the network root name ("//name", up to the next separator) at
/// the start of the text [first, last), or `first` when there is none.
inline char32_t const* rootNameEnd(char32_t const* first, char32_t const* last) noexcept
{
    if (last - first >= 3 && first[0] == U'/' && first[1] == U'/' && first[2] != U'/') {
        char32_t const* p = first + 2;
        while (p != last && *p != U'/')
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
    return first != last && *first == U'/';
}

/// Normalises a text as every path text is: backslashes become "/", then
/// decomposition when the text is not already in NFD.
void fixStuff(kelvo::unicode::String& text);

/// The tolerant comparison for two texts already in NFD (path texts are):
/// the same result as `kelvo_private::filesystem::compare` without the
/// decomposition step.
int compareDecomposed(kelvo::unicode::String const& a, kelvo::unicode::String const& b) noexcept;

} // namespace detail

/// Gives the library's own code direct access to a path's text and cached
/// native form.
struct PathNativeAccess {
    /// @returns the text of `path` without a call into another source file.
    static kelvo::unicode::String const& text(Path const& path) noexcept
    {
        return path.text ? *path.text : path.string();
    }
    /// @returns a path holding `text`, which must already be normalised.
    static Path adopt(detail::OwnedText text) noexcept
    {
        Path path;
        path.text = text.release();
        return path;
    }
    /// @returns a path holding a copy of the `size` code points at `first`,
    /// which must form a normalised text (any piece of a path's text does).
    static Path fromPiece(char32_t const* first, std::size_t size)
    {
        if (size == 0)
            return Path();
        detail::OwnedText owned(detail::acquireText());
        owned->append(first, size); // acquired texts are empty
        return adopt(std::move(owned));
    }
    /// @returns the native form of `path`, computing and caching it first if
    /// needed; valid until the path changes or is destroyed.
    static std::string const& native(Path const& path) { return path.nativeReference(); }
    /// @returns a NUL-terminated native form for the C library's calls.
    static char const* cString(Path const& path) { return path.nativeReference().c_str(); }
    /// @returns the NUL-terminated native form of `path` for a call that
    /// creates, removes, renames, copies, links, opens, locks or changes
    /// something; null when the native form holds a NUL byte, since such a
    /// path names no file and the call must not act on the shorter name.
    static char const* cStringForChange(Path const& path)
    {
        std::string const& native = path.nativeReference();
        return native.find('\0') == std::string::npos ? native.c_str() : nullptr;
    }
};

} // namespace kelvo::filesystem

#endif
