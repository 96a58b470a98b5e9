// Tests of FileStatus and the status queries and setters, on real objects of every kind made in a scratch directory.
#include <kelvo/filesystem/FileStatus.h>
#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>

#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <string>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/types.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using kelvo::testing::firstFailure;
using kelvo::testing::runUnprivileged;

using kelvo::filesystem::FileStatus;
using kelvo::filesystem::FileTime;
using kelvo::filesystem::FileType;
using kelvo::filesystem::Path;
using kelvo::filesystem::Permissions;
namespace fs = kelvo::filesystem;

constexpr FileStatus kUnknownStatus(FileType::none, Permissions::unknownPermissions);

FileTime microsecondsSinceEpoch(std::int64_t count) { return FileTime(std::chrono::microseconds(count)); }

std::uint32_t rawMode(std::string const& path, bool follow = true)
{
    struct stat st;
    int const r = follow ? ::stat(path.c_str(), &st) : ::lstat(path.c_str(), &st);
    EXPECT_EQ(r, 0) << path;
    return r == 0 ? static_cast<std::uint32_t>(st.st_mode) : 0;
}

struct stat rawStat(std::string const& path)
{
    struct stat st;
    std::memset(&st, 0, sizeof st);
    EXPECT_EQ(::stat(path.c_str(), &st), 0) << path;
    return st;
}

void setRawTimes(std::string const& path, timespec access, timespec modification)
{
    timespec const times[2] = {access, modification};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << std::strerror(errno);
}

Permissions permissionsOf(std::uint32_t mode) { return static_cast<Permissions>(mode); }

class FileStatusTest : public kelvo::testing::ScratchDirectory {
protected:
    // Makes `name` a regular file with `content` and the exact `mode`.
    std::string makeFile(std::string const& name, std::uint32_t mode, std::string const& content = "")
    {
        writeFile(name, content);
        EXPECT_EQ(::chmod(at(name).c_str(), mode), 0);
        return at(name);
    }

    std::string makeDirectory(std::string const& name, std::uint32_t mode = 0755)
    {
        EXPECT_EQ(::mkdir(at(name).c_str(), 0700), 0) << name;
        EXPECT_EQ(::chmod(at(name).c_str(), mode), 0);
        return at(name);
    }

    std::string makeLink(std::string const& name, std::string const& target)
    {
        EXPECT_EQ(::symlink(target.c_str(), at(name).c_str()), 0) << name;
        return at(name);
    }
};

// ---- The value type ------------------------------------------------------------

TEST(FileStatusValueTest, DefaultMeansNothingIsKnown)
{
    FileStatus const status;
    EXPECT_EQ(status.getType(), FileType::none);
    EXPECT_EQ(static_cast<std::uint32_t>(status.getType()), 0u);
    EXPECT_EQ(static_cast<std::uint32_t>(status.getPermissions()), 0xFFFFu);
    EXPECT_EQ(status, kUnknownStatus);
}

TEST(FileStatusValueTest, StoresAnyValueAsGiven)
{
    FileStatus status(FileType::fifo, Permissions::ownerRead | Permissions::othersExecute);
    EXPECT_EQ(status.getType(), FileType::fifo);
    EXPECT_EQ(static_cast<std::uint32_t>(status.getPermissions()), 0401u);
    status.setType(static_cast<FileType>(7));
    status.setPermissions(static_cast<Permissions>(0xDEADBEEF));
    EXPECT_EQ(static_cast<std::uint32_t>(status.getType()), 7u);
    EXPECT_EQ(static_cast<std::uint32_t>(status.getPermissions()), 0xDEADBEEFu);
    EXPECT_NE(status, kUnknownStatus);
}

