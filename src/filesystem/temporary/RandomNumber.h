// The one random draw behind the file mutex's process identifier and the names of temporary directories.
#ifndef KELVO_SRC_FILESYSTEM_RANDOM_NUMBER_H
#define KELVO_SRC_FILESYSTEM_RANDOM_NUMBER_H

#include <cstdint>

namespace kelvo::filesystem::detail {

/// Seeds a fresh 32-bit Mersenne Twister with one value from /dev/urandom
/// (from the standard library's default source where that name is refused).
/// @returns the engine's first output. @throws std::runtime_error when no
/// random source can be opened at all.
std::uint32_t drawRandomNumber();

} // namespace kelvo::filesystem::detail

#endif
