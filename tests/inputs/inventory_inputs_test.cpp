#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fixtures/application_names.h"
#include "fixtures/doubles/updater_doubles.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/temporary_directory.h"
#include "fuzz/oracle/inventory_rules.h"
#include "inputs/inventory_mutation.h"
#include "inputs/random_source.h"
#include "snapshot/inventory_entry.h"
#include "snapshot/program_verification.h"
#include "support/file_digest.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr int kInventories = 20000;

// No path that is tried here is longer.
constexpr std::size_t kLongestPath = 2048;

struct OpenedFile {
    // As it was asked for.
    std::wstring path;
    // As the system names the file that it found; empty when it found none.
    std::wstring found;
};

struct HashedFile {
    std::wstring path;
    // Nothing when the file could not be hashed.
    std::optional<std::string> digest;
};

std::wstring PathOfHandle(HANDLE file) {
    if (GetFileType(file) == FILE_TYPE_CHAR) {
        return L"a device";
    }
    constexpr std::wstring_view kPrefix = L"\\\\?\\";
    std::wstring path(kLongestPath, L'\0');
    path.resize(GetFinalPathNameByHandleW(file, path.data(), static_cast<DWORD>(path.size()),
                                          VOLUME_NAME_DOS));
    return path.starts_with(kPrefix) ? path.substr(kPrefix.size()) : L"a file without a path";
}

/// While it is in scope, records which files are opened and hashed; the calls do their work.
struct FileAccesses {
    FileAccesses()
        : create(doubles::CreateFileW,
                 [this](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                        DWORD disposition, DWORD flags, HANDLE model) {
                     HANDLE file =
                         CreateFileW(path, access, share, security, disposition, flags, model);
                     Record(path, file);
                     return file;
                 }),
          hash(doubles::FileSha256Hex, [this](const std::filesystem::path& file) {
              hashed.push_back({file.native(), std::nullopt});
              return hashed.back().digest.emplace(FileSha256Hex(file));
          }) {}

    void Record(const wchar_t* path, HANDLE file) {
        opened.push_back({path, file == INVALID_HANDLE_VALUE ? L"" : PathOfHandle(file)});
    }

    std::vector<OpenedFile> opened;
    std::vector<HashedFile> hashed;
    ScopedReplacement<decltype(CreateFileW)> create;
    ScopedReplacement<decltype(FileSha256Hex)> hash;
};

struct Installation {
    Installation() : path(parent.path / L"Program") {
        const std::map<std::string, std::string> contents = {
            {IDENTITY_EXECUTABLE, "the application"},
            {"app\\core.dll", "a library"},
            {"data/\xE6\x95\xB0\xE6\x8D\xAE \xE5\xBA\x94\xE7\x94\xA8/app.so", "compiled code"},
        };
        for (const auto& [file, content] : contents) {
            const std::filesystem::path full = path / Utf8ToWide(file);
            WriteFileContent(full, content);
            digests[file] = FileSha256Hex(full);
        }
        WriteFileContent(parent.path / L"outside.txt", "none of the updater's business");
    }

    TemporaryDirectory parent;
    std::filesystem::path path;
    ListedDigests digests;
};

// In place: emptying a file and filling it again, thousands of times, is slow on many file systems.
void OverwriteFile(const std::filesystem::path& file, const std::string& content) {
    std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
    stream << content;
    stream.close();
    ASSERT_TRUE(stream);
    std::filesystem::resize_file(file, content.size());
}

