// kelvo-fs mkdir, rm, rm-matching, cp, mv, ln, cmp and cmp-tree: the file operations from the command line, with the reason for every refusal.
#include "Commands.h"

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <regex>
#include <system_error>
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
    "Usage: kelvo-fs cp [-r] [--overwrite] [-a] [--progress] [--reflink WHEN] FROM TO\n"
    "Copy a file or (-r) a directory tree.\n"
    "\n"
    "Copies the file FROM (links followed) to TO; the copy gets FROM's permissions\n"
    "less the umask. An existing TO is refused unless --overwrite is given. With -r\n"
    "a directory FROM is copied with everything below it into the new directory\n"
    "TO (never into an existing one); a failing entry does not stop the copy.\n"
    "Links are followed; a FIFO or device is copied as a file of what it gives,\n"
    "up to 16 MiB. A directory that cannot be read is named, with the reason,\n"
    "and copied empty. Exit status 1 when something could not be copied, and\n"
    "when a file or a directory could not be read to its end (what was read is\n"
    "kept).\n"
    "\n"
    "With -a, FROM (a file, a link or a whole tree) is copied keeping what it is:\n"
    "modification and access times to the nanosecond, permission bits, owner and\n"
    "group where allowed, symbolic links as links; FIFOs and (for root) device\n"
    "files are made anew, sockets are skipped and named. A directory TO that\n"
    "exists is merged into; an existing file is kept (named, exit status 1)\n"
    "unless --overwrite is given. Each file is written under a temporary name\n"
    "beside its destination, starting with \".kelvo-copy-\", and renamed into\n"
    "place when complete. --reflink=auto (the default) shares the blocks where\n"
    "the file system can, --reflink=always fails each file where it cannot,\n"
    "--reflink=never always copies the bytes. --progress shows a progress line\n"
    "(bytes, rate, time left) on standard error when it is a terminal. Every\n"
    "entry that fails is named with the reason and the rest is copied; exit\n"
    "status 1 when anything was not copied. --progress and --reflink need -a.\n";

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
    "Compares the contents of the files A and B (links followed); files of\n"
    "different sizes differ without being read. Exit status 0 when they are the\n"
    "same, 1 when they differ, 2 when A or B is missing, a directory, or cannot\n"
    "be opened or read.\n";

char const kCompareTreesUsage[] =
    "Usage: kelvo-fs cmp-tree [--no-dereference] [--permissions] [--times] A B\n"
    "Compare two directory trees.\n"
    "\n"
    "Compares the directory trees A and B and prints each difference on a line\n"
    "of its own, in the words of a recursive brief diff:\n"
    "  Only in DIR: NAME\n"
    "  Files A/x and B/x differ\n"
    "  Symbolic links A/l and B/l differ                (with --no-dereference)\n"
    "  File A/x is a directory while file B/x is a regular file\n"
    "Names pair ignoring letter case and composition, so a name spelt with other\n"
    "bytes on each side is one entry, compared as any other, with a line of its\n"
    "own before its other lines:\n"
    "  Names A/copyright and B/COPYRIGHT differ in spelling\n"
    "Symbolic links are followed (a link to a directory is compared as that\n"
    "directory); with --no-dereference they are compared by the text they hold.\n"
    "A FIFO, socket or device is never opened: it compares by its kind alone.\n"
    "With --permissions and --times, entries of the same kind whose access bits\n"
    "or modification times differ get a line too:\n"
    "  Permissions of A/x and B/x differ\n"
    "  Modification times of A/x and B/x differ\n"
    "Entries come in the order names compare, each directory's contents right\n"
    "after it. What cannot be read (a directory, a file, a link that leads\n"
    "nowhere) is named on standard error with the reason, and left out. Exit\n"
    "status 0 when the trees are the same (names that differ in spelling alone\n"
    "are the same names), 1 when they differ, 2 when A or B is missing or not a\n"
    "directory, or when something in them could not be read.\n";

