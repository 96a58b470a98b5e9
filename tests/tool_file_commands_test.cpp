// Tests of the kelvo-fs file commands (mkdir, rm, rm-matching, cp, mv, ln, cmp, cmp-tree): each run as a process, its effect on disk, output and exit status checked.
#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ResourceProbes.h"
#include "support/ScratchDirectory.h"
#include "support/ToolRunner.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace kelvo::testing;

class ToolFileCommands : public ToolWorkDirectory {};

bool contains(std::string const& text, std::string const& piece) { return text.find(piece) != std::string::npos; }

/// What a run of the tool from a measuring child gave.
struct MeasuredRun {
    int exitStatus = -1;      ///< the tool's exit status, -1 when unknown
    long long peakKiB = -1;   ///< the tool's peak resident size, in KiB
    std::string err;          ///< what it wrote to its standard error
};

/// Runs the tool with `arguments` as `settings` say from a forked child whose
/// only child it is, with the child's address space capped, so that the
/// child's view of its children's peak resident size is the tool's alone.
MeasuredRun runMeasured(std::vector<std::string> const& arguments, RunSettings const& settings)
{
    MeasuredRun measured;
    int channel[2];
    if (::pipe(channel) != 0)
        return measured;
    pid_t const child = ::fork();
    if (child == 0) {
        ::close(channel[0]);
        capAddressSpace();
        ToolRun const run = runTool(arguments, settings);
        long long const peak = childrenPeakResidentKiB();
        bool ok = ::write(channel[1], &peak, sizeof peak) == static_cast<ssize_t>(sizeof peak)
               && ::write(channel[1], &run.exitStatus, sizeof run.exitStatus) == static_cast<ssize_t>(sizeof run.exitStatus)
               && ::write(channel[1], run.err.data(), run.err.size()) == static_cast<ssize_t>(run.err.size());
        ::_exit(ok ? 0 : 1);
    }
    ::close(channel[1]);
    if (child < 0) {
        ::close(channel[0]);
        return measured;
    }
    std::string received;
    char buffer[4096];
    for (ssize_t got; (got = ::read(channel[0], buffer, sizeof buffer)) != 0;) {
        if (got < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        received.append(buffer, static_cast<std::size_t>(got));
    }
    ::close(channel[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (received.size() >= sizeof measured.peakKiB + sizeof measured.exitStatus) {
        std::memcpy(&measured.peakKiB, received.data(), sizeof measured.peakKiB);
        std::memcpy(&measured.exitStatus, received.data() + sizeof measured.peakKiB, sizeof measured.exitStatus);
        measured.err = received.substr(sizeof measured.peakKiB + sizeof measured.exitStatus);
    }
    return measured;
}

TEST_F(ToolFileCommands, EveryCommandHasHelp)
{
    for (char const* command : {"mkdir", "rm", "rm-matching", "cp", "mv", "ln", "cmp", "cmp-tree"}) {
        ToolRun const help = run({command, "--help"});
        EXPECT_EQ(help.exitStatus, 0) << command;
        EXPECT_TRUE(contains(help.out, std::string("Usage: kelvo-fs ") + command + " ")) << command << help.out;
    }
    ToolRun const top = run({"help"});
    for (char const* summary : {"Make directories.", "Remove files, empty directories or (-r) whole trees.",
                                "Copy a file or (-r) a directory tree.", "Move or rename, across file systems too.",
                                "Make a symbolic link (-s is required).", "Compare the contents of two files.",
                                "Compare two directory trees."})
        EXPECT_TRUE(contains(top.out, summary)) << summary << top.out;
}

TEST_F(ToolFileCommands, MkdirMakesOneLevelAndWithPTheChain)
{
    ToolRun const single = run({"mkdir", "a"});
    EXPECT_EQ(single.exitStatus, 0) << single.err;
    EXPECT_TRUE(isDirectoryOnDisk(work("a")));

    ToolRun const missing = run({"mkdir", "x/y/z"});
    EXPECT_EQ(missing.exitStatus, 1);
    EXPECT_EQ(missing.err, "kelvo-fs mkdir: cannot make directory 'x/y/z': No such file or directory\n");
    EXPECT_FALSE(isPresentOnDisk(work("x")));

    ToolRun const chain = run({"mkdir", "-p", "x/y/z", "p/q"});
    EXPECT_EQ(chain.exitStatus, 0) << chain.err;
    EXPECT_TRUE(isDirectoryOnDisk(work("x/y/z")));
    EXPECT_TRUE(isDirectoryOnDisk(work("p/q")));

    EXPECT_EQ(run({"mkdir", "a"}).exitStatus, 0); // already there
    EXPECT_EQ(run({"mkdir"}).exitStatus, 2);
    EXPECT_EQ(run({"mkdir", "-q", "b"}).exitStatus, 2);
}

TEST_F(ToolFileCommands, MkdirPOfALongPathMakesWhatTheSystemAllowsInLittleMemory)
{
    // 20,000 parts, 60 KB: the levels whose relative paths the system accepts
    // are made, the first it refuses ends the run with its reason. The tool's
    // peak memory is compared with that of a run on a short path.
    std::string relative = "ab";
    for (int part = 1; part < 20000; ++part)
        relative += "/ab";
    ASSERT_GE(relative.size(), 59999u);
    // The deepest levels are out of reach of absolute paths, so the fixture
    // could not remove them: removed at the end through relative ones.
    struct RemovedThroughRelativePaths {
        std::string directory;
        ~RemovedThroughRelativePaths()
        {
            if (::chdir(directory.c_str()) == 0)
                removeTree("ab");
        }
    } const cleanup{at("work")};
    MeasuredRun const shortRun = runMeasured({"mkdir", "-p", "s/t"}, RunSettings(at("work")));
    EXPECT_EQ(shortRun.exitStatus, 0) << shortRun.err;
    MeasuredRun const longRun = runMeasured({"mkdir", "-p", relative}, RunSettings(at("work")));
    EXPECT_EQ(longRun.exitStatus, 1) << longRun.err.substr(0, 200);
    std::string const errEnd = longRun.err.substr(longRun.err.size() > 200 ? longRun.err.size() - 200 : 0);
    EXPECT_TRUE(contains(longRun.err, std::strerror(ENAMETOOLONG))) << errEnd;
    ASSERT_GT(shortRun.peakKiB, 0);
    ASSERT_GT(longRun.peakKiB, 0);
    long long const boundKiB = 64 * 1024 + kSanitizerHeldKiB;
    EXPECT_LT(longRun.peakKiB - shortRun.peakKiB, boundKiB)
        << "short run " << shortRun.peakKiB << " KiB, long run " << longRun.peakKiB << " KiB";
    // Every level whose relative path the system accepts, and nothing below.
    ASSERT_EQ(::chdir(at("work").c_str()), 0);
    std::string level = "ab";
    int depth = 1;
    for (; level.size() + 3 < PATH_MAX; level += "/ab", ++depth)
        ASSERT_TRUE(isDirectoryOnDisk(level)) << "level " << depth;
    EXPECT_TRUE(isDirectoryOnDisk(level)) << "level " << depth;
    EXPECT_TRUE(namesIn(level).empty()) << "level " << depth;
}

TEST_F(ToolFileCommands, RmRemovesFilesAndWithRTreesAndSaysWhyItRefuses)
{
    makeFile("f", "x");
    makeDirectory("full");
    makeFile("full/inner", "i");
    makeDirectory("target");
    makeFile("target/keep", "k");
    ASSERT_EQ(::symlink(work("target").c_str(), work("toDir").c_str()), 0);
    ASSERT_EQ(::symlink(work("nowhere").c_str(), work("dangling").c_str()), 0);

    EXPECT_EQ(run({"rm", "f"}).exitStatus, 0);
    EXPECT_FALSE(isPresentOnDisk(work("f")));

    ToolRun const notEmpty = run({"rm", "full"});
    EXPECT_EQ(notEmpty.exitStatus, 1);
    EXPECT_EQ(notEmpty.err, "kelvo-fs rm: cannot remove 'full': Directory not empty\n");
    EXPECT_TRUE(isDirectoryOnDisk(work("full")));

    // A link to a directory goes to rmdir, which refuses what is no directory.
    ToolRun const link = run({"rm", "-r", "toDir"});
    EXPECT_EQ(link.exitStatus, 1);
    EXPECT_EQ(link.err, "kelvo-fs rm: cannot remove 'toDir': Not a directory\n");
    EXPECT_TRUE(isLinkOnDisk(work("toDir")));

    // Through its link a dangling link names nothing, and is kept.
    ToolRun const dangling = run({"rm", "dangling"});
    EXPECT_EQ(dangling.exitStatus, 1);
    EXPECT_EQ(dangling.err, "kelvo-fs rm: cannot remove 'dangling': No such file or directory\n");
    EXPECT_TRUE(isLinkOnDisk(work("dangling")));

    ToolRun const missing = run({"rm", "missing", "f"});
    EXPECT_EQ(missing.exitStatus, 1);
    EXPECT_EQ(missing.err, "kelvo-fs rm: cannot remove 'missing': No such file or directory\n"
                           "kelvo-fs rm: cannot remove 'f': No such file or directory\n");

    EXPECT_EQ(run({"rm", "-r", "full"}).exitStatus, 0);
    EXPECT_FALSE(isPresentOnDisk(work("full")));
    EXPECT_EQ(readWholeFile(work("target/keep")), "k");
}

TEST_F(ToolFileCommands, RmOfATreeWithALinkToADirectoryStopsAndSaysWhy)
{
    makeDirectory("target");
    makeDirectory("tree");
    ASSERT_EQ(::symlink(work("target").c_str(), work("tree/link").c_str()), 0);
    ToolRun const stopped = run({"rm", "-r", "tree"});
    EXPECT_EQ(stopped.exitStatus, 1);
    EXPECT_EQ(stopped.err, "kelvo-fs rm: cannot remove 'tree/link': Not a directory\n");
    EXPECT_TRUE(isLinkOnDisk(work("tree/link")));
    EXPECT_TRUE(isDirectoryOnDisk(work("target")));
}

TEST_F(ToolFileCommands, RmMatchingRemovesMatchingNamesAndWithRSubtrees)
{
    makeDirectory("d");
    makeFile("d/a.tmp", "");
    makeFile("d/b.txt", "");
    makeDirectory("d/cache.tmp");
    makeFile("d/cache.tmp/x", "");
    ToolRun const plain = run({"rm-matching", "d", "*.tmp"});
    EXPECT_EQ(plain.exitStatus, 1);
    EXPECT_EQ(plain.err, "kelvo-fs rm-matching: cannot remove 'd/cache.tmp': Directory not empty\n");
    ToolRun const recursive = run({"rm-matching", "-r", "d", "*.tmp"});
    EXPECT_EQ(recursive.exitStatus, 0) << recursive.err;
    EXPECT_EQ(namesIn(work("d")), std::vector<std::string>{"b.txt"});

    makeDirectory("empty");
    ToolRun const empty = run({"rm-matching", "empty", "*"});
    EXPECT_EQ(empty.exitStatus, 1);
    EXPECT_EQ(empty.err, "kelvo-fs rm-matching: nothing to remove: 'empty' is empty\n");
    ToolRun const missing = run({"rm-matching", "missing", "*"});
    EXPECT_EQ(missing.exitStatus, 1);
    EXPECT_EQ(missing.err, "kelvo-fs rm-matching: cannot list 'missing': No such file or directory\n");
    ToolRun const file = run({"rm-matching", "d/b.txt", "*"});
    EXPECT_EQ(file.exitStatus, 1);
    EXPECT_EQ(file.err, "kelvo-fs rm-matching: cannot list 'd/b.txt': Not a directory\n");
    ToolRun const invalid = run({"rm-matching", "d", "[x"});
    EXPECT_EQ(invalid.exitStatus, 2);
    EXPECT_EQ(linesOf(invalid.err).at(0), "kelvo-fs rm-matching: the pattern '[x' is not valid");
    EXPECT_EQ(namesIn(work("d")), std::vector<std::string>{"b.txt"});
}

TEST_F(ToolFileCommands, CpCopiesFilesRefusesAnExistingDestinationUnlessOverwriting)
{
    makeFile("from", "contents");
    makeFile("existing", "old");
    EXPECT_EQ(run({"cp", "from", "to"}).exitStatus, 0);
    EXPECT_EQ(readWholeFile(work("to")), "contents");

    ToolRun const refused = run({"cp", "from", "existing"});
    EXPECT_EQ(refused.exitStatus, 1);
    EXPECT_EQ(refused.err, "kelvo-fs cp: cannot copy to 'existing': it exists (use --overwrite)\n");
    EXPECT_EQ(readWholeFile(work("existing")), "old");

    EXPECT_EQ(run({"cp", "--overwrite", "from", "existing"}).exitStatus, 0);
    EXPECT_EQ(readWholeFile(work("existing")), "contents");

    ToolRun const missing = run({"cp", "missing", "x"});
    EXPECT_EQ(missing.exitStatus, 1);
    EXPECT_EQ(missing.err, "kelvo-fs cp: cannot copy 'missing': No such file or directory\n");
    ToolRun const noDirectory = run({"cp", "from", "nowhere/to"});
    EXPECT_EQ(noDirectory.exitStatus, 1);
    EXPECT_EQ(noDirectory.err, "kelvo-fs cp: cannot copy to 'nowhere/to': No such file or directory\n");
}

TEST_F(ToolFileCommands, CpWithRCopiesATreeButNeverIntoAnExistingDirectory)
{
    makeDirectory("src");
    makeDirectory("src/sub");
    makeFile("src/sub/f", "f");
    makeDirectory("existing");
    ToolRun const noR = run({"cp", "src", "dst"});
    EXPECT_EQ(noR.exitStatus, 1);
    EXPECT_EQ(noR.err, "kelvo-fs cp: cannot copy 'src': it is a directory (use -r)\n");
    EXPECT_EQ(run({"cp", "-r", "src", "dst"}).exitStatus, 0);
    EXPECT_EQ(describeTree(work("dst")), describeTree(work("src")));
    ToolRun const into = run({"cp", "-r", "src", "existing"});
    EXPECT_EQ(into.exitStatus, 1);
    EXPECT_EQ(into.err,
              "kelvo-fs cp: cannot copy to 'existing': it exists, and a directory is never copied into an existing one\n");
    EXPECT_TRUE(namesIn(work("existing")).empty());
}

TEST_F(ToolFileCommands, MvRenamesAndReportsAMissingSource)
{
    makeFile("a", "a");
    EXPECT_EQ(run({"mv", "a", "b"}).exitStatus, 0);
    EXPECT_FALSE(isPresentOnDisk(work("a")));
    EXPECT_EQ(readWholeFile(work("b")), "a");
    ToolRun const missing = run({"mv", "a", "c"});
    EXPECT_EQ(missing.exitStatus, 1);
    EXPECT_EQ(missing.err, "kelvo-fs mv: cannot move 'a': No such file or directory\n");
    EXPECT_EQ(run({"mv", "a"}).exitStatus, 2);
}

TEST_F(ToolFileCommands, MvOfASocketAcrossFileSystemsSaysBothAreKept)
{
    // Across file systems a socket is copied as an empty directory, which
    // the move then cannot remove the socket as: both stay, and the message
    // says that, not that the destination was there before.
    char shared[] = "/dev/shm/kelvo-tool-move-XXXXXX";
    if (::mkdtemp(shared) == nullptr)
        GTEST_SKIP() << "needs /dev/shm";
    std::string const area = shared;
    struct Cleanup {
        std::string where;
        ~Cleanup() { removeTree(where); }
    } const cleanup{area};
    struct stat source;
    struct stat destination;
    ASSERT_EQ(::stat(area.c_str(), &source), 0);
    ASSERT_EQ(::stat(at("work").c_str(), &destination), 0);
    if (source.st_dev == destination.st_dev)
        GTEST_SKIP() << "needs /dev/shm on another file system than the scratch directory";
    std::string const socketPath = area + "/sock";
    ASSERT_TRUE(makeSocketFile(socketPath));
    ToolRun const move = run({"mv", socketPath, "moved"});
    EXPECT_EQ(move.exitStatus, 1);
    EXPECT_EQ(move.out, "");
    EXPECT_EQ(move.err, "kelvo-fs mv: cannot remove '" + socketPath + "' after copying '" + socketPath
                            + "' to 'moved': Not a directory (both are kept)\n");
    struct stat left;
    ASSERT_EQ(::lstat(socketPath.c_str(), &left), 0);
    EXPECT_TRUE(S_ISSOCK(left.st_mode));
    EXPECT_TRUE(isDirectoryOnDisk(work("moved")));
    // A destination that was there before is still refused as one.
    makeFile("there", "t");
    std::string const fileInShared = area + "/file";
    ASSERT_TRUE(writeWholeFile(fileInShared, "f"));
    ToolRun const onto = run({"mv", fileInShared, "there"});
    EXPECT_EQ(onto.exitStatus, 1);
    EXPECT_EQ(onto.err, "kelvo-fs mv: cannot move to 'there': it exists on another file system, where it is "
                        "never overwritten\n");
    EXPECT_EQ(readWholeFile(work("there")), "t");
    EXPECT_EQ(readWholeFile(fileInShared), "f");
}

TEST_F(ToolFileCommands, LnMakesSymbolicLinksOnly)
{
    EXPECT_EQ(run({"ln", "-s", "some/target", "link"}).exitStatus, 0);
    EXPECT_EQ(linkContents(work("link")), "some/target");
    ToolRun const again = run({"ln", "-s", "other", "link"});
    EXPECT_EQ(again.exitStatus, 1);
    EXPECT_EQ(again.err, "kelvo-fs ln: cannot make link 'link': File exists\n");
    ToolRun const hard = run({"ln", "target", "hard"});
    EXPECT_EQ(hard.exitStatus, 2);
    EXPECT_EQ(linesOf(hard.err).at(0), "kelvo-fs ln: only symbolic links are made: give -s");
}

TEST_F(ToolFileCommands, CmpAnswersSameDifferentOrTrouble)
{
    makeFile("a", "same");
    makeFile("b", "same");
    makeFile("c", "diff");
    makeDirectory("d");
    ToolRun const same = run({"cmp", "a", "b"});
    EXPECT_EQ(same.exitStatus, 0);
    EXPECT_EQ(same.out, "'a' and 'b' are the same\n");
    ToolRun const different = run({"cmp", "a", "c"});
    EXPECT_EQ(different.exitStatus, 1);
    EXPECT_EQ(different.out, "'a' differs from 'c'\n");
    ToolRun const missing = run({"cmp", "a", "missing"});
    EXPECT_EQ(missing.exitStatus, 2);
    EXPECT_EQ(missing.err, "kelvo-fs cmp: cannot access 'missing': No such file or directory\n");
    ToolRun const directory = run({"cmp", "a", "d"});
    EXPECT_EQ(directory.exitStatus, 2);
    EXPECT_EQ(directory.err, "kelvo-fs cmp: cannot compare 'd': Is a directory\n");
}

TEST_F(ToolFileCommands, CmpTreeAnswersSameDifferentOrTrouble)
{
    makeDirectory("a");
    makeDirectory("b");
    makeFile("a/Readme", "r");
    makeFile("b/README", "r");
    makeFile("x", "");
    EXPECT_EQ(run({"cmp-tree", "a", "b"}).exitStatus, 0);
    makeFile("b/extra", "");
    EXPECT_EQ(run({"cmp-tree", "a", "b"}).exitStatus, 1);
    ToolRun const missing = run({"cmp-tree", "a", "missing"});
    EXPECT_EQ(missing.exitStatus, 2);
    EXPECT_EQ(missing.err, "kelvo-fs cmp-tree: cannot access 'missing': No such file or directory\n");
    ToolRun const file = run({"cmp-tree", "a", "x"});
    EXPECT_EQ(file.exitStatus, 2);
    EXPECT_EQ(file.err, "kelvo-fs cmp-tree: cannot compare 'x': Not a directory\n");
}

// ---- Failures told from the library's record ------------------------------------

/// The file commands as user 65534 (root's unprivileged child) or as this
/// user, with what is to be denied closed to whichever runs.
class ToolFileCommandsDenied : public ToolFileCommands {
protected:
    void SetUp() override
    {
        ToolFileCommands::SetUp();
        // Reachable and writable by the unprivileged user.
        ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
        ASSERT_EQ(::chmod(at("work").c_str(), 0777), 0);
    }

    /// Runs the tool in "work" as user 65534 when this process is root, as
    /// this user otherwise.
    ToolRun runDenied(std::vector<std::string> const& arguments)
    {
        return runTool(arguments, RunSettings(at("work"), "", true));
    }

    /// Sets the mode of `name` to one that denies the user the tool runs as:
    /// `forOthers` when that is user 65534 (the owner is root), `forOwner`
    /// when it is this user.
    void closeTo(std::string const& name, mode_t forOthers, mode_t forOwner)
    {
        ASSERT_EQ(::chmod(work(name).c_str(), ::geteuid() == 0 ? forOthers : forOwner), 0) << name;
    }
};

TEST_F(ToolFileCommandsDenied, RmOfATreeNamesTheDeepEntryThatCouldNotBeRemoved)
{
    makeDirectory("a");
    makeDirectory("a/b");
    makeDirectory("a/b/locked");
    makeFile("a/b/locked/f", "f");
    ASSERT_EQ(::chmod(work("a").c_str(), 0777), 0);
    ASSERT_EQ(::chmod(work("a/b").c_str(), 0777), 0);
    // Listed and entered, but nothing in it can be deleted.
    closeTo("a/b/locked", 0555, 0555);
    ToolRun const removal = runDenied({"rm", "-r", "a"});
    if (removal.exitStatus == kCannotDropPrivileges)
        GTEST_SKIP() << "cannot switch to user 65534";
    EXPECT_EQ(removal.exitStatus, 1);
    EXPECT_EQ(removal.out, "");
    EXPECT_EQ(removal.err, "kelvo-fs rm: cannot remove 'a/b/locked/f': Permission denied\n");
    EXPECT_EQ(readWholeFile(work("a/b/locked/f")), "f");
}

TEST_F(ToolFileCommandsDenied, RmAndMvOfAFileInAClosedDirectorySayPermissionDenied)
{
    makeDirectory("priv");
    makeFile("priv/secret", "s");
    closeTo("priv", 0700, 0);
    ToolRun const removal = runDenied({"rm", "priv/secret"});
    if (removal.exitStatus == kCannotDropPrivileges)
        GTEST_SKIP() << "cannot switch to user 65534";
    EXPECT_EQ(removal.exitStatus, 1);
    EXPECT_EQ(removal.err, "kelvo-fs rm: cannot remove 'priv/secret': Permission denied\n");
    ToolRun const move = runDenied({"mv", "priv/secret", "moved"});
    EXPECT_EQ(move.exitStatus, 1);
    EXPECT_EQ(move.err, "kelvo-fs mv: cannot move 'priv/secret': Permission denied\n");
    ToolRun const recursive = runDenied({"rm", "-r", "priv/secret"});
    EXPECT_EQ(recursive.exitStatus, 1);
    EXPECT_EQ(recursive.err, "kelvo-fs rm: cannot remove 'priv/secret': Permission denied\n");
    ASSERT_EQ(::chmod(work("priv").c_str(), 0700), 0);
    EXPECT_EQ(readWholeFile(work("priv/secret")), "s");
    EXPECT_FALSE(isPresentOnDisk(work("moved")));
}

TEST_F(ToolFileCommandsDenied, CmpOfFilesThatCannotBeOpenedIsTroubleWithTheReason)
{
    // Of one size, so that only their contents could tell them apart.
    makeFile("u1", "abcd");
    makeFile("u2", "abce");
    makeFile("readable", "abcd");
    closeTo("u1", 0600, 0);
    closeTo("u2", 0600, 0);
    ToolRun const both = runDenied({"cmp", "u1", "u2"});
    if (both.exitStatus == kCannotDropPrivileges)
        GTEST_SKIP() << "cannot switch to user 65534";
    EXPECT_EQ(both.exitStatus, 2);
    EXPECT_EQ(both.out, "");
    // The comparison stops at the first file it cannot open: u2 is never tried.
    EXPECT_EQ(both.err, "kelvo-fs cmp: cannot open 'u1': Permission denied\n");
    for (std::vector<std::string> const& operands : {std::vector<std::string>{"cmp", "readable", "u1"},
                                                     std::vector<std::string>{"cmp", "u1", "readable"}}) {
        ToolRun const one = runDenied(operands);
        EXPECT_EQ(one.exitStatus, 2) << operands[1];
        EXPECT_EQ(one.out, "") << operands[1];
        EXPECT_EQ(one.err, "kelvo-fs cmp: cannot open 'u1': Permission denied\n") << operands[1];
    }
}

TEST_F(ToolFileCommands, CpOfAFileWhoseReadFailsTellsTheReasonAndExitsWith1)
{
    // Reading a process's own memory from address 0 fails at once, after
    // the open and the status succeeded: the copy is answered as made.
    if (!isPresentOnDisk("/proc/self/mem"))
        GTEST_SKIP() << "no /proc/self/mem here";
    ToolRun const copy = run({"cp", "/proc/self/mem", "copy"});
    EXPECT_EQ(copy.exitStatus, 1);
    EXPECT_EQ(copy.err, "kelvo-fs cp: cannot copy '/proc/self/mem': Input/output error"
                        " ('copy' holds what was read before)\n");
    EXPECT_TRUE(isRegularOnDisk(work("copy")));
    EXPECT_EQ(readWholeFile(work("copy")), "");
}

TEST_F(ToolFileCommandsDenied, CmpTreeOfADirectoryItCouldNotReadIsTroubleWithTheReason)
{
    makeDirectory("a");
    makeDirectory("b");
    makeDirectory("a/sub");
    makeDirectory("b/sub");
    makeFile("a/sub/only", "");
    makeFile("a/f", "same");
    makeFile("b/f", "same");
    closeTo("a/sub", 0700, 0);
    ToolRun const comparison = runDenied({"cmp-tree", "a", "b"});
    if (comparison.exitStatus == kCannotDropPrivileges)
        GTEST_SKIP() << "cannot switch to user 65534";
    EXPECT_EQ(comparison.exitStatus, 2);
    EXPECT_EQ(comparison.out, "");
    EXPECT_EQ(comparison.err, "kelvo-fs cmp-tree: cannot read 'a/sub': Permission denied\n");
}

TEST_F(ToolFileCommands, MessagesQuoteNamesOneWayEscapingWhatIsNotPrintableUtf8)
{
    ToolRun const removal = run({"rm", "gone\xFF\n'q"});
    EXPECT_EQ(removal.exitStatus, 1);
    EXPECT_EQ(removal.err, "kelvo-fs rm: cannot remove 'gone\\xFF\\x0A\\'q': No such file or directory\n");
    ToolRun const composed = run({"cp", "caf\xC3\xA9", "x"});
    EXPECT_EQ(composed.err, "kelvo-fs cp: cannot copy 'caf\xC3\xA9': No such file or directory\n");
}

/// Makes a chain of `depth` directories "d" below `top`, through descriptors,
/// with a file "f" holding `deepest` in the last one.
bool makeDeepChain(std::string const& top, int depth, std::string const& deepest)
{
    int descriptor = ::open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int level = 0; level < depth && descriptor >= 0; ++level) {
        int next = -1;
        if (::mkdirat(descriptor, "d", 0777) == 0)
            next = ::openat(descriptor, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(descriptor);
        descriptor = next;
    }
    if (descriptor < 0)
        return false;
    int const file = ::openat(descriptor, "f", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    bool const written = file >= 0 && ::write(file, deepest.data(), deepest.size()) == static_cast<ssize_t>(deepest.size());
    if (file >= 0)
        ::close(file);
    ::close(descriptor);
    return written;
}

TEST_F(ToolFileCommands, CmpTreeOfSixHundredLevelsDifferingAtTheBottomUnderAThousandDescriptors)
{
    // Two chains 600 levels deep whose deepest files differ in content only,
    // compared by a tool that may hold no more than 1,024 descriptors, as root
    // and as an unprivileged user.
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    makeDirectory("a");
    makeDirectory("b");
    ASSERT_TRUE(makeDeepChain(work("a"), 600, "left"));
    ASSERT_TRUE(makeDeepChain(work("b"), 600, "righ"));
    for (bool unprivileged : {false, true}) {
        SCOPED_TRACE(unprivileged ? "unprivileged" : "as the tests run");
        int const result = runBounded(300, [&] {
            rlimit const limit{1024, 1024};
            if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
                return 100;
            RunSettings const settings(at("work"), {}, unprivileged);
            ToolRun const differ = runTool({"cmp-tree", "a", "b"}, settings);
            ToolRun const same = runTool({"cmp-tree", "a", "a"}, settings);
            return firstFailure({differ.exitStatus == 1, same.exitStatus == 0});
        });
        EXPECT_EQ(result, 0) << "100: the limit could not be set; 1: the differing trees were not called "
                                "different; 2: a tree was not the same as itself";
    }
}

TEST_F(ToolFileCommands, CpOfATreeWithAnUnreadableDirectoryNamesItAndFails)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    ASSERT_EQ(::chmod(work("").c_str(), 0777), 0);
    makeDirectory("src");
    makeDirectory("src/open");
    makeFile("src/open/f", "copied");
    makeDirectory("src/lo\tcked");
    makeFile("src/lo\tcked/hidden", "h");
    ASSERT_EQ(::chmod(work("src").c_str(), 0755), 0);
    ASSERT_EQ(::chmod(work("src/lo\tcked").c_str(), 0), 0);
    ToolRun const copy = runTool({"cp", "-r", "src", "dst"}, RunSettings(at("work"), {}, true));
    if (unprivilegedSkipReason(copy.exitStatus) != nullptr)
        GTEST_SKIP() << unprivilegedSkipReason(copy.exitStatus);
    EXPECT_EQ(copy.exitStatus, 1) << copy.err;
    EXPECT_EQ(copy.err, "kelvo-fs cp: cannot read 'src/lo\\x09cked': Permission denied\n");
    // Everything else was copied; what could not be read, copied empty.
    EXPECT_EQ(readWholeFile(work("dst/open/f")), "copied");
    EXPECT_TRUE(isDirectoryOnDisk(work("dst/lo\tcked")));
    EXPECT_TRUE(namesIn(work("dst/lo\tcked")).empty());
    ASSERT_EQ(::chmod(work("src/lo\tcked").c_str(), 0755), 0);
}

TEST_F(ToolFileCommands, CmpTreeWithUnreadableDirectoriesNamesThemAndFails)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    for (char const* side : {"a", "b"}) {
        makeDirectory(side);
        makeDirectory(std::string(side) + "/locked");
        makeFile(std::string(side) + "/f", "same");
        ASSERT_EQ(::chmod(work(side).c_str(), 0755), 0);
    }
    makeFile("a/locked/one", "1");
    makeFile("b/locked/two", "2");
    ASSERT_EQ(::chmod(work("a/locked").c_str(), 0), 0);
    ASSERT_EQ(::chmod(work("b/locked").c_str(), 0), 0);
    ToolRun const compared = runTool({"cmp-tree", "a", "b"}, RunSettings(at("work"), {}, true));
    if (unprivilegedSkipReason(compared.exitStatus) != nullptr)
        GTEST_SKIP() << unprivilegedSkipReason(compared.exitStatus);
    // Trouble, as for diff: the trees are alike only as far as they were read.
    // Each failure is kept with its own reason.
    EXPECT_EQ(compared.exitStatus, 2) << compared.err;
    EXPECT_EQ(compared.err, "kelvo-fs cmp-tree: cannot read 'a/locked': Permission denied\n"
                            "kelvo-fs cmp-tree: cannot read 'b/locked': Permission denied\n");
    EXPECT_EQ(compared.out, "");
    ASSERT_EQ(::chmod(work("a/locked").c_str(), 0755), 0);
    ASSERT_EQ(::chmod(work("b/locked").c_str(), 0755), 0);
}

TEST_F(ToolFileCommands, CpAndCmpTreeOfFifosSocketsAndEndlessDevicesEnd)
{
    for (char const* side : {"a", "b"}) {
        makeDirectory(side);
        makeFile(std::string(side) + "/plain", "plain");
        ASSERT_EQ(::mkfifo(work(std::string(side) + "/pipe").c_str(), 0644), 0);
        ASSERT_TRUE(makeSocketFile(work(std::string(side) + "/sock")));
    }
    makeDirectory("c");
    ASSERT_EQ(::symlink("/dev/zero", work("c/zero").c_str()), 0);
    ASSERT_EQ(::symlink("/dev/urandom", work("c/random").c_str()), 0);
    std::string const directory = at("work");
    int const result = runBounded(120, [&] {
        RunSettings const here(directory);
        ToolRun const copy = runTool({"cp", "-r", "a", "copy"}, here);
        ToolRun const same = runTool({"cmp-tree", "a", "b"}, here);
        ToolRun const endless = runTool({"cp", "-r", "c", "endless"}, here);
        ToolRun const endlessSame = runTool({"cmp-tree", "c", "c"}, here);
        ToolRun const zero = runTool({"cmp", "c/zero", "c/zero"}, here);
        // The copy takes the socket for a directory that cannot be listed:
        // named, and the run fails; the FIFO without a writer is an empty
        // file. The comparison never opens a FIFO, a socket or a device: they
        // compare by their kinds, so the trees are the same.
        return firstFailure({copy.exitStatus == 1, copy.err == "kelvo-fs cp: cannot read 'a/sock': Not a directory\n",
                             same.exitStatus == 0, same.out.empty() && same.err.empty(),
                             endless.exitStatus == 1, endlessSame.exitStatus == 0, zero.exitStatus == 1});
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(readWholeFile(work("copy/plain")), "plain");
    EXPECT_TRUE(isRegularOnDisk(work("copy/pipe")));
    EXPECT_EQ(readWholeFile(work("copy/pipe")), "");
    EXPECT_TRUE(isDirectoryOnDisk(work("copy/sock")));
}

TEST_F(ToolFileCommands, DemoShowsTheFileOperations)

{
    ToolRun const demo = run({"demo"});
    EXPECT_EQ(demo.exitStatus, 0) << demo.err;
    EXPECT_TRUE(contains(demo.out, "== File operations ==")) << demo.out;
    EXPECT_TRUE(contains(demo.out, "copy compares equal to the original: true")) << demo.out;
    EXPECT_TRUE(contains(demo.out, "removeAll of the link to a directory: false")) << demo.out;
}

} // namespace
