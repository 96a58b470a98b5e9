// Tests of the kelvo-fs command-line tool: each subcommand run as a process, its output and exit status checked.
#include <kelvo/filesystem.h>

#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"
#include "support/ToolRunner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <sstream>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using kelvo::testing::existsByDirectProbe;
using kelvo::testing::isFreeByDirectProbe;
using kelvo::testing::kToolPath;
using kelvo::testing::linesOf;
using kelvo::testing::runTool;
using kelvo::testing::RunSettings;
using kelvo::testing::ToolRun;

using kelvo::filesystem::FileLock;
using kelvo::filesystem::Path;

// "Résumé.pdf" composed (as Linux names are stored) and decomposed.
constexpr char kComposedResume[] = "R\xC3\xA9sum\xC3\xA9.pdf";
constexpr char kDecomposedResume[] = "Re\xCC\x81sume\xCC\x81.pdf";

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
        for (char const* command : {"path", "compare", "stat", "ls", "lock", "locked", "cwd", "demo", "help"})
            EXPECT_NE(run.out.find(std::string("\n  ") + command + " "), std::string::npos) << command;
        // Each command is listed with the synopsis and summary of its own usage.
        EXPECT_NE(run.out.find("\n  ls [-a] [-l] [-h] [--json] [PATH...]\n"
                               "                                  List directories and files"),
                  std::string::npos)
            << run.out;
        EXPECT_NE(run.out.find("\n  stat [--json] PATH...           Show type, permissions"), std::string::npos)
            << run.out;
    }
}

TEST_F(ToolTest, HelpCommandShowsTheToolsOrACommandsUsage)
{
    ToolRun tool = runTool({"help"});
    EXPECT_EQ(tool.exitStatus, 0);
    EXPECT_EQ(tool.err, "");
    EXPECT_EQ(tool.out, runTool({"--help"}).out);

    for (char const* command : {"path", "compare", "stat", "ls", "lock", "locked", "cwd", "demo"}) {
        ToolRun run = runTool({"help", command});
        EXPECT_EQ(run.exitStatus, 0) << command;
        EXPECT_EQ(run.out, runTool({command, "--help"}).out) << command;
    }
    ToolRun help = runTool({"help", "help"});
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_EQ(help.out.rfind("Usage: kelvo-fs help [--commands] [--options] [COMMAND]\n", 0), 0u) << help.out;

    ToolRun unknown = runTool({"help", "frobnicate"});
    EXPECT_EQ(unknown.exitStatus, 2);
    EXPECT_EQ(unknown.out, "");
    EXPECT_EQ(unknown.err, "kelvo-fs help: unknown command 'frobnicate'\n"
                           "Usage: kelvo-fs help [--commands] [--options] [COMMAND]  (kelvo-fs help help tells more)\n");
    EXPECT_EQ(runTool({"help", "ls", "stat"}).exitStatus, 2);
}

TEST_F(ToolTest, HelpListsCommandsAndOptionsForCompletion)
{
    ToolRun commands = runTool({"help", "--commands"});
    EXPECT_EQ(commands.exitStatus, 0);
    EXPECT_EQ(commands.out, "path\ncompare\nstat\nls\nlock\nlocked\ncwd\nmkdir\nrm\nrm-matching\ncp\nmv\nln\ncmp\ncmp-tree\nfind\ndu\nsave\nresolve\ncanonical\ncomplete\nlimits\ncheck-length\nsanitize\ndos83\nelide\nglob\nfix-case\nmutex\ntmp\ntmpdir\ndemo\nhelp\n");

    ToolRun list = runTool({"help", "--options", "ls"});
    EXPECT_EQ(list.exitStatus, 0);
    EXPECT_EQ(list.out, "-a\n-l\n-h\n--json\n--help\n");
    EXPECT_EQ(runTool({"help", "--options", "lock"}).out, "--wait\n--timeout\n--help\n");
    EXPECT_EQ(runTool({"help", "--options", "stat"}).out, "--json\n--help\n");
    EXPECT_EQ(runTool({"help", "--options", "cwd"}).out, "--help\n");
    EXPECT_EQ(runTool({"help", "--options"}).exitStatus, 2);
    EXPECT_EQ(runTool({"help", "--options", "nothing"}).exitStatus, 2);
}

/// @returns the options a synopsis line shows ("[-a]", "[--timeout SECONDS]",
/// "--width N"), each with whether an upper-case value word follows it.
std::vector<std::pair<std::string, bool>> optionsShownIn(std::string const& synopsis)
{
    std::vector<std::string> words;
    std::istringstream in(synopsis);
    for (std::string word; in >> word;)
        words.push_back(word);
    auto bare = [](std::string word) {
        word.erase(std::remove_if(word.begin(), word.end(), [](char c) { return c == '[' || c == ']'; }), word.end());
        return word;
    };
    std::vector<std::pair<std::string, bool>> shown;
    for (std::size_t i = 0; i < words.size(); ++i) {
        std::string const word = bare(words[i]);
        if (word.size() < 2 || word[0] != '-' || word == "--" || word.find("...") != std::string::npos)
            continue;
        bool const closes = words[i].find(']') != std::string::npos;
        bool value = false;
        if (!closes && i + 1 < words.size()) {
            std::string const next = bare(words[i + 1]);
            value = !next.empty() && next.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ_") == std::string::npos;
        }
        shown.emplace_back(word, value);
    }
    return shown;
}

