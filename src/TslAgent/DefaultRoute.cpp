#include "TslAgent/DefaultRoute.h"

#include <vector>

#include "Platform/System.h"

namespace tsl::DefaultRoute {
namespace {

// At the first ":" only; empty pieces are dropped and don't use up the split.
std::vector<std::string_view> splitAtFirstColon(std::string_view line) {
    std::vector<std::string_view> out;
    size_t start = 0;
    for (size_t colon; (colon = line.find(':', start)) != std::string_view::npos;) {
        const bool empty = colon == start;
        if (!empty) out.push_back(line.substr(start, colon - start));
        start = colon + 1;
        if (!empty) break;
    }
    if (start < line.size()) out.push_back(line.substr(start));
    return out;
}

std::string_view trimmedOfSpacesAndTabs(std::string_view s) {
    const size_t first = s.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

}  // namespace

std::optional<std::string> gateway(System& system) {
    try {
        const auto result = system.run("/sbin/route", {"-n", "get", "default"});
        const auto& out = result.standardOutput;
        return gatewayFromRouteOutput(std::string_view(reinterpret_cast<const char*>(out.data()), out.size()));
    } catch (const LaunchError&) {
        return std::nullopt;
    }
}

std::optional<std::string> gatewayFromRouteOutput(std::string_view output) {
    size_t start = 0;
    while (start <= output.size()) {
        const size_t newline = output.find('\n', start);
        const size_t end = newline == std::string_view::npos ? output.size() : newline;
        const auto pieces = splitAtFirstColon(output.substr(start, end - start));
        if (pieces.size() == 2 && trimmedOfSpacesAndTabs(pieces[0]) == "gateway")
            return std::string(trimmedOfSpacesAndTabs(pieces[1]));
        start = end + 1;
    }
    return std::nullopt;
}

}  // namespace tsl::DefaultRoute
