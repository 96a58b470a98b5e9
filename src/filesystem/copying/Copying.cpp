// Copies that keep times, modes, owners and links: each entry made under a temporary name beside its destination and renamed into place, trees walked with a bounded number of descriptors, progress reported and cancel honoured.
#include <kelvo/filesystem/Copying.h>

#include "filesystem/operations/SourceReading.h"
#include "filesystem/operations/TreeWalk.h"
#include "filesystem/path/PathInternal.h"
#include "filesystem/posix/Copy.h"
#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/System.h"
#include "filesystem/posix/Tree.h"
#include "filesystem/temporary/RandomNumber.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <system_error>
#include <unordered_set>

namespace kelvo::filesystem {

namespace {

using detail::DirectoryStack;
using detail::Entered;
using detail::ObjectIdentity;
using detail::OwnedDescriptor;
using posix::ObjectInformation;
using posix::ObjectKind;

// What the name of every object a copy makes before renaming it into place
// starts with; documented, so that what a killed copy left can be told apart.
constexpr char kTemporaryPrefix[] = ".kelvo-copy-";
// The read and write loop's buffer.
constexpr std::size_t kBufferSize = 128 * 1024;
// The most one in-kernel copy call is asked for with nobody watching, and
// with a progress callback (so that it is asked often enough).
constexpr std::int64_t kLargestRange = 0x40000000;
constexpr std::int64_t kWatchedRange = 1024 * 1024;
// Made under a temporary name, a file is the process's alone until renamed.
constexpr std::uint32_t kPrivateFileMode = 0600;
constexpr std::uint32_t kPrivateDirectoryMode = 0700;
constexpr std::uint32_t kOwnerBits = 0700;
// How many temporary names are tried before a copy gives up on an entry.
constexpr int kNameAttempts = 64;

// What became of one step of a file's copy.
enum class Step { done, readFailed, writeFailed, cancelled };

// Where the copy of one entry goes: a directory and a name in it, with the
// whole path for the failure record.
struct Place {
    int directory;
    char const* name;
};

// The bytes of `path` after its last "/" (trailing ones left out), and the
// directory before it ("." when there is none).
void splitNative(std::string const& path, std::string& parent, std::string& name)
{
    std::size_t end = path.size();
    while (end > 1 && path[end - 1] == '/')
        --end;
    std::size_t const slash = path.rfind('/', end - 1);
    if (slash == std::string::npos) {
        parent = ".";
        name = path.substr(0, end);
        return;
    }
    parent = slash == 0 ? std::string("/") : path.substr(0, slash);
    name = path.substr(slash + 1, end - slash - 1);
}

bool isLaterThan(ObjectInformation const& a, ObjectInformation const& b) noexcept
{
    if (a.modificationSeconds != b.modificationSeconds)
        return a.modificationSeconds > b.modificationSeconds;
    return a.modificationNanoseconds > b.modificationNanoseconds;
}

// One directory of the source the copy stands in: its listing, the next entry
// to copy, what the source directory was when entered (given to its copy once
// the copy is filled), and whether the copy made its directory (so that no
// entry of it can exist yet but one a racing creator put there).
struct CopyLevel {
    detail::Listing listing;
    std::size_t next = 0;
    ObjectInformation information;
    bool made = false;
};

class Copier {
public:
    Copier(CopyOptions const& options, CopyResult& result) : options(options), result(result)
    {
        watching = static_cast<bool>(options.progress);
        lastReport = std::chrono::steady_clock::now();
    }

    void copyTop(std::string const& from, std::string const& to, bool tree);

private:
    // ---- the walk
    void countTree(std::string const& from);
    void copyTree(std::string const& from, std::string const& to, ObjectInformation const& top);
    void copyEntry(char const* name, ObjectKind kind, bool made);
    void enterDirectory(char const* name, bool followLink);
    bool finishDirectory(CopyLevel const& level);

