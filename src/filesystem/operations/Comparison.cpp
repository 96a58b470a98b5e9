// File and tree comparison: contents compared through descriptors (with a bound for FIFOs and devices), trees walked through stacks of directory descriptors and sorted safely under the path ordering.
#include <kelvo/filesystem/Operations.h>

#include "filesystem/path/PathInternal.h"
#include "filesystem/path/SafeSort.h"
#include "filesystem/operations/SourceReading.h"
#include "filesystem/operations/TreeWalk.h"
#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/Tree.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <string>
#include <vector>

namespace kelvo::filesystem {

namespace {

using detail::DirectoryStack;
using detail::Entered;
using detail::ListedKind;
using detail::OwnedDescriptor;
using detail::SourceReader;

// Compares the files `nameA` of `directoryA` and `nameB` of `directoryB`
// once their sizes agree. A file that cannot be opened counts as equal. They
// are opened without waiting on them (a FIFO with no writer, a device). When
// a name is relative to a walk's directory, its stack is given, so that a
// failure's record names the entry by its whole path.
bool compareFilesAt(int directoryA, char const* nameA, bool followA, DirectoryStack const* stackA,
                    int directoryB, char const* nameB, bool followB, DirectoryStack const* stackB,
                    std::int64_t size)
{
    posix::ObjectInformation informationA;
    posix::ObjectInformation informationB;
    OwnedDescriptor a(nameA != nullptr ? detail::openSource(directoryA, nameA, followA, informationA) : -1);
    if (!a.isOpen()) {
        if (nameA != nullptr && stackA != nullptr)
            posix::setFailurePath(stackA->pathOf(nameA));
        return true;
    }
    OwnedDescriptor b(nameB != nullptr ? detail::openSource(directoryB, nameB, followB, informationB) : -1);
    if (!b.isOpen()) {
        if (nameB != nullptr && stackB != nullptr)
            posix::setFailurePath(stackB->pathOf(nameB));
        return true;
    }
    SourceReader readerA(a.get(), informationA.mode);
    SourceReader readerB(b.get(), informationB.mode);
    return detail::sameContents(readerA, readerB, size);
}

// The kind the library's status gives, from a followed mode.
posix::ObjectKind followedKind(bool found, std::uint32_t mode)
{
    return found ? posix::classify(mode, false) : posix::ObjectKind::unknown;
}

struct ListedName {
    Path name;         // compared as paths compare
    std::string bytes; // the name as listed, to reach the entry by
    bool mayFollow;    // a link (or unreported kind): followed as the status does
};

std::vector<ListedName> listSorted(detail::Listing const& listing)
{
    std::vector<ListedName> names;
    names.reserve(listing.size());
    for (std::size_t i = 0; i < listing.size(); ++i) {
        ListedKind const kind = listing.kind(i);
        names.push_back(ListedName{Path(listing.name(i)), std::string(listing.name(i), listing.nameLength(i)),
                                   kind == ListedKind::link || kind == ListedKind::unknown});
    }
    // The path ordering is not a strict weak ordering, so the sort is one
    // that is safe under any ordering. Its result then depends on where it
    // starts, so it starts from byte order, the same for a tree and its copy
    // whatever order their listings gave; names the ordering holds equal
    // (NFC and NFD twins, case twins) stay in byte order.
    std::sort(names.begin(), names.end(), [](ListedName const& x, ListedName const& y) { return x.bytes < y.bytes; });
    detail::safeSort(names, [](ListedName const& x, ListedName const& y) {
        int const order = detail::compareDecomposed(PathNativeAccess::text(x.name), PathNativeAccess::text(y.name));
        return order != 0 ? order < 0 : x.bytes < y.bytes;
    });
    return names;
}

// One side of the walk: the tree's top, its stack of open directories, and
// the names that led from the top to the current level.
struct Side {
    Path const& top;
    DirectoryStack stack;
    std::vector<std::string> trail;
};

// One pair of directories the comparison stands in: both sorted listings,
// the next pair of entries to compare, and whether each side's stack went
// down for it (a side that could not be entered lists nothing).
struct CompareLevel {
    std::vector<ListedName> namesA;
    std::vector<ListedName> namesB;
    std::size_t next = 0;
    bool enteredA = false;
    bool enteredB = false;
};

// Compares two trees without recursion, each walked through a stack of
// directory descriptors, so that any depth takes a bounded number of them.
class TreeComparison {
public:
    TreeComparison(Path const& a, Path const& b, std::vector<Path>* unreadable)
        : sideA{a, {}, {}}, sideB{b, {}, {}}, unreadable(unreadable)
    {
    }

