// Tests that a failed allocation inside the path transformations comes out as std::bad_alloc, leaks nothing and leaves a corrected path untouched.
#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>

#include "support/AllocationFailure.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>
#include <thread>

#include <sys/stat.h>

namespace {

using kelvo::filesystem::Path;
using kelvo::testing::allocationsUntilFailure;
using kelvo::unicode::String;
namespace fs = kelvo::filesystem;

// Fails every allocation of `operation` in turn, each run on a thread of its
// own so that it starts and ends without texts or patterns kept for reuse.
// @returns the number of runs that failed.
template <typename Operation>
long failEveryAllocationOf(char const* what, Operation operation)
{
    return kelvo::testing::failEveryAllocationOf(what, operation, 100000);
}

class TransformAllocationFailure : public kelvo::testing::ScratchDirectory {};

TEST_F(TransformAllocationFailure, DotResolutionAndCompletion)
{
    ASSERT_EQ(::mkdir(at("d").c_str(), 0777), 0);
    ASSERT_EQ(::symlink(at("d").c_str(), at("l").c_str()), 0);
    std::string const link = at("l");
    EXPECT_GT(failEveryAllocationOf("canonical", [&] { Path const p = fs::canonical(Path(link)); }), 0);
    EXPECT_GT(failEveryAllocationOf("resolveDots", [&] { Path const p = fs::resolveDots(Path(link + "/x/../y/.")); }), 3);
    failEveryAllocationOf("complete", [] { Path const p = fs::complete(Path("a/b"), Path("/base")); });
    failEveryAllocationOf("systemComplete", [] { Path const p = fs::systemComplete(Path("a/b")); });
}

TEST_F(TransformAllocationFailure, LengthChecks)
{
    std::string const path = at("new/deeper/name");
    EXPECT_GT(failEveryAllocationOf("isValidPathLength", [&] { (void)fs::isValidPathLength(Path(path)); }), 2);
    EXPECT_GT(failEveryAllocationOf("isValidDirectoryPathLength",
                                    [&] { (void)fs::isValidDirectoryPathLength(Path(path)); }), 2);
    failEveryAllocationOf("getMaxNativeStringNameLength",
                          [&] { (void)fs::getMaxNativeStringNameLength(Path(path)); });
}

TEST_F(TransformAllocationFailure, NamesAndElision)
{
    ASSERT_EQ(::close(::open(at("REPORT.TXT").c_str(), O_WRONLY | O_CREAT, 0644)), 0);
    std::string const report = at("report.txt");
    failEveryAllocationOf("sanitize", [] { Path const p = fs::sanitize(Path("/tmp/a+b/c:d \xC3\xA9.txt")); });
    EXPECT_GT(failEveryAllocationOf("toDos8Dot3", [&] { Path const p = fs::toDos8Dot3(Path(report)); }), 2);
    failEveryAllocationOf("generateElidedPath", [] {
        String const s = fs::generateElidedPath(Path("/first/second/third/fourth/last"), 20, String(U"\u2026"));
    });
}

TEST_F(TransformAllocationFailure, GlobMatching)
{
    // A direct pattern, a compiled expression, and both again from the cache.
    failEveryAllocationOf("direct", [] { (void)fs::matchesGlobPattern(Path("kelvo-1.tmp"), String(U"*.tmp")); });
    EXPECT_GT(failEveryAllocationOf("expression",
                                    [] { (void)fs::matchesGlobPattern(Path("kelvo-1.tmp"), String(U"[a-z]*.tmp")); }),
              2);
    failEveryAllocationOf("cached", [] {
        for (int i = 0; i < 3; ++i) {
            (void)fs::matchesGlobPattern(Path("a.tmp"), String(U"(a|b)*.tmp"));
            (void)fs::matchesGlobPattern(Path("a.tmp"), String(U"*.tmp"));
        }
    });
}

TEST_F(TransformAllocationFailure, CorrectionLeavesThePathAsItWas)
{
    ASSERT_EQ(::mkdir(at("Data").c_str(), 0777), 0);
    ASSERT_EQ(::close(::open(at("Data/README.txt").c_str(), O_WRONLY | O_CREAT, 0644)), 0);
    std::string const typed = at("data/readme.TXT");
    EXPECT_GT(failEveryAllocationOf("findSimilarName", [&] { Path const p = fs::findSimilarName(Path(typed), true); }),
              3);
    failEveryAllocationOf("correctFileCaseAndComposition", [&] {
        Path path(typed);
        try {
            (void)fs::correctFileCaseAndComposition(path, false);
        } catch (std::bad_alloc const&) {
            allocationsUntilFailure = -1;
            EXPECT_EQ(path.nativeString(), typed);
            throw;
        }
        EXPECT_EQ(path.nativeString(), at("Data/README.txt"));
    });
}

} // namespace
