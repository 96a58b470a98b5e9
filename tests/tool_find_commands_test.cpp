// Tests of kelvo-fs find and du: their answers against find and du on a generated tree and on /usr/include, twins of case and composition, accents, an unreadable directory, hard links and sparse files.
#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"
#include "support/ToolRunner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace kelvo::testing;

/// @returns `text` in single quotes for the shell.
std::string shellQuoted(std::string const& text)
{
    std::string quoted = "'";
    for (char c : text) {
        if (c == '\'')
            quoted += "'\\''";
        else
            quoted += c;
    }
    return quoted + "'";
}

/// Runs a shell command line (an oracle: find or du) and gives its standard
/// output and exit status.
std::string commandOutput(std::string const& command, int* status = nullptr)
{
    ShellRun const run = runShell(command + " 2>/dev/null");
    if (status != nullptr)
        *status = run.exitStatus;
    return run.out;
}

/// @returns the pieces of `text` split at `separator`, sorted: outputs
/// compared as multisets.
std::vector<std::string> sortedPieces(std::string const& text, char separator)
{
    std::vector<std::string> pieces;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find(separator, start);
        if (end == std::string::npos)
            end = text.size();
        pieces.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    std::sort(pieces.begin(), pieces.end());
    return pieces;
}

bool haveCommand(char const* name)
{
    return commandOutput(std::string("command -v ") + name).find(name) != std::string::npos;
}

class ToolFindCommands : public ScratchDirectory {
protected:
    void makeDirectory(std::string const& name) { ASSERT_EQ(::mkdir(at(name).c_str(), 0755), 0) << name; }
    void makeLink(std::string const& target, std::string const& name)
    {
        ASSERT_EQ(::symlink(target.c_str(), at(name).c_str()), 0) << name;
    }

    /// A tree with every kind of name the matcher reads: dot files, spaces,
    /// pattern characters, composed and decomposed accents, a byte that is
    /// not UTF-8, links to files and directories, a dangling link, a FIFO and
    /// five levels. (No backslash: paths read it as a separator.)
    void makeTree()
    {
        makeDirectory("t");
        for (char const* name : {"a", "a/b", "a/b/c", "a/b/c/d", "c", ".hid", "D.H"})
            makeDirectory(std::string("t/") + name);
        for (char const* name :
             {"x.h", "y.c", ".hidden.h", "A.H", "file with space.h", "[br].h", "star*.h", "q?.h",
              "caf\xc3\xa9.h", "cafe\xcc\x81.h", "\xff.h", "a/inner.h", "a/b/B.c", "a/b/c/d/deep.h", "c/c.h",
              ".hid/seen.h", "-dash.h", "tab\there.h"})
            writeFile(std::string("t/") + name, "x");
        makeLink("x.h", "t/lf.h");
        makeLink("a", "t/ld");
        makeLink("nowhere", "t/dang.h");
        ASSERT_EQ(::mkfifo(at("t/fifo.h").c_str(), 0644), 0);
    }

    /// Compares `kelvo-fs find` with `find` on the same arguments, NUL-ended
    /// paths compared as multisets of bytes.
    void expectSameAsFind(std::string const& root, std::vector<std::string> const& options,
                          std::vector<std::string> const& leading = {})
    {
        std::string command = "LC_ALL=C.UTF-8 find";
        for (std::string const& option : leading)
            command += " " + option;
        command += " " + shellQuoted(root);
        std::vector<std::string> arguments = {"find", root};
        for (std::string const& option : leading)
            arguments.push_back(option);
        for (std::string const& option : options) {
            command += " " + shellQuoted(option);
            arguments.push_back(option);
        }
        command += " -print0";
        arguments.push_back("-print0");
        int findStatus = -1;
        std::string const expected = commandOutput(command, &findStatus);
        ToolRun const ours = runTool(arguments);
        std::string shown;
        for (std::string const& argument : arguments)
            shown += argument + " ";
        EXPECT_EQ(ours.exitStatus, findStatus) << shown << ours.err;
        EXPECT_EQ(sortedPieces(ours.out, '\0'), sortedPieces(expected, '\0')) << shown;
    }
};

