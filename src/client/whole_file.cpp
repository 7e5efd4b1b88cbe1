#include "client/whole_file.h"

#include <span>

#include "client/failure.h"
#include "support/file_reading.h"
#include "support/file_writing.h"
#include "support/handle.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

// ERROR_DISK_QUOTA_EXCEEDED, which is not in every toolchain's headers.
constexpr DWORD kDiskQuotaExceeded = 1295;

// Another process or thread that writes the same file has another name.
std::filesystem::path DraftOf(const std::filesystem::path& file) {
    std::filesystem::path draft = file;
    draft += L'.' + std::to_wstring(GetCurrentProcessId()) + L'-' +
             std::to_wstring(GetCurrentThreadId()) + L".tmp";
    return draft;
}

bool ReachesTheDisk(const std::filesystem::path& file) noexcept {
    const UniqueHandle handle =
        OwnHandle(CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    return handle && FlushFileBuffers(handle.get()) != 0;
}

}  // namespace

std::optional<std::string> ReadFileUpTo(const std::filesystem::path& file, std::size_t limit) {
    const UniqueHandle handle = OpenFileToRead(file);
    if (!handle) {
        const DWORD error = GetLastError();
        // A path on the network that is away would be found later.
        if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) {
            return std::nullopt;
        }
        RaiseFileFailure(kCannotRead, file, error);
    }
    std::string content;
    const bool isComplete = VisitPortions(handle.get(), [&](std::span<char> portion) {
        content.append(portion.begin(), portion.end());
        return content.size() <= limit;
    });
    if (!isComplete && content.size() <= limit) {
        RaiseFileFailure(kCannotRead, file, GetLastError());
    }
    return content;
}

void ReplaceWholeFile(const std::filesystem::path& file, std::string_view content) {
    const std::filesystem::path draft = DraftOf(file);
    if (!OverwriteFile(draft, content) || !ReachesTheDisk(draft) ||
        MoveFileExW(draft.c_str(), file.c_str(),
                    MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) == 0) {
        const DWORD error = GetLastError();
        DeleteFileW(draft.c_str());
        RaiseFileFailure(kCannotWrite, file, error);
    }
}

void RaiseFileFailure(std::string_view operation, const std::filesystem::path& path,
                      unsigned long error) {
    const bool isFull =
        error == ERROR_DISK_FULL || error == ERROR_HANDLE_DISK_FULL || error == kDiskQuotaExceeded;
    throw ClientFailure(isFull ? APP_UPDATE_DISK_FULL : APP_UPDATE_FILE_ERROR,
                        std::string(operation) + ' ' + WideToUtf8(path.native()), error);
}

}  // namespace updater
