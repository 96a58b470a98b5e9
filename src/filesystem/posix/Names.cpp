// POSIX wrappers for realpath and pathconf; generic UNIX code only.
#include "filesystem/posix/Names.h"

#include <cstdlib>

#include <unistd.h>

namespace kelvo::filesystem::posix {

char* resolveRealPath(char const* path) noexcept
{
    // A null buffer makes realpath allocate one as long as the result needs.
    return ::realpath(path, nullptr);
}

void releaseRealPath(char* resolved) noexcept { std::free(resolved); }

std::int64_t pathConfiguration(char const* path, PathLimit limit) noexcept
{
    return static_cast<std::int64_t>(::pathconf(path, limit == PathLimit::pathLength ? _PC_PATH_MAX : _PC_NAME_MAX));
}

} // namespace kelvo::filesystem::posix
