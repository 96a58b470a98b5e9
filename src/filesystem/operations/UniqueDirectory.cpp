// Making a new directory under a name nobody else holds: a prefix and a random number, taken with one mkdir.
#include <kelvo/filesystem/Operations.h>

#include "filesystem/path/PathInternal.h"
#include "filesystem/temporary/RandomNumber.h"
#include "filesystem/posix/System.h"

#include <cstdint>
#include <string>

namespace kelvo::filesystem {

namespace {

/// Only the owner may read, write or search the new directory.
constexpr std::uint32_t kPrivateDirectoryMode = 0700;
/// With 2^32 numbers to draw from, this many taken names in a row means that
/// something other than chance answers "taken" to every name.
constexpr int kMaximumAttempts = 10000;

} // namespace

Path createUniqueDirectory(Path const& base, kelvo::unicode::String const& prefix)
{
    std::string const start = prefix.toUTF8String();
    for (int attempt = 0; attempt < kMaximumAttempts; ++attempt) {
        Path candidate = base / Path(start + std::to_string(detail::drawRandomNumber()));
        // A name holding a NUL byte names no file: making it would make the
        // shorter name before the NUL instead.
        char const* const native = PathNativeAccess::cStringForChange(candidate);
        if (native == nullptr)
            return Path();
        switch (posix::makeDirectory(native, kPrivateDirectoryMode)) {
        case posix::MakeDirectoryResult::made:
            return candidate;
        case posix::MakeDirectoryResult::alreadyExists:
            break; // someone holds the name: draw again
        case posix::MakeDirectoryResult::failed:
            return Path();
        }
    }
    return Path();
}

} // namespace kelvo::filesystem
