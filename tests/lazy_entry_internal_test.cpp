// Tests of listed entries that take their statuses on first need: the status calls each listing, walk and question makes, counted at the system-call table, and answers equal to statuses taken at once.
#include <kelvo/filesystem.h>
#include <kelvo/filesystem/private.h>

#include "filesystem/path/PathNativeAccess.h"
#include "filesystem/posix/SystemCalls.h"
#include "filesystem/status/ListedEntry.h"

#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::DirectoryEntry;
using kelvo::filesystem::DirectoryIterator;
using kelvo::filesystem::FileStatus;
using kelvo::filesystem::FileType;
using kelvo::filesystem::Path;
using namespace kelvo::testing;
namespace fs = kelvo::filesystem;
namespace posix = kelvo::filesystem::posix;

// What the counting calls saw: how many of each, and every name or path they
// were given.
std::atomic<int> statCalls{0};
std::atomic<int> lstatCalls{0};
std::atomic<int> fstatatCalls{0};
std::mutex seenMutex;
std::vector<std::string> seenPaths;

void see(char const* path)
{
    std::lock_guard<std::mutex> const guard(seenMutex);
    seenPaths.emplace_back(path);
}

int countingStat(char const* path, struct stat* information)
{
    ++statCalls;
    see(path);
    return posix::systemCallsOfTheSystem().stat(path, information);
}

int countingLstat(char const* path, struct stat* information)
{
    ++lstatCalls;
    see(path);
    return posix::systemCallsOfTheSystem().lstat(path, information);
}

int countingFstatat(int directory, char const* name, struct stat* information, int flags)
{
    ++fstatatCalls;
    see(name);
    return posix::systemCallsOfTheSystem().fstatat(directory, name, information, flags);
}

// A listing that does not say any entry's kind, as some file systems do.
dirent* readdirWithoutKinds(DIR* stream)
{
    dirent* const entry = posix::systemCallsOfTheSystem().readdir(stream);
    if (entry != nullptr)
        entry->d_type = DT_UNKNOWN;
    return entry;
}

int statusCalls() { return statCalls + lstatCalls + fstatatCalls; }

/// @returns whether `path` ends with the final name `name`.
bool endsWithName(std::string const& path, std::string const& name)
{
    return path == name
        || (path.size() > name.size() && path.compare(path.size() - name.size(), name.size(), name) == 0
            && path[path.size() - name.size() - 1] == '/');
}

class LazyEntry : public ScratchDirectory {
protected:
    void SetUp() override
    {
        ScratchDirectory::SetUp();
        posix::SystemCalls& calls = posix::systemCalls();
        calls.stat = countingStat;
        calls.lstat = countingLstat;
        calls.fstatat = countingFstatat;
        resetCounts();
    }
    void TearDown() override
    {
        posix::systemCalls() = posix::systemCallsOfTheSystem();
        ScratchDirectory::TearDown();
    }

    static void resetCounts()
    {
        statCalls = 0;
        lstatCalls = 0;
        fstatatCalls = 0;
        std::lock_guard<std::mutex> const guard(seenMutex);
        seenPaths.clear();
    }

    /// @returns how many status calls were given a path ending with one of `names`.
    static int statusCallsNaming(std::set<std::string> const& names)
    {
        std::lock_guard<std::mutex> const guard(seenMutex);
        int count = 0;
        for (std::string const& seen : seenPaths) {
            for (std::string const& name : names) {
                if (endsWithName(seen, name))
                    ++count;
            }
        }
        return count;
    }

    void makeDirectory(std::string const& name) { ASSERT_EQ(::mkdir(at(name).c_str(), 0777), 0) << name; }
    void makeLink(std::string const& name, std::string const& target)
    {
        ASSERT_EQ(::symlink(target.c_str(), at(name).c_str()), 0) << name;
    }

