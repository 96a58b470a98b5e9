// kelvo-fs resolve, canonical, complete, limits, check-length, sanitize, dos83, elide, glob and fix-case: the path transformations from the command line.
#include "Commands.h"

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <regex>
#include <string>
#include <vector>

namespace kelvo::tool {

namespace fs = kelvo::filesystem;
using kelvo::filesystem::Path;
using kelvo::unicode::String;

extern char const kResolveUsage[] =
    "Usage: kelvo-fs resolve PATH\n"
    "Remove \".\" and \"..\", resolving what exists on disk.\n"
    "\n"
    "Removes the \".\" and \"..\" elements of PATH. Each leading part that exists\n"
    "on disk is replaced by its real path as the walk goes, so \"..\" after a\n"
    "symbolic link goes to the parent of its target; past it the rest is taken\n"
    "as text, and a \"..\" with nothing before it is dropped. Prints the result\n"
    "(an empty line for an empty result, as for \"/..\").\n";

extern char const kCanonicalUsage[] =
    "Usage: kelvo-fs canonical PATH\n"
    "Print the real path of an existing PATH.\n"
    "\n"
    "Prints the real, absolute path of PATH, with every symbolic link, \".\" and\n"
    "\"..\" resolved by the system. Exit status 1 when an element is missing or\n"
    "cannot be searched, or the links loop.\n";

extern char const kCompleteUsage[] =
    "Usage: kelvo-fs complete PATH [BASE]\n"
    "Complete a relative PATH against BASE or the current directory.\n"
    "\n"
    "Joins a relative PATH onto BASE, or onto the current directory without\n"
    "BASE, and prints it. PATH comes back unchanged when it is complete or has a\n"
    "network root name, or when BASE is not complete.\n";

extern char const kLimitsUsage[] =
    "Usage: kelvo-fs limits [DIRECTORY]\n"
    "Print the path, directory path and name length limits.\n"
    "\n"
    "Prints the limits the system sets now, in bytes: the longest path, the\n"
    "longest directory path (25 bytes less) and the longest name inside\n"
    "DIRECTORY (the root when none is given; the root's limit when DIRECTORY\n"
    "does not exist). -1 stands for no limit.\n";

extern char const kCheckLengthUsage[] =
    "Usage: kelvo-fs check-length [--directory] PATH\n"
    "Tell whether PATH fits the length limits.\n"
    "\n"
    "Tells whether PATH fits the length limits: the whole path, with its\n"
    "existing parent measured through its links, and each name that does not\n"
    "exist yet. With --directory, whether a directory can be made at PATH.\n"
    "Prints \"valid\" and exits with 0, or prints \"too long\" and exits with 1.\n";

extern char const kSanitizeUsage[] =
    "Usage: kelvo-fs sanitize PATH\n"
    "Replace unsafe characters of PATH by \"_\".\n"
    "\n"
    "Prints PATH with every character other than ASCII letters and digits, \"/\",\n"
    "the space and !#$&'()-@^_`{}~. replaced by \"_\", one for one. Accented\n"
    "letters are taken decomposed: \"\xC3\xA9\" becomes \"e_\".\n";

extern char const kDos83Usage[] =
    "Usage: kelvo-fs dos83 PATH\n"
    "Make a unique DOS 8.3 name for the last element of PATH.\n"
    "\n"
    "Prints PATH with its last element made a DOS short name: upper case, at\n"
    "most eight characters, a dot and three, numbered \"~1\", \"~2\", ... until it\n"
    "names nothing that exists beside PATH.\n";

extern char const kElideUsage[] =
    "Usage: kelvo-fs elide --width N [--ellipsis TEXT] PATH\n"
    "Shorten PATH for display around an ellipsis.\n"
    "\n"
    "Shortens PATH for display in N characters: the first and last elements are\n"
    "always kept, elements next to them while they fit (the end first), and the\n"
    "dropped run in between becomes TEXT (\"...\" by default) between two \"/\".\n";

extern char const kGlobUsage[] =
    "Usage: kelvo-fs glob PATTERN NAME...\n"
    "Print the NAMEs that match the wildcard PATTERN.\n"
    "\n"
    "Prints each NAME whose whole text matches PATTERN, one a line. \"?\" stands\n"
    "for one character and \"*\" for any run; every other character keeps its\n"
    "meaning in an ECMAScript regular expression (\".\" is any character, \"[a-z]\"\n"
    "a class). Exit status 1 when no NAME matches, 2 when PATTERN is not a valid\n"
    "expression.\n";

extern char const kFixCaseUsage[] =
    "Usage: kelvo-fs fix-case [--all] PATH\n"
    "Print the spelling of PATH on disk.\n"
    "\n"
    "Prints the spelling of PATH as it is on disk, finding each element in its\n"
    "directory's listing whatever its letter case and Unicode composition. An\n"
    "existing PATH, and existing directories above it, are trusted unless --all\n"
    "is given. The spelling is shown as every name is: a byte that is not UTF-8\n"
    "and a control character as \\xHH. Exit status 1 when no spelling is found.\n";

namespace {

/// Prints the bytes of `path` as every command shows a name.
int printPath(Path const& path)
{
    std::cout << escapeName(path.nativeString()) << '\n';
    return kExitSuccess;
}

/// Checks that exactly `count` operands were given. @returns true if so.
bool hasOperands(Invocation const& invocation, std::size_t count)
{
    return invocation.allOperands().size() == count;
}

} // namespace

int runResolve(Invocation const& invocation)
{
    if (!hasOperands(invocation, 1))
        return badUsage(invocation, "expects one PATH");
    return printPath(fs::resolveDots(Path(invocation.allOperands()[0])));
}

int runCanonical(Invocation const& invocation)
{
    if (!hasOperands(invocation, 1))
        return badUsage(invocation, "expects one PATH");
    std::string const text = invocation.allOperands()[0];
    startRecording();
    Path const result = fs::canonical(Path(text));
    if (result.empty())
        return reportFailure(invocation, "resolve", text, "it has no real path");
    return printPath(result);
}

int runComplete(Invocation const& invocation)
{
    std::vector<std::string> const operands = invocation.allOperands();
    if (operands.empty() || operands.size() > 2)
        return badUsage(invocation, "expects PATH and an optional BASE");
    Path const path(operands[0]);
    return printPath(operands.size() == 2 ? fs::complete(path, Path(operands[1])) : fs::systemComplete(path));
}

int runLimits(Invocation const& invocation)
{
    std::vector<std::string> const operands = invocation.allOperands();
    if (operands.size() > 1)
        return badUsage(invocation, "expects at most one DIRECTORY");
    // The name limit is asked of the directory that would hold a new name.
    Path const inside = operands.empty() ? Path("/") : Path(operands[0]) / Path("name");
    std::cout << "path length:           " << fs::getMaxNativeStringPathLength() << '\n'
              << "directory path length: " << fs::getMaxNativeStringDirectoryLength() << '\n'
              << "name length:           " << fs::getMaxNativeStringNameLength(inside) << '\n';
    return kExitSuccess;
}

int runCheckLength(Invocation const& invocation)
{
    if (!hasOperands(invocation, 1))
        return badUsage(invocation, "expects one PATH");
    Path const path(invocation.allOperands()[0]);
    bool const valid = invocation.hasOption("--directory") ? fs::isValidDirectoryPathLength(path)
                                                           : fs::isValidPathLength(path);
    std::cout << (valid ? "valid" : "too long") << '\n';
    return valid ? kExitSuccess : kExitNegative;
}

int runSanitize(Invocation const& invocation)
{
    if (!hasOperands(invocation, 1))
        return badUsage(invocation, "expects one PATH");
    return printPath(fs::sanitize(Path(invocation.allOperands()[0])));
}

int runDos83(Invocation const& invocation)
{
    if (!hasOperands(invocation, 1))
        return badUsage(invocation, "expects one PATH");
    return printPath(fs::toDos8Dot3(Path(invocation.allOperands()[0])));
}

int runElide(Invocation const& invocation)
{
    if (!hasOperands(invocation, 1))
        return badUsage(invocation, "expects one PATH");
    std::string const* width = invocation.optionValue("--width");
    if (width == nullptr)
        return badUsage(invocation, "expects --width N");
    char* end = nullptr;
    errno = 0;
    unsigned long long const value = std::strtoull(width->c_str(), &end, 10);
    if (width->empty() || *end != '\0' || (*width)[0] == '-' || errno == ERANGE || value > 0xFFFFFFFFull)
        return badUsage(invocation, "the width must be a number from 0 to 4294967295, not " + quoteName(*width));
    std::string const* ellipsis = invocation.optionValue("--ellipsis");
    String const result = fs::generateElidedPath(Path(invocation.allOperands()[0]), static_cast<unsigned long>(value),
                                                 String(ellipsis ? *ellipsis : std::string("...")));
    std::cout << result.toUTF8String() << '\n';
    return kExitSuccess;
}

int runGlob(Invocation const& invocation)
{
    std::vector<std::string> const operands = invocation.allOperands();
    if (operands.size() < 2)
        return badUsage(invocation, "expects a PATTERN and at least one NAME");
    String const pattern(operands[0]);
    bool matched = false;
    try {
        for (std::size_t i = 1; i < operands.size(); ++i) {
            if (fs::matchesGlobPattern(Path(operands[i]), pattern)) {
                std::cout << escapeName(operands[i]) << '\n';
                matched = true;
            }
        }
    } catch (std::regex_error const& error) {
        badUsage(invocation, "the pattern " + quoteName(operands[0]) + " is not a valid expression: " + error.what());
        return kExitBadUsage;
    }
    return matched ? kExitSuccess : kExitNegative;
}

int runFixCase(Invocation const& invocation)
{
    if (!hasOperands(invocation, 1))
        return badUsage(invocation, "expects one PATH");
    Path path(invocation.allOperands()[0]);
    // An element with no match is an answer, not a failure of a call.
    if (!fs::correctFileCaseAndComposition(path, invocation.hasOption("--all")))
        return failure(invocation, "cannot find " + quoteName(invocation.allOperands()[0])
                                       + ": no spelling of it is on disk");
    return printPath(path);
}

} // namespace kelvo::tool

