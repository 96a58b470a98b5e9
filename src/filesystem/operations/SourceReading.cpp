// Sources opened without waiting on them, and read with a bound when they are FIFOs or devices.
#include "filesystem/operations/SourceReading.h"

#include "filesystem/posix/FailureRecord.h"
#include "filesystem/posix/Waiting.h"

#include <algorithm>
#include <cerrno>


namespace kelvo::filesystem::detail {

namespace {

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

} // namespace kelvo::filesystem::detail
