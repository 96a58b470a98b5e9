// The version of kelvo-filesystem: the numbers these headers belong to, and the version of the library a program runs with.
#ifndef KELVO_FILESYSTEM_VERSION_H
#define KELVO_FILESYSTEM_VERSION_H

#include <kelvo/export.h>

// The build reads the project's version from these three lines.
#define KELVO_FILESYSTEM_VERSION_MAJOR 0
#define KELVO_FILESYSTEM_VERSION_MINOR 1
#define KELVO_FILESYSTEM_VERSION_PATCH 0

/// The version as one number, major * 10000 + minor * 100 + patch, for
/// preprocessor comparisons.
#define KELVO_FILESYSTEM_VERSION \
    (KELVO_FILESYSTEM_VERSION_MAJOR * 10000 + KELVO_FILESYSTEM_VERSION_MINOR * 100 + KELVO_FILESYSTEM_VERSION_PATCH)

namespace kelvo::filesystem {

/// @returns the version of the library the program is running with, as
/// "MAJOR.MINOR.PATCH" (for example "0.1.0"): the version of the shared
/// library that was loaded, which may be newer than the headers the program
/// was compiled with. Never null.
KELVO_FILESYSTEM_API char const* libraryVersion() noexcept;

/// @returns the loaded library's version as one number, major * 10000 +
/// minor * 100 + patch, comparable with `KELVO_FILESYSTEM_VERSION`.
KELVO_FILESYSTEM_API int libraryVersionNumber() noexcept;

} // namespace kelvo::filesystem

#endif
