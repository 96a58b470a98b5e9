// Tests of kelvo-fs mutex, tmp and tmpdir, and of the demo's temporary-storage lines: each run as a process, its output, exit status and traces on disk checked.
#include <kelvo/filesystem.h>

#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"
#include "support/ToolRunner.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::FileMutex;
using kelvo::filesystem::Path;
using kelvo::testing::existsByDirectProbe;
using kelvo::testing::nameSetIn;
using kelvo::testing::nowMicroseconds;
using kelvo::testing::setAge;

using kelvo::testing::kToolPath;
using kelvo::testing::ToolRun;

/// Runs the tool with `arguments` and this process's environment without the
/// four temporary-directory variables, plus `environment` ("NAME=value"
/// entries, which replace those of the same names), capturing its standard
/// output and error.
ToolRun runTool(std::vector<std::string> const& arguments, std::vector<std::string> const& environment = {})
{
    kelvo::testing::RunSettings settings;
    settings.removedVariables = {"TMPDIR", "TMP", "TEMP", "TEMPDIR"};
    settings.environment = environment;
    return kelvo::testing::runTool(arguments, settings);
}

/// @returns true when some line of `text` equals `line`.
bool hasLine(std::string const& text, std::string const& line)
{
    for (std::string const& candidate : kelvo::testing::linesOf(text)) {
        if (candidate == line)
            return true;
    }
    return false;
}

class ToolTemporaryCommandsTest : public kelvo::testing::ScratchDirectory {
protected:
    void SetUp() override
    {
        ScratchDirectory::SetUp();
        if (kToolPath[0] == '\0')
            GTEST_SKIP() << "kelvo-fs is not built (configure with KELVO_BUILD_TOOLS=ON)";
        ASSERT_EQ(::access(kToolPath, X_OK), 0) << kToolPath << " is not built yet: build the kelvo-fs target";
    }

    std::vector<std::string> scratchAsTemporary() const { return {"TMPDIR=" + scratch}; }

    void makeDirectory(std::string const& name) const { ASSERT_EQ(::mkdir(at(name).c_str(), 0755), 0) << name; }
};

// ---- help and usage -----------------------------------------------------------------------

TEST_F(ToolTemporaryCommandsTest, TheToolsHelpListsTheCommands)
{
    ToolRun run = runTool({"--help"});
    EXPECT_EQ(run.exitStatus, 0);
    for (char const* command : {"mutex", "tmp", "tmpdir"})
        EXPECT_NE(run.out.find(std::string("\n  ") + command + " "), std::string::npos) << command;
}

TEST_F(ToolTemporaryCommandsTest, EachCommandHasHelp)
{
    for (char const* command : {"mutex", "tmp", "tmpdir"}) {
        ToolRun run = runTool({command, "--help"});
        EXPECT_EQ(run.exitStatus, 0) << command;
        EXPECT_EQ(run.err, "") << command;
        std::string const usage = std::string("Usage: kelvo-fs ") + command;
        EXPECT_TRUE(run.out.rfind(usage + " ", 0) == 0 || run.out.rfind(usage + "\n", 0) == 0) << run.out;
    }
}

TEST_F(ToolTemporaryCommandsTest, BadCommandLinesExitWith2)
{
    std::vector<std::vector<std::string>> const badLines = {
        {"mutex"},
        {"mutex", "f"},
        {"mutex", "f", "--"},
        {"mutex", "--", "true"},
        {"mutex", "f", "g", "--", "true"},
        {"mutex", "f", "--stale-after", "abc", "--", "true"},
        {"mutex", "f", "--stale-after", "-1", "--", "true"},
        {"mutex", "f", "--stale-after"},
        {"mutex", "f", "--max-age", "3", "--", "true"},
        {"tmp", "x"},
        {"tmpdir"},
        {"tmpdir", "p"},
        {"tmpdir", "--", "true"},
        {"tmpdir", "a/b", "--", "true"},
        {"tmpdir", "a*", "--", "true"},
        {"tmpdir", "", "--", "true"},
        {"tmpdir", "p", "--max-age", "1.5", "--", "true"},
        {"tmpdir", "p", "--stale-after", "3", "--", "true"},
    };
    for (auto const& line : badLines) {
        ToolRun run = runTool(line, scratchAsTemporary());
        std::string shown;
        for (std::string const& argument : line)
            shown += argument + " ";
        EXPECT_EQ(run.exitStatus, 2) << shown;
        EXPECT_EQ(run.out, "") << shown;
        EXPECT_NE(run.err.find("Usage: kelvo-fs " + line[0]), std::string::npos) << shown << run.err;
    }
    EXPECT_EQ(nameSetIn(scratch), std::set<std::string>{}) << "a refused command line made something";
}

// ---- mutex --------------------------------------------------------------------------------------

TEST_F(ToolTemporaryCommandsTest, MutexHoldsTheFileWhileTheCommandRunsAndReleasesIt)
{
    ToolRun run = runTool({"mutex", at("m"), "--", "sh", "-c", "wc -c < \"$0\"", at("m")});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "4\n");
    EXPECT_FALSE(existsByDirectProbe(at("m")));
}

