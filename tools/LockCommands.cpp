// kelvo-fs lock and locked: running a command under a FileLock, and asking whether a file is locked.
#include "Commands.h"

#include <cerrno>
#include <cstring>
#include <iostream>

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

int runLock(Invocation const& invocation)
{
    namespace fs = kelvo::filesystem;
    if (invocation.operands.size() != 1)
        return badUsage(invocation, "expects one FILE before --");
    if (!invocation.sawSeparator || invocation.afterSeparator.empty())
        return badUsage(invocation, "expects -- and a COMMAND after FILE");

    std::string const& text = invocation.operands[0];
    Path file(text);
    if (!fs::exists(file))
        return failure(invocation, text + ": does not exist");
    if (fs::isDirectory(file))
        return failure(invocation, text + ": is a directory; only files can be locked");
    if (FileLock::isFileLocked(file))
        return failure(invocation, text + ": is locked by another holder (or cannot be read)");
    FileLock lock;
    if (!lock.lockFile(file))
        return failure(invocation, text + ": cannot be locked (it cannot be opened for reading and writing, "
                                          "or another holder took it first)");

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