TEST_F(ToolFindCommands, NameMatchesAsFindDoesOnAGeneratedTree)
{
    ASSERT_TRUE(haveCommand("find"));
    makeTree();
    for (char const* pattern :
         {"*", "*.h", ".*", "?.h", "*.[hc]", "[a-c]*", "[!a-c]*", "*[[:upper:]]*", "\\**", "x.h", "*\\?*",
          "[[]*", "*[*]*", "caf\xc3\xa9*", "cafe\xcc\x81*", "caf?.h", "t", "[", "*[", "-*", "*[[:space:]]*",
          "[[:alpha:]][[:punct:]]?", "\xff*", "?"}) {
        SCOPED_TRACE(pattern);
        expectSameAsFind(at("t"), {"-name", pattern});
    }
}

TEST_F(ToolFindCommands, TypeDepthLinksAndFileSystemsAsFindDoes)
{
    ASSERT_TRUE(haveCommand("find"));
    makeTree();
    for (char const* type : {"f", "d", "l"}) {
        expectSameAsFind(at("t"), {"-type", type});
        expectSameAsFind(at("t"), {"-name", "*.h", "-type", type});
        expectSameAsFind(at("t"), {"-type", type}, {"-L"});
    }
    for (char const* depth : {"0", "1", "2", "3", "7"}) {
        expectSameAsFind(at("t"), {"-maxdepth", depth});
        expectSameAsFind(at("t"), {"-maxdepth", depth, "-name", "*.h"});
    }
    expectSameAsFind(at("t"), {"-name", "*.h"}, {"-L"});
    expectSameAsFind(at("t"), {"-xdev", "-name", "*.h"});
    expectSameAsFind(at("t") + "/", {"-name", "*.h"});
    expectSameAsFind(at("t/x.h"), {"-name", "*.h"});
    // A root that is a link: entered with -L only.
    expectSameAsFind(at("t/ld"), {});
    expectSameAsFind(at("t/ld"), {}, {"-L"});
}

TEST_F(ToolFindCommands, ALinkLoopIsToldAndTheRestIsFound)
{
    ASSERT_TRUE(haveCommand("find"));
    makeDirectory("t");
    makeDirectory("t/a");
    writeFile("t/a/f.h", "x");
    makeLink("..", "t/a/up");
    int findStatus = -1;
    std::string const found = commandOutput("find -L " + shellQuoted(at("t")), &findStatus);
    EXPECT_EQ(findStatus, 1);
    ToolRun const ours = runTool({"find", at("t"), "-L"});
    EXPECT_EQ(ours.exitStatus, 1);
    // The loop's link is an entry of the tree: it is shown (find leaves it
    // out), and told, and not entered.
    EXPECT_EQ(sortedPieces(ours.out, '\n'), sortedPieces(found + at("t/a/up") + "\n", '\n'));
    EXPECT_NE(ours.err.find("kelvo-fs find: cannot read directory '" + at("t/a/up") + "': Too many levels of symbolic links"),
              std::string::npos)
        << ours.err;
}

TEST_F(ToolFindCommands, NameMatchesAsFindDoesOnUsrInclude)
{
    ASSERT_TRUE(haveCommand("find"));
    struct stat st;
    if (::stat("/usr/include", &st) != 0)
        GTEST_SKIP() << "no /usr/include";
    expectSameAsFind("/usr/include", {"-name", "*.h"});
    expectSameAsFind("/usr/include", {"-name", "s*", "-maxdepth", "2"});
    expectSameAsFind("/usr/include", {"-type", "d"});
    expectSameAsFind("/usr/include", {"-type", "l"});
    expectSameAsFind("/usr/include", {"-iname", "*.H"});
    expectSameAsFind("/usr/include", {"-name", "[a-m]*[0-9]*.h"});
}

