#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fixtures/application_names.h"
#include "fixtures/built_path.h"
#include "fixtures/file_content.h"
#include "support/text_conversion.h"
#include "support/version_information.h"
#include "support/windows_api.h"

namespace updater {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

const std::filesystem::path kExecutable = BuiltPath(CORVELLAN_UPDATER);

struct LibraryReleaser {
    using pointer = HMODULE;
    void operator()(HMODULE library) const noexcept { FreeLibrary(library); }
};
using UniqueLibrary = std::unique_ptr<void, LibraryReleaser>;

struct ActivationContextReleaser {
    using pointer = HANDLE;
    void operator()(HANDLE context) const noexcept { ReleaseActCtx(context); }
};
using UniqueActivationContext = std::unique_ptr<void, ActivationContextReleaser>;

// The executable laid out in memory as it would run, but neither bound nor started.
struct ExecutableImage : testing::Test {
    ExecutableImage()
        : library(LoadLibraryExW(kExecutable.c_str(), nullptr, LOAD_LIBRARY_AS_IMAGE_RESOURCE)) {}

    void SetUp() override { ASSERT_TRUE(library) << GetLastError(); }

    template <typename Record>
    const Record* At(std::uintptr_t offset) const {
        // The two lowest bits of such a handle are marks.
        const auto base = reinterpret_cast<std::uintptr_t>(library.get()) & ~std::uintptr_t{3};
        return reinterpret_cast<const Record*>(base + offset);
    }

    const IMAGE_NT_HEADERS64& Headers() const {
        return *At<IMAGE_NT_HEADERS64>(
            static_cast<std::uintptr_t>(At<IMAGE_DOS_HEADER>(0)->e_lfanew));
    }

    std::vector<std::string> ImportedLibraries() const {
        std::vector<std::string> names;
        const DWORD table =
            Headers().OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
        for (const auto* entry = At<IMAGE_IMPORT_DESCRIPTOR>(table); entry->Name != 0; ++entry) {
            names.emplace_back(At<char>(entry->Name));
        }
        return names;
    }

