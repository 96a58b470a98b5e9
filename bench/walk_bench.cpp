// Recursive walk benchmarks: RecursiveDirectoryIterator beside a raw openat/getdents walk, a raw fstatat walk, std::filesystem and Boost, on a tree of 100,000 entries in 1,000 directories.
#include <kelvo/filesystem.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#if defined(KELVO_BENCH_HAVE_BOOST)
#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>
#endif

namespace {

// The tree: 10 groups below the root, 99 directories in each (1,000
// directories in all), and 100 files in each of the 990 directories of the
// second level: 100,000 entries.
constexpr int kGroups = 10;
constexpr int kDirectoriesPerGroup = 99;
constexpr int kFilesPerDirectory = 100;
constexpr std::size_t kEntries =
    kGroups + std::size_t(kGroups) * kDirectoriesPerGroup * (1 + std::size_t(kFilesPerDirectory));

bool isDotOrDotDot(char const* name) noexcept
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

void removeWalkTree(std::string const& root)
{
    std::error_code error;
    std::filesystem::remove_all(root, error);
}

std::string& treeRootStorage()
{
    static std::string root;
    return root;
}

void removeTreeAtExit() { removeWalkTree(treeRootStorage()); }

void makeFreshRoot(std::string& root);
void fillTree(std::string const& root);

// Made once per run, in memory (/dev/shm) where there is one, removed at
// exit. With KELVO_WALK_BENCH_TREE set, the tree is made there when that
// directory is missing and kept, so that a profile of one walk sees the walk
// alone.
std::string const& walkTreeRoot()
{
    std::string& root = treeRootStorage();
    if (!root.empty())
        return root;
    if (char const* kept = std::getenv("KELVO_WALK_BENCH_TREE"); kept != nullptr && *kept != '\0') {
        root = kept;
        if (::mkdir(kept, 0755) != 0)
            return root; // there already (or impossible: the counts will tell)
    } else {
        makeFreshRoot(root);
    }
    fillTree(root);
    return root;
}
void makeFreshRoot(std::string& root)
{
    char shared[] = "/dev/shm/kelvo-walk-bench-XXXXXX";
    char const* made = ::mkdtemp(shared);
    std::string pattern;
    if (made == nullptr) {
        char const* base = std::getenv("TMPDIR");
        pattern = std::string(base && *base ? base : "/tmp") + "/kelvo-walk-bench-XXXXXX";
        made = ::mkdtemp(pattern.data());
    }
    if (made == nullptr) {
        std::fprintf(stderr, "cannot make the walk benchmark's tree\n");
        std::abort();
    }
    root = made;
    std::atexit(removeTreeAtExit);
}

void fillTree(std::string const& root)
{
    char name[64];
    for (int g = 0; g < kGroups; ++g) {
        std::snprintf(name, sizeof name, "/group-%02d", g);
        std::string const group = root + name;
        ::mkdir(group.c_str(), 0755);
        for (int d = 0; d < kDirectoriesPerGroup; ++d) {
            std::snprintf(name, sizeof name, "/directory-%03d", d);
            std::string const directory = group + name;
            ::mkdir(directory.c_str(), 0755);
            for (int f = 0; f < kFilesPerDirectory; ++f) {
                std::snprintf(name, sizeof name, "/file-%05d.txt", f);
                int const fd = ::open((directory + name).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
                if (fd >= 0)
                    ::close(fd);
            }
        }
    }
}

void checkCount(benchmark::State& state, std::size_t seen)
{
    if (seen != kEntries)
        state.SkipWithError("the walk saw the wrong number of entries");
}

// ---- The raw walks -------------------------------------------------------------

// What the library's walk does, by hand: open each directory relative to its
// parent's descriptor, read it with getdents64, and for each entry build its
// full path in a reused buffer and read its kind; then the subdirectories.
// With `statuses`, one status per entry: fstatat relative to the directory,
// or (`Statuses::byPath`) stat on the full path, as an entry that outlives the
// walk's descriptors takes it.
enum class Statuses { none, relative, byPath };

void rawWalk(int parent, char const* name, std::string& path, std::vector<char>& buffer, Statuses statuses,
             std::size_t& seen)
{
    int const descriptor = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0)
        return;
    std::size_t const base = path.size();
    std::vector<std::string> subdirectories;
    for (;;) {
        long const read = ::syscall(SYS_getdents64, descriptor, buffer.data(), buffer.size());
        if (read <= 0)
            break;
        for (long offset = 0; offset < read;) {
            auto const* entry = reinterpret_cast<dirent64 const*>(buffer.data() + offset);
            offset += entry->d_reclen;
            if (isDotOrDotDot(entry->d_name))
                continue;
            path.resize(base);
            path += '/';
            path += entry->d_name;
            benchmark::DoNotOptimize(path.data());
            unsigned char const type = entry->d_type;
            benchmark::DoNotOptimize(type);
            if (statuses != Statuses::none) {
                struct stat st;
                int const result = statuses == Statuses::relative ? ::fstatat(descriptor, entry->d_name, &st, 0)
                                                                  : ::stat(path.c_str(), &st);
                benchmark::DoNotOptimize(result);
                benchmark::DoNotOptimize(st.st_mode);
            }
            ++seen;
            if (type == DT_DIR)
                subdirectories.emplace_back(entry->d_name);
        }
    }
    for (std::string const& subdirectory : subdirectories) {
        path.resize(base);
        path += '/';
        path += subdirectory;
        rawWalk(descriptor, subdirectory.c_str(), path, buffer, statuses, seen);
    }
    path.resize(base);
    ::close(descriptor);
}

void walkRaw(benchmark::State& state, Statuses statuses)
{
    std::string const& root = walkTreeRoot();
    std::vector<char> buffer(32768);
    for (auto _ : state) {
        std::size_t seen = 0;
        std::string path = root;
        rawWalk(AT_FDCWD, root.c_str(), path, buffer, statuses, seen);
        checkCount(state, seen);
    }
    state.SetItemsProcessed(static_cast<long>(state.iterations() * kEntries));
}

// The same with the C library's stream (fdopendir/readdir) instead of
// getdents64.
void rawStreamWalk(int parent, char const* name, std::string& path, std::size_t& seen)
{
    int const descriptor = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0)
        return;
    DIR* const stream = ::fdopendir(descriptor);
    if (stream == nullptr) {
        ::close(descriptor);
        return;
    }
    std::size_t const base = path.size();
    std::vector<std::string> subdirectories;
    while (dirent* entry = ::readdir(stream)) {
        if (isDotOrDotDot(entry->d_name))
            continue;
        path.resize(base);
        path += '/';
        path += entry->d_name;
        benchmark::DoNotOptimize(path.data());
        unsigned char const type = entry->d_type;
        benchmark::DoNotOptimize(type);
        ++seen;
        if (type == DT_DIR)
            subdirectories.emplace_back(entry->d_name);
    }
    for (std::string const& subdirectory : subdirectories) {
        path.resize(base);
        path += '/';
        path += subdirectory;
        rawStreamWalk(::dirfd(stream), subdirectory.c_str(), path, seen);
    }
    path.resize(base);
    ::closedir(stream);
}

