#include "updatectl/owner_double.h"

namespace updater {

namespace {

DWORD TellOwner(const wchar_t* descriptorText, PSID* owner, PSECURITY_DESCRIPTOR* descriptor) {
    BOOL defaulted = FALSE;
    return ConvertStringSecurityDescriptorToSecurityDescriptorW(descriptorText, SDDL_REVISION_1,
                                                                descriptor, nullptr) != 0 &&
                   GetSecurityDescriptorOwner(*descriptor, owner, &defaulted) != 0
               ? ERROR_SUCCESS
               : ERROR_INVALID_SECURITY_DESCR;
}

}  // namespace

ReportedOwner::ReportedOwner(const wchar_t* descriptorText)
    : replacement(doubles::GetNamedSecurityInfoW,
                  [descriptorText](LPCWSTR, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID* owner,
                                   PSID*, PACL*, PACL*, PSECURITY_DESCRIPTOR* descriptor) {
                      return TellOwner(descriptorText, owner, descriptor);
                  }) {}

}  // namespace updater
