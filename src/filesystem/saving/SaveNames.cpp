// The names of a save's hidden files, the removal of stale ones, and the resolution of a save's target through symbolic links.
#include "filesystem/saving/SaveNames.h"

#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/Tree.h"
#include "filesystem/temporary/RandomNumber.h"

#include <chrono>
#include <cstdint>
#include <exception>
#include <random>
#include <vector>

namespace kelvo::filesystem::saving {

namespace {

constexpr char kRandomAlphabet[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
constexpr std::size_t kAlphabetSize = sizeof kRandomAlphabet - 1;

// The most links followed from a save's path, as the kernel allows in one
// path lookup.
constexpr int kMostLinks = 40;

bool isLetterOrDigit(char c) noexcept
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// One generator per thread, seeded once from the system's random source and
// the clock. Two processes that share a seed (a fork) only meet an existing
// name, which the creation then refuses, and draw again.
std::mt19937_64& generator()
{
    thread_local std::mt19937_64 engine = [] {
        std::uint64_t seed = static_cast<std::uint64_t>(
            std::chrono::steady_clock::now().time_since_epoch().count());
        try {
            seed ^= static_cast<std::uint64_t>(detail::drawRandomNumber()) << 32;
        } catch (std::exception const&) {
            // The clock alone: names only need to differ most of the time.
        }
        return std::mt19937_64(seed);
    }();
    return engine;
}

// @returns the directory part and the name part of `path` (native bytes).
void splitPath(std::string const& path, std::string& directory, std::string& name)
{
    std::string::size_type const slash = path.rfind('/');
    if (slash == std::string::npos) {
        directory = ".";
        name = path;
        return;
    }
    name = path.substr(slash + 1);
    // The directory keeps its own spelling but for the separators that end
    // it; "/" alone stays.
    std::string::size_type end = slash;
    while (end > 0 && path[end - 1] == '/')
        --end;
    directory = end == 0 ? std::string("/") : path.substr(0, end);
}

} // namespace

std::string hiddenPrefix(std::string_view name)
{
    std::size_t const room = kLongestName - 1 - (sizeof kHiddenMark - 1) - kRandomLength;
    std::string prefix = ".";
    prefix.append(name.substr(0, room));
    prefix.append(kHiddenMark);
    return prefix;
}

std::string newHiddenName(std::string const& prefix)
{
    std::string name = prefix;
    std::uint64_t drawn = generator()();
    for (std::size_t i = 0; i < kRandomLength; ++i) {
        name.push_back(kRandomAlphabet[drawn % kAlphabetSize]);
        drawn /= kAlphabetSize;
    }
    return name;
}

bool isHiddenName(std::string_view entry, std::string_view prefix) noexcept
{
    if (entry.size() != prefix.size() + kRandomLength || entry.substr(0, prefix.size()) != prefix)
        return false;
    for (char c : entry.substr(prefix.size())) {
        if (!isLetterOrDigit(c))
            return false;
    }
    return true;
}

std::size_t removeStaleHiddenFiles(int directory, std::string const& prefix) noexcept
{
    // The names are gathered first, so that the listing's stream is closed
    // before any is removed.
    std::vector<std::string> candidates;
    try {
        int const listed = posix::duplicateDescriptor(directory);
        if (listed < 0)
            return 0;
        posix::DirectoryStream* stream = posix::openDirectoryStream(listed);
        if (stream == nullptr)
            return 0;
        // A duplicated descriptor starts where the original's position was.
        posix::rewindDirectoryStream(stream);
        posix::ListedEntry entry;
        while (posix::readEntry(stream, entry) == posix::EntryRead::entry) {
            if (isHiddenName(std::string_view(entry.name, entry.length), prefix))
                candidates.emplace_back(entry.name, entry.length);
        }
        posix::closeDirectory(stream);
    } catch (std::exception const&) {
        return 0; // no memory for the names: the next save tries again
    }
    std::size_t removed = 0;
    for (std::string const& name : candidates) {
        int const opened = posix::openAt(directory, name.c_str(), posix::OpenIntent::readSource, false);
        if (opened < 0)
            continue;
        posix::ObjectInformation held;
        posix::ObjectInformation named;
        // A live save holds the lock for as long as its file exists; a file
        // whose lock is free was left by a save that ended without cleaning
        // up. The name must still lead to the locked file: another save may
        // have removed it and a new one taken the name meanwhile.
        if (posix::statDescriptor(opened, held) && posix::kindOf(held.mode) == posix::ObjectKind::regularFile
            && posix::tryExclusiveLock(opened) == posix::LockAttempt::taken
            && posix::statAt(directory, name.c_str(), false, named) && named.device == held.device
            && named.inode == held.inode && posix::unlinkAt(directory, name.c_str(), false))
            ++removed;
        posix::closeObject(opened);
    }
    return removed;
}

bool resolveTarget(std::string const& path, ResolvedTarget& resolved)
{
    std::string current = path;
    std::vector<char> contents(256);
    for (int followed = 0;; ++followed) {
        posix::SavedObject object;
        if (!posix::getSavedObject(current.c_str(), false, object)) {
            // An empty path names nothing to make either.
            if (posix::lastFailureReason() != posix::FailureReason::missing || current.empty())
                return false;
            resolved.exists = false;
            break;
        }
        if (object.kind == posix::ObjectKind::regularFile) {
            resolved.exists = true;
            resolved.object = object;
            break;
        }
        if (object.kind != posix::ObjectKind::symbolicLink) {
            posix::recordRefusedTarget(current.c_str(), object.kind);
            return false;
        }
        if (followed == kMostLinks) {
            // Let the system say what it says of such a chain.
            posix::getSavedObject(current.c_str(), true, object);
            return false;
        }
        std::int64_t length = 0;
        for (;;) {
            length = posix::readLinkContents(current.c_str(), contents.data(), contents.size());
            if (length < 0)
                return false;
            if (static_cast<std::size_t>(length) < contents.size())
                break;
            contents.resize(contents.size() * 2);
        }
        std::string const linkText(contents.data(), static_cast<std::size_t>(length));
        if (!linkText.empty() && linkText[0] == '/') {
            current = linkText;
        } else {
            std::string directory;
            std::string name;
            splitPath(current, directory, name);
            current = directory == "/" ? "/" + linkText : directory + "/" + linkText;
        }
    }
    splitPath(current, resolved.directory, resolved.name);
    if (resolved.name.empty()) {
        // "new/": nothing there, and a name that ends in "/" is a directory's.
        posix::recordRefusedTarget(current.c_str(), posix::ObjectKind::directory);
        return false;
    }
    resolved.path = std::move(current);
    return true;
}

} // namespace kelvo::filesystem::saving
