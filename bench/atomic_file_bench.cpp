// Atomic-save benchmarks: writeFileAtomically beside the raw open, write, fsync, rename and directory fsync it stands for, and the same raw sequence without its fsyncs, on disk and in memory (tmpfs).
#include <kelvo/filesystem.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = kelvo::filesystem;
using kelvo::filesystem::Path;

constexpr std::size_t kSmall = 4096;
constexpr std::size_t kLarge = std::size_t(64) << 20;

/// Where a benchmark saves: a directory on the disk of the temporary
/// directory, or one in memory.
enum Place { onDisk = 0, inMemory = 1 };

[[noreturn]] void die(char const* what, std::string const& path)
{
    std::perror((std::string(what) + " " + path).c_str());
    std::abort();
}

/// @returns the directory the benchmarks of `place` save in, made once and
/// removed at exit; empty when there is no such place here.
std::string const& directoryFor(Place place)
{
    static std::string directories[2];
    static bool made[2] = {false, false};
    if (!made[place]) {
        made[place] = true;
        char const* base = std::getenv("TMPDIR");
        std::string pattern = place == inMemory ? std::string("/dev/shm")
                                                : std::string(base != nullptr && *base != '\0' ? base : "/tmp");
        pattern += "/kelvo-save-bench-XXXXXX";
        if (::mkdtemp(pattern.data()) != nullptr) {
            directories[place] = pattern;
            std::atexit([] {
                for (std::string const& directory : directories) {
                    if (directory.empty())
                        continue;
                    if (DIR* dir = ::opendir(directory.c_str())) {
                        while (dirent* entry = ::readdir(dir)) {
                            if (entry->d_name[0] != '.' || std::strlen(entry->d_name) > 2)
                                ::unlink((directory + "/" + entry->d_name).c_str());
                        }
                        ::closedir(dir);
                    }
                    ::rmdir(directory.c_str());
                }
            });
        }
    }
    return directories[place];
}

std::string const& contents(std::size_t size)
{
    static std::string const small = [] {
        std::string bytes(kSmall, '\0');
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<char>(i * 131 + 7);
        return bytes;
    }();
    static std::string const large = [] {
        std::string bytes(kLarge, '\0');
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<char>(i * 131 + 7);
        return bytes;
    }();
    return size == kSmall ? small : large;
}

void writeAll(int fd, std::string const& bytes, std::string const& path)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        ssize_t const written = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (written <= 0)
            die("write", path);
        done += static_cast<std::size_t>(written);
    }
}

/// The sequence an atomic save stands for, with plain system calls: a new
/// file beside the target, written, flushed, renamed over the target, and
/// the directory flushed (`flush` false: the same without both fsyncs).
void rawSave(std::string const& directory, std::string const& target, std::string const& bytes, bool flush)
{
    std::string const temporary = directory + "/.doc.raw-temporary";
    int const fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        die("open", temporary);
    writeAll(fd, bytes, temporary);
    if (flush && ::fsync(fd) != 0)
        die("fsync", temporary);
    ::close(fd);
    if (::rename(temporary.c_str(), target.c_str()) != 0)
        die("rename", temporary);
    if (flush) {
        int const dir = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (dir < 0 || ::fsync(dir) != 0)
            die("fsync", directory);
        ::close(dir);
    }
}

enum class Way { kelvo, raw, rawUnflushed };

