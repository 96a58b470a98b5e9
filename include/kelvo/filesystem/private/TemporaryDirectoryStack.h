// kelvo_private::filesystem temporary-directory functions: the system's temporary directory and the stack of overrides.
#ifndef KELVO_FILESYSTEM_PRIVATE_TEMPORARY_DIRECTORY_STACK_H
#define KELVO_FILESYSTEM_PRIVATE_TEMPORARY_DIRECTORY_STACK_H

#include <kelvo/export.h>
#include <kelvo/filesystem/Path.h>

// The stack is one per process and is not synchronised: push and pop from one
// thread, strictly nested, and do not query it from other threads while it
// changes. It can be used from static initialisers and during exit in any
// order: it is made on first use and never destroyed.
namespace kelvo_private::filesystem {

/// @returns the operating system's temporary directory: the value of the
/// first of "TMPDIR", "TMP", "TEMP", "TEMPDIR" that is set, byte for byte (a
/// variable set to the empty string gives the empty path), else "/tmp". Read
/// from the environment at every call; nothing is checked on disk.
KELVO_FILESYSTEM_API kelvo::filesystem::Path getOSTemporaryDirectoryInternal();

/// @returns a copy of the innermost override, or the operating system's
/// temporary directory when there is none.
KELVO_FILESYSTEM_API kelvo::filesystem::Path getTemporaryDirectoryInternal();

/// Pushes a copy of `path` as the current temporary directory. Nothing is
/// checked or created.
KELVO_FILESYSTEM_API void setTemporaryDirectoryInternal(kelvo::filesystem::Path const& path);

/// Pops the innermost override.
/// @returns true when one was popped; false, changing nothing, when there was
/// none.
KELVO_FILESYSTEM_API bool restoreTemporaryDirectoryInternal();

} // namespace kelvo_private::filesystem

#endif