void walkNamesRaw(benchmark::State& state) { walkRaw(state, Statuses::none); }
void walkStatusesRaw(benchmark::State& state) { walkRaw(state, Statuses::relative); }
void walkStatusesRawByPath(benchmark::State& state) { walkRaw(state, Statuses::byPath); }

void walkNamesRawStream(benchmark::State& state)
{
    std::string const& root = walkTreeRoot();
    for (auto _ : state) {
        std::size_t seen = 0;
        std::string path = root;
        rawStreamWalk(AT_FDCWD, root.c_str(), path, seen);
        checkCount(state, seen);
    }
    state.SetItemsProcessed(static_cast<long>(state.iterations() * kEntries));
}

// ---- The library -----------------------------------------------------------------

void walkKelvo(benchmark::State& state, bool statuses)
{
    using namespace kelvo::filesystem;
    Path const root(walkTreeRoot());
    for (auto _ : state) {
        std::size_t seen = 0;
        for (RecursiveDirectoryIterator it{root}; it != RecursiveDirectoryIterator(); ++it) {
            benchmark::DoNotOptimize(&it->getPath());
            if (statuses) {
                FileStatus const status = it->getStatus();
                benchmark::DoNotOptimize(status);
            } else {
                FileType const type = it->getListedType();
                benchmark::DoNotOptimize(type);
            }
            ++seen;
        }
        checkCount(state, seen);
    }
    state.SetItemsProcessed(static_cast<long>(state.iterations() * kEntries));
}

