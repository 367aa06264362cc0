#pragma once
#include <cstddef>
#include <cstdint>

#include "TslCore/Model/ProvisionReport.h"
#include "TslCore/Support/Bytes.h"
#include "TslCore/Support/Error.h"
#include "TslCore/Wire/ControlMessage.h"

namespace tsl {

// The JSON codec of every control payload: compact UTF-8 with keys sorted at
// every level, optional fields left out, bytes as Base64.
namespace WireJSON {

// A payload that does not decode; the description is the underlying error's text.
struct DecodeError : Error {
    using Error::Error;
};

// A value that JSON cannot carry (a number that is not finite).
struct EncodeError : Error {
    using Error::Error;
};

Bytes encode(const ControlEnvelope& envelope);
ControlEnvelope decodeEnvelope(const uint8_t* data, size_t size);

// The guest tools' report has the same JSON form in its file as on the wire.
Bytes encode(const ProvisionReport& report);
ProvisionReport decodeProvisionReport(const uint8_t* data, size_t size);

// An agent's status on its own, as it travels inside `status` (for files that
// keep one).
Bytes encode(const AgentStatus& status);
AgentStatus decodeAgentStatus(const uint8_t* data, size_t size);

}  // namespace WireJSON
}  // namespace tsl
