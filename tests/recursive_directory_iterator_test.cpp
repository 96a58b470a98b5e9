// Tests of RecursiveDirectoryIterator and walkTree on real trees: every option, links and loops, special files, unreadable directories, mount points, odd names, trees changing under the walk, deep trees with few descriptors, and find's answers as the oracle.
#include <kelvo/filesystem/Failure.h>
#include <kelvo/filesystem/PathHash.h>
#include <kelvo/filesystem/RecursiveDirectoryIterator.h>

#include "support/DirectoryChains.h"
#include "support/FileTrees.h"
#include "support/ProcessProbes.h"
#include "support/ResourceProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::DirectoryEntry;
using kelvo::filesystem::Failure;
using kelvo::filesystem::FileType;
using kelvo::filesystem::Path;
using kelvo::filesystem::PathLess;
using kelvo::filesystem::RecursiveDirectoryIterator;
using kelvo::filesystem::WalkAction;
using kelvo::filesystem::WalkFailurePolicy;
using kelvo::filesystem::WalkOptions;
using kelvo::filesystem::WalkOrder;
using namespace kelvo::testing;
namespace fs = kelvo::filesystem;

/// One yielded entry: its path relative to the root (native bytes), its
/// depth, and the letter find's %y gives its kind.
struct Seen {
    std::string relative;
    std::size_t depth = 0;
    char kind = '?';
    friend bool operator<(Seen const& a, Seen const& b)
    {
        return std::tie(a.relative, a.depth, a.kind) < std::tie(b.relative, b.depth, b.kind);
    }
    friend bool operator==(Seen const& a, Seen const& b)
    {
        return a.relative == b.relative && a.depth == b.depth && a.kind == b.kind;
    }
};

char letterOf(FileType type)
{
    switch (type) {
    case FileType::directory:
        return 'd';
    case FileType::symbolicLink:
        return 'l';
    case FileType::regularFile:
        return 'f';
    case FileType::characterDevice:
        return 'c';
    case FileType::blockDevice:
        return 'b';
    case FileType::fifo:
        return 'p';
    case FileType::unknown:
        return 's'; // the listed type of a socket
    default:
        return '?';
    }
}

// The kind find -L reports: what a link leads to, 'l' for a dangling one.
char followedLetterOf(DirectoryEntry const& entry)
{
    FileType const own = entry.getListedType();
    if (own != FileType::symbolicLink)
        return letterOf(own);
    FileType const target = entry.getStatus().getType();
    if (target == FileType::none)
        return 'l';
    return letterOf(target);
}

std::string relativeTo(std::string const& root, DirectoryEntry const& entry)
{
    std::string const path = entry.getPath().nativeString();
    std::string prefix = root;
    if (prefix.empty() || prefix.back() != '/')
        prefix += '/';
    if (path.compare(0, prefix.size(), prefix) != 0)
        return "<outside>" + path;
    return path.substr(prefix.size());
}

std::vector<Seen> walk(std::string const& root, WalkOptions const& options = WalkOptions(),
                       std::vector<Failure>* failures = nullptr)
{
    std::vector<Seen> seen;
    RecursiveDirectoryIterator iterator{Path(root), options};
    for (; iterator != RecursiveDirectoryIterator(); ++iterator) {
        char const kind = options.followSymbolicLinks ? followedLetterOf(*iterator)
                                                      : letterOf(iterator->getListedType());
        seen.push_back(Seen{relativeTo(root, *iterator), iterator.depth(), kind});
    }
    if (failures != nullptr)
        *failures = iterator.failures();
    return seen;
}

std::vector<std::string> pathsOf(std::vector<Seen> const& seen)
{
    std::vector<std::string> paths;
    for (Seen const& one : seen)
        paths.push_back(one.relative);
    return paths;
}

std::vector<std::string> sorted(std::vector<std::string> items)
{
    std::sort(items.begin(), items.end());
    return items;
}

// The multiset of "kind relative" lines of find's answer for `root`.
std::vector<std::string> findLines(std::string const& root, bool follow)
{
    std::string const command = std::string("find ") + (follow ? "-L " : "") + "'" + root
        + "' -mindepth 1 -printf '%y %P\\0' 2>/dev/null";
    std::vector<std::string> lines;
    FILE* const pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr)
        return lines;
    std::string line;
    int c;
    while ((c = std::fgetc(pipe)) != EOF) {
        if (c == '\0') {
            lines.push_back(line);
            line.clear();
        } else {
            line.push_back(static_cast<char>(c));
        }
    }
    ::pclose(pipe);
    std::sort(lines.begin(), lines.end());
    return lines;
}

std::vector<std::string> walkLines(std::string const& root, WalkOptions const& options)
{
    std::vector<std::string> lines;
    for (Seen const& one : walk(root, options))
        lines.push_back(std::string(1, one.kind) + " " + one.relative);
    std::sort(lines.begin(), lines.end());
    return lines;
}

bool hasFind()
{
    return std::system("find / -maxdepth 0 -printf '' >/dev/null 2>&1") == 0;
}

