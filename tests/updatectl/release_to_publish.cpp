#include "updatectl/release_to_publish.h"

#include <gtest/gtest.h>

#include "fixtures/file_content.h"
#include "support/file_system.h"
#include "support/text_conversion.h"
#include "updatectl/stored_feeds.h"

namespace updater {

ReleaseToPublish::ReleaseToPublish() {
    WriteFileContent(setup, kStoredSetup);
    CopyToNewFile(Application2(), application);
    Write(L"key.pub", kPublicKey);
    Write(L"other.pub", kOtherPublicKey);
}

ToolResult ReleaseToPublish::Prepare(const std::vector<std::wstring>& more) const {
    std::vector<std::wstring> arguments = {L"publish",  setup.native(),
                                           L"--app",    application.native(),
                                           L"--output", directory.native()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return CallTool(arguments);
}

ToolResult ReleaseToPublish::PreparePlain() const {
    return Prepare({L"--issue", L"7", L"--published", L"2026-11-22T18:31:00Z", L"--expires",
                    L"2099-12-31T23:59:59Z"});
}

ToolResult ReleaseToPublish::Sign(const std::wstring& signature, const std::wstring& key) const {
    return CallTool({L"publish", setup.native(), L"--signature", (directory / signature).native(),
                     L"--key", (directory / key).native(), L"--output", directory.native()});
}

std::string ReleaseToPublish::Content(const wchar_t* name) const {
    return ReadFileContent(directory / name);
}

std::wstring ReleaseToPublish::Write(const wchar_t* name, const std::string& content) const {
    WriteFileContent(directory / name, content);
    return (directory / name).native();
}

void ReleaseToPublish::ExpectUnusable(const ToolResult& result, const wchar_t* file,
                                      const std::string& reason) const {
    EXPECT_EQ(result.exitCode, 1U) << reason;
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.error, IDENTITY_RELEASE_TOOL_STEM ": Cannot use " +
                                WideToUtf8((directory / file).native()) + ": " + reason + "\n");
}

std::vector<std::wstring> ReleaseToPublish::Written() const {
    std::vector<std::wstring> names;
    for (const auto& [name, content] : ReadTreeContent(directory)) {
        if (name.starts_with(L"update-feed.")) {
            names.push_back(name);
        }
    }
    return names;
}

}  // namespace updater
