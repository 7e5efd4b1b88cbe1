#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "end_to_end/update_run.h"
#include "end_to_end/update_scene.h"

namespace updater {

/// A test with an update of its own. The report that GoogleTest writes on request tells, as the
/// property "UpdaterSha256", which updater has run.
struct UpdateTest : testing::Test, UpdateScene {
    void TearDown() override;
};

/// Returns a record's text as it stands in the status file; the message needs no escaping.
std::string RecordText(const std::string& state, const std::string& message, int exitCode);

/// Returns the text of the last record; empty without one.
std::string LastRecordText(const std::filesystem::path& jobDirectory);

/// Expects the broker to end by itself, so without a message box, with this exit code and this last
/// record.
void ExpectQuietEnd(const UpdateRun& run, const std::filesystem::path& jobDirectory,
                    const std::string& recordText, std::uint32_t exitCode);

/// Expects the error box with this record, closes it, and expects the broker to end with this exit
/// code.
void ExpectErrorBox(const UpdateRun& run, const std::filesystem::path& jobDirectory,
                    const std::string& recordText, std::uint32_t exitCode = 1);

/// Expects that the application has been started again, unelevated and with its installation
/// directory as working directory, and closes it.
void ExpectRestart(const std::filesystem::path& installDirectory, const std::string& version);

/// Expects the scene's program files, user data and registered version to be those of before.
void ExpectNothingChanged(const UpdateScene& scene);

}  // namespace updater
