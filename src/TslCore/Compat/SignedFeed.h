#pragma once
#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "TslCore/Support/Error.h"

// The signature that travels beside a feed's body: "<key id>.<signature>",
// the signature being Ed25519 over "TslF1\n" followed by the body, in URL-safe
// Base64 without padding.
namespace tsl::SignedFeed {

using PublicKey = std::array<uint8_t, 32>;
using PrivateKey = std::array<uint8_t, 32>;  // the seed the key pair grows from
using TrustedKeys = std::map<std::string, PublicKey, std::less<>>;

inline constexpr std::string_view messagePrefix = "TslF1\n";

struct SigningError : Error {
    using Error::Error;
};

// False at the first thing wrong: no header, no ".", an unknown key id, a
// character outside the URL-safe alphabet (padding included), a length no
// Base64 has, not 64 bytes, or a signature that doesn't verify.
bool verifyFeed(std::span<const uint8_t> body, const std::optional<std::string>& header, const TrustedKeys& trusted);

// The header for `body` signed with `key` under the id `kid`. Throws
// SigningError when the crypto library can't be started.
std::string signFeed(std::span<const uint8_t> body, std::string_view kid, const PrivateKey& key);

// The public half of `key`.
PublicKey publicKey(const PrivateKey& key);

// A fresh private key from the system's random source.
PrivateKey generateKey();

}  // namespace tsl::SignedFeed
