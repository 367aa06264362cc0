// The stream rows of the request table.
#include "TslAgent/AgentService.h"

namespace tsl {

asio::awaitable<ControlMessage> AgentService::startStream(ControlMessage message) {
    StreamRequest request = message.get<ControlMessage::StartStream>()->value;
    validateStreamRequest(request);
    std::shared_ptr<WireConnection> connection = _videoConnection;
    if (!connection && !_controls.empty()) connection = _controls.front()->connection;
    if (!connection) throw ControlError("noVideo", "no video connection");
    co_await streams->start(request, connection);
    co_return ControlMessage::StreamStarted{request};
}

asio::awaitable<ControlMessage> AgentService::stopStream(ControlMessage message) {
    co_await streams->stop(message.get<ControlMessage::StopStream>()->streamID);
    co_return ControlMessage::Ok{};
}

asio::awaitable<ControlMessage> AgentService::updateStream(ControlMessage message) {
    StreamRequest request = message.get<ControlMessage::UpdateStream>()->value;
    validateStreamRequest(request);
    co_await streams->update(request);
    co_return ControlMessage::Ok{};
}

asio::awaitable<ControlMessage> AgentService::requestKeyframe(ControlMessage message) {
    streams->requestKeyframe(message.get<ControlMessage::RequestKeyframe>()->streamID);
    co_return ControlMessage::Ok{};
}

}  // namespace tsl
