// Tests of copy, move, rename and links: file contents and modes, trees with links and odd names, refusals, and a move across two file systems.
#include <kelvo/filesystem.h>

#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <chrono>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::Path;
using namespace kelvo::testing;
namespace fs = kelvo::filesystem;

class CopyMove : public ScratchDirectory {
protected:
    void makeDirectory(std::string const& name) { ASSERT_EQ(::mkdir(at(name).c_str(), 0777), 0) << name; }
    void makeLink(std::string const& target, std::string const& name)
    {
        ASSERT_EQ(::symlink(target.c_str(), at(name).c_str()), 0) << name;
    }
    Path path(std::string const& name) const { return Path(at(name)); }

    /// The bytes 0..255 over and over, `size` of them.
    static std::string pattern(std::size_t size)
    {
        std::string content(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            content[i] = static_cast<char>((i * 7 + i / 251) & 0xFF);
        return content;
    }
};

// ---- copyFile -------------------------------------------------------------------

TEST_F(CopyMove, CopyFileNeverOverwritesWhenAskedNotTo)
{
    writeFile("from", "new contents");
    writeFile("to", "old");
    EXPECT_FALSE(fs::copyFile(path("from"), path("to"), true));
    EXPECT_EQ(readWholeFile(at("to")), "old");
}

TEST_F(CopyMove, CopyFileOverwritesByTruncatingAndKeepsTheDestinationsMode)
{
    writeFile("from", "new");
    writeFile("to", "much longer old contents");
    ASSERT_EQ(::chmod(at("from").c_str(), 0644), 0);
    ASSERT_EQ(::chmod(at("to").c_str(), 0600), 0);
    EXPECT_TRUE(fs::copyFile(path("from"), path("to"), false));
    EXPECT_EQ(readWholeFile(at("to")), "new");
    EXPECT_EQ(linkMode(at("to")) & 07777, 0600u);
}

TEST_F(CopyMove, CopyFileOfADirectoryIsRefusedAndMakesNothing)
{
    makeDirectory("dir");
    EXPECT_FALSE(fs::copyFile(path("dir"), path("to"), true));
    EXPECT_FALSE(fs::copyFile(path("dir"), path("to"), false));
    EXPECT_FALSE(isPresentOnDisk(at("to")));
}

TEST_F(CopyMove, CopyFileOfAMissingSourceFails)
{
    EXPECT_FALSE(fs::copyFile(path("missing"), path("to"), true));
    EXPECT_FALSE(isPresentOnDisk(at("to")));
}

TEST_F(CopyMove, CopyFileOfAnEmptyFileMakesAnEmptyFile)
{
    writeFile("empty", "");
    EXPECT_TRUE(fs::copyFile(path("empty"), path("copy"), true));
    EXPECT_TRUE(isRegularOnDisk(at("copy")));
    EXPECT_EQ(readWholeFile(at("copy")), "");
}

TEST_F(CopyMove, CopyFileOfSeventyThousandBytesCopiesThemAll)
{
    std::string const content = pattern(70000);
    writeFile("big", content);
    EXPECT_TRUE(fs::copyFile(path("big"), path("copy"), true));
    EXPECT_EQ(readWholeFile(at("copy")), content);
}

TEST_F(CopyMove, NewCopyKeepsMode0640UnderUmask022AndIsDatedNow)
{
    UmaskScope mask(022);
    writeFile("from", "x");
    ASSERT_EQ(::chmod(at("from").c_str(), 0640), 0);
    struct timeval old[2] = {{1000000000, 0}, {1000000000, 0}};
    ASSERT_EQ(::utimes(at("from").c_str(), old), 0);
    auto const before = std::chrono::system_clock::now() - std::chrono::seconds(2);
    EXPECT_TRUE(fs::copyFile(path("from"), path("to"), true));
    EXPECT_EQ(linkMode(at("to")) & 07777, 0640u);
    struct stat st;
    ASSERT_EQ(::stat(at("to").c_str(), &st), 0);
    EXPECT_GE(std::chrono::system_clock::from_time_t(st.st_mtime), before);
}

TEST_F(CopyMove, NewCopyUnderUmask077KeepsOnlyTheOwnersBits)
{
    UmaskScope mask(077);
    writeFile("from", "x");
    ASSERT_EQ(::chmod(at("from").c_str(), 0644), 0);
    EXPECT_TRUE(fs::copyFile(path("from"), path("to"), true));
    EXPECT_EQ(linkMode(at("to")) & 07777, 0600u);
}

TEST_F(CopyMove, CopyFileFollowsALinkToAFile)
{
    writeFile("target", "through the link");
    makeLink(at("target"), "link");
    EXPECT_TRUE(fs::copyFile(path("link"), path("copy"), true));
    EXPECT_TRUE(isRegularOnDisk(at("copy")));
    EXPECT_EQ(readWholeFile(at("copy")), "through the link");
}

TEST_F(CopyMove, CopyFileOfAFifoCopiesWhatAWriterSends)
{
    ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0600), 0);
    // The writer holds the FIFO open from before the copy starts, so that the
    // copy finds its bytes however the processes are scheduled; the copy ends
    // once the writer has been silent for a while.
    int const writer = ::open(at("fifo").c_str(), O_RDWR | O_NONBLOCK);
    ASSERT_GE(writer, 0);
    ASSERT_EQ(::write(writer, "sent through a pipe", 19), 19);
    bool const copied = fs::copyFile(path("fifo"), path("copy"), true);
    ::close(writer);
    EXPECT_TRUE(copied);
    EXPECT_EQ(readWholeFile(at("copy")), "sent through a pipe");
    EXPECT_EQ(linkMode(at("copy")) & S_IFMT, static_cast<mode_t>(S_IFREG));
}

