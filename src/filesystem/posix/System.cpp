// POSIX wrappers for status, listing, file locks, the file mutex's lock file, streams and the current directory; generic UNIX code only, variants fenced by feature probes.
#include "filesystem/posix/System.h"

#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/SystemCalls.h"

#include <cerrno>
#include <string>

#include <dirent.h>

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
    SystemCalls const& calls = systemCalls();
    if ((follow ? calls.stat : calls.lstat)(path, &st) == 0)
        return true;
    recordFailure(follow ? "stat" : "lstat", errno, path);
    return false;
}

} // namespace

void fillInformation(struct stat const& st, ObjectInformation& information) noexcept
{
    information.mode = static_cast<std::uint32_t>(st.st_mode);
    information.size = static_cast<std::int64_t>(st.st_size);
    information.device = static_cast<std::uint64_t>(st.st_dev);
    information.inode = static_cast<std::uint64_t>(st.st_ino);
    information.owner = static_cast<std::uint32_t>(st.st_uid);
    information.group = static_cast<std::uint32_t>(st.st_gid);
    information.specialDevice = static_cast<std::uint64_t>(st.st_rdev);
    information.links = static_cast<std::uint64_t>(st.st_nlink);
    information.allocatedBytes = static_cast<std::int64_t>(st.st_blocks) * 512;
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

ObjectKind kindOf(std::uint32_t mode) noexcept
{
    switch (mode & S_IFMT) {
    case S_IFDIR:
        return ObjectKind::directory;
    case S_IFLNK:
        return ObjectKind::symbolicLink;
    case S_IFREG:
        return ObjectKind::regularFile;
    case S_IFCHR:
        return ObjectKind::characterDevice;
    case S_IFIFO:
        return ObjectKind::fifo;
    case S_IFBLK:
        return ObjectKind::blockDevice;
    case S_IFSOCK:
        return ObjectKind::socket;
    default:
        return ObjectKind::unknown;
    }
}

ObjectKind classify(std::uint32_t mode, bool linkItself) noexcept
{
    if ((mode & S_IFDIR) != 0)
        return ObjectKind::directory;
    if ((mode & S_IFLNK) != 0 && linkItself)
        return ObjectKind::symbolicLink;
    if ((mode & S_IFREG) != 0)
        return ObjectKind::regularFile;
    if ((mode & S_IFCHR) != 0)
        return ObjectKind::characterDevice;
    if ((mode & S_IFIFO) != 0)
        return ObjectKind::fifo;
    return ObjectKind::unknown;
}

bool getFileInformation(char const* path, bool follow, ObjectInformation& information) noexcept
{
    struct stat st;
    if (!statPath(path, follow, st))
        return false;
    fillInformation(st, information);
    return true;
}

bool canStat(char const* path) noexcept
{
    struct stat st;
    return statPath(path, true, st);
}

bool changeMode(char const* path, std::uint32_t mode) noexcept
{
    if (systemCalls().chmod(path, static_cast<mode_t>(mode)) == 0)
        return true;
    recordFailure("chmod", errno, path);
    return false;
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
    if (systemCalls().utimes(path, times) == 0)
        return true;
    recordFailure("utimes", errno, path);
    return false;
}

namespace {

// A listing is the system's stream under the library's name.
DIR* systemStream(DirectoryStream* stream) noexcept { return reinterpret_cast<DIR*>(stream); }

bool isDotOrDotDot(char const* name) noexcept
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// The one reader of the kind a listing reports.
ListedKind listedKind(dirent const& entry) noexcept
{
#if defined(KELVO_HAS_DIRENT_D_TYPE)
    switch (entry.d_type) {
    case DT_DIR:
        return ListedKind::directory;
    case DT_LNK:
        return ListedKind::link;
    case DT_BLK:
    case DT_SOCK:
        return ListedKind::directoryBit;
    case DT_REG:
    case DT_FIFO:
    case DT_CHR:
        return ListedKind::other;
    default:
        return ListedKind::unknown;
    }
#else
    (void)entry;
    return ListedKind::unknown;
#endif
}

// The exact kind a listing reports, for callers that tell every kind apart.
ObjectKind listedObject(dirent const& entry) noexcept
{
#if defined(KELVO_HAS_DIRENT_D_TYPE)
    switch (entry.d_type) {
    case DT_DIR:
        return ObjectKind::directory;
    case DT_LNK:
        return ObjectKind::symbolicLink;
    case DT_REG:
        return ObjectKind::regularFile;
    case DT_CHR:
        return ObjectKind::characterDevice;
    case DT_FIFO:
        return ObjectKind::fifo;
    case DT_BLK:
        return ObjectKind::blockDevice;
    case DT_SOCK:
        return ObjectKind::socket;
    default:
        return ObjectKind::unknown;
    }
#else
    (void)entry;
    return ObjectKind::unknown;
#endif
}

} // namespace

DirectoryStream* wrapStream(DIR* stream) noexcept { return reinterpret_cast<DirectoryStream*>(stream); }

EntryRead readEntry(DirectoryStream* stream, ListedEntry& entry) noexcept
{
    // readdir tells a failure from the end only through errno: cleared before
    // the call, and put back when the call did not fail.
    int& error = errno; // one look-up of the thread's errno for the whole read
    int const saved = error;
    for (;;) {
        error = 0;
        dirent const* const read = systemCalls().readdir(systemStream(stream));
        if (read == nullptr) {
            if (error != 0) {
                recordFailure("readdir", error, {});
                return EntryRead::failed;
            }
            error = saved;
            return EntryRead::end;
        }
        if (isDotOrDotDot(read->d_name))
            continue;
        error = saved;
        entry.name = read->d_name;
        entry.length = std::char_traits<char>::length(read->d_name);
        entry.kind = listedKind(*read);
        entry.object = listedObject(*read);
        return EntryRead::entry;
    }
}

void closeDirectory(DirectoryStream* stream) noexcept
{
    if (systemCalls().closedir(systemStream(stream)) != 0)
        recordFailure("closedir", errno, {});
}

long tellDirectory(DirectoryStream* stream) noexcept
{
    long const position = systemCalls().telldir(systemStream(stream));
    if (position == -1)
        recordFailure("telldir", errno, {});
    return position;
}

void seekDirectory(DirectoryStream* stream, long position) noexcept
{
    systemCalls().seekdir(systemStream(stream), position);
}

bool isSymbolicLinkEntry(ListedEntry const& entry, char const* path) noexcept
{
    if (entry.kind != ListedKind::unknown)
        return entry.kind == ListedKind::link;
    // The listing did not say what the entry is: ask the entry itself.
    struct stat st;
    return statPath(path, false, st) && S_ISLNK(st.st_mode);
}

LockAttempt tryExclusiveLock(int descriptor) noexcept
{
    if (systemCalls().flock(descriptor, LOCK_EX | LOCK_NB) == 0)
        return LockAttempt::taken;
    recordFailure("flock", errno, {});
    return errno == EWOULDBLOCK || errno == EINTR ? LockAttempt::busy : LockAttempt::failed;
}

bool unlockDescriptor(int descriptor) noexcept
{
    if (systemCalls().flock(descriptor, LOCK_UN) == 0)
        return true;
    recordFailure("flock", errno, {});
    return false;
}

bool closeObject(int descriptor) noexcept
{
    if (systemCalls().close(descriptor) == 0)
        return true;
    recordFailure("close", errno, {});
    return false;
}

LockFileOpenResult openLockFile(char const* path, LockFileOpening opening, int& descriptor) noexcept
{
    int const always = O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    int flags = always | O_RDONLY;
    if (opening == LockFileOpening::createNew)
        flags = always | O_RDWR | O_CREAT | O_EXCL;
    else if (opening == LockFileOpening::existingForWriting)
        flags = always | O_WRONLY;
    else if (opening == LockFileOpening::existingForReadingAndWriting)
        flags = always | O_RDWR;
    int const opened = systemCalls().open(path, flags, 0666);
    if (opened != -1) {
        descriptor = opened;
        return LockFileOpenResult::opened;
    }
    recordFailure("open", errno, path);
    if (errno == EEXIST)
        return LockFileOpenResult::alreadyExists;
    return errno == ENOENT ? LockFileOpenResult::absent : LockFileOpenResult::refused;
}

std::FILE* openStream(char const* path, char const* mode) noexcept
{
    std::FILE* const stream = systemCalls().fopen(path, mode);
    if (stream == nullptr)
        recordFailure("fopen", errno, path);
    return stream;
}

WorkingDirectoryResult getWorkingDirectory(char* buffer, std::size_t size) noexcept
{
    if (systemCalls().getcwd(buffer, size) != nullptr)
        return WorkingDirectoryResult::found;
    recordFailure("getcwd", errno, {});
    return errno == ERANGE ? WorkingDirectoryResult::bufferTooSmall : WorkingDirectoryResult::failed;
}

bool changeWorkingDirectory(char const* path) noexcept
{
    if (systemCalls().chdir(path) == 0)
        return true;
    recordFailure("chdir", errno, path);
    return false;
}

std::int64_t readLinkContents(char const* path, char* buffer, std::size_t size) noexcept
{
    ssize_t const count = systemCalls().readlink(path, buffer, size);
    if (count < 0)
        recordFailure("readlink", errno, path);
    return static_cast<std::int64_t>(count);
}

MakeDirectoryResult makeDirectory(char const* path, std::uint32_t mode) noexcept
{
    if (systemCalls().mkdir(path, static_cast<mode_t>(mode)) == 0)
        return MakeDirectoryResult::made;
    recordFailure("mkdir", errno, path);
    return errno == EEXIST ? MakeDirectoryResult::alreadyExists : MakeDirectoryResult::failed;
}

} // namespace kelvo::filesystem::posix
