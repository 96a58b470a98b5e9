// Tests of opening C and C++ streams by Path, with and without refusing locked files.
#include <kelvo/filesystem/FileLock.h>
#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>

#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include <fcntl.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::FileLock;
using kelvo::filesystem::fopenWrapper;
using kelvo::filesystem::fopenWrapperWithLockCheck;
using kelvo::filesystem::fstreamWrapper;
using kelvo::filesystem::fstreamWrapperWithLockCheck;
using kelvo::filesystem::Path;
using kelvo::testing::descriptorsOpenOn;
using kelvo::testing::kScratchUnreachable;
using kelvo::testing::unprivilegedSkipReason;
using kelvo::testing::LockHeldByAnotherProcess;
using kelvo::testing::runUnprivileged;

// Composed on disk, as Linux programs write names; decomposed in the path text.
std::string const kComposedName = "Caf\xC3\xA9 na\xC3\xAFve.txt";
std::string const kDecomposedName = "Cafe\xCC\x81 nai\xCC\x88ve.txt";
std::string const kInvalidName = "raw\xFF\xFE-\x80\xC3.bin";

unsigned int const kIn = std::ios::in;
unsigned int const kOut = std::ios::out;

/// Reads a whole file with plain system calls.
/// @returns its bytes, or "<missing>" when it cannot be opened.
std::string contentOf(std::string const& path)
{
    int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0)
        return "<missing>";
    std::string content;
    char buffer[4096];
    ssize_t got;
    while ((got = ::read(fd, buffer, sizeof buffer)) > 0)
        content.append(buffer, static_cast<std::size_t>(got));
    ::close(fd);
    return content;
}

bool existsOnDisk(std::string const& path)
{
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
}

/// @returns everything left to read from `file`, which it then closes.
std::string readAndClose(std::FILE* file)
{
    std::string content;
    char buffer[256];
    std::size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0)
        content.append(buffer, got);
    std::fclose(file);
    return content;
}

void writeAndClose(std::FILE* file, std::string const& text)
{
    ASSERT_EQ(std::fwrite(text.data(), 1, text.size(), file), text.size());
    ASSERT_EQ(std::fclose(file), 0);
}