TEST_F(ToolFindCommands, InameFindsCaseAndCompositionTwins)
{
    makeDirectory("t");
    std::string const composed = "R\xc3\xa9sum\xc3\xa9.txt";
    std::string const decomposed = "re\xcc\x81sume\xcc\x81.TXT";
    for (std::string const& name : {composed, decomposed, std::string("RESUME.txt"), std::string("other.txt")})
        writeFile("t/" + name, "x");
    ToolRun const twins = runTool({"find", at("t"), "-iname", "r\xc3\xa9sum\xc3\xa9.txt"});
    EXPECT_EQ(twins.exitStatus, 0) << twins.err;
    EXPECT_EQ(sortedPieces(twins.out, '\n'),
              sortedPieces(at("t/" + composed) + "\n" + at("t/" + decomposed) + "\n", '\n'));
    // -name keeps them apart: only the composed one has the pattern's bytes.
    ToolRun const exact = runTool({"find", at("t"), "-name", "R\xc3\xa9sum\xc3\xa9.txt"});
    EXPECT_EQ(exact.out, at("t/" + composed) + "\n");
    ToolRun const accents = runTool({"find", at("t"), "-iname", "resume.*", "--ignore-accents"});
    EXPECT_EQ(sortedPieces(accents.out, '\n'),
              sortedPieces(at("t/" + composed) + "\n" + at("t/" + decomposed) + "\n" + at("t/RESUME.txt") + "\n", '\n'));
    ToolRun const json = runTool({"find", at("t"), "-iname", "other.*", "--json"});
    EXPECT_EQ(json.out.substr(0, 9), "{\"path\": ");
    EXPECT_NE(json.out.find("\"type\": \"f\", \"depth\": 1}"), std::string::npos) << json.out;
}

TEST_F(ToolFindCommands, NamesAreShownEscapedAndPrint0GivesTheBytes)
{
    makeDirectory("t");
    writeFile("t/\xff" "bad", "x");
    writeFile("t/tab\there", "x");
    ToolRun const shown = runTool({"find", at("t"), "-name", "*a*"});
    EXPECT_EQ(sortedPieces(shown.out, '\n'),
              sortedPieces(at("t/\\xFFbad") + "\n" + at("t/tab\\x09here") + "\n", '\n'));
    ToolRun const raw = runTool({"find", at("t"), "-name", "*a*", "-print0"});
    EXPECT_EQ(sortedPieces(raw.out, '\0'),
              sortedPieces(at("t/\xff" "bad") + std::string(1, '\0') + at("t/tab\there") + std::string(1, '\0'), '\0'));
}

TEST_F(ToolFindCommands, AnUnreadableDirectoryIsToldWithExitOne)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    makeDirectory("t");
    makeDirectory("t/closed");
    writeFile("t/closed/hidden.h", "x");
    writeFile("t/open.h", "x");
    ASSERT_EQ(::chmod(at("t/closed").c_str(), 0), 0);
    // Run as user 65534 when root (who could read it), as this user otherwise.
    ToolRun const run = runTool({"find", at("t"), "-name", "*"}, RunSettings("", "", true));
    ::chmod(at("t/closed").c_str(), 0755);
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(sortedPieces(run.out, '\n'),
              sortedPieces(at("t") + "\n" + at("t/closed") + "\n" + at("t/open.h") + "\n", '\n'));
    EXPECT_EQ(run.err, "kelvo-fs find: cannot read directory '" + at("t/closed") + "': Permission denied\n");

    ASSERT_EQ(::chmod(at("t/closed").c_str(), 0), 0);
    ToolRun const du = runTool({"du", at("t")}, RunSettings("", "", true));
    ::chmod(at("t/closed").c_str(), 0755);
    EXPECT_EQ(du.exitStatus, 1);
    EXPECT_EQ(du.err, "kelvo-fs du: cannot read directory '" + at("t/closed") + "': Permission denied\n");
}

