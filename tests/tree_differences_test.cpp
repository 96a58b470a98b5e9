// Tests of differencesBetween: every kind of difference on real trees, names paired ignoring case and composition, names that are not UTF-8, links, special files that must not block, unreadable directories, permissions and times on request, and deep trees under few descriptors.
#include <kelvo/filesystem.h>

#include "support/DirectoryChains.h"
#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ResourceProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::DifferenceKind;
using kelvo::filesystem::DifferenceOptions;
using kelvo::filesystem::Failure;
using kelvo::filesystem::FileType;
using kelvo::filesystem::Path;
using kelvo::filesystem::TreeDifference;
using namespace kelvo::testing;
namespace fs = kelvo::filesystem;

/// @returns the name of a difference's kind, for readable expectations.
char const* kindName(DifferenceKind kind)
{
    switch (kind) {
    case DifferenceKind::onlyInFirst:
        return "onlyInFirst";
    case DifferenceKind::onlyInSecond:
        return "onlyInSecond";
    case DifferenceKind::differentKinds:
        return "differentKinds";
    case DifferenceKind::differentContents:
        return "differentContents";
    case DifferenceKind::differentPermissions:
        return "differentPermissions";
    case DifferenceKind::differentTimes:
        return "differentTimes";
    case DifferenceKind::differentSpelling:
        return "differentSpelling";
    }
    return "?";
}

/// @returns a short name of a file type.
char const* typeName(FileType type)
{
    switch (type) {
    case FileType::none:
        return "none";
    case FileType::regularFile:
        return "file";
    case FileType::directory:
        return "dir";
    case FileType::symbolicLink:
        return "link";
    case FileType::blockDevice:
        return "block";
    case FileType::characterDevice:
        return "char";
    case FileType::fifo:
        return "fifo";
    case FileType::unknown:
        return "unknown";
    }
    return "?";
}

/// @returns `path` relative to `root` ("" for a path outside it or empty).
std::string below(Path const& path, std::string const& root)
{
    std::string const native = path.nativeString();
    if (native.compare(0, root.size() + 1, root + "/") != 0)
        return native.empty() ? "" : "!" + native;
    return native.substr(root.size() + 1);
}

/// Makes a socket file at `path` through its directory's descriptor, so that
/// its name fits a socket address however long the scratch path is.
/// @returns true when it is there.
bool makeSocketAt(std::string const& path)
{
    std::size_t const slash = path.find_last_of('/');
    int const directory = ::open(path.substr(0, slash).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0)
        return false;
    bool const made = makeSocketFile("/proc/self/fd/" + std::to_string(directory) + path.substr(slash));
    ::close(directory);
    return made;
}

/// Fixture: trees "a" and "b" in the scratch directory, and the differences
/// written one per line as "kind first second firstType secondType", the
/// paths relative to their roots ("-" for an empty one).
class TreeDifferences : public ScratchDirectory {
protected:
    void SetUp() override
    {
        ScratchDirectory::SetUp();
        ASSERT_EQ(::mkdir(at("a").c_str(), 0755), 0);
        ASSERT_EQ(::mkdir(at("b").c_str(), 0755), 0);
    }

    void makeDirectory(std::string const& name) { ASSERT_EQ(::mkdir(at(name).c_str(), 0755), 0) << name; }
    void makeFile(std::string const& name, std::string const& content)
    {
        ASSERT_TRUE(writeWholeFile(at(name), content)) << name;
    }
    void makeLink(std::string const& target, std::string const& name)
    {
        ASSERT_EQ(::symlink(target.c_str(), at(name).c_str()), 0) << name;
    }

    std::string describe(std::vector<TreeDifference> const& differences) const
    {
        std::string text;
        for (TreeDifference const& difference : differences) {
            std::string const first = below(difference.first, at("a"));
            std::string const second = below(difference.second, at("b"));
            text += std::string(kindName(difference.kind)) + " " + (first.empty() ? "-" : first) + " "
                  + (second.empty() ? "-" : second) + " " + typeName(difference.firstType) + " "
                  + typeName(difference.secondType) + "\n";
        }
        return text;
    }

    /// @returns the differences between "a" and "b", described.
    std::string compare(DifferenceOptions const& options = DifferenceOptions())
    {
        failures.clear();
        return describe(fs::differencesBetween(Path(at("a")), Path(at("b")), options, &failures));
    }