TEST_F(ToolTest, EverySynopsisShowsExactlyTheOptionsTheCommandAccepts)
{
    std::vector<std::string> commands = linesOf(runTool({"help", "--commands"}).out);
    ASSERT_GT(commands.size(), 20u);
    for (std::string const& command : commands) {
        std::string const usage = runTool({"help", command}).out;
        std::vector<std::pair<std::string, bool>> const shown = optionsShownIn(usage.substr(0, usage.find('\n')));
        std::vector<std::string> accepted = linesOf(runTool({"help", "--options", command}).out);
        if (command != "help") {
            ASSERT_FALSE(accepted.empty()) << command;
            EXPECT_EQ(accepted.back(), "--help") << command;
            accepted.pop_back();
        }
        std::vector<std::string> shownNames;
        for (auto const& option : shown)
            shownNames.push_back(option.first);
        EXPECT_EQ(shownNames, accepted) << command;
        if (command == "help")
            continue;
        // What the synopsis says of a value is what the parser does with one.
        for (auto const& [name, takesValue] : shown) {
            if (name.compare(0, 2, "--") != 0)
                continue;
            ToolRun const bare = runTool({command, name});
            ToolRun const glued = runTool({command, name + "=1"});
            if (takesValue) {
                EXPECT_EQ(bare.err.substr(0, bare.err.find('\n')), "kelvo-fs " + command + ": option " + name + " needs a value");
                EXPECT_EQ(glued.err.find("takes no value"), std::string::npos) << command << ' ' << name;
            } else {
                EXPECT_EQ(glued.err.substr(0, glued.err.find('\n')), "kelvo-fs " + command + ": option " + name + " takes no value");
            }
        }
    }
}

TEST_F(ToolTest, OptionValuesAreTakenAsTheyAreWritten)
{
    // A value may look like an option, or be empty after "=".
    EXPECT_EQ(runTool({"elide", "--width", "12", "--ellipsis", "--x=", "/aaa/bbb/ccc/ddd"}).out, "/aaa/--x=/ddd\n");
    EXPECT_EQ(runTool({"elide", "--width", "12", "--ellipsis=", "/aaa/bbb/ccc/ddd"}).out, "/aaa//ddd\n");
    EXPECT_EQ(runTool({"elide", "--width", "12", "--ellipsis=--", "/aaa/bbb/ccc/ddd"}).out, "/aaa/--/ddd\n");
    // The last of an option given twice counts; flags together count one by one.
    EXPECT_EQ(runTool({"elide", "--width=4", "--ellipsis", "+", "--width", "12", "--ellipsis=...", "/aaa/bbb/ccc/ddd"}).out,
              "/aaa/.../ddd\n");
    EXPECT_EQ(runTool({"ls", "-la", "-a", "--", "-"}).err, "kelvo-fs ls: cannot access '-': No such file or directory\n");
}

