// Internal removal of a whole tree known by what it is, not only by its path: for callers that checked the tree before deleting it.
#ifndef KELVO_SRC_FILESYSTEM_TREE_REMOVAL_H
#define KELVO_SRC_FILESYSTEM_TREE_REMOVAL_H

#include "filesystem/operations/TreeWalk.h"

namespace kelvo::filesystem::detail {

/// Removes the directory at the native path `native` with everything in it,
/// as `removeAllInDir` does, but only when it is the object `expected`: the
/// final name is opened without following a link, and a directory that is
/// another object by now is left alone.
/// @returns true when the tree and the directory itself were deleted; false
/// when it is no longer `expected`, or at the first step that failed (what
/// was deleted before it stays deleted).
bool removeTreeOf(char const* native, ObjectIdentity const& expected);

} // namespace kelvo::filesystem::detail

#endif
