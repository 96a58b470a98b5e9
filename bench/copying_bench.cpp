// Benchmarks of copyTreeWith keeping times and modes on 20,000 files of 4 KiB: beside a raw walk making the same system calls, the system's cp -a, and with progress reports and the counting walk.
#include <kelvo/filesystem.h>

#include "bench_support.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

using kelvo::bench::isDotOrDotDot;

namespace fs = kelvo::filesystem;
using kelvo::filesystem::Path;

constexpr int kDirectories = 200;
constexpr int kFilesPerDirectory = 100;
constexpr int kTreeFiles = kDirectories * kFilesPerDirectory;
constexpr std::size_t kFileSize = 4096;

/// The directory the trees live in: KELVO_COPY_BENCH_DIR, else /dev/shm where
/// it is, else TMPDIR or /tmp; made once, removed at exit.
std::string const& copyBenchRoot()
{
    static std::string const root = [] {
        char const* chosen = std::getenv("KELVO_COPY_BENCH_DIR");
        std::string base;
        if (chosen != nullptr && *chosen != '\0')
            base = chosen;
        else if (::access("/dev/shm", W_OK) == 0)
            base = "/dev/shm";
        else if (char const* temporary = std::getenv("TMPDIR"); temporary != nullptr && *temporary != '\0')
            base = temporary;
        else
            base = "/tmp";
        std::string pattern = base + "/kelvo-copying-bench-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            std::perror("mkdtemp");
            std::abort();
        }
        return pattern;
    }();
    return root;
}

bool removeAt(int parent, char const* name)
{
    int fd = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return false;
    DIR* stream = ::fdopendir(fd);
    if (stream == nullptr) {
        ::close(fd);
        return false;
    }
    bool ok = true;
    while (dirent* entry = ::readdir(stream)) {
        if (isDotOrDotDot(entry->d_name))
            continue;
        ok = (entry->d_type == DT_DIR ? removeAt(fd, entry->d_name) : ::unlinkat(fd, entry->d_name, 0) == 0) && ok;
    }
    ::closedir(stream);
    return ::unlinkat(parent, name, AT_REMOVEDIR) == 0 && ok;
}

/// The source: 200 directories of 100 files of 4 KiB, with odd times.
std::string const& copySource()
{
    static std::string const source = [] {
        std::string const root = copyBenchRoot() + "/source";
        std::string const content(kFileSize, 'k');
        ::mkdir(root.c_str(), 0755);
        for (int d = 0; d < kDirectories; ++d) {
            std::string const directory = root + "/dir" + std::to_string(d);
            ::mkdir(directory.c_str(), 0750);
            for (int f = 0; f < kFilesPerDirectory; ++f) {
                std::string const file = directory + "/file" + std::to_string(f) + ".dat";
                int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0640);
                if (fd < 0 || ::write(fd, content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
                    std::perror(file.c_str());
                    std::abort();
                }
                struct timespec times[2] = {{1500000000, 123456789}, {1500000000 + f, 987654321}};
                ::futimens(fd, times);
                ::close(fd);
            }
        }
        return root;
    }();
    return source;
}

