// The operating-system calls behind canonical paths and length limits: thin POSIX wrappers for realpath and pathconf.
#ifndef KELVO_SRC_FILESYSTEM_POSIX_NAMES_H
#define KELVO_SRC_FILESYSTEM_POSIX_NAMES_H

#include <cstdint>

// Every wrapper takes NUL-terminated native path bytes, makes one call and
// hands back its result; none looks at errno or clears it.
namespace kelvo::filesystem::posix {

/// Resolves `path` to its absolute form without symbolic links, "." or ".."
/// with `realpath`, which allocates the result itself.
/// @returns the NUL-terminated result, to be freed with `releaseRealPath`; null
/// on any failure (a missing element, no search permission, a loop of links,
/// a name too long).
char* resolveRealPath(char const* path) noexcept;

/// Frees a result of `resolveRealPath` (null is ignored).
void releaseRealPath(char* resolved) noexcept;

/// The two limits the library asks `pathconf` for.
enum class PathLimit {
    pathLength, ///< `_PC_PATH_MAX`: the longest relative path below `path`
    nameLength, ///< `_PC_NAME_MAX`: the longest name in the directory `path`
};

/// Asks `pathconf` for `limit` of `path`.
/// @returns the system's answer as it is: -1 for no limit or a failure.
std::int64_t pathConfiguration(char const* path, PathLimit limit) noexcept;

} // namespace kelvo::filesystem::posix

#endif