TEST(FileStatusValueTest, KindsAndBitsHaveTheirInterfaceValues)
{
    EXPECT_EQ(static_cast<std::uint32_t>(FileType::none), 0u);
    EXPECT_EQ(static_cast<std::uint32_t>(FileType::regularFile), 1u);
    EXPECT_EQ(static_cast<std::uint32_t>(FileType::directory), 2u);
    EXPECT_EQ(static_cast<std::uint32_t>(FileType::symbolicLink), 3u);
    EXPECT_EQ(static_cast<std::uint32_t>(FileType::blockDevice), 4u);
    EXPECT_EQ(static_cast<std::uint32_t>(FileType::characterDevice), 5u);
    EXPECT_EQ(static_cast<std::uint32_t>(FileType::fifo), 6u);
    EXPECT_EQ(static_cast<std::uint32_t>(FileType::unknown), 8u);

    EXPECT_EQ(static_cast<std::uint32_t>(Permissions::ownerRead), 0x100u);
    EXPECT_EQ(static_cast<std::uint32_t>(Permissions::ownerWrite), 0x80u);
    EXPECT_EQ(static_cast<std::uint32_t>(Permissions::ownerExecute), 0x40u);
    EXPECT_EQ(static_cast<std::uint32_t>(Permissions::groupRead), 0x20u);
    EXPECT_EQ(static_cast<std::uint32_t>(Permissions::groupWrite), 0x10u);
    EXPECT_EQ(static_cast<std::uint32_t>(Permissions::groupExecute), 0x8u);
    EXPECT_EQ(static_cast<std::uint32_t>(Permissions::othersRead), 0x4u);
    EXPECT_EQ(static_cast<std::uint32_t>(Permissions::othersWrite), 0x2u);
    EXPECT_EQ(static_cast<std::uint32_t>(Permissions::othersExecute), 0x1u);
    EXPECT_EQ(static_cast<std::uint32_t>(Permissions::unknownPermissions), 0xFFFFu);
    EXPECT_EQ(Permissions::unknownPermissions & ~Permissions::othersExecute, static_cast<Permissions>(0xFFFE));
}

// ---- Missing paths -------------------------------------------------------------

TEST_F(FileStatusTest, MissingPathGivesTheFailureValueOfEveryQuery)
{
    Path const missing(at("missing"));
    EXPECT_EQ(fs::status(missing), kUnknownStatus);
    EXPECT_EQ(fs::symbolicLinkStatus(missing), kUnknownStatus);
    EXPECT_FALSE(fs::exists(missing));
    EXPECT_FALSE(fs::isDirectory(missing));
    EXPECT_EQ(fs::fileSize(missing), -1);
    EXPECT_EQ(fs::fileSize(missing), static_cast<std::int64_t>(~std::uint64_t(0)));
    EXPECT_EQ(fs::getModificationTime(missing), FileTime());
    EXPECT_EQ(fs::getModificationTime(missing).time_since_epoch().count(), 0);
}

TEST_F(FileStatusTest, SettersOnAMissingPathFailAndCreateNothing)
{
    Path const missing(at("missing"));
    EXPECT_FALSE(fs::setPermissions(missing, Permissions::ownerRead));
    EXPECT_FALSE(fs::setModificationTime(missing, microsecondsSinceEpoch(1500000)));
    struct stat st;
    EXPECT_NE(::lstat(at("missing").c_str(), &st), 0);
}

TEST_F(FileStatusTest, MissingParentAndEmptyPathGiveTheFailureValues)
{
    Path const underMissing(at("missing/child"));
    EXPECT_EQ(fs::status(underMissing), kUnknownStatus);
    EXPECT_FALSE(fs::exists(underMissing));

    Path const empty;
    EXPECT_EQ(fs::status(empty), kUnknownStatus);
    EXPECT_EQ(fs::symbolicLinkStatus(empty), kUnknownStatus);
    EXPECT_FALSE(fs::exists(empty));
    EXPECT_FALSE(fs::isDirectory(empty));
    EXPECT_EQ(fs::fileSize(empty), -1);
    EXPECT_EQ(fs::getModificationTime(empty), FileTime());
}

TEST_F(FileStatusTest, PathUnderARegularFileDoesNotExist)
{
    makeFile("file", 0644);
    Path const underFile(at("file/child"));
    EXPECT_FALSE(fs::exists(underFile));
    EXPECT_EQ(fs::status(underFile), kUnknownStatus);
    EXPECT_EQ(fs::fileSize(underFile), -1);
}

// ---- Kinds: regular files, directories, links ----------------------------------

TEST_F(FileStatusTest, RegularFile)
{
    Path const file(makeFile("file", 0640, "hello"));
    EXPECT_EQ(fs::status(file), FileStatus(FileType::regularFile, permissionsOf(0640)));
    EXPECT_TRUE(fs::exists(file));
    EXPECT_FALSE(fs::isDirectory(file));
    EXPECT_EQ(fs::fileSize(file), 5);
}

