// kelvo::filesystem::RecursiveDirectoryIterator and walkTree: a whole tree, entry by entry, with bounded descriptors, statuses only when asked, and a chosen policy for links, devices and failures.
#ifndef KELVO_FILESYSTEM_RECURSIVE_DIRECTORY_ITERATOR_H
#define KELVO_FILESYSTEM_RECURSIVE_DIRECTORY_ITERATOR_H

#include <kelvo/export.h>
#include <kelvo/filesystem/DirectoryIterator.h>
#include <kelvo/filesystem/Failure.h>
#include <kelvo/filesystem/Path.h>

#include <cstddef>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <vector>

namespace kelvo::filesystem {

/// When a directory is yielded relative to its contents.
enum class WalkOrder {
    directoryFirst, ///< a directory, then everything below it (the default)
    directoryLast,  ///< everything below a directory, then the directory
};

/// What a walk does after a failure: a directory that could not be listed
/// (opened or read), or a link loop met while following links.
enum class WalkFailurePolicy {
    /// The failure is kept in `failures()` and in the thread's failure record;
    /// the directory itself is still yielded, its contents are not, and the
    /// walk goes on with the next entry. The default.
    reportAndContinue,
    /// The failure is kept as above and the walk ends there.
    stop,
};

/// How a tree is walked. The defaults walk every level, in the system's
/// order within each directory, directory first, without following links.
struct WalkOptions {
    WalkOrder order = WalkOrder::directoryFirst;
    /// The deepest level yielded: the root's own entries are at depth 1, their
    /// entries at depth 2, and so on (the root itself is depth 0 and is not
    /// yielded). 0 yields nothing.
    std::size_t maxDepth = std::numeric_limits<std::size_t>::max();
    /// Directories on another file system than the root's are yielded but not
    /// entered.
    bool sameFileSystem = false;
    /// Symbolic links to directories are entered, and the root is followed
    /// when it is a link. A link that leads back to a directory being walked
    /// (the same device and inode) is yielded, not entered, and reported as a
    /// failure with the reason "Too many levels of symbolic links". Without
    /// it, every link is yielded as an entry of its own, and a root that is a
    /// link cannot be opened ("Not a directory").
    bool followSymbolicLinks = false;
    /// Within each directory, entries in `PathLess` order of their names
    /// (names equal that way, such as case or composition twins, in the
    /// order of their bytes); otherwise in the order the system lists them.
    bool sortedByName = false;
    WalkFailurePolicy onFailure = WalkFailurePolicy::reportAndContinue;
};

/// Walks a tree below a root, yielding each entry once (each object once per
/// path that reaches it), with its depth. Entries are the lazy entries of
/// `DirectoryIterator`: the name and the kind the listing reported, with the
/// statuses taken on the first call that needs them. The walk never recurses
/// on the machine stack and holds a bounded number of descriptors at any
/// depth; it never opens a FIFO, socket or device, so a special file never
/// blocks it: it enters only what the listing reports to be exactly a
/// directory (or, for a link it follows or an entry whose kind the listing
/// did not report, what the status says is one). Each directory is listed
/// whole when the walk enters it, so an entry deleted while the walk runs may
/// still be yielded, an entry added may or may not be, and none is yielded
/// twice. When the way back up to a directory no longer leads to the one the
/// walk came from (the tree was moved under it), the walk reports it
/// ("No such file or directory", on the path "..") and ends.
///
/// Paths: the root as it was given, joined with the names below it, each
/// built from the bytes the system listed (so an entry can be opened whatever
/// its encoding).
///
/// Copies share one walk: advancing one advances them all, as for any input
/// iterator. A root that cannot be opened as a directory gives an iterator
/// equal to the end at once, with `canIterate()` false and the reason in
/// `failures()`.
class KELVO_FILESYSTEM_API RecursiveDirectoryIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = DirectoryEntry;
    using difference_type = std::ptrdiff_t;
    using pointer = DirectoryEntry const*;
    using reference = DirectoryEntry const&;

    /// The end iterator.
    RecursiveDirectoryIterator() noexcept;
    /// Opens `root` and stands on its first entry (or at the end).
    explicit RecursiveDirectoryIterator(Path const& root, WalkOptions const& options = WalkOptions());

    /// Moves to the next entry; at the end, does nothing.
    RecursiveDirectoryIterator& operator++();

    DirectoryEntry const& operator*() const noexcept;
    DirectoryEntry const* operator->() const noexcept;

    /// @returns the depth of the current entry (1 for an entry of the root);
    /// 0 at the end.
    std::size_t depth() const noexcept;
    /// Leaves the current entry's contents out: when it is a directory that
    /// the walk would enter next, it is not entered. In `directoryLast` order
    /// the contents have already been yielded and this does nothing.
    void skipDirectory() noexcept;

    /// @returns true when the root was opened, also after the walk ended.
    bool canIterate() const noexcept;
    /// @returns the failures met so far, in the order they were met: each
    /// directory that could not be listed and each link loop not entered,
    /// with its path, the call and the reason.
    std::vector<Failure> const& failures() const noexcept;

    /// Iterators are equal when both are at the end, or when they share one
    /// walk.
    friend KELVO_FILESYSTEM_API bool operator==(RecursiveDirectoryIterator const& a,
                                                RecursiveDirectoryIterator const& b) noexcept;
    friend bool operator!=(RecursiveDirectoryIterator const& a, RecursiveDirectoryIterator const& b) noexcept
    {
        return !(a == b);
    }

private:
    struct Walk;
    std::shared_ptr<Walk> walk;
};

/// Range support: `for (DirectoryEntry const& entry : RecursiveDirectoryIterator(root))`.
inline RecursiveDirectoryIterator begin(RecursiveDirectoryIterator iterator) noexcept { return iterator; }
inline RecursiveDirectoryIterator end(RecursiveDirectoryIterator const&) noexcept
{
    return RecursiveDirectoryIterator();
}

/// What a `walkTree` callback asks of the walk after an entry.
enum class WalkAction {
    proceed,       ///< go on (entering the entry when it is a directory)
    skipDirectory, ///< go on, but do not enter this entry
    stop,          ///< end the walk now
};

/// Calls `visit` with each entry of the tree below `root` and its depth, in
/// the order and with the policies of `options`. `WalkAction::skipDirectory`
/// does nothing in `directoryLast` order, where the contents came first.
/// @returns true when the whole tree was walked: no callback answered `stop`
/// and no failure was met. Each failure met is appended to `failures` when it
/// is given (and is in the thread's failure record as it happens).
KELVO_FILESYSTEM_API bool walkTree(Path const& root, WalkOptions const& options,
                                   std::function<WalkAction(DirectoryEntry const& entry, std::size_t depth)> const& visit,
                                   std::vector<Failure>* failures = nullptr);

} // namespace kelvo::filesystem

#endif
