#include "TslCore/Support/Utf8.h"

namespace tsl {
namespace {

// How many bytes at `at` begin a sequence that could still have been well
// formed: what one U+FFFD replaces. At least 1.
size_t maximalSubpart(std::string_view text, size_t at) {
    const auto lead = static_cast<unsigned char>(text[at]);
    size_t length = 0;
    unsigned char low = 0x80, high = 0xBF;  // the range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3, low = lead == 0xE0 ? 0xA0 : 0x80, high = lead == 0xED ? 0x9F : 0xBF;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4, low = lead == 0xF0 ? 0x90 : 0x80, high = lead == 0xF4 ? 0x8F : 0xBF;
    } else {
        return 1;
    }
    size_t n = 1;
    for (; n < length && at + n < text.size(); ++n) {
        const auto b = static_cast<unsigned char>(text[at + n]);
        if (b < (n == 1 ? low : 0x80) || b > (n == 1 ? high : 0xBF)) break;
    }
    return n;
}

}  // namespace

std::optional<char32_t> readUtf8Scalar(std::string_view text, size_t& at) {
    if (at >= text.size()) return std::nullopt;
    auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    unsigned char lead = byte(at);
    size_t length;
    char32_t value;
    char32_t least;
    if (lead < 0x80) {
        ++at;
        return lead;
    } else if ((lead & 0xE0) == 0xC0) {
        length = 2, value = lead & 0x1F, least = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, value = lead & 0x0F, least = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, value = lead & 0x07, least = 0x10000;
    } else {
        return std::nullopt;
    }
    if (text.size() - at < length) return std::nullopt;
    for (size_t i = 1; i < length; ++i) {
        unsigned char next = byte(at + i);
        if ((next & 0xC0) != 0x80) return std::nullopt;
        value = (value << 6) | (next & 0x3F);
    }
    if (value < least || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return std::nullopt;
    at += length;
    return value;
}

bool isValidUtf8(std::string_view text) {
    size_t at = 0;
    while (at < text.size()) {
        if (!readUtf8Scalar(text, at)) return false;
    }
    return true;
}

std::string repairedUtf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    size_t at = 0;
    while (at < text.size()) {
        const size_t start = at;
        if (readUtf8Scalar(text, at)) {
            out.append(text.substr(start, at - start));
        } else {
            out += "\xEF\xBF\xBD";
            at = start + maximalSubpart(text, start);
        }
    }
    return out;
}

bool isUnicodeWhitespace(char32_t c) {
    return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
           (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F ||
           c == 0x3000;
}

}  // namespace tsl
