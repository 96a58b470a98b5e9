// Internal: the library's own access to a path's text and native form, and to paths built from pieces of others.
#ifndef KELVO_SRC_FILESYSTEM_PATH_NATIVE_ACCESS_H
#define KELVO_SRC_FILESYSTEM_PATH_NATIVE_ACCESS_H

#include <kelvo/filesystem/Path.h>

#include "filesystem/path/PathTextStore.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace kelvo::filesystem {

/// Gives the library's own code direct access to a path's text and native
/// form.
struct PathNativeAccess {
    /// @returns the text of `path` without a call into another source file.
    static kelvo::unicode::String const& text(Path const& path) noexcept
    {
        return path.text ? *path.text : path.string();
    }
    /// @returns a path holding `text`, which must already be normalised; its
    /// native form is the composed UTF-8 of the text.
    static Path adopt(detail::OwnedText text) noexcept
    {
        Path path;
        path.text = text.release();
        return path;
    }
    /// @returns a path holding `text`, which must already be normalised, and
    /// the native form `native` made in step with it (null: the composed
    /// UTF-8 of the text).
    static Path adopt(detail::OwnedText text, detail::OwnedNative native) noexcept
    {
        Path path;
        path.text = text.release();
        path.native.store(native.release(), std::memory_order_relaxed);
        return path;
    }
    /// Takes the text and the native form out of `path`, which is left empty,
    /// for a caller that builds another path in them (and gives them back
    /// with `adopt`). Either comes back null when the path had none.
    static void takeApart(Path& path, detail::OwnedText& text, detail::OwnedNative& native) noexcept
    {
        text.reset(path.text);
        path.text = nullptr;
        native.reset(unmarked(path.takeNative()));
    }
    /// @returns a path holding a copy of the `size` code points at `first`,
    /// which must form a normalised text (any piece of a path's text does);
    /// its native form is the composed UTF-8 of that text. For a piece of
    /// another path, use the form that takes the path, which keeps its bytes.
    static Path fromPiece(char32_t const* first, std::size_t size)
    {
        if (size == 0)
            return Path();
        detail::OwnedText owned(detail::acquireText());
        owned->append(first, size); // acquired texts are empty
        return adopt(std::move(owned));
    }
    /// @returns a path holding a copy of the `size` code points at `first`,
    /// which must form a normalised text, and a copy of the `nativeSize`
    /// bytes at `nativeFirst`, which must be the matching piece of a native
    /// form (cut at the start or end, at a separator or dot, or just after
    /// one). An empty text gives an empty path.
    static Path piece(char32_t const* first, std::size_t size, char const* nativeFirst, std::size_t nativeSize);
    /// @returns a path holding a copy of the `size` code points at `first`
    /// and, when they lie in the text of `source` and start and end at its
    /// start or end, at a separator or dot, or just after one, the matching
    /// piece of the native form of `source`. A piece from elsewhere (a
    /// constant such as "/") gets the composed UTF-8 of its text.
    static Path fromPiece(Path const& source, char32_t const* first, std::size_t size);
    /// @returns `directory / Path(name)` for the NUL-terminated entry name
    /// `name` of `length` bytes that a listing gave: for a name of ASCII
    /// bytes other than "\\", the joined text and native form are written
    /// at once, without a path made of the name first.
    static Path joinListedName(Path const& directory, char const* name, std::size_t length);
    /// Makes `target` (another path than `directory`) equal to
    /// `joinListedName(directory, name, length)`, reusing the storage it
    /// holds. When it throws (out of memory), `target` is left as it was.
    static void assignListedName(Path& target, Path const& directory, char const* name, std::size_t length);
    /// A native form held by a path is marked plain (its lowest address bit
    /// set) when it is known to be the text itself, all ASCII: it is made
    /// again from the text at next to no cost, so copies and derived paths
    /// leave theirs to be made on first use instead of copying it.
    static constexpr std::uintptr_t kPlainMark = 1;
    static std::string* unmarked(std::string* native) noexcept
    {
        return reinterpret_cast<std::string*>(reinterpret_cast<std::uintptr_t>(native) & ~kPlainMark);
    }
    static bool isPlain(std::string const* native) noexcept
    {
        return (reinterpret_cast<std::uintptr_t>(native) & kPlainMark) != 0;
    }
    static std::string* markedPlain(std::string* native) noexcept
    {
        return reinterpret_cast<std::string*>(reinterpret_cast<std::uintptr_t>(native) | kPlainMark);
    }
    /// @returns the native form of `path`, or null while it is the composed
    /// UTF-8 of the text and has not been made yet.
    static std::string const* nativeIfMade(Path const& path) noexcept
    {
        return unmarked(path.native.load(std::memory_order_acquire));
    }
    /// @returns the native form of `path` when it is marked plain (its text
    /// itself, all ASCII), else null.
    static std::string const* plainNative(Path const& path) noexcept
    {
        std::string* const held = path.native.load(std::memory_order_acquire);
        return isPlain(held) ? unmarked(held) : nullptr;
    }
    /// @returns the native form of `path` when paths derived from it must
    /// carry pieces of it; null when theirs can be made from their own texts
    /// (the form is not made yet, or it is plain).
    static std::string const* nativeToCarry(Path const& path) noexcept
    {
        std::string* const held = path.native.load(std::memory_order_acquire);
        return isPlain(held) ? nullptr : held;
    }
    /// @returns the native form of `path`, making it first if needed; valid
    /// until the path changes or is destroyed.
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
