// Tests of DirectoryEntry, DirectoryIterator and forEach, on real directories made in a scratch directory.
#include <kelvo/filesystem/DirectoryIterator.h>
#include <kelvo/filesystem/FileStatus.h>
#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>

#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using kelvo::testing::firstFailure;
using kelvo::testing::runUnprivileged;

using kelvo::filesystem::DirectoryEntry;
using kelvo::filesystem::DirectoryIterator;
using kelvo::filesystem::FileStatus;
using kelvo::filesystem::FileType;
using kelvo::filesystem::Path;
using kelvo::filesystem::Permissions;
using kelvo::unicode::String;
namespace fs = kelvo::filesystem;

constexpr FileStatus kUnknownStatus(FileType::none, Permissions::unknownPermissions);

Permissions permissionsOf(std::uint32_t mode) { return static_cast<Permissions>(mode); }

// @returns the file name part (after the last '/') of a native path.
std::string nativeName(Path const& path)
{
    std::string const native = path.nativeString();
    return native.substr(native.rfind('/') + 1);
}

// Lists `directory` to the end. @returns the entries by native file name.
std::map<std::string, DirectoryEntry> listByName(Path const& directory)
{
    std::map<std::string, DirectoryEntry> entries;
    DirectoryIterator const end;
    for (DirectoryIterator it(directory); it != end; ++it)
        entries.emplace(nativeName(it->getPath()), *it);
    return entries;
}

class DirectoryIteratorTest : public kelvo::testing::ScratchDirectory {
protected:
    std::string makeDirectory(std::string const& name, std::uint32_t mode = 0755)
    {
        EXPECT_EQ(::mkdir(at(name).c_str(), 0700), 0) << name;
        EXPECT_EQ(::chmod(at(name).c_str(), mode), 0);
        return at(name);
    }

    std::string makeFile(std::string const& name, std::uint32_t mode = 0644, std::string const& content = "")
    {
        writeFile(name, content);
        EXPECT_EQ(::chmod(at(name).c_str(), mode), 0);
        return at(name);
    }

    void makeLink(std::string const& name, std::string const& target)
    {
        EXPECT_EQ(::symlink(target.c_str(), at(name).c_str()), 0) << name;
    }

    // @returns the permission bits of the link `name` itself.
    Permissions linkPermissions(std::string const& name) const
    {
        struct stat st;
        EXPECT_EQ(::lstat(at(name).c_str(), &st), 0);
        return permissionsOf(st.st_mode & 0777);
    }
};

// ---- DirectoryEntry ---------------------------------------------------------------

TEST(DirectoryEntryTest, DefaultEntryIsEmptyWithUnknownStatuses)
{
    DirectoryEntry const entry;
    EXPECT_TRUE(entry.getPath().empty());
    EXPECT_EQ(entry.getStatus(), kUnknownStatus);
    EXPECT_EQ(entry.getSymlinkStatus(), kUnknownStatus);
}

TEST(DirectoryEntryTest, KeepsWhatItWasGiven)
{
    FileStatus const status(FileType::regularFile, permissionsOf(0640));
    FileStatus const own(FileType::symbolicLink, permissionsOf(0777));
    DirectoryEntry const entry(Path("/nowhere/at/all"), status, own);
    EXPECT_EQ(entry.getPath().string(), String(U"/nowhere/at/all"));
    // A known status answers from storage, whether the path exists or not.
    EXPECT_EQ(entry.getStatus(), status);
    EXPECT_EQ(entry.getSymlinkStatus(), own);
}

TEST(DirectoryEntryTest, ReplaceFilenameReplacesTheWholePath)
{
    DirectoryEntry entry(Path("/a/b/c"), FileStatus(FileType::directory, permissionsOf(0700)),
                         FileStatus(FileType::directory, permissionsOf(0700)));
    entry.replaceFilename(Path("x"), FileStatus(FileType::fifo, permissionsOf(0600)),
                          FileStatus(FileType::unknown, permissionsOf(0644)));
    EXPECT_EQ(entry.getPath().string(), String(U"x"));
    EXPECT_EQ(entry.getStatus(), FileStatus(FileType::fifo, permissionsOf(0600)));
    EXPECT_EQ(entry.getSymlinkStatus(), FileStatus(FileType::unknown, permissionsOf(0644)));
}

