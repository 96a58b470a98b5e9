// kelvo::filesystem::DirectoryIterator and DirectoryEntry: listing one directory with the statuses of its entries.
#ifndef KELVO_FILESYSTEM_DIRECTORY_ITERATOR_H
#define KELVO_FILESYSTEM_DIRECTORY_ITERATOR_H

#include <kelvo/export.h>
#include <kelvo/filesystem/FileStatus.h>
#include <kelvo/filesystem/Path.h>

#include <cstddef>
#include <functional>
#include <iterator>
#include <memory>

namespace kelvo::filesystem {

namespace detail {
struct ListedEntryAccess;
} // namespace detail

/// One listed entry: its full path and two statuses taken when it was listed.
class KELVO_FILESYSTEM_API DirectoryEntry {
public:
    /// An empty path with both statuses unknown; also the end iterator's entry.
    DirectoryEntry() = default;
    /// An entry of `path` with the status following links and the status of
    /// the entry itself.
    DirectoryEntry(Path const& path, FileStatus status, FileStatus symlinkStatus);
    /// The same, taking over `path` (and the native form it has cached).
    DirectoryEntry(Path&& path, FileStatus status, FileStatus symlinkStatus) noexcept;
    DirectoryEntry(DirectoryEntry const&) = default;
    DirectoryEntry(DirectoryEntry&&) noexcept = default;
    DirectoryEntry& operator=(DirectoryEntry const&) = default;
    DirectoryEntry& operator=(DirectoryEntry&&) noexcept = default;
    ~DirectoryEntry() = default;

    /// Replaces the whole path (not just its file name) and both statuses.
    /// Kept: the name says file name, the call takes the full path (see
    /// docs/odd-behaviours.md, 'DirectoryEntry::replaceFilename replaces the
    /// whole path').
    void replaceFilename(Path const& path, FileStatus status, FileStatus symlinkStatus);

    /// @returns the entry's full path.
    Path const& getPath() const noexcept;
    /// @returns the stored status when its type is known; otherwise a fresh
    /// status of the path when it exists, else the stored one.
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
    Path path;
    FileStatus status;
    FileStatus symlinkStatus;
    FileType listedType = FileType::none; // none: the listing did not say
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
/// yields. Each step fills both statuses of the entry (one `stat`, plus one
/// `lstat` for a symbolic link). Copies share one open directory stream,
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