    std::vector<Failure> failures;
};

TEST_F(TreeDifferences, IdenticalTreesHaveNone)
{
    for (char const* side : {"a", "b"}) {
        std::string const top(side);
        makeDirectory(top + "/sub");
        makeDirectory(top + "/sub/empty");
        makeFile(top + "/sub/f", "contents");
        makeFile(top + "/empty", "");
        makeLink("sub/f", top + "/link");
    }
    EXPECT_EQ(compare(), "");
    EXPECT_TRUE(failures.empty());
    EXPECT_EQ(describe(fs::differencesBetween(Path(at("a")), Path(at("a")))), "");
}

TEST_F(TreeDifferences, EachKindOfDifferenceOnRealTrees)
{
    makeFile("a/only-a", "1");
    makeDirectory("b/only-b");
    makeFile("b/only-b/inside", "not listed");
    makeFile("a/kind", "file");
    makeDirectory("b/kind");
    makeFile("a/same-size", "abcd");
    makeFile("b/same-size", "abce");
    makeFile("a/sizes", "short");
    makeFile("b/sizes", "longer");
    makeFile("a/same", "same");
    makeFile("b/same", "same");
    makeDirectory("a/sub");
    makeDirectory("b/sub");
    makeFile("a/sub/deep", "x");
    makeFile("b/sub/deep", "y");
    makeFile("b/sub/new", "");
    EXPECT_EQ(compare(), "differentKinds kind kind file dir\n"
                         "onlyInFirst only-a - file none\n"
                         "onlyInSecond - only-b none dir\n"
                         "differentContents same-size same-size file file\n"
                         "differentContents sizes sizes file file\n"
                         "differentContents sub/deep sub/deep file file\n"
                         "onlyInSecond - sub/new none file\n");
    EXPECT_TRUE(failures.empty());
}

TEST_F(TreeDifferences, ContentsAreComparedPastTheFirstBlock)
{
    std::string big(1 << 20, 'x');
    makeFile("a/big", big);
    big[(1 << 20) - 1] = 'y';
    makeFile("b/big", big);
    EXPECT_EQ(compare(), "differentContents big big file file\n");
}

TEST_F(TreeDifferences, OrderIsTheWalksWithNamesInPathOrderWithinEachDirectory)
{
    // Byte order would put "B" and "C" before "a"; the path ordering folds
    // case. Each directory's contents follow it at once.
    makeDirectory("a/C");
    makeDirectory("a/a");
    makeFile("a/a/z", "");
    makeFile("a/a/Y", "");
    makeFile("b/B", "");
    makeDirectory("b/C");
    makeFile("b/C/x", "");
    makeDirectory("b/a");
    makeFile("b/d", "");
    EXPECT_EQ(compare(), "onlyInFirst a/Y - file none\n"
                         "onlyInFirst a/z - file none\n"
                         "onlyInSecond - B none file\n"
                         "onlyInSecond - C/x none file\n"
                         "onlyInSecond - d none file\n");
}

TEST_F(TreeDifferences, CaseTwinsPairAndAreReportedAsSpellings)
{
    makeFile("a/copyright", "c");
    makeFile("a/changelog", "l");
    makeFile("b/COPYRIGHT", "c");
    makeFile("b/changelog", "l");
    EXPECT_EQ(compare(), "differentSpelling copyright COPYRIGHT file file\n");
    // A pair spelt differently is compared as any other, and a directory so
    // paired is gone into with each side's spelling.
    makeFile("a/Notes", "old");
    makeFile("b/notes", "new");
    makeDirectory("a/Docs");
    makeDirectory("b/DOCS");
    makeFile("a/Docs/x", "1");
    makeFile("b/DOCS/x", "2");
    EXPECT_EQ(compare(), "differentSpelling copyright COPYRIGHT file file\n"
                         "differentSpelling Docs DOCS dir dir\n"
                         "differentContents Docs/x DOCS/x file file\n"
                         "differentSpelling Notes notes file file\n"
                         "differentContents Notes notes file file\n");
    EXPECT_TRUE(failures.empty());
}