TEST(DirectoryEntryTest, CopiesAndMovesCarryPathAndStatuses)
{
    FileStatus const status(FileType::regularFile, permissionsOf(0600));
    DirectoryEntry original(Path("/p/q"), status, status);
    DirectoryEntry copy(original);
    EXPECT_EQ(copy.getPath().string(), String(U"/p/q"));
    EXPECT_EQ(copy.getStatus(), status);
    DirectoryEntry moved(std::move(copy));
    EXPECT_EQ(moved.getPath().string(), String(U"/p/q"));
    EXPECT_EQ(moved.getSymlinkStatus(), status);
    DirectoryEntry assigned;
    assigned = std::move(moved);
    EXPECT_EQ(assigned.getPath().string(), String(U"/p/q"));
    EXPECT_EQ(assigned.getStatus(), status);
}

TEST(DirectoryEntryTest, ComparesByExactCodePoints)
{
    FileStatus const status(FileType::regularFile, permissionsOf(0644));
    DirectoryEntry const upperB(Path("/d/B"), status, status);
    DirectoryEntry const lowerA(Path("/d/a"), kUnknownStatus, kUnknownStatus);
    // 'B' is 0x42 and 'a' is 0x61.
    EXPECT_TRUE(upperB < lowerA);
    EXPECT_TRUE(upperB <= lowerA);
    EXPECT_FALSE(upperB > lowerA);
    EXPECT_FALSE(upperB >= lowerA);
    EXPECT_TRUE(lowerA > upperB);
    EXPECT_TRUE(lowerA >= upperB);
    EXPECT_FALSE(upperB == lowerA);
    EXPECT_TRUE(upperB != lowerA);

    // No case folding, although the paths themselves compare equal.
    DirectoryEntry const lowerB(Path("/d/b"), status, status);
    EXPECT_TRUE(Path("/d/B") == Path("/d/b"));
    EXPECT_FALSE(upperB == lowerB);
    EXPECT_TRUE(upperB != lowerB);
    EXPECT_TRUE(upperB < lowerB);

    // Statuses play no part.
    DirectoryEntry const sameNameOtherStatus(Path("/d/B"), kUnknownStatus, kUnknownStatus);
    EXPECT_TRUE(upperB == sameNameOtherStatus);
    EXPECT_FALSE(upperB != sameNameOtherStatus);
    EXPECT_TRUE(upperB <= sameNameOtherStatus);
    EXPECT_TRUE(upperB >= sameNameOtherStatus);
    EXPECT_FALSE(upperB < sameNameOtherStatus);
    EXPECT_FALSE(upperB > sameNameOtherStatus);

    std::vector<DirectoryEntry> sorted{lowerB, lowerA, upperB};
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted[0].getPath().string(), String(U"/d/B"));
    EXPECT_EQ(sorted[1].getPath().string(), String(U"/d/a"));
    EXPECT_EQ(sorted[2].getPath().string(), String(U"/d/b"));
}

TEST_F(DirectoryIteratorTest, UnknownStatusIsLookedUpAfreshWhenThePathExists)
{
    std::string const path = makeFile("file", 0600);
    DirectoryEntry const entry(Path(path), FileStatus(FileType::none, permissionsOf(0123)),
                               FileStatus(FileType::fifo, permissionsOf(0456)));
    EXPECT_EQ(entry.getStatus(), FileStatus(FileType::regularFile, permissionsOf(0600)));
    // By the single-bit rule a regular file seen without following reads as a link.
    EXPECT_EQ(entry.getSymlinkStatus(), FileStatus(FileType::symbolicLink, permissionsOf(0600)));
    // Nothing is stored: a change shows in the next answer.
    ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
    EXPECT_EQ(entry.getStatus(), FileStatus(FileType::regularFile, permissionsOf(0640)));
    EXPECT_EQ(entry.getSymlinkStatus(), FileStatus(FileType::symbolicLink, permissionsOf(0640)));
}

TEST_F(DirectoryIteratorTest, UnknownStatusOfAMissingPathAnswersFromStorage)
{
    DirectoryEntry const entry(Path(at("missing")), FileStatus(FileType::none, permissionsOf(0123)),
                               FileStatus(FileType::fifo, permissionsOf(0456)));
    EXPECT_EQ(entry.getStatus(), FileStatus(FileType::none, permissionsOf(0123)));
    EXPECT_EQ(entry.getSymlinkStatus(), FileStatus(FileType::fifo, permissionsOf(0456)));
}

