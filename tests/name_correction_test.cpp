// Tests of findSimilarName and correctFileCaseAndComposition on real directories: case and composition differences, names that are not UTF-8, unlistable directories.
#include <kelvo/filesystem/DirectoryIterator.h>
#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>

#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::Path;
using kelvo::testing::kScratchUnreachable;
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

} // namespace
