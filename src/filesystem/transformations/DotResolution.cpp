// Dot resolution and completion: canonical, resolveDots, complete, systemComplete and the realpath-backed canonicalNative.
#include <kelvo/filesystem/Operations.h>

#include "filesystem/transformations/CanonicalNative.h"
#include "filesystem/path/PathInternal.h"
#include "filesystem/posix/Names.h"

#include <cstring>
#include <memory>

namespace kelvo::filesystem {

namespace {

struct RealPathReleaser {
    void operator()(char* resolved) const noexcept { posix::releaseRealPath(resolved); }
};

} // namespace

Path canonicalNative(std::string const& nativePath)
{
    // Owned before the path is built, so that a throwing construction still
    // frees the system's buffer.
    std::unique_ptr<char, RealPathReleaser> const resolved(posix::resolveRealPath(nativePath.c_str()));
    if (!resolved)
        return Path();
    return Path(std::string(resolved.get(), std::strlen(resolved.get())));
}

Path canonical(Path const& path) { return canonicalNative(PathNativeAccess::native(path)); }

Path resolveDots(Path const& path)
{
    if (path.empty())
        return Path();

    Path const dotDot("..");
    Path const dot(".");
    Path result;
    for (Path::iterator element = path.begin(), end = path.end(); !(element == end); ++element) {
        Path const& e = *element;
        if (e == dotDot) {
            // The step up is taken from the real location of what has been
            // gathered, so that ".." after a link leads to the target's parent.
            if (exists(result))
                result = canonicalNative(PathNativeAccess::native(result)).parentPath();
            else
                result = result.parentPath();
        } else if (e != dot) {
            result /= e;
        }
        if (exists(result))
            result = canonicalNative(PathNativeAccess::native(result));
    }
    if (PathNativeAccess::text(path).back() == U'/')
        result.appendSeparator();
    return result;
}

Path complete(Path const& path, Path const& base)
{
    if (path.empty())
        return path;
    // Kept: a relative base gives no error, and the path comes back as it was
    // (see docs/odd-behaviours.md, 'complete with a relative base does
    // nothing').
    if (!base.isComplete())
        return path;
    if (path.isComplete())
        return path;
    if (!path.rootName().empty())
        return path;
    return base / path;
}

Path systemComplete(Path const& path)
{
    if (path.isComplete())
        return path;
    return complete(path, getCurrentDirectory());
}

} // namespace kelvo::filesystem