class RecursiveWalk : public ScratchDirectory {
protected:
    void makeDirectory(std::string const& name, mode_t mode = 0755) const
    {
        ASSERT_EQ(::mkdir(at(name).c_str(), mode), 0) << name;
    }
    void makeLink(std::string const& target, std::string const& name) const
    {
        ASSERT_EQ(::symlink(target.c_str(), at(name).c_str()), 0) << name;
    }

    // tree/{a/{x, b/{y, c/{z}}}, e/, f}
    std::string makeSmallTree()
    {
        makeDirectory("tree");
        makeDirectory("tree/a");
        makeDirectory("tree/a/b");
        makeDirectory("tree/a/b/c");
        makeDirectory("tree/e");
        writeFile("tree/a/x");
        writeFile("tree/a/b/y");
        writeFile("tree/a/b/c/z");
        writeFile("tree/f", "content");
        return at("tree");
    }

    // Every kind of entry: files, directories, links to each, a dangling
    // link, a FIFO and a socket. No loop.
    std::string makeTreeOfEveryKind()
    {
        makeDirectory("kinds");
        makeDirectory("kinds/dir");
        makeDirectory("kinds/dir/sub");
        writeFile("kinds/dir/sub/deep");
        writeFile("kinds/dir/file");
        writeFile("kinds/file", "x");
        makeLink("file", "kinds/link-to-file");
        makeLink("dir", "kinds/link-to-dir");
        makeLink("sub", "kinds/dir/link-to-sub");
        makeLink("missing", "kinds/dangling");
        EXPECT_EQ(::mkfifo(at("kinds/fifo").c_str(), 0644), 0);
        makeLink("fifo", "kinds/link-to-fifo");
        EXPECT_TRUE(makeSocketFile(at("kinds/socket")));
        makeDirectory("kinds/empty");
        return at("kinds");
    }
};

// ---- order, depth and paths --------------------------------------------------