namespace kelvo::tool {

namespace {

/// @returns the native bytes of `path`, shortened to "DIR/..." for a path
/// inside `directory`, quoted.
std::string shown(Path const& path, Path const& directory)
{
    std::string const native = path.nativeString();
    std::string const prefix = directory.nativeString();
    if (native.compare(0, prefix.size(), prefix) == 0)
        return quoteBytes("DIR" + native.substr(prefix.size()));
    return quoteBytes(native);
}

} // namespace

void showTransformations(std::ostream& out, Path const& madeDirectory)
{
    // Shown through its real path, so that a temporary directory reached
    // through a link reads the same.
    Path const real = fs::canonical(madeDirectory);
    Path const& directory = real.empty() ? madeDirectory : real;
    out << "\n== Path transformations (DIR is the temporary directory) ==\n";
    Path const notes = directory / Path("archive/../notes.txt");
    out << "resolveDots " << shown(notes, directory) << " -> " << shown(fs::resolveDots(notes), directory) << '\n';
    Path const archiveUp = directory / Path("archive/..");
    out << "canonical " << shown(archiveUp, directory) << " -> " << shown(fs::canonical(archiveUp), directory) << '\n';
    out << "complete \"notes.txt\" against DIR -> " << shown(fs::complete(Path("notes.txt"), directory), directory)
        << '\n';
    out << "limits: path " << fs::getMaxNativeStringPathLength() << ", directory path "
        << fs::getMaxNativeStringDirectoryLength() << ", name in DIR "
        << fs::getMaxNativeStringNameLength(directory / Path("x")) << " bytes\n";
    Path const longName = directory / Path(std::string(300, 'n'));
    out << "isValidPathLength of a 300-byte name in DIR: " << boolText(fs::isValidPathLength(longName)) << '\n';
    char const* unsafe = "R\xC3\xA9sum\xC3\xA9: draft+final?.pdf";
    out << "sanitize " << quoteText(String(unsafe)) << " -> " << quoteText(fs::sanitize(Path(unsafe)).string())
        << '\n';
    Path const document = directory / Path("My Document.html");
    out << "toDos8Dot3 " << shown(document, directory) << " -> " << shown(fs::toDos8Dot3(document), directory)
        << '\n';
    Path const deep("/home/user/projects/kelvo/src/filesystem/Path.cpp");
    out << "generateElidedPath " << quoteText(deep.string()) << " in 30 -> "
        << quoteText(fs::generateElidedPath(deep, 30, String("..."))) << '\n';
    out << "matchesGlobPattern \"*.txt\":";
    for (char const* name : {"notes.txt", "Readme.TXT", "notes.txt.bak"})
        out << ' ' << name << ' ' << boolText(fs::matchesGlobPattern(Path(name), String("*.txt"))) << ';';
    out << '\n';
    Path typed = directory / Path("README.txt");
    Path const asTyped = typed;
    bool const found = fs::correctFileCaseAndComposition(typed, false);
    out << "correctFileCaseAndComposition " << shown(asTyped, directory) << " -> "
        << (found ? shown(typed, directory) : std::string("(none)")) << '\n';
}

} // namespace kelvo::tool
