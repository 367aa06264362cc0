#include "TslCore/Support/Utf8.h"

namespace tsl {

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

bool isUnicodeWhitespace(char32_t c) {
    return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
           (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F ||
           c == 0x3000;
}

}  // namespace tsl
