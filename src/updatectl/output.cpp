#include "updatectl/output.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>

#include "support/text_conversion.h"
#include "support/windows_api.h"
#include "updatectl/windows_error.h"

namespace updater {

namespace {

bool IsConsole(HANDLE stream) {
    DWORD mode = 0;
    return GetConsoleMode(stream, &mode) != 0;
}

BOOL WriteToConsole(HANDLE console, std::wstring_view text) {
    // A console takes only so much at a time.
    constexpr std::size_t kMostUnits = 8192;
    while (!text.empty()) {
        std::wstring_view part = text.substr(0, kMostUnits);
        if (part.size() < text.size() && IS_HIGH_SURROGATE(part.back())) {
            part.remove_suffix(1);
        }
        DWORD written = 0;
        if (WriteConsoleW(console, part.data(), static_cast<DWORD>(part.size()), &written,
                          nullptr) == 0) {
            return FALSE;
        }
        text.remove_prefix(written);
    }
    return TRUE;
}

BOOL WriteText(HANDLE stream, std::string_view text) {
    if (stream == nullptr || text.empty()) {
        return TRUE;
    }
    if (IsConsole(stream)) {
        return WriteToConsole(stream, Utf8ToWide(text));
    }
    DWORD written = 0;
    return WriteFile(stream, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

std::wstring CodeOf(wchar_t unit) {
    static constexpr wchar_t kDigits[] = L"0123456789ABCDEF";
    std::wstring text = L"<U+";
    constexpr std::array<unsigned, 4> kShifts = {12, 8, 4, 0};
    std::ranges::transform(kShifts, std::back_inserter(text), [unit](unsigned shift) {
        return kDigits[(static_cast<unsigned>(unit) >> shift) & 0xFU];
    });
    return text + L'>';
}

// Control characters, and those that show nothing or change the order in which text shows.
bool IsInvisible(wchar_t unit) {
    struct Range {
        wchar_t first;
        wchar_t last;
    };
    constexpr std::array<Range, 6> kRanges = {{{0x0000, 0x001F},
                                               {0x007F, 0x009F},
                                               {0x200B, 0x200F},
                                               {0x2028, 0x202E},
                                               {0x2066, 0x2069},
                                               {0xFEFF, 0xFEFF}}};
    return std::ranges::any_of(
        kRanges, [unit](const Range& range) { return unit >= range.first && unit <= range.last; });
}

}  // namespace

void PrintOutput(std::string_view text) {
    if (WriteText(GetStdHandle(STD_OUTPUT_HANDLE), text) == 0) {
        RaiseWindowsError("Cannot write the output", GetLastError());
    }
}

void PrintError(std::string_view text) {
    WriteText(GetStdHandle(STD_ERROR_HANDLE), text);
}

bool IsOutputTerminal() {
    return IsConsole(GetStdHandle(STD_OUTPUT_HANDLE));
}

std::string PrintableText(std::wstring_view text) {
    std::wstring printable;
    for (std::size_t index = 0; index < text.size(); ++index) {
        const wchar_t unit = text[index];
        if (index + 1 < text.size() && IS_SURROGATE_PAIR(unit, text[index + 1])) {
            printable += text.substr(index++, 2);
        } else if (IsInvisible(unit) || IS_HIGH_SURROGATE(unit) || IS_LOW_SURROGATE(unit)) {
            printable += CodeOf(unit);
        } else {
            printable.push_back(unit);
        }
    }
    return WideToUtf8(printable);
}

}  // namespace updater
