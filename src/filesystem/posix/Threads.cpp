// A thread with a stack of a chosen size, made with the POSIX thread calls and joined at once.
#include "filesystem/posix/Threads.h"

#include <pthread.h>

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
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    Work work{body, argument};
    pthread_t thread;
    bool const made = pthread_attr_setstacksize(&attributes, stackBytes) == 0
                   && pthread_create(&thread, &attributes, runWork, &work) == 0;
    pthread_attr_destroy(&attributes);
    if (!made)
        return false;
    pthread_join(thread, nullptr);
    return true;
}

} // namespace kelvo::filesystem::posix
