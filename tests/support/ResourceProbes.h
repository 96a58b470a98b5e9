// Test support: running code on a thread with a small machine stack, and measuring how much the peak resident memory of a forked child grows while it runs code.
#ifndef KELVO_TESTS_SUPPORT_RESOURCE_PROBES_H
#define KELVO_TESTS_SUPPORT_RESOURCE_PROBES_H

#include "ProcessProbes.h"

#include <cstddef>
#include <cstdio>
#include <string>

#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kelvo::testing {

/// The stack of the small-stack threads: walks must not need more, however
/// deep the path.
inline constexpr std::size_t kSmallStackBytes = 256 * 1024;

/// The most a walk down a long path may add to the peak resident memory.
inline constexpr long long kMemoryBoundKiB = 64 * 1024;

/// @returns `piece` written `times` times over.
inline std::string repeated(std::string const& piece, int times)
{
    std::string out;
    out.reserve(piece.size() * static_cast<std::size_t>(times));
    for (int i = 0; i < times; ++i)
        out += piece;
    return out;
}

/// Lowers this process's limit of open descriptors to `count`.
/// @returns true when the limit is in place.
inline bool limitDescriptors(rlim_t count)
{
    struct rlimit limit = {count, count};
    return ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

/// What `runOnSmallStack` returns when the thread could not be started.
inline constexpr int kThreadNotStarted = 122;
/// What `runOnSmallStack` and `measureInChild` give when the body threw (out
/// of memory under the cap, say) instead of returning.
inline constexpr int kBodyThrew = 123;

/// @returns what `body` returns, or `kBodyThrew` when it throws: a forked
/// child must never carry an exception back into the test that forked it.
template <typename Body>
int returnedOrThrew(Body& body) noexcept
{
    try {
        return body();
    } catch (...) {
        return kBodyThrew;
    }
}

namespace detail {

template <typename Body>
struct SmallStackCall {
    Body* body;
    int result;
};

template <typename Body>
void* runSmallStackCall(void* argument)
{
    auto* call = static_cast<SmallStackCall<Body>*>(argument);
    call->result = returnedOrThrew(*call->body);
    return nullptr;
}

} // namespace detail

/// Runs `body` on a new thread whose machine stack is `stackBytes` long (a
/// `std::thread` cannot be given a stack size) and waits for it; an exception
/// out of `body` gives `kBodyThrew`. Run it in a
/// forked child (`runInChild`) when `body` may overflow the stack, so that the
/// test sees a failure rather than a crash.
/// @returns what `body` returned, or `kThreadNotStarted`.
template <typename Body>
int runOnSmallStack(Body body, std::size_t stackBytes = kSmallStackBytes)
{
    pthread_attr_t attributes;
    if (::pthread_attr_init(&attributes) != 0)
        return kThreadNotStarted;
    detail::SmallStackCall<Body> call{&body, kThreadNotStarted};
    pthread_t thread;
    bool const started = ::pthread_attr_setstacksize(&attributes, stackBytes) == 0
                      && ::pthread_create(&thread, &attributes, detail::runSmallStackCall<Body>, &call) == 0;
    ::pthread_attr_destroy(&attributes);
    if (!started)
        return kThreadNotStarted;
    ::pthread_join(thread, nullptr);
    return call.result;
}

/// Whether this build runs under a sanitizer, whose shadow memory needs an
/// address space that no cap would leave it.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kUnderSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
inline constexpr bool kUnderSanitizer = true;
#else
inline constexpr bool kUnderSanitizer = false;
#endif
#else
inline constexpr bool kUnderSanitizer = false;
#endif

/// What a sanitizer may keep resident of the memory a body frees, to allow
/// for on top of any bound of peak growth: AddressSanitizer holds freed blocks
/// in a quarantine (256 MB by default) instead of handing them out again, so
/// there every short-lived copy a body makes adds to its peak.
inline constexpr long long kSanitizerHeldKiB = kUnderSanitizer ? 256LL * 1024 : 0;

/// The room a measured child may take beyond what it had at the start before
/// an allocation fails, so that code that would grow without measure fails
/// fast instead of taking the machine's memory (not applied under a sanitizer).
inline constexpr long long kChildAddressSpaceRoom = 1024LL * 1024 * 1024;

/// What `measureInChild` found.
struct ChildMeasure {
    int exitStatus = kChildDidNotExit; ///< what the body returned, or `kChildDidNotExit`
    long long peakGrowthKiB = -1;      ///< growth of the peak resident size, in KiB; -1 when unknown
};

/// @returns the peak resident size of this process so far, in KiB.
inline long long peakResidentKiB()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

/// @returns the peak resident size of the waited-for children of this
/// process, in KiB.
inline long long childrenPeakResidentKiB()
{
    rusage usage{};
    ::getrusage(RUSAGE_CHILDREN, &usage);
    return usage.ru_maxrss;
}

/// Caps the address space of this process at what it uses now plus
/// `kChildAddressSpaceRoom`, unless a sanitizer needs the room. For forked
/// children only.
inline void capAddressSpace()
{
    if (kUnderSanitizer)
        return;
    long long pages = 0;
    if (std::FILE* statm = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(statm, "%lld", &pages) != 1)
            pages = 0;
        std::fclose(statm);
    }
    if (pages <= 0)
        return;
    rlim_t const limit = static_cast<rlim_t>(pages * ::sysconf(_SC_PAGESIZE) + kChildAddressSpaceRoom);
    rlimit const cap{limit, limit};
    ::setrlimit(RLIMIT_AS, &cap);
}

/// Lowers the peak resident size the system keeps for this process to what
/// it uses now, so that a measurement starts clean (a forked child may begin
/// with its parent's peak). Linux only; elsewhere nothing changes.
inline void resetPeakResident()
{
    int const fd = ::open("/proc/self/clear_refs", O_WRONLY);
    if (fd < 0)
        return;
    (void)::write(fd, "5", 1);
    ::close(fd);
}

/// Runs `body` in a forked child with a capped address space (see
/// `capAddressSpace`) and measures how much the child's peak resident size
/// grew while `body` ran. What `body` returns is the child's exit status
/// (`kBodyThrew` when it throws).
template <typename Body>
ChildMeasure measureInChild(Body body)
{
    ChildMeasure measure;
    int channel[2];
    if (::pipe(channel) != 0)
        return measure;
    pid_t const child = ::fork();
    if (child == 0) {
        ::close(channel[0]);
        capAddressSpace();
        resetPeakResident();
        long long const before = peakResidentKiB();
        int const status = returnedOrThrew(body);
        long long const growth = peakResidentKiB() - before;
        (void)::write(channel[1], &growth, sizeof growth);
        ::_exit(status);
    }
    ::close(channel[1]);
    if (child < 0) {
        ::close(channel[0]);
        return measure;
    }
    long long growth = -1;
    if (::read(channel[0], &growth, sizeof growth) == static_cast<ssize_t>(sizeof growth))
        measure.peakGrowthKiB = growth;
    ::close(channel[0]);
    int status = 0;
    if (::waitpid(child, &status, 0) == child && WIFEXITED(status))
        measure.exitStatus = WEXITSTATUS(status);
    return measure;
}

} // namespace kelvo::testing

#endif