    // ---- one entry
    void copyObject(Place from, bool followLink, ObjectInformation const* known, Place to, bool checkExisting);
    void copyRegular(Place from, bool followLink, Place to, bool checkExisting);
    void copyOther(Place from, ObjectInformation const& information, Place to, bool checkExisting);
    bool keepsExisting(Place to, ObjectInformation const& source);
    Step copyData(int source, int destination, ObjectInformation const& information);
    void finish();
    bool applyAttributesOf(int descriptor, ObjectInformation const& information, bool setMode);
    bool applyAttributesAt(Place at, ObjectInformation const& information, bool setMode);
    bool placeUnderFinalName(Place temporary, Place to);
    char const* nextTemporaryName();

    // ---- reports
    bool advance(std::int64_t bytes);
    bool entryDone();
    bool report(bool finished);
    void fail(std::string const& path);
    void failWith(std::errc error, char const* call, std::string const& path);
    void skip(std::string const& path, CopySkipReason reason);
    std::string sourcePath(char const* name) const;
    std::string destinationPath(char const* name) const;

    CopyOptions const& options;
    CopyResult& result;

    // The walk, when a tree is copied; otherwise the top entries' paths.
    DirectoryStack source;
    DirectoryStack destination;
    bool walking = false;
    std::string topFrom;
    std::string topTo;
    std::string topToParent;
    std::deque<CopyLevel> levels;
    std::unordered_set<ObjectIdentity, detail::ObjectIdentityHash> madeDirectories;

    // Progress.
    bool watching = false;
    bool cancelled = false;
    bool stopped = false; // the tree changed under the walk, which cannot go on
    std::chrono::steady_clock::time_point lastReport;
    std::int64_t bytesSinceReport = 0;
    std::int64_t bytesDone = 0;
    std::int64_t bytesTotal = 0;
    std::int64_t filesDone = 0;
    std::int64_t filesTotal = 0;
    char const* currentName = nullptr; // of the current source level (or the top entry when not walking)

    // The data path: a pair of devices that refused a clone is not asked
    // again, nor is the in-kernel copy once the system refused it.
    std::unique_ptr<char[]> buffer;
    bool cloneRefused = false;
    std::uint64_t refusedFrom = 0;
    std::uint64_t refusedTo = 0;
    bool rangeRefused = false;
    std::uint64_t destinationDevice = 0; // of the directory the copies are made in
    // The umask, read once: a file whose mode it leaves whole is created with
    // that mode, which saves setting it afterwards.
    bool maskRead = false;
    bool maskKnown = false;
    std::uint32_t creationMask = 0;

