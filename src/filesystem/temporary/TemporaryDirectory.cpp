// TemporaryDirectory and the reapers: scope-bound deletion of files, trees and private temporary directories, with the sweep of old leftovers.
#include <kelvo/filesystem/TemporaryDirectory.h>

#include <kelvo/filesystem/DirectoryIterator.h>
#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/private/TemporaryDirectoryStack.h>

#include "filesystem/status/FileAge.h"
#include "filesystem/path/PathInternal.h"
#include "filesystem/temporary/RandomNumber.h"

#include <string>

namespace kelvo::filesystem {

using kelvo::unicode::String;

namespace {

// Deletes the entries of `base` whose names match `prefix` followed by "*" and
// that were last modified more than `maxAge` ago: what earlier runs that
// crashed left behind.
void sweepLeftovers(Path const& base, String const& prefix, std::chrono::microseconds maxAge)
{
    String const pattern = prefix + U'*';
    for (DirectoryIterator entry(base), end; entry != end; ++entry) {
        Path const& candidate = entry->getPath();
        if (!matchesGlobPattern(candidate.filename(), pattern))
            continue;
        // Compared to the microsecond, with no rounding to seconds.
        if (detail::ageOf(getModificationTime(candidate)) > maxAge)
            removeAll(candidate);
    }
}

} // namespace

PathReaper::PathReaper(Path const& path) : path(path) {}

PathReaper::~PathReaper()
{
    if (!path.empty() && exists(path))
        remove(path);
}

void PathReaper::cancel() noexcept
{
    path.clear();
}

Path const& PathReaper::get() const noexcept
{
    return path;
}

DirectoryReaper::DirectoryReaper(Path const& path) : path(path) {}

DirectoryReaper::~DirectoryReaper()
{
    if (!path.empty() && exists(path))
        removeAll(path);
}

void DirectoryReaper::cancel() noexcept
{
    path.clear();
}

Path const& DirectoryReaper::get() const noexcept
{
    return path;
}

TemporaryDirectory::TemporaryDirectory(Path const& path)
{
    createDirectories(path);
    kelvo_private::filesystem::setTemporaryDirectoryInternal(path);
}

TemporaryDirectory::TemporaryDirectory(String const& prefix, std::chrono::microseconds maxAge) : prefix(prefix)
{
    sweepLeftovers(kelvo_private::filesystem::getTemporaryDirectoryInternal(), prefix, maxAge);
    Path const directory =
        makeUniqueTemporaryDirectory(kelvo_private::filesystem::getTemporaryDirectoryInternal(), prefix);
    createDirectories(directory);
    kelvo_private::filesystem::setTemporaryDirectoryInternal(directory);
}

TemporaryDirectory::~TemporaryDirectory()
{
    // Whatever is current now goes, not a directory remembered at
    // construction: strictly nested objects make the two the same.
    Path const current = kelvo_private::filesystem::getTemporaryDirectoryInternal();
    kelvo_private::filesystem::restoreTemporaryDirectoryInternal();
    removeAll(current);
}

Path TemporaryDirectory::get() const
{
    return kelvo_private::filesystem::getTemporaryDirectoryInternal();
}

Path TemporaryDirectory::makeUniqueTemporaryDirectory(Path const& base, String const& prefix)
{
    std::string const start = prefix.toUTF8String();
    // A fresh draw on every attempt, with no limit on attempts: the loop ends
    // only on a free name, which some draw finds unless every one of the 2^32
    // names is taken.
    for (;;) {
        Path candidate = base / Path(start + std::to_string(detail::drawRandomNumber()));
        // A name holding a NUL byte names no file, so none exists: asking the
        // system would test the shorter name before the NUL instead, and if
        // that one is taken every draw would be too.
        if (PathNativeAccess::cStringForChange(candidate) == nullptr || !exists(candidate))
            return candidate;
    }
}

} // namespace kelvo::filesystem