TEST_F(ToolTest, EverySubcommandHasHelp)
{
    for (char const* command : {"path", "compare", "stat", "ls", "lock", "locked", "cwd", "demo"}) {
        // ls gives -h its own meaning: sizes for people.
        for (char const* option : {"--help", std::strcmp(command, "ls") == 0 ? "--help" : "-h"}) {
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
    EXPECT_EQ(run.out.rfind("Usage: kelvo-fs stat [--json] PATH...\n", 0), 0u) << run.out;
}

TEST_F(ToolTest, NoArgumentsPrintsTheUsageOnStandardErrorAndExitsWith2)
{
    ToolRun run = runTool({});
    EXPECT_EQ(run.exitStatus, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "kelvo-fs: expects a COMMAND\n"
                       "Usage: kelvo-fs COMMAND [ARGUMENT...]  (kelvo-fs help lists the commands)\n");
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

    EXPECT_EQ(global.err, "kelvo-fs: unknown option --verbose\n"
                          "Usage: kelvo-fs COMMAND [ARGUMENT...]  (kelvo-fs help lists the commands)\n");

    // The error and a one-line usage hint, nothing more.
    ToolRun local = runTool({"ls", "-x", scratch});
    EXPECT_EQ(local.exitStatus, 2);
    EXPECT_EQ(local.out, "");
    EXPECT_EQ(local.err, "kelvo-fs ls: unknown option -x\n"
                         "Usage: kelvo-fs ls [-a] [-l] [-h] [--json] [PATH...]  (kelvo-fs help ls tells more)\n");

    std::vector<std::vector<std::string>> const badLines = {
        {"ls", "-lx"}, {"ls", "--all"}, {"stat", "-l", "x"}, {"stat", "--json=yes", "x"},
        {"lock", "--timeout"}, {"lock", "--wait=1", "f", "--", "true"}, {"path", "-x"}, {"locked", "--json", "f"},
    };
    for (auto const& line : badLines) {
        ToolRun run = runTool(line);
        EXPECT_EQ(run.exitStatus, 2) << line[1];
        EXPECT_EQ(run.out, "") << line[1];
        EXPECT_EQ(linesOf(run.err).size(), 2u) << run.err;
        EXPECT_EQ(linesOf(run.err).at(1).rfind("Usage: kelvo-fs " + line[0] + " ", 0), 0u) << run.err;
    }
}

TEST_F(ToolTest, EmptyArgumentsAreAnsweredWithAUsageHint)
{
    std::vector<std::vector<std::string>> const lines = {
        {"stat", ""}, {"ls", ""}, {"ls", scratch, ""}, {"locked", ""}, {"path", ""},
        {"compare", "", "a"}, {"lock", "", "--", "true"}, {""},
    };
    for (auto const& line : lines) {
        ToolRun run = runTool(line);
        EXPECT_EQ(run.exitStatus, 2) << line[0];
        EXPECT_EQ(run.out, "") << line[0];
        EXPECT_EQ(linesOf(run.err).size(), 2u) << run.err;
        EXPECT_NE(run.err.find("an empty argument names no"), std::string::npos) << run.err;
    }
    ToolRun stat = runTool({"stat", ""});
    EXPECT_EQ(stat.err, "kelvo-fs stat: an empty argument names nothing\n"
                        "Usage: kelvo-fs stat [--json] PATH...  (kelvo-fs help stat tells more)\n");
    // After "--" an argument is taken as it is, as the system would take it.
    ToolRun literal = runTool({"stat", "--", ""});
    EXPECT_EQ(literal.exitStatus, 1);
    EXPECT_EQ(literal.err, "kelvo-fs stat: cannot stat '': No such file or directory\n");
}

TEST_F(ToolTest, MissingOrSurplusArgumentsExitWith2)
{
    std::vector<std::vector<std::string>> const badLines = {
        {"path"},         {"compare"},         {"compare", "a"},   {"compare", "a", "b", "c"},
        {"stat"},         {"stat", "--json"},  {"locked"},
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

// ---- shell completion ------------------------------------------------------------

/// @returns the completions bash offers for the words `line` (the last one
/// being completed), with the tool's completion file loaded.
std::string complete(std::string const& line, std::string const& workingDirectory)
{
    std::string const source = KELVO_SOURCE_DIR "/tools/completion/kelvo-fs.bash";
    std::string script = "cd '" + workingDirectory + "' && source '" + source + "' && COMP_WORDS=(" + kToolPath + " "
                         + line + ") && COMP_CWORD=$((${#COMP_WORDS[@]} - 1)) && _kelvo_fs && "
                         + "printf '%s\\n' \"${COMPREPLY[@]}\" | LC_ALL=C sort";
    std::string command = "bash -c \"$KELVO_COMPLETION_SCRIPT\"";
    ::setenv("KELVO_COMPLETION_SCRIPT", script.c_str(), 1);
    std::string const out = kelvo::testing::outputOf(command);
    ::unsetenv("KELVO_COMPLETION_SCRIPT");
    return out;
}

TEST_F(ToolTest, BashCompletesCommandsOptionsAndFiles)
{
    if (std::system("command -v bash >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "bash is not installed";
    makeFile("notes.txt", "");
    makeFile("nothing", "");
    EXPECT_EQ(complete("lo", scratch), "lock\nlocked\n");
    EXPECT_EQ(complete("''", scratch), "--help\n--version\ncanonical\ncheck-length\ncmp\ncmp-tree\ncompare\ncomplete\ncp\ncwd\ndemo\ndos83\ndu\nelide\nfind\nfix-case\nglob\nhelp\nlimits\nln\nlock\nlocked\nls\nmkdir\nmutex\nmv\npath\nresolve\nrm\nrm-matching\nsanitize\nsave\nstat\ntmp\ntmpdir\n");
    EXPECT_EQ(complete("ls -", scratch), "--help\n--json\n-a\n-h\n-l\n");
    EXPECT_EQ(complete("lock --t", scratch), "--timeout\n");
    EXPECT_EQ(complete("help s", scratch), "sanitize\nsave\nstat\n");
    EXPECT_EQ(complete("stat no", scratch), "notes.txt\nnothing\n");
    EXPECT_EQ(complete("save no", scratch), "notes.txt\nnothing\n");
    // After "--", lock completes the name of a command, then its arguments.
    EXPECT_NE(complete("lock notes.txt -- tru", scratch).find("true\n"), std::string::npos);
    EXPECT_EQ(complete("lock notes.txt -- kelvo-no-such-comm", scratch), "\n");
    EXPECT_EQ(complete("lock notes.txt -- true no", scratch), "notes.txt\nnothing\n");
    EXPECT_EQ(complete("find . -type ''", scratch), "d\nf\nl\n");
    EXPECT_EQ(complete("find . -max", scratch), "-maxdepth\n");
    EXPECT_EQ(complete("du -", scratch), "--help\n-h\n-s\n");
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
    ToolRun run = runTool({"path", "--", ""});
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
        ToolRun run = runTool({"compare", "--", row.a, row.b});
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
    EXPECT_EQ(run.err, "kelvo-fs stat: cannot stat '" + at("missing") + "': No such file or directory\n");
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

TEST_F(ToolTest, ListShowsNamesSortedAsPathsCompare)
{
    makeFile("b.txt", "abc");
    makeFile("a.txt", "");
    makeFile("B2", "");
    makeFile(kComposedResume, "%PDF");
    makeFile(".hidden", "");
    ASSERT_EQ(::mkdir(at("sub").c_str(), 0755), 0);
    ASSERT_EQ(::symlink("nowhere", at("zlink").c_str()), 0);

    ToolRun run = runTool({"ls", scratch});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.err, "");
    // Letter case and composition ignored: "a.txt" < "b.txt" < "B2" < "Résumé.pdf".
    EXPECT_EQ(run.out, std::string("a.txt\nb.txt\nB2\n") + kComposedResume + "\nsub\nzlink\n");

    ToolRun here = runTool({"ls"}, {scratch, ""});
    EXPECT_EQ(here.exitStatus, 0);
    EXPECT_EQ(here.out, run.out);
}

TEST_F(ToolTest, ListAllShowsHiddenNamesAndTheDotEntries)
{
    makeFile(".hidden", "");
    makeFile("shown", "");
    ToolRun run = runTool({"ls", "-a", scratch});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, ".\n..\n.hidden\nshown\n");
}

TEST_F(ToolTest, ListKeepsNamesThatCompareEqualApartInByteOrder)
{
    makeFile("README.txt", "");
    makeFile("Readme.TXT", "");
    makeFile("readme.txt", "");
    ToolRun run = runTool({"ls", scratch});
    EXPECT_EQ(run.out, "README.txt\nReadme.TXT\nreadme.txt\n");
}

TEST_F(ToolTest, ListLongFormShowsModeSizeTimeAndLinkTargetsInAlignedColumns)
{
    makeFile("small", "abc", 0640);
    makeFile("large", std::string(123456, 'x'), 0755);
    ASSERT_EQ(::mkdir(at("sub").c_str(), 0750), 0);
    ASSERT_EQ(::chmod(at("sub").c_str(), 0750), 0);
    ASSERT_EQ(::symlink("small", at("link").c_str()), 0);
    ASSERT_EQ(::symlink("nowhere", at("dangling").c_str()), 0);
    ASSERT_EQ(::mkfifo(at("pipe").c_str(), 0600), 0);
    ASSERT_TRUE(setTimes(at("small"), 1700000000, 123456));
    ASSERT_TRUE(setTimes(at("large"), 86400 * 365, 0));
    ASSERT_TRUE(setTimes(at("sub"), 1700000000, 0));
    ASSERT_TRUE(setTimes(at("pipe"), 1700000000, 0));
    struct stat sub;
    ASSERT_EQ(::stat(at("sub").c_str(), &sub), 0);
    struct stat link;
    ASSERT_EQ(::lstat(at("link").c_str(), &link), 0);
    timespec linkTimes[2] = {{1700000000, 0}, {1700000000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, at("link").c_str(), linkTimes, AT_SYMLINK_NOFOLLOW), 0);
    ASSERT_EQ(::utimensat(AT_FDCWD, at("dangling").c_str(), linkTimes, AT_SYMLINK_NOFOLLOW), 0);

    ToolRun run = runTool({"ls", "-l", scratch}, {"", "", false, "UTC"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.err, "");
    std::string subSize = std::to_string(sub.st_size);
    auto pad = [](std::string text) { return std::string(6 - text.size(), ' ') + text; };
    EXPECT_EQ(run.out,
              "lrwxrwxrwx " + pad("7") + " 2023-11-14 22:13 dangling -> nowhere\n"
              "-rwxr-xr-x " + pad("123456") + " 1971-01-01 00:00 large\n"
              "lrwxrwxrwx " + pad("5") + " 2023-11-14 22:13 link -> small\n"
              "prw------- " + pad("0") + " 2023-11-14 22:13 pipe\n"
              "-rw-r----- " + pad("3") + " 2023-11-14 22:13 small\n"
              "drwxr-x--- " + pad(subSize) + " 2023-11-14 22:13 sub\n");

    // Local time follows TZ.
    ToolRun east = runTool({"ls", "-l", at("small")}, {"", "", false, "JST-9"});
    EXPECT_EQ(east.out, "-rw-r----- 3 2023-11-15 07:13 " + at("small") + "\n");
}

TEST_F(ToolTest, ListHumanSizesArePowersOf1024RoundedUp)
{
    struct Case {
        char const* name;
        std::size_t size;
        char const* shown;
    };
    Case const cases[] = {
        {"a", 0, "0"},        {"b", 1023, "1023"},   {"c", 1024, "1.0K"},    {"d", 1025, "1.1K"},
        {"e", 1536, "1.5K"},  {"f", 10240, "10K"},   {"g", 10241, "11K"},    {"h", 1048575, "1.0M"},
        {"i", 3565158, "3.4M"},
    };
    for (Case const& c : cases) {
        int fd = ::open(at(c.name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::ftruncate(fd, static_cast<off_t>(c.size)), 0);
        ASSERT_EQ(::fchmod(fd, 0644), 0);
        ::close(fd);
    }
    ToolRun run = runTool({"ls", "-lh", scratch}, {"", "", false, "UTC"});
    EXPECT_EQ(run.exitStatus, 0);
    std::vector<std::string> lines = linesOf(run.out);
    ASSERT_EQ(lines.size(), std::size(cases)) << run.out;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        std::istringstream in(lines[i]);
        std::string mode, size;
        in >> mode >> size;
        EXPECT_EQ(size, cases[i].shown) << lines[i];
        EXPECT_EQ(lines[i].substr(lines[i].size() - 2), std::string(" ") + cases[i].name);
    }
    // The sizes are right-aligned in a column as wide as the widest.
    EXPECT_EQ(lines[0].substr(0, 16), "-rw-r--r--    0 ");
    EXPECT_EQ(lines[1].substr(0, 16), "-rw-r--r-- 1023 ");
}

TEST_F(ToolTest, ListTakesManyPathsFilesFirstThenEachDirectoryUnderAHeading)
{
    ASSERT_EQ(::mkdir(at("one").c_str(), 0755), 0);
    ASSERT_EQ(::mkdir(at("Two").c_str(), 0755), 0);
    makeFile("one/x", "");
    makeFile("Two/y", "");
    makeFile("file", "");
    ToolRun run = runTool({"ls", "Two", "file", "one"}, {scratch, ""});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "file\n\none:\nx\n\nTwo:\ny\n");

    ToolRun dirs = runTool({"ls", "one", "Two"}, {scratch, ""});
    EXPECT_EQ(dirs.out, "one:\nx\n\nTwo:\ny\n");
}

TEST_F(ToolTest, ListGoesOnAfterAPathItCannotFindAndTellsWhy)
{
    makeFile("file", "");
    ToolRun run = runTool({"ls", "missing", "file", "file/below"}, {scratch, ""});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.out, "file\n");
    EXPECT_EQ(run.err, "kelvo-fs ls: cannot access 'missing': No such file or directory\n"
                       "kelvo-fs ls: cannot access 'file/below': Not a directory\n");
}

TEST_F(ToolTest, ListTellsALoopOfLinksByItsReason)
{
    ASSERT_EQ(::symlink("loop", at("loop").c_str()), 0);
    ToolRun run = runTool({"ls", "loop/x"}, {scratch, ""});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.err, "kelvo-fs ls: cannot access 'loop/x': Too many levels of symbolic links\n");
    // The loop itself is there to be shown.
    ToolRun itself = runTool({"ls", "-l", "loop"}, {scratch, "", false, "UTC"});
    EXPECT_EQ(itself.exitStatus, 0);
    EXPECT_NE(itself.out.find(" loop -> loop\n"), std::string::npos) << itself.out;
}

TEST_F(ToolTest, ListTellsAPermissionFailureByItsReason)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    ASSERT_EQ(::mkdir(at("closed").c_str(), 0700), 0);
    makeFile("closed/inside", "");
    // Closed to user 65534 (what root's child becomes), or to this user.
    if (::geteuid() != 0) {
        ASSERT_EQ(::chmod(at("closed").c_str(), 0), 0);
    }
    ToolRun run = runTool({"ls", at("closed")}, {"", "", true, ""});
    if (run.exitStatus == kelvo::testing::kCannotDropPrivileges)
        GTEST_SKIP() << "cannot switch to user 65534";
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "kelvo-fs ls: cannot open directory '" + at("closed") + "': Permission denied\n");

    ToolRun stat = runTool({"stat", at("closed/inside")}, {"", "", true, ""});
    EXPECT_EQ(stat.exitStatus, 1);
    EXPECT_EQ(stat.err, "kelvo-fs stat: cannot stat '" + at("closed/inside") + "': Permission denied\n");
}

TEST_F(ToolTest, ListOfAnEmptyDirectoryPrintsNothing)
{
    ToolRun run = runTool({"ls", scratch});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
}

TEST_F(ToolTest, ListOfARegularFileShowsTheFile)
{
    makeFile("plain", "xy");
    ToolRun run = runTool({"ls", at("plain")});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.out, at("plain") + "\n");
}

