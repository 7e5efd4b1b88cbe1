#include "support/file_type.h"

#include "support/file_system_error.h"
#include "support/handle.h"
#include "support/windows_api.h"

namespace updater {

namespace {

using std::filesystem::file_type;

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

file_type TypeFromAttributes(DWORD attributes) {
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? file_type::directory : file_type::regular;
}

// A reparse point's own kind, or its target's type, takes an open handle.
file_type QueryReparsePoint(const std::filesystem::path& path, Links links, const char* operation) {
    const DWORD openItself = links == Links::NotFollowed ? FILE_FLAG_OPEN_REPARSE_POINT : 0U;
    const UniqueHandle handle =
        OwnHandle(CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                              FILE_FLAG_BACKUP_SEMANTICS | openItself, nullptr));
    FILE_ATTRIBUTE_TAG_INFO info{};
    if (!handle || GetFileInformationByHandleEx(handle.get(), FileAttributeTagInfo, &info,
                                                sizeof(info)) == 0) {
        const DWORD error = GetLastError();
        if (IsNotFoundError(error)) {
            return file_type::not_found;
        }
        RaiseFileSystemError(operation, error, path);
    }
    if (links == Links::Followed || (info.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
        return TypeFromAttributes(info.FileAttributes);
    }
    return info.ReparseTag == IO_REPARSE_TAG_SYMLINK ? file_type::symlink : file_type::unknown;
}

}  // namespace

std::filesystem::file_type QueryFileType(const std::filesystem::path& path, Links links,
                                         const char* operation) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) == 0) {
        const DWORD error = GetLastError();
        if (IsNotFoundError(error)) {
            return file_type::not_found;
        }
        RaiseFileSystemError(operation, error, path);
    }
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        return QueryReparsePoint(path, links, operation);
    }
    return TypeFromAttributes(data.dwFileAttributes);
}

}  // namespace updater
