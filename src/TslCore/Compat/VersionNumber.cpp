#include "TslCore/Compat/VersionNumber.h"

#include <algorithm>

#include <limits>

namespace tsl::VersionNumber {
namespace {

constexpr size_t maxParts = 6;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The piece holds digits only; one too large for the type is 0.
int64_t value(std::string_view piece) {
    int64_t v = 0;
    for (const char c : piece) {
        const int64_t digit = c - '0';
        if (v > (std::numeric_limits<int64_t>::max() - digit) / 10) return 0;
        v = v * 10 + digit;
    }
    return v;
}

}  // namespace

std::vector<int64_t> parts(std::string_view text) {
    const size_t first = std::find_if(text.begin(), text.end(), isDigit) - text.begin();
    size_t end = first;
    while (end < text.size() && (isDigit(text[end]) || text[end] == '.')) ++end;
    std::string_view run = text.substr(first, end - first);

    std::vector<int64_t> out;
    while (!run.empty() && out.size() < maxParts) {
        const size_t dot = run.find('.');
        const std::string_view piece = run.substr(0, dot);
        if (!piece.empty()) out.push_back(value(piece));
        if (dot == std::string_view::npos) break;
        run.remove_prefix(dot + 1);
    }
    return out;
}

int compare(std::string_view a, std::string_view b) {
    const auto pa = parts(a), pb = parts(b);
    for (size_t i = 0; i < std::max(pa.size(), pb.size()); ++i) {
        const int64_t x = i < pa.size() ? pa[i] : 0, y = i < pb.size() ? pb[i] : 0;
        if (x != y) return x < y ? -1 : 1;
    }
    return 0;
}

}  // namespace tsl::VersionNumber