TEST_F(FileStatusTest, SymbolicLinkStatusOfARegularFileReportsALink)
{
    Path const file(makeFile("file", 0640));
    EXPECT_EQ(fs::symbolicLinkStatus(file), FileStatus(FileType::symbolicLink, permissionsOf(0640)));
}

TEST_F(FileStatusTest, Directory)
{
    Path const directory(makeDirectory("dir", 0751));
    EXPECT_EQ(fs::status(directory), FileStatus(FileType::directory, permissionsOf(0751)));
    EXPECT_EQ(fs::symbolicLinkStatus(directory), FileStatus(FileType::directory, permissionsOf(0751)));
    EXPECT_TRUE(fs::exists(directory));
    EXPECT_TRUE(fs::isDirectory(directory));
    EXPECT_EQ(fs::fileSize(directory), static_cast<std::int64_t>(rawStat(at("dir")).st_size));
}

TEST_F(FileStatusTest, DirectorySpelledWithTrailingSeparator)
{
    makeDirectory("dir");
    EXPECT_TRUE(fs::isDirectory(Path(at("dir") + "/")));
    EXPECT_TRUE(fs::exists(Path(at("dir") + "/.")));
}

TEST_F(FileStatusTest, SymbolicLinkToARegularFile)
{
    makeFile("target", 0604, "abc");
    Path const link(makeLink("link", "target"));
    EXPECT_EQ(fs::status(link), FileStatus(FileType::regularFile, permissionsOf(0604)));
    FileStatus const own = fs::symbolicLinkStatus(link);
    EXPECT_EQ(own.getType(), FileType::symbolicLink);
    EXPECT_EQ(own.getPermissions(), permissionsOf(rawMode(at("link"), false) & 0777));
    EXPECT_TRUE(fs::exists(link));
    EXPECT_FALSE(fs::isDirectory(link));
    EXPECT_EQ(fs::fileSize(link), 3);
}

TEST_F(FileStatusTest, SymbolicLinkToADirectory)
{
    makeDirectory("dir", 0705);
    Path const link(makeLink("link", at("dir")));
    EXPECT_EQ(fs::status(link), FileStatus(FileType::directory, permissionsOf(0705)));
    EXPECT_EQ(fs::symbolicLinkStatus(link).getType(), FileType::symbolicLink);
    EXPECT_TRUE(fs::isDirectory(link));
    EXPECT_TRUE(fs::exists(link));
}

TEST_F(FileStatusTest, DanglingSymbolicLink)
{
    Path const link(makeLink("dangling", "nowhere"));
    EXPECT_EQ(fs::status(link), kUnknownStatus);
    FileStatus const own = fs::symbolicLinkStatus(link);
    EXPECT_EQ(own.getType(), FileType::symbolicLink);
    EXPECT_EQ(own.getPermissions(), permissionsOf(rawMode(at("dangling"), false) & 0777));
    EXPECT_FALSE(fs::exists(link));
    EXPECT_FALSE(fs::isDirectory(link));
    EXPECT_EQ(fs::fileSize(link), -1);
    EXPECT_EQ(fs::getModificationTime(link), FileTime());
    EXPECT_FALSE(fs::setModificationTime(link, microsecondsSinceEpoch(1500000)));
}

TEST_F(FileStatusTest, LinkToALinkIsFollowedToTheEnd)
{
    makeDirectory("dir", 0700);
    makeLink("first", "dir");
    Path const second(makeLink("second", "first"));
    EXPECT_EQ(fs::status(second), FileStatus(FileType::directory, permissionsOf(0700)));
    EXPECT_EQ(fs::symbolicLinkStatus(second).getType(), FileType::symbolicLink);
}

// ---- Kinds: the other objects, told by single mode bits -------------------------

TEST_F(FileStatusTest, FifoReportsFifoBothWays)
{
    ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0600), 0);
    ASSERT_EQ(::chmod(at("fifo").c_str(), 0620), 0);
    Path const fifo(at("fifo"));
    EXPECT_EQ(fs::status(fifo), FileStatus(FileType::fifo, permissionsOf(0620)));
    EXPECT_EQ(fs::symbolicLinkStatus(fifo), FileStatus(FileType::fifo, permissionsOf(0620)));
    EXPECT_TRUE(fs::exists(fifo));
    EXPECT_FALSE(fs::isDirectory(fifo));
    EXPECT_EQ(fs::fileSize(fifo), 0);
}

