#include "end_to_end/staging_directories.h"

#include <algorithm>
#include <string>

#include "elevation/program_start.h"
#include "support/application_identity.h"
#include "support/directory_listing.h"

namespace updater {

std::vector<std::filesystem::path> ListStagingDirectories() {
    const std::filesystem::path folder = EnvironmentVariable(L"ProgramData");
    std::vector<std::filesystem::path> directories;
    VisitDirectory(folder, [&](const ListedEntry& entry) {
        if (entry.relativePath.native().starts_with(kStagingPrefix)) {
            directories.push_back(folder / entry.relativePath);
        }
    });
    return directories;
}

std::vector<std::filesystem::path> ListNewStagingDirectories(
    const std::vector<std::filesystem::path>& before) {
    std::vector<std::filesystem::path> directories = ListStagingDirectories();
    std::erase_if(directories, [&](const std::filesystem::path& directory) {
        return std::ranges::find(before, directory) != before.end();
    });
    return directories;
}

}  // namespace updater
