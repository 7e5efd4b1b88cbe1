#include "support/file_system.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "fixtures/current_directory.h"
#include "fixtures/directory_link.h"
#include "fixtures/expect_file_system_error.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/open_handles.h"
#include "fixtures/short_path.h"
#include "fixtures/temporary_directory.h"
#include "support/canonical_path.h"
#include "support/handle.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

std::filesystem::path CreateEmptyFile(const std::filesystem::path& file) {
    WriteFileContent(file, "");
    return file;
}

// A tree whose paths are written in several ways.
struct CanonicalForms : testing::Test {
    CanonicalForms() { CreateDirectories(root / L"Other Folder"); }

    TemporaryDirectory directory;
    // The temporary directory's own path may be written in another way than it is stored.
    std::filesystem::path root = CanonicalPath(directory.path);
    std::filesystem::path folder = root / L"A Folder \u7A0B\u5E8F";
    std::filesystem::path file = CreateEmptyFile(folder / L"File.Txt");
    DirectoryLink link{root / L"link", folder};
};

TEST_F(CanonicalForms, OfWhatExistsAreTheSameForEveryWayToWriteIt) {
    const std::vector<std::wstring> forms = {
        file.native(),
        root.native() + L"\\a FOLDER \u7A0B\u5E8F\\FILE.TXT",
        root.native() + L"\\link\\file.txt",
        root.native() + L"\\LINK\\File.Txt",
        root.native() + L"\\Other Folder\\..\\link\\.\\File.Txt",
        root.native() + L"\\missing\\..\\link\\File.Txt",
        root.native() + L"/link//File.Txt",
        ShortPath(folder) + L"\\File.Txt",
        L"\\\\?\\" + file.native(),
        L"\\\\.\\" + root.native() + L"\\link\\File.Txt",
    };
    for (const std::wstring& form : forms) {
        EXPECT_EQ(CanonicalPath(form).native(), file.native()) << WideToUtf8(form);
        EXPECT_EQ(WeaklyCanonicalPath(form).native(), file.native()) << WideToUtf8(form);
    }
}

TEST_F(CanonicalForms, OfADirectoryEndInNoSeparator) {
    for (const std::wstring& form :
         {folder.native(), folder.native() + L"\\", folder.native() + L"\\.", link.link.native(),
          link.link.native() + L"\\", file.native() + L"\\.."}) {
        EXPECT_EQ(CanonicalPath(form).native(), folder.native()) << WideToUtf8(form);
        EXPECT_EQ(WeaklyCanonicalPath(form).native(), folder.native()) << WideToUtf8(form);
    }
}

TEST_F(CanonicalForms, OfADriveAreItsRoot) {
    for (const wchar_t* form : {L"c:\\", L"C:/", L"C:\\windows\\..", L"\\\\?\\c:\\"}) {
        EXPECT_EQ(CanonicalPath(form).native(), L"C:\\");
        EXPECT_EQ(WeaklyCanonicalPath(form).native(), L"C:\\");
    }
}

TEST_F(CanonicalForms, OfRelativePathsStartAtTheCurrentDirectory) {
    const ScopedCurrentDirectory current(link.link);
    EXPECT_EQ(CanonicalPath(L"file.txt").native(), file.native());
    EXPECT_EQ(CanonicalPath(L".").native(), folder.native());
    EXPECT_EQ(WeaklyCanonicalPath(L"file.txt").native(), file.native());
    EXPECT_EQ(WeaklyCanonicalPath(L"x\\..\\y").native(), (folder / L"y").native());
    EXPECT_EQ(WeaklyCanonicalPath(file.native().substr(0, 2) + L"z").native(),
              (folder / L"z").native())
        << "relative to the drive's current directory";
}

