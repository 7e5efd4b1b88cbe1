#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "end_to_end/build_outputs.h"
#include "end_to_end/installed_program.h"
#include "fixtures/application_names.h"
#include "fixtures/file_content.h"
#include "fixtures/temporary_directory.h"
#include "fixtures/uninstall_entry.h"
#include "support/file_system.h"

namespace updater {

namespace {

// A directory that the user picks in the setup program's wizard.
struct InstallationByHand : testing::Test {
    void Install(const wchar_t* version) const { RunSetup(SetupProgram(version), picked); }

    [[nodiscard]] std::vector<std::string> Differences() const {
        return FindInventoryDifferences(picked);
    }

    UninstallEntryKeeper entryBefore;
    TemporaryDirectory workspace;
    std::filesystem::path picked = workspace.path / L"选定 目录";
    std::filesystem::path own = picked / L"data" / L"own.txt";
};

TEST_F(InstallationByHand, DeletesNothingInADirectoryWithoutTheProgram) {
    WriteFileContent(own, "somebody else's");
    Install(L"v1");
    EXPECT_EQ(Differences(), std::vector<std::string>());
    EXPECT_EQ(ReadFileContent(own), "somebody else's");
}

TEST_F(InstallationByHand, DeletesTheProgramsDataWhenTheProgramIsThere) {
    const std::filesystem::path quay = picked / L"data" / L"maps" / L"old harbour" / L"quay 1.txt";
    for (const wchar_t* missing : {L"", kExecutableName, L"program-files.tsv"}) {
        Install(L"v1");
        if (*missing != L'\0') {
            RemoveFile(picked / missing);
        }
        WriteFileContent(own, "of a version in between");
        Install(L"v2");
        EXPECT_EQ(Differences(), std::vector<std::string>());
        EXPECT_FALSE(PathExists(own));
        EXPECT_TRUE(PathExists(quay));
    }
}

}  // namespace

}  // namespace updater
