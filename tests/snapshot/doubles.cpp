#include "snapshot/doubles.h"

#include <functional>

namespace updater {

Replacement<decltype(CopyFileW)> copyFile;
Replacement<decltype(CreateDirectoryW)> createDirectory;
Replacement<decltype(DeleteFileW)> deleteFile;
Replacement<decltype(FindClose)> findClose;
Replacement<decltype(FindFirstFileExW)> findFirstFile;
Replacement<decltype(FindNextFileW)> findNextFile;
Replacement<decltype(GetFileAttributesExW)> getFileAttributesEx;
Replacement<decltype(GetFileAttributesW)> getFileAttributes;
Replacement<decltype(GetFileInformationByHandleEx)> getFileInformation;
Replacement<decltype(FileSha256Hex)> fileSha256Hex;

extern "C" {

extern decltype(&CopyFileW) __real___imp_CopyFileW;
decltype(&CopyFileW) __wrap___imp_CopyFileW = ImportDouble<copyFile, __real___imp_CopyFileW>::Call;

extern decltype(&CreateDirectoryW) __real___imp_CreateDirectoryW;
decltype(&CreateDirectoryW) __wrap___imp_CreateDirectoryW =
    ImportDouble<createDirectory, __real___imp_CreateDirectoryW>::Call;

extern decltype(&DeleteFileW) __real___imp_DeleteFileW;
decltype(&DeleteFileW) __wrap___imp_DeleteFileW =
    ImportDouble<deleteFile, __real___imp_DeleteFileW>::Call;

extern decltype(&FindClose) __real___imp_FindClose;
decltype(&FindClose) __wrap___imp_FindClose = ImportDouble<findClose, __real___imp_FindClose>::Call;

extern decltype(&FindFirstFileExW) __real___imp_FindFirstFileExW;
decltype(&FindFirstFileExW) __wrap___imp_FindFirstFileExW =
    ImportDouble<findFirstFile, __real___imp_FindFirstFileExW>::Call;

extern decltype(&FindNextFileW) __real___imp_FindNextFileW;
decltype(&FindNextFileW) __wrap___imp_FindNextFileW =
    ImportDouble<findNextFile, __real___imp_FindNextFileW>::Call;

extern decltype(&GetFileAttributesExW) __real___imp_GetFileAttributesExW;
decltype(&GetFileAttributesExW) __wrap___imp_GetFileAttributesExW =
    ImportDouble<getFileAttributesEx, __real___imp_GetFileAttributesExW>::Call;

extern decltype(&GetFileAttributesW) __real___imp_GetFileAttributesW;
decltype(&GetFileAttributesW) __wrap___imp_GetFileAttributesW =
    ImportDouble<getFileAttributes, __real___imp_GetFileAttributesW>::Call;

extern decltype(&GetFileInformationByHandleEx) __real___imp_GetFileInformationByHandleEx;
decltype(&GetFileInformationByHandleEx) __wrap___imp_GetFileInformationByHandleEx =
    ImportDouble<getFileInformation, __real___imp_GetFileInformationByHandleEx>::Call;

decltype(FileSha256Hex) __real__ZN7updater13FileSha256HexERKNSt10filesystem7__cxx114pathE;
decltype(FileSha256Hex) __wrap__ZN7updater13FileSha256HexERKNSt10filesystem7__cxx114pathE;
std::string __wrap__ZN7updater13FileSha256HexERKNSt10filesystem7__cxx114pathE(
    const std::filesystem::path& file) {
    return fileSha256Hex.Call(__real__ZN7updater13FileSha256HexERKNSt10filesystem7__cxx114pathE,
                              std::cref(file));
}

}  // extern "C"

}  // namespace updater
