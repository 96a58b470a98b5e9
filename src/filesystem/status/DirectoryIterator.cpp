// Directory listing: DirectoryEntry, DirectoryIterator over a shared directory stream read by the walks' listing engine, and forEach.
#include <kelvo/filesystem/DirectoryIterator.h>

#include <kelvo/filesystem/Operations.h>

#include "filesystem/path/PathInternal.h"
#include "filesystem/status/FileTypes.h"
#include "filesystem/status/ListedEntry.h"
#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/System.h"
#include "filesystem/posix/Tree.h"

#include <cstddef>
#include <cstdint>
#include <chrono>
#include <thread>
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

namespace {

// Waits while another thread takes the statuses of `entry` (one status call
// or two): a few turns given up to the other threads, then short sleeps, so
// that a status call that takes long (a slow network file system) costs the
// waiters no processor.
template <typename State>
std::uint8_t waitWhileTaking(State const& state, std::uint8_t taking) noexcept
{
    std::uint8_t current = state.load(std::memory_order_acquire);
    for (unsigned turn = 0; current == taking; ++turn) {
        if (turn < 64)
            std::this_thread::yield();
        else
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        current = state.load(std::memory_order_acquire);
    }
    return current;
}

} // namespace

DirectoryEntry::DirectoryEntry(Path const& path, FileStatus status, FileStatus symlinkStatus)
    : path(path), status(status), symlinkStatus(symlinkStatus)
{
}

DirectoryEntry::DirectoryEntry(Path&& path, FileStatus status, FileStatus symlinkStatus) noexcept
    : path(std::move(path)), status(status), symlinkStatus(symlinkStatus)
{
}

DirectoryEntry::DirectoryEntry(DirectoryEntry const& other) : path(other.path), listedType(other.listedType)
{
    copyStatusesFrom(other);
}

DirectoryEntry::DirectoryEntry(DirectoryEntry&& other) noexcept
    : path(std::move(other.path)), listedType(other.listedType)
{
    copyStatusesFrom(other);
}

DirectoryEntry& DirectoryEntry::operator=(DirectoryEntry const& other)
{
    if (this != &other) {
        path = other.path;
        listedType = other.listedType;
        copyStatusesFrom(other);
    }
    return *this;
}

DirectoryEntry& DirectoryEntry::operator=(DirectoryEntry&& other) noexcept
{
    if (this != &other) {
        path = std::move(other.path);
        listedType = other.listedType;
        copyStatusesFrom(other);
    }
    return *this;
}

void DirectoryEntry::copyStatusesFrom(DirectoryEntry const& other) noexcept
{
    std::uint8_t state = other.statusState.load(std::memory_order_acquire);
    if (state == kStatusesTaking)
        state = waitWhileTaking(other.statusState, kStatusesTaking); // held, or pending again
    if (state == kStatusesHeld) {
        status = other.status;
        symlinkStatus = other.symlinkStatus;
    } else {
        // Pending: the statuses are not read, since another thread may be
        // about to write them; this copy takes its own on first need.
        status = FileStatus();
        symlinkStatus = FileStatus();
    }
    statusState.store(state, std::memory_order_relaxed);
}

void DirectoryEntry::takeStatuses() const
{
    // One thread moves the entry from pending to taking and takes the
    // statuses; any other waits until they are held (or pending again, when
    // the taker failed, and then tries itself).
    std::uint8_t state = statusState.load(std::memory_order_acquire);
    for (;;) {
        if (state == kStatusesHeld)
            return;
        if (state == kStatusesTaking) {
            state = waitWhileTaking(statusState, kStatusesTaking);
            continue;
        }
        if (statusState.compare_exchange_weak(state, kStatusesTaking, std::memory_order_acquire,
                                              std::memory_order_acquire))
            break;
    }
    try {
        // The same two statuses the listing would have taken at once: the
        // status following links, and the entry's own status when it is a
        // link, or when the listing did not say and that status shows one.
        FileStatus const followed = kelvo::filesystem::status(path);
        FileStatus own = followed;
        if (listedType == FileType::symbolicLink || listedType == FileType::none) {
            FileStatus const itself = symbolicLinkStatus(path);
            if (listedType == FileType::symbolicLink || itself.getType() == FileType::symbolicLink)
                own = itself;
        }
        status = followed;
        symlinkStatus = own;
    } catch (...) {
        // Out of memory for the path's native form: nothing was taken.
        statusState.store(kStatusesPending, std::memory_order_release);
        throw;
    }
    statusState.store(kStatusesHeld, std::memory_order_release);
}

