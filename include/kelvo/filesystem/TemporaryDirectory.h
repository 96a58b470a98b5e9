// kelvo::filesystem temporary storage: the temporary-directory queries, TemporaryDirectory and the scope-bound reapers.
#ifndef KELVO_FILESYSTEM_TEMPORARY_DIRECTORY_H
#define KELVO_FILESYSTEM_TEMPORARY_DIRECTORY_H

#include <kelvo/export.h>
#include <kelvo/filesystem/Path.h>
#include <kelvo/text/String.h>

#include <chrono>

namespace kelvo::filesystem {

/// @returns the current temporary directory: the innermost live
/// `TemporaryDirectory` (or other override), else the operating system's.
KELVO_FILESYSTEM_API Path getTemporaryDirectory();

/// @returns the operating system's temporary directory, ignoring every
/// override: the value of the first of "TMPDIR", "TMP", "TEMP", "TEMPDIR"
/// that is set (kept: a variable set to the empty string gives the empty
/// path, see docs/odd-behaviours.md, 'An empty TMPDIR gives an empty path'),
/// else "/tmp". Nothing is checked on disk.
KELVO_FILESYSTEM_API Path getOSTemporaryDirectory();

/// Deletes one file (or empty directory) when it goes out of scope, unless
/// cancelled. Not copyable, since two owners would delete the same object.
class KELVO_FILESYSTEM_API PathReaper {
public:
    /// Arms the reaper for `path` (an empty path arms nothing).
    explicit PathReaper(Path const& path);
    /// Removes the path with `remove` when it is armed and exists; a failure
    /// is not reported. Never throws. Kept: a non-empty directory or a link
    /// to a directory stays (see docs/odd-behaviours.md, 'A PathReaper
    /// deletes with remove').
    ~PathReaper();

    PathReaper(PathReaper const&) = delete;
    PathReaper& operator=(PathReaper const&) = delete;

    /// Disarms the reaper for good: nothing is deleted.
    void cancel() noexcept;
    /// @returns the path to be deleted; empty once cancelled.
    Path const& get() const noexcept;

private:
    Path path;
};

/// Deletes a whole tree (or a file) when it goes out of scope, unless
/// cancelled. Not copyable.
class KELVO_FILESYSTEM_API DirectoryReaper {
public:
    /// Arms the reaper for `path` (an empty path arms nothing).
    explicit DirectoryReaper(Path const& path);
    /// Removes the path and everything below it with `removeAll` when it is
    /// armed and exists; a failure is not reported. Never throws.
    ~DirectoryReaper();

    DirectoryReaper(DirectoryReaper const&) = delete;
    DirectoryReaper& operator=(DirectoryReaper const&) = delete;

    /// Disarms the reaper for good: nothing is deleted.
    void cancel() noexcept;
    /// @returns the tree to be deleted; empty once cancelled.
    Path const& get() const noexcept;

private:
    Path path;
};

/// Makes a directory the process's current temporary directory for its
/// lifetime, and deletes it with everything in it when it ends.
///
/// What the destructor deletes: whatever is the current temporary directory
/// at that moment, not a directory the object remembers. It pops the
/// innermost override and deletes the directory that was current, contents
/// and all; that is the caller's own directory for the first constructor, and
/// it is the operating system's temporary directory itself (TMPDIR or /tmp,
/// with everything in it that can be deleted) when other code has already
/// popped the override. A program is safe when its `TemporaryDirectory`
/// objects are made and destroyed by one thread, strictly nested (the last
/// made is the first destroyed), and nothing else pops the overrides they
/// pushed. Not copyable. Kept: see docs/odd-behaviours.md, 'A
/// TemporaryDirectory deletes whatever is current when it dies'.
class KELVO_FILESYSTEM_API TemporaryDirectory {
public:
    /// Creates `path` with its parents when missing (a failure is not
    /// reported) and makes it the current temporary directory. No sweep and
    /// no unique name: the directory is deleted at the end, even though the
    /// caller supplied it.
    explicit TemporaryDirectory(Path const& path);

    /// Deletes the leftovers of earlier runs, then creates a fresh directory
    /// and makes it the current temporary directory. The leftovers are the
    /// entries of the current temporary directory whose names match `prefix`
    /// followed by "*" (glob syntax: "?" and "*" are wildcards and the other
    /// characters keep their regular-expression meaning) and whose
    /// modification time is more than `maxAge` ago, to the microsecond (see
    /// docs/odd-behaviours.md, 'The sweep deletes any old entry that matches
    /// the prefix'). The new directory is named `prefix` followed by a random
    /// unsigned 32-bit number in decimal, inside the current temporary
    /// directory.
    /// @throws std::regex_error when `prefix` followed by "*" is not a valid
    /// pattern; then nothing is deleted, created or pushed.
    TemporaryDirectory(kelvo::unicode::String const& prefix, std::chrono::microseconds maxAge);

    /// Pops the current temporary directory and deletes that directory with
    /// everything in it (see the class comment for which directory that is).
    /// Failures are not reported. Never throws.
    ~TemporaryDirectory();

    TemporaryDirectory(TemporaryDirectory const&) = delete;
    TemporaryDirectory& operator=(TemporaryDirectory const&) = delete;

    /// @returns the current temporary directory (the innermost live one, which
    /// is this object's own while objects are strictly nested).
    Path get() const;

    /// @returns a path under `base` named `prefix` followed by a random
    /// unsigned 32-bit number in decimal that did not exist when it was
    /// checked. Nothing is created, so another process may take the name
    /// before the caller does (see docs/odd-behaviours.md,
    /// 'makeUniqueTemporaryDirectory reserves nothing').
    ///
    /// Draws a fresh number until the name is free, with no limit on the
    /// number of attempts: the call returns only with a free name, so it
    /// would not return while every name it can draw is taken (see
    /// docs/odd-behaviours.md, 'makeUniqueTemporaryDirectory draws names
    /// without a limit'). A path whose
    /// native form holds a NUL byte names no file, so such a candidate (a
    /// `prefix` or `base` holding U+0000) is free at once; `createDirectories`
    /// and `removeAll` then refuse it, so a `TemporaryDirectory` made with such
    /// a prefix creates and deletes nothing.
    static Path makeUniqueTemporaryDirectory(Path const& base, kelvo::unicode::String const& prefix);

private:
    kelvo::unicode::String prefix;
};

} // namespace kelvo::filesystem

#endif