    UniqueLibrary library;
};

bool IsNameCharacter(char character) {
    return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '-' ||
           character == '_' || character == '+' || character == '.';
}

// Every library's name that stands anywhere in the executable. One linker records libraries that
// are loaded at their first use in no table of the file.
std::vector<std::string> LibraryNamesInText() {
    std::string text = ReadFileContent(kExecutable);
    std::ranges::transform(text, text.begin(), [](unsigned char byte) {
        return static_cast<char>(std::tolower(byte));
    });
    constexpr std::string_view kExtension = ".dll";
    std::vector<std::string> names;
    for (std::size_t at = text.find(kExtension); at != std::string::npos;
         at = text.find(kExtension, at + 1)) {
        std::size_t begin = at;
        while (begin > 0 && IsNameCharacter(text[begin - 1])) {
            --begin;
        }
        names.push_back(text.substr(begin, at + kExtension.size() - begin));
    }
    return names;
}

std::filesystem::path ModulePath(HMODULE module) {
    std::wstring path(32'768, L'\0');
    path.resize(GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

std::wstring SystemDirectory() {
    std::wstring path(MAX_PATH, L'\0');
    path.resize(GetSystemDirectoryW(path.data(), static_cast<UINT>(path.size())));
    return path;
}

TEST_F(ExecutableImage, IsAProgramWithoutAConsoleForX64) {
    EXPECT_EQ(Headers().Signature, DWORD{IMAGE_NT_SIGNATURE});
    EXPECT_EQ(Headers().FileHeader.Machine, IMAGE_FILE_MACHINE_AMD64);
    EXPECT_EQ(Headers().FileHeader.Characteristics & IMAGE_FILE_DLL, 0);
    EXPECT_EQ(Headers().OptionalHeader.Magic, IMAGE_NT_OPTIONAL_HDR64_MAGIC);
    EXPECT_EQ(Headers().OptionalHeader.Subsystem, IMAGE_SUBSYSTEM_WINDOWS_GUI);
}

TEST_F(ExecutableImage, UsesOnlyLibrariesOfTheSystem) {
    std::vector<std::string> names = LibraryNamesInText();
    EXPECT_THAT(names, AllOf(Contains("kernel32.dll"), Contains("bcrypt.dll")));
    std::ranges::copy(ImportedLibraries(), std::back_inserter(names));
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        const UniqueLibrary system(
            LoadLibraryExW(Utf8ToWide(name).c_str(), nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32));
        ASSERT_TRUE(system);
        const std::filesystem::path directory = ModulePath(system.get()).parent_path();
        EXPECT_EQ(_wcsicmp(directory.c_str(), SystemDirectory().c_str()), 0)
            << WideToUtf8(directory.native());
    }
}

BOOL CALLBACK NoteResourceName(HMODULE, LPCWSTR, LPWSTR name, LONG_PTR parameter) {
    reinterpret_cast<std::vector<LPWSTR>*>(parameter)->push_back(name);
    return TRUE;
}

TEST_F(ExecutableImage, HasOneManifestWhichIsAProgramsOwn) {
    std::vector<LPWSTR> names;
    EnumResourceNamesW(library.get(), RT_MANIFEST, NoteResourceName,
                       reinterpret_cast<LONG_PTR>(&names));
    EXPECT_THAT(names, ElementsAre(MAKEINTRESOURCEW(1)));
}

// What the system makes of the manifest.
struct ExecutableManifest : testing::Test {
    ExecutableManifest() {
        ACTCTXW source{};
        source.cbSize = sizeof(source);
        source.dwFlags = ACTCTX_FLAG_RESOURCE_NAME_VALID;
        source.lpSource = kExecutable.c_str();
        source.lpResourceName = MAKEINTRESOURCEW(1);
        context = OwnContext(CreateActCtxW(&source));
    }

    static UniqueActivationContext OwnContext(HANDLE created) {
        return UniqueActivationContext(created == INVALID_HANDLE_VALUE ? nullptr : created);
    }

    void SetUp() override { ASSERT_TRUE(context) << GetLastError(); }

    std::wstring Setting(const wchar_t* year, const wchar_t* name) const {
        const std::wstring space =
            std::wstring(L"http://schemas.microsoft.com/SMI/") + year + L"/WindowsSettings";
        std::array<wchar_t, 64> value{};
        QueryActCtxSettingsW(0, context.get(), space.c_str(), name, value.data(), value.size(),
                             nullptr);
        return value.data();
    }

    UniqueActivationContext context;
};

TEST_F(ExecutableManifest, AsksForNoMoreRightsThanItsCallers) {
    ACTIVATION_CONTEXT_RUN_LEVEL_INFORMATION level{};
    ASSERT_TRUE(QueryActCtxW(0, context.get(), nullptr, RunlevelInformationInActivationContext,
                             &level, sizeof(level), nullptr));
    EXPECT_EQ(level.RunLevel, ACTCTX_RUN_LEVEL_AS_INVOKER);
    EXPECT_EQ(level.UiAccess, DWORD{FALSE});
}

// The system's layout of what a manifest says of compatibility; the toolchain's header lacks the
// last member of an element.
struct CompatibilityElement {
    GUID identity;
    DWORD type;
    ULONGLONG maximumVersionTested;
};
struct CompatibilityInformation {
    DWORD count;
    std::array<CompatibilityElement, 8> elements;
};

TEST_F(ExecutableManifest, SupportsWindows10And11) {
    CompatibilityInformation information{};
    ASSERT_TRUE(QueryActCtxW(0, context.get(), nullptr, CompatibilityInformationInActivationContext,
                             &information, sizeof(information), nullptr));
    ASSERT_EQ(information.count, 1U);
    constexpr GUID kWindows10 = {
        0x8e0f7a12, 0xbfb3, 0x4fe8, {0xb9, 0xa5, 0x48, 0xfd, 0x50, 0xa1, 0x5a, 0x9a}};
    EXPECT_TRUE(IsEqualGUID(information.elements[0].identity, kWindows10));
    EXPECT_EQ(information.elements[0].type, DWORD{ACTCTX_COMPATIBILITY_ELEMENT_TYPE_OS});
}

TEST_F(ExecutableManifest, TakesLongPathsAndUtf8) {
    EXPECT_EQ(Setting(L"2016", L"longPathAware"), L"true");
    EXPECT_EQ(Setting(L"2019", L"activeCodePage"), L"UTF-8");
}

struct ExecutableVersion : testing::Test {
    ExecutableVersion() : resource(GetFileVersionInfoSizeW(kExecutable.c_str(), nullptr)) {
        GetFileVersionInfoW(kExecutable.c_str(), 0, static_cast<DWORD>(resource.size()),
                            resource.data());
    }

    std::wstring Text(const std::wstring& name) const {
        void* text = nullptr;
        UINT units = 0;
        const std::wstring query = L"\\StringFileInfo\\040904B0\\" + name;
        return VerQueryValueW(resource.data(), query.c_str(), &text, &units) != 0
                   ? static_cast<const wchar_t*>(text)
                   : L"";
    }

    std::vector<std::byte> resource;
};

TEST_F(ExecutableVersion, IsTheProjectsOwn) {
    EXPECT_EQ(WideToUtf8(ReadExecutableVersion(kExecutable)), CORVELLAN_UPDATER_VERSION);
}

TEST_F(ExecutableVersion, NamesTheProgram) {
    EXPECT_EQ(Text(L"OriginalFilename"), L"" IDENTITY_UPDATER);
    EXPECT_EQ(Text(L"InternalName"), L"" IDENTITY_UPDATER_STEM);
    for (const wchar_t* name :
         {L"CompanyName", L"FileDescription", L"FileVersion", L"ProductName", L"ProductVersion"}) {
        EXPECT_THAT(Text(name), Not(IsEmpty())) << WideToUtf8(name);
    }
    const std::string version = CORVELLAN_UPDATER_VERSION;
    EXPECT_THAT(version, testing::StartsWith(WideToUtf8(Text(L"FileVersion"))));
}

}  // namespace
}  // namespace updater
