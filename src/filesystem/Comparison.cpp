// File and tree comparison: contents in large blocks through descriptors, trees listed through directory descriptors and sorted safely under the path ordering.
#include <kelvo/filesystem/Operations.h>

#include "PathInternal.h"
#include "SafeSort.h"
#include "TreeWalk.h"
#include "filesystem/posix/Tree.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace kelvo::filesystem {

namespace {

using detail::DescriptorListing;
using detail::ListedKind;
using detail::OwnedDescriptor;

constexpr std::int64_t kSmallestBlock = 4096;
constexpr std::int64_t kLargestBlock = 262144;

// Reads until `count` bytes are in, a read gives nothing, or `expected`
// bytes (the size the status reported, when positive) are in: a file that
// has not changed ends there, so no read is spent on seeing its end. A read
// that fails counts as the end of the file, as a short stream read always
// has, so the comparison loop ends.
std::size_t readFull(int descriptor, char* buffer, std::size_t count, std::int64_t expected)
{
    std::size_t got = 0;
    while (got < count) {
        if (expected > 0 && static_cast<std::int64_t>(got) == expected)
            break;
        long const n = posix::readSome(descriptor, buffer + got, count - got);
        if (n <= 0)
            break;
        got += static_cast<std::size_t>(n);
    }
    return got;
}

// Compares two open files of the same `size` block by block. A block one byte
// longer than a small file sees its end in the first pass.
bool compareOpenFiles(int a, int b, std::int64_t size)
{
    std::size_t const block = static_cast<std::size_t>(std::clamp(size + 1, kSmallestBlock, kLargestBlock));
    std::unique_ptr<char[]> const buffers(new char[2 * block]);
    char* const bufferA = buffers.get();
    char* const bufferB = buffers.get() + block;
    // Once the reported size is used up, every read goes to the system, so
    // content beyond it (a file that grew) is still compared.
    std::int64_t remaining = size;
    for (;;) {
        std::size_t const gotA = readFull(a, bufferA, block, remaining);
        std::size_t const gotB = readFull(b, bufferB, block, remaining);
        if (gotA != gotB)
            return false;
        if (std::memcmp(bufferA, bufferB, gotA) != 0)
            return false;
        if (gotB < block) // both at their ends: the counts agree
            return true;
        remaining -= static_cast<std::int64_t>(gotA);
    }
}

// Compares the files `nameA` of `directoryA` and `nameB` of `directoryB`
// once their sizes agree. A file that cannot be opened counts as equal.
bool compareFilesAt(int directoryA, char const* nameA, int flagsA,
                    int directoryB, char const* nameB, int flagsB, std::int64_t size)
{
    OwnedDescriptor a(nameA != nullptr ? posix::openAt(directoryA, nameA, O_RDONLY | flagsA) : -1);
    OwnedDescriptor b(nameB != nullptr ? posix::openAt(directoryB, nameB, O_RDONLY | flagsB) : -1);
    if (!a.isOpen() || !b.isOpen())
        return true;
    return compareOpenFiles(a.get(), b.get(), size);
}

// The kind the library's status gives, from a followed mode: single bits,
// tried in the order the status classification tries them.
FileType followedType(bool found, std::uint32_t mode)
{
    if (!found)
        return FileType::none;
    if ((mode & 040000) != 0)
        return FileType::directory;
    if ((mode & 0100000) != 0)
        return FileType::regularFile;
    if ((mode & 020000) != 0)
        return FileType::characterDevice;
    if ((mode & 010000) != 0)
        return FileType::fifo;
    return FileType::unknown;
}

struct ListedName {
    Path name;         // compared as paths compare
    std::string bytes; // the name as listed, to reach the entry by
    bool mayFollow;    // a link (or unreported kind): followed as the status does
};

std::vector<ListedName> listSorted(DescriptorListing& listing)
{
    std::vector<ListedName> names;
    while (dirent const* entry = listing.next()) {
        ListedKind const kind = detail::listedKind(*entry);
        names.push_back(ListedName{Path(static_cast<char const*>(entry->d_name)), entry->d_name,
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

bool compareListed(DescriptorListing& listingA, DescriptorListing& listingB)
{
    std::vector<ListedName> const namesA = listSorted(listingA);
    std::vector<ListedName> const namesB = listSorted(listingB);
    if (namesA.size() != namesB.size())
        return false;
    int const directoryA = listingA.descriptor();
    int const directoryB = listingB.descriptor();
    for (std::size_t i = 0; i < namesA.size(); ++i) {
        ListedName const& a = namesA[i];
        ListedName const& b = namesB[i];
        if (detail::compareDecomposed(PathNativeAccess::text(a.name), PathNativeAccess::text(b.name)) != 0)
            return false;
        posix::ObjectInformation informationA;
        posix::ObjectInformation informationB;
        bool const foundA = posix::statAt(directoryA, a.bytes.c_str(), true, informationA);
        bool const foundB = posix::statAt(directoryB, b.bytes.c_str(), true, informationB);
        FileType const type = followedType(foundA, informationA.mode);
        if (type != followedType(foundB, informationB.mode))
            return false;
        int const flagsA = a.mayFollow ? 0 : O_NOFOLLOW;
        int const flagsB = b.mayFollow ? 0 : O_NOFOLLOW;
        if (type == FileType::directory) {
            DescriptorListing subA(posix::openAt(directoryA, a.bytes.c_str(), O_RDONLY | O_DIRECTORY | flagsA));
            DescriptorListing subB(posix::openAt(directoryB, b.bytes.c_str(), O_RDONLY | O_DIRECTORY | flagsB));
            if (!compareListed(subA, subB))
                return false;
        } else {
            std::int64_t const sizeA = foundA ? informationA.size : -1;
            std::int64_t const sizeB = foundB ? informationB.size : -1;
            if (sizeA != sizeB)
                return false;
            if (!compareFilesAt(directoryA, a.bytes.c_str(), flagsA, directoryB, b.bytes.c_str(), flagsB, sizeA))
                return false;
        }
    }
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
    return compareFilesAt(posix::kWorkingDirectory, nativeA, 0, posix::kWorkingDirectory, nativeB, 0, size);
}

bool compareDirectories(Path const& a, Path const& b)
{
    char const* nativeA = PathNativeAccess::cStringForChange(a);
    char const* nativeB = PathNativeAccess::cStringForChange(b);
    if (nativeA == nullptr || nativeB == nullptr) // names no directory
        return false;
    if (!exists(a) || !exists(b))
        return false;
    // A directory that cannot be listed lists nothing, like a non-directory.
    DescriptorListing listingA(posix::openAt(posix::kWorkingDirectory, nativeA, O_RDONLY | O_DIRECTORY));
    DescriptorListing listingB(posix::openAt(posix::kWorkingDirectory, nativeB, O_RDONLY | O_DIRECTORY));
    return compareListed(listingA, listingB);
}

} // namespace kelvo::filesystem
