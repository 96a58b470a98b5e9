// kelvo-fs mkdir, rm, rm-matching, cp, mv, ln, cmp and cmp-tree: the file operations from the command line, with the reason for every refusal.
#include "Commands.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <regex>
#include <vector>

namespace kelvo::tool {

namespace fs = kelvo::filesystem;
using kelvo::filesystem::FileType;
using kelvo::filesystem::Path;

char const kMakeDirectoryUsage[] =
    "Usage: kelvo-fs mkdir [-p] PATH...\n"
    "Make directories.\n"
    "\n"
    "Makes each directory PATH (mode 0777 less the umask). With -p, makes the\n"
    "missing directories above it too. Something already at PATH counts as made.\n"
    "Exit status 1 when a directory cannot be made (the reason is shown).\n";

char const kRemoveUsage[] =
    "Usage: kelvo-fs rm [-r] PATH...\n"
    "Remove files, empty directories or (-r) whole trees.\n"
    "\n"
    "Removes each PATH: a file, a symbolic link or an empty directory; with -r a\n"
    "directory with everything below it (a link is never descended into). A link\n"
    "to a directory or a dangling link is refused, and inside a tree it stops the\n"
    "removal there. Exit status 1 when something could not be removed.\n";

char const kRemoveMatchingUsage[] =
    "Usage: kelvo-fs rm-matching [-r] DIRECTORY PATTERN\n"
    "Remove the entries of a directory whose names match a pattern.\n"
    "\n"
    "Removes the entries of DIRECTORY (not its subdirectories' entries) whose\n"
    "names match the glob PATTERN (\"?\" one character, \"*\" any run). Without -r\n"
    "a matching directory goes only when empty; with -r with everything in it.\n"
    "Exit status 1 when DIRECTORY is missing, not a directory or empty, or when\n"
    "an entry could not be removed; 2 for a PATTERN that is not valid.\n";

char const kCopyUsage[] =
    "Usage: kelvo-fs cp [-r] [--overwrite] FROM TO\n"
    "Copy a file or (-r) a directory tree.\n"
    "\n"
    "Copies the file FROM (links followed) to TO; the copy gets FROM's permissions\n"
    "less the umask. An existing TO is refused unless --overwrite is given. With -r\n"
    "a directory FROM is copied with everything below it into the new directory\n"
    "TO (never into an existing one); a failing entry does not stop the copy.\n"
    "Links are followed; a FIFO or device is copied as a file of what it gives,\n"
    "up to 16 MiB. A directory that cannot be read is named and copied empty.\n"
    "Exit status 1 when something could not be copied or read.\n";

char const kMoveUsage[] =
    "Usage: kelvo-fs mv FROM TO\n"
    "Move or rename, across file systems too.\n"
    "\n"
    "Moves FROM to TO: a rename, or across file systems a copy that never\n"
    "overwrites followed by the removal of FROM. Exit status 1 on failure.\n";

char const kLinkUsage[] =
    "Usage: kelvo-fs ln [-s] TARGET LINK\n"
    "Make a symbolic link (-s is required).\n"
    "\n"
    "Makes the symbolic link LINK holding the text TARGET. Exit status 1 when it\n"
    "cannot be made (LINK exists, no permission).\n";

char const kCompareFilesUsage[] =
    "Usage: kelvo-fs cmp A B\n"
    "Compare the contents of two files.\n"
    "\n"
    "Compares the contents of the files A and B (links followed). Exit status 0\n"
    "when they are the same, 1 when they differ, 2 when A or B is missing or a\n"
    "directory.\n";

char const kCompareTreesUsage[] =
    "Usage: kelvo-fs cmp-tree A B\n"
    "Compare two directory trees.\n"
    "\n"
    "Compares the directory trees A and B: the same names (ignoring letter case\n"
    "and composition), the same kinds, the same file contents. A directory that\n"
    "cannot be read is named and compared as empty. Exit status 0 when they are\n"
    "the same, 1 when they differ or a directory could not be read, 2 when A or B\n"
    "is missing or not a directory.\n";

namespace {

/// Exit status of the comparisons when they cannot answer.
constexpr int kExitTrouble = 2;

/// @returns the system's text for the error left by the last failing call.
std::string systemReason(int error)
{
    return error != 0 ? std::string(std::strerror(error)) : std::string("failed");
}

std::string shown(std::string const& operand) { return quoteBytes(operand); }

int makeOne(Invocation const& invocation, std::string const& operand, bool parents)
{
    Path const path(operand);
    errno = 0;
    if (parents ? fs::createDirectories(path) : fs::createDirectory(path))
        return kExitSuccess;
    int const error = errno;
    if (operand.find('\0') != std::string::npos)
        return failure(invocation, "cannot make " + shown(operand) + ": the path holds a NUL byte");
    Path const parent = path.parentPath();
    if (!parents && !parent.empty() && !fs::exists(parent))
        return failure(invocation, "cannot make " + shown(operand) + ": the parent directory does not exist (use -p)");
    if (!parents && !fs::isValidDirectoryPathLength(path))
        return failure(invocation, "cannot make " + shown(operand) + ": the path is too long for this file system");
    return failure(invocation, "cannot make " + shown(operand) + ": " + systemReason(error));
}

int removeOne(Invocation const& invocation, std::string const& operand, bool recursive)
{
    Path const path(operand);
    errno = 0;
    if (recursive ? fs::removeAll(path) : fs::remove(path))
        return kExitSuccess;
    int const error = errno;
    std::string const what = "cannot remove " + shown(operand) + ": ";
    fs::FileStatus const own = fs::symbolicLinkStatus(path);
    if (own.getType() == FileType::none)
        return failure(invocation, what + "no such file or directory");
    if (!fs::exists(path))
        return failure(invocation, what + "it is a dangling link, which is never removed this way");
    bool const isLink = fs::status(path).getType() == FileType::directory && own.getType() == FileType::symbolicLink;
    if (isLink)
        return failure(invocation, what + "it is a link to a directory, which is never removed this way");
    if (!recursive && fs::isDirectory(path))
        return failure(invocation, what + systemReason(error) + " (use -r for a tree)");
    if (recursive && fs::isDirectory(path))
        return failure(invocation, what + "the removal stopped at an entry that could not be deleted ("
                                       + systemReason(error)
                                       + "); a link to a directory or a dangling link stops it too");
    return failure(invocation, what + systemReason(error));
}

/// @returns the exit status for a comparison's operands that cannot be
/// compared as asked, or -1 when they can.
int checkOperands(Invocation const& invocation, std::string const& a, std::string const& b, bool directories)
{
    for (std::string const& operand : {a, b}) {
        Path const path(operand);
        if (!fs::exists(path)) {
            std::cerr << "kelvo-fs " << invocation.name << ": " << shown(operand) << ": no such file or directory\n";
            return kExitTrouble;
        }
        if (fs::isDirectory(path) != directories) {
            std::cerr << "kelvo-fs " << invocation.name << ": " << shown(operand)
                      << (directories ? ": not a directory\n" : ": is a directory\n");
            return kExitTrouble;
        }
    }
    return -1;
}

/// Names on standard error every directory a tree operation could not read,
/// with what became of it there.
void reportUnreadable(Invocation const& invocation, std::vector<Path> const& unreadable, char const* consequence)
{
    for (Path const& directory : unreadable)
        std::cerr << "kelvo-fs " << invocation.name << ": cannot read the directory "
                  << quoteName(directory.nativeString()) << ": " << consequence << '\n';
}

int sameOrDifferent(bool same, std::string const& a, std::string const& b)
{
    std::cout << shown(a) << (same ? " and " : " differs from ") << shown(b) << (same ? " are the same\n" : "\n");
    return same ? kExitSuccess : kExitNegative;
}

} // namespace

int runMakeDirectory(Invocation const& invocation)
{
    std::vector<std::string> const operands = invocation.allOperands();
    if (operands.empty())
        return badUsage(invocation, "needs at least one PATH");
    int status = kExitSuccess;
    for (std::string const& operand : operands) {
        if (makeOne(invocation, operand, invocation.hasOption("-p")) != kExitSuccess)
            status = kExitNegative;
    }
    return status;
}

int runRemove(Invocation const& invocation)
{
    std::vector<std::string> const operands = invocation.allOperands();
    if (operands.empty())
        return badUsage(invocation, "needs at least one PATH");
    int status = kExitSuccess;
    for (std::string const& operand : operands) {
        if (removeOne(invocation, operand, invocation.hasOption("-r")) != kExitSuccess)
            status = kExitNegative;
    }
    return status;
}

int runRemoveMatching(Invocation const& invocation)
{
    std::vector<std::string> const operands = invocation.allOperands();
    if (operands.size() != 2)
        return badUsage(invocation, "needs a DIRECTORY and a PATTERN");
    Path const directory(operands[0]);
    kelvo::unicode::String const pattern(operands[1]);
    bool removed = false;
    try {
        removed = invocation.hasOption("-r") ? fs::removeAllMatching(directory, pattern)
                                             : fs::removeMatching(directory, pattern);
    } catch (std::regex_error const&) {
        return badUsage(invocation, "the pattern " + shown(operands[1]) + " is not valid");
    }
    if (removed)
        return kExitSuccess;
    if (!fs::isDirectory(directory))
        return failure(invocation, shown(operands[0]) + " is missing or not a directory");
    if (kelvo::filesystem::DirectoryIterator(directory) == kelvo::filesystem::DirectoryIterator())
        return failure(invocation, shown(operands[0]) + " is empty: nothing to remove");
    return failure(invocation, std::string("a matching entry could not be removed")
                                   + (invocation.hasOption("-r") ? " (a link to a directory or a dangling link stops the removal)"
                                                                 : " (a non-empty directory needs -r)"));
}

int runCopy(Invocation const& invocation)
{
    std::vector<std::string> const operands = invocation.allOperands();
    if (operands.size() != 2)
        return badUsage(invocation, "needs FROM and TO");
    Path const from(operands[0]);
    Path const to(operands[1]);
    bool const overwrite = invocation.hasOption("--overwrite");
    std::string const what = "cannot copy " + shown(operands[0]) + " to " + shown(operands[1]) + ": ";
    if (!fs::exists(from))
        return failure(invocation, what + "the source does not exist");
    if (fs::isDirectory(from)) {
        if (!invocation.hasOption("-r"))
            return failure(invocation, what + "the source is a directory (use -r)");
        if (fs::exists(to))
            return failure(invocation, what + "the destination exists; a directory is never copied into an existing one");
        std::vector<Path> unreadable;
        bool const copied = fs::copyDirectory(from, to, true, unreadable);
        reportUnreadable(invocation, unreadable, "its copy is empty");
        if (!copied)
            return failure(invocation, what + "some entries could not be copied (the others were)");
        if (!unreadable.empty())
            return failure(invocation, what + "some directories could not be read (everything else was copied)");
        return kExitSuccess;
    }
    if (!overwrite && fs::exists(to))
        return failure(invocation, what + "the destination exists (use --overwrite)");
    errno = 0;
    if (!fs::copyFile(from, to, !overwrite))
        return failure(invocation, what + systemReason(errno));
    return kExitSuccess;
}

int runMove(Invocation const& invocation)
{
    std::vector<std::string> const operands = invocation.allOperands();
    if (operands.size() != 2)
        return badUsage(invocation, "needs FROM and TO");
    Path const from(operands[0]);
    Path const to(operands[1]);
    std::string const what = "cannot move " + shown(operands[0]) + " to " + shown(operands[1]) + ": ";
    if (fs::symbolicLinkStatus(from).getType() == FileType::none)
        return failure(invocation, what + "the source does not exist");
    errno = 0;
    if (fs::move(from, to))
        return kExitSuccess;
    int const error = errno;
    if (fs::exists(to) && fs::exists(from))
        return failure(invocation, what + "the destination exists and is on another file system, where it is never overwritten");
    return failure(invocation, what + systemReason(error));
}

int runLink(Invocation const& invocation)
{
    std::vector<std::string> const operands = invocation.allOperands();
    if (!invocation.hasOption("-s"))
        return badUsage(invocation, "only symbolic links are made: give -s");
    if (operands.size() != 2)
        return badUsage(invocation, "needs TARGET and LINK");
    errno = 0;
    if (fs::createSymbolicLink(Path(operands[0]), Path(operands[1])))
        return kExitSuccess;
    int const error = errno;
    if (fs::symbolicLinkStatus(Path(operands[1])).getType() != FileType::none)
        return failure(invocation, "cannot make the link " + shown(operands[1]) + ": something exists there already");
    return failure(invocation, "cannot make the link " + shown(operands[1]) + ": " + systemReason(error));
}

int runCompareFiles(Invocation const& invocation)
{
    std::vector<std::string> const operands = invocation.allOperands();
    if (operands.size() != 2)
        return badUsage(invocation, "needs two files");
    int const trouble = checkOperands(invocation, operands[0], operands[1], false);
    if (trouble >= 0)
        return trouble;
    return sameOrDifferent(fs::compareFiles(Path(operands[0]), Path(operands[1])), operands[0], operands[1]);
}

int runCompareTrees(Invocation const& invocation)
{
    std::vector<std::string> const operands = invocation.allOperands();
    if (operands.size() != 2)
        return badUsage(invocation, "needs two directories");
    int const trouble = checkOperands(invocation, operands[0], operands[1], true);
    if (trouble >= 0)
        return trouble;
    std::vector<Path> unreadable;
    bool const same = fs::compareDirectories(Path(operands[0]), Path(operands[1]), unreadable);
    reportUnreadable(invocation, unreadable, "compared as empty");
    if (same && !unreadable.empty())
        return failure(invocation, shown(operands[0]) + " and " + shown(operands[1])
                                       + " are the same only as far as they could be read");
    return sameOrDifferent(same, operands[0], operands[1]);
}

} // namespace kelvo::tool
