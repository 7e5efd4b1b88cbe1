#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "fixtures/application_names.h"
#include "fixtures/file_content.h"
#include "fixtures/temporary_directory.h"
#include "snapshot/inventory_entry.h"
#include "snapshot/program_verification.h"
#include "support/file_digest.h"
#include "support/text_conversion.h"
#include "updatectl/file_names.h"
#include "updatectl/tool_call.h"

namespace updater {
namespace {

using Random = std::mt19937;

std::size_t Below(Random& random, std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
}

std::wstring RandomName(Random& random) {
    static const std::vector<std::wstring> pieces = {
        L"a",      L"B",          L"zz", L" ", L".",   L"-", L"_",       L"data", L"\u4E2D\u6587",
        L"\u00FC", L"\U0001F600", L"'",  L"%", L"(1)", L"~", L"program", L".exe", L".dll",
        L"0",      L"\u0416"};
    std::wstring name;
    do {
        name.clear();
        for (std::size_t count = 1 + Below(random, 5); count > 0; --count) {
            name += pieces[Below(random, pieces.size())];
        }
    } while (!FaultOfName(name).empty());
    return name;
}

std::string RandomContent(Random& random) {
    constexpr std::size_t kChunk = 65536;
    constexpr std::size_t kSizes[] = {0, 1, 100, kChunk - 1, kChunk, kChunk + 1};
    std::string content(kSizes[Below(random, std::size(kSizes))], '\0');
    std::ranges::generate(content, [&random] { return static_cast<char>(random()); });
    return content;
}

// Paths of files, no two of them, or of the directories they are in, the same.
std::vector<std::wstring> RandomPaths(Random& random) {
    std::vector<std::wstring> directories = {L"", L"data\\"};
    std::vector<std::wstring> paths = {kExecutableName};
    std::set<std::wstring> taken = {L"DATA", InCapitals(kExecutableName)};
    for (std::size_t count = 1 + Below(random, 25); count > 0; --count) {
        const std::wstring path =
            directories[Below(random, directories.size())] + RandomName(random);
        if (!taken.insert(FoldCase(path)).second) {
            continue;
        }
        if (Below(random, 4) == 0) {
            directories.push_back(path + L'\\');
        } else {
            paths.push_back(path);
        }
    }
    return paths;
}

TEST(RandomTree, IsListedWholeAndVerifiesAtOnce) {
    constexpr unsigned kTrees = 30;
    for (unsigned seed = 1; seed <= kTrees; ++seed) {
        Random random(seed);
        const TemporaryDirectory directory;
        std::map<std::wstring, std::string> expected;
        for (const std::wstring& path : RandomPaths(random)) {
            WriteFileContent(directory.path / path, RandomContent(random));
            expected[path] = FileSha256Hex(directory.path / path);
        }
        const ToolResult result = CallTool({L"inventory", directory.path.native()});
        ASSERT_EQ(result.exitCode, 0U) << "seed " << seed << ": " << result.error;
        EXPECT_NO_THROW(VerifyInstalledProgram(directory.path)) << "seed " << seed;

        std::map<std::wstring, std::string> listed;
        std::vector<std::filesystem::path> order;
        VisitInventory(directory.path, [&order, &listed](const std::string& line) {
            const InventoryEntry entry = ParseInventoryLine(line);
            order.emplace_back(Utf8ToWide(entry.path));
            listed[order.back().native()] = entry.digest;
        });
        EXPECT_EQ(listed, expected) << "seed " << seed;
        EXPECT_TRUE(std::ranges::is_sorted(order)) << "seed " << seed;
        EXPECT_EQ(CallTool({L"verify", directory.path.native()}).exitCode, 0U) << "seed " << seed;
    }
}

}  // namespace
}  // namespace updater
