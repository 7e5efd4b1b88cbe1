#include "snapshot/program_verification.h"

#include <fstream>
#include <stdexcept>
#include <string>

#include "snapshot/inventory_entry.h"
#include "support/application_identity.h"
#include "support/file_digest.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

void VerifyEntry(const std::filesystem::path& installDirectory, const std::string& line) {
    const InventoryEntry entry = ParseInventoryLine(line);
    const std::wstring path = Utf8ToWide(entry.path);
    CheckInventoryPath(path);
    if (FileSha256Hex(AppendInventoryPath(installDirectory.native(), path)) != entry.digest) {
        throw std::runtime_error("Installed program checksum mismatch: " + WideToUtf8(path));
    }
}

}  // namespace

void VerifyInstalledProgram(const std::filesystem::path& installDirectory) {
    std::ifstream inventory(installDirectory / kProgramInventory, std::ios::binary);
    if (!inventory.is_open()) {
        throw std::runtime_error("Installed program inventory is missing");
    }
    std::string line;
    if (!std::getline(inventory, line)) {
        throw std::runtime_error("Installed program inventory is empty");
    }
    do {
        VerifyEntry(installDirectory, line);
    } while (std::getline(inventory, line));
    if (inventory.bad()) {
        throw std::runtime_error(kInvalidInventory);
    }
}

}  // namespace updater
