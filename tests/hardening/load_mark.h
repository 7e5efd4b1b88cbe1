#pragma once

namespace updater {

/// What a planted library appends to its own path for the file that tells that it was loaded.
inline constexpr wchar_t kLoadMarkSuffix[] = L".loaded";

}  // namespace updater
