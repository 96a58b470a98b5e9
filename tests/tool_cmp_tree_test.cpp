// Tests of kelvo-fs cmp-tree: its lines and exit status against diffutils' recursive brief comparison on generated trees, and the lines of its own (spellings, permissions, times, failures).
#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"
#include "support/ToolRunner.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace kelvo::testing;

class ToolCmpTree : public ToolWorkDirectory {};

/// Runs `diff -rq` (with `extra` options) on "a" and "b" in `directory`,
/// in the C locale, its standard error left out.
ShellRun runDiff(std::string const& directory, std::string const& extra)
{
    return runShell("cd '" + directory + "' && LC_ALL=C diff -rq " + extra + " a b 2>/dev/null");
}

/// @returns true when diffutils' diff can be run here.
bool haveDiff()
{
    return std::system("diff --version >/dev/null 2>&1") == 0;
}

/// Makes two trees "a" and "b" below `top` that differ in content, kind and
/// presence, at random but the same for a seed. Names are lowercase, so that
/// none has a case or composition twin. Every directory holds two regular
/// files "t0" and "t1" that links lead to, with different contents, and links
/// only ever lead to an entry that is there on their side. FIFOs and sockets
/// meet only entries of other kinds.
class TreePairMaker {
public:
    TreePairMaker(std::string top, unsigned seed) : top(std::move(top)), random(seed) {}

