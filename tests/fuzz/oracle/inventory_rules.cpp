#include "fuzz/oracle/inventory_rules.h"

#include <algorithm>
#include <regex>

namespace updater {

std::optional<ExpectedEntry> ExpectedInventoryEntry(std::string_view line) {
    std::string text(line);
    if (!text.empty() && text.back() == '\r') {
        text.pop_back();
    }
    const std::size_t pathLength = text.find('\t');
    if (pathLength == std::string::npos) {
        return std::nullopt;
    }
    return ExpectedEntry{text.substr(0, pathLength), text.substr(pathLength + 1)};
}

std::string ExpectedPathError(const std::wstring& path) {
    // A drive; the three device prefixes; a share.
    static const std::wregex kRootName(
        L"[A-Za-z]:|[\\\\/]{2}[?.][\\\\/]|[\\\\/]\\?\\?[\\\\/](?![\\\\/])|[\\\\/]{2}[^\\\\/]");
    if (std::regex_search(path, kRootName, std::regex_constants::match_continuous)) {
        return "Invalid program inventory path";
    }
    // With a separator before and after it, every element looks alike.
    std::wstring enclosed = L'/' + path + L'/';
    std::replace(enclosed.begin(), enclosed.end(), L'\\', L'/');
    const bool traversal = enclosed.find(L"/../") != std::wstring::npos;
    return traversal ? "Invalid program inventory traversal" : "";
}

bool BeginsAtDriveRoot(std::wstring_view path) {
    return path.starts_with(L'\\') || path.starts_with(L'/');
}

}  // namespace updater