    /// Makes `count` files in "dir": every fifth one ends with ".tmp".
    /// @returns the names that do not.
    std::set<std::string> makeMatchingDirectory(int count, std::set<std::string>& matching)
    {
        makeDirectory("dir");
        std::set<std::string> others;
        for (int i = 0; i < count; ++i) {
            std::string const name = "entry" + std::to_string(i) + (i % 5 == 0 ? ".tmp" : ".dat");
            writeFile("dir/" + name, "x");
            (i % 5 == 0 ? matching : others).insert(name);
        }
        return others;
    }

    /// Every kind of entry, in "dir"; the socket only where one can be made.
    void makeEveryKind()
    {
        makeDirectory("dir");
        writeFile("dir/file", "data");
        ASSERT_EQ(::chmod(at("dir/file").c_str(), 0640), 0);
        makeDirectory("dir/sub");
        ASSERT_EQ(::chmod(at("dir/sub").c_str(), 0750), 0);
        makeLink("dir/to-file", "file");
        makeLink("dir/to-sub", "sub");
        makeLink("dir/dangling", "nowhere");
        makeLink("dir/loop", "loop");
        ASSERT_EQ(::mkfifo(at("dir/fifo").c_str(), 0600), 0);
        makeSocketFile(at("dir/socket"));
        writeFile(std::string("dir/latin-") + "\xE9\xFF", "bytes that are not UTF-8");
        makeLink(std::string("dir/link-") + "\xC3\x28", std::string("latin-") + "\xE9\xFF");
    }
};

/// The answers of an entry whose statuses were taken at once when it was
/// listed with the kind `listed` (`FileType::none` when the listing did not
/// say), made with the public functions.
struct Answers {
    FileStatus status;
    FileStatus symlinkStatus;
    FileType listedType;

    friend bool operator==(Answers const& a, Answers const& b)
    {
        return a.status == b.status && a.symlinkStatus == b.symlinkStatus && a.listedType == b.listedType;
    }
};

std::ostream& operator<<(std::ostream& out, Answers const& answers)
{
    return out << "{" << static_cast<int>(answers.status.getType()) << "/"
               << static_cast<int>(answers.status.getPermissions()) << ", "
               << static_cast<int>(answers.symlinkStatus.getType()) << "/"
               << static_cast<int>(answers.symlinkStatus.getPermissions()) << ", "
               << static_cast<int>(answers.listedType) << "}";
}

/// @returns the bytes of the final name of `entry`'s path.
std::string nameOf(DirectoryEntry const& entry)
{
    std::string const& native = fs::PathNativeAccess::native(entry.getPath());
    return native.substr(native.rfind('/') + 1);
}

Answers answersOf(DirectoryEntry const& entry)
{
    return Answers{entry.getStatus(), entry.getSymlinkStatus(), entry.getListedType()};
}

/// What an entry of `path` answers when both statuses are taken at once, as
/// a listing that reported the kind `listed` took them.
Answers takenAtOnce(Path const& path, FileType listed)
{
    FileStatus const status = fs::status(path);
    FileStatus symlinkStatus = status;
    if (listed == FileType::symbolicLink || listed == FileType::none) {
        FileStatus const own = fs::symbolicLinkStatus(path);
        if (listed == FileType::symbolicLink || own.getType() == FileType::symbolicLink)
            symlinkStatus = own;
    }
    DirectoryEntry const entry(path, status, symlinkStatus);
    Answers answers = answersOf(entry);
    if (listed != FileType::none)
        answers.listedType = listed;
    return answers;
}

/// The kind a listing with kinds reports for the object at `path`.
FileType listedKindOnDisk(std::string const& path)
{
    mode_t const mode = linkMode(path);
    if (S_ISDIR(mode))
        return FileType::directory;
    if (S_ISLNK(mode))
        return FileType::symbolicLink;
    if (S_ISREG(mode))
        return FileType::regularFile;
    if (S_ISFIFO(mode))
        return FileType::fifo;
    if (S_ISCHR(mode))
        return FileType::characterDevice;
    if (S_ISBLK(mode))
        return FileType::blockDevice;
    return FileType::unknown; // a socket
}

// ---- No status call until one is needed ------------------------------------------------------

