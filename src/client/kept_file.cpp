#include "client/kept_file.h"

#include <span>

#include "client/failure.h"
#include "support/file_reading.h"
#include "support/handle.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

[[noreturn]] void RaiseCannotWrite(const std::filesystem::path& file, DWORD error) {
    const bool full = error == ERROR_DISK_FULL || error == ERROR_HANDLE_DISK_FULL;
    throw ClientFailure(full ? APP_UPDATE_DISK_FULL : APP_UPDATE_FILE_ERROR,
                        "Cannot write " + WideToUtf8(file.native()), error);
}

// Returns the Windows error number, 0 for success.
DWORD WriteNewFile(const std::filesystem::path& file, std::string_view content) {
    const UniqueHandle handle = OwnHandle(CreateFileW(
        file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!handle) {
        return GetLastError();
    }
    DWORD written = 0;
    if (WriteFile(handle.get(), content.data(), static_cast<DWORD>(content.size()), &written,
                  nullptr) == 0) {
        return GetLastError();
    }
    return written == content.size() ? ERROR_SUCCESS : ERROR_DISK_FULL;
}

}  // namespace

std::optional<std::string> ReadKeptFile(const std::filesystem::path& file, std::size_t limit) {
    const UniqueHandle handle = OwnHandle(CreateFileW(
        file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    std::string content;
    const auto append = [&content, limit](std::span<const char> portion) {
        content.append(portion.data(), portion.size());
        return content.size() <= limit;
    };
    return handle && VisitPortions(handle.get(), append) ? std::optional(content) : std::nullopt;
}

void ReplaceKeptFile(const std::filesystem::path& file, std::string_view content) {
    std::filesystem::path draft = file;
    draft += L".new";
    DWORD error = WriteNewFile(draft, content);
    if (error == ERROR_SUCCESS &&
        MoveFileExW(draft.c_str(), file.c_str(),
                    MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) == 0) {
        error = GetLastError();
    }
    if (error != ERROR_SUCCESS) {
        DeleteFileW(draft.c_str());
        RaiseCannotWrite(file, error);
    }
}

}  // namespace updater
