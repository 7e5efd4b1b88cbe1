#pragma once

#include <filesystem>
#include <string>

#include "fixtures/processes/stand_in_process.h"
#include "support/handle.h"

namespace updater {

/// Another process that holds a file open without sharing it, from `Hold` to `Release` or the end
/// of the scope. Each function returns when that is so, and raises `std::runtime_error` when it
/// does not come about. The process runs from the beginning, so that it disturbs no replacement of
/// the functions that start processes.
struct FileHolder {
    explicit FileHolder(const std::filesystem::path& file);

    void Hold() const;
    void Release() const;

    std::wstring eventBaseName;
    UniqueHandle begin;
    UniqueHandle held;
    UniqueHandle end;
    StandInProcess holder;
};

}  // namespace updater
