// Versions when the system refuses, and the exact calls that are made: the system's functions are
// replaced at link time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "fixtures/application_names.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/raised_errors.h"
#include "support/stand_ins/version_program.h"
#include "support/version_information.h"
#include "support/windows_api.h"

namespace updater {

namespace {

using testing::ElementsAre;

constexpr wchar_t kEntryKey[] =
    LR"(SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\)" IDENTITY_APPLICATION_ID LR"(_is1)";

constexpr DWORD kSize = 1000;

struct ReadExecutableVersionFailure : testing::Test {
    void ExpectFailure(const char* message) const {
        EXPECT_THAT([this] { ReadExecutableVersion(program); }, RaisesError(message));
    }

    std::filesystem::path program = VersionProgram(L"1.2.0.0");
};

TEST_F(ReadExecutableVersionFailure, AResourceThatCannotBeReadAfterAll) {
    const ScopedReplacement refusing(doubles::GetFileVersionInfoW,
                                     [](LPCWSTR, DWORD, DWORD, LPVOID) { return FALSE; });
    ExpectFailure("Cannot read installed executable version");
}

TEST_F(ReadExecutableVersionFailure, AQueryThatFails) {
    const ScopedReplacement refusing(doubles::VerQueryValueW,
                                     [](LPCVOID, LPCWSTR, LPVOID*, PUINT) { return FALSE; });
    ExpectFailure("Executable version is missing");
}

// Answers as the system does, but for the length of the fixed information.
std::function<decltype(VerQueryValueW)> AnswerLength(UINT length) {
    return [length](LPCVOID resource, LPCWSTR block, LPVOID* value, PUINT bytes) {
        const BOOL answer = VerQueryValueW(resource, block, value, bytes);
        *bytes = length;
        return answer;
    };
}

TEST_F(ReadExecutableVersionFailure, FixedInformationOfFewerThan52Bytes) {
    for (const UINT length : {0U, 51U}) {
        const ScopedReplacement answering(doubles::VerQueryValueW, AnswerLength(length));
        ExpectFailure("Executable version is missing");
    }
}

TEST_F(ReadExecutableVersionFailure, FixedInformationOfMoreThan52BytesIsNone) {
    for (const UINT length : {52U, 53U, 64U, 0xFFFFFFFFU}) {
        const ScopedReplacement answering(doubles::VerQueryValueW, AnswerLength(length));
        EXPECT_EQ(ReadExecutableVersion(program), L"1.2.0.0");
    }
}

TEST_F(ReadExecutableVersionFailure, TheRootOfAZeroFilledBufferOfExactlyTheSizeIsQueried) {
    VS_FIXEDFILEINFO information{};
    information.dwFileVersionMS = 0x000A0000;
    information.dwFileVersionLS = 0x4A610001;
    const ScopedReplacement sized(doubles::GetFileVersionInfoSizeW, [this](LPCWSTR file, LPDWORD) {
        EXPECT_EQ(file, program.native());
        return kSize;
    });
    const ScopedReplacement filled(
        doubles::GetFileVersionInfoW, [this](LPCWSTR file, DWORD handle, DWORD bytes, LPVOID data) {
            EXPECT_EQ(file, program.native());
            EXPECT_EQ(handle, 0U);
            EXPECT_EQ(bytes, kSize);
            const auto* first = static_cast<const char*>(data);
            EXPECT_TRUE(std::all_of(first, first + kSize, [](char unit) { return unit == 0; }));
            return TRUE;
        });
    const ScopedReplacement queried(doubles::VerQueryValueW,
                                    [&](LPCVOID, LPCWSTR block, LPVOID* value, PUINT bytes) {
                                        EXPECT_STREQ(block, L"\\");
                                        *value = &information;
                                        *bytes = sizeof(information);
                                        return TRUE;
                                    });
    EXPECT_EQ(ReadExecutableVersion(program), L"10.0.19041.1");
}

TEST(ReadRegisteredVersionFailure, OnlyATextOfThe64BitViewIsAskedForIntoAZeroFilledBuffer) {
    const ScopedReplacement answering(
        doubles::RegGetValueW,
        [](auto hive, LPCWSTR key, LPCWSTR value, DWORD flags, LPDWORD, PVOID data, auto bytes) {
            EXPECT_EQ(hive, HKEY_LOCAL_MACHINE);
            EXPECT_STREQ(key, kEntryKey);
            EXPECT_STREQ(value, L"DisplayVersion");
            EXPECT_EQ(flags, 0x10002U);
            EXPECT_EQ(*bytes, 1024U);
            const auto* first = static_cast<const char*>(data);
            EXPECT_TRUE(std::all_of(first, first + 1024, [](char unit) { return unit == 0; }));
            std::memcpy(data, L"1.0", sizeof(L"1.0"));
            return LSTATUS{ERROR_SUCCESS};
        });
    EXPECT_EQ(ReadRegisteredVersion(), L"1.0");
}

TEST(ReadRegisteredVersionFailure, AFailedReadGivesAnEmptyTextWhateverWasLeftInTheBuffer) {
    const ScopedReplacement failing(
        doubles::RegGetValueW, [](HKEY, LPCWSTR, LPCWSTR, DWORD, LPDWORD, PVOID data, LPDWORD) {
            std::memcpy(data, L"1.0", sizeof(L"1.0"));
            return LSTATUS{ERROR_MORE_DATA};
        });
    EXPECT_EQ(ReadRegisteredVersion(), L"");
}

// The registry as the restore sees it; no call reaches the real one.
struct ObservedRegistry {
    explicit ObservedRegistry(LSTATUS ofOpen = ERROR_SUCCESS, LSTATUS ofSet = ERROR_SUCCESS);

