// Tests of the kelvo-fs command-line tool: each subcommand run as a process, its output and exit status checked.
#include <kelvo/filesystem.h>

#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sstream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

using kelvo::testing::existsByDirectProbe;
using kelvo::testing::isFreeByDirectProbe;

using kelvo::filesystem::FileLock;
using kelvo::filesystem::Path;

constexpr char kToolPath[] = KELVO_TOOL_PATH;

// "Résumé.pdf" composed (as Linux names are stored) and decomposed.
constexpr char kComposedResume[] = "R\xC3\xA9sum\xC3\xA9.pdf";
constexpr char kDecomposedResume[] = "Re\xCC\x81sume\xCC\x81.pdf";

/// What one run of the tool gave.
struct ToolRun {
    int exitStatus = -1; ///< the exit status, or 128 + signal, or -1 when it could not run
    std::string out;
    std::string err;
};

/// Where and how the tool runs.
struct RunSettings {
    std::string workingDirectory; ///< empty: the test's own
    std::string temporaryDirectory; ///< empty: TMPDIR as inherited
};

/// Reads both pipes until both are closed.
void drain(int outFd, int errFd, std::string& out, std::string& err)
{
    pollfd fds[2] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
    std::string* sinks[2] = {&out, &err};
    int open = 2;
    while (open > 0) {
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0)
                continue;
            char buffer[4096];
            ssize_t got = ::read(fds[i].fd, buffer, sizeof buffer);
            if (got > 0) {
                sinks[i]->append(buffer, static_cast<std::size_t>(got));
            } else if (got == 0 || errno != EINTR) {
                ::close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
}

/// Runs the tool with `arguments`, capturing its standard output and error.
ToolRun runTool(std::vector<std::string> const& arguments, RunSettings const& settings = {})
{
    ToolRun run;
    std::vector<std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (settings.temporaryDirectory.empty() || std::strncmp(*entry, "TMPDIR=", 7) != 0)
            environment.emplace_back(*entry);
    }
    if (!settings.temporaryDirectory.empty())
        environment.push_back("TMPDIR=" + settings.temporaryDirectory);

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
    pid_t child = ::fork();
    if (child == 0) {
        ::dup2(outPipe[1], STDOUT_FILENO);
        ::dup2(errPipe[1], STDERR_FILENO);
        int input = ::open("/dev/null", O_RDONLY);
        if (input >= 0)
            ::dup2(input, STDIN_FILENO);
        if (!settings.workingDirectory.empty() && ::chdir(settings.workingDirectory.c_str()) != 0)
            ::_exit(125);
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
    drain(outPipe[0], errPipe[0], run.out, run.err);
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
std::vector<std::string> linesOf(std::string const& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

/// @returns the value of the line "label:   value" of `report`, or "<missing>".
std::string field(std::string const& report, std::string const& label)
{
    for (std::string const& line : linesOf(report)) {
        if (line.compare(0, label.size() + 1, label + ":") == 0) {
            std::size_t start = line.find_first_not_of(' ', label.size() + 1);
            return start == std::string::npos ? std::string() : line.substr(start);
        }
    }
    return "<missing>";
}

/// @returns the blocks of `text` that blank lines separate.
std::vector<std::string> blocksOf(std::string const& text)
{
    std::vector<std::string> blocks(1);
    for (std::string const& line : linesOf(text)) {
        if (line.empty())
            blocks.emplace_back();
        else
            blocks.back() += line + "\n";
    }
    return blocks;
}

/// One line of a listing: type, size, name.
using ListingLine = std::tuple<std::string, std::string, std::string>;

std::vector<ListingLine> listingOf(std::string const& text)
{
    std::vector<ListingLine> lines;
    for (std::string const& line : linesOf(text)) {
        std::istringstream in(line);
        std::string type;
        std::string size;
        in >> type >> size;
        std::string name;
        std::getline(in >> std::ws, name);
        lines.emplace_back(type, size, name);
    }
    return lines;
}

bool setTimes(std::string const& path, long long seconds, long long microseconds)
{
    timeval times[2] = {{static_cast<time_t>(seconds), static_cast<suseconds_t>(microseconds)},
                        {static_cast<time_t>(seconds), static_cast<suseconds_t>(microseconds)}};
    return ::utimes(path.c_str(), times) == 0;
}

class ToolTest : public kelvo::testing::ScratchDirectory {
protected:
    void SetUp() override
    {
        ScratchDirectory::SetUp();
        if (kToolPath[0] == '\0')
            GTEST_SKIP() << "kelvo-fs is not built (configure with KELVO_BUILD_TOOLS=ON)";
        ASSERT_EQ(::access(kToolPath, X_OK), 0) << kToolPath << " is not built yet: build the kelvo-fs target";
    }

    /// Writes `content` into `name` and gives it `mode`.
    void makeFile(std::string const& name, std::string const& content, mode_t mode = 0644) const
    {
        writeFile(name, content);
        ASSERT_EQ(::chmod(at(name).c_str(), mode), 0);
    }
};

// ---- help and usage ------------------------------------------------------------

TEST_F(ToolTest, HelpPrintsTheUsageOnStandardOutput)
{
    for (char const* option : {"--help", "-h"}) {
        ToolRun run = runTool({option});
        EXPECT_EQ(run.exitStatus, 0) << option;
        EXPECT_EQ(run.err, "") << option;
        EXPECT_EQ(run.out.rfind("Usage: kelvo-fs COMMAND", 0), 0u) << run.out;
        for (char const* command : {"path", "compare", "stat", "ls", "lock", "locked", "cwd", "demo"})
            EXPECT_NE(run.out.find(std::string("\n  ") + command + " "), std::string::npos) << command;
    }
}

TEST_F(ToolTest, EverySubcommandHasHelp)
{
    for (char const* command : {"path", "compare", "stat", "ls", "lock", "locked", "cwd", "demo"}) {
        for (char const* option : {"--help", "-h"}) {
            ToolRun run = runTool({command, option});
            EXPECT_EQ(run.exitStatus, 0) << command << " " << option;
            EXPECT_EQ(run.err, "") << command << " " << option;
            std::string usage = std::string("Usage: kelvo-fs ") + command;
            EXPECT_TRUE(run.out.rfind(usage + " ", 0) == 0 || run.out.rfind(usage + "\n", 0) == 0) << run.out;
        }
    }
}

TEST_F(ToolTest, HelpAmongOperandsStillShowsTheUsage)
{
    ToolRun run = runTool({"stat", "x", "--help"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out.rfind("Usage: kelvo-fs stat PATH...\n", 0), 0u) << run.out;
}

TEST_F(ToolTest, NoArgumentsPrintsTheUsageOnStandardErrorAndExitsWith2)
{
    ToolRun run = runTool({});
    EXPECT_EQ(run.exitStatus, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err.rfind("Usage: kelvo-fs COMMAND", 0), 0u) << run.err;
}

TEST_F(ToolTest, UnknownSubcommandExitsWith2)
{
    ToolRun run = runTool({"frobnicate", "x"});
    EXPECT_EQ(run.exitStatus, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("unknown command 'frobnicate'"), std::string::npos) << run.err;
}

TEST_F(ToolTest, UnknownOptionsExitWith2)
{
    ToolRun global = runTool({"--verbose"});
    EXPECT_EQ(global.exitStatus, 2);
    EXPECT_EQ(global.out, "");

    ToolRun local = runTool({"ls", "-l", scratch});
    EXPECT_EQ(local.exitStatus, 2);
    EXPECT_EQ(local.out, "");
    EXPECT_NE(local.err.find("unknown option -l"), std::string::npos) << local.err;
    EXPECT_NE(local.err.find("Usage: kelvo-fs ls DIRECTORY"), std::string::npos) << local.err;
}

TEST_F(ToolTest, MissingOrSurplusArgumentsExitWith2)
{
    std::vector<std::vector<std::string>> const badLines = {
        {"path"},         {"compare"},         {"compare", "a"},   {"compare", "a", "b", "c"},
        {"stat"},         {"ls"},              {"ls", "a", "b"},   {"locked"},
        {"locked", "a", "b"}, {"cwd", "x"},    {"demo", "x"},      {"lock"},
        {"lock", "f"},    {"lock", "f", "--"}, {"lock", "--", "true"}, {"lock", "f", "g", "--", "true"},
    };
    for (auto const& line : badLines) {
        ToolRun run = runTool(line);
        std::string shown;
        for (std::string const& argument : line)
            shown += argument + " ";
        EXPECT_EQ(run.exitStatus, 2) << shown;
        EXPECT_EQ(run.out, "") << shown;
        EXPECT_NE(run.err.find("Usage: kelvo-fs " + line[0]), std::string::npos) << shown << run.err;
    }
}

// ---- path ------------------------------------------------------------------------

TEST_F(ToolTest, PathReportsEveryFieldOfAnAbsolutePath)
{
    ToolRun run = runTool({"path", "/a/b.txt"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out,
              "text:          \"/a/b.txt\"\n"
              "native:        \"/a/b.txt\"\n"
              "rootName:      \"\"\n"
              "rootDirectory: \"/\"\n"
              "relativePath:  \"a/b.txt\"\n"
              "parentPath:    \"/a\"\n"
              "filename:      \"b.txt\"\n"
              "stem:          \"b\"\n"
              "extension:     \".txt\"\n"
              "isAbsolute:    true\n"
              "isComplete:    true\n"
              "elements:      \"/\" \"a\" \"b.txt\"\n");
}

TEST_F(ToolTest, PathReportsTheRootNameOfANetworkPath)
{
    ToolRun run = runTool({"path", "//server/share/x.txt"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(field(run.out, "text"), "\"//server/share/x.txt\"");
    EXPECT_EQ(field(run.out, "native"), "\"//server/share/x.txt\"");
    EXPECT_EQ(field(run.out, "rootName"), "\"//server\"");
    EXPECT_EQ(field(run.out, "rootDirectory"), "\"/\"");
    EXPECT_EQ(field(run.out, "relativePath"), "\"share/x.txt\"");
    EXPECT_EQ(field(run.out, "parentPath"), "\"//server/share\"");
    EXPECT_EQ(field(run.out, "filename"), "\"x.txt\"");
    EXPECT_EQ(field(run.out, "stem"), "\"x\"");
    EXPECT_EQ(field(run.out, "extension"), "\".txt\"");
    EXPECT_EQ(field(run.out, "isAbsolute"), "true");
    EXPECT_EQ(field(run.out, "isComplete"), "true");
    EXPECT_EQ(field(run.out, "elements"), "\"//server\" \"/\" \"share\" \"x.txt\"");
}

TEST_F(ToolTest, PathOfARootNameAloneIsAbsoluteButNotComplete)
{
    ToolRun run = runTool({"path", "//b"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(field(run.out, "rootName"), "\"//b\"");
    EXPECT_EQ(field(run.out, "rootDirectory"), "\"\"");
    EXPECT_EQ(field(run.out, "parentPath"), "\"/\"");
    EXPECT_EQ(field(run.out, "isAbsolute"), "true");
    EXPECT_EQ(field(run.out, "isComplete"), "false");
    EXPECT_EQ(field(run.out, "elements"), "\"//b\"");
}

TEST_F(ToolTest, PathSeparatesReportsWithABlankLine)
{
    ToolRun run = runTool({"path", "a/b/", "a.tar.gz", "///a"});
    EXPECT_EQ(run.exitStatus, 0);
    std::vector<std::string> blocks = blocksOf(run.out);
    ASSERT_EQ(blocks.size(), 3u) << run.out;
    EXPECT_EQ(field(blocks[0], "text"), "\"a/b/\"");
    EXPECT_EQ(field(blocks[0], "parentPath"), "\"a/b\"");
    EXPECT_EQ(field(blocks[0], "filename"), "\".\"");
    EXPECT_EQ(field(blocks[0], "elements"), "\"a\" \"b\" \".\"");
    EXPECT_EQ(field(blocks[1], "stem"), "\"a.tar\"");
    EXPECT_EQ(field(blocks[1], "extension"), "\".gz\"");
    EXPECT_EQ(field(blocks[2], "rootDirectory"), "\"/\"");
    EXPECT_EQ(field(blocks[2], "elements"), "\"/\" \"\" \"a\"");
    EXPECT_EQ(linesOf(run.out).size(), 3u * 12u + 2u);
}

TEST_F(ToolTest, PathOfTheEmptyTextHasEmptyFieldsAndNoElements)
{
    ToolRun run = runTool({"path", ""});
    EXPECT_EQ(run.exitStatus, 0);
    for (char const* label : {"text", "native", "rootName", "rootDirectory", "relativePath", "parentPath",
                              "filename", "stem", "extension"})
        EXPECT_EQ(field(run.out, label), "\"\"") << label;
    EXPECT_EQ(field(run.out, "isAbsolute"), "false");
    EXPECT_EQ(field(run.out, "isComplete"), "false");
    EXPECT_EQ(field(run.out, "elements"), "(none)");
}

TEST_F(ToolTest, PathShowsDecomposedTextAndTheNativeBytesGiven)
{
    ToolRun run = runTool({"path", kComposedResume});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(field(run.out, "text"), std::string("\"") + kDecomposedResume + "\"");
    EXPECT_EQ(field(run.out, "native"), "\"R\\xC3\\xA9sum\\xC3\\xA9.pdf\"");
    EXPECT_EQ(field(run.out, "stem"), std::string("\"Re\xCC\x81sume\xCC\x81\""));

    // The same text, but the bytes given stay the native form.
    ToolRun decomposed = runTool({"path", kDecomposedResume});
    EXPECT_EQ(field(decomposed.out, "text"), field(run.out, "text"));
    EXPECT_EQ(field(decomposed.out, "native"), "\"Re\\xCC\\x81sume\\xCC\\x81.pdf\"");
}

TEST_F(ToolTest, PathNativePrintsOnlyTheEscapedBytesOfEachPath)
{
    ToolRun run = runTool({"path", "--native", kDecomposedResume, "a\\b", "raw\xFF"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "\"Re\\xCC\\x81sume\\xCC\\x81.pdf\"\n\"a/b\"\n\"raw\\xFF\"\n");
    ToolRun composed = runTool({"path", "--native", kComposedResume});
    EXPECT_EQ(composed.out, "\"R\\xC3\\xA9sum\\xC3\\xA9.pdf\"\n");
    // Only "path" takes the option.
    EXPECT_EQ(runTool({"compare", "--native", "a", "b"}).exitStatus, 2);
    EXPECT_EQ(runTool({"path", "--native"}).exitStatus, 2);
}

TEST_F(ToolTest, PathEscapesBytesQuotesAndTurnsBackslashesIntoSlashes)
{
    ToolRun run = runTool({"path", "x\xFFy\"z", "a\\b"});
    EXPECT_EQ(run.exitStatus, 0);
    std::vector<std::string> blocks = blocksOf(run.out);
    ASSERT_EQ(blocks.size(), 2u) << run.out;
    EXPECT_EQ(field(blocks[0], "text"), "\"x\\xFFy\\\"z\"");
    EXPECT_EQ(field(blocks[0], "native"), "\"x\\xFFy\\\"z\"");
    EXPECT_EQ(field(blocks[1], "text"), "\"a/b\"");
    EXPECT_EQ(field(blocks[1], "native"), "\"a/b\"");
    EXPECT_EQ(field(blocks[1], "elements"), "\"a\" \"b\"");
}

TEST_F(ToolTest, PathTakesOperandsThatLookLikeOptionsAfterTheSeparator)
{
    ToolRun run = runTool({"path", "--", "-x"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(field(run.out, "text"), "\"-x\"");

    ToolRun refused = runTool({"path", "-x"});
    EXPECT_EQ(refused.exitStatus, 2);
}

// ---- compare ------------------------------------------------------------------------

TEST_F(ToolTest, CompareIgnoresLetterCase)
{
    ToolRun run = runTool({"compare", "Readme.TXT", "readme.txt"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "\"Readme.TXT\" == \"readme.txt\"\ncompare: 0\n");
}

TEST_F(ToolTest, CompareIgnoresComposition)
{
    ToolRun run = runTool({"compare", kComposedResume, kDecomposedResume});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, std::string("\"") + kComposedResume + "\" == \"" + kDecomposedResume + "\"\ncompare: 0\n");
}

TEST_F(ToolTest, CompareOfUnequalPathsExitsWith1)
{
    struct Row {
        char const* a;
        char const* b;
        char const* expected;
    };
    Row const rows[] = {
        {"a", "b", "\"a\" < \"b\"\ncompare: -1\n"},
        {"A", "b", "\"A\" < \"b\"\ncompare: -1\n"},
        {"a", "B", "\"a\" > \"B\"\ncompare: 1\n"},
        {"abcd", "abc", "\"abcd\" > \"abc\"\ncompare: 1\n"},
        {"", "a", "\"\" < \"a\"\ncompare: -1\n"},
    };
    for (Row const& row : rows) {
        ToolRun run = runTool({"compare", row.a, row.b});
        EXPECT_EQ(run.exitStatus, 1) << row.a << " " << row.b;
        EXPECT_EQ(run.out, row.expected);
    }
}

TEST_F(ToolTest, CompareTreatsBackslashesAsSeparators)
{
    ToolRun run = runTool({"compare", "a\\b", "A/B"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, "\"a\\\\b\" == \"A/B\"\ncompare: 0\n");
}

// ---- stat -----------------------------------------------------------------------------

TEST_F(ToolTest, StatShowsTypePermissionsSizeAndTime)
{
    makeFile("f", "hello", 0640);
    ASSERT_TRUE(setTimes(at("f"), 1700000000, 123456));
    ToolRun run = runTool({"stat", at("f")});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out,
              "path:               \"" + at("f") + "\"\n"
              "status:             regularFile\n"
              "symbolicLinkStatus: symbolicLink\n"
              "permissions:        0640\n"
              "size:               5\n"
              "modified:           2023-11-14T22:13:20.123456Z\n");
}

TEST_F(ToolTest, StatShowsTimesBeforeTheEpochAndWholeSeconds)
{
    makeFile("old", "");
    makeFile("round", "");
    ASSERT_TRUE(setTimes(at("old"), -1, 500000));
    ASSERT_TRUE(setTimes(at("round"), 86400, 0));
    ToolRun run = runTool({"stat", at("old"), at("round")});
    EXPECT_EQ(run.exitStatus, 0);
    std::vector<std::string> blocks = blocksOf(run.out);
    ASSERT_EQ(blocks.size(), 2u) << run.out;
    EXPECT_EQ(field(blocks[0], "modified"), "1969-12-31T23:59:59.500000Z");
    EXPECT_EQ(field(blocks[1], "modified"), "1970-01-02T00:00:00.000000Z");
    EXPECT_EQ(field(blocks[1], "size"), "0");
}

TEST_F(ToolTest, StatDropsTheSpecialModeBits)
{
    makeFile("tool", "#!/bin/sh\n", 04755);
    ToolRun run = runTool({"stat", at("tool")});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(field(run.out, "permissions"), "0755");
    EXPECT_EQ(field(run.out, "size"), "10");
}

TEST_F(ToolTest, StatOfADirectoryAndOfAFifo)
{
    ASSERT_EQ(::mkdir(at("dir").c_str(), 0700), 0);
    ASSERT_EQ(::chmod(at("dir").c_str(), 0750), 0);
    ASSERT_EQ(::mkfifo(at("pipe").c_str(), 0600), 0);
    ToolRun run = runTool({"stat", at("dir"), at("pipe")});
    EXPECT_EQ(run.exitStatus, 0);
    std::vector<std::string> blocks = blocksOf(run.out);
    ASSERT_EQ(blocks.size(), 2u) << run.out;
    EXPECT_EQ(field(blocks[0], "status"), "directory");
    EXPECT_EQ(field(blocks[0], "symbolicLinkStatus"), "directory");
    EXPECT_EQ(field(blocks[0], "permissions"), "0750");
    EXPECT_EQ(field(blocks[1], "status"), "fifo");
    EXPECT_EQ(field(blocks[1], "symbolicLinkStatus"), "fifo");
    EXPECT_EQ(field(blocks[1], "permissions"), "0600");
    EXPECT_EQ(field(blocks[1], "size"), "0");
}

TEST_F(ToolTest, StatFollowsLinksForTheStatusButNotForTheLinkStatus)
{
    makeFile("target", "abc", 0604);
    ASSERT_TRUE(setTimes(at("target"), 1000000000, 1));
    ASSERT_EQ(::symlink("target", at("link").c_str()), 0);
    ToolRun run = runTool({"stat", at("link")});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(field(run.out, "status"), "regularFile");
    EXPECT_EQ(field(run.out, "symbolicLinkStatus"), "symbolicLink");
    EXPECT_EQ(field(run.out, "permissions"), "0604");
    EXPECT_EQ(field(run.out, "size"), "3");
    EXPECT_EQ(field(run.out, "modified"), "2001-09-09T01:46:40.000001Z");
}

TEST_F(ToolTest, StatOfAMissingPathShowsWhatIsKnownAndExitsWith1)
{
    makeFile("here", "1234567", 0600);
    ToolRun run = runTool({"stat", at("missing"), at("here")});
    EXPECT_EQ(run.exitStatus, 1);
    std::vector<std::string> blocks = blocksOf(run.out);
    ASSERT_EQ(blocks.size(), 2u) << run.out;
    EXPECT_EQ(blocks[0],
              "path:               \"" + at("missing") + "\"\n"
              "status:             none\n"
              "symbolicLinkStatus: none\n"
              "permissions:        unknown\n"
              "size:               unknown\n"
              "modified:           unknown\n");
    EXPECT_EQ(field(blocks[1], "size"), "7");
    EXPECT_EQ(field(blocks[1], "permissions"), "0600");
    EXPECT_NE(run.err.find(at("missing") + ": does not exist"), std::string::npos) << run.err;
    EXPECT_EQ(run.err.find(at("here")), std::string::npos) << run.err;
}

TEST_F(ToolTest, StatOfADanglingLinkKnowsOnlyTheLink)
{
    ASSERT_EQ(::symlink("nowhere", at("dangling").c_str()), 0);
    ToolRun run = runTool({"stat", at("dangling")});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(field(run.out, "status"), "none");
    EXPECT_EQ(field(run.out, "symbolicLinkStatus"), "symbolicLink");
    EXPECT_EQ(field(run.out, "permissions"), "unknown");
    EXPECT_EQ(field(run.out, "size"), "unknown");
}

// ---- ls ------------------------------------------------------------------------------------

TEST_F(ToolTest, ListShowsTypeSizeAndNameSortedByName)
{
    makeFile("b.txt", "abc");
    makeFile("a.txt", "");
    makeFile(kComposedResume, "%PDF");
    ASSERT_EQ(::mkdir(at("sub").c_str(), 0755), 0);
    ASSERT_EQ(::symlink("nowhere", at("zlink").c_str()), 0);
    ASSERT_EQ(::symlink("b.txt", at("link").c_str()), 0);
    struct stat sub;
    ASSERT_EQ(::stat(at("sub").c_str(), &sub), 0);

    ToolRun run = runTool({"ls", scratch});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.err, "");
    std::vector<ListingLine> expected = {
        {"regularFile", "4", kComposedResume},
        {"regularFile", "0", "a.txt"},
        {"regularFile", "3", "b.txt"},
        {"regularFile", "3", "link"},
        {"directory", std::to_string(sub.st_size), "sub"},
        {"none", "-", "zlink"},
    };
    EXPECT_EQ(listingOf(run.out), expected) << run.out;
}

TEST_F(ToolTest, ListKeepsNamesWithSpacesWhole)
{
    makeFile("two words.txt", "12");
    ToolRun run = runTool({"ls", scratch});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(listingOf(run.out), (std::vector<ListingLine>{{"regularFile", "2", "two words.txt"}})) << run.out;
}

TEST_F(ToolTest, ListOfAnEmptyDirectoryPrintsNothing)
{
    ToolRun run = runTool({"ls", scratch});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
}

TEST_F(ToolTest, ListOfAMissingDirectoryExitsWith1)
{
    ToolRun run = runTool({"ls", at("missing")});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find(at("missing") + ": cannot be listed"), std::string::npos) << run.err;
}

TEST_F(ToolTest, ListOfARegularFileExitsWith1)
{
    makeFile("plain", "x");
    ToolRun run = runTool({"ls", at("plain")});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("cannot be listed"), std::string::npos) << run.err;
}

// ---- lock and locked ---------------------------------------------------------------------------

TEST_F(ToolTest, LockRunsTheCommandAndPassesOnItsSuccess)
{
    makeFile("f", "x");
    ToolRun run = runTool({"lock", at("f"), "--", "true"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
    EXPECT_TRUE(isFreeByDirectProbe(at("f"))) << "the lock outlived the tool";
}

TEST_F(ToolTest, LockPassesOnTheCommandsExitStatus)
{
    makeFile("f", "x");
    ToolRun run = runTool({"lock", at("f"), "--", "sh", "-c", "exit 3"});
    EXPECT_EQ(run.exitStatus, 3);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
}

TEST_F(ToolTest, LockGivesTheCommandTheToolsStandardStreams)
{
    makeFile("f", "x");
    ToolRun run = runTool({"lock", at("f"), "--", "sh", "-c", "echo out; echo err >&2"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, "out\n");
    EXPECT_EQ(run.err, "err\n");
}

TEST_F(ToolTest, LockHoldsTheFileWhileTheCommandRuns)
{
    makeFile("f", "x");
    ToolRun run = runTool({"lock", at("f"), "--", kToolPath, "locked", at("f")});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, "locked\n");

    ToolRun nested = runTool({"lock", at("f"), "--", kToolPath, "lock", at("f"), "--", "true"});
    EXPECT_EQ(nested.exitStatus, 1);
    EXPECT_NE(nested.err.find("is locked by another holder"), std::string::npos) << nested.err;
}

TEST_F(ToolTest, LockReportsACommandKilledByASignalAs128PlusTheSignal)
{
    makeFile("f", "x");
    ToolRun run = runTool({"lock", at("f"), "--", "sh", "-c", "kill -TERM $$"});
    EXPECT_EQ(run.exitStatus, 128 + SIGTERM);
}

TEST_F(ToolTest, LockOfACommandThatCannotBeFoundExitsWith127)
{
    makeFile("f", "x");
    ToolRun run = runTool({"lock", at("f"), "--", "kelvo-no-such-command-here"});
    EXPECT_EQ(run.exitStatus, 127);
    EXPECT_NE(run.err.find("cannot run 'kelvo-no-such-command-here'"), std::string::npos) << run.err;
}

TEST_F(ToolTest, LockOfAMissingFileExitsWith1AndCreatesNothing)
{
    ToolRun run = runTool({"lock", at("missing"), "--", "sh", "-c", "echo ran"});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find(at("missing") + ": does not exist"), std::string::npos) << run.err;
    EXPECT_FALSE(existsByDirectProbe(at("missing")));
}

TEST_F(ToolTest, LockOfADirectoryExitsWith1)
{
    ASSERT_EQ(::mkdir(at("dir").c_str(), 0755), 0);
    ToolRun run = runTool({"lock", at("dir"), "--", "sh", "-c", "echo ran"});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("is a directory"), std::string::npos) << run.err;
}

TEST_F(ToolTest, LockOfAFileLockedByAnotherHolderExitsWith1)
{
    makeFile("f", "x");
    FileLock held;
    ASSERT_TRUE(held.lockFile(Path(at("f"))));
    ToolRun run = runTool({"lock", at("f"), "--", "sh", "-c", "echo ran"});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find(at("f") + ": is locked by another holder"), std::string::npos) << run.err;
}

TEST_F(ToolTest, LockedAnswers0ForALockedFileAnd1Otherwise)
{
    makeFile("f", "x");
    ASSERT_EQ(::mkdir(at("dir").c_str(), 0755), 0);

    ToolRun free = runTool({"locked", at("f")});
    EXPECT_EQ(free.exitStatus, 1);
    EXPECT_EQ(free.out, "not locked\n");
    EXPECT_EQ(free.err, "");
    {
        FileLock held;
        ASSERT_TRUE(held.lockFile(Path(at("f"))));
        ToolRun locked = runTool({"locked", at("f")});
        EXPECT_EQ(locked.exitStatus, 0);
        EXPECT_EQ(locked.out, "locked\n");
        EXPECT_EQ(locked.err, "");
    }
    ToolRun released = runTool({"locked", at("f")});
    EXPECT_EQ(released.exitStatus, 1);
    EXPECT_EQ(released.out, "not locked\n");

    ToolRun missing = runTool({"locked", at("missing")});
    EXPECT_EQ(missing.exitStatus, 1);
    EXPECT_EQ(missing.out, "not locked\n");

    ToolRun directory = runTool({"locked", at("dir")});
    EXPECT_EQ(directory.exitStatus, 1);
    EXPECT_EQ(directory.out, "not locked\n");
}

TEST_F(ToolTest, LockedLeavesAFreeFileFree)
{
    makeFile("f", "x");
    ToolRun run = runTool({"locked", at("f")});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_TRUE(isFreeByDirectProbe(at("f")));
}

// ---- cwd ------------------------------------------------------------------------------------------

TEST_F(ToolTest, CwdPrintsTheWorkingDirectory)
{
    ToolRun run = runTool({"cwd"}, {scratch, ""});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, scratch + "\n");
    EXPECT_EQ(run.err, "");
}

TEST_F(ToolTest, CwdPrintsAnAccentedDirectoryByItsOwnBytes)
{
    std::string directory = at("R\xC3\xA9sum\xC3\xA9s");
    ASSERT_EQ(::mkdir(directory.c_str(), 0755), 0);
    ToolRun run = runTool({"cwd"}, {directory, ""});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, directory + "\n");
}

// ---- demo -------------------------------------------------------------------------------------------

TEST_F(ToolTest, DemoTakesTheTourAndRemovesWhatItMade)
{
    ToolRun run = runTool({"demo"}, {"", scratch});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.err, "");
    std::vector<std::string> const expectedLines = {
        "stored:            12 and 12 code points, same text: true",
        "native bytes:      \"R\\xC3\\xA9sum\\xC3\\xA9.pdf\" (composed again, as this system's file names are)",
        "\"Readme.TXT\" == \"readme.txt\"    compare: 0, equal: true",
        "\"a\" > \"B\"    compare: 1, equal: false",
        "rootName:      \"//server\"",
        "\"///a\"                    -> \"/\" \"\" \"a\"",
        "the name typed composed finds the same file: true",
        "  regularFile                9  R\xC3\xA9sum\xC3\xA9.pdf",
        "lock on notes.txt: taken true; isFileLocked before false, while held true, after release false",
        "removed the temporary directory and everything in it",
    };
    std::vector<std::string> lines = linesOf(run.out);
    for (std::string const& expected : expectedLines) {
        bool found = false;
        for (std::string const& line : lines)
            found = found || line == expected;
        EXPECT_TRUE(found) << "missing line: " << expected << "\nin:\n" << run.out;
    }
    bool archiveListed = false;
    for (std::string const& line : lines)
        archiveListed = archiveListed || (line.rfind("  directory ", 0) == 0 && line.size() > 9
                                          && line.compare(line.size() - 9, 9, "  archive") == 0);
    EXPECT_TRUE(archiveListed) << run.out;
    EXPECT_NE(run.out.find("made " + scratch + "/kelvo-fs-demo-"), std::string::npos) << run.out;
    EXPECT_EQ(::rmdir(scratch.c_str()), 0) << "the demo left something in " << scratch;
    ASSERT_EQ(::mkdir(scratch.c_str(), 0700), 0);
}

// ---- names in every composition -----------------------------------------------------------------

TEST_F(ToolTest, ListAndStatShowEachNameItsOwnTypeAndSize)
{
    // Twins, a decomposed name alone, a singleton and bytes that are not UTF-8.
    makeFile("na\xC3\xAFve", "1");
    makeFile("nai\xCC\x88ve", "22");
    makeFile(kDecomposedResume, "333");
    makeFile("\xE2\x84\xAB", "4444");
    makeFile("raw\xFF", "55555");
    ToolRun run = runTool({"ls", scratch});
    EXPECT_EQ(run.exitStatus, 0);
    std::vector<ListingLine> const listed = listingOf(run.out);
    ASSERT_EQ(listed.size(), 5u) << run.out;
    std::multiset<std::string> sizes;
    for (ListingLine const& line : listed) {
        EXPECT_EQ(std::get<0>(line), "regularFile") << run.out;
        sizes.insert(std::get<1>(line));
    }
    EXPECT_EQ(sizes, (std::multiset<std::string>{"1", "2", "3", "4", "5"})) << run.out;

    for (auto const& [name, size] : std::vector<std::pair<std::string, std::string>>{
             {"nai\xCC\x88ve", "2"}, {kDecomposedResume, "3"}, {"\xE2\x84\xAB", "4"}, {"raw\xFF", "5"}}) {
        ToolRun stat = runTool({"stat", at(name)});
        EXPECT_EQ(stat.exitStatus, 0) << name;
        EXPECT_EQ(field(stat.out, "status"), "regularFile") << name;
        EXPECT_EQ(field(stat.out, "size"), size) << name;
    }
}

} // namespace