void DirectoryEntry::replaceFilename(Path const& newPath, FileStatus newStatus, FileStatus newSymlinkStatus)
{
    path = newPath;
    status = newStatus;
    symlinkStatus = newSymlinkStatus;
    listedType = FileType::none;
    statusState.store(kStatusesHeld, std::memory_order_relaxed);
}

Path const& DirectoryEntry::getPath() const noexcept { return path; }

FileStatus DirectoryEntry::getStatus() const
{
    holdStatuses();
    if (status.getType() != FileType::none)
        return status;
    if (exists(path))
        return kelvo::filesystem::status(path);
    return status;
}

FileStatus DirectoryEntry::getSymlinkStatus() const
{
    holdStatuses();
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
    /// @returns the entry of `path`, listed with the kind `listed`, whose
    /// statuses are taken on first need.
    static DirectoryEntry pending(Path&& path, FileType listed) noexcept
    {
        DirectoryEntry entry;
        entry.path = std::move(path);
        entry.listedType = listed;
        entry.statusState.store(DirectoryEntry::kStatusesPending, std::memory_order_relaxed);
        return entry;
    }
    /// Makes `entry` the entry of `path`, listed with the kind `listed`,
    /// whose statuses are taken on first need.
    static void relist(DirectoryEntry& entry, Path&& path, FileType listed) noexcept
    {
        entry.path = std::move(path);
        entry.listedType = listed;
        entry.status = FileStatus();
        entry.symlinkStatus = FileStatus();
        entry.statusState.store(DirectoryEntry::kStatusesPending, std::memory_order_relaxed);
    }
    /// Makes `entry` the entry of `name` of `directory`, listed with the
    /// kind `listed`, reusing the storage of its path.
    static void relist(DirectoryEntry& entry, Path const& directory, char const* name, std::size_t length,
                       FileType listed)
    {
        PathNativeAccess::assignListedName(entry.path, directory, name, length);
        entry.listedType = listed;
        entry.status = FileStatus();
        entry.symlinkStatus = FileStatus();
        entry.statusState.store(DirectoryEntry::kStatusesPending, std::memory_order_relaxed);
    }
};

namespace {

// The entry's own kind as the listing reported it; none when it did not say.
FileType listedFileType(posix::ObjectKind listed) noexcept
{
    return listed == posix::ObjectKind::unknown ? FileType::none : fileTypeOf(listed);
}

} // namespace

DirectoryEntry listedEntry(Path&& path, posix::ObjectKind listed)
{
    return ListedEntryAccess::pending(std::move(path), listedFileType(listed));
}

void relistEntry(DirectoryEntry& entry, Path&& path, posix::ObjectKind listed) noexcept
{
    ListedEntryAccess::relist(entry, std::move(path), listedFileType(listed));
}

void relistEntry(DirectoryEntry& entry, Path const& directory, posix::ListedEntry const& listed)
{
    ListedEntryAccess::relist(entry, directory, listed.name, listed.length, listedFileType(listed.object));
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
        detail::relistEntry(currentEntry, directoryPath, entry);
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
    // One status answers both whether the directory exists and whether it
    // is one.
    if (status(directory).getType() != FileType::directory)
        return false;

    // Kept: starts from false, so an empty directory answers false, and true
    // means that something was visited and every answer was yes (see
    // docs/odd-behaviours.md, 'forEach of an empty directory returns false').
    bool result = false;
    detail::forEachListedName(directory, [&](posix::ListedEntry const& entry) {
        Path const path = PathNativeAccess::joinListedName(directory, entry.name, entry.length);
        result = callback(path);
        return result;
    });
    return result;
}

} // namespace kelvo::filesystem