TEST_F(DirectoryIteratorTest, KnownStatusDecidesThatTheLinkStatusComesFromStorage)
{
    std::string const path = makeFile("file", 0600);
    // The stored link status is unknown, but the stored status is known.
    DirectoryEntry const entry(Path(path), FileStatus(FileType::regularFile, permissionsOf(0600)), kUnknownStatus);
    EXPECT_EQ(entry.getSymlinkStatus(), kUnknownStatus);
}

// ---- DirectoryIterator: the end and failures ----------------------------------------

TEST(DirectoryIteratorEndTest, DefaultIteratorIsTheEnd)
{
    DirectoryIterator const end;
    EXPECT_FALSE(end.canIterate());
    EXPECT_TRUE((*end).getPath().empty());
    EXPECT_EQ(end->getStatus(), kUnknownStatus);
    EXPECT_EQ(end->getSymlinkStatus(), kUnknownStatus);
    EXPECT_TRUE(end == DirectoryIterator());
    EXPECT_FALSE(end != DirectoryIterator());
}

TEST(DirectoryIteratorEndTest, AdvancingTheEndDoesNothing)
{
    DirectoryIterator it;
    ++it;
    ++it;
    EXPECT_TRUE(it == DirectoryIterator());
    EXPECT_FALSE(it.canIterate());
}

TEST_F(DirectoryIteratorTest, MissingDirectoryGivesTheEndAtOnce)
{
    DirectoryIterator it(Path(at("missing")));
    EXPECT_FALSE(it.canIterate());
    EXPECT_TRUE(it == DirectoryIterator());
    EXPECT_TRUE(it->getPath().empty());
    ++it;
    EXPECT_TRUE(it == DirectoryIterator());
    EXPECT_FALSE(it.canIterate());
}

TEST_F(DirectoryIteratorTest, RegularFileGivesTheEndAtOnce)
{
    makeFile("file", 0644, "content");
    DirectoryIterator const it(Path(at("file")));
    EXPECT_FALSE(it.canIterate());
    EXPECT_TRUE(it == DirectoryIterator());
}

TEST_F(DirectoryIteratorTest, EmptyPathGivesTheEndAtOnce)
{
    DirectoryIterator const it{Path()};
    EXPECT_FALSE(it.canIterate());
    EXPECT_TRUE(it == DirectoryIterator());
}

TEST_F(DirectoryIteratorTest, UnreadableDirectoryGivesTheEndAtOnce)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    makeDirectory("closed", 0711);
    makeFile("closed/file");
    // Searchable but not readable by everyone but root: by its owner when the
    // suite runs as an ordinary user, and by the child that gave up root.
    ASSERT_EQ(::chmod(at("closed").c_str(), 0311), 0);
    Path const closed(at("closed"));
    int const failure = runUnprivileged([&] {
        DirectoryIterator const it(closed);
        return firstFailure({
            !it.canIterate(),
            it == DirectoryIterator(),
            // Still a directory, and entered, but never listed.
            !fs::forEach(closed, [](Path const&) { return true; }),
        });
    });
    EXPECT_EQ(failure, 0) << "first failed check in the unprivileged child";
}

// ---- DirectoryIterator: listing -------------------------------------------------------

TEST_F(DirectoryIteratorTest, DirectoryWithOnlyDotAndDotDotEndsAtOnce)
{
    Path const empty(makeDirectory("empty"));
    DirectoryIterator it(empty);
    EXPECT_TRUE(it.canIterate());
    EXPECT_TRUE(it == DirectoryIterator());
    ++it;
    EXPECT_TRUE(it == DirectoryIterator());
    EXPECT_TRUE(it.canIterate());
}

TEST_F(DirectoryIteratorTest, ListsEveryEntryOnceWithItsFullPath)
{
    makeDirectory("dir");
    makeFile("dir/one");
    makeFile("dir/two");
    makeFile("dir/.hidden");
    makeFile("dir/..triple");
    makeDirectory("dir/sub");
    makeFile("dir/sub/deeper");

    Path const directory(at("dir"));
    std::vector<String> seen;
    DirectoryIterator it(directory);
    EXPECT_TRUE(it.canIterate());
    for (DirectoryIterator const end; it != end; ++it)
        seen.push_back(it->getPath().string());
    EXPECT_TRUE(it.canIterate());
    EXPECT_TRUE(it == DirectoryIterator());

    std::sort(seen.begin(), seen.end());
    std::vector<String> expected;
    for (char const* name : {"one", "two", ".hidden", "..triple", "sub"})
        expected.push_back(Path(at("dir") + "/" + name).string());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(seen, expected);
}

