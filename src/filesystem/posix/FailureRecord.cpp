// The per-thread failure record behind lastFailure: the reason, the name of the call and the native bytes of the path it was made on.
#include "filesystem/posix/FailureRecord.h"

#include <kelvo/filesystem/Failure.h>

#include <cerrno>
#include <new>
#include <string>

namespace kelvo::filesystem {

namespace {

struct Record {
    int error = 0;
    char const* call = nullptr; // a string literal
    std::string path;
};

// Constant-initialised and trivially destroyed but for the string, which a
// thread's exit frees.
thread_local Record record;
thread_local unsigned long recorded = 0;

} // namespace

namespace posix {

void recordFailure(char const* call, int error, std::string_view path) noexcept
{
    int const saved = errno;
    record.error = error;
    record.call = call;
    ++recorded;
    try {
        record.path.assign(path.data() != nullptr ? path : std::string_view());
    } catch (std::bad_alloc const&) {
        record.path.clear();
    }
    errno = saved;
}

void recordRefusal(char const* call, Refusal refusal, std::string_view path) noexcept
{
    recordFailure(call, refusal == Refusal::loop ? ELOOP : ENOENT, path);
}

void setFailurePath(std::string_view path) noexcept
{
    if (record.error == 0)
        return;
    int const saved = errno;
    try {
        record.path.assign(path);
    } catch (std::bad_alloc const&) {
        record.path.clear();
    }
    errno = saved;
}

FailureReason lastFailureReason() noexcept
{
    switch (record.error) {
    case 0:
        return FailureReason::none;
    case ENOENT:
        return FailureReason::missing;
    case EAGAIN:
#if EWOULDBLOCK != EAGAIN
    case EWOULDBLOCK:
#endif
        return FailureReason::wouldBlock;
    case EINTR:
        return FailureReason::interrupted;
    default:
        return FailureReason::other;
    }
}

unsigned long failureCount() noexcept { return recorded; }

void setFailurePathSince(unsigned long countBefore, std::string_view path) noexcept
{
    if (recorded != countBefore)
        setFailurePath(path);
}

} // namespace posix

Failure lastFailure()
{
    Failure failure;
    if (record.error == 0)
        return failure;
    failure.error = std::error_code(record.error, std::generic_category());
    failure.call = record.call != nullptr ? record.call : "";
    failure.path = Path(record.path);
    return failure;
}

void clearLastFailure() noexcept
{
    record.error = 0;
    record.call = nullptr;
    record.path.clear();
}

} // namespace kelvo::filesystem
