// Tests of the version header, the library's version functions and kelvo-fs --version.
#include <kelvo/filesystem.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include <sys/wait.h>

namespace {

TEST(VersionTest, MacrosAgreeWithTheProjectVersion)
{
    EXPECT_EQ(KELVO_FILESYSTEM_VERSION_MAJOR, KELVO_PROJECT_VERSION_MAJOR);
    EXPECT_EQ(KELVO_FILESYSTEM_VERSION_MINOR, KELVO_PROJECT_VERSION_MINOR);
    EXPECT_EQ(KELVO_FILESYSTEM_VERSION_PATCH, KELVO_PROJECT_VERSION_PATCH);
    EXPECT_EQ(KELVO_FILESYSTEM_VERSION,
              KELVO_PROJECT_VERSION_MAJOR * 10000 + KELVO_PROJECT_VERSION_MINOR * 100 + KELVO_PROJECT_VERSION_PATCH);
}

TEST(VersionTest, LibraryReportsTheVersionItWasBuiltAs)
{
    ASSERT_NE(kelvo::filesystem::libraryVersion(), nullptr);
    EXPECT_EQ(std::string(kelvo::filesystem::libraryVersion()), KELVO_PROJECT_VERSION);
    EXPECT_EQ(kelvo::filesystem::libraryVersionNumber(), KELVO_FILESYSTEM_VERSION);
}

TEST(VersionTest, ToolPrintsTheLibraryVersion)
{
    std::string const tool = KELVO_TOOL_PATH;
    if (tool.empty())
        GTEST_SKIP() << "the tool is not part of this build";
    std::FILE* pipe = ::popen(("'" + tool + "' --version").c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string out;
    char buffer[256];
    std::size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        out.append(buffer, got);
    int const status = ::pclose(pipe);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(out, std::string("kelvo-fs ") + KELVO_PROJECT_VERSION + "\n");
}

} // namespace
