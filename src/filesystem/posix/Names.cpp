// POSIX wrappers for realpath and pathconf; generic UNIX code only.
#include "filesystem/posix/Names.h"

#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/SystemCalls.h"

#include <cerrno>
#include <cstdlib>

#include <unistd.h>

namespace kelvo::filesystem::posix {

char* resolveRealPath(char const* path) noexcept
{
    // A null buffer makes realpath allocate one as long as the result needs.
    char* const resolved = systemCalls().realpath(path, nullptr);
    if (resolved == nullptr)
        recordFailure("realpath", errno, path);
    return resolved;
}

void releaseRealPath(char* resolved) noexcept { std::free(resolved); }

std::int64_t pathConfiguration(char const* path, PathLimit limit) noexcept
{
    // pathconf answers -1 both for "no limit" (errno untouched) and for a
    // failure (errno set): only the second is recorded.
    int const saved = errno;
    errno = 0;
    long const answer = systemCalls().pathconf(path, limit == PathLimit::pathLength ? _PC_PATH_MAX : _PC_NAME_MAX);
    if (answer == -1 && errno != 0)
        recordFailure("pathconf", errno, path);
    else
        errno = saved;
    return static_cast<std::int64_t>(answer);
}

} // namespace kelvo::filesystem::posix
