#include "TslCore/Support/UTF8.h"

#include <cstdint>

namespace tsl::UTF8 {
namespace {

// Length of the well-formed sequence at `i`, or 0 with `bad` set to the
// length of the maximal ill-formed prefix there (at least 1).
size_t sequenceAt(std::string_view s, size_t i, size_t& bad) {
    const auto byte = [&](size_t k) { return static_cast<uint8_t>(s[k]); };
    const uint8_t lead = byte(i);
    bad = 1;
    if (lead < 0x80) return 1;
    size_t length = 0;
    uint8_t low = 0x80, high = 0xBF;  // allowed range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return 0;
    }
    for (size_t k = 1; k < length; ++k) {
        if (i + k >= s.size()) return 0;
        const uint8_t b = byte(i + k);
        const uint8_t lo = k == 1 ? low : 0x80;
        const uint8_t hi = k == 1 ? high : 0xBF;
        if (b < lo || b > hi) return 0;
        bad = k + 1;
    }
    return length;
}

}  // namespace

bool isValid(std::string_view bytes) {
    size_t i = 0, bad = 0;
    while (i < bytes.size()) {
        const size_t n = sequenceAt(bytes, i, bad);
        if (n == 0) return false;
        i += n;
    }
    return true;
}

std::string repaired(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    size_t i = 0, bad = 0;
    while (i < bytes.size()) {
        const size_t n = sequenceAt(bytes, i, bad);
        if (n == 0) {
            out += "\xEF\xBF\xBD";
            i += bad;
        } else {
            out.append(bytes.substr(i, n));
            i += n;
        }
    }
    return out;
}

}  // namespace tsl::UTF8
