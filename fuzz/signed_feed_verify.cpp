// Arbitrary signature texts (and bodies) through verifyFeed: false or true, never a crash.
#include <cstddef>
#include <cstdint>
#include <string>

#include "TslCore/Compat/SignedFeed.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Up to the first NUL is the signature text, the rest the body.
    size_t split = 0;
    while (split < size && data[split] != 0) ++split;
    const std::string header(reinterpret_cast<const char*>(data), split);
    const std::span<const uint8_t> body(data + (split < size ? split + 1 : size), size - (split < size ? split + 1 : size));
    static const tsl::SignedFeed::TrustedKeys trusted = [] {
        tsl::SignedFeed::PrivateKey seed{};
        seed.fill(7);
        return tsl::SignedFeed::TrustedKeys{{"k1", tsl::SignedFeed::publicKey(seed)}, {"", {}}};
    }();
    (void)tsl::SignedFeed::verifyFeed(body, header, trusted);
    (void)tsl::SignedFeed::verifyFeed(body, std::nullopt, trusted);
    return 0;
}
