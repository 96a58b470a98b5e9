// Test support: a fixture that gives each test a fresh private directory on disk and removes it afterwards.
#ifndef KELVO_TESTS_SUPPORT_SCRATCH_DIRECTORY_H
#define KELVO_TESTS_SUPPORT_SCRATCH_DIRECTORY_H

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvo::testing {

/// Removes a tree with plain system calls, so that the tests' cleanup does not
/// depend on the code under test. Makes directories writable on the way. The
/// walk is a loop that holds one directory descriptor at a time, going down by
/// name and back up through "..", so a tree of any depth goes; each directory
/// is listed once. What cannot be deleted stays, with the directories above it.
inline void removeTree(std::string const& path)
{
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0)
        return;
    if (!S_ISDIR(st.st_mode)) {
        ::unlink(path.c_str());
        return;
    }
    ::chmod(path.c_str(), 0700);
    // The directories from the top down to the current one: the name each
    // was entered by, and its subdirectories still to go into.
    struct Level {
        std::string name;
        std::vector<std::string> subdirectories;
    };
    std::vector<Level> levels(1);
    int current = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    bool listed = false;
    while (current >= 0) {
        Level& level = levels.back();
        if (!listed) {
            // Deletes everything here but the subdirectories, noted for later.
            int const copy = ::fcntl(current, F_DUPFD_CLOEXEC, 0);
            if (DIR* dir = copy >= 0 ? ::fdopendir(copy) : nullptr) {
                while (dirent* entry = ::readdir(dir)) {
                    char const* name = entry->d_name;
                    if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0)
                        continue;
                    struct stat entryStatus;
                    if (::fstatat(current, name, &entryStatus, AT_SYMLINK_NOFOLLOW) == 0
                        && S_ISDIR(entryStatus.st_mode))
                        level.subdirectories.emplace_back(name);
                    else
                        ::unlinkat(current, name, 0);
                }
                ::closedir(dir);
            } else if (copy >= 0) {
                ::close(copy);
            }
            listed = true;
        }
        if (!level.subdirectories.empty()) {
            std::string const name = std::move(level.subdirectories.back());
            level.subdirectories.pop_back();
            ::fchmodat(current, name.c_str(), 0700, 0);
            int const next = ::openat(current, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (next < 0) {
                ::unlinkat(current, name.c_str(), AT_REMOVEDIR);
                continue;
            }
            ::close(current);
            current = next;
            levels.push_back(Level{name, {}});
            listed = false;
            continue;
        }
        // Everything below has gone that could: back up and remove this one.
        if (levels.size() == 1) {
            ::close(current);
            break;
        }
        int const parent = ::openat(current, "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(current);
        current = parent;
        std::string const name = std::move(levels.back().name);
        levels.pop_back();
        if (current >= 0)
            ::unlinkat(current, name.c_str(), AT_REMOVEDIR);
    }
    ::rmdir(path.c_str());
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

/// Fixture: besides `scratch`, `area` is a new directory of /dev/shm named
/// after `stem` where there is one (metadata in memory, so that very deep
/// trees are made and removed in seconds), else the scratch directory itself.
/// An area of its own is removed with everything in it at the end.
class MemoryScratchDirectory : public ScratchDirectory {
protected:
    explicit MemoryScratchDirectory(std::string stem) : areaStem(std::move(stem)) {}

    void SetUp() override
    {
        ScratchDirectory::SetUp();
        area = scratch;
        std::string shared = "/dev/shm/" + areaStem + "-XXXXXX";
        if (::mkdtemp(shared.data()) != nullptr) {
            area = shared;
            ownArea = true;
        }
    }

    void TearDown() override
    {
        if (ownArea)
            removeTree(area);
        ScratchDirectory::TearDown();
    }

    std::string area;
    bool ownArea = false;

private:
    std::string areaStem;
};

} // namespace kelvo::testing

#endif
