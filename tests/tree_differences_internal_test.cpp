// Tests of the failure paths of differencesBetween, with faults injected at the system-call table: a link whose text cannot be read, a file read that fails half-way, a listing that fails, and the number of status calls a comparison makes.
#include <kelvo/filesystem.h>

#include "support/FileTrees.h"
#include "support/ScratchDirectory.h"
#include "support/SystemCallProbes.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::DifferenceKind;
using kelvo::filesystem::Failure;
using kelvo::filesystem::Path;
using kelvo::filesystem::TreeDifference;
using namespace kelvo::testing;
namespace fs = kelvo::filesystem;
namespace posix = kelvo::filesystem::posix;

// State shared with the fake calls, reset by the fixture.
int readCalls = 0;
int readFailsAt = 0; // 1-based call that fails, 0 for none
int readdirCalls = 0;
int readdirFailsAt = 0;

ssize_t failingReadlinkat(int, char const*, char*, std::size_t)
{
    errno = EIO;
    return -1;
}

ssize_t countingRead(int descriptor, void* buffer, std::size_t count)
{
    if (++readCalls == readFailsAt) {
        errno = EIO;
        return -1;
    }
    return ::read(descriptor, buffer, count);
}

int vanishingFstatat(int directory, char const* name, struct stat* information, int flags)
{
    if (std::string(name) == "gone") {
        errno = ENOENT;
        return -1;
    }
    return ::fstatat(directory, name, information, flags);
}

dirent* failingReaddir(DIR* stream)
{
    if (++readdirCalls == readdirFailsAt) {
        errno = EIO;
        return nullptr;
    }
    return ::readdir(stream);
}

class TreeDifferencesFaults : public FaultedSystemCalls {
protected:
    void SetUp() override
    {
        FaultedSystemCalls::SetUp();
        readCalls = readFailsAt = readdirCalls = readdirFailsAt = 0;
        ASSERT_EQ(::mkdir(at("a").c_str(), 0755), 0);
        ASSERT_EQ(::mkdir(at("b").c_str(), 0755), 0);
    }

    std::vector<TreeDifference> compare()
    {
        failures.clear();
        return fs::differencesBetween(Path(at("a")), Path(at("b")), {}, &failures);
    }

    std::vector<Failure> failures;
};

TEST_F(TreeDifferencesFaults, ALinkWhoseTextCannotBeReadIsAFailureNamedByItsPath)
{
    ASSERT_EQ(::symlink("x", at("a/link").c_str()), 0);
    ASSERT_EQ(::symlink("y", at("b/link").c_str()), 0);
    posix::systemCalls().readlinkat = failingReadlinkat;
    EXPECT_TRUE(compare().empty());
    ASSERT_EQ(failures.size(), 2u);
    EXPECT_EQ(failures[0].call, "readlinkat");
    EXPECT_EQ(failures[0].error, std::errc::io_error);
    EXPECT_EQ(failures[0].path.nativeString(), at("a/link"));
    EXPECT_EQ(failures[1].path.nativeString(), at("b/link"));
    // With the system's call the texts are read and differ.
    posix::systemCalls() = posix::systemCallsOfTheSystem();
    std::vector<TreeDifference> const found = compare();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].kind, DifferenceKind::differentContents);
    EXPECT_TRUE(failures.empty());
}

TEST_F(TreeDifferencesFaults, AFileReadThatFailsIsAFailureAndNoAnswer)
{
    // Equal up to the last byte: a read that failed and looked like the end
    // would call them the same.
    std::string content(100000, 'x');
    ASSERT_TRUE(writeWholeFile(at("a/f"), content));
    content.back() = 'y';
    ASSERT_TRUE(writeWholeFile(at("b/f"), content));
    posix::systemCalls().read = countingRead;
    readFailsAt = 2; // the first read of the second file
    EXPECT_TRUE(compare().empty());
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].call, "read");
    EXPECT_EQ(failures[0].error, std::errc::io_error);
    EXPECT_EQ(failures[0].path.nativeString(), at("b/f"));
    readCalls = 0;
    readFailsAt = 0;
    ASSERT_EQ(compare().size(), 1u);
    EXPECT_TRUE(failures.empty());
}

