// Removal: single objects, whole trees walked through a bounded stack of directory descriptors, and the entries of a directory whose names match a pattern.
#include <kelvo/filesystem/Operations.h>

#include <kelvo/filesystem/DirectoryIterator.h>

#include "filesystem/path/PathInternal.h"
#include "filesystem/operations/TreeRemoval.h"
#include "filesystem/operations/TreeWalk.h"
#include "filesystem/status/ListedEntry.h"
#include "filesystem/transformations/GlobMatching.h"
#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/System.h"
#include "filesystem/posix/Tree.h"

#include <optional>
#include <vector>

namespace kelvo::filesystem {

namespace {

using detail::DirectoryStack;
using detail::Entered;
using detail::Listing;
using detail::ListedKind;
using detail::ObjectIdentity;
using detail::isDirectoryMode;

// Deletes what the entry `name` of the open directory `directory` names when
// it is not descended into, as `remove` of its path would: an entry that does
// not exist through its links (a dangling link) is kept and stops the walk;
// one whose followed status is a directory goes to rmdir, which refuses a link.
bool removeEntry(int directory, char const* name)
{
    posix::ObjectInformation information;
    if (!posix::statAt(directory, name, true, information))
        return false;
    return posix::unlinkAt(directory, name, isDirectoryMode(information.mode));
}

// What the walk does with one listed entry.
enum class Step {
    descend,     // a directory: empty it, then remove it
    unlink,      // a file, FIFO or character device: unlink it
    throughLink, // a link: decided by what it names, as `remove` decides
    fail,        // its kind could not be read
};

// Decides from the listing's kind, reading the entry's own status only when
// the listing did not say. The followed status of a block device or socket
// carries the directory bit: such an entry is treated as a directory that
// cannot be listed, whose rmdir then fails.
Step stepFor(int directory, char const* name, ListedKind kind)
{
    switch (kind) {
    case ListedKind::directory:
    case ListedKind::directoryBit:
        return Step::descend;
    case ListedKind::other:
        return Step::unlink;
    case ListedKind::link:
        return Step::throughLink;
    case ListedKind::unknown:
        break;
    }
    posix::ObjectInformation information;
    if (!posix::statAt(directory, name, false, information))
        return Step::fail;
    if (posix::kindOf(information.mode) == posix::ObjectKind::symbolicLink)
        return Step::throughLink;
    return isDirectoryMode(information.mode) ? Step::descend : Step::unlink;
}

// One directory of the walk: its whole listing, and how far through it the
// walk is. The listing is read before anything in it is deleted, so no
// directory stream stays open while the walk is below it.
struct ListedLevel {
    Listing listing;
    std::size_t next = 0;
};

// Lists the current directory of `stack` into `listing`; a failure's record
// names the directory.
void listCurrent(DirectoryStack const& stack, Listing& listing)
{
    if (!listing.read(stack.descriptor()))
        posix::setFailurePath(stack.pathOf(nullptr));
}

// Empties the directory open at the top of `stack`, depth first, and stops at
// the first failure. The walk is a loop over the stack of open directories,
// not a recursion, so any depth takes the same machine stack and at most the
// stack's bounded number of descriptors. Entries are reached by the bytes the
// listing gave, and subdirectories are entered without following a link and
// left through their checked "..", so that a directory swapped for a link or
// moved while the walk runs is never followed out of the tree: the step that
// meets the change fails, and the walk stops there.
bool emptyTree(DirectoryStack& stack)
{
    // A listing that cannot be read to its end gives what it read: the
    // directory's own rmdir then fails if anything was left unlisted, as it
    // does for a directory that cannot be listed at all.
    std::vector<ListedLevel> levels(1);
    listCurrent(stack, levels.back().listing);
    for (;;) {
        ListedLevel& level = levels.back();
        if (level.next == level.listing.size()) {
            if (levels.size() == 1)
                return true;
            // This directory is empty now: back up to its parent, which
            // removes it by the name it was listed under.
            if (!stack.leave())
                return false;
            levels.pop_back();
            ListedLevel const& parent = levels.back();
            char const* const emptied = parent.listing.name(parent.next - 1);
            if (!posix::unlinkAt(stack.descriptor(), emptied, true)) {
                posix::setFailurePath(stack.pathOf(emptied));
                return false;
            }
            continue;
        }
        std::size_t const index = level.next++;
        char const* name = level.listing.name(index);
        int const directory = stack.descriptor();
        unsigned long const failuresBefore = posix::failureCount();
        bool removed = false;
        switch (stepFor(directory, name, level.listing.kind(index))) {
        case Step::descend:
            switch (stack.enter(name, false)) {
            case Entered::entered:
                levels.emplace_back();
                listCurrent(stack, levels.back().listing);
                continue;
            case Entered::failed:
                // A directory that cannot be opened lists nothing: it goes
                // only when it is empty (and rmdir refuses what is no
                // directory).
                removed = posix::unlinkAt(directory, name, true);
                break;
            case Entered::loop:
                // Another way into a directory the walk is already in.
                removed = false;
                break;
            }
            break;
        case Step::unlink:
            removed = posix::unlinkAt(directory, name, false);
            break;
        case Step::throughLink:
            removed = removeEntry(directory, name);
            break;
        case Step::fail:
            removed = false;
            break;
        }
        if (!removed) {
            // The calls were made relative to the current directory: the
            // record names the entry by its whole path.
            if (posix::failureCount() != failuresBefore)
                posix::setFailurePath(stack.pathOf(name));
            return false;
        }
    }
}

// Removes the directory `name` of `parent` with everything in it, opened
// without following a final link unless `follow` is true. When `expected` is
// given, only that object is touched: a directory that is another object by
// now (swapped, replaced, or a link put in its place) is left alone and the
// answer is false. A directory that cannot be opened lists nothing, so it
// goes only when it is empty.
bool removeTreeAt(int parent, char const* name, bool follow, ObjectIdentity const* expected)
{
    {
        DirectoryStack stack;
        if (stack.open(parent, name, follow)) {
            if (expected != nullptr && stack.identity() != *expected)
                return false;
            if (!emptyTree(stack))
                return false;
        } else if (expected != nullptr) {
            posix::ObjectInformation information;
            if (!posix::statAt(parent, name, false, information) || detail::identityOf(information) != *expected)
                return false;
        }
    } // every descriptor of the walk is closed before the top goes
    return posix::unlinkAt(parent, name, true);
}

} // namespace

namespace detail {

bool removeTreeOf(char const* native, ObjectIdentity const& expected)
{
    return removeTreeAt(posix::kWorkingDirectory, native, false, &expected);
}

} // namespace detail

bool remove(Path const& path)
{
    char const* native = PathNativeAccess::cStringForChange(path);
    if (native == nullptr)
        return false;
    // One stat answers both whether the path exists and whether it is a
    // directory through its links, so a link to a directory goes to rmdir,
    // which refuses it, and a dangling link is never removed here.
    posix::ObjectInformation information;
    if (!posix::getFileInformation(native, true, information))
        return false;
    if (isDirectoryMode(information.mode))
        return posix::removeDirectory(native);
    return posix::removeObject(native);
}

bool removeDir(Path const& path)
{
    char const* native = PathNativeAccess::cStringForChange(path);
    return native != nullptr && posix::removeDirectory(native);
}

bool removeAll(Path const& path)
{
    char const* native = PathNativeAccess::cStringForChange(path);
    if (native == nullptr)
        return false;
    // The tree removed is the directory this status was read from, never
    // what a link put in its place afterwards would lead to.
    posix::ObjectInformation information;
    if (posix::statAt(posix::kWorkingDirectory, native, false, information) && isDirectoryMode(information.mode))
        return detail::removeTreeOf(native, detail::identityOf(information));
    return remove(path);
}

bool removeAllInDir(Path const& directory)
{
    char const* native = PathNativeAccess::cStringForChange(directory);
    if (native == nullptr)
        return false;
    // Called directly, a link to a directory is followed at the top: what it
    // names is emptied, and the final rmdir of the link fails.
    return removeTreeAt(posix::kWorkingDirectory, native, true, nullptr);
}

bool forEachMatching(Path const& directory, kelvo::unicode::String const& pattern,
                     std::function<bool(Path const&)> action)
{
    if (status(directory).getType() != FileType::directory)
        return false;

    // Only the final name is matched, never the whole path. A name of plain
    // ASCII bytes is matched as it was listed, and only a match gets a path;
    // no entry's status is taken. The pattern is prepared at the first entry,
    // so that an empty directory answers false without reading it, and again
    // when an action changed the global locale it depends on.
    std::optional<detail::PreparedGlob> glob;
    // Kept: an empty directory answers false (see docs/odd-behaviours.md,
    // 'forEach of an empty directory returns false').
    bool result = false;
    detail::forEachListedName(directory, [&](posix::ListedEntry const& entry) {
        if (!glob)
            glob.emplace(pattern);
        Path path;
        if (detail::PreparedGlob::isPlainName(entry.name, entry.length)) {
            if (!glob->matchesPlainName(entry.name, entry.length))
                return result = true;
            path = PathNativeAccess::joinListedName(directory, entry.name, entry.length);
        } else {
            path = PathNativeAccess::joinListedName(directory, entry.name, entry.length);
            if (!glob->matches(path.filename()))
                return result = true;
        }
        result = action(path);
        if (result && !glob->isCurrent())
            glob.emplace(pattern);
        return result;
    });
    return result;
}

bool removeMatching(Path const& directory, kelvo::unicode::String const& pattern)
{
    return forEachMatching(directory, pattern, [](Path const& entry) { return remove(entry); });
}

bool removeAllMatching(Path const& directory, kelvo::unicode::String const& pattern)
{
    return forEachMatching(directory, pattern, [](Path const& entry) { return removeAll(entry); });
}

} // namespace kelvo::filesystem