TEST_F(TreeDifferences, CompositionTwinsPairAndAreReportedAsSpellings)
{
    std::string const composed = "caf\xC3\xA9";   // NFC
    std::string const decomposed = "cafe\xCC\x81"; // NFD
    makeFile("a/" + composed, "same");
    makeFile("b/" + decomposed, "same");
    makeFile("a/\xE2\x84\xAB", "angstrom sign"); // U+212B, a singleton
    makeFile("b/\xC3\x85", "angstrom sign");     // U+00C5
    std::vector<TreeDifference> const differences = fs::differencesBetween(Path(at("a")), Path(at("b")));
    // "A" with its ring orders before "c".
    ASSERT_EQ(differences.size(), 2u) << describe(differences);
    EXPECT_EQ(differences[0].kind, DifferenceKind::differentSpelling);
    EXPECT_EQ(differences[0].first.nativeString(), at("a/\xE2\x84\xAB"));
    EXPECT_EQ(differences[0].second.nativeString(), at("b/\xC3\x85"));
    EXPECT_EQ(differences[1].kind, DifferenceKind::differentSpelling);
    EXPECT_EQ(differences[1].first.nativeString(), at("a/" + composed));
    EXPECT_EQ(differences[1].second.nativeString(), at("b/" + decomposed));
}

TEST_F(TreeDifferences, SeveralEqualNamesOnOneSidePairByTheirBytesAndTheRestStandAlone)
{
    makeFile("a/x", "1");
    makeFile("a/X", "2");
    makeFile("b/x", "1");
    EXPECT_EQ(compare(), "onlyInFirst X - file none\n");
    makeFile("b/X", "2");
    EXPECT_EQ(compare(), "");
    // Each side holds two of a group; only the same bytes pair, in byte order.
    makeFile("a/readme", "r");
    makeFile("a/README", "r");
    makeFile("b/readme", "r");
    makeFile("b/Readme", "r");
    EXPECT_EQ(compare(), "onlyInFirst README - file none\n"
                         "onlyInSecond - Readme none file\n");
    // Twins of composition count as a group too.
    makeFile("a/caf\xC3\xA9", "e");
    makeFile("a/cafe\xCC\x81", "e");
    makeFile("b/CAF\xC3\x89", "e");
    // Within a group, byte order: "C" before "c", "e" before the lead
    // byte of "\xC3\xA9".
    EXPECT_EQ(compare(), "onlyInSecond - CAF\xC3\x89 none file\n"
                         "onlyInFirst cafe\xCC\x81 - file none\n"
                         "onlyInFirst caf\xC3\xA9 - file none\n"
                         "onlyInFirst README - file none\n"
                         "onlyInSecond - Readme none file\n");
}

TEST_F(TreeDifferences, NamesThatAreNotUtf8AreReachedByTheirBytes)
{
    makeFile("a/bad\xFF", "one");
    makeFile("b/bad\xFF", "two");
    makeDirectory("a/dir\xFE\x80");
    makeDirectory("b/dir\xFE\x80");
    makeFile("a/dir\xFE\x80/in\xC0", "x");
    makeFile("b/dir\xFE\x80/in\xC1", "x");
    std::vector<TreeDifference> const differences = fs::differencesBetween(Path(at("a")), Path(at("b")));
    EXPECT_EQ(describe(differences), "differentContents bad\xFF bad\xFF file file\n"
                                     "onlyInFirst dir\xFE\x80/in\xC0 - file none\n"
                                     "onlyInSecond - dir\xFE\x80/in\xC1 none file\n");
    // The paths reach the entries.
    ASSERT_EQ(differences.size(), 3u);
    EXPECT_EQ(fs::fileSize(differences[0].first), 3);
    EXPECT_EQ(fs::status(differences[1].first).getType(), FileType::regularFile);
}

