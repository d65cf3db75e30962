#include "platform/core/utc_time.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

namespace teravolant::platform {

using namespace std::chrono;

std::optional<sys_seconds> utcTimeIn(std::string_view text) {
    const auto fits = [](char character, char form) {
        return form == '0' ? character >= '0' && character <= '9' : character == form;
    };
    if (!std::ranges::equal(text, std::string_view("0000-00-00T00:00:00Z"), fits)) {
        return std::nullopt;
    }
    const auto field = [&](std::size_t begin, std::size_t length) {
        unsigned value = 0;
        std::from_chars(text.data() + begin, text.data() + begin + length, value);
        return value;
    };
    const auto date = year(static_cast<int>(field(0, 4))) / month(field(5, 2)) / day(field(8, 2));
    const hh_mm_ss time(hours(field(11, 2)) + minutes(field(14, 2)) + seconds(field(17, 2)));
    const bool isTime = field(11, 2) < 24 && field(14, 2) < 60 && field(17, 2) < 60;
    return isTime && date.ok() && date.year() >= year(1)
               ? std::optional(sys_days(date) + time.to_duration())
               : std::nullopt;
}

sys_seconds currentUtcTime() { return floor<seconds>(system_clock::now()); }

std::string utcTimeText(sys_seconds time) {
    time = std::clamp<sys_seconds>(time, sys_days(year(1) / 1 / 1),
                                   sys_days(year(10'000) / 1 / 1) - seconds(1));
    const auto midnight = floor<days>(time);
    const year_month_day date(midnight);
    const hh_mm_ss clock(time - midnight);
    std::array<char, 48> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%04d-%02u-%02uT%02ld:%02ld:%02ldZ",
                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), clock.hours().count(), clock.minutes().count(),
                  clock.seconds().count());
    return buffer.data();
}

}  // namespace teravolant::platform