TEST_F(ToolTest, ListJsonGivesOneObjectPerEntry)
{
    makeFile("f", "hello", 0640);
    ASSERT_TRUE(setTimes(at("f"), 1700000000, 123456));
    ASSERT_EQ(::symlink("f", at("link").c_str()), 0);
    struct stat link;
    ASSERT_EQ(::lstat(at("link").c_str(), &link), 0);
    timespec linkTimes[2] = {{86400, 0}, {86400, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, at("link").c_str(), linkTimes, AT_SYMLINK_NOFOLLOW), 0);
    makeFile("q\"b", "");
    ToolRun run = runTool({"ls", "--json", "."}, {scratch, ""});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out,
              "{\"name\": \"f\", \"native\": [102], \"path\": \"./f\", \"type\": \"regularFile\", \"target\": null, "
              "\"permissions\": \"0640\", \"size\": 5, \"modified\": \"2023-11-14T22:13:20.123456Z\"}\n"
              "{\"name\": \"link\", \"native\": [108,105,110,107], \"path\": \"./link\", \"type\": \"symbolicLink\", "
              "\"target\": \"f\", \"permissions\": \"0777\", \"size\": 1, \"modified\": \"1970-01-02T00:00:00.000000Z\"}\n"
              "{\"name\": \"q\\\"b\", \"native\": [113,34,98], \"path\": \"./q\\\"b\", \"type\": \"regularFile\", "
              "\"target\": null, \"permissions\": \"0644\", \"size\": 0, \"modified\": \""
                  + field(runTool({"stat", at("q\"b")}).out, "modified") + "\"}\n");
}

