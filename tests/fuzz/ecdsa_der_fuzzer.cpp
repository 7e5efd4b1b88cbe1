// The input is the DER form of a signature or of a public key, or the numbers of a signature.

#include <algorithm>
#include <array>
#include <optional>
#include <string>

#include "client/ecdsa_curve.h"
#include "client/ecdsa_der.h"
#include "fuzz/fuzz_input.h"
#include "fuzz/property.h"

namespace updater {
namespace {

constexpr std::array<std::uint8_t, 32> kOrder = {
    0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
    0xBC, 0xE6, 0xFA, 0xAD, 0xA7, 0x17, 0x9E, 0x84, 0xF3, 0xB9, 0xCA, 0xC2, 0xFC, 0x63, 0x25, 0x51};

std::string Element(char type, const std::string& content) {
    return std::string{type, static_cast<char>(content.size())} + content;
}

std::string NumberElement(std::string_view bytes) {
    std::string digits(bytes.substr(std::min(bytes.find_first_not_of('\0'), bytes.size())));
    if (digits.empty() || static_cast<unsigned char>(digits.front()) >= 0x80) {
        digits.insert(digits.begin(), '\0');
    }
    return Element('\x02', digits);
}

std::string SignatureDer(std::string_view numbers) {
    return Element('\x30',
                   NumberElement(numbers.substr(0, 32)) + NumberElement(numbers.substr(32)));
}

bool IsNumber(std::string_view bytes) {
    return std::ranges::any_of(bytes, [](char byte) { return byte != '\0'; }) &&
           std::ranges::lexicographical_compare(
               bytes, kOrder, {}, [](char byte) { return static_cast<std::uint8_t>(byte); });
}

template <typename Bytes>
std::string TextOf(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

void CheckDer(std::string_view der) {
    if (const std::optional<EcdsaSignature> signature = ReadEcdsaSignature(der)) {
        const std::string numbers = TextOf(*signature);
        Require(SignatureDer(numbers) == der, "a signature has one form");
        Require(IsNumber(std::string_view(numbers).substr(0, 32)) &&
                    IsNumber(std::string_view(numbers).substr(32)),
                "its numbers are those of the curve");
    }
    if (const std::optional<EcdsaPoint> point = ReadEcdsaPoint(der)) {
        Require(der.size() == 91 && der.ends_with(TextOf(*point)), "a key ends with its point");
        static_cast<void>(IsOnCurve(*point));
    }
}

void CheckNumbers(std::string_view numbers) {
    const bool isSignature = IsNumber(numbers.substr(0, 32)) && IsNumber(numbers.substr(32));
    const std::optional<EcdsaSignature> signature = ReadEcdsaSignature(SignatureDer(numbers));
    Require(signature.has_value() == isSignature, "any two numbers of the curve are a signature");
    Require(!signature || TextOf(*signature) == numbers, "they are read as they are");
}

}  // namespace
}  // namespace updater

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = updater::TextOfInput(data, size);
    updater::CheckDer(input);
    if (input.size() == 64) {
        updater::CheckNumbers(input);
    }
    return 0;
}
