#include "TslCore/Compat/SignedFeed.h"

#include <sodium.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "TslCore/Support/Base64.h"

namespace tsl::SignedFeed {
namespace {

void startSodium() {
    if (::sodium_init() < 0) throw SigningError("the signature library could not be started");
}

std::vector<uint8_t> message(std::span<const uint8_t> body) {
    std::vector<uint8_t> out(messagePrefix.size() + body.size());
    std::memcpy(out.data(), messagePrefix.data(), messagePrefix.size());
    if (!body.empty()) std::memcpy(out.data() + messagePrefix.size(), body.data(), body.size());
    return out;
}

bool isURLSafe(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

struct KeyPair {
    std::array<uint8_t, crypto_sign_PUBLICKEYBYTES> publicKey{};
    std::array<uint8_t, crypto_sign_SECRETKEYBYTES> secretKey{};
    ~KeyPair() { ::sodium_memzero(secretKey.data(), secretKey.size()); }
};

void derive(const PrivateKey& seed, KeyPair& pair) {
    startSodium();
    ::crypto_sign_seed_keypair(pair.publicKey.data(), pair.secretKey.data(), seed.data());
}

}  // namespace

bool verifyFeed(std::span<const uint8_t> body, const std::optional<std::string>& header, const TrustedKeys& trusted) {
    if (!header) return false;
    const size_t dot = header->find('.');
    if (dot == std::string::npos) return false;
    const auto key = trusted.find(std::string_view(*header).substr(0, dot));
    if (key == trusted.end()) return false;
    std::string text = header->substr(dot + 1);
    if (!std::all_of(text.begin(), text.end(), isURLSafe) || text.size() % 4 == 1) return false;
    std::replace(text.begin(), text.end(), '-', '+');
    std::replace(text.begin(), text.end(), '_', '/');
    text.append((4 - text.size() % 4) % 4, '=');
    const auto signature = Base64::decode(text);
    if (!signature || signature->size() != crypto_sign_BYTES) return false;
    if (::sodium_init() < 0) return false;
    const auto signed_ = message(body);
    return ::crypto_sign_verify_detached(signature->data(), signed_.data(), signed_.size(), key->second.data()) == 0;
}

std::string signFeed(std::span<const uint8_t> body, std::string_view kid, const PrivateKey& key) {
    KeyPair pair;
    derive(key, pair);
    const auto signed_ = message(body);
    std::array<uint8_t, crypto_sign_BYTES> signature{};
    ::crypto_sign_detached(signature.data(), nullptr, signed_.data(), signed_.size(), pair.secretKey.data());
    std::string text = Base64::encode(signature.data(), signature.size());
    std::replace(text.begin(), text.end(), '+', '-');
    std::replace(text.begin(), text.end(), '/', '_');
    text.erase(std::remove(text.begin(), text.end(), '='), text.end());
    return std::string(kid) + "." + text;
}

PublicKey publicKey(const PrivateKey& key) {
    KeyPair pair;
    derive(key, pair);
    PublicKey out{};
    std::copy(pair.publicKey.begin(), pair.publicKey.end(), out.begin());
    return out;
}

PrivateKey generateKey() {
    startSodium();
    PrivateKey key{};
    ::randombytes_buf(key.data(), key.size());
    return key;
}

}  // namespace tsl::SignedFeed
