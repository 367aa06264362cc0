#pragma once
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace tsl {

// A date as files hold it: whole seconds, any year four digits can write.
// The system clock's own nanoseconds end in 2262, and a date in a file may
// lie beyond.
using Date = std::chrono::sys_seconds;

// A clock reading as a date, cut to its second.
inline Date dateOf(std::chrono::system_clock::time_point time) {
    return std::chrono::floor<std::chrono::seconds>(time);
}

}  // namespace tsl

namespace tsl::ISO8601 {

// "2026-10-07T12:34:56Z": UTC, whole seconds, as dates stand in JSON files.
std::string format(Date time);
// The same for a clock reading, cut to its second.
inline std::string format(std::chrono::system_clock::time_point time) {
    return format(dateOf(time));
}

// Reads that form back, also with the zone as an offset ("+02:00") and with
// fractional seconds (dropped); nothing for any other text.
std::optional<Date> parse(std::string_view text);

// The date as a reading of the system clock; nothing for a date the clock
// can't hold (before 1678 or after 2261).
std::optional<std::chrono::system_clock::time_point> clockTime(Date date);

}  // namespace tsl::ISO8601
