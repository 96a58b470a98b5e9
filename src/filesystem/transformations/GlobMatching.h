// Internal: a glob pattern prepared once for matching the many names of one listing, giving matchesGlobPattern's answers.
#ifndef KELVO_SRC_FILESYSTEM_TRANSFORMATIONS_GLOB_MATCHING_H
#define KELVO_SRC_FILESYSTEM_TRANSFORMATIONS_GLOB_MATCHING_H

#include <kelvo/filesystem/Path.h>

#include <cstddef>
#include <locale>
#include <memory>

namespace kelvo::filesystem::detail {

/// A glob pattern made ready, under the global locale of the moment it was
/// made, for matching many names: what `matchesGlobPattern` works out on
/// each call is worked out once here. One object is used by one thread at a
/// time.
class PreparedGlob {
public:
    /// Prepares `pattern` under the current global locale. Nothing is thrown
    /// for a pattern that is not a valid expression: each match throws, as
    /// `matchesGlobPattern` does.
    explicit PreparedGlob(kelvo::unicode::String const& pattern);
    PreparedGlob(PreparedGlob const&) = delete;
    PreparedGlob& operator=(PreparedGlob const&) = delete;
    ~PreparedGlob();

    /// @returns whether the global locale is still the one the pattern was
    /// prepared under.
    bool isCurrent() const;

    /// @returns `matchesGlobPattern(path, pattern)`.
    bool matches(Path const& path) const;

    /// Matches a listed name given as `length` bytes, which must all be ASCII
    /// other than "\\" (and not "." or ".."): such a name is its own path
    /// text, so the answer is `matchesGlobPattern` of its path.
    /// @throws what `matchesGlobPattern` throws.
    bool matchesPlainName(char const* name, std::size_t length) const;

    /// @returns true when `length` bytes at `name` can be matched by
    /// `matchesPlainName`: all ASCII, none of them "\\".
    static bool isPlainName(char const* name, std::size_t length) noexcept;

    struct Compiled;

private:
    std::unique_ptr<Compiled> compiled;
};

} // namespace kelvo::filesystem::detail

#endif