TEST_F(DirectoryIteratorTest, AfterACompleteListingItStillReportsCanIterate)
{
    makeDirectory("dir");
    makeFile("dir/only");
    DirectoryIterator it{Path(at("dir"))};
    ASSERT_TRUE(it != DirectoryIterator());
    ++it;
    EXPECT_TRUE(it == DirectoryIterator());
    EXPECT_TRUE(it.canIterate());
    ++it;
    EXPECT_TRUE(it == DirectoryIterator());
    EXPECT_TRUE(it.canIterate());
}

TEST_F(DirectoryIteratorTest, ListsManyEntries)
{
    makeDirectory("many");
    std::set<std::string> expected;
    for (int i = 0; i < 300; ++i) {
        std::string const name = "entry" + std::to_string(i);
        makeFile("many/" + name);
        expected.insert(name);
    }
    std::set<std::string> seen;
    for (auto const& named : listByName(Path(at("many"))))
        seen.insert(named.first);
    EXPECT_EQ(seen, expected);
}

TEST_F(DirectoryIteratorTest, RangeLoopListsTheDirectory)
{
    makeDirectory("dir");
    makeFile("dir/a");
    makeFile("dir/b");
    std::set<std::string> seen;
    for (DirectoryEntry const& entry : DirectoryIterator(Path(at("dir"))))
        seen.insert(nativeName(entry.getPath()));
    EXPECT_EQ(seen, (std::set<std::string>{"a", "b"}));
}

TEST_F(DirectoryIteratorTest, TrailingSeparatorOfTheDirectoryIsNotDoubled)
{
    makeDirectory("dir");
    makeFile("dir/name");
    DirectoryIterator const it(Path(at("dir") + "/"));
    ASSERT_TRUE(it != DirectoryIterator());
    EXPECT_EQ(it->getPath().string(), Path(at("dir/name")).string());
}

TEST_F(DirectoryIteratorTest, RelativeDirectoryGivesRelativeEntriesWithStatuses)
{
    makeDirectory("dir");
    makeFile("dir/file", 0604);
    ASSERT_EQ(::chdir(scratch.c_str()), 0);
    DirectoryIterator const it{Path("dir")};
    ASSERT_TRUE(it != DirectoryIterator());
    EXPECT_EQ(it->getPath().string(), String(U"dir/file"));
    EXPECT_EQ(it->getStatus(), FileStatus(FileType::regularFile, permissionsOf(0604)));
}

// ---- DirectoryIterator: the statuses of each kind ---------------------------------------

TEST_F(DirectoryIteratorTest, EachKindGetsItsStatuses)
{
    makeDirectory("dir");
    makeFile("dir/file", 0640, "abc");
    makeDirectory("dir/sub", 0710);
    makeLink("dir/toFile", "file");
    makeLink("dir/toSub", "sub");
    makeLink("dir/dangling", "nowhere");
    ASSERT_EQ(::mkfifo(at("dir/fifo").c_str(), 0600), 0);
    ASSERT_EQ(::chmod(at("dir/fifo").c_str(), 0604), 0);

    std::map<std::string, DirectoryEntry> const entries = listByName(Path(at("dir")));
    ASSERT_EQ(entries.size(), 6u);

    FileStatus const file(FileType::regularFile, permissionsOf(0640));
    FileStatus const sub(FileType::directory, permissionsOf(0710));

    // A plain file's link status is a copy of its status (no lstat, so no
    // single-bit "link" answer either).
    EXPECT_EQ(entries.at("file").getStatus(), file);
    EXPECT_EQ(entries.at("file").getSymlinkStatus(), file);

    EXPECT_EQ(entries.at("sub").getStatus(), sub);
    EXPECT_EQ(entries.at("sub").getSymlinkStatus(), sub);

    EXPECT_EQ(entries.at("toFile").getStatus(), file);
    EXPECT_EQ(entries.at("toFile").getSymlinkStatus(),
              FileStatus(FileType::symbolicLink, linkPermissions("dir/toFile")));

    EXPECT_EQ(entries.at("toSub").getStatus(), sub);
    EXPECT_EQ(entries.at("toSub").getSymlinkStatus(),
              FileStatus(FileType::symbolicLink, linkPermissions("dir/toSub")));

    // A dangling link is still listed: its status is unknown, its own status a link.
    EXPECT_EQ(entries.at("dangling").getStatus(), kUnknownStatus);
    EXPECT_EQ(entries.at("dangling").getSymlinkStatus(),
              FileStatus(FileType::symbolicLink, linkPermissions("dir/dangling")));

    EXPECT_EQ(entries.at("fifo").getStatus(), FileStatus(FileType::fifo, permissionsOf(0604)));
    EXPECT_EQ(entries.at("fifo").getSymlinkStatus(), FileStatus(FileType::fifo, permissionsOf(0604)));
}

