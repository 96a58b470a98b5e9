// kelvo::filesystem::DirectoryIterator and DirectoryEntry: listing one directory with the statuses of its entries.
#ifndef KELVO_FILESYSTEM_DIRECTORY_ITERATOR_H
#define KELVO_FILESYSTEM_DIRECTORY_ITERATOR_H

#include <kelvo/export.h>
#include <kelvo/filesystem/FileStatus.h>
#include <kelvo/filesystem/Path.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>

namespace kelvo::filesystem {

namespace detail {
struct ListedEntryAccess;
} // namespace detail

/// One listed entry: its full path and two statuses, the status following
/// links and the status of the entry itself.
///
/// An entry made by a listing takes its statuses lazily: listing it costs no
/// status call, and the first call that needs them (`getStatus`,
/// `getSymlinkStatus`, or `getListedType` when the listing did not say the
/// kind) takes both at once, with one `stat` (plus one `lstat` for a symbolic
/// link, or when the listing did not say the kind), and keeps them for every
/// later call and for the entry's copies. The answers are those an entry
/// whose statuses were taken at that moment gives; only the moment moves,
/// from the listing to the first question. An entry made with a constructor
/// below holds the statuses it was given.
///
/// The const members may be called from several threads at once on one
/// entry: one of them takes the statuses, the others wait for it and answer
/// from the same ones. A copy made while they are being taken waits for them
/// too.
class KELVO_FILESYSTEM_API DirectoryEntry {
public:
    /// An empty path with both statuses unknown; also the end iterator's entry.
    DirectoryEntry() = default;
    /// An entry of `path` with the status following links and the status of
    /// the entry itself.
    DirectoryEntry(Path const& path, FileStatus status, FileStatus symlinkStatus);
    /// The same, taking over `path` (and the native form it has cached).
    DirectoryEntry(Path&& path, FileStatus status, FileStatus symlinkStatus) noexcept;
    /// Copies carry the statuses when they are taken, and otherwise take their
    /// own on first need (a copy made while another thread takes them waits
    /// for them).
    DirectoryEntry(DirectoryEntry const& other);
    DirectoryEntry(DirectoryEntry&& other) noexcept;
    DirectoryEntry& operator=(DirectoryEntry const& other);
    DirectoryEntry& operator=(DirectoryEntry&& other) noexcept;
    ~DirectoryEntry() = default;

    /// Replaces the whole path (not just its file name) and both statuses.
    /// Kept: the name says file name, the call takes the full path (see
    /// docs/odd-behaviours.md, 'DirectoryEntry::replaceFilename replaces the
    /// whole path').
    void replaceFilename(Path const& path, FileStatus status, FileStatus symlinkStatus);

    /// @returns the entry's full path.
    Path const& getPath() const noexcept;
    /// @returns the stored status when its type is known; otherwise a fresh
    /// status of the path when it exists, else the stored one. For a listed
    /// entry, the stored status is the one taken on first need.
    FileStatus getStatus() const;
    /// @returns the stored symbolic-link status when the stored status is
    /// known; otherwise a fresh one when the path exists, else the stored one.
    /// Kept: the stored status, not the stored link status, decides (see
    /// docs/odd-behaviours.md, 'DirectoryEntry::replaceFilename replaces the
    /// whole path').
    FileStatus getSymlinkStatus() const;
    /// @returns the kind of the entry itself (a link is `symbolicLink`) as
    /// the listing reported it, without a system call; when the listing did
    /// not say (and for an entry not made by a listing), the type of the
    /// symbolic-link status. A socket, which has no `FileType` of its own, is
    /// `unknown` here.
    FileType getListedType() const;

private:
    /// Where the two statuses stand.
    enum : std::uint8_t {
        kStatusesHeld = 0,   ///< given, or taken: `status` and `symlinkStatus` answer
        kStatusesPending = 1, ///< a listed entry whose statuses nobody has asked for yet
        kStatusesTaking = 2,  ///< one thread is taking them; the others wait
    };

