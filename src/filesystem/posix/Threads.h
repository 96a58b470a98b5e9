// Running a piece of work on a thread of its own with a stack of a chosen size, for the expression engine that recurses once per character.
#ifndef KELVO_SRC_FILESYSTEM_POSIX_THREADS_H
#define KELVO_SRC_FILESYSTEM_POSIX_THREADS_H

#include <cstddef>

namespace kelvo::filesystem::posix {

/// Runs `body(argument)` on a new thread whose stack holds `stackBytes`
/// bytes, and waits until it has returned. `body` must not throw.
/// @returns true when it ran; false when the thread could not be made (no
/// memory for such a stack, too many threads), and `body` did not run.
bool runOnStackOf(std::size_t stackBytes, void (*body)(void*), void* argument) noexcept;

} // namespace kelvo::filesystem::posix

#endif
