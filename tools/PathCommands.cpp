// kelvo-fs path and compare: how the library splits paths and how it compares them.
#include "Commands.h"

#include <kelvo/filesystem/private.h>

#include <iostream>

namespace kelvo::tool {

using kelvo::filesystem::Path;
using kelvo::unicode::String;

int runPath(Invocation const& invocation)
{
    std::vector<std::string> paths = invocation.allOperands();
    if (paths.empty())
        return badUsage(invocation, "expects at least one PATH");
    if (invocation.hasOption("--native")) {
        for (std::string const& text : paths)
            std::cout << quoteBytes(Path(text).nativeString()) << '\n';
        return kExitSuccess;
    }
    bool first = true;
    for (std::string const& text : paths) {
        if (!first)
            std::cout << '\n';
        first = false;
        printPathReport(std::cout, Path(text));
    }
    return kExitSuccess;
}

int runCompare(Invocation const& invocation)
{
    std::vector<std::string> texts = invocation.allOperands();
    if (texts.size() != 2)
        return badUsage(invocation, "expects two paths");
    Path a(texts[0]);
    Path b(texts[1]);
    int order = kelvo_private::filesystem::compare(a.string(), b.string());
    // Shown as typed; the comparison itself works on the normalised texts.
    std::cout << comparisonText(String(texts[0]), String(texts[1]), order) << '\n';
    std::cout << "compare: " << order << '\n';
    return a == b ? kExitSuccess : kExitNegative;
}

} // namespace kelvo::tool
