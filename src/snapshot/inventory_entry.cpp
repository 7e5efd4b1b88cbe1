#include "snapshot/inventory_entry.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>

namespace updater {

namespace {

constexpr wchar_t kSeparators[] = L"\\/";
constexpr wchar_t kDirectorySeparator = L'\\';

bool IsSeparator(wchar_t character) {
    return character == L'\\' || character == L'/';
}

bool SeparatorAt(std::wstring_view path, std::size_t position) {
    return position < path.size() && IsSeparator(path[position]);
}

bool HasDrivePrefix(std::wstring_view path) {
    if (path.size() < 2 || path[1] != L':') {
        return false;
    }
    return (path[0] >= L'A' && path[0] <= L'Z') || (path[0] >= L'a' && path[0] <= L'z');
}

// \??\ if no separator follows it. The other two, \\?\ and \\.\, have the form of a share.
bool HasDevicePrefix(std::wstring_view path) {
    return path.size() >= 4 && IsSeparator(path[0]) && path[1] == L'?' && path[2] == L'?' &&
           IsSeparator(path[3]) && !SeparatorAt(path, 4);
}

bool HasSharePrefix(std::wstring_view path) {
    return path.size() >= 3 && IsSeparator(path[0]) && IsSeparator(path[1]) &&
           !IsSeparator(path[2]);
}

// The length of the path's root name: the drive, the device prefix, or the share's server with the
// separators before it.
std::size_t RootNameLength(std::wstring_view path) {
    if (HasDrivePrefix(path)) {
        return 2;
    }
    if (HasDevicePrefix(path)) {
        return 3;
    }
    if (HasSharePrefix(path)) {
        const std::size_t serverEnd = path.find_first_of(kSeparators, 2);
        return serverEnd == std::wstring_view::npos ? path.size() : serverEnd;
    }
    return 0;
}

bool HasTraversal(std::wstring_view path) {
    std::size_t begin = 0;
    while (begin <= path.size()) {
        const std::size_t end = std::min(path.find_first_of(kSeparators, begin), path.size());
        if (path.substr(begin, end - begin) == L"..") {
            return true;
        }
        begin = end + 1;
    }
    return false;
}

}  // namespace

InventoryEntry ParseInventoryLine(std::string_view line) {
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    const std::size_t tab = line.find('\t');
    if (tab == std::string_view::npos) {
        throw std::runtime_error(kInvalidInventory);
    }
    return {std::string(line.substr(0, tab)), std::string(line.substr(tab + 1))};
}

void CheckInventoryPath(std::wstring_view path) {
    if (RootNameLength(path) != 0) {
        throw std::runtime_error("Invalid program inventory path");
    }
    if (HasTraversal(path)) {
        throw std::runtime_error("Invalid program inventory traversal");
    }
}

std::wstring AppendInventoryPath(std::wstring_view directory, std::wstring_view path) {
    if (SeparatorAt(path, 0)) {
        return std::wstring(directory.substr(0, RootNameLength(directory))) + std::wstring(path);
    }
    std::wstring full(directory);
    const bool bareDrive = directory.size() == 2 && HasDrivePrefix(directory);
    if (!directory.empty() && !IsSeparator(directory.back()) && !bareDrive) {
        full.push_back(kDirectorySeparator);
    }
    full += path;
    return full;
}

}  // namespace updater
