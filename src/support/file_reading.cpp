#include "support/file_reading.h"

#include <cstddef>

#include "support/windows_api.h"

namespace updater {

namespace {

constexpr std::size_t kPortionBytes = 65536;

// Reads on until the buffer is full or the file ends, adding to `count` what it has read. Returns
// false when a read fails.
bool FillBuffer(HANDLE file, std::span<char> buffer, std::size_t& count) noexcept {
    DWORD bytes = 0;
    do {
        const std::span<char> rest = buffer.subspan(count);
        if (ReadFile(file, rest.data(), static_cast<DWORD>(rest.size()), &bytes, nullptr) == 0) {
            return false;
        }
        count += bytes;
    } while (bytes != 0 && count < buffer.size());
    return true;
}

}  // namespace

UniqueHandle OpenFileToRead(const std::filesystem::path& file) noexcept {
    return OwnHandle(CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                 nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

bool VisitPortions(HANDLE file, const PortionVisitor& visit) {
    // Not cleared: for a small file that would take longer than what is done with its bytes.
    char buffer[kPortionBytes];
    std::size_t count = 0;
    do {
        count = 0;
        const bool read = FillBuffer(file, buffer, count);
        if (!visit({buffer, count}) || !read) {
            return false;
        }
    } while (count == kPortionBytes);
    return true;
}

}  // namespace updater
