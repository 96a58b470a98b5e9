// Internal helpers shared by the path sources and the filesystem code: the text store, the path rules and native-form access.
#ifndef KELVO_SRC_FILESYSTEM_PATH_INTERNAL_H
#define KELVO_SRC_FILESYSTEM_PATH_INTERNAL_H

#include "filesystem/path/PathNativeAccess.h"
#include "filesystem/path/PathRules.h"
#include "filesystem/path/PathTextStore.h"

#endif