namespace {

/// Exit status of the comparisons when they cannot answer.
constexpr int kExitTrouble = 2;

using kelvo::filesystem::Failure;

/// @returns true when the native bytes `path` are those of `root` or of an
/// entry below it.
bool isWithin(std::string const& path, std::string const& root)
{
    if (root.empty() || path.compare(0, root.size(), root) != 0)
        return false;
    return path.size() == root.size() || root.back() == '/' || path[root.size()] == '/';
}

/// @returns true for a call that opens a file or a directory to read it.
bool isOpening(std::string const& call)
{
    return call == "open" || call == "openat" || call == "opendir" || call == "fdopendir";
}

/// @returns true for a call that reads the contents of an open file.
bool isReading(std::string const& call)
{
    return call == "read" || call == "pread" || call == "pread64" || call == "readv" || call == "preadv";
}

/// @returns true for a call that removes a directory entry.
bool isRemoving(std::string const& call)
{
    return call == "unlink" || call == "unlinkat" || call == "rmdir";
}

/// @returns true for a call that writes to an open file.
bool isWriting(std::string const& call)
{
    return call == "write" || call == "pwrite" || call == "pwrite64" || call == "writev" || call == "pwritev";
}

/// @returns the recorded failure when it is one of opening or reading that an
/// answer of the library does not show; an empty failure otherwise.
Failure hiddenReadFailure(Failure const& failed)
{
    return failed && (isOpening(failed.call) || isReading(failed.call)) ? failed : Failure();
}

} // namespace

std::string transferFailureText(char const* verb, Failure const& failed, std::string const& from,
                                std::string const& to, std::string const& ownReason)
{
    // A write on an open file may be recorded without its path: only the
    // destination is written to.
    std::string const path = failed.path.empty() ? std::string() : failed.path.nativeString();
    bool const destination = path.empty() ? failed && isWriting(failed.call) : isWithin(path, Path(to).nativeString());
    return failureText(destination ? std::string(verb) + " to" : std::string(verb), failed,
                       destination ? to : from, ownReason);
}

