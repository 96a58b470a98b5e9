// Tests of AtomicFile and writeFileAtomically: contents, permissions, owners, links, refusals, stale hidden files, another file system, saves killed at random moments and a disk that fills up.
#include <kelvo/filesystem.h>

#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/SaveCrashes.h"
#include "support/ScratchDirectory.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

namespace fs = kelvo::filesystem;
using kelvo::filesystem::AtomicFile;
using kelvo::filesystem::Path;
using namespace kelvo::testing;

/// @returns the access bits (set-id and sticky bits included) of `path`, links followed.
mode_t accessBits(std::string const& path)
{
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

ino_t inodeOf(std::string const& path)
{
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

/// Sets the umask for the life of the object.
class UmaskScope {
public:
    explicit UmaskScope(mode_t mask) : previous(::umask(mask)) {}
    ~UmaskScope() { ::umask(previous); }
    UmaskScope(UmaskScope const&) = delete;
    UmaskScope& operator=(UmaskScope const&) = delete;

private:
    mode_t previous;
};

class AtomicFileTest : public ScratchDirectory {
protected:
    /// Expects the last failure to be `error` from `call` on `path`.
    static void expectFailure(int error, char const* call, std::string const& path)
    {
        fs::Failure const failed = fs::lastFailure();
        EXPECT_EQ(failed.error.value(), error) << failed.error.message();
        EXPECT_EQ(failed.call, call);
        EXPECT_EQ(failed.path.nativeString(), path);
    }
};

TEST_F(AtomicFileTest, NewFileGetsTheBytesAndModeLessTheUmask)
{
    for (mode_t mask : {022, 077, 002, 027, 0}) {
        UmaskScope scope(mask);
        std::string const target = at("new-" + std::to_string(mask));
        ASSERT_TRUE(fs::writeFileAtomically(Path(target), std::string("fresh\0bytes", 11)));
        EXPECT_EQ(readWholeFile(target), std::string("fresh\0bytes", 11));
        EXPECT_EQ(accessBits(target), 0666 & ~mask) << "umask " << mask;
    }
    EXPECT_EQ(namesIn(scratch).size(), 5u);
}

TEST_F(AtomicFileTest, ExistingFileKeepsItsPermissionBitsUnderEveryUmask)
{
    for (mode_t mask : {022, 077, 0}) {
        UmaskScope scope(mask);
        for (mode_t mode : {0640, 0600, 0755, 0444, 0604, 04750, 0}) {
            std::string const target = at("kept");
            ::unlink(target.c_str());
            ASSERT_TRUE(writeWholeFile(target, "old"));
            ASSERT_EQ(::chmod(target.c_str(), mode), 0);
            ASSERT_TRUE(fs::writeFileAtomically(Path(target), "new contents")) << fs::lastFailure().error.message();
            EXPECT_EQ(accessBits(target), mode) << "mode " << mode << " umask " << mask;
            if ((mode & 0400) != 0 || ::geteuid() == 0) {
                EXPECT_EQ(readWholeFile(target), "new contents");
            }
            EXPECT_EQ(namesIn(scratch), std::vector<std::string>{"kept"});
        }
    }
}

TEST_F(AtomicFileTest, OwnerAndGroupKeptWhenRoot)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root may give a file to another user";
    std::string const target = at("owned");
    ASSERT_TRUE(writeWholeFile(target, "old"));
    ASSERT_EQ(::chown(target.c_str(), kUnprivilegedUser, kUnprivilegedGroup), 0);
    ASSERT_EQ(::chmod(target.c_str(), 02640), 0);
    ASSERT_TRUE(fs::writeFileAtomically(Path(target), "new"));
    struct stat st;
    ASSERT_EQ(::stat(target.c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, kUnprivilegedUser);
    EXPECT_EQ(st.st_gid, kUnprivilegedGroup);
    // The change of owner clears the set-group-id bit; the bits go on after it.
    EXPECT_EQ(st.st_mode & 07777, 02640u);
    EXPECT_EQ(readWholeFile(target), "new");
}

TEST_F(AtomicFileTest, UserWhoMayNotGiveTheFileAwayBecomesItsOwnerQuietly)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to prepare a file of another user in a directory of the unprivileged one";
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    std::string const directory = at("theirs");
    ASSERT_EQ(::mkdir(directory.c_str(), 0755), 0);
    ASSERT_EQ(::chown(directory.c_str(), kUnprivilegedUser, kUnprivilegedGroup), 0);
    std::string const target = directory + "/root-owned";
    ASSERT_TRUE(writeWholeFile(target, "old", 0666));
    ASSERT_EQ(::chmod(target.c_str(), 0646), 0);
    int const result = runUnprivileged([&] {
        fs::clearLastFailure();
        if (!fs::writeFileAtomically(Path(target), "saved by another user"))
            return 1;
        return fs::lastFailure() ? 2 : 0;
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    EXPECT_EQ(result, 0);
    struct stat st;
    ASSERT_EQ(::stat(target.c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, kUnprivilegedUser);
    EXPECT_EQ(st.st_mode & 07777, 0646u);
    EXPECT_EQ(readWholeFile(target), "saved by another user");
}

TEST_F(AtomicFileTest, TargetIsUntouchedUntilCommit)
{
    std::string const target = at("doc");
    ASSERT_TRUE(writeWholeFile(target, "version A"));
    ino_t const before = inodeOf(target);
    AtomicFile file{Path(target)};
    ASSERT_TRUE(file.isOpen());
    EXPECT_EQ(file.target().nativeString(), target);
    ASSERT_TRUE(file.write("version "));
    ASSERT_TRUE(file.write(std::string(100000, 'B')));
    EXPECT_EQ(readWholeFile(target), "version A");
    EXPECT_EQ(inodeOf(target), before);
    ASSERT_TRUE(file.commit());
    EXPECT_FALSE(file.isOpen());
    EXPECT_TRUE(file.target().empty());
    EXPECT_EQ(readWholeFile(target), "version " + std::string(100000, 'B'));
    EXPECT_NE(inodeOf(target), before);
    EXPECT_EQ(namesIn(scratch), std::vector<std::string>{"doc"});
}

TEST_F(AtomicFileTest, AbandonedSavesLeaveNothing)
{
    std::string const target = at("doc");
    ASSERT_TRUE(writeWholeFile(target, "kept"));
    {
        AtomicFile file{Path(target)};
        ASSERT_TRUE(file.write(std::string(200000, 'x')));
    }
    EXPECT_EQ(readWholeFile(target), "kept");
    EXPECT_EQ(namesIn(scratch), std::vector<std::string>{"doc"});
    AtomicFile file{Path(target)};
    ASSERT_TRUE(file.write("never"));
    file.abort();
    EXPECT_FALSE(file.isOpen());
    EXPECT_FALSE(file.write("more"));
    EXPECT_FALSE(file.commit());
    file.abort();
    {
        AtomicFile fresh{Path(at("never-made"))};
        ASSERT_TRUE(fresh.write("x"));
    }
    EXPECT_EQ(readWholeFile(target), "kept");
    EXPECT_EQ(namesIn(scratch), std::vector<std::string>{"doc"});
}

TEST_F(AtomicFileTest, SmallAndLargeWritesKeepTheirOrder)
{
    std::string const target = at("mixed");
    std::string expected;
    AtomicFile file{Path(target)};
    for (int i = 0; i < 70000; ++i) {
        char const byte = static_cast<char>('a' + i % 26);
        ASSERT_TRUE(file.write(&byte, 1));
        expected.push_back(byte);
    }
    std::string const large = randomBytes(300000, 7);
    ASSERT_TRUE(file.write(large));
    expected += large;
    ASSERT_TRUE(file.write(nullptr, 0));
    ASSERT_TRUE(file.write("tail"));
    expected += "tail";
    std::string const nearlyFull = randomBytes(65535, 8);
    ASSERT_TRUE(file.write(nearlyFull));
    expected += nearlyFull;
    ASSERT_TRUE(file.commit());
    EXPECT_EQ(readWholeFile(target), expected);
}

TEST_F(AtomicFileTest, EmptyContentsMakeAnEmptyFile)
{
    std::string const target = at("empty");
    ASSERT_TRUE(writeWholeFile(target, "something"));
    ASSERT_TRUE(fs::writeFileAtomically(Path(target), ""));
    EXPECT_TRUE(isRegularOnDisk(target));
    EXPECT_EQ(readWholeFile(target), "");
    ASSERT_TRUE(fs::writeFileAtomically(Path(at("empty-new")), nullptr, 0));
    EXPECT_EQ(readWholeFile(at("empty-new")), "");
}

TEST_F(AtomicFileTest, MovesHandTheSaveOver)
{
    std::string const first = at("first");
    std::string const second = at("second");
    AtomicFile a{Path(first)};
    ASSERT_TRUE(a.write("one"));
    AtomicFile b(std::move(a));
    EXPECT_FALSE(a.isOpen());
    EXPECT_FALSE(a.commit());
    ASSERT_TRUE(b.isOpen());
    ASSERT_TRUE(b.write(" two"));
    AtomicFile c{Path(second)};
    ASSERT_TRUE(c.write("abandoned"));
    c = std::move(b); // c's own save is abandoned
    ASSERT_TRUE(c.commit());
    EXPECT_EQ(readWholeFile(first), "one two");
    EXPECT_FALSE(isPresentOnDisk(second));
    EXPECT_EQ(namesIn(scratch), std::vector<std::string>{"first"});
    AtomicFile none;
    EXPECT_FALSE(none.isOpen());
    EXPECT_FALSE(none.write("x"));
    EXPECT_FALSE(none.commit());
}

TEST_F(AtomicFileTest, LinksAreFollowedAndKept)
{
    ASSERT_EQ(::mkdir(at("real").c_str(), 0755), 0);
    std::string const file = at("real/file");
    ASSERT_TRUE(writeWholeFile(file, "old"));
    ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
    ASSERT_EQ(::symlink(file.c_str(), at("absolute").c_str()), 0);
    ASSERT_EQ(::symlink("real/file", at("relative").c_str()), 0);
    ASSERT_EQ(::mkdir(at("other").c_str(), 0755), 0);
    ASSERT_EQ(::symlink("../relative", at("other/chain").c_str()), 0);

    ASSERT_TRUE(fs::writeFileAtomically(Path(at("absolute")), "through an absolute link"));
    EXPECT_EQ(readWholeFile(file), "through an absolute link");
    ASSERT_TRUE(fs::writeFileAtomically(Path(at("relative")), "through a relative link"));
    EXPECT_EQ(readWholeFile(file), "through a relative link");
    AtomicFile chained{Path(at("other/chain"))};
    EXPECT_EQ(chained.target().nativeString(), scratch + "/other/../real/file");
    ASSERT_TRUE(chained.write("through a chain"));
    ASSERT_TRUE(chained.commit());
    EXPECT_EQ(readWholeFile(file), "through a chain");

    EXPECT_EQ(linkContents(at("absolute")), file);
    EXPECT_EQ(linkContents(at("relative")), "real/file");
    EXPECT_EQ(linkContents(at("other/chain")), "../relative");
    EXPECT_EQ(accessBits(file), 0640u);
    EXPECT_EQ(namesIn(at("real")), std::vector<std::string>{"file"});
    EXPECT_EQ(namesIn(at("other")), std::vector<std::string>{"chain"});
}

TEST_F(AtomicFileTest, DanglingLinkMakesTheFileItNames)
{
    ASSERT_EQ(::symlink("made-through-link", at("dangling").c_str()), 0);
    UmaskScope scope(022);
    ASSERT_TRUE(fs::writeFileAtomically(Path(at("dangling")), "new"));
    EXPECT_TRUE(isLinkOnDisk(at("dangling")));
    EXPECT_EQ(readWholeFile(at("made-through-link")), "new");
    EXPECT_EQ(accessBits(at("made-through-link")), 0644u);
}

TEST_F(AtomicFileTest, LoopOfLinksFails)
{
    ASSERT_EQ(::symlink("loop-b", at("loop-a").c_str()), 0);
    ASSERT_EQ(::symlink("loop-a", at("loop-b").c_str()), 0);
    fs::clearLastFailure();
    EXPECT_FALSE(fs::writeFileAtomically(Path(at("loop-a")), "x"));
    EXPECT_EQ(fs::lastFailure().error.value(), ELOOP);
    EXPECT_EQ(fs::lastFailure().call, "stat");
    EXPECT_EQ(namesIn(scratch), (std::vector<std::string>{"loop-a", "loop-b"}));
}

TEST_F(AtomicFileTest, DirectoryOrSpecialFileIsRefused)
{
    ASSERT_EQ(::mkdir(at("folder").c_str(), 0755), 0);
    ASSERT_EQ(::symlink("folder", at("to-folder").c_str()), 0);
    ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0644), 0);
    fs::clearLastFailure();
    EXPECT_FALSE(fs::writeFileAtomically(Path(at("folder")), "x"));
    expectFailure(EISDIR, "rename", at("folder"));
    EXPECT_FALSE(fs::writeFileAtomically(Path(at("to-folder")), "x"));
    expectFailure(EISDIR, "rename", at("folder"));
    EXPECT_FALSE(fs::writeFileAtomically(Path(at("new/")), "x"));
    expectFailure(EISDIR, "rename", at("new/"));
    EXPECT_FALSE(fs::writeFileAtomically(Path(at("fifo")), "x"));
    expectFailure(ENOTSUP, "rename", at("fifo"));
    EXPECT_TRUE(namesIn(at("folder")).empty());
    EXPECT_EQ(namesIn(scratch), (std::vector<std::string>{"fifo", "folder", "to-folder"}));
    EXPECT_FALSE(fs::writeFileAtomically(Path(std::string("nul\0name", 8)), "x"));
    EXPECT_EQ(namesIn(scratch).size(), 3u);
}

TEST_F(AtomicFileTest, EmptyPathNamesNothing)
{
    ASSERT_EQ(::chdir(scratch.c_str()), 0);
    fs::clearLastFailure();
    EXPECT_FALSE(fs::writeFileAtomically(Path(""), "x"));
    EXPECT_EQ(fs::lastFailure().error.value(), ENOENT);
    EXPECT_TRUE(namesIn(scratch).empty());
}

TEST_F(AtomicFileTest, MissingDirectoryFails)
{
    std::string const target = at("missing/file");
    fs::clearLastFailure();
    AtomicFile file{Path(target)};
    EXPECT_FALSE(file.isOpen());
    expectFailure(ENOENT, "openat", target);
    EXPECT_FALSE(file.commit());
}

TEST_F(AtomicFileTest, ReadOnlyDirectoryFailsCleanlyForAnUnprivilegedUser)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    std::string const directory = at("read-only");
    ASSERT_EQ(::mkdir(directory.c_str(), 0755), 0);
    std::string const target = directory + "/doc";
    ASSERT_TRUE(writeWholeFile(target, "as it was", 0666));
    ASSERT_EQ(::chmod(target.c_str(), 0666), 0);
    ASSERT_EQ(::chmod(directory.c_str(), 0555), 0);
    int const result = runUnprivileged([&] {
        if (::access(scratch.c_str(), X_OK) != 0)
            return kScratchUnreachable;
        fs::clearLastFailure();
        AtomicFile file{Path(target)};
        if (file.isOpen() || file.write("x") || file.commit())
            return 1;
        fs::Failure const failed = fs::lastFailure();
        return firstFailure({failed.error.value() == EACCES, failed.call == "openat",
                             failed.path.nativeString() == target,
                             !fs::writeFileAtomically(Path(target), "y")});
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    EXPECT_EQ(result, 0);
    EXPECT_EQ(readWholeFile(target), "as it was");
    EXPECT_EQ(namesIn(directory), std::vector<std::string>{"doc"});
}

TEST_F(AtomicFileTest, StaleHiddenFilesOfTheTargetGoWithTheNextSave)
{
    std::string const target = at("notes.txt");
    ASSERT_TRUE(writeWholeFile(target, "old"));
    ASSERT_TRUE(writeWholeFile(at(".notes.txt.kelvo-save-Ab12Cd"), "left by a killed save", 0600));
    ASSERT_TRUE(writeWholeFile(at(".notes.txt.kelvo-save-zzzzzz"), "left too", 0600));
    // Not of this target, or not a name a save makes.
    ASSERT_TRUE(writeWholeFile(at(".other.kelvo-save-Ab12Cd"), "another target's"));
    ASSERT_TRUE(writeWholeFile(at(".notes.txt.kelvo-save-Ab12C"), "five letters"));
    ASSERT_TRUE(writeWholeFile(at(".notes.txt.kelvo-save-Ab12Cde"), "seven letters"));
    ASSERT_TRUE(writeWholeFile(at(".notes.txt.kelvo-save-Ab_2Cd"), "not a letter"));
    ASSERT_EQ(::mkdir(at(".notes.txt.kelvo-save-Dir123").c_str(), 0755), 0);
    ASSERT_EQ(::symlink("notes.txt", at(".notes.txt.kelvo-save-Lnk123").c_str()), 0);
    // One that a live save holds.
    ASSERT_TRUE(writeWholeFile(at(".notes.txt.kelvo-save-Live99"), "in use"));
    LockHeldByAnotherProcess live(at(".notes.txt.kelvo-save-Live99"));
    ASSERT_TRUE(live.locked());

    ASSERT_TRUE(fs::writeFileAtomically(Path(target), "new"));
    EXPECT_EQ(readWholeFile(target), "new");
    EXPECT_EQ(namesIn(scratch), (std::vector<std::string>{
                                    ".notes.txt.kelvo-save-Ab12C", ".notes.txt.kelvo-save-Ab12Cde",
                                    ".notes.txt.kelvo-save-Ab_2Cd", ".notes.txt.kelvo-save-Dir123",
                                    ".notes.txt.kelvo-save-Live99", ".notes.txt.kelvo-save-Lnk123",
                                    ".other.kelvo-save-Ab12Cd", "notes.txt"}));
    ASSERT_TRUE(live.release());
    ASSERT_TRUE(fs::writeFileAtomically(Path(target), "newer"));
    EXPECT_FALSE(isPresentOnDisk(at(".notes.txt.kelvo-save-Live99")));
    EXPECT_TRUE(isPresentOnDisk(at(".other.kelvo-save-Ab12Cd")));
}

TEST_F(AtomicFileTest, LongNameGetsAHiddenNameThatFits)
{
    std::string const name(250, 'n');
    std::string const target = at(name);
    ASSERT_TRUE(writeWholeFile(target, "old"));
    std::string const stale = "." + name.substr(0, 236) + ".kelvo-save-Stale1";
    ASSERT_EQ(stale.size(), 255u);
    ASSERT_TRUE(writeWholeFile(at(stale), "stale", 0600));
    ASSERT_TRUE(fs::writeFileAtomically(Path(target), "new"));
    EXPECT_EQ(readWholeFile(target), "new");
    EXPECT_EQ(namesIn(scratch), std::vector<std::string>{name});
}

TEST_F(AtomicFileTest, TwoSavesOfOneFileBothComplete)
{
    std::string const target = at("shared");
    AtomicFile first{Path(target)};
    AtomicFile second{Path(target)};
    ASSERT_TRUE(first.write("first"));
    ASSERT_TRUE(second.write("second"));
    ASSERT_TRUE(first.commit());
    EXPECT_EQ(readWholeFile(target), "first");
    ASSERT_TRUE(second.commit());
    EXPECT_EQ(readWholeFile(target), "second");
    EXPECT_EQ(namesIn(scratch), std::vector<std::string>{"shared"});
}

TEST_F(AtomicFileTest, TargetOnAnotherFileSystemThanTheTemporaryDirectory)
{
    struct stat shm;
    struct stat here;
    if (::stat("/dev/shm", &shm) != 0 || !S_ISDIR(shm.st_mode) || ::access("/dev/shm", W_OK) != 0)
        GTEST_SKIP() << "/dev/shm is not a writable directory";
    ASSERT_EQ(::stat(scratch.c_str(), &here), 0);
    if (shm.st_dev == here.st_dev)
        GTEST_SKIP() << "/dev/shm is on the file system of the temporary directory";
    char pattern[] = "/dev/shm/kelvo-save-test-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern), nullptr);
    std::string const directory = pattern;
    std::string const target = directory + "/doc";
    ASSERT_TRUE(writeWholeFile(target, "old"));
    ASSERT_EQ(::chmod(target.c_str(), 0604), 0);
    // The link lives in the temporary directory, the file on the other system.
    ASSERT_EQ(::symlink(target.c_str(), at("link").c_str()), 0);
    bool const saved = fs::writeFileAtomically(Path(at("link")), "saved across");
    std::string const contents = readWholeFile(target);
    mode_t const bits = accessBits(target);
    std::vector<std::string> const names = namesIn(directory);
    removeTree(directory);
    ASSERT_TRUE(saved) << fs::lastFailure().error.message();
    EXPECT_EQ(contents, "saved across");
    EXPECT_EQ(bits, 0604u);
    EXPECT_EQ(names, std::vector<std::string>{"doc"});
    EXPECT_TRUE(isLinkOnDisk(at("link")));
}

TEST_F(AtomicFileTest, SavesKilledAtRandomMomentsLeaveOldOrNewContents)
{
    bool const stress = stressRequested();
    std::size_t const size = stress ? std::size_t(64) << 20 : std::size_t(1) << 20;
    int const kills = stress ? 1000 : 30;
    std::string const oldContents = randomBytes(size / 2 + 3, 1);
    std::string const newContents = randomBytes(size, 2);
    CrashTally tally;
    EXPECT_TRUE(killSavesAtRandom(scratch, "document", oldContents, newContents, kills,
                                  [](std::string const& path, std::string const& contents) {
                                      return fs::writeFileAtomically(Path(path), contents);
                                  },
                                  tally));
    EXPECT_EQ(tally.oldContents + tally.newContents, kills);
    RecordProperty("old_contents_after_kill", tally.oldContents);
    RecordProperty("new_contents_after_kill", tally.newContents);
}

/// Makes this child process root of its own mount namespace (through a user
/// namespace where it is not root) with a private view of every mount.
/// @returns true on success.
bool enterPrivateMounts()
{
    if (::unshare(CLONE_NEWNS) != 0) {
        uid_t const uid = ::geteuid();
        gid_t const gid = ::getegid();
        if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
            return false;
        std::string const uidMap = "0 " + std::to_string(uid) + " 1\n";
        std::string const gidMap = "0 " + std::to_string(gid) + " 1\n";
        if (!writeWholeFile("/proc/self/setgroups", "deny") || !writeWholeFile("/proc/self/uid_map", uidMap)
            || !writeWholeFile("/proc/self/gid_map", gidMap))
            return false;
    }
    return ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

constexpr int kCannotMount = 77;

TEST_F(AtomicFileTest, DiskThatFillsDuringTheWriteLeavesTheTargetAsItWas)
{
    std::string const mountPoint = at("small");
    ASSERT_EQ(::mkdir(mountPoint.c_str(), 0755), 0);
    int const result = runInChild([&] {
        if (!enterPrivateMounts() || ::mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, "size=1m,mode=0755") != 0)
            return kCannotMount;
        std::string const target = mountPoint + "/doc";
        std::string const oldContents = randomBytes(300 << 10, 3);
        if (!fs::writeFileAtomically(Path(target), oldContents))
            return 1;
        struct statvfs before;
        if (::statvfs(mountPoint.c_str(), &before) != 0)
            return 2;
        fs::clearLastFailure();
        bool const whole = fs::writeFileAtomically(Path(target), randomBytes(2 << 20, 4));
        fs::Failure const failed = fs::lastFailure();
        int const wholeChecks = firstFailure({!whole, failed.error.value() == ENOSPC, failed.call == "write",
                                              failed.path.nativeString() == target,
                                              readWholeFile(target) == oldContents,
                                              namesIn(mountPoint) == std::vector<std::string>{"doc"}});
        if (wholeChecks != 0)
            return 10 + wholeChecks;
        // Piece by piece: a write fails once the disk is full, and so does
        // every later call.
        fs::clearLastFailure();
        AtomicFile file{Path(target)};
        std::string const piece = randomBytes(40000, 5);
        int written = 0;
        while (written < 100 && file.write(piece))
            ++written;
        bool const committed = file.commit();
        fs::Failure const pieceFailure = fs::lastFailure();
        struct statvfs after;
        if (::statvfs(mountPoint.c_str(), &after) != 0)
            return 3;
        int const pieceChecks = firstFailure({written > 5 && written < 100, !committed, !file.write(piece),
                                              pieceFailure.error.value() == ENOSPC,
                                              readWholeFile(target) == oldContents,
                                              namesIn(mountPoint) == std::vector<std::string>{"doc"},
                                              after.f_bfree == before.f_bfree});
        if (pieceChecks != 0)
            return 20 + pieceChecks;
        // Room enough again: the save goes through.
        return fs::writeFileAtomically(Path(target), "fits") && readWholeFile(target) == "fits" ? 0 : 4;
    });
    if (result == kCannotMount)
        GTEST_SKIP() << "cannot mount a small tmpfs here (no root, no user namespaces)";
    EXPECT_EQ(result, 0);
}

} // namespace
