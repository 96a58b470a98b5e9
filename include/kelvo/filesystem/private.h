// Umbrella header of the exported kelvo_private::filesystem functions.
#ifndef KELVO_FILESYSTEM_PRIVATE_H
#define KELVO_FILESYSTEM_PRIVATE_H

#include <kelvo/filesystem/private/Compare.h>
#include <kelvo/filesystem/private/TemporaryDirectoryStack.h>

#endif
