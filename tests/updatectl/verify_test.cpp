#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "fixtures/application_names.h"
#include "fixtures/directory_link.h"
#include "fixtures/file_content.h"
#include "fixtures/temporary_directory.h"
#include "snapshot/program_verification.h"
#include "support/text_conversion.h"
#include "updatectl/tool_call.h"

namespace updater {
namespace {

using testing::HasSubstr;

constexpr char kAbc[] = "\tba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

struct VerifyTest : testing::Test {
    VerifyTest() {
        Write(kExecutableName, "abc");
        Write(L"data\\\u4E2D x", "abc");
    }

    void Write(const std::wstring& file, std::string_view content) const {
        WriteFileContent(temporary.path / file, content);
    }

    void List(const std::string& content) const { Write(L"program-files.tsv", content); }

    ToolResult Call() const { return CallTool({L"verify", temporary.path.native()}); }

    nlohmann::json Json(std::uint32_t exitCode) const {
        const ToolResult result = CallTool({L"verify", L".", L"--json"}, temporary.path);
        EXPECT_EQ(result.exitCode, exitCode);
        EXPECT_EQ(result.error, "");
        return nlohmann::json::parse(result.output);
    }

    // What the updater itself says, which stops at the first difference.
    std::string UpdatersWords() const {
        try {
            VerifyInstalledProgram(temporary.path);
            return {};
        } catch (const std::exception& failure) {
            return failure.what();
        }
    }

    TemporaryDirectory temporary;
};

TEST_F(VerifyTest, AcceptsWhatTheUpdaterAccepts) {
    List(WideToUtf8(InCapitals(kExecutableName)) + kAbc + "\r\n./data//" + WideToUtf8(L"\u4E2D x") +
         kAbc);
    const ToolResult result = Call();
    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(result.output, "listed: 2, different: 0, not listed: 0\n");
    EXPECT_EQ(UpdatersWords(), "");
    EXPECT_EQ(Json(0), (nlohmann::json{{"matches", true},
                                       {"listed", 2},
                                       {"differences", nlohmann::json::array()},
                                       {"notListed", nlohmann::json::array()}}));
}

TEST_F(VerifyTest, ShowsWhatIsNotListedForInformation) {
    List(std::string(IDENTITY_EXECUTABLE) + kAbc + "\n");
    Write(L"account.db", "the user's");
    const TemporaryDirectory elsewhere;
    Write(L"program-files.tsv.tmp", "left");
    const DirectoryLink link(temporary.path / L"link", elsewhere.path);
    const ToolResult result = Call();
    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(result.output, WideToUtf8(L"not listed: account.db\n"
                                        L"not listed: data\\\u4E2D x\n"
                                        L"not listed: link\n"
                                        L"listed: 1, different: 0, not listed: 3\n"));
    EXPECT_EQ(Json(0).at("notListed"),
              (nlohmann::json{"account.db", WideToUtf8(L"data\\\u4E2D x"), "link"}));
}

TEST_F(VerifyTest, ShowsEveryDifferenceInTheUpdatersWords) {
    const std::string chinese = WideToUtf8(L"data/\u4E2D x");
    List(std::string("missing\\file") + kAbc + "\n" +  // 1
         IDENTITY_EXECUTABLE + kAbc + "\n" +           // 2, right
         chinese + "\tBA7816\n" +                      // 3
         "\n" +                                        // 4
         "no tab\n" +                                  // 5
         "..\\outside" + kAbc + "\n" +                 // 6
         "\\\\server\\share\\x" + kAbc + "\n" +        // 7
         IDENTITY_EXECUTABLE + kAbc + " \n" +          // 8
         std::string("data") + kAbc + "\n" +           // 9, a directory
         kAbc + "\n");                                 // 10, no path
    struct Expected {
        std::size_t line;
        std::string path;
        std::string message;
        bool hasReason;
    };
    const std::vector<Expected> expected = {
        {1, "missing\\file", "SHA256 verification failed", true},
        {3, chinese, "Installed program checksum mismatch: " + chinese, false},
        {4, "", "Invalid program inventory", false},
        {5, "", "Invalid program inventory", false},
        {6, "..\\outside", "Invalid program inventory traversal", false},
        {7, "\\\\server\\share\\x", "Invalid program inventory path", false},
        {8, IDENTITY_EXECUTABLE, "Installed program checksum mismatch: " IDENTITY_EXECUTABLE,
         false},
        {9, "data", "SHA256 verification failed", true},
        {10, "", "SHA256 verification failed", false},
    };
    const nlohmann::json json = Json(1);
    EXPECT_EQ(json.at("matches"), false);
    EXPECT_EQ(json.at("listed"), 10);
    const nlohmann::json& differences = json.at("differences");
    ASSERT_EQ(differences.size(), expected.size());
    for (std::size_t index = 0; index < expected.size(); ++index) {
        EXPECT_EQ(differences[index].at("line"), expected[index].line);
        EXPECT_EQ(differences[index].at("path"), expected[index].path);
        EXPECT_EQ(differences[index].at("message"), expected[index].message);
        EXPECT_NE(differences[index].at("reason").get<std::string>().empty(),
                  expected[index].hasReason)
            << index;
    }
    EXPECT_EQ(differences[0].at("message"), UpdatersWords());

    const std::string reason = differences[0].at("reason");
    const ToolResult text = Call();
    EXPECT_EQ(text.exitCode, 1U);
    EXPECT_THAT(text.output, HasSubstr("line 1: missing\\file: SHA256 verification failed (" +
                                       reason + ")\nline 3: Installed program checksum mismatch: " +
                                       chinese + "\nline 4: Invalid program inventory\n"));
    EXPECT_THAT(text.output,
                HasSubstr("line 6: ..\\outside: Invalid program inventory traversal\n"));
    EXPECT_THAT(text.output, HasSubstr("listed: 10, different: 9, not listed: 0\n"));
}

TEST_F(VerifyTest, DoesNotLetTheListWriteToTheTerminal) {
    List(std::string("a\x1B[2J\xE2\x80\xAE\xFF") + kAbc + "\n");
    const ToolResult result = Call();
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_THAT(result.output, HasSubstr("line 1: a<U+001B>[2J<U+202E>\xEF\xBF\xBD: "));
    EXPECT_EQ(Json(1).at("differences")[0].at("path"), "a\x1B[2J\xE2\x80\xAE\xEF\xBF\xBD");
}

TEST_F(VerifyTest, ReportsAMissingAndAnEmptyList) {
    for (const char* message :
         {"Installed program inventory is missing", "Installed program inventory is empty"}) {
        EXPECT_EQ(UpdatersWords(), message);
        const ToolResult result = Call();
        EXPECT_EQ(result.exitCode, 1U);
        EXPECT_EQ(result.output,
                  std::string(message) + "\nlisted: 0, different: 1, not listed: 0\n");
        const nlohmann::json json = Json(1);
        EXPECT_EQ(json.at("differences")[0].at("message"), message);
        EXPECT_EQ(json.at("differences")[0].at("line"), 0);
        List("");
    }
}

TEST_F(VerifyTest, ReportsAListThatBeginsWithAByteOrderMark) {
    List(std::string("\xEF\xBB\xBF" IDENTITY_EXECUTABLE) + kAbc + "\n");
    EXPECT_THAT(Call().output,
                HasSubstr("line 1: <U+FEFF>" IDENTITY_EXECUTABLE ": SHA256 verification failed ("));
}

}  // namespace
}  // namespace updater
