#pragma once
#include <memory>
#include <optional>
#include <vector>

#include "Support/AgentTestSupport.h"
#include "Support/VideoReceiver.h"
#include "TslStream/Measure/TestPatternProbe.h"
#include "TslStream/Pipeline/StreamReceiver.h"

namespace tsl::test {

// A host on three connections to a service in this process: control, video
// (read here, decoded on demand into the pattern's square and counter) and
// input. Ends its connections, then waits until the service has let them go.
struct ServiceHost {
    struct Picture {
        VideoFrameHeader header;
        bool white = false;
        std::optional<uint64_t> counter;
    };

    MainActor& main;
    std::shared_ptr<AgentService> service;
    std::unique_ptr<HostEnd> control;
    std::unique_ptr<VideoReceiver> video;
    std::shared_ptr<WireConnection> input;
    Waiter pongs, inputClosed;
    uint64_t pings = 0;
    StreamReceiver receiver{false};
    std::vector<Picture> pictures;
    size_t decoded = 0;

    ServiceHost(MainActor& main, std::shared_ptr<AgentService> agentService)
        : main(main), service(std::move(agentService)) {
        control = std::make_unique<HostEnd>(std::make_shared<WireConnection>(attach(Channel::control), "host"));
        control->channel->start();
        video = std::make_unique<VideoReceiver>(attach(Channel::video));
        input = std::make_shared<WireConnection>(attach(Channel::input), "host-input");
        input->start(
            [this](WireMessage m) {
                if (m.get<WireMessage::Pong>()) pongs.signal();
            },
            [this](std::exception_ptr) { inputClosed.signal(); });
    }
    ~ServiceHost() {
        input->close();
        inputClosed.waitFor(1);
        video.reset();
        control.reset();
        main.runUntil([&] { return service->attached().empty(); }, limit);
        main.runUntil([&] { return service->streamManager()->activeStreams().empty(); }, limit);
    }

    ControlMessage request(ControlMessage message) {
        return main.runTask(control->channel->request(std::move(message), 10), limit);
    }
    void send(InputEvent event) { input->send(WireMessage::input(event)); }
    // A ping on the input connection is answered after every input frame
    // before it has been handled.
    bool inputHandled() {
        input->send(WireMessage::ping(++pings));
        return pongs.waitFor(int(pings));
    }

    // Decodes what has arrived; the first picture from index `from` on that
    // satisfies `want`, if any.
    template <class Want>
    std::optional<Picture> decodedPicture(size_t from, Want want) {
        for (; decoded < video->count(); ++decoded) {
            auto frame = video->at(decoded);
            receiver.handle(frame.header, frame.data, [&](const DecodedFrame& d) {
                pictures.push_back({d.header, TestPatternProbe::squareIsWhite(*d.pixelBuffer, 1.0, 0).value_or(false),
                                    TestPatternProbe::counter(*d.pixelBuffer, 1.0, 0)});
            });
        }
        for (size_t i = from; i < pictures.size(); ++i)
            if (want(pictures[i])) return pictures[i];
        return std::nullopt;
    }

private:
    // The agent's end joins the service; gives the host's descriptor.
    int attach(Channel channel) {
        auto [agentFd, hostFd] = socketPair();
        auto end = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(agentFd, "agent"));
        service->attach(end, {channel});
        end->start();
        return hostFd;
    }
};

}  // namespace tsl::test