void save(benchmark::State& state, Way way, std::size_t size, Place place)
{
    std::string const& directory = directoryFor(place);
    if (directory.empty()) {
        state.SkipWithError("no directory for this place");
        return;
    }
    std::string const target = directory + "/doc";
    Path const targetPath(target);
    std::string const& bytes = contents(size);
    // The target exists, as a document being saved again does.
    rawSave(directory, target, bytes, true);
    for (auto _ : state) {
        if (way == Way::kelvo) {
            if (!fs::writeFileAtomically(targetPath, bytes)) {
                state.SkipWithError("writeFileAtomically failed");
                return;
            }
        } else {
            rawSave(directory, target, bytes, way == Way::raw);
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(size));
}

double medianOf(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    std::size_t const middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

/// The three ways side by side: each iteration saves once each way, in an
/// order that turns from one iteration to the next, and times each save
/// alone. A shared disk's speed drifts by far more than the difference
/// measured here; saves made moments apart meet the same disk, so the ratio
/// of each iteration's pair is steadier than a ratio of separate runs. The
/// counters carry the medians: of each way's time (microseconds), of the
/// per-iteration ratios library/raw, and of the share of the raw sequence
/// its fsyncs take.
void savePaired(benchmark::State& state, std::size_t size, Place place)
{
    std::string const& directory = directoryFor(place);
    if (directory.empty()) {
        state.SkipWithError("no directory for this place");
        return;
    }
    std::string const target = directory + "/doc";
    Path const targetPath(target);
    std::string const& bytes = contents(size);
    rawSave(directory, target, bytes, true);
    std::vector<double> ours;
    std::vector<double> raw;
    std::vector<double> unflushed;
    std::vector<double> ratios;
    std::vector<double> flushShares;
    int turn = 0;
    for (auto _ : state) {
        double times[3] = {0, 0, 0};
        for (int step = 0; step < 3; ++step) {
            int const way = (turn + step) % 3;
            auto const started = std::chrono::steady_clock::now();
            if (way == 0) {
                if (!fs::writeFileAtomically(targetPath, bytes)) {
                    state.SkipWithError("writeFileAtomically failed");
                    return;
                }
            } else {
                rawSave(directory, target, bytes, way == 1);
            }
            times[way] = std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - started).count();
        }
        turn = (turn + 1) % 3;
        ours.push_back(times[0]);
        raw.push_back(times[1]);
        unflushed.push_back(times[2]);
        ratios.push_back(times[0] / times[1]);
        flushShares.push_back((times[1] - times[2]) / times[1]);
    }
    state.counters["kelvo_us"] = medianOf(ours);
    state.counters["raw_us"] = medianOf(raw);
    state.counters["raw_unflushed_us"] = medianOf(unflushed);
    state.counters["kelvo_over_raw"] = medianOf(ratios);
    state.counters["fsync_share_of_raw"] = medianOf(flushShares);
}

// Registered by name alone, so that bench/ratios.py reads each as
// save/<flushed|unflushed>/<size>_<place>/<kelvo|raw>; the flushes are wall
// time, not CPU time, so real time is what is measured.
int const registered = [] {
    struct Size {
        char const* label;
        std::size_t bytes;
        benchmark::TimeUnit unit;
    };
    for (Size const size : {Size{"4KiB", kSmall, benchmark::kMicrosecond}, Size{"64MiB", kLarge, benchmark::kMillisecond}}) {
        for (Place const place : {onDisk, inMemory}) {
            std::string const suffix = std::string(size.label) + (place == onDisk ? "_disk" : "_memory");
            for (Way const way : {Way::kelvo, Way::raw, Way::rawUnflushed}) {
                std::string const name = std::string(way == Way::rawUnflushed ? "save/unflushed/" : "save/flushed/")
                                         + suffix + (way == Way::kelvo ? "/kelvo" : "/raw");
                benchmark::RegisterBenchmark(name.c_str(),
                                             [way, size, place](benchmark::State& state) {
                                                 save(state, way, size.bytes, place);
                                             })
                    ->UseRealTime()
                    ->Unit(size.unit);
            }
        }
    }
    for (Size const size : {Size{"4KiB", kSmall, benchmark::kMillisecond}, Size{"64MiB", kLarge, benchmark::kMillisecond}}) {
        for (Place const place : {onDisk, inMemory}) {
            std::string const name = std::string("save/paired/") + size.label + (place == onDisk ? "_disk" : "_memory");
            benchmark::RegisterBenchmark(name.c_str(),
                                         [size, place](benchmark::State& state) {
                                             savePaired(state, size.bytes, place);
                                         })
                ->UseRealTime()
                ->Unit(size.unit)
                ->Iterations(size.bytes == kSmall ? 300 : 21);
        }
    }
    return 0;
}();

} // namespace
