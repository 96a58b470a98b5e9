// Tests of findByName, findMatching, forEachFound and DiskUsageCounter on real trees: twins of case and composition, accents, kinds, depth, stopping and skipping, unreadable directories, hard links and sparse files.
#include <kelvo/filesystem/Finding.h>

#include "support/ProcessProbes.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kelvo::filesystem::DirectoryEntry;
using kelvo::filesystem::DiskUsageCounter;
using kelvo::filesystem::Failure;
using kelvo::filesystem::FileType;
using kelvo::filesystem::findByName;
using kelvo::filesystem::FindOptions;
using kelvo::filesystem::findMatching;
using kelvo::filesystem::forEachFound;
using kelvo::filesystem::NameFolding;
using kelvo::filesystem::Path;
using kelvo::filesystem::ShellPattern;
using kelvo::filesystem::WalkAction;
using kelvo::unicode::String;
using namespace kelvo::testing;

class Finding : public ScratchDirectory {
protected:
    void makeDirectory(std::string const& name) { ASSERT_EQ(::mkdir(at(name).c_str(), 0755), 0) << name; }

    /// @returns the native paths of `paths`, relative to the scratch
    /// directory, sorted.
    std::vector<std::string> relative(std::vector<Path> const& paths) const
    {
        std::vector<std::string> names;
        for (Path const& path : paths) {
            std::string const native = path.nativeString();
            EXPECT_EQ(native.compare(0, scratch.size() + 1, scratch + "/"), 0) << native;
            names.push_back(native.substr(scratch.size() + 1));
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    std::string const composed = "R\xc3\xa9sum\xc3\xa9.txt";
    std::string const decomposed = "re\xcc\x81sume\xcc\x81.TXT";

    void makeTwins()
    {
        makeDirectory("docs");
        makeDirectory("docs/old");
        writeFile("docs/" + composed, "a");
        writeFile("docs/old/" + decomposed, "b");
        writeFile("docs/resume.txt", "c");
        writeFile("docs/old/README", "d");
        makeDirectory("docs/old/readme");
    }
};

TEST_F(Finding, FindByNameIgnoresCaseAndComposition)
{
    makeTwins();
    std::vector<std::string> const expected = {"docs/" + composed, "docs/old/" + decomposed};
    EXPECT_EQ(relative(findByName(Path(at("docs")), Path("r\xc3\xa9sum\xc3\xa9.txt"))), expected);
    EXPECT_EQ(relative(findByName(Path(at("docs")), Path(String(U"R\u00c9SUM\u00c9.TXT")))), expected);
    EXPECT_EQ(relative(findByName(Path(at("docs")), Path("readme"))),
              (std::vector<std::string>{"docs/old/README", "docs/old/readme"}));
    // Only the last element of the name is looked for.
    EXPECT_EQ(relative(findByName(Path(at("docs")), Path("elsewhere/resume.txt"))),
              std::vector<std::string>{"docs/resume.txt"});
    // A star is a star.
    EXPECT_TRUE(findByName(Path(at("docs")), Path("*.txt")).empty());
}

TEST_F(Finding, FindByNameIgnoresAccentsOnRequest)
{
    makeTwins();
    FindOptions options;
    options.ignoreAccents = true;
    EXPECT_EQ(relative(findByName(Path(at("docs")), Path("resume.txt"), options)),
              (std::vector<std::string>{"docs/" + composed, "docs/old/" + decomposed, "docs/resume.txt"}));
    options.ignoreAccents = false;
    EXPECT_EQ(relative(findByName(Path(at("docs")), Path("resume.txt"), options)),
              std::vector<std::string>{"docs/resume.txt"});
}

TEST_F(Finding, FindMatchingFiltersByKindAndDepth)
{
    makeTwins();
    ASSERT_EQ(::symlink("old", at("docs/link-to-old").c_str()), 0);
    ShellPattern const all(String("*"));
    FindOptions options;
    options.type = FileType::directory;
    EXPECT_EQ(relative(findMatching(Path(at("docs")), all, options)),
              (std::vector<std::string>{"docs/old", "docs/old/readme"}));
    options.type = FileType::symbolicLink;
    EXPECT_EQ(relative(findMatching(Path(at("docs")), all, options)), std::vector<std::string>{"docs/link-to-old"});
    // Followed, the link is a directory, and what is below it is found again.
    options.walk.followSymbolicLinks = true;
    options.type = FileType::directory;
    EXPECT_EQ(relative(findMatching(Path(at("docs")), all, options)),
              (std::vector<std::string>{"docs/link-to-old", "docs/link-to-old/readme", "docs/old",
                                        "docs/old/readme"}));
    options = FindOptions();
    options.type = FileType::regularFile;
    options.walk.maxDepth = 1;
    EXPECT_EQ(relative(findMatching(Path(at("docs")), all, options)),
              (std::vector<std::string>{"docs/" + composed, "docs/resume.txt"}));
    options.walk.maxDepth = 0;
    EXPECT_TRUE(findMatching(Path(at("docs")), all, options).empty());
    ShellPattern const folded(String("*.TXT"), NameFolding::caseAndComposition);
    EXPECT_EQ(relative(findMatching(Path(at("docs")), folded)),
              (std::vector<std::string>{"docs/" + composed, "docs/old/" + decomposed, "docs/resume.txt"}));
}

TEST_F(Finding, ForEachFoundStopsAndSkipsOnRequest)
{
    makeTwins();
    ShellPattern const all(String("*"));
    std::vector<std::string> seen;
    bool const whole = forEachFound(Path(at("docs")), all, FindOptions(), [&](DirectoryEntry const& entry, std::size_t depth) {
        seen.push_back(entry.getPath().nativeString());
        EXPECT_EQ(depth, entry.getPath().nativeString().find("/old/") == std::string::npos ? 1u : 2u);
        return entry.getPath().filename() == Path("old") ? WalkAction::skipDirectory : WalkAction::proceed;
    });
    EXPECT_TRUE(whole);
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, (std::vector<std::string>{at("docs/" + composed), at("docs/old"), at("docs/resume.txt")}));

    int calls = 0;
    EXPECT_FALSE(forEachFound(Path(at("docs")), all, FindOptions(), [&calls](DirectoryEntry const&, std::size_t) {
        ++calls;
        return WalkAction::stop;
    }));
    EXPECT_EQ(calls, 1);
}

TEST_F(Finding, AnUnreadableDirectoryIsAFailureAndTheRestIsFound)
{
    ASSERT_EQ(::chmod(scratch.c_str(), 0755), 0);
    makeDirectory("t");
    makeDirectory("t/closed");
    writeFile("t/closed/a.txt");
    writeFile("t/b.txt");
    ASSERT_EQ(::chmod(at("t/closed").c_str(), 0), 0);
    std::string const root = at("t");
    int const result = runUnprivileged([&root]() {
        std::vector<Failure> failures;
        std::vector<Path> const found = findMatching(Path(root), ShellPattern(String("*.txt")), FindOptions(), &failures);
        int problems = 0;
        problems += found.size() != 1 || found[0].nativeString() != root + "/b.txt";
        problems += failures.size() != 1;
        if (failures.size() == 1) {
            problems += failures[0].path.nativeString() != root + "/closed";
            problems += failures[0].error != std::errc::permission_denied;
        }
        std::vector<Failure> missing;
        problems += !findMatching(Path(root + "/none"), ShellPattern(String("*")), FindOptions(), &missing).empty();
        problems += missing.size() != 1 || missing[0].error != std::errc::no_such_file_or_directory;
        return problems;
    });
    ::chmod(at("t/closed").c_str(), 0755);
    ASSERT_NE(result, kCannotDropPrivileges) << unprivilegedSkipReason(result);
    EXPECT_EQ(result, 0);
}

TEST_F(Finding, DiskUsageCountsBlocksAndEachObjectOnce)
{
    makeDirectory("t");
    makeDirectory("t/a");
    writeFile("t/a/data", std::string(100000, 'x'));
    ASSERT_EQ(::link(at("t/a/data").c_str(), at("t/again").c_str()), 0);
    int const fd = ::open(at("t/sparse").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::pwrite(fd, "x", 1, 100 * 1024 * 1024), 1);
    ::close(fd);

    auto blocksOf = [this](std::string const& name) {
        struct stat st;
        EXPECT_EQ(::lstat(at(name).c_str(), &st), 0) << name;
        return static_cast<std::int64_t>(st.st_blocks) * 512;
    };
    std::int64_t const expected = blocksOf("t") + blocksOf("t/a") + blocksOf("t/a/data") + blocksOf("t/sparse");
    std::vector<std::pair<std::string, std::int64_t>> directories;
    DiskUsageCounter counter;
    std::int64_t const total = counter.measure(Path(at("t")), [&](Path const& directory, std::int64_t bytes) {
        directories.emplace_back(directory.nativeString(), bytes);
    });
    EXPECT_EQ(total, expected);
    EXPECT_LT(blocksOf("t/sparse"), 1024 * 1024); // what it holds, not its 100 MiB
    std::sort(directories.begin(), directories.end());
    ASSERT_EQ(directories.size(), 2u);
    EXPECT_EQ(directories[0], std::make_pair(at("t"), expected));
    // The file counts where the walk met it first: in "a", or as "again".
    EXPECT_EQ(directories[1].first, at("t/a"));
    EXPECT_TRUE(directories[1].second == blocksOf("t/a") + blocksOf("t/a/data")
                || directories[1].second == blocksOf("t/a"))
        << directories[1].second;
    // The same counter has seen the linked file: measured again, it counts
    // for nothing; a new counter counts it.
    EXPECT_EQ(counter.measure(Path(at("t/again")), nullptr), 0);
    DiskUsageCounter fresh;
    EXPECT_EQ(fresh.measure(Path(at("t/again")), nullptr), blocksOf("t/again"));
    std::vector<Failure> failures;
    EXPECT_EQ(fresh.measure(Path(at("none")), nullptr, &failures), -1);
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].error, std::errc::no_such_file_or_directory);
    EXPECT_EQ(failures[0].path.nativeString(), at("none"));
}

} // namespace
