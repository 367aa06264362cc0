#pragma once
#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "TslCore/Compat/CompatDatabase.h"

// Whether a downloaded database may replace the one in use.
namespace tsl::CompatUpdater {

inline constexpr bool enabled = true;
// The feed's endpoint. Its host is the deployment's to set; until it is,
// fetching needs the address given explicitly.
inline constexpr std::optional<std::string_view> remoteURL = std::nullopt;
inline constexpr std::string_view remotePath = "/compat/v1.json";
inline constexpr size_t maxBytes = 0x500000;

using Verify = std::function<bool(std::span<const uint8_t> body, const std::optional<std::string>& signature)>;

// The URL's scheme ("" when it has none), as written.
std::string_view scheme(std::string_view url);

// Three gates, in order and before a byte is parsed: the URL is "https",
// the body is at most maxBytes, `verify` accepts the signature. Then the
// body is decoded. Throws CompatError for a gate, and what decode throws.
CompatDatabase validate(std::span<const uint8_t> data, std::string_view from, const std::optional<std::string>& signature,
                        const Verify& verify);

// The candidate when its date stamp sorts strictly after the current one's
// (a missing current stamp sorts first); otherwise the current database.
const CompatDatabase& newer(const CompatDatabase* candidate, const CompatDatabase& current);

}  // namespace tsl::CompatUpdater
