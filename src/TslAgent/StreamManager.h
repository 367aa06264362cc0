#pragma once
#include <asio/awaitable.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "Platform/ScreenCapture.h"
#include "TslCore/Wire/ControlRecords.h"
#include "TslStream/Capture/WindowCapture.h"
#include "TslStream/Pipeline/EchoCounter.h"
#include "TslStream/Pipeline/StreamSender.h"
#include "TslStream/Support/Logger.h"
#include "TslStream/Transport/WireConnection.h"

namespace tsl {

// The agent's table of video streams: starts and stops them for the host's
// requests, and follows what happens to their windows.
//
// Main actor only, so no lock: the operations suspend while the capture
// starts or stops, and other requests run meanwhile. That is why starting
// streams have a table of their own, where a stop arriving in between marks
// them cancelled. Held by shared_ptr; capture callbacks hold it weakly.
class StreamManager : public std::enable_shared_from_this<StreamManager> {
public:
    StreamManager(std::shared_ptr<ScreenCapture> platform, std::shared_ptr<EchoCounter> echo);

    // Replaces any stream of the same ID. Throws the capture's error, or
    // ControlError "cancelled" when the stream was stopped, its window closed
    // or its connection lost while the capture started.
    asio::awaitable<void> start(StreamRequest request, std::shared_ptr<WireConnection> connection);
    // An unknown stream is no error.
    asio::awaitable<void> stop(uint32_t streamID);
    // Only the scale counts. Throws ControlError "notFound", or the capture's error.
    asio::awaitable<void> update(StreamRequest request);
    void requestKeyframe(uint32_t streamID);
    asio::awaitable<void> stopAll();
    asio::awaitable<void> stopAll(std::shared_ptr<WireConnection> on);

    // What window tracking reports; never throws.
    asio::awaitable<void> windowResized(GuestWindow window);
    asio::awaitable<void> windowClosed(uint32_t windowID);
    void windowRestored(uint32_t windowID);

    // Running streams, ascending.
    std::vector<uint32_t> activeStreams() const;
    // The running stream's sender, for its counters; null if none.
    std::shared_ptr<StreamSender> sender(uint32_t streamID) const;

private:
    struct Active {
        StreamRequest request;
        std::shared_ptr<WindowCapture> capture;
        std::shared_ptr<StreamSender> sender;
        std::shared_ptr<WireConnection> connection;
    };
    struct Starting {
        StreamRequest request;
        bool cancelled = false;
        uint64_t token = 0;  // tells a start whether the entry is still its own
    };

    // The platform ended this capture: its stream leaves the table, whatever
    // state it is in, unless a newer stream has taken its number.
    void captureEnded(uint32_t streamID, const WindowCapture* capture);
    // The running streams `pick` chooses, each by its number and capture: a
    // wait between two of them may let a newer stream take a chosen number,
    // and that newer stream is not what was chosen.
    using Chosen = std::vector<std::pair<uint32_t, std::shared_ptr<WindowCapture>>>;
    template <class Pick> Chosen runningWhere(Pick pick) const;
    // The chosen stream, if it still runs.
    const Active* stillRunning(uint32_t streamID, const std::shared_ptr<WindowCapture>& capture) const;
    asio::awaitable<void> stopChosen(Chosen chosen);

    const std::shared_ptr<ScreenCapture> platform;
    Logger log{"com.tessel.agent", "streams"};
    std::map<uint32_t, Active> streams;
    std::map<uint32_t, Starting> starting;
    std::map<uint32_t, const WindowCapture*> startingCaptures;
    uint64_t nextToken = 0;
    const std::shared_ptr<EchoCounter> echo;
};

}  // namespace tsl
