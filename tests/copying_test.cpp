// Tests of copyFileWith and copyTreeWith: times to the nanosecond, modes, owners, links, overwrite policies, specials, progress, cancel, unreadable and deep trees.
#include <kelvo/filesystem.h>

#include "support/DirectoryChains.h"
#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ResourceProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <map>
#include <stdexcept>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::CopyOptions;
using kelvo::filesystem::CopyProgress;
using kelvo::filesystem::CopyResult;
using kelvo::filesystem::CopySkipReason;
using kelvo::filesystem::OverwritePolicy;
using kelvo::filesystem::Path;
using namespace kelvo::testing;
namespace fs = kelvo::filesystem;

constexpr char kTemporaryPrefix[] = ".kelvo-copy-";

/// Sets the access and modification times of `path` itself (not a link's
/// target) to the given seconds and nanoseconds.
bool setExactTimes(std::string const& path, long accessSeconds, long accessNanoseconds, long modificationSeconds,
                   long modificationNanoseconds)
{
    struct timespec times[2] = {{accessSeconds, accessNanoseconds}, {modificationSeconds, modificationNanoseconds}};
    return ::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0;
}

struct stat linkStatus(std::string const& path)
{
    struct stat st = {};
    ::lstat(path.c_str(), &st);
    return st;
}

/// @returns every name under `path` (relative, with "/"), any depth.
void collectNames(std::string const& path, std::string const& prefix, std::set<std::string>& out)
{
    for (std::string const& name : namesIn(path)) {
        out.insert(prefix + name);
        if (isDirectoryOnDisk(path + "/" + name))
            collectNames(path + "/" + name, prefix + name + "/", out);
    }
}

std::set<std::string> allNames(std::string const& path)
{
    std::set<std::string> out;
    ::chmod(path.c_str(), 0700);
    collectNames(path, "", out);
    return out;
}

/// @returns how many names under `path` are the copy's temporaries.
int temporariesUnder(std::string const& path)
{
    int count = 0;
    for (std::string const& name : allNames(path)) {
        std::string const last = name.substr(name.rfind('/') == std::string::npos ? 0 : name.rfind('/') + 1);
        if (last.compare(0, std::strlen(kTemporaryPrefix), kTemporaryPrefix) == 0)
            ++count;
    }
    return count;
}

std::string failuresText(CopyResult const& result)
{
    std::string text;
    for (fs::Failure const& failure : result.failures)
        text += failure.call + " " + failure.path.nativeString() + ": " + failure.error.message() + "\n";
    return text;
}

class Copying : public ScratchTree {
protected:
    Path path(std::string const& name) const { return Path(at(name)); }
    /// A tree of `count` files of 4 KiB in two directories, named f0, f1, ...
    void makeFileTree(std::string const& top, int count)
    {
        makeDirectory(top);
        makeDirectory(top + "/sub");
        for (int i = 0; i < count; ++i)
            makeFile(top + (i % 2 == 0 ? "/f" : "/sub/f") + std::to_string(i), std::string(4096, char('a' + i % 26)));
    }
};

// ---- Times, modes, owners, links -------------------------------------------------

TEST_F(Copying, TimesAreKeptToTheNanosecondForFilesDirectoriesAndLinks)
{
    makeDirectory("from");
    makeDirectory("from/dir");
    makeFile("from/dir/file", "contents");
    ASSERT_EQ(::symlink("dir/file", at("from/link").c_str()), 0);
    ASSERT_TRUE(setExactTimes(at("from/dir/file"), 1000000001, 123456789, 1500000003, 987654321));
    ASSERT_TRUE(setExactTimes(at("from/link"), 1100000005, 111111111, 1200000007, 222222223));
    ASSERT_TRUE(setExactTimes(at("from/dir"), 1300000009, 333333331, 1400000011, 444444443));
    ASSERT_TRUE(setExactTimes(at("from"), 1300000013, 555555557, 1400000017, 666666661));

    CopyResult const result = fs::copyTreeWith(path("from"), path("to"));
    ASSERT_TRUE(result.succeeded()) << failuresText(result);
    EXPECT_EQ(result.filesCopied, 1);
    EXPECT_EQ(result.linksCopied, 1);
    EXPECT_EQ(result.directoriesCopied, 2);
    EXPECT_EQ(result.bytesCopied, 8);

    for (char const* name : {"dir/file", "link", "dir", ""}) {
        struct stat const a = linkStatus(at(std::string("from/") + name));
        struct stat const b = linkStatus(at(std::string("to/") + name));
        EXPECT_EQ(a.st_mtim.tv_sec, b.st_mtim.tv_sec) << name;
        EXPECT_EQ(a.st_mtim.tv_nsec, b.st_mtim.tv_nsec) << name;
    }
    // Access times as set (the source's may have moved since it was read).
    EXPECT_EQ(linkStatus(at("to/dir/file")).st_atim.tv_sec, 1000000001);
    EXPECT_EQ(linkStatus(at("to/dir/file")).st_atim.tv_nsec, 123456789);
    EXPECT_EQ(linkStatus(at("to/link")).st_atim.tv_nsec, 111111111);
    EXPECT_EQ(linkStatus(at("to/dir/file")).st_mtim.tv_nsec, 987654321);
    EXPECT_EQ(linkStatus(at("to/dir")).st_mtim.tv_nsec, 444444443);
    EXPECT_EQ(temporariesUnder(at("to")), 0);
}

