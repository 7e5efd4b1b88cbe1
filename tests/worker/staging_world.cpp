#include "worker/staging_world.h"

#include <algorithm>
#include <exception>

#include "support/file_system.h"
#include "support/handle.h"

namespace updater {

namespace {

std::wstring AccountText(PSID account) {
    LPWSTR text = nullptr;
    ConvertSidToStringSidW(account, &text);
    const UniqueLocalMemory owned(text);
    return text;
}

std::vector<AccessEntry> EntriesOf(PSECURITY_DESCRIPTOR descriptor) {
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    PACL list = nullptr;
    GetSecurityDescriptorDacl(descriptor, &present, &list, &defaulted);
    std::vector<AccessEntry> entries;
    for (DWORD index = 0; list != nullptr && index < list->AceCount; ++index) {
        void* ace = nullptr;
        GetAce(list, index, &ace);
        auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(ace);
        entries.push_back({allowed->Header.AceType, allowed->Header.AceFlags, allowed->Mask,
                           AccountText(&allowed->SidStart)});
    }
    return entries;
}

bool IsProtected(PSECURITY_DESCRIPTOR descriptor) {
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    GetSecurityDescriptorControl(descriptor, &control, &revision);
    return (control & SE_DACL_PROTECTED) != 0;
}

}  // namespace

StagingWorld::StagingWorld(std::vector<std::string>& actionList) : actions(actionList) {}

StagingWorld::~StagingWorld() {
    for (const std::filesystem::path& directory : created) {
        try {
            if (PathExists(directory)) {
                RemoveTree(directory);
            }
        } catch (const std::exception&) {
            // The test whose files are still open has its own failure to report.
        }
    }
}

HRESULT StagingWorld::OnKnownFolderPath(REFKNOWNFOLDERID folder, DWORD flags, HANDLE token,
                                        PWSTR* path) {
    actions.emplace_back("find data folder");
    folderQueries.push_back({folder, flags, token});
    if (faults.folderUnknown) {
        return E_FAIL;
    }
    const HRESULT result = SHGetKnownFolderPath(folder, flags, token, path);
    if (!dataFolder.empty()) {
        CoTaskMemFree(*path);
        const std::wstring text = dataFolder.native();
        *path = static_cast<PWSTR>(CoTaskMemAlloc((text.size() + 1) * sizeof(wchar_t)));
        std::copy_n(text.c_str(), text.size() + 1, *path);
    }
    unreleased.push_back(*path);
    return result;
}

HRESULT StagingWorld::OnCreateGuid(GUID* guid) {
    actions.emplace_back("create identity");
    if (faults.identityUnavailable) {
        return E_FAIL;
    }
    if (identity) {
        *guid = *identity;
        return S_OK;
    }
    return CoCreateGuid(guid);
}

BOOL StagingWorld::OnConvertSddl(LPCWSTR text, DWORD revision, PSECURITY_DESCRIPTOR* descriptor,
                                 PULONG size) {
    actions.emplace_back("make security descriptor");
    securityTexts.emplace_back(text);
    securityRevisions.push_back(revision);
    if (faults.securityUnavailable) {
        return FALSE;
    }
    const BOOL done =
        ConvertStringSecurityDescriptorToSecurityDescriptorW(text, revision, descriptor, size);
    unreleased.push_back(*descriptor);
    return done;
}

BOOL StagingWorld::OnCreateDirectory(LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
    if (security == nullptr) {
        return CreateDirectoryW(path, security);
    }
    actions.emplace_back("create staging directory");
    creations.push_back({security->bInheritHandle != 0, IsProtected(security->lpSecurityDescriptor),
                         EntriesOf(security->lpSecurityDescriptor)});
    if (faults.directoryUnavailable) {
        return FailWith(ERROR_ACCESS_DENIED);
    }
    const BOOL done = CreateDirectoryW(path, security);
    if (done != 0) {
        created.emplace_back(path);
    }
    return done;
}

HLOCAL StagingWorld::OnLocalFree(HLOCAL memory) {
    Release(memory);
    return LocalFree(memory);
}

void StagingWorld::OnTaskMemFree(LPVOID memory) {
    Release(memory);
    CoTaskMemFree(memory);
}

void StagingWorld::Release(void* memory) {
    const auto found = std::ranges::find(unreleased, memory);
    if (memory != nullptr && found != unreleased.end()) {
        actions.emplace_back("release memory");
        unreleased.erase(found);
    }
}

}  // namespace updater
