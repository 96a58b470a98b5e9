// Tests of findSimilarName and correctFileCaseAndComposition on real directories: case and composition differences, names that are not UTF-8, unlistable directories.
#include <kelvo/filesystem/DirectoryIterator.h>
#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>

#include "support/ProcessProbes.h"
#include "support/ResourceProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::Path;
using kelvo::testing::ChildMeasure;
using kelvo::testing::firstFailure;
using kelvo::testing::kBodyThrew;
using kelvo::testing::kChildDidNotExit;
using kelvo::testing::kMemoryBoundKiB;
using kelvo::testing::kSanitizerHeldKiB;
using kelvo::testing::kScratchUnreachable;
using kelvo::testing::kThreadNotStarted;
using kelvo::testing::measureInChild;
using kelvo::testing::repeated;
using kelvo::testing::runInChild;
using kelvo::testing::runOnSmallStack;
using kelvo::testing::unprivilegedSkipReason;
using kelvo::testing::runUnprivileged;
namespace fs = kelvo::filesystem;

// "Résumé.pdf" composed and decomposed.
constexpr char kComposed[] = "R\xC3\xA9sum\xC3\xA9.pdf";
constexpr char kDecomposed[] = "Re\xCC\x81sume\xCC\x81.pdf";

/// @returns the content of the file at the native `path`, or "<cannot open>".
std::string readByDirectProbe(std::string const& path)
{
    int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0)
        return "<cannot open>";
    char buffer[256];
    ssize_t got = ::read(fd, buffer, sizeof buffer);
    ::close(fd);
    return got < 0 ? "<cannot read>" : std::string(buffer, static_cast<std::size_t>(got));
}

/// A chain of directories named `name` below `base`, as deep as the system
/// accepts through paths, and (when `beyond`) one more made relative to the
/// deepest, which no path can reach and which is therefore removed here too.
class DeepChain {
public:
    DeepChain(std::string const& base, std::string name, bool beyond) : name(std::move(name))
    {
        deepest = base;
        made = true;
        while (deepest.size() + 1 + this->name.size() < PATH_MAX) {
            deepest += "/" + this->name;
            ++depth;
            made = made && ::mkdir(deepest.c_str(), 0777) == 0;
        }
        if (beyond) {
            int const fd = ::open(deepest.c_str(), O_RDONLY | O_DIRECTORY);
            extra = fd >= 0 && ::mkdirat(fd, this->name.c_str(), 0777) == 0;
            made = made && extra;
            if (fd >= 0)
                ::close(fd);
        }
    }
    DeepChain(DeepChain const&) = delete;
    DeepChain& operator=(DeepChain const&) = delete;
    ~DeepChain()
    {
        if (!extra)
            return;
        int const fd = ::open(deepest.c_str(), O_RDONLY | O_DIRECTORY);
        if (fd >= 0) {
            ::unlinkat(fd, name.c_str(), AT_REMOVEDIR);
            ::close(fd);
        }
    }

    std::string name;
    std::string deepest; ///< the deepest level a path reaches
    int depth = 0;       ///< the number of levels a path reaches
    bool made = false;
    bool extra = false;
};

/// Name correction written the plain way, by recursion, with the library's
/// public functions: the reference for the library's loop.
Path referenceMatchingNameIn(Path const& directory, Path const& name)
{
    fs::DirectoryIterator entries{Path(directory)};
    if (!entries.canIterate())
        return directory / name;
    for (fs::DirectoryIterator const end; entries != end; ++entries) {
        Path const entryName = entries->getPath().filename();
        if (entryName == name)
            return directory / entryName;
    }
    return Path();
}

Path referenceSimilarNameHelper(Path const& path, bool checkAll)
{
    if (path.empty())
        return Path();
    Path const parent = path.parentPath();
    Path const name = path.filename();
    if (!checkAll) {
        if (fs::exists(parent))
            return referenceMatchingNameIn(parent, name);
    } else if (parent == parent.rootPath()) {
        return referenceMatchingNameIn(parent, name);
    }
    Path const fixed = referenceSimilarNameHelper(parent, checkAll);
    if (fixed.empty())
        return Path();
    return referenceMatchingNameIn(fixed, name);
}