TEST_F(Copying, ModesAreKeptEvenWhereTheyDenyTheCopyItsOwnWrites)
{
    makeDirectory("from");
    makeDirectory("from/private", 0700);
    makeDirectory("from/readonly");
    makeFile("from/readonly/file", "r", 0400);
    makeFile("from/readonly/script", "s", 0751);
    makeFile("from/odd", "o", 0604);
    ASSERT_EQ(::chmod(at("from/readonly").c_str(), 0500), 0);

    CopyResult const result = fs::copyTreeWith(path("from"), path("to"));
    ASSERT_TRUE(result.succeeded()) << failuresText(result);
    EXPECT_EQ(linkStatus(at("to/private")).st_mode & 07777, 0700u);
    EXPECT_EQ(linkStatus(at("to/readonly")).st_mode & 07777, 0500u);
    EXPECT_EQ(linkStatus(at("to/readonly/file")).st_mode & 07777, 0400u);
    EXPECT_EQ(linkStatus(at("to/readonly/script")).st_mode & 07777, 0751u);
    EXPECT_EQ(linkStatus(at("to/odd")).st_mode & 07777, 0604u);
    EXPECT_EQ(linkStatus(at("to")).st_mode & 07777, 0755u);
    EXPECT_EQ(readWholeFile(at("to/readonly/file")), "r");
    ASSERT_EQ(::chmod(at("from/readonly").c_str(), 0700), 0);
    ASSERT_EQ(::chmod(at("to/readonly").c_str(), 0700), 0);
}

TEST_F(Copying, ModesAreKeptWhateverTheUmask)
{
    makeDirectory("from", 0775);
    makeFile("from/shared", "s", 0664);
    makeFile("from/own", "o", 0600);
    makeFile("from/setgid", "g", 02750);
    mode_t const previous = ::umask(077);
    CopyResult const result = fs::copyTreeWith(path("from"), path("to"));
    ::umask(previous);
    ASSERT_TRUE(result.succeeded()) << failuresText(result);
    EXPECT_EQ(linkStatus(at("to")).st_mode & 07777, 0775u);
    EXPECT_EQ(linkStatus(at("to/shared")).st_mode & 07777, 0664u);
    EXPECT_EQ(linkStatus(at("to/own")).st_mode & 07777, 0600u);
    EXPECT_EQ(linkStatus(at("to/setgid")).st_mode & 07777, 02750u);
}

TEST_F(Copying, WithoutKeepingModesTheUmaskApplies)
{
    makeFile("file", "x", 0777);
    mode_t const previous = ::umask(022);
    CopyOptions options;
    options.keepPermissions = false;
    CopyResult const result = fs::copyFileWith(path("file"), path("copy"), options);
    ::umask(previous);
    ASSERT_TRUE(result.succeeded()) << failuresText(result);
    EXPECT_EQ(linkStatus(at("copy")).st_mode & 07777, 0755u);
}

