// Tests of the library used from several threads at once: shared const paths, listings and locks (run under ThreadSanitizer too).
#include <kelvo/filesystem.h>
#include <kelvo/filesystem/private.h>

#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

using kelvo::filesystem::DirectoryEntry;
using kelvo::filesystem::DirectoryIterator;
using kelvo::filesystem::FileLock;
using kelvo::filesystem::Path;
using kelvo::unicode::String;

constexpr int kThreads = 4;

/// Paths long enough for the block comparison, with letter case and
/// composition differences, so that every branch of the comparison is taken.
std::vector<Path> samplePaths()
{
    std::vector<Path> paths;
    for (char const* text : {
             "/home/someone/Documents/Projects/2024/report-final.tar.gz",
             "/HOME/someone/documents/projects/2024/REPORT-final.tar.gz",
             "/home/someone/Documents/Projects/2024/report-finalx.tar.gz",
             "/home/zo\xC3\xA9/R\xC3\xA9sum\xC3\xA9s/curriculum-vitae-2024.pdf",
             "/home/zoe\xCC\x81/re\xCC\x81sume\xCC\x81s/CURRICULUM-vitae-2024.pdf",
             "//server/share/a/very/long/path/with/many/elements/inside/it.txt",
             "relative/path/without/a/root/but/long/enough/for/blocks/",
             "a", "", "/", "//", "///a", "x.d/f", ".bashrc",
         })
        paths.emplace_back(text);
    return paths;
}

/// Everything a const path answers without converting to its native form.
std::vector<String> answersFor(std::vector<Path> const& paths)
{
    std::vector<String> answers;
    for (Path const& a : paths) {
        answers.push_back(a.filename().string());
        answers.push_back(a.parentPath().string());
        answers.push_back(a.stem().string());
        answers.push_back(a.extension().string());
        answers.push_back(a.rootPath().string());
        answers.push_back(a.relativePath().string());
        String elements;
        for (Path const& element : a)
            elements += element.string() + U'|';
        answers.push_back(elements);
        for (Path const& b : paths) {
            String relation;
            relation.push_back(a == b ? U'=' : U'.');
            relation.push_back(a < b ? U'<' : U'.');
            relation.push_back(a > b ? U'>' : U'.');
            relation.push_back(kelvo_private::filesystem::compare(a.string(), b.string()) < 0 ? U'-' : U'+');
            answers.push_back(relation);
        }
    }
    return answers;
}

TEST(ThreadsTest, SharedConstPathsGiveEveryThreadTheSameAnswers)
{
    std::vector<Path> const paths = samplePaths();
    std::vector<std::vector<String>> seen(kThreads);
    {
        // The threads compare first: the comparison picks its block code on
        // its first use, here from several threads at once.
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&paths, &seen, t] {
                for (int round = 0; round < 3; ++round)
                    seen[static_cast<std::size_t>(t)] = answersFor(paths);
            });
        for (std::thread& thread : threads)
            thread.join();
    }
    std::vector<String> const expected = answersFor(paths);
    // A few answers fixed by hand, so that the comparison is not only with itself.
    EXPECT_TRUE(paths[0] == paths[1]);
    EXPECT_TRUE(paths[0] < paths[2]);
    EXPECT_TRUE(paths[3] == paths[4]);
    EXPECT_EQ(paths[5].rootPath().string(), String(U"//server/"));
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(seen[static_cast<std::size_t>(t)], expected) << "thread " << t;
}

class ThreadsOnDiskTest : public kelvo::testing::ScratchDirectory {};

TEST_F(ThreadsOnDiskTest, ListingsOfOneDirectoryOnSeveralThreadsAgree)
{
    std::set<std::string> expected;
    for (int i = 0; i < 40; ++i) {
        std::string const name = "file-" + std::to_string(i) + (i % 3 == 0 ? "-\xC3\xA9t\xC3\xA9" : "");
        writeFile(name, std::string(static_cast<std::size_t>(i), 'x'));
        expected.insert(name);
    }
    Path const directory(scratch);
    std::vector<std::set<std::string>> seen(kThreads);
    std::vector<int> listings(kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            // Each thread makes its own copy of the directory path, as paths
            // that may be converted are not shared.
            Path const mine(directory.string());
            for (int round = 0; round < 5; ++round) {
                std::set<std::string> names;
                for (DirectoryEntry const& entry : DirectoryIterator(mine))
                    names.insert(entry.getPath().filename().nativeString());
                seen[static_cast<std::size_t>(t)] = names;
                ++listings[static_cast<std::size_t>(t)];
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(listings[static_cast<std::size_t>(t)], 5);
        EXPECT_EQ(seen[static_cast<std::size_t>(t)], expected) << "thread " << t;
    }
}

TEST_F(ThreadsOnDiskTest, OneLockOfAFileIsHeldAtATimeAmongThreads)
{
    writeFile("contended");
    std::string const file = at("contended");
    std::atomic<int> holders{0};
    std::atomic<int> mostHolders{0};
    std::atomic<int> taken{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&] {
            Path const path(file);
            for (int attempt = 0; attempt < 200; ++attempt) {
                FileLock lock;
                if (!lock.lockFile(path))
                    continue;
                int const now = holders.fetch_add(1) + 1;
                int previous = mostHolders.load();
                while (now > previous && !mostHolders.compare_exchange_weak(previous, now)) {
                }
                taken.fetch_add(1);
                std::this_thread::yield();
                holders.fetch_sub(1);
                // Released by the destructor.
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(mostHolders.load(), 1);
    EXPECT_GT(taken.load(), 0);
    EXPECT_FALSE(FileLock::isFileLocked(Path(file)));
}

TEST_F(ThreadsOnDiskTest, LocksOfSeparateFilesOnSeparateThreadsAreAllTaken)
{
    for (int t = 0; t < kThreads; ++t)
        writeFile("file-" + std::to_string(t));
    std::vector<int> results(kThreads, -1);
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            Path const path(at("file-" + std::to_string(t)));
            FileLock lock;
            bool const locked = lock.lockFile(path);
            ready.fetch_add(1);
            while (ready.load() < kThreads)
                std::this_thread::yield();
            // Every file is held while every thread looks.
            bool const seenLocked = FileLock::isFileLocked(path);
            results[static_cast<std::size_t>(t)] = locked && seenLocked ? 1 : 0;
        });
    for (std::thread& thread : threads)
        thread.join();
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(results[static_cast<std::size_t>(t)], 1) << "thread " << t;
        EXPECT_FALSE(FileLock::isFileLocked(Path(at("file-" + std::to_string(t)))));
    }
}

} // namespace
