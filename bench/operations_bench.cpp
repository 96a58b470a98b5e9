// File-operation benchmarks: tree removal, tree and file copy, file and tree comparison and matching removal's walk, each beside the raw system calls doing the same work, std::filesystem and the system's own command.
#include <kelvo/filesystem.h>

#include "bench_support.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <regex>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
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
constexpr std::size_t kSmallFileSize = 4096;
constexpr std::size_t kLargeFileSize = std::size_t(256) << 20;
constexpr std::size_t kRawBufferSize = 32768;

/// The directory all benchmark trees live in, made once, removed at exit.
std::string const& benchRoot()
{
    static std::string const root = [] {
        char const* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/kelvo-ops-bench-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            std::perror("mkdtemp");
            std::abort();
        }
        return pattern;
    }();
    return root;
}

void writeFileOrDie(std::string const& path, std::string const& content)
{
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0 || ::write(fd, content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
        std::perror(path.c_str());
        std::abort();
    }
    ::close(fd);
}

/// Builds 200 directories of 100 files each, every file `size` bytes.
void buildTree(std::string const& root, std::size_t size)
{
    std::string const content(size, 'k');
    ::mkdir(root.c_str(), 0777);
    for (int d = 0; d < kDirectories; ++d) {
        std::string const directory = root + "/dir" + std::to_string(d);
        ::mkdir(directory.c_str(), 0777);
        for (int f = 0; f < kFilesPerDirectory; ++f)
            writeFileOrDie(directory + "/file" + std::to_string(f) + ".dat", content);
    }
}

// ---- Raw walks: the least system-call work that does the job -------------------

bool rawRemoveAt(int parent, char const* name)
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
        if (entry->d_type == DT_DIR)
            ok = rawRemoveAt(fd, entry->d_name);
        else
            ok = ::unlinkat(fd, entry->d_name, 0) == 0;
        if (!ok)
            break;
    }
    ::closedir(stream);
    return ok && ::unlinkat(parent, name, AT_REMOVEDIR) == 0;
}