TEST_F(TreeDifferences, LinksCompareByTheirTextUnlessFollowed)
{
    makeFile("a/target", "t");
    makeFile("b/target", "t");
    makeFile("a/other", "t");
    makeFile("b/other", "t");
    makeLink("target", "a/text");
    makeLink("other", "b/text");
    makeLink("target", "a/same");
    makeLink("target", "b/same");
    makeLink("target", "a/link-file");
    makeFile("b/link-file", "t");
    makeDirectory("a/dir");
    makeDirectory("b/dir");
    makeFile("a/dir/f", "1");
    makeFile("b/dir/f", "2");
    makeLink("dir", "a/to-dir");
    makeDirectory("b/to-dir");
    makeFile("b/to-dir/f", "2");
    EXPECT_EQ(compare(), "differentContents dir/f dir/f file file\n"
                         "differentKinds link-file link-file link file\n"
                         "differentContents text text link link\n"
                         "differentKinds to-dir to-dir link dir\n");
    EXPECT_TRUE(failures.empty());
    // Followed, the links are what they lead to: "text" and "link-file" are
    // the same bytes, "to-dir" is a directory whose "f" differs.
    DifferenceOptions follow;
    follow.followSymbolicLinks = true;
    EXPECT_EQ(compare(follow), "differentContents dir/f dir/f file file\n"
                               "differentContents to-dir/f to-dir/f file file\n");
    EXPECT_TRUE(failures.empty());
}

TEST_F(TreeDifferences, FollowedLinksThatLeadNowhereOrBackAreFailures)
{
    makeLink("missing", "a/dangling");
    makeFile("b/dangling", "");
    makeLink(".", "a/loop");
    makeLink(".", "b/loop");
    makeLink("nowhere", "a/alone");
    makeFile("a/f", "1");
    makeFile("b/f", "2");
    DifferenceOptions follow;
    follow.followSymbolicLinks = true;
    // A link on one side only is not followed for a failure: it is there.
    EXPECT_EQ(compare(follow), "onlyInFirst alone - link none\n"
                               "differentContents f f file file\n");
    ASSERT_EQ(failures.size(), 3u);
    EXPECT_EQ(failures[0].path.nativeString(), at("a/dangling"));
    EXPECT_EQ(failures[0].error, std::errc::no_such_file_or_directory);
    EXPECT_EQ(failures[1].path.nativeString(), at("a/loop"));
    EXPECT_EQ(failures[1].error, std::errc::too_many_symbolic_link_levels);
    EXPECT_EQ(failures[2].path.nativeString(), at("b/loop"));
    EXPECT_EQ(failures[2].error, std::errc::too_many_symbolic_link_levels);
    // Not followed, they are plain links.
    EXPECT_EQ(compare(), "onlyInFirst alone - link none\n"
                         "differentKinds dangling dangling link file\n"
                         "differentContents f f file file\n");
    EXPECT_TRUE(failures.empty());
}

TEST_F(TreeDifferences, FifosSocketsAndDevicesCompareByKindAndNeverBlock)
{
    for (char const* side : {"a", "b"}) {
        std::string const top(side);
        ASSERT_EQ(::mkfifo(at(top + "/fifo").c_str(), 0644), 0);
        ASSERT_TRUE(makeSocketAt(at(top + "/socket")));
        makeLink("/dev/zero", top + "/device");
    }
    ASSERT_EQ(::mkfifo(at("a/fifo-file").c_str(), 0644), 0);
    makeFile("b/fifo-file", "");
    ASSERT_TRUE(makeSocketAt(at("a/socket-fifo")));
    ASSERT_EQ(::mkfifo(at("b/socket-fifo").c_str(), 0644), 0);
    makeLink("/dev/zero", "a/endless");
    makeLink("/dev/urandom", "b/endless");
    std::string const a = at("a");
    std::string const b = at("b");
    // In a child with a time limit: a FIFO opened and read would wait for a
    // writer, a device read would never end.
    int const result = runBounded(120, [&] {
        std::vector<Failure> failed;
        DifferenceOptions follow;
        follow.followSymbolicLinks = true;
        std::vector<TreeDifference> const followed = fs::differencesBetween(Path(a), Path(b), follow, &failed);
        std::vector<TreeDifference> const plain = fs::differencesBetween(Path(a), Path(b), {}, &failed);
        std::ostringstream text;
        for (auto const* list : {&followed, &plain}) {
            for (TreeDifference const& difference : *list)
                text << kindName(difference.kind) << " " << Path(difference.first).filename().nativeString() << " "
                     << typeName(difference.firstType) << " " << typeName(difference.secondType) << "\n";
            text << "--\n";
        }
        // Two devices of the same kind are the same, /dev/zero and
        // /dev/urandom alike, as two FIFOs and two sockets are.
        std::string const expected = "differentKinds fifo-file fifo file\n"
                                     "differentKinds socket-fifo unknown fifo\n"
                                     "--\n"
                                     "differentContents endless link link\n"
                                     "differentKinds fifo-file fifo file\n"
                                     "differentKinds socket-fifo unknown fifo\n"
                                     "--\n";
        return firstFailure({text.str() == expected, failed.empty()});
    });
    EXPECT_EQ(result, 0) << "1: not the differences expected; 2: a failure; " << kChildDidNotExit << ": it hung";
}

