// Tests of one Path shared read-only between threads: every const call may run at once, including the first making of a native form.
#include <kelvo/filesystem.h>

#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = kelvo::filesystem;
using fs::Path;
using kelvo::unicode::String;

// Under ThreadSanitizer each round is slow; fewer still show a race.
#if defined(__SANITIZE_THREAD__)
constexpr int kRounds = 20;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
constexpr int kRounds = 20;
#else
constexpr int kRounds = 100;
#endif
#else
constexpr int kRounds = 100;
#endif
constexpr int kThreads = 8;

// Starts `kThreads` threads at once on `body(thread)` and waits for them.
template <typename Body>
void runTogether(Body body)
{
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            ++ready;
            while (ready.load() < kThreads)
                std::this_thread::yield();
            body(t);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

class PathThreads : public kelvo::testing::ScratchDirectory {};

TEST_F(PathThreads, ManyThreadsQueryOneSharedPathMadeFromCodePoints)
{
    writeFile("R\xC3\xA9sum\xC3\xA9.txt", "shared");
    std::string const expected = at("R\xC3\xA9sum\xC3\xA9.txt");
    std::atomic<int> wrong{0};
    for (int round = 0; round < kRounds; ++round) {
        // Made from code points: its native form is made by the first call
        // that needs it, on whichever thread that is.
        Path const shared(Path(at("Re\xCC\x81sume\xCC\x81.txt")).string());
        runTogether([&](int t) {
            switch (t % 4) {
            case 0:
                wrong += shared.nativeString() == expected ? 0 : 1;
                break;
            case 1:
                wrong += fs::exists(shared) ? 0 : 1;
                break;
            case 2:
                wrong += fs::status(shared).getType() == fs::FileType::regularFile ? 0 : 1;
                break;
            default:
                wrong += fs::fileSize(shared) == 6 ? 0 : 1;
                break;
            }
            wrong += shared.filename().nativeString() == "R\xC3\xA9sum\xC3\xA9.txt" ? 0 : 1;
        });
    }
    EXPECT_EQ(wrong.load(), 0);
}

TEST_F(PathThreads, EveryConstCallOnASharedPathAtOnce)
{
    writeFile("na\xC3\xAFve.txt", "12345");
    std::atomic<int> wrong{0};
    for (int round = 0; round < kRounds; ++round) {
        Path const fromBytes(at("na\xC3\xAFve.txt"));
        Path const fromText(fromBytes.string());
        runTogether([&](int t) {
            Path const& shared = (t % 2 == 0) ? fromBytes : fromText;
            wrong += shared.nativeString() == at("na\xC3\xAFve.txt") ? 0 : 1;
            wrong += fs::exists(shared) ? 0 : 1;
            wrong += fs::fileSize(shared) == 5 ? 0 : 1;
            wrong += (shared == fromBytes && shared == fromText) ? 0 : 1;
            wrong += shared.parentPath().nativeString() == scratch ? 0 : 1;
            wrong += shared.extension().nativeString() == ".txt" ? 0 : 1;
            std::string rebuilt;
            for (Path const& element : shared)
                rebuilt += element.nativeString() == "/" ? "" : "/" + element.nativeString();
            wrong += rebuilt == at("na\xC3\xAFve.txt") ? 0 : 1;
            Path const joined = shared / Path("x");
            wrong += joined.nativeString() == at("na\xC3\xAFve.txt/x") ? 0 : 1;
            shared.clearCache();
            wrong += shared.string() == Path(String(U"/")).string() ? 1 : 0;
        });
    }
    EXPECT_EQ(wrong.load(), 0);
}

} // namespace
