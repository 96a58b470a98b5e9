// Directory creation: one level with checks, one level bare, and a whole chain of missing parents.
#include <kelvo/filesystem/Operations.h>

#include "filesystem/path/ParentChain.h"
#include "filesystem/path/PathInternal.h"
#include "filesystem/posix/Tree.h"

namespace kelvo::filesystem {

namespace {

// Made with every access bit, so that the process's umask alone decides.
constexpr std::uint32_t kDirectoryMode = 0777;

bool makeDirectory(char const* native)
{
    return posix::makeDirectoryAt(posix::kWorkingDirectory, native, kDirectoryMode);
}

// The walk up ends at an ancestor that exists, or at an empty parent (the
// parent of a one-element relative path), which stands for the working
// directory; then the missing directories are made top-most first. A loop over
// the chain of parents, each a leading piece of the path: no recursion, no
// copies, so a path of any depth costs time and memory linear in its length.
// Every parent's native form is a piece of the path's, which holds no NUL.
bool createChain(Path const& path)
{
    detail::ParentChain chain(path);
    std::size_t top = 0;
    while (!chain.isEmpty(top + 1) && !chain.exists(top + 1))
        ++top;
    for (std::size_t level = top + 1; level-- > 0;) {
        // A final "." or ".." names no new directory: the chain above it is made.
        if (chain.filenameIsDotOrDotDot(level))
            continue;
        if (!chain.withNative(level, makeDirectory))
            return false;
    }
    return true;
}

} // namespace

bool createDirectory(Path const& path)
{
    char const* native = PathNativeAccess::cStringForChange(path);
    if (native == nullptr)
        return false;
    // Only existence counts: a file already there satisfies the call too.
    if (exists(path))
        return true;
    if (!isValidDirectoryPathLength(path))
        return false;
    return makeDirectory(native);
}

bool createDirectoryValidated(Path const& path)
{
    char const* native = PathNativeAccess::cStringForChange(path);
    return native != nullptr && makeDirectory(native);
}

bool createDirectories(Path const& path)
{
    char const* native = PathNativeAccess::cStringForChange(path);
    if (native == nullptr)
        return false;
    if (exists(path))
        return true;
    return createChain(path);
}

bool createDirectoriesValidated(Path const& path)
{
    char const* native = PathNativeAccess::cStringForChange(path);
    return native != nullptr && createChain(path);
}

} // namespace kelvo::filesystem