TEST_F(TreeDifferences, RootsThatCannotBeOpenedGiveNothingAndTheirFailure)
{
    makeFile("file", "");
    std::vector<Failure> failed;
    EXPECT_TRUE(fs::differencesBetween(Path(at("missing")), Path(at("b")), {}, &failed).empty());
    ASSERT_EQ(failed.size(), 1u);
    EXPECT_EQ(failed[0].error, std::errc::no_such_file_or_directory);
    EXPECT_EQ(failed[0].path.nativeString(), at("missing"));
    failed.clear();
    EXPECT_TRUE(fs::differencesBetween(Path(at("a")), Path(at("file")), {}, &failed).empty());
    ASSERT_EQ(failed.size(), 1u);
    EXPECT_EQ(failed[0].error, std::errc::not_a_directory);
    EXPECT_EQ(failed[0].path.nativeString(), at("file"));
    // A path holding a NUL byte names nothing, not the name before the NUL.
    failed.clear();
    EXPECT_TRUE(fs::differencesBetween(Path(std::string(at("a")) + std::string(1, '\0') + "x"), Path(at("b")), {},
                                       &failed).empty());
    ASSERT_EQ(failed.size(), 1u);
    // Without a list the failures are in the thread's record.
    fs::clearLastFailure();
    EXPECT_TRUE(fs::differencesBetween(Path(at("a")), Path(at("missing"))).empty());
    EXPECT_EQ(fs::lastFailure().path.nativeString(), at("missing"));
}

TEST_F(TreeDifferences, AnUnreadableDirectoryIsAFailureAndTheRestIsCompared)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    makeDirectory("a/locked");
    makeDirectory("b/locked");
    makeFile("a/locked/only", "");
    makeFile("a/unreadable", "same");
    makeFile("b/unreadable", "sama");
    makeFile("a/f", "1");
    makeFile("b/f", "2");
    makeDirectory("a/open");
    makeDirectory("b/open");
    makeFile("a/open/g", "1");
    // Closed to whoever runs the comparison: user 65534 when the tests run as
    // root, the owner otherwise.
    mode_t const closed = ::geteuid() == 0 ? 0700 : 0;
    ASSERT_EQ(::chmod(at("a/locked").c_str(), closed), 0);
    ASSERT_EQ(::chmod(at("a/unreadable").c_str(), ::geteuid() == 0 ? 0600 : 0), 0);
    std::string const a = at("a");
    std::string const b = at("b");
    std::string const expectedFailure = at("a/locked");
    int const result = runUnprivileged([&] {
        std::vector<Failure> failed;
        fs::clearLastFailure();
        std::vector<TreeDifference> const differences = fs::differencesBetween(Path(a), Path(b), {}, &failed);
        // The locked directory's contents are not compared (nothing "only in
        // a"), the unreadable file says nothing, the rest is compared.
        bool const found = differences.size() == 2 && differences[0].kind == DifferenceKind::differentContents
            && differences[0].first.nativeString() == a + "/f" && differences[1].kind == DifferenceKind::onlyInFirst
            && differences[1].first.nativeString() == a + "/open/g";
        bool const named = failed.size() == 2 && failed[0].path.nativeString() == expectedFailure
            && failed[0].error == std::errc::permission_denied && failed[0].call == "openat"
            && failed[1].path.nativeString() == a + "/unreadable" && failed[1].error == std::errc::permission_denied;
        return firstFailure({found, named});
    });
    ASSERT_EQ(::chmod(at("a/locked").c_str(), 0755), 0);
    ASSERT_EQ(::chmod(at("a/unreadable").c_str(), 0644), 0);
    if (unprivilegedSkipReason(result) != nullptr)
        GTEST_SKIP() << unprivilegedSkipReason(result);
    EXPECT_EQ(result, 0) << "1: not the differences expected; 2: not the failures expected";
}

