#include "TslStream/Transport/SocketEndpoint.h"

#include <vector>

#include "TslCore/Support/Decimal.h"

namespace tsl {
namespace {

// At most two splits at ":", empty pieces dropped (the last piece keeps its colons).
std::vector<std::string_view> pieces(std::string_view text) {
    std::vector<std::string_view> out;
    size_t at = 0;
    int splits = 0;
    while (at <= text.size()) {
        size_t colon = splits < 2 ? text.find(':', at) : std::string_view::npos;
        std::string_view piece = text.substr(at, colon == std::string_view::npos ? std::string_view::npos : colon - at);
        if (colon != std::string_view::npos) ++splits;
        if (!piece.empty()) out.push_back(piece);
        if (colon == std::string_view::npos) break;
        at = colon + 1;
    }
    return out;
}

}  // namespace

std::optional<SocketEndpoint> SocketEndpoint::parse(std::string_view text) {
    auto p = pieces(text);
    if (p.empty()) return std::nullopt;
    if (p[0] == "unix" && p.size() >= 2) return unix(std::string(text.substr(5)));
    if (p[0] == "tcp" && p.size() == 3) {
        auto port = parseDecimal<uint16_t>(p[2]);
        if (!port) return std::nullopt;
        return tcp(std::string(p[1]), *port);
    }
    if (p[0] == "vsock" && p.size() == 3) {
        auto cid = parseDecimal<uint32_t>(p[1]);
        auto port = parseDecimal<uint32_t>(p[2]);
        if (!cid || !port) return std::nullopt;
        return vsock(*cid, *port);
    }
    return std::nullopt;
}

std::string SocketEndpoint::description() const {
    if (auto u = get<Unix>()) return "unix:" + u->path;
    if (auto t = get<Tcp>()) return "tcp:" + t->host + ":" + std::to_string(t->port);
    auto v = get<Vsock>();
    return "vsock:" + std::to_string(v->cid) + ":" + std::to_string(v->port);
}

}  // namespace tsl
