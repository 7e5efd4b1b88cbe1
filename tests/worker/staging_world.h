#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "fixtures/doubles/windows_doubles.h"

namespace updater {

/// What goes wrong while the staging directory is made.
struct StagingFaults {
    bool folderUnknown = false;
    bool identityUnavailable = false;
    bool securityUnavailable = false;
    bool directoryUnavailable = false;
};

struct FolderQuery {
    GUID folder;
    DWORD flags;
    HANDLE token;
};

/// One entry of an access list.
struct AccessEntry {
    int type;
    int flags;
    ACCESS_MASK mask;
    /// The account in text form, for example S-1-5-18.
    std::wstring account;

    bool operator==(const AccessEntry&) const = default;
};

/// How a staging directory was created.
struct DirectoryCreation {
    bool inheritsHandle;
    /// Whether the access list keeps the folder's own entries out.
    bool isProtected;
    std::vector<AccessEntry> entries;
};

/// Watches how staging directories are made, and deletes those that were made.
struct StagingWorld {
    /// Visible actions go to this list in their order.
    explicit StagingWorld(std::vector<std::string>& actionList);
    ~StagingWorld();
    StagingWorld(const StagingWorld&) = delete;
    StagingWorld& operator=(const StagingWorld&) = delete;

    StagingFaults faults;
    /// The identity of the next directories, if not a fresh one each.
    std::optional<GUID> identity;
    /// The machine's data folder, if not the real one.
    std::filesystem::path dataFolder;
    std::vector<std::string>& actions;

    std::vector<FolderQuery> folderQueries;
    std::vector<std::wstring> securityTexts;
    std::vector<DWORD> securityRevisions;
    std::vector<DirectoryCreation> creations;
    std::vector<std::filesystem::path> created;
    /// What was handed out by the system and is not yet released.
    std::vector<void*> unreleased;

    HRESULT OnKnownFolderPath(REFKNOWNFOLDERID folder, DWORD flags, HANDLE token, PWSTR* path);
    HRESULT OnCreateGuid(GUID* guid);
    BOOL OnConvertSddl(LPCWSTR text, DWORD revision, PSECURITY_DESCRIPTOR* descriptor, PULONG size);
    BOOL OnCreateDirectory(LPCWSTR path, LPSECURITY_ATTRIBUTES security);
    HLOCAL OnLocalFree(HLOCAL memory);
    void OnTaskMemFree(LPVOID memory);
    void Release(void* memory);

    ScopedReplacement<decltype(SHGetKnownFolderPath)> knownFolderPath{
        doubles::SHGetKnownFolderPath, std::bind_front(&StagingWorld::OnKnownFolderPath, this)};
    ScopedReplacement<decltype(CoCreateGuid)> createGuid{
        doubles::CoCreateGuid, std::bind_front(&StagingWorld::OnCreateGuid, this)};
    ScopedReplacement<decltype(ConvertStringSecurityDescriptorToSecurityDescriptorW)> convertSddl{
        doubles::ConvertStringSecurityDescriptorToSecurityDescriptorW,
        std::bind_front(&StagingWorld::OnConvertSddl, this)};
    ScopedReplacement<decltype(CreateDirectoryW)> createDirectory{
        doubles::CreateDirectoryW, std::bind_front(&StagingWorld::OnCreateDirectory, this)};
    ScopedReplacement<decltype(LocalFree)> localFree{
        doubles::LocalFree, std::bind_front(&StagingWorld::OnLocalFree, this)};
    ScopedReplacement<decltype(CoTaskMemFree)> taskMemFree{
        doubles::CoTaskMemFree, std::bind_front(&StagingWorld::OnTaskMemFree, this)};
};

}  // namespace updater