TEST_F(TreeDifferencesFaults, AListingThatFailsIsAFailureAndItsContentsAreNotCompared)
{
    ASSERT_EQ(::mkdir(at("a/sub").c_str(), 0755), 0);
    ASSERT_EQ(::mkdir(at("b/sub").c_str(), 0755), 0);
    ASSERT_TRUE(writeWholeFile(at("a/sub/only"), ""));
    ASSERT_TRUE(writeWholeFile(at("a/f"), "1"));
    ASSERT_TRUE(writeWholeFile(at("b/f"), "2"));
    posix::systemCalls().readdir = failingReaddir;
    readdirFailsAt = 11; // each root gives ".", "..", "f", "sub" and its end: a/sub's first read
    std::vector<TreeDifference> const found = compare();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].first.nativeString(), at("a/f"));
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].error, std::errc::io_error);
    EXPECT_EQ(failures[0].path.nativeString(), at("a/sub"));
}

TEST_F(TreeDifferencesFaults, AnEntryGoneSinceItWasListedIsAFailureAndTheRestIsCompared)
{
    for (char const* side : {"a", "b"}) {
        ASSERT_TRUE(writeWholeFile(at(side) + "/gone", side));
        ASSERT_TRUE(writeWholeFile(at(side) + "/kept", "same"));
    }
    ASSERT_EQ(::chmod(at("a/kept").c_str(), 0600), 0);
    ASSERT_EQ(::chmod(at("b/kept").c_str(), 0644), 0);
    posix::systemCalls().fstatat = vanishingFstatat;
    fs::DifferenceOptions permissions;
    permissions.comparePermissions = true;
    std::vector<Failure> failed;
    std::vector<TreeDifference> const found =
        fs::differencesBetween(Path(at("a")), Path(at("b")), permissions, &failed);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].kind, DifferenceKind::differentPermissions);
    EXPECT_EQ(found[0].first.nativeString(), at("a/kept"));
    ASSERT_EQ(failed.size(), 2u);
    EXPECT_EQ(failed[0].call, "fstatat");
    EXPECT_EQ(failed[0].error, std::errc::no_such_file_or_directory);
    EXPECT_EQ(failed[0].path.nativeString(), at("a/gone"));
    EXPECT_EQ(failed[1].path.nativeString(), at("b/gone"));
}

TEST_F(TreeDifferencesFaults, NoEntryIsStattedByNameWhenTheListingTellsItsKind)
{
    // Directories, links, FIFOs and entries on one side only are told by the
    // listing's kinds, and regular files by their open descriptors: no status
    // call by name for any of them.
    for (char const* side : {"a", "b"}) {
        std::string const top = at(side);
        for (int i = 0; i < 20; ++i) {
            ASSERT_EQ(::mkdir((top + "/d" + std::to_string(i)).c_str(), 0755), 0);
            ASSERT_EQ(::symlink("t", (top + "/l" + std::to_string(i)).c_str()), 0);
            ASSERT_EQ(::mkfifo((top + "/p" + std::to_string(i)).c_str(), 0644), 0);
            ASSERT_TRUE(writeWholeFile(top + "/only-" + side + std::to_string(i), ""));
        }
    }
    ASSERT_TRUE(writeWholeFile(at("a/f"), "1"));
    ASSERT_TRUE(writeWholeFile(at("b/f"), "1"));
    posix::systemCalls().fstatat = countingFstatat;
    std::vector<TreeDifference> const found = compare();
    EXPECT_EQ(found.size(), 40u);
    EXPECT_TRUE(failures.empty());
    EXPECT_EQ(statusCalls, 0);
    // Permissions are read by name, one call for each entry of a pair.
    statusCalls = 0;
    fs::DifferenceOptions permissions;
    permissions.comparePermissions = true;
    EXPECT_EQ(fs::differencesBetween(Path(at("a")), Path(at("b")), permissions).size(), 40u);
    EXPECT_EQ(statusCalls, 2 * 61);
}

} // namespace
