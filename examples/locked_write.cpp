// Appends a line to a shared file while holding a lock on it, so that writers in other processes take turns.
#include <kelvo/filesystem.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <thread>

#include <unistd.h>

using namespace kelvo::filesystem;

int main(int argc, char** argv)
{
    Path const file(argc > 1 ? argv[1] : "shared.log");
    // A lock is taken on an existing file only.
    if (!exists(file)) {
        if (std::FILE* created = fopenWrapper(file, "a"))
            std::fclose(created);
    }
    for (int attempt = 1;; ++attempt) {
        FileLock lock; // a fresh object for every attempt
        errno = 0;
        if (lock.lockFile(file)) {
            std::FILE* out = fopenWrapper(file, "a");
            if (out == nullptr) {
                std::cerr << file.nativeString() << ": " << std::strerror(errno) << '\n';
                return 1;
            }
            std::fprintf(out, "written by process %d\n", static_cast<int>(getpid()));
            return std::fclose(out) == 0 ? 0 : 1;
        } // the lock ends with the object
        int const reason = errno;
        if (reason != EWOULDBLOCK || attempt == 50) {
            std::cerr << file.nativeString() << ": " << std::strerror(reason) << '\n';
            return 1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}
