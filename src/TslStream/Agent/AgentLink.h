#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "TslCore/Support/Bytes.h"
#include "TslCore/Wire/InputEvent.h"
#include "TslCore/Wire/VideoFrameHeader.h"
#include "TslStream/Runtime/SerialQueue.h"
#include "TslStream/Transport/ControlChannel.h"

namespace tsl {

// The host's handle on one agent: requests go over `control`
// (`link->control->request(...)`), video frames and unsolicited control
// messages reach two handlers, input goes out in order with back-pressure.
//
// Held by shared_ptr (make). The channels' forwarders hold the link weakly.
// `lock` guards the fields below it; handlers are called with no lock held,
// on the reader thread of the channel that brought the frame. Live while the
// control connection is open.
class AgentLink : public std::enable_shared_from_this<AgentLink> {
public:
    using VideoHandler = std::function<void(const VideoFrameHeader&, const Bytes&)>;
    using EventHandler = std::function<void(ControlEnvelope)>;

    // Pending input events at which mouse movement, and then everything, is shed.
    static constexpr int mouseMoveShedding = 32;
    static constexpr int inputShedding = 256;

    // Takes over the control channel's frame and unsolicited handlers.
    static std::shared_ptr<AgentLink> make(std::shared_ptr<ControlChannel> control, Hello agentHello);

    const std::shared_ptr<ControlChannel> control;
    const Hello agentHello;

    void onEvent(EventHandler handler);
    void onVideo(VideoHandler handler);

    // A video channel replaces the one before without closing it.
    void attachVideoChannel(std::shared_ptr<ControlChannel> channel);
    void attachInputChannel(std::shared_ptr<ControlChannel> channel);
    std::shared_ptr<ControlChannel> videoChannel() const;
    std::shared_ptr<ControlChannel> inputChannel() const;

    // Queues the event for the input connection (the control connection when
    // there is none). Never throws, never waits on the socket: mouse movement
    // is dropped at 32 pending events, everything at 256.
    void sendInput(const InputEvent& event);

    // Drops both handlers; later frames and events go nowhere.
    void invalidate();
    // Closes video, input and control, in that order.
    void close();
    bool isLive() const { return !control->connection->isClosed(); }

    AgentLink(std::shared_ptr<ControlChannel> control, Hello agentHello);  // use make

private:
    // Frames other than video are ignored, so video on the control connection passes too.
    static ControlChannel::FrameHandler videoForwarder(std::weak_ptr<AgentLink> weak);
    void forwardVideoFrame(const WireMessage& message);
    void forwardEvent(ControlEnvelope envelope);

    mutable std::mutex lock;
    std::shared_ptr<ControlChannel> video;
    std::shared_ptr<ControlChannel> input;
    VideoHandler videoHandler;
    EventHandler eventHandler;
    std::shared_ptr<SerialQueue> inputQueue;
    int pendingInputs = 0;
};

}  // namespace tsl
