#include "TslCore/Compat/CompatUpdater.h"

#include "TslCore/Compat/CompatError.h"

namespace tsl::CompatUpdater {
namespace {

bool isAlpha(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

}  // namespace

std::string_view scheme(std::string_view url) {
    const size_t colon = url.find(':');
    if (colon == std::string_view::npos || colon == 0 || !isAlpha(url[0])) return {};
    for (const char c : url.substr(0, colon))
        if (!isAlpha(c) && !(c >= '0' && c <= '9') && c != '+' && c != '-' && c != '.') return {};
    return url.substr(0, colon);
}

CompatDatabase validate(std::span<const uint8_t> data, std::string_view from, const std::optional<std::string>& signature,
                        const Verify& verify) {
    if (scheme(from) != "https") throw CompatError(CompatError::Kind::notHTTPS);
    if (data.size() > maxBytes) throw CompatError(CompatError::Kind::tooLarge);
    if (!verify || !verify(data, signature)) throw CompatError(CompatError::Kind::badSignature);
    return CompatDatabase::decode(data);
}

const CompatDatabase& newer(const CompatDatabase* candidate, const CompatDatabase& current) {
    if (!candidate || !candidate->updated) return current;
    return current.updated.value_or("") < *candidate->updated ? *candidate : current;
}

}  // namespace tsl::CompatUpdater