TEST_F(ToolTemporaryCommandsTest, MutexPassesOnTheCommandsExitStatus)
{
    ToolRun run = runTool({"mutex", at("m"), "--stale-after", "5", "--", "sh", "-c", "exit 3"});
    EXPECT_EQ(run.exitStatus, 3);
    EXPECT_FALSE(existsByDirectProbe(at("m")));

    // A PATH of searchable directories only: an unreadable one would make the
    // search fail with "permission denied" (126) for an ordinary user.
    ToolRun missing = runTool({"mutex", at("m"), "--", "kelvo-no-such-command-here"}, {"PATH=/usr/bin:/bin"});
    EXPECT_EQ(missing.exitStatus, 127);
    EXPECT_NE(missing.err.find("kelvo-fs mutex: cannot run 'kelvo-no-such-command-here'"), std::string::npos)
        << missing.err;
    EXPECT_FALSE(existsByDirectProbe(at("m")));
}

TEST_F(ToolTemporaryCommandsTest, MutexWaitsForAnotherHolder)
{
    FileMutex held(Path(at("m")), std::chrono::seconds(30));
    ASSERT_TRUE(held.try_lock());
    long long const start = nowMicroseconds();
    std::atomic<long long> released{0};
    std::thread releaser([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        released = nowMicroseconds();
        held.unlock();
    });
    ToolRun run = runTool({"mutex", at("m"), "--", "sh", "-c", "echo inside"});
    long long const finished = nowMicroseconds();
    releaser.join();
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, "inside\n");
    EXPECT_EQ(run.err, "") << "the waiting message is for terminals only";
    EXPECT_GE(finished - start, 400000);
    EXPECT_GE(finished, released.load());
    EXPECT_FALSE(existsByDirectProbe(at("m")));
}