namespace {

int makeOne(Invocation const& invocation, std::string const& operand, bool parents)
{
    Path const path(operand);
    startRecording();
    if (parents ? fs::createDirectories(path) : fs::createDirectory(path))
        return kExitSuccess;
    // Without a failed call, the library refused the length of the path.
    return reportFailure(invocation, "make directory", operand, "the path is too long for this file system");
}

int removeOne(Invocation const& invocation, std::string const& operand, bool recursive)
{
    Path const path(operand);
    startRecording();
    if (recursive ? fs::removeAll(path) : fs::remove(path))
        return kExitSuccess;
    // Without a failed call, the library's own rules stopped the removal.
    std::string const own = recursive ? "the removal stopped at a dangling link, a link to a directory or an "
                                        "entry that changed while it ran"
                                      : "a dangling link or a link to a directory is never removed";
    return reportFailure(invocation, "remove", operand, own);
}

/// Checks that `operand` is there and is (`directories`) or is not a
/// directory, telling why not.
/// @returns false when it cannot be compared as asked.
bool checkOperand(Invocation const& invocation, std::string const& operand, bool directories)
{
    startRecording();
    FileType const type = fs::status(Path(operand)).getType();
    if (type == FileType::none) {
        reportFailure(invocation, "access", operand, "it does not exist");
        return false;
    }
    if ((type == FileType::directory) != directories) {
        failure(invocation, "cannot compare " + quoteName(operand) + ": "
                                + reasonText(directories ? ENOTDIR : EISDIR));
        return false;
    }
    return true;
}

/// @returns true when `failed` was recorded on one of the directories `named`.
bool isNamed(Failure const& failed, std::vector<Path> const& named)
{
    std::string const path = failed.path.nativeString();
    for (Path const& directory : named) {
        if (directory.nativeString() == path)
            return true;
    }
    return false;
}

/// Names every directory a tree operation could not list. The record holds
/// the reason of the last failure only: a directory it names gets that
/// reason, any other one the fact alone.
void reportUnreadable(Invocation const& invocation, std::vector<Path> const& unreadable, Failure const& failed)
{
    for (Path const& directory : unreadable) {
        std::string const path = directory.nativeString();
        bool const recorded = failed && !failed.path.empty() && failed.path.nativeString() == path;
        failure(invocation, "cannot read " + quoteName(path) + ": "
                                + (recorded ? failed.error.message() : std::string("it could not be listed")));
    }
}

int sameOrDifferent(bool same, std::string const& a, std::string const& b)
{
    std::cout << quoteName(a) << (same ? " and " : " differs from ") << quoteName(b)
              << (same ? " are the same\n" : "\n");
    return same ? kExitSuccess : kExitNegative;
}

/// @returns the words a recursive brief diff uses for an entry of `type` at
/// `path` ("regular empty file", "fifo", ...); a socket is the one kind the
/// library names `unknown`.
std::string kindWords(FileType type, Path const& path)
{
    switch (type) {
    case FileType::regularFile:
        return fs::fileSize(path) == 0 ? "regular empty file" : "regular file";
    case FileType::directory:
        return "directory";
    case FileType::symbolicLink:
        return "symbolic link";
    case FileType::blockDevice:
        return "block special file";
    case FileType::characterDevice:
        return "character special file";
    case FileType::fifo:
        return "fifo";
    case FileType::unknown:
        return "socket";
    case FileType::none:
        break;
    }
    return "weird file";
}

/// @returns the path `native` of an entry of the tree `root` as the lines
/// show it: `root` without its trailing slashes, then the names below it.
std::string shownPath(std::string const& native, std::string const& root)
{
    if (native.compare(0, root.size(), root) != 0)
        return native;
    std::string base = root;
    while (base.size() > 1 && base.back() == '/')
        base.pop_back();
    std::size_t start = root.size();
    while (start < native.size() && native[start] == '/')
        ++start;
    return base + (base.back() == '/' ? "" : "/") + native.substr(start);
}

/// @returns "Only in DIR: NAME" for the path `native` of an entry of the tree
/// `root` only; DIR is the operand as it was given for an entry right below
/// it.
std::string onlyInLine(std::string const& native, std::string const& root)
{
    std::string const shown = shownPath(native, root);
    std::size_t const slash = shown.find_last_of('/');
    if (slash == std::string::npos)
        return "Only in .: " + escapeName(shown);
    std::string const name = shown.substr(slash + 1);
    std::string directory = slash == 0 ? std::string("/") : shown.substr(0, slash);
    bool const belowRoot = native.compare(0, root.size(), root) == 0
        && native.size() - root.size() <= name.size() + 1;
    if (belowRoot)
        directory = root;
    return "Only in " + escapeName(directory) + ": " + escapeName(name);
}

/// @returns the line that tells `difference`, found between the trees
/// `first` and `second` as the operands named them.
std::string differenceLine(fs::TreeDifference const& difference, std::string const& first, std::string const& second)
{
    std::string const a = escapeName(shownPath(difference.first.nativeString(), first));
    std::string const b = escapeName(shownPath(difference.second.nativeString(), second));
    switch (difference.kind) {
    case fs::DifferenceKind::onlyInFirst:
        return onlyInLine(difference.first.nativeString(), first);
    case fs::DifferenceKind::onlyInSecond:
        return onlyInLine(difference.second.nativeString(), second);
    case fs::DifferenceKind::differentKinds:
        return "File " + a + " is a " + kindWords(difference.firstType, difference.first) + " while file " + b
             + " is a " + kindWords(difference.secondType, difference.second);
    case fs::DifferenceKind::differentContents:
        if (difference.firstType == FileType::symbolicLink)
            return "Symbolic links " + a + " and " + b + " differ";
        return "Files " + a + " and " + b + " differ";
    case fs::DifferenceKind::differentPermissions:
        return "Permissions of " + a + " and " + b + " differ";
    case fs::DifferenceKind::differentTimes:
        return "Modification times of " + a + " and " + b + " differ";
    case fs::DifferenceKind::differentSpelling:
        return "Names " + a + " and " + b + " differ in spelling";
    }
    return "Entries " + a + " and " + b + " differ";
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
    bool const recursive = invocation.hasOption("-r");
    // What is not a directory lists nothing, without a failed call.
    startRecording();
    FileType const type = fs::status(directory).getType();
    if (type == FileType::none)
        return reportFailure(invocation, "list", operands[0], "it does not exist");
    if (type != FileType::directory)
        return failure(invocation, "cannot list " + quoteName(operands[0]) + ": " + reasonText(ENOTDIR));
    // Each match is removed as removeMatching and removeAllMatching remove
    // it, so that the entry that stopped the removal is known by name.
    std::string stoppedAt;
    bool removed = false;
    startRecording();
    try {
        removed = fs::forEachMatching(directory, pattern, [recursive, &stoppedAt](Path const& entry) {
            startRecording();
            if (recursive ? fs::removeAll(entry) : fs::remove(entry))
                return true;
            stoppedAt = entry.nativeString();
            return false;
        });
    } catch (std::regex_error const&) {
        return badUsage(invocation, "the pattern " + quoteName(operands[1]) + " is not valid");
    }
    if (removed)
        return kExitSuccess;
    if (!stoppedAt.empty())
        return reportFailure(invocation, "remove", stoppedAt,
                             recursive ? "the removal stopped at a dangling link, a link to a directory or an "
                                         "entry that changed while it ran"
                                       : "a dangling link or a link to a directory is never removed");
    if (recordedFailure())
        return reportFailure(invocation, "list", operands[0], "");
    // A directory listed without a failure, and no match was even tried: the
    // library answers false for an empty one.
    return failure(invocation, "nothing to remove: " + quoteName(operands[0]) + " is empty");

}

int runCopy(Invocation const& invocation)
{
    std::vector<std::string> const operands = invocation.allOperands();
    if (operands.size() != 2)
        return badUsage(invocation, "needs FROM and TO");
    if (invocation.hasOption("-a"))
        return runCopyKeeping(invocation);
    if (invocation.hasOption("--progress") || invocation.hasOption("--reflink"))
        return badUsage(invocation, "--progress and --reflink need -a");
    Path const from(operands[0]);
    Path const to(operands[1]);
    bool const overwrite = invocation.hasOption("--overwrite");
    startRecording();
    FileType const type = fs::status(from).getType();
    if (type == FileType::none)
        return reportFailure(invocation, "copy", operands[0], "it does not exist");
    if (type == FileType::directory) {
        if (!invocation.hasOption("-r"))
            return failure(invocation, "cannot copy " + quoteName(operands[0]) + ": it is a directory (use -r)");
        if (fs::exists(to))
            return failure(invocation, "cannot copy to " + quoteName(operands[1])
                                           + ": it exists, and a directory is never copied into an existing one");
        startRecording();
        std::vector<Path> unreadable;
        bool const copied = fs::copyDirectory(from, to, true, unreadable);
        Failure const failed = recordedFailure();
        // A directory that could not be listed is copied empty, and the copy
        // still answers true.
        reportUnreadable(invocation, unreadable, failed);
        if (!copied) {
            // The failure recorded last may be one of those just named, and
            // the reason of the entry that failed lost with it.
            if (failed && isNamed(failed, unreadable))
                return failure(invocation, "cannot copy " + quoteName(operands[0])
                                               + ": some entries could not be copied (the others were)");
            return failure(invocation, transferFailureText("copy", failed, operands[0], operands[1],
                                                           "the source or the destination changed meanwhile"));
        }
        // A read that fails ends a file's copy as its end does.
        if (failed && isReading(failed.call))
            return failure(invocation, failureText("copy", failed, operands[0], "") + " (what was read is kept)");
        if (!unreadable.empty())
            return kExitNegative;
        return kExitSuccess;
    }
    if (!overwrite && fs::exists(to))
        return failure(invocation, "cannot copy to " + quoteName(operands[1]) + ": it exists (use --overwrite)");
    startRecording();
    bool const copied = fs::copyFile(from, to, !overwrite);
    Failure const failed = recordedFailure();
    if (!copied)
        return failure(invocation, transferFailureText("copy", failed, operands[0], operands[1],
                                                       "the source or the destination changed meanwhile"));
    // A read that fails ends the copy as the end of the file does, and the
    // shortened copy is answered as a success: only the record tells.
    if (failed && isReading(failed.call))
        return failure(invocation, failureText("copy", failed, operands[0], "")
                                       + " (" + quoteName(operands[1]) + " holds what was read before)");
    return kExitSuccess;
}

int runMove(Invocation const& invocation)
{
    std::vector<std::string> const operands = invocation.allOperands();
    if (operands.size() != 2)
        return badUsage(invocation, "needs FROM and TO");
    Path const from(operands[0]);
    Path const to(operands[1]);
    startRecording();
    if (fs::symbolicLinkStatus(from).getType() == FileType::none)
        return reportFailure(invocation, "move", operands[0], "it does not exist");
    bool const destinationExisted = fs::symbolicLinkStatus(to).getType() != FileType::none;
    startRecording();
    if (fs::move(from, to))
        return kExitSuccess;
    Failure const failed = recordedFailure();
    // Across file systems the rename fails and a copy follows. When the copy
    // made the destination and the source could not be removed after it
    // (a socket is copied as an empty directory and cannot be removed as
    // one), both are left: the message tells so.
    bool const sourceRemains = fs::symbolicLinkStatus(from).getType() != FileType::none;
    bool const destinationMade = !destinationExisted && fs::symbolicLinkStatus(to).getType() != FileType::none;
    if (failed && isRemoving(failed.call) && !failed.path.empty()
        && isWithin(failed.path.nativeString(), from.nativeString()) && sourceRemains && destinationMade)
        return failure(invocation, "cannot remove " + quoteName(failed.path.nativeString()) + " after copying "
                                       + quoteName(operands[0]) + " to " + quoteName(operands[1]) + ": "
                                       + failed.error.message() + " (both are kept)");
    // When nothing failed after the rename, the copy refused a destination
    // that was there before.
    if (failed && failed.error == std::errc::cross_device_link && destinationExisted)
        return failure(invocation, "cannot move to " + quoteName(operands[1])
                                       + ": it exists on another file system, where it is never overwritten");
    return failure(invocation, transferFailureText("move", failed, operands[0], operands[1],
                                                   "the source or the destination changed meanwhile"));
}

int runLink(Invocation const& invocation)
{
    std::vector<std::string> const operands = invocation.allOperands();
    if (!invocation.hasOption("-s"))
        return badUsage(invocation, "only symbolic links are made: give -s");
    if (operands.size() != 2)
        return badUsage(invocation, "needs TARGET and LINK");
    startRecording();
    if (fs::createSymbolicLink(Path(operands[0]), Path(operands[1])))
        return kExitSuccess;
    return reportFailure(invocation, "make link", operands[1], "the link was not made");
}

int runCompareFiles(Invocation const& invocation)
{
    std::vector<std::string> const operands = invocation.allOperands();
    if (operands.size() != 2)
        return badUsage(invocation, "needs two files");
    for (std::string const& operand : operands) {
        if (!checkOperand(invocation, operand, false))
            return kExitTrouble;
    }
    startRecording();
    bool const same = fs::compareFiles(Path(operands[0]), Path(operands[1]));
    // Files of the same size that cannot be opened or read compare equal:
    // the record tells that the answer is no answer.
    Failure const trouble = hiddenReadFailure(recordedFailure());
    if (trouble) {
        if (trouble.path.empty())
            failure(invocation, "cannot compare " + quoteName(operands[0]) + " and " + quoteName(operands[1]) + ": "
                                    + trouble.error.message());
        else
            failure(invocation, failureText(isOpening(trouble.call) ? "open" : "read", trouble, operands[0], ""));
        return kExitTrouble;
    }
    return sameOrDifferent(same, operands[0], operands[1]);
}

int runCompareTrees(Invocation const& invocation)
{
    std::vector<std::string> const operands = invocation.allOperands();
    if (operands.size() != 2)
        return badUsage(invocation, "needs two directories");
    for (std::string const& operand : operands) {
        if (!checkOperand(invocation, operand, true))
            return kExitTrouble;
    }
    fs::DifferenceOptions options;
    options.followSymbolicLinks = !invocation.hasOption("--no-dereference");
    options.comparePermissions = invocation.hasOption("--permissions");
    options.compareTimes = invocation.hasOption("--times");
    std::vector<Failure> failures;
    std::vector<fs::TreeDifference> const differences =
        fs::differencesBetween(Path(operands[0]), Path(operands[1]), options, &failures);
    for (fs::TreeDifference const& difference : differences)
        std::cout << differenceLine(difference, operands[0], operands[1]) << "\n";
    std::cout.flush();
    // Trouble, whatever was found: the trees are alike only as far as they
    // were read.
    for (Failure const& failed : failures)
        failure(invocation, failureText("read", failed, operands[0], ""));
    if (!failures.empty())
        return kExitTrouble;
    // Names compare ignoring case and composition: a spelling alone is told,
    // but does not make the trees differ.
    bool const differ = std::any_of(differences.begin(), differences.end(), [](fs::TreeDifference const& difference) {
        return difference.kind != fs::DifferenceKind::differentSpelling;
    });
    return differ ? kExitNegative : kExitSuccess;
}

} // namespace kelvo::tool
