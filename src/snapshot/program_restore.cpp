#include "snapshot/program_restore.h"

#include <stdexcept>
#include <string>

#include "support/file_digest.h"
#include "support/file_system.h"

namespace updater {

namespace {

void DeleteAddedAssets(const std::filesystem::path& installDirectory,
                       const ProgramAssets& backupRecord) {
    for (const std::filesystem::path& asset : EnumerateProgramAssets(installDirectory)) {
        if (!backupRecord.contains(asset)) {
            RemoveFile(installDirectory / asset);
        }
    }
}

}  // namespace

void RestoreProgram(const std::filesystem::path& installDirectory,
                    const std::filesystem::path& backupDirectory,
                    const ProgramAssets& backupRecord) {
    // Before anything is copied: an added file may differ from a recorded one in letter case only,
    // and then its deletion is the deletion of the very file that the copy has to bring back.
    DeleteAddedAssets(installDirectory, backupRecord);

    for (const std::filesystem::path& asset : backupRecord) {
        const std::filesystem::path copy = backupDirectory / asset;
        const std::filesystem::path restored = installDirectory / asset;
        CreateDirectories(restored.parent_path());
        CopyOverFile(copy, restored);
        const std::string copyDigest = FileSha256Hex(copy);
        if (FileSha256Hex(restored) != copyDigest) {
            throw std::runtime_error("Restored program checksum mismatch");
        }
    }
}

}  // namespace updater
