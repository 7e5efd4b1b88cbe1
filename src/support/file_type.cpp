#include "support/file_type.h"

#include "support/file_system_error.h"
#include "support/handle.h"
#include "support/query_handle.h"
#include "support/windows_api.h"

namespace updater {

namespace {

using std::filesystem::file_type;

file_type TypeFromAttributes(DWORD attributes) {
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? file_type::directory : file_type::regular;
}

file_type TypeAfterFailedQuery(DWORD error, const std::filesystem::path& path,
                               const char* operation) {
    if (!IsNotFoundError(error)) {
        RaiseFileSystemError(operation, error, path);
    }
    return file_type::not_found;
}

// What a reparse point leads to takes an open handle.
file_type QueryTarget(const std::filesystem::path& link, const char* operation) {
    const UniqueHandle target = OpenForQuery(link);
    FILE_ATTRIBUTE_TAG_INFO info{};
    if (!target || GetFileInformationByHandleEx(target.get(), FileAttributeTagInfo, &info,
                                                sizeof(info)) == 0) {
        return TypeAfterFailedQuery(GetLastError(), link, operation);
    }
    return TypeFromAttributes(info.FileAttributes);
}

}  // namespace

std::filesystem::file_type QueryFileType(const std::filesystem::path& path, const char* operation) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) == 0) {
        return TypeAfterFailedQuery(GetLastError(), path, operation);
    }
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        return QueryTarget(path, operation);
    }
    return TypeFromAttributes(data.dwFileAttributes);
}

}  // namespace updater
