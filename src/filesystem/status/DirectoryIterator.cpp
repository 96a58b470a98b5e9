// Directory listing: DirectoryEntry, DirectoryIterator over a shared directory stream read by the walks' listing engine, and forEach.
#include <kelvo/filesystem/DirectoryIterator.h>

#include <kelvo/filesystem/Operations.h>

#include "filesystem/path/PathInternal.h"
#include "filesystem/status/ListedEntry.h"
#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/System.h"
#include "filesystem/posix/Tree.h"

#include <string>
#include <utility>

namespace kelvo::filesystem {

namespace {

// The deleter of the shared directory stream: the stream is closed when the
// last iterator copy that shares it lets go.
void DirStreamCloser(void* stream)
{
    if (stream != nullptr)
        posix::closeDirectory(static_cast<posix::DirectoryStream*>(stream));
}

} // namespace

// ---- DirectoryEntry ----------------------------------------------------------

DirectoryEntry::DirectoryEntry(Path const& path, FileStatus status, FileStatus symlinkStatus)
    : path(path), status(status), symlinkStatus(symlinkStatus)
{
}

DirectoryEntry::DirectoryEntry(Path&& path, FileStatus status, FileStatus symlinkStatus) noexcept
    : path(std::move(path)), status(status), symlinkStatus(symlinkStatus)
{
}

void DirectoryEntry::replaceFilename(Path const& newPath, FileStatus newStatus, FileStatus newSymlinkStatus)
{
    path = newPath;
    status = newStatus;
    symlinkStatus = newSymlinkStatus;
    listedType = FileType::none;
}

Path const& DirectoryEntry::getPath() const noexcept { return path; }

FileStatus DirectoryEntry::getStatus() const
{
    if (status.getType() != FileType::none)
        return status;
    if (exists(path))
        return kelvo::filesystem::status(path);
    return status;
}

FileStatus DirectoryEntry::getSymlinkStatus() const
{
    // Kept: the stored status, not the stored link status, decides, so an
    // entry whose status is known answers from what was stored with it (see
    // docs/odd-behaviours.md, 'DirectoryEntry::replaceFilename replaces the
    // whole path').
    if (status.getType() != FileType::none)
        return symlinkStatus;
    if (exists(path))
        return symbolicLinkStatus(path);
    return symlinkStatus;
}

FileType DirectoryEntry::getListedType() const
{
    if (listedType != FileType::none)
        return listedType;
    return getSymlinkStatus().getType();
}

namespace detail {

struct ListedEntryAccess {
    static void setListedType(DirectoryEntry& entry, FileType type) noexcept { entry.listedType = type; }
};

namespace {

// The entry's own kind as the listing reported it; none when it did not say.
FileType listedFileType(posix::ObjectKind listed) noexcept
{
    switch (listed) {
    case posix::ObjectKind::directory:
        return FileType::directory;
    case posix::ObjectKind::symbolicLink:
        return FileType::symbolicLink;
    case posix::ObjectKind::regularFile:
        return FileType::regularFile;
    case posix::ObjectKind::characterDevice:
        return FileType::characterDevice;
    case posix::ObjectKind::fifo:
        return FileType::fifo;
    case posix::ObjectKind::blockDevice:
        return FileType::blockDevice;
    case posix::ObjectKind::socket:
        return FileType::unknown;
    case posix::ObjectKind::unknown:
        break;
    }
    return FileType::none;
}

} // namespace

DirectoryEntry listedEntry(Path&& path, posix::ObjectKind listed)
{
    FileStatus const entryStatus = status(path);
    FileStatus entrySymlinkStatus = entryStatus;
    if (listed == posix::ObjectKind::symbolicLink || listed == posix::ObjectKind::unknown) {
        // A link, or an entry the listing did not describe: its own status
        // tells whether it is a link.
        FileStatus const own = symbolicLinkStatus(path);
        if (listed == posix::ObjectKind::symbolicLink || own.getType() == FileType::symbolicLink)
            entrySymlinkStatus = own;
    }
    DirectoryEntry entry(std::move(path), entryStatus, entrySymlinkStatus);
    ListedEntryAccess::setListedType(entry, listedFileType(listed));
    return entry;
}

} // namespace detail

bool operator==(DirectoryEntry const& a, DirectoryEntry const& b) { return a.getPath().string() == b.getPath().string(); }
bool operator!=(DirectoryEntry const& a, DirectoryEntry const& b) { return a.getPath().string() != b.getPath().string(); }
bool operator<(DirectoryEntry const& a, DirectoryEntry const& b) { return a.getPath().string() < b.getPath().string(); }
bool operator<=(DirectoryEntry const& a, DirectoryEntry const& b) { return a.getPath().string() <= b.getPath().string(); }
bool operator>(DirectoryEntry const& a, DirectoryEntry const& b) { return a.getPath().string() > b.getPath().string(); }
bool operator>=(DirectoryEntry const& a, DirectoryEntry const& b) { return a.getPath().string() >= b.getPath().string(); }

// ---- DirectoryIterator -------------------------------------------------------

DirectoryIterator::DirectoryIterator() : streamOwner(nullptr, DirStreamCloser) {}

DirectoryIterator::DirectoryIterator(Path const& directory)
    : directoryPath(directory), streamOwner(nullptr, DirStreamCloser)
{
    posix::DirectoryStream* opened = posix::openDirectory(PathNativeAccess::cString(directoryPath));
    streamOwner = std::shared_ptr<void>(opened, DirStreamCloser);
    stream = opened;
    if (opened != nullptr)
        canIterateFlag = true;
    ++*this;
}

DirectoryIterator& DirectoryIterator::operator++()
{
    if (stream == nullptr)
        return *this;

    // The position before the entry read, so that an entry whose path cannot
    // be built (out of memory) is read again by the next step rather than
    // lost.
    auto* const listing = static_cast<posix::DirectoryStream*>(stream);
    long const position = posix::tellDirectory(listing);
    posix::ListedEntry entry;
    posix::EntryRead const read = posix::readEntry(listing, entry);
    if (read == posix::EntryRead::failed)
        posix::setFailurePath(PathNativeAccess::cString(directoryPath));
    if (read != posix::EntryRead::entry) {
        // The end, or a read error: either way the listing is over. The
        // stream closes here unless another copy still shares it.
        streamOwner = std::shared_ptr<void>(nullptr, DirStreamCloser);
        stream = nullptr;
        currentEntry = DirectoryEntry();
        return *this;
    }

    // The path keeps the name's bytes as its native form, so the entry is
    // reached by exactly the name the system gave, whatever its composition
    // and even when it is not UTF-8.
    try {
        currentEntry = detail::listedEntry(directoryPath / Path(entry.name), entry.object);
    } catch (...) {
        // Out of memory: the iterator stays on its current entry and the
        // stream goes back before the one that failed, for the next step.
        if (position != -1)
            posix::seekDirectory(listing, position);
        throw;
    }
    return *this;
}

DirectoryEntry const& DirectoryIterator::operator*() const noexcept { return currentEntry; }

DirectoryEntry const* DirectoryIterator::operator->() const noexcept { return &currentEntry; }

bool DirectoryIterator::canIterate() const noexcept { return canIterateFlag; }

// ---- forEach -----------------------------------------------------------------

bool forEach(Path const& directory, std::function<bool(Path const&)> callback)
{
    if (!exists(directory))
        return false;
    if (status(directory).getType() != FileType::directory)
        return false;

    DirectoryIterator iterator{Path(directory)};
    DirectoryIterator const end;
    // Kept: starts from false, so an empty directory answers false, and true
    // means that something was visited and every answer was yes (see
    // docs/odd-behaviours.md, 'forEach of an empty directory returns false').
    bool result = false;
    while (*iterator != *end) {
        DirectoryEntry const entry = *iterator;
        result = callback(entry.getPath());
        if (!result)
            break;
        ++iterator;
    }
    return result;
}

} // namespace kelvo::filesystem