Path referenceSimilarName(Path const& path, bool checkAll)
{
    if (!checkAll && fs::exists(path))
        return path;
    return referenceSimilarNameHelper(path, checkAll);
}

class NameCorrection : public kelvo::testing::ScratchDirectory {
protected:
    void makeDirectory(std::string const& name) const { ASSERT_EQ(::mkdir(at(name).c_str(), 0777), 0) << name; }
};

TEST_F(NameCorrection, AnExistingPathIsTakenAsItIs)
{
    makeDirectory("data");
    writeFile("data/README", "upper");
    writeFile("data/Readme", "mixed");
    Path const path(at("data/README"));
    EXPECT_EQ(fs::findSimilarName(path, false).nativeString(), at("data/README"));
    Path corrected = path;
    EXPECT_TRUE(fs::correctFileCaseAndComposition(corrected, false));
    EXPECT_EQ(corrected.nativeString(), at("data/README"));
}

TEST_F(NameCorrection, TheLetterCaseOfTheLastNameIsCorrected)
{
    makeDirectory("data");
    writeFile("data/README.txt", "content");
    Path const path(at("data/Readme.TXT"));
    EXPECT_EQ(fs::findSimilarName(path, false).nativeString(), at("data/README.txt"));
    EXPECT_EQ(fs::findSimilarName(path, true).nativeString(), at("data/README.txt"));
    Path corrected = path;
    EXPECT_TRUE(fs::correctFileCaseAndComposition(corrected, false));
    EXPECT_EQ(corrected.nativeString(), at("data/README.txt"));
    EXPECT_EQ(readByDirectProbe(corrected.nativeString()), "content");
}

TEST_F(NameCorrection, AMissingDirectoryIsCorrectedBeforeTheNamesBelowIt)
{
    makeDirectory("data");
    writeFile("data/README.txt", "content");
    Path const path(at("DATA/readme.txt"));
    EXPECT_EQ(fs::findSimilarName(path, false).nativeString(), at("data/README.txt"));
    EXPECT_EQ(fs::findSimilarName(path, true).nativeString(), at("data/README.txt"));
    Path corrected = path;
    EXPECT_TRUE(fs::correctFileCaseAndComposition(corrected, true));
    EXPECT_EQ(corrected.nativeString(), at("data/README.txt"));
}

TEST_F(NameCorrection, ADecomposedNameOnDiskIsFoundFromAComposedOne)
{
    writeFile(kDecomposed, "decomposed");
    Path corrected(at(kComposed));
    ASSERT_FALSE(fs::exists(corrected)) << "the composed bytes name another file";
    EXPECT_TRUE(fs::correctFileCaseAndComposition(corrected, false));
    EXPECT_EQ(corrected.nativeString(), at(kDecomposed));
    EXPECT_TRUE(fs::exists(corrected));
    EXPECT_EQ(readByDirectProbe(corrected.nativeString()), "decomposed");
    std::FILE* file = fs::fopenWrapper(corrected, "r");
    ASSERT_NE(file, nullptr);
    std::fclose(file);
}

TEST_F(NameCorrection, AComposedNameOnDiskIsFoundFromADecomposedOne)
{
    writeFile(kComposed, "composed");
    Path const path(at(kDecomposed));
    ASSERT_FALSE(fs::exists(path));
    EXPECT_EQ(fs::findSimilarName(path, false).nativeString(), at(kComposed));
    EXPECT_EQ(fs::findSimilarName(path, true).nativeString(), at(kComposed));
}

TEST_F(NameCorrection, CaseAndCompositionTogetherAlongTheWholePath)
{
    // A directory stored decomposed and in capitals, a file name in another case.
    std::string const directory = "CAFE\xCC\x81";
    makeDirectory(directory);
    writeFile(directory + "/Notes.TXT", "notes");
    Path corrected(at("caf\xC3\xA9/notes.txt"));
    EXPECT_TRUE(fs::correctFileCaseAndComposition(corrected, true));
    EXPECT_EQ(corrected.nativeString(), at(directory + "/Notes.TXT"));
    EXPECT_EQ(readByDirectProbe(corrected.nativeString()), "notes");
}

