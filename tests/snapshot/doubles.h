#pragma once

#include <string>

#include "fixtures/replacement.h"
#include "support/file_digest.h"
#include "support/windows_api.h"

namespace updater {

// Doubles of what the snapshot operations call, for failures and events that cannot be provoked.
// The file operations of support/ lie between, and are the real ones.

extern Replacement<decltype(CopyFileW)> copyFile;
extern Replacement<decltype(CreateDirectoryW)> createDirectory;
extern Replacement<decltype(DeleteFileW)> deleteFile;
extern Replacement<decltype(FindClose)> findClose;
extern Replacement<decltype(FindFirstFileExW)> findFirstFile;
extern Replacement<decltype(FindNextFileW)> findNextFile;
extern Replacement<decltype(GetFileAttributesExW)> getFileAttributesEx;
extern Replacement<decltype(GetFileAttributesW)> getFileAttributes;
extern Replacement<decltype(GetFileInformationByHandleEx)> getFileInformation;
extern Replacement<decltype(FileSha256Hex)> fileSha256Hex;

/// What a failing Windows call returns after setting the last error.
inline BOOL FailWith(DWORD error) {
    SetLastError(error);
    return FALSE;
}

}  // namespace updater
