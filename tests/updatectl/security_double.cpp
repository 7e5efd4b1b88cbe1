#include "updatectl/security_double.h"

#include <utility>

#include "updatectl/file_security.h"

namespace updater {

namespace {

struct ToldSecurity {
    PSID* owner;
    PACL* accessList;
    PSECURITY_DESCRIPTOR* descriptor;
};

DWORD TellSecurity(const std::wstring& descriptorText, const std::function<void(PACL)>& change,
                   const ToldSecurity& told) {
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    *told.accessList = nullptr;
    if (ConvertStringSecurityDescriptorToSecurityDescriptorW(
            descriptorText.c_str(), SDDL_REVISION_1, told.descriptor, nullptr) == 0 ||
        GetSecurityDescriptorOwner(*told.descriptor, told.owner, &defaulted) == 0 ||
        GetSecurityDescriptorDacl(*told.descriptor, &present, told.accessList, &defaulted) == 0) {
        return ERROR_INVALID_SECURITY_DESCR;
    }
    if (change) {
        change(*told.accessList);
    }
    return ERROR_SUCCESS;
}

}  // namespace

ReportedSecurity::ReportedSecurity(std::wstring descriptorText, std::function<void(PACL)> change)
    : replacement(doubles::GetSecurityInfo,
                  [text = std::move(descriptorText), change = std::move(change)](
                      HANDLE, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID* owner, PSID*,
                      PACL* accessList, PACL*, PSECURITY_DESCRIPTOR* descriptor) {
                      return TellSecurity(text, change, {owner, accessList, descriptor});
                  }) {}

ReportedAdministrators::ReportedAdministrators()
    : replacement(
          doubles::GetSecurityInfo,
          [](HANDLE handle, SE_OBJECT_TYPE type, SECURITY_INFORMATION wanted, PSID* owner,
             PSID* group, PACL* accessList, PACL* auditList, PSECURITY_DESCRIPTOR* descriptor) {
              const DWORD error = GetSecurityInfo(handle, type, wanted, owner, group, accessList,
                                                  auditList, descriptor);
              if (error == ERROR_SUCCESS) {
                  NameAdministrators(*owner, *accessList);
              }
              return error;
          }) {}

}  // namespace updater
