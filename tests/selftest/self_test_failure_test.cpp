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
#include "fixtures/file_content.h"
#include "fixtures/raised_errors.h"
#include "fixtures/replacement.h"
#include "fixtures/temporary_directory.h"
#include "selftest/self_test.h"
#include "snapshot/program_restore.h"
#include "support/argument_quoting.h"
#include "support/file_system.h"
#include "support/windows_api.h"

namespace updater {

REPLACE_IMPORTED(GetCommandLineW, getCommandLine)

namespace {

Replacement<decltype(QuoteArgument)> quoteArgument;
Replacement<decltype(RestoreProgram)> restoreProgram;

}  // namespace

extern "C" {

decltype(QuoteArgument)
    __real__ZN7updater13QuoteArgumentB5cxx11ESt17basic_string_viewIwSt11char_traitsIwEE;
decltype(QuoteArgument)
    __wrap__ZN7updater13QuoteArgumentB5cxx11ESt17basic_string_viewIwSt11char_traitsIwEE;
std::wstring __wrap__ZN7updater13QuoteArgumentB5cxx11ESt17basic_string_viewIwSt11char_traitsIwEE(
    std::wstring_view argument) {
    return quoteArgument.Call(
        __real__ZN7updater13QuoteArgumentB5cxx11ESt17basic_string_viewIwSt11char_traitsIwEE,
        argument);
}

decltype(RestoreProgram)
    __real__ZN7updater14RestoreProgramERKNSt10filesystem7__cxx114pathES4_RKSt3setIS2_St4lessIS2_ESaIS2_EE;
decltype(RestoreProgram)
    __wrap__ZN7updater14RestoreProgramERKNSt10filesystem7__cxx114pathES4_RKSt3setIS2_St4lessIS2_ESaIS2_EE;
void __wrap__ZN7updater14RestoreProgramERKNSt10filesystem7__cxx114pathES4_RKSt3setIS2_St4lessIS2_ESaIS2_EE(
    const std::filesystem::path& installDirectory, const std::filesystem::path& backupDirectory,
    const ProgramAssets& backupRecord) {
    restoreProgram.Call(
        __real__ZN7updater14RestoreProgramERKNSt10filesystem7__cxx114pathES4_RKSt3setIS2_St4lessIS2_ESaIS2_EE,
        std::cref(installDirectory), std::cref(backupDirectory), std::cref(backupRecord));
}

}  // extern "C"

namespace {

constexpr char kFailure[] = "Rollback fixture validation failed";

constexpr char kFailedStatus[] =
    R"({"state":"failed","message":"Rollback fixture validation failed","exitCode":1})";

using ScopedRestore = ScopedReplacement<decltype(RestoreProgram)>;
using ScopedQuoting = ScopedReplacement<decltype(QuoteArgument)>;

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

        std::wstring commandLine = L"updater.exe --self-test --job-dir \"" + job.native() + L"\"";
        const ScopedReplacement<decltype(GetCommandLineW)> command(
            getCommandLine, [&commandLine] { return commandLine.data(); });
        CreateDirectories(job);
        EXPECT_EQ(RunUpdater(), 1);
        EXPECT_EQ(ReadFileContent(job / L"status.json"), kFailedStatus);
    }

    TemporaryDirectory directory;
    std::filesystem::path job = directory.path / L"job";
    std::filesystem::path fixture = job / L"\u4E2D\u6587 path with spaces";
};

TEST_F(SelfTestFailure, FailsWhenTheAddedLibraryIsLeftInPlace) {
    const ScopedRestore restore(restoreProgram, RestoreThen([this] {
                                    WriteFileContent(fixture / L"added.dll", "new library");
                                }));
    ExpectFailure();
}

TEST_F(SelfTestFailure, FailsWhenNothingIsRestored) {
    const ScopedRestore restore(restoreProgram, [](const auto&, const auto&, const auto&) {});
    ExpectFailure();
    EXPECT_EQ(ReadFileContent(fixture / L"corvellan.exe"), "partial failed install");
    EXPECT_EQ(ReadFileContent(fixture / L"added.dll"), "new library");
}

