#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fixtures/doubles/windows_doubles.h"

namespace updater {

/// While it is in scope, records by which functions a file is reached, under any path that ends in
/// its name. Replacements that are in force already stay so.
struct SourceAccess {
    explicit SourceAccess(std::wstring fileName) : name(std::move(fileName)) {}

    template <typename Function>
    ScopedReplacement<Function> Watch(Replacement<Function>& replacement, const char* operation,
                                      Function* real) {
        return {replacement,
                [this, operation, next = replacement.active ? replacement.active : real](
                    const wchar_t* path, auto... rest) {
                    Note(operation, path);
                    return next(path, rest...);
                }};
    }

    void Note(const char* operation, const wchar_t* path) {
        if (path != nullptr && std::wstring_view(path).ends_with(name)) {
            operations.emplace_back(operation);
        }
    }

    std::wstring name;
    std::vector<std::string> operations;

    ScopedReplacement<decltype(CopyFileW)> copying{
        Watch(doubles::CopyFileW, "CopyFileW", &CopyFileW)};
    ScopedReplacement<decltype(CreateFileW)> opening{
        Watch(doubles::CreateFileW, "CreateFileW", &CreateFileW)};
    ScopedReplacement<decltype(DeleteFileW)> deleting{
        Watch(doubles::DeleteFileW, "DeleteFileW", &DeleteFileW)};
    ScopedReplacement<decltype(FindFirstFileExW)> finding{
        Watch(doubles::FindFirstFileExW, "FindFirstFileExW", &FindFirstFileExW)};
    ScopedReplacement<decltype(GetFileAttributesW)> readingAttributes{
        Watch(doubles::GetFileAttributesW, "GetFileAttributesW", &GetFileAttributesW)};
    ScopedReplacement<decltype(GetFileAttributesExW)> readingMoreAttributes{
        Watch(doubles::GetFileAttributesExW, "GetFileAttributesExW", &GetFileAttributesExW)};
    ScopedReplacement<decltype(GetFullPathNameW)> resolving{
        Watch(doubles::GetFullPathNameW, "GetFullPathNameW", &GetFullPathNameW)};
    ScopedReplacement<decltype(MoveFileExW)> moving{
        Watch(doubles::MoveFileExW, "MoveFileExW", &MoveFileExW)};
    ScopedReplacement<decltype(SetFileAttributesW)> settingAttributes{
        Watch(doubles::SetFileAttributesW, "SetFileAttributesW", &SetFileAttributesW)};
    ScopedReplacement<decltype(GetFileVersionInfoSizeW)> readingVersion{Watch(
        doubles::GetFileVersionInfoSizeW, "GetFileVersionInfoSizeW", &GetFileVersionInfoSizeW)};
};

}  // namespace updater
