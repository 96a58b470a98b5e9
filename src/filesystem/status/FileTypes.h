// Internal: the library's file type for an exact kind of object, shared by the statuses, the listings and the tree comparisons.
#ifndef KELVO_SRC_FILESYSTEM_STATUS_FILE_TYPES_H
#define KELVO_SRC_FILESYSTEM_STATUS_FILE_TYPES_H

#include <kelvo/filesystem/FileStatus.h>

#include "filesystem/posix/System.h"

namespace kelvo::filesystem::detail {

/// @returns the file type of the exact kind `kind`; a socket, which has no
/// type of its own, and an unknown kind are `unknown`.
inline FileType fileTypeOf(posix::ObjectKind kind) noexcept
{
    switch (kind) {
    case posix::ObjectKind::directory:
        return FileType::directory;
    case posix::ObjectKind::symbolicLink:
        return FileType::symbolicLink;
    case posix::ObjectKind::regularFile:
        return FileType::regularFile;
    case posix::ObjectKind::characterDevice:
        return FileType::characterDevice;
    case posix::ObjectKind::fifo:
        return FileType::fifo;
    case posix::ObjectKind::blockDevice:
        return FileType::blockDevice;
    case posix::ObjectKind::socket:
    case posix::ObjectKind::unknown:
        break;
    }
    return FileType::unknown;
}

} // namespace kelvo::filesystem::detail

#endif
