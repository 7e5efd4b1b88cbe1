#include "snapshot/program_assets.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>

#include "support/application_identity.h"
#include "support/directory_listing.h"
#include "support/file_system.h"
#include "support/file_type.h"
#include "support/windows_api.h"

namespace updater {

namespace {

using std::filesystem::file_type;

constexpr std::array<std::wstring_view, 2> kAssetExtensions = {L".exe", L".dll"};
constexpr std::array<std::wstring_view, 5> kAssetNames = {
    L"native_assets.json", L"windows-version.json", L"program-files.json", kProgramInventory,
    L"unins000.dat"};

// A link would let the backup read, or the restore write, outside the installation directory.
void RefuseReparsePoint(const std::filesystem::path& path, file_type listedType,
                        const char* message) {
    if (listedType == file_type::symlink) {
        throw std::runtime_error(message);
    }
    // A failed query has every bit set, so an entry that cannot be inspected is refused as well.
    if ((GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        throw std::runtime_error(message);
    }
}

bool IsRegularFile(const std::filesystem::path& path, file_type listedType) {
    // A reparse point that was not refused has become something else since it was listed.
    const file_type type = listedType == file_type::unknown
                               ? QueryFileType(path, "directory_entry::status")
                               : listedType;
    return type == file_type::regular;
}

void AddTopLevelAssets(const std::filesystem::path& installDirectory, ProgramAssets& assets) {
    VisitDirectory(installDirectory, [&](const ListedEntry& entry) {
        const std::filesystem::path path = installDirectory / entry.relativePath;
        RefuseReparsePoint(path, entry.type,
                           "Reparse points are not supported in installation directory");
        if (IsRegularFile(path, entry.type) && IsTopLevelAsset(entry.relativePath)) {
            assets.insert(entry.relativePath);
        }
    });
}

void AddDataAssets(const std::filesystem::path& dataDirectory, ProgramAssets& assets) {
    VisitTree(dataDirectory, [&](const ListedEntry& entry) {
        const std::filesystem::path path = dataDirectory / entry.relativePath;
        RefuseReparsePoint(path, entry.type, "Reparse points are not supported in program assets");
        if (IsRegularFile(path, entry.type)) {
            assets.insert(kDataDirectory / entry.relativePath);
        }
    });
}

}  // namespace

bool IsTopLevelAsset(const std::filesystem::path& name) {
    const std::filesystem::path extension = name.extension();
    return std::ranges::find(kAssetExtensions, extension.native()) != kAssetExtensions.end() ||
           std::ranges::find(kAssetNames, name.native()) != kAssetNames.end();
}

ProgramAssets EnumerateProgramAssets(const std::filesystem::path& installDirectory) {
    ProgramAssets assets;
    AddTopLevelAssets(installDirectory, assets);
    const std::filesystem::path dataDirectory = installDirectory / kDataDirectory;
    if (PathExists(dataDirectory)) {
        AddDataAssets(dataDirectory, assets);
    }
    return assets;
}

}  // namespace updater
