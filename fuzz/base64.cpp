// Base64 text from a peer or a file. Decoding is strict, so the only text that
// decodes is the encoding of what it decodes to; and any bytes survive a trip.
#include <string>

#include "FuzzSupport.h"
#include "TslCore/Support/Base64.h"

using namespace tsl;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    if (auto decoded = Base64::decode(text))
        fuzz::require(Base64::encode(*decoded) == text, "Base64 text decodes but is not canonical");
    auto back = Base64::decode(Base64::encode(data, size));
    fuzz::require(back && *back == Bytes(data, data + size), "bytes changed in a Base64 round trip");
    return 0;
}
