// kelvo-fs stat, ls and cwd: what lies at a path, what a directory holds, where the process stands.
#include "Commands.h"

#include <algorithm>
#include <iostream>

namespace kelvo::tool {

using kelvo::filesystem::DirectoryEntry;
using kelvo::filesystem::DirectoryIterator;
using kelvo::filesystem::Path;

namespace {

constexpr int kStatLabelWidth = 20;

void printStatField(std::string const& label, std::string const& value)
{
    std::string labelText = label + ":";
    labelText.resize(std::max<std::size_t>(labelText.size(), kStatLabelWidth), ' ');
    std::cout << labelText << value << '\n';
}

} // namespace

int runStat(Invocation const& invocation)
{
    namespace fs = kelvo::filesystem;
    std::vector<std::string> paths = invocation.allOperands();
    if (paths.empty())
        return badUsage(invocation, "expects at least one PATH");
    int result = kExitSuccess;
    bool first = true;
    for (std::string const& text : paths) {
        if (!first)
            std::cout << '\n';
        first = false;
        Path path(text);
        bool found = fs::exists(path);
        fs::FileStatus followed = fs::status(path);
        fs::FileStatus itself = fs::symbolicLinkStatus(path);
        printStatField("path", quoteText(kelvo::unicode::String(text)));
        printStatField("status", typeName(followed.getType()));
        printStatField("symbolicLinkStatus", typeName(itself.getType()));
        // The access bits of a link are those of what it points to.
        printStatField("permissions", permissionsText(followed.getPermissions()));
        printStatField("size", found ? std::to_string(fs::fileSize(path)) : "unknown");
        printStatField("modified", found ? timeText(fs::getModificationTime(path)) : "unknown");
        if (!found)
            result = failure(invocation, text + ": does not exist");
    }
    return result;
}

int runList(Invocation const& invocation)
{
    namespace fs = kelvo::filesystem;
    std::vector<std::string> operands = invocation.allOperands();
    if (operands.size() != 1)
        return badUsage(invocation, "expects one DIRECTORY");
    DirectoryIterator listing{Path(operands[0])};
    if (!listing.canIterate())
        return failure(invocation, operands[0] + ": cannot be listed (missing, not a directory or not readable)");
    std::vector<DirectoryEntry> entries;
    for (DirectoryIterator end; listing != end; ++listing)
        entries.push_back(*listing);
    // Entries of one directory differ only in their names: this sorts by name, code point by code point.
    std::sort(entries.begin(), entries.end());
    for (DirectoryEntry const& entry : entries) {
        Path const& path = entry.getPath();
        printListingLine(std::cout, entry.getStatus().getType(), fs::fileSize(path),
                         path.filename().nativeString());
    }
    return kExitSuccess;
}

int runCurrentDirectory(Invocation const& invocation)
{
    if (!invocation.allOperands().empty())
        return badUsage(invocation, "takes no arguments");
    Path directory = kelvo::filesystem::getCurrentDirectory();
    if (directory.empty())
        return failure(invocation, "the current directory cannot be found");
    std::cout << directory.nativeString() << '\n';
    return kExitSuccess;
}

} // namespace kelvo::tool
