// Internal: how the listings of the library make a DirectoryEntry from a listed name and the kind the listing reported.
#ifndef KELVO_SRC_FILESYSTEM_STATUS_LISTED_ENTRY_H
#define KELVO_SRC_FILESYSTEM_STATUS_LISTED_ENTRY_H

#include <kelvo/filesystem/DirectoryIterator.h>

#include "filesystem/posix/System.h"

namespace kelvo::filesystem::detail {

/// @returns the entry of `path` (the listed directory's path joined with the
/// listed name), which the listing reported to be of kind `listed` (`unknown`
/// when it did not say). No status call is made here: the entry takes its
/// statuses on first need, as the statuses listing it at that moment would
/// have given.
DirectoryEntry listedEntry(Path&& path, posix::ObjectKind listed);

} // namespace kelvo::filesystem::detail

#endif
