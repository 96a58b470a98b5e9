// POSIX wrapper for a bounded wait for a descriptor's input; generic UNIX code only.
#include "filesystem/posix/Waiting.h"

#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/SystemCalls.h"

#include <cerrno>

namespace kelvo::filesystem::posix {

InputWait waitForInput(int descriptor, int milliseconds) noexcept
{
    int const result = systemCalls().pollInput(descriptor, milliseconds);
    if (result > 0)
        return InputWait::ready;
    if (result == 0)
        return InputWait::quiet;
    recordFailure("poll", errno, {});
    return errno == EINTR ? InputWait::ready : InputWait::failed;
}

} // namespace kelvo::filesystem::posix
