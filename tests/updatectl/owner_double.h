#pragma once

#include "fixtures/doubles/windows_doubles.h"

namespace updater {

/// Until the end of the scope every file has the owner that this security descriptor, as text,
/// names: none if it names none.
struct ReportedOwner {
    explicit ReportedOwner(const wchar_t* descriptorText);
    ~ReportedOwner() = default;
    ReportedOwner(const ReportedOwner&) = delete;
    ReportedOwner& operator=(const ReportedOwner&) = delete;

    ScopedReplacement<decltype(GetNamedSecurityInfoW)> replacement;
};

}  // namespace updater
