// kelvo-fs demo: a short tour of the library on built-in sample paths and a private temporary directory.
#include "Commands.h"

#include <kelvo/filesystem/private.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <utility>

namespace kelvo::tool {

using kelvo::filesystem::DirectoryEntry;
using kelvo::filesystem::DirectoryIterator;
using kelvo::filesystem::FileLock;
using kelvo::filesystem::Path;
using kelvo::unicode::String;

namespace {

// "Résumé.pdf" as most keyboards type it (é as one code point, U+00E9)...
constexpr char kComposedResume[] = "R\xC3\xA9sum\xC3\xA9.pdf";
// ...and as some systems store it (e followed by the combining acute accent, U+0301).
constexpr char kDecomposedResume[] = "Re\xCC\x81sume\xCC\x81.pdf";

// What the tour prints after each line that looks wrong but is the library's
// contract (docs/odd-behaviours.md has each of them).
constexpr char kOrderingNote[] =
    "  (by design: at the first letter that differs beyond case the raw code points decide, and \"a\" (U+0061)\n"
    "   is above \"B\" (U+0042); so \"a\" < \"b\" and \"B\" == \"b\" yet \"a\" > \"B\": sort with PathLess)\n";
constexpr char kTrailingSeparatorNote[] =
    "  (by design: a trailing separator stands for a final \".\", so the file name is \".\")\n";
constexpr char kFinalDotNote[] = "  (by design: a trailing separator gives a final \".\" element)\n";
constexpr char kEmptyElementNote[] = "  (by design: separators after the root give an empty element)\n";
constexpr char kListingOrderNote[] =
    "  (sorted by exact code points, as listed entries compare: capitals before small letters)\n";
constexpr char kLinkRemovalNote[] =
    "  (by design: removeAll deletes a link as remove does, judged by what it names, never through it;\n"
    "   rmdir refuses a link, so the answer is false and neither the link nor its directory is touched)\n";

void printHeading(char const* title)
{
    std::cout << "\n== " << title << " ==\n";
}

void showNormalisation()
{
    printHeading("One normalised form");
    String composedTyped(kComposedResume);
    String decomposedTyped(kDecomposedResume);
    Path composed(composedTyped);
    Path decomposed(decomposedTyped);
    std::cout << "typed composed:    " << quoteText(composedTyped) << ", " << composedTyped.size()
              << " code points\n";
    std::cout << "typed decomposed:  " << quoteText(decomposedTyped) << ", " << decomposedTyped.size()
              << " code points\n";
    std::cout << "stored:            " << composed.length() << " and " << decomposed.length()
              << " code points, same text: " << boolText(composed.string() == decomposed.string()) << '\n';
    std::cout << "native bytes:      " << quoteBytes(composed.nativeString())
              << " (composed again, as this system's file names are)\n";
    Path backslashed("docs\\old\\notes.txt");
    std::cout << "backslashes:       " << quoteBytes("docs\\old\\notes.txt") << " is stored as "
              << quoteText(backslashed.string()) << '\n';
}

void showComparison()
{
    printHeading("Tolerant comparison");
    std::pair<char const*, char const*> const pairs[] = {
        {kComposedResume, kDecomposedResume},
        {"Readme.TXT", "readme.txt"},
        {"a", "b"},
        {"A", "b"},
        {"a", "B"},
        {"abc", "abcd"},
        {"", "a"},
    };
    for (auto const& [left, right] : pairs) {
        Path a(left);
        Path b(right);
        int order = kelvo_private::filesystem::compare(a.string(), b.string());
        std::cout << comparisonText(String(left), String(right), order) << "    compare: " << order
                  << ", equal: " << boolText(a == b) << '\n';
        // An order that disagrees with the folded order is explained where it
        // shows.
        if (order != 0 && kelvo::filesystem::PathLess()(a, b) != (order < 0))
            std::cout << kOrderingNote;
    }
    std::cout << "(letter case and composition are ignored)\n";
}

void showDecomposition()
{
    printHeading("Decomposition");
    bool first = true;
    for (char const* text : {"//server/share/Docs/Re\xCC\x81sume\xCC\x81.tar.gz", "/home/user/Readme.TXT",
                             "notes/"}) {
        if (!first)
            std::cout << '\n';
        first = false;
        Path const path(text);
        printPathReport(std::cout, path);
        if (path.filename() == Path("."))
            std::cout << kTrailingSeparatorNote;
    }
}

/// @returns the number of code points of the UTF-8 `text` (its width on a
/// terminal, for the composed text shown here).
std::size_t columns(std::string const& text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

void showIteration()
{
    printHeading("Iteration");
    for (char const* text : {"/home/user/Documents/", "//server//share", "./a/../b", "///a", "R\xC3\xA9sum\xC3\xA9s/2026"}) {
        std::string shown = quoteText(String(text));
        Path const path(text);
        std::cout << shown << std::string(26 - std::min<std::size_t>(columns(shown), 25), ' ') << "-> "
                  << elementsText(path) << '\n';
        bool endsInDot = false;
        bool hasEmpty = false;
        for (Path const& element : path) {
            endsInDot = element.string() == String(".") && path.string().back() == U'/';
            hasEmpty = hasEmpty || element.empty();
        }
        if (endsInDot)
            std::cout << kFinalDotNote;
        if (hasEmpty)
            std::cout << kEmptyElementNote;
    }
}

/// Makes a new private directory for the tour under $TMPDIR (or /tmp).
/// @returns its path, or an empty path on failure.
Path makeDemoDirectory()
{
    char const* base = std::getenv("TMPDIR");
    return kelvo::filesystem::createUniqueDirectory(Path(base != nullptr && *base != '\0' ? base : "/tmp"),
                                                    String("kelvo-fs-demo-"));
}

/// A private directory and what the tour makes in it, removed in reverse
/// order of creation when the tour ends, also on an early return.
class DemoArea {
public:
    DemoArea() = default;
    DemoArea(DemoArea const&) = delete;
    DemoArea& operator=(DemoArea const&) = delete;
    ~DemoArea() { removeEverything(); }

    /// Makes the directory under $TMPDIR (or /tmp). @returns false on failure.
    bool make()
    {
        directory = makeDemoDirectory();
        return !directory.empty();
    }

    /// Creates the file `name` holding `content`. @returns false on failure.
    bool createFile(Path const& name, std::string const& content)
    {
        Path path = directory / name;
        std::FILE* file = kelvo::filesystem::fopenWrapper(path, "w");
        if (file == nullptr)
            return false;
        made.push_back(path);
        bool written = std::fwrite(content.data(), 1, content.size(), file) == content.size();
        return std::fclose(file) == 0 && written;
    }

    /// Creates the directory `name`. @returns false on failure.
    bool createDirectory(char const* name)
    {
        Path path = directory / Path(name);
        if (!kelvo::filesystem::createDirectoryValidated(path))
            return false;
        made.push_back(path);
        return true;
    }

    /// Removes what was made and then the directory. @returns false when
    /// something could not be removed.
    bool removeEverything()
    {
        bool removed = true;
        while (!made.empty()) {
            removed = kelvo::filesystem::remove(made.back()) && removed;
            made.pop_back();
        }
        if (!directory.empty()) {
            removed = kelvo::filesystem::removeDir(directory) && removed;
            directory.clear();
        }
        return removed;
    }

    Path const& path() const { return directory; }

private:
    Path directory;
    std::vector<Path> made;
};

int showDisk(Invocation const& invocation)
{
    namespace fs = kelvo::filesystem;
    printHeading("On disk");
    DemoArea area;
    if (!area.make())
        return failure(invocation, "cannot make a temporary directory");
    std::cout << "made " << area.path().nativeString() << '\n';
    // Made from code points, so the name on disk is composed.
    if (!area.createFile(Path(String(kDecomposedResume)), "%PDF-1.4\n") || !area.createFile("Readme.TXT", "Read me first.\n")
        || !area.createFile("notes.txt", "Notes of the tour.\n") || !area.createDirectory("archive"))
        return failure(invocation, "cannot create the sample files");
    std::cout << "created " << quoteText(String(kDecomposedResume)) << " (typed decomposed, given as code points), \"Readme.TXT\", "
              << "\"notes.txt\" and the directory \"archive\"\n";
    std::cout << "the name typed composed finds the same file: "
              << boolText(fs::exists(area.path() / Path(kComposedResume))) << '\n';

    std::cout << "listing:\n";
    std::vector<DirectoryEntry> entries;
    for (DirectoryIterator listing(area.path()), end; listing != end; ++listing)
        entries.push_back(*listing);
    std::sort(entries.begin(), entries.end());
    for (DirectoryEntry const& entry : entries) {
        std::cout << "  ";
        printListingLine(std::cout, entry.getStatus().getType(), fs::fileSize(entry.getPath()),
                         entry.getPath().filename().nativeString());
    }
    std::cout << kListingOrderNote;

    Path notes = area.path() / Path("notes.txt");
    fs::FileStatus status = fs::status(notes);
    std::cout << "notes.txt: " << typeName(status.getType()) << ", permissions "
              << permissionsText(status.getPermissions()) << ", " << fs::fileSize(notes) << " bytes, modified "
              << timeText(fs::getModificationTime(notes)) << '\n';

    bool before = FileLock::isFileLocked(notes);
    bool taken = false;
    bool during = false;
    {
        // Released by the destructor: unlockFile would leave the closed
        // descriptor's number in the object for the destructor to close again.
        FileLock lock;
        taken = lock.lockFile(notes);
        during = FileLock::isFileLocked(notes);
    }
    bool after = FileLock::isFileLocked(notes);
    std::cout << "lock on notes.txt: taken " << boolText(taken) << "; isFileLocked before " << boolText(before)
              << ", while held " << boolText(during) << ", after release " << boolText(after) << '\n';
    if (!taken || before || !during || after)
        return failure(invocation, "the lock did not behave as expected");

    showTransformations(std::cout, area.path());

    if (!area.removeEverything())
        return failure(invocation, "cannot remove the temporary directory");
    std::cout << "removed the temporary directory and everything in it\n";
    return kExitSuccess;
}

int showFileOperations(Invocation const& invocation)
{
    namespace fs = kelvo::filesystem;
    printHeading("File operations");
    Path const area = makeDemoDirectory();
    if (area.empty())
        return failure(invocation, "cannot make a temporary directory");
    Path const tree = area / Path("tree");
    bool const made = fs::createDirectories(tree / Path("docs/old"));
    std::FILE* file = kelvo::filesystem::fopenWrapper(tree / Path("docs/notes.txt"), "w");
    bool written = file != nullptr && std::fputs("Notes of the tour.\n", file) >= 0;
    written = file != nullptr && std::fclose(file) == 0 && written;
    std::cout << "createDirectories tree/docs/old: " << boolText(made) << '\n';
    bool const copied = fs::copyDirectory(tree, area / Path("copy"), true);
    std::cout << "copyDirectory tree -> copy: " << boolText(copied) << '\n';
    bool const same = fs::compareDirectories(tree, area / Path("copy"));
    std::cout << "copy compares equal to the original: " << boolText(same) << '\n';
    bool const linked = fs::createSymbolicLink(tree / Path("docs"), area / Path("link"));
    bool const linkRemoved = fs::removeAll(area / Path("link"));
    std::cout << "removeAll of the link to a directory: " << boolText(linkRemoved)
              << " (a link to a directory is never removed this way)\n"
              << kLinkRemovalNote;
    // The link itself goes with a plain unlink, so that the area can go.
    bool const linkGone = std::remove((area / Path("link")).nativeString().c_str()) == 0;
    bool const removed = fs::removeAll(area);
    std::cout << "removeAll of the whole area: " << boolText(removed) << '\n';
    if (!made || !written || !copied || !same || !linked || linkRemoved || !linkGone || !removed)
        return failure(invocation, "the file operations did not behave as expected");
    return kExitSuccess;
}

int showTemporaryStorage()
{
    namespace fs = kelvo::filesystem;
    printHeading("Temporary directory and file mutex");
    Path directory;
    {
        fs::TemporaryDirectory temporary(String("kelvo-fs-demo-"), std::chrono::hours(24));
        directory = fs::getTemporaryDirectory();
        std::string const name = directory.filename().nativeString();
        bool const numbered = name.size() > 14 && name.compare(0, 14, "kelvo-fs-demo-") == 0
            && name.find_first_not_of("0123456789", 14) == std::string::npos;
        std::cout << "private temporary directory " << name << " in " << directory.parentPath().nativeString()
                  << "\nnamed kelvo-fs-demo- and a random number: " << boolText(numbered) << '\n';
        Path const mutexFile = directory / Path("demo.mutex");
        fs::FileMutex mutex(mutexFile, std::chrono::seconds(10));
        {
            std::lock_guard<fs::FileMutex> hold(mutex);
            std::cout << "file mutex taken: its file holds " << fs::fileSize(mutexFile)
                      << " bytes, this process's identifier\n";
        }
        std::cout << "file mutex released: its file is gone: " << boolText(!fs::exists(mutexFile)) << '\n';
    }
    std::cout << "private temporary directory deleted with its scope: " << boolText(!fs::exists(directory)) << '\n';
    return kExitSuccess;
}

} // namespace

int runDemo(Invocation const& invocation)
{
    if (!invocation.allOperands().empty())
        return badUsage(invocation, "takes no arguments");
    std::cout << "kelvo-fs demo: a short tour of the library\n";
    showNormalisation();
    showComparison();
    showDecomposition();
    showIteration();
    int const status = showDisk(invocation);
    if (status != kExitSuccess)
        return status;
    int const filesStatus = showFileOperations(invocation);
    if (filesStatus != kExitSuccess)
        return filesStatus;
    return showTemporaryStorage();
}

} // namespace kelvo::tool
