// Directory creation: one level with checks, one level bare, and a whole chain of missing parents.
#include <kelvo/filesystem/Operations.h>

#include "PathInternal.h"
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
// directory; then the missing directories are made top-most first.
bool createChain(Path const& path, char const* native)
{
    Path const parent = path.parentPath();
    if (!parent.empty() && !exists(parent)) {
        char const* parentNative = PathNativeAccess::cStringForChange(parent);
        if (parentNative == nullptr || !createChain(parent, parentNative))
            return false;
    }
    // A final "." or ".." names no new directory: the chain above it is made.
    kelvo::unicode::String const name = path.filename().string();
    if (name.size() <= 2 && !name.empty() && name[0] == U'.' && (name.size() == 1 || name[1] == U'.'))
        return true;
    return makeDirectory(native);
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
    return createChain(path, native);
}

bool createDirectoriesValidated(Path const& path)
{
    char const* native = PathNativeAccess::cStringForChange(path);
    return native != nullptr && createChain(path, native);
}

} // namespace kelvo::filesystem
