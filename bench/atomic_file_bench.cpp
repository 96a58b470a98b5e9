// Atomic-save benchmarks: writeFileAtomically beside the raw open, write, fsync, rename and directory fsync it stands for, and the same raw sequence without its fsyncs, on disk and in memory (tmpfs).
#include <kelvo/filesystem.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

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

void save(benchmark::State& state, Way way)
{
    std::size_t const size = static_cast<std::size_t>(state.range(0));
    Place const place = static_cast<Place>(state.range(1));
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

void saveKelvo(benchmark::State& state) { save(state, Way::kelvo); }
void saveRaw(benchmark::State& state) { save(state, Way::raw); }
void saveRawUnflushed(benchmark::State& state) { save(state, Way::rawUnflushed); }

#define KELVO_SAVE_BENCHMARK(name, function, size, place, unit)                                               \
    BENCHMARK(function)->Name(name)->Args({static_cast<std::int64_t>(size), place})->UseRealTime()->Unit(unit)

KELVO_SAVE_BENCHMARK("save/flushed/4KiB_disk/kelvo", saveKelvo, kSmall, onDisk, benchmark::kMicrosecond);
KELVO_SAVE_BENCHMARK("save/flushed/4KiB_disk/raw", saveRaw, kSmall, onDisk, benchmark::kMicrosecond);
KELVO_SAVE_BENCHMARK("save/unflushed/4KiB_disk/raw", saveRawUnflushed, kSmall, onDisk, benchmark::kMicrosecond);
KELVO_SAVE_BENCHMARK("save/flushed/64MiB_disk/kelvo", saveKelvo, kLarge, onDisk, benchmark::kMillisecond);
KELVO_SAVE_BENCHMARK("save/flushed/64MiB_disk/raw", saveRaw, kLarge, onDisk, benchmark::kMillisecond);
KELVO_SAVE_BENCHMARK("save/unflushed/64MiB_disk/raw", saveRawUnflushed, kLarge, onDisk, benchmark::kMillisecond);
KELVO_SAVE_BENCHMARK("save/flushed/4KiB_memory/kelvo", saveKelvo, kSmall, inMemory, benchmark::kMicrosecond);
KELVO_SAVE_BENCHMARK("save/flushed/4KiB_memory/raw", saveRaw, kSmall, inMemory, benchmark::kMicrosecond);
KELVO_SAVE_BENCHMARK("save/unflushed/4KiB_memory/raw", saveRawUnflushed, kSmall, inMemory, benchmark::kMicrosecond);
KELVO_SAVE_BENCHMARK("save/flushed/64MiB_memory/kelvo", saveKelvo, kLarge, inMemory, benchmark::kMillisecond);
KELVO_SAVE_BENCHMARK("save/flushed/64MiB_memory/raw", saveRaw, kLarge, inMemory, benchmark::kMillisecond);
KELVO_SAVE_BENCHMARK("save/unflushed/64MiB_memory/raw", saveRawUnflushed, kLarge, inMemory,
                     benchmark::kMillisecond);

} // namespace
