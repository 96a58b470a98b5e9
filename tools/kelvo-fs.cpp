// kelvo-fs: the command line's way into the library; this file holds main, the usage texts and the dispatch.
#include "Commands.h"

#include <cstring>
#include <iostream>

namespace {

using kelvo::tool::Invocation;

constexpr char kToolUsage[] =
    "Usage: kelvo-fs COMMAND [ARGUMENT...]\n"
    "       kelvo-fs COMMAND --help\n"
    "\n"
    "The command-line front door of kelvo-filesystem.\n"
    "\n"
    "Commands:\n"
    "  path PATH...             show how each path is normalised, split and iterated\n"
    "  compare A B              compare two paths ignoring letter case and composition\n"
    "  stat PATH...             show type, permissions, size and modification time\n"
    "  ls DIRECTORY             list a directory with the type and size of each entry\n"
    "  lock FILE -- COMMAND...  run COMMAND while holding a lock on FILE\n"
    "  locked FILE              tell whether FILE is locked\n"
    "  cwd                      print the current directory\n"
    "  mkdir [-p] PATH...       make directories\n"
    "  rm [-r] PATH...          remove files, empty directories or (-r) trees\n"
    "  rm-matching [-r] DIR PATTERN\n"
    "                           remove the entries of DIR whose names match PATTERN\n"
    "  cp [-r] [--overwrite] FROM TO\n"
    "                           copy a file or (-r) a directory tree\n"
    "  mv FROM TO               move or rename, across file systems too\n"
    "  ln -s TARGET LINK        make a symbolic link\n"
    "  cmp A B                  compare the contents of two files\n"
    "  cmp-tree A B             compare two directory trees\n"
    "  demo                     take a short tour of the library\n"
    "\n"
    "Exit status: 0 success, 1 a negative answer or a failure, 2 bad usage.\n"
    "A \"--\" ends the options: the arguments after it are taken as they are.\n";

constexpr char kPathUsage[] =
    "Usage: kelvo-fs path [--native] PATH...\n"
    "Shows how the library reads each PATH: its normalised text (decomposed\n"
    "Unicode, \"/\" separators), its native bytes (\\xHH for each byte that is not\n"
    "printable ASCII), root name, root directory, relative path, parent path, file\n"
    "name, stem, extension, whether it is absolute and complete, and its elements.\n"
    "One labelled line per field, a blank line between paths.\n"
    "With --native, only the native bytes of each PATH, escaped, one line each:\n"
    "the bytes given, backslashes turned into \"/\".\n";

constexpr char kCompareUsage[] =
    "Usage: kelvo-fs compare A B\n"
    "Compares two paths as the library does, ignoring letter case and Unicode\n"
    "composition, and prints the result (A == B, A < B or A > B) with the -1, 0\n"
    "or 1 of the comparison. Exit status 0 when they are equal, 1 when not.\n";

constexpr char kStatUsage[] =
    "Usage: kelvo-fs stat PATH...\n"
    "Shows for each PATH the type with links followed (status) and not followed\n"
    "(symbolicLinkStatus), the permissions in octal, the size in bytes and the\n"
    "modification time in UTC. Exit status 1 when a PATH does not exist (what is\n"
    "known of it is still shown).\n";

constexpr char kListUsage[] =
    "Usage: kelvo-fs ls DIRECTORY\n"
    "Lists DIRECTORY, one entry a line: its type (links followed), its size in\n"
    "bytes (\"-\" when unknown) and its name, sorted by name. Exit status 1 when\n"
    "DIRECTORY cannot be listed.\n";

constexpr char kLockUsage[] =
    "Usage: kelvo-fs lock FILE -- COMMAND [ARGUMENT...]\n"
    "Takes an exclusive lock on the existing FILE, runs COMMAND (searched in PATH,\n"
    "with this command's standard streams), waits for it and releases the lock.\n"
    "Exit status: that of COMMAND (128 plus the signal number when a signal ended\n"
    "it, 126 or 127 when it could not be started); 1 without running COMMAND when\n"
    "FILE is missing, is a directory or is locked by another holder.\n";

constexpr char kLockedUsage[] =
    "Usage: kelvo-fs locked FILE\n"
    "Prints \"locked\" and exits with 0 when some holder has a lock on FILE (or\n"
    "FILE exists but cannot be read); prints \"not locked\" and exits with 1 when\n"
    "FILE is free, missing or a directory.\n";

constexpr char kCurrentDirectoryUsage[] =
    "Usage: kelvo-fs cwd\n"
    "Prints the current directory. Exit status 1 when it cannot be found.\n";

constexpr char kDemoUsage[] =
    "Usage: kelvo-fs demo\n"
    "Takes a short tour of the library: normalisation, comparison, decomposition\n"
    "and iteration of sample paths, then files made, listed, locked and removed\n"
    "in a private directory under $TMPDIR (or /tmp), and a tree made, copied,\n"
    "compared and removed there.\n";

struct Command {
    char const* name;
    char const* usage;
    int (*run)(Invocation const&);
    /// The options the command takes besides --help, separated by spaces
    /// (" --native "), or null for none.
    char const* options = nullptr;
};

/// @returns true when `argument` is one of the `options` of a command.
bool isCommandOption(char const* options, char const* argument)
{
    if (options == nullptr)
        return false;
    std::string const wanted = std::string(" ") + argument + " ";
    return std::strstr(options, wanted.c_str()) != nullptr;
}

constexpr Command kCommands[] = {
    {"path", kPathUsage, kelvo::tool::runPath, " --native "},
    {"compare", kCompareUsage, kelvo::tool::runCompare},
    {"stat", kStatUsage, kelvo::tool::runStat},
    {"ls", kListUsage, kelvo::tool::runList},
    {"lock", kLockUsage, kelvo::tool::runLock},
    {"locked", kLockedUsage, kelvo::tool::runLocked},
    {"cwd", kCurrentDirectoryUsage, kelvo::tool::runCurrentDirectory},
    {"demo", kDemoUsage, kelvo::tool::runDemo},
    {"mkdir", kelvo::tool::kMakeDirectoryUsage, kelvo::tool::runMakeDirectory, " -p "},
    {"rm", kelvo::tool::kRemoveUsage, kelvo::tool::runRemove, " -r "},
    {"rm-matching", kelvo::tool::kRemoveMatchingUsage, kelvo::tool::runRemoveMatching, " -r "},
    {"cp", kelvo::tool::kCopyUsage, kelvo::tool::runCopy, " -r --overwrite "},
    {"mv", kelvo::tool::kMoveUsage, kelvo::tool::runMove},
    {"ln", kelvo::tool::kLinkUsage, kelvo::tool::runLink, " -s "},
    {"cmp", kelvo::tool::kCompareFilesUsage, kelvo::tool::runCompareFiles},
    {"cmp-tree", kelvo::tool::kCompareTreesUsage, kelvo::tool::runCompareTrees},
};

bool isHelpOption(char const* argument)
{
    return std::strcmp(argument, "--help") == 0 || std::strcmp(argument, "-h") == 0;
}

/// Splits the arguments of `command`, runs it and returns its exit status.
int dispatch(Command const& command, int argc, char** argv)
{
    Invocation invocation;
    invocation.name = command.name;
    invocation.usage = command.usage;
    for (int i = 0; i < argc; ++i) {
        char const* argument = argv[i];
        if (std::strcmp(argument, "--") == 0) {
            invocation.sawSeparator = true;
            invocation.afterSeparator.assign(argv + i + 1, argv + argc);
            break;
        }
        if (isHelpOption(argument)) {
            std::cout << command.usage;
            return kelvo::tool::kExitSuccess;
        }
        if (isCommandOption(command.options, argument)) {
            invocation.options.emplace_back(argument);
            continue;
        }
        if (argument[0] == '-' && argument[1] != '\0')
            return kelvo::tool::badUsage(invocation, std::string("unknown option ") + argument);
        invocation.operands.emplace_back(argument);
    }
    return command.run(invocation);
}

int runTool(int argc, char** argv)
{
    if (argc < 2) {
        std::cerr << kToolUsage;
        return kelvo::tool::kExitBadUsage;
    }
    char const* name = argv[1];
    if (isHelpOption(name)) {
        std::cout << kToolUsage;
        return kelvo::tool::kExitSuccess;
    }
    for (Command const& command : kCommands) {
        if (std::strcmp(command.name, name) == 0)
            return dispatch(command, argc - 2, argv + 2);
    }
    std::cerr << "kelvo-fs: unknown command '" << name << "' (kelvo-fs --help lists the commands)\n";
    return kelvo::tool::kExitBadUsage;
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
