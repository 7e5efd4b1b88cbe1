#include "updatectl/leftover_staging.h"

#include "support/windows_api.h"

// After the Windows types that it needs.
#include <aclapi.h>

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>

#include "snapshot/program_assets.h"
#include "support/directory_listing.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/process_utilities.h"
#include "updatectl/file_names.h"
#include "updatectl/output.h"
#include "updatectl/windows_error.h"
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

std::vector<std::byte> ProcessUser() {
    HANDLE opened = nullptr;
    if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened) == 0) {
        RaiseWindowsError("Cannot inspect process token", GetLastError());
    }
    const UniqueHandle token = OwnHandle(opened);
    DWORD bytes = sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE;
    std::vector<std::byte> user(bytes);
    if (GetTokenInformation(token.get(), TokenUser, user.data(), bytes, &bytes) == 0) {
        RaiseWindowsError("Cannot inspect process token", GetLastError());
    }
    return user;
}

}  // namespace

bool IsStagingName(std::wstring_view name) {
    constexpr std::wstring_view kPrefix = kStagingPrefix;
    return name.starts_with(kPrefix) &&
           std::ranges::equal(name.substr(kPrefix.size()), kIdentityForm, FitsForm);
}

std::vector<LeftoverStaging> ListLeftoverStaging(const std::filesystem::path& folder) {
    constexpr DWORD kKind = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    std::vector<LeftoverStaging> found;
    VisitDirectory(folder, [&](const ListedEntry& entry) {
        const std::filesystem::path path = folder / entry.relativePath;
        WIN32_FILE_ATTRIBUTE_DATA data{};
        if (IsStagingName(entry.relativePath.native()) &&
            GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) != 0 &&
            (data.dwFileAttributes & kKind) == FILE_ATTRIBUTE_DIRECTORY) {
            const FILETIME time = data.ftCreationTime;
            found.push_back(
                {path, (std::uint64_t{time.dwHighDateTime} << 32U) | time.dwLowDateTime});
        }
    });
    std::ranges::sort(found, [](const LeftoverStaging& one, const LeftoverStaging& other) {
        return one.created != other.created ? one.created > other.created : one.path < other.path;
    });
    return found;
}

bool IsOwnedByAdministrator(const std::filesystem::path& directory) {
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD error =
        GetNamedSecurityInfoW(directory.c_str(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner,
                              nullptr, nullptr, nullptr, &descriptor);
    const UniqueLocalMemory owned(descriptor);
    if (error != ERROR_SUCCESS) {
        RaiseWindowsError("Cannot read the owner of " + PrintableText(directory.native()), error);
    }
    const std::vector<std::byte> user = ProcessUser();
    // Some file systems know no owners.
    return owner != nullptr &&
           (IsWellKnownSid(owner, WinBuiltinAdministratorsSid) != 0 ||
            IsWellKnownSid(owner, WinLocalSystemSid) != 0 ||
            EqualSid(owner, reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid) != 0);
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
