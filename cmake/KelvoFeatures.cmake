# Probes for the operating system's features, turned into KELVO_HAS_* definitions for the library's platform files.
include(CheckCXXSourceCompiles)

check_cxx_source_compiles([[
#include <dirent.h>
int main() { struct dirent e{}; return e.d_type == DT_LNK ? 0 : 1; }
]] KELVO_HAS_DIRENT_D_TYPE)

check_cxx_source_compiles([[
#include <sys/stat.h>
int main() { struct stat s{}; return static_cast<int>(s.st_mtim.tv_nsec + s.st_atim.tv_nsec); }
]] KELVO_HAS_STAT_MTIM)

check_cxx_source_compiles([[
#include <sys/stat.h>
int main() { struct stat s{}; return static_cast<int>(s.st_mtimespec.tv_nsec + s.st_atimespec.tv_nsec); }
]] KELVO_HAS_STAT_MTIMESPEC)

# A version of a function for the processor's AVX2 instructions beside the
# portable one, chosen once at run time by what the processor reports.
check_cxx_source_compiles([[
#if !defined(__x86_64__)
#error only offered for x86-64 here
#endif
__attribute__((target("avx2"))) int twiceWide(int x) { return 2 * x; }
int twice(int x) { return x + x; }
int main() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") ? twiceWide(0) : twice(0);
}
]] KELVO_HAS_AVX2_DISPATCH)

set(KELVO_FEATURE_DEFINITIONS "")
foreach(feature KELVO_HAS_DIRENT_D_TYPE KELVO_HAS_STAT_MTIM KELVO_HAS_STAT_MTIMESPEC KELVO_HAS_AVX2_DISPATCH)
    if(${feature})
        list(APPEND KELVO_FEATURE_DEFINITIONS ${feature}=1)
    endif()
endforeach()
