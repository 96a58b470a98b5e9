// Copy, move, rename and links: file contents through descriptors (in the kernel where it can), trees through directory descriptors.
#include <kelvo/filesystem/Operations.h>

#include "CanonicalNative.h"
#include "PathInternal.h"
#include "TreeRemoval.h"
#include "TreeWalk.h"
#include "filesystem/posix/System.h"
#include "filesystem/posix/Tree.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>

#include <sys/stat.h>

namespace kelvo::filesystem {

namespace {

using detail::DescriptorListing;
using detail::ListedKind;
using detail::OwnedDescriptor;
using detail::isDirectoryMode;

constexpr std::size_t kCopyBufferSize = 32768;
constexpr std::uint32_t kDirectoryMode = 0777;
// The most one in-kernel copy call is asked for.
constexpr std::int64_t kLargestRange = 0x40000000;

#if defined(O_PATH)
// Destination directories are only named relative to, never read.
constexpr int kDestinationDirectoryFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW;
#else
constexpr int kDestinationDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;
#endif

// Reads and writes through one 32 KiB buffer until a read gives nothing. A
// failed read ends the copy as the end of the file does; a failed write fails
// it. After a short write the next one starts at the buffer position given by
// the count the previous write returned, not by the running total: this is
// how the copy has always resumed, and callers' files were made that way. A
// write that makes no progress fails rather than spinning.
bool copyByReading(int source, int destination)
{
    std::unique_ptr<char[]> const buffer(new char[kCopyBufferSize]());
    for (;;) {
        long const count = posix::readSome(source, buffer.get(), kCopyBufferSize);
        if (count <= 0)
            return true;
        long remaining = count;
        long position = 0;
        for (;;) {
            long const written = posix::writeSome(destination, buffer.get() + position,
                                                  static_cast<std::size_t>(remaining));
            if (written <= 0)
                return false;
            if (written >= remaining)
                break;
            remaining -= written;
            position = written;
        }
    }
}

// Copies `size` bytes of a regular file inside the kernel where it can; the
// rest, after any refusal or failure, goes through the buffer loop from where
// the in-kernel copy stopped, so that every failure is answered as the loop
// answers it.
bool copyContents(int source, int destination, posix::ObjectInformation const& information)
{
    if ((information.mode & S_IFMT) == S_IFREG && information.size > 0) {
        std::int64_t copied = 0;
        while (copied < information.size) {
            std::int64_t const wanted = std::min(information.size - copied, kLargestRange);
            long const count = posix::copyRange(source, destination, static_cast<std::size_t>(wanted));
            if (count <= 0)
                break;
            copied += count;
        }
        if (copied >= information.size)
            return true;
    }
    return copyByReading(source, destination);
}

// A descriptor that is not positive counts as a failure to close, as it
// always has; it is still closed.
bool closeChecked(OwnedDescriptor& descriptor)
{
    bool const positive = descriptor.get() > 0;
    return descriptor.close() && positive;
}

// Copies the file `fromName` of `fromDirectory` to `toName` of `toDirectory`.
// The new file gets the source's whole mode word as its creation mode (the
// system keeps the access bits less the umask); an existing one that is
// truncated keeps its own.
bool copyFileAt(int fromDirectory, char const* fromName, int extraSourceFlags,
                int toDirectory, char const* toName, bool failIfExists)
{
    OwnedDescriptor source(posix::openAt(fromDirectory, fromName, O_RDONLY | extraSourceFlags));
    if (!source.isOpen())
        return false;
    posix::ObjectInformation information;
    if (!posix::statDescriptor(source.get(), information) || isDirectoryMode(information.mode))
        return false;
    int const flags = O_WRONLY | O_CREAT | O_TRUNC | (failIfExists ? O_EXCL : 0);
    OwnedDescriptor destination(posix::openAt(toDirectory, toName, flags, information.mode));
    if (!destination.isOpen())
        return false;
    bool result = copyContents(source.get(), destination.get(), information);
    if (!closeChecked(source))
        result = false;
    if (!closeChecked(destination))
        result = false;
    return result;
}

// Makes an empty directory `name` in `toDirectory` as `createDirectory` does:
// a success when something is there already, a failure when the full path
// would not fit the system's limits.
bool makeEmptyDirectoryAt(int toDirectory, char const* name, Path const& toPath)
{
    posix::ObjectInformation information;
    if (posix::statAt(toDirectory, name, true, information))
        return true;
    if (!isValidDirectoryPathLength(toPath / Path(name)))
        return false;
    return posix::makeDirectoryAt(toDirectory, name, kDirectoryMode);
}

bool copyListed(DescriptorListing& listing, int toDirectory, Path const& toPath, bool recursive);

// Copies the subdirectory `name` with its contents into a new directory of
// the same name. A source that cannot be opened lists nothing: its copy is
// the empty directory.
bool copySubdirectoryAt(int fromDirectory, char const* name, bool followLink, int toDirectory, Path const& toPath)
{
    if (!posix::makeDirectoryAt(toDirectory, name, kDirectoryMode))
        return false;
    DescriptorListing listing(posix::openAt(fromDirectory, name, O_RDONLY | O_DIRECTORY | (followLink ? 0 : O_NOFOLLOW)));
    if (!listing.isOpen())
        return true;
    OwnedDescriptor destination(posix::openAt(toDirectory, name, kDestinationDirectoryFlags));
    if (!destination.isOpen())
        return false;
    return copyListed(listing, destination.get(), toPath, true);
}

// Copies every entry of the listing into `toDirectory`, carrying on after a
// failure. Links in the tree are followed (a link to a directory is copied as
// a directory); an entry the listing reported as a directory or file is
// opened without following, so that one swapped for a link while the copy
// runs is never followed out of the tree.
bool copyListed(DescriptorListing& listing, int toDirectory, Path const& toPath, bool recursive)
{
    int const fromDirectory = listing.descriptor();
    bool result = true;
    while (dirent const* entry = listing.next()) {
        char const* name = entry->d_name;
        ListedKind kind = detail::listedKind(*entry);
        bool isDirectory = false;
        bool followLink = false;
        if (kind == ListedKind::unknown) {
            posix::ObjectInformation information;
            if (posix::statAt(fromDirectory, name, false, information) && (information.mode & S_IFMT) != S_IFLNK)
                kind = isDirectoryMode(information.mode) ? ListedKind::directory : ListedKind::other;
            else
                kind = ListedKind::link;
        }
        switch (kind) {
        case ListedKind::directory:
        case ListedKind::directoryBit:
            isDirectory = true;
            break;
        case ListedKind::link: {
            followLink = true;
            posix::ObjectInformation information;
            isDirectory = posix::statAt(fromDirectory, name, true, information) && isDirectoryMode(information.mode);
            break;
        }
        case ListedKind::other:
        case ListedKind::unknown:
            break;
        }

        bool copied;
        if (isDirectory && recursive)
            copied = copySubdirectoryAt(fromDirectory, name, followLink, toDirectory, toPath);
        else if (isDirectory)
            copied = makeEmptyDirectoryAt(toDirectory, name, toPath);
        else
            copied = copyFileAt(fromDirectory, name, followLink ? 0 : O_NOFOLLOW, toDirectory, name, true);
        result = copied && result;
    }
    return result;
}

} // namespace

bool createSymbolicLink(Path const& target, Path const& link)
{
    char const* targetNative = PathNativeAccess::cStringForChange(target);
    char const* linkNative = PathNativeAccess::cStringForChange(link);
    return targetNative != nullptr && linkNative != nullptr && posix::makeSymbolicLink(targetNative, linkNative);
}

bool rename(Path const& from, Path const& to)
{
    char const* fromNative = PathNativeAccess::cStringForChange(from);
    char const* toNative = PathNativeAccess::cStringForChange(to);
    return fromNative != nullptr && toNative != nullptr && posix::renameObject(fromNative, toNative);
}

bool copyFile(Path const& from, Path const& to, bool failIfExists)
{
    char const* fromNative = PathNativeAccess::cStringForChange(from);
    char const* toNative = PathNativeAccess::cStringForChange(to);
    if (fromNative == nullptr || toNative == nullptr)
        return false;
    if (failIfExists && exists(to))
        return false;
    // The source's kind is read from its open descriptor: a directory is
    // refused there, before anything is created.
    if (!copyFileAt(posix::kWorkingDirectory, fromNative, 0, posix::kWorkingDirectory, toNative, failIfExists))
        return false;
    return exists(to);
}

bool copySymbolicLink(Path const& from, Path const& to, bool failIfExists)
{
    char const* fromNative = PathNativeAccess::cStringForChange(from);
    if (fromNative == nullptr || PathNativeAccess::cStringForChange(to) == nullptr)
        return false;
    // The library's classification: a regular file or a device passes too.
    if (symbolicLinkStatus(from).getType() != FileType::symbolicLink)
        return false;
    if (exists(to)) {
        if (failIfExists)
            return false;
        if (!remove(to))
            return false;
    }
    // The new link holds the resolved canonical path of what the source
    // names, not the source's own text, so that it stays right wherever it is
    // made. An empty answer is not caught here: making the link then fails.
    Path const target = canonicalNative(PathNativeAccess::native(from));
    if (target == from)
        return false;
    return createSymbolicLink(target, to);
}

namespace {

// copyDirectory, telling `source` (when given) which directory it listed:
// a move deletes that directory and no other.
bool copyDirectoryReporting(Path const& from, Path const& to, bool recursive,
                            std::optional<detail::ObjectIdentity>* source)
{
    char const* fromNative = PathNativeAccess::cStringForChange(from);
    char const* toNative = PathNativeAccess::cStringForChange(to);
    if (fromNative == nullptr || toNative == nullptr)
        return false;
    posix::FileInformation information;
    if (!posix::getFileInformation(fromNative, true, information))
        return false;
    // Never into an existing destination, whatever the flag.
    if (exists(to))
        return false;
    if (!isDirectoryMode(information.mode))
        return false;
    if (!createDirectories(to))
        return false;

    DescriptorListing listing(posix::openAt(posix::kWorkingDirectory, fromNative, O_RDONLY | O_DIRECTORY));
    if (!listing.isOpen())
        return true; // nothing listed, nothing to copy
    if (posix::ObjectInformation listed; source != nullptr && posix::statDescriptor(listing.descriptor(), listed))
        *source = detail::identityOf(listed);
    OwnedDescriptor destination(posix::openAt(posix::kWorkingDirectory, toNative, kDestinationDirectoryFlags));
    if (!destination.isOpen())
        return listing.next() == nullptr; // every entry would fail to be made
    return copyListed(listing, destination.get(), to, recursive);
}

} // namespace

bool copyDirectory(Path const& from, Path const& to, bool recursive)
{
    return copyDirectoryReporting(from, to, recursive, nullptr);
}

bool copy(Path const& from, Path const& to)
{
    switch (status(from).getType()) {
    case FileType::directory:
        return copyDirectory(from, to, true);
    case FileType::symbolicLink:
        // Not reached while the status follows links; kept for a status that
        // one day reports the link itself.
        return copySymbolicLink(from, to, true);
    default:
        return copyFile(from, to, true);
    }
}

bool move(Path const& from, Path const& to)
{
    if (rename(from, to))
        return true;
    if (PathNativeAccess::cStringForChange(from) == nullptr || PathNativeAccess::cStringForChange(to) == nullptr)
        return false;
    // The directory the copy listed, if it listed one.
    std::optional<detail::ObjectIdentity> copiedDirectory;
    bool copied;
    switch (status(from).getType()) {
    case FileType::directory:
        copied = copyDirectoryReporting(from, to, true, &copiedDirectory);
        break;
    case FileType::symbolicLink:
        copied = copySymbolicLink(from, to, true); // not reached, as for copy
        break;
    default:
        copied = copyFile(from, to, true);
        break;
    }
    if (!copied)
        return false;
    // The source is deleted only as the directory that was copied: one that
    // another directory or a link has taken the place of since the copy is
    // left alone (false), and the final name is never followed, so that a
    // link put there cannot lead the deletion out of the source.
    char const* fromNative = PathNativeAccess::cStringForChange(from);
    posix::ObjectInformation information;
    if (!posix::statAt(posix::kWorkingDirectory, fromNative, false, information) || !isDirectoryMode(information.mode))
        return remove(from);
    detail::ObjectIdentity const found = detail::identityOf(information);
    if (copiedDirectory && *copiedDirectory != found)
        return false;
    return detail::removeTreeOf(fromNative, found);
}

} // namespace kelvo::filesystem
