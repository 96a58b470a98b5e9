// What differs between two trees: both walked at once through stacks of directory descriptors, names paired the way PathLess orders them, contents compared without ever opening a FIFO or a device.
#include <kelvo/filesystem/PathHash.h>
#include <kelvo/filesystem/TreeDifferences.h>

#include "filesystem/operations/SourceReading.h"
#include "filesystem/operations/TreeWalk.h"
#include "filesystem/path/PathInternal.h"
#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/Tree.h"
#include "filesystem/status/FileTypes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace kelvo::filesystem {

namespace {

using detail::DirectoryStack;
using detail::Entered;
using detail::OwnedDescriptor;
using detail::SourceReader;
using posix::ObjectKind;

constexpr std::int64_t kMicrosecondsPerSecond = 1000000;
constexpr std::int64_t kNanosecondsPerMicrosecond = 1000;
// A first read of this many bytes holds almost every link's text; a longer
// one is read again with a buffer twice the size.
constexpr std::size_t kInitialTargetSize = 256;
// No link holds more than a path can: past this the text is taken as
// unreadable rather than grown without end.
constexpr std::size_t kLargestTargetSize = 1u << 20;

/// One name of a listing: the bytes to reach the entry by, the path that
/// compares it, and the kind the listing reported.
struct Name {
    std::string bytes;
    Path text;
    ObjectKind listed;
};

/// Two names that pair, or a name of one side alone (the other index is
/// `kNone`).
struct Pairing {
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
    std::size_t first = kNone;
    std::size_t second = kNone;
};

/// @returns the names of `listing` in `PathLess` order, names equal that way
/// in byte order.
std::vector<Name> sortedNames(detail::Listing const& listing)
{
    std::vector<Name> names;
    names.reserve(listing.size());
    for (std::size_t i = 0; i < listing.size(); ++i) {
        std::string bytes(listing.name(i), listing.nameLength(i));
        Path text(bytes);
        names.push_back(Name{std::move(bytes), std::move(text), listing.object(i)});
    }
    PathLess const less;
    std::sort(names.begin(), names.end(), [&less](Name const& a, Name const& b) {
        if (less(a.text, b.text))
            return true;
        if (less(b.text, a.text))
            return false;
        return a.bytes < b.bytes;
    });
    return names;
}

/// Pairs the sorted names of two listings: each group of names equal under
/// `PathLess` pairs one to one when each side holds one of it; when a side
/// holds several, only names with the same bytes pair and the rest stand
/// alone. @returns the pairings in the order of the names.
std::vector<Pairing> pairNames(std::vector<Name> const& first, std::vector<Name> const& second)
{
    PathLess const less;
    std::vector<Pairing> pairings;
    pairings.reserve(std::max(first.size(), second.size()));
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < first.size() || j < second.size()) {
        if (j == second.size() || (i < first.size() && less(first[i].text, second[j].text))) {
            pairings.push_back(Pairing{i++, Pairing::kNone});
            continue;
        }
        if (i == first.size() || less(second[j].text, first[i].text)) {
            pairings.push_back(Pairing{Pairing::kNone, j++});
            continue;
        }
        // A group of equal names: where each ends.
        std::size_t endFirst = i + 1;
        while (endFirst < first.size() && !less(first[i].text, first[endFirst].text))
            ++endFirst;
        std::size_t endSecond = j + 1;
        while (endSecond < second.size() && !less(second[j].text, second[endSecond].text))
            ++endSecond;
        if (endFirst - i == 1 && endSecond - j == 1) {
            pairings.push_back(Pairing{i, j});
        } else {
            // Both runs are in byte order: merged, equal bytes meet.
            while (i < endFirst || j < endSecond) {
                if (j == endSecond || (i < endFirst && first[i].bytes < second[j].bytes))
                    pairings.push_back(Pairing{i++, Pairing::kNone});
                else if (i == endFirst || second[j].bytes < first[i].bytes)
                    pairings.push_back(Pairing{Pairing::kNone, j++});
                else
                    pairings.push_back(Pairing{i++, j++});
            }
        }
        i = endFirst;
        j = endSecond;
    }
    return pairings;
}