TEST_F(Copying, LinksAreCopiedAsLinksUnlessFollowed)
{
    makeDirectory("from");
    makeFile("from/target", "target");
    makeDirectory("from/dir");
    makeFile("from/dir/inside", "in");
    ASSERT_EQ(::symlink("target", at("from/toFile").c_str()), 0);
    ASSERT_EQ(::symlink("dir", at("from/toDir").c_str()), 0);
    ASSERT_EQ(::symlink("nowhere", at("from/dangling").c_str()), 0);

    CopyResult const kept = fs::copyTreeWith(path("from"), path("kept"));
    ASSERT_TRUE(kept.succeeded()) << failuresText(kept);
    EXPECT_EQ(kept.linksCopied, 3);
    EXPECT_TRUE(isLinkOnDisk(at("kept/toFile")));
    EXPECT_EQ(linkContents(at("kept/toFile")), "target");
    EXPECT_EQ(linkContents(at("kept/toDir")), "dir");
    EXPECT_EQ(linkContents(at("kept/dangling")), "nowhere");

    CopyOptions follow;
    follow.followLinks = true;
    CopyResult const followed = fs::copyTreeWith(path("from"), path("followed"), follow);
    EXPECT_TRUE(isRegularOnDisk(at("followed/toFile")));
    EXPECT_EQ(readWholeFile(at("followed/toFile")), "target");
    EXPECT_TRUE(isDirectoryOnDisk(at("followed/toDir")));
    EXPECT_EQ(readWholeFile(at("followed/toDir/inside")), "in");
    EXPECT_FALSE(isPresentOnDisk(at("followed/dangling")));
    ASSERT_EQ(followed.failures.size(), 1u) << failuresText(followed);
    EXPECT_EQ(followed.failures[0].path.nativeString(), at("from/dangling"));
    EXPECT_EQ(followed.failures[0].error, std::errc::no_such_file_or_directory);

    // A link named as the source is copied as a link by copyFileWith too.
    CopyResult const single = fs::copyFileWith(path("from/toFile"), path("single"));
    ASSERT_TRUE(single.succeeded()) << failuresText(single);
    EXPECT_EQ(linkContents(at("single")), "target");
}

TEST_F(Copying, OwnerIsKeptByRoot)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can give files away";
    makeDirectory("from");
    makeFile("from/file", "x");
    ASSERT_EQ(::symlink("file", at("from/link").c_str()), 0);
    ASSERT_EQ(::chown(at("from/file").c_str(), kUnprivilegedUser, kUnprivilegedGroup), 0);
    ASSERT_EQ(::lchown(at("from/link").c_str(), kUnprivilegedUser, kUnprivilegedGroup), 0);
    ASSERT_EQ(::chown(at("from").c_str(), kUnprivilegedUser, kUnprivilegedGroup), 0);
    CopyResult const result = fs::copyTreeWith(path("from"), path("to"));
    ASSERT_TRUE(result.succeeded()) << failuresText(result);
    for (char const* name : {"to/file", "to/link", "to"}) {
        EXPECT_EQ(linkStatus(at(name)).st_uid, kUnprivilegedUser) << name;
        EXPECT_EQ(linkStatus(at(name)).st_gid, kUnprivilegedGroup) << name;
    }
}