TEST_F(CopyMove, CopyFileIntoAReadOnlyDirectoryFailsForAnUnprivilegedUser)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    writeFile("from", "x");
    ASSERT_EQ(::chmod(at("from").c_str(), 0644), 0);
    makeDirectory("ro");
    ASSERT_EQ(::chmod(at("ro").c_str(), 0555), 0);
    std::string const from = at("from");
    std::string const to = at("ro/copy");
    int const result = runUnprivileged([&] {
        return firstFailure({!fs::copyFile(Path(from), Path(to), true), !fs::copyFile(Path(from), Path(to), false),
                             !fs::copy(Path(from), Path(to))});
    });
    if (result == kCannotDropPrivileges)
        GTEST_SKIP() << "cannot switch to an unprivileged user here";
    EXPECT_EQ(result, 0);
    EXPECT_FALSE(isPresentOnDisk(to));
}

// ---- Links and rename ---------------------------------------------------------------

TEST_F(CopyMove, CreateSymbolicLinkStoresTheTargetTextAsGiven)
{
    EXPECT_TRUE(fs::createSymbolicLink(Path("relative/target"), path("link")));
    EXPECT_EQ(linkContents(at("link")), "relative/target");
    EXPECT_FALSE(fs::createSymbolicLink(Path("other"), path("link")));
    EXPECT_EQ(linkContents(at("link")), "relative/target");
}

TEST_F(CopyMove, RenameMovesWithinOneFileSystem)
{
    writeFile("a", "a");
    EXPECT_TRUE(fs::rename(path("a"), path("b")));
    EXPECT_FALSE(isPresentOnDisk(at("a")));
    EXPECT_EQ(readWholeFile(at("b")), "a");
    EXPECT_FALSE(fs::rename(path("a"), path("c")));
}

TEST_F(CopyMove, CopySymbolicLinkMakesALinkToTheCanonicalTarget)
{
    makeDirectory("d");
    writeFile("d/b", "b");
    ASSERT_EQ(::symlink("b", at("d/a").c_str()), 0);
    EXPECT_TRUE(fs::copySymbolicLink(path("d/a"), path("copy"), true));
    EXPECT_EQ(linkContents(at("copy")), at("d/b"));
    EXPECT_EQ(readWholeFile(at("copy")), "b");
}

