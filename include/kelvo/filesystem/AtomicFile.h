// kelvo::filesystem atomic saves: AtomicFile, which replaces a file's contents all at once on commit, and writeFileAtomically.
#ifndef KELVO_FILESYSTEM_ATOMIC_FILE_H
#define KELVO_FILESYSTEM_ATOMIC_FILE_H

#include <kelvo/export.h>
#include <kelvo/filesystem/Path.h>

#include <cstddef>
#include <memory>
#include <string_view>

namespace kelvo::filesystem {

/// Writes a new version of a file beside it and puts it in the file's place
/// in one step, so that the file holds either all of its old contents or all
/// of the new ones, whatever happens in between: a crash, a full disk, a
/// power cut once `commit` has returned.
///
/// `open` makes a new file in the target's directory: a file without a name
/// where the file system can make one, else a hidden file named
/// ".NAME.kelvo-save-XXXXXX" (NAME the target's name, cut to fit the longest
/// name a directory takes, XXXXXX six letters or digits). The data goes
/// there. `commit` flushes it to the storage, renames it over the target and
/// flushes the directory. Until then the target is untouched; an object
/// destroyed (or `abort`ed) without a commit removes the new file.
///
/// The new file gets the target's permission bits, and its owner and group
/// where the process may set them (root may; an ordinary user keeps the
/// group when a member of it, and otherwise becomes the owner, without a
/// failure). A new target gets mode 0666 less the umask (or what the
/// directory's default access list says). Other metadata (extended
/// attributes, access lists, hard links to the old file) is not carried
/// over: the target becomes a new file.
///
/// A symbolic link at the path is followed to its final target, which is
/// replaced; the link stays as it is. A dangling link makes the file it
/// names.
///
/// While a save runs, its hidden file carries a lock (`flock`). A hidden file
/// of the same target without a lock is left from a save that was killed:
/// the next `open` for that target removes it.
///
/// Every failure leaves the target as it was, removes the new file, answers
/// false and fills the calling thread's failure record (`lastFailure()`):
/// the call, the reason, and the path of the target (the file a link leads
/// to). Movable, not copyable; one object is used by one thread at a time.
class KELVO_FILESYSTEM_API AtomicFile {
public:
    /// An object that holds nothing: `write` and `commit` answer false.
    AtomicFile() noexcept;
    /// Opens a save of `path` as `open` does; `isOpen` tells whether it
    /// succeeded.
    explicit AtomicFile(Path const& path);
    /// Removes the new file unless committed. Never throws.
    ~AtomicFile();

    /// Takes over the save of `other`, which then holds nothing.
    AtomicFile(AtomicFile&& other) noexcept;
    /// Abandons this object's save (as `abort`) and takes over that of
    /// `other`, which then holds nothing.
    AtomicFile& operator=(AtomicFile&& other) noexcept;

    AtomicFile(AtomicFile const&) = delete;
    AtomicFile& operator=(AtomicFile const&) = delete;

    /// Abandons any save this object holds, then starts one of `path`:
    /// follows links, refuses a directory or any other object that is not a
    /// regular file, removes stale hidden files of the target, makes the new
    /// file with the target's permission bits and owner.
    /// @returns true when the new file is ready for writing; false on
    /// failure (a missing or unwritable directory, no room, a directory at
    /// the path, a loop of links, a path holding a NUL byte), leaving
    /// everything as it was.
    bool open(Path const& path);

    /// @returns true while a save is open, not committed, and no write
    /// has failed.
    bool isOpen() const noexcept;

    /// Appends `bytes` to the new contents. Writes under 4 KiB are gathered
    /// in a buffer of 64 KiB; larger ones go to the file at once.
    /// @returns true on success; false when nothing is open or a write to
    /// the file failed (the save is then abandoned, the new file removed,
    /// and every later call answers false).
    bool write(std::string_view bytes);
    /// Appends the `size` bytes at `data` (null only with 0), as the other
    /// `write`.
    bool write(void const* data, std::size_t size);

    /// Writes out what is buffered, flushes the new file to the storage,
    /// renames it over the target and flushes the directory, then closes
    /// everything: the object holds nothing afterwards.
    /// @returns true when the target holds the new contents on the storage;
    /// false when nothing was open or a step failed: the target is as it
    /// was, except when only the last flush (of the directory) failed: then
    /// the target already holds the new contents, which a crash could still
    /// take back.
    bool commit();

    /// Abandons the save: removes the new file and closes everything; the
    /// target stays as it was. Does nothing when nothing is open.
    void abort() noexcept;

    /// @returns the path of the file the save replaces (after following
    /// links); empty when nothing is open.
    Path const& target() const;

private:
    struct State;
    std::unique_ptr<State> state;
};

/// Replaces the contents of the file `path` with `bytes` atomically: an
/// `AtomicFile` opened, written and committed.
/// @returns true when the file holds `bytes` on the storage; false on
/// failure, with the file as it was (see `AtomicFile::commit` for the one
/// exception) and the failure record filled.
KELVO_FILESYSTEM_API bool writeFileAtomically(Path const& path, std::string_view bytes);

/// Replaces the contents of the file `path` with the `size` bytes at `data`
/// (null only with 0), as the other `writeFileAtomically`.
KELVO_FILESYSTEM_API bool writeFileAtomically(Path const& path, void const* data, std::size_t size);

} // namespace kelvo::filesystem

#endif
