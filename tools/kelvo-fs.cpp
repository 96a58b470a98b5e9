// kelvo-fs: the command line's way into the library; this file holds main, the usage texts and the dispatch.
#include "Commands.h"

#include <kelvo/filesystem/Version.h>

#include <cstring>
#include <iostream>
#include <iterator>

namespace {

using kelvo::tool::Invocation;

constexpr char kToolUsage[] =
    "Usage: kelvo-fs COMMAND [ARGUMENT...]\n"
    "       kelvo-fs help [COMMAND]\n"
    "       kelvo-fs --version\n"
    "\n"
    "The command-line front door of kelvo-filesystem.\n";

constexpr char kPathUsage[] =
    "Usage: kelvo-fs path [--native] PATH...\n"
    "Show how the library normalises, splits and iterates each PATH.\n"
    "\n"
    "Shows how the library reads each PATH: its normalised text (decomposed\n"
    "Unicode, \"/\" separators), its native bytes (\\xHH for each byte that is not\n"
    "printable ASCII), root name, root directory, relative path, parent path, file\n"
    "name, stem, extension, whether it is absolute and complete, and its elements.\n"
    "One labelled line per field, a blank line between paths.\n"
    "With --native, only the native bytes of each PATH, escaped, one line each:\n"
    "the bytes given, backslashes turned into \"/\".\n";

constexpr char kCompareUsage[] =
    "Usage: kelvo-fs compare A B\n"
    "Compare two paths ignoring letter case and Unicode composition.\n"
    "\n"
    "Compares two paths as the library does and prints the result (A == B, A < B\n"
    "or A > B) with the -1, 0 or 1 of the comparison. Exit status 0 when they\n"
    "are equal, 1 when not.\n";

constexpr char kStatUsage[] =
    "Usage: kelvo-fs stat [--json] PATH...\n"
    "Show type, permissions, size and modification time of each PATH.\n"
    "\n"
    "Shows for each PATH the type with links followed (status) and not followed\n"
    "(symbolicLinkStatus), the permissions in octal, the size in bytes and the\n"
    "modification time in UTC. Types are those the library reports: through\n"
    "symbolicLinkStatus a regular file shows as symbolicLink, and through status\n"
    "a socket or block device shows as directory. A PATH whose bytes the quoted\n"
    "text does not show exactly (not composed (NFC), or not UTF-8) gets a\n"
    "\"native\" line with its bytes, \\xHH for each that is not printable ASCII.\n"
    "  --json  one JSON object a line for each PATH, its bytes as the array\n"
    "          \"native\" (numbers from 0 to 255)\n"
    "Exit status 1 when a PATH cannot be stat'ed: the reason is told on standard\n"
    "error and what is known of it is still shown.\n";

constexpr char kListUsage[] =
    "Usage: kelvo-fs ls [-a] [-l] [-h] [--json] [PATH...]\n"
    "List directories and files, sorted by name as paths compare.\n"
    "\n"
    "Lists each directory PATH (\".\" when none is given), and shows each other\n"
    "PATH as it is: files first, then each directory under a \"PATH:\" heading\n"
    "when there are several. Names sort ignoring letter case and composition.\n"
    "A name in single quotes has bytes that its text does not show exactly: it\n"
    "is not composed (NFC), or holds bytes that are not UTF-8 or control\n"
    "characters (shown as \\xHH), or a quote (shown as \\').\n"
    "  -a      also show names that begin with \".\", and \".\" and \"..\"\n"
    "  -l      long form: type and permissions, size, modification time (local\n"
    "          time) and name, with \"-> TARGET\" after a symbolic link; aligned\n"
    "  -h      sizes as 1.5K, 3.4M (powers of 1024, rounded up)\n"
    "  --json  one JSON object a line for each entry (name, native: the name's\n"
    "          bytes as numbers from 0 to 255, path, type, target, permissions,\n"
    "          size in bytes, modified in UTC)\n"
    "The type letter is that of the library's status, links followed: d, -, c,\n"
    "b, p, l for a link, ? when unknown. Exit status 1 when a PATH cannot be\n"
    "listed or found (the others are still listed).\n";

constexpr char kLockUsage[] =
    "Usage: kelvo-fs lock [--wait] [--timeout SECONDS] FILE -- COMMAND [ARGUMENT...]\n"
    "Run COMMAND while holding an exclusive lock on FILE.\n"
    "\n"
    "Takes an exclusive lock on the existing FILE, runs COMMAND (searched in PATH,\n"
    "with this command's standard streams), waits for it and releases the lock.\n"
    "  --wait              when another holder has FILE, wait until it is free\n"
    "  --timeout SECONDS   wait at most SECONDS (a decimal number; implies --wait)\n"
    "Exit status: that of COMMAND (128 plus the signal number when a signal ended\n"
    "it, 126 or 127 when it could not be started); 1 without running COMMAND when\n"
    "FILE is missing, is a directory, cannot be opened or stays locked.\n";

constexpr char kLockedUsage[] =
    "Usage: kelvo-fs locked FILE\n"
    "Tell whether FILE is locked.\n"
    "\n"
    "Prints \"locked\" and exits with 0 when some holder has a lock on FILE (or\n"
    "FILE exists but cannot be read); prints \"not locked\" and exits with 1 when\n"
    "FILE is free, missing or a directory.\n";

constexpr char kCurrentDirectoryUsage[] =
    "Usage: kelvo-fs cwd\n"
    "Print the current directory.\n"
    "\n"
    "Exit status 1, with the reason, when it cannot be found.\n";

constexpr char kMutexUsage[] =
    "Usage: kelvo-fs mutex FILE [--stale-after SECONDS] -- COMMAND [ARGUMENT...]\n"
    "Run COMMAND while holding the file mutex FILE.\n"
    "\n"
    "Takes the file mutex FILE (a 4-byte file naming its owner process), runs\n"
    "COMMAND (searched in PATH, with this command's standard streams), waits for\n"
    "it and releases the mutex. While another process holds FILE it waits,\n"
    "trying every 100 ms, and says so when standard error is a terminal. While\n"
    "COMMAND runs, FILE is rewritten regularly so that it stays fresh. A FILE\n"
    "not rewritten for more than SECONDS whole seconds (default 30) is taken to\n"
    "be abandoned and is taken over.\n"
    "Exit status: that of COMMAND (128 plus the signal number when a signal ended\n"
    "it, 126 or 127 when it could not be started); 1 without running COMMAND when\n"
    "FILE cannot be written or read.\n";

constexpr char kTemporaryDirectoriesUsage[] =
    "Usage: kelvo-fs tmp\n"
    "Print the system's and the current temporary directory.\n"
    "\n"
    "Prints the system's temporary directory (from TMPDIR, TMP, TEMP or TEMPDIR,\n"
    "the first that is set, else /tmp) and the current one, one a line:\n"
    "\"system: DIR\" and \"current: DIR\".\n";

constexpr char kInTemporaryDirectoryUsage[] =
    "Usage: kelvo-fs tmpdir PREFIX [--max-age SECONDS] -- COMMAND [ARGUMENT...]\n"
    "Run COMMAND with TMPDIR set to a fresh private directory, deleted afterwards.\n"
    "\n"
    "Deletes what earlier runs left in the temporary directory: every entry whose\n"
    "name begins with PREFIX and that was last modified more than SECONDS ago\n"
    "(default 86400, one day), with everything in it. Then creates a fresh\n"
    "directory named PREFIX followed by a random number, runs COMMAND with TMPDIR\n"
    "set to it, waits for it and deletes the directory with everything in it.\n"
    "PREFIX is made of letters, digits, '-' and '_'. Choose SECONDS longer than\n"
    "any run: a directory older than that is deleted by the next run, even while\n"
    "its command still uses it. A run that is killed leaves its directory for a\n"
    "later run to delete.\n"
    "Exit status: that of COMMAND (128 plus the signal number when a signal ended\n"
    "it, 126 or 127 when it could not be started); 1 without running COMMAND when\n"
    "the directory cannot be created.\n";

constexpr char kDemoUsage[] =
    "Usage: kelvo-fs demo\n"
    "Take a short tour of the library.\n"
    "\n"
    "Takes a short tour of the library: normalisation, comparison, decomposition\n"
    "and iteration of sample paths, then files made, listed, locked and removed\n"
    "in a private directory under $TMPDIR (or /tmp), a tree made, copied,\n"
    "compared and removed there, and a private temporary directory with a file\n"
    "mutex in it, deleted at the end.\n";

kelvo::tool::CommandInfo const kCommands[] = {
    {"path", kPathUsage, kelvo::tool::runPath, {{"--native"}}},
    {"compare", kCompareUsage, kelvo::tool::runCompare},
    {"stat", kStatUsage, kelvo::tool::runStat, {{"--json"}}},
    {"ls", kListUsage, kelvo::tool::runList, {{"-a"}, {"-l"}, {"-h"}, {"--json"}}},
    {"lock", kLockUsage, kelvo::tool::runLock, {{"--wait"}, {"--timeout", "SECONDS"}}},
    {"locked", kLockedUsage, kelvo::tool::runLocked},
    {"cwd", kCurrentDirectoryUsage, kelvo::tool::runCurrentDirectory},
    {"mkdir", kelvo::tool::kMakeDirectoryUsage, kelvo::tool::runMakeDirectory, {{"-p"}}},
    {"rm", kelvo::tool::kRemoveUsage, kelvo::tool::runRemove, {{"-r"}}},
    {"rm-matching", kelvo::tool::kRemoveMatchingUsage, kelvo::tool::runRemoveMatching, {{"-r"}}},
    {"cp", kelvo::tool::kCopyUsage, kelvo::tool::runCopy,
     {{"-r"}, {"--overwrite"}, {"-a"}, {"--progress"}, {"--reflink", "WHEN"}}},
    {"mv", kelvo::tool::kMoveUsage, kelvo::tool::runMove},
    {"ln", kelvo::tool::kLinkUsage, kelvo::tool::runLink, {{"-s"}}},
    {"cmp", kelvo::tool::kCompareFilesUsage, kelvo::tool::runCompareFiles},
    {"cmp-tree", kelvo::tool::kCompareTreesUsage, kelvo::tool::runCompareTrees,
     {{"--no-dereference"}, {"--permissions"}, {"--times"}}},
    {"find", kelvo::tool::kFindUsage, kelvo::tool::runFind,
     {{"-name", "GLOB"}, {"-iname", "GLOB"}, {"--ignore-accents"}, {"-type", "f|d|l"}, {"-maxdepth", "N"}, {"-L"},
      {"-xdev"}, {"-print0"}, {"--json"}},
     true},
    {"du", kelvo::tool::kDiskUsageUsage, kelvo::tool::runDiskUsage, {{"-s"}, {"-h"}}},
    {"save", kelvo::tool::kSaveUsage, kelvo::tool::runSave},
    {"resolve", kelvo::tool::kResolveUsage, kelvo::tool::runResolve},
    {"canonical", kelvo::tool::kCanonicalUsage, kelvo::tool::runCanonical},
    {"complete", kelvo::tool::kCompleteUsage, kelvo::tool::runComplete},
    {"limits", kelvo::tool::kLimitsUsage, kelvo::tool::runLimits},
    {"check-length", kelvo::tool::kCheckLengthUsage, kelvo::tool::runCheckLength, {{"--directory"}}},
    {"sanitize", kelvo::tool::kSanitizeUsage, kelvo::tool::runSanitize},
    {"dos83", kelvo::tool::kDos83Usage, kelvo::tool::runDos83},
    {"elide", kelvo::tool::kElideUsage, kelvo::tool::runElide, {{"--width", "N"}, {"--ellipsis", "TEXT"}}},
    {"glob", kelvo::tool::kGlobUsage, kelvo::tool::runGlob},
    {"fix-case", kelvo::tool::kFixCaseUsage, kelvo::tool::runFixCase, {{"--all"}}},
    {"mutex", kMutexUsage, kelvo::tool::runMutex, {{"--stale-after", "SECONDS"}}},
    {"tmp", kTemporaryDirectoriesUsage, kelvo::tool::runTemporaryDirectories},
    {"tmpdir", kInTemporaryDirectoryUsage, kelvo::tool::runInTemporaryDirectory, {{"--max-age", "SECONDS"}}},
    {"demo", kDemoUsage, kelvo::tool::runDemo},
};

int runTool(int argc, char** argv)
{
    if (argc >= 2 && std::strcmp(argv[1], "--version") == 0) {
        // The loaded library's version, which is the one that does the work.
        std::cout << "kelvo-fs " << kelvo::filesystem::libraryVersion() << "\n";
        return kelvo::tool::kExitSuccess;
    }
    static std::vector<kelvo::tool::CommandInfo> const commands(std::begin(kCommands), std::end(kCommands));
    return kelvo::tool::runCommandLine(argc, argv, commands, kToolUsage);
}

} // namespace

int main(int argc, char** argv)
{
    int status = runTool(argc, argv);
    if (!std::cout.flush()) {
        std::cerr << "kelvo-fs: cannot write to standard output\n";
        if (status == kelvo::tool::kExitSuccess)
            status = kelvo::tool::kExitNegative;
    }
    return status;
}
