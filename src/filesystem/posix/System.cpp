// POSIX wrappers for status, listing, file locks, the file mutex's lock file, streams and the current directory; generic UNIX code only, variants fenced by feature probes.
#include "filesystem/posix/System.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace kelvo::filesystem::posix {

namespace {

// The one place that chooses between following a final link or not. The
// system's stat structure is the 64-bit-inode one on every system built here
// (64-bit Linux, and macOS with its 64-bit inode default).
bool statPath(char const* path, bool follow, struct stat& st) noexcept
{
    return (follow ? ::stat : ::lstat)(path, &st) == 0;
}

void copyTimes(struct stat const& st, FileInformation& information) noexcept
{
#if defined(KELVO_HAS_STAT_MTIM)
    information.modificationSeconds = st.st_mtim.tv_sec;
    information.modificationNanoseconds = st.st_mtim.tv_nsec;
    information.accessSeconds = st.st_atim.tv_sec;
    information.accessNanoseconds = st.st_atim.tv_nsec;
#elif defined(KELVO_HAS_STAT_MTIMESPEC)
    information.modificationSeconds = st.st_mtimespec.tv_sec;
    information.modificationNanoseconds = st.st_mtimespec.tv_nsec;
    information.accessSeconds = st.st_atimespec.tv_sec;
    information.accessNanoseconds = st.st_atimespec.tv_nsec;
#else
    // Whole seconds are all such a system keeps.
    information.modificationSeconds = st.st_mtime;
    information.modificationNanoseconds = 0;
    information.accessSeconds = st.st_atime;
    information.accessNanoseconds = 0;
#endif
}

} // namespace

bool getFileInformation(char const* path, bool follow, FileInformation& information) noexcept
{
    struct stat st;
    if (!statPath(path, follow, st))
        return false;
    information.mode = static_cast<std::uint32_t>(st.st_mode);
    information.size = static_cast<std::int64_t>(st.st_size);
    copyTimes(st, information);
    return true;
}

bool canStat(char const* path) noexcept
{
    struct stat st;
    return statPath(path, true, st);
}

bool changeMode(char const* path, std::uint32_t mode) noexcept
{
    return ::chmod(path, static_cast<mode_t>(mode)) == 0;
}

bool setFileTimes(char const* path,
                  std::int64_t accessSeconds, std::int32_t accessMicroseconds,
                  std::int64_t modificationSeconds, std::int32_t modificationMicroseconds) noexcept
{
#if defined(__linux__)
    // This kernel refuses an access microsecond value outside 0..999999; the
    // access time's seconds are what must survive, so they go alone.
    if (accessMicroseconds < 0 || accessMicroseconds > 999999)
        accessMicroseconds = 0;
#endif
    struct timeval times[2];
    times[0].tv_sec = static_cast<time_t>(accessSeconds);
    times[0].tv_usec = static_cast<suseconds_t>(accessMicroseconds);
    times[1].tv_sec = static_cast<time_t>(modificationSeconds);
    times[1].tv_usec = static_cast<suseconds_t>(modificationMicroseconds);
    return ::utimes(path, times) == 0;
}

DIR* openDirectory(char const* path) noexcept
{
    return ::opendir(path);
}

dirent* readDirectory(DIR* stream) noexcept { return ::readdir(stream); }

void closeDirectory(DIR* stream) noexcept { ::closedir(stream); }

long tellDirectory(DIR* stream) noexcept { return ::telldir(stream); }

void seekDirectory(DIR* stream, long position) noexcept { ::seekdir(stream, position); }

bool isSymbolicLinkEntry(dirent const& entry, char const* path) noexcept
{
#if defined(KELVO_HAS_DIRENT_D_TYPE)
    if (entry.d_type != DT_UNKNOWN)
        return entry.d_type == DT_LNK;
#else
    (void)entry;
#endif
    // The listing did not say what the entry is: ask the entry itself.
    struct stat st;
    return statPath(path, false, st) && S_ISLNK(st.st_mode);
}

int openDescriptor(char const* path, int flags) noexcept
{
    return ::open(path, flags);
}

bool lockDescriptor(int descriptor, int operation) noexcept
{
    return ::flock(descriptor, operation) == 0;
}

void closeDescriptor(int descriptor) noexcept { ::close(descriptor); }

LockFileOpenResult openLockFile(char const* path, LockFileOpening opening, int& descriptor) noexcept
{
    int const always = O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    int flags = always | O_RDONLY;
    if (opening == LockFileOpening::createNew)
        flags = always | O_RDWR | O_CREAT | O_EXCL;
    else if (opening == LockFileOpening::existingForWriting)
        flags = always | O_WRONLY;
    int const opened = ::open(path, flags, 0666);
    if (opened != -1) {
        descriptor = opened;
        return LockFileOpenResult::opened;
    }
    if (errno == EEXIST)
        return LockFileOpenResult::alreadyExists;
    return errno == ENOENT ? LockFileOpenResult::absent : LockFileOpenResult::refused;
}

namespace {

void describe(struct stat const& st, LockFileInformation& information) noexcept
{
    information.identity.device = static_cast<std::uint64_t>(st.st_dev);
    information.identity.inode = static_cast<std::uint64_t>(st.st_ino);
    information.kind = S_ISREG(st.st_mode) ? LockFileKind::regular
        : S_ISDIR(st.st_mode)              ? LockFileKind::directory
                                           : LockFileKind::special;
    information.size = static_cast<std::int64_t>(st.st_size);
}

} // namespace

bool describeOpenLockFile(int descriptor, LockFileInformation& information) noexcept
{
    struct stat st;
    if (::fstat(descriptor, &st) != 0)
        return false;
    describe(st, information);
    return true;
}

bool describeLockFile(char const* path, LockFileInformation& information) noexcept
{
    struct stat st;
    if (!statPath(path, true, st))
        return false;
    describe(st, information);
    return true;
}

std::FILE* openStream(char const* path, char const* mode) noexcept
{
    return std::fopen(path, mode);
}

WorkingDirectoryResult getWorkingDirectory(char* buffer, std::size_t size) noexcept
{
    if (::getcwd(buffer, size) != nullptr)
        return WorkingDirectoryResult::found;
    return errno == ERANGE ? WorkingDirectoryResult::bufferTooSmall : WorkingDirectoryResult::failed;
}

bool changeWorkingDirectory(char const* path) noexcept
{
    return ::chdir(path) == 0;
}

} // namespace kelvo::filesystem::posix
