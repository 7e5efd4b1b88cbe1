#include "support/extended_length_path.h"

#include <string>
#include <string_view>

namespace updater {

namespace {

constexpr std::wstring_view kDrivePrefix = L"\\\\?\\";
constexpr std::wstring_view kSharePrefix = L"\\\\?\\UNC\\";
constexpr std::wstring_view kShare = L"\\\\";

bool BeginsWithDrive(std::wstring_view path) {
    return path.size() >= 3 && path[1] == L':' && path[2] == L'\\' &&
           ((path[0] >= L'A' && path[0] <= L'Z') || (path[0] >= L'a' && path[0] <= L'z'));
}

// Also the device forms, "\\?\" and "\\.\", begin like a share.
bool BeginsWithShare(std::wstring_view path) {
    return path.size() > 2 && path.starts_with(kShare) && path[2] != L'?' && path[2] != L'.';
}

std::wstring Joined(std::wstring_view prefix, std::wstring_view rest) {
    return std::wstring(prefix).append(rest);
}

}  // namespace

std::filesystem::path ExtendedLengthPath(const std::filesystem::path& path) {
    std::filesystem::path preferred = path;
    preferred.make_preferred();
    const std::wstring_view text = preferred.native();
    if (BeginsWithDrive(text)) {
        return Joined(kDrivePrefix, text);
    }
    if (BeginsWithShare(text)) {
        return Joined(kSharePrefix, text.substr(kShare.size()));
    }
    return path;
}

std::filesystem::path OrdinaryPath(const std::filesystem::path& path) {
    const std::wstring_view text = path.native();
    if (text.starts_with(kSharePrefix)) {
        return Joined(kShare, text.substr(kSharePrefix.size()));
    }
    if (text.starts_with(kDrivePrefix) && BeginsWithDrive(text.substr(kDrivePrefix.size()))) {
        return text.substr(kDrivePrefix.size());
    }
    return path;
}

}  // namespace updater
