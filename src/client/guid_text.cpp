#include "client/guid_text.h"

#include <algorithm>

namespace updater {

bool IsGuidText(std::wstring_view text) {
    // A zero stands for any digit.
    constexpr std::wstring_view kForm = L"{00000000-0000-0000-0000-000000000000}";
    return std::ranges::equal(text, kForm, [](wchar_t character, wchar_t form) {
        return form == L'0' ? (character >= L'0' && character <= L'9') ||
                                  (character >= L'A' && character <= L'F')
                            : character == form;
    });
}

}  // namespace updater
