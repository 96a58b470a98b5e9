// Lists a directory tree, sorted by name, with the size and modification time of every entry.
#include <kelvo/filesystem.h>

#include <chrono>
#include <ctime>
#include <iostream>
#include <string>

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

int main(int argc, char** argv)
{
    // Each directory's entries in name order, a directory before its contents;
    // links are listed, not followed.
    WalkOptions options;
    options.sortedByName = true;
    RecursiveDirectoryIterator walk(Path(argc > 1 ? argv[1] : "."), options);
    for (RecursiveDirectoryIterator const end; walk != end; ++walk) {
        Path const& path = walk->getPath();
        bool const isDirectory = walk->getListedType() == FileType::directory;
        std::cout << std::string(2 * (walk.depth() - 1), ' ') << path.filename().nativeString()
                  << (isDirectory ? "/" : "") << "  " << fileSize(path) << " bytes  "
                  << timeText(getModificationTime(path)) << '\n';
    }
    // What could not be read is named; the rest of the tree was listed.
    for (Failure const& failure : walk.failures())
        std::cerr << failure.path.nativeString() << ": " << failure.error.message() << '\n';
    return walk.failures().empty() ? 0 : 1;
}