TEST_F(TreeDifferences, PermissionsOnlyWhenAsked)
{
    makeFile("a/f", "same");
    makeFile("b/f", "same");
    makeDirectory("a/d");
    makeDirectory("b/d");
    ASSERT_EQ(::chmod(at("a/f").c_str(), 0644), 0);
    ASSERT_EQ(::chmod(at("b/f").c_str(), 0600), 0);
    ASSERT_EQ(::chmod(at("a/d").c_str(), 0755), 0);
    ASSERT_EQ(::chmod(at("b/d").c_str(), 0700), 0);
    makeFile("a/kind", "");
    makeDirectory("b/kind");
    ASSERT_EQ(::chmod(at("b/kind").c_str(), 0700), 0);
    EXPECT_EQ(compare(), "differentKinds kind kind file dir\n");
    DifferenceOptions options;
    options.comparePermissions = true;
    // A pair of different kinds is told by its kinds alone.
    EXPECT_EQ(compare(options), "differentPermissions d d dir dir\n"
                                "differentPermissions f f file file\n"
                                "differentKinds kind kind file dir\n");
}

TEST_F(TreeDifferences, TimesOnlyWhenAsked)
{
    makeFile("a/f", "same");
    makeFile("b/f", "same");
    makeFile("a/g", "same");
    makeFile("b/g", "same");
    makeDirectory("a/d");
    makeDirectory("b/d");
    long long const time = 1700000000LL * 1000000 + 123456;
    for (char const* name : {"a/f", "b/f", "a/g", "a/d", "b/d"})
        ASSERT_TRUE(setTimes(at(name), time)) << name;
    ASSERT_TRUE(setTimes(at("b/g"), time + 1)); // one microsecond later
    EXPECT_EQ(compare(), "");
    DifferenceOptions options;
    options.compareTimes = true;
    EXPECT_EQ(compare(options), "differentTimes g g file file\n");
    options.comparePermissions = true;
    ASSERT_EQ(::chmod(at("b/g").c_str(), 0600), 0);
    ASSERT_EQ(::chmod(at("a/g").c_str(), 0644), 0);
    EXPECT_EQ(compare(options), "differentPermissions g g file file\n"
                                "differentTimes g g file file\n");
}

TEST_F(TreeDifferences, DeepTreesUnderSixtyFourDescriptorsAndASmallStack)
{
    // Scratch space in memory where there is some, so that the chains are
    // made and removed quickly.
    std::string area = scratch;
    char shared[] = "/dev/shm/kelvo-differences-XXXXXX";
    bool const inMemory = ::mkdtemp(shared) != nullptr;
    if (inMemory)
        area = shared;
    char const* stress = std::getenv("KELVO_STRESS");
    int const depth = stress != nullptr && std::string(stress) == "1" ? 30000 : 4000;
    std::string const a = area + "/a";
    std::string const b = area + "/b";
    ASSERT_EQ(::mkdir(a.c_str(), 0755), 0);
    ASSERT_EQ(::mkdir(b.c_str(), 0755), 0);
    ASSERT_TRUE(makeDirectoryChain(a, depth, "f", "left"));
    ASSERT_TRUE(makeDirectoryChain(b, depth, "f", "righ"));
    int const result = runBounded(600, [&] {
        if (!limitDescriptors(64))
            return 100;
        return runOnSmallStack([&] {
            std::vector<Failure> failed;
            std::vector<TreeDifference> const differences = fs::differencesBetween(Path(a), Path(b), {}, &failed);
            std::string const bottom = repeated("/d", depth) + "/f";
            bool const one = differences.size() == 1 && differences[0].kind == DifferenceKind::differentContents;
            bool const where = one && differences[0].first.nativeString() == a + bottom
                && differences[0].second.nativeString() == b + bottom;
            std::vector<TreeDifference> const none = fs::differencesBetween(Path(a), Path(a), {}, &failed);
            return firstFailure({one, where, none.empty(), failed.empty()});
        });
    });
    if (inMemory)
        removeTree(area);
    EXPECT_EQ(result, 0) << "100: no limit; 1: not one difference; 2: not at the bottom; 3: a tree differs from "
                            "itself; 4: a failure";
}

} // namespace
