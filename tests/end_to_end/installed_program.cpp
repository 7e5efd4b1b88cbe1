#include "end_to_end/installed_program.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <stdexcept>

#include "elevation/program_start.h"
#include "end_to_end/waiting.h"
#include "fixtures/file_content.h"
#include "support/argument_quoting.h"
#include "support/directory_listing.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

constexpr std::array<const wchar_t*, 5> kProgramFileNames = {
    L"native_assets.json", L"windows-version.json", L"program-files.json", L"program-files.tsv",
    L"unins000.dat"};

bool IsProgramFile(const std::filesystem::path& relativePath) {
    if (relativePath.has_parent_path()) {
        return *relativePath.begin() == L"data";
    }
    const std::filesystem::path extension = relativePath.extension();
    return extension == L".exe" || extension == L".dll" ||
           std::ranges::find(kProgramFileNames, relativePath.native()) != kProgramFileNames.end();
}

}  // namespace

void RunSetup(const std::filesystem::path& setup, const std::filesystem::path& installDirectory) {
    ProgramStart start;
    start.program = setup;
    CreateDirectories(installDirectory.parent_path());
    // Without a log the programs that it runs write to this process's output.
    start.arguments = L"/VERYSILENT /SUPPRESSMSGBOXES /NORESTART /SP- /DIR=" +
                      QuoteArgument(installDirectory.native()) + L" /LOG=" +
                      QuoteArgument(installDirectory.native() + L".log");
    const StartedProgram started = StartProgram(start);
    const std::uint32_t exitCode = AwaitEnd(started.process.get(), "the setup program");
    if (exitCode != 0) {
        throw std::runtime_error("The setup program ended with " + std::to_string(exitCode));
    }
}

void CopyTree(const std::filesystem::path& source, const std::filesystem::path& target) {
    VisitTree(source, [&](const ListedEntry& entry) {
        const std::filesystem::path copy = target / entry.relativePath;
        if (entry.type == std::filesystem::file_type::directory) {
            CreateDirectories(copy);
        } else {
            CreateDirectories(copy.parent_path());
            CopyToNewFile(source / entry.relativePath, copy);
        }
    });
}

const TreeContent& UserData() {
    static const TreeContent data = {
        {L"account.db", std::string("account\0data", 12)},
        {L"日记 2024.txt", "笔记: remember the milk\r\n"},
        {L"Setup.EXE", "no program file: its extension is in capitals"},
        {L"plugins\\x.dll", "a plug-in of the user's own"},
        {L"用户 数据\\头像.png", "a picture"},
    };
    return data;
}

void AddUserData(const std::filesystem::path& installDirectory) {
    for (const auto& [name, content] : UserData()) {
        WriteFileContent(installDirectory / name, content);
    }
}

TreeContent ReadProgramFiles(const std::filesystem::path& installDirectory) {
    TreeContent files = WithoutDirectories(ReadTreeContent(installDirectory));
    std::erase_if(files, [](const auto& file) { return !IsProgramFile(file.first); });
    return files;
}

TreeContent ReadUserData(const std::filesystem::path& installDirectory) {
    TreeContent files = ReadTreeContent(installDirectory);
    std::erase_if(files, [](const auto& file) { return !UserData().contains(file.first); });
    return files;
}

std::vector<std::string> FindInventoryDifferences(const std::filesystem::path& installDirectory) {
    std::vector<std::string> differences;
    std::ifstream inventory(installDirectory / L"program-files.tsv", std::ios::binary);
    std::size_t entries = 0;
    for (std::string line; std::getline(inventory, line); ++entries) {
        const std::size_t tab = line.find('\t');
        const std::string name = line.substr(0, tab);
        if (FileSha256Hex(installDirectory / Utf8ToWide(name)) != line.substr(tab + 1, 64)) {
            differences.push_back(name + " differs from the inventory");
        }
    }
    if (entries == 0) {
        differences.emplace_back("there is no inventory");
    }
    return differences;
}

}  // namespace updater
