// Tests of the wrappers behind the file mutex's lock on its file: opening a lock file each way, without waiting on a FIFO, and reading its identity, kind and size.
#include "filesystem/posix/System.h"
#include "filesystem/posix/Tree.h"

#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

namespace posix = kelvo::filesystem::posix;
using posix::ObjectKind;

bool sameObject(posix::ObjectInformation const& a, posix::ObjectInformation const& b)
{
    return a.device == b.device && a.inode == b.inode;
}
using posix::LockFileOpening;
using posix::LockFileOpenResult;
using kelvo::testing::firstFailure;
using kelvo::testing::runInChild;
using kelvo::testing::runUnprivileged;

class LockFileWrappersTest : public kelvo::testing::ScratchDirectory {
protected:
    /// Opens `name` of the scratch directory as `opening` says.
    /// @returns the result; the descriptor, when one was opened, is closed at
    /// the end of the test.
    LockFileOpenResult open(std::string const& name, LockFileOpening opening)
    {
        int descriptor = -1;
        LockFileOpenResult const result = posix::openLockFile(at(name).c_str(), opening, descriptor);
        if (result == LockFileOpenResult::opened)
            opened.push_back(descriptor);
        else
            EXPECT_EQ(descriptor, -1) << "a failed open set the descriptor";
        return result;
    }

    void TearDown() override
    {
        for (int descriptor : opened)
            ::close(descriptor);
        ScratchDirectory::TearDown();
    }

    std::vector<int> opened;
};

