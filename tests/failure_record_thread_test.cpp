// Tests of the failure record: what lastFailure names after a status, a removal, a copy and a comparison fail, that clearing empties it, and that each thread keeps its own.
#include <kelvo/filesystem.h>
#include <kelvo/filesystem/Failure.h>

#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>
#include <thread>

#include <sys/stat.h>

namespace {

using kelvo::filesystem::Failure;
using kelvo::filesystem::Path;
using namespace kelvo::testing;
namespace fs = kelvo::filesystem;

class FailureRecord : public ScratchDirectory {
protected:
    void SetUp() override
    {
        ScratchDirectory::SetUp();
        fs::clearLastFailure();
    }

    void makeDirectory(std::string const& name, mode_t mode = 0755)
    {
        ASSERT_EQ(::mkdir(at(name).c_str(), 0755), 0) << name;
        ASSERT_EQ(::chmod(at(name).c_str(), mode), 0) << name;
    }

    // Opens the scratch directory to an unprivileged child.
    void openScratchToOthers() { ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0); }

    // @returns 0 when `failure` names `error`, `call` and `path`; else says
    // on the standard error what it holds and returns `code`.
    static int expectRecord(Failure const& failure, int error, char const* call, std::string const& path, int code)
    {
        if (failure.error == std::error_code(error, std::generic_category()) && failure.call == call
            && failure.path.nativeString() == path)
            return 0;
        std::fprintf(stderr, "record: error %d (%s), call \"%s\", path \"%s\"\n", failure.error.value(),
                     failure.error.message().c_str(), failure.call.c_str(), failure.path.nativeString().c_str());
        return code;
    }
};

TEST_F(FailureRecord, IsEmptyBeforeAnythingFails)
{
    Failure const failure = fs::lastFailure();
    EXPECT_FALSE(failure);
    EXPECT_FALSE(failure.error);
    EXPECT_TRUE(failure.call.empty());
    EXPECT_TRUE(failure.path.empty());
}

TEST_F(FailureRecord, ExistsOfAMissingPathRecordsNoSuchFileFromStat)
{
    EXPECT_FALSE(fs::exists(Path(at("missing"))));
    Failure const failure = fs::lastFailure();
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure.error, std::error_code(ENOENT, std::generic_category()));
    EXPECT_EQ(failure.error.message(), "No such file or directory");
    EXPECT_EQ(failure.call, "stat");
    EXPECT_EQ(failure.path.nativeString(), at("missing"));
}

