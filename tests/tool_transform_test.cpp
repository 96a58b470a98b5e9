// Tests of the kelvo-fs path transformation commands: resolve, canonical, complete, limits, check-length, sanitize, dos83, elide, glob and fix-case, each run as a process.
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr char kToolPath[] = KELVO_TOOL_PATH;

struct ToolRun {
    int exitStatus = -1; ///< the exit status, 128 + signal, or -1 when it could not run
    std::string out;
    std::string err;
};

/// Runs the tool with `arguments` in `workingDirectory` (the test's own when
/// empty), capturing both output streams.
ToolRun runTool(std::vector<std::string> const& arguments, std::string const& workingDirectory = "")
{
    ToolRun run;
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(kToolPath));
    for (std::string const& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
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
        if (!workingDirectory.empty() && ::chdir(workingDirectory.c_str()) != 0)
            ::_exit(125);
        ::execv(kToolPath, argv.data());
        ::_exit(124);
    }
    ::close(outPipe[1]);
    ::close(errPipe[1]);
    if (child < 0) {
        ::close(outPipe[0]);
        ::close(errPipe[0]);
        return run;
    }
    pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
    std::string* sinks[2] = {&run.out, &run.err};
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

class ToolTransform : public kelvo::testing::ScratchDirectory {};

TEST_F(ToolTransform, EveryCommandHasHelp)
{
    for (char const* command :
         {"resolve", "canonical", "complete", "limits", "check-length", "sanitize", "dos83", "elide", "glob", "fix-case"}) {
        ToolRun const run = runTool({command, "--help"});
        EXPECT_EQ(run.exitStatus, 0) << command;
        EXPECT_EQ(run.out.rfind(std::string("Usage: kelvo-fs ") + command, 0), 0u) << command << ": " << run.out;
        EXPECT_TRUE(run.err.empty()) << command;
    }
    ToolRun const overview = runTool({"--help"});
    for (char const* command : {"resolve PATH", "canonical PATH", "complete PATH [BASE]", "limits [DIRECTORY]",
                                "check-length [--directory] PATH", "sanitize PATH", "dos83 PATH",
                                "elide --width N [--ellipsis TEXT] PATH",
                                "glob PATTERN NAME...", "fix-case [--all] PATH"})
        EXPECT_NE(overview.out.find(command), std::string::npos) << command;
}

TEST_F(ToolTransform, Resolve)
{
    ASSERT_EQ(::mkdir(at("d").c_str(), 0777), 0);
    ASSERT_EQ(::symlink(at("d").c_str(), at("l").c_str()), 0);
    ToolRun run = runTool({"resolve", at("l/./x/../y")});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, at("d/y") + "\n");
    run = runTool({"resolve", "/.."});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, "\n");
    run = runTool({"resolve", "x/../"}, scratch);
    EXPECT_EQ(run.out, "/\n");
    EXPECT_EQ(runTool({"resolve"}).exitStatus, 2);
    EXPECT_EQ(runTool({"resolve", "a", "b"}).exitStatus, 2);
}

TEST_F(ToolTransform, Canonical)
{
    writeFile("f");
    ASSERT_EQ(::symlink(at("f").c_str(), at("l").c_str()), 0);
    ToolRun run = runTool({"canonical", at("l")});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, at("f") + "\n");
    run = runTool({"canonical", at("missing/f")});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_TRUE(run.out.empty());
    EXPECT_NE(run.err.find("cannot be resolved"), std::string::npos) << run.err;
}

TEST_F(ToolTransform, Complete)
{
    EXPECT_EQ(runTool({"complete", "a/b", "/base"}).out, "/base/a/b\n");
    EXPECT_EQ(runTool({"complete", "a", "rel"}).out, "a\n");
    EXPECT_EQ(runTool({"complete", "/a", "/base"}).out, "/a\n");
    ToolRun const run = runTool({"complete", "a"}, scratch);
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, at("a") + "\n");
    EXPECT_EQ(runTool({"complete"}).exitStatus, 2);
    EXPECT_EQ(runTool({"complete", "a", "b", "c"}).exitStatus, 2);
}

TEST_F(ToolTransform, Limits)
{
    long const pathLimit = ::pathconf("/", _PC_PATH_MAX);
    long const nameLimit = ::pathconf(scratch.c_str(), _PC_NAME_MAX);
    ASSERT_GT(pathLimit, 0);
    ToolRun run = runTool({"limits", scratch});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, "path length:           " + std::to_string(pathLimit) + "\n"
                       "directory path length: " + std::to_string(pathLimit - 25) + "\n"
                       "name length:           " + std::to_string(nameLimit) + "\n");
    run = runTool({"limits"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_NE(run.out.find("name length:           " + std::to_string(::pathconf("/", _PC_NAME_MAX))),
              std::string::npos);
    EXPECT_EQ(runTool({"limits", "a", "b"}).exitStatus, 2);
}

TEST_F(ToolTransform, CheckLength)
{
    long const nameLimit = ::pathconf(scratch.c_str(), _PC_NAME_MAX);
    std::string const longest(static_cast<std::size_t>(nameLimit), 'n');
    ToolRun run = runTool({"check-length", at(longest)});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, "valid\n");
    run = runTool({"check-length", at(longest + "n")});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.out, "too long\n");
    run = runTool({"check-length", "--directory", at(longest + "n")});
    EXPECT_EQ(run.exitStatus, 1);
    run = runTool({"check-length", "--directory", at("new")});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, "valid\n");
}

