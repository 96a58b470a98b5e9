// Finds the files of a tree whose name is the one given, whatever its letter case and accents.
#include <kelvo/filesystem.h>

#include <iostream>

using namespace kelvo::filesystem;

// Path texts are decomposed, so accents are separate combining marks: leave
// them out, and == ignores letter case.
Path withoutAccents(Path const& name)
{
    kelvo::unicode::String text;
    for (char32_t c : name.string()) {
        if (c < 0x0300 || c > 0x036F)
            text.push_back(c);
    }
    return Path(text);
}

void find(Path const& directory, Path const& wanted)
{
    for (DirectoryEntry const& entry : DirectoryIterator(directory)) {
        Path const& path = entry.getPath();
        if (withoutAccents(path.filename()) == wanted)
            std::cout << path.nativeString() << '\n';
        if (entry.getStatus().getType() == FileType::directory
            && entry.getSymlinkStatus().getType() != FileType::symbolicLink)
            find(path, wanted);
    }
}

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: find-name DIRECTORY NAME\n";
        return 2;
    }
    find(Path(argv[1]), withoutAccents(Path(argv[2])));
    return 0;
}
