// The free functions of kelvo::filesystem, every family at once: status (Status.h), path transformations (Transformations.h) and file operations (FileOperations.h).
#ifndef KELVO_FILESYSTEM_OPERATIONS_H
#define KELVO_FILESYSTEM_OPERATIONS_H

#include <kelvo/filesystem/FileOperations.h>
#include <kelvo/filesystem/Status.h>
#include <kelvo/filesystem/Transformations.h>

#endif