TEST_F(LazyEntry, ListingWithoutQuestionsMakesNoStatusCall)
{
    makeDirectory("dir");
    for (int i = 0; i < 50; ++i)
        writeFile("dir/f" + std::to_string(i));
    makeLink("dir/link", "f1");
    makeLink("dir/dangling", "nowhere");
    resetCounts();
    std::size_t seen = 0;
    for (DirectoryEntry const& entry : DirectoryIterator(Path(at("dir")))) {
        EXPECT_FALSE(entry.getPath().empty());
        ++seen;
    }
    EXPECT_EQ(seen, 52u);
    EXPECT_EQ(statusCalls(), 0);
}

TEST_F(LazyEntry, ListedTypeFromTheListingMakesNoStatusCall)
{
    makeEveryKind();
    resetCounts();
    std::size_t seen = 0;
    for (DirectoryEntry const& entry : DirectoryIterator(Path(at("dir")))) {
        EXPECT_NE(entry.getListedType(), FileType::none);
        ++seen;
    }
    EXPECT_EQ(seen, isPresentOnDisk(at("dir/socket")) ? 10u : 9u);
    EXPECT_EQ(statusCalls(), 0);
}

TEST_F(LazyEntry, ForEachMakesNoStatusCallPerEntry)
{
    std::set<std::string> matching;
    std::set<std::string> others = makeMatchingDirectory(40, matching);
    resetCounts();
    int visited = 0;
    EXPECT_TRUE(fs::forEach(Path(at("dir")), [&](Path const&) {
        ++visited;
        return true;
    }));
    EXPECT_EQ(visited, 40);
    others.insert(matching.begin(), matching.end());
    EXPECT_EQ(statusCallsNaming(others), 0);
}

TEST_F(LazyEntry, FirstStatusOfAFileMakesOneStatAndLaterOnesNone)
{
    makeDirectory("dir");
    writeFile("dir/file", "x");
    resetCounts();
    DirectoryIterator const it{Path(at("dir"))};
    ASSERT_TRUE(it != DirectoryIterator());
    EXPECT_EQ(statusCalls(), 0);
    FileStatus const first = it->getStatus();
    EXPECT_EQ(statCalls, 1);
    EXPECT_EQ(lstatCalls, 0);
    EXPECT_EQ(fstatatCalls, 0);
    EXPECT_EQ(first.getType(), FileType::regularFile);
    EXPECT_EQ(it->getStatus(), first);
    EXPECT_EQ(it->getSymlinkStatus(), first);
    EXPECT_EQ(it->getListedType(), FileType::regularFile);
    EXPECT_EQ(statusCalls(), 1);
}

TEST_F(LazyEntry, FirstStatusOfALinkMakesAStatAndAnLstat)
{
    makeDirectory("dir");
    makeLink("dir/link", "..");
    resetCounts();
    DirectoryIterator const it{Path(at("dir"))};
    ASSERT_TRUE(it != DirectoryIterator());
    EXPECT_EQ(it->getSymlinkStatus().getType(), FileType::symbolicLink);
    EXPECT_EQ(statCalls, 1);
    EXPECT_EQ(lstatCalls, 1);
    EXPECT_EQ(it->getStatus().getType(), FileType::directory);
    EXPECT_EQ(it->getSymlinkStatus().getType(), FileType::symbolicLink);
    EXPECT_EQ(statusCalls(), 2);
}

TEST_F(LazyEntry, ListedTypeAsksForTheStatusesOnlyWhenTheListingDidNotSay)
{
    makeDirectory("dir");
    writeFile("dir/file", "x");
    posix::systemCalls().readdir = readdirWithoutKinds;
    resetCounts();
    DirectoryIterator const it{Path(at("dir"))};
    ASSERT_TRUE(it != DirectoryIterator());
    EXPECT_EQ(statusCalls(), 0);
    // Without following links a regular file's mode carries the link bit too
    // (the single-bit rule), so the entry's own status reads as a link.
    EXPECT_EQ(it->getListedType(), FileType::symbolicLink);
    EXPECT_EQ(statCalls, 1);
    EXPECT_EQ(lstatCalls, 1);
    EXPECT_EQ(it->getListedType(), FileType::symbolicLink);
    EXPECT_EQ(statusCalls(), 2);
}

