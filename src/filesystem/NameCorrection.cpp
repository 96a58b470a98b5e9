// Name case and composition correction: the spelling of a path as it is on disk, found element by element in directory listings.
#include <kelvo/filesystem/DirectoryIterator.h>
#include <kelvo/filesystem/Operations.h>

#include "PathInternal.h"

namespace kelvo::filesystem {

namespace {

/// Looks `name` up in the listing of `directory` with the tolerant equality.
/// @returns `directory` joined with the first matching entry's own name (its
/// bytes as the listing gave them); `directory / name` when the directory
/// cannot be listed; an empty path when no entry matches.
Path findMatchingNameIn(Path const& directory, Path const& name)
{
    DirectoryIterator entries{Path(directory)};
    if (!entries.canIterate())
        return directory / name;
    DirectoryIterator const end;
    // The first match wins, even when a later entry matches exactly.
    for (; *entries != *end; ++entries) {
        Path const entryName = entries->getPath().filename();
        if (entryName == name)
            return directory / entryName;
    }
    return Path();
}

/// Corrects `path` from the first existing ancestor (`checkAll` false) or from
/// the root (`checkAll` true) down, each level looked up in the directory the
/// level above produced.
/// @returns the corrected path, or an empty path when an element has no match.
Path findSimilarNameHelper(Path const& path, bool checkAll)
{
    if (path.empty())
        return Path();
    Path const parent = path.parentPath();
    Path const name = path.filename();
    if (!checkAll) {
        if (exists(parent))
            return findMatchingNameIn(parent, name);
    } else if (parent == parent.rootPath()) {
        return findMatchingNameIn(parent, name);
    }
    Path const fixed = findSimilarNameHelper(parent, checkAll);
    if (fixed.empty())
        return Path();
    return findMatchingNameIn(fixed, name);
}

} // namespace

Path findSimilarName(Path const& path, bool checkAll)
{
    if (!checkAll && exists(path))
        return path;
    return findSimilarNameHelper(path, checkAll);
}

bool correctFileCaseAndComposition(Path& path, bool checkAll)
{
    Path candidate = (!checkAll && exists(path)) ? path : findSimilarNameHelper(path, checkAll);
    if (candidate.empty())
        return false;
    path = std::move(candidate);
    return true;
}

} // namespace kelvo::filesystem