TEST_F(CanonicalForms, AreWeakForWhatIsMissing) {
    struct WeakForm {
        std::wstring path;
        std::filesystem::path canonical;
    };
    const std::vector<WeakForm> forms = {
        {root.native() + L"\\LINK\\missing", folder / L"missing"},
        {root.native() + L"\\LINK\\Missing\\Deeper\\x.y", folder / L"Missing\\Deeper\\x.y"},
        {root.native() + L"\\link\\missing\\..\\other", folder / L"other"},
        {root.native() + L"\\link\\a\\.\\b\\..\\..\\c", folder / L"c"},
        {root.native() + L"\\link\\..\\missing", root / L"missing"},
        {root.native() + L"/link/missing/x", folder / L"missing\\x"},
        {root.native() + L"\\other FOLDER\\x", root / L"Other Folder\\x"},
        {file.native() + L"\\below a file", file / L"below a file"},
        {root.native() + L"\\in*valid?\\x", root / L"in*valid?\\x"},
        {ShortPath(folder) + L"\\missing", folder / L"missing"},
        {L"\\\\?\\" + folder.native() + L"\\missing", folder / L"missing"},
        {L"q:\\no\\..\\drive", L"q:\\drive"},
        {L"q:\\", L"q:\\"},
        {L"", L""},
    };
    for (const WeakForm& form : forms) {
        EXPECT_EQ(WeaklyCanonicalPath(form.path).native(), form.canonical.native())
            << WideToUtf8(form.path);
    }
}

TEST_F(CanonicalForms, DoNotExistForWhatIsMissing) {
    struct MissingPath {
        std::filesystem::path path;
        DWORD error;
    };
    const std::vector<MissingPath> cases = {
        {root / L"\u7F3A\u5931", ERROR_FILE_NOT_FOUND},
        {root / L"missing" / L"x", ERROR_PATH_NOT_FOUND},
        {root / L"missing \xD800" / L"x", ERROR_PATH_NOT_FOUND},
        {file / L"below a file", ERROR_PATH_NOT_FOUND},
        {L"", ERROR_PATH_NOT_FOUND},
    };
    for (const MissingPath& missing : cases) {
        ExpectFileSystemError([&] { CanonicalPath(missing.path); }, "canonical", missing.error,
                              missing.path);
    }
}

TEST_F(CanonicalForms, AreFoundForFilesThatOthersHaveOpenAndLeaveNothingOpen) {
    const UniqueHandle exclusive = HoldFile(file);
    ExpectNoHandleLeft([this] {
        EXPECT_EQ(CanonicalPath(file), file);
        EXPECT_EQ(WeaklyCanonicalPath(file / L"x"), file / L"x");
    });
}

// Around the length at which a first, short buffer is too small. Wine 8 fails for paths that are
// much longer, so those are tested with a replaced system call.
TEST_F(CanonicalForms, MayBeAsLongAsTheShortPathLimitAndLonger) {
    for (std::size_t length = MAX_PATH - 6; length <= MAX_PATH + 1; ++length) {
        const std::filesystem::path path =
            root / std::wstring(length - root.native().size() - 1, L'x');
        WriteFileContent(path, "");
        EXPECT_EQ(CanonicalPath(path).native(), path.native());
        EXPECT_EQ(WeaklyCanonicalPath(path).native(), path.native());
        EXPECT_EQ(WeaklyCanonicalPath(path / L"tail").native(), (path / L"tail").native());
    }
}

TEST(CopyToNewFile, CopiesTheBytes) {
    const TemporaryDirectory directory;
    const std::string content = std::string(100000, 'x') + std::string("\0\r\n\x1A", 4);
    WriteFileContent(directory.path / L"\u6E90", content);
    CopyToNewFile(directory.path / L"\u6E90", directory.path / L"\u76EE \u6807");
    EXPECT_EQ(ReadFileContent(directory.path / L"\u76EE \u6807"), content);
    EXPECT_EQ(ReadFileContent(directory.path / L"\u6E90"), content);
}

TEST(CopyToNewFile, AnExistingTargetIsAnErrorAndStays) {
    const TemporaryDirectory directory;
    const std::filesystem::path source = directory.path / L"source";
    const std::filesystem::path target = directory.path / L"target";
    WriteFileContent(source, "new");
    WriteFileContent(target, "old");
    ExpectFileSystemError([&] { CopyToNewFile(source, target); }, "copy_file", ERROR_FILE_EXISTS,
                          source, target);
    EXPECT_EQ(ReadFileContent(target), "old");
}