TEST_F(LazyEntry, CopiesCarryTheStatusesTaken)
{
    makeDirectory("dir");
    writeFile("dir/file", "x");
    DirectoryIterator const it{Path(at("dir"))};
    ASSERT_TRUE(it != DirectoryIterator());
    DirectoryEntry const before = *it; // still pending
    resetCounts();
    FileStatus const taken = it->getStatus();
    EXPECT_EQ(statusCalls(), 1);
    DirectoryEntry copy = *it;
    DirectoryEntry moved = std::move(copy);
    DirectoryEntry assigned;
    assigned = moved;
    EXPECT_EQ(moved.getStatus(), taken);
    EXPECT_EQ(assigned.getStatus(), taken);
    EXPECT_EQ(assigned.getListedType(), FileType::regularFile);
    EXPECT_EQ(statusCalls(), 1);
    // The copy made before the question takes its own, once.
    EXPECT_EQ(before.getStatus(), taken);
    EXPECT_EQ(before.getStatus(), taken);
    EXPECT_EQ(statusCalls(), 2);
}

TEST_F(LazyEntry, ReplacedEntryAnswersWhatItWasGiven)
{
    makeDirectory("dir");
    writeFile("dir/file", "x");
    DirectoryIterator it{Path(at("dir"))};
    ASSERT_TRUE(it != DirectoryIterator());
    DirectoryEntry entry = *it;
    FileStatus const given(FileType::fifo, fs::Permissions::ownerRead);
    entry.replaceFilename(Path(at("dir/file")), given, given);
    resetCounts();
    EXPECT_EQ(entry.getStatus(), given);
    EXPECT_EQ(entry.getSymlinkStatus(), given);
    EXPECT_EQ(entry.getListedType(), FileType::fifo);
    EXPECT_EQ(statusCalls(), 0);
}

// ---- The same answers as statuses taken at once ------------------------------------------------

void expectAnswersTakenAtOnce(std::string const& directory, bool kindsListed)
{
    std::size_t seen = 0;
    for (DirectoryEntry const& entry : DirectoryIterator(Path(directory))) {
        std::string const name = entry.getPath().filename().string().toUTF8String();
        FileType const listed = kindsListed ? entry.getListedType() : FileType::none;
        if (kindsListed) {
            // The listing said the kind; here the test reads it from the disk.
            std::string const native = fs::PathNativeAccess::native(entry.getPath());
            EXPECT_EQ(listed, listedKindOnDisk(native)) << name;
        }
        Answers const lazy = answersOf(entry);
        Answers const atOnce = takenAtOnce(entry.getPath(), listed);
        EXPECT_EQ(lazy, atOnce) << name;
        ++seen;
    }
    EXPECT_GE(seen, 9u);
}

TEST_F(LazyEntry, AnswersEqualStatusesTakenAtOnceForEveryKind)
{
    makeEveryKind();
    expectAnswersTakenAtOnce(at("dir"), true);
}

TEST_F(LazyEntry, AnswersEqualStatusesTakenAtOnceWhenTheListingGivesNoKinds)
{
    makeEveryKind();
    posix::systemCalls().readdir = readdirWithoutKinds;
    expectAnswersTakenAtOnce(at("dir"), false);
}