TEST_F(RecursiveWalk, YieldsEveryEntryOnceWithItsDepthEachDirectoryBeforeItsContents)
{
    std::string const root = makeSmallTree();
    std::vector<Seen> const seen = walk(root);
    std::vector<Seen> expected = {{"a", 1, 'd'},     {"a/x", 2, 'f'},       {"a/b", 2, 'd'}, {"a/b/y", 3, 'f'},
                                  {"a/b/c", 3, 'd'}, {"a/b/c/z", 4, 'f'}, {"e", 1, 'd'},   {"f", 1, 'f'}};
    EXPECT_EQ(sorted(pathsOf(seen)), sorted(pathsOf(expected)));
    std::vector<Seen> sortedSeen = seen;
    std::sort(sortedSeen.begin(), sortedSeen.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(sortedSeen, expected);
    // Each entry comes after its directory.
    for (std::size_t i = 0; i < seen.size(); ++i) {
        std::string const& path = seen[i].relative;
        std::size_t const slash = path.rfind('/');
        if (slash == std::string::npos)
            continue;
        std::string const parent = path.substr(0, slash);
        auto const where = std::find_if(seen.begin(), seen.end(), [&](Seen const& s) { return s.relative == parent; });
        ASSERT_NE(where, seen.end());
        EXPECT_LT(where - seen.begin(), static_cast<long>(i)) << path;
    }
}

TEST_F(RecursiveWalk, DirectoryLastYieldsEveryDirectoryAfterAllItsContents)
{
    std::string const root = makeSmallTree();
    WalkOptions options;
    options.order = WalkOrder::directoryLast;
    std::vector<Seen> const seen = walk(root, options);
    ASSERT_EQ(seen.size(), 8u);
    std::map<std::string, std::size_t> position;
    for (std::size_t i = 0; i < seen.size(); ++i)
        position[seen[i].relative] = i;
    for (Seen const& one : seen) {
        for (Seen const& other : seen) {
            if (other.relative.compare(0, one.relative.size() + 1, one.relative + "/") == 0) {
                EXPECT_LT(position[other.relative], position[one.relative]) << other.relative << " after " << one.relative;
            }
        }
    }
    EXPECT_EQ(seen[position["a/b/c"]].depth, 3u);
    EXPECT_EQ(seen[position["a"]].depth, 1u);
    EXPECT_EQ(seen[position["e"]].kind, 'd');
}

TEST_F(RecursiveWalk, EntryPathsAreTheRootAsGivenJoinedWithTheNames)
{
    makeSmallTree();
    ASSERT_EQ(::chdir(scratch.c_str()), 0);
    std::set<std::string> paths;
    for (DirectoryEntry const& entry : RecursiveDirectoryIterator(Path("tree")))
        paths.insert(entry.getPath().nativeString());
    EXPECT_EQ(paths, (std::set<std::string>{"tree/a", "tree/a/x", "tree/a/b", "tree/a/b/y", "tree/a/b/c",
                                            "tree/a/b/c/z", "tree/e", "tree/f"}));
    std::set<std::string> slashed;
    for (DirectoryEntry const& entry : RecursiveDirectoryIterator(Path("tree/e/../a/")))
        slashed.insert(entry.getPath().nativeString());
    EXPECT_EQ(slashed, (std::set<std::string>{"tree/e/../a/x", "tree/e/../a/b", "tree/e/../a/b/y", "tree/e/../a/b/c",
                                              "tree/e/../a/b/c/z"}));
    // An entry's path reaches it.
    for (DirectoryEntry const& entry : RecursiveDirectoryIterator(Path("tree")))
        EXPECT_TRUE(isPresentOnDisk(entry.getPath().nativeString())) << entry.getPath();
}

TEST_F(RecursiveWalk, EntriesCarryTheListedKindAndStatusesOnRequest)
{
    std::string const root = makeTreeOfEveryKind();
    std::map<std::string, DirectoryEntry> byName;
    for (DirectoryEntry const& entry : RecursiveDirectoryIterator(Path(root)))
        byName[relativeTo(root, entry)] = entry;
    ASSERT_EQ(byName.size(), 13u);
    EXPECT_EQ(byName["file"].getListedType(), FileType::regularFile);
    EXPECT_EQ(byName["file"].getStatus().getType(), FileType::regularFile);
    EXPECT_EQ(byName["dir"].getListedType(), FileType::directory);
    EXPECT_EQ(byName["link-to-dir"].getListedType(), FileType::symbolicLink);
    EXPECT_EQ(byName["link-to-dir"].getStatus().getType(), FileType::directory);
    EXPECT_EQ(byName["link-to-dir"].getSymlinkStatus().getType(), FileType::symbolicLink);
    EXPECT_EQ(byName["fifo"].getListedType(), FileType::fifo);
    EXPECT_EQ(byName["socket"].getListedType(), FileType::unknown);
    EXPECT_EQ(byName["dangling"].getListedType(), FileType::symbolicLink);
}

TEST_F(RecursiveWalk, SortedByNameOrdersEachDirectoryByThePathOrdering)
{
    makeDirectory("sorted");
    std::vector<std::string> const names = adversarialNames(300);
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (i % 50 == 0)
            makeDirectory("sorted/" + names[i]);
        else
            writeFile("sorted/" + names[i]);
    }
    for (std::size_t i = 0; i < 40; ++i)
        writeFile("sorted/" + names[0] + "/" + names[i]);
    WalkOptions options;
    options.sortedByName = true;
    std::vector<Seen> const seen = walk(at("sorted"), options);
    ASSERT_EQ(seen.size(), 340u);
    // Within each directory the names come in PathLess order, each
    // directory's contents right after it.
    std::map<std::string, std::vector<std::string>> namesByDirectory;
    for (Seen const& one : seen) {
        std::size_t const slash = one.relative.rfind('/');
        std::string const directory = slash == std::string::npos ? "" : one.relative.substr(0, slash);
        namesByDirectory[directory].push_back(one.relative.substr(slash == std::string::npos ? 0 : slash + 1));
    }
    ASSERT_EQ(namesByDirectory.size(), 2u);
    for (auto const& [directory, listed] : namesByDirectory) {
        std::vector<Path> asPaths(listed.begin(), listed.end());
        std::vector<Path> expected = asPaths;
        std::stable_sort(expected.begin(), expected.end(), PathLess());
        for (std::size_t i = 0; i < asPaths.size(); ++i) {
            EXPECT_FALSE(PathLess()(expected[i], asPaths[i]) || PathLess()(asPaths[i], expected[i]))
                << directory << ": " << i << " " << asPaths[i] << " expected " << expected[i];
        }
    }
    std::vector<Path> const rootNames(names.begin(), names.end());
    Path const least = *std::min_element(rootNames.begin(), rootNames.end(), PathLess());
    EXPECT_FALSE(PathLess()(least, Path(seen[0].relative)) || PathLess()(Path(seen[0].relative), least));
}

TEST_F(RecursiveWalk, SortedByNameKeepsCaseAndCompositionTwinsTogetherInTheOrderOfTheirBytes)
{
    makeDirectory("twins");
    for (std::string const name : {"D", "caf\xc3\xa9", "b", "cafe\xcc\x81", "CAFE\xcc\x81", "a\xff"})
        writeFile("twins/" + name);
    WalkOptions options;
    options.sortedByName = true;
    EXPECT_EQ(pathsOf(walk(at("twins"), options)),
              (std::vector<std::string>{"a\xff", "b", "CAFE\xcc\x81", "cafe\xcc\x81", "caf\xc3\xa9", "D"}));
}

TEST_F(RecursiveWalk, MaxDepthBoundsTheLevelsYielded)
{
    std::string const root = makeSmallTree();
    for (std::size_t const maxDepth : {0u, 1u, 2u, 3u}) {
        WalkOptions options;
        options.maxDepth = maxDepth;
        for (WalkOrder const order : {WalkOrder::directoryFirst, WalkOrder::directoryLast}) {
            options.order = order;
            std::vector<Seen> const seen = walk(root, options);
            std::vector<std::string> expected;
            for (std::string const path : {"a", "a/x", "a/b", "a/b/y", "a/b/c", "a/b/c/z", "e", "f"}) {
                if (static_cast<std::size_t>(std::count(path.begin(), path.end(), '/')) < maxDepth)
                    expected.push_back(path);
            }
            EXPECT_EQ(sorted(pathsOf(seen)), sorted(expected)) << "maxDepth " << maxDepth;
            for (Seen const& one : seen)
                EXPECT_LE(one.depth, maxDepth);
        }
    }
    WalkOptions none;
    none.maxDepth = 0;
    RecursiveDirectoryIterator const empty{Path(root), none};
    EXPECT_TRUE(empty.canIterate());
    EXPECT_TRUE(empty == RecursiveDirectoryIterator());
}