TEST_F(ToolTest, EveryCommandEscapesBytesThatAreNotUtf8TheSameWay)
{
    std::string const name = "bad\xFF\x01name";
    std::string const shown = "bad\\xFF\\x01name";
    makeFile(name, "");
    ASSERT_EQ(::mkdir(at("dir\xFE").c_str(), 0755), 0);
    auto endsWith = [](std::string const& text, std::string const& end) {
        return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
    };

    // A listing quotes the names it escapes.
    EXPECT_EQ(runTool({"ls", scratch}).out, "'" + shown + "'\n'dir\\xFE'\n");
    EXPECT_EQ(runTool({"ls", name}, {scratch, ""}).out, "'" + shown + "'\n");
    std::string longForm = runTool({"ls", "-l", name}, {scratch, "", false, "UTC"}).out;
    EXPECT_TRUE(endsWith(longForm, " '" + shown + "'\n")) << longForm;
    std::string json = runTool({"ls", "--json", name}, {scratch, ""}).out;
    EXPECT_EQ(json.rfind("{\"name\": \"bad\\\\xFF\\\\x01name\", \"native\": [98,97,100,255,1,110,97,109,101], "
                         "\"path\": \"bad\\\\xFF\\\\x01name\"",
                         0),
              0u)
        << json;
    EXPECT_EQ(runTool({"ls", "dir\xFE", "x"}, {scratch, ""}).out, "'dir\\xFE':\n");
    EXPECT_EQ(field(runTool({"stat", name}, {scratch, ""}).out, "path"), "\"" + shown + "\"");
    EXPECT_EQ(field(runTool({"stat", name}, {scratch, ""}).out, "native"), "\"bad\\xFF\\x01name\"");
    json = runTool({"stat", "--json", name}, {scratch, ""}).out;
    EXPECT_EQ(json.rfind("{\"path\": \"bad\\\\xFF\\\\x01name\", \"native\": [98,97,100,255,1,110,97,109,101], "
                         "\"exists\": true",
                         0),
              0u)
        << json;
    EXPECT_EQ(field(runTool({"path", name}).out, "text"), "\"" + shown + "\"");
    EXPECT_EQ(runTool({"cwd"}, {at("dir\xFE"), ""}).out, scratch + "/dir\\xFE\n");
    EXPECT_EQ(runTool({"stat", "gone\xFF"}, {scratch, ""}).err,
              "kelvo-fs stat: cannot stat 'gone\\xFF': No such file or directory\n");
    EXPECT_EQ(runTool({"ls", "gone\xFF"}, {scratch, ""}).err,
              "kelvo-fs ls: cannot access 'gone\\xFF': No such file or directory\n");
}