TEST_F(CopyMove, CopySymbolicLinkRefusesAnExistingDestinationOrReplacesIt)
{
    writeFile("target", "t");
    makeLink(at("target"), "link");
    writeFile("existing", "e");
    EXPECT_FALSE(fs::copySymbolicLink(path("link"), path("existing"), true));
    EXPECT_EQ(readWholeFile(at("existing")), "e");
    EXPECT_FALSE(isLinkOnDisk(at("existing")));
    EXPECT_TRUE(fs::copySymbolicLink(path("link"), path("existing"), false));
    EXPECT_EQ(linkContents(at("existing")), at("target"));
}

TEST_F(CopyMove, CopySymbolicLinkOfAFileResolvesToItselfAndOfADirectoryIsRefused)
{
    writeFile("plain", "p");
    makeDirectory("dir");
    // A regular file passes the link test, then resolves to itself.
    EXPECT_FALSE(fs::copySymbolicLink(path("plain"), path("c1"), true));
    EXPECT_FALSE(fs::copySymbolicLink(path("dir"), path("c2"), true));
    EXPECT_FALSE(fs::copySymbolicLink(path("missing"), path("c3"), true));
    EXPECT_FALSE(isPresentOnDisk(at("c1")));
    EXPECT_FALSE(isPresentOnDisk(at("c2")));
    EXPECT_FALSE(isPresentOnDisk(at("c3")));
}

TEST_F(CopyMove, CopySymbolicLinkOfADanglingLinkFails)
{
    makeLink(at("nowhere"), "dangling");
    EXPECT_FALSE(fs::copySymbolicLink(path("dangling"), path("copy"), true));
    EXPECT_FALSE(isPresentOnDisk(at("copy")));
}

// ---- copyDirectory and copy ------------------------------------------------------

TEST_F(CopyMove, CopyDirectoryCopiesATreeWithContentsAndFollowsLinks)
{
    makeDirectory("src");
    makeDirectory("src/sub");
    makeDirectory("src/sub/deeper");
    makeDirectory("elsewhere");
    writeFile("elsewhere/e", "outside file");
    writeFile("src/f", "top file");
    writeFile("src/sub/g", pattern(70000));
    writeFile("src/sub/deeper/h", "");
    makeLink(at("src/f"), "src/linkToFile");
    makeLink(at("elsewhere"), "src/linkToDir");
    EXPECT_TRUE(fs::copyDirectory(path("src"), path("dst"), true));
    auto const copied = describeTree(at("dst"));
    std::map<std::string, std::string> const expected = {
        {"f", "f:top file"},
        {"linkToDir", "d"},
        {"linkToDir/e", "f:outside file"},
        {"linkToFile", "f:top file"},
        {"sub", "d"},
        {"sub/deeper", "d"},
        {"sub/deeper/h", "f:"},
        {"sub/g", "f:" + pattern(70000)},
    };
    EXPECT_EQ(copied, expected);
}

TEST_F(CopyMove, CopyDirectoryIntoAnExistingDestinationCopiesNothing)
{
    makeDirectory("src");
    writeFile("src/f", "f");
    makeDirectory("dst");
    EXPECT_FALSE(fs::copyDirectory(path("src"), path("dst"), true));
    EXPECT_FALSE(fs::copyDirectory(path("src"), path("dst"), false));
    EXPECT_TRUE(namesIn(at("dst")).empty());
    writeFile("file", "");
    EXPECT_FALSE(fs::copyDirectory(path("src"), path("file"), true));
}

TEST_F(CopyMove, CopyDirectoryOfAMissingPathOrAFileIsFalse)
{
    writeFile("file", "x");
    EXPECT_FALSE(fs::copyDirectory(path("missing"), path("dst"), true));
    EXPECT_FALSE(fs::copyDirectory(path("file"), path("dst"), true));
    EXPECT_FALSE(isPresentOnDisk(at("dst")));
}

