#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/dispatch.h"
#include "fixtures/application_names.h"
#include "fixtures/doubles/scoped_command_line.h"
#include "fixtures/doubles/updater_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "selftest/self_test.h"
#include "snapshot/operation_trace.h"
#include "snapshot/program_restore.h"
#include "support/argument_quoting.h"
#include "support/file_system.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr char kFailure[] = "Rollback fixture validation failed";

constexpr char kFailedStatus[] =
    R"({"state":"failed","message":"Rollback fixture validation failed","exitCode":1})";

struct SelfTestFailure : testing::Test {
    // Restores as usual, then does to the fixture what the event says.
    static std::function<decltype(RestoreProgram)> RestoreThen(std::function<void()> event) {
        return [event = std::move(event)](const std::filesystem::path& installation,
                                          const std::filesystem::path& backup,
                                          const ProgramAssets& record) {
            RestoreProgram(installation, backup, record);
            event();
        };
    }

    // The failure is raised, and reported by the updater that runs the self-test.
    void ExpectFailure() const {
        EXPECT_THAT([this] { RunSelfTest(job); }, RaisesError(kFailure));
        EXPECT_FALSE(PathExists(job / L"status.json"));
        RemoveTree(job);

        const std::wstring commandLine =
            L"updater.exe --self-test --job-dir \"" + job.native() + L"\"";
        const ScopedCommandLine command(commandLine);
        CreateDirectories(job);
        EXPECT_EQ(RunUpdater(), 1);
        EXPECT_EQ(ReadFileContent(job / L"status.json"), kFailedStatus);
    }

    TemporaryDirectory directory;
    std::filesystem::path job = directory.path / L"job";
    std::filesystem::path fixture = job / L"\u4E2D\u6587 path with spaces";
};

TEST_F(SelfTestFailure, FailsWhenTheAddedLibraryIsLeftInPlace) {
    const ScopedReplacement restore(doubles::RestoreProgram, RestoreThen([this] {
                                        WriteFileContent(fixture / L"added.dll", "new library");
                                    }));
    ExpectFailure();
}

TEST_F(SelfTestFailure, FailsWhenNothingIsRestored) {
    const ScopedReplacement restore(doubles::RestoreProgram,
                                    [](const auto&, const auto&, const auto&) {});
    ExpectFailure();
    EXPECT_EQ(ReadFileContent(fixture / kExecutableName), "partial failed install");
    EXPECT_EQ(ReadFileContent(fixture / L"added.dll"), "new library");
}

TEST_F(SelfTestFailure, FailsWhenTheApplicationDiffers) {
    const ScopedReplacement restore(
        doubles::RestoreProgram,
        RestoreThen([this] { WriteFileContent(fixture / kExecutableName, "old applicatioN"); }));
    ExpectFailure();
}

TEST_F(SelfTestFailure, FailsWhenTheUserFileIsGone) {
    const ScopedReplacement restore(doubles::RestoreProgram,
                                    RestoreThen([this] { RemoveFile(fixture / L"account.db"); }));
    ExpectFailure();
}

TEST_F(SelfTestFailure, PassesOnADigestThatCannotBeComputed) {
    const ScopedReplacement restore(doubles::RestoreProgram,
                                    RestoreThen([this] { RemoveFile(fixture / kExecutableName); }));
    EXPECT_THAT([this] { RunSelfTest(job); }, RaisesError("SHA256 verification failed"));
}

TEST_F(SelfTestFailure, PassesOnTheFailureOfTheRestore) {
    const ScopedReplacement restore(
        doubles::RestoreProgram, [](const auto&, const auto&, const auto&) {
            throw std::runtime_error("Restored program checksum mismatch");
        });
    EXPECT_THAT([this] { RunSelfTest(job); }, RaisesError("Restored program checksum mismatch"));
}

TEST_F(SelfTestFailure, ChecksNeitherTheUserFilesContentNorTheAssetInTheDataTree) {
    const ScopedReplacement restore(doubles::RestoreProgram, RestoreThen([this] {
                                        WriteFileContent(fixture / L"account.db", "changed");
                                        RemoveFile(fixture / L"data\\app.so");
                                    }));
    EXPECT_EQ(RunSelfTest(job), 0);
}

TEST_F(SelfTestFailure, RestoresADamagedInstallationFromTheBackupsOwnRecord) {
    int restores = 0;
    const ScopedReplacement restore(
        doubles::RestoreProgram,
        [&](const std::filesystem::path& installation, const std::filesystem::path& backup,
            const ProgramAssets& record) {
            ++restores;
            EXPECT_EQ(installation.native(), fixture.native());
            EXPECT_EQ(backup.native(), (job / L"backup").native());
            EXPECT_EQ(record, (ProgramAssets{kExecutableName, L"data\\app.so"}));
            EXPECT_EQ(ReadFileContent(fixture / kExecutableName), "partial failed install");
            EXPECT_EQ(ReadFileContent(fixture / L"added.dll"), "new library");
            EXPECT_EQ(ReadFileContent(fixture / L"data\\app.so"), "old assets");
            EXPECT_EQ(ReadFileContent(fixture / L"account.db"), "account retained");
            RestoreProgram(installation, backup, record);
        });
    EXPECT_EQ(RunSelfTest(job), 0);
    EXPECT_EQ(restores, 1);
}

// Everything that the self-test does in its directory, in order; paths stand relative to that.
struct SelfTestTrace : OperationTrace {
    using OperationTrace::OperationTrace;

