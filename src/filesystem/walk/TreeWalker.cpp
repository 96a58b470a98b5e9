// The recursive walk's engine: entering, listing and leaving directories on the shared stack, deciding what to enter by the exact listed kind, and building each entry's path from its directory's path and the listed name.
#include "filesystem/walk/TreeWalker.h"

#include <kelvo/filesystem/PathHash.h>

#include "filesystem/path/PathInternal.h"
#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/Tree.h"
#include "filesystem/status/ListedEntry.h"
#include "text/Encoding.h"

#include <algorithm>
#include <cstdint>
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
    if (std::memchr(name, '\\', size) == nullptr)
        return;
    for (std::size_t i = start; i < out.size(); ++i) {
        if (out[i] == '\\')
            out[i] = '/';
    }
}

// The longest name widened on the machine stack; Linux names are at most 255
// bytes, longer ones go through the heap.
constexpr std::size_t kShortName = 256;

// Appends the text of the name at `name` to `out`, each backslash made "/" as
// a path built from the bytes has it: ASCII widened as it is, in the same
// pass that finds it is ASCII; anything else decoded and decomposed through
// `room`.
// @returns true when the name is ASCII.
bool appendName(String& out, char const* name, std::size_t size, String& room)
{
    if (size <= kShortName) {
        char32_t wide[kShortName];
        auto const* const bytes = reinterpret_cast<unsigned char const*>(name);
        unsigned high = 0;
        std::size_t i = 0;
        // Eight bytes a step, a fixed count the compiler widens in registers;
        // names are mostly shorter than its loops over unknown counts pay off.
        for (; i + 8 <= size; i += 8) {
            for (std::size_t k = 0; k < 8; ++k) {
                high |= bytes[i + k];
                wide[i + k] = bytes[i + k];
            }
        }
        for (; i < size; ++i) {
            high |= bytes[i];
            wide[i] = bytes[i];
        }
        if ((high & 0x80) == 0) {
            if (std::memchr(name, '\\', size) != nullptr) {
                for (std::size_t i = 0; i < size; ++i)
                    wide[i] = wide[i] == U'\\' ? U'/' : wide[i];
            }
            out.append(wide, size);
            return true;
        }
    }
    bool const ascii = kelvo::unicode::detail::isASCII(name, size);
    if (ascii)
        room.assign(name, name + size);
    else
        kelvo::unicode::detail::decodeUTF8ToNFD(name, size, room);
    for (char32_t& c : room)
        c = c == U'\\' ? U'/' : c;
    out.append(room.data(), room.size());
    return ascii;
}

// @returns true when the `size` bytes at `bytes` are all ASCII and none is a
// backslash; eight bytes a step, the last step overlapping the one before.
bool plainASCII(unsigned char const* bytes, std::size_t size) noexcept
{
    constexpr std::uint64_t kOnes = 0x0101010101010101ULL;
    constexpr std::uint64_t kHigh = 0x8080808080808080ULL;
    auto const flagged = [](std::uint64_t word) noexcept {
        std::uint64_t const backslashes = word ^ (kOnes * '\\');
        // A byte of `backslashes` is zero where `word` held a backslash, and
        // the usual test for a zero byte is exact as to whether there is one.
        return ((word | ((backslashes - kOnes) & ~backslashes)) & kHigh) != 0;
    };
    if (size < 8) {
        for (std::size_t i = 0; i < size; ++i) {
            if (bytes[i] >= 0x80 || bytes[i] == '\\')
                return false;
        }
        return true;
    }
    std::uint64_t word;
    std::size_t i = 0;
    for (; i + 8 <= size; i += 8) {
        std::memcpy(&word, bytes + i, 8);
        if (flagged(word))
            return false;
    }
    if (i == size)
        return true;
    std::memcpy(&word, bytes + size - 8, 8);
    return !flagged(word);
}

