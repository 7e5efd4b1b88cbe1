#include "snapshot/program_verification.h"

#include <cstddef>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "snapshot/inventory_entry.h"
#include "support/application_identity.h"
#include "support/file_digest.h"
#include "support/file_reading.h"
#include "support/handle.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

// Appends the text to the line that has begun, and visits each line that a line feed ends; what
// follows the last one stays in `line`.
void VisitEndedLines(std::string_view text, std::string& line, const InventoryLineVisitor& visit) {
    for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
        visit(line += text.substr(0, end));
        line.clear();
        text.remove_prefix(end + 1);
    }
    line += text;
}

}  // namespace

void VerifyInventoryLine(const std::filesystem::path& installDirectory, const std::string& line) {
    const InventoryEntry entry = ParseInventoryLine(line);
    const std::wstring path = Utf8ToWide(entry.path);
    CheckInventoryPath(path);
    if (FileSha256Hex(AppendInventoryPath(installDirectory.native(), path)) != entry.digest) {
        throw std::runtime_error("Installed program checksum mismatch: " + WideToUtf8(path));
    }
}

void VisitInventory(const std::filesystem::path& installDirectory,
                    const InventoryLineVisitor& visit) {
    const UniqueHandle inventory = OpenFileToRead(installDirectory / kProgramInventory);
    if (!inventory) {
        throw std::runtime_error("Installed program inventory is missing");
    }
    bool empty = true;
    std::string line;
    const bool complete = VisitPortions(inventory.get(), [&](std::span<char> portion) {
        empty = empty && portion.empty();
        VisitEndedLines({portion.data(), portion.size()}, line, visit);
        return true;
    });
    if (empty) {
        throw std::runtime_error("Installed program inventory is empty");
    }
    // Not the end of the list: what was read only in part proves nothing.
    if (!complete) {
        throw std::runtime_error(kInvalidInventory);
    }
    if (!line.empty()) {
        visit(line);
    }
}

void VerifyInstalledProgram(const std::filesystem::path& installDirectory) {
    VisitInventory(installDirectory, [&installDirectory](const std::string& line) {
        VerifyInventoryLine(installDirectory, line);
    });
}

}  // namespace updater
