#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "fixtures/application_names.h"
#include "fixtures/temporary_directory.h"
#include "updatectl/tool_call.h"

namespace updater {

/// How the tool begins to show a stored feed that has not expired.
inline constexpr char kShownFeed[] =
    "version        2.0.0.0\n"
    "size           15\n"
    "sha256         203e123ece3b15215c5c3a07ae62b5d50f166a05982c75bd422ce69caab1b259\n"
    "address        program%202.exe\n"
    "issue          7\n"
    "published      2026-11-22T18:31:00Z\n"
    "expires        2099-12-31T23:59:59Z\n"
    "channel        stable\n";

/// A release that is to be published: the setup program of stored_feeds.h, the application of
/// version 2.0.0.0, and the public keys "key.pub" and "other.pub".
struct ReleaseToPublish {
    ReleaseToPublish();

    /// Runs the first step with these options and those that every one needs.
    [[nodiscard]] ToolResult Prepare(const std::vector<std::wstring>& more) const;

    /// Runs the first step so that it makes the plain feed of stored_feeds.h.
    [[nodiscard]] ToolResult PreparePlain() const;

    /// Runs the second step with two files of the directory.
    [[nodiscard]] ToolResult Sign(const std::wstring& signature, const std::wstring& key) const;

    /// Returns a file of the directory.
    [[nodiscard]] std::string Content(const wchar_t* name) const;

    /// Writes a file into the directory and returns its path.
    std::wstring Write(const wchar_t* name, const std::string& content) const;

    /// Expects that the tool has failed, and said why it cannot use this file of the directory.
    void ExpectUnusable(const ToolResult& result, const wchar_t* file,
                        const std::string& reason) const;

    /// Returns the names of what the tool has written, or begun to write, in their order.
    [[nodiscard]] std::vector<std::wstring> Written() const;

    TemporaryDirectory temporary;
    std::filesystem::path directory = temporary.path / L"release";
    std::filesystem::path setup = directory / L"program 2.exe";
    std::filesystem::path application = directory / kExecutableName;
};

}  // namespace updater