TEST_F(Copying, AnOwnerThatCannotBeKeptIsNoFailureForAnOrdinaryUser)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0777), 0);
    makeDirectory("from");
    makeFile("from/file", "x", 0644);
    std::string const from = at("from");
    std::string const to = at("to");
    int const result = runUnprivileged([&] {
        if (::access(scratch.c_str(), W_OK | X_OK) != 0)
            return kScratchUnreachable;
        CopyResult const copied = fs::copyTreeWith(Path(from), Path(to));
        return firstFailure({copied.succeeded(), copied.filesCopied == 1, readWholeFile(to + "/file") == "x",
                             linkStatus(to + "/file").st_uid == ::geteuid()});
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    EXPECT_EQ(result, 0);
}

// ---- Overwrite policies ------------------------------------------------------------

TEST_F(Copying, OverwriteNeverKeepsWhatIsThere)
{
    makeFile("from", "new");
    makeFile("to", "old");
    CopyResult const result = fs::copyFileWith(path("from"), path("to"));
    EXPECT_TRUE(result.succeeded());
    EXPECT_EQ(readWholeFile(at("to")), "old");
    ASSERT_EQ(result.skipped.size(), 1u);
    EXPECT_EQ(result.skipped[0].reason, CopySkipReason::exists);
    EXPECT_EQ(result.skipped[0].path.nativeString(), at("from"));
    EXPECT_EQ(result.filesCopied, 0);
    EXPECT_EQ(temporariesUnder(scratch), 0);
}

TEST_F(Copying, OverwriteAlwaysReplaces)
{
    makeFile("from", "new");
    makeFile("to", "old");
    CopyOptions options;
    options.overwrite = OverwritePolicy::always;
    CopyResult const result = fs::copyFileWith(path("from"), path("to"), options);
    ASSERT_TRUE(result.succeeded()) << failuresText(result);
    EXPECT_EQ(readWholeFile(at("to")), "new");
    EXPECT_TRUE(result.skipped.empty());
}

TEST_F(Copying, OverwriteIfNewerComparesModificationTimes)
{
    makeDirectory("from");
    makeDirectory("to");
    makeFile("from/newer", "new");
    makeFile("from/older", "new");
    makeFile("from/same", "new");
    makeFile("from/absent", "new");
    makeFile("to/newer", "old");
    makeFile("to/older", "old");
    makeFile("to/same", "old");
    ASSERT_TRUE(setExactTimes(at("from/newer"), 1, 0, 2000000000, 2));
    ASSERT_TRUE(setExactTimes(at("to/newer"), 1, 0, 2000000000, 1));
    ASSERT_TRUE(setExactTimes(at("from/older"), 1, 0, 1000000000, 0));
    ASSERT_TRUE(setExactTimes(at("to/older"), 1, 0, 1500000000, 0));
    ASSERT_TRUE(setExactTimes(at("from/same"), 1, 0, 1500000000, 5));
    ASSERT_TRUE(setExactTimes(at("to/same"), 1, 0, 1500000000, 5));
    CopyOptions options;
    options.overwrite = OverwritePolicy::ifNewer;
    CopyResult const result = fs::copyTreeWith(path("from"), path("to"), options);
    ASSERT_TRUE(result.succeeded()) << failuresText(result);
    EXPECT_EQ(readWholeFile(at("to/newer")), "new");
    EXPECT_EQ(readWholeFile(at("to/older")), "old");
    EXPECT_EQ(readWholeFile(at("to/same")), "old");
    EXPECT_EQ(readWholeFile(at("to/absent")), "new");
    EXPECT_EQ(result.filesCopied, 2);
    ASSERT_EQ(result.skipped.size(), 2u);
    EXPECT_EQ(result.skipped[0].reason, CopySkipReason::notNewer);
    EXPECT_EQ(result.skipped[1].reason, CopySkipReason::notNewer);
}

TEST_F(Copying, AMergeIntoAnExistingTreeKeepsItsFilesByDefault)
{
    makeDirectory("from");
    makeDirectory("from/d");
    makeFile("from/d/a", "new a");
    makeFile("from/d/b", "new b");
    makeDirectory("to");
    makeDirectory("to/d");
    makeFile("to/d/a", "old a");
    CopyResult const result = fs::copyTreeWith(path("from"), path("to"));
    EXPECT_TRUE(result.succeeded()) << failuresText(result);
    EXPECT_EQ(readWholeFile(at("to/d/a")), "old a");
    EXPECT_EQ(readWholeFile(at("to/d/b")), "new b");
    EXPECT_EQ(result.filesCopied, 1);
    ASSERT_EQ(result.skipped.size(), 1u);
    EXPECT_EQ(result.skipped[0].path.nativeString(), at("from/d/a"));
}

// ---- Special files, failures ---------------------------------------------------------

TEST_F(Copying, FifosAreMadeAnewWithoutBlockingAndSocketsAreSkipped)
{
    makeDirectory("from");
    ASSERT_EQ(::mkfifo(at("from/fifo").c_str(), 0640), 0);
    ASSERT_TRUE(setExactTimes(at("from/fifo"), 1000000000, 7, 1000000000, 9));
    ASSERT_TRUE(makeSocketFile(at("from/socket")));
    makeFile("from/file", "f");
    std::string const from = at("from");
    std::string const to = at("to");
    int const status = runBounded(120, [&] {
        CopyResult const result = fs::copyTreeWith(Path(from), Path(to));
        return firstFailure({result.failures.empty(), result.specialFilesCopied == 1, result.filesCopied == 1,
                             result.skipped.size() == 1 && result.skipped[0].reason == CopySkipReason::socket
                                 && result.skipped[0].path.nativeString() == from + "/socket"});
    });
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(S_ISFIFO(linkStatus(at("to/fifo")).st_mode));
    EXPECT_EQ(linkStatus(at("to/fifo")).st_mode & 07777, 0640u);
    EXPECT_EQ(linkStatus(at("to/fifo")).st_mtim.tv_nsec, 9);
    EXPECT_FALSE(isPresentOnDisk(at("to/socket")));
    EXPECT_EQ(temporariesUnder(at("to")), 0);
}

TEST_F(Copying, DeviceFilesAreMadeByRootAndReportedOtherwise)
{
    makeDirectory("from");
    if (::mknod(at("from/null").c_str(), S_IFCHR | 0600, makedev(1, 3)) != 0)
        GTEST_SKIP() << "cannot make a device file here";
    CopyResult const result = fs::copyTreeWith(path("from"), path("to"));
    ASSERT_TRUE(result.succeeded()) << failuresText(result);
    EXPECT_TRUE(S_ISCHR(linkStatus(at("to/null")).st_mode));
    EXPECT_EQ(linkStatus(at("to/null")).st_rdev, makedev(1, 3));

    ASSERT_EQ(::chmod(scratch.c_str(), 0777), 0);
    ASSERT_EQ(::chmod(at("from").c_str(), 0755), 0);
    std::string const from = at("from");
    std::string const to = at("unprivileged");
    int const status = runUnprivileged([&] {
        if (::access(scratch.c_str(), W_OK | X_OK) != 0)
            return kScratchUnreachable;
        CopyResult const refused = fs::copyTreeWith(Path(from), Path(to));
        return firstFailure({refused.failures.size() == 1, !refused.failures.empty() && refused.failures[0].call == "mknodat",
                             !refused.failures.empty() && refused.failures[0].path.nativeString() == to + "/null",
                             temporariesUnder(to) == 0, !isPresentOnDisk(to + "/null")});
    });
    if (char const* reason = unprivilegedSkipReason(status))
        GTEST_SKIP() << reason;
    EXPECT_EQ(status, 0);
}

TEST_F(Copying, AnUnreadableDirectoryIsReportedAndTheRestCopied)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0777), 0);
    makeDirectory("from", 0777);
    makeDirectory("from/closed", 0700);
    makeFile("from/closed/secret", "s");
    // Closed to everyone but root, whoever runs the test.
    ASSERT_EQ(::chmod(at("from/closed").c_str(), 0), 0);
    makeDirectory("from/open", 0755);
    makeFile("from/open/file", "o");
    makeFile("from/top", "t");
    std::string const from = at("from");
    std::string const to = at("to");
    int const status = runUnprivileged([&] {
        if (::access(scratch.c_str(), W_OK | X_OK) != 0)
            return kScratchUnreachable;
        CopyResult const result = fs::copyTreeWith(Path(from), Path(to));
        bool const one = result.failures.size() == 1;
        return firstFailure({one, one && result.failures[0].path.nativeString() == from + "/closed",
                             one && result.failures[0].error == std::errc::permission_denied,
                             readWholeFile(to + "/open/file") == "o", readWholeFile(to + "/top") == "t",
                             result.filesCopied == 2, !result.cancelled});
    });
    if (char const* reason = unprivilegedSkipReason(status))
        GTEST_SKIP() << reason;
    EXPECT_EQ(status, 0);
}

