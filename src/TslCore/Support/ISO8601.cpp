#include "TslCore/Support/ISO8601.h"

#include <cstdio>

namespace tsl::ISO8601 {

using namespace std::chrono;

std::string format(Date seconds) {
    const auto days = floor<std::chrono::days>(seconds);
    const year_month_day date{days};
    const hh_mm_ss clock{seconds - days};
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return text;
}

std::optional<Date> parse(std::string_view text) {
    const auto digits = [&](size_t at, size_t count, int& value) {
        if (at + count > text.size()) return false;
        value = 0;
        for (size_t i = at; i < at + count; ++i) {
            if (text[i] < '0' || text[i] > '9') return false;
            value = value * 10 + (text[i] - '0');
        }
        return true;
    };
    int y, mo, d, h, mi, s;
    if (!digits(0, 4, y) || text.size() < 20 || text[4] != '-' || !digits(5, 2, mo) || text[7] != '-' ||
        !digits(8, 2, d) || text[10] != 'T' || !digits(11, 2, h) || text[13] != ':' || !digits(14, 2, mi) ||
        text[16] != ':' || !digits(17, 2, s))
        return std::nullopt;
    size_t at = 19;
    if (text[at] == '.') {
        ++at;
        const size_t first = at;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9') ++at;
        if (at == first) return std::nullopt;
    }
    // A file edited by hand or written elsewhere may carry its zone as an
    // offset from UTC; the instant is the same.
    int offset = 0;
    if (at + 1 == text.size() && text[at] == 'Z') {
    } else if (int oh, om; at + 6 == text.size() && (text[at] == '+' || text[at] == '-') && digits(at + 1, 2, oh) &&
               text[at + 3] == ':' && digits(at + 4, 2, om) && oh <= 23 && om <= 59) {
        offset = (text[at] == '-' ? -1 : 1) * (oh * 60 + om);
    } else {
        return std::nullopt;
    }
    const year_month_day date{year{y}, month{static_cast<unsigned>(mo)}, day{static_cast<unsigned>(d)}};
    if (!date.ok() || h > 23 || mi > 59 || s > 60) return std::nullopt;
    const Date when = sys_days{date} + hours{h} + minutes{mi - offset} + seconds{s};
    // An offset may carry the instant past the years four digits write.
    if (when < sys_days{year{0} / 1 / 1} || when >= sys_days{year{10000} / 1 / 1}) return std::nullopt;
    return when;
}

std::optional<system_clock::time_point> clockTime(Date date) {
    // The clock counts nanoseconds in 64 bits; a date outside is refused
    // rather than wrapped.
    if (date < ceil<seconds>(system_clock::time_point::min()) || date > floor<seconds>(system_clock::time_point::max()))
        return std::nullopt;
    return time_point_cast<system_clock::duration>(date);
}

}  // namespace tsl::ISO8601