    /// Takes the statuses of a listed entry when they are still pending.
    void holdStatuses() const
    {
        if (statusState.load(std::memory_order_acquire) != kStatusesHeld)
            takeStatuses();
    }
    void takeStatuses() const;
    /// Sets this entry's statuses and their state from `other`'s.
    void copyStatusesFrom(DirectoryEntry const& other) noexcept;

    Path path;
    mutable FileStatus status;
    mutable FileStatus symlinkStatus;
    FileType listedType = FileType::none; // none: the listing did not say
    mutable std::atomic<std::uint8_t> statusState{kStatusesHeld};
    friend struct detail::ListedEntryAccess; // the listings' way in
};

/// Entries compare by the exact code points of their paths (no folding, no
/// normalisation): "B" orders before "a". Statuses play no part. Kept: see
/// docs/odd-behaviours.md, 'Listed entries compare exactly, paths
/// tolerantly'.
KELVO_FILESYSTEM_API bool operator==(DirectoryEntry const& a, DirectoryEntry const& b);
KELVO_FILESYSTEM_API bool operator!=(DirectoryEntry const& a, DirectoryEntry const& b);
KELVO_FILESYSTEM_API bool operator<(DirectoryEntry const& a, DirectoryEntry const& b);
KELVO_FILESYSTEM_API bool operator<=(DirectoryEntry const& a, DirectoryEntry const& b);
KELVO_FILESYSTEM_API bool operator>(DirectoryEntry const& a, DirectoryEntry const& b);
KELVO_FILESYSTEM_API bool operator>=(DirectoryEntry const& a, DirectoryEntry const& b);

/// Lists one directory, skipping "." and "..", in the order the system
/// yields. A step makes no status call: each entry takes its statuses on
/// first need (see `DirectoryEntry`). Copies share one open directory stream,
/// closed at the end of the listing or with the last copy.
///
/// A directory that cannot be opened gives an iterator equal to the end at
/// once, with `canIterate()` false. A read error ends the listing as the end
/// does (see docs/odd-behaviours.md, 'Listings are not sorted, and a read
/// error looks like the end').
class KELVO_FILESYSTEM_API DirectoryIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = DirectoryEntry;
    using difference_type = std::ptrdiff_t;
    using pointer = DirectoryEntry const*;
    using reference = DirectoryEntry const&;

    /// The end iterator.
    DirectoryIterator();
    /// Opens `directory` and stands on its first entry (or at the end).
    explicit DirectoryIterator(Path const& directory);

    /// Moves to the next entry; at the end, does nothing.
    DirectoryIterator& operator++();

    DirectoryEntry const& operator*() const noexcept;
    DirectoryEntry const* operator->() const noexcept;

    /// @returns true when the directory was opened, also after the listing ended.
    bool canIterate() const noexcept;

    /// Iterators compare by their current entries, so every ended iterator
    /// equals the end iterator.
    friend bool operator==(DirectoryIterator const& a, DirectoryIterator const& b)
    {
        return a.currentEntry == b.currentEntry;
    }
    friend bool operator!=(DirectoryIterator const& a, DirectoryIterator const& b) { return !(a == b); }

private:
    Path directoryPath;
    // The system's directory stream (a DIR*), held untyped so that this
    // header does not bring the system's directory header to its users.
    void* stream = nullptr;
    std::shared_ptr<void> streamOwner;
    DirectoryEntry currentEntry;
    bool canIterateFlag = false;
};

/// Range support: `for (DirectoryEntry const& entry : DirectoryIterator(dir))`.
inline DirectoryIterator begin(DirectoryIterator iterator) { return iterator; }
inline DirectoryIterator end(DirectoryIterator const&) { return DirectoryIterator(); }

/// Calls `callback` with the path of each entry of `directory` until it
/// answers false.
/// @returns false when `directory` is missing or not a directory, when it is
/// empty, or when a callback answered false; true when at least one entry was
/// visited and every callback answered true. Kept: an empty directory
/// answers false (see docs/odd-behaviours.md, 'forEach of an empty directory
/// returns false').
/// @throws std::bad_function_call when `callback` is empty and an entry exists.
KELVO_FILESYSTEM_API bool forEach(Path const& directory, std::function<bool(Path const&)> callback);

} // namespace kelvo::filesystem

#endif
