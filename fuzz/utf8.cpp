// Text from a peer or a file: validation, scalar reading and repair must
// agree with each other on every input.
#include <string>

#include "FuzzSupport.h"
#include "TslCore/Support/Utf8.h"

using namespace tsl;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    bool valid = isValidUtf8(text);

    bool allRead = true;
    std::string rebuilt;
    for (size_t at = 0; at < text.size();) {
        size_t from = at;
        auto c = readUtf8Scalar(text, at);
        fuzz::require(at > from || !c, "reading a scalar did not move on");
        if (!c) {
            allRead = false;
            break;
        }
        fuzz::require(*c <= 0x10FFFF && (*c < 0xD800 || *c > 0xDFFF), "read a value that is not a scalar");
        isUnicodeWhitespace(*c);
        rebuilt.append(text.substr(from, at - from));
    }
    fuzz::require(allRead == valid, "scalar reading and validation disagree");

    std::string repaired = repairedUtf8(text);
    fuzz::require(isValidUtf8(repaired), "repaired text is not valid UTF-8");
    if (valid) fuzz::require(repaired == text && rebuilt == text, "valid text changed in repair");
    fuzz::require(repairedUtf8(repaired) == repaired, "repair is not idempotent");
    return 0;
}
