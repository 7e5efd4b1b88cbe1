#include "end_to_end/update_records.h"

#include <algorithm>
#include <array>
#include <map>

#include "support/handle.h"
#include "support/status_file.h"
#include "support/windows_api.h"

namespace updater {

namespace {

const std::map<std::string, std::string>& Records() {
    static const std::map<std::string, std::string> records = {
        {"", ""},
        {"authorized", RecordText("authorized", "Administrator authorization accepted", 0)},
        {"ready", RecordText("ready", "Authorized helper is waiting for application exit", 0)},
        {"installing", RecordText("installing", "Installing verified package", 0)},
        {"succeeded", RecordText("succeeded", "Installed version 2.0.0.0", 0)},
        {"failed",
         RecordText("failed", "Inno Setup did not complete; exit code=7; previous program restored",
                    1)},
    };
    return records;
}

std::uint64_t Combine(DWORD high, DWORD low) {
    return (static_cast<std::uint64_t>(high) << 32U) | low;
}

}  // namespace

std::string RecordText(const std::string& state, const std::string& message, int exitCode) {
    return R"({"state":")" + state + R"(","message":")" + message + R"(","exitCode":)" +
           std::to_string(exitCode) + "}";
}

std::string RecordOf(const std::string& state) {
    return Records().at(state);
}

std::optional<RecordMark> MarkOfLastRecord(const std::filesystem::path& jobDirectory) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    const std::filesystem::path file = jobDirectory / kStatusFile;
    if (GetFileAttributesExW(file.c_str(), GetFileExInfoStandard, &data) == 0) {
        return std::nullopt;
    }
    return RecordMark{
        Combine(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime),
        Combine(data.nFileSizeHigh, data.nFileSizeLow)};
}

std::string StateOfRecord(const std::string& text) {
    const auto found =
        std::ranges::find(Records(), text, [](const auto& entry) { return entry.second; });
    return found == Records().end() ? "?" : found->first;
}

std::string LastRecordText(const std::filesystem::path& jobDirectory) {
    const std::filesystem::path file = jobDirectory / kStatusFile;
    const UniqueHandle handle = OwnHandle(CreateFileW(
        file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    std::string text;
    std::array<char, 4096> buffer{};
    DWORD count = 0;
    while (handle &&
           ReadFile(handle.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &count,
                    nullptr) != 0 &&
           count > 0) {
        text.append(buffer.data(), count);
    }
    return text;
}

std::optional<StatusRecord> FindLastRecord(const std::filesystem::path& jobDirectory) {
    if (!MarkOfLastRecord(jobDirectory)) {
        return std::nullopt;
    }
    return ParseStatusRecord(LastRecordText(jobDirectory));
}

}  // namespace updater
