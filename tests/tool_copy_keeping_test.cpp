// Tests of kelvo-fs cp -a: the same tree as the system's cp -a makes, the progress line on a terminal and not elsewhere, the clone policy, existing files, sockets, unreadable directories, usage errors and completion.
#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"
#include "support/ToolRunner.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#if defined(__linux__)
#include <linux/fs.h>
#endif

namespace {

using namespace kelvo::testing;

bool contains(std::string const& text, std::string const& piece) { return text.find(piece) != std::string::npos; }

/// @returns one line per entry under `top`: kind, mode, owner, group,
/// modification time to the nanosecond, link target, size for files, path.
std::string describe(std::string const& top)
{
    return outputOf("cd '" + top + "' && find . -printf '%y %m %U %G %T@ %l %s %P\\n' "
                    "| sed 's/^d \\([^ ]* [^ ]* [^ ]* [^ ]* [^ ]*\\) [0-9]* /d \\1 - /' | LC_ALL=C sort");
}

/// Sets the times of `path` itself to odd nanoseconds.
void setOddTimes(std::string const& path, long seconds, long nanoseconds)
{
    struct timespec times[2] = {{seconds - 7, (nanoseconds + 2) % 1000000000}, {seconds, nanoseconds}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

int temporariesUnder(std::string const& top)
{
    std::string const found = outputOf("find '" + top + "' -name '.kelvo-copy-*' | wc -l");
    return std::atoi(found.c_str());
}

class ToolCopyKeeping : public ScratchTree {
protected:
    ToolRun run(std::vector<std::string> const& arguments, bool unprivileged = false)
    {
        return runTool(arguments, RunSettings(scratch, {}, unprivileged));
    }

    /// A tree of every kind the copy keeps, with odd modes and times.
    void makeGeneratedTree()
    {
        makeDirectory("from");
        makeDirectory("from/docs");
        makeDirectory("from/docs/deep");
        makeDirectory("from/docs/deep/deeper");
        makeDirectory("from/private");
        makeDirectory("from/readonly");
        makeFile("from/empty", "");
        makeFile("from/docs/a.txt", "alpha\n", 0644);
        makeFile("from/docs/deep/b.bin", std::string(200000, 'b'), 0600);
        makeFile("from/docs/deep/deeper/c", "c", 0751);
        makeFile("from/private/key", "secret", 0400);
        makeFile("from/readonly/r", "r", 0444);
        makeFile("from/sticky-ish", "s", 02755);
        for (int i = 0; i < 40; ++i)
            makeFile("from/docs/n" + std::to_string(i), std::string(static_cast<std::size_t>(i * 97), 'n'));
        ASSERT_EQ(::symlink("docs/a.txt", at("from/to-file").c_str()), 0);
        ASSERT_EQ(::symlink("docs", at("from/to-dir").c_str()), 0);
        ASSERT_EQ(::symlink("no/such/thing", at("from/dangling").c_str()), 0);
        ASSERT_EQ(::mkfifo(at("from/docs/pipe").c_str(), 0620), 0);
        long seconds = 1400000000;
        long nanoseconds = 123456789;
        std::string const listing = outputOf("cd '" + at("from") + "' && find . -depth -printf '%P\\n'");
        for (std::string const& entry : linesOf(listing)) {
            setOddTimes(at(entry.empty() ? "from" : "from/" + entry), seconds, nanoseconds);
            seconds += 86400 + 13;
            nanoseconds = (nanoseconds * 7 + 3) % 1000000000;
        }
        ASSERT_EQ(::chmod(at("from/private").c_str(), 0700), 0);
        ASSERT_EQ(::chmod(at("from/readonly").c_str(), 0555), 0);
        ASSERT_EQ(::chmod(at("from/docs/deep/deeper").c_str(), 0500), 0);
        setOddTimes(at("from/docs/deep/deeper"), 1300000000, 999999999);
        setOddTimes(at("from/readonly"), 1300000001, 1);
    }
};

TEST_F(ToolCopyKeeping, TheCopyIsTheSameAsTheSystemCopy)
{
    if (std::system("cp --version >/dev/null 2>&1 && find --version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "the system's cp or find is missing";
    makeGeneratedTree();
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(at("from/docs/a.txt").c_str(), kUnprivilegedUser, kUnprivilegedGroup), 0);
        ASSERT_EQ(::lchown(at("from/to-file").c_str(), kUnprivilegedUser, kUnprivilegedGroup), 0);
    }
    ToolRun const ours = run({"cp", "-a", "from", "ours"});
    EXPECT_EQ(ours.exitStatus, 0) << ours.err;
    EXPECT_EQ(ours.err, "");
    ASSERT_EQ(std::system(("cp -a '" + at("from") + "' '" + at("theirs") + "'").c_str()), 0);

    std::string const expected = describe(at("theirs"));
    ASSERT_GT(linesOf(expected).size(), 50u);
    EXPECT_EQ(describe(at("ours")), expected);
    EXPECT_EQ(outputOf("diff -r --no-dereference -x pipe '" + at("ours") + "' '" + at("theirs") + "' 2>&1"), "");
    EXPECT_EQ(temporariesUnder(at("ours")), 0);
}

TEST_F(ToolCopyKeeping, AProgressLineIsDrawnOnATerminalOnly)
{
    makeDirectory("from");
    for (int i = 0; i < 20; ++i)
        makeFile("from/f" + std::to_string(i), std::string(50000, 'p'));

    ToolRun const piped = run({"cp", "-a", "--progress", "from", "piped"});
    EXPECT_EQ(piped.exitStatus, 0);
    EXPECT_EQ(piped.err, "");
    EXPECT_EQ(piped.out, "");
    EXPECT_EQ(readWholeFile(at("piped/f7")), std::string(50000, 'p'));

    int const master = ::posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0 || ::grantpt(master) != 0 || ::unlockpt(master) != 0)
        GTEST_SKIP() << "no terminal can be made here";
    std::string const terminal = ::ptsname(master);
    std::string const from = at("from");
    std::string const to = at("shown");
    pid_t const child = ::fork();
    if (child == 0) {
        ::setsid();
        int const slave = ::open(terminal.c_str(), O_RDWR);
        if (slave < 0)
            ::_exit(125);
        ::dup2(slave, STDERR_FILENO);
        int const null = ::open("/dev/null", O_RDWR);
        ::dup2(null, STDIN_FILENO);
        ::dup2(null, STDOUT_FILENO);
        ::close(master);
        ::execl(kToolPath, kToolPath, "cp", "-a", "--progress", from.c_str(), to.c_str(), static_cast<char*>(nullptr));
        ::_exit(124);
    }
    ASSERT_GT(child, 0);
    std::string shown;
    char buffer[4096];
    for (;;) {
        ssize_t const got = ::read(master, buffer, sizeof buffer);
        if (got > 0)
            shown.append(buffer, static_cast<std::size_t>(got));
        else if (got == 0 || errno != EINTR)
            break; // the terminal's last holder is gone (EIO)
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ::close(master);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << shown;
    EXPECT_TRUE(contains(shown, "\r")) << shown;
    // The last line: all the bytes of the total, the rate, and the files.
    EXPECT_TRUE(contains(shown, "977K")) << shown;
    EXPECT_TRUE(contains(shown, "(100%)")) << shown;
    EXPECT_TRUE(contains(shown, "B/s")) << shown;
    EXPECT_TRUE(contains(shown, "20/20 files")) << shown;
    EXPECT_EQ(readWholeFile(at("shown/f19")), std::string(50000, 'p'));
}

TEST_F(ToolCopyKeeping, AlwaysCloningFailsWhereTheFileSystemCannotClone)
{
    makeFile("file", std::string(10000, 'c'));
#if defined(__linux__) && defined(FICLONE)
    {
        int const source = ::open(at("file").c_str(), O_RDONLY);
        int const probe = ::open(at("probe").c_str(), O_WRONLY | O_CREAT, 0600);
        bool const clones = ::ioctl(probe, FICLONE, source) == 0;
        ::close(source);
        ::close(probe);
        ::unlink(at("probe").c_str());
        if (clones)
            GTEST_SKIP() << "this file system clones";
    }
#endif
    ToolRun const refused = run({"cp", "-a", "--reflink=always", "file", "copy"});
    EXPECT_EQ(refused.exitStatus, 1);
    EXPECT_EQ(refused.err, "kelvo-fs cp: cannot copy to 'copy': Operation not supported\n");
    EXPECT_FALSE(isPresentOnDisk(at("copy")));
    EXPECT_EQ(temporariesUnder(scratch), 0);

    ToolRun const automatic = run({"cp", "-a", "--reflink=auto", "file", "copy"});
    EXPECT_EQ(automatic.exitStatus, 0) << automatic.err;
    EXPECT_EQ(readWholeFile(at("copy")), std::string(10000, 'c'));
    ToolRun const never = run({"cp", "-a", "--reflink", "never", "file", "copy2"});
    EXPECT_EQ(never.exitStatus, 0) << never.err;
    EXPECT_EQ(readWholeFile(at("copy2")), std::string(10000, 'c'));
}

TEST_F(ToolCopyKeeping, AnExistingFileIsKeptUnlessOverwriteIsGiven)
{
    makeFile("file", "new");
    makeFile("copy", "old");
    ToolRun const kept = run({"cp", "-a", "file", "copy"});
    EXPECT_EQ(kept.exitStatus, 1);
    EXPECT_EQ(kept.err, "kelvo-fs cp: skipped 'file': its destination exists (use --overwrite)\n");
    EXPECT_EQ(readWholeFile(at("copy")), "old");
    ToolRun const replaced = run({"cp", "-a", "--overwrite", "file", "copy"});
    EXPECT_EQ(replaced.exitStatus, 0) << replaced.err;
    EXPECT_EQ(readWholeFile(at("copy")), "new");
}

TEST_F(ToolCopyKeeping, SocketsAreNamedAndTheRestCopied)
{
    makeDirectory("from");
    makeFile("from/file", "f");
    ASSERT_TRUE(makeSocketFile(at("from/socket")));
    ToolRun const copied = run({"cp", "-a", "from", "to"});
    EXPECT_EQ(copied.exitStatus, 1);
    EXPECT_EQ(copied.err, "kelvo-fs cp: skipped 'from/socket': a socket cannot be copied\n");
    EXPECT_EQ(readWholeFile(at("to/file")), "f");
}

TEST_F(ToolCopyKeeping, AnUnreadableDirectoryIsNamedWithItsReason)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0777), 0);
    makeDirectory("from", 0777);
    makeDirectory("from/closed", 0700);
    makeFile("from/closed/x", "x");
    ASSERT_EQ(::chmod(at("from/closed").c_str(), 0), 0);
    makeFile("from/open", "o");
    ToolRun const copied = run({"cp", "-a", "from", "to"}, true);
    if (char const* reason = unprivilegedSkipReason(copied.exitStatus))
        GTEST_SKIP() << reason;
    EXPECT_EQ(copied.exitStatus, 1);
    EXPECT_EQ(copied.err, "kelvo-fs cp: cannot copy 'from/closed': Permission denied\n");
    EXPECT_EQ(readWholeFile(at("to/open")), "o");
}

