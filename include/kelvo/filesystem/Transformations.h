// Computations on paths: dots and completion, length limits, glob matching, sanitised and DOS names, elided display paths and name correction; their code is in src/filesystem/transformations/, one file per group below.
#ifndef KELVO_FILESYSTEM_TRANSFORMATIONS_H
#define KELVO_FILESYSTEM_TRANSFORMATIONS_H

#include <kelvo/export.h>
#include <kelvo/filesystem/Path.h>

#include <cstdint>

namespace kelvo::filesystem {

// ---- Dots and completion: DotResolution.cpp ---------------------------------

/// @returns the real, absolute form of `path` with every symbolic link, "."
/// and ".." resolved by the system; an empty path when an element is missing
/// or cannot be searched, or the links loop.
KELVO_FILESYSTEM_API Path canonical(Path const& path);

/// Removes "." and ".." elements. Each prefix that exists on disk is replaced
/// by its real form as the walk goes, so ".." after a symbolic link leads to
/// the parent of the link's target; past the existing prefix the rest is
/// handled as text. A ".." with nothing before it (or right after the root)
/// is dropped. A trailing separator of `path` is kept.
/// Kept: a ".." right after the root empties what came before, so "/../a"
/// gives "a" (see docs/odd-behaviours.md, 'resolveDots does not stop at the
/// root').
/// @returns the resolved path; empty for an empty `path` (and for one whose
/// dots climb out of everything, such as "/..").
KELVO_FILESYSTEM_API Path resolveDots(Path const& path);

/// @returns `base / path` for a relative `path` and a complete `base`; `path`
/// unchanged when it is empty, complete or has a root name, or when `base` is
/// not complete, with no error (see docs/odd-behaviours.md, 'complete with a
/// relative base does nothing').
KELVO_FILESYSTEM_API Path complete(Path const& path, Path const& base);

/// @returns `path` completed against the current directory; `path` unchanged
/// when it is complete or the current directory cannot be found.
KELVO_FILESYSTEM_API Path systemComplete(Path const& path);

// ---- Length limits: PathLimits.cpp ------------------------------------------

/// Accepts the flag and does nothing: the limits come from the system at
/// each call (see docs/odd-behaviours.md, 'setUseLongPathNames does
/// nothing').
KELVO_FILESYSTEM_API void setUseLongPathNames(bool useLongPathNames);

/// @returns the longest path in native bytes, as the system answers for "/"
/// at this call (32767 when it answers more than 2147483647; -1 when it sets
/// no limit or fails).
KELVO_FILESYSTEM_API std::int32_t getMaxNativeStringPathLength();

/// @returns the longest directory path in native bytes: the path limit less
/// 25 bytes kept for the names inside (32742 for a very large limit, -26 when
/// the system sets none).
KELVO_FILESYSTEM_API std::int32_t getMaxNativeStringDirectoryLength();

/// @returns the longest name in native bytes inside the directory of `path`
/// (`path` itself when it is "/"), as the system answers at this call; the
/// root's answer when that directory does not exist; 255 for an answer above
/// 2147483647; -1 when the system sets no limit or fails.
KELVO_FILESYSTEM_API std::int32_t getMaxNativeStringNameLength(Path const& path);

/// Checks the native length of `path` against the directory path limit and
/// the length of each name that does not exist yet against the name limit.
/// With `checkParent`, whether the parent exists is found out (replacing
/// `parentExists`) and an existing parent is measured in its real,
/// link-free form.
/// @returns true when the path fits (or the system sets no limit: a
/// `pathconf` answer of -1 passes everything, see docs/odd-behaviours.md,
/// 'setUseLongPathNames does nothing'); false when the path or one of its
/// new names is too long.
KELVO_FILESYSTEM_API bool isValidPathLengthC(Path const& path, bool checkParent, bool parentExists);

/// @returns `isValidPathLengthC(path, true, false)`.
KELVO_FILESYSTEM_API bool isValidPathLength(Path const& path);

/// @returns true when a directory can be made at `path` as far as lengths go:
/// `path`, with its existing parent in real form, passes `isValidPathLengthC`
/// and is shorter than the path limit; false otherwise.
KELVO_FILESYSTEM_API bool isValidDirectoryPathLength(Path const& path);

// ---- Glob patterns: GlobMatching.cpp, GlobAutomaton.cpp ---------------------

/// Matches the whole text of `path` against `pattern`, in which "?" stands for
/// one character and "*" for any run. Nothing is escaped: every other
/// character keeps its meaning in an ECMAScript expression, so "." matches any
/// character, "[a-z]" is a class and "(", "+", "{", "|", "^", "$" and "\" are
/// operators. Matching is case-sensitive; the line terminators U+000A, U+000D,
/// U+2028 and U+2029 are matched only literally. The answer is that of
/// `std::regex_match` on a `std::wregex` of the expression, found in time
/// linear in the path's length and without deep recursion, except for
/// expressions with a back-reference, groups nested more than 128 deep or a
/// count of more than nine digits: those are matched by the standard engine,
/// which recurses once per character (on a thread whose stack is sized to a
/// long path, never on the caller's), and can take time exponential in the
/// path's length.
/// Kept: only "?" and "*" are rewritten (see docs/odd-behaviours.md, 'Glob
/// patterns are regular expressions in disguise').
/// @returns true when the whole path matches; false when it does not, when
/// the expression engine gives up while matching, or when the expression is
/// left to the engine and the path is longer than about 260,000 code points.
/// @throws std::regex_error, on every call, for a pattern that is not a valid
/// expression (an unbalanced "(" or "[", a trailing "\"), or one the engine
/// refuses as too large (about 100,000 states, or a million characters).
KELVO_FILESYSTEM_API bool matchesGlobPattern(Path const& path, kelvo::unicode::String const& pattern);

// ---- Sanitised and DOS 8.3 names: SanitizedNames.cpp ------------------------

/// Replaces, one for one, every character of `path` other than ASCII letters
/// and digits, "/", the space and !#$&'()-@^_`{}~. by "_" (combining marks of
/// a decomposed letter included): kept, so "é" becomes "e_" (see
/// docs/odd-behaviours.md, 'sanitize turns accents into "_"').
/// @returns the sanitised path, of the same shape and length.
KELVO_FILESYSTEM_API Path sanitize(Path const& path);

/// Turns the last element of `path` into an upper-case DOS short name of at
/// most eight characters, a dot and three, and numbers it "~1", "~2", ...
/// until it names nothing beside `path`. Kept: what cannot be kept is
/// dropped, a taken name is padded with "_" before its "~N", and the search
/// has no upper bound (see docs/odd-behaviours.md, 'toDos8Dot3 drops what it
/// cannot keep').
/// @returns the parent of `path` joined with the short name ("FILE" when no
/// character of the name is kept).
KELVO_FILESYSTEM_API Path toDos8Dot3(Path const& path);

// ---- Elided display paths: ElidedPath.cpp -----------------------------------

/// Shortens `path` for display in `maxLength` characters: the first and the
/// last element are kept whatever their length, elements next to them while
/// they fit, and the dropped run in between becomes `ellipsis` between two
/// "/". Kept: a path of exactly `maxLength` characters is still shortened,
/// and the result may exceed `maxLength` (see docs/odd-behaviours.md,
/// 'generateElidedPath may exceed the limit').
/// @returns the text of `path` when it is shorter than `maxLength` or nothing
/// had to be dropped; otherwise head, "/", ellipsis, "/", tail (longer than
/// `maxLength` when the first and last elements alone are).
KELVO_FILESYSTEM_API kelvo::unicode::String generateElidedPath(Path const& path, unsigned long maxLength,
                                                               kelvo::unicode::String const& ellipsis);

// ---- Name case and composition: NameCorrection.cpp --------------------------

/// Finds the spelling of `path` on disk, ignoring letter case and Unicode
/// composition, by listing directories. With `checkAll` false an existing path
/// and existing ancestors are trusted; with it true every element is looked up
/// from the root down. Kept: a directory that cannot be listed keeps the
/// element as given, and when several entries match the first listed wins
/// (see docs/odd-behaviours.md, 'Name correction reports success for a
/// directory it cannot list').
/// @returns the on-disk spelling, whose native bytes are those of the names
/// listed; an empty path when an element has no match.
KELVO_FILESYSTEM_API Path findSimilarName(Path const& path, bool checkAll);

/// Replaces `path` by its spelling on disk, as `findSimilarName` finds it.
/// @returns true when `path` now holds that spelling (or already existed,
/// with `checkAll` false); false, leaving `path` unchanged, when none is found.
KELVO_FILESYSTEM_API bool correctFileCaseAndComposition(Path& path, bool checkAll);

} // namespace kelvo::filesystem

#endif
