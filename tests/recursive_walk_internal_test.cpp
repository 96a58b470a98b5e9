// Faults injected through the system-call table into the recursive walk: a listing that cannot be read, a way back up that fails or leads elsewhere, listings that do not report kinds, and the count of status calls a walk makes.
#include <kelvo/filesystem/Failure.h>
#include <kelvo/filesystem/RecursiveDirectoryIterator.h>

#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"
#include "support/SystemCallProbes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::DirectoryEntry;
using kelvo::filesystem::Failure;
using kelvo::filesystem::FileType;
using kelvo::filesystem::Path;
using kelvo::filesystem::RecursiveDirectoryIterator;
using kelvo::filesystem::WalkAction;
using kelvo::filesystem::WalkFailurePolicy;
using kelvo::filesystem::WalkOptions;
using kelvo::filesystem::WalkOrder;
using namespace kelvo::testing;
namespace fs = kelvo::filesystem;
namespace posix = kelvo::filesystem::posix;

// What the fakes do.
int readdirCalls = 0;
int readdirFailsAt = 0;   // 1-based call that fails with EIO, 0 for none
bool hideKinds = false;   // readdir reports every kind as unknown
int dotDotOpens = 0;
int dotDotFailsAt = 0;    // 1-based open of ".." that fails with ENOENT
std::string dotDotElsewhere; // when set, opens of ".." open this directory instead

dirent* fakeReaddir(DIR* stream)
{
    ++readdirCalls;
    if (readdirCalls == readdirFailsAt) {
        errno = EIO;
        return nullptr;
    }
    dirent* const entry = ::readdir(stream);
    if (entry != nullptr && hideKinds)
        entry->d_type = DT_UNKNOWN;
    return entry;
}

int fakeOpenat(int directory, char const* name, int flags, mode_t mode)
{
    if (std::strcmp(name, "..") == 0) {
        ++dotDotOpens;
        if (dotDotOpens == dotDotFailsAt) {
            errno = ENOENT;
            return -1;
        }
        if (!dotDotElsewhere.empty())
            return ::open(dotDotElsewhere.c_str(), flags, mode);
    }
    return ::openat(directory, name, flags, mode);
}

class RecursiveWalkFaults : public FaultedSystemCalls {
protected:
    void SetUp() override
    {
        FaultedSystemCalls::SetUp();
        readdirCalls = 0;
        readdirFailsAt = 0;
        hideKinds = false;
        dotDotOpens = 0;
        dotDotFailsAt = 0;
        dotDotElsewhere.clear();
    }

    void makeDirectory(std::string const& name) const { ASSERT_EQ(::mkdir(at(name).c_str(), 0755), 0) << name; }

    // A chain "c/d/d/.../d" of `depth` directories, a file "f" in each.
    std::string makeChain(int depth)
    {
        std::string path = "c";
        makeDirectory(path);
        for (int level = 0; level < depth; ++level) {
            writeFile(path + "/f");
            path += "/d";
            makeDirectory(path);
        }
        return at("c");
    }

    std::vector<std::string> walkPaths(std::string const& root, WalkOptions const& options,
                                       std::vector<Failure>& failures)
    {
        std::vector<std::string> paths;
        RecursiveDirectoryIterator it{Path(root), options};
        for (; it != RecursiveDirectoryIterator(); ++it)
            paths.push_back(it->getPath().nativeString().substr(root.size() + 1));
        failures = it.failures();
        return paths;
    }
};

TEST_F(RecursiveWalkFaults, AListingThatCannotBeReadIsReportedWithTheDirectorysPath)
{
    makeDirectory("t");
    makeDirectory("t/a");
    writeFile("t/a/hidden");
    writeFile("t/b");
    posix::systemCalls().readdir = fakeReaddir;
    // The root's listing takes its entries and the end (4 calls: ".", "..",
    // "a", "b" in some order, then the end); "a" is the first directory
    // listed after it.
    readdirFailsAt = 6;
    WalkOptions options;
    std::vector<Failure> failures;
    std::vector<std::string> const paths = walkPaths(at("t"), options, failures);
    EXPECT_EQ(std::set<std::string>(paths.begin(), paths.end()), (std::set<std::string>{"a", "b"}));
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].error, std::errc::io_error);
    EXPECT_EQ(failures[0].call, "readdir");
    EXPECT_EQ(failures[0].path.nativeString(), at("t/a"));
    Failure const recorded = fs::lastFailure();
    EXPECT_EQ(recorded.call, "readdir");
    EXPECT_EQ(recorded.path.nativeString(), at("t/a"));

    // The root's own listing failing: nothing is yielded, the walk reports it.
    readdirCalls = 0;
    readdirFailsAt = 1;
    std::vector<Failure> rootFailures;
    EXPECT_TRUE(walkPaths(at("t"), options, rootFailures).empty());
    ASSERT_EQ(rootFailures.size(), 1u);
    EXPECT_EQ(rootFailures[0].path.nativeString(), at("t"));
    readdirCalls = 0;
    readdirFailsAt = 1;
    EXPECT_FALSE(fs::walkTree(Path(at("t")), options,
                              [](DirectoryEntry const&, std::size_t) { return WalkAction::proceed; }));
}

