#include "hardening/planted_libraries.h"

#include "support/windows_api.h"

#include <algorithm>
#include <array>
#include <cwctype>
#include <string_view>

#include "elevation/program_start.h"
#include "fixtures/file_content.h"
#include "hardening/load_mark.h"
#include "support/directory_listing.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/process_utilities.h"

namespace updater {

namespace {

// In every process before its own code runs. Wine has no list of known libraries.
constexpr auto kKnownLibraries = std::to_array<std::wstring_view>(
    {L"kernel32.dll", L"kernelbase.dll", L"msvcrt.dll", L"ntdll.dll"});

constexpr auto kExtensions = std::to_array<std::wstring_view>({L".dll", L".drv", L".ocx", L".cpl"});

// Switched off by scripts/environment.sh; nobody loads them.
constexpr auto kAbsentLibraries = std::to_array<std::wstring_view>({L"mscoree.dll", L"mshtml.dll"});

bool CanBePlanted(const std::wstring& name) {
    return std::ranges::any_of(kExtensions,
                               [&](std::wstring_view ending) { return name.ends_with(ending); }) &&
           std::ranges::find(kKnownLibraries, name) == kKnownLibraries.end() &&
           std::ranges::find(kAbsentLibraries, name) == kAbsentLibraries.end();
}

std::wstring LowerCase(std::wstring text) {
    std::ranges::transform(text, text.begin(), [](wchar_t character) {
        return static_cast<wchar_t>(std::towlower(character));
    });
    return text;
}

std::filesystem::path SystemDirectory() {
    std::array<wchar_t, MAX_PATH> path{};
    GetSystemDirectoryW(path.data(), MAX_PATH);
    return path.data();
}

std::filesystem::path LibraryToPlant() {
    const std::filesystem::path own = GetProcessImagePath(GetCurrentProcess());
    return own.parent_path() / L"planted-library.dll";
}

}  // namespace

std::vector<std::wstring> LibrariesToPlant() {
    std::vector<std::wstring> names;
    VisitDirectory(SystemDirectory(), [&](const ListedEntry& entry) {
        const std::wstring name = LowerCase(entry.relativePath.native());
        if (CanBePlanted(name)) {
            names.push_back(name);
        }
    });
    std::ranges::sort(names);
    return names;
}

void PlantLibraries(const std::filesystem::path& directory,
                    const std::vector<std::wstring>& names) {
    const std::filesystem::path library = LibraryToPlant();
    for (const std::wstring& name : names) {
        // No hard links: names of one file count as one library.
        CopyToNewFile(library, directory / name);
    }
}

std::vector<LoadMark> LoadMarks(const std::filesystem::path& directory) {
    const std::wstring_view suffix = kLoadMarkSuffix;
    std::vector<LoadMark> marks;
    VisitDirectory(directory, [&](const ListedEntry& entry) {
        std::wstring name = entry.relativePath.native();
        if (name.ends_with(suffix)) {
            name.resize(name.size() - suffix.size());
            marks.push_back({LowerCase(name), ReadFileContent(directory / entry.relativePath)});
        }
    });
    std::ranges::sort(marks, {}, &LoadMark::library);
    return marks;
}

void RemoveLoadMarks(const std::filesystem::path& directory) {
    for (const LoadMark& mark : LoadMarks(directory)) {
        RemoveFile(directory / (mark.library + kLoadMarkSuffix));
    }
}

NativeLibrariesFirst::NativeLibrariesFirst(const std::wstring& programName,
                                           const std::vector<std::wstring>& names)
    : key(L"Software\\Wine\\AppDefaults\\" + programName) {
    // The only one that is left out there.
    constexpr std::wstring_view kExtension = L".dll";
    constexpr wchar_t kOrder[] = L"native,builtin";
    const std::wstring overrides = key + L"\\DllOverrides";
    for (const std::wstring& name : names) {
        const std::wstring value =
            name.ends_with(kExtension) ? name.substr(0, name.size() - kExtension.size()) : name;
        if (RegSetKeyValueW(HKEY_CURRENT_USER, overrides.c_str(), value.c_str(), REG_SZ, kOrder,
                            sizeof(kOrder)) != ERROR_SUCCESS) {
            RaiseLastError("Cannot choose the order of libraries");
        }
    }
}

NativeLibrariesFirst::~NativeLibrariesFirst() {
    RegDeleteTreeW(HKEY_CURRENT_USER, key.c_str());
}

}  // namespace updater