TEST_F(ToolTransform, SanitizeAndDos83)
{
    EXPECT_EQ(runTool({"sanitize", "/tmp/a+b/c:d \xC3\xA9.txt"}).out, "/tmp/a_b/c_d e_.txt\n");
    EXPECT_EQ(runTool({"dos83", "My Document.html"}, scratch).out, "MYDOCU~1.HTM\n");
    writeFile("MYDOCU~1.HTM");
    ToolRun const run = runTool({"dos83", at("My Document.html")});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, at("MYDOCU~2.HTM") + "\n");
}

TEST_F(ToolTransform, Elide)
{
    EXPECT_EQ(runTool({"elide", "--width", "10", "/first/middle/last"}).out, "/first/.../last\n");
    EXPECT_EQ(runTool({"elide", "--width=10", "--ellipsis", "\xE2\x80\xA6", "/first/middle/last"}).out,
              "/first/\xE2\x80\xA6/last\n");
    EXPECT_EQ(runTool({"elide", "/first/middle/last", "--width", "100"}).out, "/first/middle/last\n");
    EXPECT_EQ(runTool({"elide", "--width", "5", "--ellipsis=", "/first/middle/last"}).out, "/first//last\n");
    EXPECT_EQ(runTool({"elide", "/a/b/c"}).exitStatus, 2);
    EXPECT_EQ(runTool({"elide", "--width", "x", "/a/b/c"}).exitStatus, 2);
    EXPECT_EQ(runTool({"elide", "--width", "-1", "/a/b/c"}).exitStatus, 2);
    EXPECT_EQ(runTool({"elide", "/a/b/c", "--width"}).exitStatus, 2);
}

TEST_F(ToolTransform, Glob)
{
    ToolRun run = runTool({"glob", "*.tmp", "a.tmp", "b.txt", "c.tmp"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, "a.tmp\nc.tmp\n");
    run = runTool({"glob", "*.TXT", "a.txt"});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_TRUE(run.out.empty());
    run = runTool({"glob", "(", "a"});
    EXPECT_EQ(run.exitStatus, 2);
    EXPECT_TRUE(run.out.empty());
    EXPECT_NE(run.err.find("is not a valid expression"), std::string::npos) << run.err;
    run = runTool({"glob", "[ab]*", "apple", "banana", "cherry"});
    EXPECT_EQ(run.out, "apple\nbanana\n");
    EXPECT_EQ(runTool({"glob", "*"}).exitStatus, 2);
}

TEST_F(ToolTransform, FixCase)
{
    ASSERT_EQ(::mkdir(at("data").c_str(), 0777), 0);
    writeFile("data/README.txt");
    writeFile("Re\xCC\x81sume\xCC\x81.pdf");
    ToolRun run = runTool({"fix-case", at("DATA/readme.TXT")});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, at("data/README.txt") + "\n");
    run = runTool({"fix-case", "--all", at("R\xC3\xA9sum\xC3\xA9.PDF")});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, at("Re\xCC\x81sume\xCC\x81.pdf") + "\n");
    run = runTool({"fix-case", at("data/new.txt")});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_TRUE(run.out.empty());
    EXPECT_NE(run.err.find("no spelling"), std::string::npos) << run.err;
}

TEST_F(ToolTransform, DemoShowsEachTransformation)
{
    ToolRun const run = runTool({"demo"});
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    for (char const* line : {"resolveDots \"DIR/archive/../notes.txt\" -> \"DIR/notes.txt\"",
                             "canonical \"DIR/archive/..\" -> \"DIR\"", "complete \"notes.txt\" against DIR -> \"DIR/notes.txt\"",
                             "isValidPathLength of a 300-byte name in DIR: false",
                             "toDos8Dot3 \"DIR/My Document.html\" -> \"DIR/MYDOCU~1.HTM\"",
                             "matchesGlobPattern \"*.txt\": notes.txt true; Readme.TXT false; notes.txt.bak false;",
                             "correctFileCaseAndComposition \"DIR/README.txt\" -> \"DIR/Readme.TXT\""})
        EXPECT_NE(run.out.find(line), std::string::npos) << line;
}

} // namespace
