#include "TslAgent/BlockingRequest.h"

#include "TslStream/Runtime/GlobalQueue.h"
#include "TslStream/Runtime/Task.h"

namespace tsl {

std::optional<ControlMessage> BlockingRequest::run(const std::shared_ptr<ControlChannel>& channel,
                                                   ControlMessage message, double timeout) {
    try {
        return runBlocking(GlobalQueue::executor(), channel->request(std::move(message), timeout));
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace tsl