TEST_F(ToolFindCommands, BadUsageIsRefused)
{
    EXPECT_EQ(runTool({"find", ".", "-type", "x"}).exitStatus, 2);
    EXPECT_EQ(runTool({"find", ".", "-maxdepth", "-1"}).exitStatus, 2);
    EXPECT_EQ(runTool({"find", ".", "-name"}).exitStatus, 2);
    EXPECT_EQ(runTool({"find", ".", "-name", "a", "-iname", "b"}).exitStatus, 2);
    EXPECT_EQ(runTool({"find", ".", "-bogus"}).exitStatus, 2);
    ToolRun const help = runTool({"find", "--help"});
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_EQ(help.out.substr(0, 20), "Usage: kelvo-fs find");
}

// ---- du --------------------------------------------------------------------

class ToolDiskUsage : public ToolFindCommands {
protected:
    void writeSized(std::string const& name, std::size_t size)
    {
        writeFile(name, std::string(size, 'k'));
    }

    /// A tree with files of several sizes, a sparse file, an empty one, hard
    /// links inside one directory and across two, and a symbolic link.
    void makeMeasuredTree()
    {
        makeDirectory("t");
        makeDirectory("t/a");
        makeDirectory("t/a/b");
        makeDirectory("t/c");
        makeDirectory("t/empty");
        writeSized("t/small", 10);
        writeSized("t/a/mid", 20000);
        writeSized("t/a/b/big", 1500000);
        writeSized("t/c/other", 5000);
        writeFile("t/zero");
        int const fd = ::open(at("t/sparse").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::pwrite(fd, "x", 1, 50 * 1024 * 1024), 1);
        ::close(fd);
        ASSERT_EQ(::link(at("t/a/mid").c_str(), at("t/a/mid-again").c_str()), 0);
        ASSERT_EQ(::link(at("t/a/b/big").c_str(), at("t/c/big-link").c_str()), 0);
        makeLink("a/b/big", "t/symbolic");
    }

    void expectSameAsDu(std::vector<std::string> const& options, std::vector<std::string> const& paths)
    {
        std::string command = "du";
        std::vector<std::string> arguments = {"du"};
        for (std::string const& option : options) {
            command += " " + option;
            arguments.push_back(option);
        }
        for (std::string const& path : paths) {
            command += " " + shellQuoted(path);
            arguments.push_back(path);
        }
        int duStatus = -1;
        std::string const expected = commandOutput(command, &duStatus);
        ToolRun const ours = runTool(arguments);
        EXPECT_EQ(ours.exitStatus, duStatus) << command << ours.err;
        EXPECT_EQ(sortedPieces(ours.out, '\n'), sortedPieces(expected, '\n')) << command;
    }
};

TEST_F(ToolDiskUsage, AgreesWithDuOnHardLinksAndSparseFiles)
{
    ASSERT_TRUE(haveCommand("du"));
    makeMeasuredTree();
    for (std::vector<std::string> const& options :
         {std::vector<std::string>{}, {"-s"}, {"-h"}, {"-s", "-h"}}) {
        expectSameAsDu(options, {at("t")});
        expectSameAsDu(options, {at("t/a"), at("t/c")}); // a hard link across the two counts once
        expectSameAsDu(options, {at("t/c"), at("t/a")});
        expectSameAsDu(options, {at("t/sparse"), at("t/zero"), at("t/small")});
        expectSameAsDu(options, {at("t") + "/"});
    }
}

TEST_F(ToolDiskUsage, ASparseFileCountsWhatItHolds)
{
    makeMeasuredTree();
    ToolRun const run = runTool({"du", at("t/sparse")});
    EXPECT_EQ(run.exitStatus, 0);
    std::size_t const blocks = std::stoul(run.out);
    EXPECT_LT(blocks, 1024u); // not the 50 MiB of its size
    EXPECT_EQ(run.out.substr(run.out.find('\t')), "\t" + at("t/sparse") + "\n");
    ToolRun const missing = runTool({"du", at("none")});
    EXPECT_EQ(missing.exitStatus, 1);
    EXPECT_EQ(missing.err, "kelvo-fs du: cannot access '" + at("none") + "': No such file or directory\n");
}

} // namespace
