#pragma once

#include <filesystem>

#include "snapshot/program_assets.h"

namespace updater {

/// Copies every program asset into the backup directory, under the same relative path, and checks
/// each copy against its source. Returns the backup record, which the restore needs; it is not
/// stored on disk. Nothing in the backup directory is deleted, and the directory is not made when
/// there is nothing to copy. Raises `std::runtime_error` "Program backup checksum mismatch" and
/// what the enumeration, the copying and the digests raise; copies already made then stay.
ProgramAssets BackupProgram(const std::filesystem::path& installDirectory,
                            const std::filesystem::path& backupDirectory);

}  // namespace updater