TEST_F(LazyEntry, KindsOfEveryEntryAreTheStatusesOfTheDisk)
{
    makeEveryKind();
    std::size_t checked = 0;
    for (DirectoryEntry const& entry : DirectoryIterator(Path(at("dir")))) {
        std::string const name = nameOf(entry);
        FileStatus const status = entry.getStatus();
        FileStatus const own = entry.getSymlinkStatus();
        if (name == "file") {
            EXPECT_EQ(status, FileStatus(FileType::regularFile, static_cast<fs::Permissions>(0640)));
            EXPECT_EQ(own, status);
        } else if (name == "sub") {
            EXPECT_EQ(status, FileStatus(FileType::directory, static_cast<fs::Permissions>(0750)));
            EXPECT_EQ(own, status);
        } else if (name == "to-file") {
            EXPECT_EQ(status.getType(), FileType::regularFile);
            EXPECT_EQ(own.getType(), FileType::symbolicLink);
        } else if (name == "to-sub") {
            EXPECT_EQ(status.getType(), FileType::directory);
            EXPECT_EQ(own.getType(), FileType::symbolicLink);
        } else if (name == "dangling" || name == "loop") {
            EXPECT_EQ(status.getType(), FileType::none);
            EXPECT_EQ(own.getType(), FileType::symbolicLink);
        } else if (name == "fifo") {
            EXPECT_EQ(status, FileStatus(FileType::fifo, static_cast<fs::Permissions>(0600)));
            EXPECT_EQ(entry.getListedType(), FileType::fifo);
        } else if (name == "socket") {
            // A socket's mode carries the directory bit.
            EXPECT_EQ(status.getType(), FileType::directory);
            EXPECT_EQ(entry.getListedType(), FileType::unknown);
        } else if (name == std::string("latin-") + "\xE9\xFF") {
            EXPECT_EQ(status.getType(), FileType::regularFile);
        } else if (name == std::string("link-") + "\xC3\x28") {
            EXPECT_EQ(status.getType(), FileType::regularFile);
            EXPECT_EQ(own.getType(), FileType::symbolicLink);
        } else {
            ADD_FAILURE() << "unexpected entry " << name;
        }
        ++checked;
    }
    EXPECT_GE(checked, 9u);
}

TEST_F(LazyEntry, EntryDeletedBeforeItsFirstStatusHasNone)
{
    makeDirectory("dir");
    writeFile("dir/file", "x");
    makeLink("dir/link", "file");
    std::size_t seen = 0;
    for (DirectoryIterator it{Path(at("dir"))}, end; it != end; ++it) {
        ASSERT_EQ(::unlink(fs::PathNativeAccess::native(it->getPath()).c_str()), 0);
        FileType const listed = it->getListedType();
        EXPECT_EQ(it->getStatus().getType(), FileType::none);
        EXPECT_EQ(it->getSymlinkStatus().getType(), FileType::none);
        EXPECT_EQ(answersOf(*it), takenAtOnce(it->getPath(), listed));
        EXPECT_EQ(it->getListedType(), listed);
        ++seen;
    }
    EXPECT_EQ(seen, 2u);
}

TEST_F(LazyEntry, EntriesOfADirectoryWithoutSearchPermissionHaveNoStatusUnprivileged)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    makeDirectory("dir");
    writeFile("dir/file", "x");
    makeLink("dir/link", "file");
    makeDirectory("dir/sub");
    // Readable, so it can be listed, but not searchable: no entry can be
    // reached for a status.
    ASSERT_EQ(::chmod(at("dir").c_str(), 0744), 0);
    std::string const directory = at("dir");
    int const result = runUnprivileged([&] {
        if (::access(directory.c_str(), R_OK) != 0)
            return kScratchUnreachable;
        int listed = 0;
        for (DirectoryEntry const& entry : DirectoryIterator(Path(directory))) {
            FileType const kind = entry.getListedType();
            if (kind == FileType::none)
                return 10;
            if (entry.getStatus().getType() != FileType::none || entry.getSymlinkStatus().getType() != FileType::none)
                return 11;
            if (!(answersOf(entry) == takenAtOnce(entry.getPath(), kind)))
                return 12;
            ++listed;
        }
        return listed == 3 ? 0 : 13;
    });
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    EXPECT_EQ(result, 0);
}

// ---- Walks that only match names ------------------------------------------------------------------

TEST_F(LazyEntry, ForEachMatchingStatsNoEntryThatDoesNotMatch)
{
    std::set<std::string> matching;
    std::set<std::string> const others = makeMatchingDirectory(50, matching);
    resetCounts();
    std::set<std::string> visited;
    EXPECT_TRUE(fs::forEachMatching(Path(at("dir")), kelvo::unicode::String("*.tmp"), [&](Path const& entry) {
        visited.insert(entry.filename().string().toUTF8String());
        return true;
    }));
    EXPECT_EQ(visited, matching);
    EXPECT_EQ(statusCallsNaming(others), 0);
    EXPECT_EQ(statusCallsNaming(matching), 0);
}

