// Name matching over one directory: forEachMatching beside a raw readdir and fnmatch loop, and a listing whose entries are never asked for a status.
#include "bench_support.h"

#include <kelvo/filesystem.h>

#include <benchmark/benchmark.h>

#include <cstddef>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::bench::isDotOrDotDot;

constexpr std::size_t kEntries = 10000;
constexpr std::size_t kMatching = kEntries / 5;

/// A directory of 10,000 empty files under the listing directories' private
/// root, every fifth one named "*.tmp"; made once, on first use.
std::string const& matchingDirectory()
{
    static std::string const directory = [] {
        std::string const& base = kelvo::bench::ListingDirectories::instance().withEntries(1000);
        std::string const path = base.substr(0, base.rfind('/')) + "/matching-20";
        ::mkdir(path.c_str(), 0777);
        for (std::size_t i = 0; i < kEntries; ++i) {
            std::string const name = path + "/entry" + std::to_string(i) + (i % 5 == 0 ? ".tmp" : ".dat");
            int const descriptor = ::open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
            if (descriptor >= 0)
                ::close(descriptor);
        }
        return path;
    }();
    return directory;
}

void forEachMatchingKelvo(benchmark::State& state)
{
    kelvo::filesystem::Path const directory(matchingDirectory());
    kelvo::unicode::String const pattern("*.tmp");
    for (auto _ : state) {
        std::size_t matched = 0;
        kelvo::filesystem::forEachMatching(directory, pattern, [&](kelvo::filesystem::Path const& entry) {
            benchmark::DoNotOptimize(entry);
            ++matched;
            return true;
        });
        if (matched != kMatching) {
            state.SkipWithError("wrong number of matches");
            break;
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kEntries));
}

// The limit: opendir, readdir and fnmatch of each name, counting matches.
void forEachMatchingRaw(benchmark::State& state)
{
    std::string const& directory = matchingDirectory();
    for (auto _ : state) {
        std::size_t matched = 0;
        DIR* const stream = ::opendir(directory.c_str());
        if (stream == nullptr) {
            state.SkipWithError("cannot open the directory");
            break;
        }
        while (dirent* entry = ::readdir(stream)) {
            if (isDotOrDotDot(entry->d_name))
                continue;
            if (::fnmatch("*.tmp", entry->d_name, 0) == 0)
                ++matched;
        }
        ::closedir(stream);
        if (matched != kMatching) {
            state.SkipWithError("wrong number of matches");
            break;
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kEntries));
}

// Listing alone, each entry's path looked at and no status asked for.
void listNamesKelvo(benchmark::State& state)
{
    kelvo::filesystem::Path const directory(matchingDirectory());
    for (auto _ : state) {
        std::size_t seen = 0;
        for (kelvo::filesystem::DirectoryEntry const& entry : kelvo::filesystem::DirectoryIterator(directory)) {
            benchmark::DoNotOptimize(entry.getPath());
            ++seen;
        }
        if (seen != kEntries) {
            state.SkipWithError("wrong number of entries");
            break;
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kEntries));
}

void listNamesRaw(benchmark::State& state)
{
    std::string const& directory = matchingDirectory();
    for (auto _ : state) {
        std::size_t seen = 0;
        DIR* const stream = ::opendir(directory.c_str());
        if (stream == nullptr) {
            state.SkipWithError("cannot open the directory");
            break;
        }
        while (dirent* entry = ::readdir(stream)) {
            if (isDotOrDotDot(entry->d_name))
                continue;
            benchmark::DoNotOptimize(entry->d_name);
            ++seen;
        }
        ::closedir(stream);
        if (seen != kEntries) {
            state.SkipWithError("wrong number of entries");
            break;
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kEntries));
}

BENCHMARK(forEachMatchingKelvo)->Name("names/for_each_matching_20/10000/kelvo")->Unit(benchmark::kMicrosecond);
BENCHMARK(forEachMatchingRaw)->Name("names/for_each_matching_20/10000/raw")->Unit(benchmark::kMicrosecond);
BENCHMARK(listNamesKelvo)->Name("names/list/10000/kelvo")->Unit(benchmark::kMicrosecond);
BENCHMARK(listNamesRaw)->Name("names/list/10000/raw")->Unit(benchmark::kMicrosecond);

} // namespace
