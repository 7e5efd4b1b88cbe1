#include "support/version_information.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/open_handles.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "fixtures/uninstall_entry.h"
#include "support/file_system.h"
#include "support/stand_ins/version_program.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

constexpr char kUnreadable[] = "Cannot read installed executable version";
constexpr char kMissing[] = "Executable version is missing";
constexpr char kNotRestored[] = "Cannot restore registered version";

// In the version resource, from the place of its key's text: the length of the fixed information,
// and in that the signature.
constexpr std::ptrdiff_t kFixedLengthOffset = -4;
constexpr std::ptrdiff_t kSignatureOffset = 34;

std::string AsBytes(const std::wstring& text) {
    return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t)};
}

// Copies a stand-in with other bytes in its version resource.
void CopyPatched(const wchar_t* version, const std::filesystem::path& target, std::ptrdiff_t offset,
                 const std::string& bytes) {
    std::string content = ReadFileContent(VersionProgram(version));
    const std::size_t key = content.find(AsBytes(L"VS_VERSION_INFO"));
    ASSERT_NE(key, std::string::npos);
    content.replace(static_cast<std::size_t>(static_cast<std::ptrdiff_t>(key) + offset),
                    bytes.size(), bytes);
    WriteFileContent(target, content);
}

void ExpectUnreadable(const std::filesystem::path& executable) {
    EXPECT_THAT([&] { ReadExecutableVersion(executable); }, RaisesError(kUnreadable))
        << WideToUtf8(executable.native());
}

TEST(ReadExecutableVersion, GivesAllFourNumbersOfTheFileVersion) {
    for (const std::wstring version :
         {L"10.0.19041.1", L"1.2.0.0", L"0.0.0.0", L"65535.65535.65535.65535"}) {
        EXPECT_EQ(ReadExecutableVersion(VersionProgram(version)), version);
    }
}

TEST(ReadExecutableVersion, ProductVersionAndVersionTextsPlayNoPart) {
    // The product version of this one is 9.8.7.6, its texts are others still.
    EXPECT_EQ(ReadExecutableVersion(VersionProgram(L"2.1.0.0")), L"2.1.0.0");
}

TEST(ReadExecutableVersion, AnExecutableWithoutAVersionResourceCannotBeRead) {
    ExpectUnreadable(VersionProgram(L"none"));
}

TEST(ReadExecutableVersion, AMissingFileCannotBeRead) {
    const TemporaryDirectory directory;
    ExpectUnreadable(directory.path / L"missing.exe");
    ExpectUnreadable(directory.path / L"missing" / L"missing.exe");
    ExpectUnreadable(L"");
}

TEST(ReadExecutableVersion, AFileThatIsNoExecutableCannotBeRead) {
    const TemporaryDirectory directory;
    for (const char* content : {"", "MZ", "text",
                                "\x7F"
                                "ELF"}) {
        WriteFileContent(directory.path / L"file.exe", content);
        ExpectUnreadable(directory.path / L"file.exe");
    }
    ExpectUnreadable(directory.path);
}

TEST(ReadExecutableVersion, AFileThatMayNotBeReadCannotBeRead) {
    const TemporaryDirectory directory;
    const std::filesystem::path program = directory.path / L"program.exe";
    CopyToNewFile(VersionProgram(L"1.2.0.0"), program);
    const UniqueHandle exclusive = HoldFile(program);
    ExpectUnreadable(program);
}

TEST(ReadExecutableVersion, AResourceWithoutFixedInformationHasNoVersion) {
    const TemporaryDirectory directory;
    const std::filesystem::path program = directory.path / L"program.exe";
    for (const char length : {'\0', '\x33'}) {
        CopyPatched(L"1.2.0.0", program, kFixedLengthOffset, {length, '\0'});
        EXPECT_THAT([&] { ReadExecutableVersion(program); }, RaisesError(kMissing))
            << "length " << static_cast<int>(length);
    }
}

TEST(ReadExecutableVersion, TheSignatureIsNotChecked) {
    const TemporaryDirectory directory;
    const std::filesystem::path program = directory.path / L"program.exe";
    CopyPatched(L"1.2.0.0", program, kSignatureOffset, std::string(4, '\x55'));
    EXPECT_EQ(ReadExecutableVersion(program), L"1.2.0.0");
}

TEST(ReadExecutableVersion, PathsWithChineseCharactersAreReadAndNothingStaysOpen) {
    const TemporaryDirectory directory;
    const std::filesystem::path program = directory.path / L"\u7A0B\u5E8F \u6587\u4EF6.exe";
    CopyToNewFile(VersionProgram(L"1.2.0.0"), program);
    ExpectNoHandleLeft([&program] {
        EXPECT_EQ(ReadExecutableVersion(program), L"1.2.0.0");
        ExpectUnreadable(VersionProgram(L"none"));
    });
    EXPECT_NO_THROW(RemoveFile(program));
}

TEST(ReadRegisteredVersion, IsTheTextOfTheEntry) {
    const ScopedUninstallEntry entry;
    for (const std::wstring& version : {std::wstring(L"2.0.0.0"), std::wstring(L"\u7248\u672C 2"),
                                        std::wstring(L" "), std::wstring(511, L'9')}) {
        WriteUninstallValue(kDisplayVersion, RegistryText(version));
        EXPECT_EQ(ReadRegisteredVersion(), version);
    }
}