TEST_F(FailureRecord, FailingCallLeavesErrnoAsTheCallSetIt)
{
    errno = 0;
    EXPECT_FALSE(fs::exists(Path(at("missing"))));
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(FailureRecord, SuccessDoesNotClearTheRecord)
{
    EXPECT_FALSE(fs::exists(Path(at("missing"))));
    EXPECT_TRUE(fs::exists(Path(scratch)));
    EXPECT_EQ(fs::lastFailure().path.nativeString(), at("missing"));
}

TEST_F(FailureRecord, ClearLastFailureEmptiesTheRecord)
{
    EXPECT_FALSE(fs::exists(Path(at("missing"))));
    ASSERT_TRUE(fs::lastFailure());
    fs::clearLastFailure();
    Failure const failure = fs::lastFailure();
    EXPECT_FALSE(failure);
    EXPECT_TRUE(failure.call.empty());
    EXPECT_TRUE(failure.path.empty());
}

TEST_F(FailureRecord, RemoveAllNamesTheDeepEntryItCouldNotUnlink)
{
    openScratchToOthers();
    makeDirectory("a");
    makeDirectory("a/b");
    makeDirectory("a/b/locked");
    writeFile("a/b/locked/f", "f");
    ASSERT_EQ(::chmod(at("a/b/locked").c_str(), 0555), 0);
    ASSERT_EQ(::chmod(at("a/b").c_str(), 0777), 0);
    ASSERT_EQ(::chmod(at("a").c_str(), 0777), 0);
    std::string const top = at("a");
    std::string const deep = at("a/b/locked/f");
    int const result = runUnprivileged([&] {
        fs::clearLastFailure();
        if (fs::removeAll(Path(top)))
            return 1;
        Failure const failure = fs::lastFailure();
        if (failure.error.message() != "Permission denied")
            return 2;
        return expectRecord(failure, EACCES, "unlinkat", deep, 3);
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(existsByDirectProbe(deep));
}

TEST_F(FailureRecord, CopyDirectoryNamesTheDeepDirectoryItCouldNotOpen)
{
    openScratchToOthers();
    makeDirectory("from");
    makeDirectory("from/x");
    makeDirectory("from/x/hidden");
    writeFile("from/x/hidden/f", "f");
    ASSERT_EQ(::chmod(at("from/x/hidden").c_str(), 0), 0);
    makeDirectory("to", 0777);
    std::string const from = at("from");
    std::string const to = at("to/copy");
    std::string const hidden = at("from/x/hidden");
    int const result = runUnprivileged([&] {
        fs::clearLastFailure();
        // A directory that cannot be listed is copied as an empty one.
        (void)fs::copyDirectory(Path(from), Path(to), true);
        return expectRecord(fs::lastFailure(), EACCES, "openat", hidden, 1);
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    EXPECT_EQ(result, 0);
}

TEST_F(FailureRecord, CompareFilesNamesTheFileItCouldNotOpen)
{
    openScratchToOthers();
    writeFile("a", "same");
    writeFile("b", "same");
    ASSERT_EQ(::chmod(at("a").c_str(), 0), 0);
    std::string const a = at("a");
    std::string const b = at("b");
    int const result = runUnprivileged([&] {
        fs::clearLastFailure();
        // Kept: a file that cannot be opened compares as equal.
        if (!fs::compareFiles(Path(a), Path(b)))
            return 1;
        return expectRecord(fs::lastFailure(), EACCES, "openat", a, 2);
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    EXPECT_EQ(result, 0);
}

TEST_F(FailureRecord, CompareDirectoriesNamesTheDeepFileItCouldNotOpen)
{
    openScratchToOthers();
    for (char const* side : {"one", "two"}) {
        makeDirectory(side);
        makeDirectory(std::string(side) + "/sub");
        writeFile(std::string(side) + "/sub/f", "same");
    }
    ASSERT_EQ(::chmod(at("two/sub/f").c_str(), 0), 0);
    std::string const one = at("one");
    std::string const two = at("two");
    std::string const unopened = at("two/sub/f");
    int const result = runUnprivileged([&] {
        fs::clearLastFailure();
        (void)fs::compareDirectories(Path(one), Path(two));
        return expectRecord(fs::lastFailure(), EACCES, "openat", unopened, 1);
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    EXPECT_EQ(result, 0);
}

TEST_F(FailureRecord, EachThreadSeesItsOwnFailure)
{
    constexpr int kRounds = 200;
    std::atomic<int> ready{0};
    std::atomic<int> mismatches{0};
    auto const body = [&](std::string const& missing) {
        ready.fetch_add(1);
        while (ready.load() < 2) {
        }
        for (int round = 0; round < kRounds; ++round) {
            fs::clearLastFailure();
            if (fs::exists(Path(missing)))
                mismatches.fetch_add(1);
            Failure const failure = fs::lastFailure();
            if (failure.path.nativeString() != missing || failure.call != "stat"
                || failure.error != std::error_code(ENOENT, std::generic_category()))
                mismatches.fetch_add(1);
        }
    };
    std::string const first = at("first-missing");
    std::string const second = at("second/missing");
    std::thread one(body, first);
    std::thread two(body, second);
    one.join();
    two.join();
    EXPECT_EQ(mismatches.load(), 0);
    // This thread made no failing call: its record is still empty.
    EXPECT_FALSE(fs::lastFailure());
}

} // namespace
