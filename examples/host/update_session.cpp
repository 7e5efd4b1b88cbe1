#include "update_session.h"

#include <filesystem>

namespace corvellan {

namespace {

// Where the releases are published, such as L"https://updates.example.com/update-feed.json", and
// the key that their feed is signed for: the lines of the PEM file between the first and the last.
constexpr wchar_t kFeedAddress[] = L"";
constexpr wchar_t kPublicKey[] = L"";

std::wstring Choose(const wchar_t* variable, const wchar_t* constant) {
    const std::wstring other = ReadEnvironment(variable);
    return other.empty() ? constant : other;
}

const wchar_t* Words(AppUpdateResult result) {
    switch (result) {
        case APP_UPDATE_NOTHING_NEW:
        case APP_UPDATE_NOT_YET:
            return L"The application is up to date";
        case APP_UPDATE_CANCELLED:
            return L"Cancelled; nothing was changed";
        case APP_UPDATE_PROMPT_DECLINED:
            return L"The update was not allowed; nothing was changed";
        case APP_UPDATE_DISK_FULL:
            return L"There is not enough space on the disk";
        case APP_UPDATE_NO_NETWORK:
        case APP_UPDATE_SERVER_ERROR:
            return L"The update server cannot be reached; please try again later";
        case APP_UPDATE_CERTIFICATE_REFUSED:
        case APP_UPDATE_REDIRECT_REFUSED:
        case APP_UPDATE_FEED_MALFORMED:
        case APP_UPDATE_BAD_SIGNATURE:
        case APP_UPDATE_FEED_EXPIRED:
        case APP_UPDATE_FEED_OLDER:
        case APP_UPDATE_WRONG_CHANNEL:
        case APP_UPDATE_WRONG_SIZE:
        case APP_UPDATE_WRONG_DIGEST:
            return L"What the update server offers cannot be trusted; nothing was changed";
        case APP_UPDATE_TOO_OLD_TO_UPDATE:
            return L"This version is too old for an update; please install the new one by hand";
        case APP_UPDATE_FAILED_RESTORED:
            return L"The update failed and the previous program is in place";
        case APP_UPDATE_FAILED_NOT_RESTORED:
            return L"The update failed and the program may be damaged; please install it again";
        default:
            return L"The update failed; nothing was changed";
    }
}

}  // namespace

UniqueSession OpenUpdateSession(const Application& application, std::wstring& why) {
    const std::wstring address = Choose(L"CORVELLAN_FEED_ADDRESS", kFeedAddress);
    if (address.empty()) {
        why = L"This copy is not told where to look for updates";
        return nullptr;
    }
    const std::wstring key = Choose(L"CORVELLAN_FEED_KEY", kPublicKey);
    const wchar_t* const keys[] = {key.c_str()};
    const std::filesystem::path dataDirectory = UserDataDirectory();
    AppUpdateSettings settings{};
    settings.size = sizeof(settings);
    settings.feedAddress = address.c_str();
    settings.publicKeys = keys;
    settings.publicKeyCount = 1;
    settings.runningVersion = application.version.c_str();
    settings.installDirectory = application.installDirectory.c_str();
    settings.dataDirectory = dataDirectory.c_str();

    AppUpdateReport report{};
    report.size = sizeof(report);
    AppUpdateSession* session = nullptr;
    if (AppUpdateOpen(&settings, &session, &report) != APP_UPDATE_OK) {
        why = std::wstring(L"The application cannot look for updates\n") + report.sentence;
    }
    return UniqueSession(session);
}

std::wstring TakeOutcomeText(AppUpdateSession* session) {
    AppUpdateOutcome outcome{};
    outcome.size = sizeof(outcome);
    if (session == nullptr || AppUpdateTakeOutcome(session, &outcome, nullptr) != APP_UPDATE_OK) {
        return L"";
    }
    if (outcome.result == APP_UPDATE_OK) {
        return std::wstring(L"Updated to ") + outcome.version;
    }
    return std::wstring(Words(outcome.result)) + L": " + outcome.message;
}

std::wstring ResultText(const AppUpdateReport& report) {
    std::wstring text = Words(report.result);
    // What the user did or what is as it should be needs no reason.
    if (report.result >= APP_UPDATE_INVALID_ARGUMENT) {
        text.append(L"\n").append(report.sentence);
    }
    return text;
}

}  // namespace corvellan
