// Conformance tests of the path transformations through the public umbrella header only: exact signatures, every worked example and edge case of dot resolution, completion, length limits, sanitised and 8.3 names, elision, glob matching and name correction.
#include <kelvo/filesystem.h>

#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <deque>
#include <random>
#include <locale>
#include <stdexcept>
#include <regex>
#include <string>
#include <type_traits>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::Path;
using kelvo::unicode::String;
namespace fs = kelvo::filesystem;

// ---------------------------------------------------------------------------
// Exact public signatures, namespaces included.

static_assert(std::is_same_v<decltype(static_cast<Path (*)(Path const&)>(&fs::canonical)), Path (*)(Path const&)>);
static_assert(std::is_same_v<decltype(fs::canonical(std::declval<Path const&>())), Path>);
static_assert(std::is_same_v<decltype(fs::resolveDots(std::declval<Path const&>())), Path>);
static_assert(std::is_same_v<decltype(fs::complete(std::declval<Path const&>(), std::declval<Path const&>())), Path>);
static_assert(std::is_same_v<decltype(fs::systemComplete(std::declval<Path const&>())), Path>);
static_assert(std::is_same_v<decltype(fs::setUseLongPathNames(true)), void>);
static_assert(std::is_same_v<decltype(fs::getMaxNativeStringPathLength()), std::int32_t>);
static_assert(std::is_same_v<decltype(fs::getMaxNativeStringDirectoryLength()), std::int32_t>);
static_assert(std::is_same_v<decltype(fs::getMaxNativeStringNameLength(std::declval<Path const&>())), std::int32_t>);
static_assert(std::is_same_v<decltype(fs::isValidPathLengthC(std::declval<Path const&>(), true, false)), bool>);
static_assert(std::is_same_v<decltype(fs::isValidPathLength(std::declval<Path const&>())), bool>);
static_assert(std::is_same_v<decltype(fs::isValidDirectoryPathLength(std::declval<Path const&>())), bool>);
static_assert(std::is_same_v<decltype(fs::sanitize(std::declval<Path const&>())), Path>);
static_assert(std::is_same_v<decltype(fs::toDos8Dot3(std::declval<Path const&>())), Path>);
static_assert(std::is_same_v<decltype(fs::generateElidedPath(std::declval<Path const&>(), 1ul, std::declval<String const&>())),
    String>);
static_assert(std::is_same_v<decltype(fs::matchesGlobPattern(std::declval<Path const&>(), std::declval<String const&>())),
    bool>);
static_assert(std::is_same_v<decltype(fs::findSimilarName(std::declval<Path const&>(), true)), Path>);
static_assert(std::is_same_v<decltype(fs::correctFileCaseAndComposition(std::declval<Path&>(), true)), bool>);

// Every function is reachable with exactly the parameter list it is declared with.
[[maybe_unused]] Path (*const kCanonical)(Path const&) = &fs::canonical;
[[maybe_unused]] Path (*const kResolveDots)(Path const&) = &fs::resolveDots;
[[maybe_unused]] Path (*const kComplete)(Path const&, Path const&) = &fs::complete;
[[maybe_unused]] Path (*const kSystemComplete)(Path const&) = &fs::systemComplete;
[[maybe_unused]] void (*const kSetUseLongPathNames)(bool) = &fs::setUseLongPathNames;
[[maybe_unused]] std::int32_t (*const kPathLength)() = &fs::getMaxNativeStringPathLength;
[[maybe_unused]] std::int32_t (*const kDirectoryLength)() = &fs::getMaxNativeStringDirectoryLength;
[[maybe_unused]] std::int32_t (*const kNameLength)(Path const&) = &fs::getMaxNativeStringNameLength;
[[maybe_unused]] bool (*const kIsValidPathLengthC)(Path const&, bool, bool) = &fs::isValidPathLengthC;
[[maybe_unused]] bool (*const kIsValidPathLength)(Path const&) = &fs::isValidPathLength;
[[maybe_unused]] bool (*const kIsValidDirectoryPathLength)(Path const&) = &fs::isValidDirectoryPathLength;
[[maybe_unused]] Path (*const kSanitize)(Path const&) = &fs::sanitize;
[[maybe_unused]] Path (*const kToDos8Dot3)(Path const&) = &fs::toDos8Dot3;
[[maybe_unused]] String (*const kGenerateElidedPath)(Path const&, unsigned long, String const&) = &fs::generateElidedPath;
[[maybe_unused]] bool (*const kMatchesGlobPattern)(Path const&, String const&) = &fs::matchesGlobPattern;
[[maybe_unused]] Path (*const kFindSimilarName)(Path const&, bool) = &fs::findSimilarName;
[[maybe_unused]] bool (*const kCorrectFileCaseAndComposition)(Path&, bool) = &fs::correctFileCaseAndComposition;

/// The stored text of a path as UTF-8, for exact comparisons.
std::string text(Path const& path) { return path.string().toUTF8String(); }

/// The UTF-8 of a String, for exact comparisons.
std::string utf8(String const& value) { return value.toUTF8String(); }

bool makeDirectory(std::string const& native) { return ::mkdir(native.c_str(), 0777) == 0; }

using Transformations = kelvo::testing::ScratchDirectory;

// ---------------------------------------------------------------------------
// canonical

TEST_F(Transformations, CanonicalOfRootIsRoot) { EXPECT_EQ(text(fs::canonical(Path("/"))), "/"); }

TEST_F(Transformations, CanonicalOfAPathWithAMissingElementIsEmpty)
{
    EXPECT_TRUE(fs::canonical(Path(at("missing/a"))).empty());
    EXPECT_TRUE(fs::canonical(Path(at("missing"))).empty());
    EXPECT_TRUE(fs::canonical(Path(at("missing/.."))).empty());
}

TEST_F(Transformations, CanonicalResolvesLinksDotsAndRelativePaths)
{
    ASSERT_TRUE(makeDirectory(at("d1")));
    ASSERT_TRUE(makeDirectory(at("d1/d2")));
    ASSERT_EQ(::symlink("d1/d2", at("link").c_str()), 0);
    EXPECT_EQ(text(fs::canonical(Path(at("link")))), scratch + "/d1/d2");
    EXPECT_EQ(text(fs::canonical(Path(at("link/..")))), scratch + "/d1");
    EXPECT_EQ(text(fs::canonical(Path(at("d1/./d2/../d2/")))), scratch + "/d1/d2");
    ASSERT_EQ(::chdir(scratch.c_str()), 0);
    EXPECT_EQ(text(fs::canonical(Path("d1"))), scratch + "/d1");
    EXPECT_EQ(text(fs::canonical(Path("."))), scratch);
}

TEST_F(Transformations, CanonicalOfADanglingLinkIsEmpty)
{
    ASSERT_EQ(::symlink("nowhere", at("dangling").c_str()), 0);
    EXPECT_TRUE(fs::canonical(Path(at("dangling"))).empty());
}

// ---------------------------------------------------------------------------
// resolveDots

TEST_F(Transformations, ResolveDotsOfAnEmptyPathIsEmpty) { EXPECT_TRUE(fs::resolveDots(Path("")).empty()); }

TEST_F(Transformations, ResolveDotsDropsAMissingElementTextuallyUnderTheRoot)
{
    // Neither name exists under "/": the ".." drops "/kelvo-missing-..." textually.
    Path const result = fs::resolveDots(Path("/kelvo-review-missing-4711/../kelvo-review-missing-4712"));
    EXPECT_EQ(text(result), "/kelvo-review-missing-4712");
}

TEST_F(Transformations, ResolveDotsResolvesTheNameAfterADroppedMissingElement)
{
    ASSERT_TRUE(makeDirectory(at("b")));
    ASSERT_EQ(::symlink("b", at("lb").c_str()), 0);
    EXPECT_EQ(text(fs::resolveDots(Path(at("tmpx/../b")))), scratch + "/b");
    // "/b" resolved to its real path when it is a link.
    EXPECT_EQ(text(fs::resolveDots(Path(at("tmpx/../lb")))), scratch + "/b");
    // And kept textually when missing.
    EXPECT_EQ(text(fs::resolveDots(Path(at("tmpx/../c")))), scratch + "/c");
}