TEST_F(ToolCopyKeeping, AnInterruptStopsTheCopyCleanly)
{
    makeDirectory("from");
    int const files = 5000;
    for (int i = 0; i < files; ++i)
        makeFile("from/f" + std::to_string(i), std::string(4096, char('a' + i % 26)));
    std::string const from = at("from");
    std::string const to = at("to");
    int errors[2];
    ASSERT_EQ(::pipe(errors), 0);
    pid_t const child = ::fork();
    if (child == 0) {
        ::dup2(errors[1], STDERR_FILENO);
        ::close(errors[0]);
        ::execl(kToolPath, kToolPath, "cp", "-a", from.c_str(), to.c_str(), static_cast<char*>(nullptr));
        ::_exit(124);
    }
    ASSERT_GT(child, 0);
    ::close(errors[1]);
    // Interrupted once the copy is under way.
    for (int waited = 0; waited < 30000 && !isPresentOnDisk(to); ++waited)
        ::usleep(1000);
    ::kill(child, SIGINT);
    std::string err;
    char buffer[4096];
    for (ssize_t got; (got = ::read(errors[0], buffer, sizeof buffer)) > 0;)
        err.append(buffer, static_cast<std::size_t>(got));
    ::close(errors[0]);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << "the tool did not stop cleanly";
    if (WEXITSTATUS(status) == 0)
        GTEST_SKIP() << "the copy ended before the interrupt came";
    EXPECT_EQ(WEXITSTATUS(status), 130) << err;
    EXPECT_TRUE(contains(err, "interrupted: the file being copied was removed")) << err;
    EXPECT_EQ(temporariesUnder(to), 0);
    std::vector<std::string> const copied = namesIn(to);
    EXPECT_LT(copied.size(), static_cast<std::size_t>(files));
    for (std::string const& name : copied)
        EXPECT_EQ(readWholeFile(to + "/" + name), readWholeFile(from + "/" + name)) << name;
}

