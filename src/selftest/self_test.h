#pragma once

#include <filesystem>

namespace updater {

/// Proves on this machine that the rollback works: builds a small installation in the job
/// directory under a name with Chinese characters and spaces, backs it up, damages it as a failed
/// installation would, restores it and checks the result, together with the quoting of such a path.
/// Writes the status "succeeded" and returns the exit code 0. Raises `std::runtime_error` "Rollback
/// fixture validation failed" when the result is wrong, and what the steps themselves raise. Reads
/// and writes nothing outside the job directory, and leaves the fixture there.
int RunSelfTest(const std::filesystem::path& jobDirectory);

}  // namespace updater