TEST_F(Transformations, ResolveDotsOfXDotDotInTheCurrentDirectory)
{
    ASSERT_EQ(::chdir(scratch.c_str()), 0);
    EXPECT_TRUE(fs::resolveDots(Path("x/..")).empty());
    EXPECT_EQ(text(fs::resolveDots(Path("x/../"))), "/");
    ASSERT_TRUE(makeDirectory(at("x")));
    EXPECT_EQ(text(fs::resolveDots(Path("x/.."))), scratch);
}

TEST_F(Transformations, ResolveDotsOfXDotDotGivesTheRealCurrentDirectoryThroughALink)
{
    ASSERT_TRUE(makeDirectory(at("real")));
    ASSERT_TRUE(makeDirectory(at("real/x")));
    ASSERT_EQ(::symlink("real", at("alias").c_str()), 0);
    ASSERT_EQ(::chdir(at("alias").c_str()), 0);
    EXPECT_EQ(text(fs::resolveDots(Path("x/.."))), scratch + "/real");
}

TEST_F(Transformations, ResolveDotsDoesNotClampAtTheRoot)
{
    ASSERT_EQ(::chdir(scratch.c_str()), 0);
    EXPECT_TRUE(fs::resolveDots(Path("/..")).empty());
    EXPECT_EQ(text(fs::resolveDots(Path("/../a"))), "a");
    EXPECT_EQ(text(fs::resolveDots(Path("/../"))), "/");
    writeFile("a");
    EXPECT_EQ(text(fs::resolveDots(Path("/../a"))), scratch + "/a");
}

TEST_F(Transformations, ResolveDotsDropsALeadingDotDot)
{
    ASSERT_EQ(::chdir(scratch.c_str()), 0);
    EXPECT_EQ(text(fs::resolveDots(Path("../a"))), "a");
    EXPECT_EQ(text(fs::resolveDots(Path("../../a/b"))), "a/b");
    EXPECT_EQ(text(fs::resolveDots(Path("a/b/../c"))), "a/c");
    EXPECT_EQ(text(fs::resolveDots(Path("a/./b/./"))), "a/b/");
}

TEST_F(Transformations, ResolveDotsIgnoresSingleDots)
{
    ASSERT_EQ(::chdir(scratch.c_str()), 0);
    EXPECT_EQ(text(fs::resolveDots(Path("./a/."))), text(fs::resolveDots(Path("a"))));
    EXPECT_EQ(text(fs::resolveDots(Path("./a/."))), "a");
    ASSERT_TRUE(makeDirectory(at("a")));
    EXPECT_EQ(text(fs::resolveDots(Path("./a/."))), text(fs::resolveDots(Path("a"))));
    EXPECT_EQ(text(fs::resolveDots(Path("./a/."))), scratch + "/a");
}

TEST_F(Transformations, ResolveDotsMakesAnExistingRelativePrefixAbsolute)
{
    ASSERT_EQ(::chdir(scratch.c_str()), 0);
    ASSERT_TRUE(makeDirectory(at("a")));
    EXPECT_EQ(text(fs::resolveDots(Path("a/b/c"))), scratch + "/a/b/c");
    EXPECT_EQ(text(fs::resolveDots(Path("a/b/../c"))), scratch + "/a/c");
    EXPECT_EQ(text(fs::resolveDots(Path("a/b/../.."))), scratch);
}

TEST_F(Transformations, ResolveDotsGoesUpFromTheTargetOfALink)
{
    ASSERT_TRUE(makeDirectory(at("d1")));
    ASSERT_TRUE(makeDirectory(at("d1/d2")));
    ASSERT_EQ(::symlink("d1/d2", at("link").c_str()), 0);
    EXPECT_EQ(text(fs::resolveDots(Path(at("link/..")))), scratch + "/d1");
    EXPECT_EQ(text(fs::resolveDots(Path(at("link/x")))), scratch + "/d1/d2/x");
    EXPECT_EQ(text(fs::resolveDots(Path(at("link/x/..")))), scratch + "/d1/d2");
    EXPECT_EQ(text(fs::resolveDots(Path(at("link/../../d1/./d2/")))), scratch + "/d1/d2/");
}

TEST_F(Transformations, ResolveDotsTreatsADanglingLinkAsMissing)
{
    ASSERT_EQ(::symlink("nowhere/deep", at("dangling").c_str()), 0);
    EXPECT_EQ(text(fs::resolveDots(Path(at("dangling/..")))), scratch);
    EXPECT_EQ(text(fs::resolveDots(Path(at("dangling/a")))), scratch + "/dangling/a");
}

TEST_F(Transformations, ResolveDotsStepsUpFromAnExistingFile)
{
    writeFile("file");
    // The file exists, so ".." is taken from its real location; the system
    // itself would refuse the path.
    EXPECT_EQ(text(fs::resolveDots(Path(at("file/..")))), scratch);
    EXPECT_EQ(text(fs::resolveDots(Path(at("file/x")))), scratch + "/file/x");
    EXPECT_EQ(text(fs::resolveDots(Path(at("file/x/../y")))), scratch + "/file/y");
}

