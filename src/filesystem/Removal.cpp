// Removal: single objects, whole trees through directory descriptors, and the entries of a directory whose names match a pattern.
#include <kelvo/filesystem/Operations.h>

#include <kelvo/filesystem/DirectoryIterator.h>

#include "PathInternal.h"
#include "TreeWalk.h"
#include "filesystem/posix/System.h"
#include "filesystem/posix/Tree.h"

#include <sys/stat.h>

namespace kelvo::filesystem {

namespace {

using detail::DescriptorListing;
using detail::ListedKind;
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

bool removeTreeAt(int parent, char const* name, bool followName);

// Empties the listed directory depth first and stops at the first failure.
// Entries are reached by the bytes the listing gave, and subdirectories are
// opened without following a link, so that a directory swapped for a link
// while the walk runs is never followed out of the tree.
bool removeListedEntries(DescriptorListing& listing)
{
    int const directory = listing.descriptor();
    while (dirent const* entry = listing.next()) {
        char const* name = entry->d_name;
        bool removed = false;
        switch (detail::listedKind(*entry)) {
        case ListedKind::directory:
        case ListedKind::directoryBit:
            // The followed status of a device or socket carries the directory
            // bit: it is treated as a directory that cannot be listed, whose
            // rmdir then fails.
            removed = removeTreeAt(directory, name, false);
            break;
        case ListedKind::other:
            removed = posix::unlinkAt(directory, name, false);
            break;
        case ListedKind::link:
            removed = removeEntry(directory, name);
            break;
        case ListedKind::unknown: {
            posix::ObjectInformation information;
            if (!posix::statAt(directory, name, false, information))
                return false;
            if ((information.mode & S_IFMT) == S_IFLNK)
                removed = removeEntry(directory, name);
            else if (isDirectoryMode(information.mode))
                removed = removeTreeAt(directory, name, false);
            else
                removed = posix::unlinkAt(directory, name, false);
            break;
        }
        }
        if (!removed)
            return false;
    }
    return true;
}

// Removes the directory `name` of `parent` with everything in it. A directory
// that cannot be opened lists nothing, so it goes only when it is empty.
bool removeTreeAt(int parent, char const* name, bool followName)
{
    int const flags = O_RDONLY | O_DIRECTORY | (followName ? 0 : O_NOFOLLOW);
    {
        DescriptorListing listing(posix::openAt(parent, name, flags));
        if (listing.isOpen() && !removeListedEntries(listing))
            return false;
    }
    return posix::unlinkAt(parent, name, true);
}

} // namespace

bool remove(Path const& path)
{
    char const* native = PathNativeAccess::cStringForChange(path);
    if (native == nullptr)
        return false;
    // One stat answers both whether the path exists and whether it is a
    // directory through its links, so a link to a directory goes to rmdir,
    // which refuses it, and a dangling link is never removed here.
    posix::FileInformation information;
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
    posix::FileInformation information;
    if (posix::getFileInformation(native, false, information) && isDirectoryMode(information.mode))
        return removeTreeAt(posix::kWorkingDirectory, native, false);
    return remove(path);
}

bool removeAllInDir(Path const& directory)
{
    char const* native = PathNativeAccess::cStringForChange(directory);
    if (native == nullptr)
        return false;
    return removeTreeAt(posix::kWorkingDirectory, native, true);
}

bool forEachMatching(Path const& directory, kelvo::unicode::String const& pattern,
                     std::function<bool(Path const&)> action)
{
    // Only the final name is matched, never the whole path.
    return forEach(directory, [&pattern, &action](Path const& entry) {
        if (!matchesGlobPattern(entry.filename(), pattern))
            return true;
        return action(entry);
    });
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
