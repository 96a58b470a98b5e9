// The commands that search and measure trees: find (entries by name or shell pattern) and du (the room trees take on disk).
#include "Commands.h"
#include "Json.h"

#include <kelvo/filesystem/Finding.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace kelvo::tool {

using kelvo::filesystem::DirectoryEntry;
using kelvo::filesystem::Failure;
using kelvo::filesystem::FileType;
using kelvo::filesystem::FindOptions;
using kelvo::filesystem::NameFolding;
using kelvo::filesystem::Path;
using kelvo::filesystem::ShellPattern;
using kelvo::filesystem::WalkAction;

char const kFindUsage[] =
    "Usage: kelvo-fs find [ROOT...] [-name GLOB] [-iname GLOB] [--ignore-accents] [-type f|d|l] [-maxdepth N] [-L] [-xdev] [-print0] [--json]\n"
    "Print the entries of trees whose names match a shell pattern.\n"
    "\n"
    "Walks each ROOT (\".\" when none is given) and prints the path of each entry,\n"
    "the ROOT itself included, that passes every test, one a line, in the order\n"
    "the system lists each directory, a directory before its contents. Paths are\n"
    "shown as every command shows names; with -print0 they are written as their\n"
    "bytes, each ended by a NUL. The options may come in any order.\n"
    "  -name GLOB        the name matches GLOB with the shell's rules: *, ?,\n"
    "                    [a-z], [!a-z], [[:alpha:]], \\ escapes; a leading \".\"\n"
    "                    is matched by * and ? like any other character\n"
    "  -iname GLOB       the same ignoring letter case and Unicode composition, as\n"
    "                    paths compare (\"?\" takes a letter with its accents)\n"
    "  --ignore-accents  with -name or -iname, also ignore case, composition and\n"
    "                    accents: \"resume\" finds \"R\xC3\xA9sum\xC3\xA9\"\n"
    "  -type f|d|l       only regular files, directories or symbolic links\n"
    "  -maxdepth N       descend at most N levels below each ROOT (0: ROOT only)\n"
    "  -L                follow symbolic links (loops are found and not entered)\n"
    "  -xdev             do not enter directories on other file systems\n"
    "  -print0           end each path with a NUL instead of a newline\n"
    "  --json            one JSON object a line for each entry (path, native:\n"
    "                    its bytes as numbers from 0 to 255, type, depth)\n"
    "Exit status 1 when a directory could not be read (told on standard error,\n"
    "the rest is still searched), 2 for bad usage.\n";

char const kDiskUsageUsage[] =
    "Usage: kelvo-fs du [-s] [-h] [PATH...]\n"
    "Print the room trees take on disk.\n"
    "\n"
    "Prints, for each directory below each PATH (\".\" when none is given) after\n"
    "its contents, and for PATH itself, the room it takes with everything in it,\n"
    "in 1024-byte blocks rounded up, a tab and its path. Room is what is\n"
    "allocated, so a sparse file counts what it holds; an object with several\n"
    "names counts once in the whole run. Symbolic links are not followed.\n"
    "  -s   only one line for each PATH\n"
    "  -h   sizes as 4.0K, 1.5M (powers of 1024, rounded up)\n"
    "Exit status 1 when something could not be read (told on standard error,\n"
    "the rest is still counted).\n";

