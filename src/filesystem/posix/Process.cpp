// The process-level calls: getenv, pthread_atfork and a non-blocking flock that tells busy from refused.
#include "filesystem/posix/Process.h"

#include <cerrno>
#include <cstdlib>

#include <pthread.h>
#include <sys/file.h>

namespace kelvo::filesystem::posix {

char const* getEnvironmentVariable(char const* name) noexcept
{
    return std::getenv(name);
}

bool registerForkHandlers(void (*prepare)(), void (*parent)(), void (*child)()) noexcept
{
    return ::pthread_atfork(prepare, parent, child) == 0;
}

LockAttempt tryExclusiveLock(int descriptor) noexcept
{
    if (::flock(descriptor, LOCK_EX | LOCK_NB) == 0)
        return LockAttempt::taken;
    return errno == EWOULDBLOCK || errno == EINTR ? LockAttempt::busy : LockAttempt::failed;
}

} // namespace kelvo::filesystem::posix