bool rawCopyFileAt(int fromDirectory, char const* fromName, int toDirectory, char const* toName, char* buffer)
{
    int in = ::openat(fromDirectory, fromName, O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return false;
    struct stat st;
    ::fstat(in, &st);
    int out = ::openat(toDirectory, toName, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, st.st_mode & 07777);
    bool ok = out >= 0;
    while (ok) {
        ssize_t n = ::read(in, buffer, kRawBufferSize);
        if (n <= 0)
            break;
        ok = ::write(out, buffer, static_cast<std::size_t>(n)) == n;
    }
    ::close(in);
    if (out >= 0)
        ::close(out);
    return ok;
}

bool rawCopyTreeAt(int fromParent, char const* fromName, int toParent, char const* toName, char* buffer)
{
    if (::mkdirat(toParent, toName, 0777) != 0)
        return false;
    int from = ::openat(fromParent, fromName, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    int to = ::openat(toParent, toName, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* stream = from >= 0 ? ::fdopendir(from) : nullptr;
    bool ok = stream != nullptr && to >= 0;
    while (ok) {
        dirent* entry = ::readdir(stream);
        if (entry == nullptr)
            break;
        if (isDotOrDotDot(entry->d_name))
            continue;
        ok = entry->d_type == DT_DIR ? rawCopyTreeAt(from, entry->d_name, to, entry->d_name, buffer)
                                     : rawCopyFileAt(from, entry->d_name, to, entry->d_name, buffer);
    }
    if (stream != nullptr)
        ::closedir(stream);
    else if (from >= 0)
        ::close(from);
    if (to >= 0)
        ::close(to);
    return ok;
}

std::vector<std::pair<std::string, unsigned char>> rawList(int directory)
{
    std::vector<std::pair<std::string, unsigned char>> names;
    int fd = ::dup(directory);
    DIR* stream = ::fdopendir(fd);
    ::rewinddir(stream);
    while (dirent* entry = ::readdir(stream)) {
        if (!isDotOrDotDot(entry->d_name))
            names.emplace_back(entry->d_name, entry->d_type);
    }
    ::closedir(stream);
    std::sort(names.begin(), names.end());
    return names;
}

bool rawCompareOpen(int a, int b, std::vector<char>& bufferA, std::vector<char>& bufferB)
{
    for (;;) {
        ssize_t const na = ::read(a, bufferA.data(), bufferA.size());
        ssize_t const nb = ::read(b, bufferB.data(), bufferB.size());
        if (na != nb)
            return false;
        if (na <= 0)
            return true;
        if (std::memcmp(bufferA.data(), bufferB.data(), static_cast<std::size_t>(na)) != 0)
            return false;
    }
}

bool rawCompareTrees(int a, int b, std::vector<char>& bufferA, std::vector<char>& bufferB)
{
    auto const namesA = rawList(a);
    auto const namesB = rawList(b);
    if (namesA.size() != namesB.size())
        return false;
    for (std::size_t i = 0; i < namesA.size(); ++i) {
        if (namesA[i].first != namesB[i].first || namesA[i].second != namesB[i].second)
            return false;
        char const* name = namesA[i].first.c_str();
        bool same;
        if (namesA[i].second == DT_DIR) {
            int subA = ::openat(a, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            int subB = ::openat(b, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            same = rawCompareTrees(subA, subB, bufferA, bufferB);
            ::close(subA);
            ::close(subB);
        } else {
            int fileA = ::openat(a, name, O_RDONLY | O_CLOEXEC);
            int fileB = ::openat(b, name, O_RDONLY | O_CLOEXEC);
            same = rawCompareOpen(fileA, fileB, bufferA, bufferB);
            ::close(fileA);
            ::close(fileB);
        }
        if (!same)
            return false;
    }
    return true;
}

/// Runs a command found in PATH and waits for it. @returns its exit status.
int runCommand(std::vector<std::string> const& arguments)
{
    std::vector<char*> argv;
    for (std::string const& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t child;
    if (::posix_spawnp(&child, argv[0], nullptr, nullptr, argv.data(), environ) != 0)
        return -1;
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void fail(benchmark::State& state, char const* what)
{
    state.SkipWithError(what);
}

// ---- removeAll of 20,000 files in 200 directories ---------------------------------

template <typename Remove>
void removeTreeBenchmark(benchmark::State& state, Remove remove)
{
    std::string const tree = benchRoot() + "/remove";
    for (auto _ : state) {
        state.PauseTiming();
        buildTree(tree, 0);
        state.ResumeTiming();
        if (!remove(tree)) {
            fail(state, "the tree was not removed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * kTreeFiles);
}

void removeAllKelvo(benchmark::State& state)
{
    removeTreeBenchmark(state, [](std::string const& tree) { return fs::removeAll(Path(tree)); });
}
void removeAllRaw(benchmark::State& state)
{
    removeTreeBenchmark(state, [](std::string const& tree) { return rawRemoveAt(AT_FDCWD, tree.c_str()); });
}
void removeAllStd(benchmark::State& state)
{
    removeTreeBenchmark(state, [](std::string const& tree) {
        std::error_code error;
        return std::filesystem::remove_all(tree, error) == kTreeFiles + kDirectories + 1 && !error;
    });
}
void removeAllTool(benchmark::State& state)
{
    removeTreeBenchmark(state, [](std::string const& tree) {
        return runCommand({"rm", "-rf", tree}) == 0 && ::access(tree.c_str(), F_OK) != 0;
    });
}

// ---- copyDirectory of 20,000 files of 4 KiB -----------------------------------------

std::string const& copySource()
{
    static std::string const source = [] {
        std::string path = benchRoot() + "/copy-source";
        buildTree(path, kSmallFileSize);
        return path;
    }();
    return source;
}

template <typename Copy>
void copyTreeBenchmark(benchmark::State& state, Copy copy)
{
    std::string const& source = copySource();
    std::string const destination = benchRoot() + "/copy-destination";
    for (auto _ : state) {
        if (!copy(source, destination)) {
            fail(state, "the tree was not copied");
            break;
        }
        state.PauseTiming();
        rawRemoveAt(AT_FDCWD, destination.c_str());
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kTreeFiles);
}

void copyDirectoryKelvo(benchmark::State& state)
{
    copyTreeBenchmark(state, [](std::string const& from, std::string const& to) {
        return fs::copyDirectory(Path(from), Path(to), true);
    });
}
void copyDirectoryRaw(benchmark::State& state)
{
    std::unique_ptr<char[]> buffer(new char[kRawBufferSize]);
    copyTreeBenchmark(state, [&](std::string const& from, std::string const& to) {
        return rawCopyTreeAt(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), buffer.get());
    });
}
void copyDirectoryStd(benchmark::State& state)
{
    copyTreeBenchmark(state, [](std::string const& from, std::string const& to) {
        std::error_code error;
        std::filesystem::copy(from, to, std::filesystem::copy_options::recursive, error);
        return !error;
    });
}
void copyDirectoryTool(benchmark::State& state)
{
    copyTreeBenchmark(state, [](std::string const& from, std::string const& to) {
        return runCommand({"cp", "-r", from, to}) == 0;
    });
}

// ---- copyFile of 256 MiB -------------------------------------------------------------

/// Two equal files of 256 MiB, written once.
std::pair<std::string, std::string> const& largeFiles()
{
    static std::pair<std::string, std::string> const files = [] {
        std::pair<std::string, std::string> paths(benchRoot() + "/large-a", benchRoot() + "/large-b");
        std::string content(kLargeFileSize, '\0');
        for (std::size_t i = 0; i < content.size(); ++i)
            content[i] = static_cast<char>((i * 131) >> 7);
        writeFileOrDie(paths.first, content);
        writeFileOrDie(paths.second, content);
        return paths;
    }();
    return files;
}

template <typename Copy>
void copyFileBenchmark(benchmark::State& state, Copy copy)
{
    std::string const& source = largeFiles().first;
    std::string const destination = benchRoot() + "/large-copy";
    for (auto _ : state) {
        if (!copy(source, destination)) {
            fail(state, "the file was not copied");
            break;
        }
        state.PauseTiming();
        ::unlink(destination.c_str());
        state.ResumeTiming();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kLargeFileSize));
}

void copyFileKelvo(benchmark::State& state)
{
    copyFileBenchmark(state, [](std::string const& from, std::string const& to) {
        return fs::copyFile(Path(from), Path(to), true);
    });
}
void copyFileRaw(benchmark::State& state)
{
    std::unique_ptr<char[]> buffer(new char[kRawBufferSize]);
    copyFileBenchmark(state, [&](std::string const& from, std::string const& to) {
        return rawCopyFileAt(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), buffer.get());
    });
}
void copyFileStd(benchmark::State& state)
{
    copyFileBenchmark(state, [](std::string const& from, std::string const& to) {
        std::error_code error;
        return std::filesystem::copy_file(from, to, error) && !error;
    });
}
void copyFileTool(benchmark::State& state)
{
    copyFileBenchmark(state, [](std::string const& from, std::string const& to) {
        return runCommand({"cp", from, to}) == 0;
    });
}

// ---- compareFiles of two equal 256 MiB files --------------------------------------------

template <typename Compare>
void compareFilesBenchmark(benchmark::State& state, Compare compare)
{
    std::string const& a = largeFiles().first;
    std::string const& b = largeFiles().second;
    for (auto _ : state) {
        if (!compare(a, b)) {
            fail(state, "the files did not compare equal");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kLargeFileSize));
}

void compareFilesKelvo(benchmark::State& state)
{
    compareFilesBenchmark(state, [](std::string const& a, std::string const& b) {
        return fs::compareFiles(Path(a), Path(b));
    });
}
void compareFilesRaw(benchmark::State& state)
{
    std::vector<char> bufferA(kRawBufferSize * 4);
    std::vector<char> bufferB(kRawBufferSize * 4);
    compareFilesBenchmark(state, [&](std::string const& a, std::string const& b) {
        int fa = ::open(a.c_str(), O_RDONLY | O_CLOEXEC);
        int fb = ::open(b.c_str(), O_RDONLY | O_CLOEXEC);
        bool const same = rawCompareOpen(fa, fb, bufferA, bufferB);
        ::close(fa);
        ::close(fb);
        return same;
    });
}
void compareFilesTool(benchmark::State& state)
{
    compareFilesBenchmark(state, [](std::string const& a, std::string const& b) {
        return runCommand({"cmp", "-s", a, b}) == 0;
    });
}

// ---- compareDirectories of a 20,000-file tree and its copy -----------------------------------

std::string const& compareCopy()
{
    static std::string const copy = [] {
        std::string path = benchRoot() + "/compare-copy";
        std::unique_ptr<char[]> buffer(new char[kRawBufferSize]);
        rawCopyTreeAt(AT_FDCWD, copySource().c_str(), AT_FDCWD, path.c_str(), buffer.get());
        return path;
    }();
    return copy;
}

void compareDirectoriesKelvo(benchmark::State& state)
{
    std::string const& a = copySource();
    std::string const& b = compareCopy();
    for (auto _ : state) {
        if (!fs::compareDirectories(Path(a), Path(b))) {
            fail(state, "the trees did not compare equal");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * kTreeFiles);
}
void compareDirectoriesRaw(benchmark::State& state)
{
    std::string const& a = copySource();
    std::string const& b = compareCopy();
    std::vector<char> bufferA(kSmallFileSize + 1);
    std::vector<char> bufferB(kSmallFileSize + 1);
    for (auto _ : state) {
        int fa = ::open(a.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        int fb = ::open(b.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        bool const same = rawCompareTrees(fa, fb, bufferA, bufferB);
        ::close(fa);
        ::close(fb);
        if (!same) {
            fail(state, "the trees did not compare equal");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * kTreeFiles);
}
void compareDirectoriesTool(benchmark::State& state)
{
    std::string const& a = copySource();
    std::string const& b = compareCopy();
    for (auto _ : state) {
        if (runCommand({"diff", "-r", "-q", a, b}) != 0) {
            fail(state, "the trees did not compare equal");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * kTreeFiles);
}

// ---- forEachMatching beside the listing it is built on ---------------------------------------

std::string const& matchingDirectory()
{
    static std::string const directory = [] {
        std::string path = benchRoot() + "/matching";
        ::mkdir(path.c_str(), 0777);
        for (int i = 0; i < 10000; ++i)
            writeFileOrDie(path + "/entry" + std::to_string(i) + (i % 10 == 0 ? ".tmp" : ".dat"), "");
        return path;
    }();
    return directory;
}

void forEachMatchingKelvo(benchmark::State& state)
{
    Path const directory(matchingDirectory());
    kelvo::unicode::String const pattern("*.tmp");
    for (auto _ : state) {
        std::size_t matched = 0;
        fs::forEachMatching(directory, pattern, [&](Path const&) {
            ++matched;
            return true;
        });
        if (matched != 1000) {
            fail(state, "wrong number of matches");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * 10000);
}
// The listing alone: forEach with an action that matches nothing.
void forEachMatchingRaw(benchmark::State& state)
{
    Path const directory(matchingDirectory());
    for (auto _ : state) {
        std::size_t seen = 0;
        fs::forEach(directory, [&](Path const&) {
            ++seen;
            return true;
        });
        if (seen != 10000) {
            fail(state, "wrong number of entries");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * 10000);
}
void forEachMatchingStd(benchmark::State& state)
{
    std::regex const pattern(".*\\.tmp");
    for (auto _ : state) {
        std::size_t matched = 0;
        for (auto const& entry : std::filesystem::directory_iterator(matchingDirectory())) {
            (void)entry.status();
            if (std::regex_match(entry.path().filename().string(), pattern))
                ++matched;
        }
        if (matched != 1000) {
            fail(state, "wrong number of matches");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * 10000);
}

// Whole-tree benchmarks take long enough that a few iterations say it all.
#define KELVO_TREE_BENCHMARK(name, function) \
    BENCHMARK(function)->Name(name)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(3)

KELVO_TREE_BENCHMARK("ops/remove_all/20000/kelvo", removeAllKelvo);
KELVO_TREE_BENCHMARK("ops/remove_all/20000/raw", removeAllRaw);
KELVO_TREE_BENCHMARK("ops/remove_all/20000/std", removeAllStd);
KELVO_TREE_BENCHMARK("ops/remove_all/20000/tool", removeAllTool);
KELVO_TREE_BENCHMARK("ops/copy_directory/20000/kelvo", copyDirectoryKelvo);
KELVO_TREE_BENCHMARK("ops/copy_directory/20000/raw", copyDirectoryRaw);
KELVO_TREE_BENCHMARK("ops/copy_directory/20000/std", copyDirectoryStd);
KELVO_TREE_BENCHMARK("ops/copy_directory/20000/tool", copyDirectoryTool);
KELVO_TREE_BENCHMARK("ops/copy_file/256MiB/kelvo", copyFileKelvo);
KELVO_TREE_BENCHMARK("ops/copy_file/256MiB/raw", copyFileRaw);
KELVO_TREE_BENCHMARK("ops/copy_file/256MiB/std", copyFileStd);
KELVO_TREE_BENCHMARK("ops/copy_file/256MiB/tool", copyFileTool);
KELVO_TREE_BENCHMARK("ops/compare_files/256MiB/kelvo", compareFilesKelvo);
KELVO_TREE_BENCHMARK("ops/compare_files/256MiB/raw", compareFilesRaw);
KELVO_TREE_BENCHMARK("ops/compare_files/256MiB/tool", compareFilesTool);
KELVO_TREE_BENCHMARK("ops/compare_directories/20000/kelvo", compareDirectoriesKelvo);
KELVO_TREE_BENCHMARK("ops/compare_directories/20000/raw", compareDirectoriesRaw);
KELVO_TREE_BENCHMARK("ops/compare_directories/20000/tool", compareDirectoriesTool);
BENCHMARK(forEachMatchingKelvo)->Name("ops/for_each_matching/10000/kelvo")->Unit(benchmark::kMillisecond);
BENCHMARK(forEachMatchingRaw)->Name("ops/for_each_matching/10000/raw")->Unit(benchmark::kMillisecond);
BENCHMARK(forEachMatchingStd)->Name("ops/for_each_matching/10000/std")->Unit(benchmark::kMillisecond);

/// Makes the benchmark directory at start-up and removes it when the program
/// ends (the directory's name, made first, is destroyed last).
struct RootRemover {
    RootRemover() { benchRoot(); }
    ~RootRemover()
    {
        if (!benchRoot().empty())
            rawRemoveAt(AT_FDCWD, benchRoot().c_str());
    }
} const rootRemover;

} // namespace
