#include "snapshot/program_assets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "fixtures/application_names.h"
#include "fixtures/directory_link.h"
#include "fixtures/file_content.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "support/file_system.h"
#include "support/text_conversion.h"

namespace updater {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kLinkAtTopLevel[] = "Reparse points are not supported in installation directory";
constexpr char kLinkInData[] = "Reparse points are not supported in program assets";

std::vector<std::wstring> Names(const ProgramAssets& assets) {
    return {assets.begin(), assets.end()};
}

struct EnumeratedAssets : testing::Test {
    void Install(const std::filesystem::path& file) const {
        WriteFileContent(directory.path / file, "content");
    }

    std::vector<std::wstring> AssetNames() const {
        return Names(EnumerateProgramAssets(directory.path));
    }

    void ExpectLinkRefused(const char* message) const {
        EXPECT_THAT([this] { EnumerateProgramAssets(directory.path); }, RaisesError(message));
    }

    TemporaryDirectory directory;
};

TEST_F(EnumeratedAssets, AreTheProgramsOwnFilesInPathOrder) {
    for (const wchar_t* file : {kExecutableName, L"unins000.exe", L"unins000.dat", L"engine.dll",
                                L"program-files.tsv", L"account.db", L"readme.txt"}) {
        Install(file);
    }
    CreateDirectories(directory.path / L"data");
    EXPECT_THAT(AssetNames(), ElementsAre(kExecutableName, L"engine.dll", L"program-files.tsv",
                                          L"unins000.dat", L"unins000.exe"));
}

TEST_F(EnumeratedAssets, HoldTheFiveFixedNames) {
    for (const wchar_t* file : {L"native_assets.json", L"windows-version.json",
                                L"program-files.json", L"program-files.tsv", L"unins000.dat"}) {
        Install(file);
    }
    EXPECT_THAT(AssetNames(),
                ElementsAre(L"native_assets.json", L"program-files.json", L"program-files.tsv",
                            L"unins000.dat", L"windows-version.json"));
}

TEST_F(EnumeratedAssets, DoNotHoldNamesThatDifferInAnyCharacter) {
    for (const wchar_t* file : {L"Setup.EXE",
                                L"Engine.DLL",
                                L"a.Exe",
                                L"b.dLL",
                                L"UNINS000.DAT",
                                L"Unins000.dat",
                                L"Program-Files.tsv",
                                L"unins001.dat",
                                L"unins000.dat.bak",
                                L"unins000.msg",
                                L"native_assets.JSON",
                                L"native_assets.json5",
                                L"xnative_assets.json",
                                L"windows-version.jso",
                                L"windows_version.json",
                                L"program-files.tsv2",
                                L"program-files",
                                L"program-files.csv",
                                L"config.json",
                                L"a.exe.config",
                                L"a.dll.old",
                                L"a.exe1",
                                L"exe",
                                L"dll",
                                L"aexe",
                                L"a.so",
                                L"a.bin",
                                L"account.db"}) {
        Install(file);
    }
    EXPECT_THAT(AssetNames(), IsEmpty());
}

TEST_F(EnumeratedAssets, GoByTheLastDotOfAName) {
    for (const wchar_t* file : {L"x.tar.dll", L"a.b.c.exe", L"x.exe.dll", L"..dll", L"a..exe",
                                L" .exe", L".exe", L".dll", L"x.dll.txt"}) {
        Install(file);
    }
    EXPECT_THAT(AssetNames(), ElementsAre(L" .exe", L"..dll", L"a..exe", L"a.b.c.exe", L"x.exe.dll",
                                          L"x.tar.dll"));
}

TEST_F(EnumeratedAssets, DoNotHoldAFileNamedOnlyLikeAnExtension) {
    Install(L".exe");
    EXPECT_THAT(AssetNames(), IsEmpty());
}

// Only a path with this prefix, which switches the system's parsing off, can name such a file.
TEST_F(EnumeratedAssets, DoNotHoldANameWithADotAfterItsExtension) {
    const std::filesystem::path unparsed = L"\\\\?\\" + directory.path.native();
    WriteFileContent(unparsed / L"x.exe.", "content");
    WriteFileContent(unparsed / L"y.exe", "content");
    EXPECT_THAT(Names(EnumerateProgramAssets(unparsed)), ElementsAre(L"y.exe"));
    RemoveFile(unparsed / L"x.exe.");
}

TEST_F(EnumeratedAssets, DoNotHoldFilesOfOtherDirectories) {
    for (const wchar_t* file :
         {L"locales\\de.dll", L"plugins\\a.exe", L"plugins\\data\\b.dll", L"data2\\c.dll",
          L"data-old\\program-files.tsv", L"backup.exe\\unins000.dat"}) {
        Install(file);
    }
    EXPECT_THAT(AssetNames(), IsEmpty());
}

TEST_F(EnumeratedAssets, DoNotHoldDirectoriesWhateverTheirNames) {
    for (const wchar_t* name : {L"tool.exe", L"library.dll", L"program-files.tsv", L"unins000.dat",
                                L"data\\sub.dll", L"data\\sub\\empty"}) {
        CreateDirectories(directory.path / name);
    }
    EXPECT_THAT(AssetNames(), IsEmpty());
}

TEST_F(EnumeratedAssets, HoldEveryFileBelowData) {
    for (const wchar_t* file :
         {L"data\\cache\\a.tmp", L"data\\x.exe", L"data\\account.db", L"data\\noextension",
          L"data\\.hidden", L"data\\fonts\\ui.ttf", L"data\\a\\b\\c\\d\\e\\f\\deep.bin",
          L"data\\data\\again.dll", L"data\\Setup.EXE"}) {
        Install(file);
    }
    EXPECT_THAT(
        AssetNames(),
        ElementsAre(L"data\\.hidden", L"data\\Setup.EXE", L"data\\a\\b\\c\\d\\e\\f\\deep.bin",
                    L"data\\account.db", L"data\\cache\\a.tmp", L"data\\data\\again.dll",
                    L"data\\fonts\\ui.ttf", L"data\\noextension", L"data\\x.exe"));
}

TEST_F(EnumeratedAssets, SpellDataInLowerCaseWhateverItsCaseOnDisk) {
    Install(L"DATA\\Sub\\File.BIN");
    EXPECT_THAT(AssetNames(), ElementsAre(L"data\\Sub\\File.BIN"));
}

TEST_F(EnumeratedAssets, NeedNoDataDirectory) {
    Install(kExecutableName);
    EXPECT_THAT(AssetNames(), ElementsAre(kExecutableName));
}

TEST_F(EnumeratedAssets, AreNoneInAnEmptyDirectory) {
    EXPECT_THAT(AssetNames(), IsEmpty());
}

TEST_F(EnumeratedAssets, AreOrderedComponentByComponent) {
    for (const wchar_t* file : {L"data-old.dll", L"data\\x.bin", L"data.exe", L"data\\x\\y",
                                L"data\\x-y", L"Zebra.exe", L"ant.exe", L"ant.exe.dll"}) {
        Install(file);
    }
    EXPECT_THAT(AssetNames(),
                ElementsAre(L"Zebra.exe", L"ant.exe", L"ant.exe.dll", L"data\\x\\y", L"data\\x-y",
                            L"data\\x.bin", L"data-old.dll", L"data.exe"));
}

// As code points the emoji would stand last; its first unit, a surrogate, is the lower one.
TEST_F(EnumeratedAssets, AreOrderedByCodeUnits) {
    Install(L"\uFF21.dll");
    Install(L"\U0001F600.dll");
    Install(L"\u4E2D.dll");
    EXPECT_THAT(AssetNames(), ElementsAre(L"\u4E2D.dll", L"\U0001F600.dll", L"\uFF21.dll"));
}

TEST_F(EnumeratedAssets, AreTheSameWhenEnumeratedTwice) {
    for (int number = 0; number < 200; ++number) {
        Install(L"data\\" + std::to_wstring(number % 7) + L"\\" + std::to_wstring(number));
        Install(std::to_wstring(number) + L".dll");
    }
    const ProgramAssets first = EnumerateProgramAssets(directory.path);
    EXPECT_EQ(first.size(), 400U);
    EXPECT_EQ(Names(EnumerateProgramAssets(directory.path)), Names(first));
}

TEST_F(EnumeratedAssets, HaveNamesWithSpacesAndChineseCharactersLikeAnyOthers) {
    Install(L"\u4E2D\u6587 library.dll");
    Install(L"data\\\u6570\u636E dir\\\u6587\u4EF6 1.bin");
    EXPECT_THAT(AssetNames(), ElementsAre(L"data\\\u6570\u636E dir\\\u6587\u4EF6 1.bin",
                                          L"\u4E2D\u6587 library.dll"));
}

TEST_F(EnumeratedAssets, AreRelativeToTheDirectoryHoweverItIsWritten) {
    Install(kExecutableName);
    Install(L"data\\app.so");
    Install(L"sub\\x");
    const std::wstring& plain = directory.path.native();
    for (const std::wstring& form :
         {plain + L"\\", plain + L"/", plain + L"\\.", plain + L"\\sub\\..", L"\\\\?\\" + plain}) {
        SCOPED_TRACE(WideToUtf8(form));
        EXPECT_THAT(Names(EnumerateProgramAssets(form)),
                    ElementsAre(kExecutableName, L"data\\app.so"));
    }
}

TEST_F(EnumeratedAssets, CannotBeListedWithoutADirectory) {
    Install(L"file");
    for (const std::filesystem::path& missing :
         {directory.path / L"missing", directory.path / L"missing\\deeper",
          directory.path / L"file", directory.path / L"file\\deeper", std::filesystem::path()}) {
        SCOPED_TRACE(WideToUtf8(missing.native()));
        EXPECT_THAT([&] { EnumerateProgramAssets(missing); },
                    RaisesFileSystemError("directory_iterator::directory_iterator", missing));
    }
}

TEST_F(EnumeratedAssets, CannotBeListedWithAFileInThePlaceOfData) {
    Install(L"data");
    EXPECT_THAT([this] { EnumerateProgramAssets(directory.path); },
                RaisesFileSystemError("recursive_directory_iterator::recursive_directory_iterator",
                                      directory.path / L"data"));
}

TEST_F(EnumeratedAssets, AreRefusedWithALinkAtTheTopLevel) {
    TemporaryDirectory elsewhere;
    Install(kExecutableName);
    for (const wchar_t* name : {L"logs", L"data", L"library.dll", L".config"}) {
        SCOPED_TRACE(WideToUtf8(name));
        const DirectoryLink link(directory.path / name, elsewhere.path);
        ExpectLinkRefused(kLinkAtTopLevel);
    }
    EXPECT_THAT(AssetNames(), ElementsAre(kExecutableName));
}

TEST_F(EnumeratedAssets, AreRefusedWithALinkBelowData) {
    TemporaryDirectory elsewhere;
    for (const wchar_t* name : {L"data\\link", L"data\\a\\b\\c\\link"}) {
        SCOPED_TRACE(WideToUtf8(name));
        CreateDirectories((directory.path / name).parent_path());
        const DirectoryLink link(directory.path / name, elsewhere.path);
        ExpectLinkRefused(kLinkInData);
    }
    EXPECT_THAT(AssetNames(), IsEmpty());
}

// Where the tree of links has no end, looking behind the first one would never finish.
TEST_F(EnumeratedAssets, AreRefusedWithALinkToADirectoryAboveIt) {
    CreateDirectories(directory.path / L"data");
    const DirectoryLink link(directory.path / L"data\\up", directory.path);
    ExpectLinkRefused(kLinkInData);
}

TEST_F(EnumeratedAssets, AreNotRefusedForALinkInADirectoryThatIsNotTheirs) {
    TemporaryDirectory elsewhere;
    Install(kExecutableName);
    CreateDirectories(directory.path / L"logs");
    const DirectoryLink link(directory.path / L"logs\\link", elsewhere.path);
    EXPECT_THAT(AssetNames(), ElementsAre(kExecutableName));
}

TEST_F(EnumeratedAssets, MayLieBehindALinkToTheInstallationItself) {
    TemporaryDirectory elsewhere;
    Install(kExecutableName);
    Install(L"data\\app.so");
    const DirectoryLink link(elsewhere.path / L"link", directory.path);
    EXPECT_THAT(Names(EnumerateProgramAssets(elsewhere.path / L"link")),
                ElementsAre(kExecutableName, L"data\\app.so"));
}

}  // namespace
}  // namespace updater