TEST_F(ToolTemporaryCommandsTest, MutexSaysOnATerminalThatItWaits)
{
    // Standard error on a pseudo-terminal: the tool says that it waits.
    int const master = ::posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(master, 0);
    ASSERT_EQ(::grantpt(master), 0);
    ASSERT_EQ(::unlockpt(master), 0);
    std::string const terminal = ::ptsname(master);
    FileMutex held(Path(at("m")), std::chrono::seconds(30));
    ASSERT_TRUE(held.try_lock());
    std::string const file = at("m");
    pid_t const child = ::fork();
    if (child == 0) {
        int const slave = ::open(terminal.c_str(), O_RDWR | O_NOCTTY);
        int const quiet = ::open("/dev/null", O_RDWR);
        if (slave < 0 || quiet < 0)
            ::_exit(125);
        ::dup2(slave, STDERR_FILENO);
        ::dup2(quiet, STDOUT_FILENO);
        ::dup2(quiet, STDIN_FILENO);
        ::execl(kToolPath, kToolPath, "mutex", file.c_str(), "--", "true", static_cast<char*>(nullptr));
        ::_exit(124);
    }
    ASSERT_GT(child, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    held.unlock();
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    std::string said;
    pollfd ready = {master, POLLIN, 0};
    while (::poll(&ready, 1, 200) > 0) {
        char buffer[512];
        ssize_t const got = ::read(master, buffer, sizeof buffer);
        if (got <= 0)
            break;
        said.append(buffer, static_cast<std::size_t>(got));
    }
    ::close(master);
    EXPECT_NE(said.find("kelvo-fs mutex: waiting for '" + file + "', which another process holds..."),
              std::string::npos)
        << said;
}

TEST_F(ToolTemporaryCommandsTest, MutexTakesOverAStaleFile)
{
    writeFile("m", "abcd");
    ASSERT_TRUE(setAge(at("m"), 60LL * 1000000));
    ToolRun run = runTool({"mutex", at("m"), "--stale-after", "10", "--", "true"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_FALSE(existsByDirectProbe(at("m")));
}

TEST_F(ToolTemporaryCommandsTest, MutexKeepsTheFileFreshWhileTheCommandRuns)
{
    // With --stale-after 1 the file would go stale 2 s after a write; the
    // command runs 3 s and the file must never get that old.
    std::atomic<bool> done{false};
    std::atomic<long long> oldest{0};
    std::atomic<int> seen{0};
    std::thread watcher([&] {
        while (!done.load()) {
            struct stat st;
            if (::stat(at("m").c_str(), &st) == 0) {
                long long const age =
                    nowMicroseconds() - (static_cast<long long>(st.st_mtim.tv_sec) * 1000000 + st.st_mtim.tv_nsec / 1000);
                if (age > oldest.load())
                    oldest = age;
                ++seen;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    });
    ToolRun run = runTool({"mutex", at("m"), "--stale-after", "1", "--", "sleep", "3"});
    done = true;
    watcher.join();
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_GT(seen.load(), 10);
    EXPECT_LT(oldest.load(), 2000000) << "the file went stale while the command ran";
    EXPECT_FALSE(existsByDirectProbe(at("m")));
}

TEST_F(ToolTemporaryCommandsTest, MutexInAMissingDirectoryExitsWith1WithoutRunning)
{
    ToolRun run = runTool({"mutex", at("missing/m"), "--", "sh", "-c", "echo ran"});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("FileMutex can't write to mutex file. Check permissions."), std::string::npos) << run.err;
}

TEST_F(ToolTemporaryCommandsTest, MutexOfAShortFreshFileExitsWith1WithoutRunning)
{
    writeFile("m", "ab");
    ToolRun run = runTool({"mutex", at("m"), "--", "sh", "-c", "echo ran"});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("FileMutex can't open mutex file. Check permissions."), std::string::npos) << run.err;
    EXPECT_TRUE(existsByDirectProbe(at("m")));
}

// ---- tmp ------------------------------------------------------------------------------------------

TEST_F(ToolTemporaryCommandsTest, TmpShowsTheSystemAndTheCurrentDirectory)
{
    ToolRun run = runTool({"tmp"}, scratchAsTemporary());
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "system: " + scratch + "\ncurrent: " + scratch + "\n");

    ToolRun fromTmp = runTool({"tmp"}, {"TMP=/var/tmp", "TEMP=/elsewhere"});
    EXPECT_EQ(fromTmp.out, "system: /var/tmp\ncurrent: /var/tmp\n");

    ToolRun fallback = runTool({"tmp"});
    EXPECT_EQ(fallback.out, "system: /tmp\ncurrent: /tmp\n");
}

// ---- tmpdir --------------------------------------------------------------------------------------

TEST_F(ToolTemporaryCommandsTest, TmpdirRunsTheCommandInAFreshDirectoryAndDeletesIt)
{
    ToolRun run = runTool({"tmpdir", "job-", "--", "sh", "-c",
                           "echo \"$TMPDIR\"; mkdir \"$TMPDIR/sub\" && echo x > \"$TMPDIR/sub/file\""},
                          scratchAsTemporary());
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.err, "");
    ASSERT_FALSE(run.out.empty());
    std::string const made = run.out.substr(0, run.out.size() - 1);
    EXPECT_EQ(Path(made).parentPath().nativeString(), scratch);
    std::string const name = Path(made).filename().nativeString();
    EXPECT_EQ(name.rfind("job-", 0), 0u) << name;
    EXPECT_EQ(name.find_first_not_of("0123456789", 4), std::string::npos) << name;
    EXPECT_GT(name.size(), 4u);
    EXPECT_FALSE(existsByDirectProbe(made));
    EXPECT_EQ(nameSetIn(scratch), std::set<std::string>{});
}

TEST_F(ToolTemporaryCommandsTest, TmpdirPassesOnTheCommandsExitStatus)
{
    ToolRun run = runTool({"tmpdir", "job-", "--", "sh", "-c", "exit 4"}, scratchAsTemporary());
    EXPECT_EQ(run.exitStatus, 4);
    ToolRun missing = runTool({"tmpdir", "job-", "--", "kelvo-no-such-command-here"},
                              {"TMPDIR=" + scratch, "PATH=/usr/bin:/bin"});
    EXPECT_EQ(missing.exitStatus, 127);
    EXPECT_EQ(nameSetIn(scratch), std::set<std::string>{});
}

TEST_F(ToolTemporaryCommandsTest, TmpdirSweepsOldLeftoversOfThePrefixOnly)
{
    makeDirectory("job-1234");
    writeFile("job-1234/left", "x");
    makeDirectory("job-young");
    makeDirectory("other-1234");
    ASSERT_TRUE(setAge(at("job-1234"), 2 * 86400LL * 1000000));
    ASSERT_TRUE(setAge(at("other-1234"), 2 * 86400LL * 1000000));
    ASSERT_TRUE(setAge(at("job-young"), 60LL * 1000000));
    ToolRun run = runTool({"tmpdir", "job-", "--", "true"}, scratchAsTemporary());
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(nameSetIn(scratch), (std::set<std::string>{"job-young", "other-1234"}));

    ToolRun shorter = runTool({"tmpdir", "job-", "--max-age", "30", "--", "true"}, scratchAsTemporary());
    EXPECT_EQ(shorter.exitStatus, 0);
    EXPECT_EQ(nameSetIn(scratch), (std::set<std::string>{"other-1234"}));
}

// ---- demo -------------------------------------------------------------------------------------------

TEST_F(ToolTemporaryCommandsTest, DemoShowsATemporaryDirectoryAndAFileMutex)
{
    ToolRun run = runTool({"demo"}, scratchAsTemporary());
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.err, "");
    for (char const* line : {"named kelvo-fs-demo- and a random number: true",
                             "file mutex taken: its file holds 4 bytes, this process's identifier",
                             "file mutex released: its file is gone: true",
                             "private temporary directory deleted with its scope: true"})
        EXPECT_TRUE(hasLine(run.out, line)) << "missing line: " << line << "\nin:\n" << run.out;
    EXPECT_EQ(nameSetIn(scratch), std::set<std::string>{});
}

} // namespace
