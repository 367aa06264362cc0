#include "TslCore/Support/UUID.h"

#include <sys/random.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <random>

namespace tsl {

std::string makeUUIDString() {
    std::array<uint8_t, 16> b{};
    size_t have = 0;
    while (have < b.size()) {
        const ssize_t n = getrandom(b.data() + have, b.size() - have, 0);
        if (n <= 0) break;
        have += static_cast<size_t>(n);
    }
    if (have < b.size()) {  // no kernel entropy call: fall back to the library's device
        std::random_device device;
        for (auto& byte : b) byte = static_cast<uint8_t>(device());
    }
    b[6] = static_cast<uint8_t>((b[6] & 0x0F) | 0x40);
    b[8] = static_cast<uint8_t>((b[8] & 0x3F) | 0x80);
    char text[37];
    std::snprintf(text, sizeof text, "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", b[0], b[1],
                  b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
    return text;
}

}  // namespace tsl
