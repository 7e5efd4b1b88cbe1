#include "support/file_writing.h"

#include <algorithm>
#include <cstddef>

#include "support/handle.h"
#include "support/windows_api.h"

namespace updater {

bool OverwriteFile(const std::filesystem::path& file, std::string_view content) noexcept {
    // One call takes no more than 4 GiB, and need not write all that it takes.
    constexpr std::size_t kPortionBytes = 65536;
    const UniqueHandle handle =
        OwnHandle(CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    bool writing = static_cast<bool>(handle);
    while (writing && !content.empty()) {
        const auto portion = static_cast<DWORD>(std::min(content.size(), kPortionBytes));
        DWORD written = 0;
        writing = WriteFile(handle.get(), content.data(), portion, &written, nullptr) != 0 &&
                  written != 0;
        content.remove_prefix(written);
    }
    return writing;
}

}  // namespace updater
