#pragma once
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace tsl::ISO8601 {

// "2026-10-07T12:34:56Z": UTC, whole seconds, as dates stand in JSON files.
std::string format(std::chrono::system_clock::time_point time);

// Reads that form back, also with the zone as an offset ("+02:00") and with
// fractional seconds (dropped); nothing for any other text, and for dates the clock can't hold (before
// 1678 or after 2261).
std::optional<std::chrono::system_clock::time_point> parse(std::string_view text);

}  // namespace tsl::ISO8601