TEST_F(RecursiveWalkFaults, AWayBackUpThatFailsEndsTheWalkWithAFailureAndNoDescriptorLeft)
{
    // Deeper than the descriptors the stack holds, so that the way back up
    // goes through "..".
    std::string const root = makeChain(40);
    int const descriptorsBefore = openDescriptorCount();
    posix::systemCalls().openat = fakeOpenat;
    dotDotFailsAt = 1;
    std::vector<Failure> failures;
    std::vector<std::string> const paths = walkPaths(root, WalkOptions(), failures);
    // Everything down to the bottom was yielded (each level's "f" and "d"),
    // and the walk ended on the way up.
    EXPECT_EQ(paths.size(), 80u);
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].error, std::errc::no_such_file_or_directory);
    EXPECT_EQ(failures[0].call, "openat");
    EXPECT_NE(failures[0].path.nativeString().find("/.."), std::string::npos) << failures[0].path;
    EXPECT_EQ(openDescriptorCount(), descriptorsBefore);
    // Whatever the policy: the walk cannot go on.
    dotDotOpens = 0;
    bool const whole = fs::walkTree(Path(root), WalkOptions(),
                                    [](DirectoryEntry const&, std::size_t) { return WalkAction::proceed; });
    EXPECT_FALSE(whole);
    EXPECT_EQ(openDescriptorCount(), descriptorsBefore);
}

TEST_F(RecursiveWalkFaults, AWayBackUpThatLeadsElsewhereIsTakenForATreeMovedUnderTheWalk)
{
    std::string const root = makeChain(40);
    makeDirectory("elsewhere");
    posix::systemCalls().openat = fakeOpenat;
    dotDotElsewhere = at("elsewhere");
    for (WalkOrder const order : {WalkOrder::directoryFirst, WalkOrder::directoryLast}) {
        WalkOptions options;
        options.order = order;
        std::vector<Failure> failures;
        std::vector<std::string> const paths = walkPaths(root, options, failures);
        ASSERT_EQ(failures.size(), 1u);
        EXPECT_EQ(failures[0].error, std::errc::no_such_file_or_directory);
        EXPECT_EQ(failures[0].call, "openat");
        // Nothing outside the tree was yielded.
        for (std::string const& path : paths)
            EXPECT_EQ(path.find("elsewhere"), std::string::npos);
    }
}

TEST_F(RecursiveWalkFaults, ListingsWithoutKindsAreWalkedByStatuses)
{
    makeDirectory("t");
    makeDirectory("t/a");
    makeDirectory("t/a/b");
    writeFile("t/a/b/file");
    writeFile("t/a/file");
    ASSERT_EQ(::symlink("a", at("t/link").c_str()), 0);
    ASSERT_EQ(::mkfifo(at("t/fifo").c_str(), 0644), 0);
    int const result = runBounded(120, [&] {
        posix::systemCalls().readdir = fakeReaddir;
        hideKinds = true;
        std::set<std::pair<std::string, FileType>> seen;
        for (DirectoryEntry const& entry : RecursiveDirectoryIterator(Path(at("t"))))
            seen.insert({entry.getPath().nativeString(), entry.getListedType()});
        WalkOptions follow;
        follow.followSymbolicLinks = true;
        std::set<std::string> followed;
        for (DirectoryEntry const& entry : RecursiveDirectoryIterator(Path(at("t")), follow))
            followed.insert(entry.getPath().nativeString());
        std::set<std::pair<std::string, FileType>> const expected = {
            {at("t/a"), FileType::directory},      {at("t/a/b"), FileType::directory},
            {at("t/a/b/file"), FileType::regularFile}, {at("t/a/file"), FileType::regularFile},
            {at("t/link"), FileType::symbolicLink}, {at("t/fifo"), FileType::fifo}};
        std::set<std::string> const expectedFollowed = {at("t/a"),    at("t/a/b"),      at("t/a/b/file"),
                                                        at("t/a/file"), at("t/link"),   at("t/link/b"),
                                                        at("t/link/b/file"), at("t/link/file"), at("t/fifo")};
        return firstFailure({seen == expected, followed == expectedFollowed});
    });
    EXPECT_EQ(result, 0) << kChildDidNotExit << ": killed (blocked?) or crashed; else the check that failed";
}

TEST_F(RecursiveWalkFaults, AWalkOfNamesAndKindsMakesNoStatusCallPerEntry)
{
    makeDirectory("t");
    for (int d = 0; d < 5; ++d) {
        makeDirectory("t/d" + std::to_string(d));
        for (int f = 0; f < 40; ++f)
            writeFile("t/d" + std::to_string(d) + "/f" + std::to_string(f));
    }
    ASSERT_EQ(::symlink("d0", at("t/link").c_str()), 0);
    posix::systemCalls().stat = countingStat;
    posix::systemCalls().lstat = countingLstat;
    posix::systemCalls().fstatat = countingFstatat;
    std::size_t count = 0;
    for (DirectoryEntry const& entry : RecursiveDirectoryIterator(Path(at("t")))) {
        FileType const type = entry.getListedType();
        EXPECT_NE(type, FileType::none);
        ++count;
    }
    EXPECT_EQ(count, 206u);
    EXPECT_EQ(statusCalls, 0);
    // Following links takes one status of each link, and nothing else.
    WalkOptions follow;
    follow.followSymbolicLinks = true;
    count = 0;
    for (DirectoryEntry const& entry : RecursiveDirectoryIterator(Path(at("t")), follow)) {
        (void)entry;
        ++count;
    }
    EXPECT_EQ(count, 246u);
    EXPECT_EQ(statusCalls, 1);
}

} // namespace
