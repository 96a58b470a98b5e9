// Tests of the kelvo-fs path transformation commands: resolve, canonical, complete, limits, check-length, sanitize, dos83, elide, glob and fix-case, each run as a process.
#include "support/ScratchDirectory.h"
#include "support/ToolRunner.h"

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

using kelvo::testing::runTool;
using kelvo::testing::ToolRun;

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
    EXPECT_EQ(run.err, "kelvo-fs canonical: cannot resolve '" + at("missing/f") + "': No such file or directory\n");
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

TEST_F(ToolTransform, GlobWithAGroupOnAVeryLongName)
{
    // The expression engine recursed once per character here and the tool
    // died of a stack overflow.
    std::string const name(40000, 'a');
    ToolRun const run = runTool({"glob", "a(*)", name, "b"});
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_EQ(run.out, name + "\n");
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
    EXPECT_EQ(run.err, "kelvo-fs fix-case: cannot find '" + at("data/new.txt") + "': no spelling of it is on disk\n");
}

TEST_F(ToolTransform, FixCaseEscapesTheSpellingAsEveryCommandShowsNames)
{
    // A byte that is not UTF-8 and a newline, in the name on disk.
    writeFile("Caf\xFF\nE");
    ToolRun const run = runTool({"fix-case", "--all", at("caf\xFF\ne")});
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_EQ(run.out, at("Caf\\xFF\\x0AE") + "\n");
    EXPECT_EQ(runTool({"resolve", at("x/../Caf\xFF\nE")}).out, at("Caf\\xFF\\x0AE") + "\n");
    EXPECT_EQ(runTool({"glob", "*", "a\xFF\x01"}).out, "a\\xFF\\x01\n");
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
