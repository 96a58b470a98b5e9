// Internal: how the listings of the library make a DirectoryEntry from a listed name and the kind the listing reported.
#ifndef KELVO_SRC_FILESYSTEM_STATUS_LISTED_ENTRY_H
#define KELVO_SRC_FILESYSTEM_STATUS_LISTED_ENTRY_H

#include <kelvo/filesystem/DirectoryIterator.h>

#include "filesystem/path/PathNativeAccess.h"
#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/System.h"
#include "filesystem/posix/Tree.h"

namespace kelvo::filesystem::detail {

/// @returns the entry of `path` (the listed directory's path joined with the
/// listed name), which the listing reported to be of kind `listed` (`unknown`
/// when it did not say). No status call is made here: the entry takes its
/// statuses on first need, as the statuses listing it at that moment would
/// have given.
DirectoryEntry listedEntry(Path&& path, posix::ObjectKind listed);

/// Makes `entry` the entry of `path`, listed as `listed`, as assigning it
/// `listedEntry(std::move(path), listed)` would, without making a second
/// entry: how a walk that builds its paths itself moves its one entry along.
void relistEntry(DirectoryEntry& entry, Path&& path, posix::ObjectKind listed) noexcept;

/// Makes `entry` the entry of the name `listed` of `directory`, as
/// `listedEntry` of their join would, reusing the storage of its path: how
/// a listing moves its one entry along. When it throws (out of memory),
/// `entry` is left as it was.
void relistEntry(DirectoryEntry& entry, Path const& directory, posix::ListedEntry const& listed);

/// Reads the entries of `directory` one at a time through the same stream
/// and reads as a `DirectoryIterator` ("." and ".." skipped), calling
/// `visit(entry)` with each `posix::ListedEntry` until it answers false. No
/// path is made and no status is taken here: a walk that only looks at names
/// pays for nothing else. A read error ends the listing as its end does, with
/// the directory's path in the failure record; a directory that cannot be
/// opened lists nothing.
template <typename Visit>
void forEachListedName(Path const& directory, Visit&& visit)
{
    posix::DirectoryStream* const stream = posix::openDirectory(PathNativeAccess::cString(directory));
    if (stream == nullptr)
        return;
    struct Closer {
        posix::DirectoryStream* stream;
        ~Closer() { posix::closeDirectory(stream); }
    } const closer{stream};
    posix::ListedEntry entry;
    for (;;) {
        posix::EntryRead const read = posix::readEntry(stream, entry);
        if (read == posix::EntryRead::failed)
            posix::setFailurePath(PathNativeAccess::cString(directory));
        if (read != posix::EntryRead::entry || !visit(static_cast<posix::ListedEntry const&>(entry)))
            return;
    }
}

} // namespace kelvo::filesystem::detail

#endif
