// kelvo::filesystem copies that keep what users expect: times, modes, owners and links kept, blocks shared where the file system can, never a partial file under its final name, progress and cancel.
#ifndef KELVO_FILESYSTEM_COPYING_H
#define KELVO_FILESYSTEM_COPYING_H

#include <kelvo/export.h>
#include <kelvo/filesystem/Failure.h>
#include <kelvo/filesystem/Path.h>

#include <cstdint>
#include <functional>
#include <vector>

namespace kelvo::filesystem {

/// Whether a file's copy shares the source's blocks (a clone, on file systems
/// that can: btrfs, XFS) instead of writing them again.
enum class ReflinkPolicy : std::uint32_t {
    automatic, ///< clone where the file system can, else copy the bytes
    always,    ///< clone, and fail the file where cloning cannot work
    never,     ///< always copy the bytes
};

/// What a copy does when something already has the destination's name.
enum class OverwritePolicy : std::uint32_t {
    never,   ///< keep what is there (the entry is skipped), even when it appears while the copy runs
    always,  ///< replace it (a directory is merged into, never replaced)
    ifNewer, ///< replace it when the source's modification time is later than its own
};

/// Where a running copy stands, as its progress callback sees it.
struct CopyProgress {
    std::int64_t bytesDone = 0;  ///< bytes of regular files copied so far (the file in flight included)
    std::int64_t bytesTotal = 0; ///< bytes of regular files to copy; 0 when no counting walk was made
    std::int64_t filesDone = 0;  ///< entries other than directories finished so far
    std::int64_t filesTotal = 0; ///< entries other than directories to copy; 0 when no counting walk was made
    Path currentFile;            ///< the source entry being copied; empty in the final report
    bool finished = false;       ///< true in the final report, made once when the copy ends
};

/// The progress callback: @returns true to go on, false to cancel the copy.
using CopyProgressCallback = std::function<bool(CopyProgress const&)>;

/// How `copyFileWith` and `copyTreeWith` copy. The defaults keep everything a
/// user expects to find unchanged in a copy.
struct CopyOptions {
    /// Keep the access and modification times, to the nanosecond where the
    /// file system keeps them.
    bool keepTimes = true;
    /// Keep the permission bits (with the set-user, set-group and sticky
    /// bits). Without, files get the source's bits less the umask and
    /// directories the same with the owner's three bits added.
    bool keepPermissions = true;
    /// Keep the owner and group where the process may set them; where it may
    /// not (an ordinary user copying another user's files), the group alone
    /// where it may, and no failure is reported.
    bool keepOwner = true;
    /// Follow symbolic links (copy what they name) instead of copying them as
    /// links.
    bool followLinks = false;
    ReflinkPolicy reflink = ReflinkPolicy::automatic;
    OverwritePolicy overwrite = OverwritePolicy::never;
    /// Called while the copy runs, at most every `progressIntervalMilliseconds`
    /// or every `progressIntervalBytes` bytes, whichever comes first (checked
    /// after each block of a file and after each other entry), and once at the
    /// end with `finished` set (whose answer is not asked). Its false answer
    /// cancels the copy. An exception it throws cancels the copy as false does
    /// and is not passed on.
    CopyProgressCallback progress;
    std::int64_t progressIntervalMilliseconds = 100;
    std::int64_t progressIntervalBytes = 4 * 1024 * 1024;
    /// Walk the source once first to count its files and bytes for the totals
    /// of the progress reports. Without, the totals are 0 (unknown).
    bool countFirst = true;
};

/// Why an entry was not copied although nothing failed.
enum class CopySkipReason : std::uint32_t {
    exists,   ///< the destination exists and the overwrite policy keeps it
    notNewer, ///< the destination exists and is not older than the source (`OverwritePolicy::ifNewer`)
    socket,   ///< a socket: it cannot be copied
};

/// An entry that was not copied, and why.
struct CopySkip {
    Path path; ///< the source entry
    CopySkipReason reason = CopySkipReason::exists;
};

/// What a copy did.
struct CopyResult {
    std::int64_t filesCopied = 0;       ///< regular files copied
    std::int64_t bytesCopied = 0;       ///< their bytes
    std::int64_t directoriesCopied = 0; ///< directories made or merged into
    std::int64_t linksCopied = 0;       ///< symbolic links copied as links
    std::int64_t specialFilesCopied = 0; ///< FIFOs and device files made
    /// Entries not copied on purpose (kept destinations, sockets).
    std::vector<CopySkip> skipped;
    /// Every failure, in the order met: the call, the reason and the whole
    /// path (of the source entry, or of the destination where the failure
    /// was there). The copy goes on after a failure with the next entry.
    std::vector<Failure> failures;
    /// True when the progress callback cancelled the copy.
    bool cancelled = false;

    /// @returns true when nothing failed and the copy was not cancelled.
    bool succeeded() const noexcept { return failures.empty() && !cancelled; }
    explicit operator bool() const noexcept { return succeeded(); }
};

/// Copies the file `from` to `to` as `options` say. A regular file is copied
/// into a new file beside `to` whose name starts with ".kelvo-copy-", given
/// its times, mode and owner there, and then renamed to `to`: `to` never
/// holds a part of the copy, and a failed or cancelled copy removes that
/// file. A symbolic link (unless followed), a FIFO or a device file is made
/// anew the same way; a socket is skipped.
/// @returns what was done; a directory `from` fails (is a directory), as does
/// a missing one, each with the failure in `failures`.
KELVO_FILESYSTEM_API CopyResult copyFileWith(Path const& from, Path const& to, CopyOptions const& options = {});

/// Copies the tree `from` to `to` as `options` say: every entry as
/// `copyFileWith` copies it, directories made (or merged into, when `to` or
/// one below it exists) and given their times, modes and owners once their
/// contents are in. A tree of any depth takes a bounded number of
/// descriptors; a FIFO is never opened; a directory that cannot be read is a
/// failure and the rest is copied. Hard links are copied as separate files;
/// extended attributes and access control lists are not copied.
/// When `from` is not a directory, it is copied as `copyFileWith` does.
/// @returns what was done, failures and skipped entries included.
KELVO_FILESYSTEM_API CopyResult copyTreeWith(Path const& from, Path const& to, CopyOptions const& options = {});

} // namespace kelvo::filesystem

#endif