    std::vector<std::string> calls;
    LSTATUS openStatus;
    LSTATUS setStatus;

    ScopedReplacement<decltype(RegOpenKeyExW)> open;
    ScopedReplacement<decltype(RegSetValueExW)> set;
    ScopedReplacement<decltype(RegCloseKey)> close;
};

const HKEY kOpenedKey = reinterpret_cast<HKEY>(0x1234);

ObservedRegistry::ObservedRegistry(LSTATUS ofOpen, LSTATUS ofSet)
    : openStatus(ofOpen),
      setStatus(ofSet),
      open(doubles::RegOpenKeyExW,
           [this](HKEY hive, LPCWSTR key, DWORD options, REGSAM access, PHKEY opened) {
               calls.emplace_back("open");
               EXPECT_EQ(hive, HKEY_LOCAL_MACHINE);
               EXPECT_STREQ(key, kEntryKey);
               EXPECT_EQ(options, 0U);
               EXPECT_EQ(access, 0x102U);
               if (openStatus == ERROR_SUCCESS) {
                   *opened = kOpenedKey;
               }
               return openStatus;
           }),
      set(doubles::RegSetValueExW,
          [this](HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data,
                 DWORD bytes) {
              calls.push_back("set " + std::to_string(bytes));
              EXPECT_EQ(key, kOpenedKey);
              EXPECT_STREQ(name, L"DisplayVersion");
              EXPECT_EQ(reserved, 0U);
              EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
              EXPECT_STREQ(reinterpret_cast<const wchar_t*>(data), L"1.0.0.0");
              return setStatus;
          }),
      close(doubles::RegCloseKey, [this](HKEY key) {
          calls.emplace_back("close");
          EXPECT_EQ(key, kOpenedKey);
          return LSTATUS{ERROR_SUCCESS};
      }) {}

TEST(RestoreRegisteredVersionFailure, TheKeyIsOpenedForWritingOnlySetAndClosed) {
    const ObservedRegistry registry;
    RestoreRegisteredVersion(L"1.0.0.0");
    EXPECT_THAT(registry.calls, ElementsAre("open", "set 16", "close"));
}

TEST(RestoreRegisteredVersionFailure, AnEmptyTextOpensNothing) {
    const ObservedRegistry registry;
    RestoreRegisteredVersion(L"");
    EXPECT_THAT(registry.calls, ElementsAre());
}

TEST(RestoreRegisteredVersionFailure, AKeyThatCannotBeOpenedIsNotClosed) {
    for (const LSTATUS status : {ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED}) {
        const ObservedRegistry registry(status);
        EXPECT_THAT([] { RestoreRegisteredVersion(L"1.0.0.0"); },
                    RaisesError("Cannot restore registered version"));
        EXPECT_THAT(registry.calls, ElementsAre("open"));
    }
}

TEST(RestoreRegisteredVersionFailure, AValueThatCannotBeSetLeavesTheKeyClosed) {
    const ObservedRegistry registry(ERROR_SUCCESS, ERROR_ACCESS_DENIED);
    EXPECT_THAT([] { RestoreRegisteredVersion(L"1.0.0.0"); },
                RaisesError("Cannot restore registered version"));
    EXPECT_THAT(registry.calls, ElementsAre("open", "set 16", "close"));
}

}  // namespace

}  // namespace updater
