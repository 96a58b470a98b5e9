// kelvo-fs lock and locked: running a command under a FileLock, and asking whether a file is locked.
#include "Commands.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <system_error>
#include <thread>

namespace kelvo::tool {

using kelvo::filesystem::FileLock;
using kelvo::filesystem::Path;

namespace {

// How often a waiting lock tries again.
constexpr std::chrono::milliseconds kRetryInterval(50);

/// Reads a number of seconds ("5", "0.25").
/// @returns false when `text` is not a finite number of seconds from 0 up.
bool parseSeconds(std::string const& text, double& seconds)
{
    if (text.empty() || text[0] == '-' || text[0] == '+' || std::isspace(static_cast<unsigned char>(text[0])))
        return false;
    char* end = nullptr;
    errno = 0;
    seconds = std::strtod(text.c_str(), &end);
    return errno == 0 && end == text.c_str() + text.size() && std::isfinite(seconds) && seconds >= 0;
}

} // namespace

int runLock(Invocation const& invocation)
{
    namespace fs = kelvo::filesystem;
    if (invocation.operands.size() != 1)
        return badUsage(invocation, "expects one FILE before --");
    if (!invocation.sawSeparator || invocation.afterSeparator.empty() || invocation.afterSeparator[0].empty())
        return badUsage(invocation, "expects -- and a COMMAND after FILE");
    bool wait = invocation.hasOption("--wait");
    std::optional<std::chrono::steady_clock::time_point> deadline;
    if (std::string const* timeout = invocation.optionValue("--timeout")) {
        double seconds = 0;
        if (!parseSeconds(*timeout, seconds) || seconds > 1e9)
            return badUsage(invocation, "--timeout expects a number of seconds, not " + quoteName(*timeout));
        wait = true;
        deadline = std::chrono::steady_clock::now()
                   + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                       std::chrono::duration<double>(seconds));
    }

    std::string const& text = invocation.operands[0];
    Path file(text);
    // A lock object that failed keeps its descriptor and would report success
    // next time without locking anything, so every attempt takes a new one.
    std::optional<FileLock> lock;
    for (;;) {
        startRecording();
        fs::FileType const type = fs::status(file).getType();
        if (type == fs::FileType::none)
            return reportFailure(invocation, "lock", text, "it does not exist");
        if (type == fs::FileType::directory)
            return failure(invocation, "cannot lock " + quoteName(text) + ": " + reasonText(EISDIR));
        lock.emplace();
        startRecording();
        if (lock->lockFile(file))
            break;
        kelvo::filesystem::Failure const failed = recordedFailure();
        lock.reset();
        // Only a lock held by another holder is waited for.
        bool const held = failed
                          && (failed.error == std::errc::operation_would_block
                              || failed.error == std::errc::resource_unavailable_try_again
                              || failed.error == std::errc::interrupted);
        if (!held)
            return failure(invocation, failureText("lock", failed, text, "it cannot be locked"));
        if (!wait)
            return failure(invocation, "cannot lock " + quoteName(text) + ": it is locked by another holder");
        if (deadline && std::chrono::steady_clock::now() >= *deadline)
            return failure(invocation, "cannot lock " + quoteName(text) + ": still locked by another holder after "
                                           + *invocation.optionValue("--timeout") + " seconds");
        auto pause = std::chrono::steady_clock::duration(kRetryInterval);
        if (deadline)
            pause = std::max(std::chrono::steady_clock::duration::zero(),
                             std::min(pause, *deadline - std::chrono::steady_clock::now()));
        std::this_thread::sleep_for(pause);
    }

    int status = runCommand(invocation, invocation.afterSeparator);
    if (status < 0)
        return failure(invocation, std::string("cannot run the command: ") + std::strerror(errno));
    return status;
}

int runLocked(Invocation const& invocation)
{
    std::vector<std::string> operands = invocation.allOperands();
    if (operands.size() != 1)
        return badUsage(invocation, "expects one FILE");
    bool locked = FileLock::isFileLocked(Path(operands[0]));
    std::cout << (locked ? "locked" : "not locked") << '\n';
    return locked ? kExitSuccess : kExitNegative;
}

} // namespace kelvo::tool
