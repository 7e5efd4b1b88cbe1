#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fixtures/processes/windows_doubles.h"
#include "fixtures/replacement.h"

namespace updater {

namespace doubles {

// The further functions by which the updater gets at a file by its name.
extern Replacement<decltype(CreateFileW)> createFile;
extern Replacement<decltype(DeleteFileW)> deleteFile;
extern Replacement<decltype(FindFirstFileExW)> findFirstFileEx;
extern Replacement<decltype(GetFileAttributesW)> getFileAttributes;
extern Replacement<decltype(GetFullPathNameW)> getFullPathName;
extern Replacement<decltype(SetFileAttributesW)> setFileAttributes;

}  // namespace doubles

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
        Watch(doubles::copyFile, "CopyFileW", &CopyFileW)};
    ScopedReplacement<decltype(CreateFileW)> opening{
        Watch(doubles::createFile, "CreateFileW", &CreateFileW)};
    ScopedReplacement<decltype(DeleteFileW)> deleting{
        Watch(doubles::deleteFile, "DeleteFileW", &DeleteFileW)};
    ScopedReplacement<decltype(FindFirstFileExW)> finding{
        Watch(doubles::findFirstFileEx, "FindFirstFileExW", &FindFirstFileExW)};
    ScopedReplacement<decltype(GetFileAttributesW)> readingAttributes{
        Watch(doubles::getFileAttributes, "GetFileAttributesW", &GetFileAttributesW)};
    ScopedReplacement<decltype(GetFileAttributesExW)> readingMoreAttributes{
        Watch(doubles::getFileAttributesEx, "GetFileAttributesExW", &GetFileAttributesExW)};
    ScopedReplacement<decltype(GetFullPathNameW)> resolving{
        Watch(doubles::getFullPathName, "GetFullPathNameW", &GetFullPathNameW)};
    ScopedReplacement<decltype(MoveFileExW)> moving{
        Watch(doubles::moveFileEx, "MoveFileExW", &MoveFileExW)};
    ScopedReplacement<decltype(SetFileAttributesW)> settingAttributes{
        Watch(doubles::setFileAttributes, "SetFileAttributesW", &SetFileAttributesW)};
    ScopedReplacement<decltype(GetFileVersionInfoSizeW)> readingVersion{Watch(
        doubles::getFileVersionInfoSize, "GetFileVersionInfoSizeW", &GetFileVersionInfoSizeW)};
};

}  // namespace updater
