#include "updatectl/progress_line.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <stop_token>

#include "updatectl/output.h"

namespace updater {

namespace {

using Clock = std::chrono::steady_clock;

void WriteLines(const std::stop_token& stop, const std::string& action, const ProgressLine& line) {
    constexpr std::chrono::milliseconds kInterval{50};
    const Clock::time_point start = Clock::now();
    std::string shown;
    for (; !stop.stop_requested(); std::this_thread::sleep_for(kInterval)) {
        const auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start);
        std::string text = ProgressText(action, line.done, line.total, elapsed.count());
        // What was longer before is overwritten.
        text.resize(std::max(text.size(), shown.size()), ' ');
        if (elapsed.count() >= 1 && text != shown) {
            PrintOutput("\r" + text);
            shown = text;
        }
    }
    if (!shown.empty()) {
        PrintOutput("\r" + std::string(shown.size(), ' ') + "\r");
    }
}

}  // namespace

std::string ProgressText(const std::string& action, std::size_t done, std::size_t total,
                         long long seconds) {
    std::string text = action + ": ";
    if (total > 0) {
        text += std::to_string(done) + " of " + std::to_string(total) + ", ";
    }
    return text + std::to_string(seconds) + " s";
}

ProgressLine::ProgressLine(const char* action) {
    if (!IsOutputTerminal()) {
        return;
    }
    writer = std::jthread([this, action](const std::stop_token& stop) {
        try {
            WriteLines(stop, action, *this);
        } catch (const std::exception&) {
            // The line is a courtesy; the work goes on without it.
            return;
        }
    });
}

}  // namespace updater