TEST_F(ToolCopyKeeping, UsageErrorsAreRefused)
{
    makeFile("file", "x");
    ToolRun const badValue = run({"cp", "-a", "--reflink=sometimes", "file", "copy"});
    EXPECT_EQ(badValue.exitStatus, 2);
    EXPECT_TRUE(contains(badValue.err, "--reflink takes auto, always or never")) << badValue.err;
    ToolRun const progressAlone = run({"cp", "--progress", "file", "copy"});
    EXPECT_EQ(progressAlone.exitStatus, 2);
    EXPECT_TRUE(contains(progressAlone.err, "need -a")) << progressAlone.err;
    ToolRun const both = run({"cp", "-a", "-r", "file", "copy"});
    EXPECT_EQ(both.exitStatus, 2);
    EXPECT_FALSE(isPresentOnDisk(at("copy")));

    ToolRun const options = run({"help", "--options", "cp"});
    EXPECT_EQ(options.exitStatus, 0);
    EXPECT_TRUE(contains(options.out, "-a\n")) << options.out;
    EXPECT_TRUE(contains(options.out, "--progress\n")) << options.out;
    EXPECT_TRUE(contains(options.out, "--reflink\n")) << options.out;
    ToolRun const help = run({"help", "cp"});
    EXPECT_TRUE(contains(help.out, "[-a] [--progress] [--reflink WHEN]")) << help.out;
}

