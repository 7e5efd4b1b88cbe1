// The input is a text that may be base64, and bytes to be written so.

#include <optional>
#include <string>

#include "client/base64.h"
#include "fuzz/fuzz_input.h"
#include "fuzz/property.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = updater::TextOfInput(data, size);
    const std::optional<std::string> bytes = updater::DecodeBase64(input);
    updater::Require(!bytes || updater::EncodeBase64(*bytes) == input,
                     "a text stands for bytes only in the form in which they are written");
    updater::Require(updater::DecodeBase64(updater::EncodeBase64(input)) == input,
                     "what is written is read");
    return 0;
}
