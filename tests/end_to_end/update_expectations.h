#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "end_to_end/update_scene.h"

namespace updater {

/// A test with an update of its own. The report that GoogleTest writes on request tells, as the
/// property "UpdaterSha256", which updater has run.
struct UpdateTest : testing::Test, UpdateScene {
    void TearDown() override;
};

/// Expects the broker to end by itself, so without a message box, with this exit code and this last
/// record.
void ExpectQuietEnd(WholeUpdate& update, const std::string& recordText, std::uint32_t exitCode);

/// Expects the error box with this record, closes it, and expects the broker to end with this exit
/// code.
void ExpectErrorBox(WholeUpdate& update, const std::string& recordText, std::uint32_t exitCode = 1);

/// Expects version 2 to be installed and registered and the user's data to be what it was.
void ExpectVersion2(const UpdateScene& scene);

/// Expects that the application has been started again, unelevated and with its installation
/// directory as working directory, and closes it.
void ExpectRestart(const std::filesystem::path& installDirectory, const std::string& version);

/// Expects the scene's program files, user data and registered version to be those of before.
void ExpectNothingChanged(const UpdateScene& scene);

}  // namespace updater
