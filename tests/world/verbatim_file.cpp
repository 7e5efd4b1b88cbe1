#include "world/verbatim_file.h"

#include <stdexcept>
#include <string>

#include "fixtures/host_system.h"
#include "support/handle.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

// After the Windows types that it needs.
#include <winternl.h>

namespace updater {

namespace {

// The name that the system's own call takes. Wine ignores the letter case even there, unless it
// gets the name in the host's file system.
std::wstring SystemName(const std::filesystem::path& file) {
    if (!HasHostSystem()) {
        return LR"(\??\)" + file.native();
    }
    std::filesystem::path name(LR"(\??\unix)" + HostFileName(file.parent_path()));
    return (name.make_preferred() / file.filename()).native();
}

UniqueHandle CreateVerbatim(const std::filesystem::path& file) {
    const std::wstring name = SystemName(file);
    UNICODE_STRING text{};
    RtlInitUnicodeString(&text, name.c_str());
    OBJECT_ATTRIBUTES attributes{};
    InitializeObjectAttributes(&attributes, &text, 0, nullptr, nullptr);
    IO_STATUS_BLOCK status{};
    HANDLE handle = nullptr;
    const NTSTATUS result = NtCreateFile(
        &handle, GENERIC_WRITE | SYNCHRONIZE, &attributes, &status, nullptr, FILE_ATTRIBUTE_NORMAL,
        0, FILE_CREATE, FILE_NON_DIRECTORY_FILE | FILE_SYNCHRONOUS_IO_NONALERT, nullptr, 0);
    return OwnHandle(result < 0 ? nullptr : handle);
}

}  // namespace

std::filesystem::path VerbatimPath(const std::filesystem::path& path) {
    return LR"(\\?\)" + path.native();
}

VerbatimFile::VerbatimFile(const std::filesystem::path& filePath, std::string_view content)
    : path(VerbatimPath(filePath)) {
    const UniqueHandle file = CreateVerbatim(filePath);
    DWORD written = 0;
    if (!file || WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &written,
                           nullptr) == 0) {
        throw std::runtime_error("The system makes no file " + WideToUtf8(filePath.native()));
    }
}

VerbatimFile::~VerbatimFile() {
    DeleteFileW(path.c_str());
}

}  // namespace updater
