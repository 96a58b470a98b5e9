// Test support: a fixture that gives each test a fresh private directory on disk and removes it afterwards.
#ifndef KELVO_TESTS_SUPPORT_SCRATCH_DIRECTORY_H
#define KELVO_TESTS_SUPPORT_SCRATCH_DIRECTORY_H

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvo::testing {

/// Removes a tree with plain system calls, so that the tests' cleanup does not
/// depend on the code under test. Makes directories writable on the way.
inline void removeTree(std::string const& path)
{
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0)
        return;
    if (S_ISDIR(st.st_mode)) {
        ::chmod(path.c_str(), 0700);
        if (DIR* dir = ::opendir(path.c_str())) {
            while (dirent* entry = ::readdir(dir)) {
                if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
                    continue;
                removeTree(path + "/" + entry->d_name);
            }
            ::closedir(dir);
        }
        ::rmdir(path.c_str());
    } else {
        ::unlink(path.c_str());
    }
}

/// Fixture: `scratch` is the absolute native path of a new, empty directory
/// made for this test alone; it is removed with everything in it at the end.
class ScratchDirectory : public ::testing::Test {
protected:
    void SetUp() override
    {
        char const* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/kelvo-test-XXXXXX";
        char* made = ::mkdtemp(pattern.data());
        ASSERT_NE(made, nullptr) << "cannot make a scratch directory";
        char resolved[PATH_MAX];
        ASSERT_NE(::realpath(made, resolved), nullptr);
        scratch = resolved;
        ::getcwd(previousDirectory, sizeof previousDirectory);
    }

    void TearDown() override
    {
        if (previousDirectory[0] != '\0')
            (void)::chdir(previousDirectory);
        if (!scratch.empty())
            removeTree(scratch);
    }

    /// @returns the native path of `name` inside the scratch directory.
    std::string at(std::string const& name) const { return scratch + "/" + name; }

    /// Writes `content` into the file `name` of the scratch directory.
    void writeFile(std::string const& name, std::string const& content = "") const
    {
        int fd = ::open(at(name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ASSERT_GE(fd, 0) << name;
        ASSERT_EQ(::write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
        ::close(fd);
    }

    std::string scratch;
    char previousDirectory[4096] = {};
};

} // namespace kelvo::testing

#endif
