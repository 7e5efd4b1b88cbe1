#include "updatectl/program_tree.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "fixtures/directory_link.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/temporary_directory.h"
#include "support/file_system.h"
#include "support/windows_api.h"

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

TEST(ProgramTree, FindsFaultWithADirectoryThatCannotBeListedAndGoesOn) {
    const TemporaryDirectory directory;
    for (const wchar_t* file : {L"a", L"locked\\b", L"z\\c"}) {
        WriteFileContent(directory.path / file, "x");
    }
    const ScopedReplacement locked(
        doubles::FindFirstFileExW, [](LPCWSTR pattern, FINDEX_INFO_LEVELS level, LPVOID data,
                                      FINDEX_SEARCH_OPS operation, LPVOID filter, DWORD flags) {
            if (std::wstring_view(pattern).ends_with(L"\\locked\\*")) {
                return FailWith(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
            }
            return FindFirstFileExW(pattern, level, data, operation, filter, flags);
        });
    const ProgramTree tree = ListProgramTree(directory.path, LeaveNothingOut);
    EXPECT_THAT(tree.files, testing::ElementsAre(L"a", L"z\\c"));
    ASSERT_EQ(tree.faults.size(), 1U);
    EXPECT_EQ(tree.faults[0].relativePath, L"locked");
    EXPECT_THAT(tree.faults[0].fault, testing::StartsWith("cannot be listed: "));
    EXPECT_THROW(ListProgramTree(directory.path / L"locked", LeaveNothingOut),
                 std::filesystem::filesystem_error);
}

}  // namespace
}  // namespace updater
