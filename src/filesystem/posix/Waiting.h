// The operating-system call behind reading objects that need not end or answer at once (FIFOs, devices): a bounded wait for input.
#ifndef KELVO_SRC_FILESYSTEM_POSIX_WAITING_H
#define KELVO_SRC_FILESYSTEM_POSIX_WAITING_H

// As with the other wrappers: one call, a plain value out; errno is left as
// the failing call set it, and nothing is retried.
namespace kelvo::filesystem::posix {

/// What `waitForInput` saw.
enum class InputWait {
    ready,   ///< something can be read, or the other end is gone: a read will not block
    quiet,   ///< nothing came within the time given
    failed,  ///< the wait itself failed (errno set)
};

/// Waits until `descriptor` has input or its writers are gone, for at most
/// `milliseconds`. An interrupted wait is not resumed: it reports `ready`, and
/// the read that follows tells what there is.
InputWait waitForInput(int descriptor, int milliseconds) noexcept;

} // namespace kelvo::filesystem::posix

#endif