TEST_F(DirectoryIteratorTest, SocketEntryReportsDirectory)
{
    makeDirectory("dir");
    std::string const socketPath = at("dir/socket");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socketPath.size() >= sizeof address.sun_path)
        GTEST_SKIP() << "the scratch directory's path is too long for a socket address";
    std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size() + 1);
    int const socketDescriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(socketDescriptor, 0);
    ASSERT_EQ(::bind(socketDescriptor, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0)
        << std::strerror(errno);
    ::close(socketDescriptor);
    ASSERT_EQ(::chmod(socketPath.c_str(), 0700), 0);

    DirectoryIterator const it{Path(at("dir"))};
    ASSERT_TRUE(it != DirectoryIterator());
    EXPECT_EQ(it->getStatus(), FileStatus(FileType::directory, permissionsOf(0700)));
    EXPECT_EQ(it->getSymlinkStatus(), FileStatus(FileType::directory, permissionsOf(0700)));
}

TEST_F(DirectoryIteratorTest, StatusesAreTakenAtTheFirstQuestionAndKept)
{
    makeDirectory("dir");
    makeFile("dir/file", 0600);
    DirectoryIterator const it{Path(at("dir"))};
    ASSERT_TRUE(it != DirectoryIterator());
    // Listed but not asked yet: a change before the first question shows.
    ASSERT_EQ(::chmod(at("dir/file").c_str(), 0644), 0);
    EXPECT_EQ(it->getStatus(), FileStatus(FileType::regularFile, permissionsOf(0644)));
    // Asked once: later changes, even the removal, do not.
    ASSERT_EQ(::chmod(at("dir/file").c_str(), 0600), 0);
    EXPECT_EQ(it->getStatus(), FileStatus(FileType::regularFile, permissionsOf(0644)));
    ASSERT_EQ(::unlink(at("dir/file").c_str()), 0);
    EXPECT_EQ(it->getStatus(), FileStatus(FileType::regularFile, permissionsOf(0644)));
    EXPECT_EQ(it->getSymlinkStatus(), FileStatus(FileType::regularFile, permissionsOf(0644)));
}

TEST_F(DirectoryIteratorTest, DanglingLinkEntryAnswersFromStorage)
{
    makeDirectory("dir");
    makeLink("dir/dangling", "nowhere");
    DirectoryIterator const it{Path(at("dir"))};
    ASSERT_TRUE(it != DirectoryIterator());
    // The status is unknown and the path does not exist: both answers are the stored ones.
    EXPECT_EQ(it->getStatus(), kUnknownStatus);
    EXPECT_EQ(it->getSymlinkStatus(), FileStatus(FileType::symbolicLink, linkPermissions("dir/dangling")));
}

// ---- DirectoryIterator: copies share one stream ---------------------------------------------