TEST_F(ToolTest, NamesThatDifferOnlyInCompositionAreToldApart)
{
    std::string const composed = "caf\xC3\xA9";    // é as one code point
    std::string const decomposed = "cafe\xCC\x81"; // e and a combining acute accent
    makeFile(composed, "c");
    makeFile(decomposed, "d");

    // Equal as paths, they sort by their bytes; the one not composed is quoted.
    ToolRun const list = runTool({"ls", "."}, {scratch, ""});
    EXPECT_EQ(list.exitStatus, 0);
    EXPECT_EQ(list.out, "'" + decomposed + "'\n" + composed + "\n");
    ToolRun const longForm = runTool({"ls", "-l", "."}, {scratch, "", false, "UTC"});
    std::vector<std::string> const lines = linesOf(longForm.out);
    ASSERT_EQ(lines.size(), 2u) << longForm.out;
    EXPECT_EQ(lines[0].substr(lines[0].size() - decomposed.size() - 3), " '" + decomposed + "'");
    EXPECT_EQ(lines[1].substr(lines[1].size() - composed.size() - 1), " " + composed);

    ToolRun const json = runTool({"ls", "--json", "."}, {scratch, ""});
    std::vector<std::string> const objects = linesOf(json.out);
    ASSERT_EQ(objects.size(), 2u) << json.out;
    EXPECT_EQ(objects[0].rfind("{\"name\": \"" + decomposed + "\", \"native\": [99,97,102,101,204,129], ", 0), 0u)
        << objects[0];
    EXPECT_EQ(objects[1].rfind("{\"name\": \"" + composed + "\", \"native\": [99,97,102,195,169], ", 0), 0u)
        << objects[1];

    // stat shows the bytes of a path its text does not show exactly.
    ToolRun const stat = runTool({"stat", composed, decomposed}, {scratch, ""});
    EXPECT_EQ(stat.exitStatus, 0);
    std::vector<std::string> const blocks = blocksOf(stat.out);
    ASSERT_EQ(blocks.size(), 2u) << stat.out;
    EXPECT_EQ(blocks[0].find("native:"), std::string::npos) << blocks[0];
    EXPECT_EQ(field(blocks[1], "native"), "\"cafe\\xCC\\x81\"");
    ToolRun const statJson = runTool({"stat", "--json", decomposed}, {scratch, ""});
    EXPECT_EQ(statJson.out.rfind("{\"path\": \"" + decomposed + "\", \"native\": [99,97,102,101,204,129], ", 0), 0u)
        << statJson.out;
}