    // Temporary names.
    std::uint32_t counter = 0;
    // The prefix, eight hexadecimal digits drawn once, "-", a counter in
    // hexadecimal: made by hand, since a formatted print per file would cost
    // more than the rest of the copy's own work.
    char temporaryName[sizeof kTemporaryPrefix + 8 + 1 + 8] = {};
    char* counterStart = nullptr;
};

// ---- reports ---------------------------------------------------------------------

std::string Copier::sourcePath(char const* name) const
{
    if (walking)
        return source.pathOf(name);
    return topFrom;
}

std::string Copier::destinationPath(char const* name) const
{
    if (walking)
        return destination.pathOf(name);
    if (name == nullptr)
        return topTo;
    // Beside the destination: in the directory its path names, if any.
    std::size_t const slash = topTo.rfind('/', topTo.find_last_not_of('/'));
    if (slash == std::string::npos)
        return name;
    return topTo.substr(0, slash + 1) + name;
}

// Completes the record of the call that just failed with the whole `path` and
// keeps it in the result.
void Copier::fail(std::string const& path)
{
    posix::setFailurePath(path);
    result.failures.push_back(lastFailure());
}

// Records a failure that no system call reported (a loop, a tree changed
// under the walk) with the reason `error`.
void Copier::failWith(std::errc error, char const* call, std::string const& path)
{
    posix::recordFailure(call, static_cast<int>(error), path);
    result.failures.push_back(lastFailure());
}

void Copier::skip(std::string const& path, CopySkipReason reason)
{
    result.skipped.push_back(CopySkip{Path(path), reason});
}

// Makes a report when one is due, or when `finished`.
// @returns false when the callback asked to cancel.
bool Copier::report(bool finished)
{
    CopyProgress progress;
    progress.bytesDone = bytesDone;
    progress.bytesTotal = bytesTotal;
    progress.filesDone = filesDone;
    progress.filesTotal = filesTotal;
    progress.finished = finished;
    if (!finished && currentName != nullptr)
        progress.currentFile = Path(sourcePath(currentName));
    bytesSinceReport = 0;
    bool goOn = false;
    try {
        goOn = options.progress(progress);
    } catch (...) {
        goOn = false;
    }
    lastReport = std::chrono::steady_clock::now();
    if (!goOn && !finished)
        cancelled = true;
    return goOn || finished;
}

// Counts `bytes` more done, and reports when a report is due.
// @returns false when the copy is cancelled.
bool Copier::advance(std::int64_t bytes)
{
    bytesDone += bytes;
    if (!watching)
        return true;
    bytesSinceReport += bytes;
    if (bytesSinceReport >= options.progressIntervalBytes)
        return report(false);
    // Compared in whole milliseconds, so that any interval, however large,
    // is compared without overflowing.
    auto const elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - lastReport);
    if (elapsed.count() >= options.progressIntervalMilliseconds)
        return report(false);
    return true;
}

// Counts one more entry done (a report may be due).
bool Copier::entryDone()
{
    ++filesDone;
    return advance(0);
}

// ---- one entry -------------------------------------------------------------------

// @returns the next temporary name, valid until the next call.
char const* Copier::nextTemporaryName()
{
    static char const kDigits[] = "0123456789abcdef";
    if (counterStart == nullptr) {
        std::uint32_t seed;
        try {
            seed = detail::drawRandomNumber();
        } catch (...) {
            seed = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(this) >> 4);
        }
        char* out = std::copy(kTemporaryPrefix, kTemporaryPrefix + sizeof kTemporaryPrefix - 1, temporaryName);
        for (int shift = 28; shift >= 0; shift -= 4)
            *out++ = kDigits[(seed >> shift) & 0xfu];
        *out++ = '-';
        counterStart = out;
    }
    char digits[8];
    int count = 0;
    std::uint32_t value = counter++;
    do {
        digits[count++] = kDigits[value & 0xfu];
        value >>= 4;
    } while (value != 0);
    char* out = counterStart;
    while (count > 0)
        *out++ = digits[--count];
    *out = '\0';
    return temporaryName;
}

// Tells whether an existing destination `to` is kept as the overwrite policy
// says (the entry is then skipped). A missing one is never kept.
bool Copier::keepsExisting(Place to, ObjectInformation const& source)
{
    if (options.overwrite == OverwritePolicy::always)
        return false;
    ObjectInformation existing;
    if (!posix::statAt(to.directory, to.name, false, existing))
        return false; // missing, or out of reach: the rename decides
    if (options.overwrite == OverwritePolicy::never) {
        skip(sourcePath(currentName), CopySkipReason::exists);
        return true;
    }
    if (posix::kindOf(existing.mode) == ObjectKind::directory || isLaterThan(source, existing))
        return false; // a directory makes the rename fail, and the failure says so
    skip(sourcePath(currentName), CopySkipReason::notNewer);
    return true;
}

// Gives the open `descriptor` the owner, mode and times of `information`, as
// the options say. Owners are set first: a change of owner may clear the
// set-user and set-group bits.
bool Copier::applyAttributesOf(int descriptor, ObjectInformation const& information, bool setMode)
{
    if (options.keepOwner) {
        posix::OwnerResult owned = posix::changeOwnerOf(descriptor, information.owner, information.group);
        if (owned == posix::OwnerResult::notAllowed)
            owned = posix::changeGroupOf(descriptor, information.group);
        if (owned == posix::OwnerResult::failed)
            return false;
    }
    if (setMode && !posix::changeModeOf(descriptor, information.mode))
        return false;
    return !options.keepTimes || posix::setTimesOf(descriptor, information);
}

