#include "updatectl/json_text.h"

#include "support/text_conversion.h"

namespace updater {

std::string JsonString(std::wstring_view text) {
    return JsonString(WideToUtf8(text));
}

}  // namespace updater