TEST_F(Transformations, ResolveDotsEmptiesTheAccumulatorWhenRealpathFailsAfterStat)
{
    // A descriptor's entry under /proc can be stat'ed (it names the pipe) but
    // has no real path, so the accumulator becomes empty at that step.
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    std::string const entry = "/proc/self/fd/" + std::to_string(ends[0]);
    struct stat information;
    char* const resolved = ::realpath(entry.c_str(), nullptr);
    bool const usable = ::stat(entry.c_str(), &information) == 0 && resolved == nullptr;
    std::free(resolved);
    if (!usable) {
        ::close(ends[0]);
        ::close(ends[1]);
        GTEST_SKIP() << "no descriptor entry that stat accepts and realpath refuses";
    }
    ASSERT_EQ(::chdir(scratch.c_str()), 0);
    EXPECT_TRUE(fs::resolveDots(Path(entry)).empty());
    EXPECT_EQ(text(fs::resolveDots(Path(entry + "/x"))), "x");
    EXPECT_EQ(text(fs::resolveDots(Path(entry + "/x/y"))), "x/y");
    EXPECT_TRUE(fs::resolveDots(Path(entry + "/..")).empty());
    EXPECT_EQ(text(fs::resolveDots(Path(entry + "/"))), "/");
    EXPECT_TRUE(fs::canonical(Path(entry)).empty());
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_F(Transformations, ResolveDotsRestoresATrailingSeparatorWithoutDoublingIt)
{
    ASSERT_TRUE(makeDirectory(at("dir")));
    EXPECT_EQ(text(fs::resolveDots(Path("/"))), "/");
    EXPECT_EQ(text(fs::resolveDots(Path(at("dir/")))), scratch + "/dir/");
    EXPECT_EQ(text(fs::resolveDots(Path(at("dir/missing/")))), scratch + "/dir/missing/");
    EXPECT_EQ(text(fs::resolveDots(Path(at("dir/missing/../")))), scratch + "/dir/");
    EXPECT_EQ(text(fs::resolveDots(Path(at("dir")))), scratch + "/dir");
}

// ---------------------------------------------------------------------------
// complete and systemComplete

TEST(TransformationsComplete, WorkedRows)
{
    EXPECT_TRUE(fs::complete(Path(""), Path("/base")).empty());
    EXPECT_EQ(text(fs::complete(Path("a"), Path("rel"))), "a");
    EXPECT_EQ(text(fs::complete(Path("/a"), Path("/base"))), "/a");
    EXPECT_EQ(text(fs::complete(Path("//srv/a"), Path("/base"))), "//srv/a");
    EXPECT_EQ(text(fs::complete(Path("a/b"), Path("/base"))), "/base/a/b");
    // A bare root name is not complete, but it has a root name.
    EXPECT_EQ(text(fs::complete(Path("//srv"), Path("/base"))), "//srv");
}

TEST(TransformationsComplete, MoreRows)
{
    EXPECT_EQ(text(fs::complete(Path("a"), Path(""))), "a");
    EXPECT_EQ(text(fs::complete(Path("a"), Path("/"))), "/a");
    EXPECT_EQ(text(fs::complete(Path("a/"), Path("/base/"))), "/base/a/");
    EXPECT_EQ(text(fs::complete(Path("../a"), Path("/base"))), "/base/../a");
    EXPECT_TRUE(fs::complete(Path(""), Path("rel")).empty());
}

TEST_F(Transformations, SystemCompleteOfAnAbsolutePathIsThatPath)
{
    EXPECT_EQ(text(fs::systemComplete(Path("/x"))), "/x");
    EXPECT_EQ(text(fs::systemComplete(Path("//srv/x"))), "//srv/x");
    EXPECT_EQ(text(fs::systemComplete(Path("//srv"))), "//srv");
}

TEST_F(Transformations, SystemCompleteJoinsTheCurrentDirectory)
{
    ASSERT_EQ(::chdir(scratch.c_str()), 0);
    EXPECT_EQ(text(fs::systemComplete(Path("a/b"))), scratch + "/a/b");
    EXPECT_EQ(text(fs::systemComplete(Path("../a"))), scratch + "/../a");
    // The empty path stays empty.
    EXPECT_TRUE(fs::systemComplete(Path("")).empty());
}

TEST_F(Transformations, SystemCompleteLeavesThePathWhenTheCurrentDirectoryIsGone)
{
    ASSERT_TRUE(makeDirectory(at("gone")));
    ASSERT_EQ(::chdir(at("gone").c_str()), 0);
    ASSERT_EQ(::rmdir(at("gone").c_str()), 0);
    char buffer[4096];
    if (::getcwd(buffer, sizeof buffer) != nullptr)
        GTEST_SKIP() << "getcwd still answers for a removed directory here";
    EXPECT_EQ(text(fs::systemComplete(Path("a/b"))), "a/b");
}

TEST_F(Transformations, ResultsKeepTheBytesOfTheNames)
{
    std::string const latin = "caf\xe9";      // not UTF-8
    std::string const decomposed = "e\xcc\x81"; // NFD, which Linux keeps apart from NFC
    ASSERT_TRUE(makeDirectory(at(latin)));
    ASSERT_TRUE(makeDirectory(at(decomposed)));
    EXPECT_EQ(fs::canonical(Path(at(latin))).nativeString(), at(latin));
    EXPECT_EQ(fs::canonical(Path(at(decomposed))).nativeString(), at(decomposed));
    EXPECT_EQ(fs::resolveDots(Path(at(latin + "/x/../y"))).nativeString(), at(latin + "/y"));
    EXPECT_EQ(fs::resolveDots(Path(at(decomposed + "/./" + decomposed))).nativeString(), at(decomposed + "/" + decomposed));
    EXPECT_EQ(fs::complete(Path(latin + "/" + decomposed), Path("/base")).nativeString(), "/base/" + latin + "/" + decomposed);
    ASSERT_EQ(::chdir(at(latin).c_str()), 0);
    EXPECT_EQ(fs::systemComplete(Path(decomposed)).nativeString(), at(latin + "/" + decomposed));
    EXPECT_EQ(fs::toDos8Dot3(Path(at(decomposed + "/report.txt"))).nativeString(), at(decomposed + "/REPORT.TXT"));
}

// ---------------------------------------------------------------------------
// Length limits

class TransformationsLimits : public kelvo::testing::ScratchDirectory {
protected:
    void SetUp() override
    {
        ScratchDirectory::SetUp();
        pathMax = ::pathconf("/", _PC_PATH_MAX);
        if (pathMax <= 0 || pathMax > 2147483647L)
            GTEST_SKIP() << "pathconf gives no finite path limit here";
        limit = static_cast<std::size_t>(pathMax - 25);
    }

    /// A path under `root` of exactly `length` bytes, of names of at most
    /// 200 bytes, none of which exists.
    static std::string pathOfLength(std::string root, std::size_t length, char fill = 'n')
    {
        while (root.size() < length) {
            std::size_t const room = length - root.size() - 1;
            std::size_t name = room > 200 ? 200 : room;
            if (room > 200 && room - 200 < 2)
                name = 150;
            root += '/';
            root += std::string(name, fill);
        }
        return root;
    }

    long pathMax = 0;
    std::size_t limit = 0;
};

TEST_F(TransformationsLimits, GettersFollowPathconf)
{
    EXPECT_EQ(fs::getMaxNativeStringPathLength(), static_cast<std::int32_t>(pathMax));
    EXPECT_EQ(fs::getMaxNativeStringDirectoryLength(), static_cast<std::int32_t>(pathMax - 25));
    long const tmpNameMax = ::pathconf("/tmp", _PC_NAME_MAX);
    EXPECT_EQ(fs::getMaxNativeStringNameLength(Path("/tmp/x")), static_cast<std::int32_t>(tmpNameMax));
    long const rootNameMax = ::pathconf("/", _PC_NAME_MAX);
    EXPECT_EQ(fs::getMaxNativeStringNameLength(Path("a")), static_cast<std::int32_t>(rootNameMax));
    EXPECT_EQ(fs::getMaxNativeStringNameLength(Path("/")), static_cast<std::int32_t>(rootNameMax));
    EXPECT_EQ(fs::getMaxNativeStringNameLength(Path(at("missing/deeper/x"))), static_cast<std::int32_t>(rootNameMax));
    long const scratchNameMax = ::pathconf(scratch.c_str(), _PC_NAME_MAX);
    EXPECT_EQ(fs::getMaxNativeStringNameLength(Path(at("x"))), static_cast<std::int32_t>(scratchNameMax));
}

TEST_F(TransformationsLimits, FirstCheckIsAtPathMaxMinus25Bytes)
{
    std::string const fits = pathOfLength("/kelvo-review-missing", limit);
    std::string const tooLong = pathOfLength("/kelvo-review-missing", limit + 1);
    ASSERT_EQ(fits.size(), limit);
    ASSERT_EQ(tooLong.size(), limit + 1);
    EXPECT_TRUE(fs::isValidPathLengthC(Path(fits), false, true));
    EXPECT_TRUE(fs::isValidPathLengthC(Path(fits), false, false));
    EXPECT_TRUE(fs::isValidPathLengthC(Path(fits), true, false));
    EXPECT_TRUE(fs::isValidPathLength(Path(fits)));
    EXPECT_FALSE(fs::isValidPathLengthC(Path(tooLong), false, true));
    EXPECT_FALSE(fs::isValidPathLengthC(Path(tooLong), false, false));
    EXPECT_FALSE(fs::isValidPathLengthC(Path(tooLong), true, true));
    EXPECT_FALSE(fs::isValidPathLength(Path(tooLong)));
}

TEST_F(TransformationsLimits, NameLengthUnderAnExistingDirectory)
{
    ASSERT_EQ(::pathconf(scratch.c_str(), _PC_NAME_MAX), 255) << "the worked example assumes 255";
    EXPECT_FALSE(fs::isValidPathLength(Path(at(std::string(256, 'a')))));
    EXPECT_TRUE(fs::isValidPathLength(Path(at(std::string(255, 'a')))));
    EXPECT_FALSE(fs::isValidPathLengthC(Path(at(std::string(256, 'a'))), true, false));
    EXPECT_TRUE(fs::isValidPathLengthC(Path(at(std::string(255, 'a'))), true, false));
}

TEST_F(TransformationsLimits, NamesAreMeasuredInBytes)
{
    ASSERT_EQ(::pathconf(scratch.c_str(), _PC_NAME_MAX), 255);
    std::string han;
    for (int i = 0; i < 85; ++i)
        han += "\xe4\xb8\xad"; // 85 three-byte letters: 255 bytes
    EXPECT_TRUE(fs::isValidPathLength(Path(at(han))));
    EXPECT_FALSE(fs::isValidPathLength(Path(at(han + "\xe4\xb8\xad"))));
    EXPECT_FALSE(fs::isValidPathLength(Path(at(han + "a"))));
}

TEST_F(TransformationsLimits, WalkUpChecksEveryNewName)
{
    ASSERT_EQ(::pathconf("/", _PC_NAME_MAX), 255);
    Path const path(at("a/" + std::string(300, 'l') + "/b"));
    EXPECT_FALSE(fs::isValidPathLengthC(path, false, false));
    EXPECT_TRUE(fs::isValidPathLengthC(path, false, true));
    // checkParent replaces the caller's flag: the parent is missing, so the walk runs.
    EXPECT_FALSE(fs::isValidPathLengthC(path, true, true));
    EXPECT_FALSE(fs::isValidPathLength(path));
    // Short new names pass the walk.
    Path const shortNames(at("a/b/c"));
    EXPECT_TRUE(fs::isValidPathLengthC(shortNames, false, false));
}

TEST_F(TransformationsLimits, ExistingParentIsMeasuredWithLinksResolved)
{
    // A real directory whose path is long, reached through a short link.
    std::string deep = scratch;
    std::size_t const target = limit - 20; // room for a separator and a 19-byte name
    while (deep.size() < target) {
        std::size_t const room = target - deep.size() - 1;
        std::size_t name = room > 200 ? 200 : room;
        if (room > 200 && room - 200 < 2)
            name = 150;
        deep += '/' + std::string(name, 'd');
        ASSERT_TRUE(makeDirectory(deep)) << deep.size();
    }
    ASSERT_EQ(deep.size(), target);
    ASSERT_EQ(::symlink(deep.c_str(), at("l").c_str()), 0);
    std::string const fitting(19, 'f'); // target + 1 + 19 == limit
    std::string const overlong(20, 'f');
    EXPECT_TRUE(fs::isValidPathLength(Path(at("l/" + fitting))));
    EXPECT_FALSE(fs::isValidPathLength(Path(at("l/" + overlong))));
    EXPECT_TRUE(fs::isValidDirectoryPathLength(Path(at("l/" + fitting))));
    EXPECT_FALSE(fs::isValidDirectoryPathLength(Path(at("l/" + overlong))));
    // Without the parent check the text is measured as it is.
    EXPECT_TRUE(fs::isValidPathLengthC(Path(at("l/" + overlong)), false, true));
}

TEST_F(TransformationsLimits, DirectoryPathLengthBoundary)
{
    std::string const fits = pathOfLength(scratch + "/missing", limit);
    std::string const tooLong = pathOfLength(scratch + "/missing", limit + 1);
    EXPECT_TRUE(fs::isValidDirectoryPathLength(Path(fits)));
    EXPECT_FALSE(fs::isValidDirectoryPathLength(Path(tooLong)));
    EXPECT_FALSE(fs::isValidDirectoryPathLength(Path(at(std::string(256, 'a')))));
    EXPECT_TRUE(fs::isValidDirectoryPathLength(Path(at(std::string(255, 'a')))));
}

TEST_F(TransformationsLimits, SetUseLongPathNamesChangesNothing)
{
    std::int32_t const pathLength = fs::getMaxNativeStringPathLength();
    std::int32_t const directoryLength = fs::getMaxNativeStringDirectoryLength();
    std::string const tooLong = pathOfLength("/kelvo-review-missing", limit + 1);
    for (bool flag : {true, false, true}) {
        fs::setUseLongPathNames(flag);
        EXPECT_EQ(fs::getMaxNativeStringPathLength(), pathLength);
        EXPECT_EQ(fs::getMaxNativeStringDirectoryLength(), directoryLength);
        EXPECT_FALSE(fs::isValidPathLength(Path(tooLong)));
        EXPECT_FALSE(fs::isValidPathLength(Path(at(std::string(256, 'a')))));
        EXPECT_TRUE(fs::isValidPathLength(Path(at(std::string(255, 'a')))));
    }
}

// ---------------------------------------------------------------------------
// sanitize

TEST(TransformationsSanitize, WorkedExample)
{
    Path const result = fs::sanitize(Path("/tmp/a+b/c:d \xc3\xa9.txt"));
    EXPECT_EQ(text(result), "/tmp/a_b/c_d e_.txt");
    EXPECT_EQ(result.string().length(), Path("/tmp/a+b/c:d \xc3\xa9.txt").string().length());
}

TEST(TransformationsSanitize, AllowedCharactersAreKept)
{
    std::string const allowed = "/AZaz09/ !#$&'()-@^_`{}~./rel";
    Path const result = fs::sanitize(Path(allowed));
    EXPECT_EQ(text(result), allowed);
    EXPECT_TRUE(result == Path(allowed));
    EXPECT_EQ(text(fs::sanitize(Path("MixedCase.Name"))), "MixedCase.Name");
}

TEST(TransformationsSanitize, EveryOtherCharacterBecomesOneUnderscore)
{
    EXPECT_EQ(text(fs::sanitize(Path("a*b?c<d>e|f\"g%h,i;j=k[l]m+n:o"))), "a_b_c_d_e_f_g_h_i_j_k_l_m_n_o");
    EXPECT_EQ(text(fs::sanitize(Path("tab\there"))), "tab_here");
    EXPECT_EQ(text(fs::sanitize(Path("dir/\xe6\x97\xa5\xe6\x9c\xac.txt"))), "dir/__.txt");
    // A precomposed letter arrives decomposed: its base letter stays, its mark becomes "_".
    EXPECT_EQ(text(fs::sanitize(Path("\xc3\x85ngstr\xc3\xb6m"))), "A_ngstro_m");
    EXPECT_TRUE(fs::sanitize(Path("")).empty());
}

TEST(TransformationsSanitize, EveryAsciiCharacter)
{
    std::string const kept = " !#$&'()-@^_`{}~.";
    for (int c = 1; c < 0x80; ++c) {
        if (c == '\\' || c == '/')
            continue; // separators, kept as "/"
        bool const isKept = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')
            || kept.find(static_cast<char>(c)) != std::string::npos;
        std::string const name = std::string("x") + static_cast<char>(c) + "y";
        EXPECT_EQ(text(fs::sanitize(Path("/d/" + name))), "/d/x" + std::string(1, isKept ? static_cast<char>(c) : '_') + "y")
            << "character " << c;
    }
}

// ---------------------------------------------------------------------------
// toDos8Dot3

class TransformationsDos : public kelvo::testing::ScratchDirectory {
protected:
    void SetUp() override
    {
        ScratchDirectory::SetUp();
        ASSERT_EQ(::chdir(scratch.c_str()), 0);
    }
    static std::string dos(std::string const& name) { return text(fs::toDos8Dot3(Path(name))); }
};

TEST_F(TransformationsDos, WorkedExamples)
{
    EXPECT_EQ(dos("dir/report.txt"), "dir/REPORT.TXT");
    EXPECT_EQ(dos("My Document.html"), "MYDOCU~1.HTM");
    EXPECT_EQ(dos("archive.tar.gz"), "ARCHIV~1.GZ");
    EXPECT_EQ(dos(".bashrc"), "FILE.BAS");
    EXPECT_EQ(dos("notes."), "NOTES");
    EXPECT_EQ(dos("a+b.c"), "AB.C");
    EXPECT_EQ(dos("~$tmp"), "~$TMP");
    EXPECT_EQ(dos("dir/"), "dir/FILE");
    EXPECT_EQ(dos("a/.."), "a/FILE");
    EXPECT_EQ(dos("\xc3\xa9.txt"), "E.TXT");
}

TEST_F(TransformationsDos, NamesOfNothingKeptBecomeFile)
{
    EXPECT_EQ(dos("..."), "FILE");
    EXPECT_EQ(dos("   "), "FILE");
    EXPECT_EQ(dos("\xe6\x97\xa5\xe6\x9c\xac"), "FILE");
    EXPECT_EQ(dos("+,;=[]"), "FILE");
    EXPECT_EQ(dos("\xe6\x97\xa5.\xe6\x9c\xac"), "FILE");
}

TEST_F(TransformationsDos, FilteringRules)
{
    // Only the rightmost dot with something kept after it survives.
    EXPECT_EQ(dos("a.b.c"), "AB.C");
    EXPECT_EQ(dos("abc.."), "ABC");
    EXPECT_EQ(dos("a.+"), "A");
    EXPECT_EQ(dos("a. b"), "A.B");
    EXPECT_EQ(dos("a.b.\xe6\x97\xa5"), "A.B");
    EXPECT_EQ(dos("a,b;c=d[e]f.txt"), "ABCDEF.TXT");
    // Digits, capitals and the short-name punctuation pass as they are.
    EXPECT_EQ(dos("!#$&'()-"), "!#$&'()-");
    EXPECT_EQ(dos("@^_`{}~9.Z1"), "@^_`{}~9.Z1");
    EXPECT_EQ(dos("Ab9.tXt"), "AB9.TXT");
}

TEST_F(TransformationsDos, EveryAsciiCharacter)
{
    std::string const punctuation = "!#$&'()-@^_`{}~";
    for (int c = 1; c < 0x80; ++c) {
        if (c == '\\' || c == '/' || c == '.')
            continue;
        std::string expected = "A";
        if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || punctuation.find(static_cast<char>(c)) != std::string::npos)
            expected += static_cast<char>(c);
        else if (c >= 'a' && c <= 'z')
            expected += static_cast<char>(c - 'a' + 'A');
        expected += "B";
        EXPECT_EQ(dos(std::string("a") + static_cast<char>(c) + "b"), expected) << "character " << c;
    }
}