TEST_F(FileStatusTest, SocketReportsDirectoryBothWays)
{
    std::string const socketPath = at("socket");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socketPath.size() >= sizeof address.sun_path)
        GTEST_SKIP() << "the scratch directory's path is too long for a socket address";
    std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size() + 1);
    int const socketDescriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(socketDescriptor, 0);
    ASSERT_EQ(::bind(socketDescriptor, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0)
        << std::strerror(errno);
    ::close(socketDescriptor);
    ASSERT_EQ(::chmod(socketPath.c_str(), 0751), 0);
    ASSERT_TRUE(S_ISSOCK(rawMode(socketPath)));

    // A socket's mode (0140000) carries the directory bit.
    Path const socketName(socketPath);
    EXPECT_EQ(fs::status(socketName), FileStatus(FileType::directory, permissionsOf(0751)));
    EXPECT_EQ(fs::symbolicLinkStatus(socketName), FileStatus(FileType::directory, permissionsOf(0751)));
    EXPECT_TRUE(fs::isDirectory(socketName));
    EXPECT_TRUE(fs::exists(socketName));
}

TEST_F(FileStatusTest, CharacterDeviceIsALinkWhenNotFollowed)
{
    Path const null("/dev/null");
    std::uint32_t const mode = rawMode("/dev/null");
    ASSERT_TRUE(S_ISCHR(mode));
    Permissions const permissions = permissionsOf(mode & 0777);
    EXPECT_EQ(fs::status(null), FileStatus(FileType::characterDevice, permissions));
    // 020000 is one of the bits of 0120000.
    EXPECT_EQ(fs::symbolicLinkStatus(null), FileStatus(FileType::symbolicLink, permissions));
    EXPECT_TRUE(fs::exists(null));
    EXPECT_FALSE(fs::isDirectory(null));
}

TEST_F(FileStatusTest, LinkToACharacterDeviceIsACharacterDeviceWhenFollowed)
{
    Path const link(makeLink("null", "/dev/null"));
    EXPECT_EQ(fs::status(link).getType(), FileType::characterDevice);
    EXPECT_EQ(fs::symbolicLinkStatus(link).getType(), FileType::symbolicLink);
}

TEST_F(FileStatusTest, BlockDeviceReportsDirectoryBothWays)
{
    if (::mknod(at("block").c_str(), S_IFBLK | 0600, makedev(7, 250)) != 0)
        GTEST_SKIP() << "cannot make a block device here: " << std::strerror(errno);
    ASSERT_EQ(::chmod(at("block").c_str(), 0640), 0);
    ASSERT_TRUE(S_ISBLK(rawMode(at("block"))));
    // A block device's mode (060000) carries the directory bit: blockDevice is never reached.
    Path const block(at("block"));
    EXPECT_EQ(fs::status(block), FileStatus(FileType::directory, permissionsOf(0640)));
    EXPECT_EQ(fs::symbolicLinkStatus(block), FileStatus(FileType::directory, permissionsOf(0640)));
    EXPECT_TRUE(fs::isDirectory(block));
}

// ---- Permission bits ------------------------------------------------------------

TEST_F(FileStatusTest, SetUserIdSetGroupIdAndStickyBitsAreDropped)
{
    Path const file(makeFile("setuid", 04755));
    ASSERT_EQ(rawMode(at("setuid")) & 07777, 04755u);
    EXPECT_EQ(fs::status(file), FileStatus(FileType::regularFile, permissionsOf(0755)));
    EXPECT_EQ(fs::symbolicLinkStatus(file).getPermissions(), permissionsOf(0755));

    Path const setGroup(makeFile("setgid", 02710));
    EXPECT_EQ(fs::status(setGroup).getPermissions(), permissionsOf(0710));

    Path const sticky(makeDirectory("sticky", 01777));
    ASSERT_EQ(rawMode(at("sticky")) & 07777, 01777u);
    EXPECT_EQ(fs::status(sticky), FileStatus(FileType::directory, permissionsOf(0777)));
}

TEST_F(FileStatusTest, NoAccessBitsAtAll)
{
    Path const file(makeFile("closed", 0));
    EXPECT_EQ(fs::status(file), FileStatus(FileType::regularFile, Permissions::noPermissions));
}