/// One pair of directories the comparison stands in: both sorted listings,
/// how their names pair, and the next pairing to compare.
struct Level {
    std::vector<Name> first;
    std::vector<Name> second;
    std::vector<Pairing> pairings;
    std::size_t next = 0;
};

/// What the comparison saw of one entry.
struct Seen {
    bool known = false;                   // the kind is known (else the entry could not be looked at)
    ObjectKind kind = ObjectKind::unknown;
    bool haveStatus = false;              // `information` holds its status
    posix::ObjectInformation information;
};

/// @returns the modification time of `information` in microseconds.
std::int64_t microsecondsOf(posix::ObjectInformation const& information) noexcept
{
    return information.modificationSeconds * kMicrosecondsPerSecond
        + information.modificationNanoseconds / kNanosecondsPerMicrosecond;
}

/// Compares two trees without recursion, each walked through a stack of
/// directory descriptors, so that any depth takes a bounded number of them.
class DifferenceWalk {
public:
    DifferenceWalk(DifferenceOptions const& options, std::vector<Failure>* failures)
        : options(options), failures(failures)
    {
    }

    std::vector<TreeDifference> run(Path const& first, Path const& second);

private:
    bool openTop(DirectoryStack& stack, Path const& root);
    bool readLevel(DirectoryStack& stack, std::vector<Name>& names);
    void compare(Level const& level, Pairing const& pairing);
    void comparePair(Name const& a, Name const& b);
    bool filesDiffer(Name const& a, Name const& b);
    bool linksDiffer(Name const& a, Name const& b);
    void enterPair(Name const& a, Name const& b);
    Seen look(DirectoryStack const& stack, Name const& name, bool wantStatus);
    bool readLinkText(DirectoryStack const& stack, Name const& name, std::string& text);
    void report(DifferenceKind kind, TreeDifference const& where);
    void keepFailure();
    void recordOwnFailure(std::errc reason, std::string const& path);
    void stopAfterALeaveFailed(unsigned long failuresBefore);

    DifferenceOptions const options;
    std::vector<Failure>* const failures;
    DirectoryStack stackFirst;
    DirectoryStack stackSecond;
    std::deque<Level> levels; // a deque: a level stays where it is while levels are added below it
    std::vector<TreeDifference> differences;
    bool stopped = false; // a tree changed so that the walk cannot go on
};

// Keeps the failure the thread's record holds now (the caller has just seen
// a wrapper fail and completed the record's path).
void DifferenceWalk::keepFailure()
{
    if (failures != nullptr)
        failures->push_back(lastFailure());
}

// Records a failure that no system call reported (a link loop, a directory
// moved away under the walk) in the thread's record, and keeps it.
void DifferenceWalk::recordOwnFailure(std::errc reason, std::string const& path)
{
    posix::recordFailure("openat", static_cast<int>(reason), path);
    keepFailure();
}

// A tree changed under the walk so that it could not go back up: where it
// stands is not known any more, so it stops with what it found.
void DifferenceWalk::stopAfterALeaveFailed(unsigned long failuresBefore)
{
    if (posix::failureCount() != failuresBefore)
        keepFailure();
    else
        recordOwnFailure(std::errc::no_such_file_or_directory, stackFirst.pathOf(".."));
    stopped = true;
}

void DifferenceWalk::report(DifferenceKind kind, TreeDifference const& where)
{
    TreeDifference difference = where;
    difference.kind = kind;
    differences.push_back(std::move(difference));
}

bool DifferenceWalk::openTop(DirectoryStack& stack, Path const& root)
{
    char const* const native = PathNativeAccess::cStringForChange(root);
    if (native == nullptr) { // a NUL byte: it names no directory
        recordOwnFailure(std::errc::no_such_file_or_directory, PathNativeAccess::native(root));
        return false;
    }
    if (!stack.open(posix::kWorkingDirectory, native, true)) {
        keepFailure();
        return false;
    }
    return true;
}