// As `applyAttributesOf`, for an object that is not opened (a link, a FIFO, a
// device file); a link's own mode is never set, since the system has none.
bool Copier::applyAttributesAt(Place at, ObjectInformation const& information, bool setMode)
{
    if (options.keepOwner) {
        posix::OwnerResult owned = posix::changeOwnerAt(at.directory, at.name, information.owner, information.group);
        if (owned == posix::OwnerResult::notAllowed)
            owned = posix::changeGroupAt(at.directory, at.name, information.group);
        if (owned == posix::OwnerResult::failed)
            return false;
    }
    if (setMode && !posix::changeModeAt(at.directory, at.name, information.mode))
        return false;
    return !options.keepTimes || posix::setTimesAt(at.directory, at.name, information);
}

// Renames the finished `temporary` to `to`. With the policy `never`, an object
// that took the name meanwhile is kept (the entry is skipped): the rename
// never replaces, or where the file system cannot rename so, the object gets
// the final name as a second link, which never replaces either.
// @returns true when the copy is under its final name; false when it was
// skipped or failed (the temporary is removed either way).
bool Copier::placeUnderFinalName(Place temporary, Place to)
{
    bool const replace = options.overwrite != OverwritePolicy::never;
    posix::RenameResult renamed = posix::renameAt(temporary.directory, temporary.name, to.directory, to.name, replace);
    if (renamed == posix::RenameResult::unsupported) {
        switch (posix::hardLinkAt(temporary.directory, temporary.name, to.directory, to.name)) {
        case posix::CreateResult::created:
            if (!posix::unlinkAt(temporary.directory, temporary.name, false))
                fail(destinationPath(temporary.name));
            return true;
        case posix::CreateResult::exists:
            renamed = posix::RenameResult::exists;
            break;
        case posix::CreateResult::failed:
            renamed = posix::RenameResult::failed;
            break;
        }
    }
    if (renamed == posix::RenameResult::renamed)
        return true;
    if (renamed == posix::RenameResult::exists)
        skip(sourcePath(currentName), CopySkipReason::exists);
    else
        fail(destinationPath(to.name));
    posix::unlinkAt(temporary.directory, temporary.name, false);
    return false;
}

// Copies the bytes of `source` to `destination`: a clone first where the
// policy allows, then in-kernel copies, then reads and writes from where the
// in-kernel copy stopped.
Step Copier::copyData(int source, int destination, ObjectInformation const& information)
{
    std::int64_t const size = information.size;
    if (options.reflink != ReflinkPolicy::never && size > 0) {
        bool const refusedHere = cloneRefused && refusedFrom == information.device
            && refusedTo == destinationDevice;
        if (!refusedHere || options.reflink == ReflinkPolicy::always) {
            switch (posix::cloneContents(destination, source)) {
            case posix::TransferResult::done:
                return advance(size) ? Step::done : Step::cancelled;
            case posix::TransferResult::unsupported:
                if (options.reflink == ReflinkPolicy::always)
                    return Step::writeFailed;
                cloneRefused = true;
                refusedFrom = information.device;
                refusedTo = destinationDevice;
                break;
            case posix::TransferResult::failed:
                return Step::writeFailed;
            }
        }
    }
    std::int64_t copied = 0;
    std::int64_t const largest = watching ? kWatchedRange : kLargestRange;
    while (!rangeRefused && copied < size) {
        long count = 0;
        switch (posix::copyRangeOnce(source, destination, static_cast<std::size_t>(std::min(size - copied, largest)),
                                     count)) {
        case posix::TransferResult::done:
            break;
        case posix::TransferResult::unsupported:
            if (copied == 0)
                rangeRefused = true;
            count = -1;
            break;
        case posix::TransferResult::failed:
            return Step::writeFailed;
        }
        if (count <= 0)
            break; // refused, or the file is shorter than it was: the loop below goes on
        copied += count;
        if (!advance(count))
            return Step::cancelled;
    }
    if (size > 0 && copied >= size)
        return Step::done;
    if (!buffer)
        buffer.reset(new char[kBufferSize]);
    for (;;) {
        long const count = posix::readSome(source, buffer.get(), kBufferSize);
        if (count < 0)
            return Step::readFailed;
        if (count == 0)
            return Step::done;
        long position = 0;
        while (position < count) {
            long const written = posix::writeSome(destination, buffer.get() + position,
                                                  static_cast<std::size_t>(count - position));
            if (written < 0)
                return Step::writeFailed;
            if (written == 0) {
                // A write that makes no progress would spin: the disk is full.
                posix::recordFailure("write", static_cast<int>(std::errc::no_space_on_device), {});
                return Step::writeFailed;
            }
            position += written;
        }
        if (!advance(count))
            return Step::cancelled;
    }
}

