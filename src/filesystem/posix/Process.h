// The process-level calls behind the temporary-directory locations and the file mutex: the environment and fork handlers.
#ifndef KELVO_SRC_FILESYSTEM_POSIX_PROCESS_H
#define KELVO_SRC_FILESYSTEM_POSIX_PROCESS_H

// Thin wrappers, in the manner of System.h: one call each, a plain result,
// errno left as the call set it.
namespace kelvo::filesystem::posix {

/// Reads the environment variable `name` with `getenv`.
/// @returns its value (owned by the environment, valid until the environment
/// changes), which may be empty; null when the variable is not set.
char const* getEnvironmentVariable(char const* name) noexcept;

/// Registers handlers that `fork` runs: `prepare` in the parent before the
/// fork, `parent` in the parent and `child` in the new child after it (any of
/// them may be null), with `pthread_atfork`.
/// @returns true on success, false when the system refuses (no memory).
bool registerForkHandlers(void (*prepare)(), void (*parent)(), void (*child)()) noexcept;

} // namespace kelvo::filesystem::posix

#endif
