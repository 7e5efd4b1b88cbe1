#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "fixtures/application_names.h"
#include "fixtures/directory_link.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/host_script.h"
#include "fixtures/temporary_directory.h"
#include "snapshot/program_verification.h"
#include "support/canonical_path.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"
#include "updatectl/tool_call.h"

namespace updater {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

// Digests of known texts.
constexpr char kDigestOfAbc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
constexpr char kDigestOfNothing[] =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

struct InventoryTest : testing::Test {
    void Write(const std::wstring& file, std::string_view content = "abc") const {
        WriteFileContent(directory / file, content);
    }

    std::string Inventory() const { return ReadFileContent(directory / L"program-files.tsv"); }

    ToolResult Call(std::vector<std::wstring> arguments = {}) const {
        arguments.insert(arguments.begin(), {L"inventory", directory.native()});
        return CallTool(arguments);
    }

    void ExpectRefusal(const std::string& word) const {
        const bool hadInventory = PathExists(directory / L"program-files.tsv");
        const std::string before = hadInventory ? Inventory() : std::string();
        const ToolResult result = Call();
        EXPECT_EQ(result.exitCode, 1U);
        EXPECT_THAT(result.error, HasSubstr(word));
        EXPECT_THAT(result.output, IsEmpty());
        EXPECT_EQ(PathExists(directory / L"program-files.tsv"), hadInventory);
        if (hadInventory) {
            EXPECT_EQ(Inventory(), before);
        }
        EXPECT_FALSE(PathExists(directory / L"program-files.tsv.tmp"));
    }

