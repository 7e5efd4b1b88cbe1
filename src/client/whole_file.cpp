#include "client/whole_file.h"

#include <algorithm>
#include <span>

#include "client/failure.h"
#include "support/file_reading.h"
#include "support/file_writing.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

// ERROR_DISK_QUOTA_EXCEEDED, which is not in every toolchain's headers.
constexpr DWORD kDiskQuotaExceeded = 1295;

constexpr int kMostTries = 20;
constexpr DWORD kPauseMilliseconds = 50;

constexpr std::wstring_view kDraftEnd = L".tmp";

// Another process or thread that writes the same file has another name.
std::filesystem::path DraftOf(const std::filesystem::path& file) {
    std::filesystem::path draft = file;
    draft += L'.' + std::to_wstring(GetCurrentProcessId()) + L'-' +
             std::to_wstring(GetCurrentThreadId());
    draft += kDraftEnd;
    return draft;
}

bool TakeStart(std::wstring_view& text, std::wstring_view start) {
    const bool isThere = text.starts_with(start);
    text.remove_prefix(isThere ? start.size() : 0);
    return isThere;
}

bool TakeNumber(std::wstring_view& text) {
    const std::size_t length = std::min(text.find_first_not_of(L"0123456789"), text.size());
    text.remove_prefix(length);
    return length > 0;
}

// Access is also denied for good; Windows does not say which it is of a file that is to be replaced
// while somebody has it open.
bool MayBeInUse(DWORD error) noexcept {
    return error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED;
}

// Tries until the operation returns true. When it returns false in the end, the last error is the
// operation's.
template <typename Operation>
bool TryWhileInUse(Operation operation) {
    for (int tries = 1; !operation(); ++tries) {
        if (tries == kMostTries || !MayBeInUse(GetLastError())) {
            return false;
        }
        Sleep(kPauseMilliseconds);
    }
    return true;
}

bool ReachesTheDisk(const std::filesystem::path& file) noexcept {
    const UniqueHandle handle =
        OwnHandle(CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    return handle && FlushFileBuffers(handle.get()) != 0;
}

}  // namespace

std::optional<std::string> ReadFileUpTo(const std::filesystem::path& file, std::size_t limit) {
    UniqueHandle handle;
    if (!TryWhileInUse([&] { return (handle = OpenFileToRead(file)) != nullptr; })) {
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
    if (!OverwriteFile(draft, content) || !ReachesTheDisk(draft) || !MoveWholeFile(draft, file)) {
        const DWORD error = GetLastError();
        DeleteFileW(draft.c_str());
        RaiseFileFailure(kCannotWrite, file, error);
    }
}

bool MoveWholeFile(const std::filesystem::path& from, const std::filesystem::path& target) {
    return TryWhileInUse([&] {
        return MoveFileExW(from.c_str(), target.c_str(),
                           MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
    });
}

bool IsDraftOf(std::wstring_view file, std::wstring_view name) {
    return TakeStart(name, file) && TakeStart(name, L".") && TakeNumber(name) &&
           TakeStart(name, L"-") && TakeNumber(name) && name == kDraftEnd;
}

UniqueHandle TakeLockFile(const std::filesystem::path& file) {
    UniqueHandle lock;
    TryWhileInUse([&] {
        lock = OwnHandle(CreateFileW(file.c_str(), GENERIC_WRITE | DELETE, 0, nullptr, OPEN_ALWAYS,
                                     FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
        return lock != nullptr;
    });
    return lock;
}

AppUpdateResult FileFailureResult(unsigned long error) noexcept {
    const bool isFull =
        error == ERROR_DISK_FULL || error == ERROR_HANDLE_DISK_FULL || error == kDiskQuotaExceeded;
    return isFull ? APP_UPDATE_DISK_FULL : APP_UPDATE_FILE_ERROR;
}

void RaiseFileFailure(std::string_view operation, const std::filesystem::path& path,
                      unsigned long error) {
    throw ClientFailure(FileFailureResult(error),
                        std::string(operation) + ' ' + WideToUtf8(path.native()), error);
}

}  // namespace updater
