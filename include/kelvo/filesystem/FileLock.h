// kelvo::filesystem::FileLock: an advisory, exclusive, whole-file lock held for the object's lifetime.
#ifndef KELVO_FILESYSTEM_FILE_LOCK_H
#define KELVO_FILESYSTEM_FILE_LOCK_H

#include <kelvo/export.h>
#include <kelvo/filesystem/Path.h>

#include <functional>

namespace kelvo::filesystem {

/// Holds an advisory exclusive lock on an existing regular file while it
/// lives. Locks exclude each other between processes and between objects of
/// one process alike. Not copyable.
class KELVO_FILESYSTEM_API FileLock {
public:
    /// An object that holds nothing.
    FileLock() noexcept = default;
    /// Tries to lock `path`; whether it succeeded is not reported (use
    /// `lockFile` to know; see docs/odd-behaviours.md, 'A FileLock that failed
    /// once reports success ever after').
    explicit FileLock(Path const& path);
    /// Releases the lock and the descriptor, if any. Never throws.
    ~FileLock();

    FileLock(FileLock const&) = delete;
    FileLock& operator=(FileLock const&) = delete;

    /// Locks the existing file `path` without waiting and without creating it.
    /// @returns false for a directory, when the validation callback refuses,
    /// when the file cannot be opened for reading and writing, or when
    /// another holder has it; true when the lock is taken, and at once for
    /// any path other than a directory when the object already holds a
    /// descriptor. Kept: a failed attempt keeps its descriptor, so the next
    /// call on the same object answers true without locking (see
    /// docs/odd-behaviours.md, 'A FileLock that failed once reports success
    /// ever after').
    bool lockFile(Path const& path);

    /// Releases the lock and closes the descriptor. Kept: the object keeps the
    /// closed descriptor's number, so a later `lockFile` reports true without
    /// locking anything, and a second `unlockFile` or the destructor closes
    /// that number again (see docs/odd-behaviours.md, 'A FileLock that failed
    /// once reports success ever after'). Since the system may have given the
    /// number to another file by then, let the object go soon after unlocking
    /// rather than keeping it.
    void unlockFile();

    /// @returns true when some holder, in this or another process, has a lock
    /// on `path`, or when it exists but cannot be opened for reading; false
    /// for a directory, a missing file or a free file (left unlocked).
    static bool isFileLocked(Path const& path);

    /// Installs the process-wide predicate asked before every lock is taken
    /// (an empty function removes it). Meant to be set once, early: it is not
    /// synchronised with threads taking locks (see docs/odd-behaviours.md,
    /// 'The FileLock validation callback is not synchronised').
    static void setValidationCallback(std::function<bool(Path const&)> callback);

private:
    int descriptor = -1;
};

} // namespace kelvo::filesystem

#endif