TEST_F(ToolCopyKeeping, BashCompletesTheReflinkValues)
{
    if (std::system("command -v bash >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "bash is not installed";
    std::string const source = KELVO_SOURCE_DIR "/tools/completion/kelvo-fs.bash";
    auto const complete = [&](std::string const& line) {
        std::string const script = "source '" + source + "' && COMP_WORDS=(" + std::string(kToolPath) + " " + line
                                   + ") && COMP_CWORD=$((${#COMP_WORDS[@]} - 1)) && _kelvo_fs && "
                                   + "printf '%s\\n' \"${COMPREPLY[@]}\" | LC_ALL=C sort";
        ::setenv("KELVO_COMPLETION_SCRIPT", script.c_str(), 1);
        std::string const out = outputOf("bash -c \"$KELVO_COMPLETION_SCRIPT\"");
        ::unsetenv("KELVO_COMPLETION_SCRIPT");
        return out;
    };
    EXPECT_EQ(complete("cp --reflink=a"), "--reflink=always\n--reflink=auto\n");
    EXPECT_EQ(complete("cp --reflink ''"), "always\nauto\nnever\n");
    EXPECT_EQ(complete("cp --reflink = n"), "never\n");
    EXPECT_EQ(complete("cp --p"), "--progress\n");
}

} // namespace