void walkNamesKelvo(benchmark::State& state) { walkKelvo(state, false); }
void walkStatusesKelvo(benchmark::State& state) { walkKelvo(state, true); }

void walkNamesKelvoCallback(benchmark::State& state)
{
    using namespace kelvo::filesystem;
    Path const root(walkTreeRoot());
    for (auto _ : state) {
        std::size_t seen = 0;
        walkTree(root, WalkOptions(), [&seen](DirectoryEntry const& entry, std::size_t) {
            benchmark::DoNotOptimize(&entry.getPath());
            FileType const type = entry.getListedType();
            benchmark::DoNotOptimize(type);
            ++seen;
            return WalkAction::proceed;
        });
        checkCount(state, seen);
    }
    state.SetItemsProcessed(static_cast<long>(state.iterations() * kEntries));
}

// ---- std::filesystem and Boost -------------------------------------------------------

void walkNamesStd(benchmark::State& state)
{
    std::filesystem::path const root(walkTreeRoot());
    for (auto _ : state) {
        std::size_t seen = 0;
        std::error_code error;
        for (std::filesystem::recursive_directory_iterator it(root, error), end; it != end; it.increment(error)) {
            benchmark::DoNotOptimize(&it->path());
            bool const link = it->is_symlink(error);
            bool const directory = it->is_directory(error);
            benchmark::DoNotOptimize(link);
            benchmark::DoNotOptimize(directory);
            ++seen;
        }
        checkCount(state, seen);
    }
    state.SetItemsProcessed(static_cast<long>(state.iterations() * kEntries));
}

void walkStatusesStd(benchmark::State& state)
{
    std::filesystem::path const root(walkTreeRoot());
    for (auto _ : state) {
        std::size_t seen = 0;
        std::error_code error;
        for (std::filesystem::recursive_directory_iterator it(root, error), end; it != end; it.increment(error)) {
            std::filesystem::file_status const status = it->status(error);
            benchmark::DoNotOptimize(status);
            ++seen;
        }
        checkCount(state, seen);
    }
    state.SetItemsProcessed(static_cast<long>(state.iterations() * kEntries));
}

#if defined(KELVO_BENCH_HAVE_BOOST)
void walkNamesBoost(benchmark::State& state)
{
    boost::filesystem::path const root(walkTreeRoot());
    for (auto _ : state) {
        std::size_t seen = 0;
        boost::system::error_code error;
        for (boost::filesystem::recursive_directory_iterator it(root, error), end; it != end; it.increment(error)) {
            benchmark::DoNotOptimize(&it->path());
            boost::filesystem::file_status const status = it->symlink_status(error);
            benchmark::DoNotOptimize(status);
            ++seen;
        }
        checkCount(state, seen);
    }
    state.SetItemsProcessed(static_cast<long>(state.iterations() * kEntries));
}

void walkStatusesBoost(benchmark::State& state)
{
    boost::filesystem::path const root(walkTreeRoot());
    for (auto _ : state) {
        std::size_t seen = 0;
        boost::system::error_code error;
        for (boost::filesystem::recursive_directory_iterator it(root, error), end; it != end; it.increment(error)) {
            boost::filesystem::file_status const status = it->status(error);
            benchmark::DoNotOptimize(status);
            ++seen;
        }
        checkCount(state, seen);
    }
    state.SetItemsProcessed(static_cast<long>(state.iterations() * kEntries));
}
#endif

int const registered = [] {
    benchmark::RegisterBenchmark("fs/walk/names/kelvo", walkNamesKelvo)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("fs/walk/names/kelvo-callback", walkNamesKelvoCallback)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("fs/walk/names/raw", walkNamesRaw)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("fs/walk/names/raw-readdir", walkNamesRawStream)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("fs/walk/names/std", walkNamesStd)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("fs/walk/statuses/kelvo", walkStatusesKelvo)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("fs/walk/statuses/raw", walkStatusesRaw)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("fs/walk/statuses/raw-stat-path", walkStatusesRawByPath)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("fs/walk/statuses/std", walkStatusesStd)->Unit(benchmark::kMillisecond);
#if defined(KELVO_BENCH_HAVE_BOOST)
    benchmark::RegisterBenchmark("fs/walk/names/boost", walkNamesBoost)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("fs/walk/statuses/boost", walkStatusesBoost)->Unit(benchmark::kMillisecond);
#endif
    return 0;
}();

} // namespace
