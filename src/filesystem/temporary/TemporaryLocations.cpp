// Where temporary files go: the operating system's temporary directory from the environment, and the process's stack of overrides.
#include <kelvo/filesystem/TemporaryDirectory.h>
#include <kelvo/filesystem/private/TemporaryDirectoryStack.h>

#include "filesystem/posix/Process.h"

#include <deque>
#include <stack>
#include <string>

namespace kelvo_private::filesystem {

using kelvo::filesystem::Path;

namespace {

// Consulted in this order; the first one that is set wins, even when empty.
constexpr char const* kEnvironmentVariables[] = {"TMPDIR", "TMP", "TEMP", "TEMPDIR"};
constexpr char kFallbackDirectory[] = "/tmp";

using TemporaryDirectoryStack = std::stack<Path, std::deque<Path>>;

// Made on first use and never destroyed, so that code running in other static
// initialisers, or in destructors at exit in whatever order, still finds a
// live stack. What it holds at exit is released with the process.
TemporaryDirectoryStack& temporaryDirectoryStack()
{
    static TemporaryDirectoryStack* const stack = new TemporaryDirectoryStack();
    return *stack;
}

} // namespace

Path getOSTemporaryDirectoryInternal()
{
    for (char const* name : kEnvironmentVariables) {
        // A path made from the bytes themselves keeps them as they are, so a
        // directory whose name is not in the usual composition is still found.
        if (char const* value = kelvo::filesystem::posix::getEnvironmentVariable(name))
            return Path(std::string(value));
    }
    return Path(std::string(kFallbackDirectory));
}

Path getTemporaryDirectoryInternal()
{
    TemporaryDirectoryStack const& stack = temporaryDirectoryStack();
    if (!stack.empty())
        return stack.top();
    return getOSTemporaryDirectoryInternal();
}

void setTemporaryDirectoryInternal(Path const& path)
{
    temporaryDirectoryStack().push(path);
}

bool restoreTemporaryDirectoryInternal()
{
    TemporaryDirectoryStack& stack = temporaryDirectoryStack();
    if (stack.empty())
        return false;
    stack.pop();
    return true;
}

} // namespace kelvo_private::filesystem

namespace kelvo::filesystem {

Path getTemporaryDirectory()
{
    return kelvo_private::filesystem::getTemporaryDirectoryInternal();
}

Path getOSTemporaryDirectory()
{
    return kelvo_private::filesystem::getOSTemporaryDirectoryInternal();
}

} // namespace kelvo::filesystem
