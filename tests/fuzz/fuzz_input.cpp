#include "fuzz/fuzz_input.h"

namespace updater {

namespace {

struct Sequence {
    std::size_t length;
    std::uint32_t value;
};

bool IsContinuation(unsigned char byte) {
    return (byte & 0xC0U) == 0x80U;
}

Sequence ReadSequence(std::string_view text) {
    const auto first = static_cast<unsigned char>(text.front());
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC2 ? 2 : 1;
    if (length == 1 || length > text.size() || first > 0xF4) {
        return {1, first};
    }
    std::uint32_t value = first & (0xFFU >> (length + 1));
    for (const char character : text.substr(1, length - 1)) {
        const auto byte = static_cast<unsigned char>(character);
        if (!IsContinuation(byte)) {
            return {1, first};
        }
        value = (value << 6U) | (byte & 0x3FU);
    }
    return {length, value};
}

void AppendUnits(std::wstring& units, std::uint32_t value) {
    constexpr std::uint32_t kFirstBeyond16Bits = 0x10000;
    if (value < kFirstBeyond16Bits) {
        units.push_back(static_cast<wchar_t>(value));
        return;
    }
    const std::uint32_t offset = value - kFirstBeyond16Bits;
    units.push_back(static_cast<wchar_t>(0xD800U + ((offset >> 10U) & 0x3FFU)));
    units.push_back(static_cast<wchar_t>(0xDC00U + (offset & 0x3FFU)));
}

}  // namespace

std::string_view TextOfInput(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

std::wstring UnitsOfText(std::string_view text) {
    std::wstring units;
    while (!text.empty()) {
        const Sequence sequence = ReadSequence(text);
        AppendUnits(units, sequence.value);
        text.remove_prefix(sequence.length);
    }
    return units;
}

std::vector<std::wstring> PiecesOfText(std::string_view text) {
    std::vector<std::wstring> pieces;
    while (!text.empty()) {
        const std::size_t end = text.find('\0');
        pieces.push_back(UnitsOfText(text.substr(0, end)));
        if (end == std::string_view::npos) {
            break;
        }
        text.remove_prefix(end + 1);
    }
    return pieces;
}

}  // namespace updater
