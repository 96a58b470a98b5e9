// Opening a file to read from without waiting on it, and reading it with a bound when it is no regular file (a FIFO or a device need never end).
#ifndef KELVO_SRC_FILESYSTEM_SOURCE_READING_H
#define KELVO_SRC_FILESYSTEM_SOURCE_READING_H

#include "filesystem/posix/Tree.h"

#include <cstddef>
#include <cstdint>

namespace kelvo::filesystem::detail {

/// The most bytes read from an object that is not a regular file (a FIFO, a
/// character or block device): /dev/zero never ends, so copies and
/// comparisons stop there and say so.
inline constexpr std::int64_t kSpecialFileLimit = 16 * 1024 * 1024;

/// How long a read from such an object waits for the next bytes, in
/// milliseconds: a FIFO whose writer has not come, or has fallen silent, is
/// taken to have ended once nothing came for this long. (A writer that comes
/// and goes without writing ends it at once.)
inline constexpr int kQuietMilliseconds = 1000;

/// Opens `name` relative to `directory` for reading, following a final link
/// only when `followLink` is true: without waiting for a FIFO's writer and without
/// taking a terminal as the controlling one (the non-blocking flag stays:
/// reads of a regular file do not look at it). A socket cannot be opened
/// (ENXIO).
/// @returns the descriptor, with `information` read from it; -1 on failure
/// (errno from the failing call, nothing left open).
int openSource(int directory, char const* name, bool followLink, posix::ObjectInformation& information) noexcept;

/// Reads an open source: a regular file as the system gives it; anything else
/// at most `kSpecialFileLimit` bytes, each read waiting at most
/// `kQuietMilliseconds` for bytes to come.
class SourceReader {
public:
    /// Reads `descriptor`, whose whole mode is `mode`, as `openSource` left it.
    SourceReader(int descriptor, std::uint32_t mode) noexcept;

    /// Reads up to `count` bytes into `buffer`.
    /// @returns the count read; 0 at the end, once the source fell quiet, or
    /// once the bound was reached (see `cutShort`); -1 on failure.
    long read(char* buffer, std::size_t count) noexcept;

    /// @returns true when reading stopped at the bound while the source still
    /// had bytes to give.
    bool cutShort() const noexcept { return cut; }

    /// @returns true when a read failed (its failure is in the record).
    bool readFailed() const noexcept { return failed; }

private:
    long readBounded(char* buffer, std::size_t count) noexcept;

    int descriptor;
    bool special;
    bool fifo;
    bool cut = false;
    bool waitedForWriter = false;
    bool failed = false;
    std::int64_t total = 0;
};

/// Compares two open sources that the status gave the same `size` (a
/// regular file's; any value for other sources) block by block, reading
/// past `size` when a file grew. A read that fails counts as the end of its
/// source (see `SourceReader::readFailed`). Sources cut short at the bound
/// were not seen to their ends and are not called equal.
/// @returns true when both gave the same bytes to the same end.
bool sameContents(SourceReader& a, SourceReader& b, std::int64_t size);

} // namespace kelvo::filesystem::detail

#endif