TEST(ReadRegisteredVersion, IsEmptyWhenItCannotBeRead) {
    const ScopedUninstallEntry entry;
    EXPECT_EQ(ReadRegisteredVersion(), L"") << "no entry";

    WriteUninstallValue(L"DisplayName", RegistryText(L"Program"));
    EXPECT_EQ(ReadRegisteredVersion(), L"") << "no value";

    const std::vector<RegistryValue> values = {
        RegistryText(std::wstring(512, L'9')),  // longer than the buffer
        RegistryText(std::wstring(2000, L'9')),
        {REG_DWORD, std::string(4, '\x01')},
        {REG_BINARY, RegistryText(L"2.0.0.0").bytes},
        {REG_MULTI_SZ, RegistryText(L"2.0.0.0").bytes},
        RegistryText(L""),
    };
    for (const RegistryValue& value : values) {
        WriteUninstallValue(kDisplayVersion, value);
        EXPECT_EQ(ReadRegisteredVersion(), L"") << value.type;
    }
}

TEST(ReadRegisteredVersion, TheTextEndsAtItsFirstZeroOrAtItsEnd) {
    const ScopedUninstallEntry entry;
    WriteUninstallValue(kDisplayVersion, {REG_SZ, AsBytes(std::wstring(L"2.0\0x", 5))});
    EXPECT_EQ(ReadRegisteredVersion(), L"2.0");
    WriteUninstallValue(kDisplayVersion, {REG_SZ, AsBytes(L"2.0")});
    EXPECT_EQ(ReadRegisteredVersion(), L"2.0");
}

TEST(ReadRegisteredVersion, IsThatOfThe64BitView) {
    const ScopedUninstallEntry entry;
    WriteUninstallValue(kDisplayVersion, RegistryText(L"32"), RegistryView::Of32Bit);
    EXPECT_EQ(ReadRegisteredVersion(), L"");
    WriteUninstallValue(kDisplayVersion, RegistryText(L"64"));
    EXPECT_EQ(ReadRegisteredVersion(), L"64");
}

TEST(RestoreRegisteredVersion, AnEmptyTextDoesNothingEvenWithoutAnEntry) {
    const ScopedUninstallEntry entry;
    EXPECT_NO_THROW(RestoreRegisteredVersion(L""));
    EXPECT_FALSE(UninstallEntryExists());

    WriteUninstallValue(kDisplayVersion, RegistryText(L"3.0.0.0"));
    EXPECT_NO_THROW(RestoreRegisteredVersion(L""));
    EXPECT_EQ(ReadRegisteredVersion(), L"3.0.0.0");
}

TEST(RestoreRegisteredVersion, WithoutAnEntryItFailsAndCreatesNothing) {
    const ScopedUninstallEntry entry;
    EXPECT_THAT([] { RestoreRegisteredVersion(L"1.0.0.0"); }, RaisesError(kNotRestored));
    EXPECT_FALSE(UninstallEntryExists(RegistryView::Of64Bit));
    EXPECT_FALSE(UninstallEntryExists(RegistryView::Of32Bit));
}

TEST(RestoreRegisteredVersion, ATextOfSoManyUnitsIsStoredWithItsTerminatingZero) {
    const ScopedUninstallEntry entry;
    for (const std::wstring& version :
         {std::wstring(L"1.0.0.0"), std::wstring(L"1"), std::wstring(L"\u7248\U0001F600"),
          std::wstring(1000, L'9')}) {
        WriteUninstallValue(kDisplayVersion, {REG_BINARY, std::string(2048, '\xFF')});
        RestoreRegisteredVersion(version);
        const auto stored = ReadUninstallValue(kDisplayVersion);
        ASSERT_TRUE(stored.has_value());
        EXPECT_EQ(stored->type, static_cast<DWORD>(REG_SZ));
        EXPECT_EQ(stored->bytes.size(), 2 * version.size() + 2);
        EXPECT_EQ(stored->bytes, AsBytes(version) + std::string(2, '\0'));
    }
}

TEST(RestoreRegisteredVersion, OnlyTheVersionOfThe64BitViewChanges) {
    const ScopedUninstallEntry entry;
    WriteUninstallValue(kDisplayVersion, RegistryText(L"32"), RegistryView::Of32Bit);
    EXPECT_THAT([] { RestoreRegisteredVersion(L"1.0.0.0"); }, RaisesError(kNotRestored));

    WriteUninstallValue(kDisplayVersion, RegistryText(L"3.0.0.0"));
    WriteUninstallValue(L"DisplayName", RegistryText(L"Program"));
    RestoreRegisteredVersion(L"1.0.0.0");
    EXPECT_EQ(ReadRegisteredVersion(), L"1.0.0.0");
    EXPECT_EQ(ReadUninstallValue(L"DisplayName")->bytes, RegistryText(L"Program").bytes);
    EXPECT_EQ(ReadUninstallValue(kDisplayVersion, RegistryView::Of32Bit)->bytes,
              RegistryText(L"32").bytes);
}

TEST(RestoreRegisteredVersion, AVersionThatWasReadIsPutBackAsItWas) {
    const ScopedUninstallEntry entry;
    WriteUninstallValue(kDisplayVersion, RegistryText(L"1.0.0.0"));
    const std::wstring previous = ReadRegisteredVersion();
    WriteUninstallValue(kDisplayVersion, RegistryText(L"3.0.0.0"));
    RestoreRegisteredVersion(previous);
    EXPECT_EQ(ReadUninstallValue(kDisplayVersion)->bytes, RegistryText(L"1.0.0.0").bytes);
}

TEST(RegisteredVersion, NoHandleStaysOpen) {
    const ScopedUninstallEntry entry;
    ExpectNoHandleLeft([] {
        ReplaceUninstallEntry({});
        ReadRegisteredVersion();
        EXPECT_THAT([] { RestoreRegisteredVersion(L"1.0"); },
                    RaisesError("Cannot restore registered version"));
        WriteUninstallValue(kDisplayVersion, RegistryText(L"1.0"));
        ReadRegisteredVersion();
        RestoreRegisteredVersion(L"2.0");
    });
}

}  // namespace

}  // namespace updater
