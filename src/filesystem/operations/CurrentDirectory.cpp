// Reading and changing the current directory.
#include <kelvo/filesystem/Operations.h>

#include "filesystem/path/PathInternal.h"
#include "filesystem/posix/System.h"

#include <cstddef>
#include <string>
#include <vector>

namespace kelvo::filesystem {

namespace {

constexpr std::size_t kInitialWorkingDirectorySize = 1024;

} // namespace

Path getCurrentDirectory()
{
    Path result;
    std::size_t size = kInitialWorkingDirectorySize;
    std::vector<char> buffer(size + 1, '\0');
    while (result.empty()) {
        switch (posix::getWorkingDirectory(buffer.data(), size)) {
        case posix::WorkingDirectoryResult::found:
            // The bytes the system gave are kept as the native form.
            result = Path(std::string(buffer.data()));
            if (result.empty())
                return result; // nothing to grow for: the system named no directory
            break;
        case posix::WorkingDirectoryResult::bufferTooSmall:
            // No upper bound: the buffer doubles until the path fits.
            size *= 2;
            buffer.resize(size + 1, '\0');
            break;
        case posix::WorkingDirectoryResult::failed:
            return result;
        }
    }
    return result;
}

bool setCurrentDirectory(Path const& path)
{
    if (!exists(path))
        return false;
    char const* const native = PathNativeAccess::cStringForChange(path);
    if (native == nullptr)
        return false;
    return posix::changeWorkingDirectory(native);
}

} // namespace kelvo::filesystem
