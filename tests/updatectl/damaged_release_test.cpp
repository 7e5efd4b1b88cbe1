// What the tool says about files of which only a part can be read.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "fixtures/damaged_file.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/temporary_directory.h"
#include "support/file_digest.h"
#include "support/handle.h"
#include "updatectl/tool.h"
#include "updatectl/tool_call.h"

namespace updater {

namespace {

using testing::HasSubstr;

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE;

// Until the end of the scope, one of the process's standard streams goes to a file.
struct RedirectedStream {
    RedirectedStream(DWORD stream, std::filesystem::path target)
        : number(stream), path(std::move(target)), before(GetStdHandle(stream)) {
        WriteFileContent(path, "");
        file = HoldFile(path, GENERIC_READ | GENERIC_WRITE, kShareAll);
        SetStdHandle(number, file.get());
    }
    ~RedirectedStream() { SetStdHandle(number, before); }
    RedirectedStream(const RedirectedStream&) = delete;
    RedirectedStream& operator=(const RedirectedStream&) = delete;

    DWORD number;
    std::filesystem::path path;
    HANDLE before;
    UniqueHandle file;
};

// Runs the tool within this process, where files are damaged.
ToolResult CallHere(const std::vector<std::wstring>& tokens) {
    const TemporaryDirectory directory;
    ToolResult result;
    const RedirectedStream output(STD_OUTPUT_HANDLE, directory.path / L"output");
    const RedirectedStream error(STD_ERROR_HANDLE, directory.path / L"error");
    result.exitCode = static_cast<std::uint32_t>(RunTool(tokens));
    result.output = ReadFileContent(output.path);
    result.error = ReadFileContent(error.path);
    return result;
}

// A release whose list and whose digests are those of the bytes that can still be read.
struct DamagedRelease : testing::TestWithParam<int> {
    DamagedRelease() {
        const std::string content(100000, 'x');
        WriteFileContent(directory.path / L"beginning", content.substr(0, readable));
        digestOfBeginning = FileSha256Hex(directory.path / L"beginning");
        WriteFileContent(release / L"data\\app.so", content);
        WriteFileContent(release / L"program-files.tsv",
                         "data\\app.so\t" + digestOfBeginning + "\n");
    }

    TemporaryDirectory directory;
    std::filesystem::path release = directory.path / L"release";
    std::size_t readable = static_cast<std::size_t>(GetParam());
    std::string digestOfBeginning;
    DamagedFile damaged{L"app.so", GetParam()};
};

INSTANTIATE_TEST_SUITE_P(ReadableBytes, DamagedRelease, testing::Values(0, 8192, 65536, 99999));

TEST_P(DamagedRelease, DoesNotVerify) {
    const ToolResult result = CallHere({L"verify", release.native()});
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_EQ(result.output,
              "line 1: data\\app.so: SHA256 verification failed\n"
              "listed: 1, different: 1, not listed: 0\n");
    EXPECT_EQ(damaged.failures, 1);
}

TEST_P(DamagedRelease, IsNotDescribed) {
    const ToolResult result = CallHere(
        {L"describe", (release / L"data\\app.so").native(), L"--app", Application1().native()});
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.error, HasSubstr("app.so: SHA256 verification failed"));
}

TEST_P(DamagedRelease, GetsNoInventory) {
    const std::string before = ReadFileContent(release / L"program-files.tsv");
    const ToolResult result = CallHere({L"inventory", release.native()});
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.error, HasSubstr("app.so: SHA256 verification failed"));
    EXPECT_EQ(ReadFileContent(release / L"program-files.tsv"), before);
}

TEST(DamagedList, DoesNotVerifyARelease) {
    const TemporaryDirectory release;
    WriteFileContent(release.path / L"app.so", "abc");
    const std::string line = "app.so\t" + FileSha256Hex(release.path / L"app.so") + "\n";
    WriteFileContent(release.path / L"program-files.tsv", line + line);
    const DamagedFile damaged(L"program-files.tsv", static_cast<std::int64_t>(line.size()));
    const ToolResult result = CallHere({L"verify", release.path.native()});
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_EQ(result.output,
              "Invalid program inventory\n"
              "listed: 1, different: 1, not listed: 0\n");
}

}  // namespace

}  // namespace updater
