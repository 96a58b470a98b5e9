// Lists a directory tree, sorted by name, with the size and modification time of every entry.
#include <kelvo/filesystem.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <iostream>
#include <string>
#include <vector>

using namespace kelvo::filesystem;

std::string timeText(FileTime time)
{
    std::time_t const seconds = std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
    std::tm parts{};
    char text[32] = "?";
    if (localtime_r(&seconds, &parts) != nullptr)
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &parts);
    return text;
}

void list(Path const& directory, int depth)
{
    errno = 0;
    DirectoryIterator listing(directory);
    int const reason = errno;
    if (!listing.canIterate()) {
        std::cerr << directory.nativeString() << ": " << std::strerror(reason) << '\n';
        return;
    }
    std::vector<DirectoryEntry> entries(listing, DirectoryIterator());
    std::sort(entries.begin(), entries.end(), [](DirectoryEntry const& a, DirectoryEntry const& b) {
        return PathLess()(a.getPath(), b.getPath());
    });
    for (DirectoryEntry const& entry : entries) {
        Path const& path = entry.getPath();
        bool const isLink = entry.getSymlinkStatus().getType() == FileType::symbolicLink;
        bool const isDirectory = entry.getStatus().getType() == FileType::directory;
        std::cout << std::string(2 * depth, ' ') << path.filename().nativeString() << (isDirectory ? "/" : "")
                  << "  " << fileSize(path) << " bytes  " << timeText(getModificationTime(path)) << '\n';
        if (isDirectory && !isLink)
            list(path, depth + 1);
    }
}

int main(int argc, char** argv)
{
    list(Path(argc > 1 ? argv[1] : "."), 0);
    return 0;
}
