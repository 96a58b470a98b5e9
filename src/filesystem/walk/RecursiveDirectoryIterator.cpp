// RecursiveDirectoryIterator and walkTree: the public forms of the recursive walk, an input iterator sharing one walker and a callback loop.
#include <kelvo/filesystem/RecursiveDirectoryIterator.h>

#include "filesystem/walk/TreeWalker.h"

namespace kelvo::filesystem {

struct RecursiveDirectoryIterator::Walk {
    Walk(Path const& root, WalkOptions const& options) : walker(root, options) {}
    detail::TreeWalker walker;
};

namespace {

DirectoryEntry const& noEntry() noexcept
{
    static DirectoryEntry const empty;
    return empty;
}

std::vector<Failure> const& noFailures() noexcept
{
    static std::vector<Failure> const empty;
    return empty;
}

} // namespace

RecursiveDirectoryIterator::RecursiveDirectoryIterator() noexcept = default;

RecursiveDirectoryIterator::RecursiveDirectoryIterator(Path const& root, WalkOptions const& options)
    : walk(std::make_shared<Walk>(root, options))
{
    walk->walker.advance();
}

RecursiveDirectoryIterator& RecursiveDirectoryIterator::operator++()
{
    if (walk)
        walk->walker.advance();
    return *this;
}

DirectoryEntry const& RecursiveDirectoryIterator::operator*() const noexcept
{
    return walk ? walk->walker.entry() : noEntry();
}

DirectoryEntry const* RecursiveDirectoryIterator::operator->() const noexcept { return &**this; }

std::size_t RecursiveDirectoryIterator::depth() const noexcept { return walk ? walk->walker.depth() : 0; }

void RecursiveDirectoryIterator::skipDirectory() noexcept
{
    if (walk)
        walk->walker.skipCurrent();
}

bool RecursiveDirectoryIterator::canIterate() const noexcept { return walk && walk->walker.isOpen(); }

std::vector<Failure> const& RecursiveDirectoryIterator::failures() const noexcept
{
    return walk ? walk->walker.failures() : noFailures();
}

bool operator==(RecursiveDirectoryIterator const& a, RecursiveDirectoryIterator const& b) noexcept
{
    bool const aEnded = !a.walk || a.walk->walker.ended();
    bool const bEnded = !b.walk || b.walk->walker.ended();
    if (aEnded || bEnded)
        return aEnded == bEnded;
    return a.walk == b.walk;
}

bool walkTree(Path const& root, WalkOptions const& options,
              std::function<WalkAction(DirectoryEntry const& entry, std::size_t depth)> const& visit,
              std::vector<Failure>* failures)
{
    detail::TreeWalker walker(root, options);
    bool stopped = false;
    while (walker.advance()) {
        WalkAction const action = visit(walker.entry(), walker.depth());
        if (action == WalkAction::stop) {
            stopped = true;
            walker.stop();
            break;
        }
        if (action == WalkAction::skipDirectory)
            walker.skipCurrent();
    }
    if (failures != nullptr)
        failures->insert(failures->end(), walker.failures().begin(), walker.failures().end());
    return !stopped && walker.failures().empty();
}

} // namespace kelvo::filesystem
