#pragma once

#include <functional>
#include <string>

#include "fixtures/doubles/windows_doubles.h"

namespace updater {

/// What a staging directory's security is on Windows.
inline constexpr wchar_t kStagingDirectorySecurity[] = L"O:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)";

/// Until the end of the scope every file has the security that this descriptor, as text, gives, and
/// that the function has changed. A descriptor without an owner or an access list tells of none.
struct ReportedSecurity {
    explicit ReportedSecurity(std::wstring descriptorText, std::function<void(PACL)> change = {});
    ~ReportedSecurity() = default;
    ReportedSecurity(const ReportedSecurity&) = delete;
    ReportedSecurity& operator=(const ReportedSecurity&) = delete;

    ScopedReplacement<decltype(GetSecurityInfo)> replacement;
};

/// Until the end of the scope what Wine shows as its only user's belongs to the administrators; the
/// rest of a file's security is as the system shows it.
struct ReportedAdministrators {
    ReportedAdministrators();
    ~ReportedAdministrators() = default;
    ReportedAdministrators(const ReportedAdministrators&) = delete;
    ReportedAdministrators& operator=(const ReportedAdministrators&) = delete;

    ScopedReplacement<decltype(GetSecurityInfo)> replacement;
};

}  // namespace updater
