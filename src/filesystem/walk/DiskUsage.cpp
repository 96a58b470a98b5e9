// DiskUsageCounter: the blocks a tree takes on disk, added up on the recursive walk with its directories last, each object with several names counted once.
#include <kelvo/filesystem/Finding.h>

#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/System.h"

#include <cstdint>
#include <set>
#include <utility>

namespace kelvo::filesystem {

struct DiskUsageCounter::Seen {
    std::set<std::pair<std::uint64_t, std::uint64_t>> objects; // device and inode of objects with several names
};

DiskUsageCounter::DiskUsageCounter() : seen(new Seen) {}

DiskUsageCounter::~DiskUsageCounter() = default;

namespace {

/// Reads what `path` takes, without following a link.
/// @returns false (the failure recorded) when it cannot be read.
bool readObject(Path const& path, posix::ObjectInformation& information)
{
    std::string const native = path.nativeString();
    if (posix::getFileInformation(native.c_str(), false, information))
        return true;
    posix::setFailurePath(native);
    return false;
}

} // namespace

std::int64_t DiskUsageCounter::measure(Path const& root,
                                       std::function<void(Path const& directory, std::int64_t bytes)> const& directoryMeasured,
                                       std::vector<Failure>* failures)
{
    posix::ObjectInformation information;
    if (!readObject(root, information)) {
        if (failures != nullptr)
            failures->push_back(lastFailure());
        return -1;
    }
    auto const counted = [this](posix::ObjectInformation const& object) -> std::int64_t {
        // A directory is reached by one path only (links are not followed);
        // another object with several names counts at its first.
        if (posix::kindOf(object.mode) == posix::ObjectKind::directory || object.links < 2)
            return object.allocatedBytes;
        return seen->objects.emplace(object.device, object.inode).second ? object.allocatedBytes : 0;
    };
    std::int64_t const own = counted(information);
    if (posix::kindOf(information.mode) != posix::ObjectKind::directory)
        return own;

    // Totals by depth: below[d] holds what the entries at depth d of the
    // directory being walked there add up to so far. Directories come after
    // their contents, so a directory closes the level below it.
    std::vector<std::int64_t> below(2, 0);
    WalkOptions options;
    options.order = WalkOrder::directoryLast;
    walkTree(
        root, options,
        [&](DirectoryEntry const& entry, std::size_t depth) {
            if (below.size() < depth + 2)
                below.resize(depth + 2, 0);
            posix::ObjectInformation object;
            if (!readObject(entry.getPath(), object)) {
                if (failures != nullptr)
                    failures->push_back(lastFailure());
                return WalkAction::proceed;
            }
            std::int64_t bytes = counted(object);
            if (posix::kindOf(object.mode) == posix::ObjectKind::directory) {
                bytes += below[depth + 1];
                below[depth + 1] = 0;
                if (directoryMeasured)
                    directoryMeasured(entry.getPath(), bytes);
            }
            below[depth] += bytes;
            return WalkAction::proceed;
        },
        failures);
    std::int64_t const total = own + below[1];
    if (directoryMeasured)
        directoryMeasured(root, total);
    return total;
}

} // namespace kelvo::filesystem
