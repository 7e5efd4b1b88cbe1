#include "support/file_system_error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <system_error>

#include "fixtures/expect_file_system_error.h"
#include "fixtures/raised_errors.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

using testing::HasSubstr;

struct LocalTextReleaser {
    void operator()(wchar_t* text) const noexcept { LocalFree(text); }
};

// Returns the system's text for an error number, without what ends its line.
std::wstring SystemText(DWORD error) {
    wchar_t* text = nullptr;
    const DWORD units = FormatMessageW(
        FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_ALLOCATE_BUFFER,
        nullptr, error, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    const std::unique_ptr<wchar_t, LocalTextReleaser> owned(text);
    EXPECT_GT(units, 0U) << "no text for " << error;
    const std::wstring line(text, units);
    return line.substr(0, line.find_last_not_of(L".\r\n") + 1);
}

// The calling thread speaks another language until the end of the scope.
struct ScopedLanguage {
    explicit ScopedLanguage(LANGID language) {
        SetThreadLocale(MAKELCID(language, SORT_DEFAULT));
        SetThreadUILanguage(language);
    }
    ~ScopedLanguage() {
        SetThreadLocale(previousLocale);
        SetThreadUILanguage(previousLanguage);
    }
    ScopedLanguage(const ScopedLanguage&) = delete;
    ScopedLanguage& operator=(const ScopedLanguage&) = delete;

    LCID previousLocale = GetThreadLocale();
    LANGID previousLanguage = GetThreadUILanguage();
};

TEST(RaiseFileSystemError, CarriesOperationNumberSystemTextAndPath) {
    for (const DWORD error :
         std::initializer_list<DWORD>{ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_DISK_FULL}) {
        const std::string message = ExpectFileSystemError(
            [error] { RaiseFileSystemError("file_size", error, L"C:\\\u7A0B\u5E8F a\\b"); },
            "file_size", error, L"C:\\\u7A0B\u5E8F a\\b");
        EXPECT_THAT(message, HasSubstr(WideToUtf8(SystemText(error))));
    }
}

TEST(RaiseFileSystemError, CarriesBothPathsOfACopy) {
    const std::filesystem::path source = L"C:\\\u6E90";
    const std::filesystem::path target = L"D:\\\u76EE\u6807";
    const auto raise = [&] { RaiseFileSystemError("copy_file", ERROR_DISK_FULL, source, target); };
    ExpectFileSystemError(raise, "copy_file", ERROR_DISK_FULL, source, target);
    EXPECT_THAT(raise, RaisesFileSystemError("copy_file", source, target));
    EXPECT_THAT(raise, testing::Throws<std::filesystem::filesystem_error>(testing::Property(
                           &std::filesystem::filesystem_error::code,
                           std::error_code(ERROR_DISK_FULL, std::system_category()))));
}

TEST(RaiseFileSystemError, APathThatIsNotValidUtf16StaysReadable) {
    for (const wchar_t* path : {L"C:\\\xD800", L"C:\\\xDC00\xD800\\\u7A0B",
                                L"C:\\a\xD83D"
                                L"b"}) {
        ExpectFileSystemError([path] { RaiseFileSystemError("exists", ERROR_ACCESS_DENIED, path); },
                              "exists", ERROR_ACCESS_DENIED, path);
        ExpectFileSystemError(
            [path] { RaiseFileSystemError("copy_file", ERROR_ACCESS_DENIED, L"C:\\a", path); },
            "copy_file", ERROR_ACCESS_DENIED, L"C:\\a", path);
    }
}

// Which of the languages have texts depends on the system; each has to come out whole.
TEST(RaiseFileSystemError, TheSystemsTextIsUtf8InEveryLanguage) {
    constexpr LANGID kChinese = 0x0804;
    constexpr LANGID kGerman = 0x0407;
    constexpr LANGID kFrench = 0x040C;
    constexpr LANGID kRussian = 0x0419;
    for (const LANGID language : {kChinese, kGerman, kFrench, kRussian}) {
        const ScopedLanguage spoken(language);
        for (const DWORD error : std::initializer_list<DWORD>{
                 ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_DISK_FULL}) {
            const std::string message = ExpectFileSystemError(
                [error] { RaiseFileSystemError("remove", error, L"C:\\\u7A0B\u5E8F"); }, "remove",
                error, L"C:\\\u7A0B\u5E8F");
            EXPECT_THAT(message, HasSubstr(WideToUtf8(SystemText(error)))) << language;
        }
    }
}

TEST(IsNotFoundError, OnlyErrorsThatSayThatNothingIsThere) {
    for (const DWORD error :
         std::initializer_list<DWORD>{ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_BAD_NETPATH,
                                      ERROR_BAD_NET_NAME, ERROR_INVALID_NAME}) {
        EXPECT_TRUE(IsNotFoundError(error)) << error;
    }
    for (const DWORD error : std::initializer_list<DWORD>{
             ERROR_SUCCESS, ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_LOGON_FAILURE,
             ERROR_NETNAME_DELETED, ERROR_CANT_RESOLVE_FILENAME, ERROR_NOT_READY}) {
        EXPECT_FALSE(IsNotFoundError(error)) << error;
    }
}

}  // namespace

}  // namespace updater