// Copies the regular file `from` (following a final link only when
// `followLink`) to `to` through a temporary file beside it.
void Copier::copyRegular(Place from, bool followLink, Place to, bool checkExisting)
{
    ObjectInformation information;
    OwnedDescriptor input(detail::openSource(from.directory, from.name, followLink, information));
    if (!input.isOpen()) {
        fail(sourcePath(from.name));
        return;
    }
    if (posix::kindOf(information.mode) != ObjectKind::regularFile) {
        // Swapped for another kind since it was listed: copied as what it is now.
        input.close();
        copyOther(from, information, to, checkExisting);
        return;
    }
    if (checkExisting && keepsExisting(to, information))
        return;
    if (options.keepPermissions && !maskRead) {
        maskKnown = posix::readCreationMask(creationMask);
        maskRead = true;
    }
    // Created with its own mode when the umask leaves it whole (and it has
    // no set-user, set-group or sticky bit, which a change of owner may
    // clear): the descriptor opened for writing writes, whatever the mode.
    // Otherwise private, and given its mode once written.
    std::uint32_t const accessBits = information.mode & 0777u;
    bool const modeAtCreation = !options.keepPermissions
        || (maskKnown && (information.mode & 07000u) == 0 && (accessBits & creationMask) == 0);
    std::uint32_t const creationMode = modeAtCreation ? accessBits : kPrivateFileMode;
    char const* temporary = nullptr;
    int descriptor = -1;
    for (int attempt = 0; descriptor < 0; ++attempt) {
        temporary = nextTemporaryName();
        posix::CreateResult const created = posix::createFileAt(to.directory, temporary, creationMode, descriptor);
        if (created == posix::CreateResult::failed || (created == posix::CreateResult::exists && attempt + 1 == kNameAttempts)) {
            fail(destinationPath(to.name));
            return;
        }
    }
    OwnedDescriptor output(descriptor);
    Place const made{to.directory, temporary};
    auto const discard = [&] {
        output.close();
        posix::unlinkAt(to.directory, temporary, false);
    };
    switch (copyData(input.get(), output.get(), information)) {
    case Step::done:
        break;
    case Step::readFailed:
        fail(sourcePath(from.name));
        discard();
        return;
    case Step::writeFailed:
        fail(destinationPath(to.name));
        discard();
        return;
    case Step::cancelled:
        discard();
        return;
    }
    if (!applyAttributesOf(output.get(), information, !modeAtCreation)) {
        fail(destinationPath(to.name));
        discard();
        return;
    }
    if (!output.close()) {
        fail(destinationPath(to.name));
        posix::unlinkAt(to.directory, temporary, false);
        return;
    }
    if (!placeUnderFinalName(made, to))
        return;
    ++result.filesCopied;
    result.bytesCopied += information.size;
    ++filesDone;
}

