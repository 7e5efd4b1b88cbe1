#include "broker/default_access.h"

#include <cstddef>
#include <cstring>
#include <limits>
#include <vector>

#include "support/handle.h"
#include "support/windows_api.h"

namespace updater {

namespace {

using Bytes = std::vector<std::byte>;

UniqueHandle OpenOwnToken() {
    HANDLE token = nullptr;
    if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY | TOKEN_ADJUST_DEFAULT, &token) == 0) {
        return nullptr;
    }
    return OwnHandle(token);
}

// Returns the list with the structure that points to it; empty when it cannot be read.
Bytes ReadDefaultAccessList(HANDLE token) {
    DWORD size = 0;
    GetTokenInformation(token, TokenDefaultDacl, nullptr, 0, &size);
    Bytes information(size);
    if (GetTokenInformation(token, TokenDefaultDacl, information.data(), size, &size) == 0) {
        return {};
    }
    return information;
}

// Returns the Administrators group's identifier; empty when it cannot be made.
Bytes AdministratorsGroup() {
    Bytes group(SECURITY_MAX_SID_SIZE);
    auto size = static_cast<DWORD>(group.size());
    const BOOL made = CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, group.data(), &size);
    group.resize(made != 0 ? size : 0);
    return group;
}

bool GivesFullAccess(ACL& list, Bytes& group) {
    for (DWORD index = 0; index < list.AceCount; ++index) {
        void* found = nullptr;
        if (GetAce(&list, index, &found) == 0) {
            continue;
        }
        auto* entry = static_cast<ACCESS_ALLOWED_ACE*>(found);
        if (entry->Header.AceType == ACCESS_ALLOWED_ACE_TYPE && entry->Header.AceFlags == 0 &&
            entry->Mask == GENERIC_ALL && EqualSid(&entry->SidStart, group.data()) != 0) {
            return true;
        }
    }
    return false;
}

// Returns a copy of the list with one entry more, at its end; empty when it cannot be made.
Bytes WithFullAccess(const ACL& list, Bytes& group) {
    // The entry's declaration holds the beginning of the group's identifier already.
    Bytes extended(list.AclSize + sizeof(ACCESS_ALLOWED_ACE) - sizeof(DWORD) + group.size());
    if (extended.size() > std::numeric_limits<WORD>::max()) {
        return {};
    }
    std::memcpy(extended.data(), &list, list.AclSize);
    auto* extendedList = reinterpret_cast<ACL*>(extended.data());
    extendedList->AclSize = static_cast<WORD>(extended.size());
    const BOOL added =
        AddAccessAllowedAce(extendedList, list.AclRevision, GENERIC_ALL, group.data());
    return added != 0 ? extended : Bytes();
}

}  // namespace

bool GrantAdministratorsAccessByDefault() {
    const UniqueHandle token = OpenOwnToken();
    Bytes information = token ? ReadDefaultAccessList(token.get()) : Bytes();
    Bytes administrators = AdministratorsGroup();
    if (information.size() < sizeof(TOKEN_DEFAULT_DACL) || administrators.empty()) {
        return false;
    }
    ACL* const list = reinterpret_cast<TOKEN_DEFAULT_DACL*>(information.data())->DefaultDacl;
    // Without a list, objects are open to everybody as it is. A process started by one that has
    // extended its list has the extended one.
    if (list == nullptr || GivesFullAccess(*list, administrators)) {
        return true;
    }
    Bytes extended = WithFullAccess(*list, administrators);
    TOKEN_DEFAULT_DACL replacement{reinterpret_cast<ACL*>(extended.data())};
    return !extended.empty() && SetTokenInformation(token.get(), TokenDefaultDacl, &replacement,
                                                    sizeof(replacement)) != 0;
}

}  // namespace updater
