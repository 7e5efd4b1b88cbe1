#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "fixtures/application_names.h"
#include "fixtures/file_content.h"
#include "fixtures/temporary_directory.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/text_conversion.h"
#include "updatectl/tool_call.h"

namespace updater {
namespace {

using testing::HasSubstr;

struct DescribeTest : testing::Test {
    DescribeTest() {
        WriteFileContent(setup, std::string(100000, 'x'));
        CopyToNewFile(Application2(), application);
    }

    TemporaryDirectory temporary;
    std::filesystem::path setup = temporary.path / L"program \u4E2D 2.exe";
    std::filesystem::path application = temporary.path / kExecutableName;
};

TEST_F(DescribeTest, PrintsWhatTheFeedSays) {
    const ToolResult result =
        CallTool({L"describe", setup.native(), L"--app", application.native()});
    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(result.error, "");
    // The file version, not the product version.
    EXPECT_EQ(result.output, R"({"version":"2.0.0.0","size":100000,"sha256":")" +
                                 FileSha256Hex(setup) + R"(","setup":")" +
                                 WideToUtf8(setup.filename().native()) + "\"}\n");
    const nlohmann::json feed = nlohmann::json::parse(result.output);
    EXPECT_EQ(feed.at("version"), "2.0.0.0");
    EXPECT_EQ(feed.at("size"), 100000);
    EXPECT_EQ(feed.at("sha256"), FileSha256Hex(setup));
    EXPECT_EQ(feed.at("setup"), WideToUtf8(setup.filename().native()));
}

TEST_F(DescribeTest, TakesRelativePathsAndForeignSeparators) {
    const ToolResult result = CallTool(
        {L"describe", L"--app", L"./" IDENTITY_EXECUTABLE, L"./" + setup.filename().native()},
        temporary.path);
    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(nlohmann::json::parse(result.output).at("setup"),
              WideToUtf8(setup.filename().native()));
}

TEST_F(DescribeTest, NamesTheFileThatItCannotUse) {
    struct FaultCase {
        std::wstring setup;
        std::wstring application;
        const char* error;
    };
    const std::wstring noVersion = (temporary.path / L"plain.exe").native();
    WriteFileContent(noVersion, "no program");
    for (const FaultCase& test :
         {FaultCase{L"C:\\no setup.exe", application.native(), "Cannot read C:\\no setup.exe: "},
          FaultCase{setup.native(), L"C:\\no app.exe", "Cannot read C:\\no app.exe: "},
          FaultCase{setup.native(), noVersion,
                    "plain.exe: Cannot read installed executable version\n"},
          FaultCase{temporary.path.native(), application.native(), "Cannot read "}}) {
        const ToolResult result = CallTool({L"describe", test.setup, L"--app", test.application});
        EXPECT_EQ(result.exitCode, 1U) << test.error;
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.error, HasSubstr(test.error));
    }
}

}  // namespace
}  // namespace updater
