#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace updater {

/// The places of one machine, instead of the page's examples.
struct RecoveryPlaces {
    std::filesystem::path installDirectory;
    std::filesystem::path staging;
    /// A user's own program beside the application.
    std::wstring ownProgram;
};

/// Types what a section of docs/recovery.md tells its reader to type, one console block after the
/// other, and returns a sentence for each block in which a command failed. Blocks that the page
/// marks as not to be run are left out. Raises `std::runtime_error` when the section has no other.
std::vector<std::string> FollowRecoveryPage(const std::string& heading,
                                            const RecoveryPlaces& places);

}  // namespace updater
