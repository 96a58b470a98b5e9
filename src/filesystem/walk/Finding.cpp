// Finding entries below a root by name or shell pattern, on the recursive walk: names are matched as listed, and a status is taken only for a kind the listing cannot tell.
#include <kelvo/filesystem/Finding.h>

#include <kelvo/text/String.h>

#include <utility>

namespace kelvo::filesystem {

using kelvo::unicode::String;

namespace {

/// @returns the kind `options.type` is compared with: the entry's own, or
/// with links followed what a link leads to (a dangling link stays a link).
FileType kindFound(DirectoryEntry const& entry, bool follow)
{
    FileType const listed = entry.getListedType();
    if (!follow || listed != FileType::symbolicLink)
        return listed;
    FileType const target = entry.getStatus().getType();
    return target == FileType::none ? FileType::symbolicLink : target;
}

} // namespace

bool forEachFound(Path const& root, ShellPattern const& pattern, FindOptions const& options, FoundCallback const& found,
                  std::vector<Failure>* failures)
{
    bool const follow = options.walk.followSymbolicLinks;
    return walkTree(
        root, options.walk,
        [&](DirectoryEntry const& entry, std::size_t depth) {
            if (!pattern.matchesFileName(entry.getPath()))
                return WalkAction::proceed;
            if (options.type != FileType::none && kindFound(entry, follow) != options.type)
                return WalkAction::proceed;
            return found(entry, depth);
        },
        failures);
}

std::vector<Path> findMatching(Path const& root, ShellPattern const& pattern, FindOptions const& options,
                               std::vector<Failure>* failures)
{
    std::vector<Path> paths;
    forEachFound(
        root, pattern, options,
        [&paths](DirectoryEntry const& entry, std::size_t) {
            paths.push_back(entry.getPath());
            return WalkAction::proceed;
        },
        failures);
    return paths;
}

std::vector<Path> findByName(Path const& root, Path const& name, FindOptions const& options,
                             std::vector<Failure>* failures)
{
    // The name's characters are escaped, so that the pattern stands for the
    // name alone; its text is already decomposed, as paths hold it.
    String escaped;
    Path const last = name.filename();
    String const& text = last.string();
    escaped.reserve(text.size() * 2);
    for (char32_t c : text) {
        escaped.push_back(U'\\');
        escaped.push_back(c);
    }
    ShellPattern const pattern(escaped, options.ignoreAccents ? NameFolding::caseCompositionAndAccents
                                                              : NameFolding::caseAndComposition);
    return findMatching(root, pattern, options, failures);
}

} // namespace kelvo::filesystem
