#include "snapshot/doubles.h"

#include <functional>

namespace updater {

REPLACE_IMPORTED(CopyFileW, copyFile)
REPLACE_IMPORTED(CreateDirectoryW, createDirectory)
REPLACE_IMPORTED(DeleteFileW, deleteFile)
REPLACE_IMPORTED(FindClose, findClose)
REPLACE_IMPORTED(FindFirstFileExW, findFirstFileEx)
REPLACE_IMPORTED(FindNextFileW, findNextFile)
REPLACE_IMPORTED(GetFileAttributesExW, getFileAttributesEx)
REPLACE_IMPORTED(GetFileAttributesW, getFileAttributes)
REPLACE_IMPORTED(GetFileInformationByHandleEx, getFileInformationByHandleEx)
REPLACE_IMPORTED(ReadFile, readFile)

Replacement<decltype(FileSha256Hex)> fileSha256Hex;

extern "C" {

decltype(FileSha256Hex) __real__ZN7updater13FileSha256HexERKNSt10filesystem7__cxx114pathE;
decltype(FileSha256Hex) __wrap__ZN7updater13FileSha256HexERKNSt10filesystem7__cxx114pathE;
std::string __wrap__ZN7updater13FileSha256HexERKNSt10filesystem7__cxx114pathE(
    const std::filesystem::path& file) {
    return fileSha256Hex.Call(__real__ZN7updater13FileSha256HexERKNSt10filesystem7__cxx114pathE,
                              std::cref(file));
}

}  // extern "C"

}  // namespace updater