TEST_F(CopyMove, CopyDirectoryOfAnEmptyDirectoryMakesTheChain)
{
    makeDirectory("src");
    EXPECT_TRUE(fs::copyDirectory(path("src"), path("new/parent/dst"), true));
    EXPECT_TRUE(isDirectoryOnDisk(at("new/parent/dst")));
    EXPECT_TRUE(namesIn(at("new/parent/dst")).empty());
}

TEST_F(CopyMove, CopyDirectoryWithoutRecursionMakesEmptySubdirectories)
{
    makeDirectory("src");
    makeDirectory("src/sub");
    writeFile("src/sub/inner", "i");
    writeFile("src/top", "t");
    EXPECT_TRUE(fs::copyDirectory(path("src"), path("dst"), false));
    std::map<std::string, std::string> const expected = {{"sub", "d"}, {"top", "f:t"}};
    EXPECT_EQ(describeTree(at("dst")), expected);
}

TEST_F(CopyMove, CopyDirectoryCarriesOnAfterAFailingEntry)
{
    makeDirectory("src");
    makeLink(at("nowhere"), "src/dangling");
    writeFile("src/a", "a");
    writeFile("src/z", "z");
    makeDirectory("src/sub");
    writeFile("src/sub/s", "s");
    EXPECT_FALSE(fs::copyDirectory(path("src"), path("dst"), true));
    std::map<std::string, std::string> const expected = {
        {"a", "f:a"}, {"sub", "d"}, {"sub/s", "f:s"}, {"z", "f:z"}};
    EXPECT_EQ(describeTree(at("dst")), expected);
}

TEST_F(CopyMove, TreeOfOddNamesIsCopiedByteForByte)
{
    makeDirectory("src");
    makeDirectory("src/Re\xCC\x81sume\xCC\x81");
    makeDirectory("src/R\xC3\xA9sum\xC3\xA9");
    writeFile("src/Re\xCC\x81sume\xCC\x81/\xC3\xA9", "nfc inside nfd");
    writeFile("src/R\xC3\xA9sum\xC3\xA9/e\xCC\x81", "nfd inside nfc");
    writeFile("src/bad\xFF\xFEname", "not UTF-8");
    writeFile("src/\xC3\x85ngstr\xC3\xB6m", "1");
    writeFile("src/\xE2\x84\xAB" "ngstr\xC3\xB6m", "2");
    writeFile("src/readme", "A");
    writeFile("src/README", "B");
    EXPECT_TRUE(fs::copyDirectory(path("src"), path("dst"), true));
    EXPECT_EQ(describeTree(at("dst")), describeTree(at("src")));
    EXPECT_TRUE(fs::compareDirectories(path("src"), path("dst")));
    EXPECT_TRUE(fs::removeAll(path("dst")));
    EXPECT_FALSE(isPresentOnDisk(at("dst")));
}

TEST_F(CopyMove, DirectoryOfTenThousandEntriesIsCopied)
{
    makeDirectory("big");
    for (int i = 0; i < 10000; ++i) {
        std::string const name = "big/entry" + std::to_string(i);
        ASSERT_TRUE(writeWholeFile(at(name), std::to_string(i)));
    }
    EXPECT_TRUE(fs::copyDirectory(path("big"), path("copy"), true));
    EXPECT_EQ(namesIn(at("copy")).size(), 10000u);
    EXPECT_EQ(readWholeFile(at("copy/entry9999")), "9999");
    EXPECT_TRUE(fs::compareDirectories(path("big"), path("copy")));
}

TEST_F(CopyMove, CopyOfALinkToAFileMakesARegularFile)
{
    writeFile("target", "contents");
    makeLink(at("target"), "link");
    EXPECT_TRUE(fs::copy(path("link"), path("copy")));
    EXPECT_TRUE(isRegularOnDisk(at("copy")));
    EXPECT_EQ(readWholeFile(at("copy")), "contents");
    EXPECT_FALSE(fs::copy(path("link"), path("copy")));
}

TEST_F(CopyMove, CopyOfADirectoryIsRecursive)
{
    makeDirectory("src");
    makeDirectory("src/a");
    writeFile("src/a/b", "b");
    EXPECT_TRUE(fs::copy(path("src"), path("dst")));
    EXPECT_EQ(readWholeFile(at("dst/a/b")), "b");
}

