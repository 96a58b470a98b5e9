// Internal helpers of the tree walks: owned descriptors, whole listings of an open directory, and the stack of open directories a walk moves through with a bounded number of descriptors.
#ifndef KELVO_SRC_FILESYSTEM_TREE_WALK_H
#define KELVO_SRC_FILESYSTEM_TREE_WALK_H

#include "filesystem/posix/Tree.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace kelvo::filesystem::detail {

using posix::isDirectoryMode;

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

using posix::ListedKind;

/// What an object is, whatever name reaches it: its device and inode.
struct ObjectIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;

    friend bool operator==(ObjectIdentity const& a, ObjectIdentity const& b) noexcept
    {
        return a.device == b.device && a.inode == b.inode;
    }
    friend bool operator!=(ObjectIdentity const& a, ObjectIdentity const& b) noexcept { return !(a == b); }
};

/// Hashes an identity, for unordered containers of them.
struct ObjectIdentityHash {
    std::size_t operator()(ObjectIdentity const& identity) const noexcept
    {
        return static_cast<std::size_t>(identity.inode * 0x9E3779B97F4A7C15ULL ^ identity.device);
    }
};

/// @returns the identity held in `information`.
inline ObjectIdentity identityOf(posix::ObjectInformation const& information) noexcept
{
    return ObjectIdentity{information.device, information.inode};
}

/// The whole listing of one directory, read at once so that the directory's
/// stream is closed before the walk goes on: names as the listing gave their
/// bytes, each with the kind the listing reported.
class Listing {
public:
    /// Reads every entry of the open directory `descriptor`, which stays open
    /// and the caller's; "." and ".." are skipped. What was held before goes.
    /// `unread` tells that nothing has read the descriptor since it was
    /// opened, so that its position is still at the start.
    /// @returns true when the listing was read to its end; false when it could
    /// not be started or a read failed (the entries read before it are kept).
    bool read(int descriptor, bool unread = false);

    std::size_t size() const noexcept { return items.size(); }
    bool empty() const noexcept { return items.empty(); }
    /// The NUL-terminated name of entry `index`, valid until the next `read`.
    char const* name(std::size_t index) const noexcept { return names.data() + items[index].offset; }
    /// The length in bytes of the name of entry `index`.
    std::size_t nameLength(std::size_t index) const noexcept { return items[index].length; }
    /// What the listing said of the kind of entry `index`.
    ListedKind kind(std::size_t index) const noexcept { return items[index].kind; }
    /// The exact kind the listing reported for entry `index`.
    posix::ObjectKind object(std::size_t index) const noexcept { return items[index].object; }

private:
    struct Item {
        std::size_t offset;
        std::size_t length;
        ListedKind kind;
        posix::ObjectKind object;
    };
    std::string names;
    std::vector<Item> items;
};

/// What became of an attempt to enter a subdirectory.
enum class Entered {
    entered, ///< the subdirectory is now the current directory
    failed,  ///< it could not be opened as a directory (see errno); nothing changed
    loop,    ///< it is the current directory or one of its ancestors; nothing changed
};

/// The directories a walk stands in, from the top of the tree down to the
/// current one. It holds at most `kHeldDescriptors` descriptors besides the
/// top's, whatever the depth: deeper down, the descriptors of the levels
/// highest up are closed, and reopened on the way back up through ".." of the
/// level below, checked to be the very directory that was left (device and
/// inode). A level entered through a link is reopened from the nearest held
/// level by the names that led to it, each checked the same way. A directory
/// moved or swapped while the walk is below it is therefore never taken for
/// the one that was there: the walk is told, and stops.
class DirectoryStack {
public:
    /// The most descriptors held for levels below the top.
    static constexpr std::size_t kHeldDescriptors = 16;

    DirectoryStack() = default;
    DirectoryStack(DirectoryStack const&) = delete;
    DirectoryStack& operator=(DirectoryStack const&) = delete;
    ~DirectoryStack();

    /// Opens the top of the tree: `name` relative to the descriptor `parent`,
    /// following a final link when `follow` is true. When `expected` is given,
    /// the directory opened must be that object. `name` (native bytes) is
    /// also the path `pathOf` starts from, so a caller opening relative to
    /// another directory than the working one passes the path it knows.
    /// @returns true when the top is open; false when it cannot be opened as a
    /// directory, or is another object than `expected`.
    bool open(int parent, char const* name, bool follow, ObjectIdentity const* expected = nullptr);

    /// @returns whether the top is open.
    bool isOpen() const noexcept { return !levels.empty(); }
    /// @returns the current directory's descriptor, for calls relative to it.
    int descriptor() const noexcept { return levels.back().descriptor; }
    /// @returns how many levels below the top the current directory is.
    std::size_t depth() const noexcept { return levels.size() - 1; }
    /// @returns the current directory's identity.
    ObjectIdentity identity() const noexcept { return levels.back().identity; }
    /// @returns the level of the directory `identity` on the stack, or -1 when
    /// it is not on it.
    long levelOf(ObjectIdentity const& identity) const;

    /// Enters the subdirectory `name` of the current directory, following a
    /// link there only when `follow` is true.
    Entered enter(char const* name, bool follow);

    /// @returns the path of the entry `name` of the current directory (of the
    /// current directory itself for a null `name`): the top's path, then the
    /// names of the levels below it, then `name`, as native bytes. For the
    /// failure record, after a call relative to the current directory failed.
    std::string pathOf(char const* name) const;

    /// Goes back up to the parent of the current directory.
    /// @returns true there; false when the parent cannot be reached again as
    /// the directory it was (the tree changed under the walk), or at the top.
    /// The current directory is then left as it was.
    bool leave();

private:
    struct Level {
        std::string name;          // the name that led here from the level above
        ObjectIdentity identity;   // what was opened
        int descriptor = -1;       // -1 once closed to keep within the bound
        bool followed = false;     // entered through a link
    };

    using IdentityHash = ObjectIdentityHash;

    int reopen(std::size_t level);
    void closeOldest();

    std::string topPath; // the top's path, as `open` was given it
    std::vector<Level> levels;
    std::unordered_map<ObjectIdentity, std::size_t, IdentityHash> onStack; // level of each identity
    std::size_t held = 0; // descriptors held below the top
};

} // namespace kelvo::filesystem::detail

#endif
