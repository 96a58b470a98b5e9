// Tests of reading and changing the process's working directory through Path.
#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>

#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::getCurrentDirectory;
using kelvo::filesystem::Path;
using kelvo::filesystem::setCurrentDirectory;
using kelvo::testing::kScratchUnreachable;
using kelvo::testing::unprivilegedSkipReason;
using kelvo::testing::runUnprivileged;

/// @returns the working directory as the system reports it, however long,
/// or "<unknown>".
std::string workingDirectory()
{
    char* found = ::getcwd(nullptr, 0);
    if (!found)
        return "<unknown>";
    std::string result(found);
    std::free(found);
    return result;
}

/// Removes the entry `name` of the directory open as `parent`, with all it
/// holds, whatever the length of the paths inside it.
void removeEntryAt(int parent, char const* name)
{
    if (::unlinkat(parent, name, 0) == 0)
        return;
    int fd = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    if (fd >= 0) {
        if (DIR* dir = ::fdopendir(fd)) {
            std::vector<std::string> names;
            while (dirent* entry = ::readdir(dir)) {
                std::string entryName = entry->d_name;
                if (entryName != "." && entryName != "..")
                    names.push_back(entryName);
            }
            for (std::string const& entryName : names)
                removeEntryAt(::dirfd(dir), entryName.c_str());
            ::closedir(dir);
        } else {
            ::close(fd);
        }
    }
    ::unlinkat(parent, name, AT_REMOVEDIR);
}

/// Removes, when it goes, a tree too deep for whole-path system calls.
class DeepTreeRemover {
public:
    DeepTreeRemover(std::string parent, std::string name) : parent(std::move(parent)), name(std::move(name)) {}
    DeepTreeRemover(DeepTreeRemover const&) = delete;
    DeepTreeRemover& operator=(DeepTreeRemover const&) = delete;
    ~DeepTreeRemover()
    {
        (void)::chdir(parent.c_str());
        int fd = ::open(parent.c_str(), O_RDONLY | O_DIRECTORY);
        if (fd >= 0) {
            removeEntryAt(fd, name.c_str());
            ::close(fd);
        }
    }

private:
    std::string parent;
    std::string name;
};

class CurrentDirectoryTest : public kelvo::testing::ScratchDirectory {
protected:
    void makeDirectory(std::string const& name) const { ASSERT_EQ(::mkdir(at(name).c_str(), 0755), 0) << name; }

    /// Makes nested directories under the scratch directory so that the
    /// deepest has an absolute path of exactly `length` bytes (below the
    /// system's whole-path limit).
    /// @returns that path.
    std::string makeDirectoryOfLength(std::size_t length) const
    {
        std::string current = scratch + "/" + std::to_string(length);
        if (::mkdir(current.c_str(), 0755) != 0)
            return "<cannot make " + current + ">";
        char letter = 'a';
        while (current.size() < length) {
            std::size_t remaining = length - current.size();
            // One byte goes to the separator; never leave a single byte, which
            // could not hold another separator and name.
            std::size_t piece = remaining - 1 <= 200 ? remaining - 1 : std::min<std::size_t>(200, remaining - 3);
            current += "/" + std::string(piece, letter);
            letter = letter == 'z' ? 'a' : static_cast<char>(letter + 1);
            if (::mkdir(current.c_str(), 0755) != 0)
                return "<cannot make " + current + ">";
        }
        return current;
    }
};

TEST_F(CurrentDirectoryTest, GetReturnsTheDirectoryLastSet)
{
    makeDirectory("sub");
    ASSERT_TRUE(setCurrentDirectory(Path(scratch)));
    EXPECT_EQ(workingDirectory(), scratch);
    EXPECT_EQ(getCurrentDirectory().nativeString(), scratch);
    EXPECT_TRUE(getCurrentDirectory() == Path(scratch));

    ASSERT_TRUE(setCurrentDirectory(Path(at("sub"))));
    EXPECT_EQ(workingDirectory(), at("sub"));
    EXPECT_EQ(getCurrentDirectory().nativeString(), at("sub"));
}

TEST_F(CurrentDirectoryTest, SetAcceptsRelativePathsAndTrailingSeparators)
{
    makeDirectory("sub");
    makeDirectory("sub/inner");
    ASSERT_TRUE(setCurrentDirectory(Path(scratch)));
    EXPECT_TRUE(setCurrentDirectory(Path("sub/inner")));
    EXPECT_EQ(getCurrentDirectory().nativeString(), at("sub/inner"));
    EXPECT_TRUE(setCurrentDirectory(Path("..")));
    EXPECT_EQ(getCurrentDirectory().nativeString(), at("sub"));
    EXPECT_TRUE(setCurrentDirectory(Path(".")));
    EXPECT_EQ(getCurrentDirectory().nativeString(), at("sub"));
    EXPECT_TRUE(setCurrentDirectory(Path(scratch + "/sub/inner/")));
    EXPECT_EQ(getCurrentDirectory().nativeString(), at("sub/inner"));
    // Backslashes are separators in a path's text.
    EXPECT_TRUE(setCurrentDirectory(Path(scratch + "\\sub")));
    EXPECT_EQ(getCurrentDirectory().nativeString(), at("sub"));
}