// Makes a copy of the link, FIFO or device file `from`, whose status is
// `information`, at `to`; a socket is skipped.
void Copier::copyOther(Place from, ObjectInformation const& information, Place to, bool checkExisting)
{
    ObjectKind const kind = posix::kindOf(information.mode);
    if (kind == ObjectKind::socket || kind == ObjectKind::unknown) {
        skip(sourcePath(from.name), CopySkipReason::socket);
        entryDone();
        return;
    }
    std::string target;
    if (kind == ObjectKind::symbolicLink) {
        // The size a link reports is its length where the file system knows
        // it; one byte more tells that nothing was cut.
        std::size_t size = information.size > 0 ? static_cast<std::size_t>(information.size) + 1 : 256;
        for (;;) {
            target.resize(size);
            long const count = posix::readLinkAt(from.directory, from.name, &target[0], size);
            if (count < 0) {
                fail(sourcePath(from.name));
                return;
            }
            if (static_cast<std::size_t>(count) < size) {
                target.resize(static_cast<std::size_t>(count));
                break;
            }
            size *= 2;
        }
    }
    if (checkExisting && keepsExisting(to, information))
        return;
    // Without the permissions kept, a FIFO or device file gets the source's
    // bits less the umask, as a new file does.
    std::uint32_t const creationMode = options.keepPermissions ? kPrivateFileMode : (information.mode & 0777u);
    char const* temporary = nullptr;
    for (int attempt = 0;; ++attempt) {
        temporary = nextTemporaryName();
        posix::CreateResult created;
        switch (kind) {
        case ObjectKind::symbolicLink:
            created = posix::createSymbolicLinkAt(target.c_str(), to.directory, temporary);
            break;
        case ObjectKind::fifo:
            created = posix::createFifoAt(to.directory, temporary, creationMode);
            break;
        default:
            created = posix::createDeviceAt(to.directory, temporary, kind, creationMode,
                                            information.specialDevice);
            break;
        }
        if (created == posix::CreateResult::created)
            break;
        if (created == posix::CreateResult::failed || attempt + 1 == kNameAttempts) {
            fail(destinationPath(to.name));
            return;
        }
    }
    Place const made{to.directory, temporary};
    bool const setMode = options.keepPermissions && kind != ObjectKind::symbolicLink;
    if (!applyAttributesAt(made, information, setMode)) {
        fail(destinationPath(to.name));
        posix::unlinkAt(to.directory, temporary, false);
        return;
    }
    if (!placeUnderFinalName(made, to))
        return;
    if (kind == ObjectKind::symbolicLink)
        ++result.linksCopied;
    else
        ++result.specialFilesCopied;
    entryDone();
}

// Copies the entry `from` to `to`: what a link names when `followLink`.
// `known` is its status when the caller read it already.
void Copier::copyObject(Place from, bool followLink, ObjectInformation const* known, Place to, bool checkExisting)
{
    ObjectInformation information;
    if (known != nullptr) {
        information = *known;
    } else if (!posix::statAt(from.directory, from.name, followLink, information)) {
        fail(sourcePath(from.name));
        return;
    }
    if (posix::kindOf(information.mode) == ObjectKind::regularFile)
        copyRegular(from, followLink, to, checkExisting);
    else
        copyOther(from, information, to, checkExisting);
}

// ---- the walk --------------------------------------------------------------------

// Gives the copy of the current level its source directory's owner, mode and
// times, now that nothing more goes into it.
bool Copier::finishDirectory(CopyLevel const& level)
{
    bool const setMode = options.keepPermissions;
    if (applyAttributesOf(destination.descriptor(), level.information, setMode))
        return true;
    fail(destination.pathOf(nullptr));
    return false;
}

void Copier::enterDirectory(char const* name, bool followLink)
{
    switch (source.enter(name, followLink)) {
    case Entered::loop:
        failWith(std::errc::too_many_symbolic_link_levels, "openat", source.pathOf(name));
        return;
    case Entered::failed:
        if (posix::lastFailureReason() != posix::FailureReason::missing)
            fail(source.pathOf(name)); // gone since it was listed: nothing to copy
        return;
    case Entered::entered:
        break;
    }
    std::string const entered = name; // the level's listing may move below
    ObjectInformation information;
    if (!posix::statDescriptor(source.descriptor(), information) || madeDirectories.count(source.identity()) != 0) {
        // A copy made inside its own source is never copied into itself.
        if (madeDirectories.count(source.identity()) != 0)
            failWith(std::errc::invalid_argument, "copy", source.pathOf(nullptr));
        else
            fail(source.pathOf(nullptr));
        if (!source.leave())
            stopped = true;
        return;
    }
    std::uint32_t const mode = options.keepPermissions ? kPrivateDirectoryMode : ((information.mode & 0777u) | kOwnerBits);
    bool made = false;
    switch (posix::createDirectoryAt(destination.descriptor(), entered.c_str(), mode)) {
    case posix::CreateResult::created:
        made = true;
        break;
    case posix::CreateResult::exists:
        break; // merged into (entering fails when it is no directory)
    case posix::CreateResult::failed:
        fail(destination.pathOf(entered.c_str()));
        if (!source.leave())
            stopped = true;
        return;
    }
    if (destination.enter(entered.c_str(), false) != Entered::entered) {
        fail(destination.pathOf(entered.c_str()));
        if (!source.leave())
            stopped = true;
        return;
    }
    madeDirectories.insert(destination.identity());
    destinationDevice = destination.identity().device;
    ++result.directoriesCopied;
    levels.emplace_back();
    CopyLevel& level = levels.back();
    level.information = information;
    level.made = made;
    if (!level.listing.read(source.descriptor()))
        fail(source.pathOf(nullptr));
}

