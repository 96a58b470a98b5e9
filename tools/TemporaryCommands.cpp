// kelvo-fs mutex, tmp and tmpdir: running a command under a FileMutex kept fresh, showing the temporary directories, and running a command in a private temporary directory.
#include "Commands.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <thread>

#include <unistd.h>

namespace kelvo::tool {

using kelvo::filesystem::FileMutex;
using kelvo::filesystem::Path;
using kelvo::filesystem::TemporaryDirectory;

namespace {

constexpr long long kDefaultStaleAfterSeconds = 30;
constexpr long long kDefaultMaxAgeSeconds = 86400;
// The largest age limit whose microseconds fit a signed 64-bit count.
constexpr long long kLargestSeconds = std::numeric_limits<long long>::max() / 1000000;
// The heartbeat never comes more often than this.
constexpr std::chrono::milliseconds kShortestHeartbeat(100);

/// Reads the value of the option `name` as a count of seconds from 0 to
/// kLargestSeconds into `seconds`, leaving it as it is when the option was
/// not given.
/// @returns false when the value is not such a number.
bool readSeconds(Invocation const& invocation, char const* name, long long& seconds)
{
    std::string const* found = invocation.optionValue(name);
    if (found == nullptr)
        return true;
    std::string const& text = *found;
    if (text.empty() || text.size() > 18 || !std::all_of(text.begin(), text.end(), [](char c) {
            return c >= '0' && c <= '9';
        }))
        return false;
    long long const value = std::stoll(text);
    if (value > kLargestSeconds)
        return false;
    seconds = value;
    return true;
}

/// Rewrites the mutex file at regular intervals from a thread of its own, so
/// that the file stays fresh while the command runs, until `stop`.
class Heartbeat {
public:
    Heartbeat(Invocation const& invocation, FileMutex& mutex, std::string const& file,
              std::chrono::milliseconds interval)
        : thread([this, &invocation, &mutex, file, interval] { beat(invocation, mutex, file, interval); })
    {
    }

    Heartbeat(Heartbeat const&) = delete;
    Heartbeat& operator=(Heartbeat const&) = delete;

    ~Heartbeat() { stop(); }

    void stop()
    {
        {
            std::lock_guard<std::mutex> lock(mutex);
            stopping = true;
        }
        wake.notify_one();
        if (thread.joinable())
            thread.join();
    }

private:
    void beat(Invocation const& invocation, FileMutex& fileMutex, std::string const& file,
              std::chrono::milliseconds interval)
    {
        std::unique_lock<std::mutex> lock(mutex);
        bool warned = false;
        while (!wake.wait_for(lock, interval, [this] { return stopping; })) {
            std::string problem;
            try {
                // Taking it again rewrites the file: that is the heartbeat.
                if (!fileMutex.try_lock())
                    problem = quoteName(file) + ": another process took the mutex over while the command ran";
            } catch (std::logic_error const& error) {
                problem = quoteName(file) + ": " + error.what();
            }
            if (!problem.empty() && !warned) {
                failure(invocation, problem);
                warned = true;
            }
        }
    }

    std::mutex mutex;
    std::condition_variable wake;
    bool stopping = false;
    std::thread thread;
};

/// @returns true when `prefix` is made of letters, digits, '-' and '_' only.
bool isSafePrefix(std::string const& prefix)
{
    return !prefix.empty() && std::all_of(prefix.begin(), prefix.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
    });
}

} // namespace

int runMutex(Invocation const& invocation)
{
    if (invocation.operands.size() != 1)
        return badUsage(invocation, "expects one FILE before --");
    if (!invocation.sawSeparator || invocation.afterSeparator.empty())
        return badUsage(invocation, "expects -- and a COMMAND after FILE");
    long long staleAfter = kDefaultStaleAfterSeconds;
    if (!readSeconds(invocation, "--stale-after", staleAfter))
        return badUsage(invocation, "--stale-after expects a whole number of seconds");

    std::string const& file = invocation.operands[0];
    FileMutex mutex{Path(file), std::chrono::seconds(staleAfter)};
    try {
        if (!mutex.try_lock()) {
            if (::isatty(STDERR_FILENO) == 1)
                std::cerr << "kelvo-fs mutex: waiting for " << quoteName(file) << ", which another process holds...\n";
            mutex.lock();
        }
    } catch (std::logic_error const& error) {
        return failure(invocation, quoteName(file) + ": " + error.what());
    }

    int status = 0;
    int runError = 0;
    {
        // The file goes stale after more than staleAfter whole seconds, that
        // is after staleAfter + 1 seconds at the latest: rewrite it three
        // times in that span.
        auto const interval = std::max<std::chrono::milliseconds>(
            kShortestHeartbeat, std::chrono::milliseconds((staleAfter + 1) * 1000 / 3));
        Heartbeat heartbeat(invocation, mutex, file, interval);
        status = runCommand(invocation, invocation.afterSeparator);
        runError = errno;
    }
    try {
        mutex.unlock();
    } catch (std::logic_error const& error) {
        failure(invocation, quoteName(file) + ": " + error.what());
    }
    if (status < 0)
        return failure(invocation, std::string("cannot run the command: ") + std::strerror(runError));
    return status;
}

int runTemporaryDirectories(Invocation const& invocation)
{
    if (!invocation.allOperands().empty())
        return badUsage(invocation, "takes no arguments");
    std::cout << "system: " << kelvo::filesystem::getOSTemporaryDirectory().nativeString() << '\n';
    std::cout << "current: " << kelvo::filesystem::getTemporaryDirectory().nativeString() << '\n';
    return kExitSuccess;
}

int runInTemporaryDirectory(Invocation const& invocation)
{
    if (invocation.operands.size() != 1)
        return badUsage(invocation, "expects one PREFIX before --");
    if (!invocation.sawSeparator || invocation.afterSeparator.empty())
        return badUsage(invocation, "expects -- and a COMMAND after PREFIX");
    std::string const& prefix = invocation.operands[0];
    // Anything else could make the sweep's pattern match other programs'
    // files, or no pattern at all.
    if (!isSafePrefix(prefix))
        return badUsage(invocation, "PREFIX must be made of letters, digits, '-' and '_'");
    long long maxAge = kDefaultMaxAgeSeconds;
    if (!readSeconds(invocation, "--max-age", maxAge))
        return badUsage(invocation, "--max-age expects a whole number of seconds");

    startRecording();
    TemporaryDirectory directory{kelvo::unicode::String(prefix), std::chrono::seconds(maxAge)};
    Path const made = directory.get();
    kelvo::filesystem::Failure const failed = recordedFailure();
    if (!kelvo::filesystem::isDirectory(made))
        return failure(invocation, failureText("make directory", failed, made.nativeString(),
                                               "the temporary directory was not made"));
    if (::setenv("TMPDIR", made.nativeString().c_str(), 1) != 0)
        return failure(invocation, std::string("cannot set TMPDIR: ") + std::strerror(errno));
    int const status = runCommand(invocation, invocation.afterSeparator);
    if (status < 0)
        return failure(invocation, std::string("cannot run the command: ") + std::strerror(errno));
    return status;
}

} // namespace kelvo::tool