std::string readAll(std::fstream& stream)
{
    return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

using StreamsTest = kelvo::testing::ScratchDirectory;

// ---- fopenWrapper ------------------------------------------------------------------

TEST_F(StreamsTest, FopenReadOfAMissingFileIsNullAndCreatesNothing)
{
    errno = 0;
    EXPECT_EQ(fopenWrapper(Path(at("missing.txt")), "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(existsOnDisk(at("missing.txt")));
    EXPECT_EQ(fopenWrapper(Path(at("absent/missing.txt")), "w"), nullptr);
    EXPECT_FALSE(existsOnDisk(at("absent")));
}

TEST_F(StreamsTest, FopenOfAnEmptyPathIsNull)
{
    EXPECT_EQ(fopenWrapper(Path(), "r"), nullptr);
    EXPECT_EQ(fopenWrapper(Path(), "w"), nullptr);
}

TEST_F(StreamsTest, FopenReadGivesTheFileContent)
{
    writeFile("data.txt", "line one\nline two\n");
    std::FILE* file = fopenWrapper(Path(at("data.txt")), "r");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(readAndClose(file), "line one\nline two\n");
}

TEST_F(StreamsTest, FopenWriteCreatesTheFile)
{
    std::FILE* file = fopenWrapper(Path(at("new.txt")), "w");
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(existsOnDisk(at("new.txt")));
    writeAndClose(file, "fresh");
    EXPECT_EQ(contentOf(at("new.txt")), "fresh");
}

TEST_F(StreamsTest, FopenWriteTruncatesAnExistingFile)
{
    writeFile("old.txt", "a long previous content");
    std::FILE* file = fopenWrapper(Path(at("old.txt")), "w");
    ASSERT_NE(file, nullptr);
    writeAndClose(file, "short");
    EXPECT_EQ(contentOf(at("old.txt")), "short");
}

TEST_F(StreamsTest, FopenAppendModeAppends)
{
    writeFile("log.txt", "first\n");
    std::FILE* file = fopenWrapper(Path(at("log.txt")), "a");
    ASSERT_NE(file, nullptr);
    writeAndClose(file, "second\n");
    EXPECT_EQ(contentOf(at("log.txt")), "first\nsecond\n");

    std::FILE* created = fopenWrapper(Path(at("newlog.txt")), "a");
    ASSERT_NE(created, nullptr);
    writeAndClose(created, "only\n");
    EXPECT_EQ(contentOf(at("newlog.txt")), "only\n");
}

TEST_F(StreamsTest, FopenUpdateModeWritesInPlace)
{
    writeFile("data.txt", "abcdef");
    std::FILE* file = fopenWrapper(Path(at("data.txt")), "r+");
    ASSERT_NE(file, nullptr);
    writeAndClose(file, "XY");
    EXPECT_EQ(contentOf(at("data.txt")), "XYcdef");
    EXPECT_EQ(fopenWrapper(Path(at("missing.txt")), "r+"), nullptr);
    EXPECT_FALSE(existsOnDisk(at("missing.txt")));
}

TEST_F(StreamsTest, FopenBinaryReadKeepsEveryByte)
{
    std::string const bytes("\0\x01\xFF\r\n\x1A", 6);
    writeFile("blob.bin", bytes);
    std::FILE* file = fopenWrapper(Path(at("blob.bin")), "rb");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(readAndClose(file), bytes);
}

TEST_F(StreamsTest, FopenPassesTheModeStringThroughUnchecked)
{
    // "x" is a C library extension: exclusive creation.
    writeFile("existing.txt", "keep");
    errno = 0;
    EXPECT_EQ(fopenWrapper(Path(at("existing.txt")), "wx"), nullptr);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(contentOf(at("existing.txt")), "keep");
    std::FILE* created = fopenWrapper(Path(at("exclusive.txt")), "wx");
    ASSERT_NE(created, nullptr);
    writeAndClose(created, "x");
    EXPECT_EQ(contentOf(at("exclusive.txt")), "x");

    // A mode the C library does not know is refused by it, not by the wrapper.
    errno = 0;
    EXPECT_EQ(fopenWrapper(Path(at("existing.txt")), "z"), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(fopenWrapper(Path(at("other.txt")), ""), nullptr);
    EXPECT_FALSE(existsOnDisk(at("other.txt")));
}

TEST_F(StreamsTest, FopenWriteOfADirectoryIsNull)
{
    ASSERT_EQ(::mkdir(at("folder").c_str(), 0755), 0);
    errno = 0;
    EXPECT_EQ(fopenWrapper(Path(at("folder")), "w"), nullptr);
    EXPECT_EQ(errno, EISDIR);
}

TEST_F(StreamsTest, FopenOpensAnAccentedNameByItsBytes)
{
    writeFile(kComposedName, "accents");
    // The decomposed bytes name another file, which does not exist.
    EXPECT_EQ(fopenWrapper(Path(scratch + "/" + kDecomposedName), "r"), nullptr);
    std::FILE* composed = fopenWrapper(Path(at(kComposedName)), "r");
    ASSERT_NE(composed, nullptr);
    EXPECT_EQ(readAndClose(composed), "accents");
    // A path made from code points reaches the composed name.
    std::FILE* fromText = fopenWrapper(Path(Path(at(kDecomposedName)).string()), "r");
    ASSERT_NE(fromText, nullptr);
    EXPECT_EQ(readAndClose(fromText), "accents");
}

TEST_F(StreamsTest, FopenCreatesAnAccentedNameWithTheGivenBytes)
{
    std::FILE* file = fopenWrapper(Path(scratch + "/" + kDecomposedName), "w");
    ASSERT_NE(file, nullptr);
    writeAndClose(file, "made");
    EXPECT_EQ(contentOf(at(kDecomposedName)), "made");
    EXPECT_FALSE(existsOnDisk(at(kComposedName)));
    file = fopenWrapper(Path(Path(at(kDecomposedName)).string()), "w");
    ASSERT_NE(file, nullptr);
    writeAndClose(file, "text");
    EXPECT_EQ(contentOf(at(kComposedName)), "text");
    EXPECT_EQ(contentOf(at(kDecomposedName)), "made");
}

TEST_F(StreamsTest, FopenOpensAndCreatesNamesThatAreNotUTF8)
{
    writeFile(kInvalidName, "raw bytes");
    Path const invalid(at(kInvalidName));
    ASSERT_EQ(invalid.nativeString(), at(kInvalidName));
    std::FILE* file = fopenWrapper(invalid, "r");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(readAndClose(file), "raw bytes");

    std::string const createdName = "made\xE9\xFF";
    std::FILE* created = fopenWrapper(Path(at(createdName)), "w");
    ASSERT_NE(created, nullptr);
    writeAndClose(created, "new");
    EXPECT_EQ(contentOf(at(createdName)), "new");
}

TEST_F(StreamsTest, FopenWithoutTheCheckOpensALockedFile)
{
    // The lock is advisory: only the checking wrappers honour it.
    writeFile("locked.txt", "content");
    FileLock lock(Path(at("locked.txt")));
    ASSERT_TRUE(FileLock::isFileLocked(Path(at("locked.txt"))));
    std::FILE* file = fopenWrapper(Path(at("locked.txt")), "r");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(readAndClose(file), "content");
}

// ---- fopenWrapperWithLockCheck --------------------------------------------------------

TEST_F(StreamsTest, FopenWithLockCheckRefusesAFileLockedInThisProcess)
{
    writeFile("locked.txt", "precious");
    Path const path(at("locked.txt"));
    FileLock lock;
    ASSERT_TRUE(lock.lockFile(path));
    EXPECT_EQ(fopenWrapperWithLockCheck(path, "r"), nullptr);
    // "w" would have emptied the file had it been opened.
    EXPECT_EQ(fopenWrapperWithLockCheck(path, "w"), nullptr);
    EXPECT_EQ(fopenWrapperWithLockCheck(path, "a"), nullptr);
    EXPECT_EQ(contentOf(at("locked.txt")), "precious");
    EXPECT_EQ(descriptorsOpenOn(at("locked.txt")), 1);
}

TEST_F(StreamsTest, FopenWithLockCheckRefusesAFileLockedByAnotherProcess)
{
    writeFile("locked.txt", "precious");
    Path const path(at("locked.txt"));
    LockHeldByAnotherProcess other(at("locked.txt"));
    ASSERT_TRUE(other.locked());
    EXPECT_EQ(fopenWrapperWithLockCheck(path, "r"), nullptr);
    EXPECT_EQ(fopenWrapperWithLockCheck(path, "w"), nullptr);
    EXPECT_EQ(contentOf(at("locked.txt")), "precious");
    EXPECT_EQ(descriptorsOpenOn(at("locked.txt")), 0);

    ASSERT_TRUE(other.release());
    std::FILE* file = fopenWrapperWithLockCheck(path, "r");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(readAndClose(file), "precious");
}

TEST_F(StreamsTest, FopenWithLockCheckOpensAFreeFileAndLeavesItFree)
{
    writeFile("free.txt", "open me");
    Path const path(at("free.txt"));
    std::FILE* file = fopenWrapperWithLockCheck(path, "r");
    ASSERT_NE(file, nullptr);
    EXPECT_FALSE(FileLock::isFileLocked(path));
    EXPECT_EQ(readAndClose(file), "open me");

    std::FILE* appending = fopenWrapperWithLockCheck(path, "a");
    ASSERT_NE(appending, nullptr);
    writeAndClose(appending, "!");
    EXPECT_EQ(contentOf(at("free.txt")), "open me!");
    FileLock lock;
    EXPECT_TRUE(lock.lockFile(path));
}

TEST_F(StreamsTest, FopenWithLockCheckOpensAFileWhoseHolderLetGo)
{
    writeFile("file.txt", "data");
    Path const path(at("file.txt"));
    FileLock lock(path);
    EXPECT_EQ(fopenWrapperWithLockCheck(path, "r"), nullptr);
    lock.unlockFile();
    std::FILE* file = fopenWrapperWithLockCheck(path, "r");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(readAndClose(file), "data");
}

TEST_F(StreamsTest, FopenWithLockCheckOnAMissingFileBehavesAsFopen)
{
    EXPECT_EQ(fopenWrapperWithLockCheck(Path(at("missing.txt")), "r"), nullptr);
    EXPECT_FALSE(existsOnDisk(at("missing.txt")));
    std::FILE* created = fopenWrapperWithLockCheck(Path(at("missing.txt")), "w");
    ASSERT_NE(created, nullptr);
    writeAndClose(created, "created");
    EXPECT_EQ(contentOf(at("missing.txt")), "created");
}

TEST_F(StreamsTest, FopenWithLockCheckWorksOnAccentedAndNonUTF8Names)
{
    writeFile(kComposedName, "accents");
    writeFile(kInvalidName, "raw");
    Path const accented(at(kComposedName));
    Path const invalid(at(kInvalidName));
    std::FILE* file = fopenWrapperWithLockCheck(accented, "r");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(readAndClose(file), "accents");
    file = fopenWrapperWithLockCheck(invalid, "r");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(readAndClose(file), "raw");

    FileLock first(accented);
    FileLock second(invalid);
    EXPECT_EQ(fopenWrapperWithLockCheck(accented, "r"), nullptr);
    EXPECT_EQ(fopenWrapperWithLockCheck(invalid, "r"), nullptr);
}

TEST_F(StreamsTest, FopenWithLockCheckRefusesAFileTheCallerCannotRead)
{
    // A file that exists but cannot be opened for reading counts as locked,
    // even when the caller only wants to write to it.
    writeFile("dropbox.txt", "start;");
    // Write-only both for its owner (the suite run as an ordinary user) and
    // for others (the child that gave up root).
    ASSERT_EQ(::chmod(at("dropbox.txt").c_str(), 0202), 0);
    ASSERT_EQ(::chmod(scratch.c_str(), 0711), 0);
    std::string const dropbox = at("dropbox.txt");
    int const result = runUnprivileged([&] {
        if (::access(dropbox.c_str(), F_OK) != 0)
            return kScratchUnreachable;
        if (::access(dropbox.c_str(), R_OK) == 0 || ::access(dropbox.c_str(), W_OK) != 0)
            return 91;
        if (fopenWrapperWithLockCheck(Path(dropbox), "a") != nullptr)
            return 1;
        std::FILE* file = fopenWrapper(Path(dropbox), "a");
        if (!file)
            return 2;
        std::fputs("written;", file);
        std::fclose(file);
        return 0;
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    ASSERT_NE(result, 91) << "the unprivileged child's access to a mode 0202 file is not write-only";
    EXPECT_EQ(result, 0) << "1: the checked wrapper opened an unreadable file, 2: plain fopen failed";
    ASSERT_EQ(::chmod(dropbox.c_str(), 0644), 0);
    EXPECT_EQ(contentOf(dropbox), "start;written;");
}

// ---- fstreamWrapper ------------------------------------------------------------------

TEST_F(StreamsTest, FstreamOpensForReadingAndWriting)
{
    writeFile("data.txt", "abcdef");
    std::fstream stream;
    fstreamWrapper(stream, Path(at("data.txt")), kIn | kOut);
    ASSERT_TRUE(stream.is_open());
    EXPECT_EQ(stream.rdstate(), std::ios::goodbit);
    std::string word;
    stream >> word;
    EXPECT_EQ(word, "abcdef");
    stream.clear();
    stream.seekp(0);
    stream << "XY";
    stream.close();
    EXPECT_EQ(contentOf(at("data.txt")), "XYcdef");
}

TEST_F(StreamsTest, FstreamReadOfAMissingFileSetsFailbit)
{
    std::fstream stream;
    fstreamWrapper(stream, Path(at("missing.txt")), kIn);
    EXPECT_FALSE(stream.is_open());
    EXPECT_TRUE(stream.rdstate() & std::ios::failbit);
    EXPECT_FALSE(existsOnDisk(at("missing.txt")));

    std::fstream update;
    fstreamWrapper(update, Path(at("missing.txt")), kIn | kOut);
    EXPECT_FALSE(update.is_open());
    EXPECT_TRUE(update.fail());
    EXPECT_FALSE(existsOnDisk(at("missing.txt")));
}

TEST_F(StreamsTest, FstreamWriteCreatesTruncatesAndAppends)
{
    std::fstream created;
    fstreamWrapper(created, Path(at("out.txt")), kOut);
    ASSERT_TRUE(created.is_open());
    created << "first";
    created.close();
    EXPECT_EQ(contentOf(at("out.txt")), "first");

    std::fstream appending;
    fstreamWrapper(appending, Path(at("out.txt")), kOut | static_cast<unsigned int>(std::ios::app));
    ASSERT_TRUE(appending.is_open());
    appending << "+second";
    appending.close();
    EXPECT_EQ(contentOf(at("out.txt")), "first+second");

    std::fstream truncating;
    fstreamWrapper(truncating, Path(at("out.txt")), kIn | kOut | static_cast<unsigned int>(std::ios::trunc));
    ASSERT_TRUE(truncating.is_open());
    truncating << "new";
    truncating.close();
    EXPECT_EQ(contentOf(at("out.txt")), "new");
}

TEST_F(StreamsTest, FstreamBinaryReadKeepsEveryByte)
{
    std::string const bytes("\0\x01\xFF\r\n\x1A", 6);
    writeFile("blob.bin", bytes);
    std::fstream stream;
    fstreamWrapper(stream, Path(at("blob.bin")), kIn | static_cast<unsigned int>(std::ios::binary));
    ASSERT_TRUE(stream.is_open());
    EXPECT_EQ(readAll(stream), bytes);
}

TEST_F(StreamsTest, FstreamOpensAccentedAndNonUTF8Names)
{
    writeFile(kComposedName, "accents");
    writeFile(kInvalidName, "raw");
    std::fstream accented;
    fstreamWrapper(accented, Path(at(kComposedName)), kIn);
    ASSERT_TRUE(accented.is_open());
    EXPECT_EQ(readAll(accented), "accents");
    std::fstream invalid;
    fstreamWrapper(invalid, Path(at(kInvalidName)), kIn);
    ASSERT_TRUE(invalid.is_open());
    EXPECT_EQ(readAll(invalid), "raw");

    std::fstream created;
    fstreamWrapper(created, Path(scratch + "/new-" + kDecomposedName), kOut);
    ASSERT_TRUE(created.is_open());
    created << "decomposed";
    created.close();
    // Created with the bytes given.
    EXPECT_EQ(contentOf(scratch + "/new-" + kDecomposedName), "decomposed");
    EXPECT_FALSE(existsOnDisk(scratch + "/new-" + kComposedName));
}

// ---- fstreamWrapperWithLockCheck ----------------------------------------------------------

TEST_F(StreamsTest, FstreamWithLockCheckLeavesTheStreamClosedAndGoodWhenLockedHere)
{
    writeFile("locked.txt", "precious");
    Path const path(at("locked.txt"));
    FileLock lock(path);
    ASSERT_TRUE(FileLock::isFileLocked(path));
    std::fstream stream;
    fstreamWrapperWithLockCheck(stream, path, kIn);
    EXPECT_FALSE(stream.is_open());
    EXPECT_EQ(stream.rdstate(), std::ios::goodbit);

    std::fstream truncating;
    fstreamWrapperWithLockCheck(truncating, path, kOut | static_cast<unsigned int>(std::ios::trunc));
    EXPECT_FALSE(truncating.is_open());
    EXPECT_EQ(truncating.rdstate(), std::ios::goodbit);
    EXPECT_EQ(contentOf(at("locked.txt")), "precious");
    EXPECT_EQ(descriptorsOpenOn(at("locked.txt")), 1);
}

TEST_F(StreamsTest, FstreamWithLockCheckLeavesTheStreamClosedAndGoodWhenLockedElsewhere)
{
    writeFile("locked.txt", "precious");
    Path const path(at("locked.txt"));
    LockHeldByAnotherProcess other(at("locked.txt"));
    ASSERT_TRUE(other.locked());
    std::fstream stream;
    fstreamWrapperWithLockCheck(stream, path, kIn | kOut);
    EXPECT_FALSE(stream.is_open());
    EXPECT_EQ(stream.rdstate(), std::ios::goodbit);
    EXPECT_EQ(descriptorsOpenOn(at("locked.txt")), 0);

    ASSERT_TRUE(other.release());
    fstreamWrapperWithLockCheck(stream, path, kIn);
    ASSERT_TRUE(stream.is_open());
    EXPECT_EQ(readAll(stream), "precious");
}

TEST_F(StreamsTest, FstreamWithLockCheckLeavesAStreamExactlyAsItWas)
{
    writeFile("locked.txt", "locked");
    writeFile("other.txt", "other content");
    Path const path(at("locked.txt"));
    FileLock lock(path);

    std::fstream flagged;
    flagged.setstate(std::ios::eofbit);
    fstreamWrapperWithLockCheck(flagged, path, kIn);
    EXPECT_FALSE(flagged.is_open());
    EXPECT_EQ(flagged.rdstate(), std::ios::eofbit);

    std::fstream busy;
    fstreamWrapper(busy, Path(at("other.txt")), kIn);
    ASSERT_TRUE(busy.is_open());
    fstreamWrapperWithLockCheck(busy, path, kIn);
    EXPECT_TRUE(busy.is_open());
    EXPECT_EQ(busy.rdstate(), std::ios::goodbit);
    EXPECT_EQ(readAll(busy), "other content");
}

TEST_F(StreamsTest, FstreamWithLockCheckOpensAFreeFile)
{
    writeFile("free.txt", "free content");
    Path const path(at("free.txt"));
    std::fstream stream;
    fstreamWrapperWithLockCheck(stream, path, kIn | kOut);
    ASSERT_TRUE(stream.is_open());
    EXPECT_EQ(stream.rdstate(), std::ios::goodbit);
    EXPECT_FALSE(FileLock::isFileLocked(path));
    EXPECT_EQ(readAll(stream), "free content");
}

TEST_F(StreamsTest, FstreamWithLockCheckOnAMissingFileBehavesAsFstream)
{
    std::fstream stream;
    fstreamWrapperWithLockCheck(stream, Path(at("missing.txt")), kIn);
    EXPECT_FALSE(stream.is_open());
    EXPECT_TRUE(stream.rdstate() & std::ios::failbit);
    EXPECT_FALSE(existsOnDisk(at("missing.txt")));

    std::fstream created;
    fstreamWrapperWithLockCheck(created, Path(at("missing.txt")), kOut);
    ASSERT_TRUE(created.is_open());
    created << "made";
    created.close();
    EXPECT_EQ(contentOf(at("missing.txt")), "made");
}

TEST_F(StreamsTest, LockCheckRefusalLeavesErrnoUnchanged)
{
    writeFile("held.txt", "held");
    FileLock holder;
    ASSERT_TRUE(holder.lockFile(Path(at("held.txt"))));

    errno = 0;
    EXPECT_EQ(fopenWrapperWithLockCheck(Path(at("held.txt")), "r"), nullptr);
    EXPECT_EQ(errno, 0);

    std::fstream stream;
    errno = 0;
    fstreamWrapperWithLockCheck(stream, Path(at("held.txt")), kIn);
    EXPECT_FALSE(stream.is_open());
    EXPECT_EQ(errno, 0);
}

namespace {
void ignoreAlarm(int) {}
} // namespace

TEST_F(StreamsTest, FopenInterruptedBySignalReturnsNullWithEINTR)
{
    // A caller may use a signal as a timeout on an open that blocks (a FIFO
    // nobody writes to): the interrupted open must come back as a failure.
    ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0600), 0);
    pid_t const writer = ::fork();
    ASSERT_GE(writer, 0);
    if (writer == 0) {
        // Unblocks the reader after a while in any case, so that a wrong
        // implementation fails the test instead of hanging it.
        ::sleep(5);
        int fd = ::open(at("fifo").c_str(), O_WRONLY);
        if (fd >= 0)
            ::close(fd);
        ::_exit(0);
    }

    struct sigaction action = {};
    struct sigaction previous = {};
    action.sa_handler = ignoreAlarm;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0; // no SA_RESTART: the open is interrupted
    ASSERT_EQ(::sigaction(SIGALRM, &action, &previous), 0);
    struct itimerval timer = {};
    timer.it_value.tv_usec = 200000;
    ASSERT_EQ(::setitimer(ITIMER_REAL, &timer, nullptr), 0);

    errno = 0;
    std::FILE* const file = fopenWrapper(Path(at("fifo")), "r");
    int const openErrno = errno;

    ::sigaction(SIGALRM, &previous, nullptr);
    ::kill(writer, SIGKILL);
    int status = 0;
    ::waitpid(writer, &status, 0);
    if (file != nullptr)
        std::fclose(file);

    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(openErrno, EINTR);
}

} // namespace
