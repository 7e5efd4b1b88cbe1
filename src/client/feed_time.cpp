#include "client/feed_time.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstddef>

namespace updater {

namespace {

using std::chrono::sys_days;
using std::chrono::sys_seconds;
using std::chrono::year_month_day;

// A zero stands for any digit.
constexpr std::string_view kTimeForm = "0000-00-00T00:00:00Z";

bool HasTimeForm(std::string_view text) {
    return std::ranges::equal(text, kTimeForm, [](char character, char form) {
        return form == '0' ? character >= '0' && character <= '9' : character == form;
    });
}

// The text has nothing but digits there.
int NumberAt(std::string_view text, std::size_t begin, std::size_t length) {
    int number = 0;
    std::from_chars(text.data() + begin, text.data() + begin + length, number);
    return number;
}

std::string Padded(long long number, std::size_t digits) {
    const std::string text = std::to_string(number);
    return text.size() < digits ? std::string(digits - text.size(), '0') + text : text;
}

constexpr sys_seconds BeginOfYear(int year) {
    return sys_days(std::chrono::year(year) / std::chrono::January / 1);
}

}  // namespace

std::optional<UnixTime> ReadTime(std::string_view text) {
    if (!HasTimeForm(text)) {
        return std::nullopt;
    }
    const year_month_day date(std::chrono::year(NumberAt(text, 0, 4)),
                              std::chrono::month(static_cast<unsigned>(NumberAt(text, 5, 2))),
                              std::chrono::day(static_cast<unsigned>(NumberAt(text, 8, 2))));
    const std::chrono::hours hour(NumberAt(text, 11, 2));
    const std::chrono::minutes minute(NumberAt(text, 14, 2));
    const std::chrono::seconds second(NumberAt(text, 17, 2));
    if (!date.ok() || hour.count() > 23 || minute.count() > 59 || second.count() > 59) {
        return std::nullopt;
    }
    const sys_seconds moment = sys_days(date) + hour + minute + second;
    return moment.time_since_epoch().count();
}

std::string FeedTimeText(UnixTime time) {
    const sys_seconds moment{std::chrono::seconds(time)};
    if (moment < BeginOfYear(0) || moment >= BeginOfYear(10000)) {
        return "";
    }
    const auto day = std::chrono::floor<std::chrono::days>(moment);
    const year_month_day date(day);
    const std::chrono::hh_mm_ss clock(moment - day);
    return Padded(static_cast<int>(date.year()), 4) + '-' +
           Padded(static_cast<unsigned>(date.month()), 2) + '-' +
           Padded(static_cast<unsigned>(date.day()), 2) + 'T' + Padded(clock.hours().count(), 2) +
           ':' + Padded(clock.minutes().count(), 2) + ':' + Padded(clock.seconds().count(), 2) +
           'Z';
}

}  // namespace updater
