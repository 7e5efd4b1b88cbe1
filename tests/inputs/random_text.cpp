#include "inputs/random_text.h"

#include <array>
#include <cstdint>
#include <string_view>

#include "support/text_conversion.h"

namespace updater {

namespace {

constexpr auto kFragments = std::to_array<std::wstring_view>({
    L"--job-dir",
    L"--worker",
    L" --self-test ",
    L"\" --event \"",
    L"\\\" --worker \\\"",
    L"C:\\Program Files\\Program\\",
    L"\\\\server\\share\\",
    L"\u4E2D\u6587 path",
    L"/DIR=\"C:\\x\"",
    L"'",
    L"%PATH%",
    L"^&|<>!",
});

// What the splitting of a command line gives a meaning to.
constexpr std::wstring_view kSignificant = L"\\\"\\\" \\\"\t";

constexpr std::size_t kPrintableCount = 0x7F - 0x20;

wchar_t SurrogateUnit(RandomSource& random) {
    return static_cast<wchar_t>(0xD800 + RandomBelow(random, 0x800));
}

std::size_t RunLength(RandomSource& random) {
    return 1 + RandomBelow(random, OneIn(random, 50) ? 300 : 7);
}

void AppendPiece(RandomSource& random, std::wstring& text) {
    switch (RandomBelow(random, 6)) {
        case 0:
            text.append(RunLength(random), OneOf(random, kSignificant));
            break;
        case 1:
            text += RandomUnits(random, 1 + RandomBelow(random, 5));
            break;
        case 2:
            text.push_back(SurrogateUnit(random));
            break;
        case 3:
            text += OneOf(random, kFragments);
            break;
        default:
            text.push_back(static_cast<wchar_t>(0x20 + RandomBelow(random, kPrintableCount)));
            break;
    }
}

std::wstring SignificantCharacters(RandomSource& random, std::size_t length) {
    std::wstring text;
    while (text.size() < length) {
        text.push_back(OneOf(random, kSignificant));
    }
    return text;
}

std::wstring RandomCharacters(RandomSource& random, std::size_t count) {
    constexpr std::array<std::size_t, 4> kBounds = {0x80, 0x800, 0x10000, 0x10FFFF};
    std::wstring text;
    while (text.size() < count) {
        const std::size_t character = RandomBelow(random, OneOf(random, kBounds));
        if (character < 0x10000) {
            text.push_back(static_cast<wchar_t>(character));
        } else {
            text.push_back(static_cast<wchar_t>(0xD7C0 + (character >> 10U)));
            text.push_back(static_cast<wchar_t>(0xDC00 + (character & 0x3FFU)));
        }
    }
    return text;
}

}  // namespace

std::wstring RandomArgument(RandomSource& random) {
    return RandomArgument(random, RandomBelow(random, OneIn(random, 20) ? 400 : 40));
}

std::wstring RandomArgument(RandomSource& random, std::size_t length) {
    if (OneIn(random, 3)) {
        return SignificantCharacters(random, length);
    }
    std::wstring text;
    while (text.size() < length) {
        AppendPiece(random, text);
    }
    text.resize(length);
    return text;
}

std::wstring RandomUnits(RandomSource& random, std::size_t length) {
    std::wstring text;
    while (text.size() < length) {
        text.push_back(static_cast<wchar_t>(1 + RandomBelow(random, 0xFFFF)));
    }
    return text;
}

std::string RandomBytes(RandomSource& random, std::size_t length) {
    if (OneIn(random, 2)) {
        return WideToUtf8(RandomCharacters(random, length)).substr(0, length);
    }
    std::string bytes;
    while (bytes.size() < length) {
        bytes.push_back(static_cast<char>(RandomBelow(random, 0x100)));
    }
    return bytes;
}

}  // namespace updater
