#include "client/tidy_up.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string_view>
#include <vector>

#include "client/envelope.h"
#include "client/failure.h"
#include "client/feed_store.h"
#include "client/job.h"
#include "client/guid_text.h"
#include "client/last_update.h"
#include "client/removal.h"
#include "support/application_identity.h"
#include "support/directory_listing.h"
#include "support/file_system.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

constexpr std::size_t kDigestDigits = 64;

// Before the first check of a session the offer is that of the last one: its download may go on.
std::string OfferedDigest(const Session& session) {
    if (session.offer) {
        return session.offer->feed.sha256;
    }
    const FeedStore store = ReadFeedStore(session.settings.dataDirectory);
    try {
        return ReadFeed(OpenEnvelope(store.envelope, session.settings.publicKeys)).sha256;
    } catch (const ClientFailure& failure) {
        // None is kept, or none that a key of today's has signed.
        if (failure.result == APP_UPDATE_SYSTEM_ERROR) {
            throw;
        }
        return {};
    }
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
    const auto last = ReadLastUpdate(dataDirectory);
    const std::filesystem::path jobs = JobsDirectory(dataDirectory);
    for (const std::wstring& name : NamesIn(jobs, IsGuidText)) {
        if (!last || name != last->job) {
            RemoveJob(jobs / name);
        }
    }
}

}  // namespace updater
