#include <gmock/gmock.h>

#include "elevation/program_start.h"
#include "fixtures/application_names.h"
#include "fixtures/directory_link.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/install_mutex.h"
#include "fixtures/patience.h"
#include "fixtures/temporary_directory.h"
#include "snapshot/program_backup.h"
#include "support/argument_quoting.h"
#include "support/canonical_path.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/process_utilities.h"
#include "support/text_conversion.h"
#include "support/version_information.h"
#include "support/windows_api.h"
#include "updatectl/file_security.h"
#include "updatectl/limited_call.h"
#include "updatectl/tool_call.h"
#include "worker/install_mutex.h"

namespace updater {
namespace {

using testing::HasSubstr;
using TreeContent = std::map<std::wstring, std::string>;

// Runs a program from another place until the end of the scope.
struct ScopedProgram {
    explicit ScopedProgram(const std::filesystem::path& program)
        : started(StartProgram({.program = program, .arguments = {}, .workingDirectory = {}})) {}
    ~ScopedProgram() {
        TerminateProcess(started.process.get(), 0);
        IsSignalledWithin(started.process.get(), kPatienceMilliseconds);
    }
    ScopedProgram(const ScopedProgram&) = delete;
    ScopedProgram& operator=(const ScopedProgram&) = delete;

    StartedProgram started;
};

// A machine that lost power while version 2's setup program replaced version 1.
struct RestoreTest : testing::Test {
    RestoreTest() {
        LetAdministratorsWrite(temporary.path);
        Install(kExecutableName, Application1());
        Write(L"data\\\u4E2D\u6587 x", "old data");
        Write(L"engine.dll", "old engine");
        Write(L"readme.txt", "no program asset");
        Write(L"account.db", "the user's");
        std::string list;
        for (const wchar_t* file :
             {kExecutableName, L"data\\\u4E2D\u6587 x", L"engine.dll", L"readme.txt"}) {
            list += WideToUtf8(file) + "\t" + FileSha256Hex(install / file) + "\n";
        }
        Write(L"program-files.tsv", list);
        CreateDirectories(staging);
        CopyToNewFile(Application2(), staging / L"installer.exe");
        BackupProgram(install, staging / L"backup");
        previous = Program();

        WriteFileContent(staging / L"install.log", "half a log");
        Install(kExecutableName, Application2());
        RemoveFile(install / L"engine.dll");
        Write(L"added.dll", "new");
        Write(L"data\\added", "new");
        Write(L"data\\\u4E2D\u6587 x", "half");
        Write(L"account.db", "the user's, changed");
    }

    void Install(const std::wstring& file, const std::filesystem::path& source) const {
        CreateDirectories(install);
        CopyOverFile(source, install / file);
    }

    void Write(const std::wstring& file, std::string_view content) const {
        WriteFileContent(install / file, content);
    }

    // All but the user's file.
    TreeContent Program() const {
        TreeContent content = ReadTreeContent(install);
        content.erase(L"account.db");
        return content;
    }

