// A small program using kelvo-filesystem as an application would.
#include <kelvo/filesystem.h>

#include <iostream>

int main()
{
    using kelvo::filesystem::Path;

    Path const report("/home/zoé/Documents/Résumé.PDF");
    Path const typed("/home/zoe\xCC\x81/documents/re\xCC\x81sume\xCC\x81.pdf");

    std::cout << "file name: " << report.filename() << "\n"
              << "extension: " << report.extension() << "\n"
              << "same file: " << (report == typed ? "yes" : "no") << "\n"
              << "elements:";
    for (Path const& element : report)
        std::cout << " [" << element << "]";
    std::cout << "\n";

    Path const here = kelvo::filesystem::getCurrentDirectory();
    std::cout << "working directory is a directory: "
              << (kelvo::filesystem::isDirectory(here) ? "yes" : "no") << "\n";
    return report == typed && kelvo::filesystem::isDirectory(here) ? 0 : 1;
}