TEST_F(LockFileWrappersTest, CreatingMakesAnEmptyFileWithTheUsualMode)
{
    mode_t const mask = ::umask(022);
    EXPECT_EQ(open("m", LockFileOpening::createNew), LockFileOpenResult::opened);
    ::umask(mask);
    struct stat st;
    ASSERT_EQ(::stat(at("m").c_str(), &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
    EXPECT_EQ(st.st_mode & 07777, 0644u);
    EXPECT_EQ(st.st_size, 0);
    // Open for reading and writing, close-on-exec, without waiting.
    int const flags = ::fcntl(opened.back(), F_GETFL);
    EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
    EXPECT_NE(flags & O_NONBLOCK, 0);
    EXPECT_NE(::fcntl(opened.back(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(LockFileWrappersTest, CreatingFailsOnAnythingAtThePath)
{
    writeFile("file", "abcd");
    ASSERT_EQ(::mkdir(at("directory").c_str(), 0755), 0);
    ASSERT_EQ(::symlink(at("nothing").c_str(), at("dangling").c_str()), 0);
    EXPECT_EQ(open("file", LockFileOpening::createNew), LockFileOpenResult::alreadyExists);
    EXPECT_EQ(open("directory", LockFileOpening::createNew), LockFileOpenResult::alreadyExists);
    EXPECT_EQ(open("dangling", LockFileOpening::createNew), LockFileOpenResult::alreadyExists);
    EXPECT_FALSE(kelvo::testing::existsByDirectProbe(at("nothing")));
    EXPECT_EQ(open("missing/m", LockFileOpening::createNew), LockFileOpenResult::absent);
}

TEST_F(LockFileWrappersTest, OpeningWhatIsThereNeverCreates)
{
    EXPECT_EQ(open("m", LockFileOpening::existingForReading), LockFileOpenResult::absent);
    EXPECT_EQ(open("m", LockFileOpening::existingForWriting), LockFileOpenResult::absent);
    EXPECT_FALSE(kelvo::testing::existsByDirectProbe(at("m")));
    ASSERT_EQ(::symlink(at("nothing").c_str(), at("dangling").c_str()), 0);
    EXPECT_EQ(open("dangling", LockFileOpening::existingForReading), LockFileOpenResult::absent);
}

TEST_F(LockFileWrappersTest, OpeningForWritingLeavesTheContent)
{
    writeFile("m", "abcd");
    ASSERT_EQ(open("m", LockFileOpening::existingForWriting), LockFileOpenResult::opened);
    EXPECT_EQ(::fcntl(opened.back(), F_GETFL) & O_ACCMODE, O_WRONLY);
    struct stat st;
    ASSERT_EQ(::stat(at("m").c_str(), &st), 0);
    EXPECT_EQ(st.st_size, 4);
    ASSERT_EQ(open("m", LockFileOpening::existingForReading), LockFileOpenResult::opened);
    EXPECT_EQ(::fcntl(opened.back(), F_GETFL) & O_ACCMODE, O_RDONLY);
}

TEST_F(LockFileWrappersTest, AFileWithoutPermissionIsRefused)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    writeFile("m", "abcd");
    ASSERT_EQ(::chmod(at("m").c_str(), 0222), 0); // anybody may write it, nobody read it
    std::string const file = at("m");
    int const status = runUnprivileged([&] {
        int descriptor = -1;
        LockFileOpenResult const reading = posix::openLockFile(file.c_str(), LockFileOpening::existingForReading, descriptor);
        LockFileOpenResult const writing = posix::openLockFile(file.c_str(), LockFileOpening::existingForWriting, descriptor);
        return firstFailure({reading == LockFileOpenResult::refused, writing == LockFileOpenResult::opened});
    });
    if (char const* reason = kelvo::testing::unprivilegedSkipReason(status))
        GTEST_SKIP() << reason;
    EXPECT_EQ(status, 0);
}

TEST_F(LockFileWrappersTest, AFifoWithoutPeerNeverBlocksTheOpen)
{
    ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0666), 0);
    std::string const fifo = at("fifo");
    int const status = runInChild([&] {
        ::alarm(10);
        int reader = -1;
        int writer = -1;
        LockFileOpenResult const reading = posix::openLockFile(fifo.c_str(), LockFileOpening::existingForReading, reader);
        // With a reader open, a writer finds its peer; without one it is refused.
        LockFileOpenResult const writing = posix::openLockFile(fifo.c_str(), LockFileOpening::existingForWriting, writer);
        ::close(writer);
        ::close(reader);
        int lonelyWriter = -1;
        LockFileOpenResult const alone = posix::openLockFile(fifo.c_str(), LockFileOpening::existingForWriting, lonelyWriter);
        return firstFailure({reading == LockFileOpenResult::opened, writing == LockFileOpenResult::opened,
                             alone == LockFileOpenResult::refused});
    });
    EXPECT_EQ(status, 0) << "121: the open waited and the child was ended by its alarm";
}

TEST_F(LockFileWrappersTest, DescribingTellsIdentityKindAndSize)
{
    writeFile("m", "abcdef");
    ASSERT_EQ(::link(at("m").c_str(), at("hard").c_str()), 0);
    ASSERT_EQ(::symlink(at("m").c_str(), at("soft").c_str()), 0);
    writeFile("other", "");
    ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0666), 0);

    posix::ObjectInformation file;
    ASSERT_TRUE(posix::getFileInformation(at("m").c_str(), true, file));
    EXPECT_EQ(posix::kindOf(file.mode), ObjectKind::regularFile);
    EXPECT_EQ(file.size, 6);
    struct stat st;
    ASSERT_EQ(::stat(at("m").c_str(), &st), 0);
    EXPECT_EQ(file.inode, static_cast<std::uint64_t>(st.st_ino));
    EXPECT_EQ(file.device, static_cast<std::uint64_t>(st.st_dev));

    posix::ObjectInformation hard;
    posix::ObjectInformation soft;
    posix::ObjectInformation other;
    ASSERT_TRUE(posix::getFileInformation(at("hard").c_str(), true, hard));
    ASSERT_TRUE(posix::getFileInformation(at("soft").c_str(), true, soft)); // the link is followed
    ASSERT_TRUE(posix::getFileInformation(at("other").c_str(), true, other));
    EXPECT_TRUE(sameObject(hard, file));
    EXPECT_TRUE(sameObject(soft, file));
    EXPECT_FALSE(sameObject(other, file));

    ASSERT_EQ(open("m", LockFileOpening::existingForReading), LockFileOpenResult::opened);
    posix::ObjectInformation open;
    ASSERT_TRUE(posix::statDescriptor(opened.back(), open));
    EXPECT_TRUE(sameObject(open, file));
    EXPECT_EQ(posix::kindOf(open.mode), ObjectKind::regularFile);
    EXPECT_EQ(open.size, 6);

    posix::ObjectInformation directory;
    ASSERT_TRUE(posix::getFileInformation(scratch.c_str(), true, directory));
    EXPECT_EQ(posix::kindOf(directory.mode), ObjectKind::directory);
    posix::ObjectInformation fifo;
    ASSERT_TRUE(posix::getFileInformation(at("fifo").c_str(), true, fifo));
    EXPECT_EQ(posix::kindOf(fifo.mode), ObjectKind::fifo);
    posix::ObjectInformation device;
    ASSERT_TRUE(posix::getFileInformation("/dev/null", true, device));
    EXPECT_EQ(posix::kindOf(device.mode), ObjectKind::characterDevice);

    int const listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(listener, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string const socketPath = at("socket");
    ASSERT_LT(socketPath.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size() + 1);
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
    posix::ObjectInformation socket;
    EXPECT_TRUE(posix::getFileInformation(socketPath.c_str(), true, socket));
    EXPECT_EQ(posix::kindOf(socket.mode), ObjectKind::socket);
    int descriptor = -1;
    EXPECT_EQ(posix::openLockFile(socketPath.c_str(), LockFileOpening::existingForReading, descriptor),
              LockFileOpenResult::refused);
    ::close(listener);
}

TEST_F(LockFileWrappersTest, DescribingNothingFails)
{
    posix::ObjectInformation information;
    EXPECT_FALSE(posix::getFileInformation(at("missing").c_str(), true, information));
    ASSERT_EQ(::symlink(at("nothing").c_str(), at("dangling").c_str()), 0);
    EXPECT_FALSE(posix::getFileInformation(at("dangling").c_str(), true, information));
    EXPECT_FALSE(posix::statDescriptor(-1, information));
}

} // namespace