/// The short name written out step by step, for a name with nothing beside it.
std::string shortNameByTheSteps(Path const& path)
{
    String const name = path.filename().string();
    std::u32string const punctuation = U"!#$&'()-@^_`{}~";
    String out;
    bool dotTaken = false;
    for (auto c = name.rbegin(); c != name.rend(); ++c) {
        char32_t const ch = *c;
        if ((ch >= U'0' && ch <= U'9') || (ch >= U'A' && ch <= U'Z') || punctuation.find(ch) != std::u32string::npos)
            out.insert(out.begin(), ch);
        else if (ch >= U'a' && ch <= U'z')
            out.insert(out.begin(), static_cast<char32_t>(ch - U'a' + U'A'));
        else if (ch == U'.' && !dotTaken && !out.empty()) {
            out.insert(out.begin(), ch);
            dotTaken = true;
        }
    }
    std::size_t const dot = out.find(U'.');
    String base = dot == String::npos ? out : String(out.substr(0, dot));
    String ext = dot == String::npos ? String() : String(out.substr(dot + 1));
    if (base.empty())
        base = String(U"FILE");
    if (base.length() > 8)
        base = String(base.substr(0, 6)) + String(U"~1");
    if (ext.length() > 3)
        ext = String(ext.substr(0, 3));
    String shortName = base;
    if (!ext.empty())
        shortName += String(U".") + ext;
    return (path.parentPath() / Path(shortName)).string().toUTF8String();
}