int runCommand(std::vector<std::string> const& arguments)
{
    std::vector<char*> argv;
    for (std::string const& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t child = 0;
    if (::posix_spawnp(&child, argv[0], nullptr, nullptr, argv.data(), environ) != 0)
        return -1;
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// ---- The raw walk: the calls copyTreeWith makes, and nothing else ----------------------

/// Gives the open `descriptor` the mode (unless `modeSet`) and times of `st`.
bool keepModeAndTimes(int descriptor, struct stat const& st, bool modeSet = false)
{
    struct timespec const times[2] = {st.st_atim, st.st_mtim};
    return (modeSet || ::fchmod(descriptor, st.st_mode & 07777) == 0) && ::futimens(descriptor, times) == 0;
}

/// The umask, read once per copy as copyTreeWith reads it.
mode_t creationMask()
{
    mode_t const mask = ::umask(0);
    ::umask(mask);
    return mask;
}

/// Copies the file `name` of `from` into `to`: through a new file under
/// another name, in the kernel, mode and times set, renamed without replacing.
bool rawCopyFile(int from, int to, char const* name, unsigned& counter, mode_t mask)
{
    int const in = ::openat(from, name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | O_CLOEXEC);
    if (in < 0)
        return false;
    struct stat st;
    bool ok = ::fstat(in, &st) == 0;
    char temporary[32] = ".raw-copy-";
    char* digit = temporary + 10;
    for (unsigned value = counter++; value != 0 || digit == temporary + 10; value >>= 4)
        *digit++ = "0123456789abcdef"[value & 0xfu];
    *digit = '\0';
    // Created with its own mode where the umask leaves it whole.
    bool const modeSet = ok && (st.st_mode & 07000) == 0 && (st.st_mode & 0777 & mask) == 0;
    int const out = ::openat(to, temporary, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                             modeSet ? st.st_mode & 0777 : 0600);
    ok = ok && out >= 0;
    off_t copied = 0;
    while (ok && copied < st.st_size) {
        ssize_t const count = ::copy_file_range(in, nullptr, out, nullptr, static_cast<std::size_t>(st.st_size - copied), 0);
        ok = count > 0;
        copied += count;
    }
    ok = ok && keepModeAndTimes(out, st, modeSet);
    ok = out >= 0 && ::close(out) == 0 && ok;
    ::close(in);
    return ok && ::renameat2(to, temporary, to, name, RENAME_NOREPLACE) == 0;
}

/// Copies the directory `name` of `from` to `name` of `to`: made private,
/// filled, then given its mode and times.
bool rawCopyTree(int from, char const* fromName, int to, char const* toName, unsigned& counter, mode_t mask)
{
    int const source = ::openat(from, fromName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (source < 0)
        return false;
    struct stat st;
    bool ok = ::fstat(source, &st) == 0 && ::mkdirat(to, toName, 0700) == 0;
    int const destination = ok ? ::openat(to, toName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC) : -1;
    DIR* const stream = destination >= 0 ? ::fdopendir(::dup(source)) : nullptr;
    ok = stream != nullptr;
    while (ok) {
        dirent const* const entry = ::readdir(stream);
        if (entry == nullptr)
            break;
        if (isDotOrDotDot(entry->d_name))
            continue;
        ok = entry->d_type == DT_DIR ? rawCopyTree(source, entry->d_name, destination, entry->d_name, counter, mask)
                                     : rawCopyFile(source, destination, entry->d_name, counter, mask);
    }
    if (stream != nullptr)
        ::closedir(stream);
    ok = ok && keepModeAndTimes(destination, st);
    if (destination >= 0)
        ::close(destination);
    ::close(source);
    return ok;
}

// ---- The benchmarks --------------------------------------------------------------------

template <typename Copy>
void copyTreeBenchmark(benchmark::State& state, Copy copy)
{
    std::string const& source = copySource();
    std::string const destination = copyBenchRoot() + "/destination";
    for (auto _ : state) {
        if (!copy(source, destination)) {
            state.SkipWithError("the tree was not copied");
            break;
        }
        state.PauseTiming();
        removeAt(AT_FDCWD, destination.c_str());
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kTreeFiles);
}

fs::CopyOptions timesAndModes()
{
    fs::CopyOptions options;
    options.keepOwner = false;
    options.countFirst = false;
    return options;
}

bool copiedWhole(fs::CopyResult const& result)
{
    return result.succeeded() && result.filesCopied == kTreeFiles;
}

void copyTreeWithKelvo(benchmark::State& state)
{
    fs::CopyOptions const options = timesAndModes();
    copyTreeBenchmark(state, [&](std::string const& from, std::string const& to) {
        return copiedWhole(fs::copyTreeWith(Path(from), Path(to), options));
    });
}

void copyTreeWithRaw(benchmark::State& state)
{
    copyTreeBenchmark(state, [](std::string const& from, std::string const& to) {
        unsigned counter = 0;
        return rawCopyTree(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), counter, creationMask());
    });
}

/// @returns the processor time (user and system) of the children waited for
/// so far, in milliseconds.
double childrenProcessorMilliseconds()
{
    struct rusage usage = {};
    ::getrusage(RUSAGE_CHILDREN, &usage);
    auto const milliseconds = [](struct timeval const& time) {
        return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
    };
    return milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
}

// The process's own processor time is not the copy's here: the counter
// "cp_cpu_ms" is the processor time of cp itself per copy, to compare with
// the CPU time of the others on a loaded machine.
void copyTreeWithSystemCp(benchmark::State& state)
{
    double const before = childrenProcessorMilliseconds();
    copyTreeBenchmark(state, [](std::string const& from, std::string const& to) {
        return runCommand({"cp", "-a", from, to}) == 0;
    });
    state.counters["cp_cpu_ms"] = (childrenProcessorMilliseconds() - before) / static_cast<double>(state.iterations());
}

// A callback as a file manager's: takes the numbers, goes on. The default
// intervals (100 ms or 4 MiB).
void copyTreeWithProgress(benchmark::State& state)
{
    fs::CopyOptions options = timesAndModes();
    std::int64_t reports = 0;
    options.progress = [&](fs::CopyProgress const& progress) {
        reports += progress.filesDone > 0 ? 1 : 0;
        benchmark::DoNotOptimize(reports);
        return true;
    };
    copyTreeBenchmark(state, [&](std::string const& from, std::string const& to) {
        return copiedWhole(fs::copyTreeWith(Path(from), Path(to), options));
    });
}

// The same with the counting walk first, for the totals.
void copyTreeWithProgressCounted(benchmark::State& state)
{
    fs::CopyOptions options = timesAndModes();
    options.countFirst = true;
    options.progress = [](fs::CopyProgress const& progress) { return progress.bytesTotal > 0; };
    copyTreeBenchmark(state, [&](std::string const& from, std::string const& to) {
        return copiedWhole(fs::copyTreeWith(Path(from), Path(to), options));
    });
}

#define KELVO_COPYING_BENCHMARK(name, function) \
    BENCHMARK(function)->Name(name)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(3)

KELVO_COPYING_BENCHMARK("copying/copy_tree_with/20000/kelvo", copyTreeWithKelvo);
KELVO_COPYING_BENCHMARK("copying/copy_tree_with/20000/raw", copyTreeWithRaw);
KELVO_COPYING_BENCHMARK("copying/copy_tree_with/20000/cp_a", copyTreeWithSystemCp);
KELVO_COPYING_BENCHMARK("copying/copy_tree_with/20000/kelvo_progress", copyTreeWithProgress);
KELVO_COPYING_BENCHMARK("copying/copy_tree_with/20000/kelvo_progress_counted", copyTreeWithProgressCounted);

/// Makes the benchmark directory at start-up and removes it at exit.
struct CopyingRootRemover {
    CopyingRootRemover() { copyBenchRoot(); }
    ~CopyingRootRemover() { removeAt(AT_FDCWD, copyBenchRoot().c_str()); }
} const copyingRootRemover;

} // namespace
