#include "end_to_end/error_box.h"

#include <cstdint>
#include <optional>
#include <stdexcept>

#include "end_to_end/waiting.h"
#include "end_to_end/window_text.h"

namespace updater {

namespace {

std::optional<MessageWindow> FindMessageBox(std::uint32_t processId) {
    for (HWND window : ListWindows(processId)) {
        const MessageWindow box{window, WindowText(window), DialogText(window)};
        if (!box.text.empty()) {
            return box;
        }
    }
    return std::nullopt;
}

}  // namespace

MessageWindow AwaitMessageBox(HANDLE process) {
    std::optional<MessageWindow> box;
    AwaitCondition("a message box", [&] {
        if (HasEnded(process)) {
            throw std::runtime_error("A process ended without a message box");
        }
        box = FindMessageBox(GetProcessId(process));
        return box.has_value();
    });
    return *box;
}

MessageWindow AwaitErrorBox(WholeUpdate& update) {
    std::optional<MessageWindow> box;
    update.Await("the error box", [&] {
        if (update.HasBrokerEnded()) {
            update.RaiseStory("The broker ended without an error box");
        }
        box = FindMessageBox(update.BrokerId());
        return box.has_value();
    });
    return *box;
}

void CloseMessageBox(const MessageWindow& box) {
    PostMessageW(box.window, WM_CLOSE, 0, 0);
    AwaitCondition("the message box to close", [&] { return IsWindow(box.window) == 0; });
}

}  // namespace updater