// Reads and sorts the listing of the current directory of `stack`.
// @returns false, the failure kept, when it could not be read whole.
bool DifferenceWalk::readLevel(DirectoryStack& stack, std::vector<Name>& names)
{
    detail::Listing listing;
    if (!listing.read(stack.descriptor())) {
        posix::setFailurePath(stack.pathOf(nullptr));
        keepFailure();
        return false;
    }
    names = sortedNames(listing);
    return true;
}

std::vector<TreeDifference> DifferenceWalk::run(Path const& first, Path const& second)
{
    bool const openFirst = openTop(stackFirst, first);
    bool const openSecond = openTop(stackSecond, second);
    if (!openFirst || !openSecond)
        return {};
    Level top;
    bool const readFirst = readLevel(stackFirst, top.first);
    bool const readSecond = readLevel(stackSecond, top.second);
    if (!readFirst || !readSecond)
        return {};
    top.pairings = pairNames(top.first, top.second);
    levels.push_back(std::move(top));
    while (!stopped) {
        Level& level = levels.back();
        if (level.next == level.pairings.size()) {
            if (levels.size() == 1)
                break;
            unsigned long const failuresBefore = posix::failureCount();
            if (!stackFirst.leave() || !stackSecond.leave()) {
                stopAfterALeaveFailed(failuresBefore);
                break;
            }
            levels.pop_back();
            continue;
        }
        // The level's names stay where they are while levels are added below.
        Pairing const pairing = level.pairings[level.next++];
        compare(level, pairing);
    }
    return std::move(differences);
}

// Looks at the entry `name` of the current directory of `stack`: its kind
// (followed through a link when links are followed) and, when `wantStatus`
// or when the listing did not say enough, its status. An entry that cannot
// be looked at (gone since it was listed, a link that leads nowhere) is a
// failure, kept, and is not known.
Seen DifferenceWalk::look(DirectoryStack const& stack, Name const& name, bool wantStatus)
{
    Seen seen;
    seen.kind = name.listed;
    bool const follow = options.followSymbolicLinks
        && (name.listed == ObjectKind::symbolicLink || name.listed == ObjectKind::unknown);
    if (!wantStatus && !follow && name.listed != ObjectKind::unknown) {
        seen.known = true;
        return seen;
    }
    if (posix::statAt(stack.descriptor(), name.bytes.c_str(), follow, seen.information)) {
        seen.known = true;
        seen.haveStatus = true;
        seen.kind = posix::kindOf(seen.information.mode);
        return seen;
    }
    posix::setFailurePath(stack.pathOf(name.bytes.c_str()));
    keepFailure();
    return seen;
}

void DifferenceWalk::compare(Level const& level, Pairing const& pairing)
{
    bool const inFirst = pairing.first != Pairing::kNone;
    bool const inSecond = pairing.second != Pairing::kNone;
    if (inFirst && inSecond) {
        comparePair(level.first[pairing.first], level.second[pairing.second]);
        return;
    }
    DirectoryStack const& stack = inFirst ? stackFirst : stackSecond;
    Name const& name = inFirst ? level.first[pairing.first] : level.second[pairing.second];
    // Nothing of an entry on one side is compared: a link that cannot be
    // followed is reported as the link it is, and is no failure.
    ObjectKind kind = name.listed;
    bool const follow = options.followSymbolicLinks && name.listed == ObjectKind::symbolicLink;
    if (name.listed == ObjectKind::unknown || follow) {
        posix::ObjectInformation information;
        unsigned long const failuresBefore = posix::failureCount();
        if (posix::statAt(stack.descriptor(), name.bytes.c_str(), follow, information))
            kind = posix::kindOf(information.mode);
        else
            posix::setFailurePathSince(failuresBefore, stack.pathOf(name.bytes.c_str()));
    }
    TreeDifference where;
    Path path(stack.pathOf(name.bytes.c_str()));
    if (inFirst) {
        where.first = std::move(path);
        where.firstType = detail::fileTypeOf(kind);
    } else {
        where.second = std::move(path);
        where.secondType = detail::fileTypeOf(kind);
    }
    report(inFirst ? DifferenceKind::onlyInFirst : DifferenceKind::onlyInSecond, where);
}

