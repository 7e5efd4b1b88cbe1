#include "updatectl/leftover_staging.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "fixtures/application_names.h"
#include "fixtures/directory_link.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/temporary_directory.h"
#include "snapshot/program_assets.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/process_utilities.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"
#include "updatectl/entry_times.h"
#include "updatectl/file_security.h"
#include "updatectl/security_double.h"
#include "worker/staging.h"

namespace updater {
namespace {

TEST(LeftoverStaging, IsKnownByTheExactFormOfItsName) {
    EXPECT_TRUE(IsStagingName(IDENTITY_BASE_NAME L"-{01234567-89AB-CDEF-0123-456789ABCDEF}"));
    EXPECT_TRUE(IsStagingName(IDENTITY_BASE_NAME L"-" + CreateJobIdentity()));
    for (const std::wstring& name : std::vector<std::wstring>{
             L"", IDENTITY_BASE_NAME L"-",
             IDENTITY_BASE_NAME L"-{01234567-89AB-CDEF-0123-456789ABCDEF} ",
             IDENTITY_BASE_NAME L"-{01234567-89AB-CDEF-0123-456789ABCDEF",
             IDENTITY_BASE_NAME L"-01234567-89AB-CDEF-0123-456789ABCDEF",
             IDENTITY_BASE_NAME L"-{01234567-89ab-cdef-0123-456789abcdef}",
             InCapitals(L"" IDENTITY_BASE_NAME) + L"-{01234567-89AB-CDEF-0123-456789ABCDEF}",
             IDENTITY_BASE_NAME L"-{0123456789AB-CDEF-0123-456789ABCDEF--}",
             IDENTITY_BASE_NAME L"-{01234567-89AB-CDEF-0123-456789ABCDEG}",
             IDENTITY_BASE_NAME L"-{hhhhhhhh-hhhh-hhhh-hhhh-hhhhhhhhhhhh}",
             L"X" IDENTITY_BASE_NAME L"-{01234567-89AB-CDEF-0123-456789ABCDEF}"}) {
        EXPECT_FALSE(IsStagingName(name)) << WideToUtf8(name);
    }
}

TEST(LeftoverStaging, IsListedFromTheNewestOnWithReasonsAgainstOthers) {
    const TemporaryDirectory folder;
    const std::wstring prefix = IDENTITY_BASE_NAME L"-{00000000-0000-0000-0000-00000000000";
    constexpr std::uint64_t kDay = 864'000'000'000;
    constexpr std::uint64_t kSomeTime = 130'000'000'000'000'000;
    const auto make = [&](const wchar_t* end, std::uint64_t time) {
        CreateDirectories(folder.path / (prefix + end));
        SetTimes(folder.path / (prefix + end), time);
    };
    make(L"1}", kSomeTime + kDay);
    make(L"2}", kSomeTime + 3 * kDay);
    make(L"3}", kSomeTime + 2 * kDay);
    make(L"4}", kSomeTime + 2 * kDay);
    make(L"5} old", kSomeTime);
    WriteFileContent(folder.path / (prefix + L"6}"), "a file");
    make(L"7}", kSomeTime + 4 * kDay);
    LetEverybodyWrite(folder.path / (prefix + L"7}"));

    const ReportedAdministrators administrators;
    const StagingListing listing = FindStagingDirectories(folder.path);
    std::vector<std::wstring> listed;
    std::ranges::transform(listing.leftovers, std::back_inserter(listed),
                           [&prefix](const ProtectedDirectory& directory) {
                               return directory.path.filename().native().substr(prefix.size());
                           });
    EXPECT_THAT(listed, testing::ElementsAre(L"2}", L"3}", L"4}", L"1}"));
    EXPECT_EQ(listing.leftovers.front().created, kSomeTime + 3 * kDay);
    const std::string start = WideToUtf8((folder.path / prefix).native());
    EXPECT_THAT(listing.others,
                testing::UnorderedElementsAre(
                    start + "6} is no directory",
                    start + "7} can be changed by others than administrators and the system"));
}

// The tool checks a backup by what its inventory lists; both sides must mean the same files.
TEST(LeftoverStaging, HoldsABackupOfWhatTheEnumerationFinds) {
    const TemporaryDirectory directory;
    ProgramAssets assets;
    for (const wchar_t* file :
         {kExecutableName, L"Setup.EXE", L"a.b.dll", L".exe", L"native_assets.json",
          L"program-files.tsv", L"unins000.dat", L"unins001.dat", L"account.db", L"data\\x",
          L"data\\sub\\.exe", L"plugins\\a.dll", L"data.exe", L"data-old\\x.dll"}) {
        WriteFileContent(directory.path / file, "x");
        if (BelongsToBackup(file)) {
            assets.insert(file);
        }
    }
    EXPECT_EQ(assets, EnumerateProgramAssets(directory.path));
    EXPECT_TRUE(BelongsToBackup(L"DATA\\x"));
    EXPECT_FALSE(BelongsToBackup(L"dat\\x"));
}

// The setup program's copy has the attributes of the download.
TEST(LeftoverStaging, KnowsARunningSetupProgramThatIsReadOnly) {
    const TemporaryDirectory directory;
    const std::filesystem::path setup = directory.path / kStagedSetupProgram;
    WriteFileContent(setup, "setup");
    SetFileAttributesW(setup.c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_FALSE(IsSetupRunning(directory.path));

    SetFileAttributesW(setup.c_str(), FILE_ATTRIBUTE_READONLY);
    const UniqueHandle running = HoldFile(setup, GENERIC_READ, FILE_SHARE_READ);
    EXPECT_TRUE(IsSetupRunning(directory.path));
    EXPECT_FALSE(IsSetupRunning(directory.path / L"missing"));
}

// A virus scanner, for example.
TEST(LeftoverStaging, TakesNoSetupProgramForRunningThatIsOnlyOpen) {
    const TemporaryDirectory directory;
    const std::filesystem::path setup = directory.path / kStagedSetupProgram;
    WriteFileContent(setup, "setup");
    const UniqueHandle opened = HoldFile(setup, GENERIC_READ | GENERIC_WRITE | DELETE,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
    EXPECT_FALSE(IsSetupRunning(directory.path));
}

}  // namespace
}  // namespace updater
