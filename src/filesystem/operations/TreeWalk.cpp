// The tree walks' shared parts: whole listings of an open directory, and the stack of directories a walk moves through with a bounded number of descriptors.
#include "filesystem/operations/TreeWalk.h"

#include "filesystem/posix/FailureRecord.h"

#include <cerrno>

namespace kelvo::filesystem::detail {

namespace {

// Opens `name` of `parent` as a directory and reads its identity.
// @returns the descriptor, or -1 (errno from the failing call).
int openDirectory(int parent, char const* name, bool follow, ObjectIdentity& identity)
{
    int const descriptor = posix::openAt(parent, name, posix::OpenIntent::listDirectory, follow);
    if (descriptor < 0)
        return -1;
    posix::ObjectInformation information;
    if (!posix::statDescriptor(descriptor, information)) {
        int const saved = errno;
        posix::closeObject(descriptor);
        errno = saved;
        return -1;
    }
    identity = identityOf(information);
    return descriptor;
}

} // namespace

// ---- Listing -------------------------------------------------------------------

bool Listing::read(int descriptor, bool unread)
{
    names.clear();
    items.clear();
    // The stream takes a descriptor of its own, so the caller's stays open
    // for the calls relative to it once the stream is closed.
    posix::DirectoryStream* const stream = posix::openDirectoryStream(posix::duplicateDescriptor(descriptor));
    if (stream == nullptr)
        return false;
    // The duplicate shares the original's position, wherever an earlier
    // listing left it; a descriptor nothing has read is at the start.
    if (!unread)
        posix::rewindDirectoryStream(stream);
    posix::ListedEntry entry;
    posix::EntryRead read;
    while ((read = posix::readEntry(stream, entry)) == posix::EntryRead::entry) {
        items.push_back(Item{names.size(), entry.length, entry.kind, entry.object});
        names.append(entry.name, entry.length + 1); // with its NUL
    }
    posix::closeDirectory(stream);
    return read == posix::EntryRead::end;
}

// ---- DirectoryStack ------------------------------------------------------------

DirectoryStack::~DirectoryStack()
{
    for (Level const& level : levels) {
        if (level.descriptor >= 0)
            posix::closeObject(level.descriptor);
    }
}

bool DirectoryStack::open(int parent, char const* name, bool follow, ObjectIdentity const* expected)
{
    ObjectIdentity identity;
    int const descriptor = openDirectory(parent, name, follow, identity);
    if (descriptor < 0)
        return false;
    if (expected != nullptr && identity != *expected) {
        posix::closeObject(descriptor);
        return false;
    }
    levels.push_back(Level{std::string(), identity, descriptor, follow});
    onStack.emplace(identity, 0);
    topPath = name;
    return true;
}

std::string DirectoryStack::pathOf(char const* name) const
{
    std::string path = topPath;
    auto const append = [&path](char const* step) {
        if (!path.empty() && path.back() != '/')
            path += '/';
        path += step;
    };
    for (std::size_t level = 1; level < levels.size(); ++level)
        append(levels[level].name.c_str());
    if (name != nullptr)
        append(name);
    return path;
}

long DirectoryStack::levelOf(ObjectIdentity const& identity) const
{
    auto const found = onStack.find(identity);
    return found == onStack.end() ? -1 : static_cast<long>(found->second);
}

Entered DirectoryStack::enter(char const* name, bool follow)
{
    ObjectIdentity identity;
    int const opened = openDirectory(descriptor(), name, follow, identity);
    if (opened < 0) {
        int const saved = errno;
        posix::setFailurePath(pathOf(name));
        errno = saved;
        return Entered::failed;
    }
    if (onStack.count(identity) != 0) {
        posix::closeObject(opened);
        return Entered::loop;
    }
    levels.push_back(Level{std::string(name), identity, opened, follow});
    onStack.emplace(identity, levels.size() - 1);
    if (++held > kHeldDescriptors)
        closeOldest();
    return Entered::entered;
}

// Closes the descriptor of the highest level below the top that still holds
// one. Held descriptors are always the lowest `held` levels (entering adds
// one at the bottom, leaving takes the bottom one and reopens at most the
// level right above it), so that level is found at once, not by a search
// that would make a deep walk quadratic.
void DirectoryStack::closeOldest()
{
    if (held == 0)
        return;
    Level& oldest = levels[levels.size() - held];
    if (oldest.descriptor >= 0) {
        posix::closeObject(oldest.descriptor);
        oldest.descriptor = -1;
        --held;
    }
}

bool DirectoryStack::leave()
{
    if (levels.size() < 2)
        return false;
    std::size_t const parent = levels.size() - 2;
    if (levels[parent].descriptor < 0) {
        unsigned long const failuresBefore = posix::failureCount();
        int const descriptor = reopen(parent);
        if (descriptor < 0) {
            if (posix::failureCount() != failuresBefore)
                posix::setFailurePath(pathOf(".."));
            return false;
        }
        levels[parent].descriptor = descriptor;
        ++held;
    }
    Level& current = levels.back();
    posix::closeObject(current.descriptor);
    --held;
    onStack.erase(current.identity);
    levels.pop_back();
    return true;
}

// Opens the directory of `level` again, whose descriptor was closed: through
// ".." of the level below when that one was entered by its own name (a
// directory's ".." is the one that lists it), else by the names that led
// down from the nearest level that still holds a descriptor. Each directory
// opened must be the one recorded.
int DirectoryStack::reopen(std::size_t level)
{
    Level const& below = levels[level + 1];
    if (!below.followed) {
        ObjectIdentity identity;
        int const descriptor = openDirectory(below.descriptor, "..", false, identity);
        if (descriptor < 0)
            return -1;
        if (identity != levels[level].identity) {
            posix::closeObject(descriptor);
            return -1;
        }
        return descriptor;
    }
    std::size_t start = level;
    while (levels[start].descriptor < 0)
        --start; // the top always holds one
    int descriptor = levels[start].descriptor;
    for (std::size_t next = start + 1; next <= level; ++next) {
        ObjectIdentity identity;
        int const opened = openDirectory(descriptor, levels[next].name.c_str(), levels[next].followed, identity);
        if (descriptor != levels[start].descriptor)
            posix::closeObject(descriptor);
        if (opened < 0)
            return -1;
        if (identity != levels[next].identity) {
            posix::closeObject(opened);
            return -1;
        }
        descriptor = opened;
    }
    return descriptor;
}

} // namespace kelvo::filesystem::detail