// ---- move -------------------------------------------------------------------------

TEST_F(CopyMove, MoveWithinOneFileSystemRenames)
{
    makeDirectory("src");
    writeFile("src/f", "f");
    struct stat before;
    ASSERT_EQ(::stat(at("src").c_str(), &before), 0);
    EXPECT_TRUE(fs::move(path("src"), path("dst")));
    struct stat after;
    ASSERT_EQ(::stat(at("dst").c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_FALSE(isPresentOnDisk(at("src")));
}

TEST_F(CopyMove, MoveOfAMissingSourceFails)
{
    EXPECT_FALSE(fs::move(path("missing"), path("dst")));
    EXPECT_FALSE(isPresentOnDisk(at("dst")));
}

TEST_F(CopyMove, MoveAcrossFileSystemsCopiesThenDeletes)
{
    makeDirectory("mnt");
    if (::geteuid() != 0 || ::mount("tmpfs", at("mnt").c_str(), "tmpfs", 0, "size=16m") != 0)
        GTEST_SKIP() << "cannot mount a tmpfs here (needs root and mount)";
    struct Unmount {
        std::string where;
        ~Unmount() { ::umount2(where.c_str(), MNT_DETACH); }
    } unmount{at("mnt")};

    makeDirectory("tree");
    makeDirectory("tree/sub");
    writeFile("tree/sub/f", pattern(70000));
    writeFile("tree/g", "g");
    writeFile("file", "single");
    auto const expected = describeTree(at("tree"));

    EXPECT_FALSE(fs::rename(path("tree"), path("mnt/tree")));
    EXPECT_TRUE(fs::move(path("tree"), path("mnt/tree")));
    EXPECT_FALSE(isPresentOnDisk(at("tree")));
    EXPECT_EQ(describeTree(at("mnt/tree")), expected);

    EXPECT_TRUE(fs::move(path("file"), path("mnt/file")));
    EXPECT_FALSE(isPresentOnDisk(at("file")));
    EXPECT_EQ(readWholeFile(at("mnt/file")), "single");

    // The destination exists: the copy refuses and the source stays.
    writeFile("again", "again");
    EXPECT_FALSE(fs::move(path("again"), path("mnt/file")));
    EXPECT_EQ(readWholeFile(at("again")), "again");
    EXPECT_EQ(readWholeFile(at("mnt/file")), "single");
}

// ---- Paths that name no file ---------------------------------------------------------

TEST_F(CopyMove, PathWithANulByteCopiesMovesAndLinksNothing)
{
    writeFile("a", "a");
    makeDirectory("d");
    std::string withNul = at("a");
    withNul.push_back('\0');
    withNul += "x";
    std::string dirWithNul = at("d");
    dirWithNul.push_back('\0');
    Path const nulFile(withNul);
    Path const nulDir(dirWithNul);
    EXPECT_FALSE(fs::copyFile(nulFile, path("c1"), true));
    EXPECT_FALSE(fs::copyFile(path("a"), Path(at("c2") + std::string(1, '\0') + "y"), true));
    EXPECT_FALSE(fs::copyDirectory(nulDir, path("c3"), true));
    EXPECT_FALSE(fs::copy(nulFile, path("c4")));
    EXPECT_FALSE(fs::move(nulFile, path("c5")));
    EXPECT_FALSE(fs::rename(nulFile, path("c6")));
    EXPECT_FALSE(fs::createSymbolicLink(path("a"), Path(at("c7") + std::string(1, '\0'))));
    EXPECT_FALSE(fs::createSymbolicLink(nulFile, path("c8")));
    EXPECT_FALSE(fs::copySymbolicLink(nulFile, path("c9"), true));
    std::vector<std::string> const expected = {"a", "d"};
    EXPECT_EQ(namesIn(scratch), expected);
    EXPECT_EQ(readWholeFile(at("a")), "a");
}

} // namespace
