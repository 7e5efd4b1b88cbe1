#include "updatectl/file_names.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <stdexcept>

#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr std::size_t kLongestName = 255;

// What text becomes that reaches this program from bytes that are no text.
constexpr wchar_t kReplacementCharacter = 0xFFFD;

constexpr std::array<std::wstring_view, 6> kDevices = {L"CON", L"PRN",    L"AUX",
                                                       L"NUL", L"CONIN$", L"CONOUT$"};

// With "COM" or "LPT" in front: 1 to 9, and the raised 1 to 3.
constexpr std::wstring_view kDeviceDigits = L"123456789\u00B9\u00B2\u00B3";

// A device keeps its meaning with any extension: NUL.txt is the device, and so is "NUL .txt".
bool IsDeviceName(std::wstring_view name) {
    const std::wstring_view stem = name.substr(0, name.find(L'.'));
    const std::wstring folded = FoldCase(stem.substr(0, stem.find_last_not_of(L' ') + 1));
    if (std::ranges::find(kDevices, folded) != kDevices.end()) {
        return true;
    }
    return folded.size() == 4 && (folded.starts_with(L"COM") || folded.starts_with(L"LPT")) &&
           kDeviceDigits.find(folded.back()) != std::wstring_view::npos;
}

}  // namespace

std::wstring FoldCase(std::wstring_view text) {
    std::wstring folded(text);
    // Unit for unit: without linguistic casing no length changes.
    const int units = static_cast<int>(text.size());
    LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_UPPERCASE, text.data(), units, folded.data(), units,
                  nullptr, nullptr, 0);
    return folded;
}

std::string_view FaultOfName(std::wstring_view name) {
    if (name.find_first_of(L"\t\n\r") != std::wstring_view::npos) {
        return "has a tab or a line break in its name";
    }
    if (std::ranges::any_of(name, [](wchar_t unit) { return unit < 0x20; }) ||
        name.find_first_of(L"<>:\"/\\|?*") != std::wstring_view::npos) {
        return "has a character in its name that Windows does not allow";
    }
    if (name.empty() || name.ends_with(L'.') || name.ends_with(L' ')) {
        return "has a name that ends in a dot or a space, which Windows leaves out";
    }
    if (IsDeviceName(name)) {
        return "has the name of a Windows device";
    }
    if (name.find(kReplacementCharacter) != std::wstring_view::npos ||
        Utf8ToWide(WideToUtf8(name)) != name) {
        return "has a name that is not valid Unicode text";
    }
    if (name.size() > kLongestName) {
        return "has a name of more than 255 characters";
    }
    return {};
}

// On another system than Windows, file names arrive through the character set of the user's locale.
// Windows itself does not know this code page.
void RefuseMangledNames() {
    constexpr UINT kHostCodePage = 65010;
    constexpr std::wstring_view kSample = L"\u4E2D";
    std::string bytes(8, '\0');
    const int length = WideCharToMultiByte(kHostCodePage, 0, kSample.data(), 1, bytes.data(),
                                           static_cast<int>(bytes.size()), nullptr, nullptr);
    bytes.resize(static_cast<std::size_t>(length));
    if (length > 0 && bytes != WideToUtf8(kSample)) {
        throw std::runtime_error(
            "The locale's character set is not UTF-8, so file names do not arrive as they are; set "
            "the environment variable LC_ALL, for example to C.UTF-8");
    }
}

}  // namespace updater
