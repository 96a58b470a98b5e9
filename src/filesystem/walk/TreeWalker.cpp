// The recursive walk's engine: entering, listing and leaving directories on the shared stack, deciding what to enter by the exact listed kind, and building each entry's path from its directory's path and the listed name.
#include "filesystem/walk/TreeWalker.h"

#include <kelvo/filesystem/PathHash.h>

#include "filesystem/path/PathInternal.h"
#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/Tree.h"
#include "filesystem/status/ListedEntry.h"
#include "text/Encoding.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace kelvo::filesystem::detail {

namespace {

using kelvo::unicode::String;

// Appends the `size` name bytes at `name` to `out` after one separator, each
// backslash made "/" as a path built from the bytes has it.
void appendNativeName(std::string& out, char const* name, std::size_t size)
{
    if (!out.empty() && out.back() != '/')
        out.push_back('/');
    std::size_t const start = out.size();
    out.append(name, size);
    char* const bytes = &out[start];
    for (std::size_t i = 0; i < size; ++i) {
        if (bytes[i] == '\\')
            bytes[i] = '/';
    }
}

// Appends the text of the name at `name` to `out` after one separator: ASCII
// as it is, anything else decoded and decomposed through `room`, as a path
// built from the bytes reads it.
void appendTextName(String& out, char const* name, std::size_t size, bool ascii, String& room)
{
    if (!out.empty() && out.back() != U'/')
        out.push_back(U'/');
    if (ascii) {
        std::size_t const start = out.size();
        out.resize(start + size);
        char32_t* const text = out.data() + start;
        for (std::size_t i = 0; i < size; ++i) {
            char32_t const c = static_cast<unsigned char>(name[i]);
            text[i] = c == U'\\' ? U'/' : c;
        }
        return;
    }
    kelvo::unicode::detail::decodeUTF8ToNFD(name, size, room);
    for (char32_t& c : room)
        c = c == U'\\' ? U'/' : c;
    out.append(room.data(), room.size());
}

} // namespace

TreeWalker::TreeWalker(Path const& root, WalkOptions const& walkOptions) : options(walkOptions)
{
    stack = std::make_unique<DirectoryStack>();
    std::string const& rootNative = PathNativeAccess::native(root);
    if (!stack->open(posix::kWorkingDirectory, rootNative.c_str(), options.followSymbolicLinks)) {
        report();
        finish();
        return;
    }
    opened = true;
    done = false;
    rootDevice = stack->identity().device;
    directoryText = PathNativeAccess::text(root);
    directoryNative = rootNative;
    levels.push_back(std::make_unique<Level>());
    depthIn = 1;
    Level& top = *levels.front();
    top.carries = PathNativeAccess::nativeToCarry(root) != nullptr;
    if (options.maxDepth > 0)
        listCurrent(top);
}

TreeWalker::~TreeWalker() = default;

void TreeWalker::finish() noexcept
{
    done = true;
    stack.reset();
    levels.clear();
    depthIn = 0;
    current = DirectoryEntry();
    pending = Pending();
}

void TreeWalker::stop() noexcept { finish(); }

bool TreeWalker::report()
{
    met.push_back(lastFailure());
    if (options.onFailure == WalkFailurePolicy::stop) {
        finish();
        return false;
    }
    return true;
}

void TreeWalker::listCurrent(Level& level)
{
    level.next = 0;
    level.order.clear();
    if (!level.listing.read(stack->descriptor())) {
        posix::setFailurePath(stack->pathOf(nullptr));
        // What was read before the failure is left out with the rest: a
        // directory that could not be listed yields none of its contents.
        level.next = level.listing.size();
        report();
        return;
    }
    if (options.sortedByName && level.listing.size() > 1)
        sortListing(level);
}

void TreeWalker::sortListing(Level& level)
{
    Listing const& listing = level.listing;
    std::size_t const count = listing.size();
    std::vector<Path> keys;
    keys.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
        keys.emplace_back(listing.name(i));
    level.order.resize(count);
    for (std::size_t i = 0; i < count; ++i)
        level.order[i] = static_cast<std::uint32_t>(i);
    // Names equal the way paths compare (a case or composition twin) keep
    // the order of their bytes, so that the order never depends on the
    // system's.
    PathLess const less;
    std::sort(level.order.begin(), level.order.end(), [&](std::uint32_t a, std::uint32_t b) {
        if (less(keys[a], keys[b]))
            return true;
        if (less(keys[b], keys[a]))
            return false;
        return std::strcmp(listing.name(a), listing.name(b)) < 0;
    });
}

void TreeWalker::classify(Level const& level, std::size_t index, posix::ObjectKind& kind, bool& directory,
                          bool& follow)
{
    kind = level.listing.object(index);
    directory = false;
    follow = false;
    if (kind == posix::ObjectKind::directory) {
        directory = true;
        return;
    }
    if (kind != posix::ObjectKind::unknown && kind != posix::ObjectKind::symbolicLink)
        return;
    char const* const name = level.listing.name(index);
    posix::ObjectInformation information;
    if (kind == posix::ObjectKind::unknown) {
        // The listing did not say: the entry's own status does, and the
        // entry carries the kind it found.
        if (!posix::statAt(stack->descriptor(), name, false, information))
            return;
        kind = posix::kindOf(information.mode);
        if (kind == posix::ObjectKind::directory) {
            directory = true;
            return;
        }
    }
    if (kind != posix::ObjectKind::symbolicLink || !options.followSymbolicLinks)
        return;
    // Only what the link leads to exactly as a directory is entered: a
    // socket or block device behind it is yielded like any other entry.
    if (posix::statAt(stack->descriptor(), name, true, information)
        && posix::kindOf(information.mode) == posix::ObjectKind::directory) {
        directory = true;
        follow = true;
    }
}

