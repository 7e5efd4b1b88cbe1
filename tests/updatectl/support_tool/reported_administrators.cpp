// In the tool that is made for the tests, files belong to the administrators.

#include "updatectl/file_security.h"

extern "C" {
extern decltype(&GetSecurityInfo) __real___imp_GetSecurityInfo;
extern decltype(&GetSecurityInfo) __wrap___imp_GetSecurityInfo;
}

namespace {

DWORD WINAPI TellOfAdministrators(HANDLE handle, SE_OBJECT_TYPE type, SECURITY_INFORMATION wanted,
                                  PSID* owner, PSID* group, PACL* accessList, PACL* auditList,
                                  PSECURITY_DESCRIPTOR* descriptor) {
    const DWORD error = __real___imp_GetSecurityInfo(handle, type, wanted, owner, group, accessList,
                                                     auditList, descriptor);
    if (error == ERROR_SUCCESS) {
        updater::NameAdministrators(*owner, *accessList);
    }
    return error;
}

}  // namespace

decltype(&GetSecurityInfo) __wrap___imp_GetSecurityInfo = TellOfAdministrators;
