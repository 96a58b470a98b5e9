// Tests of kelvo-fs save: standard input over a file atomically, run as a process, its effect on disk, messages and exit status checked.
#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/SaveCrashes.h"
#include "support/ScratchDirectory.h"
#include "support/ToolRunner.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace kelvo::testing;

class ToolSave : public ScratchDirectory {
protected:
    /// Runs `kelvo-fs save` with `arguments` in the scratch directory, its
    /// standard input the bytes `input`.
    ToolRun save(std::vector<std::string> const& arguments, std::string const& input)
    {
        std::string const inputFile = scratch + "-input";
        EXPECT_TRUE(writeWholeFile(inputFile, input));
        RunSettings settings(scratch);
        settings.standardInput = inputFile;
        std::vector<std::string> line = {"save"};
        line.insert(line.end(), arguments.begin(), arguments.end());
        ToolRun const run = runTool(line, settings);
        ::unlink(inputFile.c_str());
        return run;
    }

    static mode_t bitsOf(std::string const& path)
    {
        struct stat st;
        return ::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
    }
};

TEST_F(ToolSave, StandardInputBecomesANewFile)
{
    std::string const bytes = std::string("line one\n\0binary\xff\n", 18) + randomBytes(300000, 5);
    ToolRun const run = save({"new.dat"}, bytes);
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
    EXPECT_TRUE(readWholeFile(at("new.dat")) == bytes);
    EXPECT_EQ(namesIn(scratch), std::vector<std::string>{"new.dat"});
}

TEST_F(ToolSave, ExistingFileKeepsItsModeAndLinksAreFollowed)
{
    ASSERT_TRUE(writeWholeFile(at("settings.ini"), "old"));
    ASSERT_EQ(::chmod(at("settings.ini").c_str(), 0640), 0);
    ASSERT_EQ(::symlink("settings.ini", at("current").c_str()), 0);
    ToolRun const run = save({"current"}, "[new]\n");
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_EQ(readWholeFile(at("settings.ini")), "[new]\n");
    EXPECT_EQ(bitsOf(at("settings.ini")), 0640u);
    EXPECT_EQ(linkContents(at("current")), "settings.ini");
    ToolRun const empty = save({"--", "settings.ini"}, "");
    EXPECT_EQ(empty.exitStatus, 0) << empty.err;
    EXPECT_EQ(readWholeFile(at("settings.ini")), "");
    EXPECT_EQ(namesIn(scratch), (std::vector<std::string>{"current", "settings.ini"}));
}

TEST_F(ToolSave, FailuresNameTheFileAndTheReason)
{
    ToolRun const missing = save({"no-such-dir/file"}, "x");
    EXPECT_EQ(missing.exitStatus, 1);
    EXPECT_EQ(missing.out, "");
    EXPECT_EQ(missing.err, "kelvo-fs save: cannot save 'no-such-dir/file': No such file or directory\n");

    ASSERT_EQ(::mkdir(at("folder").c_str(), 0755), 0);
    ToolRun const directory = save({"folder"}, "x");
    EXPECT_EQ(directory.exitStatus, 1);
    EXPECT_EQ(directory.err, "kelvo-fs save: cannot save 'folder': Is a directory\n");

    ASSERT_EQ(::symlink("folder", at("to-folder").c_str()), 0);
    ToolRun const throughLink = save({"to-folder"}, "x");
    EXPECT_EQ(throughLink.exitStatus, 1);
    EXPECT_EQ(throughLink.err, "kelvo-fs save: cannot save './folder': Is a directory\n");
    EXPECT_TRUE(namesIn(at("folder")).empty());
}

TEST_F(ToolSave, ReadOnlyDirectoryFailsForAnUnprivilegedUser)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    ASSERT_EQ(::mkdir(at("locked").c_str(), 0755), 0);
    ASSERT_TRUE(writeWholeFile(at("locked/doc"), "as it was", 0666));
    ASSERT_EQ(::chmod(at("locked/doc").c_str(), 0666), 0);
    ASSERT_EQ(::chmod(at("locked").c_str(), 0555), 0);
    std::string const inputFile = scratch + "/input";
    ASSERT_TRUE(writeWholeFile(inputFile, "new", 0644));
    RunSettings settings(scratch, {}, true);
    settings.standardInput = inputFile;
    ToolRun const run = runTool({"save", "locked/doc"}, settings);
    if (run.exitStatus == kCannotDropPrivileges)
        GTEST_SKIP() << "cannot switch to an unprivileged user";
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.err, "kelvo-fs save: cannot save 'locked/doc': Permission denied\n");
    EXPECT_EQ(readWholeFile(at("locked/doc")), "as it was");
    EXPECT_EQ(namesIn(at("locked")), std::vector<std::string>{"doc"});
}

TEST_F(ToolSave, UsageErrorsAndHelp)
{
    for (std::vector<std::string> const& arguments :
         {std::vector<std::string>{}, std::vector<std::string>{"a", "b"}}) {
        ToolRun const run = save(arguments, "");
        EXPECT_EQ(run.exitStatus, 2);
        EXPECT_EQ(run.err, "kelvo-fs save: needs one FILE\nUsage: kelvo-fs save FILE  (kelvo-fs help save tells more)\n");
    }
    ToolRun const unknown = save({"--force", "x"}, "");
    EXPECT_EQ(unknown.exitStatus, 2);
    EXPECT_FALSE(isPresentOnDisk(at("x")));
    ToolRun const help = runTool({"save", "--help"});
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_EQ(help.out.substr(0, help.out.find('\n')), "Usage: kelvo-fs save FILE");
    EXPECT_NE(help.out.find(".FILE.kelvo-save-XXXXXX"), std::string::npos);
    ToolRun const listed = runTool({"help"});
    EXPECT_NE(listed.out.find("  save FILE"), std::string::npos) << listed.out;
}

} // namespace