TEST_F(LazyEntry, RemoveMatchingStatsNoEntryThatDoesNotMatch)
{
    std::set<std::string> matching;
    std::set<std::string> const others = makeMatchingDirectory(50, matching);
    resetCounts();
    EXPECT_TRUE(fs::removeMatching(Path(at("dir")), kelvo::unicode::String("*.tmp")));
    EXPECT_EQ(statusCallsNaming(others), 0);
    // One status of each match, to tell a directory from the rest.
    EXPECT_EQ(statusCallsNaming(matching), static_cast<int>(matching.size()));
    EXPECT_EQ(nameSetIn(at("dir")), others);
}

TEST_F(LazyEntry, RemoveAllMatchingStatsNoEntryThatDoesNotMatch)
{
    std::set<std::string> matching;
    std::set<std::string> const others = makeMatchingDirectory(50, matching);
    resetCounts();
    EXPECT_TRUE(fs::removeAllMatching(Path(at("dir")), kelvo::unicode::String("*.tmp")));
    EXPECT_EQ(statusCallsNaming(others), 0);
    EXPECT_EQ(nameSetIn(at("dir")), others);
}

TEST_F(LazyEntry, TemporarySweepStatsNoEntryThatDoesNotMatch)
{
    std::set<std::string> matching;
    std::set<std::string> others = makeMatchingDirectory(30, matching);
    for (int i = 0; i < 6; ++i) {
        std::string const name = "leftover" + std::to_string(i);
        writeFile("dir/" + name, "old");
        ASSERT_TRUE(setAge(at("dir/" + name), 3600LL * 1000000));
        matching.insert(name);
    }
    fs::Path const base(at("dir"));
    kelvo_private::filesystem::setTemporaryDirectoryInternal(base);
    resetCounts();
    {
        fs::TemporaryDirectory const temporary(kelvo::unicode::String("leftover"), std::chrono::minutes(1));
        EXPECT_EQ(statusCallsNaming(others), 0);
    }
    kelvo_private::filesystem::restoreTemporaryDirectoryInternal();
    std::set<std::string> left = nameSetIn(at("dir"));
    for (std::string const& name : matching) {
        if (name.rfind("leftover", 0) == 0) {
            EXPECT_EQ(left.count(name), 0u) << name;
        }
    }
    for (std::string const& name : others)
        EXPECT_EQ(left.count(name), 1u) << name;
}

TEST_F(LazyEntry, NameCorrectionStatsNoListedEntry)
{
    std::set<std::string> matching;
    std::set<std::string> others = makeMatchingDirectory(30, matching);
    makeDirectory("dir/Target");
    writeFile("dir/Target/Inner.txt", "x");
    resetCounts();
    Path corrected(at("dir/target/inner.TXT"));
    EXPECT_TRUE(fs::correctFileCaseAndComposition(corrected, false));
    EXPECT_EQ(fs::PathNativeAccess::native(corrected), at("dir/Target/Inner.txt"));
    others.insert(matching.begin(), matching.end());
    EXPECT_EQ(statusCallsNaming(others), 0);
}

// ---- Names matched as listed give the answers of their paths ------------------------------------

