// AtomicFile and writeFileAtomically: a new file beside the target, flushed, renamed over it and the directory flushed.
#include <kelvo/filesystem/AtomicFile.h>

#include "filesystem/path/PathNativeAccess.h"
#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/Saving.h"
#include "filesystem/posix/Tree.h"
#include "filesystem/saving/SaveNames.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <string>
#include <utility>

namespace kelvo::filesystem {

namespace {

// Small writes are gathered up to this size before they reach the file.
constexpr std::size_t kBufferSize = std::size_t(64) << 10;

// A write of at least this size goes to the file at once, after what was
// gathered before it: it is worth a call of its own.
constexpr std::size_t kDirectWrite = 4096;

// How many names are drawn before a save gives up on finding a free one.
constexpr int kNameAttempts = 100;

// The access bits a new file is made with when it replaces an existing one:
// private until the commit gives it the target's own, so that a hidden file
// left by a killed save can be opened, locked and removed by the next save.
constexpr std::uint32_t kPrivateMode = 0600;

// The access bits a new target is made with: the kernel takes the umask (or
// the directory's default access list) away, with no race on the umask.
constexpr std::uint32_t kNewFileMode = 0666;

} // namespace

struct AtomicFile::State {
    Path target;              // the file replaced, as a path, made when first asked for
    std::string targetNative; // its native bytes, named by every failure
    std::string name;         // its name in `directory`
    std::string prefix;       // the prefix of its hidden files
    std::string hiddenName;   // the new file's name while it has one
    int directory = -1;
    int descriptor = -1;
    bool named = false;       // the new file is in the directory under `hiddenName`
    bool exists = false;      // the target was there when the save opened
    posix::SavedObject object; // the target's kind, bits and owner when it exists
    std::string buffer;       // gathered small writes (capacity kBufferSize once used)

    ~State() { release(); }

    // Removes the new file if it has a name and closes both descriptors.
    void release() noexcept
    {
        if (named && directory >= 0)
            posix::unlinkAt(directory, hiddenName.c_str(), false);
        named = false;
        if (descriptor >= 0)
            posix::closeObject(descriptor);
        descriptor = -1;
        if (directory >= 0)
            posix::closeObject(directory);
        directory = -1;
    }

    // Abandons the save after the call `call` failed with errno as it left
    // it: everything is cleaned up, then the failure is recorded again with
    // the target's path, so that what the clean-up called cannot hide it.
    // @returns false.
    bool fail(char const* call) noexcept
    {
        int const error = errno;
        release();
        posix::recordFailure(call, error, targetNative);
        errno = error;
        return false;
    }

    // Makes the new file: without a name where the system can, else under a
    // fresh hidden name; in either case locked for as long as it lives.
    bool createNewFile()
    {
        std::uint32_t const mode = exists ? kPrivateMode : kNewFileMode;
        if (posix::canNameUnnamedFiles()) {
            switch (posix::openUnnamedFile(directory, mode, descriptor)) {
            case posix::UnnamedFileResult::opened:
                // Nobody else can reach it yet: the lock only guards the
                // moment it has a name, during the commit.
                posix::tryExclusiveLock(descriptor);
                return true;
            case posix::UnnamedFileResult::failed:
                return fail("openat");
            case posix::UnnamedFileResult::unsupported:
                break;
            }
        }
        for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
            hiddenName = saving::newHiddenName(prefix);
            switch (posix::createExclusive(directory, hiddenName.c_str(), mode, descriptor)) {
            case posix::ExclusiveCreation::created:
                break;
            case posix::ExclusiveCreation::alreadyExists:
                continue;
            case posix::ExclusiveCreation::failed:
                return fail("openat");
            }
            // Another save's sweep may have taken the file for a stale one
            // between its creation and this lock: it then holds the lock, or
            // has removed the name already. Either way, draw another.
            posix::LockAttempt const locked = posix::tryExclusiveLock(descriptor);
            posix::ObjectInformation held;
            posix::ObjectInformation found;
            bool const stillNamed = posix::statDescriptor(descriptor, held)
                && posix::statAt(directory, hiddenName.c_str(), false, found) && found.device == held.device
                && found.inode == held.inode;
            if (locked != posix::LockAttempt::busy && stillNamed) {
                named = true;
                return true;
            }
            posix::closeObject(descriptor);
            descriptor = -1;
        }
        // Every name drawn was taken: report the last refusal.
        return fail("openat");
    }

    // Gives the new file the target's owner and group where the process
    // may: a refusal is an answer, not a failure.
    bool keepOwner()
    {
        posix::SavedObject made;
        if (!posix::getSavedObjectOfDescriptor(descriptor, made))
            return fail("fstat");
        if (made.owner == object.owner && made.group == object.group)
            return true;
        std::uint32_t const owner = made.owner == object.owner ? posix::kKeepOwner : object.owner;
        switch (posix::changeOwnerOfDescriptor(descriptor, owner, object.group)) {
        case posix::OwnerChange::changed:
            return true;
        case posix::OwnerChange::failed:
            return fail("fchown");
        case posix::OwnerChange::notPermitted:
            break;
        }
        // An ordinary user may still give the file a group it belongs to.
        if (made.group != object.group && owner != posix::kKeepOwner
            && posix::changeOwnerOfDescriptor(descriptor, posix::kKeepOwner, object.group)
                   == posix::OwnerChange::failed)
            return fail("fchown");
        return true;
    }