namespace {

/// Writes the output in large pieces: a search may print many thousands of
/// short lines.
class Output {
public:
    ~Output() { flush(); }
    void add(std::string const& text)
    {
        buffer += text;
        if (buffer.size() >= kFlushSize)
            flush();
    }
    void add(char c) { buffer += c; }
    void flush()
    {
        std::cout.write(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        std::cout.flush();
        buffer.clear();
    }

private:
    static constexpr std::size_t kFlushSize = 1 << 16;
    std::string buffer;
};

/// @returns the shown form of the bytes of a path: as `escapeName` shows it,
/// taken as it is when it is printable ASCII without a backslash, which
/// `escapeName` leaves unchanged.
std::string shownPath(std::string const& bytes)
{
    for (char c : bytes) {
        auto const byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte >= 0x7F || c == '\\')
            return escapeName(bytes);
    }
    return bytes;
}

nlohmann::ordered_json jsonBytesOf(std::string const& bytes)
{
    nlohmann::ordered_json array = nlohmann::ordered_json::array();
    for (char c : bytes)
        array.push_back(static_cast<unsigned char>(c));
    return array;
}

char const* typeLetterName(FileType type)
{
    switch (type) {
    case FileType::regularFile: return "f";
    case FileType::directory: return "d";
    case FileType::symbolicLink: return "l";
    case FileType::blockDevice: return "b";
    case FileType::characterDevice: return "c";
    case FileType::fifo: return "p";
    default: return "?";
    }
}

struct FindRequest {
    std::vector<std::string> roots;
    std::string pattern = "*";
    bool folded = false;
    bool ignoreAccents = false;
    bool sawName = false;
    FindOptions options;
    bool followLinks = false;
    bool print0 = false;
    bool json = false;
    std::size_t maxDepth = static_cast<std::size_t>(-1);
};

/// Reads the words of a find command line.
/// @returns an empty text, or the usage error.
std::string readFindWords(std::vector<std::string> const& words, FindRequest& request)
{
    for (std::size_t i = 0; i < words.size(); ++i) {
        std::string const& word = words[i];
        auto value = [&](std::string& out) -> std::string {
            if (i + 1 >= words.size())
                return "option " + word + " needs a value";
            out = words[++i];
            return "";
        };
        std::string error;
        if (word == "-name" || word == "-iname") {
            if (request.sawName)
                return "takes one -name or -iname";
            request.sawName = true;
            request.folded = word == "-iname";
            error = value(request.pattern);
        } else if (word == "--ignore-accents") {
            request.ignoreAccents = true;
        } else if (word == "-type") {
            std::string type;
            error = value(type);
            if (error.empty()) {
                if (type == "f")
                    request.options.type = FileType::regularFile;
                else if (type == "d")
                    request.options.type = FileType::directory;
                else if (type == "l")
                    request.options.type = FileType::symbolicLink;
                else
                    return "-type takes f, d or l, not " + quoteName(type);
            }
        } else if (word == "-maxdepth") {
            std::string depth;
            error = value(depth);
            if (error.empty()) {
                char* end = nullptr;
                unsigned long long const parsed = std::strtoull(depth.c_str(), &end, 10);
                if (depth.empty() || depth[0] < '0' || depth[0] > '9' || *end != '\0')
                    return "-maxdepth takes a whole number, not " + quoteName(depth);
                request.maxDepth = static_cast<std::size_t>(parsed);
            }
        } else if (word == "-L") {
            request.followLinks = true;
        } else if (word == "-xdev") {
            request.options.walk.sameFileSystem = true;
        } else if (word == "-print0") {
            request.print0 = true;
        } else if (word == "--json") {
            request.json = true;
        } else if (word.empty()) {
            return "an empty argument names nothing";
        } else if (word.compare(0, 2, "--") == 0 && word.find('=') != std::string::npos) {
            std::string const name = word.substr(0, word.find('='));
            if (name == "--ignore-accents" || name == "--json")
                return "option " + name + " takes no value";
            return "unknown option " + name;
        } else if (word[0] == '-' && word != "-") {
            return "unknown option " + word;
        } else {
            request.roots.push_back(word);
        }
        if (!error.empty())
            return error;
    }
    if (request.print0 && request.json)
        return "takes -print0 or --json, not both";
    if (request.roots.empty())
        request.roots.emplace_back(".");
    request.options.walk.followSymbolicLinks = request.followLinks;
    request.options.walk.maxDepth = request.maxDepth;
    return "";
}

/// The name find tests for the root itself: its last element as given,
/// trailing separators left out ("/" for a root of separators only).
std::string rootName(std::string root)
{
    while (root.size() > 1 && root.back() == '/')
        root.pop_back();
    std::size_t const slash = root.rfind('/');
    return slash == std::string::npos || root.size() == 1 ? root : root.substr(slash + 1);
}

} // namespace