TEST_F(FileStatusTest, SetPermissionsSetsTheGivenBits)
{
    Path const file(makeFile("file", 0600));
    EXPECT_TRUE(fs::setPermissions(file, Permissions::ownerRead | Permissions::groupRead | Permissions::othersRead));
    EXPECT_EQ(rawMode(at("file")) & 07777, 0444u);
    EXPECT_EQ(fs::status(file).getPermissions(), permissionsOf(0444));
    EXPECT_TRUE(fs::setPermissions(file, Permissions::noPermissions));
    EXPECT_EQ(rawMode(at("file")) & 07777, 0u);
}

TEST_F(FileStatusTest, SetPermissionsWithUnknownPermissionsGivesMode0777)
{
    Path const file(makeFile("file", 0600));
    EXPECT_TRUE(fs::setPermissions(file, Permissions::unknownPermissions));
    EXPECT_EQ(rawMode(at("file")) & 07777, 0777u);
}

TEST_F(FileStatusTest, SetPermissionsMasksOffBitsAbove0777)
{
    Path const file(makeFile("file", 0600));
    EXPECT_TRUE(fs::setPermissions(file, permissionsOf(01644)));
    EXPECT_EQ(rawMode(at("file")) & 07777, 0644u);
    EXPECT_TRUE(fs::setPermissions(file, permissionsOf(04700)));
    EXPECT_EQ(rawMode(at("file")) & 07777, 0700u);
}

TEST_F(FileStatusTest, SetPermissionsFollowsSymbolicLinks)
{
    makeFile("target", 0600);
    Path const link(makeLink("link", "target"));
    std::uint32_t const linkModeBefore = rawMode(at("link"), false);
    EXPECT_TRUE(fs::setPermissions(link, permissionsOf(0640)));
    EXPECT_EQ(rawMode(at("target")) & 07777, 0640u);
    EXPECT_EQ(rawMode(at("link"), false), linkModeBefore);
}

TEST_F(FileStatusTest, SetPermissionsOnADirectory)
{
    Path const directory(makeDirectory("dir", 0700));
    EXPECT_TRUE(fs::setPermissions(directory, permissionsOf(0711)));
    EXPECT_EQ(fs::status(directory), FileStatus(FileType::directory, permissionsOf(0711)));
}

// ---- Size ---------------------------------------------------------------------------

TEST_F(FileStatusTest, FileSizeCountsBytes)
{
    EXPECT_EQ(fs::fileSize(Path(makeFile("empty", 0644))), 0);
    EXPECT_EQ(fs::fileSize(Path(makeFile("ten", 0644, "0123456789"))), 10);
    std::string const big(70000, 'x');
    EXPECT_EQ(fs::fileSize(Path(makeFile("big", 0644, big))), 70000);
}

TEST_F(FileStatusTest, FileSizeBeyondFourGigabytesIsNotTruncated)
{
    std::string const path = makeFile("sparse", 0644);
    std::int64_t const size = (std::int64_t(1) << 32) + 5;
    ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(size)), 0);
    EXPECT_EQ(fs::fileSize(Path(path)), size);
}

// ---- Modification time ------------------------------------------------------------------

TEST_F(FileStatusTest, GetModificationTimeTruncatesNanosecondsToMicroseconds)
{
    std::string const path = makeFile("file", 0644);
    setRawTimes(path, {100, 0}, {1234, 999999999});
    EXPECT_EQ(fs::getModificationTime(Path(path)).time_since_epoch().count(), 1234999999);
    setRawTimes(path, {100, 0}, {1700000000, 1999});
    EXPECT_EQ(fs::getModificationTime(Path(path)).time_since_epoch().count(), 1700000000000001);
}

TEST_F(FileStatusTest, GetModificationTimeBeforeTheEpoch)
{
    std::string const path = makeFile("file", 0644);
    setRawTimes(path, {100, 0}, {-2, 250000000});
    EXPECT_EQ(fs::getModificationTime(Path(path)).time_since_epoch().count(), -1750000);
}

