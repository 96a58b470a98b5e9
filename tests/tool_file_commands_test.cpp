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

class ToolFileCommands : public ScratchDirectory {
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
};

bool contains(std::string const& text, std::string const& piece) { return text.find(piece) != std::string::npos; }

/// Runs `body` in a forked child of its own process group that is killed,
/// with every process it started, when it has not finished after `seconds`.
/// @returns the child's exit status, or `kChildDidNotExit` when it was
/// killed or died.
int runBounded(unsigned seconds, std::function<int()> const& body)
{
    pid_t const child = ::fork();
    if (child < 0)
        return kChildDidNotExit;
    if (child == 0) {
        ::setpgid(0, 0);
        struct sigaction action = {};
        action.sa_handler = [](int) { ::kill(0, SIGKILL); };
        ::sigaction(SIGALRM, &action, nullptr);
        ::alarm(seconds);
        ::_exit(body());
    }
    int status = 0;
    if (::waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return kChildDidNotExit;
    return WEXITSTATUS(status);
}

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
    EXPECT_TRUE(contains(missing.err, "the parent directory does not exist (use -p)")) << missing.err;
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
    EXPECT_TRUE(contains(notEmpty.err, "use -r")) << notEmpty.err;
    EXPECT_TRUE(isDirectoryOnDisk(work("full")));

    ToolRun const link = run({"rm", "-r", "toDir"});
    EXPECT_EQ(link.exitStatus, 1);
    EXPECT_TRUE(contains(link.err, "link to a directory")) << link.err;
    EXPECT_TRUE(isLinkOnDisk(work("toDir")));

    ToolRun const dangling = run({"rm", "dangling"});
    EXPECT_EQ(dangling.exitStatus, 1);
    EXPECT_TRUE(contains(dangling.err, "dangling link")) << dangling.err;

    ToolRun const missing = run({"rm", "missing"});
    EXPECT_EQ(missing.exitStatus, 1);
    EXPECT_TRUE(contains(missing.err, "no such file or directory")) << missing.err;

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
    EXPECT_TRUE(contains(stopped.err, "a link to a directory or a dangling link stops it")) << stopped.err;
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
    EXPECT_TRUE(contains(plain.err, "needs -r")) << plain.err;
    ToolRun const recursive = run({"rm-matching", "-r", "d", "*.tmp"});
    EXPECT_EQ(recursive.exitStatus, 0) << recursive.err;
    EXPECT_EQ(namesIn(work("d")), std::vector<std::string>{"b.txt"});

    makeDirectory("empty");
    ToolRun const empty = run({"rm-matching", "empty", "*"});
    EXPECT_EQ(empty.exitStatus, 1);
    EXPECT_TRUE(contains(empty.err, "is empty")) << empty.err;
    ToolRun const missing = run({"rm-matching", "missing", "*"});
    EXPECT_EQ(missing.exitStatus, 1);
    EXPECT_TRUE(contains(missing.err, "missing or not a directory")) << missing.err;
    ToolRun const invalid = run({"rm-matching", "d", "[x"});
    EXPECT_EQ(invalid.exitStatus, 2);
    EXPECT_TRUE(contains(invalid.err, "is not valid")) << invalid.err;
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
    EXPECT_TRUE(contains(refused.err, "the destination exists (use --overwrite)")) << refused.err;
    EXPECT_EQ(readWholeFile(work("existing")), "old");

    EXPECT_EQ(run({"cp", "--overwrite", "from", "existing"}).exitStatus, 0);
    EXPECT_EQ(readWholeFile(work("existing")), "contents");

    ToolRun const missing = run({"cp", "missing", "x"});
    EXPECT_EQ(missing.exitStatus, 1);
    EXPECT_TRUE(contains(missing.err, "the source does not exist")) << missing.err;
}

TEST_F(ToolFileCommands, CpWithRCopiesATreeButNeverIntoAnExistingDirectory)
{
    makeDirectory("src");
    makeDirectory("src/sub");
    makeFile("src/sub/f", "f");
    makeDirectory("existing");
    ToolRun const noR = run({"cp", "src", "dst"});
    EXPECT_EQ(noR.exitStatus, 1);
    EXPECT_TRUE(contains(noR.err, "the source is a directory (use -r)")) << noR.err;
    EXPECT_EQ(run({"cp", "-r", "src", "dst"}).exitStatus, 0);
    EXPECT_EQ(describeTree(work("dst")), describeTree(work("src")));
    ToolRun const into = run({"cp", "-r", "src", "existing"});
    EXPECT_EQ(into.exitStatus, 1);
    EXPECT_TRUE(contains(into.err, "never copied into an existing one")) << into.err;
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
    EXPECT_TRUE(contains(missing.err, "the source does not exist")) << missing.err;
    EXPECT_EQ(run({"mv", "a"}).exitStatus, 2);
}

