#include "hardening/source_access.h"

namespace updater::doubles {

#define REPLACE_IMPORTED(function, replacement)                   \
    Replacement<decltype(function)> replacement;                  \
    extern "C" {                                                  \
    extern decltype(&(function)) __real___imp_##function;         \
    decltype(&(function)) __wrap___imp_##function =               \
        ImportDouble<replacement, __real___imp_##function>::Call; \
    }

REPLACE_IMPORTED(CreateFileW, createFile)
REPLACE_IMPORTED(DeleteFileW, deleteFile)
REPLACE_IMPORTED(FindFirstFileExW, findFirstFile)
REPLACE_IMPORTED(GetFileAttributesW, getAttributes)
REPLACE_IMPORTED(GetFullPathNameW, getFullPath)
REPLACE_IMPORTED(SetFileAttributesW, setAttributes)
REPLACE_IMPORTED(_wfopen, wideOpen)

}  // namespace updater::doubles
