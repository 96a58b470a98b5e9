// Internal: the engine behind RecursiveDirectoryIterator and walkTree, a loop over the shared directory stack that yields one entry per step.
#ifndef KELVO_SRC_FILESYSTEM_WALK_TREE_WALKER_H
#define KELVO_SRC_FILESYSTEM_WALK_TREE_WALKER_H

#include <kelvo/filesystem/RecursiveDirectoryIterator.h>

#include "filesystem/operations/TreeWalk.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kelvo::filesystem::detail {

/// Walks the tree below a root one entry per `advance`. The directories it
/// stands in are held by a `DirectoryStack` (a bounded number of
/// descriptors at any depth, ".." checked on the way up); each directory's
/// listing is read whole when it is entered, into a level kept for reuse, so
/// a walk allocates nothing per directory once it has been as deep before.
/// Nothing is recursive: the levels are a vector.
class TreeWalker {
public:
    /// Opens `root` (following a final link only when the options say so).
    /// When it cannot be opened, the walker is at its end at once and the
    /// reason is in `failures()`.
    TreeWalker(Path const& root, WalkOptions const& options);
    TreeWalker(TreeWalker const&) = delete;
    TreeWalker& operator=(TreeWalker const&) = delete;
    ~TreeWalker();

    /// @returns true when the root was opened.
    bool isOpen() const noexcept { return opened; }
    /// @returns true once the walk is over (or the root could not be opened).
    bool ended() const noexcept { return done; }

    /// Moves to the next entry.
    /// @returns true on an entry; false at the end, which stays the end.
    bool advance();

    /// The current entry; an empty entry before the first and after the last.
    DirectoryEntry const& entry() const noexcept { return current; }
    /// The depth of the current entry (1 for the root's own); 0 at the end.
    std::size_t depth() const noexcept { return done ? 0 : currentDepth; }

    /// The current entry's contents are left out: it is not entered.
    void skipCurrent() noexcept { pending.enter = false; }
    /// Ends the walk now, closing every descriptor it held.
    void stop() noexcept;

    /// The failures met so far, in order.
    std::vector<Failure> const& failures() const noexcept { return met; }

private:
    /// One directory being walked: its listing, where the walk is in it, and
    /// how to put its path back when the walk leaves it.
    struct Level {
        Listing listing;
        std::vector<std::uint32_t> order; // PathLess order of the listing, when sorted
        std::size_t next = 0;             // the next position in the listing (or in `order`)
        std::size_t textLength = 0;       // the length of the directory path's text before this level's name
        std::size_t nativeLength = 0;     // the same for its native form
        std::size_t index = 0;            // this directory's index in the level above's listing
        posix::ObjectKind kind = posix::ObjectKind::directory; // how the level above listed it
        bool carries = false;             // entry paths below carry their native form (it is not the text's)
    };

    /// What the walk knows of the entry it stands on, for the next step.
    struct Pending {
        std::size_t index = 0;
        posix::ObjectKind kind = posix::ObjectKind::unknown;
        bool enter = false;  // a directory the walk would enter next
        bool follow = false; // entered through a link
    };

    enum class Descent { entered, notEntered, stopped };

    Descent descend(std::size_t index, posix::ObjectKind kind, bool follow);
    bool ascend();
    bool leaveLevel(); // the stack back up one level; @returns false, the walk ended, when it cannot
    bool report(); // keeps the thread's last failure; @returns false when the walk must stop
    void listCurrent(Level& level);
    void sortListing(Level& level);
    void classify(Level const& level, std::size_t index, posix::ObjectKind& kind, bool& directory, bool& follow);
    void yield(Level const& level, std::size_t index, posix::ObjectKind kind, std::size_t depth);
    Path entryPath(Level const& level, std::size_t index);
    void finish() noexcept;

    WalkOptions options;
    std::unique_ptr<DirectoryStack> stack;
    std::vector<std::unique_ptr<Level>> levels; // levels[0] is the root; kept beyond `depthIn` for reuse
    std::size_t depthIn = 0;                      // how many of `levels` are in use
    kelvo::unicode::String directoryText;         // the current directory's path text
    std::string directoryNative;                  // and its native form
    kelvo::unicode::String decoded;               // room for decoding names that are not ASCII
    std::size_t directoryVersion = 0;             // changes whenever `directoryText` does
    std::size_t builtFor = std::size_t(-1);       // the version the current entry's path was built in
    std::size_t prefixLength = 0;                 // the length of that path's text up to its name
    std::size_t nativePrefixLength = 0;           // the same for its native form
    bool rootIsASCII = false;                     // the root's native form is ASCII (so is its text)
    std::uint64_t rootDevice = 0;
    DirectoryEntry current;
    std::size_t currentDepth = 0;
    Pending pending;
    std::vector<Failure> met;
    bool opened = false;
    bool done = true;
};

} // namespace kelvo::filesystem::detail

#endif