TEST_F(Copying, MissingSourcesAndDirectoriesGivenToCopyFileWithFail)
{
    CopyResult const missing = fs::copyFileWith(path("absent"), path("to"));
    ASSERT_EQ(missing.failures.size(), 1u);
    EXPECT_EQ(missing.failures[0].error, std::errc::no_such_file_or_directory);
    EXPECT_EQ(missing.failures[0].path.nativeString(), at("absent"));
    EXPECT_FALSE(missing.succeeded());

    makeDirectory("dir");
    CopyResult const directory = fs::copyFileWith(path("dir"), path("to"));
    ASSERT_EQ(directory.failures.size(), 1u);
    EXPECT_EQ(directory.failures[0].error, std::errc::is_a_directory);
    EXPECT_FALSE(isPresentOnDisk(at("to")));

    makeFile("file", "x");
    CopyResult const noParent = fs::copyFileWith(path("file"), path("none/to"));
    ASSERT_EQ(noParent.failures.size(), 1u);
    EXPECT_EQ(noParent.failures[0].path.nativeString(), at("none"));

    CopyResult const empty = fs::copyFileWith(Path(""), path("to"));
    EXPECT_EQ(empty.failures.size(), 1u);
}

TEST_F(Copying, ACopyIntoItsOwnSourceStops)
{
    makeDirectory("from");
    makeFile("from/file", "x");
    CopyResult const result = fs::copyTreeWith(path("from"), path("from/inside"));
    EXPECT_FALSE(result.succeeded());
    EXPECT_EQ(readWholeFile(at("from/inside/file")), "x");
    EXPECT_FALSE(isPresentOnDisk(at("from/inside/inside/inside")));
}

