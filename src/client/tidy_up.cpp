#include "client/tidy_up.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <vector>

#include "client/feed_store.h"
#include "client/guid_text.h"
#include "client/job.h"
#include "client/kept_feed.h"
#include "client/last_update.h"
#include "client/removal.h"
#include "client/whole_file.h"
#include "support/directory_listing.h"
#include "support/file_system.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr std::size_t kDigestDigits = 64;

// Before the first check of a session the offer is that of the last one: its download may go on.
std::string OfferedDigest(const Session& session) {
    if (session.offer) {
        return session.offer->feed.sha256;
    }
    const UniqueHandle lock = LockFeedStore(session.settings.dataDirectory);
    const std::optional<Feed> kept =
        ReadKeptFeed(ReadFeedStore(session.settings.dataDirectory), session.settings.publicKeys);
    return kept ? kept->sha256 : std::string();
}

bool IsOfDownload(std::wstring_view name) {
    const auto isDigit = [](wchar_t character) {
        return (character >= L'0' && character <= L'9') || (character >= L'a' && character <= L'f');
    };
    return name.size() > kDigestDigits && name[kDigestDigits] == L'.' &&
           std::ranges::all_of(name.substr(0, kDigestDigits), isDigit);
}

std::vector<std::wstring> NamesIn(const std::filesystem::path& directory,
                                  const std::function<bool(std::wstring_view)>& isWanted) {
    std::vector<std::wstring> names;
    if (PathExists(directory)) {
        VisitDirectory(directory, [&](const ListedEntry& entry) {
            if (isWanted(entry.relativePath.native())) {
                names.push_back(entry.relativePath.native());
            }
        });
    }
    return names;
}

// Another instance of the application may be at work on a new one.
bool IsOfYesterday(const std::filesystem::path& file) {
    constexpr std::uint64_t kUnitsInDay = 24ULL * 60 * 60 * 10'000'000;
    const auto units = [](const FILETIME& time) {
        return std::uint64_t{time.dwHighDateTime} << 32U | time.dwLowDateTime;
    };
    WIN32_FILE_ATTRIBUTE_DATA data{};
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    return GetFileAttributesExW(file.c_str(), GetFileExInfoStandard, &data) != 0 &&
           units(data.ftLastWriteTime) + kUnitsInDay < units(now);
}

void RemoveOldDrafts(const std::filesystem::path& directory,
                     std::initializer_list<std::wstring_view> files) {
    const auto isDraft = [files](std::wstring_view name) {
        return std::ranges::any_of(
            files, [name](std::wstring_view file) { return IsDraftOf(file, name); });
    };
    for (const std::wstring& name : NamesIn(directory, isDraft)) {
        if (IsOfYesterday(directory / name)) {
            RemoveUnlessInUse(directory / name);
        }
    }
}

void RemoveJob(const std::filesystem::path& jobDirectory) {
    // A running updater still needs what else is there.
    if (!IsUpdaterRunning(jobDirectory)) {
        RemoveUnlessInUse(jobDirectory);
    }
}

}  // namespace

void TidyUp(const Session& session) {
    const std::filesystem::path& dataDirectory = session.settings.dataDirectory;
    const std::wstring offered = Utf8ToWide(OfferedDigest(session));
    const std::filesystem::path downloads = DownloadsDirectory(dataDirectory);
    for (const std::wstring& name : NamesIn(downloads, IsOfDownload)) {
        if (name.substr(0, kDigestDigits) != offered) {
            RemoveUnlessInUse(downloads / name);
        }
    }
    RemoveOldDrafts(downloads, {offered + L".json"});
    RemoveOldDrafts(dataDirectory, {kStateFile, kEnvelopeFile, kLastUpdateFile});
    const auto last = ReadLastUpdate(dataDirectory);
    const std::filesystem::path jobs = JobsDirectory(dataDirectory);
    for (const std::wstring& name : NamesIn(jobs, IsGuidText)) {
        if (!last || name != last->job) {
            RemoveJob(jobs / name);
        }
    }
}

}  // namespace updater
