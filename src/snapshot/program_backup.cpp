#include "snapshot/program_backup.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "support/file_digest.h"
#include "support/file_system.h"

namespace updater {

ProgramAssets BackupProgram(const std::filesystem::path& installDirectory,
                            const std::filesystem::path& backupDirectory) {
    ProgramAssets assets = EnumerateProgramAssets(installDirectory);
    // To look at a directory again before each of its files would take a noticeable part of the
    // time of a backup of small files.
    std::filesystem::path createdDirectory;
    for (const std::filesystem::path& asset : assets) {
        const std::filesystem::path source = installDirectory / asset;
        const std::filesystem::path copy = backupDirectory / asset;
        if (std::filesystem::path directory = copy.parent_path(); directory != createdDirectory) {
            CreateDirectories(directory);
            createdDirectory = std::move(directory);
        }
        CopyOverFile(source, copy);
        const std::string copyDigest = FileSha256Hex(copy);
        if (FileSha256Hex(source) != copyDigest) {
            throw std::runtime_error("Program backup checksum mismatch");
        }
    }
    return assets;
}

}  // namespace updater