TEST_F(TransformationsDos, AgreesWithTheStepsOnGeneratedNames)
{
    std::mt19937 random(1123);
    std::vector<std::string> const pieces = {"a", "b", "z", "Q", "7", ".", ".", " ", "+", ",", ";", "=", "[", "]", "~",
        "$", "!", "{", "`", "\xc3\xa9", "\xe6\x97\xa5", "\xc3\x85", "%", "*", "?", ":"};
    for (int round = 0; round < 3000; ++round) {
        std::string name;
        int const length = 1 + static_cast<int>(random() % 16);
        for (int i = 0; i < length; ++i)
            name += pieces[random() % pieces.size()];
        std::string const full = (random() % 2 == 0) ? name : "sub dir/" + name;
        EXPECT_EQ(dos(full), shortNameByTheSteps(Path(full))) << full;
        if (HasFailure())
            return;
    }
}

TEST_F(TransformationsDos, TruncationRules)
{
    EXPECT_EQ(dos("abcdefgh.txt"), "ABCDEFGH.TXT");
    EXPECT_EQ(dos("abcdefghi.txt"), "ABCDEF~1.TXT");
    EXPECT_EQ(dos("a.html"), "A.HTM");
    EXPECT_EQ(dos("a.htm"), "A.HTM");
    EXPECT_EQ(dos("abcdefghijklmnop"), "ABCDEF~1");
    // The parent is kept as it is, not shortened.
    EXPECT_EQ(dos("Long Directory Name.d/file.txt"), "Long Directory Name.d/FILE.TXT");
    EXPECT_EQ(text(fs::toDos8Dot3(Path(at("My Files/My Document.html")))), scratch + "/My Files/MYDOCU~1.HTM");
}

TEST_F(TransformationsDos, CollisionsCountUp)
{
    writeFile("REPORT.TXT");
    EXPECT_EQ(dos("report.txt"), "REPORT~1.TXT");
    writeFile("REPORT~1.TXT");
    EXPECT_EQ(dos("report.txt"), "REPORT~2.TXT");
    for (int i = 2; i <= 9; ++i)
        writeFile("REPORT~" + std::to_string(i) + ".TXT");
    EXPECT_EQ(dos("report.txt"), "REPOR~10.TXT");
    // An existing directory collides as well.
    ASSERT_TRUE(makeDirectory(at("REPOR~10.TXT")));
    EXPECT_EQ(dos("report.txt"), "REPOR~11.TXT");
    // Beside an absolute parent.
    EXPECT_EQ(text(fs::toDos8Dot3(Path(at("report.txt")))), scratch + "/REPOR~11.TXT");
}

TEST_F(TransformationsDos, ShortBaseIsPaddedBeforeTheSuffix)
{
    writeFile("A.TXT");
    EXPECT_EQ(dos("a.txt"), "A_____~1.TXT");
    writeFile("A_____~1.TXT");
    EXPECT_EQ(dos("a.txt"), "A_____~2.TXT");
    writeFile("FILE.BAS");
    EXPECT_EQ(dos(".bashrc"), "FILE__~1.BAS");
    writeFile("NOTES");
    EXPECT_EQ(dos("notes."), "NOTES_~1");
}

TEST_F(TransformationsDos, CounterStartsFromOneAfterTruncation)
{
    writeFile("MYDOCU~1.HTM");
    EXPECT_EQ(dos("My Document.html"), "MYDOCU~2.HTM");
    for (int i = 2; i <= 9; ++i)
        writeFile("MYDOCU~" + std::to_string(i) + ".HTM");
    EXPECT_EQ(dos("My Document.html"), "MYDOC~10.HTM");
}

TEST_F(TransformationsDos, ExistenceThatCannotBeDeterminedCountsAsAbsence)
{
    ASSERT_TRUE(makeDirectory(at("closed")));
    writeFile("closed/REPORT.TXT");
    ASSERT_EQ(::chmod(scratch.c_str(), 0711), 0);
    // No one but root may search it: the child, unprivileged, cannot.
    ASSERT_EQ(::chmod(at("closed").c_str(), 0), 0);
    std::string const asked = at("closed/report.txt");
    std::string const expected = at("closed/REPORT.TXT");
    int const status = kelvo::testing::runUnprivileged([&] {
        return kelvo::testing::firstFailure({
            !fs::exists(Path(expected)),
            text(fs::toDos8Dot3(Path(asked))) == expected,
        });
    });
    ASSERT_NE(status, kelvo::testing::kCannotDropPrivileges) << "cannot drop privileges";
    EXPECT_EQ(status, 0);
    // With the right to look, the name is taken.
    ASSERT_EQ(::chmod(at("closed").c_str(), 0700), 0);
    EXPECT_EQ(text(fs::toDos8Dot3(Path(asked))), at("closed/REPORT~1.TXT"));
}

TEST_F(TransformationsDos, ExistenceIsCheckedByExactName)
{
    // A lower-case twin is another name on this file system.
    writeFile("report.txt");
    EXPECT_EQ(dos("report.txt"), "REPORT.TXT");
}

// ---------------------------------------------------------------------------
// generateElidedPath

std::string elide(std::string const& path, unsigned long maxLength, String const& ellipsis = String(U"..."))
{
    return utf8(fs::generateElidedPath(Path(path), maxLength, ellipsis));
}

TEST(TransformationsElide, ShorterPathIsReturnedAsIs)
{
    EXPECT_EQ(elide("/a/b/c", 7), "/a/b/c");
    EXPECT_EQ(elide("/first/middle/last", 19), "/first/middle/last");
    EXPECT_EQ(elide("", 1), "");
    EXPECT_EQ(elide("", 0), "");
    EXPECT_EQ(elide("/", 0), "/");
}

TEST(TransformationsElide, PathOfExactlyMaxLengthIsProcessed)
{
    EXPECT_EQ(elide("/a/bb/c", 7), "/a/.../c");
    EXPECT_EQ(elide("/a/b/c", 6, String()), "/a//c");
}

TEST(TransformationsElide, OneOrTwoElementsAreNeverElided)
{
    EXPECT_EQ(elide("/verylongname", 3), "/verylongname");
    EXPECT_EQ(elide("verylongname", 3), "verylongname");
    EXPECT_EQ(elide("/a/b", 1), "/a/b");
    EXPECT_EQ(elide("/aaaaaaaa/bbbbbbbbb", 2), "/aaaaaaaa/bbbbbbbbb");
    EXPECT_EQ(elide("aaaa/bbbbb", 0), "aaaa/bbbbb");
}

