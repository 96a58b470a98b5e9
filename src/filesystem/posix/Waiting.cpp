// POSIX wrapper for a bounded wait for a descriptor's input; generic UNIX code only.
#include "filesystem/posix/Waiting.h"

#include <cerrno>

#include <poll.h>

namespace kelvo::filesystem::posix {

namespace {

int systemWaitForInput(int descriptor, int milliseconds)
{
    pollfd watched = {descriptor, POLLIN, 0};
    return ::poll(&watched, 1, milliseconds);
}

WaitingCalls const kSystemWaitingCalls = {
    systemWaitForInput,
};

WaitingCalls calls = kSystemWaitingCalls;

} // namespace

WaitingCalls& waitingCalls() noexcept { return calls; }

WaitingCalls const& systemWaitingCalls() noexcept { return kSystemWaitingCalls; }

InputWait waitForInput(int descriptor, int milliseconds) noexcept
{
    int const result = calls.waitForInput(descriptor, milliseconds);
    if (result > 0)
        return InputWait::ready;
    if (result == 0)
        return InputWait::quiet;
    return errno == EINTR ? InputWait::ready : InputWait::failed;
}

} // namespace kelvo::filesystem::posix