    ToolResult Call(const std::vector<std::wstring>& more = {}) const {
        std::vector<std::wstring> arguments = {L"restore", L"--staging", staging.native(),
                                               L"--install-dir", install.native()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return CallTool(arguments);
    }

    void ExpectRefusal(const std::string& why, const std::vector<std::wstring>& more = {}) const {
        const TreeContent before = ReadTreeContent(install);
        const ToolResult result = Call(more);
        EXPECT_EQ(result.exitCode, 1U) << why;
        EXPECT_THAT(result.error, HasSubstr(why));
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(ReadTreeContent(install), before) << why;
    }

    void ExpectRestored(const ToolResult& result) const {
        EXPECT_EQ(result.exitCode, 0U) << result.error;
        EXPECT_EQ(Program(), previous);
        EXPECT_EQ(ReadFileContent(install / L"account.db"), "the user's, changed");
    }

    TemporaryDirectory temporary;
    std::filesystem::path install = temporary.path / L"\u7A0B\u5E8F dir";
    std::filesystem::path staging =
        temporary.path / IDENTITY_BASE_NAME L"-{01234567-89AB-CDEF-0123-456789ABCDEF}";
    TreeContent previous;
};

TEST_F(RestoreTest, PutsThePreviousProgramBackAndSaysSo) {
    const std::wstring registered = ReadRegisteredVersion();
    const ToolResult result = Call();
    ExpectRestored(result);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.output,
              "Restored version 1.0.0.0 in " + WideToUtf8(CanonicalPath(install).native()) +
                  ", files: 4\nThe version that Windows shows for the program was left as it is: " +
                  (registered.empty() ? "none" : WideToUtf8(registered)) + "\n");
    EXPECT_EQ(ReadRegisteredVersion(), registered);
}

TEST_F(RestoreTest, CanBeRepeated) {
    ExpectRestored(Call());
    ExpectRestored(Call());
}

TEST_F(RestoreTest, TakesRelativePaths) {
    ExpectRestored(CallTool({L"restore", L"--staging", staging.filename().native() + L"/",
                             L"--install-dir", L"./" + install.filename().native()},
                            temporary.path));
}

TEST_F(RestoreTest, NeedsNoExecutableInTheInstallation) {
    RemoveFile(install / kExecutableName);
    ExpectRestored(Call());
}

TEST_F(RestoreTest, WaitsForTheEndOfTheApplication) {
    {
        const ScopedProgram application(install / kExecutableName);
        ExpectRefusal("Another application instance is running; close it first");
        ExpectRefusal("Another application instance is running; close it first", {L"--force"});
    }
    ExpectRestored(Call());
}

TEST_F(RestoreTest, WaitsForTheEndOfAnUpdate) {
    {
        const UniqueHandle mutex = AcquireInstallMutex();
        ExpectRefusal("Another update installation is running");
        ExpectRefusal("Another update installation is running", {L"--force"});
    }
    ExpectRestored(Call());
}

TEST_F(RestoreTest, WaitsForTheEndOfTheSetupProgram) {
    {
        const ScopedProgram setup(staging / L"installer.exe");
        ExpectRefusal("is still running", {L"--force"});
    }
    ExpectRestored(Call());
}

TEST_F(RestoreTest, HoldsTheMutexOfAnUpdate) {
    // The tool stays at the backup's digest for as long as it takes to see the mutex taken.
    constexpr LONG kHalfGigabyte = 1 << 29;
    {
        const UniqueHandle large =
            OwnHandle(CreateFileW((staging / L"backup\\data\\large").c_str(), GENERIC_WRITE, 0,
                                  nullptr, CREATE_NEW, 0, nullptr));
        SetFilePointer(large.get(), kHalfGigabyte, nullptr, FILE_BEGIN);
        ASSERT_NE(SetEndOfFile(large.get()), 0);
    }
    const StartedProgram tool =
        StartProgram({.program = ToolPath(),
                      .arguments = L"restore --staging " + QuoteArgument(staging.native()) +
                                   L" --install-dir " + QuoteArgument(install.native()),
                      .workingDirectory = {}});
    bool held = false;
    while (!IsSignalledWithin(tool.process.get(), 5)) {
        held = held || OwnHandle(OpenMutexW(SYNCHRONIZE, FALSE, kInstallMutexName)) != nullptr;
    }
    EXPECT_TRUE(held);
    EXPECT_EQ(AwaitExitCode(tool.process.get()), 0U);
}

TEST_F(RestoreTest, RefusesAStagingDirectoryWithoutABackupOfTheProgram) {
    RemoveFile(staging / L"backup\\" IDENTITY_EXECUTABLE);
    ExpectRefusal("There is no backup of the program in ", {L"--force"});
    RemoveTree(staging / L"backup");
    ExpectRefusal("There is no backup of the program in ", {L"--force"});
    RemoveTree(staging);
    ExpectRefusal("Cannot open the directory ", {L"--force"});
}

TEST_F(RestoreTest, RefusesABackupWhoseExecutableHasNoVersion) {
    WriteFileContent(staging / L"backup\\" IDENTITY_EXECUTABLE, "zeros, after the power was lost");
    ExpectRefusal(IDENTITY_EXECUTABLE ": Cannot read installed executable version", {L"--force"});
}

TEST_F(RestoreTest, RefusesABackupThatMayBeIncomplete) {
    RemoveFile(staging / L"install.log");
    ExpectRefusal("The setup program had not started");
    ExpectRestored(Call({L"--force"}));
}

TEST_F(RestoreTest, RefusesABackupThatIsNotAsItsListSays) {
    RemoveFile(staging / L"backup\\engine.dll");
    ExpectRefusal("\n  engine.dll: SHA256 verification failed\n");
    WriteFileContent(staging / L"backup\\engine.dll", "damaged");
    WriteFileContent(staging / L"backup\\data\\\u4E2D\u6587 x", "damaged");
    ExpectRefusal(
        WideToUtf8(L"\n  data\\\u4E2D\u6587 x: Installed program checksum mismatch: "
                   L"data\\\u4E2D\u6587 x\n  engine.dll: Installed program checksum "
                   L"mismatch: engine.dll\n"));
    const ToolResult result = Call({L"--force"});
    EXPECT_EQ(result.exitCode, 0U);
    EXPECT_EQ(ReadFileContent(install / L"engine.dll"), "damaged");
}

TEST_F(RestoreTest, RefusesABackupWhoseListIsInvalid) {
    const std::filesystem::path list = staging / L"backup\\program-files.tsv";
    WriteFileContent(list, "engine.dll\t0\nno tab\n");
    ExpectRefusal(
        "The backup is not as its own inventory says; see --force:\n"
        "  engine.dll: Installed program checksum mismatch: engine.dll\n"
        "  Invalid program inventory\n");
    WriteFileContent(list, "");
    ExpectRefusal("see --force:\n  Installed program inventory is empty\n");
}

TEST_F(RestoreTest, ChecksTheDataDirectoryHoweverItsNameIsSpelled) {
    WriteFileContent(staging / L"backup\\program-files.tsv",
                     "DATA\\missing\t0\nuser\\missing\t0\n");
    ExpectRefusal("see --force:\n  DATA\\missing: SHA256 verification failed\n");
}

TEST_F(RestoreTest, TakesABackupFromBeforeThereWereLists) {
    RemoveFile(staging / L"backup\\program-files.tsv");
    EXPECT_EQ(Call().exitCode, 0U);
    EXPECT_FALSE(PathExists(install / L"program-files.tsv"));
}

TEST_F(RestoreTest, RefusesAnotherDirectoryThanTheApplications) {
    for (const wchar_t* file : {kExecutableName, L"program-files.tsv"}) {
        RemoveFile(install / file);
    }
    ExpectRefusal("is not where the application is installed", {L"--force"});
    RemoveTree(install);
    CreateDirectories(install);
    EXPECT_EQ(Call().exitCode, 0U) << "an empty directory loses nothing";
    RemoveTree(install);
    const ToolResult result = Call();
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_THAT(result.error, HasSubstr("Cannot open the directory "));
}

TEST_F(RestoreTest, RefusesDirectoriesWithinOneAnother) {
    const std::filesystem::path backup = staging / L"backup";
    for (const auto& [from, to] :
         {std::pair{staging, staging}, std::pair{staging, backup}, std::pair{install, install},
          std::pair{staging, staging.root_path()}}) {
        CreateDirectories(install / L"backup");
        CopyOverFile(Application1(), install / L"backup\\" IDENTITY_EXECUTABLE);
        const TreeContent before = ReadTreeContent(temporary.path);
        const ToolResult result = CallTool(
            {L"restore", L"--staging", from.native(), L"--install-dir", to.native(), L"--force"});
        EXPECT_EQ(result.exitCode, 1U);
        EXPECT_THAT(result.error, HasSubstr("lie within one another"));
        EXPECT_EQ(ReadTreeContent(temporary.path), before);
    }
}

TEST_F(RestoreTest, RefusesALinkInTheInstallation) {
    const TemporaryDirectory elsewhere;
    const DirectoryLink link(install / L"data" / L"link", elsewhere.path);
    const ToolResult result = Call();
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_EQ(result.error,
              IDENTITY_RELEASE_TOOL_STEM ": Reparse points are not supported in program assets\n");
    EXPECT_TRUE(PathExists(install / L"added.dll"));
}

TEST_F(RestoreTest, RefusesALinkInTheStagingDirectory) {
    const TemporaryDirectory elsewhere;
    WriteFileContent(elsewhere.path / L"planted.dll", "x");
    const DirectoryLink link(staging / L"backup" / L"data" / L"link", elsewhere.path);
    ExpectRefusal(WideToUtf8(CanonicalPath(staging).native()) + "\\backup\\data\\link is a link\n",
                  {L"--force"});
}

TEST_F(RestoreTest, RefusesABackupThatOthersCanChange) {
    constexpr char kReason[] = " can be changed by others than administrators and the system\n";
    const std::string name = WideToUtf8(CanonicalPath(staging).native());
    LetEverybodyWrite(staging / L"backup\\data");
    ExpectRefusal(name + "\\backup\\data" + kReason, {L"--force"});
    LetEverybodyWrite(staging);
    ExpectRefusal(name + kReason, {L"--force"});
}

TEST_F(RestoreTest, SaysThatTheProgramIsOnlyPartlyRestored) {
    const UniqueHandle lock =
        HoldFile(install / L"program-files.tsv", GENERIC_READ, FILE_SHARE_READ);
    const ToolResult result = Call();
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_THAT(result.error, HasSubstr("only partly restored"));
    EXPECT_THAT(result.error, HasSubstr("copy_file"));
    EXPECT_THAT(result.error, HasSubstr("program-files.tsv"));
}

TEST_F(RestoreTest, NeedsAnAdministrator) {
    ASSERT_TRUE(IsProcessElevated());
    const TreeContent before = ReadTreeContent(install);
    const ToolResult result = CallToolLimited(
        {L"restore", L"--staging", staging.native(), L"--install-dir", install.native()});
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_THAT(result.error, HasSubstr("Administrator authorization is required"));
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(ReadTreeContent(install), before);
}

}  // namespace
}  // namespace updater
