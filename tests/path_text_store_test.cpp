// Tests of the per-thread reuse of path texts: values stay right, threads stay apart, and nothing outlives its thread.
#include <kelvo/filesystem/Path.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using kelvo::filesystem::Path;
using kelvo::unicode::String;

TEST(PathTextStore, RecycledTextsStartEmpty)
{
    // Texts given back by destroyed paths come back to new ones: none may
    // carry anything over.
    for (int round = 0; round < 100; ++round) {
        {
            Path const long1(std::string(300, 'x'));
            Path const name = Path("/a/b/c.txt").filename();
            EXPECT_EQ(name.string(), String(U"c.txt"));
        }
        Path const parent = Path("/q/r").parentPath();
        EXPECT_EQ(parent.string(), String(U"/q"));
        Path const joined = Path("u") / Path("v");
        EXPECT_EQ(joined.string(), String(U"u/v"));
        Path appended;
        appended.appendSeparator();
        EXPECT_EQ(appended.string(), String(U"/"));
    }
}

TEST(PathTextStore, ManyThreadsMakeAndDropPathsOnTheirOwn)
{
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([t, &wrong] {
            std::string const base = "/thread" + std::to_string(t) + "/R\xC3\xA9sum\xC3\xA9";
            for (int i = 0; i < 2000; ++i) {
                Path const p(base + "/" + std::to_string(i) + ".txt");
                Path const name = p.filename();
                Path const parent = p.parentPath();
                if (name.string() != String(std::to_string(i) + ".txt") || parent != Path(base))
                    ++wrong;
                for (Path const& element : p)
                    if (element.empty())
                        ++wrong;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong.load(), 0);
}

TEST(PathTextStore, PathsLivingUntilTheirThreadEndsAreFreed)
{
    // A thread-local path outlives the thread's store of texts: it must still
    // be freed, not stored (the leak checker of the sanitizer build watches).
    std::thread([] {
        thread_local Path lastToGo;
        Path const name = Path("/x/y/z").filename();
        lastToGo = Path("/kept/until/the/end");
        EXPECT_EQ(name.string(), String(U"z"));
    }).join();
    std::thread([] {
        thread_local Path firstMade("/made/before/any/store");
        Path const other = firstMade.parentPath();
        EXPECT_EQ(other.string(), String(U"/made/before/any"));
    }).join();
}

TEST(PathTextStore, PathsMovedBetweenThreadsAreReleasedWhereTheyEnd)
{
    std::vector<Path> made(100);
    std::thread([&made] {
        for (std::size_t i = 0; i < made.size(); ++i)
            made[i] = Path("/from/worker/" + std::to_string(i));
    }).join();
    for (std::size_t i = 0; i < made.size(); ++i)
        EXPECT_EQ(made[i].string(), String("/from/worker/" + std::to_string(i)));
    made.clear();
    Path const after = Path("/a/b").filename();
    EXPECT_EQ(after.string(), String(U"b"));
}

} // namespace
