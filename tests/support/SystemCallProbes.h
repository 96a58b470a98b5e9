// Probes at the system-call table for tests of the internal layer: calls that
// count, and a fixture that puts the system's own calls back after each test.
// Only internal tests include this header: it reaches into the library's
// sources.
#ifndef KELVO_TESTS_SUPPORT_SYSTEM_CALL_PROBES_H
#define KELVO_TESTS_SUPPORT_SYSTEM_CALL_PROBES_H

#include "filesystem/posix/SystemCalls.h"

#include "ScratchDirectory.h"

#include <cstddef>

#include <sys/stat.h>

namespace kelvo::testing {

/// Status calls (stat, lstat, fstatat) made through the counting calls below.
inline int statusCalls = 0;

inline int countingStat(char const* path, struct stat* information)
{
    ++statusCalls;
    return kelvo::filesystem::posix::systemCallsOfTheSystem().stat(path, information);
}

inline int countingLstat(char const* path, struct stat* information)
{
    ++statusCalls;
    return kelvo::filesystem::posix::systemCallsOfTheSystem().lstat(path, information);
}

inline int countingFstatat(int directory, char const* name, struct stat* information, int flags)
{
    ++statusCalls;
    return kelvo::filesystem::posix::systemCallsOfTheSystem().fstatat(directory, name, information, flags);
}

/// Fixture: a scratch directory, and a system-call table the test may change
/// at will; the count of status calls starts at zero, and the system's own
/// calls are put back at the end.
class FaultedSystemCalls : public ScratchDirectory {
protected:
    void SetUp() override
    {
        ScratchDirectory::SetUp();
        statusCalls = 0;
    }
    void TearDown() override
    {
        kelvo::filesystem::posix::systemCalls() = kelvo::filesystem::posix::systemCallsOfTheSystem();
        ScratchDirectory::TearDown();
    }
};

} // namespace kelvo::testing

#endif