TEST_F(CurrentDirectoryTest, SetToARegularFileFailsAndKeepsTheDirectory)
{
    writeFile("file.txt", "not a directory");
    ASSERT_TRUE(setCurrentDirectory(Path(scratch)));
    EXPECT_FALSE(setCurrentDirectory(Path(at("file.txt"))));
    EXPECT_EQ(workingDirectory(), scratch);
    EXPECT_EQ(getCurrentDirectory().nativeString(), scratch);
    EXPECT_FALSE(setCurrentDirectory(Path("file.txt")));
    EXPECT_EQ(getCurrentDirectory().nativeString(), scratch);
}

TEST_F(CurrentDirectoryTest, SetToAMissingPathFailsAndKeepsTheDirectory)
{
    ASSERT_TRUE(setCurrentDirectory(Path(scratch)));
    EXPECT_FALSE(setCurrentDirectory(Path(at("missing"))));
    EXPECT_EQ(workingDirectory(), scratch);
    EXPECT_FALSE(setCurrentDirectory(Path(at("missing/.."))));
    EXPECT_EQ(workingDirectory(), scratch);
    EXPECT_FALSE(setCurrentDirectory(Path()));
    EXPECT_EQ(workingDirectory(), scratch);
    EXPECT_EQ(getCurrentDirectory().nativeString(), scratch);
}

TEST_F(CurrentDirectoryTest, SetFollowsALinkAndGetReportsTheTarget)
{
    makeDirectory("target");
    ASSERT_EQ(::symlink(at("target").c_str(), at("link").c_str()), 0);
    ASSERT_EQ(::symlink(at("nowhere").c_str(), at("dangling").c_str()), 0);
    EXPECT_TRUE(setCurrentDirectory(Path(at("link"))));
    EXPECT_EQ(getCurrentDirectory().nativeString(), at("target"));
    EXPECT_FALSE(setCurrentDirectory(Path(at("dangling"))));
    EXPECT_EQ(getCurrentDirectory().nativeString(), at("target"));
}

