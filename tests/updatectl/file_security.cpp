#include "updatectl/file_security.h"

// After the Windows types that it needs.
#include <sddl.h>

#include <array>
#include <cstddef>
#include <string>
#include <system_error>

#include "support/handle.h"

namespace updater {

namespace {

using UserBuffer = std::array<std::byte, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE>;

struct ProcessUser {
    ProcessUser() {
        HANDLE opened = nullptr;
        OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened);
        const UniqueHandle token = OwnHandle(opened);
        DWORD bytes = static_cast<DWORD>(buffer.size());
        GetTokenInformation(token.get(), TokenUser, buffer.data(), bytes, &bytes);
    }
    PSID Account() { return reinterpret_cast<const TOKEN_USER*>(buffer.data())->User.Sid; }

    alignas(TOKEN_USER) UserBuffer buffer{};
};

// The group's identifier is shorter than a user's, so that it fits in the same place.
void Rename(PSID account, PSID user) {
    if (EqualSid(account, user) != 0) {
        DWORD bytes = GetLengthSid(account);
        CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, account, &bytes);
    }
}

void SetAccessList(const std::filesystem::path& directory, const wchar_t* descriptorText) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ConvertStringSecurityDescriptorToSecurityDescriptorW(descriptorText, SDDL_REVISION_1,
                                                         &descriptor, nullptr);
    const UniqueLocalMemory owned(descriptor);
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    PACL accessList = nullptr;
    GetSecurityDescriptorDacl(descriptor, &present, &accessList, &defaulted);
    std::wstring path = directory.native();
    const DWORD error =
        SetNamedSecurityInfoW(path.data(), SE_FILE_OBJECT,
                              DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                              nullptr, nullptr, accessList, nullptr);
    if (error != ERROR_SUCCESS) {
        throw std::system_error(static_cast<int>(error), std::system_category(),
                                "Cannot change a directory's access list");
    }
}

}  // namespace

void NameAdministrators(PSID owner, PACL accessList) {
    ProcessUser user;
    if (owner != nullptr) {
        Rename(owner, user.Account());
    }
    for (DWORD index = 0; accessList != nullptr && index < accessList->AceCount; ++index) {
        void* entry = nullptr;
        GetAce(accessList, index, &entry);
        Rename(&static_cast<ACCESS_ALLOWED_ACE*>(entry)->SidStart, user.Account());
    }
}

void LetAdministratorsWrite(const std::filesystem::path& directory) {
    SetAccessList(directory, L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)");
}

void LetEverybodyWrite(const std::filesystem::path& directory) {
    SetAccessList(directory, L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FA;;;WD)");
}

}  // namespace updater