using CopyFunction = void (*)(const std::filesystem::path&, const std::filesystem::path&);

TEST(CopyFiles, WhatIsNoFileToCopyOrNoPlaceForItIsAnErrorOfBothPaths) {
    const TemporaryDirectory directory;
    const std::filesystem::path file = directory.path / L"file \u6587";
    const std::filesystem::path folder = directory.path / L"folder";
    const std::filesystem::path missing = directory.path / L"missing";
    WriteFileContent(file, "");
    CreateDirectories(folder);
    struct CopyCase {
        std::filesystem::path source;
        std::filesystem::path target;
        DWORD error;
    };
    const std::vector<CopyCase> cases = {
        {missing, directory.path / L"target", ERROR_FILE_NOT_FOUND},
        {missing / L"x", directory.path / L"target", ERROR_PATH_NOT_FOUND},
        {folder, directory.path / L"target", ERROR_ACCESS_DENIED},
        {file, missing / L"\xD800" / L"target", ERROR_PATH_NOT_FOUND},
    };
    for (const CopyFunction copy : {CopyToNewFile, CopyOverFile}) {
        for (const CopyCase& wrong : cases) {
            ExpectFileSystemError([&] { copy(wrong.source, wrong.target); }, "copy_file",
                                  wrong.error, wrong.source, wrong.target);
        }
    }
    ExpectFileSystemError([&] { CopyOverFile(file, folder); }, "copy_file", ERROR_ACCESS_DENIED,
                          file, folder);
    EXPECT_FALSE(PathExists(directory.path / L"target"));
}

TEST(CopyOverFile, MakesOrReplacesTheTarget) {
    const TemporaryDirectory directory;
    const std::filesystem::path source = directory.path / L"source";
    const std::filesystem::path target = directory.path / L"target";
    for (const std::string& content : {std::string("first"), std::string("other"),
                                       std::string(100000, 'x'), std::string("s"), std::string()}) {
        WriteFileContent(source, content);
        CopyOverFile(source, target);
        EXPECT_EQ(ReadFileContent(target), content);
    }
}

TEST(CopyOverFile, ReplacesATargetThatIsReadOnly) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"source", "new");
    WriteFileContent(directory.path / L"target", "old");
    SetFileAttributesW((directory.path / L"target").c_str(), FILE_ATTRIBUTE_READONLY);
    CopyOverFile(directory.path / L"source", directory.path / L"target");
    EXPECT_EQ(ReadFileContent(directory.path / L"target"), "new");
}

TEST(CopyOverFile, ReadsThroughALinkAndCopiesAReadOnlySource) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"real" / L"source", "content");
    SetFileAttributesW((directory.path / L"real" / L"source").c_str(), FILE_ATTRIBUTE_READONLY);
    const DirectoryLink link(directory.path / L"link", directory.path / L"real");
    for (int copy = 0; copy < 2; ++copy) {
        CopyOverFile(link.link / L"source", directory.path / L"target");
        EXPECT_EQ(ReadFileContent(directory.path / L"target"), "content");
    }
}

TEST(CopyOverFile, ATargetThatIsHeldOpenIsAnErrorAndStays) {
    const TemporaryDirectory directory;
    const std::filesystem::path source = directory.path / L"source";
    const std::filesystem::path target = directory.path / L"target";
    WriteFileContent(source, "new");
    WriteFileContent(target, "old");
    const UniqueHandle reader = HoldFile(target, GENERIC_READ, FILE_SHARE_READ);
    ExpectFileSystemError([&] { CopyOverFile(source, target); }, "copy_file",
                          ERROR_SHARING_VIOLATION, source, target);
    EXPECT_EQ(ReadFileContent(target), "old");
}

TEST(FileSize, IsTheNumberOfBytes) {
    const TemporaryDirectory directory;
    for (const std::size_t size : {0U, 1U, 65536U, 1000000U}) {
        WriteFileContent(directory.path / L"file", std::string(size, 'x'));
        EXPECT_EQ(FileSize(directory.path / L"file"), size);
    }
}

