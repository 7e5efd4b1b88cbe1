#include "application.h"

#include <windows.h>

#include <cstddef>
#include <stdexcept>

#include "controls.h"
#include "names.h"

namespace corvellan {

namespace {

constexpr DWORD kLongestPath = 32768;

}  // namespace

Application DescribeApplication() {
    std::wstring executable(kLongestPath, L'\0');
    executable.resize(GetModuleFileNameW(nullptr, executable.data(), kLongestPath));

    // With a buffer length of 0 the call hands out the resource itself.
    const wchar_t* version = nullptr;
    const int length = LoadStringW(GetModuleHandleW(nullptr), ID_VERSION_TEXT,
                                   reinterpret_cast<wchar_t*>(&version), 0);
    return {std::filesystem::path(executable).parent_path(),
            std::wstring(version, static_cast<std::size_t>(length))};
}

std::wstring ReadEnvironment(const wchar_t* name) {
    std::wstring value(kLongestPath, L'\0');
    value.resize(GetEnvironmentVariableW(name, value.data(), kLongestPath));
    return value;
}

std::filesystem::path UserDataDirectory() {
    const std::filesystem::path localData = ReadEnvironment(L"LOCALAPPDATA");
    if (localData.empty()) {
        throw std::runtime_error("The environment variable LOCALAPPDATA is not set");
    }
    std::filesystem::path directory = localData / kLocalDirectory;
    std::filesystem::create_directories(directory);
    return directory;
}

}  // namespace corvellan