void Copier::copyEntry(char const* name, ObjectKind kind, bool made)
{
    currentName = name;
    ObjectInformation information;
    bool known = false;
    if (kind == ObjectKind::unknown) {
        if (!posix::statAt(source.descriptor(), name, false, information)) {
            if (posix::lastFailureReason() != posix::FailureReason::missing)
                fail(source.pathOf(name));
            return;
        }
        kind = posix::kindOf(information.mode);
        known = true;
    }
    bool followed = false;
    if (kind == ObjectKind::symbolicLink && options.followLinks) {
        if (!posix::statAt(source.descriptor(), name, true, information)) {
            fail(source.pathOf(name));
            return;
        }
        kind = posix::kindOf(information.mode);
        known = true;
        followed = true;
    }
    if (kind == ObjectKind::directory) {
        enterDirectory(name, followed);
        return;
    }
    Place const from{source.descriptor(), name};
    Place const to{destination.descriptor(), name};
    // In a directory the copy made, only a racing creator can have put
    // anything: the rename that never replaces finds it.
    bool const checkExisting = !made;
    if (kind == ObjectKind::regularFile)
        copyRegular(from, followed, to, checkExisting);
    else
        copyObject(from, followed, known ? &information : nullptr, to, checkExisting);
}

// Counts the entries and bytes of the tree `from` for the progress totals.
void Copier::countTree(std::string const& from)
{
    DirectoryStack stack;
    if (!stack.open(posix::kWorkingDirectory, from.c_str(), options.followLinks))
        return;
    std::deque<std::pair<detail::Listing, std::size_t>> stackLevels(1);
    stackLevels.back().first.read(stack.descriptor());
    while (!stackLevels.empty()) {
        auto& level = stackLevels.back();
        if (level.second == level.first.size()) {
            stackLevels.pop_back();
            if (!stackLevels.empty() && !stack.leave())
                return;
            continue;
        }
        std::size_t const index = level.second++;
        char const* name = level.first.name(index);
        ObjectKind kind = level.first.object(index);
        ObjectInformation information;
        bool const needStatus = kind == ObjectKind::unknown || kind == ObjectKind::regularFile
            || (kind == ObjectKind::symbolicLink && options.followLinks);
        if (needStatus) {
            bool const follow = kind == ObjectKind::symbolicLink && options.followLinks;
            if (!posix::statAt(stack.descriptor(), name, follow, information))
                continue;
            kind = posix::kindOf(information.mode);
        }
        if (kind == ObjectKind::directory) {
            bool const follow = level.first.object(index) == ObjectKind::symbolicLink;
            if (stack.enter(name, follow) == Entered::entered) {
                stackLevels.emplace_back();
                stackLevels.back().first.read(stack.descriptor());
            }
            continue;
        }
        ++filesTotal;
        if (kind == ObjectKind::regularFile)
            bytesTotal += information.size;
    }
}