TEST_F(RecursiveWalk, SkipDirectoryLeavesTheCurrentDirectorysContentsOut)
{
    std::string const root = makeSmallTree();
    std::vector<std::string> seen;
    for (RecursiveDirectoryIterator it{Path(root)}; it != RecursiveDirectoryIterator(); ++it) {
        std::string const relative = relativeTo(root, *it);
        seen.push_back(relative);
        if (relative == "a/b")
            it.skipDirectory();
    }
    EXPECT_EQ(sorted(seen), sorted({"a", "a/x", "a/b", "e", "f"}));

    std::vector<std::string> visited;
    bool const whole = fs::walkTree(Path(root), WalkOptions(), [&](DirectoryEntry const& entry, std::size_t depth) {
        visited.push_back(relativeTo(root, entry));
        EXPECT_EQ(depth, static_cast<std::size_t>(std::count(visited.back().begin(), visited.back().end(), '/') + 1));
        return visited.back() == "a" ? WalkAction::skipDirectory : WalkAction::proceed;
    });
    EXPECT_TRUE(whole);
    EXPECT_EQ(sorted(visited), sorted({"a", "e", "f"}));
}

TEST_F(RecursiveWalk, StopEndsTheCallbackWalkAtOnce)
{
    std::string const root = makeSmallTree();
    int calls = 0;
    bool const whole = fs::walkTree(Path(root), WalkOptions(), [&](DirectoryEntry const&, std::size_t) {
        ++calls;
        return calls == 3 ? WalkAction::stop : WalkAction::proceed;
    });
    EXPECT_FALSE(whole);
    EXPECT_EQ(calls, 3);
    int all = 0;
    EXPECT_TRUE(fs::walkTree(Path(root), WalkOptions(), [&](DirectoryEntry const&, std::size_t) {
        ++all;
        return WalkAction::proceed;
    }));
    EXPECT_EQ(all, 8);
}

TEST_F(RecursiveWalk, CopiesShareOneWalkAndTheEndEqualsEveryEndedIterator)
{
    std::string const root = makeSmallTree();
    RecursiveDirectoryIterator first{Path(root)};
    RecursiveDirectoryIterator copy = first;
    EXPECT_TRUE(first == copy);
    EXPECT_FALSE(first == RecursiveDirectoryIterator());
    Path const before = first->getPath();
    ++copy;
    EXPECT_NE(first->getPath(), before);
    EXPECT_EQ(first->getPath(), copy->getPath());
    RecursiveDirectoryIterator other{Path(root)};
    EXPECT_FALSE(first == other);
    std::size_t count = 1;
    while (++first != RecursiveDirectoryIterator())
        ++count;
    EXPECT_EQ(count, 7u);
    EXPECT_TRUE(copy == RecursiveDirectoryIterator());
    EXPECT_EQ(copy.depth(), 0u);
    EXPECT_TRUE(first.canIterate());
    EXPECT_TRUE(first->getPath().empty());
    ++first; // at the end, nothing
    EXPECT_TRUE(first == RecursiveDirectoryIterator());
}

// ---- roots ---------------------------------------------------------------------

TEST_F(RecursiveWalk, ARootThatCannotBeOpenedEndsAtOnceWithTheReason)
{
    writeFile("file");
    ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0644), 0);
    int const result = runBounded(120, [&] {
        RecursiveDirectoryIterator const missing{Path(at("missing"))};
        RecursiveDirectoryIterator const file{Path(at("file"))};
        RecursiveDirectoryIterator const fifo{Path(at("fifo"))};
        std::vector<Failure> failures;
        bool const walked = fs::walkTree(
            Path(at("missing")), WalkOptions(), [](DirectoryEntry const&, std::size_t) { return WalkAction::proceed; },
            &failures);
        return firstFailure({missing == RecursiveDirectoryIterator(), !missing.canIterate(),
                             missing.failures().size() == 1,
                             missing.failures().size() == 1 && missing.failures()[0].error == std::errc::no_such_file_or_directory,
                             missing.failures().size() == 1 && missing.failures()[0].path.nativeString() == at("missing"),
                             file == RecursiveDirectoryIterator(), !file.canIterate(),
                             file.failures().size() == 1 && file.failures()[0].error == std::errc::not_a_directory,
                             fifo == RecursiveDirectoryIterator(), !fifo.canIterate(), !walked, failures.size() == 1,
                             fs::lastFailure().error == std::errc::no_such_file_or_directory});
    });
    EXPECT_EQ(result, 0) << kChildDidNotExit << ": killed (blocked?) or crashed; else the check that failed";
}

