// The version of the library that was loaded, fixed when the library was compiled.
#include <kelvo/filesystem/Version.h>

namespace kelvo::filesystem {

namespace {

#define KELVO_FILESYSTEM_STRINGIFY_(x) #x
#define KELVO_FILESYSTEM_STRINGIFY(x) KELVO_FILESYSTEM_STRINGIFY_(x)

constexpr char kVersion[] = KELVO_FILESYSTEM_STRINGIFY(KELVO_FILESYSTEM_VERSION_MAJOR) "." KELVO_FILESYSTEM_STRINGIFY(
    KELVO_FILESYSTEM_VERSION_MINOR) "." KELVO_FILESYSTEM_STRINGIFY(KELVO_FILESYSTEM_VERSION_PATCH);

#undef KELVO_FILESYSTEM_STRINGIFY
#undef KELVO_FILESYSTEM_STRINGIFY_

} // namespace

char const* libraryVersion() noexcept { return kVersion; }

int libraryVersionNumber() noexcept { return KELVO_FILESYSTEM_VERSION; }

} // namespace kelvo::filesystem
