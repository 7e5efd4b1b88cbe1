#include "update_status.h"

#include <windows.h>

#include <nlohmann/json.hpp>
#include <string_view>

#include "text.h"

namespace corvellan {

namespace {

constexpr wchar_t kStatusFile[] = L"status.json";

constexpr std::string_view kRestoredSuffix = "; previous program restored";
constexpr std::string_view kMismatchSuffix = "; restore version mismatch";

std::uint64_t Combine(DWORD high, DWORD low) {
    return static_cast<std::uint64_t>(high) << 32U | low;
}

std::wstring DescribeFailure(std::string_view message) {
    if (message.ends_with(kRestoredSuffix)) {
        message.remove_suffix(kRestoredSuffix.size());
        return L"The update failed and the previous program is in place: " + Widen(message);
    }
    if (message.ends_with(kMismatchSuffix)) {
        message.remove_suffix(kMismatchSuffix.size());
        return L"The update failed and the program may be damaged; please install it again: " +
               Widen(message);
    }
    return L"The update failed: " + Widen(message);
}

}  // namespace

std::optional<UpdateStatus> ReadUpdateStatus(const std::filesystem::path& jobDirectory) {
    const std::optional<std::string> text = ReadTextFile(jobDirectory / kStatusFile);
    if (!text) {
        return std::nullopt;
    }
    try {
        const nlohmann::json report = nlohmann::json::parse(*text);
        return UpdateStatus{report.at("state").get<std::string>(),
                            report.at("message").get<std::string>()};
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
}

std::uint64_t ReadStatusMark(const std::filesystem::path& jobDirectory) {
    // Asks the directory, not the file.
    WIN32_FIND_DATAW entry{};
    HANDLE search = FindFirstFileW((jobDirectory / kStatusFile).c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE) {
        return 0;
    }
    FindClose(search);
    return Combine(entry.ftLastWriteTime.dwHighDateTime, entry.ftLastWriteTime.dwLowDateTime) ^
           Combine(entry.nFileSizeLow, 0);
}

bool IsReadyForExit(const UpdateStatus& status) {
    return status.state == "ready";
}

bool IsOutcome(const UpdateStatus& status) {
    return status.state == "succeeded" || status.state == "failed" || status.state == "cancelled";
}

std::wstring DescribeStatus(const UpdateStatus& status, const std::wstring& version) {
    if (status.state == "succeeded") {
        return L"Updated to " + version;
    }
    if (status.state == "failed") {
        return DescribeFailure(status.message);
    }
    if (status.state == "cancelled") {
        return L"The update was cancelled: " + Widen(status.message);
    }
    return L"The update did not come to its end: " + Widen(status.message);
}

}  // namespace corvellan