int runFind(Invocation const& invocation)
{
    FindRequest request;
    std::string const error = readFindWords(invocation.operands, request);
    if (!error.empty())
        return badUsage(invocation, error);
    NameFolding const folding = request.ignoreAccents ? NameFolding::caseCompositionAndAccents
        : request.folded                              ? NameFolding::caseAndComposition
                                                      : NameFolding::exact;
    ShellPattern const pattern(kelvo::unicode::String(request.pattern), folding);

    Output output;
    auto print = [&](std::string const& bytes, FileType type, std::size_t depth) {
        if (request.print0) {
            output.add(bytes);
            output.add('\0');
        } else if (request.json) {
            nlohmann::ordered_json line;
            line["path"] = jsonName(bytes);
            line["native"] = jsonBytesOf(bytes);
            line["type"] = typeLetterName(type);
            line["depth"] = depth;
            std::ostringstream text;
            printJsonLine(text, line);
            output.add(text.str());
        } else {
            output.add(shownPath(bytes));
            output.add('\n');
        }
    };

    int result = kExitSuccess;
    for (std::string const& root : request.roots) {
        // The root itself is tested as any entry is.
        Path const rootPath(root);
        kelvo::filesystem::FileStatus rootStatus = kelvo::filesystem::symbolicLinkStatus(rootPath);
        if (request.followLinks && rootStatus.getType() == FileType::symbolicLink) {
            kelvo::filesystem::FileStatus const followed = kelvo::filesystem::status(rootPath);
            if (followed.getType() != FileType::none)
                rootStatus = followed;
        }
        FileType const rootType = rootStatus.getType();
        if (rootType != FileType::none && pattern.matchesNative(rootName(root))
            && (request.options.type == FileType::none || request.options.type == rootType))
            print(root, rootType, 0);
        if (rootType != FileType::directory && !(request.followLinks && rootType == FileType::symbolicLink)
            && rootType != FileType::none)
            continue; // nothing below a file
        if (request.maxDepth == 0 && rootType != FileType::none)
            continue;

        std::vector<Failure> failures;
        bool const follow = request.followLinks;
        kelvo::filesystem::forEachFound(
            rootPath, pattern, request.options,
            [&](DirectoryEntry const& entry, std::size_t depth) {
                FileType type = entry.getListedType();
                if (follow && type == FileType::symbolicLink && request.json) {
                    FileType const target = entry.getStatus().getType();
                    type = target == FileType::none ? type : target;
                }
                print(entry.getPath().nativeString(), type, depth);
                return WalkAction::proceed;
            },
            &failures);
        if (!failures.empty()) {
            output.flush();
            for (Failure const& failed : failures)
                failure(invocation, failureText("read directory", failed, root, "it cannot be read"));
            result = kExitNegative;
        }
    }
    return result;
}

int runDiskUsage(Invocation const& invocation)
{
    bool const summary = invocation.hasOption("-s");
    bool const human = invocation.hasOption("-h");
    std::vector<std::string> paths = invocation.allOperands();
    if (paths.empty())
        paths.emplace_back(".");
    auto shownSize = [human](std::int64_t bytes) {
        if (human)
            return humanSize(bytes);
        return std::to_string((bytes + 1023) / 1024);
    };
    Output output;
    kelvo::filesystem::DiskUsageCounter counter;
    int result = kExitSuccess;
    for (std::string const& path : paths) {
        std::vector<Failure> failures;
        startRecording();
        std::int64_t const total = counter.measure(
            Path(path),
            [&](Path const& directory, std::int64_t bytes) {
                if (!summary)
                    output.add(shownSize(bytes) + "\t" + shownPath(directory.nativeString()) + "\n");
            },
            &failures);
        if (total >= 0 && summary)
            output.add(shownSize(total) + "\t" + shownPath(path) + "\n");
        if (total >= 0 && !summary) {
            // A PATH that is not a directory gets its own line; a directory
            // got it last of its walk.
            kelvo::filesystem::FileStatus const own = kelvo::filesystem::symbolicLinkStatus(Path(path));
            if (own.getType() != FileType::directory)
                output.add(shownSize(total) + "\t" + shownPath(path) + "\n");
        }
        if (!failures.empty()) {
            output.flush();
            for (Failure const& failed : failures) {
                char const* verb = failed.call == "openat" || failed.call == "open" || failed.call == "getdents64"
                        || failed.call == "getdents"
                    ? "read directory"
                    : "access";
                failure(invocation, failureText(verb, failed, path, "it cannot be read"));
            }
            result = kExitNegative;
        }
    }
    return result;
}

} // namespace kelvo::tool
