// A thread with a stack of a chosen size, started through the system-call table and joined at once.
#include "filesystem/posix/Threads.h"

#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/SystemCalls.h"

namespace kelvo::filesystem::posix {

namespace {

struct Work {
    void (*body)(void*);
    void* argument;
};

void* runWork(void* work)
{
    Work const& what = *static_cast<Work*>(work);
    what.body(what.argument);
    return nullptr;
}

} // namespace

bool runOnStackOf(std::size_t stackBytes, void (*body)(void*), void* argument) noexcept
{
    Work work{body, argument};
    int const error = systemCalls().runThreadWithStack(stackBytes, runWork, &work);
    if (error != 0) {
        recordFailure("pthread_create", error, {});
        return false;
    }
    return true;
}

} // namespace kelvo::filesystem::posix