    bool run(char const* nativeA, char const* nativeB);

private:
    bool compareEntry(ListedName const& a, ListedName const& b);
    bool compareSubdirectories(ListedName const& a, ListedName const& b,
                               posix::ObjectInformation const& informationA,
                               posix::ObjectInformation const& informationB);
    bool openTop(Side& side, char const* native, std::vector<ListedName>& names);
    bool readLevel(Side& side, std::vector<ListedName>& names);
    void reportUnreadable(Side const& side, std::string const* name);

    Side sideA;
    Side sideB;
    std::vector<Path>* const unreadable;
    std::deque<CompareLevel> levels;
};

void TreeComparison::reportUnreadable(Side const& side, std::string const* name)
{
    if (unreadable == nullptr)
        return;
    Path path = side.top;
    for (std::string const& step : side.trail)
        path = path / Path(step);
    if (name != nullptr)
        path = path / Path(*name);
    unreadable->push_back(std::move(path));
}

// Reads the whole listing of the side's current directory, sorted.
// @returns true when it was read to its end; else what was read is kept.
bool TreeComparison::readLevel(Side& side, std::vector<ListedName>& names)
{
    detail::Listing listing;
    bool const complete = listing.read(side.stack.descriptor());
    if (!complete)
        posix::setFailurePath(side.stack.pathOf(nullptr));
    names = listSorted(listing);
    return complete;
}

// Opens the top of one side and reads its listing. A top that cannot be
// opened as a directory lists nothing, like a non-directory; only a
// directory is named as unreadable then.
bool TreeComparison::openTop(Side& side, char const* native, std::vector<ListedName>& names)
{
    if (side.stack.open(posix::kWorkingDirectory, native, true)) {
        if (!readLevel(side, names))
            reportUnreadable(side, nullptr);
        return true;
    }
    int const error = errno;
    posix::ObjectInformation information;
    if (posix::statAt(posix::kWorkingDirectory, native, true, information) && detail::isDirectoryMode(information.mode))
        reportUnreadable(side, nullptr);
    errno = error;
    return false;
}

bool TreeComparison::run(char const* nativeA, char const* nativeB)
{
    levels.emplace_back();
    openTop(sideA, nativeA, levels.back().namesA);
    openTop(sideB, nativeB, levels.back().namesB);
    if (levels.back().namesA.size() != levels.back().namesB.size())
        return false;
    for (;;) {
        CompareLevel& level = levels.back();
        if (level.next == level.namesA.size()) {
            if (levels.size() == 1)
                return true;
            if ((level.enteredA && !sideA.stack.leave()) || (level.enteredB && !sideB.stack.leave()))
                return false; // a tree changed under the comparison: it cannot say equal
            if (level.enteredA)
                sideA.trail.pop_back();
            if (level.enteredB)
                sideB.trail.pop_back();
            levels.pop_back();
            continue;
        }
        std::size_t const index = level.next++;
        // The names are held by the level, which stays where it is while
        // levels are added below it.
        if (!compareEntry(level.namesA[index], level.namesB[index]))
            return false;
    }
}

// Compares one pair of entries of the current levels: the same name, the
// same kind following links, then the same contents, or (for directories)
// goes down into them, to be compared before the rest of these levels.
bool TreeComparison::compareEntry(ListedName const& a, ListedName const& b)
{
    if (detail::compareDecomposed(PathNativeAccess::text(a.name), PathNativeAccess::text(b.name)) != 0)
        return false;
    int const directoryA = sideA.stack.descriptor();
    int const directoryB = sideB.stack.descriptor();
    posix::ObjectInformation informationA;
    posix::ObjectInformation informationB;
    bool const foundA = posix::statAt(directoryA, a.bytes.c_str(), true, informationA);
    if (!foundA)
        posix::setFailurePath(sideA.stack.pathOf(a.bytes.c_str()));
    bool const foundB = posix::statAt(directoryB, b.bytes.c_str(), true, informationB);
    if (!foundB)
        posix::setFailurePath(sideB.stack.pathOf(b.bytes.c_str()));
    posix::ObjectKind const kind = followedKind(foundA, informationA.mode);
    if (kind != followedKind(foundB, informationB.mode))
        return false;
    if (kind == posix::ObjectKind::directory)
        return compareSubdirectories(a, b, informationA, informationB);
    std::int64_t const sizeA = foundA ? informationA.size : -1;
    std::int64_t const sizeB = foundB ? informationB.size : -1;
    if (sizeA != sizeB)
        return false;
    return compareFilesAt(directoryA, a.bytes.c_str(), a.mayFollow, &sideA.stack,
                          directoryB, b.bytes.c_str(), b.mayFollow, &sideB.stack, sizeA);
}

bool TreeComparison::compareSubdirectories(ListedName const& a, ListedName const& b,
                                           posix::ObjectInformation const& informationA,
                                           posix::ObjectInformation const& informationB)
{
    Entered const enteredA = sideA.stack.enter(a.bytes.c_str(), a.mayFollow);
    bool const goneA = enteredA == Entered::failed && posix::lastFailureReason() == posix::FailureReason::missing;
    Entered const enteredB = sideB.stack.enter(b.bytes.c_str(), b.mayFollow);
    bool const goneB = enteredB == Entered::failed && posix::lastFailureReason() == posix::FailureReason::missing;
    CompareLevel level;
    level.enteredA = enteredA == Entered::entered;
    level.enteredB = enteredB == Entered::entered;
    auto const undo = [&] {
        // Leaving straight after entering reaches the parent still held.
        if (level.enteredA)
            sideA.stack.leave();
        if (level.enteredB)
            sideB.stack.leave();
    };

    if (enteredA == Entered::loop || enteredB == Entered::loop) {
        // A link back to a directory the walk stands in would be compared
        // without end. Two links that lead back to the same level of their
        // trees are equal (what is there is being compared already); a loop
        // against anything else is not.
        bool const same = enteredA == Entered::loop && enteredB == Entered::loop
            && sideA.stack.levelOf(detail::identityOf(informationA))
                == sideB.stack.levelOf(detail::identityOf(informationB));
        undo();
        return same;
    }
    if (goneA || goneB) {
        undo(); // gone since it was listed: a missing directory is unequal
        return false;
    }
    // A directory that cannot be opened lists nothing.
    if (level.enteredA) {
        sideA.trail.push_back(a.bytes);
        if (!readLevel(sideA, level.namesA))
            reportUnreadable(sideA, nullptr);
    } else {
        reportUnreadable(sideA, &a.bytes);
    }
    if (level.enteredB) {
        sideB.trail.push_back(b.bytes);
        if (!readLevel(sideB, level.namesB))
            reportUnreadable(sideB, nullptr);
    } else {
        reportUnreadable(sideB, &b.bytes);
    }
    if (level.namesA.size() != level.namesB.size())
        return false;
    levels.push_back(std::move(level));
    return true;
}

} // namespace

bool compareFiles(Path const& a, Path const& b)
{
    // A path whose native form holds a NUL byte names no file: it is taken
    // as missing (size -1), never as the shorter name before the NUL.
    char const* nativeA = PathNativeAccess::cStringForChange(a);
    char const* nativeB = PathNativeAccess::cStringForChange(b);
    std::int64_t const size = nativeA != nullptr ? fileSize(a) : -1;
    if (size != (nativeB != nullptr ? fileSize(b) : -1))
        return false;
    return compareFilesAt(posix::kWorkingDirectory, nativeA, true, nullptr,
                          posix::kWorkingDirectory, nativeB, true, nullptr, size);
}

namespace {

bool compareTrees(Path const& a, Path const& b, std::vector<Path>* unreadable)
{
    char const* nativeA = PathNativeAccess::cStringForChange(a);
    char const* nativeB = PathNativeAccess::cStringForChange(b);
    if (nativeA == nullptr || nativeB == nullptr) // names no directory
        return false;
    if (!exists(a) || !exists(b))
        return false;
    return TreeComparison(a, b, unreadable).run(nativeA, nativeB);
}

} // namespace

bool compareDirectories(Path const& a, Path const& b)
{
    return compareTrees(a, b, nullptr);
}

bool compareDirectories(Path const& a, Path const& b, std::vector<Path>& unreadable)
{
    unreadable.clear();
    return compareTrees(a, b, &unreadable);
}

} // namespace kelvo::filesystem
