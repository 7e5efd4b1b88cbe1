#include "text.h"

#include <windows.h>

#include <array>
#include <cstddef>

#include "handle.h"

namespace corvellan {

std::wstring Widen(std::string_view utf8) {
    const int size = static_cast<int>(utf8.size());
    const int length = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, wide.data(), length);
    return wide;
}

std::string Narrow(std::wstring_view wide) {
    const int size = static_cast<int>(wide.size());
    const int length =
        WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, utf8.data(), length, nullptr, nullptr);
    return utf8;
}

std::optional<std::string> ReadTextFile(const std::filesystem::path& file) {
    const UniqueHandle handle(CreateFileW(file.c_str(), GENERIC_READ,
                                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                          nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (handle.get() == INVALID_HANDLE_VALUE) {
        return std::nullopt;
    }
    std::string content;
    std::array<char, 4096> buffer{};
    DWORD count = 0;
    while (ReadFile(handle.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &count,
                    nullptr) != 0 &&
           count > 0) {
        content.append(buffer.data(), count);
    }
    return content;
}

}  // namespace corvellan