TEST(FileStatusFarFutureTest, ModificationTimeBeyondMicrosecondRangeWrapsWithoutOverflow)
{
    // Some file systems store 64-bit seconds; such a time is too far from the
    // epoch for 64-bit microseconds and must not overflow.
    char directory[] = "/dev/shm/kelvo-far-future-XXXXXX";
    if (::mkdtemp(directory) == nullptr)
        GTEST_SKIP() << "no /dev/shm to store a far-future time on";
    std::string const path = std::string(directory) + "/file";
    int const fd = ::open(path.c_str(), O_WRONLY | O_CREAT, 0644);
    ASSERT_GE(fd, 0);
    ::close(fd);
    std::int64_t const seconds = std::int64_t(1) << 50;
    timespec const times[2] = {{100, 0}, {static_cast<time_t>(seconds), 0}};
    bool const stored = ::utimensat(AT_FDCWD, path.c_str(), times, 0) == 0 && rawStat(path).st_mtim.tv_sec == seconds;
    std::int64_t const count = stored ? fs::getModificationTime(Path(path)).time_since_epoch().count() : 0;
    ::unlink(path.c_str());
    ::rmdir(directory);
    if (!stored)
        GTEST_SKIP() << "this file system does not keep a time that far ahead";
    EXPECT_EQ(static_cast<std::uint64_t>(count), static_cast<std::uint64_t>(seconds) * 1000000u);
}

TEST_F(FileStatusTest, GetModificationTimeFollowsSymbolicLinks)
{
    std::string const target = makeFile("target", 0644);
    setRawTimes(target, {100, 0}, {5000, 7000});
    Path const link(makeLink("link", "target"));
    EXPECT_EQ(fs::getModificationTime(link).time_since_epoch().count(), 5000000007);
}

TEST_F(FileStatusTest, SetModificationTimeToOneAndAHalfSeconds)
{
    std::string const path = makeFile("file", 0644);
    Path const file(path);
    EXPECT_TRUE(fs::setModificationTime(file, microsecondsSinceEpoch(1500000)));
    EXPECT_EQ(fs::getModificationTime(file).time_since_epoch().count(), 1500000);
    struct stat const st = rawStat(path);
    EXPECT_EQ(st.st_mtim.tv_sec, 1);
    EXPECT_EQ(st.st_mtim.tv_nsec, 500000000);
}

TEST_F(FileStatusTest, SetModificationTimeRoundTripsMicroseconds)
{
    Path const file(makeFile("file", 0644));
    std::int64_t const when = 1700000000123456;
    EXPECT_TRUE(fs::setModificationTime(file, microsecondsSinceEpoch(when)));
    EXPECT_EQ(fs::getModificationTime(file).time_since_epoch().count(), when);
    EXPECT_TRUE(fs::setModificationTime(file, microsecondsSinceEpoch(0)));
    EXPECT_EQ(fs::getModificationTime(file).time_since_epoch().count(), 0);
}

TEST_F(FileStatusTest, SetModificationTimeToWholeSecondsBeforeTheEpoch)
{
    Path const file(makeFile("file", 0644));
    EXPECT_TRUE(fs::setModificationTime(file, microsecondsSinceEpoch(-2000000)));
    EXPECT_EQ(fs::getModificationTime(file).time_since_epoch().count(), -2000000);
}

TEST_F(FileStatusTest, SetModificationTimeKeepsTheAccessTimeSeconds)
{
    std::string const path = makeFile("file", 0644);
    // 123456789 ns times 1000 does not fit the microsecond range in 32 bits:
    // the seconds go alone.
    setRawTimes(path, {1234567890, 123456789}, {42, 0});
    EXPECT_TRUE(fs::setModificationTime(Path(path), microsecondsSinceEpoch(1500000)));
    struct stat const st = rawStat(path);
    EXPECT_EQ(st.st_atim.tv_sec, 1234567890);
    EXPECT_EQ(st.st_atim.tv_nsec, 0);
    EXPECT_EQ(st.st_mtim.tv_sec, 1);
    EXPECT_EQ(st.st_mtim.tv_nsec, 500000000);
}

TEST_F(FileStatusTest, SetModificationTimePassesASmallAccessProductAsMicroseconds)
{
    std::string const path = makeFile("file", 0644);
    // 500 ns times 1000 is 500000, a valid microsecond value: the access time
    // becomes 1000.5 s.
    setRawTimes(path, {1000, 500}, {42, 0});
    EXPECT_TRUE(fs::setModificationTime(Path(path), microsecondsSinceEpoch(3000000)));
    struct stat const st = rawStat(path);
    EXPECT_EQ(st.st_atim.tv_sec, 1000);
    EXPECT_EQ(st.st_atim.tv_nsec, 500000000);
    EXPECT_EQ(st.st_mtim.tv_sec, 3);
    EXPECT_EQ(st.st_mtim.tv_nsec, 0);
}

