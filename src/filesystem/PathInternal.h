// Internal helpers shared by the path sources and the filesystem code: native-form access and the path-to-path comparison.
#ifndef KELVO_SRC_FILESYSTEM_PATH_INTERNAL_H
#define KELVO_SRC_FILESYSTEM_PATH_INTERNAL_H

#include <kelvo/filesystem/Path.h>

#include <string>

namespace kelvo::filesystem {

/// Gives the library's own code the cached native form without a copy.
struct PathNativeAccess {
    /// @returns the text of `path` without a call into another source file.
    static kelvo::unicode::String const& text(Path const& path) noexcept
    {
        return path.text ? *path.text : path.string();
    }
    /// @returns the native form of `path`, computing and caching it first if
    /// needed; valid until the path changes or is destroyed.
    static std::string const& native(Path const& path) { return path.nativeReference(); }
    /// @returns a NUL-terminated native form for the C library's calls.
    static char const* cString(Path const& path) { return path.nativeReference().c_str(); }
};

namespace detail {

/// Normalises a text as every path text is: backslashes become "/", then
/// decomposition when the text is not already in NFD.
void fixStuff(kelvo::unicode::String& text);

/// The tolerant comparison for two texts already in NFD (path texts are):
/// the same result as `kelvo_private::filesystem::compare` without the
/// decomposition step.
int compareDecomposed(kelvo::unicode::String const& a, kelvo::unicode::String const& b) noexcept;

} // namespace detail

} // namespace kelvo::filesystem

#endif
