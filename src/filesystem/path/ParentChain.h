// Internal: a path and the chain of its parents, held as lengths into the path's own text and native form, so that walks up and down a path of any depth cost time and memory linear in its length.
#ifndef KELVO_SRC_FILESYSTEM_PARENT_CHAIN_H
#define KELVO_SRC_FILESYSTEM_PARENT_CHAIN_H

#include <kelvo/filesystem/Path.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kelvo::filesystem::detail {

/// @returns the length of the text of `Path::parentPath()` of a path whose
/// text is the `size` code points at `text`: a parent is always a leading
/// piece of its child's text.
std::size_t parentLength(char32_t const* text, std::size_t size) noexcept;

/// A path, its `parentPath()`, that one's `parentPath()`, and so on down to the
/// empty path: link 0 is the path itself, the last link the empty path.
///
/// Each parent is a leading piece of its child's text, cut on a separator, and
/// the matching leading piece of its child's native form, so every link is two
/// lengths into the path's own text and native form rather than a copy of
/// them: the chain of a path of n code points costs O(n) whatever its depth.
/// The native form is copied once into a buffer in which any link is made
/// NUL-terminated in place for a system call.
///
/// The path must outlive the chain and stay unchanged while it is used.
class ParentChain {
public:
    /// Records the whole chain of `path`; makes its native form if needed.
    explicit ParentChain(Path const& path);

    ParentChain(ParentChain const&) = delete;
    ParentChain& operator=(ParentChain const&) = delete;

    /// @returns the number of links, the empty path included.
    std::size_t size() const noexcept { return links.size(); }
    /// @returns the number of code points of the text of link `k`.
    std::size_t textLength(std::size_t k) const noexcept { return links[k].textLength; }
    /// @returns true when link `k` is the empty path.
    bool isEmpty(std::size_t k) const noexcept { return links[k].textLength == 0; }

    /// @returns true when `exists` holds for link `k`.
    bool exists(std::size_t k);
    /// @returns true when link `k` equals its own `rootPath()` under `==`: the
    /// root, a root name alone, or the empty path.
    bool isItsOwnRootPath(std::size_t k) const noexcept;

    /// @returns the text of link `k` as a path of its own whose native form
    /// is made from its text.
    Path text(std::size_t k) const;
    /// @returns the native form of link `k`.
    std::string_view native(std::size_t k) const noexcept;
    /// @returns the text of `filename()` of link `k` (a non-empty link) as a
    /// path of its own whose native form is made from its text.
    Path filenameText(std::size_t k) const;
    /// @returns the native form of `filename()` of link `k`.
    std::string_view filenameNative(std::size_t k) const noexcept;
    /// @returns true when `filename()` of link `k` is "." or "..".
    bool filenameIsDotOrDotDot(std::size_t k) const noexcept;
    /// @returns true when the path's native form is carried by the paths
    /// derived from it, not made again from their texts.
    bool carriesNative() const noexcept { return carried; }

    /// Calls `call` with the NUL-terminated native form of link `k`, made in
    /// place in the chain's buffer and put back afterwards.
    /// @returns what `call` returns.
    template <typename Call>
    auto withNative(std::size_t k, Call&& call)
    {
        std::size_t const end = links[k].nativeLength;
        char const kept = buffer[end];
        buffer[end] = '\0';
        Restore restore{buffer[end], kept};
        return call(static_cast<char const*>(buffer.data()));
    }

private:
    struct Link {
        std::size_t textLength;      ///< of this link's text
        std::size_t nativeLength;    ///< of its native form
        std::size_t nameStart;       ///< where its file name starts in the text
        std::size_t nameNativeStart; ///< and in the native form
    };

    // Puts back the byte that a NUL replaced, also when the call throws.
    struct Restore {
        char& place;
        char kept;
        ~Restore() { place = kept; }
    };

    // Asked before the native form is made for the chain: a form made from
    // the text need not be carried.
    bool carried = false;
    kelvo::unicode::String const& wholeText;
    std::string const& wholeNative;
    std::vector<Link> links;
    std::vector<char> buffer;
    std::size_t wholeRootLength = 0;
};

} // namespace kelvo::filesystem::detail

#endif
