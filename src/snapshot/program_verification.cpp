#include "snapshot/program_verification.h"

#include <fstream>
#include <stdexcept>
#include <string>

#include "snapshot/inventory_entry.h"
#include "support/application_identity.h"
#include "support/file_digest.h"
#include "support/text_conversion.h"

namespace updater {

void VerifyInventoryLine(const std::filesystem::path& installDirectory, const std::string& line) {
    const InventoryEntry entry = ParseInventoryLine(line);
    const std::wstring path = Utf8ToWide(entry.path);
    CheckInventoryPath(path);
    if (FileSha256Hex(AppendInventoryPath(installDirectory.native(), path)) != entry.digest) {
        throw std::runtime_error("Installed program checksum mismatch: " + WideToUtf8(path));
    }
}

std::ifstream OpenInventory(const std::filesystem::path& installDirectory) {
    std::ifstream inventory(installDirectory / kProgramInventory, std::ios::binary);
    if (!inventory.is_open()) {
        throw std::runtime_error("Installed program inventory is missing");
    }
    if (inventory.peek() == std::ifstream::traits_type::eof()) {
        throw std::runtime_error("Installed program inventory is empty");
    }
    return inventory;
}

bool ReadInventoryLine(std::ifstream& inventory, std::string& line) {
    if (std::getline(inventory, line)) {
        return true;
    }
    // Not the end of the list: what was read only in part proves nothing.
    if (inventory.bad()) {
        throw std::runtime_error(kInvalidInventory);
    }
    return false;
}

void VerifyInstalledProgram(const std::filesystem::path& installDirectory) {
    std::ifstream inventory = OpenInventory(installDirectory);
    std::string line;
    while (ReadInventoryLine(inventory, line)) {
        VerifyInventoryLine(installDirectory, line);
    }
}

}  // namespace updater