TEST(TransformationsElide, ThreeElements)
{
    EXPECT_EQ(elide("/first/middle/last", 10), "/first/.../last");
    EXPECT_EQ(elide("/first/middle/last", 18), "/first/.../last");
    EXPECT_EQ(utf8(fs::generateElidedPath(Path("/first/middle/last"), 10, String(U"\u2026"))), "/first/\xe2\x80\xa6/last");
    // Relative paths get no leading separator.
    EXPECT_EQ(elide("first/middle/last", 10), "first/.../last");
}

TEST(TransformationsElide, TailIsServedFirst)
{
    String const ellipsis(U"\u2026");
    // Room for only one more element: the one before the file name.
    EXPECT_EQ(utf8(fs::generateElidedPath(Path("/root/one/two/three/file.txt"), 22, ellipsis)),
        "/root/\xe2\x80\xa6/three/file.txt");
    // Room for two: one on each side.
    EXPECT_EQ(utf8(fs::generateElidedPath(Path("/root/one/two/three/file.txt"), 27, ellipsis)),
        "/root/one/\xe2\x80\xa6/three/file.txt");
    // The strict comparison: a sum equal to the limit is refused.
    // The tail closes at once; the head still takes "one", and "two" is dropped.
    EXPECT_EQ(utf8(fs::generateElidedPath(Path("/root/one/two/three/file.txt"), 21, ellipsis)),
        "/root/one/\xe2\x80\xa6/file.txt");
    EXPECT_EQ(utf8(fs::generateElidedPath(Path("/root/one/two/three/file.txt"), 25, ellipsis)),
        "/root/\xe2\x80\xa6/three/file.txt");
    EXPECT_EQ(utf8(fs::generateElidedPath(Path("/root/one/two/three/file.txt"), 26, ellipsis)),
        "/root/one/\xe2\x80\xa6/three/file.txt");
}

TEST(TransformationsElide, ClosedSidesStayClosed)
{
    // The head closes on a long element; the tail keeps growing.
    EXPECT_EQ(elide("/h/aaaaaaaaaa/b/c/t", 18), "/h/.../b/c/t");
    // The tail closes; the element it drops later is not given to the head.
    EXPECT_EQ(elide("/h/b/c/dddddddddd/t", 17), "/h/b/.../t");
}

TEST(TransformationsElide, HeadAndTailMayExceedTheLimit)
{
    EXPECT_EQ(elide("/aaaaaaaaaa/m/bbbbbbbbbb", 5), "/aaaaaaaaaa/.../bbbbbbbbbb");
    EXPECT_EQ(elide("aaaaaaaaaa/m/n/bbbbbbbbbb", 5), "aaaaaaaaaa/.../bbbbbbbbbb");
    EXPECT_EQ(elide("/a/m/b", 0), "/a/.../b");
}

TEST(TransformationsElide, EmptyEllipsisGivesTwoSeparators)
{
    EXPECT_EQ(elide("/first/middle/last", 10, String()), "/first//last");
}

TEST(TransformationsElide, LengthsAreCountedInCodePoints)
{
    // Seven code points but seventeen bytes.
    EXPECT_EQ(elide("/\xe6\x97\xa5\xe6\x9c\xac/\xe4\xb8\xad/\xe8\xaa\x9e", 8), "/\xe6\x97\xa5\xe6\x9c\xac/\xe4\xb8\xad/\xe8\xaa\x9e");
    EXPECT_EQ(utf8(fs::generateElidedPath(Path("/\xe6\x97\xa5\xe6\x9c\xac/\xe4\xb8\xad/\xe8\xaa\x9e"), 7, String(U"\u2026"))),
        "/\xe6\x97\xa5\xe6\x9c\xac/\xe2\x80\xa6/\xe8\xaa\x9e");
}

/// The elision written out step by step, over the path's own elements.
String elideByTheSteps(Path const& path, unsigned long maxLength, String const& ellipsis)
{
    if (path.length() < maxLength)
        return path.string();
    std::deque<String> list;
    bool absolute = false;
    for (Path const& element : path) {
        if (element == Path("/")) {
            if (list.empty())
                absolute = true;
            continue;
        }
        list.push_back(element.string());
    }
    if (list.empty())
        return path.string();
    String tail = list.back();
    list.pop_back();
    if (list.empty())
        return path.string();
    String head = absolute ? String(U"/") : String();
    head += list.front();
    list.pop_front();
    unsigned long const e = ellipsis.length();
    bool tailClosed = false;
    bool headClosed = false;
    while (!list.empty()) {
        String const b = list.back();
        list.pop_back();
        if (!tailClosed && head.length() + e + 2 + tail.length() + b.length() < maxLength)
            tail = b + U'/' + tail;
        else
            tailClosed = true;
        if (list.empty())
            break;
        String const f = list.front();
        list.pop_front();
        if (!headClosed && head.length() + e + 2 + tail.length() + f.length() < maxLength)
            head = head + U'/' + f;
        else
            headClosed = true;
    }
    if (!tailClosed && !headClosed)
        return path.string();
    String result = head;
    result += U'/';
    result += ellipsis;
    result += U'/';
    result += tail;
    return result;
}

TEST(TransformationsElide, AgreesWithTheStepsOnGeneratedPaths)
{
    std::mt19937 random(20261123);
    std::vector<String> const ellipses = {String(), String(U"\u2026"), String(U"..."), String(U"[more]")};
    for (int round = 0; round < 3000; ++round) {
        String text = (random() % 3 == 0) ? String() : String(U"/");
        int const elements = 1 + static_cast<int>(random() % 9);
        for (int i = 0; i < elements; ++i) {
            if (i > 0)
                text += U'/';
            int const length = 1 + static_cast<int>(random() % 12);
            for (int k = 0; k < length; ++k)
                text += static_cast<char32_t>(random() % 5 == 0 ? U'\u65E5' + random() % 3 : U'a' + random() % 26);
        }
        Path const path(text);
        unsigned long const maxLength = random() % (path.length() + 5);
        String const& ellipsis = ellipses[random() % ellipses.size()];
        String const actual = fs::generateElidedPath(path, maxLength, ellipsis);
        EXPECT_EQ(actual, elideByTheSteps(path, maxLength, ellipsis))
            << text.toUTF8String() << " " << maxLength << " \"" << ellipsis.toUTF8String() << "\"";
        if (HasFailure())
            return;
    }
}

// ---------------------------------------------------------------------------
// matchesGlobPattern

bool glob(std::string const& path, String const& pattern) { return fs::matchesGlobPattern(Path(path), pattern); }

TEST(TransformationsGlob, StarAndEmptyPattern)
{
    EXPECT_TRUE(glob("anything", U"*"));
    EXPECT_TRUE(glob("", U"*"));
    EXPECT_TRUE(glob("/d/a.txt", U"*"));
    EXPECT_TRUE(glob("", String()));
    EXPECT_FALSE(glob("a", String()));
}

TEST(TransformationsGlob, QuestionMark)
{
    EXPECT_TRUE(glob("abc", U"a?c"));
    EXPECT_TRUE(glob("a.c", U"a?c"));
    EXPECT_FALSE(glob("ac", U"a?c"));
    EXPECT_FALSE(glob("abbc", U"a?c"));
    EXPECT_TRUE(glob("\xe4\xb8\xad", U"?"));
    // A precomposed letter is stored decomposed: two code points.
    EXPECT_FALSE(glob("\xc3\xa9", U"?"));
    EXPECT_TRUE(glob("\xc3\xa9", U"??"));
}

TEST(TransformationsGlob, CaseSensitive)
{
    EXPECT_FALSE(glob("a.txt", U"*.TXT"));
    EXPECT_TRUE(glob("a.TXT", U"*.TXT"));
    EXPECT_FALSE(glob("abc", U"[A-Z]*"));
}

TEST(TransformationsGlob, ExpressionCharactersKeepTheirMeaning)
{
    EXPECT_TRUE(glob("apple", U"[ab]*"));
    EXPECT_TRUE(glob("banana", U"[ab]*"));
    EXPECT_FALSE(glob("cherry", U"[ab]*"));
    EXPECT_TRUE(glob("file1.txt", U"file(1).txt"));
    EXPECT_TRUE(glob("file1xtxt", U"file(1).txt"));
    EXPECT_FALSE(glob("file(1).txt", U"file(1).txt"));
    EXPECT_TRUE(glob("aaa", U"a+"));
    EXPECT_FALSE(glob("a+", U"a+"));
    EXPECT_TRUE(glob("b", U"a|b"));
    EXPECT_TRUE(glob("aa", U"a{2}"));
    EXPECT_FALSE(glob("a{2}", U"a{2}"));
    EXPECT_TRUE(glob("a", U"^a$"));
    EXPECT_TRUE(glob("5", U"\\d"));
    EXPECT_TRUE(glob("a.txt", U"a\\.txt"));
    EXPECT_FALSE(glob("abtxt", U"a\\.txt"));
}

