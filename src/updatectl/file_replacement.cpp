#include "updatectl/file_replacement.h"

#include <memory>

#include "support/handle.h"
#include "support/windows_api.h"
#include "updatectl/output.h"
#include "updatectl/windows_error.h"

namespace updater {

namespace {

struct FileDeleter {
    using pointer = const wchar_t*;
    void operator()(const wchar_t* file) const noexcept { DeleteFileW(file); }
};
using UnfinishedFile = std::unique_ptr<const wchar_t, FileDeleter>;

void WriteNewFile(const std::filesystem::path& file, std::string_view content) {
    const UniqueHandle handle = OwnHandle(CreateFileW(
        file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    if (!handle || WriteFile(handle.get(), content.data(), static_cast<DWORD>(content.size()),
                             &written, nullptr) == 0) {
        const DWORD error = GetLastError();
        RaiseWindowsError("Cannot write " + PrintableText(file.native()), error);
    }
}

}  // namespace

void ReplaceContent(const std::filesystem::path& file, std::string_view content) {
    std::filesystem::path temporary = file;
    temporary += L".tmp";
    UnfinishedFile unfinished(temporary.c_str());
    WriteNewFile(temporary, content);
    if (MoveFileExW(temporary.c_str(), file.c_str(),
                    MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) == 0) {
        const DWORD error = GetLastError();
        RaiseWindowsError("Cannot write " + PrintableText(file.native()), error);
    }
    static_cast<void>(unfinished.release());
}

}  // namespace updater
