// Fuzz target: ShellPattern answers as the C library's fnmatch (no flags, "C" locale) on ASCII patterns and names, and its folded forms agree with it on names and patterns already in one case.
#include "FuzzCheck.h"

#include <kelvo/filesystem/ShellPattern.h>
#include <kelvo/text/String.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include <fnmatch.h>

using kelvo::filesystem::NameFolding;
using kelvo::filesystem::ShellPattern;
using kelvo::unicode::String;

namespace {

/// Sets that hold "[=", "[." or a range ending in "[:" are read differently
/// by the C library depending on which member matched; they are left out
/// of the comparison (they are still matched, for crashes and time).
bool comparable(std::string const& pattern)
{
    return pattern.find("[=") == std::string::npos && pattern.find("[.") == std::string::npos
        && pattern.find("-[:") == std::string::npos;
}

bool hasUpper(std::string const& text)
{
    for (char c : text) {
        if (c >= 'A' && c <= 'Z')
            return true;
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    // The pattern, a newline, the name; only printable ASCII and tabs.
    std::string const input = kelvo::fuzzing::bytesOf(data, size);
    for (char c : input) {
        if ((c < 0x20 && c != '\t' && c != '\n') || c > 0x7E)
            return 0;
    }
    std::size_t const newline = input.find('\n');
    if (newline == std::string::npos)
        return 0;
    std::string const pattern = input.substr(0, newline);
    std::string const name = input.substr(newline + 1);
    if (name.find('\n') != std::string::npos)
        return 0;

    ShellPattern const exact{String(pattern)};
    bool const matched = exact.matchesNative(name);
    KELVO_FUZZ_CHECK(matched == exact.matches(String(name)));
    ShellPattern const folded(String(pattern), NameFolding::caseAndComposition);
    ShellPattern const accents(String(pattern), NameFolding::caseCompositionAndAccents);
    bool const foldedMatch = folded.matchesNative(name);
    // ASCII has no accents: the two folded forms agree.
    KELVO_FUZZ_CHECK(foldedMatch == accents.matchesNative(name));
    if (!comparable(pattern))
        return 0;
    KELVO_FUZZ_CHECK(matched == (::fnmatch(pattern.c_str(), name.c_str(), 0) == 0));
    // Without capitals on either side (and with no class that tells case),
    // folding changes nothing.
    if (!hasUpper(pattern) && !hasUpper(name) && pattern.find("[:") == std::string::npos)
        KELVO_FUZZ_CHECK(foldedMatch == matched);
    return 0;
}