TEST(TransformationsGlob, WholeStringIsMatched)
{
    EXPECT_TRUE(glob("a.txt", U"*.txt"));
    EXPECT_TRUE(glob("abtxt", U"*.txt"));
    EXPECT_FALSE(glob("a.txt.bak", U"*.txt"));
    EXPECT_FALSE(glob("/d/a.txt", U"a.txt"));
    EXPECT_TRUE(glob("/d/a.txt", U"*a.txt"));
    EXPECT_FALSE(glob("xa.txty", U"a.txt"));
}

TEST(TransformationsGlob, PatternCodePointsAreNotNormalised)
{
    // The path's text is decomposed; a precomposed letter in the pattern does not meet it.
    EXPECT_FALSE(glob("\xc3\xa9t\xc3\xa9", U"\u00e9*"));
    EXPECT_TRUE(glob("\xc3\xa9t\xc3\xa9", U"e\u0301*"));
}

TEST(TransformationsGlob, IllFormedExpressionsThrowEveryTime)
{
    for (int round = 0; round < 3; ++round) {
        EXPECT_THROW(glob("a", U"("), std::regex_error);
        EXPECT_THROW(glob("(", U"("), std::regex_error);
        EXPECT_THROW(glob("a", U"[a"), std::regex_error);
        EXPECT_THROW(glob("a", U"a\\"), std::regex_error);
    }
    // A good pattern still works after a bad one.
    EXPECT_TRUE(glob("a", U"a"));
}

/// The glob pattern rewritten into an expression: "?" to ".", "*" to ".*".
std::wstring expressionOf(String const& pattern)
{
    String expression;
    for (char32_t c : pattern) {
        if (c == U'?')
            expression.push_back(U'.');
        else if (c == U'*')
            expression.append(U".*");
        else
            expression.push_back(c);
    }
    return expression.toWString();
}

/// What the rewriting into an expression answers, with a fresh expression:
/// 1 or 0 for a match, 2 when the expression cannot be built.
int freshAnswer(String const& name, String const& pattern)
{
    std::wregex compiled;
    try {
        compiled = std::wregex(expressionOf(pattern));
    } catch (std::regex_error const&) {
        return 2;
    }
    return std::regex_match(name.toWString(), compiled) ? 1 : 0;
}

/// Checks every pair of a set of names and patterns against fresh expressions
/// made under the global locale of the moment.
void expectAgreementWithFreshExpressions()
{
    std::vector<String> const names = {
        U"", U"a", U"a.txt", U"A.TXT", U"abtxt", U"a.txt.bak", U"file(1).txt", U"file1.txt", U"x\ny",
        String(U"line\nbreak"), String(U"cr\rhere"), String(U"ls\u2028x"), String(U"ps\u2029x"),
        String(U"tab\tx"), String(std::u32string(U"nul") + char32_t(0) + U"x"), String(U"\U0001F600.png"),
        String(U"e\u0301te\u0301"), Path(std::string("\xff" "byte")).string(), U"aaaaaaaaaaaaaaaaaaaaaaaaab", U"a*b?c", U"[x]",
        U"/d/a.txt", U"...", U"*",
    };
    std::vector<String> const patterns = {
        U"", U"*", U"?", U"??", U"*.txt", U"*.TXT", U"a?c", U"*a*", U"a*b*c", U"*\n*", U"?*?", U"**", U"*?*",
        U"[ab]*", U"file(1).txt", U"a+", U"a|b", U"^a.*", U"*$", U"\\.txt", U"[^a]*", U"(a|b)*",
        String(U"line?break"), String(U"*\u2028*"), String(U"ls*x"), String(U"ls?x"), String(U"cr?here"),
        String(U"\U0001F600*"), String(U"?byte"), String(U"e\u0301*"), U"a\\*", U"*{2}", U"a{1,3}*", U".*",
        String(std::u32string(U"nul?x")), String(std::u32string(U"nul") + char32_t(0) + U"x"),
    };
    for (String const& pattern : patterns) {
        for (String const& name : names) {
            int const expected = freshAnswer(Path(name).string(), pattern);
            int actual = 0;
            try {
                actual = fs::matchesGlobPattern(Path(name), pattern) ? 1 : 0;
            } catch (std::regex_error const&) {
                actual = 2;
            }
            EXPECT_EQ(actual, expected) << "pattern \"" << pattern.toUTF8String() << "\" name \"" << name.toUTF8String()
                                        << "\"";
        }
    }
}

TEST(TransformationsGlob, AgreesWithAFreshExpressionForEveryPair) { expectAgreementWithFreshExpressions(); }

TEST(TransformationsGlob, AgreesWithAFreshExpressionUnderAnotherGlobalLocale)
{
    std::locale utf8;
    try {
        utf8 = std::locale("C.UTF-8");
    } catch (std::runtime_error const&) {
        GTEST_SKIP() << "no C.UTF-8 locale here";
    }
    expectAgreementWithFreshExpressions();
    std::locale const previous = std::locale::global(utf8);
    expectAgreementWithFreshExpressions();
    std::locale::global(previous);
    expectAgreementWithFreshExpressions();
}

TEST(TransformationsGlob, ErrorCodeIsTheExpressionEngines)
{
    for (String const& pattern : {String(U"("), String(U"[a"), String(U"a\\"), String(U"a{"), String(U"+a"), String(U"a{2,1}")}) {
        std::regex_constants::error_type expected{};
        bool expectedThrow = false;
        try {
            std::wregex const compiled(expressionOf(pattern));
        } catch (std::regex_error const& error) {
            expected = error.code();
            expectedThrow = true;
        }
        ASSERT_TRUE(expectedThrow) << pattern.toUTF8String();
        for (int round = 0; round < 2; ++round) {
            try {
                fs::matchesGlobPattern(Path("a"), pattern);
                ADD_FAILURE() << "no exception for " << pattern.toUTF8String();
            } catch (std::regex_error const& error) {
                EXPECT_EQ(error.code(), expected) << pattern.toUTF8String();
            }
        }
    }
}

// ---------------------------------------------------------------------------
// findSimilarName and correctFileCaseAndComposition

class TransformationsCorrection : public kelvo::testing::ScratchDirectory {
protected:
    /// The first of `names` that a listing of `directory` yields, or "".
    static std::string firstListed(std::string const& directory, std::vector<std::string> const& names)
    {
        std::string found;
        if (DIR* dir = ::opendir(directory.c_str())) {
            while (dirent* entry = ::readdir(dir)) {
                for (auto const& name : names) {
                    if (found.empty() && name == entry->d_name)
                        found = name;
                }
            }
            ::closedir(dir);
        }
        return found;
    }
};

TEST_F(TransformationsCorrection, ExistingPathIsKeptWithoutLooking)
{
    ASSERT_TRUE(makeDirectory(at("data")));
    writeFile("data/Readme");
    writeFile("data/README");
    for (std::string const name : {"data/Readme", "data/README"}) {
        EXPECT_EQ(fs::findSimilarName(Path(at(name)), false).nativeString(), at(name));
        Path path(at(name));
        EXPECT_TRUE(fs::correctFileCaseAndComposition(path, false));
        EXPECT_EQ(path.nativeString(), at(name));
    }
}

TEST_F(TransformationsCorrection, WrongCaseOfTheName)
{
    ASSERT_TRUE(makeDirectory(at("data")));
    writeFile("data/README.txt");
    for (bool checkAll : {false, true}) {
        EXPECT_EQ(text(fs::findSimilarName(Path(at("data/Readme.TXT")), checkAll)), at("data/README.txt"));
        Path path(at("data/Readme.TXT"));
        EXPECT_TRUE(fs::correctFileCaseAndComposition(path, checkAll));
        EXPECT_EQ(text(path), at("data/README.txt"));
        EXPECT_EQ(path.nativeString(), at("data/README.txt"));
    }
}