// ---- Progress and cancel ---------------------------------------------------------------

TEST_F(Copying, EveryBlockIsReportedWithZeroIntervalsAndOnlyTheEndWithHugeOnes)
{
    makeFileTree("from", 10);
    std::vector<CopyProgress> reports;
    CopyOptions options;
    options.progress = [&](CopyProgress const& progress) {
        reports.push_back(progress);
        return true;
    };
    options.progressIntervalBytes = 0;
    options.progressIntervalMilliseconds = 0;
    CopyResult const result = fs::copyTreeWith(path("from"), path("every"), options);
    ASSERT_TRUE(result.succeeded()) << failuresText(result);
    // One block for each 4 KiB file, and the final report.
    ASSERT_EQ(reports.size(), 11u);
    for (std::size_t i = 0; i + 1 < reports.size(); ++i) {
        EXPECT_EQ(reports[i].bytesDone, static_cast<std::int64_t>(4096 * (i + 1)));
        EXPECT_EQ(reports[i].filesDone, static_cast<std::int64_t>(i));
        EXPECT_EQ(reports[i].bytesTotal, 40960);
        EXPECT_EQ(reports[i].filesTotal, 10);
        EXPECT_FALSE(reports[i].finished);
        EXPECT_FALSE(reports[i].currentFile.empty());
    }
    EXPECT_TRUE(reports.back().finished);
    EXPECT_EQ(reports.back().bytesDone, 40960);
    EXPECT_EQ(reports.back().filesDone, 10);
    EXPECT_TRUE(reports.back().currentFile.empty());

    reports.clear();
    options.progressIntervalBytes = 1LL << 60;
    options.progressIntervalMilliseconds = 1LL << 40;
    ASSERT_TRUE(fs::copyTreeWith(path("from"), path("huge"), options).succeeded());
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_TRUE(reports[0].finished);
    EXPECT_EQ(reports[0].bytesDone, 40960);

    // Every third file's worth of bytes, whatever the time.
    reports.clear();
    options.progressIntervalBytes = 3 * 4096;
    ASSERT_TRUE(fs::copyTreeWith(path("from"), path("bytes"), options).succeeded());
    ASSERT_EQ(reports.size(), 4u);
    EXPECT_EQ(reports[0].bytesDone, 3 * 4096);
    EXPECT_EQ(reports[2].bytesDone, 9 * 4096);

    // The largest intervals there are: only the final report.
    reports.clear();
    options.progressIntervalBytes = std::numeric_limits<std::int64_t>::max();
    options.progressIntervalMilliseconds = std::numeric_limits<std::int64_t>::max();
    ASSERT_TRUE(fs::copyTreeWith(path("from"), path("largest"), options).succeeded());
    ASSERT_EQ(reports.size(), 1u);
    options.progressIntervalBytes = 3 * 4096;
    options.progressIntervalMilliseconds = 1LL << 40;

    // Without the counting walk the totals are unknown.
    reports.clear();
    options.countFirst = false;
    ASSERT_TRUE(fs::copyTreeWith(path("from"), path("uncounted"), options).succeeded());
    ASSERT_FALSE(reports.empty());
    EXPECT_EQ(reports.back().bytesTotal, 0);
    EXPECT_EQ(reports.back().filesTotal, 0);
    EXPECT_EQ(reports.back().bytesDone, 40960);
}

class CopyCancel : public Copying, public ::testing::WithParamInterface<int> {};