TEST_F(SelfTestFailure, FailsWhenTheApplicationDiffers) {
    const ScopedRestore restore(restoreProgram, RestoreThen([this] {
                                    WriteFileContent(fixture / L"corvellan.exe", "old applicatioN");
                                }));
    ExpectFailure();
}

TEST_F(SelfTestFailure, FailsWhenTheUserFileIsGone) {
    const ScopedRestore restore(restoreProgram,
                                RestoreThen([this] { RemoveFile(fixture / L"account.db"); }));
    ExpectFailure();
}

TEST_F(SelfTestFailure, PassesOnADigestThatCannotBeComputed) {
    const ScopedRestore restore(restoreProgram,
                                RestoreThen([this] { RemoveFile(fixture / L"corvellan.exe"); }));
    EXPECT_THAT([this] { RunSelfTest(job); }, RaisesError("SHA256 verification failed"));
}

TEST_F(SelfTestFailure, PassesOnTheFailureOfTheRestore) {
    const ScopedRestore restore(restoreProgram, [](const auto&, const auto&, const auto&) {
        throw std::runtime_error("Restored program checksum mismatch");
    });
    EXPECT_THAT([this] { RunSelfTest(job); }, RaisesError("Restored program checksum mismatch"));
}

TEST_F(SelfTestFailure, ChecksNeitherTheUserFilesContentNorTheAssetInTheDataTree) {
    const ScopedRestore restore(restoreProgram, RestoreThen([this] {
                                    WriteFileContent(fixture / L"account.db", "changed");
                                    RemoveFile(fixture / L"data\\app.so");
                                }));
    EXPECT_EQ(RunSelfTest(job), 0);
}

TEST_F(SelfTestFailure, RestoresADamagedInstallationFromTheBackupsOwnRecord) {
    int restores = 0;
    const ScopedRestore restore(
        restoreProgram, [&](const std::filesystem::path& installation,
                            const std::filesystem::path& backup, const ProgramAssets& record) {
            ++restores;
            EXPECT_EQ(installation.native(), fixture.native());
            EXPECT_EQ(backup.native(), (job / L"backup").native());
            EXPECT_EQ(record, (ProgramAssets{L"corvellan.exe", L"data\\app.so"}));
            EXPECT_EQ(ReadFileContent(fixture / L"corvellan.exe"), "partial failed install");
            EXPECT_EQ(ReadFileContent(fixture / L"added.dll"), "new library");
            EXPECT_EQ(ReadFileContent(fixture / L"data\\app.so"), "old assets");
            EXPECT_EQ(ReadFileContent(fixture / L"account.db"), "account retained");
            RestoreProgram(installation, backup, record);
        });
    EXPECT_EQ(RunSelfTest(job), 0);
    EXPECT_EQ(restores, 1);
}

TEST_F(SelfTestFailure, FailsWhenQuotingDoublesNoBackslashBeforeTheClosingQuote) {
    const ScopedQuoting quoting(quoteArgument, [](std::wstring_view argument) {
        return L"\"" + std::wstring(argument) + L"\"";
    });
    ExpectFailure();
    // The rollback itself worked.
    EXPECT_FALSE(PathExists(fixture / L"added.dll"));
    EXPECT_EQ(ReadFileContent(fixture / L"corvellan.exe"), "old application");
}

TEST_F(SelfTestFailure, QuotesOnePathWithChineseCharactersASpaceAndABackslashAtItsEnd) {
    std::vector<std::wstring> quoted;
    const ScopedQuoting quoting(quoteArgument, [&quoted](std::wstring_view argument) {
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
        const ScopedQuoting quoting(quoteArgument, [text](std::wstring_view) { return text; });
        EXPECT_THAT([this] { RunSelfTest(job); }, RaisesError(kFailure));
    }
}

}  // namespace
}  // namespace updater
