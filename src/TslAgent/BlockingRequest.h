#pragma once
#include <memory>
#include <optional>

#include "TslStream/Transport/ControlChannel.h"

namespace tsl {

// A request from a plain thread that may block: the reply, or nothing when
// the request failed or timed out. The wait relies on the request's time-out.
struct BlockingRequest {
    static std::optional<ControlMessage> run(const std::shared_ptr<ControlChannel>& channel, ControlMessage message,
                                             double timeout);
};

}  // namespace tsl