TEST(FileSize, OfAMissingFileIsAnError) {
    const TemporaryDirectory directory;
    const std::filesystem::path missing = directory.path / L"\u7F3A\u5931";
    ExpectFileSystemError([&] { FileSize(missing); }, "file_size", ERROR_FILE_NOT_FOUND, missing);
    ExpectFileSystemError([&] { FileSize(missing / L"x"); }, "file_size", ERROR_PATH_NOT_FOUND,
                          missing / L"x");
}

TEST(PathExists, ForFilesDirectoriesAndLinksToThem) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"folder" / L"file", "");
    const DirectoryLink link(directory.path / L"link", directory.path / L"folder");
    for (const wchar_t* path : {L"folder", L"folder\\file", L"folder\\", L"FOLDER", L"link",
                                L"link\\file", L"link\\..\\folder"}) {
        EXPECT_TRUE(PathExists(directory.path / path)) << WideToUtf8(path);
    }
    for (const wchar_t* path : {L"missing", L"missing\\file", L"folder\\file\\x", L"in*valid"}) {
        EXPECT_FALSE(PathExists(directory.path / path)) << WideToUtf8(path);
    }
    EXPECT_FALSE(PathExists(L""));
    EXPECT_FALSE(PathExists(L"q:\\x"));
}

TEST(PathExists, NotForALinkWhoseTargetIsGone) {
    const TemporaryDirectory directory;
    CreateDirectories(directory.path / L"folder");
    const DirectoryLink link(directory.path / L"link", directory.path / L"folder");
    RemoveDirectoryW((directory.path / L"folder").c_str());
    EXPECT_FALSE(PathExists(link.link));
}

TEST(PathExists, ForAFileThatOthersHaveOpen) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"file", "");
    const UniqueHandle exclusive = HoldFile(directory.path / L"file");
    EXPECT_TRUE(PathExists(directory.path / L"file"));
}

TEST(CreateDirectories, CreatesWhateverIsMissing) {
    const TemporaryDirectory directory;
    const std::vector<std::wstring> forms = {
        L"\\a", L"\\a", L"\\b\\c\\\u7A0B \u5E8F\\d", L"\\e\\f\\", L"\\e\\f\\g\\\\", L"/h/i",
        L"",    L"\\",
    };
    for (const std::wstring& form : forms) {
        CreateDirectories(directory.path.native() + form);
        EXPECT_TRUE(PathExists(directory.path.native() + form)) << WideToUtf8(form);
    }
    CreateDirectories(L"C:\\");
    EXPECT_THAT(
        ReadTreeContent(directory.path),
        ElementsAre(Pair(L"a\\", ""), Pair(L"b\\", ""), Pair(L"b\\c\\", ""),
                    Pair(L"b\\c\\\u7A0B \u5E8F\\", ""), Pair(L"b\\c\\\u7A0B \u5E8F\\d\\", ""),
                    Pair(L"e\\", ""), Pair(L"e\\f\\", ""), Pair(L"e\\f\\g\\", ""), Pair(L"h\\", ""),
                    Pair(L"h\\i\\", "")));
}

TEST(CreateDirectories, GoesThroughALink) {
    const TemporaryDirectory directory;
    CreateDirectories(directory.path / L"real");
    const DirectoryLink link(directory.path / L"link", directory.path / L"real");
    CreateDirectories(link.link);
    CreateDirectories(link.link / L"x" / L"y");
    EXPECT_TRUE(PathExists(directory.path / L"real" / L"x" / L"y"));
}

TEST(CreateDirectories, AFileInTheWayIsAnErrorAndStays) {
    const TemporaryDirectory directory;
    const std::filesystem::path file = directory.path / L"\u6587\u4EF6";
    WriteFileContent(file, "content");
    for (const std::filesystem::path& path : {file, file / L"x", file / L"x" / L"y"}) {
        ExpectFileSystemError([&] { CreateDirectories(path); }, "create_directories",
                              ERROR_ALREADY_EXISTS, path);
    }
    EXPECT_EQ(ReadFileContent(file), "content");
}

TEST(CreateDirectories, ADriveThatIsNotThereIsAnError) {
    ExpectFileSystemError([] { CreateDirectories(L"q:\\x\\y"); }, "create_directories",
                          ERROR_PATH_NOT_FOUND, L"q:\\x\\y");
}

