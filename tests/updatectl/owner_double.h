#pragma once

#include "fixtures/replacement.h"
#include "support/windows_api.h"

// After the Windows types that it needs.
#include <aclapi.h>

namespace updater {

/// Until the end of the scope every file has the owner that this security descriptor, as text,
/// names: none if it names none. The test program replaces `__imp_GetNamedSecurityInfoW`.
struct ReportedOwner {
    explicit ReportedOwner(const wchar_t* descriptorText);
    ~ReportedOwner() = default;
    ReportedOwner(const ReportedOwner&) = delete;
    ReportedOwner& operator=(const ReportedOwner&) = delete;

    ScopedReplacement<decltype(GetNamedSecurityInfoW)> replacement;
};

}  // namespace updater
