#include "TslAgent/StreamManager.h"

#include "TslCore/Support/MonoClock.h"
#include "TslStream/Runtime/MainActor.h"
#include "TslStream/Transport/ControlError.h"

namespace tsl {

StreamManager::StreamManager(std::shared_ptr<ScreenCapture> platform, std::shared_ptr<EchoCounter> echo)
    : platform(std::move(platform)), echo(std::move(echo)) {}

template <class Pick>
StreamManager::Chosen StreamManager::runningWhere(Pick pick) const {
    Chosen chosen;
    for (const auto& [id, active] : streams)
        if (pick(active)) chosen.emplace_back(id, active.capture);
    return chosen;
}

const StreamManager::Active* StreamManager::stillRunning(uint32_t streamID,
                                                          const std::shared_ptr<WindowCapture>& capture) const {
    const auto it = streams.find(streamID);
    return it != streams.end() && it->second.capture == capture ? &it->second : nullptr;
}

asio::awaitable<void> StreamManager::stopChosen(Chosen chosen) {
    for (const auto& [id, capture] : chosen)
        if (stillRunning(id, capture)) co_await stop(id);
}

asio::awaitable<void> StreamManager::start(StreamRequest request, std::shared_ptr<WireConnection> connection) {
    const uint32_t id = request.streamID;
    co_await stop(id);

    auto sender = std::make_shared<StreamSender>(id, request.codec, request.fps, connection);
    std::weak_ptr<StreamManager> weak = weak_from_this();
    // Filled once the capture exists, so its stop can say which capture it was.
    auto self = std::make_shared<const WindowCapture*>(nullptr);
    auto onFrame = [sender, echo = echo](const std::shared_ptr<PixelBuffer>& buffer, FrameGeometry geometry) {
        sender->submit(*buffer, geometry.pixelsPerPoint, geometry.nativeScale, echo->value(), MonoClock::nowNs());
    };
    auto onStop = [weak, id, self](std::exception_ptr) {
        try {
            MainActor::current().post([weak, id, self] {
                if (auto manager = weak.lock()) manager->captureEnded(id, *self);
            });
        } catch (const std::logic_error&) {
            // No main actor any more: nothing left to tidy.
        }
    };
    auto capture = std::make_shared<WindowCapture>(platform, request.windowID, request.fps, request.scale,
                                                   std::move(onFrame), std::move(onStop));
    *self = capture.get();

    const uint64_t token = ++nextToken;
    starting[id] = Starting{request, false, token};
    startingCaptures[id] = capture.get();
    auto leave = [&] {
        // A second start of the same number may have replaced this entry:
        // then this start counts as cancelled.
        auto it = starting.find(id);
        const bool ours = it != starting.end() && it->second.token == token;
        const bool cancelled = !ours || it->second.cancelled;
        if (ours) {
            starting.erase(it);
            startingCaptures.erase(id);
        }
        return cancelled;
    };
    try {
        co_await capture->start();
    } catch (...) {
        leave();
        throw;
    }
    if (leave() || connection->isClosed()) {
        co_await capture->stop();
        sender->stop();
        throw ControlError("cancelled", "stream " + std::to_string(id) + " was stopped while starting");
    }
    streams[id] = Active{request, capture, sender, connection};
    log.info("stream %u started for window %u", id, request.windowID);
}

asio::awaitable<void> StreamManager::stop(uint32_t streamID) {
    if (auto it = starting.find(streamID); it != starting.end()) it->second.cancelled = true;
    auto it = streams.find(streamID);
    if (it == streams.end()) co_return;
    Active active = std::move(it->second);
    streams.erase(it);
    // No new frames first, then the encoder's last ones.
    co_await active.capture->stop();
    active.sender->stop();
}

asio::awaitable<void> StreamManager::update(StreamRequest request) {
    auto it = streams.find(request.streamID);
    if (it == streams.end()) throw ControlError("notFound", "stream " + std::to_string(request.streamID));
    auto capture = it->second.capture;
    auto sender = it->second.sender;
    co_await capture->setScale(request.scale);
    sender->requestKeyframe();
}

void StreamManager::requestKeyframe(uint32_t streamID) {
    if (auto it = streams.find(streamID); it != streams.end()) it->second.sender->requestKeyframe();
}

asio::awaitable<void> StreamManager::stopAll() {
    for (auto& [id, entry] : starting) entry.cancelled = true;
    co_await stopChosen(runningWhere([](const Active&) { return true; }));
}

asio::awaitable<void> StreamManager::stopAll(std::shared_ptr<WireConnection> on) {
    co_await stopChosen(runningWhere([&](const Active& a) { return a.connection == on; }));
}

asio::awaitable<void> StreamManager::windowResized(GuestWindow window) {
    const Size points{window.frame.width, window.frame.height};
    for (const auto& [id, capture] : runningWhere([&](const Active& a) { return a.request.windowID == window.windowID; })) {
        const Active* active = stillRunning(id, capture);
        if (!active) continue;  // stopped while an earlier one resized
        auto sender = active->sender;
        try {
            co_await capture->resize(points);
        } catch (const std::exception&) {
            // The stream runs on at its old size; the key frame helps all the same.
        }
        sender->requestKeyframe();
    }
}

asio::awaitable<void> StreamManager::windowClosed(uint32_t windowID) {
    for (auto& [id, entry] : starting)
        if (entry.request.windowID == windowID) entry.cancelled = true;
    co_await stopChosen(runningWhere([&](const Active& a) { return a.request.windowID == windowID; }));
}

void StreamManager::windowRestored(uint32_t windowID) {
    for (auto& [id, active] : streams)
        if (active.request.windowID == windowID) active.sender->requestKeyframe();
}

void StreamManager::captureEnded(uint32_t streamID, const WindowCapture* capture) {
    if (auto it = streams.find(streamID); it != streams.end() && it->second.capture.get() == capture) {
        MainActor::current().spawn([weak = weak_from_this(), streamID]() -> asio::awaitable<void> {
            if (auto self = weak.lock()) co_await self->stop(streamID);
        });
        return;
    }
    if (auto it = startingCaptures.find(streamID); it != startingCaptures.end() && it->second == capture)
        starting[streamID].cancelled = true;
}

std::vector<uint32_t> StreamManager::activeStreams() const {
    std::vector<uint32_t> ids;
    for (const auto& [id, active] : streams) ids.push_back(id);
    return ids;
}

std::shared_ptr<StreamSender> StreamManager::sender(uint32_t streamID) const {
    auto it = streams.find(streamID);
    return it == streams.end() ? nullptr : it->second.sender;
}

}  // namespace tsl
