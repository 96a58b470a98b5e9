// Test support: probes of descriptors, locks and files with plain system calls, an unprivileged child process, and a lock held by another process.
#ifndef KELVO_TESTS_SUPPORT_PROCESS_PROBES_H
#define KELVO_TESTS_SUPPORT_PROCESS_PROBES_H

#include <kelvo/filesystem/FileLock.h>
#include <kelvo/filesystem/Path.h>

#include <climits>
#include <csignal>
#include <cstring>
#include <initializer_list>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <grp.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kelvo::testing {

/// The user and group an unprivileged child switches to.
inline constexpr uid_t kUnprivilegedUser = 65534;
inline constexpr gid_t kUnprivilegedGroup = 65534;

/// Exit status of a child that could not drop its privileges.
inline constexpr int kCannotDropPrivileges = 120;
/// Exit status of a child that died or was killed instead of exiting.
inline constexpr int kChildDidNotExit = 121;
/// Exit status of an unprivileged child that found the scratch directory
/// out of its reach.
inline constexpr int kScratchUnreachable = 90;

/// @returns why a test cannot judge what its unprivileged child gave back as
/// `result` (it could not switch users, or the scratch directory was out of
/// its reach); null when the result is the child's own.
inline char const* unprivilegedSkipReason(int result)
{
    if (result == kCannotDropPrivileges)
        return "cannot switch to an unprivileged user";
    if (result == kScratchUnreachable)
        return "the scratch directory is not reachable by an unprivileged user";
    return nullptr;
}

/// @returns the number of descriptors open in this process (the one used to
/// list them not counted), read from /proc/self/fd; -1 when it cannot be read.
inline int openDescriptorCount()
{
    DIR* dir = ::opendir("/proc/self/fd");
    if (!dir)
        return -1;
    int count = 0;
    while (dirent* entry = ::readdir(dir)) {
        if (entry->d_name[0] != '.')
            ++count;
    }
    ::closedir(dir);
    return count - 1;
}

/// @returns how many descriptors of this process are open on the object whose
/// canonical native path is `path`.
inline int descriptorsOpenOn(std::string const& path)
{
    DIR* dir = ::opendir("/proc/self/fd");
    if (!dir)
        return -1;
    int count = 0;
    std::string const directory = "/proc/self/fd/";
    while (dirent* entry = ::readdir(dir)) {
        if (entry->d_name[0] == '.')
            continue;
        char target[PATH_MAX + 1];
        ssize_t length = ::readlink((directory + entry->d_name).c_str(), target, PATH_MAX);
        if (length >= 0 && std::string(target, static_cast<std::size_t>(length)) == path)
            ++count;
    }
    ::closedir(dir);
    return count;
}

/// @returns true when nobody holds an flock on `path`: a private descriptor
/// can take and give back an exclusive lock at once. Plain system calls, so
/// that the check does not rest on the code under test.
inline bool isFreeByDirectProbe(std::string const& path)
{
    int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK);
    if (fd < 0)
        return false;
    bool const free = ::flock(fd, LOCK_EX | LOCK_NB) == 0;
    if (free)
        ::flock(fd, LOCK_UN);
    ::close(fd);
    return free;
}

/// @returns true when `path` itself (not what a link names) exists, by `lstat`.
inline bool existsByDirectProbe(std::string const& path)
{
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
}

/// @returns 0 when every check holds, else the 1-based index of the first
/// that fails: an exit status a child can report.
inline int firstFailure(std::initializer_list<bool> checks)
{
    int index = 1;
    for (bool check : checks) {
        if (!check)
            return index;
        ++index;
    }
    return 0;
}

