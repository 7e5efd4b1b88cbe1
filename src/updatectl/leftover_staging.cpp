#include "updatectl/leftover_staging.h"

#include <algorithm>
#include <exception>
#include <stdexcept>

#include "snapshot/program_assets.h"
#include "support/application_identity.h"
#include "support/directory_listing.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/process_utilities.h"
#include "support/windows_api.h"
#include "updatectl/file_names.h"
#include "worker/staging.h"

namespace updater {

namespace {

constexpr wchar_t kHexDigit = L'h';
constexpr std::wstring_view kIdentityForm = L"{hhhhhhhh-hhhh-hhhh-hhhh-hhhhhhhhhhhh}";

bool FitsForm(wchar_t character, wchar_t form) {
    if (form != kHexDigit) {
        return character == form;
    }
    return (character >= L'0' && character <= L'9') || (character >= L'A' && character <= L'F');
}

}  // namespace

bool IsStagingName(std::wstring_view name) {
    const std::wstring_view prefix = kStagingPrefix;
    return name.starts_with(prefix) &&
           std::ranges::equal(name.substr(prefix.size()), kIdentityForm, FitsForm);
}

StagingListing FindStagingDirectories(const std::filesystem::path& folder) {
    StagingListing listing;
    VisitDirectory(folder, [&listing, &folder](const ListedEntry& entry) {
        if (!IsStagingName(entry.relativePath.native())) {
            return;
        }
        try {
            listing.leftovers.push_back(OpenProtectedDirectory(folder / entry.relativePath));
        } catch (const std::exception& failure) {
            listing.others.emplace_back(failure.what());
        }
    });
    std::ranges::sort(listing.leftovers, [](const ProtectedDirectory& one,
                                            const ProtectedDirectory& other) {
        return one.created != other.created ? one.created > other.created : one.path < other.path;
    });
    return listing;
}

bool IsSetupRunning(const std::filesystem::path& stagingDirectory) {
    const std::filesystem::path setup = stagingDirectory / kStagedSetupProgram;
    // The system does not let anybody write to a program that runs. A copy of a read-only download
    // is read-only, and for that reason it would refuse before it looks whether the program runs.
    ClearProtection(setup);
    const UniqueHandle writable = OwnHandle(CreateFileW(
        setup.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
        nullptr, OPEN_EXISTING, 0, nullptr));
    return !writable && GetLastError() == ERROR_SHARING_VIOLATION;
}

bool BelongsToBackup(const std::filesystem::path& relativePath) {
    return relativePath.has_parent_path()
               ? FoldCase(relativePath.begin()->native()) == FoldCase(kDataDirectory)
               : IsTopLevelAsset(relativePath);
}

void RequireAdministrator() {
    if (!IsProcessElevated()) {
        throw std::runtime_error(
            "Administrator authorization is required; start it from an administrator's prompt");
    }
}

}  // namespace updater
