// File mutex benchmarks: one take and release with the lock on the mutex file, the same file tests without it, and the raw system calls of an exclusive lock file.
#include "bench_support.h"

#include <kelvo/filesystem.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace {

using kelvo::bench::ListingDirectories;
using kelvo::filesystem::FileMutex;
using kelvo::filesystem::Path;

std::string mutexFile(char const* name)
{
    return ListingDirectories::instance().withEntries(0) + "/" + name;
}

// try_lock and unlock of a free mutex: the process-wide mutex, the lock on
// the mutex file (open, flock, two status reads, close) and the file tests,
// write and removal.
void BM_FileMutexTakeAndRelease(benchmark::State& state)
{
    FileMutex mutex(Path(mutexFile("guarded.mutex")), std::chrono::seconds(60));
    for (auto _ : state) {
        bool const taken = mutex.try_lock();
        mutex.unlock();
        if (!taken)
            state.SkipWithError("the mutex was not taken");
    }
}
BENCHMARK(BM_FileMutexTakeAndRelease);

// The same file tests, write and removal without any guard: what the guard
// adds is the difference from the case above.
void BM_PlainFileTestsTakeAndRelease(benchmark::State& state)
{
    std::string const file = mutexFile("plain.mutex");
    Path const path(file);
    FileMutex mutex(path, std::chrono::seconds(60));
    mutex.writeLockID();
    std::uint32_t const own = mutex.readLockID();
    ::unlink(file.c_str());
    for (auto _ : state) {
        if (kelvo::filesystem::exists(path) && !mutex.isFileStale() && mutex.readLockID() != own)
            state.SkipWithError("the mutex was not taken");
        mutex.writeLockID();
        if (kelvo::filesystem::exists(path) && (mutex.isFileStale() || mutex.readLockID() == own))
            ::unlink(file.c_str());
    }
}
BENCHMARK(BM_PlainFileTestsTakeAndRelease);

// The least a lock file can cost: create it exclusively, write 4 bytes,
// close and unlink it.
void BM_RawExclusiveLockFile(benchmark::State& state)
{
    std::string const file = mutexFile("raw.mutex");
    std::uint32_t const identifier = 0x12345678;
    for (auto _ : state) {
        int const fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0 || ::write(fd, &identifier, sizeof identifier) != static_cast<ssize_t>(sizeof identifier))
            state.SkipWithError("the lock file could not be made");
        ::close(fd);
        ::unlink(file.c_str());
    }
}
BENCHMARK(BM_RawExclusiveLockFile);

} // namespace