    void Note(const wchar_t* operation, const std::filesystem::path& path) {
        operations.push_back(operation + Relative(path));
    }

    ScopedReplacement<decltype(CreateFileW)> writing{
        doubles::CreateFileW,
        [this](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
               DWORD disposition, DWORD flags, HANDLE model) {
            if (access == GENERIC_WRITE) {
                Note(L"write ", path);
            }
            return CreateFileW(path, access, share, security, disposition, flags, model);
        }};
    ScopedReplacement<decltype(GetFileAttributesExW)> looking{
        doubles::GetFileAttributesExW,
        [this](LPCWSTR path, GET_FILEEX_INFO_LEVELS level, LPVOID data) {
            Note(L"look for ", path);
            return GetFileAttributesExW(path, level, data);
        }};
    ScopedReplacement<decltype(QuoteArgument)> quoting{doubles::QuoteArgument,
                                                       [this](std::wstring_view argument) {
                                                           operations.emplace_back(L"quote");
                                                           return QuoteArgument(argument);
                                                       }};
};

TEST_F(SelfTestFailure, TakesItsStepsInTheirOrder) {
    SelfTestTrace trace(job);
    EXPECT_EQ(RunSelfTest(job), 0);
    const std::wstring root = fixture.filename().native();
    const std::wstring application = root + L"\\" IDENTITY_EXECUTABLE;
    const std::wstring asset = root + L"\\data\\app.so";
    EXPECT_THAT(
        trace.operations,
        testing::ElementsAre(
            L"create .", L"create " + root, L"create " + root + L"\\data", L"write " + application,
            L"write " + asset, L"write " + root + L"\\account.db", L"list " + root + L"\\*",
            L"look for " + root + L"\\data", L"list " + root + L"\\data\\*", L"create backup",
            L"copy " + application + L" to backup\\" IDENTITY_EXECUTABLE,
            L"digest backup\\" IDENTITY_EXECUTABLE, L"digest " + application,
            L"create backup\\data", L"copy " + asset + L" to backup\\data\\app.so",
            L"digest backup\\data\\app.so", L"digest " + asset, L"digest " + application,
            L"write " + application, L"write " + root + L"\\added.dll", L"list " + root + L"\\*",
            L"look for " + root + L"\\data", L"list " + root + L"\\data\\*",
            L"delete " + root + L"\\added.dll",
            L"copy backup\\" IDENTITY_EXECUTABLE L" to " + application,
            L"digest backup\\" IDENTITY_EXECUTABLE, L"digest " + application,
            L"copy backup\\data\\app.so to " + asset, L"digest backup\\data\\app.so",
            L"digest " + asset, L"digest " + application, L"look for " + root + L"\\added.dll",
            L"look for " + root + L"\\account.db", L"quote", L"write status.tmp"));
}

TEST_F(SelfTestFailure, StopsAtTheFirstCheckThatFails) {
    const struct {
        const wchar_t* spoiled;
        std::wstring lastOperation;
    } cases[] = {
        {kExecutableName, L"digest "},
        {L"added.dll", L"look for "},
        {L"account.db", L"look for "},
    };
    for (const auto& [spoiled, lastOperation] : cases) {
        const std::filesystem::path file = fixture / spoiled;
        SelfTestTrace trace(job);
        const ScopedReplacement restore(doubles::RestoreProgram, RestoreThen([&] {
                                            if (file.extension() == L".db") {
                                                RemoveFile(file);
                                            } else {
                                                WriteFileContent(file, "spoiled");
                                            }
                                        }));
        EXPECT_THAT([this] { RunSelfTest(job); }, RaisesError(kFailure));
        EXPECT_EQ(trace.operations.back(), lastOperation + trace.Relative(file));
        RemoveTree(job);
    }
}

TEST_F(SelfTestFailure, FailsWhenQuotingDoublesNoBackslashBeforeTheClosingQuote) {
    const ScopedReplacement quoting(doubles::QuoteArgument, [](std::wstring_view argument) {
        return L"\"" + std::wstring(argument) + L"\"";
    });
    ExpectFailure();
    // The rollback itself worked.
    EXPECT_FALSE(PathExists(fixture / L"added.dll"));
    EXPECT_EQ(ReadFileContent(fixture / kExecutableName), "old application");
}

TEST_F(SelfTestFailure, QuotesOnePathWithChineseCharactersASpaceAndABackslashAtItsEnd) {
    std::vector<std::wstring> quoted;
    const ScopedReplacement quoting(doubles::QuoteArgument, [&quoted](std::wstring_view argument) {
        quoted.emplace_back(argument);
        return QuoteArgument(argument);
    });
    EXPECT_EQ(RunSelfTest(job), 0);
    EXPECT_THAT(quoted, testing::ElementsAre(L"C:\\\u4E2D\u6587 path\\"));
}

TEST_F(SelfTestFailure, AcceptsOnlyTheExactQuotedText) {
    for (const wchar_t* text :
         {L"", L"C:\\\u4E2D\u6587 path\\", L"\"C:\\\u4E2D\u6587 path\\\\\\\"",
          L"\"C:\\\u4E2D\u6587 path\\\\\" ", L"\"C:\\\\\u4E2D\u6587 path\\\\\""}) {
        const ScopedReplacement quoting(doubles::QuoteArgument,
                                        [text](std::wstring_view) { return text; });
        EXPECT_THAT([this] { RunSelfTest(job); }, RaisesError(kFailure));
    }
}

}  // namespace
}  // namespace updater
