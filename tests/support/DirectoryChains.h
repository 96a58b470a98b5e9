// Test support: chains of directories far deeper than a path may be long,
// made through descriptors with plain system calls.
#ifndef KELVO_TESTS_SUPPORT_DIRECTORY_CHAINS_H
#define KELVO_TESTS_SUPPORT_DIRECTORY_CHAINS_H

#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace kelvo::testing {

/// Makes below `top` a chain of `depth` directories named "d" through
/// descriptors, so that no path grows with the depth. When
/// `emptyFileAtEveryLevel`, every level above the bottom also holds an empty
/// file "f"; when `bottomName` is not empty, the deepest directory holds the
/// file `bottomName` with `bottomContent`.
/// @returns true when all of it was made.
inline bool makeDirectoryChain(std::string const& top, int depth, std::string const& bottomName = {},
                               std::string const& bottomContent = {}, bool emptyFileAtEveryLevel = false)
{
    int descriptor = ::open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int level = 0; level < depth && descriptor >= 0; ++level) {
        bool made = true;
        if (emptyFileAtEveryLevel) {
            int const file = ::openat(descriptor, "f", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
            made = file >= 0;
            if (made)
                ::close(file);
        }
        int const next = made && ::mkdirat(descriptor, "d", 0755) == 0
                             ? ::openat(descriptor, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC)
                             : -1;
        ::close(descriptor);
        descriptor = next;
    }
    if (descriptor < 0)
        return false;
    bool written = true;
    if (!bottomName.empty()) {
        int const file = ::openat(descriptor, bottomName.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        written = file >= 0
            && ::write(file, bottomContent.data(), bottomContent.size()) == static_cast<ssize_t>(bottomContent.size());
        if (file >= 0)
            ::close(file);
    }
    ::close(descriptor);
    return written;
}

} // namespace kelvo::testing

#endif
