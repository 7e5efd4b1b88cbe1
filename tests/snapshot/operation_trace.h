#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "fixtures/doubles/updater_doubles.h"
#include "fixtures/doubles/windows_doubles.h"

namespace updater {

/// Notes in order what is listed, created, deleted, copied and read for a digest while it is alive;
/// the real operations take place. Paths stand relative to `root`.
struct OperationTrace {
    explicit OperationTrace(std::filesystem::path directory) : root(std::move(directory)) {}

    std::wstring Relative(const std::filesystem::path& path) const {
        return path.lexically_relative(root).native();
    }

    std::filesystem::path root;
    std::vector<std::wstring> operations;

    ScopedReplacement<decltype(FindFirstFileExW)> listing{
        doubles::FindFirstFileExW, [this](LPCWSTR pattern, FINDEX_INFO_LEVELS level, LPVOID data,
                                          FINDEX_SEARCH_OPS operation, LPVOID filter, DWORD flags) {
            operations.push_back(L"list " + Relative(pattern));
            return FindFirstFileExW(pattern, level, data, operation, filter, flags);
        }};
    ScopedReplacement<decltype(CreateDirectoryW)> creation{
        doubles::CreateDirectoryW, [this](LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
            operations.push_back(L"create " + Relative(path));
            return CreateDirectoryW(path, security);
        }};
    ScopedReplacement<decltype(DeleteFileW)> deletion{
        doubles::DeleteFileW, [this](LPCWSTR path) {
            operations.push_back(L"delete " + Relative(path));
            return DeleteFileW(path);
        }};
    ScopedReplacement<decltype(CopyFileW)> copying{
        doubles::CopyFileW, [this](LPCWSTR source, LPCWSTR target, BOOL failIfExists) {
            operations.push_back(L"copy " + Relative(source) + L" to " + Relative(target));
            return CopyFileW(source, target, failIfExists);
        }};
    ScopedReplacement<decltype(FileSha256Hex)> reading{
        doubles::FileSha256Hex, [this](const std::filesystem::path& file) {
            operations.push_back(L"digest " + Relative(file));
            return FileSha256Hex(file);
        }};
};

}  // namespace updater