TEST_F(ToolTest, ListingsQuoteANameHoldingAQuoteOrAControlCharacter)
{
    makeFile("it's", "");
    makeFile("new\nline", "");
    makeFile("plain name", "");
    ToolRun const list = runTool({"ls", "."}, {scratch, ""});
    EXPECT_EQ(list.exitStatus, 0);
    EXPECT_EQ(list.out, "'it\\'s'\n'new\\x0Aline'\nplain name\n");
}

// ---- stat --json --------------------------------------------------------------------------

TEST_F(ToolTest, StatJsonGivesOneObjectPerPath)
{
    makeFile("f", "hello", 0640);
    ASSERT_TRUE(setTimes(at("f"), 1700000000, 123456));
    ToolRun run = runTool({"stat", "--json", "f", "missing", "f/below"}, {scratch, ""});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.out,
              "{\"path\": \"f\", \"native\": [102], \"exists\": true, \"status\": \"regularFile\", \"symbolicLinkStatus\": "
              "\"symbolicLink\", \"permissions\": \"0640\", \"size\": 5, \"modified\": "
              "\"2023-11-14T22:13:20.123456Z\", \"error\": null}\n"
              "{\"path\": \"missing\", \"native\": [109,105,115,115,105,110,103], \"exists\": false, "
              "\"status\": \"none\", \"symbolicLinkStatus\": \"none\", "
              "\"permissions\": null, \"size\": null, \"modified\": null, \"error\": \"No such file or directory\"}\n"
              "{\"path\": \"f/below\", \"native\": [102,47,98,101,108,111,119], \"exists\": false, "
              "\"status\": \"none\", \"symbolicLinkStatus\": \"none\", "
              "\"permissions\": null, \"size\": null, \"modified\": null, \"error\": \"Not a directory\"}\n");
    EXPECT_EQ(run.err, "kelvo-fs stat: cannot stat 'missing': No such file or directory\n"
                       "kelvo-fs stat: cannot stat 'f/below': Not a directory\n");
}

TEST_F(ToolTest, StatTellsALoopOfLinksByItsReason)
{
    ASSERT_EQ(::symlink("loop", at("loop").c_str()), 0);
    ToolRun run = runTool({"stat", at("loop")});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(field(run.out, "symbolicLinkStatus"), "symbolicLink");
    EXPECT_EQ(run.err, "kelvo-fs stat: cannot stat '" + at("loop") + "': Too many levels of symbolic links\n");
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
    EXPECT_EQ(run.err, "kelvo-fs lock: cannot lock '" + at("missing") + "': No such file or directory\n");
    EXPECT_FALSE(existsByDirectProbe(at("missing")));
}

TEST_F(ToolTest, LockOfADirectoryExitsWith1)
{
    ASSERT_EQ(::mkdir(at("dir").c_str(), 0755), 0);
    ToolRun run = runTool({"lock", at("dir"), "--", "sh", "-c", "echo ran"});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "kelvo-fs lock: cannot lock '" + at("dir") + "': Is a directory\n");
}

TEST_F(ToolTest, LockOfAFileLockedByAnotherHolderExitsWith1)
{
    makeFile("f", "x");
    FileLock held;
    ASSERT_TRUE(held.lockFile(Path(at("f"))));
    ToolRun run = runTool({"lock", at("f"), "--", "sh", "-c", "echo ran"});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "kelvo-fs lock: cannot lock '" + at("f") + "': it is locked by another holder\n");
}

TEST_F(ToolTest, LockWaitTakesTheLockOnceTheHolderLetsGo)
{
    makeFile("f", "x");
    int ready[2];
    int release[2];
    ASSERT_EQ(::pipe(ready), 0);
    ASSERT_EQ(::pipe(release), 0);
    pid_t holder = ::fork();
    ASSERT_GE(holder, 0);
    if (holder == 0) {
        ::close(ready[0]);
        ::close(release[1]);
        int fd = ::open(at("f").c_str(), O_RDWR);
        bool locked = fd >= 0 && ::flock(fd, LOCK_EX) == 0;
        char byte = locked ? 'y' : 'n';
        (void)!::write(ready[1], &byte, 1);
        // Held until the test says so, then a little longer, so that the
        // waiting tool usually meets a held lock first.
        (void)!::read(release[0], &byte, 1);
        ::usleep(300000);
        ::_exit(locked ? 0 : 1);
    }
    ::close(ready[1]);
    ::close(release[0]);
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    ::close(ready[0]);
    ASSERT_EQ(byte, 'y');

    ToolRun refused = runTool({"lock", at("f"), "--", "sh", "-c", "echo ran"});
    ASSERT_EQ(::write(release[1], "x", 1), 1);
    ::close(release[1]);
    ToolRun waited = runTool({"lock", "--wait", at("f"), "--", "sh", "-c", "echo ran"});
    int status = 0;
    ASSERT_EQ(::waitpid(holder, &status, 0), holder);
    EXPECT_EQ(refused.exitStatus, 1);
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(waited.exitStatus, 0);
    EXPECT_EQ(waited.out, "ran\n");
    EXPECT_EQ(waited.err, "");
}