    bool writeOut(void const* data, std::size_t size)
    {
        if (posix::writeAll(descriptor, data, size))
            return true;
        return fail("write");
    }

    bool flushBuffer()
    {
        if (buffer.empty())
            return true;
        bool const written = writeOut(buffer.data(), buffer.size());
        buffer.clear();
        return written;
    }

    bool isLive() const noexcept { return descriptor >= 0; }
};

AtomicFile::AtomicFile() noexcept = default;

AtomicFile::AtomicFile(Path const& path)
{
    open(path);
}

AtomicFile::~AtomicFile() = default;

AtomicFile::AtomicFile(AtomicFile&& other) noexcept = default;

AtomicFile& AtomicFile::operator=(AtomicFile&& other) noexcept
{
    if (this != &other) {
        abort();
        state = std::move(other.state);
    }
    return *this;
}

bool AtomicFile::open(Path const& path)
{
    abort();
    char const* const native = PathNativeAccess::cStringForChange(path);
    if (native == nullptr)
        return false;
    saving::ResolvedTarget resolved;
    // A failure here is recorded with the path it was met on: the given
    // one, or a link or file the chain of links reached.
    if (!saving::resolveTarget(native, resolved))
        return false;
    auto made = std::make_unique<State>();
    State& s = *made;
    s.targetNative = resolved.path;
    s.name = std::move(resolved.name);
    s.prefix = saving::hiddenPrefix(s.name);
    s.exists = resolved.exists;
    s.object = resolved.object;
    s.directory = posix::openAt(posix::kWorkingDirectory, resolved.directory.c_str(),
                                posix::OpenIntent::listDirectory, true);
    if (s.directory < 0)
        return s.fail("openat");
    saving::removeStaleHiddenFiles(s.directory, s.prefix);
    if (!s.createNewFile())
        return false;
    if (s.exists && !s.keepOwner())
        return false;
    state = std::move(made);
    return true;
}

bool AtomicFile::isOpen() const noexcept
{
    return state != nullptr && state->isLive();
}

bool AtomicFile::write(std::string_view bytes)
{
    return write(bytes.data(), bytes.size());
}

bool AtomicFile::write(void const* data, std::size_t size)
{
    if (!isOpen())
        return false;
    if (size == 0)
        return true;
    State& s = *state;
    if (size < kDirectWrite && s.buffer.size() + size <= kBufferSize) {
        if (s.buffer.capacity() < kBufferSize)
            s.buffer.reserve(kBufferSize);
        s.buffer.append(static_cast<char const*>(data), size);
        return true;
    }
    if (!s.flushBuffer())
        return false;
    if (size < kDirectWrite) {
        s.buffer.append(static_cast<char const*>(data), size);
        return true;
    }
    return s.writeOut(data, size);
}

bool AtomicFile::commit()
{
    if (!isOpen())
        return false;
    State& s = *state;
    if (!s.flushBuffer())
        return false;
    // The target's bits go on last, so that until now the file stayed
    // private to its owner (and, left behind, removable by the next save).
    if (s.exists && !posix::changeModeOfDescriptor(s.descriptor, s.object.accessBits))
        return s.fail("fchmod");
    if (!posix::flushToStorage(s.descriptor))
        return s.fail("fsync");
    if (!s.named) {
        // A file without a name gets a hidden one first: a link cannot
        // replace what is at the target, a rename can.
        for (int attempt = 0; !s.named; ++attempt) {
            s.hiddenName = saving::newHiddenName(s.prefix);
            switch (posix::linkUnnamedFile(s.descriptor, s.directory, s.hiddenName.c_str())) {
            case posix::ExclusiveCreation::created:
                s.named = true;
                break;
            case posix::ExclusiveCreation::alreadyExists:
                if (attempt + 1 < kNameAttempts)
                    continue;
                return s.fail("linkat");
            case posix::ExclusiveCreation::failed:
                return s.fail("linkat");
            }
        }
    }
    if (!posix::renameAt(s.directory, s.hiddenName.c_str(), s.directory, s.name.c_str()))
        return s.fail("renameat");
    s.named = false; // the name is the target's now
    // The target holds the new contents from here on; a failing flush of the
    // directory only means that a crash could still undo the rename.
    if (!posix::flushToStorage(s.directory))
        return s.fail("fsync");
    s.release();
    state.reset();
    return true;
}

void AtomicFile::abort() noexcept
{
    if (state == nullptr)
        return;
    int const saved = errno;
    state->release();
    state.reset();
    errno = saved;
}

Path const& AtomicFile::target() const
{
    static Path const kNothing;
    if (!isOpen())
        return kNothing;
    if (state->target.empty())
        state->target = Path(state->targetNative);
    return state->target;
}

bool writeFileAtomically(Path const& path, std::string_view bytes)
{
    return writeFileAtomically(path, bytes.data(), bytes.size());
}

bool writeFileAtomically(Path const& path, void const* data, std::size_t size)
{
    AtomicFile file;
    if (!file.open(path))
        return false;
    if (size > 0 && !file.write(data, size))
        return false;
    return file.commit();
}

} // namespace kelvo::filesystem