TEST(RemoveFile, RemovesAFileAlsoAReadOnlyOne) {
    const TemporaryDirectory directory;
    const std::filesystem::path file = directory.path / L"\u6587 \u4EF6";
    for (const DWORD attributes : std::initializer_list<DWORD>{
             FILE_ATTRIBUTE_NORMAL, FILE_ATTRIBUTE_READONLY,
             FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM}) {
        WriteFileContent(file, "");
        SetFileAttributesW(file.c_str(), attributes);
        RemoveFile(file);
        EXPECT_THAT(ReadTreeContent(directory.path), IsEmpty());
    }
}

TEST(RemoveFile, WhatIsAlreadyGoneIsNoError) {
    const TemporaryDirectory directory;
    EXPECT_NO_THROW(RemoveFile(directory.path / L"missing"));
    EXPECT_NO_THROW(RemoveFile(directory.path / L"missing" / L"x"));
}

TEST(RemoveFile, AFileThatIsHeldOpenIsAnErrorAndStays) {
    const TemporaryDirectory directory;
    const std::filesystem::path file = directory.path / L"file \u6587";
    WriteFileContent(file, "content");
    const UniqueHandle reader = HoldFile(file, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
    ExpectFileSystemError([&] { RemoveFile(file); }, "remove", ERROR_SHARING_VIOLATION, file);
    EXPECT_EQ(ReadFileContent(file), "content");
}

TEST(RemoveTree, RemovesADirectoryWithEverythingInIt) {
    const TemporaryDirectory directory;
    const std::filesystem::path tree = directory.path / L"\u7A0B\u5E8F tree";
    for (const wchar_t* file : {L"a", L"b\\c\\d", L"b\\e", L".f", L"g\\h"}) {
        WriteFileContent(tree / file, "content");
    }
    CreateDirectories(tree / L"empty" / L"empty too");
    SetFileAttributesW((tree / L"a").c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    SetFileAttributesW((tree / L"b" / L"c" / L"d").c_str(), FILE_ATTRIBUTE_READONLY);
    SetFileAttributesW((tree / L"empty").c_str(), FILE_ATTRIBUTE_READONLY);
    SetFileAttributesW(tree.c_str(), FILE_ATTRIBUTE_READONLY);
    WriteFileContent(directory.path / L"beside", "");
    RemoveTree(tree);
    EXPECT_THAT(ReadTreeContent(directory.path), ElementsAre(Pair(L"beside", "")));
}

TEST(RemoveTree, TakesATrailingSeparatorAndAnEmptyDirectory) {
    const TemporaryDirectory directory;
    CreateDirectories(directory.path / L"empty");
    RemoveTree(directory.path.native() + L"\\empty\\");
    WriteFileContent(directory.path / L"folder" / L"file", "");
    RemoveTree(directory.path.native() + L"\\folder\\");
    EXPECT_THAT(ReadTreeContent(directory.path), IsEmpty());
}

TEST(RemoveTree, WhatIsAlreadyGoneIsNoError) {
    const TemporaryDirectory directory;
    EXPECT_NO_THROW(RemoveTree(directory.path / L"missing"));
    EXPECT_NO_THROW(RemoveTree(directory.path / L"missing" / L"x"));
}

TEST(RemoveTree, AFileIsRemovedToo) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"file", "");
    RemoveTree(directory.path / L"file");
    EXPECT_THAT(ReadTreeContent(directory.path), IsEmpty());
}

TEST(RemoveTree, AFileThatIsHeldOpenIsAnError) {
    const TemporaryDirectory directory;
    const std::filesystem::path file = directory.path / L"tree \u6811" / L"folder" / L"file";
    WriteFileContent(file, "content");
    const UniqueHandle reader = HoldFile(file, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
    ExpectFileSystemError([&] { RemoveTree(directory.path / L"tree \u6811"); }, "remove_all",
                          ERROR_SHARING_VIOLATION, file);
    EXPECT_EQ(ReadFileContent(file), "content");
}

}  // namespace

}  // namespace updater
