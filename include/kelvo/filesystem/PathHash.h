// kelvo::filesystem::PathHash, PathLess and std::hash<Path>: containers that group paths the way == compares them.
#ifndef KELVO_FILESYSTEM_PATH_HASH_H
#define KELVO_FILESYSTEM_PATH_HASH_H

#include <kelvo/export.h>
#include <kelvo/filesystem/Path.h>

#include <cstddef>
#include <functional>

namespace kelvo::filesystem {

/// Hash of a path consistent with `==`: paths that are equal (ignoring
/// letter case and Unicode composition) hash equally, so
/// `std::unordered_set<Path>` and `std::unordered_map<Path, T>` keep
/// "README.txt" and "Readme.TXT" as one key.
///
/// The text is hashed code point by code point after simple case folding,
/// which is exactly the equivalence `==` applies to two path texts (both are
/// always decomposed, so composition needs no further step).
struct KELVO_FILESYSTEM_API PathHash {
    /// @returns the hash of the folded text of `path`; never fails.
    std::size_t operator()(Path const& path) const noexcept;
};

/// A strict weak ordering of paths whose equivalence is `==`, for
/// `std::set<Path, PathLess>`, `std::map<Path, T, PathLess>` and `std::sort`.
///
/// `operator<` on paths is not a strict weak ordering ("a" < "b" and
/// "b" < "Ba", yet not "a" < "Ba"), so ordered containers built on it may keep
/// equal names apart. `PathLess` orders by the case-folded code points of the
/// decomposed texts, a shorter text before a longer one it begins: "a" <
/// "B" < "c", and two paths are equivalent exactly when they are equal.
struct KELVO_FILESYSTEM_API PathLess {
    /// @returns true when `a` orders before `b`; never fails.
    bool operator()(Path const& a, Path const& b) const noexcept;
};

} // namespace kelvo::filesystem

namespace std {

/// `std::hash` of a path is `kelvo::filesystem::PathHash`: consistent with `==`.
template <>
struct hash<kelvo::filesystem::Path> : kelvo::filesystem::PathHash {
};

} // namespace std

#endif
