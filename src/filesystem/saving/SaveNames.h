// Internal: the names of a save's hidden files, how a stale one is told from a live one, and the resolution of the file a save replaces.
#ifndef KELVO_SRC_FILESYSTEM_SAVING_SAVE_NAMES_H
#define KELVO_SRC_FILESYSTEM_SAVING_SAVE_NAMES_H

#include "filesystem/posix/Saving.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace kelvo::filesystem::saving {

/// The longest name the directories here take, in bytes.
inline constexpr std::size_t kLongestName = 255;

/// The mark between a target's name and the random part of a hidden file.
inline constexpr char kHiddenMark[] = ".kelvo-save-";

/// How many random letters or digits end a hidden file's name.
inline constexpr std::size_t kRandomLength = 6;

/// @returns the part every hidden file of the target named `name` begins
/// with: "." + name + ".kelvo-save-", the name cut (by bytes) so that the
/// whole hidden name fits in `kLongestName`.
std::string hiddenPrefix(std::string_view name);

/// @returns a new hidden name for the target whose prefix is `prefix`, its
/// random part drawn from a per-thread generator.
std::string newHiddenName(std::string const& prefix);

/// @returns true when `entry` is a hidden file's name for the target whose
/// prefix is `prefix`: the prefix, then exactly `kRandomLength` ASCII letters
/// or digits.
bool isHiddenName(std::string_view entry, std::string_view prefix) noexcept;

/// Removes from the open directory `directory` every hidden file of
/// `prefix` that no live save holds: a regular file on which an exclusive
/// lock can be taken at once, still under its name when the lock is taken.
/// Failures are skipped (and recorded as every failure is).
/// @returns how many were removed.
std::size_t removeStaleHiddenFiles(int directory, std::string const& prefix) noexcept;

/// The file a save replaces, found by following links.
struct ResolvedTarget {
    std::string path;      ///< native bytes: the final target
    std::string directory; ///< its directory ("." for a bare name)
    std::string name;      ///< its name in that directory
    bool exists = false;   ///< a regular file is there
    posix::SavedObject object; ///< what it is, when it exists
};

/// Follows the symbolic links from `path` (native bytes, no NUL) to the file
/// a save of it replaces.
/// @returns true and fills `resolved` when that is a regular file or
/// nothing yet; false (with the failure recorded) for a directory, another
/// kind of object, a loop of links, a path ending in "/" or a failing
/// status.
bool resolveTarget(std::string const& path, ResolvedTarget& resolved);

} // namespace kelvo::filesystem::saving

#endif