TEST_F(RecursiveWalk, ARootLinkIsFollowedOnlyOnRequest)
{
    std::string const root = makeSmallTree();
    makeLink("tree", "root-link");
    RecursiveDirectoryIterator const notFollowed{Path(at("root-link"))};
    EXPECT_FALSE(notFollowed.canIterate());
    ASSERT_EQ(notFollowed.failures().size(), 1u);
    EXPECT_EQ(notFollowed.failures()[0].error, std::errc::not_a_directory);
    WalkOptions follow;
    follow.followSymbolicLinks = true;
    EXPECT_EQ(walk(at("root-link"), follow).size(), 8u);
}

// ---- links, loops and special files -------------------------------------------

TEST_F(RecursiveWalk, LinksAreYieldedNotFollowedByDefault)
{
    std::string const root = makeTreeOfEveryKind();
    std::vector<Failure> failures;
    std::vector<std::string> const paths = sorted(pathsOf(walk(root, WalkOptions(), &failures)));
    EXPECT_EQ(paths, sorted({"dir", "dir/sub", "dir/sub/deep", "dir/file", "dir/link-to-sub", "file", "link-to-file",
                             "link-to-dir", "dangling", "fifo", "link-to-fifo", "socket", "empty"}));
    EXPECT_TRUE(failures.empty());
}

TEST_F(RecursiveWalk, FollowedLinksAreEnteredAndEveryPathToAnObjectIsYielded)
{
    std::string const root = makeTreeOfEveryKind();
    WalkOptions options;
    options.followSymbolicLinks = true;
    int const result = runBounded(300, [&] {
        std::vector<Failure> failures;
        std::vector<Seen> const seen = walk(root, options, &failures);
        std::vector<std::string> const paths = sorted(pathsOf(seen));
        std::vector<std::string> const expected = sorted(
            {"dir", "dir/sub", "dir/sub/deep", "dir/file", "dir/link-to-sub", "dir/link-to-sub/deep", "file",
             "link-to-file", "link-to-dir", "link-to-dir/sub", "link-to-dir/sub/deep", "link-to-dir/file",
             "link-to-dir/link-to-sub", "link-to-dir/link-to-sub/deep", "dangling", "fifo", "link-to-fifo", "socket",
             "empty"});
        return firstFailure({paths == expected, failures.empty()});
    });
    EXPECT_EQ(result, 0) << kChildDidNotExit << ": killed (blocked?) or crashed; else the check that failed";
}

TEST_F(RecursiveWalk, ALinkLoopIsYieldedNotEnteredAndReported)
{
    makeDirectory("loop");
    makeDirectory("loop/a");
    makeDirectory("loop/a/b");
    writeFile("loop/a/b/file");
    makeLink("..", "loop/a/b/up");   // back to a
    makeLink("../..", "loop/a/b/top"); // back to the root
    WalkOptions options;
    options.followSymbolicLinks = true;
    std::vector<Failure> failures;
    std::vector<std::string> const paths = sorted(pathsOf(walk(at("loop"), options, &failures)));
    EXPECT_EQ(paths, sorted({"a", "a/b", "a/b/file", "a/b/up", "a/b/top"}));
    ASSERT_EQ(failures.size(), 2u);
    std::set<std::string> failed;
    for (Failure const& failure : failures) {
        EXPECT_EQ(failure.error, std::errc::too_many_symbolic_link_levels);
        EXPECT_EQ(failure.error.message(), "Too many levels of symbolic links");
        failed.insert(failure.path.nativeString());
    }
    EXPECT_EQ(failed, (std::set<std::string>{at("loop/a/b/up"), at("loop/a/b/top")}));
    EXPECT_EQ(fs::lastFailure().error, std::errc::too_many_symbolic_link_levels);

    // Stopping at the first failure.
    options.onFailure = WalkFailurePolicy::stop;
    options.sortedByName = true;
    std::vector<Failure> first;
    std::vector<std::string> const stopped = pathsOf(walk(at("loop"), options, &first));
    EXPECT_EQ(stopped, (std::vector<std::string>{"a", "a/b", "a/b/file", "a/b/top"}));
    EXPECT_EQ(first.size(), 1u);
    bool const whole = fs::walkTree(Path(at("loop")), options,
                                    [](DirectoryEntry const&, std::size_t) { return WalkAction::proceed; });
    EXPECT_FALSE(whole);
    // Not followed, the loop is no failure.
    EXPECT_TRUE(fs::walkTree(Path(at("loop")), WalkOptions(),
                             [](DirectoryEntry const&, std::size_t) { return WalkAction::proceed; }));
}

TEST_F(RecursiveWalk, SpecialFilesNeverBlockTheWalk)
{
    std::string const root = makeTreeOfEveryKind();
    makeLink("/dev/zero", "kinds/dir/zero");
    makeLink("/dev/null", "kinds/dir/null");
    int const result = runBounded(300, [&] {
        int failed = 0;
        for (bool const follow : {false, true}) {
            for (WalkOrder const order : {WalkOrder::directoryFirst, WalkOrder::directoryLast}) {
                WalkOptions options;
                options.followSymbolicLinks = follow;
                options.order = order;
                std::size_t count = 0;
                for (DirectoryEntry const& entry : RecursiveDirectoryIterator(Path(root), options)) {
                    (void)entry;
                    ++count;
                }
                failed += count == (follow ? 23u : 15u) ? 0 : 1;
            }
        }
        return failed;
    });
    EXPECT_EQ(result, 0) << kChildDidNotExit << ": killed (blocked?) or crashed; else the walks that miscounted";
}

