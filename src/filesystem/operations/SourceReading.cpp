// Sources opened without waiting on them, read with a bound when they are FIFOs or devices, and compared block by block.
#include "filesystem/operations/SourceReading.h"

#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/Waiting.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>


namespace kelvo::filesystem::detail {

namespace {

constexpr std::int64_t kSmallestBlock = 4096;
constexpr std::int64_t kLargestBlock = 262144;

bool isRegular(std::uint32_t mode) noexcept { return posix::kindOf(mode) == posix::ObjectKind::regularFile; }

// After a wrapper reported a failure: whether it would have had to wait.
bool wouldBlock() noexcept { return posix::lastFailureReason() == posix::FailureReason::wouldBlock; }

} // namespace

int openSource(int directory, char const* name, bool followLink, posix::ObjectInformation& information) noexcept
{
    int descriptor = posix::openAt(directory, name, posix::OpenIntent::readSource, followLink);
    if (descriptor < 0 && wouldBlock()) {
        // A regular file under a lease refuses a non-blocking open; it is
        // opened as any file is, which waits for the lease's holder. Nothing
        // else is opened blocking.
        posix::ObjectInformation named;
        if (!posix::statAt(directory, name, followLink, named) || !isRegular(named.mode)) {
            errno = EAGAIN;
            return -1;
        }
        descriptor = posix::openAt(directory, name, posix::OpenIntent::readSourceWaiting, followLink);
    }
    if (descriptor < 0)
        return -1;
    // A regular file keeps the non-blocking flag: it changes nothing for
    // reads of regular files, and taking it off would cost two calls a file.
    if (!posix::statDescriptor(descriptor, information)) {
        int const saved = errno;
        posix::closeObject(descriptor);
        errno = saved;
        return -1;
    }
    return descriptor;
}

SourceReader::SourceReader(int descriptor, std::uint32_t mode) noexcept
    : descriptor(descriptor), special(!isRegular(mode)), fifo(posix::kindOf(mode) == posix::ObjectKind::fifo)
{
}

long SourceReader::read(char* buffer, std::size_t count) noexcept
{
    long const got = readBounded(buffer, count);
    if (got < 0)
        failed = true;
    return got;
}

long SourceReader::readBounded(char* buffer, std::size_t count) noexcept
{
    if (!special)
        return posix::readSome(descriptor, buffer, count);
    if (cut || count == 0)
        return 0;
    // At the bound one more byte is asked for, only to tell a source that
    // ends right there from one that goes on.
    bool const atBound = total >= kSpecialFileLimit;
    std::size_t const wanted =
        atBound ? 1 : static_cast<std::size_t>(std::min<std::int64_t>(static_cast<std::int64_t>(count), kSpecialFileLimit - total));
    for (;;) {
        long const got = posix::readSome(descriptor, buffer, wanted);
        if (got > 0) {
            if (atBound) {
                cut = true;
                return 0;
            }
            total += got;
            return got;
        }
        if (got == 0) {
            // A FIFO nobody has opened for writing yet reads as ended at
            // once; its writer is given the same time to come as a silent
            // writer is given to go on, once.
            if (!fifo || total > 0 || waitedForWriter)
                return 0;
            waitedForWriter = true;
        } else if (posix::lastFailureReason() == posix::FailureReason::interrupted) {
            continue;
        } else if (!wouldBlock()) {
            return -1;
        }
        switch (posix::waitForInput(descriptor, kQuietMilliseconds)) {
        case posix::InputWait::ready:
            continue;
        case posix::InputWait::quiet:
            return 0;
        case posix::InputWait::failed:
            return -1;
        }
    }
}

namespace {

// Reads until `count` bytes are in, a read gives nothing, or `expected`
// bytes (the size the status reported, when positive) are in: a file that
// has not changed ends there, so no read is spent on seeing its end. A read
// that fails counts as the end of the file, so the comparison loop ends.
std::size_t readFull(SourceReader& reader, char* buffer, std::size_t count, std::int64_t expected)
{
    std::size_t got = 0;
    while (got < count) {
        if (expected > 0 && static_cast<std::int64_t>(got) == expected)
            break;
        long const n = reader.read(buffer + got, count - got);
        if (n <= 0)
            break;
        got += static_cast<std::size_t>(n);
    }
    return got;
}

} // namespace

// A block one byte longer than a small file sees its end in the first pass.
bool sameContents(SourceReader& a, SourceReader& b, std::int64_t size)
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
            return !a.cutShort() && !b.cutShort();
        remaining -= static_cast<std::int64_t>(gotA);
    }
}

} // namespace kelvo::filesystem::detail
