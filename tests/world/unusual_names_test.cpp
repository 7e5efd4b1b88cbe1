// Names of every script, and names that a program can have on the disk and yet not reach by their
// plain path.

#include <gtest/gtest.h>

#include <array>
#include <ostream>

#include "fixtures/file_content.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "fixtures/tree_content.h"
#include "snapshot/program_verification.h"
#include "support/file_digest.h"
#include "support/text_conversion.h"
#include "world/verbatim_file.h"
#include "world/worker_run.h"

namespace updater {
namespace {

constexpr char kSetupFailed[] =
    "Inno Setup did not complete; exit code=1; previous program restored";
constexpr char kRefusedInProgram[] = "Reparse points are not supported in installation directory";
constexpr char kRefusedInData[] = "Reparse points are not supported in program assets";

// Composed and decomposed characters make two names, here and on Windows.
constexpr std::array<const wchar_t*, 13> kNames = {
    L"\U0001F680.dll",
    L"engine e\u0301.dll",
    L"data\\\U0001F468\u200D\U0001F469\u200D\U0001F467 family.bin",
    L"data\\\U0001F1E8\U0001F1ED flags\\\u2764\uFE0F.bin",
    L"data\\Caf\u00E9.bin",
    L"data\\Cafe\u0301.bin",
    L"data\\\uD55C.bin",
    L"data\\\u1112\u1161\u11AB.bin",
    L"data\\\u202Efdp.exe",
    L"data\\\u0E01\u0E33\u0E49\\\u0627\u0644\u0639\u0631\u0628\u064A\u0629.bin",
    L"data\\ leading space.bin",
    L"data\\..leading dots",
    L"data\\a;b & 'c' %TEMP% $(d) [e]~1.bin",
};

struct UpdateOfUnusualNames : testing::Test {
    UpdateOfUnusualNames() {
        for (const std::filesystem::path name : kNames) {
            run.AddToProgram(name, "old " + WideToUtf8(name.native()));
            run.AddToPackage(name, "new " + WideToUtf8(name.native()));
        }
    }
    WorkerRun run;
};

TEST_F(UpdateOfUnusualNames, Succeeds) {
    run.Run();
    run.ExpectSuccess();
}

TEST_F(UpdateOfUnusualNames, RestoresTheProgramWhenTheSetupFailed) {
    run.LetSetupFail();
    run.Run();
    run.ExpectFailure(kSetupFailed);
}

// An inventory's way to write the name of a file, and whether it leads to the file.
struct InventoriedName {
    const char* name;
    const wchar_t* file;
    const wchar_t* inInventory;
    bool found;
};

std::ostream& operator<<(std::ostream& stream, const InventoriedName& test) {
    return stream << test.name;
}

struct NameInInventory : testing::TestWithParam<InventoriedName> {};

TEST_P(NameInInventory, LeadsToTheFileAsEveryPathDoes) {
    const TemporaryDirectory directory;
    const std::filesystem::path file = directory.path / GetParam().file;
    WriteFileContent(file, "content");
    WriteFileContent(directory.path / L"program-files.tsv",
                     WideToUtf8(GetParam().inInventory) + '\t' + FileSha256Hex(file) + '\n');
    const auto verify = [&] { VerifyInstalledProgram(directory.path); };
    if (GetParam().found) {
        EXPECT_NO_THROW(verify());
    } else {
        EXPECT_THAT(verify, RaisesError("SHA256 verification failed"));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Written, NameInInventory,
    testing::Values(
        InventoriedName{"InAnotherLetterCase", L"data\\\u00C4rger.bin", L"DATA/\u00E4RGER.BIN",
                        true},
        InventoriedName{"WithADotAtItsEnd", L"data\\app.so", L"data/app.so.", true},
        InventoriedName{"WithASpaceAtItsEnd", L"data\\app.so", L"data/app.so ", true},
        InventoriedName{"WithADotInADirectorysPlace", L"data\\app.so", L"data./app.so", true},
        InventoriedName{"AsItStands", L"\U0001F680.dll", L"\U0001F680.dll", true},
        InventoriedName{"ComposedForADecomposedOne", L"data\\Cafe\u0301", L"data/Caf\u00E9", false},
        InventoriedName{"DecomposedForAComposedOne", L"data\\Caf\u00E9", L"data/Cafe\u0301", false},
        InventoriedName{"WithOneEmojiForAnother", L"\U0001F680.dll", L"\U0001F681.dll", false}),
    [](const auto& test) { return std::string(test.param.name); });

// Two files whose names differ only in letter case, in a directory that tells them apart. Windows
// makes one only on request; under Wine every directory is one for a program that goes around it.
struct NamesInTwoCases : testing::Test {
    WorkerRun run;
    VerbatimFile file{run.program / L"data\\App.so", "in capitals"};
};

TEST_F(NamesInTwoCases, StayApartWhenTheUpdateSucceeds) {
    run.Run();
    run.ExpectSuccess();
    EXPECT_EQ(run.InstalledTree()[L"data\\App.so"], "in capitals");
}

// Their backup has one copy, that of the second.
TEST_F(NamesInTwoCases, GetOneContentWhenTheProgramIsRestored) {
    run.LetSetupFail();
    run.Run();
    run.ExpectEnd(1, {"failed", kSetupFailed, 1});
    TreeContent expected = run.before;
    expected[L"data\\App.so"] = expected.at(L"data\\app.so");
    EXPECT_EQ(FindDifferences(expected, run.InstalledTree()), std::vector<std::string>());
}

// A name that ends in a dot or a space. Windows makes such a file only for a program that asks for
// it by a verbatim path, and plain paths leave those characters out.
struct UnreachableName {
    const char* name;
    const wchar_t* file;
    const char* message;
};

std::ostream& operator<<(std::ostream& stream, const UnreachableName& test) {
    return stream << test.name;
}

struct UnreachableFile : testing::TestWithParam<UnreachableName> {};

TEST_P(UnreachableFile, IsRefusedBeforeAnythingIsInstalled) {
    WorkerRun run;
    const VerbatimFile file(run.program / GetParam().file, "unreachable");
    run.Run();
    run.ExpectFailure(GetParam().message);
    EXPECT_FALSE(run.SetupWasStarted());
}

INSTANTIATE_TEST_SUITE_P(
    WithAtItsEnd, UnreachableFile,
    testing::Values(UnreachableName{"ADot", L"data\\notes.", kRefusedInData},
                    UnreachableName{"ASpace", L"data\\notes ", kRefusedInData},
                    UnreachableName{"Both", L"data\\notes. .", kRefusedInData},
                    UnreachableName{"ADotBesideTheProgram", L"notes.txt.", kRefusedInProgram},
                    UnreachableName{"ASpaceBesideTheProgram", L"tool.exe ", kRefusedInProgram}),
    [](const auto& test) { return std::string(test.param.name); });

// Beside such a file stands the one that its plain path leads to.
struct ShadowedFile : testing::TestWithParam<const wchar_t*> {
    WorkerRun run;
    std::filesystem::path name = std::wstring(L"data\\app.so") + GetParam();
};

TEST_P(ShadowedFile, StaysAsItIsWhenTheUpdateSucceeds) {
    const VerbatimFile file(run.program / name, "shadowed");
    run.Run();
    run.ExpectSuccess();
}

TEST_P(ShadowedFile, StaysAsItIsWhenTheProgramIsRestored) {
    const VerbatimFile file(run.program / name, "shadowed");
    run.LetSetupFail();
    run.Run();
    run.ExpectFailure(kSetupFailed);
}

INSTANTIATE_TEST_SUITE_P(WithAtItsEnd, ShadowedFile, testing::Values(L".", L" "),
                         [](const auto& test) { return *test.param == L'.' ? "ADot" : "ASpace"; });

}  // namespace
}  // namespace updater
