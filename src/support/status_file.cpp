#include "support/status_file.h"

#include <array>
#include <cstddef>
#include <fstream>
#include <stdexcept>

#include "support/status_text.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

// "The update was not completed; record of the failure:" and a line feed.
constexpr wchar_t kStatusHeading[] =
    L"\u5347\u7EA7\u672A\u5B8C\u6210\uFF0C\u5931\u8D25\u8BB0\u5F55\uFF1A\n";

// Returns nothing for a file that is missing or cannot be read to its end.
std::string ReadWholeFile(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::string content;
    std::array<char, 4096> buffer{};
    while (stream.good()) {
        stream.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        content.append(buffer.data(), static_cast<std::size_t>(stream.gcount()));
    }
    return stream.bad() ? std::string() : content;
}

}  // namespace

void WriteUpdateStatus(const std::filesystem::path& jobDirectory, std::string_view state,
                       std::string_view message, std::int32_t exitCode) {
    const std::filesystem::path temporary = jobDirectory / L"status.tmp";
    std::ofstream stream(temporary, std::ios::binary | std::ios::trunc);
    stream << FormatStatusRecord(state, message, exitCode);
    stream.close();

    // Only the move decides. A stream that failed to open left nothing to move, or the record of an
    // earlier attempt; one that failed to write left a record that is cut off.
    if (MoveFileExW(temporary.c_str(), (jobDirectory / kStatusFile).c_str(),
                    MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) == 0) {
        throw std::runtime_error("Cannot write update status");
    }
}

std::wstring ReadStatusReport(const std::filesystem::path& jobDirectory) {
    return kStatusHeading + Utf8ToWide(ReadWholeFile(jobDirectory / kStatusFile)) + L"\n\n" +
           jobDirectory.native();
}

}  // namespace updater