Path TreeWalker::entryPath(Level const& level, std::size_t index)
{
    char const* const name = level.listing.name(index);
    std::size_t const size = level.listing.nameLength(index);
    bool const ascii = kelvo::unicode::detail::isASCII(name, size);
    OwnedText text(acquireText());
    text->reserve(directoryText.size() + 1 + size);
    text->append(directoryText.data(), directoryText.size());
    appendTextName(*text, name, size, ascii, decoded);
    OwnedNative native;
    if (level.carries || !ascii) {
        // The native form is not the composed text: it keeps the bytes of
        // the root and of every name, whatever their composition and even
        // when they are not UTF-8.
        native.reset(acquireNative());
        native->reserve(directoryNative.size() + 1 + size);
        native->append(directoryNative);
        appendNativeName(*native, name, size);
    }
    return PathNativeAccess::adopt(std::move(text), std::move(native));
}

void TreeWalker::yield(Level const& level, std::size_t index, posix::ObjectKind kind, std::size_t depth)
{
    current = listedEntry(entryPath(level, index), kind);
    currentDepth = depth;
}

TreeWalker::Descent TreeWalker::descend(std::size_t index, posix::ObjectKind kind, bool follow)
{
    Level& parent = *levels[depthIn - 1];
    char const* const name = parent.listing.name(index);
    switch (stack->enter(name, follow)) {
    case Entered::failed:
        // The stack has put the directory's path in the record.
        return report() ? Descent::notEntered : Descent::stopped;
    case Entered::loop:
        posix::recordRefusal("openat", posix::Refusal::loop, stack->pathOf(name));
        return report() ? Descent::notEntered : Descent::stopped;
    case Entered::entered:
        break;
    }
    if (options.sameFileSystem && stack->identity().device != rootDevice) {
        // A mount point: yielded, not entered.
        unsigned long const before = posix::failureCount();
        if (!stack->leave()) {
            if (posix::failureCount() == before)
                posix::recordRefusal("openat", posix::Refusal::treeChanged, stack->pathOf(".."));
            report();
            finish();
            return Descent::stopped;
        }
        return Descent::notEntered;
    }
    if (levels.size() == depthIn)
        levels.push_back(std::make_unique<Level>());
    Level& level = *levels[depthIn];
    level.textLength = directoryText.size();
    level.nativeLength = directoryNative.size();
    level.index = index;
    level.kind = kind;
    std::size_t const size = parent.listing.nameLength(index);
    bool const ascii = kelvo::unicode::detail::isASCII(name, size);
    level.carries = parent.carries || !ascii;
    appendTextName(directoryText, name, size, ascii, decoded);
    appendNativeName(directoryNative, name, size);
    ++depthIn;
    listCurrent(level);
    return done ? Descent::stopped : Descent::entered;
}

bool TreeWalker::ascend()
{
    unsigned long const before = posix::failureCount();
    if (!stack->leave()) {
        // The directory above is no longer reached as the one the walk came
        // from: the tree was moved under the walk, which cannot go on.
        if (posix::failureCount() == before)
            posix::recordRefusal("openat", posix::Refusal::treeChanged, stack->pathOf(".."));
        report();
        finish();
        return false;
    }
    Level const& level = *levels[depthIn - 1];
    directoryText.resize(level.textLength);
    directoryNative.resize(level.nativeLength);
    --depthIn;
    return true;
}

bool TreeWalker::advance()
{
    if (done)
        return false;
    if (pending.enter) {
        Pending const entering = pending;
        pending = Pending();
        if (descend(entering.index, entering.kind, entering.follow) == Descent::stopped)
            return false;
    }
    pending = Pending();
    bool const directoryLast = options.order == WalkOrder::directoryLast;
    for (;;) {
        Level& level = *levels[depthIn - 1];
        if (level.next == level.listing.size()) {
            if (depthIn == 1) {
                finish();
                return false;
            }
            std::size_t const index = level.index;
            posix::ObjectKind const kind = level.kind;
            if (!ascend())
                return false;
            if (directoryLast) {
                // Its contents are done: now the directory itself.
                yield(*levels[depthIn - 1], index, kind, depthIn);
                return true;
            }
            continue;
        }
        std::size_t const position = level.next++;
        std::size_t const index = level.order.empty() ? position : level.order[position];
        std::size_t const depth = depthIn;
        posix::ObjectKind kind;
        bool directory = false;
        bool follow = false;
        classify(level, index, kind, directory, follow);
        bool const enter = directory && depth < options.maxDepth;
        if (directoryLast && enter) {
            Descent const descent = descend(index, kind, follow);
            if (descent == Descent::stopped)
                return false;
            if (descent == Descent::entered)
                continue; // the directory comes after its contents
            // Not entered: yielded now, in its place.
        }
        yield(*levels[depthIn - 1], index, kind, depth);
        if (!directoryLast)
            pending = Pending{index, kind, enter, follow};
        return true;
    }
}

} // namespace kelvo::filesystem::detail