void Copier::copyTree(std::string const& from, std::string const& to, ObjectInformation const& top)
{
    if (options.countFirst && watching)
        countTree(from);
    std::uint32_t const mode = options.keepPermissions ? kPrivateDirectoryMode : ((top.mode & 0777u) | kOwnerBits);
    bool made = false;
    switch (posix::createDirectoryAt(posix::kWorkingDirectory, to.c_str(), mode)) {
    case posix::CreateResult::created:
        made = true;
        break;
    case posix::CreateResult::exists:
        break; // merged into
    case posix::CreateResult::failed:
        fail(to);
        return;
    }
    if (!source.open(posix::kWorkingDirectory, from.c_str(), options.followLinks)) {
        fail(from);
        return;
    }
    if (!destination.open(posix::kWorkingDirectory, to.c_str(), !made)) {
        fail(to);
        return;
    }
    walking = true;
    madeDirectories.insert(destination.identity());
    destinationDevice = destination.identity().device;
    if (source.identity() == destination.identity()) {
        failWith(std::errc::invalid_argument, "copy", to);
        return;
    }
    ++result.directoriesCopied;
    levels.emplace_back();
    levels.back().information = top;
    levels.back().made = made;
    if (!levels.back().listing.read(source.descriptor()))
        fail(source.pathOf(nullptr));

    for (;;) {
        CopyLevel& level = levels.back();
        if (cancelled || stopped || level.next == level.listing.size()) {
            // Filled (or abandoned): its copy gets its attributes now, so that
            // the entries made in it change nothing of them afterwards.
            finishDirectory(level);
            if (levels.size() == 1)
                break;
            if (!source.leave() || !destination.leave()) {
                failWith(std::errc::device_or_resource_busy, "openat", source.pathOf(".."));
                break; // the tree changed under the copy: it cannot go on
            }
            levels.pop_back();
            // The destination stack went up too: its device is the level's.
            destinationDevice = destination.identity().device;
            continue;
        }
        std::size_t const index = level.next++;
        copyEntry(level.listing.name(index), level.listing.object(index), level.made);
    }
    currentName = nullptr;
}

// Ends the copy: says whether it was cancelled, and makes the final report.
void Copier::finish()
{
    result.cancelled = cancelled;
    currentName = nullptr;
    if (watching)
        report(true);
}

void Copier::copyTop(std::string const& from, std::string const& to, bool tree)
{
    topFrom = from;
    topTo = to;
    ObjectInformation information;
    if (!posix::getFileInformation(from.c_str(), options.followLinks, information)) {
        fail(from);
        finish();
        return;
    }
    ObjectKind const kind = posix::kindOf(information.mode);
    if (kind == ObjectKind::directory) {
        if (tree)
            copyTree(from, to, information);
        else
            failWith(std::errc::is_a_directory, "copy", from);
        finish();
        return;
    }
    if (options.countFirst) {
        filesTotal = 1;
        bytesTotal = kind == ObjectKind::regularFile ? information.size : 0;
    }
    std::string name;
    splitNative(to, topToParent, name);
    OwnedDescriptor parent(posix::openAt(posix::kWorkingDirectory, topToParent.c_str(),
                                         posix::OpenIntent::listDirectory, true));
    ObjectInformation parentInformation;
    if (!parent.isOpen()) {
        fail(topToParent);
    } else {
        if (posix::statDescriptor(parent.get(), parentInformation))
            destinationDevice = parentInformation.device;
        currentName = from.c_str();
        copyObject(Place{posix::kWorkingDirectory, from.c_str()}, options.followLinks,
                   kind == ObjectKind::regularFile ? nullptr : &information, Place{parent.get(), name.c_str()}, true);
    }
    finish();
}

CopyResult copyWith(Path const& from, Path const& to, CopyOptions const& options, bool tree)
{
    CopyResult result;
    char const* fromNative = PathNativeAccess::cStringForChange(from);
    char const* toNative = PathNativeAccess::cStringForChange(to);
    if (fromNative == nullptr || toNative == nullptr || *fromNative == '\0' || *toNative == '\0') {
        posix::recordFailure("copy", static_cast<int>(std::errc::invalid_argument),
                             fromNative == nullptr || *fromNative == '\0' ? std::string_view() : fromNative);
        result.failures.push_back(lastFailure());
        return result;
    }
    Copier copier(options, result);
    copier.copyTop(fromNative, toNative, tree);
    return result;
}

} // namespace

CopyResult copyFileWith(Path const& from, Path const& to, CopyOptions const& options)
{
    return copyWith(from, to, options, false);
}

CopyResult copyTreeWith(Path const& from, Path const& to, CopyOptions const& options)
{
    return copyWith(from, to, options, true);
}

} // namespace kelvo::filesystem
