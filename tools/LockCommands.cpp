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
#include <thread>

#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kelvo::tool {

using kelvo::filesystem::FileLock;
using kelvo::filesystem::Path;

namespace {

// The shell's conventions for a command that could not be started.
constexpr int kExitCommandNotFound = 127;
constexpr int kExitCommandNotExecutable = 126;
constexpr int kExitSignalBase = 128;

/// @returns true when `name` holds a "/" or some directory of PATH holds
/// an entry called `name`.
bool commandExistsInPath(std::string const& name)
{
    if (name.find('/') != std::string::npos)
        return true;
    char const* path = std::getenv("PATH");
    std::string directories = path ? path : "/usr/bin:/bin";
    for (std::size_t start = 0; start <= directories.size();) {
        std::size_t end = directories.find(':', start);
        if (end == std::string::npos)
            end = directories.size();
        std::string directory = directories.substr(start, end - start);
        std::string candidate = (directory.empty() ? std::string(".") : directory) + "/" + name;
        struct stat st;
        if (::stat(candidate.c_str(), &st) == 0)
            return true;
        start = end + 1;
    }
    return false;
}

/// Runs `command` (searched in PATH) with this process's standard streams and
/// waits for it.
/// @returns its exit status, 128 plus the signal number when a signal ended
/// it, 126 or 127 when it could not be started, or -1 when no process could
/// be made.
int runAndWait(std::vector<std::string> const& command)
{
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string const& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);

    std::cout.flush();
    std::cerr.flush();
    pid_t child = ::fork();
    if (child < 0)
        return -1;
    if (child == 0) {
        // The child inherits the lock's descriptor. That is harmless: the lock
        // belongs to the open file, which this process keeps open until it
        // exits, so the child's exit cannot release it.
        ::execvp(arguments[0], arguments.data());
        int error = errno;
        if (error == EACCES && !commandExistsInPath(command[0]))
            error = ENOENT; // only directories of PATH were closed: the command is not there
        std::string message = "kelvo-fs lock: cannot run '" + command[0] + "': " + std::strerror(error) + "\n";
        ssize_t ignored = ::write(STDERR_FILENO, message.data(), message.size());
        (void)ignored;
        ::_exit(error == ENOENT ? kExitCommandNotFound : kExitCommandNotExecutable);
    }

    int waitStatus = 0;
    while (::waitpid(child, &waitStatus, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    if (WIFEXITED(waitStatus))
        return WEXITSTATUS(waitStatus);
    if (WIFSIGNALED(waitStatus))
        return kExitSignalBase + WTERMSIG(waitStatus);
    return -1;
}

} // namespace

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
        errno = 0;
        if (!fs::exists(file))
            return failure(invocation, "cannot lock " + quoteName(text) + ": " + reasonText(errno, "does not exist"));
        if (fs::isDirectory(file))
            return failure(invocation, "cannot lock " + quoteName(text) + ": " + reasonText(EISDIR));
        lock.emplace();
        errno = 0;
        if (lock->lockFile(file))
            break;
        int const error = errno;
        lock.reset();
        if (error != EWOULDBLOCK && error != EAGAIN && error != EINTR)
            return failure(invocation, "cannot lock " + quoteName(text) + ": " + reasonText(error));
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

    int status = runAndWait(invocation.afterSeparator);
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