// Appends the name at `name` to the path's text `text` and to its native
// form `native` at once, each backslash made "/" in both as a path built
// from the bytes has it. A short ASCII name is widened in the one pass that
// finds it is ASCII and has no backslash; any other goes through
// `appendName` (its native form keeps the bytes).
// @returns true when the name is ASCII.
bool appendListedName(String& text, std::string& native, char const* name, std::size_t size, String& room)
{
    std::size_t const nativeStart = native.size();
    native.append(name, size);
    if (size <= kShortName) {
        char32_t wide[kShortName];
        auto const* const bytes = reinterpret_cast<unsigned char const*>(name);
        if (plainASCII(bytes, size)) {
            // No early exit: the compiler widens this many bytes a step.
            for (std::size_t i = 0; i < size; ++i)
                wide[i] = bytes[i];
            text.append(wide, size);
            return true;
        }
    }
    for (std::size_t i = nativeStart; i < native.size(); ++i) {
        if (native[i] == '\\')
            native[i] = '/';
    }
    return appendName(text, name, size, room);
}

// The same after one separator.
bool appendTextName(String& out, char const* name, std::size_t size, String& room)
{
    if (!out.empty() && out.back() != U'/')
        out.push_back(U'/');
    return appendName(out, name, size, room);
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
    rootIsASCII = kelvo::unicode::detail::isASCII(rootNative.data(), rootNative.size());
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
    // The walk lists each directory once, right after opening it.
    if (!level.listing.read(stack->descriptor(), true)) {
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
    // The previous entry's text and native form are taken back and rebuilt:
    // when they were made in the same directory, only the name changes.
    // `current` is this walker's own entry, and its path is replaced right
    // after.
    OwnedText text;
    OwnedNative native;
    PathNativeAccess::takeApart(const_cast<Path&>(current.getPath()), text, native);
    if (text != nullptr && native != nullptr && builtFor == directoryVersion) {
        text->resize(prefixLength);
        native->resize(nativePrefixLength);
    } else {
        if (text == nullptr)
            text.reset(acquireText());
        if (native == nullptr)
            native.reset(acquireNative());
        text->assign(directoryText);
        if (!text->empty() && text->back() != U'/')
            text->push_back(U'/');
        native->assign(directoryNative);
        if (!native->empty() && native->back() != '/')
            native->push_back('/');
        prefixLength = text->size();
        nativePrefixLength = native->size();
        builtFor = directoryVersion;
    }
    bool const ascii = appendListedName(*text, *native, name, size, decoded);
    // The native form keeps the bytes of the root and of every name, whatever
    // their composition and even when they are not UTF-8. When all of it is
    // ASCII it is the text itself, and marked so: copies of the entry then
    // leave it to be made again on first use instead of copying it.
    std::string* const made = native.release();
    return PathNativeAccess::adopt(std::move(text),
                                   OwnedNative(ascii && !level.carries && rootIsASCII
                                                   ? PathNativeAccess::markedPlain(made)
                                                   : made));
}

void TreeWalker::yield(Level const& level, std::size_t index, posix::ObjectKind kind, std::size_t depth)
{
    relistEntry(current, entryPath(level, index), kind);
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
        return leaveLevel() ? Descent::notEntered : Descent::stopped;
    }
    if (levels.size() == depthIn)
        levels.push_back(std::make_unique<Level>());
    Level& level = *levels[depthIn];
    level.textLength = directoryText.size();
    level.nativeLength = directoryNative.size();
    level.index = index;
    level.kind = kind;
    std::size_t const size = parent.listing.nameLength(index);
    level.carries = !appendTextName(directoryText, name, size, decoded) || parent.carries;
    appendNativeName(directoryNative, name, size);
    ++directoryVersion;
    ++depthIn;
    listCurrent(level);
    return done ? Descent::stopped : Descent::entered;
}

bool TreeWalker::leaveLevel()
{
    unsigned long const before = posix::failureCount();
    if (stack->leave())
        return true;
    // The directory above is no longer reached as the one the walk came
    // from: the tree was moved under the walk, which cannot go on.
    if (posix::failureCount() == before)
        posix::recordRefusal("openat", posix::Refusal::treeChanged, stack->pathOf(".."));
    report();
    finish();
    return false;
}

bool TreeWalker::ascend()
{
    if (!leaveLevel())
        return false;
    Level const& level = *levels[depthIn - 1];
    directoryText.resize(level.textLength);
    directoryNative.resize(level.nativeLength);
    ++directoryVersion;
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
