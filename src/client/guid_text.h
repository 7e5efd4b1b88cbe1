#pragma once

#include <string_view>

namespace updater {

/// Whether a text has the form of a GUID that `CreateJobIdentity` makes: braced, with upper-case
/// digits. As a name it is no path.
bool IsGuidText(std::wstring_view text);

}  // namespace updater
