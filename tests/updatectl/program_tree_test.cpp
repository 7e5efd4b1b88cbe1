#include "updatectl/program_tree.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "fixtures/directory_link.h"
#include "fixtures/file_content.h"
#include "fixtures/temporary_directory.h"
#include "snapshot/program_assets.h"
#include "support/file_system.h"

namespace updater {
namespace {

bool LeaveNothingOut(const std::wstring&) {
    return false;
}

std::vector<std::wstring> FilesOf(const ProgramTree& tree) {
    std::vector<std::wstring> files(tree.files.size());
    std::ranges::transform(tree.files, files.begin(),
                           [](const std::filesystem::path& file) { return file.native(); });
    return files;
}

TEST(ProgramTree, ListsFilesElementByElement) {
    const TemporaryDirectory directory;
    for (const wchar_t* file :
         {L"data-old.dll", L"data\\x.bin", L"data\\sub dir\\\u4E2D", L"B", L"a",
          L"program-files.tsv", L"program-files.tsv.tmp", L"data\\program-files.tsv"}) {
        WriteFileContent(directory.path / file, "x");
    }
    CreateDirectories(directory.path / L"empty" / L"er");
    const ProgramTree tree = ListProgramTree(directory.path, LeaveNothingOut);
    EXPECT_THAT(FilesOf(tree),
                testing::ElementsAre(L"B", L"a", L"data\\program-files.tsv",
                                     L"data\\sub dir\\\u4E2D", L"data\\x.bin", L"data-old.dll"));
    EXPECT_THAT(tree.faults, testing::IsEmpty());
}

TEST(ProgramTree, DoesNotEnterADirectoryThatIsLeftOut) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"out\\x", "x");
    WriteFileContent(directory.path / L"in\\x", "x");
    std::vector<std::wstring> asked;
    const ProgramTree tree =
        ListProgramTree(directory.path, [&asked](const std::wstring& relativePath) {
            asked.push_back(relativePath);
            return relativePath == L"out";
        });
    EXPECT_THAT(FilesOf(tree), testing::ElementsAre(L"in\\x"));
    EXPECT_THAT(asked, testing::UnorderedElementsAre(L"out", L"in", L"in\\x"));
}

TEST(ProgramTree, FindsFaultWithALinkAndDoesNotFollowIt) {
    const TemporaryDirectory directory;
    const TemporaryDirectory elsewhere;
    WriteFileContent(elsewhere.path / L"x", "x");
    CreateDirectories(directory.path / L"data");
    const DirectoryLink link(directory.path / L"data" / L"link", elsewhere.path);
    const ProgramTree tree = ListProgramTree(directory.path, LeaveNothingOut);
    EXPECT_THAT(tree.files, testing::IsEmpty());
    ASSERT_EQ(tree.faults.size(), 1U);
    EXPECT_EQ(tree.faults[0].relativePath, L"data\\link");
    EXPECT_EQ(tree.faults[0].fault, "is a link or another reparse point");
}

// The tool checks a backup by what its inventory lists; both sides must mean the same files.
TEST(ProgramAsset, IsAFileThatTheEnumerationFinds) {
    const TemporaryDirectory directory;
    for (const wchar_t* file :
         {L"corvellan.exe", L"Setup.EXE", L"a.b.dll", L".exe", L"native_assets.json",
          L"program-files.tsv", L"unins000.dat", L"unins001.dat", L"account.db", L"data\\x",
          L"data\\sub\\.exe", L"plugins\\a.dll", L"data.exe", L"data-old\\x.dll"}) {
        WriteFileContent(directory.path / file, "x");
    }
    ProgramAssets assets;
    for (const std::filesystem::path& file :
         ListProgramTree(directory.path, LeaveNothingOut).files) {
        if (IsProgramAsset(file)) {
            assets.insert(file);
        }
    }
    assets.insert(L"program-files.tsv");
    EXPECT_TRUE(IsProgramAsset(L"program-files.tsv"));
    EXPECT_EQ(assets, EnumerateProgramAssets(directory.path));
}

}  // namespace
}  // namespace updater