TEST_F(FileStatusTest, SetModificationTimeMultipliesTheAccessNanosecondsIn32Bits)
{
    std::string const path = makeFile("file", 0644);
    // 4294968 ns times 1000 is 4294968000, which wraps to 704 in 32 bits.
    setRawTimes(path, {2000, 4294968}, {42, 0});
    EXPECT_TRUE(fs::setModificationTime(Path(path), microsecondsSinceEpoch(1500000)));
    struct stat const st = rawStat(path);
    EXPECT_EQ(st.st_atim.tv_sec, 2000);
    EXPECT_EQ(st.st_atim.tv_nsec, 704000);
}

TEST_F(FileStatusTest, SetModificationTimeWithWholeAccessSecondsKeepsTheAccessTime)
{
    std::string const path = makeFile("file", 0644);
    setRawTimes(path, {777, 0}, {42, 0});
    EXPECT_TRUE(fs::setModificationTime(Path(path), microsecondsSinceEpoch(9000001)));
    struct stat const st = rawStat(path);
    EXPECT_EQ(st.st_atim.tv_sec, 777);
    EXPECT_EQ(st.st_atim.tv_nsec, 0);
    EXPECT_EQ(st.st_mtim.tv_sec, 9);
    EXPECT_EQ(st.st_mtim.tv_nsec, 1000);
}

TEST_F(FileStatusTest, SetModificationTimeFollowsSymbolicLinks)
{
    std::string const target = makeFile("target", 0644);
    Path const link(makeLink("link", "target"));
    EXPECT_TRUE(fs::setModificationTime(link, microsecondsSinceEpoch(1500000)));
    EXPECT_EQ(rawStat(target).st_mtim.tv_sec, 1);
    EXPECT_EQ(rawStat(target).st_mtim.tv_nsec, 500000000);
}

TEST_F(FileStatusTest, SetModificationTimeOnADirectory)
{
    Path const directory(makeDirectory("dir"));
    EXPECT_TRUE(fs::setModificationTime(directory, microsecondsSinceEpoch(86400000000)));
    EXPECT_EQ(fs::getModificationTime(directory).time_since_epoch().count(), 86400000000);
}

// ---- Names --------------------------------------------------------------------------

TEST_F(FileStatusTest, NameThatIsNotUTF8)
{
    std::string const native = at("caf\xE9");
    int const fd = ::open(native.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::write(fd, "1234", 4), 4);
    ::close(fd);
    Path const file(native);
    EXPECT_EQ(file.nativeString(), native);
    EXPECT_TRUE(fs::exists(file));
    EXPECT_EQ(fs::status(file).getType(), FileType::regularFile);
    EXPECT_EQ(fs::fileSize(file), 4);
    EXPECT_TRUE(fs::setPermissions(file, permissionsOf(0600)));
    EXPECT_EQ(rawMode(native) & 0777, 0600u);
}

TEST_F(FileStatusTest, ComposedNameReachedFromItsBytesAndFromCodePoints)
{
    // The file is written as Linux programs write names: composed.
    writeFile("R\xC3\xA9sum\xC3\xA9.pdf", "pdf");
    Path const composed(at("R\xC3\xA9sum\xC3\xA9.pdf"));
    EXPECT_TRUE(fs::exists(composed));
    EXPECT_EQ(fs::fileSize(composed), 3);
    EXPECT_EQ(fs::status(composed).getType(), FileType::regularFile);
    // A path made from code points is given their composed form.
    Path const fromText(composed.string());
    EXPECT_EQ(fs::fileSize(fromText), 3);
    // Bytes in the other composition name another file, which is missing.
    Path const decomposed(at("Re\xCC\x81sume\xCC\x81.pdf"));
    EXPECT_TRUE(decomposed == composed);
    EXPECT_FALSE(fs::exists(decomposed));
    EXPECT_EQ(fs::fileSize(decomposed), -1);
    EXPECT_EQ(fs::status(decomposed).getType(), FileType::none);
}

TEST_F(FileStatusTest, ExistsLooksAtTheNameUpToTheFirstNul)
{
    makeFile("abc", 0644);
    kelvo::unicode::String text = Path(at("abc")).string();
    text.push_back(U'\0');
    text.append(U"def");
    Path const withNul(text);
    EXPECT_TRUE(fs::exists(withNul));
}

