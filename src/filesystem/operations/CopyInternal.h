// The directory copy as the library's own operations use it: the copy that also tells which directory it copied and which directories it could not read.
#ifndef KELVO_SRC_FILESYSTEM_COPY_INTERNAL_H
#define KELVO_SRC_FILESYSTEM_COPY_INTERNAL_H

#include <kelvo/filesystem/Path.h>

#include "filesystem/operations/TreeWalk.h"

#include <optional>
#include <vector>

namespace kelvo::filesystem::detail {

/// Copies as `copyDirectory(from, to, recursive)` does, with the same result.
/// When `copiedSource` is given, it receives the device and inode of the
/// directory the copy listed as `from` (left empty when `from` was never
/// opened), so that a caller (a move) can later delete that very directory
/// and no other. When
/// `unreadable` is given, the path of every directory (as the status
/// classification calls it, so sockets and block devices too) that the copy
/// had to list and could not is appended to it, `from` included.
/// @returns as `copyDirectory`.
bool copyDirectoryReporting(Path const& from, Path const& to, bool recursive,
                            std::optional<ObjectIdentity>* copiedSource, std::vector<Path>* unreadable);

} // namespace kelvo::filesystem::detail

#endif
