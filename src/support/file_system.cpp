#include "support/file_system.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "support/directory_listing.h"
#include "support/file_system_error.h"
#include "support/file_type.h"
#include "support/handle.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Calls a Windows function that fills a buffer of so many UTF-16 units and returns the length of
// the text, the length that it needs when the buffer is too small, or 0. Returns an empty text with
// the last error set on failure.
template <typename FillBuffer>
std::wstring TextFromWindows(FillBuffer fill) {
    std::wstring text(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = fill(text.data(), static_cast<DWORD>(text.size()));
        const bool fits = length < text.size();
        text.resize(length);
        if (fits) {
            return text;
        }
    }
}

// The final-path call answers in the form that switches the system's parsing of paths off, which
// users and other programs do not expect: \\?\C:\x is C:\x, and \\?\UNC\server\x is \\server\x.
std::wstring WithoutFinalPathPrefix(const std::wstring& path) {
    constexpr std::wstring_view kSharePrefix = L"\\\\?\\UNC\\";
    constexpr std::wstring_view kPrefix = L"\\\\?\\";
    if (path.starts_with(kSharePrefix)) {
        return L"\\\\" + path.substr(kSharePrefix.size());
    }
    const bool drive = path.size() > kPrefix.size() + 1 && path[kPrefix.size() + 1] == L':';
    return path.starts_with(kPrefix) && drive ? path.substr(kPrefix.size()) : path;
}

struct FinalPathResult {
    std::wstring path;
    DWORD error;
};

FinalPathResult FinalPath(const std::wstring& path) {
    const UniqueHandle handle =
        OwnHandle(CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                              FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!handle) {
        return {{}, GetLastError()};
    }
    const std::wstring name = TextFromWindows([&handle](wchar_t* buffer, DWORD units) {
        return GetFinalPathNameByHandleW(handle.get(), buffer, units,
                                         FILE_NAME_NORMALIZED | VOLUME_NAME_DOS);
    });
    if (name.empty()) {
        return {{}, GetLastError()};
    }
    return {WithoutFinalPathPrefix(name), ERROR_SUCCESS};
}

// The length of an absolute path's root: a drive with its separator, or the first two components
// of a share or device path with the separator after them.
std::size_t RootLength(std::wstring_view absolute) {
    if (!absolute.starts_with(L"\\\\")) {
        return std::min<std::size_t>(absolute.size(), 3);
    }
    const std::size_t firstEnd = absolute.find(L'\\', 2);
    const std::size_t secondEnd = firstEnd == std::wstring_view::npos
                                      ? std::wstring_view::npos
                                      : absolute.find(L'\\', firstEnd + 1);
    return secondEnd == std::wstring_view::npos ? absolute.size() : secondEnd + 1;
}

// The length of the path without its last component, or 0 when it is no longer than the root.
std::size_t ParentLength(std::wstring_view path, std::size_t rootLength) {
    if (path.size() <= rootLength) {
        return 0;
    }
    return std::max(path.find_last_of(L'\\'), rootLength);
}

constexpr char kWeaklyCanonical[] = "weakly_canonical";

std::wstring AbsolutePath(const std::filesystem::path& path) {
    std::wstring absolute = TextFromWindows([&path](wchar_t* buffer, DWORD units) {
        return GetFullPathNameW(path.c_str(), units, buffer, nullptr);
    });
    if (absolute.empty()) {
        RaiseFileSystemError(kWeaklyCanonical, GetLastError(), path);
    }
    return absolute;
}

std::filesystem::path AppendRest(const std::filesystem::path& existing, std::wstring_view rest) {
    const std::size_t first = rest.find_first_not_of(L'\\');
    return first == std::wstring_view::npos ? existing : existing / rest.substr(first);
}

// The attributes with which a file may not be overwritten; a read-only one may not be deleted, too.
constexpr DWORD kProtection =
    FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

bool ClearProtection(const std::filesystem::path& file) {
    const DWORD attributes = GetFileAttributesW(file.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & kProtection) != 0 &&
           SetFileAttributesW(file.c_str(), attributes & ~kProtection) != 0;
}

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

std::filesystem::path CanonicalPath(const std::filesystem::path& path) {
    const FinalPathResult result = FinalPath(path.native());
    if (result.error != ERROR_SUCCESS) {
        RaiseFileSystemError("canonical", result.error, path);
    }
    return result.path;
}

std::filesystem::path WeaklyCanonicalPath(const std::filesystem::path& path) {
    if (path.empty()) {
        return path;
    }
    const std::wstring absolute = AbsolutePath(path);
    const std::size_t rootLength = RootLength(absolute);
    std::size_t length = absolute.size();
    while (length > 0) {
        const FinalPathResult existing = FinalPath(absolute.substr(0, length));
        if (existing.error == ERROR_SUCCESS) {
            return AppendRest(existing.path, std::wstring_view(absolute).substr(length));
        }
        if (!IsNotFoundError(existing.error)) {
            RaiseFileSystemError(kWeaklyCanonical, existing.error, path);
        }
        length = ParentLength(std::wstring_view(absolute).substr(0, length), rootLength);
    }
    return absolute;
}

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