// Compares the entries `a` and `b` of the current directories, which pair:
// their spellings, their kinds, then what their kind has to compare, and
// for two directories goes down into them, to be compared before the rest.
void DifferenceWalk::comparePair(Name const& a, Name const& b)
{
    // A regular file's size is read from the file once it is open.
    bool const wantStatus = options.comparePermissions || options.compareTimes;
    Seen const seenA = look(stackFirst, a, wantStatus);
    Seen const seenB = look(stackSecond, b, wantStatus);
    // The paths are made only for a difference: made for every pair, they
    // would cost time in proportion to the depth at each level.
    TreeDifference found;
    auto const reportPair = [&](DifferenceKind kind) {
        if (found.first.empty()) {
            found.first = Path(stackFirst.pathOf(a.bytes.c_str()));
            found.second = Path(stackSecond.pathOf(b.bytes.c_str()));
            found.firstType = detail::fileTypeOf(seenA.kind);
            found.secondType = detail::fileTypeOf(seenB.kind);
        }
        report(kind, found);
    };
    if (a.bytes != b.bytes)
        reportPair(DifferenceKind::differentSpelling);
    if (!seenA.known || !seenB.known)
        return;
    if (seenA.kind != seenB.kind) {
        reportPair(DifferenceKind::differentKinds);
        return;
    }
    if ((seenA.kind == ObjectKind::regularFile && filesDiffer(a, b))
        || (seenA.kind == ObjectKind::symbolicLink && linksDiffer(a, b)))
        reportPair(DifferenceKind::differentContents);
    if (seenA.haveStatus && seenB.haveStatus) {
        if (options.comparePermissions
            && posix::accessBitsOf(seenA.information.mode) != posix::accessBitsOf(seenB.information.mode))
            reportPair(DifferenceKind::differentPermissions);
        if (options.compareTimes && microsecondsOf(seenA.information) != microsecondsOf(seenB.information))
            reportPair(DifferenceKind::differentTimes);
    }
    if (seenA.kind == ObjectKind::directory)
        enterPair(a, b);
}

// Compares two regular files, once open: sizes first, then bytes. A file
// that cannot be opened or read is a failure, kept, and nothing is said of
// the pair. @returns true when they differ.
bool DifferenceWalk::filesDiffer(Name const& a, Name const& b)
{
    bool const follow = options.followSymbolicLinks;
    posix::ObjectInformation openedA;
    OwnedDescriptor fileA(detail::openSource(stackFirst.descriptor(), a.bytes.c_str(), follow, openedA));
    if (!fileA.isOpen()) {
        posix::setFailurePath(stackFirst.pathOf(a.bytes.c_str()));
        keepFailure();
        return false;
    }
    posix::ObjectInformation openedB;
    OwnedDescriptor fileB(detail::openSource(stackSecond.descriptor(), b.bytes.c_str(), follow, openedB));
    if (!fileB.isOpen()) {
        posix::setFailurePath(stackSecond.pathOf(b.bytes.c_str()));
        keepFailure();
        return false;
    }
    // What was opened is no longer a regular file (replaced since it was
    // looked at): it is not read, so that nothing waits on it.
    if (posix::kindOf(openedA.mode) != ObjectKind::regularFile
        || posix::kindOf(openedB.mode) != ObjectKind::regularFile)
        return false;
    if (openedA.size != openedB.size)
        return true;
    SourceReader readerA(fileA.get(), openedA.mode);
    SourceReader readerB(fileB.get(), openedB.mode);
    bool const same = detail::sameContents(readerA, readerB, openedA.size);
    // The record holds the last read that failed.
    if (readerB.readFailed() || readerA.readFailed()) {
        posix::setFailurePath(readerB.readFailed() ? stackSecond.pathOf(b.bytes.c_str())
                                                   : stackFirst.pathOf(a.bytes.c_str()));
        keepFailure();
        return false;
    }
    return !same;
}

