// scanning-program shared|exclusive READY-EVENT STOP-EVENT DIRECTORY...
//
// As a virus scanner does, opens every file that comes into the directories or changes there, at
// any depth, and holds it for 300 ms: shared, so that others can do everything with it meanwhile,
// or exclusive. Files that are there at the beginning count as known; then it sets the first event.
// It ends when the second is set, with the number of files that it has held, 200 at the most. When
// nobody sets it for five minutes, it gives up.

#include <algorithm>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <map>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "fixtures/patience.h"
#include "support/directory_listing.h"
#include "support/handle.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr ULONGLONG kHoldMilliseconds = 300;
constexpr DWORD kPauseMilliseconds = 5;
constexpr int kMostReported = 200;
constexpr int kWrongUsage = 201;
constexpr int kGivenUp = 202;

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

void AddFile(const std::filesystem::path& file, Files& files) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (GetFileAttributesExW(file.c_str(), GetFileExInfoStandard, &data) != 0 &&
        (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        files[file] = {
            Combine(data.nFileSizeHigh, data.nFileSizeLow),
            Combine(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime)};
    }
}

// What vanishes while it is listed is left out.
Files ListFiles(std::span<wchar_t* const> directories) {
    Files files;
    for (const std::filesystem::path directory : directories) {
        try {
            VisitTree(directory, [&](const ListedEntry& entry) {
                AddFile(directory / entry.relativePath, files);
            });
        } catch (const std::exception&) {
            continue;
        }
    }
    return files;
}

// Returns how many files it has held when the event is set.
int Scan(std::span<wchar_t* const> directories, DWORD share, HANDLE stop, Files known) {
    const ULONGLONG deadline = GetTickCount64() + kPatienceMilliseconds;
    std::vector<HeldFile> held;
    int count = 0;
    while (WaitForSingleObject(stop, kPauseMilliseconds) == WAIT_TIMEOUT) {
        const ULONGLONG now = GetTickCount64();
        if (now > deadline) {
            return kGivenUp;
        }
        std::erase_if(held, [now](const HeldFile& file) { return file.until <= now; });
        for (const auto& [path, state] : ListFiles(directories)) {
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
    return std::min(count, kMostReported);
}

UniqueHandle OpenEventNamed(const wchar_t* name) {
    return OwnHandle(OpenEventW(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, name));
}

}  // namespace

}  // namespace updater

int wmain(int count, wchar_t** tokens) {
    constexpr int kFirstDirectory = 4;
    if (count <= kFirstDirectory) {
        return updater::kWrongUsage;
    }
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const DWORD share = std::wstring_view(tokens[1]) == L"shared" ? kShareAll : 0;
    const updater::UniqueHandle ready = updater::OpenEventNamed(tokens[2]);
    const updater::UniqueHandle stop = updater::OpenEventNamed(tokens[3]);
    const std::span<wchar_t* const> directories(tokens + kFirstDirectory, tokens + count);
    updater::Files known = updater::ListFiles(directories);
    SetEvent(ready.get());
    return updater::Scan(directories, share, stop.get(), std::move(known));
}