TEST_F(NameCorrection, NamesThatAreNotUTF8AreReachedByTheirOwnBytes)
{
    std::string const directory = "d\xFF";
    makeDirectory(directory);
    writeFile(directory + "/a\xFE.txt", "bytes");
    Path corrected(at("D\xFF/A\xFE.TXT"));
    EXPECT_TRUE(fs::correctFileCaseAndComposition(corrected, false));
    EXPECT_EQ(corrected.nativeString(), at(directory + "/a\xFE.txt"));
    EXPECT_EQ(readByDirectProbe(corrected.nativeString()), "bytes");
}

TEST_F(NameCorrection, ANewNameWithoutASimilarEntryFindsNothing)
{
    makeDirectory("data");
    writeFile("data/README.txt");
    Path const path(at("data/new.txt"));
    EXPECT_TRUE(fs::findSimilarName(path, false).empty());
    EXPECT_TRUE(fs::findSimilarName(path, true).empty());
    Path unchanged = path;
    EXPECT_FALSE(fs::correctFileCaseAndComposition(unchanged, false));
    EXPECT_EQ(unchanged.nativeString(), at("data/new.txt"));
    EXPECT_FALSE(fs::correctFileCaseAndComposition(unchanged, true));
    EXPECT_EQ(unchanged.nativeString(), at("data/new.txt"));
    // A missing directory higher up makes the whole result empty too.
    EXPECT_TRUE(fs::findSimilarName(Path(at("nothing/here")), false).empty());
}

