#include "support/canonical_path.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "support/extended_length_path.h"
#include "support/file_system_error.h"
#include "support/query_handle.h"
#include "support/windows_api.h"

namespace updater {

namespace {

// Calls a Windows function that fills a buffer of so many UTF-16 units and returns the length of
// the text, the length that it needs when the buffer is too small, or 0. Returns an empty text with
// the last error set on failure.
template <typename FillBuffer>
std::wstring TextFromWindows(FillBuffer fill) {
    std::wstring text(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = fill(text.data(), static_cast<DWORD>(text.size()));
        const bool fits = length < text.size();
        text.resize(length);
        if (fits) {
            return text;
        }
    }
}

struct FinalPathResult {
    std::wstring path;
    DWORD error;
};

FinalPathResult FinalPathOf(HANDLE handle) {
    const std::wstring name = TextFromWindows([handle](wchar_t* buffer, DWORD units) {
        return GetFinalPathNameByHandleW(handle, buffer, units,
                                         FILE_NAME_NORMALIZED | VOLUME_NAME_DOS);
    });
    if (name.empty()) {
        return {{}, GetLastError()};
    }
    // The answer is in a form that users and other programs do not expect.
    return {OrdinaryPath(name).native(), ERROR_SUCCESS};
}

FinalPathResult FinalPath(const std::wstring& path) {
    const UniqueHandle handle = OpenForQuery(path);
    if (!handle) {
        return {{}, GetLastError()};
    }
    return FinalPathOf(handle.get());
}

std::filesystem::path RequireCanonical(const FinalPathResult& result,
                                       const std::filesystem::path& path) {
    if (result.error != ERROR_SUCCESS) {
        RaiseFileSystemError("canonical", result.error, path);
    }
    return result.path;
}

// The length of an absolute path's root: a drive with its separator, or the first two components
// of a share or device path with the separator after them.
std::size_t RootLength(std::wstring_view absolute) {
    if (!absolute.starts_with(L"\\\\")) {
        return std::min<std::size_t>(absolute.size(), 3);
    }
    const std::size_t firstEnd = absolute.find(L'\\', 2);
    const std::size_t secondEnd = firstEnd == std::wstring_view::npos
                                      ? std::wstring_view::npos
                                      : absolute.find(L'\\', firstEnd + 1);
    return secondEnd == std::wstring_view::npos ? absolute.size() : secondEnd + 1;
}

// The length of the path without its last component, or 0 when it is no longer than the root.
std::size_t ParentLength(std::wstring_view path, std::size_t rootLength) {
    if (path.size() <= rootLength) {
        return 0;
    }
    return std::max(path.find_last_of(L'\\'), rootLength);
}

constexpr char kWeaklyCanonical[] = "weakly_canonical";

std::wstring AbsolutePath(const std::filesystem::path& path) {
    std::wstring absolute = TextFromWindows([&path](wchar_t* buffer, DWORD units) {
        return GetFullPathNameW(path.c_str(), units, buffer, nullptr);
    });
    if (absolute.empty()) {
        RaiseFileSystemError(kWeaklyCanonical, GetLastError(), path);
    }
    return absolute;
}

std::filesystem::path AppendRest(const std::filesystem::path& existing, std::wstring_view rest) {
    const std::size_t first = rest.find_first_not_of(L'\\');
    return first == std::wstring_view::npos ? existing : existing / rest.substr(first);
}

}  // namespace

std::filesystem::path CanonicalPath(const std::filesystem::path& path) {
    return RequireCanonical(FinalPath(path.native()), path);
}

std::filesystem::path CanonicalPathOf(HANDLE opened, const std::filesystem::path& path) {
    return RequireCanonical(FinalPathOf(opened), path);
}

std::filesystem::path WeaklyCanonicalPath(const std::filesystem::path& path) {
    if (path.empty()) {
        return path;
    }
    std::wstring absolute = AbsolutePath(path);
    const std::size_t rootLength = RootLength(absolute);
    std::size_t length = absolute.size();
    while (length > 0) {
        const FinalPathResult existing = FinalPath(absolute.substr(0, length));
        if (existing.error == ERROR_SUCCESS) {
            return AppendRest(existing.path, std::wstring_view(absolute).substr(length));
        }
        if (!IsNotFoundError(existing.error)) {
            RaiseFileSystemError(kWeaklyCanonical, existing.error, path);
        }
        length = ParentLength(std::wstring_view(absolute).substr(0, length), rootLength);
    }
    return absolute;
}

}  // namespace updater
