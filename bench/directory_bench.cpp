// Status and listing benchmarks: the library beside the raw system calls it makes, std::filesystem and Boost.
#include "bench_support.h"

#include <kelvo/filesystem.h>

#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>
#include <system_error>

#include <dirent.h>
#include <sys/stat.h>

#if defined(KELVO_BENCH_HAVE_BOOST)
#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>
#endif

namespace {

using kelvo::bench::isDotOrDotDot;
using kelvo::bench::ListingDirectories;

// Each listing body reports how many entries it saw, so that a wrong count
// (a listing that skipped work) fails the run instead of flattering it.
void checkCount(benchmark::State& state, std::size_t seen, std::size_t expected)
{
    if (seen != expected)
        state.SkipWithError("the listing saw the wrong number of entries");
}

// ---- Listing with statuses ---------------------------------------------------

// The limit: opendir, readdir, and one stat per entry on the full path built
// in a reused buffer, which is exactly the system calls the library makes.
std::size_t listRaw(std::string const& directory)
{
    std::size_t seen = 0;
    DIR* stream = ::opendir(directory.c_str());
    if (stream == nullptr)
        return 0;
    std::string full = directory + "/";
    std::size_t const base = full.size();
    while (dirent* entry = ::readdir(stream)) {
        if (isDotOrDotDot(entry->d_name))
            continue;
        full.resize(base);
        full.append(entry->d_name);
        struct stat st;
        int const result = ::stat(full.c_str(), &st);
        benchmark::DoNotOptimize(result);
        benchmark::DoNotOptimize(st.st_mode);
        ++seen;
    }
    ::closedir(stream);
    return seen;
}

std::size_t listKelvo(kelvo::filesystem::Path const& directory)
{
    using namespace kelvo::filesystem;
    std::size_t seen = 0;
    for (DirectoryEntry const& entry : DirectoryIterator(directory)) {
        FileStatus const status = entry.getStatus();
        benchmark::DoNotOptimize(status);
        benchmark::DoNotOptimize(entry.getPath());
        ++seen;
    }
    return seen;
}

std::size_t listStd(std::filesystem::path const& directory)
{
    std::size_t seen = 0;
    std::error_code error;
    for (std::filesystem::directory_entry const& entry : std::filesystem::directory_iterator(directory, error)) {
        std::filesystem::file_status const status = entry.status(error);
        benchmark::DoNotOptimize(status);
        benchmark::DoNotOptimize(entry.path());
        ++seen;
    }
    return seen;
}

#if defined(KELVO_BENCH_HAVE_BOOST)
std::size_t listBoost(boost::filesystem::path const& directory)
{
    std::size_t seen = 0;
    boost::system::error_code error;
    for (boost::filesystem::directory_iterator it(directory, error), end; it != end; it.increment(error)) {
        boost::filesystem::file_status const status = it->status(error);
        benchmark::DoNotOptimize(status);
        benchmark::DoNotOptimize(it->path());
        ++seen;
    }
    return seen;
}
#endif

// The directory of `count` entries is made before the first timed run and
// reused by every implementation and repetition; the system's caches are
// therefore warm for all of them alike.
template <typename List, typename MakePath>
void listing(benchmark::State& state, std::size_t count, List list, MakePath makePath)
{
    std::string const& directory = ListingDirectories::instance().withEntries(count);
    auto const path = makePath(directory);
    checkCount(state, list(path), count);
    for (auto _ : state) {
        std::size_t const seen = list(path);
        benchmark::DoNotOptimize(seen);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(count));
}

void listingRaw(benchmark::State& state, std::size_t count)
{
    listing(state, count, listRaw, [](std::string const& d) { return d; });
}

void listingKelvo(benchmark::State& state, std::size_t count)
{
    listing(state, count, listKelvo, [](std::string const& d) { return kelvo::filesystem::Path(d); });
}

void listingStd(benchmark::State& state, std::size_t count)
{
    listing(state, count, listStd, [](std::string const& d) { return std::filesystem::path(d); });
}

#if defined(KELVO_BENCH_HAVE_BOOST)
void listingBoost(benchmark::State& state, std::size_t count)
{
    listing(state, count, listBoost, [](std::string const& d) { return boost::filesystem::path(d); });
}
#endif

// ---- Status and existence ----------------------------------------------------

// One existing file of the smallest listing directory: the path the status
// benchmarks query, as a Path whose native form is already cached and as the
// C string the raw call gets.
std::string const& statusTarget()
{
    static std::string const target = ListingDirectories::instance().withEntries(1000) + "/file-000500.dat";
    return target;
}

void statusKelvo(benchmark::State& state)
{
    kelvo::filesystem::Path const path(statusTarget());
    benchmark::DoNotOptimize(path.nativeString());
    if (kelvo::filesystem::status(path).getType() != kelvo::filesystem::FileType::regularFile) {
        state.SkipWithError("status did not find the file");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(path);
        kelvo::filesystem::FileStatus const status = kelvo::filesystem::status(path);
        benchmark::DoNotOptimize(status);
    }
}

void existsKelvo(benchmark::State& state)
{
    kelvo::filesystem::Path const path(statusTarget());
    benchmark::DoNotOptimize(path.nativeString());
    if (!kelvo::filesystem::exists(path)) {
        state.SkipWithError("exists did not find the file");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(path);
        bool const found = kelvo::filesystem::exists(path);
        benchmark::DoNotOptimize(found);
    }
}

void statRaw(benchmark::State& state)
{
    std::string const native = statusTarget();
    char const* const cString = native.c_str();
    for (auto _ : state) {
        benchmark::DoNotOptimize(cString);
        struct stat st;
        int const result = ::stat(cString, &st);
        benchmark::DoNotOptimize(result);
        benchmark::DoNotOptimize(st.st_mode);
    }
}

void statusStd(benchmark::State& state)
{
    std::filesystem::path const path(statusTarget());
    std::error_code error;
    for (auto _ : state) {
        benchmark::DoNotOptimize(path);
        std::filesystem::file_status const status = std::filesystem::status(path, error);
        benchmark::DoNotOptimize(status);
    }
}

void existsStd(benchmark::State& state)
{
    std::filesystem::path const path(statusTarget());
    std::error_code error;
    for (auto _ : state) {
        benchmark::DoNotOptimize(path);
        bool const found = std::filesystem::exists(path, error);
        benchmark::DoNotOptimize(found);
    }
}

int const registered = [] {
    for (long count : {1000L, 10000L, 100000L}) {
        std::string const size = std::to_string(count);
        benchmark::RegisterBenchmark(("fs/list/" + size + "/kelvo").c_str(), listingKelvo, static_cast<std::size_t>(count))
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(("fs/list/" + size + "/raw").c_str(), listingRaw, static_cast<std::size_t>(count))
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(("fs/list/" + size + "/std").c_str(), listingStd, static_cast<std::size_t>(count))
            ->Unit(benchmark::kMicrosecond);
#if defined(KELVO_BENCH_HAVE_BOOST)
        benchmark::RegisterBenchmark(("fs/list/" + size + "/boost").c_str(), listingBoost, static_cast<std::size_t>(count))
            ->Unit(benchmark::kMicrosecond);
#endif
    }
    benchmark::RegisterBenchmark("fs/status/file/kelvo", statusKelvo);
    benchmark::RegisterBenchmark("fs/status/file/raw", statRaw);
    benchmark::RegisterBenchmark("fs/status/file/std", statusStd);
    benchmark::RegisterBenchmark("fs/exists/file/kelvo", existsKelvo);
    benchmark::RegisterBenchmark("fs/exists/file/raw", statRaw);
    benchmark::RegisterBenchmark("fs/exists/file/std", existsStd);
    return 0;
}();

} // namespace
