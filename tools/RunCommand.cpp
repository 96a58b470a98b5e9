// Running a command for kelvo-fs lock, mutex and tmpdir: fork, exec with the tool's standard streams, wait, and the shell's exit-status conventions.
#include "Commands.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kelvo::tool {

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
        if (kelvo::filesystem::exists(kelvo::filesystem::Path(candidate)))
            return true;
        start = end + 1;
    }
    return false;
}

} // namespace

int runCommand(Invocation const& invocation, std::vector<std::string> const& command)
{
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string const& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);

    // Made before the fork, as every message names a command.
    std::string const prefix = "kelvo-fs " + invocation.name + ": cannot run " + quoteName(command[0]) + ": ";
    std::cout.flush();
    std::cerr.flush();
    pid_t child = ::fork();
    if (child < 0)
        return -1;
    if (child == 0) {
        // The child inherits what the tool holds open (a lock's descriptor,
        // say). That is harmless: a lock belongs to the open file, which this
        // process keeps open until it is done, so the child's exit cannot
        // release it.
        ::execvp(arguments[0], arguments.data());
        int error = errno;
        if (error == EACCES && !commandExistsInPath(command[0]))
            error = ENOENT; // only directories of PATH were closed: the command is not there
        std::string const message = prefix + std::strerror(error) + "\n";
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

} // namespace kelvo::tool