TEST_F(DirectoryIteratorTest, CopiesShareTheDirectoryStream)
{
    makeDirectory("dir");
    makeFile("dir/one");
    makeFile("dir/two");
    makeFile("dir/three");

    DirectoryIterator first{Path(at("dir"))};
    ASSERT_TRUE(first != DirectoryIterator());
    std::string const firstName = nativeName(first->getPath());

    DirectoryIterator second = first;
    EXPECT_TRUE(second == first);
    ++second;
    ASSERT_TRUE(second != DirectoryIterator());
    std::string const secondName = nativeName(second->getPath());
    // The original still stands on its own entry...
    EXPECT_EQ(nativeName(first->getPath()), firstName);
    // ...but reads on from where the copy left the stream.
    ++first;
    ASSERT_TRUE(first != DirectoryIterator());
    std::string const thirdName = nativeName(first->getPath());

    EXPECT_EQ((std::set<std::string>{firstName, secondName, thirdName}),
              (std::set<std::string>{"one", "two", "three"}));

    ++first;
    EXPECT_TRUE(first == DirectoryIterator());
    // The copy still shares the exhausted stream: it ends as well.
    ++second;
    EXPECT_TRUE(second == DirectoryIterator());
    EXPECT_TRUE(first.canIterate());
    EXPECT_TRUE(second.canIterate());
}

TEST_F(DirectoryIteratorTest, CopyKeepsTheStreamOpenAfterTheOriginalIsGone)
{
    makeDirectory("dir");
    makeFile("dir/one");
    makeFile("dir/two");

    std::set<std::string> seen;
    DirectoryIterator survivor;
    {
        DirectoryIterator original{Path(at("dir"))};
        ASSERT_TRUE(original != DirectoryIterator());
        seen.insert(nativeName(original->getPath()));
        survivor = original;
    }
    ++survivor;
    ASSERT_TRUE(survivor != DirectoryIterator());
    seen.insert(nativeName(survivor->getPath()));
    ++survivor;
    EXPECT_TRUE(survivor == DirectoryIterator());
    EXPECT_EQ(seen, (std::set<std::string>{"one", "two"}));
}

TEST_F(DirectoryIteratorTest, EntriesSortByCodePoints)
{
    makeDirectory("dir");
    makeFile("dir/b");
    makeFile("dir/B");
    makeFile("dir/a");
    std::vector<DirectoryEntry> entries;
    for (DirectoryIterator it{Path(at("dir"))}, end; it != end; ++it)
        entries.push_back(*it);
    ASSERT_EQ(entries.size(), 3u);
    std::sort(entries.begin(), entries.end());
    EXPECT_EQ(nativeName(entries[0].getPath()), "B");
    EXPECT_EQ(nativeName(entries[1].getPath()), "a");
    EXPECT_EQ(nativeName(entries[2].getPath()), "b");
}

// ---- Names kept whole -----------------------------------------------------------------------

TEST_F(DirectoryIteratorTest, NamesThatAreNotUTF8OrComposedCanBeUsed)
{
    makeDirectory("names");
    std::map<std::string, std::string> const files{
        {"caf\xE9", "latin-1 bytes"},
        {"R\xC3\xA9sum\xC3\xA9.pdf", "composed"},
        {"\xFF\xFE", "xx"},
    };
    for (auto const& file : files)
        writeFile("names/" + file.first, file.second);

    std::map<std::string, DirectoryEntry> const entries = listByName(Path(at("names")));
    ASSERT_EQ(entries.size(), files.size());
    for (auto const& file : files) {
        SCOPED_TRACE(file.first);
        auto const found = entries.find(file.first);
        ASSERT_NE(found, entries.end());
        Path const& path = found->second.getPath();
        EXPECT_EQ(path.nativeString(), at("names/" + file.first));
        EXPECT_EQ(found->second.getStatus(), FileStatus(FileType::regularFile, permissionsOf(0644)));
        EXPECT_TRUE(fs::exists(path));
        EXPECT_EQ(fs::fileSize(path), static_cast<std::int64_t>(file.second.size()));

        std::FILE* stream = fs::fopenWrapper(path, "rb");
        ASSERT_NE(stream, nullptr);
        char buffer[64] = {};
        std::size_t const read = std::fread(buffer, 1, sizeof buffer, stream);
        std::fclose(stream);
        EXPECT_EQ(std::string(buffer, read), file.second);
    }

    // The stray byte is held as the code point U+DC00 plus the byte.
    String const& text = entries.at("caf\xE9").getPath().string();
    EXPECT_EQ(text.back(), char32_t(0xDCE9));
    // The composed name is held decomposed.
    String const& resume = entries.at("R\xC3\xA9sum\xC3\xA9.pdf").getPath().string();
    EXPECT_NE(resume.find(U"e\u0301sume\u0301.pdf"), String::npos);
}