TEST_F(ToolFileCommands, LnMakesSymbolicLinksOnly)
{
    EXPECT_EQ(run({"ln", "-s", "some/target", "link"}).exitStatus, 0);
    EXPECT_EQ(linkContents(work("link")), "some/target");
    ToolRun const again = run({"ln", "-s", "other", "link"});
    EXPECT_EQ(again.exitStatus, 1);
    EXPECT_TRUE(contains(again.err, "something exists there already")) << again.err;
    ToolRun const hard = run({"ln", "target", "hard"});
    EXPECT_EQ(hard.exitStatus, 2);
    EXPECT_TRUE(contains(hard.err, "give -s")) << hard.err;
}

TEST_F(ToolFileCommands, CmpAnswersSameDifferentOrTrouble)
{
    makeFile("a", "same");
    makeFile("b", "same");
    makeFile("c", "diff");
    makeDirectory("d");
    ToolRun const same = run({"cmp", "a", "b"});
    EXPECT_EQ(same.exitStatus, 0);
    EXPECT_TRUE(contains(same.out, "are the same")) << same.out;
    EXPECT_EQ(run({"cmp", "a", "c"}).exitStatus, 1);
    ToolRun const missing = run({"cmp", "a", "missing"});
    EXPECT_EQ(missing.exitStatus, 2);
    EXPECT_TRUE(contains(missing.err, "no such file or directory")) << missing.err;
    ToolRun const directory = run({"cmp", "a", "d"});
    EXPECT_EQ(directory.exitStatus, 2);
    EXPECT_TRUE(contains(directory.err, "is a directory")) << directory.err;
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
    EXPECT_EQ(run({"cmp-tree", "a", "missing"}).exitStatus, 2);
    ToolRun const file = run({"cmp-tree", "a", "x"});
    EXPECT_EQ(file.exitStatus, 2);
    EXPECT_TRUE(contains(file.err, "not a directory")) << file.err;
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
    EXPECT_TRUE(contains(copy.err, "cannot read the directory 'src/lo\\x09cked'")) << copy.err;
    EXPECT_EQ(readWholeFile(work("dst/open/f")), "copied");
    EXPECT_TRUE(isDirectoryOnDisk(work("dst/lo\tcked")));
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
    EXPECT_EQ(compared.exitStatus, 1) << compared.err;
    EXPECT_TRUE(contains(compared.err, "cannot read the directory 'a/locked'")) << compared.err;
    EXPECT_TRUE(contains(compared.err, "cannot read the directory 'b/locked'")) << compared.err;
    EXPECT_FALSE(contains(compared.out, "are the same")) << compared.out;
    ASSERT_EQ(::chmod(work("a/locked").c_str(), 0755), 0);
    ASSERT_EQ(::chmod(work("b/locked").c_str(), 0755), 0);
}

TEST_F(ToolFileCommands, CpAndCmpTreeOfFifosSocketsAndEndlessDevicesEnd)
{
    for (char const* side : {"a", "b"}) {
        makeDirectory(side);
        makeFile(std::string(side) + "/plain", "plain");
        ASSERT_EQ(::mkfifo(work(std::string(side) + "/pipe").c_str(), 0644), 0);
        std::string const socketPath = work(std::string(side) + "/sock");
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        ASSERT_LT(socketPath.size(), sizeof address.sun_path);
        socketPath.copy(address.sun_path, socketPath.size());
        int const fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
        ::close(fd);
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
        // The socket is taken for a directory that cannot be listed: named,
        // and the run fails; the FIFO without a writer is an empty file.
        return firstFailure({copy.exitStatus == 1, contains(copy.err, "cannot read the directory 'a/sock'"),
                             same.exitStatus == 1, contains(same.err, "cannot read the directory 'a/sock'"),
                             contains(same.err, "cannot read the directory 'b/sock'"),
                             endless.exitStatus == 1, endlessSame.exitStatus == 1, zero.exitStatus == 1});
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