TEST_F(TransformationsCorrection, WrongCaseOfADirectory)
{
    ASSERT_TRUE(makeDirectory(at("data")));
    writeFile("data/README.txt");
    for (bool checkAll : {false, true}) {
        EXPECT_EQ(text(fs::findSimilarName(Path(at("DATA/readme.txt")), checkAll)), at("data/README.txt"));
        Path path(at("DATA/readme.txt"));
        EXPECT_TRUE(fs::correctFileCaseAndComposition(path, checkAll));
        EXPECT_EQ(text(path), at("data/README.txt"));
    }
}

TEST_F(TransformationsCorrection, CorrectionsHigherUpAreUsedBelow)
{
    ASSERT_TRUE(makeDirectory(at("Data")));
    ASSERT_TRUE(makeDirectory(at("Data/Sub")));
    writeFile("Data/Sub/file.Txt");
    for (bool checkAll : {false, true})
        EXPECT_EQ(fs::findSimilarName(Path(at("DATA/SUB/FILE.TXT")), checkAll).nativeString(), at("Data/Sub/file.Txt"));
}

TEST_F(TransformationsCorrection, CompositionIsFoundInTheOnDiskForm)
{
    std::string const decomposed = "e\xcc\x81t\xc3\xa9"; // "e" + U+0301, then a precomposed letter
    std::string const composed = "\xc3\xa9te\xcc\x81";
    writeFile(decomposed);
    for (bool checkAll : {false, true}) {
        EXPECT_EQ(fs::findSimilarName(Path(at(composed)), checkAll).nativeString(), at(decomposed));
        Path path(at("\xc3\x89T\xc3\x89"));
        EXPECT_TRUE(fs::correctFileCaseAndComposition(path, checkAll));
        EXPECT_EQ(path.nativeString(), at(decomposed));
    }
}

TEST_F(TransformationsCorrection, NoSimilarEntryGivesEmptyAndLeavesThePath)
{
    ASSERT_TRUE(makeDirectory(at("data")));
    writeFile("data/README.txt");
    for (bool checkAll : {false, true}) {
        EXPECT_TRUE(fs::findSimilarName(Path(at("data/new.txt")), checkAll).empty());
        Path path(at("data/new.txt"));
        EXPECT_FALSE(fs::correctFileCaseAndComposition(path, checkAll));
        EXPECT_EQ(path.nativeString(), at("data/new.txt"));
        EXPECT_EQ(text(path), at("data/new.txt"));
        // A missing directory higher up makes the whole result empty too.
        EXPECT_TRUE(fs::findSimilarName(Path(at("nodir/README.txt")), checkAll).empty());
    }
}

TEST_F(TransformationsCorrection, ParentThatIsNotADirectoryKeepsTheName)
{
    writeFile("plain");
    for (bool checkAll : {false, true}) {
        EXPECT_EQ(text(fs::findSimilarName(Path(at("plain/Child")), checkAll)), at("plain/Child"));
        Path path(at("plain/Child"));
        EXPECT_TRUE(fs::correctFileCaseAndComposition(path, checkAll));
        EXPECT_EQ(text(path), at("plain/Child"));
    }
}

TEST_F(TransformationsCorrection, UnlistableParentKeepsTheName)
{
    ASSERT_TRUE(makeDirectory(at("locked")));
    writeFile("locked/Name");
    ASSERT_EQ(::chmod(scratch.c_str(), 0711), 0);
    ASSERT_EQ(::chmod(at("locked").c_str(), 0311), 0); // searchable, not readable
    std::string const asked = at("locked/NAME");
    int const status = kelvo::testing::runUnprivileged([&] {
        Path path(asked);
        bool const corrected = fs::correctFileCaseAndComposition(path, false);
        return kelvo::testing::firstFailure({
            fs::exists(Path(at("locked"))),
            text(fs::findSimilarName(Path(asked), false)) == asked,
            corrected,
            text(path) == asked,
        });
    });
    ASSERT_NE(status, kelvo::testing::kCannotDropPrivileges) << "cannot drop privileges";
    EXPECT_EQ(status, 0);
}

TEST_F(TransformationsCorrection, TwinsGiveWhicheverIsListedFirst)
{
    ASSERT_TRUE(makeDirectory(at("data")));
    writeFile("data/Readme");
    writeFile("data/README");
    std::string const first = firstListed(at("data"), {"Readme", "README"});
    ASSERT_FALSE(first.empty());
    EXPECT_EQ(fs::findSimilarName(Path(at("data/README")), true).nativeString(), at("data/" + first));
    EXPECT_EQ(fs::findSimilarName(Path(at("data/Readme")), true).nativeString(), at("data/" + first));
    EXPECT_EQ(fs::findSimilarName(Path(at("data/readme")), false).nativeString(), at("data/" + first));
    Path path(at("data/README"));
    EXPECT_TRUE(fs::correctFileCaseAndComposition(path, true));
    EXPECT_EQ(path.nativeString(), at("data/" + first));
}

TEST_F(TransformationsCorrection, ManyTwinsGiveWhicheverIsListedFirst)
{
    std::vector<std::string> const twins = {"readme", "Readme", "README", "rEADME", "ReadMe", "READme", "readME", "rEaDmE"};
    for (auto const& twin : twins)
        writeFile(twin);
    std::string const first = firstListed(scratch, twins);
    ASSERT_FALSE(first.empty());
    EXPECT_EQ(fs::findSimilarName(Path(at("ReAdMe")), false).nativeString(), at(first));
    for (auto const& twin : twins)
        EXPECT_EQ(fs::findSimilarName(Path(at(twin)), true).nativeString(), at(first)) << twin;
}

TEST_F(TransformationsCorrection, OneRelativeNameThatDoesNotExist)
{
    ASSERT_EQ(::chdir(scratch.c_str()), 0);
    writeFile("Readme");
    // Flag false: the empty parent does not exist and the climb ends empty.
    EXPECT_TRUE(fs::findSimilarName(Path("README"), false).empty());
    Path path("README");
    EXPECT_FALSE(fs::correctFileCaseAndComposition(path, false));
    EXPECT_EQ(text(path), "README");
    // Flag true: the empty directory cannot be listed, so the name is kept.
    EXPECT_EQ(text(fs::findSimilarName(Path("README"), true)), "README");
    EXPECT_TRUE(fs::correctFileCaseAndComposition(path, true));
    EXPECT_EQ(text(path), "README");
    // An existing relative name is kept with the flag false.
    EXPECT_EQ(text(fs::findSimilarName(Path("Readme"), false)), "Readme");
}

TEST_F(TransformationsCorrection, NamesThatAreNotUtf8AreFoundByTheirBytes)
{
    writeFile("caf\xe9");
    EXPECT_EQ(fs::findSimilarName(Path(at("CAF\xe9")), false).nativeString(), at("caf\xe9"));
    EXPECT_EQ(fs::findSimilarName(Path(at("CAF\xe9")), true).nativeString(), at("caf\xe9"));
    EXPECT_TRUE(fs::findSimilarName(Path(at("CAF\xe8")), false).empty());
}

TEST_F(TransformationsCorrection, ComposedAndDecomposedTwinsAreKeptAsGiven)
{
    std::string const composed = "\xc3\xa9";
    std::string const decomposed = "e\xcc\x81";
    writeFile(composed);
    writeFile(decomposed);
    for (std::string const& name : {composed, decomposed}) {
        EXPECT_EQ(fs::findSimilarName(Path(at(name)), false).nativeString(), at(name));
        Path path(at(name));
        EXPECT_TRUE(fs::correctFileCaseAndComposition(path, false));
        EXPECT_EQ(path.nativeString(), at(name));
    }
    std::string const first = firstListed(scratch, {composed, decomposed});
    ASSERT_FALSE(first.empty());
    EXPECT_EQ(fs::findSimilarName(Path(at("\xc3\x89")), false).nativeString(), at(first));
    EXPECT_EQ(fs::findSimilarName(Path(at(composed)), true).nativeString(), at(first));
    EXPECT_EQ(fs::findSimilarName(Path(at(decomposed)), true).nativeString(), at(first));
}

TEST_F(TransformationsCorrection, EmptyPath)
{
    for (bool checkAll : {false, true}) {
        EXPECT_TRUE(fs::findSimilarName(Path(""), checkAll).empty());
        Path path("");
        EXPECT_FALSE(fs::correctFileCaseAndComposition(path, checkAll));
        EXPECT_TRUE(path.empty());
    }
}

} // namespace