TEST_F(NameCorrection, AnUnlistableDirectoryKeepsTheNameAsGiven)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    makeDirectory("closed");
    writeFile("closed/README.txt", "content");
    // Search but no read permission: entries can be reached, not listed.
    ASSERT_EQ(::chmod(at("closed").c_str(), 0311), 0);
    std::string const top = scratch;
    std::string const given = at("closed/readme.txt");
    int const result = runUnprivileged([&] {
        if (::access(top.c_str(), X_OK) != 0)
            return kScratchUnreachable;
        if (fs::DirectoryIterator(Path(top + "/closed")).canIterate())
            return 91;
        if (fs::findSimilarName(Path(given), false).nativeString() != given)
            return 1;
        Path corrected(given);
        if (!fs::correctFileCaseAndComposition(corrected, false) || corrected.nativeString() != given)
            return 2;
        return 0;
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    ASSERT_NE(result, 91) << "a directory without read permission could be listed";
    EXPECT_EQ(result, 0) << "1: findSimilarName changed the name, 2: correctFileCaseAndComposition failed or changed it";
}

TEST_F(NameCorrection, WithTwinsTheFirstListedWins)
{
    makeDirectory("d");
    writeFile("d/Readme", "mixed");
    writeFile("d/README", "upper");
    // Which one the listing yields first, found with the system's own calls.
    std::string first;
    DIR* dir = ::opendir(at("d").c_str());
    ASSERT_NE(dir, nullptr);
    while (dirent* entry = ::readdir(dir)) {
        if (::strcasecmp(entry->d_name, "readme") == 0) {
            first = entry->d_name;
            break;
        }
    }
    ::closedir(dir);
    ASSERT_FALSE(first.empty());
    EXPECT_EQ(fs::findSimilarName(Path(at("d/README")), true).nativeString(), at("d/" + first));
    EXPECT_EQ(fs::findSimilarName(Path(at("d/readme")), false).nativeString(), at("d/" + first));
}

TEST_F(NameCorrection, ASingleRelativeName)
{
    ASSERT_EQ(::chdir(scratch.c_str()), 0);
    // Flag false: the empty parent does not exist and the climb ends empty.
    EXPECT_TRUE(fs::findSimilarName(Path("x"), false).empty());
    Path unchanged("x");
    EXPECT_FALSE(fs::correctFileCaseAndComposition(unchanged, false));
    EXPECT_EQ(unchanged.string(), Path("x").string());
    // Flag true: looked up in the directory the empty path names, which cannot
    // be listed, so it is kept as given.
    EXPECT_EQ(fs::findSimilarName(Path("x"), true).string(), Path("x").string());
    Path kept("x");
    EXPECT_TRUE(fs::correctFileCaseAndComposition(kept, true));
    EXPECT_EQ(kept.string(), Path("x").string());
    // Below an existing relative directory the name is corrected; a wrong
    // first element is never looked up, since the empty path cannot be listed.
    makeDirectory("Sub");
    writeFile("Sub/File");
    EXPECT_EQ(fs::findSimilarName(Path("Sub/file"), false).nativeString(), "Sub/File");
    EXPECT_TRUE(fs::findSimilarName(Path("sub/file"), false).empty());
    EXPECT_EQ(fs::findSimilarName(Path("sub/file"), true).nativeString(), "sub/file");
}

TEST_F(NameCorrection, AnEmptyPathFindsNothing)
{
    EXPECT_TRUE(fs::findSimilarName(Path(), false).empty());
    EXPECT_TRUE(fs::findSimilarName(Path(), true).empty());
    Path empty;
    EXPECT_FALSE(fs::correctFileCaseAndComposition(empty, false));
    EXPECT_FALSE(fs::correctFileCaseAndComposition(empty, true));
    EXPECT_TRUE(empty.empty());
}

TEST_F(NameCorrection, TheRootIsItsOwnSpelling)
{
    EXPECT_EQ(fs::findSimilarName(Path("/"), true).nativeString(), "/");
    EXPECT_EQ(fs::findSimilarName(Path("/"), false).nativeString(), "/");
}

TEST_F(NameCorrection, EverySpellingFindsWhatTheRecursiveWalkFinds)
{
    makeDirectory("Data");
    writeFile("Data/README.txt", "readme");
    makeDirectory("Data/Sub");
    writeFile("Data/Sub/File", "file");
    writeFile("Data/Sub/file2", "file2");
    makeDirectory("CAFE\xCC\x81");
    writeFile("CAFE\xCC\x81/Notes.TXT", "notes");
    makeDirectory("d\xFF");
    writeFile("d\xFF/a\xFE.txt", "bytes");
    makeDirectory("twin");
    writeFile("twin/Readme", "mixed");
    writeFile("twin/README", "upper");
    writeFile("f", "file");
    std::vector<std::string> const spellings = {
        "data/readme.TXT", "DATA/sub/FILE", "data/./sub/", "data/../DATA/sub", "data//sub//file", "Data/Sub/File",
        "data/missing/x", "data/sub/file/x", "x", "", ".", "..", "./data", "caf\xC3\xA9/notes.txt",
        "D\xFF/A\xFE.TXT", "twin/readme", "f/x", "data/", "data/sub/..", "DATA\\SUB", "./", "data/sub/./file2",
        "//data//sub", "data/sub/", std::string("Data/Sub") + '\0' + "x/file", std::string("data") + '\0',
    };
    ASSERT_EQ(::chdir(scratch.c_str()), 0);
    for (std::string const& spelling : spellings) {
        for (std::string const& given : {spelling, at(spelling)}) {
            for (bool checkAll : {false, true}) {
                Path const path(given);
                Path const expected = referenceSimilarName(path, checkAll);
                Path const found = fs::findSimilarName(path, checkAll);
                EXPECT_EQ(found.string(), expected.string()) << given << " checkAll " << checkAll;
                EXPECT_EQ(found.nativeString(), expected.nativeString()) << given << " checkAll " << checkAll;
                Path corrected = path;
                EXPECT_EQ(fs::correctFileCaseAndComposition(corrected, checkAll), !expected.empty()) << given;
                EXPECT_EQ(corrected.nativeString(), expected.empty() ? path.nativeString() : expected.nativeString())
                    << given << " checkAll " << checkAll;
            }
        }
    }
    // The root and the working directory's parents, absolute.
    for (std::string const& given : {std::string("/"), scratch + "/..", std::string("/tmp/../") + "TMP"}) {
        for (bool checkAll : {false, true}) {
            EXPECT_EQ(fs::findSimilarName(Path(given), checkAll).nativeString(),
                      referenceSimilarName(Path(given), checkAll).nativeString())
                << given << " checkAll " << checkAll;
        }
    }
}

TEST_F(NameCorrection, ALongPathOfTwentyThousandPartsIsCorrectedAsFarAsItCanBeListedInLittleMemory)
{
    // "AB" directories as deep as paths reach, and one more below them. The
    // path asks for "ab" 20,000 times (60 KB): every "AB" is found in its
    // parent's listing, including the one that no path reaches; below it
    // nothing can be listed, so the remaining names are kept as given.
    DeepChain const chain(scratch, "AB", true);
    ASSERT_TRUE(chain.made);
    int const parts = 20000;
    std::string const given = scratch + repeated("/ab", parts);
    ASSERT_GE(given.size(), 60000u);
    std::string const expected = scratch + repeated("/AB", chain.depth + 1) + repeated("/ab", parts - chain.depth - 1);
    for (int call = 0; call < 4; ++call) {
        bool const checkAll = (call % 2) == 1;
        ChildMeasure const measure = measureInChild([&] {
            Path path(given);
            if (call < 2)
                return fs::findSimilarName(path, checkAll).nativeString() == expected ? 0 : 1;
            if (!fs::correctFileCaseAndComposition(path, checkAll))
                return 2;
            return path.nativeString() == expected ? 0 : 3;
        });
        char const* const what = call < 2 ? "findSimilarName" : "correctFileCaseAndComposition";
        EXPECT_EQ(measure.exitStatus, 0) << what << " checkAll " << checkAll << ": 1 or 3: another path; 2: false; "
                                         << kChildDidNotExit << ": the child died; " << kBodyThrew << ": out of memory";
        EXPECT_GE(measure.peakGrowthKiB, 0) << what << " checkAll " << checkAll;
        EXPECT_LT(measure.peakGrowthKiB, kMemoryBoundKiB + kSanitizerHeldKiB) << what << " checkAll " << checkAll;
    }
}

/// Corrects a real chain given in another letter case and a path reaching
/// beyond a second chain, with both flags, through both functions.
/// @returns 0 when every answer is the expected one, else the index plus one
/// of the first that is not.
int correctsDeepPaths(std::string const& givenReal, std::string const& expectedReal,
                      std::string const& givenBeyond, std::string const& expectedBeyond)
{
    std::vector<bool> checks;
    for (bool checkAll : {false, true}) {
        checks.push_back(fs::findSimilarName(Path(givenReal), checkAll).nativeString() == expectedReal);
        checks.push_back(fs::findSimilarName(Path(givenBeyond), checkAll).nativeString() == expectedBeyond);
        Path corrected(givenReal);
        checks.push_back(fs::correctFileCaseAndComposition(corrected, checkAll)
                         && corrected.nativeString() == expectedReal);
        Path correctedBeyond(givenBeyond);
        checks.push_back(fs::correctFileCaseAndComposition(correctedBeyond, checkAll)
                         && correctedBeyond.nativeString() == expectedBeyond);
    }
    for (std::size_t i = 0; i < checks.size(); ++i) {
        if (!checks[i])
            return static_cast<int>(i) + 1;
    }
    return 0;
}

TEST_F(NameCorrection, WalksOfAnyDepthRunOnASmallMachineStack)
{
    // On a thread with a 256 KiB stack, in a child so that an overflow shows as
    // a failure: a real chain as deep as paths reach, asked for in another
    // letter case, and a path of 30,000 parts reaching one level beyond it.
    makeDirectory("real");
    DeepChain const real(at("real"), "D", false);
    ASSERT_TRUE(real.made);
    std::string const givenReal = at("real") + repeated("/d", real.depth);
    std::string const expectedReal = at("real") + repeated("/D", real.depth);
    makeDirectory("beyond");
    DeepChain const beyond(at("beyond"), "E", true);
    ASSERT_TRUE(beyond.made);
    int const parts = 30000;
    std::string const givenBeyond = at("beyond") + repeated("/e", parts);
    std::string const expectedBeyond = at("beyond") + repeated("/E", beyond.depth + 1) + repeated("/e", parts - beyond.depth - 1);
    int const result = runInChild([&] {
        return runOnSmallStack([&] {
            return correctsDeepPaths(givenReal, expectedReal, givenBeyond, expectedBeyond);
        });
    });
    EXPECT_EQ(result, 0) << kChildDidNotExit << ": the child died (a stack overflow); " << kThreadNotStarted
                         << ": no thread; " << kBodyThrew << ": out of memory; else the index of the wrong answer";
}

TEST_F(NameCorrection, WalksUnderALimitOfSixtyFourDescriptorsAnswerAsWithoutALimit)
{
    // A real chain as deep as paths reach, asked for in another letter case,
    // and a path of 20,000 parts reaching one level beyond a second chain:
    // corrected with no limit here and in a child that may hold only 64
    // descriptors, whose answers must be the same, byte for byte.
    constexpr rlim_t kLimit = 64;
    makeDirectory("real");
    DeepChain const real(at("real"), "D", false);
    ASSERT_TRUE(real.made);
    makeDirectory("beyond");
    DeepChain const beyond(at("beyond"), "E", true);
    ASSERT_TRUE(beyond.made);
    std::vector<std::string> const given{at("real") + repeated("/d", real.depth),
                                         at("beyond") + repeated("/e", 20000)};
    auto answers = [&given] {
        std::vector<std::string> out;
        for (std::string const& path : given) {
            for (bool checkAll : {false, true}) {
                out.push_back(fs::findSimilarName(Path(path), checkAll).nativeString());
                Path corrected(path);
                bool const answer = fs::correctFileCaseAndComposition(corrected, checkAll);
                out.push_back((answer ? "true:" : "false:") + corrected.nativeString());
            }
        }
        return out;
    };
    std::vector<std::string> const free = answers();
    ASSERT_EQ(free.size(), 8u);
    // The unlimited answers are the right ones to begin with.
    std::string const expectedReal = at("real") + repeated("/D", real.depth);
    EXPECT_EQ(free[0], expectedReal);
    EXPECT_EQ(free[1], "true:" + expectedReal);
    EXPECT_EQ(free[2], expectedReal);
    EXPECT_EQ(free[3], "true:" + expectedReal);
    std::string const expectedBeyond =
        at("beyond") + repeated("/E", beyond.depth + 1) + repeated("/e", 20000 - beyond.depth - 1);
    EXPECT_EQ(free[4], expectedBeyond);
    EXPECT_EQ(free[6], expectedBeyond);
    int const result = runInChild([&] {
        rlimit const limit{kLimit, kLimit};
        if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
            return 100;
        std::vector<std::string> const limited = answers();
        for (std::size_t i = 0; i < limited.size(); ++i) {
            if (limited[i] != free[i])
                return static_cast<int>(i) + 1;
        }
        return 0;
    });
    EXPECT_EQ(result, 0) << "100: the limit could not be set; " << kChildDidNotExit
                         << ": the child died; else the index plus one of the answer that changed";
}

TEST_F(NameCorrection, WalksOfAnyDepthRunOnASmallMachineStackForAnUnprivilegedUser)
{
    // The walks of 30,000 parts as an unprivileged user, who may list the
    // chains but own none of them.
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    makeDirectory("real");
    DeepChain const real(at("real"), "D", false);
    ASSERT_TRUE(real.made);
    makeDirectory("beyond");
    DeepChain const beyond(at("beyond"), "E", true);
    ASSERT_TRUE(beyond.made);
    std::string const givenReal = at("real") + repeated("/d", real.depth);
    std::string const expectedReal = at("real") + repeated("/D", real.depth);
    int const parts = 30000;
    std::string const givenBeyond = at("beyond") + repeated("/e", parts);
    std::string const expectedBeyond = at("beyond") + repeated("/E", beyond.depth + 1) + repeated("/e", parts - beyond.depth - 1);
    int const result = runUnprivileged([&] {
        if (::access(scratch.c_str(), R_OK | X_OK) != 0)
            return kScratchUnreachable;
        return runOnSmallStack([&] {
            return correctsDeepPaths(givenReal, expectedReal, givenBeyond, expectedBeyond);
        });
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    EXPECT_EQ(result, 0) << kChildDidNotExit << ": the child died (a stack overflow); " << kThreadNotStarted
                         << ": no thread; " << kBodyThrew << ": out of memory; else the index of the wrong answer";
}

} // namespace
