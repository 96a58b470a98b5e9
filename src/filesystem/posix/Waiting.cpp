// POSIX wrappers for a descriptor's blocking mode and a bounded wait for its input; generic UNIX code only.
#include "filesystem/posix/Waiting.h"

#include <cerrno>

#include <fcntl.h>
#include <poll.h>

namespace kelvo::filesystem::posix {

namespace {

int systemGetStatusFlags(int descriptor) { return ::fcntl(descriptor, F_GETFL); }

int systemSetStatusFlags(int descriptor, int flags) { return ::fcntl(descriptor, F_SETFL, flags); }

int systemWaitForInput(int descriptor, int milliseconds)
{
    pollfd watched = {descriptor, POLLIN, 0};
    return ::poll(&watched, 1, milliseconds);
}

WaitingCalls const kSystemWaitingCalls = {
    systemGetStatusFlags,
    systemSetStatusFlags,
    systemWaitForInput,
};

WaitingCalls calls = kSystemWaitingCalls;

} // namespace

WaitingCalls& waitingCalls() noexcept { return calls; }

WaitingCalls const& systemWaitingCalls() noexcept { return kSystemWaitingCalls; }

bool setNonBlocking(int descriptor, bool nonBlocking) noexcept
{
    int const flags = calls.getStatusFlags(descriptor);
    if (flags < 0)
        return false;
    int const wanted = nonBlocking ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK);
    return wanted == flags || calls.setStatusFlags(descriptor, wanted) == 0;
}

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