TEST(ListedNameJoin, EqualsTheJoinOfTheNamesPath)
{
    std::vector<Path> const directories = {
        Path("/tmp/dir"), Path("/tmp/dir/"), Path("relative"), Path("/"), Path(std::string("caf\xC3\xA9")),
        Path(std::string("caf\x65\xCC\x81/")), Path(std::string("latin\xE9")),
        Path(kelvo::unicode::String(U"r\u00E9sum\u00E9")), Path(std::string("back\\slash"))};
    std::vector<std::string> const names = {"plain.txt", "a", std::string(255, 'x'), "with space", "tab\tname",
                                            "new\nline", "back\\slash", "trailing\\", std::string("caf\xC3\xA9"),
                                            std::string("caf\x65\xCC\x81"), std::string("bad\xFF")};
    for (Path const& directory : directories) {
        for (std::string const& name : names) {
            Path const expected = directory / Path(name);
            Path const joined = fs::PathNativeAccess::joinListedName(directory, name.c_str(), name.size());
            EXPECT_EQ(joined.string(), expected.string()) << name;
            EXPECT_EQ(fs::PathNativeAccess::native(joined), fs::PathNativeAccess::native(expected)) << name;
            // Into a path that already holds storage, of another directory.
            Path reused = Path("/some/earlier/entry") / Path(std::string("na\xC3\xAFve"));
            (void)fs::PathNativeAccess::native(reused);
            fs::PathNativeAccess::assignListedName(reused, directory, name.c_str(), name.size());
            EXPECT_EQ(reused.string(), expected.string()) << name;
            EXPECT_EQ(fs::PathNativeAccess::native(reused), fs::PathNativeAccess::native(expected)) << name;
            EXPECT_EQ(reused.filename().string(), expected.filename().string()) << name;
        }
    }
}

TEST_F(LazyEntry, ForEachMatchingMatchesEachNameAsItsPathWouldBeMatched)
{
    makeDirectory("dir");
    std::vector<std::string> const names = {"a.tmp", "b.TMP", "c.tmp.dat", ".tmp", "x.tmp\n", "new\nline.tmp",
                                            "back\\slash.tmp", "slash\\", std::string("caf\xC3\xA9.tmp"),
                                            std::string("caf\x65\xCC\x81.tmp"), std::string("bad\xFF.tmp"),
                                            "abc", "bcd.tmp", "zzz"};
    for (std::string const& name : names)
        writeFile("dir/" + name, "x");
    std::vector<kelvo::unicode::String> const patterns = {
        kelvo::unicode::String("*.tmp"), kelvo::unicode::String("*"),        kelvo::unicode::String("?.tmp"),
        kelvo::unicode::String("[a-b]*.tmp"), kelvo::unicode::String("(a|b)c.*"), kelvo::unicode::String("*\\.tmp"),
        kelvo::unicode::String(U"caf\u00E9.tmp"), kelvo::unicode::String("abc"), kelvo::unicode::String("*slash*")};
    for (kelvo::unicode::String const& pattern : patterns) {
        // What matching each listed entry's path gives.
        std::multiset<std::string> expected;
        for (DirectoryEntry const& entry : DirectoryIterator(Path(at("dir")))) {
            if (fs::matchesGlobPattern(entry.getPath().filename(), pattern))
                expected.insert(fs::PathNativeAccess::native(entry.getPath()));
        }
        std::multiset<std::string> matched;
        bool const answer = fs::forEachMatching(Path(at("dir")), pattern, [&](Path const& entry) {
            matched.insert(fs::PathNativeAccess::native(entry));
            return true;
        });
        EXPECT_TRUE(answer) << pattern.toUTF8String();
        EXPECT_EQ(matched, expected) << pattern.toUTF8String();
    }
}

TEST_F(LazyEntry, ForEachMatchingThrowsForAnInvalidPatternOnlyWhenThereIsAnEntry)
{
    makeDirectory("empty");
    makeDirectory("dir");
    writeFile("dir/one", "x");
    kelvo::unicode::String const invalid("(unbalanced");
    EXPECT_FALSE(fs::forEachMatching(Path(at("empty")), invalid, [](Path const&) { return true; }));
    EXPECT_FALSE(fs::forEachMatching(Path(at("missing")), invalid, [](Path const&) { return true; }));
    EXPECT_THROW(fs::forEachMatching(Path(at("dir")), invalid, [](Path const&) { return true; }), std::regex_error);
    // An action that answers false stops the walk with false.
    EXPECT_FALSE(fs::forEachMatching(Path(at("dir")), kelvo::unicode::String("*"), [](Path const&) { return false; }));
    EXPECT_TRUE(fs::forEachMatching(Path(at("dir")), kelvo::unicode::String("none"), [](Path const&) { return false; }));
}

} // namespace
