#include "end_to_end/error_box.h"

#include "end_to_end/waiting.h"
#include "end_to_end/window_text.h"

namespace updater {

MessageWindow AwaitMessageBox(std::uint32_t processId) {
    MessageWindow box;
    AwaitCondition("a message box", [&] {
        for (HWND window : ListWindows(processId)) {
            box = {window, WindowText(window), DialogText(window)};
            if (!box.text.empty()) {
                return true;
            }
        }
        return false;
    });
    return box;
}

void CloseMessageBox(const MessageWindow& box) {
    PostMessageW(box.window, WM_CLOSE, 0, 0);
    AwaitCondition("the message box to close", [&] { return IsWindow(box.window) == 0; });
}

}  // namespace updater
