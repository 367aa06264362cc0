#include "TslCore/Wire/WireJSON.h"

namespace tsl::WireJSON {

Bytes encode(const ControlEnvelope& envelope) { return envelope.json; }

ControlEnvelope decodeEnvelope(const uint8_t* data, size_t size) {
    return ControlEnvelope{Bytes(data, data + size)};
}

}  // namespace tsl::WireJSON
