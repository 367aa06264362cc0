// The service's clipboard work: local copies go to every host, a host's
// copies land on the pasteboard.
#include "TslAgent/AgentService.h"

namespace tsl {
namespace {

constexpr double clipboardPollPeriod = 0.5;  // seconds

}  // namespace

void AgentService::startClipboardSync() {
    std::weak_ptr<AgentService> weakSelf = weak_from_this();
    _clipboard.setOnLocalChange([weakSelf](const ClipboardPayload& payload) {
        auto self = weakSelf.lock();
        if (!self) return;
        self->postToHosts(ControlMessage::Clipboard{payload});
    });
    _clipboard.start(clipboardPollPeriod);
}

asio::awaitable<ControlMessage> AgentService::clipboard(ControlMessage request) {
    if (_config.clipboardSync) _clipboard.apply(request.get<ControlMessage::Clipboard>()->value);
    co_return ControlMessage::Ok{};
}

}  // namespace tsl
