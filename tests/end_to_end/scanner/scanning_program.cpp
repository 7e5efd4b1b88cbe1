// scanning-program shared|exclusive READY-EVENT STOP-EVENT DIRECTORY
//
// As a virus scanner does, opens every file that comes into the directory or changes there, at any
// depth, and holds it for 300 ms: shared, so that others can do everything with it meanwhile, or
// exclusive. Files that are there at the beginning count as known; then it sets the first event. It
// ends when the second is set, with the number of files that it has held, 200 at the most.

#include <algorithm>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "support/directory_listing.h"
#include "support/handle.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr ULONGLONG kHoldMilliseconds = 300;
constexpr DWORD kPauseMilliseconds = 5;
constexpr int kMostReported = 200;
constexpr int kWrongUsage = 201;

// Size and time of the last change.
using FileState = std::pair<std::uint64_t, std::uint64_t>;
using Files = std::map<std::filesystem::path, FileState>;

struct HeldFile {
    UniqueHandle file;
    ULONGLONG until;
};

std::uint64_t Combine(DWORD high, DWORD low) {
    return std::uint64_t{high} << 32U | low;
}

// What vanishes while it is listed is left out.
Files ListFiles(const std::filesystem::path& directory) {
    Files files;
    const auto add = [&](const ListedEntry& entry) {
        WIN32_FILE_ATTRIBUTE_DATA data{};
        const std::filesystem::path file = directory / entry.relativePath;
        if (GetFileAttributesExW(file.c_str(), GetFileExInfoStandard, &data) != 0 &&
            (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
            files[file] = {
                Combine(data.nFileSizeHigh, data.nFileSizeLow),
                Combine(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime)};
        }
    };
    try {
        VisitTree(directory, add);
    } catch (const std::exception&) {
        return files;
    }
    return files;
}

// Returns how many files it has held when the event is set.
int Scan(const std::filesystem::path& directory, DWORD share, HANDLE stop, Files known) {
    std::vector<HeldFile> held;
    int count = 0;
    while (WaitForSingleObject(stop, kPauseMilliseconds) == WAIT_TIMEOUT) {
        const ULONGLONG now = GetTickCount64();
        std::erase_if(held, [now](const HeldFile& file) { return file.until <= now; });
        for (const auto& [path, state] : ListFiles(directory)) {
            const auto found = known.find(path);
            if (found != known.end() && found->second == state) {
                continue;
            }
            UniqueHandle file = OwnHandle(
                CreateFileW(path.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, 0, nullptr));
            if (file) {
                known[path] = state;
                held.push_back({std::move(file), now + kHoldMilliseconds});
                ++count;
            }
        }
    }
    return count;
}

UniqueHandle OpenEventNamed(const wchar_t* name) {
    return OwnHandle(OpenEventW(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, name));
}

}  // namespace

}  // namespace updater

int wmain(int count, wchar_t** tokens) {
    constexpr int kTokens = 5;
    if (count != kTokens) {
        return updater::kWrongUsage;
    }
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const DWORD share = std::wstring_view(tokens[1]) == L"shared" ? kShareAll : 0;
    const updater::UniqueHandle ready = updater::OpenEventNamed(tokens[2]);
    const updater::UniqueHandle stop = updater::OpenEventNamed(tokens[3]);
    updater::Files known = updater::ListFiles(tokens[4]);
    SetEvent(ready.get());
    return std::min(updater::Scan(tokens[4], share, stop.get(), std::move(known)),
                    updater::kMostReported);
}