// The message with which verification ends, or an empty text.
std::string Verify(const std::filesystem::path& installDirectory) {
    try {
        VerifyInstalledProgram(installDirectory);
        return "";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

std::vector<std::string> LinesOf(const std::string& inventory) {
    std::vector<std::string> lines;
    for (std::size_t begin = 0; begin < inventory.size();) {
        const std::size_t end = std::min(inventory.find('\n', begin), inventory.size());
        lines.push_back(inventory.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

std::wstring ExpectedPlace(const std::filesystem::path& installDirectory,
                           const std::wstring& path) {
    return BeginsAtDriveRoot(path) ? installDirectory.native().substr(0, 2) + path
                                   : installDirectory.native() + L'\\' + path;
}

// The message with which one line ends the verification, or an empty text. `hashed` are the files
// that were really hashed for this line and those after it.
std::string ExpectedLineError(const std::filesystem::path& installDirectory,
                              const std::string& line, std::vector<HashedFile>& hashed) {
    const std::optional<ExpectedEntry> entry = ExpectedInventoryEntry(line);
    if (!entry) {
        return "Invalid program inventory";
    }
    const std::wstring path = Utf8ToWide(entry->path);
    std::string refusal = ExpectedPathError(path);
    if (!refusal.empty()) {
        return refusal;
    }
    if (hashed.empty()) {
        return "no file is hashed";
    }
    const HashedFile file = hashed.front();
    hashed.erase(hashed.begin());
    if (file.path != ExpectedPlace(installDirectory, path)) {
        return "another file is hashed";
    }
    if (!file.digest) {
        return "SHA256 verification failed";
    }
    if (*file.digest == entry->digest) {
        return "";
    }
    const std::string message = "Installed program checksum mismatch: " + WideToUtf8(path);
    // An exception's message ends at its first zero byte.
    return message.substr(0, message.find('\0'));
}

std::string ExpectedError(const std::filesystem::path& installDirectory,
                          const std::string& inventory, std::vector<HashedFile> hashed) {
    const std::vector<std::string> lines = LinesOf(inventory);
    if (lines.empty()) {
        return "Installed program inventory is empty";
    }
    std::string error;
    for (auto line = lines.begin(); line != lines.end() && error.empty(); ++line) {
        error = ExpectedLineError(installDirectory, *line, hashed);
    }
    return hashed.empty() ? error : "more files are hashed than expected";
}

// As the system sees the path: made absolute, without dots.
std::wstring SystemsFullPath(const std::wstring& path) {
    std::wstring full(kLongestPath, L'\0');
    full.resize(
        GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
    return full;
}

bool IsWithin(const std::wstring& directory, const std::wstring& path) {
    return path == directory || path.starts_with(directory + L'\\');
}

// Neither an attempt to open nor a file that was found may lie elsewhere, with these exceptions: an
// inventory may send the updater to the root of the installation directory's drive; the name of the
// null device means that device in every directory; and two dots with a zero behind them, which is
// where the system stops to read, are not two dots by the inventory's rules, but as a last element
// they name the directory above, which cannot be opened as a file.
bool MayBeOpened(const std::filesystem::path& installDirectory, const OpenedFile& opened) {
    const std::wstring& directory = installDirectory.native();
    const std::wstring drive = directory.substr(0, 2);
    const std::wstring full = SystemsFullPath(opened.path);
    if (CompareStringOrdinal(full.c_str(), -1, L"\\\\.\\nul", -1, TRUE) == CSTR_EQUAL) {
        return opened.found.empty() || opened.found == L"a device";
    }
    if (full == installDirectory.parent_path().native()) {
        return opened.found.empty();
    }
    const bool atDriveRoot = !opened.path.starts_with(directory) &&
                             opened.path.starts_with(drive) &&
                             BeginsAtDriveRoot(opened.path.substr(drive.size()));
    const std::wstring& limit = atDriveRoot ? drive : directory;
    return IsWithin(limit, full) && (opened.found.empty() || IsWithin(limit, opened.found));
}

TEST(InventoryInputs, TheUndamagedInventoryVerifies) {
    const Installation installation;
    WriteFileContent(installation.path / L"program-files.tsv",
                     FormatInventory(installation.digests));
    const FileAccesses accesses;
    EXPECT_EQ(Verify(installation.path), "");
    EXPECT_EQ(accesses.hashed.size(), installation.digests.size());
    EXPECT_EQ(accesses.opened.size(), installation.digests.size() + 1);
    for (const OpenedFile& opened : accesses.opened) {
        EXPECT_TRUE(MayBeOpened(installation.path, opened));
        EXPECT_EQ(opened.found, SystemsFullPath(opened.path));
    }
}

TEST(InventoryInputs, ADamagedInventoryFailsAtItsFirstBadLineAndLeadsNowhereElse) {
    const Installation installation;
    const std::filesystem::path file = installation.path / L"program-files.tsv";
    WriteFileContent(file, "");
    RandomSource random = MakeRandomSource("inventories");
    std::map<std::string, int> outcomes;
    int filesFound = 0;
    for (int round = 0; round < kInventories; ++round) {
        const std::string inventory = RandomInventory(random, installation.digests);
        ASSERT_NO_FATAL_FAILURE(OverwriteFile(file, inventory));
        const FileAccesses accesses;
        const std::string error = Verify(installation.path);

        ASSERT_EQ(error, ExpectedError(installation.path, inventory, accesses.hashed))
            << testing::PrintToString(inventory);
        ASSERT_EQ(accesses.opened.size(), accesses.hashed.size() + 1);
        for (const OpenedFile& opened : accesses.opened) {
            ASSERT_TRUE(MayBeOpened(installation.path, opened))
                << testing::PrintToString(opened.path) << ' '
                << testing::PrintToString(opened.found);
            filesFound += opened.found.empty() ? 0 : 1;
        }
        ++outcomes[error.substr(0, error.find(':'))];
    }
    for (const auto& [error, times] : outcomes) {
        std::cout << times << " x \"" << error << "\"\n";
    }
    EXPECT_GT(filesFound, 2 * kInventories);
    const std::map<std::string, int> rareOutcomes = {
        {"", 500},
        {"Installed program inventory is empty", 10},
        {"Invalid program inventory", 500},
        {"Invalid program inventory path", 500},
        {"Invalid program inventory traversal", 500},
        {"SHA256 verification failed", 500},
        {"Installed program checksum mismatch", 500},
    };
    EXPECT_EQ(outcomes.size(), rareOutcomes.size());
    for (const auto& [error, times] : rareOutcomes) {
        EXPECT_GE(outcomes[error], times) << error;
    }
}

}  // namespace

}  // namespace updater
