// kelvo-fs lock and locked: running a command under a FileLock, and asking whether a file is locked.
#include "Commands.h"

#include <cerrno>
#include <cstring>
#include <iostream>

namespace kelvo::tool {

using kelvo::filesystem::FileLock;
using kelvo::filesystem::Path;

int runLock(Invocation const& invocation)
{
    namespace fs = kelvo::filesystem;
    if (invocation.operands.size() != 1)
        return badUsage(invocation, "expects one FILE before --");
    if (!invocation.sawSeparator || invocation.afterSeparator.empty())
        return badUsage(invocation, "expects -- and a COMMAND after FILE");

    std::string const& text = invocation.operands[0];
    Path file(text);
    if (!fs::exists(file))
        return failure(invocation, text + ": does not exist");
    if (fs::isDirectory(file))
        return failure(invocation, text + ": is a directory; only files can be locked");
    if (FileLock::isFileLocked(file))
        return failure(invocation, text + ": is locked by another holder (or cannot be read)");
    FileLock lock;
    if (!lock.lockFile(file))
        return failure(invocation, text + ": cannot be locked (it cannot be opened for reading and writing, "
                                          "or another holder took it first)");

    int status = runCommand(invocation, invocation.afterSeparator);
    if (status < 0)
        return failure(invocation, std::string("cannot run the command: ") + std::strerror(errno));
    return status;
}

int runLocked(Invocation const& invocation)
{
    std::vector<std::string> operands = invocation.allOperands();
    if (operands.size() != 1)
        return badUsage(invocation, "expects one FILE");
    bool locked = FileLock::isFileLocked(Path(operands[0]));
    std::cout << (locked ? "locked" : "not locked") << '\n';
    return locked ? kExitSuccess : kExitNegative;
}

} // namespace kelvo::tool
