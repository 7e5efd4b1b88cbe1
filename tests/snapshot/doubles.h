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
extern Replacement<decltype(FindFirstFileExW)> findFirstFileEx;
extern Replacement<decltype(FindNextFileW)> findNextFile;
extern Replacement<decltype(GetFileAttributesExW)> getFileAttributesEx;
extern Replacement<decltype(GetFileAttributesW)> getFileAttributes;
extern Replacement<decltype(GetFileInformationByHandleEx)> getFileInformationByHandleEx;
extern Replacement<decltype(ReadFile)> readFile;
extern Replacement<decltype(FileSha256Hex)> fileSha256Hex;

}  // namespace updater