// ---- find as the oracle ---------------------------------------------------------

TEST_F(RecursiveWalk, TheMultisetOfPathsAndKindsIsFindsOnAGeneratedTree)
{
    if (!hasFind())
        GTEST_SKIP() << "find is not installed";
    std::string const root = makeTreeOfEveryKind();
    makeDirectory("kinds/dir/sub/more");
    for (int i = 0; i < 50; ++i)
        writeFile("kinds/dir/sub/more/f" + std::to_string(i));
    std::string const nonUTF8 = "bad\xff\xfe";
    writeFile("kinds/" + nonUTF8);
    writeFile("kinds/caf\xc3\xa9");  // NFC
    writeFile("kinds/cafe\xcc\x81"); // NFD twin
    writeFile("kinds/sp ace\tand\nnewline");
    EXPECT_EQ(walkLines(root, WalkOptions()), findLines(root, false));
    WalkOptions follow;
    follow.followSymbolicLinks = true;
    EXPECT_EQ(walkLines(root, follow), findLines(root, true));
    WalkOptions sortedLast;
    sortedLast.sortedByName = true;
    sortedLast.order = WalkOrder::directoryLast;
    EXPECT_EQ(walkLines(root, sortedLast), findLines(root, false));
}

TEST_F(RecursiveWalk, TheMultisetOfPathsAndKindsIsFindsOnUsrInclude)
{
    if (!hasFind())
        GTEST_SKIP() << "find is not installed";
    struct stat information;
    if (::stat("/usr/include", &information) != 0)
        GTEST_SKIP() << "no /usr/include";
    std::vector<std::string> const expected = findLines("/usr/include", false);
    ASSERT_GT(expected.size(), 100u);
    EXPECT_EQ(walkLines("/usr/include", WalkOptions()), expected);
}

// ---- names ----------------------------------------------------------------------

TEST_F(RecursiveWalk, NamesKeepTheirBytesWhateverTheirCompositionOrEncoding)
{
    makeDirectory("names");
    std::vector<std::string> const names = {"caf\xc3\xa9",         "cafe\xcc\x81",  "CAF\xc3\x89",   "bad\xff",
                                            "\xc3\x28", "mixed\xe9t\xc3\xa9", "plain", "\xed\xa0\x80surrogate"};
    makeDirectory("names/dir\xcc\x81");
    makeDirectory("names/bad\xfe");
    for (std::string const& name : names) {
        writeFile("names/" + name);
        writeFile("names/dir\xcc\x81/" + name);
        writeFile("names/bad\xfe/" + name);
    }
    std::multiset<std::string> expected;
    for (std::string const& name : names) {
        expected.insert(name);
        expected.insert("dir\xcc\x81/" + name);
        expected.insert("bad\xfe/" + name);
    }
    expected.insert("dir\xcc\x81");
    expected.insert("bad\xfe");
    std::multiset<std::string> seen;
    for (DirectoryEntry const& entry : RecursiveDirectoryIterator(Path(at("names")))) {
        seen.insert(relativeTo(at("names"), entry));
        EXPECT_TRUE(isPresentOnDisk(entry.getPath().nativeString())) << entry.getPath();
        EXPECT_EQ(entry.getStatus().getType(), entry.getListedType()) << entry.getPath();
    }
    EXPECT_EQ(seen, expected);
    // A root that is not ASCII keeps its bytes too.
    std::multiset<std::string> below;
    for (DirectoryEntry const& entry : RecursiveDirectoryIterator(Path(at("names/bad\xfe"))))
        below.insert(entry.getPath().nativeString());
    EXPECT_EQ(below.size(), names.size());
    EXPECT_EQ(below.count(at("names/bad\xfe/bad\xff")), 1u);
}

