// Symbol visibility for the shared library: only what carries KELVO_FILESYSTEM_API is exported.
#ifndef KELVO_EXPORT_H
#define KELVO_EXPORT_H

#if defined(_WIN32)
#  if defined(KELVO_FILESYSTEM_BUILDING)
#    define KELVO_FILESYSTEM_API __declspec(dllexport)
#  else
#    define KELVO_FILESYSTEM_API __declspec(dllimport)
#  endif
#else
#  define KELVO_FILESYSTEM_API __attribute__((visibility("default")))
#endif

#endif
