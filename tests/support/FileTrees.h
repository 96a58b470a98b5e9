// Test support: building and inspecting small trees on disk with plain system calls, independent of the code under test.
#ifndef KELVO_TESTS_SUPPORT_FILE_TREES_H
#define KELVO_TESTS_SUPPORT_FILE_TREES_H

#include "ScratchDirectory.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <sys/un.h>
#include <unistd.h>

namespace kelvo::testing {

/// Writes `content` into a new or truncated file at `path` with `mode`.
/// @returns true on success.
inline bool writeWholeFile(std::string const& path, std::string const& content, mode_t mode = 0644)
{
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, mode);
    if (fd < 0)
        return false;
    bool ok = ::write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size());
    return ::close(fd) == 0 && ok;
}

/// @returns the contents of the file at `path` (following links), or
/// "<unreadable>" when it cannot be read.
inline std::string readWholeFile(std::string const& path)
{
    int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0)
        return "<unreadable>";
    std::string content;
    char buffer[65536];
    for (;;) {
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n <= 0)
            break;
        content.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return content;
}

/// @returns the whole `st_mode` of `path` itself (no link followed), or 0.
inline mode_t linkMode(std::string const& path)
{
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0 ? st.st_mode : 0;
}

inline bool isDirectoryOnDisk(std::string const& path) { return S_ISDIR(linkMode(path)); }
inline bool isRegularOnDisk(std::string const& path) { return S_ISREG(linkMode(path)); }
inline bool isLinkOnDisk(std::string const& path) { return S_ISLNK(linkMode(path)); }
inline bool isPresentOnDisk(std::string const& path) { return linkMode(path) != 0; }

/// @returns the contents of the link at `path`, or "" when it is none.
inline std::string linkContents(std::string const& path)
{
    char buffer[4096];
    ssize_t n = ::readlink(path.c_str(), buffer, sizeof buffer);
    return n < 0 ? std::string() : std::string(buffer, static_cast<std::size_t>(n));
}

/// @returns the names in the directory `path`, sorted by bytes.
inline std::vector<std::string> namesIn(std::string const& path)
{
    std::vector<std::string> names;
    if (DIR* dir = ::opendir(path.c_str())) {
        while (dirent* entry = ::readdir(dir)) {
            if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
                names.emplace_back(entry->d_name);
        }
        ::closedir(dir);
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// @returns the names in the directory `path` as a set.
inline std::set<std::string> nameSetIn(std::string const& path)
{
    std::vector<std::string> const names = namesIn(path);
    return std::set<std::string>(names.begin(), names.end());
}

/// @returns the system clock's time in microseconds since the epoch.
inline long long nowMicroseconds()
{
    return std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now().time_since_epoch()).count();
}

/// Sets both times of `path` itself (a link is not followed) to
/// `microseconds` since the epoch.
/// @returns true on success.
inline bool setTimes(std::string const& path, long long microseconds)
{
    long long seconds = microseconds / 1000000;
    long long rest = microseconds % 1000000;
    if (rest < 0) {
        rest += 1000000;
        --seconds;
    }
    timeval times[2] = {{static_cast<time_t>(seconds), static_cast<suseconds_t>(rest)},
                        {static_cast<time_t>(seconds), static_cast<suseconds_t>(rest)}};
    return ::lutimes(path.c_str(), times) == 0;
}

/// Sets both times of `path` itself to `age` microseconds before now.
/// @returns true on success.
inline bool setAge(std::string const& path, long long age) { return setTimes(path, nowMicroseconds() - age); }

/// Describes the tree at `path`, links not followed: each relative name maps
/// to "d" for a directory, "l:" and the link's contents, or "f:" and the file's
/// contents, "p" for a FIFO, "?" otherwise. Two trees with equal descriptions
/// hold the same names byte for byte and the same contents.
inline void describeTree(std::string const& path, std::string const& prefix, std::map<std::string, std::string>& out)
{
    for (std::string const& name : namesIn(path)) {
        std::string const full = path + "/" + name;
        std::string const relative = prefix + name;
        mode_t mode = linkMode(full);
        if (S_ISDIR(mode)) {
            out[relative] = "d";
            describeTree(full, relative + "/", out);
        } else if (S_ISLNK(mode)) {
            out[relative] = "l:" + linkContents(full);
        } else if (S_ISREG(mode)) {
            out[relative] = "f:" + readWholeFile(full);
        } else if (S_ISFIFO(mode)) {
            out[relative] = "p";
        } else {
            out[relative] = "?";
        }
    }
}

inline std::map<std::string, std::string> describeTree(std::string const& path)
{
    std::map<std::string, std::string> out;
    describeTree(path, "", out);
    return out;
}

/// Sets the process's umask for the life of the object.
class UmaskScope {
public:
    explicit UmaskScope(mode_t mask) : previous(::umask(mask)) {}
    UmaskScope(UmaskScope const&) = delete;
    UmaskScope& operator=(UmaskScope const&) = delete;
    ~UmaskScope() { ::umask(previous); }

private:
    mode_t previous;
};

/// Names chosen to break transitivity of the tolerant ordering: the same
/// letters in many case mixes, and lengths that interleave.
inline std::vector<std::string> adversarialNames(std::size_t count)
{
    std::vector<std::string> names;
    std::mt19937 random(12345);
    std::string const letters = "aAbBcC_zZ";
    while (names.size() < count) {
        std::size_t const length = 1 + random() % 6;
        std::string name;
        for (std::size_t i = 0; i < length; ++i)
            name.push_back(letters[random() % letters.size()]);
        name += std::to_string(names.size() % 97);
        names.push_back(name + "_" + std::to_string(names.size()));
    }
    return names;
}

/// Binds a UNIX socket at `path` and closes it again, which leaves its name
/// in the tree (a socket file nobody listens on).
/// @returns true when the socket file is there; false when the path does not
/// fit a socket address or the system refuses.
inline bool makeSocketFile(std::string const& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return false;
    path.copy(address.sun_path, path.size());
    int const socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (socket < 0)
        return false;
    bool const bound = ::bind(socket, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0;
    ::close(socket);
    return bound;
}

/// Fixture: a scratch directory and makers of directories and files in it
/// with exact modes, whatever the umask.
class ScratchTree : public ScratchDirectory {
protected:
    void makeDirectory(std::string const& name, mode_t mode = 0755)
    {
        ASSERT_EQ(::mkdir(at(name).c_str(), 0700), 0) << name;
        ASSERT_EQ(::chmod(at(name).c_str(), mode), 0) << name;
    }
    void makeFile(std::string const& name, std::string const& content, mode_t mode = 0644)
    {
        ASSERT_TRUE(writeWholeFile(at(name), content)) << name;
        ASSERT_EQ(::chmod(at(name).c_str(), mode), 0) << name;
    }
};

} // namespace kelvo::testing

#endif
