// The input is a digit, which chooses the installation directory, and a line of the inventory.

#include <array>
#include <optional>
#include <stdexcept>
#include <string>

#include "fuzz/fuzz_input.h"
#include "fuzz/oracle/inventory_rules.h"
#include "fuzz/oracle/lexical_path.h"
#include "fuzz/property.h"
#include "snapshot/inventory_entry.h"

namespace updater {
namespace {

struct Start {
    std::wstring_view directory;
    /// What stands before an ordinary path of the inventory.
    std::wstring_view prefix;
    /// What stands before a path that begins with a separator.
    std::wstring_view root;
};

constexpr std::array<Start, 9> kStarts = {{
    {L"C:\\Program Files\\Program", L"C:\\Program Files\\Program\\", L"C:"},
    {L"D:\\Program\\", L"D:\\Program\\", L"D:"},
    {L"d:/mixed\\./Program/", L"d:/mixed\\./Program/", L"d:"},
    {L"C:\\", L"C:\\", L"C:"},
    {L"C:", L"C:", L"C:"},
    {L"\\\\server\\share\\Program", L"\\\\server\\share\\Program\\", L"\\\\server"},
    {L"\\\\server", L"\\\\server\\", L"\\\\server"},
    {L"Program", L"Program\\", L""},
    {L"", L"", L""},
}};

InventoryEntry CheckLine(const std::string& line, const std::optional<ExpectedEntry>& expected) {
    try {
        InventoryEntry entry = ParseInventoryLine(line);
        Require(expected && entry.path == expected->path && entry.digest == expected->digest,
                "the first tab parts path and digest");
        return entry;
    } catch (const std::runtime_error& error) {
        Require(!expected, "only a line without a tab is invalid");
        Require(std::string_view(error.what()) == "Invalid program inventory", "its message");
        return {};
    }
}

bool CheckRules(const std::wstring& path) {
    const std::string expected = ExpectedPathError(path);
    try {
        CheckInventoryPath(path);
        Require(expected.empty(), "a path that may leave the directory is refused");
        return true;
    } catch (const std::runtime_error& error) {
        Require(error.what() == expected, "a path is refused for the right reason");
        return false;
    }
}

void CheckPlace(const Start& start, const std::wstring& path) {
    const std::wstring full = AppendInventoryPath(start.directory, path);
    const LexicalPath place = NormalisePath(full);
    const LexicalPath directory = NormalisePath(start.directory);
    if (BeginsAtDriveRoot(path)) {
        Require(full == std::wstring(start.root) + path,
                "a path that begins with a separator lies at the root of the directory's drive");
        return;
    }
    Require(full == std::wstring(start.prefix) + path, "the path is used as it is written");
    Require(IsWithin(directory, place), "a path stays in the directory");
}

}  // namespace
}  // namespace updater

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = updater::TextOfInput(data, size);
    if (input.empty()) {
        return 0;
    }
    const std::string line(input.substr(1));
    const std::size_t choice = std::string_view("012345678").find(input.front());
    const updater::Start& start = updater::kStarts[choice < updater::kStarts.size() ? choice : 0];

    const std::optional<updater::ExpectedEntry> expected = updater::ExpectedInventoryEntry(line);
    const updater::InventoryEntry entry = updater::CheckLine(line, expected);
    if (!expected) {
        return 0;
    }
    const std::wstring path = updater::UnitsOfText(entry.path);
    if (updater::CheckRules(path)) {
        updater::CheckPlace(start, path);
    }
    return 0;
}
