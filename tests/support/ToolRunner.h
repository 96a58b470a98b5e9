// Test support: runs the kelvo-fs tool as a child process and captures its exit status and both output streams.
#ifndef KELVO_TESTS_SUPPORT_TOOL_RUNNER_H
#define KELVO_TESTS_SUPPORT_TOOL_RUNNER_H

#include "FileTrees.h"
#include "ProcessProbes.h"
#include "ScratchDirectory.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace kelvo::testing {

/// The built tool; empty when the tool is not built.
inline constexpr char kToolPath[] = KELVO_TOOL_PATH;

/// What one run of the tool gave.
struct ToolRun {
    int exitStatus = -1; ///< the exit status, or 128 + signal, or -1 when it could not run
    std::string out;
    std::string err;
};

/// Where and how the tool runs.
struct RunSettings {
    RunSettings(std::string directory = {}, std::string temporary = {}, bool dropPrivileges = false,
                std::string zone = {})
        : workingDirectory(std::move(directory)), temporaryDirectory(std::move(temporary)),
          unprivileged(dropPrivileges), timeZone(std::move(zone))
    {
    }
    std::string workingDirectory; ///< empty: the test's own
    std::string temporaryDirectory; ///< empty: TMPDIR as inherited
    bool unprivileged = false; ///< run as user and group 65534 when this process is root
    std::string timeZone; ///< empty: TZ as inherited
    std::vector<std::string> removedVariables; ///< names of inherited variables left out
    std::vector<std::string> environment; ///< "NAME=value" entries, replacing inherited ones of the same names
    std::string standardInput; ///< a file the tool reads as standard input; empty: /dev/null
};

/// Reads both pipes until both are closed.
inline void drainPipes(int outFd, int errFd, std::string& out, std::string& err)
{
    pollfd fds[2] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
    std::string* sinks[2] = {&out, &err};
    int open = 2;
    while (open > 0) {
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0)
                continue;
            char buffer[4096];
            ssize_t const got = ::read(fds[i].fd, buffer, sizeof buffer);
            if (got > 0) {
                sinks[i]->append(buffer, static_cast<std::size_t>(got));
            } else if (got == 0 || errno != EINTR) {
                ::close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    for (pollfd const& fd : fds) {
        if (fd.fd >= 0)
            ::close(fd.fd);
    }
}

/// @returns this process's environment as `settings` changes it for the tool.
inline std::vector<std::string> toolEnvironment(RunSettings const& settings)
{
    std::vector<std::string> added = settings.environment;
    if (!settings.temporaryDirectory.empty())
        added.push_back("TMPDIR=" + settings.temporaryDirectory);
    if (!settings.timeZone.empty())
        added.push_back("TZ=" + settings.timeZone);
    std::vector<std::string> prefixes;
    for (std::string const& name : settings.removedVariables)
        prefixes.push_back(name + "=");
    for (std::string const& entry : added)
        prefixes.push_back(entry.substr(0, entry.find('=') + 1));
    std::vector<std::string> entries;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        bool replaced = false;
        for (std::string const& prefix : prefixes)
            replaced = replaced || std::strncmp(*entry, prefix.c_str(), prefix.size()) == 0;
        if (!replaced)
            entries.emplace_back(*entry);
    }
    entries.insert(entries.end(), added.begin(), added.end());
    return entries;
}

/// Runs the tool with `arguments` as `settings` say, standard input from
/// /dev/null unless they name a file, capturing its standard output and error.
/// @returns the exit status (-1 when the tool could not be started) and both outputs.
inline ToolRun runTool(std::vector<std::string> const& arguments, RunSettings const& settings = {})
{
    ToolRun run;
    std::vector<std::string> const environment = toolEnvironment(settings);
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(kToolPath));
    for (std::string const& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (std::string const& entry : environment)
        envp.push_back(const_cast<char*>(entry.c_str()));
    envp.push_back(nullptr);

    int outPipe[2];
    int errPipe[2];
    if (::pipe2(outPipe, O_CLOEXEC) != 0)
        return run;
    if (::pipe2(errPipe, O_CLOEXEC) != 0) {
        ::close(outPipe[0]);
        ::close(outPipe[1]);
        return run;
    }
    pid_t const child = ::fork();
    if (child == 0) {
        ::dup2(outPipe[1], STDOUT_FILENO);
        ::dup2(errPipe[1], STDERR_FILENO);
        int const input = ::open(settings.standardInput.empty() ? "/dev/null" : settings.standardInput.c_str(),
                                 O_RDONLY);
        if (input >= 0)
            ::dup2(input, STDIN_FILENO);
        if (!settings.workingDirectory.empty() && ::chdir(settings.workingDirectory.c_str()) != 0)
            ::_exit(125);
        if (settings.unprivileged && ::geteuid() == 0
            && (::setgroups(0, nullptr) != 0 || ::setgid(kUnprivilegedGroup) != 0
                || ::setuid(kUnprivilegedUser) != 0))
            ::_exit(kCannotDropPrivileges);
        ::execve(kToolPath, argv.data(), envp.data());
        ::_exit(124);
    }
    ::close(outPipe[1]);
    ::close(errPipe[1]);
    if (child < 0) {
        ::close(outPipe[0]);
        ::close(errPipe[0]);
        return run;
    }
    drainPipes(outPipe[0], errPipe[0], run.out, run.err);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return run;
    }
    if (WIFEXITED(status))
        run.exitStatus = WEXITSTATUS(status);
    else if (WIFSIGNALED(status))
        run.exitStatus = 128 + WTERMSIG(status);
    return run;
}

/// @returns the lines of `text` (without their newlines).
inline std::vector<std::string> linesOf(std::string const& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

/// What one shell command line (an oracle such as find, diff or cp) gave:
/// its exit status (-1 when it could not be run or did not exit) and its
/// standard output.
struct ShellRun {
    int exitStatus = -1;
    std::string out;
};

/// Runs `command` with the shell and reads its standard output whole.
inline ShellRun runShell(std::string const& command)
{
    ShellRun result;
    std::FILE* const pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr)
        return result;
    char buffer[4096];
    for (std::size_t got; (got = std::fread(buffer, 1, sizeof buffer, pipe)) != 0;)
        result.out.append(buffer, got);
    int const status = ::pclose(pipe);
    if (status != -1 && WIFEXITED(status))
        result.exitStatus = WEXITSTATUS(status);
    return result;
}

/// @returns what `command` (run by the shell) writes on its standard output.
inline std::string outputOf(std::string const& command) { return runShell(command).out; }

/// Fixture: a scratch "work" directory the tool runs in, and makers of
/// what the tool is to find there.
class ToolWorkDirectory : public ScratchDirectory {
protected:
    void SetUp() override
    {
        ScratchDirectory::SetUp();
        ASSERT_EQ(::mkdir(at("work").c_str(), 0777), 0);
    }

    /// Runs the tool in the scratch directory's "work" with `arguments`.
    ToolRun run(std::vector<std::string> const& arguments) { return runTool(arguments, RunSettings(at("work"))); }

    std::string work(std::string const& name) const { return at("work/" + name); }
    void makeDirectory(std::string const& name) { ASSERT_EQ(::mkdir(work(name).c_str(), 0777), 0) << name; }
    void makeFile(std::string const& name, std::string const& content)
    {
        ASSERT_TRUE(writeWholeFile(work(name), content)) << name;
    }
    void makeLink(std::string const& target, std::string const& name)
    {
        ASSERT_EQ(::symlink(target.c_str(), work(name).c_str()), 0) << name;
    }
};

} // namespace kelvo::testing

#endif
