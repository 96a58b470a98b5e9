// Finds the entries of a tree whose name is the one given, whatever its letter case, composition and accents.
#include <kelvo/filesystem.h>

#include <iostream>
#include <vector>

using namespace kelvo::filesystem;

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: find-name DIRECTORY NAME\n";
        return 2;
    }
    // "resume" finds "Résumé", "RESUME" and "résumé" typed either way.
    FindOptions options;
    options.ignoreAccents = true;
    std::vector<Failure> failures;
    for (Path const& found : findByName(Path(argv[1]), Path(argv[2]), options, &failures))
        std::cout << found.nativeString() << '\n';
    // Directories that could not be read are named, and the rest was searched.
    for (Failure const& failure : failures)
        std::cerr << failure.path.nativeString() << ": " << failure.error.message() << '\n';
    return failures.empty() ? 0 : 1;
}