TEST_F(CurrentDirectoryTest, SetWithoutSearchPermissionFails)
{
    makeDirectory("closed");
    makeDirectory("open");
    // Mode 0600 denies search to everyone but root: to its owner when the
    // suite runs as an ordinary user, and to the child that gave up root.
    ASSERT_EQ(::chmod(at("closed").c_str(), 0600), 0);
    ASSERT_EQ(::chmod(scratch.c_str(), 0711), 0);
    std::string const closed = at("closed");
    std::string const openDirectory = at("open");
    std::string const top = scratch;
    int const result = runUnprivileged([&] {
        if (::access(top.c_str(), X_OK) != 0)
            return kScratchUnreachable;
        if (::access(closed.c_str(), X_OK) == 0)
            return 91;
        if (!setCurrentDirectory(Path(top)))
            return 1;
        if (setCurrentDirectory(Path(closed)))
            return 2;
        if (workingDirectory() != top || getCurrentDirectory().nativeString() != top)
            return 3;
        if (!setCurrentDirectory(Path(openDirectory)) || getCurrentDirectory().nativeString() != openDirectory)
            return 4;
        return 0;
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    ASSERT_NE(result, 91) << "the unprivileged child can search a mode 0600 directory";
    EXPECT_EQ(result, 0) << "1: cannot enter the scratch directory, 2: entered a directory without search "
                            "permission, 3: the working directory changed, 4: cannot enter an open directory";
}

TEST_F(CurrentDirectoryTest, GetGrowsItsBufferAroundEachBoundary)
{
    for (std::size_t length : {1000u, 1023u, 1024u, 1025u, 1100u, 2047u, 2048u, 2049u, 3000u, 4000u}) {
        SCOPED_TRACE(length);
        ASSERT_GT(length, scratch.size() + 2) << "scratch path unusually long";
        std::string const deep = makeDirectoryOfLength(length);
        ASSERT_EQ(deep.size(), length) << deep;
        ASSERT_TRUE(setCurrentDirectory(Path(deep)));
        EXPECT_EQ(workingDirectory(), deep);
        Path const found = getCurrentDirectory();
        EXPECT_EQ(found.nativeString().size(), length);
        EXPECT_EQ(found.nativeString(), deep);
        ASSERT_TRUE(setCurrentDirectory(Path(scratch)));
    }
}

TEST_F(CurrentDirectoryTest, GetGivesTheFullPathBeyondTheSystemPathLimit)
{
    long const pathMax = ::pathconf("/", _PC_PATH_MAX);
    std::size_t const limit = pathMax > 0 ? static_cast<std::size_t>(pathMax) : 4096;
    ASSERT_TRUE(setCurrentDirectory(Path(scratch)));
    std::string const name(200, 'n');
    DeepTreeRemover remover(scratch, name);
    std::string expected = scratch;
    int depth = 0;
    while (expected.size() <= limit + 1000) {
        ASSERT_EQ(::mkdir(name.c_str(), 0755), 0) << "depth " << depth;
        ASSERT_TRUE(setCurrentDirectory(Path(name))) << "depth " << depth;
        expected += "/" + name;
        ++depth;
    }
    ASSERT_EQ(workingDirectory(), expected);
    Path const found = getCurrentDirectory();
    EXPECT_GT(found.nativeString().size(), limit);
    EXPECT_EQ(found.nativeString(), expected);
    EXPECT_EQ(found.string(), Path(expected).string());

    // The whole path is too long to be handed to the system at once.
    EXPECT_FALSE(setCurrentDirectory(Path(expected)));
    EXPECT_EQ(workingDirectory(), expected);
    // Relative steps still work at this depth.
    ASSERT_TRUE(setCurrentDirectory(Path("..")));
    EXPECT_EQ(getCurrentDirectory().nativeString(), expected.substr(0, expected.size() - name.size() - 1));
}

TEST_F(CurrentDirectoryTest, GetRoundTripsANameThatIsNotUTF8)
{
    std::string const name = "dir\xFF\xFE-\x80\xC3";
    makeDirectory(name);
    ASSERT_EQ(::chdir(at(name).c_str()), 0);
    Path const found = getCurrentDirectory();
    EXPECT_EQ(found.nativeString(), at(name));
    EXPECT_EQ(found.string().find(U'\xDCFF'), scratch.size() + 4) << "the byte 0xFF is kept as U+DCFF";
    ASSERT_TRUE(setCurrentDirectory(Path(scratch)));
    EXPECT_TRUE(setCurrentDirectory(found));
    EXPECT_EQ(workingDirectory(), at(name));
}

TEST_F(CurrentDirectoryTest, GetAndSetAnAccentedNameStoredComposed)
{
    std::string const composed = "Caf\xC3\xA9";
    makeDirectory(composed);
    // The bytes name the directory: its decomposed spelling names no file here.
    std::string const before = workingDirectory();
    EXPECT_FALSE(setCurrentDirectory(Path(scratch + "/Cafe\xCC\x81")));
    EXPECT_EQ(workingDirectory(), before);
    ASSERT_TRUE(setCurrentDirectory(Path(scratch + "/" + composed)));
    EXPECT_EQ(workingDirectory(), at(composed));
    Path const found = getCurrentDirectory();
    EXPECT_EQ(found.nativeString(), at(composed));
    // The text itself is decomposed, as every path's is.
    EXPECT_EQ(found.string(), Path(scratch + "/Cafe\xCC\x81").string());
    EXPECT_TRUE(found.string().substr(scratch.size()) == std::u32string(U"/Cafe\u0301"));
}

TEST_F(CurrentDirectoryTest, GetOfARemovedWorkingDirectoryIsEmpty)
{
    makeDirectory("gone");
    ASSERT_TRUE(setCurrentDirectory(Path(at("gone"))));
    ASSERT_EQ(::rmdir(at("gone").c_str()), 0);
    EXPECT_TRUE(getCurrentDirectory().empty());
    EXPECT_EQ(getCurrentDirectory().nativeString(), "");
    ASSERT_TRUE(setCurrentDirectory(Path(scratch)));
    EXPECT_EQ(getCurrentDirectory().nativeString(), scratch);
}

TEST_F(CurrentDirectoryTest, SetChangesTheDirectoryForEveryThread)
{
    makeDirectory("shared");
    ASSERT_TRUE(setCurrentDirectory(Path(scratch)));
    bool setInThread = false;
    std::string seenInThread;
    std::thread worker([&] {
        setInThread = setCurrentDirectory(Path(at("shared")));
        seenInThread = getCurrentDirectory().nativeString();
    });
    worker.join();
    EXPECT_TRUE(setInThread);
    EXPECT_EQ(seenInThread, at("shared"));
    EXPECT_EQ(getCurrentDirectory().nativeString(), at("shared"));
    EXPECT_EQ(workingDirectory(), at("shared"));
}

} // namespace
