// Test support: replacement allocation functions that fail the n-th allocation and count what is held, and a loop that fails every allocation of an operation in turn.
// Include this header in exactly one source file of a test program: it
// defines the program's replacement operator new and operator delete.
#ifndef KELVO_TESTS_SUPPORT_ALLOCATION_FAILURE_H
#define KELVO_TESTS_SUPPORT_ALLOCATION_FAILURE_H

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <new>
#include <thread>

namespace kelvo::testing {

/// Allocations made and not yet released, all threads together.
inline long liveAllocations = 0;
/// Allocations of this thread left before one fails; -1: never fail.
inline thread_local long allocationsUntilFailure = -1;

/// @returns `size` bytes (at least one) from malloc; throws std::bad_alloc
/// when this thread's allocation is due to fail or malloc fails.
inline void* countedAllocate(std::size_t size)
{
    if (allocationsUntilFailure == 0)
        throw std::bad_alloc();
    if (allocationsUntilFailure > 0)
        --allocationsUntilFailure;
    void* const p = std::malloc(size ? size : 1);
    if (p == nullptr)
        throw std::bad_alloc();
    __atomic_add_fetch(&liveAllocations, 1, __ATOMIC_RELAXED);
    return p;
}

/// Frees `p` (null is ignored) and counts it released.
inline void countedRelease(void* p) noexcept
{
    if (p != nullptr) {
        __atomic_sub_fetch(&liveAllocations, 1, __ATOMIC_RELAXED);
        std::free(p);
    }
}

/// Runs `operation` once to settle lazily built statics, then again with the
/// first, second, third... allocation failing, until it runs through. Each
/// failing run must throw std::bad_alloc and leave no allocation behind.
/// Every run happens on a thread of its own, so that it starts without texts
/// kept for reuse and gives back all it kept when the thread ends.
/// @returns the number of runs that failed; -1 (and a test failure) when the
/// operation still failed after `mostRuns` runs.
template <typename Operation>
long failEveryAllocationOf(char const* what, Operation operation, long mostRuns = 10000)
{
    SCOPED_TRACE(what);
    std::thread([&] { operation(); }).join();
    for (long n = 0; n < mostRuns; ++n) {
        long const before = __atomic_load_n(&liveAllocations, __ATOMIC_RELAXED);
        bool threw = false;
        std::thread run([&] {
            allocationsUntilFailure = n;
            try {
                operation();
            } catch (std::bad_alloc const&) {
                threw = true;
            }
            allocationsUntilFailure = -1;
        });
        run.join();
        long const after = __atomic_load_n(&liveAllocations, __ATOMIC_RELAXED);
        EXPECT_EQ(after, before) << "allocations left after failing allocation " << n;
        if (!threw || after != before)
            return n;
    }
    ADD_FAILURE() << "the operation never ran through";
    return -1;
}

} // namespace kelvo::testing

// Every allocation of the program goes through these, so that a test can
// make the n-th one fail and count what is still held afterwards.
void* operator new(std::size_t size) { return kelvo::testing::countedAllocate(size); }
void* operator new[](std::size_t size) { return kelvo::testing::countedAllocate(size); }
void operator delete(void* p) noexcept { kelvo::testing::countedRelease(p); }
void operator delete[](void* p) noexcept { kelvo::testing::countedRelease(p); }
void operator delete(void* p, std::size_t) noexcept { kelvo::testing::countedRelease(p); }
void operator delete[](void* p, std::size_t) noexcept { kelvo::testing::countedRelease(p); }

#endif