TEST_F(ToolTest, LockTimeoutGivesUpWithoutRunningTheCommand)
{
    makeFile("f", "x");
    FileLock held;
    ASSERT_TRUE(held.lockFile(Path(at("f"))));
    for (std::vector<std::string> const& options :
         {std::vector<std::string>{"--wait", "--timeout", "0.2"}, {"--timeout=0.2"}}) {
        std::vector<std::string> line = {"lock"};
        line.insert(line.end(), options.begin(), options.end());
        line.insert(line.end(), {at("f"), "--", "sh", "-c", "echo ran"});
        ToolRun run = runTool(line);
        EXPECT_EQ(run.exitStatus, 1);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err,
                  "kelvo-fs lock: cannot lock '" + at("f") + "': still locked by another holder after 0.2 seconds\n");
    }
    ToolRun free = runTool({"lock", "--timeout", "5", at("missing"), "--", "true"});
    EXPECT_EQ(free.exitStatus, 1);
}

TEST_F(ToolTest, LockTimeoutMustBeANumberOfSeconds)
{
    makeFile("f", "x");
    for (char const* value : {"-1", "abc", "1s", " 1", "nan", "inf", "1e20"}) {
        ToolRun run = runTool({"lock", "--timeout", value, at("f"), "--", "sh", "-c", "echo ran"});
        EXPECT_EQ(run.exitStatus, 2) << value;
        EXPECT_EQ(run.out, "") << value;
        EXPECT_NE(run.err.find("--timeout expects a number of seconds"), std::string::npos) << run.err;
    }
    ToolRun zero = runTool({"lock", "--timeout", "0", at("f"), "--", "sh", "-c", "echo ran"});
    EXPECT_EQ(zero.exitStatus, 0);
    EXPECT_EQ(zero.out, "ran\n");
}

TEST_F(ToolTest, LockTellsAPermissionFailureByItsReason)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    makeFile("private", "x", ::geteuid() == 0 ? 0600 : 0);
    ToolRun run = runTool({"lock", at("private"), "--", "sh", "-c", "echo ran"}, {"", "", true, ""});
    if (run.exitStatus == kelvo::testing::kCannotDropPrivileges)
        GTEST_SKIP() << "cannot switch to user 65534";
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "kelvo-fs lock: cannot lock '" + at("private") + "': Permission denied\n");
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
    // Each line that looks wrong is followed at once by the lines that say why
    // it is so.
    std::vector<std::pair<std::string, std::vector<std::string>>> const explained = {
        {"\"a\" > \"B\"    compare: 1, equal: false",
         {"  (by design: at the first letter that differs beyond case the raw code points decide, and \"a\" (U+0061)",
          "   is above \"B\" (U+0042); so \"a\" < \"b\" and \"B\" == \"b\" yet \"a\" > \"B\": sort with PathLess)"}},
        {"elements:      \"notes\" \".\"",
         {"  (by design: a trailing separator stands for a final \".\", so the file name is \".\")"}},
        {"\"/home/user/Documents/\"   -> \"/\" \"home\" \"user\" \"Documents\" \".\"",
         {"  (by design: a trailing separator gives a final \".\" element)"}},
        {"\"///a\"                    -> \"/\" \"\" \"a\"",
         {"  (by design: separators after the root give an empty element)"}},
        {"  regularFile               19  notes.txt",
         {"  (sorted by exact code points, as listed entries compare: capitals before small letters)"}},
        {"removeAll of the link to a directory: false (a link to a directory is never removed this way)",
         {"  (by design: removeAll deletes a link as remove does, judged by what it names, never through it;",
          "   rmdir refuses a link, so the answer is false and neither the link nor its directory is touched)"}},
    };
    for (auto const& [oddLine, explanation] : explained) {
        auto const at = std::find(lines.begin(), lines.end(), oddLine);
        ASSERT_NE(at, lines.end()) << "missing line: " << oddLine << "\nin:\n" << run.out;
        std::size_t const index = static_cast<std::size_t>(at - lines.begin());
        for (std::size_t i = 0; i < explanation.size(); ++i) {
            ASSERT_LT(index + 1 + i, lines.size()) << run.out;
            EXPECT_EQ(lines[index + 1 + i], explanation[i]) << "after: " << oddLine;
        }
    }
    EXPECT_NE(std::find(lines.begin(), lines.end(), "(letter case and composition are ignored)"), lines.end()) << run.out;
    // Lines that are what one expects get no note.
    auto const plain = std::find(lines.begin(), lines.end(), "\"a\" < \"b\"    compare: -1, equal: false");
    ASSERT_NE(plain, lines.end()) << run.out;
    ASSERT_NE(plain + 1, lines.end()) << run.out;
    EXPECT_EQ(plain[1], "\"A\" < \"b\"    compare: -1, equal: false");
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
    ToolRun run = runTool({"ls", "--json", scratch});
    EXPECT_EQ(run.exitStatus, 0);
    std::vector<std::string> const listed = linesOf(run.out);
    ASSERT_EQ(listed.size(), 5u) << run.out;
    std::multiset<std::string> sizes;
    for (std::string const& line : listed) {
        EXPECT_NE(line.find("\"type\": \"regularFile\""), std::string::npos) << run.out;
        std::size_t const at = line.find("\"size\": ");
        ASSERT_NE(at, std::string::npos) << run.out;
        sizes.insert(line.substr(at + 8, 1));
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