// Reads the text the link `name` of the current directory of `stack` holds.
// @returns false, the failure kept, when it cannot be read.
bool DifferenceWalk::readLinkText(DirectoryStack const& stack, Name const& name, std::string& text)
{
    std::string buffer(kInitialTargetSize, '\0');
    for (;;) {
        std::int64_t const got = posix::readLinkAt(stack.descriptor(), name.bytes.c_str(), &buffer[0], buffer.size());
        if (got < 0) {
            posix::setFailurePath(stack.pathOf(name.bytes.c_str()));
            keepFailure();
            return false;
        }
        if (static_cast<std::size_t>(got) < buffer.size()) {
            buffer.resize(static_cast<std::size_t>(got));
            text = std::move(buffer);
            return true;
        }
        // The text filled the buffer: some of it may be missing.
        if (buffer.size() >= kLargestTargetSize) {
            recordOwnFailure(std::errc::filename_too_long, stack.pathOf(name.bytes.c_str()));
            return false;
        }
        buffer.assign(buffer.size() * 2, '\0');
    }
}

// @returns true when the links `a` and `b` hold different texts; false also
// when either cannot be read (the failure kept).
bool DifferenceWalk::linksDiffer(Name const& a, Name const& b)
{
    std::string textA;
    std::string textB;
    bool const readA = readLinkText(stackFirst, a, textA);
    bool const readB = readLinkText(stackSecond, b, textB);
    return readA && readB && textA != textB;
}

// Goes down into the directories `a` and `b` of the current directories and
// reads both listings; the next pairings compared are theirs. When either
// cannot be entered or listed, the failure is kept, neither is gone into,
// and their contents are not compared.
void DifferenceWalk::enterPair(Name const& a, Name const& b)
{
    // Only a link is entered by following it: a directory entered by its own
    // name is left again through its "..", however deep the walk.
    auto const followed = [this](Name const& name) {
        return options.followSymbolicLinks && name.listed != ObjectKind::directory;
    };
    Entered const enteredA = stackFirst.enter(a.bytes.c_str(), followed(a));
    if (enteredA == Entered::failed)
        keepFailure();
    else if (enteredA == Entered::loop)
        recordOwnFailure(std::errc::too_many_symbolic_link_levels, stackFirst.pathOf(a.bytes.c_str()));
    Entered const enteredB = stackSecond.enter(b.bytes.c_str(), followed(b));
    if (enteredB == Entered::failed)
        keepFailure();
    else if (enteredB == Entered::loop)
        recordOwnFailure(std::errc::too_many_symbolic_link_levels, stackSecond.pathOf(b.bytes.c_str()));
    Level level;
    bool listed = enteredA == Entered::entered && enteredB == Entered::entered;
    if (listed) {
        bool const readA = readLevel(stackFirst, level.first);
        bool const readB = readLevel(stackSecond, level.second);
        listed = readA && readB;
    }
    if (!listed) {
        // Leaving straight after entering reaches the parent still held.
        unsigned long const failuresBefore = posix::failureCount();
        bool const leftA = enteredA != Entered::entered || stackFirst.leave();
        bool const leftB = enteredB != Entered::entered || stackSecond.leave();
        if (!leftA || !leftB)
            stopAfterALeaveFailed(failuresBefore);
        return;
    }
    level.pairings = pairNames(level.first, level.second);
    levels.push_back(std::move(level));
}

} // namespace

std::vector<TreeDifference> differencesBetween(Path const& first, Path const& second,
                                               DifferenceOptions const& options, std::vector<Failure>* failures)
{
    return DifferenceWalk(options, failures).run(first, second);
}

} // namespace kelvo::filesystem
