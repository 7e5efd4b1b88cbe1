#pragma once

#include <filesystem>

#include "snapshot/program_assets.h"

namespace updater {

/// Makes the installed program equal to the backup again: deletes program assets that the backup
/// record does not hold, copies every recorded one back and checks it. Files that are no program
/// assets, and directories, are left alone. Raises `std::runtime_error` "Restored program checksum
/// mismatch" and what the enumeration, the file operations and the digests raise; what was deleted
/// or copied until then stays so.
void RestoreProgram(const std::filesystem::path& installDirectory,
                    const std::filesystem::path& backupDirectory,
                    const ProgramAssets& backupRecord);

}  // namespace updater
