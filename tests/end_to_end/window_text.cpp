#include "end_to_end/window_text.h"

#include <array>

#include "fixtures/patience.h"

namespace updater {

namespace {

struct WindowSearch {
    DWORD processId;
    std::vector<HWND> found;
};

BOOL CALLBACK CollectWindow(HWND window, LPARAM parameter) {
    auto* search = reinterpret_cast<WindowSearch*>(parameter);
    DWORD owner = 0;
    GetWindowThreadProcessId(window, &owner);
    if (owner == search->processId && IsWindowVisible(window) != 0) {
        search->found.push_back(window);
    }
    return TRUE;
}

BOOL CALLBACK CollectStaticText(HWND control, LPARAM parameter) {
    auto* longest = reinterpret_cast<std::wstring*>(parameter);
    std::array<wchar_t, 16> name{};
    GetClassNameW(control, name.data(), static_cast<int>(name.size()));
    if (CompareStringOrdinal(name.data(), -1, L"Static", -1, TRUE) == CSTR_EQUAL) {
        std::wstring text = WindowText(control);
        if (text.size() > longest->size()) {
            *longest = std::move(text);
        }
    }
    return TRUE;
}

DWORD_PTR Ask(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    DWORD_PTR result = 0;
    return SendMessageTimeoutW(window, message, wParam, lParam, SMTO_NORMAL, kPatienceMilliseconds,
                               &result) == 0
               ? 0
               : result;
}

}  // namespace

std::vector<HWND> ListWindows(std::uint32_t processId) {
    WindowSearch search{processId, {}};
    EnumWindows(CollectWindow, reinterpret_cast<LPARAM>(&search));
    return search.found;
}

std::wstring WindowText(HWND window) {
    std::wstring text(Ask(window, WM_GETTEXTLENGTH, 0, 0) + 1, L'\0');
    text.resize(Ask(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data())));
    return text;
}

std::wstring DialogText(HWND dialog) {
    std::wstring longest;
    EnumChildWindows(dialog, CollectStaticText, reinterpret_cast<LPARAM>(&longest));
    return longest;
}

}  // namespace updater
