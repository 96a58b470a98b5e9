// The per-thread failure record written by the system-call wrappers and by the tree walks that know the full path of the entry a call failed on.
#ifndef KELVO_SRC_FILESYSTEM_POSIX_FAILURE_RECORD_H
#define KELVO_SRC_FILESYSTEM_POSIX_FAILURE_RECORD_H

#include <string_view>

namespace kelvo::filesystem::posix {

/// Records on the calling thread that the system call `call` (a string
/// literal) failed with the `errno` value `error` on `path` (native bytes;
/// may be null or empty when the call names no path). Never throws: when the
/// path cannot be stored, the record keeps the call and the reason with an
/// empty path. errno is left as it was.
void recordFailure(char const* call, int error, std::string_view path) noexcept;

/// Why a walk refuses a directory although no system call failed.
enum class Refusal {
    loop,        ///< it is a directory the walk is already in: "Too many levels of symbolic links"
    treeChanged, ///< it is no longer the directory the walk came from: "No such file or directory"
};

/// Records on the calling thread that the walk refused `path` after the call
/// `call` (a string literal) for `refusal`, with the reason the system gives
/// for the same condition. errno is left as it was.
void recordRefusal(char const* call, Refusal refusal, std::string_view path) noexcept;

/// Replaces the path of the calling thread's last record with `path`, for a
/// caller that made the call relative to a directory it knows the path of.
/// Does nothing when no failure is recorded.
void setFailurePath(std::string_view path) noexcept;

/// What the calling thread's last recorded failure means to a caller that
/// must decide what to do next.
enum class FailureReason {
    none,        ///< nothing recorded
    missing,     ///< the object named is not there
    wouldBlock,  ///< the call would have had to wait (a non-blocking open or read)
    interrupted, ///< a signal came first
    other,       ///< any other reason (see `lastFailure()` for which)
};

/// @returns the meaning of the calling thread's last recorded failure: for a
/// caller right after a wrapper of this folder reported a failure.
FailureReason lastFailureReason() noexcept;

/// @returns how many failures the calling thread has recorded (modulo the
/// type's range), so that a caller can tell whether the calls it made since
/// an earlier reading recorded one.
unsigned long failureCount() noexcept;

/// Replaces the path of the calling thread's last record with `path` when a
/// failure was recorded since `failureCount` returned `countBefore`.
void setFailurePathSince(unsigned long countBefore, std::string_view path) noexcept;

} // namespace kelvo::filesystem::posix

#endif
