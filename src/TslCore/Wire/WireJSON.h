#pragma once
#include <cstddef>
#include <cstdint>

#include "TslCore/Support/Bytes.h"
#include "TslCore/Support/Error.h"
#include "TslCore/Wire/ControlMessage.h"

namespace tsl {

// The JSON codec of every control payload.
namespace WireJSON {

// A payload that does not decode; the description is the underlying error's text.
struct DecodeError : Error {
    using Error::Error;
};

Bytes encode(const ControlEnvelope& envelope);
ControlEnvelope decodeEnvelope(const uint8_t* data, size_t size);

}  // namespace WireJSON
}  // namespace tsl
