#include "client/report.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <new>
#include <system_error>

#include "client/failure.h"
#include "client/whole_file.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

AppUpdateResult Store(AppUpdateReport* report, AppUpdateResult result, std::uint32_t systemError,
                      std::wstring_view sentence) noexcept {
    if (report != nullptr) {
        report->result = result;
        report->systemError = systemError;
        StoreText(sentence, report->sentence);
    }
    return result;
}

bool IsHighSurrogate(wchar_t unit) noexcept {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

// The system's own words are left out: they may be in any language and code page.
AppUpdateResult StoreFileError(AppUpdateReport* report,
                               const std::filesystem::filesystem_error& error) {
    const auto number = static_cast<std::uint32_t>(error.code().value());
    return Store(report, FileFailureResult(number), number,
                 L"A file operation failed: " +
                     (error.path2().empty() ? error.path1() : error.path2()).native());
}

AppUpdateResult StoreFailure(AppUpdateReport* report) {
    try {
        throw;
    } catch (const ClientFailure& failure) {
        return Store(report, failure.result, failure.systemError, Utf8ToWide(failure.what()));
    } catch (const std::filesystem::filesystem_error& error) {
        return StoreFileError(report, error);
    } catch (const std::system_error& error) {
        return Store(report, APP_UPDATE_SYSTEM_ERROR,
                     static_cast<std::uint32_t>(error.code().value()),
                     L"The system refused an operation");
    } catch (const std::bad_alloc&) {
        return Store(report, APP_UPDATE_OUT_OF_MEMORY, ERROR_NOT_ENOUGH_MEMORY, L"Out of memory");
    } catch (const std::exception& error) {
        return Store(report, APP_UPDATE_SYSTEM_ERROR, 0, Utf8ToWide(error.what()));
    } catch (...) {
        return Store(report, APP_UPDATE_SYSTEM_ERROR, 0, L"A failure of an unknown kind");
    }
}

}  // namespace

void StoreText(std::wstring_view text, std::span<wchar_t> target) noexcept {
    std::size_t length = std::min(text.size(), target.size() - 1);
    if (length < text.size() && IsHighSurrogate(text[length - 1])) {
        --length;
    }
    std::ranges::copy(text.substr(0, length), target.begin());
    target[length] = L'\0';
}

AppUpdateResult StoreAnswer(AppUpdateReport* report, const Answer& answer) noexcept {
    try {
        return Store(report, answer.result, 0, Utf8ToWide(answer.sentence));
    } catch (...) {
        return Store(report, answer.result, 0, L"");
    }
}

AppUpdateResult StoreCurrentFailure(AppUpdateReport* report) noexcept {
    try {
        return StoreFailure(report);
    } catch (...) {
        return Store(report, APP_UPDATE_OUT_OF_MEMORY, ERROR_NOT_ENOUGH_MEMORY, L"Out of memory");
    }
}

}  // namespace updater
