// Path length limits: the three limits read from pathconf at each use, and the length checks built on them.
#include <kelvo/filesystem/Operations.h>

#include "filesystem/transformations/CanonicalNative.h"
#include "filesystem/path/PathInternal.h"
#include "filesystem/posix/Names.h"

#include <cstdint>

namespace kelvo::filesystem {

namespace {

constexpr std::int64_t kLargestLimit = 2147483647;
// What a system without a practical limit is taken to allow.
constexpr std::int32_t kLargePathLength = 32767;
constexpr std::int32_t kLargeNameLength = 255;
// Room kept between a directory's path and the longest path, for the names
// that will be made inside it.
constexpr std::int32_t kDirectoryMargin = 25;

// The root's path limit, asked afresh at every use: nothing is cached.
std::int64_t rootPathLimit() noexcept { return posix::pathConfiguration("/", posix::PathLimit::pathLength); }

bool isLarge(std::int64_t limit) noexcept { return limit > kLargestLimit; }

// The directory path limit for a root path limit `p`, as a signed 32-bit value.
std::int32_t directoryLimitFor(std::int64_t p) noexcept
{
    return isLarge(p) ? kLargePathLength - kDirectoryMargin : static_cast<std::int32_t>(p) - kDirectoryMargin;
}

// Lengths are compared without sign, so a negative limit never fails one.
bool exceeds(std::size_t length, std::int32_t limit) noexcept
{
    return static_cast<std::uint64_t>(length) > static_cast<std::uint64_t>(static_cast<std::int64_t>(limit));
}

std::size_t nativeLength(Path const& path) { return PathNativeAccess::native(path).size(); }

} // namespace

void setUseLongPathNames(bool) {}

std::int32_t getMaxNativeStringPathLength()
{
    std::int64_t const p = rootPathLimit();
    return isLarge(p) ? kLargePathLength : static_cast<std::int32_t>(p);
}

std::int32_t getMaxNativeStringDirectoryLength() { return directoryLimitFor(rootPathLimit()); }

std::int32_t getMaxNativeStringNameLength(Path const& path)
{
    Path const root("/");
    bool const isRoot = path == root;
    Path const directory = isRoot ? path : path.parentPath();
    // A missing directory, and the empty parent of a single relative name,
    // take the root's limit. The root itself is asked even if it cannot be
    // stat'ed, so that the fallback always ends.
    if (!exists(directory) && !isRoot)
        return getMaxNativeStringNameLength(root);
    std::int64_t const n = posix::pathConfiguration(PathNativeAccess::cString(directory), posix::PathLimit::nameLength);
    return isLarge(n) ? kLargeNameLength : static_cast<std::int32_t>(n);
}

bool isValidPathLengthC(Path const& path, bool checkParent, bool parentExists)
{
    std::int64_t p = rootPathLimit();
    if (isLarge(p) || static_cast<std::int32_t>(p) > 0) {
        if (exceeds(nativeLength(path), directoryLimitFor(p)))
            return false;
    }

    Path const parent = path.parentPath();
    Path full = path;
    if (checkParent) {
        parentExists = exists(parent);
        // The existing part is measured in its real, link-free form.
        if (parentExists)
            full = canonicalNative(PathNativeAccess::native(parent)) / path.filename();
    }

    p = rootPathLimit();
    if (isLarge(p) || directoryLimitFor(p) > 0) {
        if (exceeds(nativeLength(full), directoryLimitFor(p)))
            return false;
    }

    std::int32_t const n = getMaxNativeStringNameLength(full);
    if (n <= 0)
        return true;

    Path current = full;
    if (parentExists) {
        // Only the last name is new.
        if (!exceeds(nativeLength(current), n))
            return true;
        return !exceeds(nativeLength(current.filename()), n);
    }
    // Walks up the names that do not exist yet; names that exist are valid.
    // The walk ends at the latest at an empty path or "/", both within `n`.
    for (;;) {
        if (!exceeds(nativeLength(current), n))
            return true;
        if (exceeds(nativeLength(current.filename()), n))
            return false;
        current = current.parentPath();
        if (exists(current))
            return true;
    }
}

bool isValidPathLength(Path const& path) { return isValidPathLengthC(path, true, false); }

bool isValidDirectoryPathLength(Path const& path)
{
    Path const parent = path.parentPath();
    Path full = path;
    bool const parentExists = exists(parent);
    if (parentExists)
        full = canonicalNative(PathNativeAccess::native(parent)) / path.filename();
    if (!isValidPathLengthC(full, false, parentExists))
        return false;
    // A second guard, although the check above already keeps the length
    // below the directory limit. Unsigned, so a limit of -1 admits anything.
    std::int64_t const p = rootPathLimit();
    std::int64_t const limit = isLarge(p) ? kLargePathLength : p;
    return static_cast<std::uint64_t>(nativeLength(full)) < static_cast<std::uint64_t>(limit);
}

} // namespace kelvo::filesystem
