// Fuzz target: decomposition and element iteration of any path agree with each other and with the text they come from.
#include "FuzzCheck.h"

#include <kelvo/filesystem/Path.h>
#include <kelvo/text/String.h>
#include <kelvo/text/Unicode.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

using kelvo::filesystem::Path;
using kelvo::unicode::String;
using kelvo::fuzzing::bytesOf;
using kelvo::fuzzing::contains;
using kelvo::fuzzing::endsWith;
using kelvo::fuzzing::startsWith;

namespace {

/// Every result is a piece of the text, so it needs no normalising of its own.
void checkPiece(Path const& piece)
{
    KELVO_FUZZ_CHECK(!contains(piece.string(), U'\\'));
    KELVO_FUZZ_CHECK(kelvo::unicode::isNFD(piece.string()));
}

void checkDecomposition(Path const& path)
{
    String const& s = path.string();
    Path const rootName = path.rootName();
    Path const rootDirectory = path.rootDirectory();
    Path const rootPath = path.rootPath();
    Path const relative = path.relativePath();
    Path const parent = path.parentPath();
    Path const filename = path.filename();
    Path const stem = path.stem();
    Path const extension = path.extension();
    for (Path const* piece : {&rootName, &rootDirectory, &rootPath, &relative, &parent, &filename, &stem, &extension})
        checkPiece(*piece);

    KELVO_FUZZ_CHECK(rootPath.string() == rootName.string() + rootDirectory.string());
    KELVO_FUZZ_CHECK(startsWith(s, rootName.string()));
    KELVO_FUZZ_CHECK(rootDirectory.empty() || rootDirectory.string() == String(U"/"));
    KELVO_FUZZ_CHECK(path.isAbsolute() == !rootPath.empty());
    KELVO_FUZZ_CHECK(path.isRelative() == !path.isAbsolute());
    KELVO_FUZZ_CHECK(path.isComplete() == !rootDirectory.empty());
    KELVO_FUZZ_CHECK(endsWith(s, relative.string()));
    KELVO_FUZZ_CHECK(relative.empty() || relative.string()[0] != U'/' || rootPath.empty());

    // The parent is a piece from the start, or "/" alone.
    KELVO_FUZZ_CHECK(startsWith(s, parent.string()) || parent.string() == String(U"/"));
    KELVO_FUZZ_CHECK(parent.string().size() < s.size() || s.empty());
    // The file name is the end of the text, "." for a trailing separator.
    if (!s.empty() && s.back() == U'/' && s != String(U"/"))
        KELVO_FUZZ_CHECK(filename.string() == String(U"."));
    else
        KELVO_FUZZ_CHECK(endsWith(s, filename.string()) && filename.empty() == s.empty());
    KELVO_FUZZ_CHECK(!contains(filename.string(), U'/') || filename.string() == String(U"/"));
    KELVO_FUZZ_CHECK(startsWith(filename.string(), stem.string()));
    KELVO_FUZZ_CHECK(endsWith(s, extension.string()));
    KELVO_FUZZ_CHECK(extension.empty() || extension.string()[0] == U'.');
    KELVO_FUZZ_CHECK(!contains(extension.string(), U'/'));

    // A replaced extension is the new extension.
    Path replaced(path);
    replaced.replaceExtension(Path(".fz"));
    KELVO_FUZZ_CHECK(endsWith(replaced.string(), U".fz"));
    KELVO_FUZZ_CHECK(replaced.extension().string() == String(U".fz"));
    Path removed(path);
    removed.replaceExtension(Path());
    KELVO_FUZZ_CHECK(startsWith(s, removed.string()));
}

void checkIteration(Path const& path)
{
    String const& s = path.string();
    KELVO_FUZZ_CHECK((path.begin() == path.end()) == s.empty());

    std::vector<Path> elements;
    for (auto it = path.begin(); it != path.end(); ++it) {
        elements.push_back(*it);
        // Every step consumes text, so the walk ends.
        KELVO_FUZZ_CHECK(elements.size() <= s.size() + 2);
    }
    for (Path const& element : elements)
        checkPiece(element);

    std::size_t index = 0;
    if (!path.rootName().empty()) {
        KELVO_FUZZ_CHECK(!elements.empty() && elements[0].string() == path.rootName().string());
        ++index;
    }
    if (!path.rootDirectory().empty()) {
        KELVO_FUZZ_CHECK(elements.size() > index && elements[index].string() == String(U"/"));
        ++index;
    }
    // The names follow in the order of the text; a trailing separator gives ".".
    std::size_t from = path.rootPath().size();
    for (; index < elements.size(); ++index) {
        String const& name = elements[index].string();
        KELVO_FUZZ_CHECK(!contains(name, U'/'));
        if (index + 1 == elements.size() && name == String(U".") && !s.empty() && s.back() == U'/')
            break;
        std::size_t const at = s.find(name, from);
        KELVO_FUZZ_CHECK(at != String::npos);
        from = at + name.size();
    }

    // Copies advance on their own.
    auto first = path.begin();
    if (first != path.end()) {
        ++first;
        auto second = first;
        std::size_t remaining = 0;
        for (; first != path.end(); ++first, ++second) {
            KELVO_FUZZ_CHECK(second != path.end());
            KELVO_FUZZ_CHECK((*first).string() == (*second).string());
            ++remaining;
        }
        KELVO_FUZZ_CHECK(second == path.end());
        KELVO_FUZZ_CHECK(remaining + 1 == elements.size());
    }

    // Without repeated or trailing separators, joining the elements rebuilds the text.
    if (s.find(U"//") == String::npos && (s.empty() || s.back() != U'/' || s == String(U"/"))) {
        Path joined;
        for (Path const& element : elements)
            joined /= element;
        KELVO_FUZZ_CHECK(joined.string() == s);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size > 4096)
        return 0;
    Path const path(bytesOf(data, size));
    checkDecomposition(path);
    checkIteration(path);
    return 0;
}