// ---- Permission failures ---------------------------------------------------------------

TEST_F(FileStatusTest, NothingCanBeLearnedBehindADirectoryWithoutSearchPermission)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    makeDirectory("private", 0700);
    makeFile("private/file", 0644, "12345");
    makeDirectory("private/sub", 0755);
    // Mode 0600 denies search to everyone but root: to its owner when the
    // suite runs as an ordinary user, and to the child that gave up root.
    ASSERT_EQ(::chmod(at("private").c_str(), 0600), 0);
    Path const file(at("private/file"));
    Path const sub(at("private/sub"));

    int const failure = runUnprivileged([&] {
        return firstFailure({
            !fs::exists(file),
            fs::status(file) == kUnknownStatus,
            fs::symbolicLinkStatus(file) == kUnknownStatus,
            fs::fileSize(file) == -1,
            fs::getModificationTime(file) == FileTime(),
            !fs::isDirectory(sub),
            !fs::setModificationTime(file, microsecondsSinceEpoch(1500000)),
            !fs::setPermissions(file, permissionsOf(0777)),
            // The directory itself is still visible from outside.
            fs::status(Path(at("private"))) == FileStatus(FileType::directory, permissionsOf(0600)),
        });
    });
    EXPECT_EQ(failure, 0) << "first failed check in the unprivileged child";
    ASSERT_EQ(::chmod(at("private").c_str(), 0700), 0);
    EXPECT_EQ(rawMode(at("private/file")) & 07777, 0644u);
}

TEST_F(FileStatusTest, SettersFailOnAnotherOwnersFile)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can make a file for another user; SettersFailOnASystemFileOfAnotherOwner covers this";
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    std::string const path = makeFile("rootsfile", 0644, "abc");
    setRawTimes(path, {100, 0}, {200, 0});
    Path const file(path);

    int const failure = runUnprivileged([&] {
        return firstFailure({
            fs::exists(file),
            fs::status(file) == FileStatus(FileType::regularFile, permissionsOf(0644)),
            fs::fileSize(file) == 3,
            fs::getModificationTime(file).time_since_epoch().count() == 200000000,
            !fs::setPermissions(file, permissionsOf(0777)),
            !fs::setModificationTime(file, microsecondsSinceEpoch(1500000)),
        });
    });
    EXPECT_EQ(failure, 0) << "first failed check in the unprivileged child";
    EXPECT_EQ(rawMode(path) & 07777, 0644u);
    EXPECT_EQ(rawStat(path).st_mtim.tv_sec, 200);
}

TEST_F(FileStatusTest, SettersFailOnASystemFileOfAnotherOwner)
{
    // An ordinary user cannot make a file that another user owns, but the
    // system's own files are such files. The setters are asked for the mode
    // and time the file already has, so nothing changes even if they wrongly
    // succeed. Run as root, the test above makes its own file and user.
    if (::geteuid() == 0)
        GTEST_SKIP() << "run as root: SettersFailOnAnotherOwnersFile covers this with a file it makes";
    std::string path;
    for (char const* candidate : {"/etc/passwd", "/etc/group", "/etc/hostname", "/etc/os-release", "/usr/lib/os-release"}) {
        struct stat st;
        if (::lstat(candidate, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid != ::geteuid()) {
            path = candidate;
            break;
        }
    }
    if (path.empty())
        GTEST_SKIP() << "no regular file of another owner among the usual system files";
    struct stat const before = rawStat(path);
    Path const file(path);
    FileTime const modified = microsecondsSinceEpoch(before.st_mtim.tv_sec * 1000000 + before.st_mtim.tv_nsec / 1000);
    Permissions const mode = permissionsOf(before.st_mode & 0777);
    EXPECT_TRUE(fs::exists(file));
    EXPECT_EQ(fs::status(file), FileStatus(FileType::regularFile, mode));
    EXPECT_EQ(fs::fileSize(file), before.st_size);
    EXPECT_EQ(fs::getModificationTime(file), modified);
    EXPECT_FALSE(fs::setPermissions(file, mode));
    EXPECT_FALSE(fs::setModificationTime(file, modified));
    struct stat const after = rawStat(path);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
}

} // namespace
