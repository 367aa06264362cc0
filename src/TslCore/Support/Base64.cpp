#include "TslCore/Support/Base64.h"

#include <array>

namespace tsl::Base64 {
namespace {

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr uint8_t invalid = 0xFF;

constexpr std::array<uint8_t, 256> makeReverse() {
    std::array<uint8_t, 256> table{};
    table.fill(invalid);
    for (uint8_t i = 0; i < 64; ++i) table[uint8_t(alphabet[i])] = i;
    return table;
}
constexpr std::array<uint8_t, 256> reverse = makeReverse();

}  // namespace

std::string encode(const uint8_t* data, size_t size) {
    std::string out;
    out.reserve((size + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 3 <= size; i += 3) {
        uint32_t v = uint32_t(data[i]) << 16 | uint32_t(data[i + 1]) << 8 | data[i + 2];
        out += alphabet[v >> 18];
        out += alphabet[(v >> 12) & 63];
        out += alphabet[(v >> 6) & 63];
        out += alphabet[v & 63];
    }
    if (size_t rest = size - i) {
        uint32_t v = uint32_t(data[i]) << 16 | (rest == 2 ? uint32_t(data[i + 1]) << 8 : 0);
        out += alphabet[v >> 18];
        out += alphabet[(v >> 12) & 63];
        out += rest == 2 ? alphabet[(v >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

std::optional<Bytes> decode(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    size_t padding = 0;
    if (!text.empty() && text.back() == '=') padding = text[text.size() - 2] == '=' ? 2 : 1;
    Bytes out;
    out.reserve(text.size() / 4 * 3);
    for (size_t i = 0; i < text.size(); i += 4) {
        bool last = i + 4 == text.size();
        size_t digits = last ? 4 - padding : 4;
        uint32_t v = 0;
        for (size_t k = 0; k < 4; ++k) {
            uint8_t d = 0;
            if (k < digits) {
                d = reverse[uint8_t(text[i + k])];
                if (d == invalid) return std::nullopt;
            }
            v = v << 6 | d;
        }
        // The bits below the last byte must be zero, or two texts would
        // decode to the same bytes.
        if ((digits == 2 && (v & 0xFFFF) != 0) || (digits == 3 && (v & 0xFF) != 0)) return std::nullopt;
        out.push_back(uint8_t(v >> 16));
        if (digits > 2) out.push_back(uint8_t(v >> 8));
        if (digits > 3) out.push_back(uint8_t(v));
    }
    return out;
}

}  // namespace tsl::Base64
