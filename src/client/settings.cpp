#include "client/settings.h"

#include <optional>
#include <string_view>

#include "client/failure.h"
#include "client/feed.h"
#include "client/feed_address.h"
#include "support/application_identity.h"
#include "support/process_utilities.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr std::uint32_t kKnownFlags = APP_UPDATE_FLAG_ALLOW_DOWNGRADE;
constexpr std::uint32_t kMostKeys = 16;
constexpr std::uint32_t kDefaultLimit = 30000;
constexpr std::uint32_t kDefaultFirstPause = 1000;
constexpr wchar_t kDefaultChannel[] = L"stable";
constexpr DWORD kLongestPath = 32767;

void Require(bool isFine, const std::string& sentence) {
    if (!isFine) {
        throw ClientFailure(APP_UPDATE_INVALID_ARGUMENT, sentence);
    }
}

std::wstring_view TextOr(const wchar_t* text, std::wstring_view standard) {
    return text == nullptr ? standard : std::wstring_view(text);
}

std::wstring ReadAddress(const wchar_t* address) {
    const std::wstring_view text = TextOr(address, {});
    Require(IsAbsoluteFeedAddress(WideToUtf8(text)),
            "The feed's address must begin with https:// and hold only what may stand in a URL");
    return std::wstring(text);
}

std::vector<PublicKey> ReadKeys(const AppUpdateSettings& settings) {
    Require(settings.publicKeys != nullptr && settings.publicKeyCount >= 1 &&
                settings.publicKeyCount <= kMostKeys,
            "Between 1 and 16 public keys are wanted");
    std::vector<PublicKey> keys;
    for (std::uint32_t index = 0; index < settings.publicKeyCount; ++index) {
        const wchar_t* text = settings.publicKeys[index];
        const std::optional<PublicKey> key =
            text == nullptr ? std::nullopt : ReadPublicKey(WideToUtf8(text));
        Require(key.has_value(), "Public key " + std::to_string(index + 1) + " of " +
                                     std::to_string(settings.publicKeyCount) +
                                     " is no P-256 key in PEM form");
        keys.push_back(*key);
    }
    return keys;
}

VersionNumber ReadRunningVersion(const wchar_t* text) {
    const auto version = ReadVersionNumber(WideToUtf8(TextOr(text, {})));
    Require(version.has_value(), "The running version must be four numbers with dots between them");
    return *version;
}

std::string ReadChannel(const wchar_t* text) {
    std::string channel = WideToUtf8(TextOr(text, kDefaultChannel));
    Require(IsChannelName(channel),
            "The channel must be 1 to 32 lower-case letters, digits and hyphens");
    return channel;
}

std::filesystem::path RequireAbsolute(std::filesystem::path directory, const char* sentence) {
    Require(directory.is_absolute(), sentence);
    return directory;
}

std::filesystem::path DefaultInstallDirectory() {
    return std::filesystem::path(GetProcessImagePath(GetCurrentProcess())).parent_path();
}

std::filesystem::path DefaultDataDirectory() {
    std::wstring localData(kLongestPath, L'\0');
    localData.resize(GetEnvironmentVariableW(L"LOCALAPPDATA", localData.data(), kLongestPath));
    if (localData.empty()) {
        throw ClientFailure(APP_UPDATE_SYSTEM_ERROR,
                            "The environment variable LOCALAPPDATA is not set",
                            ERROR_ENVVAR_NOT_FOUND);
    }
    return std::filesystem::path(localData) / kLocalDirectory;
}

}  // namespace

ClientSettings ReadSettings(const AppUpdateSettings& settings) {
    Require(settings.size == sizeof(settings),
            "The settings have a size of no version of the header");
    Require((settings.flags & ~kKnownFlags) == 0, "The settings have an unknown flag");
    ClientSettings result;
    result.feedAddress = ReadAddress(settings.feedAddress);
    result.publicKeys = ReadKeys(settings);
    result.limits = {settings.connectLimit == 0 ? kDefaultLimit : settings.connectLimit,
                     settings.silenceLimit == 0 ? kDefaultLimit : settings.silenceLimit};
    result.firstPause = settings.firstPause == 0 ? kDefaultFirstPause : settings.firstPause;
    result.runningVersion = ReadRunningVersion(settings.runningVersion);
    result.channel = ReadChannel(settings.channel);
    result.installDirectory =
        settings.installDirectory == nullptr
            ? DefaultInstallDirectory()
            : RequireAbsolute(settings.installDirectory,
                              "The installation directory must be an absolute path");
    result.dataDirectory = settings.dataDirectory == nullptr
                               ? DefaultDataDirectory()
                               : RequireAbsolute(settings.dataDirectory,
                                                 "The data directory must be an absolute path");
    result.downgradeAllowed = (settings.flags & APP_UPDATE_FLAG_ALLOW_DOWNGRADE) != 0;
    return result;
}

}  // namespace updater
