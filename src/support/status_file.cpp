#include "support/status_file.h"

#include <span>
#include <stdexcept>

#include "support/application_identity.h"
#include "support/file_reading.h"
#include "support/file_writing.h"
#include "support/handle.h"
#include "support/status_text.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

// Returns nothing for a file that is missing or cannot be read to its end.
std::string ReadWholeFile(const std::filesystem::path& path) {
    const UniqueHandle file = OpenFileToRead(path);
    std::string content;
    const bool complete = file && VisitPortions(file.get(), [&content](std::span<char> portion) {
                              content.append(portion.begin(), portion.end());
                              return true;
                          });
    return complete ? content : std::string();
}

}  // namespace

void WriteUpdateStatus(const std::filesystem::path& jobDirectory, std::string_view state,
                       std::string_view message, std::int32_t exitCode) {
    const std::filesystem::path temporary = jobDirectory / L"status.tmp";
    // Only the move decides. A file that could not be opened left nothing to move, or the record of
    // an earlier attempt; one that could not be written to the end, a record that is cut off.
    static_cast<void>(OverwriteFile(temporary, FormatStatusRecord(state, message, exitCode)));
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
