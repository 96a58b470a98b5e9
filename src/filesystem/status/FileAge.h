// How long ago a file was modified, in microseconds, without overflow for any modification time.
#ifndef KELVO_SRC_FILESYSTEM_FILE_AGE_H
#define KELVO_SRC_FILESYSTEM_FILE_AGE_H

#include <kelvo/filesystem/FileStatus.h>

#include <chrono>
#include <cstdint>
#include <limits>

namespace kelvo::filesystem::detail {

/// @returns the time from `modified` to now in microseconds (truncated);
/// negative for a time in the future. Saturates at the limits of a signed
/// 64-bit count instead of overflowing, for times however far away.
inline std::chrono::microseconds ageOf(FileTime modified)
{
    std::int64_t const now = std::chrono::time_point_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now()).time_since_epoch().count();
    std::int64_t const then = modified.time_since_epoch().count();
    std::int64_t age = 0;
    if (__builtin_sub_overflow(now, then, &age))
        age = then < 0 ? std::numeric_limits<std::int64_t>::max() : std::numeric_limits<std::int64_t>::min();
    return std::chrono::microseconds(age);
}

} // namespace kelvo::filesystem::detail

#endif
