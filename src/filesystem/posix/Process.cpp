// The process-level calls: getenv and pthread_atfork.
#include "filesystem/posix/Process.h"

#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/SystemCalls.h"

namespace kelvo::filesystem::posix {

char const* getEnvironmentVariable(char const* name) noexcept
{
    // A variable that is not set is an answer, not a failure: nothing is recorded.
    return systemCalls().getenv(name);
}

bool registerForkHandlers(void (*prepare)(), void (*parent)(), void (*child)()) noexcept
{
    // pthread_atfork returns its error number rather than setting errno.
    int const error = systemCalls().pthreadAtfork(prepare, parent, child);
    if (error == 0)
        return true;
    recordFailure("pthread_atfork", error, {});
    return false;
}

} // namespace kelvo::filesystem::posix