/// Runs `body` in a forked child that has given up root (group and user
/// 65534, no supplementary groups) and exits with what `body` returns.
/// A process that is not root already lacks the privileges and keeps its ids.
/// @returns the child's exit status; `kCannotDropPrivileges` when it could not
/// switch users, `kChildDidNotExit` when it ended on a signal.
template <typename Body>
int runUnprivileged(Body body)
{
    pid_t child = ::fork();
    if (child < 0)
        return kChildDidNotExit;
    if (child == 0) {
        if (::geteuid() == 0) {
            if (::setgroups(0, nullptr) != 0 || ::setgid(kUnprivilegedGroup) != 0
                || ::setuid(kUnprivilegedUser) != 0)
                ::_exit(kCannotDropPrivileges);
        }
        ::_exit(body());
    }
    int status = 0;
    if (::waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return kChildDidNotExit;
    return WEXITSTATUS(status);
}

/// Runs `body` in a forked child keeping this process's privileges.
/// @returns the child's exit status, or `kChildDidNotExit`.
template <typename Body>
int runInChild(Body body)
{
    pid_t child = ::fork();
    if (child < 0)
        return kChildDidNotExit;
    if (child == 0)
        ::_exit(body());
    int status = 0;
    if (::waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return kChildDidNotExit;
    return WEXITSTATUS(status);
}

/// Runs `body` in a forked child of its own process group that is killed,
/// with every process it started, when it has not finished after `seconds`.
/// @returns the child's exit status, or `kChildDidNotExit` when it was
/// killed or died.
template <typename Body>
int runBounded(unsigned seconds, Body body)
{
    pid_t const child = ::fork();
    if (child < 0)
        return kChildDidNotExit;
    if (child == 0) {
        ::setpgid(0, 0);
        struct sigaction action = {};
        action.sa_handler = [](int) { ::kill(0, SIGKILL); };
        ::sigaction(SIGALRM, &action, nullptr);
        ::alarm(seconds);
        ::_exit(body());
    }
    int status = 0;
    if (::waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return kChildDidNotExit;
    return WEXITSTATUS(status);
}

/// A `FileLock` taken on a file by a forked child process, which keeps it
/// until `release` (or destruction) tells the child to exit.
class LockHeldByAnotherProcess {
public:
    /// Forks a child that locks `path` with a `FileLock` and reports whether
    /// `lockFile` returned true; returns once the child has answered.
    explicit LockHeldByAnotherProcess(std::string const& path)
    {
        int ready[2];
        int go[2];
        if (::pipe(ready) != 0)
            return;
        if (::pipe(go) != 0) {
            ::close(ready[0]);
            ::close(ready[1]);
            return;
        }
        child = ::fork();
        if (child == 0) {
            ::close(ready[0]);
            ::close(go[1]);
            char answer;
            {
                kelvo::filesystem::FileLock lock;
                answer = lock.lockFile(kelvo::filesystem::Path(path)) ? 'y' : 'n';
                if (::write(ready[1], &answer, 1) != 1)
                    ::_exit(2);
                char ignored;
                (void)::read(go[0], &ignored, 1);
            }
            ::_exit(0);
        }
        ::close(ready[1]);
        ::close(go[0]);
        if (child < 0) {
            ::close(ready[0]);
            ::close(go[1]);
            return;
        }
        releaseDescriptor = go[1];
        char answer = 'n';
        if (::read(ready[0], &answer, 1) == 1)
            childLocked = answer == 'y';
        ::close(ready[0]);
    }

    LockHeldByAnotherProcess(LockHeldByAnotherProcess const&) = delete;
    LockHeldByAnotherProcess& operator=(LockHeldByAnotherProcess const&) = delete;

    ~LockHeldByAnotherProcess() { release(); }

    /// @returns true when the child's `lockFile` returned true.
    bool locked() const { return childLocked; }

    /// Lets the child exit and waits for it.
    /// @returns true when the child exited normally with status 0.
    bool release()
    {
        if (child <= 0)
            return false;
        char go = 'x';
        (void)::write(releaseDescriptor, &go, 1);
        ::close(releaseDescriptor);
        int status = 0;
        pid_t waited = ::waitpid(child, &status, 0);
        child = -1;
        return waited > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

private:
    pid_t child = -1;
    int releaseDescriptor = -1;
    bool childLocked = false;
};

} // namespace kelvo::testing

#endif
