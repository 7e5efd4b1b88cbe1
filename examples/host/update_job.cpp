#include "update_job.h"

#include <windows.h>

// After the Windows types that it needs.
#include <objbase.h>

#include <array>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>

#include "application.h"
#include "text.h"

namespace corvellan {

namespace {

constexpr wchar_t kUpdatesDirectory[] = L"updates";
constexpr wchar_t kLastUpdateFile[] = L"last-update.txt";
constexpr wchar_t kCancelMarker[] = L"cancel";
constexpr wchar_t kToldMarker[] = L"told";

std::wstring CreateUniqueName() {
    GUID identity;
    std::array<wchar_t, 40> text{};
    if (CoCreateGuid(&identity) != S_OK ||
        StringFromGUID2(identity, text.data(), static_cast<int>(text.size())) == 0) {
        throw std::runtime_error("Cannot make a name for the job directory");
    }
    return text.data();
}

void WriteFile(const std::filesystem::path& file, const std::string& content) {
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream << content;
    stream.close();
    if (!stream) {
        throw std::runtime_error("Cannot write " + Narrow(file.native()));
    }
}

}  // namespace

std::filesystem::path CreateJobDirectory() {
    const std::filesystem::path userData = UserDataDirectory();
    // What is still in use of earlier updates stays; that is no reason not to update.
    std::error_code ignored;
    std::filesystem::remove_all(userData / kUpdatesDirectory, ignored);

    std::filesystem::path job = userData / kUpdatesDirectory / CreateUniqueName();
    std::filesystem::create_directories(job);
    WriteFile(userData / kLastUpdateFile, Narrow(job.native()));
    return job;
}

std::optional<std::filesystem::path> LastJobDirectory() {
    const auto text = ReadTextFile(UserDataDirectory() / kLastUpdateFile);
    if (!text || text->empty()) {
        return std::nullopt;
    }
    return Widen(*text);
}

void RequestCancellation(const std::filesystem::path& jobDirectory) {
    WriteFile(jobDirectory / kCancelMarker, "");
}

bool WasOutcomeTold(const std::filesystem::path& jobDirectory) {
    return std::filesystem::exists(jobDirectory / kToldMarker);
}

void MarkOutcomeTold(const std::filesystem::path& jobDirectory) {
    // Without the marker the user is told again; nothing worse.
    const std::ofstream marker(jobDirectory / kToldMarker);
}

}  // namespace corvellan
