// Tests of making a new directory under a fresh name made of a prefix and a random number.
#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>

#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = kelvo::filesystem;
using kelvo::filesystem::Path;
using kelvo::testing::firstFailure;
using kelvo::testing::runUnprivileged;
using kelvo::testing::unprivilegedSkipReason;

class UniqueDirectory : public kelvo::testing::ScratchDirectory {
protected:
    /// @returns the names in the directory `path`, "." and ".." left out.
    static std::vector<std::string> namesIn(std::string const& path)
    {
        std::vector<std::string> names;
        if (DIR* dir = ::opendir(path.c_str())) {
            while (dirent* entry = ::readdir(dir)) {
                std::string const name = entry->d_name;
                if (name != "." && name != "..")
                    names.push_back(name);
            }
            ::closedir(dir);
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    static bool isDirectoryOnDisk(std::string const& path)
    {
        struct stat st;
        return ::lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
    }
};

TEST_F(UniqueDirectory, MakesAPrivateDirectoryNamedThePrefixAndANumber)
{
    mode_t const mask = ::umask(022);
    Path const made = fs::createUniqueDirectory(Path(scratch), "job-");
    ::umask(mask);
    ASSERT_FALSE(made.empty());
    EXPECT_EQ(made.parentPath().nativeString(), scratch);
    std::string const name = made.filename().nativeString();
    ASSERT_GT(name.size(), 4u);
    EXPECT_EQ(name.compare(0, 4, "job-"), 0) << name;
    EXPECT_TRUE(std::all_of(name.begin() + 4, name.end(), [](char c) { return std::isdigit(static_cast<unsigned char>(c)); }))
        << name;
    ASSERT_TRUE(isDirectoryOnDisk(made.nativeString()));
    struct stat st;
    ASSERT_EQ(::stat(made.nativeString().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    EXPECT_EQ(st.st_uid, ::geteuid());
    EXPECT_TRUE(namesIn(made.nativeString()).empty());
    EXPECT_EQ(namesIn(scratch), std::vector<std::string>{name});
}

TEST_F(UniqueDirectory, TheUmaskStillApplies)
{
    mode_t const mask = ::umask(0077 | 0200);
    Path const made = fs::createUniqueDirectory(Path(scratch), "masked");
    ::umask(mask);
    ASSERT_FALSE(made.empty());
    struct stat st;
    ASSERT_EQ(::stat(made.nativeString().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0500u);
}

TEST_F(UniqueDirectory, EveryCallMakesAnotherDirectoryAndLeavesTheOthers)
{
    writeFile("keep.txt", "kept");
    std::set<std::string> made;
    for (int i = 0; i < 20; ++i) {
        Path const path = fs::createUniqueDirectory(Path(scratch), "same");
        ASSERT_FALSE(path.empty());
        EXPECT_TRUE(made.insert(path.nativeString()).second) << path.nativeString();
    }
    EXPECT_EQ(namesIn(scratch).size(), 21u);
    for (std::string const& path : made)
        EXPECT_TRUE(isDirectoryOnDisk(path)) << path;
}

TEST_F(UniqueDirectory, ThreadsAtOnceNeverShareADirectory)
{
    constexpr int kThreads = 8;
    constexpr int kEach = 40;
    std::vector<std::vector<std::string>> results(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kEach; ++i)
                results[t].push_back(fs::createUniqueDirectory(Path(scratch), "race-").nativeString());
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::set<std::string> all;
    for (auto const& list : results) {
        for (std::string const& path : list) {
            EXPECT_FALSE(path.empty());
            all.insert(path);
        }
    }
    EXPECT_EQ(all.size(), static_cast<std::size_t>(kThreads * kEach));
    EXPECT_EQ(namesIn(scratch).size(), static_cast<std::size_t>(kThreads * kEach));
}

TEST_F(UniqueDirectory, AnEmptyPrefixGivesANameOfDigitsOnly)
{
    Path const made = fs::createUniqueDirectory(Path(scratch), "");
    ASSERT_FALSE(made.empty());
    std::string const name = made.filename().nativeString();
    ASSERT_FALSE(name.empty());
    EXPECT_TRUE(std::all_of(name.begin(), name.end(), [](char c) { return std::isdigit(static_cast<unsigned char>(c)); }))
        << name;
}

TEST_F(UniqueDirectory, APrefixMayNameAnExistingSubdirectory)
{
    ASSERT_EQ(::mkdir(at("sub").c_str(), 0755), 0);
    Path const made = fs::createUniqueDirectory(Path(scratch), "sub/inner-");
    ASSERT_FALSE(made.empty());
    EXPECT_EQ(made.parentPath().nativeString(), at("sub"));
    EXPECT_EQ(namesIn(at("sub")).size(), 1u);
}

TEST_F(UniqueDirectory, AMissingOrFileBaseGivesAnEmptyPathAndMakesNothing)
{
    writeFile("file", "x");
    EXPECT_TRUE(fs::createUniqueDirectory(Path(at("missing")), "p").empty());
    EXPECT_TRUE(fs::createUniqueDirectory(Path(at("missing/deeper")), "p").empty());
    EXPECT_TRUE(fs::createUniqueDirectory(Path(at("file")), "p").empty());
    EXPECT_TRUE(fs::createUniqueDirectory(Path(scratch), "no-such-sub/p").empty());
    EXPECT_EQ(namesIn(scratch), std::vector<std::string>{"file"});
}

TEST_F(UniqueDirectory, ANulByteInThePrefixMakesNothing)
{
    ASSERT_EQ(::mkdir(at("a").c_str(), 0755), 0);
    // Made, the shorter name before the NUL would be a new directory in "a".
    std::string const prefix = std::string("a/b") + '\0' + "c";
    EXPECT_TRUE(fs::createUniqueDirectory(Path(scratch), kelvo::unicode::String(prefix)).empty());
    EXPECT_TRUE(namesIn(at("a")).empty());
    EXPECT_EQ(namesIn(scratch), std::vector<std::string>{"a"});
}

TEST_F(UniqueDirectory, AReadOnlyBaseRefusesAnUnprivilegedUser)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    ASSERT_EQ(::mkdir(at("ro").c_str(), 0555), 0);
    ASSERT_EQ(::chmod(at("ro").c_str(), 0555), 0);
    std::string const base = at("ro");
    int const result = runUnprivileged([&] {
        if (::access(base.c_str(), X_OK) != 0)
            return kelvo::testing::kScratchUnreachable;
        Path const made = fs::createUniqueDirectory(Path(base), "denied");
        return firstFailure({made.empty(), namesIn(base).empty()});
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    EXPECT_EQ(result, 0);
}

} // namespace
