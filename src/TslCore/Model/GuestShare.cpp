#include "TslCore/Model/GuestShare.h"

#include <vector>

#include "TslCore/Support/Decimal.h"
#include "TslCore/Support/Utf8.h"

namespace tsl::GuestShare {
namespace {

// Pieces between runs of whitespace; nothing for text that isn't UTF-8.
std::optional<std::vector<std::string_view>> tokens(std::string_view text) {
    std::vector<std::string_view> out;
    size_t at = 0;
    size_t start = 0;
    while (at < text.size()) {
        size_t before = at;
        auto c = readUtf8Scalar(text, at);
        if (!c) return std::nullopt;
        if (isUnicodeWhitespace(*c)) {
            if (before > start) out.push_back(text.substr(start, before - start));
            start = at;
        }
    }
    if (text.size() > start) out.push_back(text.substr(start));
    return out;
}

}  // namespace

std::optional<std::string> tcpHostFromTransportChoice(std::string_view text) {
    auto words = tokens(text);
    if (!words || words->size() != 2 || (*words)[0] != "tcp") return std::nullopt;
    std::string_view host = (*words)[1];

    // Empty pieces count here: "10.0.0.1." is not four numbers.
    std::vector<uint8_t> numbers;
    size_t at = 0;
    while (true) {
        size_t dot = host.find('.', at);
        auto n = parseDecimal<uint8_t>(host.substr(at, dot == std::string_view::npos ? std::string_view::npos : dot - at));
        if (!n) return std::nullopt;
        numbers.push_back(*n);
        if (dot == std::string_view::npos) break;
        at = dot + 1;
    }
    if (numbers.size() != 4) return std::nullopt;
    bool isPrivate = numbers[0] == 10 || (numbers[0] == 172 && numbers[1] >= 16 && numbers[1] <= 31) ||
                     (numbers[0] == 192 && numbers[1] == 168);
    if (!isPrivate) return std::nullopt;
    return std::string(host);
}

}  // namespace tsl::GuestShare
