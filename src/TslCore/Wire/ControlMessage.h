#pragma once
// Placeholder until the control message records land: the envelope carries
// its JSON text unparsed.
#include "TslCore/Support/Bytes.h"

namespace tsl {

struct ControlEnvelope {
    Bytes json;
    bool operator==(const ControlEnvelope&) const = default;
};

}  // namespace tsl
