#include "support/file_system.h"

#include <vector>

#include "support/directory_listing.h"
#include "support/file_system_error.h"
#include "support/file_type.h"
#include "support/windows_api.h"

namespace updater {

namespace {

// The attributes with which a file may not be overwritten; a read-only one may not be deleted
// either.
constexpr DWORD kProtection =
    FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

// Carries out an operation that the attributes of `file` forbid: once more without them if they
// were in the way. Returns the Windows error number, 0 for success.
template <typename Operation>
DWORD ErrorDespiteProtection(const std::filesystem::path& file, Operation operation) {
    if (operation() != 0) {
        return ERROR_SUCCESS;
    }
    const DWORD error = GetLastError();
    if (error != ERROR_ACCESS_DENIED || !ClearProtection(file)) {
        return error;
    }
    return operation() != 0 ? ERROR_SUCCESS : GetLastError();
}

// What is already gone counts as removed.
void RemoveEntry(const std::filesystem::path& path, bool directory, const char* operation) {
    const DWORD error = ErrorDespiteProtection(path, [&path, directory] {
        return directory ? RemoveDirectoryW(path.c_str()) : DeleteFileW(path.c_str());
    });
    if (error != ERROR_SUCCESS && !IsNotFoundError(error)) {
        RaiseFileSystemError(operation, error, path);
    }
}

bool IsDirectory(const std::filesystem::path& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool IsLink(const std::filesystem::path& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES &&
           (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

}  // namespace

void CopyToNewFile(const std::filesystem::path& source, const std::filesystem::path& target) {
    if (CopyFileW(source.c_str(), target.c_str(), TRUE) == 0) {
        RaiseFileSystemError("copy_file", GetLastError(), source, target);
    }
}

void CopyOverFile(const std::filesystem::path& source, const std::filesystem::path& target) {
    const DWORD error = ErrorDespiteProtection(
        target, [&source, &target] { return CopyFileW(source.c_str(), target.c_str(), FALSE); });
    if (error != ERROR_SUCCESS) {
        RaiseFileSystemError("copy_file", error, source, target);
    }
}

std::uintmax_t FileSize(const std::filesystem::path& file) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (GetFileAttributesExW(file.c_str(), GetFileExInfoStandard, &data) == 0) {
        RaiseFileSystemError("file_size", GetLastError(), file);
    }
    return (std::uintmax_t{data.nFileSizeHigh} << 32U) | data.nFileSizeLow;
}

bool PathExists(const std::filesystem::path& path) {
    return QueryFileType(path, "exists") != std::filesystem::file_type::not_found;
}

void CreateDirectories(const std::filesystem::path& directory) {
    std::vector<std::filesystem::path> missing;
    std::filesystem::path ancestor = directory;
    while (!ancestor.empty() && !IsDirectory(ancestor)) {
        missing.push_back(ancestor);
        const std::filesystem::path parent = ancestor.parent_path();
        if (parent == ancestor) {
            break;
        }
        ancestor = parent;
    }
    for (; !missing.empty(); missing.pop_back()) {
        if (CreateDirectoryW(missing.back().c_str(), nullptr) == 0) {
            const DWORD error = GetLastError();
            if (!IsDirectory(missing.back())) {
                RaiseFileSystemError("create_directories", error, directory);
            }
        }
    }
}

bool ClearProtection(const std::filesystem::path& file) {
    const DWORD attributes = GetFileAttributesW(file.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & kProtection) != 0 &&
           SetFileAttributesW(file.c_str(), attributes & ~kProtection) != 0;
}

void RemoveFile(const std::filesystem::path& file) {
    RemoveEntry(file, false, "remove");
}

void RemoveTree(const std::filesystem::path& directory) {
    constexpr const char* kOperation = "remove_all";
    const bool isDirectory = IsDirectory(directory);
    if (!isDirectory || IsLink(directory)) {
        RemoveEntry(directory, isDirectory, kOperation);
        return;
    }
    std::vector<std::filesystem::path> directories = {directory};
    VisitTree(directory,
              [&](const ListedEntry& entry) {
                  const std::filesystem::path path = directory / entry.relativePath;
                  if (IsDirectory(path)) {
                      directories.push_back(path);
                  } else {
                      RemoveEntry(path, false, kOperation);
                  }
              },
              {kOperation, kOperation});
    for (; !directories.empty(); directories.pop_back()) {
        RemoveEntry(directories.back(), true, kOperation);
    }
}

}  // namespace updater
