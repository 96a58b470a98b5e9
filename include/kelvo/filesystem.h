// Umbrella header: the whole public interface of kelvo-filesystem.
#ifndef KELVO_FILESYSTEM_H
#define KELVO_FILESYSTEM_H

#include <kelvo/text/String.h>
#include <kelvo/text/TokenIterator.h>
#include <kelvo/text/Unicode.h>

#include <kelvo/filesystem/AtomicFile.h>
#include <kelvo/filesystem/Copying.h>
#include <kelvo/filesystem/DirectoryIterator.h>
#include <kelvo/filesystem/Failure.h>
#include <kelvo/filesystem/FileLock.h>
#include <kelvo/filesystem/FileMutex.h>
#include <kelvo/filesystem/FileStatus.h>
#include <kelvo/filesystem/Finding.h>
#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>
#include <kelvo/filesystem/PathHash.h>
#include <kelvo/filesystem/RecursiveDirectoryIterator.h>
#include <kelvo/filesystem/ShellPattern.h>
#include <kelvo/filesystem/TemporaryDirectory.h>
#include <kelvo/filesystem/TreeDifferences.h>
#include <kelvo/filesystem/Version.h>

#endif