// Cancels at the first, a middle and the last report of a copy: the file in
// flight is under no name, the files finished before are whole, and no
// temporary is left.
TEST_P(CopyCancel, CancelLeavesFinishedFilesAndNothingOfTheFileInFlight)
{
    makeFileTree("from", 9);
    int const reportsInAll = 9; // one block each, the final report not counted
    int const cancelAt = GetParam() == 0 ? 1 : GetParam() == 1 ? reportsInAll / 2 : reportsInAll;
    std::vector<std::string> seen;
    int calls = 0;
    CopyOptions options;
    options.progressIntervalBytes = 0;
    options.progressIntervalMilliseconds = 0;
    options.progress = [&](CopyProgress const& progress) {
        if (progress.finished)
            return true;
        seen.push_back(progress.currentFile.nativeString());
        return ++calls != cancelAt;
    };
    CopyResult const result = fs::copyTreeWith(path("from"), path("to"), options);
    EXPECT_TRUE(result.cancelled);
    EXPECT_FALSE(result.succeeded());
    ASSERT_EQ(static_cast<int>(seen.size()), cancelAt);
    std::string const inFlight = seen.back();
    ASSERT_EQ(inFlight.compare(0, at("from/").size(), at("from/")), 0);
    std::string const relative = inFlight.substr(at("from/").size());
    EXPECT_FALSE(isPresentOnDisk(at("to/" + relative))) << relative;
    for (std::size_t i = 0; i + 1 < seen.size(); ++i) {
        std::string const done = seen[i].substr(at("from/").size());
        EXPECT_EQ(readWholeFile(at("to/" + done)), readWholeFile(at("from/" + done))) << done;
    }
    EXPECT_EQ(result.filesCopied, cancelAt - 1);
    EXPECT_EQ(temporariesUnder(at("to")), 0);
    // Nothing was copied after the cancel.
    int files = 0;
    for (std::string const& name : allNames(at("to")))
        files += isRegularOnDisk(at("to/" + name)) ? 1 : 0;
    EXPECT_EQ(files, cancelAt - 1);
}

INSTANTIATE_TEST_SUITE_P(FirstMiddleLast, CopyCancel, ::testing::Values(0, 1, 2));

TEST_F(Copying, ACallbackThatThrowsCancels)
{
    makeFileTree("from", 3);
    CopyOptions options;
    options.progressIntervalBytes = 0;
    options.progress = [](CopyProgress const& progress) -> bool {
        if (!progress.finished)
            throw std::runtime_error("no");
        return true;
    };
    CopyResult const result = fs::copyTreeWith(path("from"), path("to"), options);
    EXPECT_TRUE(result.cancelled);
    EXPECT_EQ(result.filesCopied, 0);
    EXPECT_EQ(temporariesUnder(at("to")), 0);
}

// ---- Deep trees ----------------------------------------------------------------------------

TEST_F(Copying, ADeepTreeIsCopiedWithFewDescriptorsOnASmallStack)
{
    int const depth = std::getenv("KELVO_STRESS") != nullptr ? 20000 : 3000;
    std::string const top = at("from");
    makeDirectory("from");
    ASSERT_TRUE(makeDirectoryChain(top, depth, "bottom", "deep"));
    std::string const to = at("to");
    int const status = runInChild([&] {
        if (!limitDescriptors(64))
            return 100;
        return runOnSmallStack([&] {
            CopyResult const result = fs::copyTreeWith(Path(top), Path(to));
            return firstFailure({result.succeeded(), result.filesCopied == 1,
                                 result.directoriesCopied == depth + 1});
        });
    });
    EXPECT_EQ(status, 0);
    int current = ::open(to.c_str(), O_RDONLY | O_DIRECTORY);
    for (int i = 0; i < depth && current >= 0; ++i) {
        int const next = ::openat(current, "d", O_RDONLY | O_DIRECTORY);
        ::close(current);
        current = next;
    }
    ASSERT_GE(current, 0);
    char buffer[8] = {};
    int const file = ::openat(current, "bottom", O_RDONLY);
    ASSERT_GE(file, 0);
    EXPECT_EQ(::read(file, buffer, sizeof buffer), 4);
    EXPECT_STREQ(buffer, "deep");
    ::close(file);
    ::close(current);
}

} // namespace
