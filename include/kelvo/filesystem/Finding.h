// kelvo::filesystem::findByName, findMatching and DiskUsageCounter: entries found under a root by name or shell pattern, and the room a tree takes on disk.
#ifndef KELVO_FILESYSTEM_FINDING_H
#define KELVO_FILESYSTEM_FINDING_H

#include <kelvo/export.h>
#include <kelvo/filesystem/DirectoryIterator.h>
#include <kelvo/filesystem/Failure.h>
#include <kelvo/filesystem/FileStatus.h>
#include <kelvo/filesystem/Path.h>
#include <kelvo/filesystem/RecursiveDirectoryIterator.h>
#include <kelvo/filesystem/ShellPattern.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace kelvo::filesystem {

// ---- Finding by name: Finding.cpp -------------------------------------------

/// How entries are looked for below a root.
struct FindOptions {
    /// How the tree is walked: depth, links, file systems, order, failures.
    WalkOptions walk;
    /// Only entries of this kind: `regularFile`, `directory` or
    /// `symbolicLink` (of the entry itself; when links are followed, of what
    /// a link leads to, a dangling link staying `symbolicLink`). `none`, the
    /// default, takes every kind.
    FileType type = FileType::none;
    /// For `findByName`: accents count for nothing either ("resume" finds
    /// "Résumé").
    bool ignoreAccents = false;
};

/// What a search callback receives and answers: the entry found (its path
/// is the root joined with the names below it) and its depth (1 for an
/// entry of the root).
using FoundCallback = std::function<WalkAction(DirectoryEntry const& entry, std::size_t depth)>;

/// Calls `found` with each entry below `root` whose name matches `pattern`
/// (and whose kind is `options.type`), in the walk's order. The answer
/// `skipDirectory` leaves a found directory's contents out; `stop` ends the
/// search. Names that do not match cost no status.
/// @returns true when the whole tree was searched: no callback answered
/// `stop` and no directory failed to be listed; each failure is appended to
/// `failures` when given (and is in the thread's failure record as it
/// happens). A root that cannot be opened is such a failure.
KELVO_FILESYSTEM_API bool forEachFound(Path const& root, ShellPattern const& pattern, FindOptions const& options,
                                       FoundCallback const& found, std::vector<Failure>* failures = nullptr);

/// @returns the paths of every entry below `root` whose name matches
/// `pattern` (and whose kind is `options.type`), in the walk's order; empty
/// when none does or the root cannot be opened. Failures are in
/// `failures` when given, and in the thread's failure record.
KELVO_FILESYSTEM_API std::vector<Path> findMatching(Path const& root, ShellPattern const& pattern,
                                                    FindOptions const& options = FindOptions(),
                                                    std::vector<Failure>* failures = nullptr);

/// @returns the paths of every entry below `root` whose name equals `name`
/// as paths compare: ignoring letter case and Unicode composition (and
/// accents, with `options.ignoreAccents`), so "readme.txt" finds
/// "README.TXT" and a decomposed "Résumé". Characters of `name` have no
/// pattern meaning ("*" is a star). Only the last element of `name` is
/// looked for.
KELVO_FILESYSTEM_API std::vector<Path> findByName(Path const& root, Path const& name,
                                                  FindOptions const& options = FindOptions(),
                                                  std::vector<Failure>* failures = nullptr);

// ---- Disk usage: DiskUsage.cpp ----------------------------------------------

/// Adds up the room trees take on disk (allocated blocks, not sizes: a
/// sparse file counts what it holds), counting an object with several names
/// once per counter, across every tree it measures. Links are not followed.
class KELVO_FILESYSTEM_API DiskUsageCounter {
public:
    DiskUsageCounter();
    ~DiskUsageCounter();
    DiskUsageCounter(DiskUsageCounter const&) = delete;
    DiskUsageCounter& operator=(DiskUsageCounter const&) = delete;

    /// Measures `root` (a directory with everything below it, or any other
    /// single object), calling `directoryMeasured` with each directory's
    /// path and total in bytes once its contents are counted (the root's
    /// last, when it is a directory).
    /// @returns the total bytes of `root`; -1 when `root` itself cannot be
    /// read. The failures met (unreadable directories, entries that vanished)
    /// are appended to `failures` when given; what could be counted still is.
    std::int64_t measure(Path const& root,
                         std::function<void(Path const& directory, std::int64_t bytes)> const& directoryMeasured,
                         std::vector<Failure>* failures = nullptr);

private:
    struct Seen;
    std::unique_ptr<Seen> seen;
};

} // namespace kelvo::filesystem

#endif
