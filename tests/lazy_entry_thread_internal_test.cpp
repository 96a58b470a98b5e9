// Tests of one listed entry asked for its statuses by several threads at once: one status call for all, the same answers, and copies made meanwhile.
#include <kelvo/filesystem.h>

#include "filesystem/posix/SystemCalls.h"

#include "support/ScratchDirectory.h"

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::DirectoryEntry;
using kelvo::filesystem::DirectoryIterator;
using kelvo::filesystem::FileStatus;
using kelvo::filesystem::FileType;
using kelvo::filesystem::Path;
using namespace kelvo::testing;
namespace posix = kelvo::filesystem::posix;

std::atomic<int> statCalls{0};
std::atomic<int> lstatCalls{0};

// Each status call waits a little, so that the other threads meet the entry
// while its statuses are being taken.
int slowCountingStat(char const* path, struct stat* information)
{
    ++statCalls;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return posix::systemCallsOfTheSystem().stat(path, information);
}

int countingLstat(char const* path, struct stat* information)
{
    ++lstatCalls;
    return posix::systemCallsOfTheSystem().lstat(path, information);
}

struct Answers {
    FileStatus status;
    FileStatus symlinkStatus;
    FileType listedType;
};

Answers answersOf(DirectoryEntry const& entry)
{
    return Answers{entry.getStatus(), entry.getSymlinkStatus(), entry.getListedType()};
}

void expectSameAnswers(Answers const& a, Answers const& b)
{
    EXPECT_EQ(a.status, b.status);
    EXPECT_EQ(a.symlinkStatus, b.symlinkStatus);
    EXPECT_EQ(a.listedType, b.listedType);
}

class LazyEntryThreads : public ScratchDirectory {
protected:
    void SetUp() override
    {
        ScratchDirectory::SetUp();
        statCalls = 0;
        lstatCalls = 0;
    }
    void TearDown() override
    {
        posix::systemCalls() = posix::systemCallsOfTheSystem();
        ScratchDirectory::TearDown();
    }
};

TEST_F(LazyEntryThreads, ThreadsAskingOneEntryAtOnceShareOneStatusCall)
{
    ASSERT_EQ(::mkdir(at("dir").c_str(), 0777), 0);
    ASSERT_EQ(::symlink("..", at("dir/link").c_str()), 0);
    DirectoryIterator const it{Path(at("dir"))};
    ASSERT_TRUE(it != DirectoryIterator());
    DirectoryEntry const& entry = *it;
    posix::systemCalls().stat = slowCountingStat;
    posix::systemCalls().lstat = countingLstat;
    constexpr int kThreads = 8;
    std::atomic<int> ready{0};
    std::vector<Answers> answers(kThreads);
    std::vector<DirectoryEntry> copies(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            ++ready;
            while (ready < kThreads)
                std::this_thread::yield();
            auto const index = static_cast<std::size_t>(i);
            if (i % 2 == 0) {
                answers[index] = answersOf(entry);
                copies[index] = entry;
            } else {
                copies[index] = entry;
                answers[index] = answersOf(entry);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(statCalls, 1);
    EXPECT_EQ(lstatCalls, 1);
    for (Answers const& answer : answers) {
        expectSameAnswers(answer, answers.front());
        EXPECT_EQ(answer.status.getType(), FileType::directory);
        EXPECT_EQ(answer.symlinkStatus.getType(), FileType::symbolicLink);
        EXPECT_EQ(answer.listedType, FileType::symbolicLink);
    }
    // A copy made while the statuses were being taken waited for them, and
    // one made before takes its own: each gives the same answers.
    for (DirectoryEntry const& copy : copies)
        expectSameAnswers(answersOf(copy), answers.front());
}

} // namespace
