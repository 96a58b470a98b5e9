// Internal helpers of the tree walks: owned descriptors, a listing of an open directory that skips "." and "..", and the kind bits of a mode.
#ifndef KELVO_SRC_FILESYSTEM_TREE_WALK_H
#define KELVO_SRC_FILESYSTEM_TREE_WALK_H

#include "filesystem/posix/Tree.h"

#include <cstdint>

namespace kelvo::filesystem::detail {

/// The bit that makes the library call a status a directory. Kinds are told
/// by single bits, so block devices and sockets carry it too.
inline constexpr std::uint32_t kDirectoryModeBit = 040000;

/// @returns true when the library's classification calls `mode` a directory.
inline bool isDirectoryMode(std::uint32_t mode) noexcept { return (mode & kDirectoryModeBit) != 0; }

/// An open descriptor, closed when the owner goes.
class OwnedDescriptor {
public:
    OwnedDescriptor() noexcept = default;
    explicit OwnedDescriptor(int descriptor) noexcept : value(descriptor) {}
    OwnedDescriptor(OwnedDescriptor const&) = delete;
    OwnedDescriptor& operator=(OwnedDescriptor const&) = delete;
    ~OwnedDescriptor()
    {
        if (value >= 0)
            posix::closeObject(value);
    }

    int get() const noexcept { return value; }
    bool isOpen() const noexcept { return value >= 0; }
    /// Hands the descriptor over; the owner no longer closes it.
    int release() noexcept
    {
        int const released = value;
        value = -1;
        return released;
    }
    /// Closes the descriptor now. @returns true when `close` succeeded.
    bool close() noexcept { return posix::closeObject(release()); }

private:
    int value = -1;
};

/// What the listing said of an entry's kind, before any status call.
enum class ListedKind {
    directory,    ///< a directory
    link,         ///< a symbolic link
    directoryBit, ///< a block device or socket: carries the directory bit
    other,        ///< a regular file, FIFO or character device
    unknown,      ///< the listing did not say
};

/// Lists an open directory descriptor, skipping "." and ".."; the listing
/// owns the descriptor and closes it at the end.
class DescriptorListing {
public:
    /// Takes over `descriptor` (closed here too when the listing cannot start).
    explicit DescriptorListing(int descriptor) noexcept
        : stream(descriptor >= 0 ? posix::openDirectoryStream(descriptor) : nullptr)
    {
    }
    DescriptorListing(DescriptorListing const&) = delete;
    DescriptorListing& operator=(DescriptorListing const&) = delete;
    ~DescriptorListing()
    {
        if (stream != nullptr)
            posix::closeDirectoryStream(stream);
    }

    bool isOpen() const noexcept { return stream != nullptr; }
    /// The listed directory's descriptor, for calls relative to it.
    int descriptor() const noexcept { return stream != nullptr ? ::dirfd(stream) : -1; }

    /// @returns the next entry, or null at the end, on a read error and when
    /// the listing never started.
    dirent const* next() noexcept
    {
        if (stream == nullptr)
            return nullptr;
        for (;;) {
            dirent const* entry = posix::readDirectoryStream(stream);
            if (entry == nullptr)
                return nullptr;
            char const* name = entry->d_name;
            if (!(name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))))
                return entry;
        }
    }

private:
    DIR* stream;
};

/// @returns what the listing reported of `entry`'s kind.
inline ListedKind listedKind(dirent const& entry) noexcept
{
#if defined(KELVO_HAS_DIRENT_D_TYPE)
    switch (entry.d_type) {
    case DT_DIR:
        return ListedKind::directory;
    case DT_LNK:
        return ListedKind::link;
    case DT_BLK:
    case DT_SOCK:
        return ListedKind::directoryBit;
    case DT_REG:
    case DT_FIFO:
    case DT_CHR:
        return ListedKind::other;
    default:
        return ListedKind::unknown;
    }
#else
    (void)entry;
    return ListedKind::unknown;
#endif
}

} // namespace kelvo::filesystem::detail

#endif
