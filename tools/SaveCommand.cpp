// kelvo-fs save: standard input written over a file atomically, the file holding its old or its new contents and nothing between.
#include "Commands.h"

#include <cerrno>
#include <cstdio>
#include <vector>

namespace kelvo::tool {

namespace fs = kelvo::filesystem;

char const kSaveUsage[] =
    "Usage: kelvo-fs save FILE\n"
    "Replace FILE with standard input, all at once.\n"
    "\n"
    "Reads standard input to its end into a new file beside FILE, then puts it\n"
    "in FILE's place in one step, flushed to the storage: FILE holds its old\n"
    "contents or all of the new ones, never a part, whatever happens meanwhile.\n"
    "FILE keeps its permission bits (and its owner and group where that is\n"
    "allowed); a new FILE gets mode 0666 less the umask. A symbolic link is\n"
    "followed and the file it leads to replaced. While it is written the new\n"
    "file is unnamed, or hidden as .FILE.kelvo-save-XXXXXX where the file system\n"
    "cannot make unnamed files; one left by a killed save goes with the next\n"
    "save of FILE. Exit status 1, FILE unchanged, when FILE cannot be saved (the\n"
    "reason is shown, with the file a link leads to) or standard input cannot\n"
    "be read.\n";

int runSave(Invocation const& invocation)
{
    std::vector<std::string> const operands = invocation.allOperands();
    if (operands.size() != 1)
        return badUsage(invocation, "needs one FILE");
    std::string const& operand = operands[0];
    startRecording();
    fs::AtomicFile file;
    if (!file.open(fs::Path(operand)))
        return reportFailure(invocation, "save", operand, "the path names no file");
    std::vector<char> buffer(std::size_t(1) << 16);
    for (;;) {
        std::size_t const got = std::fread(buffer.data(), 1, buffer.size(), stdin);
        if (got > 0 && !file.write(buffer.data(), got))
            return reportFailure(invocation, "save", operand, "the new contents could not be written");
        if (got < buffer.size()) {
            if (std::ferror(stdin)) {
                int const error = errno;
                file.abort();
                return failure(invocation, "cannot save " + quoteName(operand) + ": cannot read standard input: "
                                               + reasonText(error));
            }
            if (std::feof(stdin))
                break;
        }
    }
    if (!file.commit())
        return reportFailure(invocation, "save", operand, "the new contents could not be put in place");
    return kExitSuccess;
}

} // namespace kelvo::tool
