// Compiled by the header tests: every public header, alone and through the umbrellas, with the strictest warnings.
#include <kelvo/filesystem.h>
#include <kelvo/filesystem/private.h>

// The system's directory header stays out of what users include.
#if defined(_DIRENT_H)
#error "a public header brings in <dirent.h>"
#endif

int main()
{
    kelvo::filesystem::Path const path("a/b");
    int elements = 0;
    for (kelvo::filesystem::Path const& element : path)
        elements += element.empty() ? 0 : 1;
    return elements == 2 ? 0 : 1;
}
