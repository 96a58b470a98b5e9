// The calling thread's record of the last system call that failed inside the library: the reason, the call and the path.
#ifndef KELVO_FILESYSTEM_FAILURE_H
#define KELVO_FILESYSTEM_FAILURE_H

#include <kelvo/export.h>
#include <kelvo/filesystem/Path.h>

#include <string>
#include <system_error>

namespace kelvo::filesystem {

/// What failed, why, and where: one system call made by the library.
struct Failure {
    /// The reason, in `std::generic_category()` (its `message()` reads
    /// "Permission denied", "No such file or directory", ...); empty (false)
    /// when nothing has failed since the record was last cleared.
    std::error_code error;
    /// The name of the system call that failed ("unlinkat", "openat",
    /// "stat", ...); empty with `error`.
    std::string call;
    /// The path the call was made on, with the bytes the library passed: for
    /// an operation on a tree, the deep entry (the parent's path joined with
    /// the listed name), not the tree's root; empty when the call names no
    /// path (a read or write on an open file records the file's path where
    /// the library knows it).
    Path path;

    /// @returns true when a failure is recorded.
    explicit operator bool() const noexcept { return static_cast<bool>(error); }
};

/// @returns the calling thread's most recent failure of a system call made by
/// the library, in any function; an empty `Failure` when none was recorded
/// since the thread began or since `clearLastFailure`.
///
/// The record is written whenever a system call the library makes fails,
/// including calls whose failure is an answer rather than an error (the
/// `stat` behind `exists` of a missing file records "No such file or
/// directory"), and it is never cleared by a success: like `errno`, read it
/// right after the call that returned a failure, or clear it before the call
/// and test it after. Each thread has its own. `errno` is left as the
/// failing call set it, independently of the record.
KELVO_FILESYSTEM_API Failure lastFailure();

/// Empties the calling thread's failure record.
KELVO_FILESYSTEM_API void clearLastFailure() noexcept;

} // namespace kelvo::filesystem

#endif