TEST_F(DirectoryIteratorTest, DirectoryWhoseNameIsNotUTF8CanBeListed)
{
    makeDirectory("d\xE9j\xE0");
    makeFile("d\xE9j\xE0/inner", 0600, "12");
    Path const directory(at("d\xE9j\xE0"));
    DirectoryIterator const it(directory);
    EXPECT_TRUE(it.canIterate());
    ASSERT_TRUE(it != DirectoryIterator());
    EXPECT_EQ(it->getPath().nativeString(), at("d\xE9j\xE0/inner"));
    EXPECT_EQ(fs::fileSize(it->getPath()), 2);
}

// ---- forEach ---------------------------------------------------------------------------------

TEST_F(DirectoryIteratorTest, ForEachOnAnEmptyDirectoryReturnsFalseWithoutCalling)
{
    Path const empty(makeDirectory("empty"));
    int calls = 0;
    EXPECT_FALSE(fs::forEach(empty, [&](Path const&) {
        ++calls;
        return true;
    }));
    EXPECT_EQ(calls, 0);
}

TEST_F(DirectoryIteratorTest, ForEachOnAMissingPathReturnsFalseWithoutCalling)
{
    int calls = 0;
    EXPECT_FALSE(fs::forEach(Path(at("missing")), [&](Path const&) {
        ++calls;
        return true;
    }));
    EXPECT_EQ(calls, 0);
}

TEST_F(DirectoryIteratorTest, ForEachOnARegularFileReturnsFalseWithoutCalling)
{
    Path const file(makeFile("file", 0644, "x"));
    int calls = 0;
    EXPECT_FALSE(fs::forEach(file, [&](Path const&) {
        ++calls;
        return true;
    }));
    EXPECT_EQ(calls, 0);
}

TEST_F(DirectoryIteratorTest, ForEachVisitsEveryEntryAndReturnsTrue)
{
    makeDirectory("dir");
    makeFile("dir/a");
    makeFile("dir/b");
    makeDirectory("dir/c");
    std::set<std::string> seen;
    EXPECT_TRUE(fs::forEach(Path(at("dir")), [&](Path const& path) {
        seen.insert(path.nativeString());
        return true;
    }));
    EXPECT_EQ(seen, (std::set<std::string>{at("dir/a"), at("dir/b"), at("dir/c")}));
}

TEST_F(DirectoryIteratorTest, ForEachStopsWhenTheCallbackAnswersFalse)
{
    makeDirectory("dir");
    makeFile("dir/a");
    makeFile("dir/b");
    makeFile("dir/c");
    int calls = 0;
    EXPECT_FALSE(fs::forEach(Path(at("dir")), [&](Path const&) {
        ++calls;
        return calls < 2;
    }));
    EXPECT_EQ(calls, 2);
}

TEST_F(DirectoryIteratorTest, ForEachAnsweredFalseOnTheLastEntryReturnsFalse)
{
    makeDirectory("dir");
    makeFile("dir/only");
    int calls = 0;
    EXPECT_FALSE(fs::forEach(Path(at("dir")), [&](Path const&) {
        ++calls;
        return false;
    }));
    EXPECT_EQ(calls, 1);
}

TEST_F(DirectoryIteratorTest, ForEachFollowsALinkToADirectory)
{
    makeDirectory("dir");
    makeFile("dir/inside");
    makeLink("link", "dir");
    std::vector<std::string> seen;
    EXPECT_TRUE(fs::forEach(Path(at("link")), [&](Path const& path) {
        seen.push_back(path.nativeString());
        return true;
    }));
    EXPECT_EQ(seen, std::vector<std::string>{at("link/inside")});
}

TEST_F(DirectoryIteratorTest, ForEachWithAnEmptyCallbackThrowsOnTheFirstEntry)
{
    makeDirectory("dir");
    makeFile("dir/a");
    std::function<bool(Path const&)> const empty;
    EXPECT_THROW(fs::forEach(Path(at("dir")), empty), std::bad_function_call);
}

TEST_F(DirectoryIteratorTest, ForEachWithAnEmptyCallbackOnAnEmptyDirectoryReturnsFalse)
{
    Path const directory(makeDirectory("empty"));
    std::function<bool(Path const&)> const empty;
    EXPECT_FALSE(fs::forEach(directory, empty));
    EXPECT_FALSE(fs::forEach(Path(at("missing")), empty));
}

} // namespace