    TemporaryDirectory temporary;
    std::filesystem::path directory = temporary.path / L"program";
};

TEST_F(InventoryTest, IsExactlyInTheFormThatTheUpdaterReads) {
    Write(kExecutableName);
    Write(L"data\\\u4E2D\u6587 x.txt");
    Write(L"data\\b", "");
    Write(L"data-old.dll");
    Write(L"data\\program-files.tsv");
    const ToolResult result = Call();
    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(
        result.output,
        WideToUtf8((CanonicalPath(directory) / L"program-files.tsv").native()) + ", files: 5\n");
    const std::string abc = std::string("\t") + kDigestOfAbc + "\n";
    EXPECT_EQ(Inventory(), IDENTITY_EXECUTABLE + abc + "data\\b\t" + kDigestOfNothing + "\n" +
                               "data\\program-files.tsv" + abc +
                               WideToUtf8(L"data\\\u4E2D\u6587 x.txt") + abc + "data-old.dll" +
                               abc);
    EXPECT_NO_THROW(VerifyInstalledProgram(directory));
}

TEST_F(InventoryTest, ListsNeitherItselfNorWhatAnInterruptedRunLeft) {
    Write(L"a");
    Write(L"program-files.tsv", "an older list");
    Write(L"program-files.tsv.tmp", "half a list");
    EXPECT_EQ(Call().exitCode, 0U);
    EXPECT_EQ(Inventory(), std::string("a\t") + kDigestOfAbc + "\n");
    EXPECT_FALSE(PathExists(directory / L"program-files.tsv.tmp"));
    EXPECT_EQ(Call().exitCode, 0U);
    EXPECT_EQ(Inventory(), std::string("a\t") + kDigestOfAbc + "\n");
}

TEST_F(InventoryTest, TakesRelativePathsAndForeignSeparators) {
    Write(L"a");
    EXPECT_EQ(CallTool({L"inventory", L"program"}, temporary.path).exitCode, 0U);
    EXPECT_EQ(Inventory(), std::string("a\t") + kDigestOfAbc + "\n");
    Write(L"b");
    EXPECT_EQ(CallTool({L"inventory", L"./program/"}, temporary.path).exitCode, 0U);
    EXPECT_THAT(Inventory(), HasSubstr("b\t"));
    Write(L"c");
    EXPECT_EQ(CallTool({L"inventory", L"."}, directory).exitCode, 0U);
    EXPECT_THAT(Inventory(), HasSubstr("c\t"));
}

TEST_F(InventoryTest, WorksFromAnotherSystemsShell) {
    Write(L"\u4E2D\u6587");
    RunHostScript(directory, "LC_ALL=C.UTF-8 wine '" + WideToUtf8(ToolPath().native()) +
                                 "' inventory . --json </dev/null >../output 2>../error");
    EXPECT_THAT(Inventory(), testing::StartsWith(WideToUtf8(L"\u4E2D\u6587\t")));
    const nlohmann::json output =
        nlohmann::json::parse(ReadFileContent(temporary.path / L"output"));
    EXPECT_EQ(output.at("files"), 1);
}

TEST_F(InventoryTest, RefusesALocaleThatManglesNames) {
    Write(L"\u4E2D\u6587");
    RunHostScript(directory, "! LC_ALL=C wine '" + WideToUtf8(ToolPath().native()) +
                                 "' inventory . </dev/null >../output 2>../error");
    EXPECT_THAT(ReadFileContent(temporary.path / L"error"), HasSubstr("LC_ALL"));
    EXPECT_FALSE(PathExists(directory / L"program-files.tsv"));
}

TEST_F(InventoryTest, IsJsonOnRequest) {
    Write(L"a");
    Write(L"b\\c");
    const ToolResult result = Call({L"--json"});
    const nlohmann::json json = nlohmann::json::parse(result.output);
    EXPECT_EQ(
        json,
        (nlohmann::json{
            {"inventory", WideToUtf8((CanonicalPath(directory) / L"program-files.tsv").native())},
            {"files", 2}}));
    EXPECT_THAT(result.output, testing::EndsWith("}\n"));
}

TEST_F(InventoryTest, LeavesOutWhatIsExcluded) {
    for (const wchar_t* file :
         {L"a.exe", L"a.pdb", L"data\\B.PDB", L"data\\cache\\x\\y", L"cache\\x", L"keep"}) {
        Write(file);
    }
    const ToolResult result =
        Call({L"--exclude", L"*.pdb", L"--exclude", L"data/cache", L"--exclude", L"*.obj"});
    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(result.error, "Note: --exclude *.obj matches nothing\n");
    const std::string abc = std::string("\t") + kDigestOfAbc + "\n";
    EXPECT_EQ(Inventory(), "a.exe" + abc + "cache\\x" + abc + "keep" + abc);
}

TEST_F(InventoryTest, FindsNoFaultWithWhatIsExcluded) {
    const TemporaryDirectory elsewhere;
    Write(L"a");
    const DirectoryLink link(directory / L"link", elsewhere.path);
    ExpectRefusal("\n  link is a link or another reparse point\n");
    EXPECT_EQ(Call({L"--exclude", L"link"}).exitCode, 0U);
}

TEST_F(InventoryTest, RefusesATreeWithoutFiles) {
    CreateDirectories(directory / L"empty" / L"er");
    ExpectRefusal("There is no file to list in ");
    Write(L"program-files.tsv", "an older list");
    ExpectRefusal("There is no file to list in ");
    Write(L"a");
    EXPECT_EQ(Call({L"--exclude", L"*"}).exitCode, 1U);
    EXPECT_EQ(Inventory(), "an older list");
}

TEST_F(InventoryTest, NamesTheFileThatCannotBeRead) {
    Write(L"a");
    Write(L"data\\locked \u4E2D");
    const UniqueHandle lock = HoldFile(directory / L"data\\locked \u4E2D");
    ExpectRefusal("\\data\\locked \xE4\xB8\xAD: ");
}

TEST_F(InventoryTest, NamesTheListThatCannotBeReplaced) {
    Write(L"a");
    Write(L"program-files.tsv", "an older list");
    const UniqueHandle lock =
        HoldFile(directory / L"program-files.tsv", GENERIC_READ, FILE_SHARE_READ);
    ExpectRefusal("Cannot write ");
}

TEST_F(InventoryTest, DoesNotDisturbAnotherRunInTheSameDirectory) {
    Write(L"a");
    const UniqueHandle other =
        OwnHandle(CreateFileW((directory / L"program-files.tsv.tmp").c_str(), GENERIC_WRITE, 0,
                              nullptr, CREATE_NEW, 0, nullptr));
    ASSERT_TRUE(other);
    const ToolResult result = Call();
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_THAT(result.error, HasSubstr("\\program-files.tsv.tmp: "));
    EXPECT_TRUE(PathExists(directory / L"program-files.tsv.tmp"));
}

}  // namespace
}  // namespace updater
