// kelvo::filesystem::FileMutex: mutual exclusion between processes through a lock file with an owner identifier and a heartbeat.
#ifndef KELVO_FILESYSTEM_FILE_MUTEX_H
#define KELVO_FILESYSTEM_FILE_MUTEX_H

#include <kelvo/export.h>
#include <kelvo/filesystem/Path.h>

#include <chrono>
#include <cstdint>

namespace kelvo::filesystem {

/// How the calling thread's last `FileMutex::try_lock` or `FileMutex::unlock`
/// kept other processes out while it tested the mutex file and wrote or
/// removed it.
enum class FileMutexGuard {
    notYetUsed, ///< this thread has not called `try_lock`, `lock` or `unlock` yet
    held,       ///< the call held an exclusive lock on the mutex file throughout (or, in `unlock`, found no file to remove): no other process of this library tested or changed the file meanwhile
    cannotOpen, ///< the mutex file could neither be created nor opened (no permission either way, a missing directory, a link to nothing, a path holding a NUL), or is a FIFO, socket or device: plain file tests
    notSupported, ///< the file system refused the lock: plain file tests
    timedOut,   ///< another holder kept the lock for more than a second (a stopped or very slow process): plain file tests
};

/// A mutex between processes built on an ordinary file, usable with
/// `std::lock_guard`, `std::unique_lock` and `std::scoped_lock`.
///
/// The file holds exactly 4 bytes: the owner process's random 32-bit
/// identifier in the machine's byte order. Its modification time is the
/// owner's heartbeat: a file not modified for more than `staleAfter` whole
/// seconds is abandoned and may be taken over. Ownership belongs to the
/// process: every `FileMutex` of one process, on any thread, shares its
/// identifier, so threads of one process do not exclude each other (see
/// docs/odd-behaviours.md, 'A FileMutex belongs to the process, not the
/// thread'). A child made by `fork` has an identifier of its own.
///
/// A holder keeps its lock fresh by calling `try_lock` again before
/// `staleAfter` runs out. The object owns nothing on disk: destroying it
/// neither unlocks nor removes the file.
///
/// Each `try_lock` and `unlock` holds an exclusive `flock` on the mutex file
/// itself for the few calls it makes (an absent file is created first, empty,
/// and locked), so that two processes of this library never both find the
/// file absent or stale and both take it. Only the right to open the file is
/// needed, for reading or for writing: not the right to list its directory.
/// Where the lock cannot be had, the call goes on with the plain file tests,
/// and `lastGuard` tells why.
/// A FIFO, socket or device at the path cannot hold an identifier: it is
/// never opened for reading or writing, so no call waits on it.
class KELVO_FILESYSTEM_API FileMutex {
public:
    /// Stores `path` and `staleAfter`; touches nothing on disk.
    FileMutex(Path const& path, std::chrono::seconds staleAfter);
    /// Forgets the path; the file is left as it is.
    ~FileMutex();

    FileMutex(FileMutex const&) = delete;
    FileMutex& operator=(FileMutex const&) = delete;

    /// Waits until the mutex is owned, trying again every 100 milliseconds.
    /// Deliberately without any limit on the attempts or on the time: it
    /// returns only when the mutex is taken, which a holder that never
    /// releases allows once its file goes stale. Use `try_lock` in a loop of
    /// your own to give up earlier (see docs/odd-behaviours.md,
    /// 'FileMutex::lock retries without bound, by design').
    /// @throws std::logic_error as `try_lock` does, ending the wait.
    void lock();

    /// Takes the mutex when its file is absent, stale or already this
    /// process's, writing this process's identifier into it (which also
    /// refreshes the heartbeat).
    /// Waits at most about a second for another process's call on the same
    /// file to finish; an empty fresh file may be one that another process
    /// has just created, so it is given that second to be written before it
    /// counts as too short.
    /// @returns true when owned after the call; false when another process
    /// holds a fresh file.
    /// @throws std::logic_error "FileMutex can't write to mutex file. Check
    /// permissions." when the file cannot be written (no permission, missing
    /// directory, a stale FIFO, socket or device at the path; a file that
    /// this call created and then could not write is removed again), and
    /// "FileMutex can't open mutex file. Check permissions." when a fresh
    /// file cannot be read, holds fewer than 4 bytes, or is a FIFO, socket
    /// or device.
    bool try_lock();

    /// Removes the file when this process owns it, or when it is stale
    /// (whoever wrote it); does nothing when it is absent or another process
    /// holds it fresh. Never creates the file. Waits as `try_lock` does.
    /// @throws std::logic_error "FileMutex can't open mutex file. Check
    /// permissions." when a fresh file cannot be read, is too short, or is a
    /// FIFO, socket or device.
    void unlock();

    /// Writes this process's identifier into the file, creating or
    /// truncating it.
    /// @throws std::logic_error "FileMutex can't write to mutex file. Check
    /// permissions." when it cannot be opened for writing, the 4 bytes
    /// cannot all be written, or a FIFO, socket or device is at the path.
    void writeLockID() const;

    /// @returns the identifier held in the file's first 4 bytes.
    /// @throws std::logic_error "FileMutex can't open mutex file. Check
    /// permissions." when it cannot be opened, holds fewer than 4 bytes, or
    /// is a FIFO, socket or device.
    std::uint32_t readLockID() const;

    /// Tells how the calling thread's last `try_lock` or `unlock`, on any
    /// `FileMutex` of the process, was kept apart from other processes.
    /// Recorded per thread, since objects are shared between threads; `lock`
    /// records through the `try_lock` calls it makes. The record is made
    /// before the file is read or written, so it stands for a call that
    /// threw too.
    /// @returns `FileMutexGuard::held` when that call held the lock on the
    /// mutex file; `notYetUsed` before this thread's first call; otherwise
    /// the reason the call ran on the plain file tests, where two processes
    /// that find the file absent or stale at the same moment may both take
    /// it.
    static FileMutexGuard lastGuard() noexcept;

    /// @returns true when the file exists and its age, truncated to whole
    /// seconds, is greater than `staleAfter` (a file modified 10.9 s ago is
    /// not stale with a limit of 10 s, one modified 11 s ago is; see
    /// docs/odd-behaviours.md, 'A FileMutex belongs to the process, not the
    /// thread'); false when it is absent or modified in the future.
    bool isFileStale() const;

private:
    Path path;
    std::chrono::duration<long long> staleAfter;
};

} // namespace kelvo::filesystem

#endif