    bool make()
    {
        return ::mkdir((top + "/a").c_str(), 0755) == 0 && ::mkdir((top + "/b").c_str(), 0755) == 0
            && fill("", 0);
    }

private:
    std::string path(char const* side, std::string const& relative) const
    {
        return top + "/" + side + (relative.empty() ? "" : "/" + relative);
    }
    bool file(char const* side, std::string const& relative, std::string const& content)
    {
        return writeWholeFile(path(side, relative), content);
    }
    bool directory(char const* side, std::string const& relative)
    {
        return ::mkdir(path(side, relative).c_str(), 0755) == 0;
    }
    bool link(char const* side, std::string const& target, std::string const& relative)
    {
        return ::symlink(target.c_str(), path(side, relative).c_str()) == 0;
    }
    bool fifo(char const* side, std::string const& relative)
    {
        return ::mkfifo(path(side, relative).c_str(), 0644) == 0;
    }
    // A socket's name must fit its address, whatever the length of the
    // scratch directory's path: it is made through its directory's
    // descriptor.
    bool socket(char const* side, std::string const& relative)
    {
        std::string const full = path(side, relative);
        std::size_t const slash = full.find_last_of('/');
        int const directory = ::open(full.substr(0, slash).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (directory < 0)
            return false;
        bool const made = makeSocketFile("/proc/self/fd/" + std::to_string(directory) + full.substr(slash));
        ::close(directory);
        return made;
    }
    std::string content()
    {
        std::string text;
        std::size_t const length = random() % 40;
        for (std::size_t i = 0; i < length; ++i)
            text.push_back(static_cast<char>('a' + random() % 26));
        return text;
    }

    // Fills the directory `relative` of both trees.
    bool fill(std::string const& relative, int depth)
    {
        std::string const prefix = relative.empty() ? "" : relative + "/";
        bool made = file("a", prefix + "t0", "zero") && file("b", prefix + "t0", "zero")
                 && file("a", prefix + "t1", "one") && file("b", prefix + "t1", "one");
        int const count = 10 + static_cast<int>(random() % 10);
        for (int i = 0; i < count && made; ++i) {
            std::string const name = prefix + "e" + std::to_string(i) + (random() % 2 ? "x" : "");
            std::string const text = content();
            switch (random() % (depth < 3 ? 17 : 15)) {
            case 0: // the same file
                made = file("a", name, text) && file("b", name, text);
                break;
            case 1: // the same size, other bytes
                made = file("a", name, "abc" + text) && file("b", name, "abd" + text);
                break;
            case 2: // other sizes
                made = file("a", name, text) && file("b", name, text + "+");
                break;
            case 3:
                made = file("a", name, text);
                break;
            case 4:
                made = directory("b", name) && file("b", name + "/inside", text);
                break;
            case 5: // a file against a directory, the file empty or not
                made = file("a", name, random() % 2 ? text : "") && directory("b", name);
                break;
            case 6:
                made = directory("a", name) && file("b", name, text);
                break;
            case 7:
                made = fifo("a", name) && file("b", name, text);
                break;
            case 8:
                made = file("a", name, text) && socket("b", name);
                break;
            case 9:
                made = socket("a", name) && directory("b", name);
                break;
            case 10: // links to the same entry
                made = link("a", "t0", name) && link("b", "t0", name);
                break;
            case 11: // links to other entries: different texts, and contents once followed
                made = link("a", "t0", name) && link("b", "t1", name);
                break;
            case 12: // a link against a file with the same bytes as its target
                made = link("a", "t1", name) && file("b", name, "one");
                break;
            case 13: // a link to a directory against a directory
                made = directory("a", name + "-d") && directory("b", name + "-d") && link("a", name.substr(prefix.size()) + "-d", name)
                    && directory("b", name) && file("b", name + "/more", text);
                break;
            case 14:
                made = fifo("b", name);
                break;
            default: // directories on both sides, compared below
                made = directory("a", name) && directory("b", name) && fill(name, depth + 1);
                break;
            }
        }
        return made;
    }

    std::string top;
    std::mt19937 random;
};

TEST_F(ToolCmpTree, LinesAndExitStatusAreDiffsOnGeneratedTrees)
{
    if (!haveDiff())
        GTEST_SKIP() << "diff is not installed";
    std::string allExpected;
    for (unsigned seed = 1; seed <= 6; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::string const top = work("trees" + std::to_string(seed));
        ASSERT_EQ(::mkdir(top.c_str(), 0755), 0);
        ASSERT_TRUE(TreePairMaker(top, seed).make());
        RunSettings const there(top);
        // Links followed, as diff follows them; then compared as links.
        for (bool followed : {true, false}) {
            SCOPED_TRACE(followed ? "links followed" : "links not followed");
            ShellRun const expected = runDiff(top, followed ? "" : "--no-dereference");
            ASSERT_NE(expected.exitStatus, -1);
            ToolRun const got = runTool(followed ? std::vector<std::string>{"cmp-tree", "a", "b"}
                                                 : std::vector<std::string>{"cmp-tree", "--no-dereference", "a", "b"},
                                        there);
            // Trees of a few dozen differences, not a comparison that
            // agrees by finding nothing.
            EXPECT_GE(linesOf(expected.out).size(), 8u) << expected.out;
            allExpected += expected.out;
            EXPECT_EQ(got.out, expected.out);
            EXPECT_EQ(got.exitStatus, expected.exitStatus) << got.err;
            EXPECT_EQ(got.err, "");
        }
        // Each tree is the same as itself.
        ToolRun const same = runTool({"cmp-tree", "a", "a"}, there);
        EXPECT_EQ(same.exitStatus, 0);
        EXPECT_EQ(same.out, "");
    }
    // Every kind of line was met.
    for (char const* line : {"Only in a", "Only in b", "Files ", "Symbolic links ", "is a fifo while",
                             "is a socket while", "is a regular empty file while", "is a directory while",
                             "is a symbolic link while", "while file b/e", "is a regular file while"})
        EXPECT_NE(allExpected.find(line), std::string::npos) << line;
}

TEST_F(ToolCmpTree, TheOperandsAreSpeltInTheLinesAsGiven)
{
    if (!haveDiff())
        GTEST_SKIP() << "diff is not installed";
    makeDirectory("a");
    makeDirectory("b");
    makeDirectory("a/sub");
    makeDirectory("b/sub");
    makeFile("a/only", "");
    makeFile("a/sub/only", "");
    makeFile("a/f", "1");
    makeFile("b/f", "2");
    for (std::vector<std::string> const& operands :
         {std::vector<std::string>{"a/", "b/"}, {"./a", "b"}, {"a//", "./b/"}, {"./a/./", ".//b"}}) {
        ToolRun const got = run({"cmp-tree", operands[0], operands[1]});
        std::string const command = "cd '" + work("") + "' && LC_ALL=C diff -rq " + operands[0] + " " + operands[1];
        ShellRun const diff = runShell(command);
        ASSERT_NE(diff.exitStatus, -1) << command;
        std::string const& expected = diff.out;
        EXPECT_EQ(got.out, expected) << operands[0] << " " << operands[1];
        EXPECT_EQ(got.exitStatus, 1);
    }
}

TEST_F(ToolCmpTree, SpellingsHaveALineOfTheirOwnAndAloneLeaveTheTreesTheSame)
{
    makeDirectory("a");
    makeDirectory("b");
    makeFile("a/copyright", "c");
    makeFile("a/changelog", "l");
    makeFile("b/COPYRIGHT", "c");
    makeFile("b/changelog", "l");
    makeFile("a/caf\xC3\xA9", "e");   // composed
    makeFile("b/cafe\xCC\x81", "e");  // decomposed
    ToolRun const spelt = run({"cmp-tree", "a", "b"});
    EXPECT_EQ(spelt.exitStatus, 0) << spelt.err;
    // Names are shown as their bytes are, composed or not.
    EXPECT_EQ(spelt.out, "Names a/caf\xC3\xA9 and b/cafe\xCC\x81 differ in spelling\n"
                         "Names a/copyright and b/COPYRIGHT differ in spelling\n");
    makeFile("b/COPYRIGHT", "C");
    ToolRun const different = run({"cmp-tree", "a", "b"});
    EXPECT_EQ(different.exitStatus, 1);
    EXPECT_EQ(different.out, "Names a/caf\xC3\xA9 and b/cafe\xCC\x81 differ in spelling\n"
                             "Names a/copyright and b/COPYRIGHT differ in spelling\n"
                             "Files a/copyright and b/COPYRIGHT differ\n");
}

TEST_F(ToolCmpTree, PermissionsAndTimesOnlyWithTheirOptions)
{
    makeDirectory("a");
    makeDirectory("b");
    makeFile("a/f", "same");
    makeFile("b/f", "same");
    ASSERT_EQ(::chmod(work("a/f").c_str(), 0644), 0);
    ASSERT_EQ(::chmod(work("b/f").c_str(), 0600), 0);
    long long const time = 1700000000LL * 1000000;
    ASSERT_TRUE(setTimes(work("a/f"), time));
    ASSERT_TRUE(setTimes(work("b/f"), time + 1000000));
    ToolRun const plain = run({"cmp-tree", "a", "b"});
    EXPECT_EQ(plain.exitStatus, 0);
    EXPECT_EQ(plain.out, "");
    ToolRun const permissions = run({"cmp-tree", "--permissions", "a", "b"});
    EXPECT_EQ(permissions.exitStatus, 1);
    EXPECT_EQ(permissions.out, "Permissions of a/f and b/f differ\n");
    ToolRun const times = run({"cmp-tree", "--times", "a", "b"});
    EXPECT_EQ(times.exitStatus, 1);
    EXPECT_EQ(times.out, "Modification times of a/f and b/f differ\n");
    ToolRun const both = run({"cmp-tree", "--permissions", "--times", "a", "b"});
    EXPECT_EQ(both.out, "Permissions of a/f and b/f differ\nModification times of a/f and b/f differ\n");
}

TEST_F(ToolCmpTree, WhatCannotBeFollowedOrReadIsTroubleWithItsReason)
{
    makeDirectory("a");
    makeDirectory("b");
    makeLink("missing", "a/dangling");
    makeFile("b/dangling", "");
    makeLink(".", "a/loop");
    makeDirectory("b/loop");
    makeFile("a/f", "1");
    makeFile("b/f", "2");
    ToolRun const followed = run({"cmp-tree", "a", "b"});
    EXPECT_EQ(followed.exitStatus, 2);
    EXPECT_EQ(followed.out, "Files a/f and b/f differ\n");
    EXPECT_EQ(followed.err, "kelvo-fs cmp-tree: cannot read 'a/dangling': No such file or directory\n"
                            "kelvo-fs cmp-tree: cannot read 'a/loop': Too many levels of symbolic links\n");
    ToolRun const links = run({"cmp-tree", "--no-dereference", "a", "b"});
    EXPECT_EQ(links.exitStatus, 1);
    EXPECT_EQ(links.err, "");
    EXPECT_EQ(links.out, "File a/dangling is a symbolic link while file b/dangling is a regular empty file\n"
                         "Files a/f and b/f differ\n"
                         "File a/loop is a symbolic link while file b/loop is a directory\n");
}

TEST_F(ToolCmpTree, NamesAreShownEscapedAsEveryCommandShowsThem)
{
    makeDirectory("a");
    makeDirectory("b");
    makeFile("a/new\nline", "");
    makeFile("a/bad\xFF", "1");
    makeFile("b/bad\xFF", "2");
    ToolRun const got = run({"cmp-tree", "a", "b"});
    EXPECT_EQ(got.exitStatus, 1);
    EXPECT_EQ(got.out, "Files a/bad\\xFF and b/bad\\xFF differ\n"
                       "Only in a: new\\x0Aline\n");
}

TEST_F(ToolCmpTree, HelpDescribesTheLines)
{
    ToolRun const help = run({"cmp-tree", "--help"});
    EXPECT_EQ(help.exitStatus, 0);
    for (char const* piece : {"Usage: kelvo-fs cmp-tree [--no-dereference] [--permissions] [--times] A B\n",
                              "Only in DIR: NAME", "Names A/copyright and B/COPYRIGHT differ in spelling",
                              "Permissions of A/x and B/x differ", "Modification times of A/x and B/x differ"})
        EXPECT_NE(help.out.find(piece), std::string::npos) << piece;
    EXPECT_EQ(runTool({"help", "--options", "cmp-tree"}).out, "--no-dereference\n--permissions\n--times\n--help\n");
}

} // namespace
