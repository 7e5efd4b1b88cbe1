#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "client/corvellan_update.h"
#include "client/signature.h"
#include "client/transport.h"
#include "client/version_number.h"

namespace updater {

/// An application's settings, complete and checked.
struct ClientSettings {
    std::wstring feedAddress;
    std::vector<PublicKey> publicKeys;
    TransportLimits limits;
    std::uint32_t firstPause = 0;
    VersionNumber runningVersion;
    /// UTF-8.
    std::string channel;
    std::filesystem::path installDirectory;
    std::filesystem::path dataDirectory;
    bool downgradeAllowed = false;
};

/// Checks the settings and fills in what they leave open. Raises `ClientFailure`
/// APP_UPDATE_INVALID_ARGUMENT with a sentence that names what is wrong, and
/// APP_UPDATE_SYSTEM_ERROR when the system does not tell a directory.
ClientSettings ReadSettings(const AppUpdateSettings& settings);

}  // namespace updater
