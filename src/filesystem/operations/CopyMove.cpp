// Copy, move, rename and links: file contents through descriptors (in the kernel where it can), trees through a stack of directory descriptors.
#include <kelvo/filesystem/Operations.h>

#include "filesystem/transformations/CanonicalNative.h"
#include "filesystem/operations/CopyInternal.h"
#include "filesystem/path/PathInternal.h"
#include "filesystem/operations/SourceReading.h"
#include "filesystem/operations/TreeRemoval.h"
#include "filesystem/operations/TreeWalk.h"
#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/System.h"
#include "filesystem/posix/Tree.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>

namespace kelvo::filesystem {

namespace {

using detail::DirectoryStack;
using detail::Entered;
using detail::ListedKind;
using detail::ObjectIdentity;
using detail::OwnedDescriptor;
using detail::SourceReader;
using detail::isDirectoryMode;

constexpr std::size_t kCopyBufferSize = 32768;
constexpr std::uint32_t kDirectoryMode = 0777;
// The most one in-kernel copy call is asked for.
constexpr std::int64_t kLargestRange = 0x40000000;

// Reads and writes through one 32 KiB buffer until a read gives nothing. A
// failed read ends the copy as the end of the file does; a failed write fails
// it. Kept: after a short write the next one starts at the buffer position
// given by the count the previous write returned, not by the running total
// (see docs/odd-behaviours.md, '`copyFile` reports a read error as success').
// A write that makes no progress fails rather than spinning. A source cut short
// at the reader's bound (a device that never ends) fails the copy too.
bool copyByReading(SourceReader& source, int destination)
{
    std::unique_ptr<char[]> const buffer(new char[kCopyBufferSize]());
    for (;;) {
        long const count = source.read(buffer.get(), kCopyBufferSize);
        if (count <= 0)
            return !source.cutShort();
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
    if (posix::kindOf(information.mode) == posix::ObjectKind::regularFile && information.size > 0) {
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
    SourceReader reader(source, information.mode);
    return copyByReading(reader, destination);
}

// A descriptor that is not positive (0, taken when the standard input was
// closed) counts as a failure to close; it is still closed.
bool closeChecked(OwnedDescriptor& descriptor)
{
    bool const positive = descriptor.get() > 0;
    return descriptor.close() && positive;
}

// Copies the file `fromName` of `fromDirectory` to `toName` of `toDirectory`.
// The source is opened without waiting on it (a FIFO with no writer, a
// device), and read with a bound when it is no regular file. The new file
// gets the source's whole mode word as its creation mode (the system keeps
// the access bits less the umask); an existing one that is truncated keeps
// its own.
//
// When the names are relative to the directories of a walk, the walk's
// stacks are given, so that a failure's record names the entry on the side
// that failed by its whole path.
bool copyFileAt(int fromDirectory, char const* fromName, bool followSource,
                int toDirectory, char const* toName, bool failIfExists,
                DirectoryStack const* fromStack = nullptr, DirectoryStack const* toStack = nullptr)
{
    auto const nameSource = [&] {
        if (fromStack != nullptr)
            posix::setFailurePath(fromStack->pathOf(fromName));
    };
    auto const nameDestination = [&] {
        if (toStack != nullptr)
            posix::setFailurePath(toStack->pathOf(toName));
        else
            posix::setFailurePath(toName);
    };
    posix::ObjectInformation information;
    OwnedDescriptor source(detail::openSource(fromDirectory, fromName, followSource, information));
    if (!source.isOpen()) {
        nameSource();
        return false;
    }
    if (isDirectoryMode(information.mode))
        return false;
    posix::OpenIntent const intent = failIfExists ? posix::OpenIntent::createNew : posix::OpenIntent::replaceContent;
    OwnedDescriptor destination(posix::openAt(toDirectory, toName, intent, true, information.mode));
    if (!destination.isOpen()) {
        nameDestination();
        return false;
    }
    unsigned long const failuresBefore = posix::failureCount();
    bool result = copyContents(source.get(), destination.get(), information);
    if (!result && posix::failureCount() != failuresBefore)
        nameDestination(); // a failed write is what fails the contents' copy
    if (!closeChecked(source)) {
        nameSource();
        result = false;
    }
    if (!closeChecked(destination)) {
        nameDestination();
        result = false;
    }
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

// One directory of the source the copy stands in: its whole listing, read
// when the copy entered it, and the next entry to copy.
struct CopyLevel {
    detail::Listing listing;
    std::size_t next = 0;
};

// Copies a tree without recursion: the source and the copy are each walked
// through a stack of directory descriptors (so any depth takes a bounded
// number of them), the source's listings are read whole on the way down, and
// the copy's directories are made with mkdirat and entered without following
// links.
class TreeCopy {
public:
    TreeCopy(Path const& from, Path const& to, bool recursive, std::vector<Path>* unreadable)
        : from(from), to(to), recursive(recursive), unreadable(unreadable)
    {
    }

    bool run(char const* fromNative, char const* toNative, std::optional<ObjectIdentity>* copiedSource);

private:
    bool copyEntry(char const* name, ListedKind kind);
    bool copySubdirectory(std::string const& name, bool followLink);
    bool leaveLevel();
    void reportUnreadable(char const* name);

    Path const& from;
    Path const& to;
    bool const recursive;
    std::vector<Path>* const unreadable;
    DirectoryStack source;
    DirectoryStack destination;
    std::deque<CopyLevel> levels;    // one per source directory entered
    std::vector<std::string> trail;  // the names that led from `from` down to the current level
    std::unordered_set<ObjectIdentity, detail::ObjectIdentityHash> made; // the copy's own directories
    bool stopped = false; // the tree changed under the walk, which cannot go on
};

// Names `name` of the current level (or the current level itself, for a null
// name) as a directory that could not be listed.
void TreeCopy::reportUnreadable(char const* name)
{
    if (unreadable == nullptr)
        return;
    Path path = from;
    for (std::string const& step : trail)
        path = path / Path(step);
    if (name != nullptr)
        path = path / Path(name);
    unreadable->push_back(std::move(path));
}

bool TreeCopy::run(char const* fromNative, char const* toNative, std::optional<ObjectIdentity>* copiedSource)
{
    if (!source.open(posix::kWorkingDirectory, fromNative, true)) {
        // A directory that cannot be opened lists nothing: its copy is the
        // empty directory already made.
        reportUnreadable(nullptr);
        return true;
    }
    if (copiedSource != nullptr)
        *copiedSource = source.identity();
    levels.emplace_back();
    if (!levels.back().listing.read(source.descriptor())) {
        posix::setFailurePath(source.pathOf(nullptr));
        reportUnreadable(nullptr);
    }
    if (!destination.open(posix::kWorkingDirectory, toNative, false))
        return levels.back().listing.empty(); // every entry would fail to be made
    made.insert(destination.identity());

    bool result = true;
    while (!stopped) {
        CopyLevel& level = levels.back();
        if (level.next == level.listing.size()) {
            if (levels.size() == 1)
                return result;
            if (!leaveLevel())
                return false; // the tree changed under the copy: it cannot go on
            continue;
        }
        std::size_t const index = level.next++;
        result = copyEntry(level.listing.name(index), level.listing.kind(index)) && result;
    }
    return false;
}

// Goes back up one level on both sides.
bool TreeCopy::leaveLevel()
{
    if (!source.leave() || !destination.leave())
        return false;
    levels.pop_back();
    trail.pop_back();
    return true;
}

// Copies one entry of the current level. Links in the tree are followed (a
// link to a directory is copied as a directory); an entry the listing
// reported as a directory or file is opened without following, so that one
// swapped for a link while the copy runs is never followed out of the tree.
bool TreeCopy::copyEntry(char const* name, ListedKind kind)
{
    int const fromDirectory = source.descriptor();
    if (kind == ListedKind::unknown) {
        posix::ObjectInformation information;
        if (posix::statAt(fromDirectory, name, false, information)
            && posix::kindOf(information.mode) != posix::ObjectKind::symbolicLink)
            kind = isDirectoryMode(information.mode) ? ListedKind::directory : ListedKind::other;
        else
            kind = ListedKind::link;
    }
    bool isDirectory = false;
    bool followLink = false;
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
    if (isDirectory && recursive)
        return copySubdirectory(name, followLink); // by value: the level's listing may move
    if (isDirectory) {
        unsigned long const failuresBefore = posix::failureCount();
        if (makeEmptyDirectoryAt(destination.descriptor(), name, to))
            return true;
        if (posix::failureCount() != failuresBefore)
            posix::setFailurePath(destination.pathOf(name));
        return false;
    }
    return copyFileAt(fromDirectory, name, followLink, destination.descriptor(), name, true, &source, &destination);
}

// Enters the subdirectory `name` on both sides, its copy made first; the walk
// then copies its entries before the rest of the current level.
bool TreeCopy::copySubdirectory(std::string const& name, bool followLink)
{
    switch (source.enter(name.c_str(), followLink)) {
    case Entered::loop:
        // A link back to a directory the copy stands in: copying it would
        // never end, so the entry fails and nothing is made for it.
        return false;
    case Entered::failed:
        if (posix::lastFailureReason() == posix::FailureReason::missing)
            return false; // gone since it was listed
        // A directory that cannot be opened lists nothing: its copy is an
        // empty directory.
        reportUnreadable(name.c_str());
        if (posix::makeDirectoryAt(destination.descriptor(), name.c_str(), kDirectoryMode))
            return true;
        posix::setFailurePath(destination.pathOf(name.c_str()));
        return false;
    case Entered::entered:
        break;
    }
    // The copy's own directories are never copied into themselves (a copy
    // made inside its source would otherwise grow as it is read).
    unsigned long const failuresBefore = posix::failureCount();
    bool copied = made.count(source.identity()) == 0
        && posix::makeDirectoryAt(destination.descriptor(), name.c_str(), kDirectoryMode)
        && destination.enter(name.c_str(), false) == Entered::entered;
    if (!copied) {
        if (posix::failureCount() != failuresBefore)
            posix::setFailurePath(destination.pathOf(name.c_str()));
        if (!source.leave())
            stopped = true; // the source changed under the copy
        return false;
    }
    made.insert(destination.identity());
    levels.emplace_back();
    trail.push_back(name);
    if (!levels.back().listing.read(source.descriptor())) {
        posix::setFailurePath(source.pathOf(nullptr));
        reportUnreadable(nullptr);
    }
    return true;
}

} // namespace

namespace detail {

bool copyDirectoryReporting(Path const& from, Path const& to, bool recursive,
                            std::optional<ObjectIdentity>* copiedSource, std::vector<Path>* unreadable)
{
    char const* fromNative = PathNativeAccess::cStringForChange(from);
    char const* toNative = PathNativeAccess::cStringForChange(to);
    if (fromNative == nullptr || toNative == nullptr)
        return false;
    posix::ObjectInformation information;
    if (!posix::getFileInformation(fromNative, true, information))
        return false;
    // Never into an existing destination, whatever the flag.
    if (exists(to))
        return false;
    if (!isDirectoryMode(information.mode))
        return false;
    if (!createDirectories(to))
        return false;
    return TreeCopy(from, to, recursive, unreadable).run(fromNative, toNative, copiedSource);
}

} // namespace detail

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
    if (!copyFileAt(posix::kWorkingDirectory, fromNative, true, posix::kWorkingDirectory, toNative, failIfExists))
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

bool copyDirectory(Path const& from, Path const& to, bool recursive)
{
    return detail::copyDirectoryReporting(from, to, recursive, nullptr, nullptr);
}

bool copyDirectory(Path const& from, Path const& to, bool recursive, std::vector<Path>& unreadable)
{
    unreadable.clear();
    return detail::copyDirectoryReporting(from, to, recursive, nullptr, &unreadable);
}

bool copy(Path const& from, Path const& to)
{
    switch (status(from).getType()) {
    case FileType::directory:
        return copyDirectory(from, to, true);
    case FileType::symbolicLink:
        // Kept: status follows links, so this branch is not taken today (see
        // docs/odd-behaviours.md, 'Copies follow links').
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
        copied = detail::copyDirectoryReporting(from, to, true, &copiedDirectory, nullptr);
        break;
    case FileType::symbolicLink:
        // Kept: status follows links, so this branch is not taken today (see
        // docs/odd-behaviours.md, 'Copies follow links').
        copied = copySymbolicLink(from, to, true);
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