TEST_F(RecursiveWalk, EveryNameLengthAndPlaceOfAnOddByteGivesThePathBuiltFromTheBytes)
{
    // Plain names of every length around the sizes the walk reads a step,
    // the same with a backslash or a byte that is not ASCII at each place,
    // and the longest names the system takes: each entry's path must be the
    // one made from its bytes, text and native form alike.
    std::vector<std::string> names;
    for (std::size_t length = 1; length <= 20; ++length) {
        names.push_back(std::string(length, 'n'));
        for (std::size_t place = 0; place < length; ++place) {
            std::string withBackslash(length, 'b');
            withBackslash[place] = '\\';
            names.push_back(withBackslash);
            std::string withHighByte(length, 'h');
            withHighByte[place] = '\xe9';
            names.push_back(withHighByte);
        }
    }
    names.push_back(std::string(255, 'L'));
    names.push_back(std::string(254, 'L') + "\\");
    names.push_back(std::string(253, 'L') + "\xc3\xa9");
    makeDirectory("odd");
    makeDirectory("odd/sub");
    for (std::string const& name : names) {
        writeFile("odd/" + name);
        writeFile("odd/sub/" + name);
    }
    std::multiset<std::pair<kelvo::unicode::String, std::string>> expected;
    expected.emplace(Path(at("odd/sub")).string(), Path(at("odd/sub")).nativeString());
    for (std::string const& name : names) {
        for (std::string const& directory : {at("odd"), at("odd/sub")}) {
            Path const made(directory + "/" + name);
            expected.emplace(made.string(), made.nativeString());
        }
    }
    std::multiset<std::pair<kelvo::unicode::String, std::string>> seen;
    for (DirectoryEntry const& entry : RecursiveDirectoryIterator(Path(at("odd"))))
        seen.emplace(entry.getPath().string(), entry.getPath().nativeString());
    EXPECT_EQ(seen.size(), 2 * names.size() + 1);
    EXPECT_EQ(seen, expected);
    // The native form of a plain name is its bytes.
    Path const plain(at("odd/sub/nnnnnnnnn"));
    EXPECT_EQ(seen.count({plain.string(), at("odd/sub/nnnnnnnnn")}), 1u);
}

// ---- permissions -----------------------------------------------------------------

TEST_F(RecursiveWalk, AnUnreadableDirectoryIsReportedAndTheWalkGoesOnOrStops)
{
    makeDirectory("perm");
    makeDirectory("perm/a");
    writeFile("perm/a/file");
    makeDirectory("perm/noread");
    writeFile("perm/noread/hidden");
    makeDirectory("perm/nosearch");
    writeFile("perm/nosearch/listed");
    makeDirectory("perm/nosearch/sub");
    writeFile("perm/nosearch/sub/hidden");
    makeDirectory("perm/z");
    writeFile("perm/z/file");
    ASSERT_EQ(::chmod(at("perm/noread").c_str(), 0333), 0);
    ASSERT_EQ(::chmod(at("perm/nosearch").c_str(), 0666), 0);
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    std::string const root = at("perm");
    int const result = runUnprivileged([&] {
        WalkOptions options;
        options.sortedByName = true;
        fs::clearLastFailure();
        std::vector<Failure> failures;
        std::vector<std::string> const paths = pathsOf(walk(root, options, &failures));
        bool const lastIsOne = fs::lastFailure().error == std::errc::permission_denied
            && fs::lastFailure().path.nativeString() == root + "/nosearch/sub";
        // A directory without read permission cannot be listed; one without
        // search permission lists its names, but nothing below it can be
        // opened.
        bool const reported = failures.size() == 2 && failures[0].error == std::errc::permission_denied
            && failures[0].path.nativeString() == root + "/noread" && failures[0].call == "openat"
            && failures[1].error == std::errc::permission_denied
            && failures[1].path.nativeString() == root + "/nosearch/sub";
        options.onFailure = WalkFailurePolicy::stop;
        std::vector<Failure> stopFailures;
        std::vector<std::string> const stopped = pathsOf(walk(root, options, &stopFailures));
        options.onFailure = WalkFailurePolicy::reportAndContinue;
        options.order = WalkOrder::directoryLast;
        std::vector<Failure> lastFailures;
        std::vector<std::string> const last = pathsOf(walk(root, options, &lastFailures));
        bool const whole = fs::walkTree(Path(root), WalkOptions(),
                                        [](DirectoryEntry const&, std::size_t) { return WalkAction::proceed; });
        return firstFailure({paths == std::vector<std::string>{"a", "a/file", "noread", "nosearch",
                                                                "nosearch/listed", "nosearch/sub", "z", "z/file"},
                             reported, lastIsOne, stopped == std::vector<std::string>{"a", "a/file", "noread"},
                             stopFailures.size() == 1,
                             last == std::vector<std::string>{"a/file", "a", "noread", "nosearch/listed",
                                                              "nosearch/sub", "nosearch", "z/file", "z"},
                             lastFailures.size() == 2, !whole});
    });
    ::chmod(at("perm/noread").c_str(), 0755);
    ::chmod(at("perm/nosearch").c_str(), 0755);
    if (char const* reason = unprivilegedSkipReason(result))
        GTEST_SKIP() << reason;
    EXPECT_EQ(result, 0) << "the check that failed";
}

// ---- mount points ------------------------------------------------------------------

TEST_F(RecursiveWalk, SameFileSystemYieldsAMountPointWithoutEnteringIt)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "mounting a file system takes root";
    makeDirectory("mounted");
    makeDirectory("mounted/point");
    writeFile("mounted/point/under"); // hidden by the mount
    writeFile("mounted/file");
    std::string const root = at("mounted");
    int const result = runInChild([&] {
        if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            return 77;
        std::string const point = root + "/point";
        if (::mount("kelvo-test", point.c_str(), "tmpfs", 0, "size=1m") != 0)
            return 77;
        if (!writeWholeFile(point + "/on-tmpfs", "x") || ::mkdir((point + "/sub").c_str(), 0755) != 0)
            return 78;
        std::vector<std::string> const across = sorted(pathsOf(walk(root)));
        WalkOptions options;
        options.sameFileSystem = true;
        std::vector<std::string> const within = sorted(pathsOf(walk(root, options)));
        options.order = WalkOrder::directoryLast;
        std::vector<std::string> const withinLast = sorted(pathsOf(walk(root, options)));
        return firstFailure({across == sorted({"file", "point", "point/on-tmpfs", "point/sub"}),
                             within == sorted({"file", "point"}), withinLast == within});
    });
    if (result == 77)
        GTEST_SKIP() << "cannot make a private mount namespace or mount a tmpfs here";
    EXPECT_EQ(result, 0) << "78: set-up; else the check that failed";
}

