// The library's own entry to the system's canonical form of a path, shared by dot resolution, length checks and link copying.
#ifndef KELVO_SRC_FILESYSTEM_CANONICAL_NATIVE_H
#define KELVO_SRC_FILESYSTEM_CANONICAL_NATIVE_H

#include <kelvo/filesystem/Path.h>

#include <string>

namespace kelvo::filesystem {

/// Asks the system for the real, absolute, link-free form of the native path
/// `nativePath` (read up to its first NUL byte).
/// @returns a path holding exactly the bytes the system returned; an empty
/// path when the system fails for any reason (a missing element, no search
/// permission, a loop of links, a name too long).
/// @throws what building the `Path` throws (allocation failure); the system's
/// buffer is freed all the same.
Path canonicalNative(std::string const& nativePath);

} // namespace kelvo::filesystem

#endif
