#include "TslStream/Agent/AgentLink.h"

namespace tsl {

ControlChannel::FrameHandler AgentLink::videoForwarder(std::weak_ptr<AgentLink> weak) {
    return [weak](WireMessage message) {
        if (auto link = weak.lock()) link->forwardVideoFrame(message);
    };
}

AgentLink::AgentLink(std::shared_ptr<ControlChannel> control, Hello agentHello)
    : control(std::move(control)), agentHello(std::move(agentHello)),
      inputQueue(std::make_shared<SerialQueue>("tsl.input.send")) {}

std::shared_ptr<AgentLink> AgentLink::make(std::shared_ptr<ControlChannel> control, Hello agentHello) {
    auto link = std::make_shared<AgentLink>(std::move(control), std::move(agentHello));
    std::weak_ptr<AgentLink> weak = link;
    link->control->setOnFrame(videoForwarder(weak));
    link->control->setOnUnsolicited([weak](ControlEnvelope envelope) {
        if (auto self = weak.lock()) self->forwardEvent(std::move(envelope));
    });
    return link;
}

void AgentLink::onEvent(EventHandler handler) {
    std::lock_guard guard(lock);
    eventHandler = std::move(handler);
}

void AgentLink::onVideo(VideoHandler handler) {
    std::lock_guard guard(lock);
    videoHandler = std::move(handler);
}

void AgentLink::attachVideoChannel(std::shared_ptr<ControlChannel> channel) {
    channel->setOnFrame(videoForwarder(weak_from_this()));
    std::lock_guard guard(lock);
    video = std::move(channel);
}

void AgentLink::attachInputChannel(std::shared_ptr<ControlChannel> channel) {
    std::lock_guard guard(lock);
    input = std::move(channel);
}

std::shared_ptr<ControlChannel> AgentLink::videoChannel() const {
    std::lock_guard guard(lock);
    return video;
}

std::shared_ptr<ControlChannel> AgentLink::inputChannel() const {
    std::lock_guard guard(lock);
    return input;
}

void AgentLink::forwardVideoFrame(const WireMessage& message) {
    auto frame = message.get<WireMessage::Video>();
    if (!frame) return;
    VideoHandler handler;
    {
        std::lock_guard guard(lock);
        handler = videoHandler;
    }
    if (handler) handler(frame->header, frame->data);
}

void AgentLink::forwardEvent(ControlEnvelope envelope) {
    EventHandler handler;
    {
        std::lock_guard guard(lock);
        handler = eventHandler;
    }
    if (handler) handler(std::move(envelope));
}

void AgentLink::sendInput(const InputEvent& event) {
    std::shared_ptr<WireConnection> connection;
    {
        std::lock_guard guard(lock);
        if (pendingInputs >= inputShedding) return;
        if (pendingInputs >= mouseMoveShedding && event.kind == InputEvent::Kind::mouseMove) return;
        ++pendingInputs;
        connection = input ? input->connection : control->connection;
    }
    std::weak_ptr<AgentLink> weak = weak_from_this();
    inputQueue->post([weak, connection = std::move(connection), frame = WireMessage::input(event)] {
        try {
            connection->send(frame);
        } catch (...) {
            // a dead input connection is cleaned up by whoever closes the link
        }
        if (auto self = weak.lock()) {
            std::lock_guard guard(self->lock);
            --self->pendingInputs;
        }
    });
}

void AgentLink::invalidate() {
    std::lock_guard guard(lock);
    videoHandler = nullptr;
    eventHandler = nullptr;
}

void AgentLink::close() {
    std::shared_ptr<ControlChannel> v, i;
    {
        std::lock_guard guard(lock);
        v = video;
        i = input;
    }
    if (v) v->close();
    if (i) i->close();
    control->close();
}

}  // namespace tsl
