// kelvo::filesystem::FileMutex: mutual exclusion between processes through a lock file with an owner identifier and a heartbeat.
#ifndef KELVO_FILESYSTEM_FILE_MUTEX_H
#define KELVO_FILESYSTEM_FILE_MUTEX_H

#include <kelvo/export.h>
#include <kelvo/filesystem/Path.h>

#include <chrono>
#include <cstdint>

namespace kelvo::filesystem {

/// A mutex between processes built on an ordinary file, usable with
/// `std::lock_guard`, `std::unique_lock` and `std::scoped_lock`.
///
/// The file holds exactly 4 bytes: the owner process's random 32-bit
/// identifier in the machine's byte order. Its modification time is the
/// owner's heartbeat: a file not modified for more than `staleAfter` whole
/// seconds is abandoned and may be taken over. Ownership belongs to the
/// process: every `FileMutex` of one process, on any thread, shares its
/// identifier, so threads of one process do not exclude each other. A child
/// made by `fork` has an identifier of its own.
///
/// A holder keeps its lock fresh by calling `try_lock` again before
/// `staleAfter` runs out. The object owns nothing on disk: destroying it
/// neither unlocks nor removes the file.
///
/// Each `try_lock` and `unlock` holds an exclusive `flock` on the directory
/// that contains the file for the few calls it makes, so that two processes
/// of this library never both find the file absent or stale and both take
/// it. Where that directory cannot be opened or locked, or another holder
/// keeps such a lock for more than a second, the call goes on without it.
class KELVO_FILESYSTEM_API FileMutex {
public:
    /// Stores `path` and `staleAfter`; touches nothing on disk.
    FileMutex(Path const& path, std::chrono::seconds staleAfter);
    /// Forgets the path; the file is left as it is.
    ~FileMutex();

    FileMutex(FileMutex const&) = delete;
    FileMutex& operator=(FileMutex const&) = delete;

    /// Waits until the mutex is owned, trying again every 100 milliseconds,
    /// with no time limit.
    /// @throws std::logic_error as `try_lock` does.
    void lock();

    /// Takes the mutex when its file is absent, stale or already this
    /// process's, writing this process's identifier into it (which also
    /// refreshes the heartbeat).
    /// @returns true when owned after the call; false when another process
    /// holds a fresh file.
    /// @throws std::logic_error "FileMutex can't write to mutex file. Check
    /// permissions." when the file cannot be written (no permission, missing
    /// directory), and "FileMutex can't open mutex file. Check permissions."
    /// when a fresh file cannot be read or holds fewer than 4 bytes.
    bool try_lock();

    /// Removes the file when this process owns it, or when it is stale
    /// (whoever wrote it); does nothing when it is absent or another process
    /// holds it fresh.
    /// @throws std::logic_error "FileMutex can't open mutex file. Check
    /// permissions." when a fresh file cannot be read or is too short.
    void unlock();

    /// Writes this process's identifier into the file, creating or
    /// truncating it.
    /// @throws std::logic_error "FileMutex can't write to mutex file. Check
    /// permissions." when it cannot be opened for writing or the 4 bytes
    /// cannot all be written.
    void writeLockID() const;

    /// @returns the identifier held in the file's first 4 bytes.
    /// @throws std::logic_error "FileMutex can't open mutex file. Check
    /// permissions." when it cannot be opened or holds fewer than 4 bytes.
    std::uint32_t readLockID() const;

    /// @returns true when the file exists and its age, truncated to whole
    /// seconds, is greater than `staleAfter` (a file modified 10.9 s ago is
    /// not stale with a limit of 10 s, one modified 11 s ago is); false when
    /// it is absent or modified in the future.
    bool isFileStale() const;

private:
    Path path;
    std::chrono::duration<long long> staleAfter;
};

} // namespace kelvo::filesystem

#endif
