#include "hardening/source_access.h"

namespace updater::doubles {

REPLACE_IMPORTED(CreateFileW, createFile)
REPLACE_IMPORTED(DeleteFileW, deleteFile)
REPLACE_IMPORTED(FindFirstFileExW, findFirstFileEx)
REPLACE_IMPORTED(GetFileAttributesW, getFileAttributes)
REPLACE_IMPORTED(GetFullPathNameW, getFullPathName)
REPLACE_IMPORTED(SetFileAttributesW, setFileAttributes)

}  // namespace updater::doubles