// ---- a tree changing under the walk --------------------------------------------------

TEST_F(RecursiveWalk, EntriesDeletedOrAddedDuringTheWalkAreNeverYieldedTwice)
{
    makeDirectory("busy");
    for (int d = 0; d < 10; ++d) {
        makeDirectory("busy/d" + std::to_string(d));
        for (int f = 0; f < 20; ++f)
            writeFile("busy/d" + std::to_string(d) + "/f" + std::to_string(f));
    }
    std::string const root = at("busy");
    for (WalkOrder const order : {WalkOrder::directoryFirst, WalkOrder::directoryLast}) {
        WalkOptions options;
        options.order = order;
        std::vector<std::string> seen;
        std::set<std::string> deleted;
        int step = 0;
        for (RecursiveDirectoryIterator it{Path(root), options}; it != RecursiveDirectoryIterator(); ++it) {
            seen.push_back(relativeTo(root, *it));
            ++step;
            // Every few steps: one file deleted, one added, somewhere else in
            // the tree; one whole directory removed.
            std::string const d = "busy/d" + std::to_string(step % 10);
            std::string const victim = d + "/f" + std::to_string(step % 20);
            if (::unlink(at(victim).c_str()) == 0)
                deleted.insert(victim.substr(5));
            ::close(::open(at(d + "/new" + std::to_string(step)).c_str(), O_CREAT | O_WRONLY, 0644));
            if (step == 30)
                removeTree(at("busy/d7"));
        }
        std::set<std::string> const unique(seen.begin(), seen.end());
        EXPECT_EQ(unique.size(), seen.size());
        // Whatever was never touched was yielded.
        for (int d = 0; d < 10; ++d) {
            if (d == 7)
                continue;
            for (int f = 0; f < 20; ++f) {
                std::string const name = "d" + std::to_string(d) + "/f" + std::to_string(f);
                if (deleted.count(name) == 0) {
                    EXPECT_EQ(unique.count(name), 1u) << name;
                }
            }
        }
        removeTree(root);
        makeDirectory("busy");
        for (int d = 0; d < 10; ++d) {
            makeDirectory("busy/d" + std::to_string(d));
            for (int f = 0; f < 20; ++f)
                writeFile("busy/d" + std::to_string(d) + "/f" + std::to_string(f));
        }
    }
}

// ---- deep trees ---------------------------------------------------------------------

/// Scratch space in /dev/shm where there is one, so that a very deep tree is
/// made and removed in seconds.
class DeepWalk : public MemoryScratchDirectory {
protected:
    DeepWalk() : MemoryScratchDirectory("kelvo-walk") {}
};

TEST_F(DeepWalk, ThirtyThousandLevelsWithSixtyFourDescriptorsOnASmallStack)
{
    int const depth = 30000;
    std::string const top = area + "/deep";
    ASSERT_EQ(::mkdir(top.c_str(), 0755), 0);
    // A file "f" at every level and "bottom" at the bottom.
    ASSERT_TRUE(makeDirectoryChain(top, depth, "bottom", "", true));
    int const result = runBounded(900, [&] {
        if (!limitDescriptors(64))
            return 100;
        return runOnSmallStack([&] {
            int failed = 0;
            for (WalkOrder const order : {WalkOrder::directoryFirst, WalkOrder::directoryLast}) {
                WalkOptions options;
                options.order = order;
                std::size_t count = 0;
                std::size_t deepest = 0;
                std::size_t bottomDepth = 0;
                std::size_t previousDepth = 0;
                bool depthsStep = true;
                RecursiveDirectoryIterator it{Path(top), options};
                for (; it != RecursiveDirectoryIterator(); ++it) {
                    ++count;
                    deepest = std::max(deepest, it.depth());
                    if (it.depth() == depth + 1u && it->getListedType() == FileType::regularFile)
                        bottomDepth = it.depth();
                    if (order == WalkOrder::directoryFirst && it.depth() > previousDepth + 1)
                        depthsStep = false;
                    previousDepth = it.depth();
                }
                failed = failed * 10 + firstFailure({count == 2u * depth + 1, deepest == depth + 1u,
                                                     bottomDepth == depth + 1u, depthsStep, it.failures().empty()});
                if (failed != 0)
                    return failed;
            }
            return failed;
        });
    });
    EXPECT_EQ(result, 0) << kChildDidNotExit << ": killed or crashed; 100: set-up; else the check that failed";
}

} // namespace
