#pragma once
#include <asio/awaitable.hpp>

#include <array>
#include <chrono>
#include <memory>
#include <set>
#include <vector>

#include "TslAgent/AgentConfig.h"
#include "TslAgent/InputPath.h"
#include "TslAgent/InstallQueue.h"
#include "Platform/Platform.h"
#include "TslAgent/ProcessExit.h"
#include "TslAgent/WindowCache.h"
#include "TslAgent/WindowTracking.h"
#include "TslStream/Clipboard/ClipboardSync.h"
#include "TslStream/Runtime/Timers.h"
#include "TslAgent/StreamManager.h"
#include "TslStream/Pipeline/EchoCounter.h"
#include "TslStream/Support/Logger.h"
#include "TslStream/Transport/Channel.h"
#include "TslStream/Transport/ControlChannel.h"

namespace tsl {

// The agent's one long-lived object: keeps the connected channels, answers
// each control request, and runs the agent's periodic work.
//
// Main actor only, except agentHelloBase and the validators. Held by
// shared_ptr: channel callbacks hold it weakly.
class AgentService : public std::enable_shared_from_this<AgentService> {
public:
    AgentService(AgentConfig config, PlatformServices platform, ProcessExit exit = exitProcess);

    // The agent's hello; a dialling agent appends the channel's raw value.
    static Hello agentHelloBase();

    // Once, before the runner starts.
    void startBackgroundWork();

    // Takes over a channel whose hello was accepted, before its first request
    // can arrive. An empty set is a connection that serves as everything.
    // A channel still awaiting the answer to its hello carries requests and
    // input at once, but nothing the agent sends of its own accord (events,
    // video) until `helloAnswered`: the host takes only a hello first.
    enum class Greeting { done, awaitingHello };
    void attach(const std::shared_ptr<ControlChannel>& channel, const std::set<Channel>& channels,
                Greeting greeting = Greeting::done);
    void helloAnswered(const std::shared_ptr<ControlChannel>& channel);

    // Throw ControlError "badRequest" with the texts the host knows.
    static void validate(const WindowAction& action);
    static void validateStreamRequest(const StreamRequest& request);

    // What a request is answered with, or the ControlError it is refused with.
    asio::awaitable<ControlMessage> respond(ControlMessage message);

    const AgentConfig& config() const { return _config; }
    const std::vector<std::shared_ptr<ControlChannel>>& controls() const { return _controls; }
    const std::vector<std::shared_ptr<ControlChannel>>& attached() const { return _attached; }
    const std::shared_ptr<WireConnection>& videoConnection() const { return _videoConnection; }
    const std::shared_ptr<StreamManager>& streamManager() const { return streams; }
    const std::shared_ptr<EchoCounter>& echoCounter() const { return echo; }
    const std::shared_ptr<InputPath>& inputPath() const { return input; }
    ClipboardSync& clipboardSync() { return _clipboard; }

    // One tracking tick: the timer's work, also run once at start.
    void trackWindows();
    // Shared with the input path, which reads it on the channels' threads.
    const std::shared_ptr<WindowCache>& windowCache() const { return _windowCache; }
    WindowTracker& windowTracking() { return tracking; }
    // Where tracking tells the stream side of resizes, closes and restores.
    void setWindowStreamHooks(WindowStreamHooks hooks) { windowStreams = std::move(hooks); }

private:
    // A row of the request table: a member coroutine answering one case.
    using Row = asio::awaitable<ControlMessage> (AgentService::*)(ControlMessage);
    using RowTable = std::array<Row, ControlMessage::kindCount>;
    static const RowTable& rows();

    void detach(const std::shared_ptr<ControlChannel>& channel);
    void startWindowTracking();
    asio::awaitable<void> handle(ControlEnvelope envelope, std::shared_ptr<ControlChannel> channel);

    asio::awaitable<ControlMessage> hello(ControlMessage request);
    asio::awaitable<ControlMessage> status(ControlMessage request);
    asio::awaitable<ControlMessage> listWindows(ControlMessage request);
    asio::awaitable<ControlMessage> windowAction(ControlMessage request);
    // Streams (AgentServiceStreams.cpp).
    asio::awaitable<ControlMessage> startStream(ControlMessage request);
    asio::awaitable<ControlMessage> stopStream(ControlMessage request);
    asio::awaitable<ControlMessage> updateStream(ControlMessage request);
    asio::awaitable<ControlMessage> requestKeyframe(ControlMessage request);
    // Guest applications (AgentServiceApps.cpp).
    asio::awaitable<ControlMessage> listApps(ControlMessage request);
    asio::awaitable<ControlMessage> launchApp(ControlMessage request);
    asio::awaitable<ControlMessage> quitApp(ControlMessage request);
    asio::awaitable<ControlMessage> installApp(ControlMessage request);
    // Menus (AgentServiceMenus.cpp).
    asio::awaitable<ControlMessage> getMenu(ControlMessage request);
    asio::awaitable<ControlMessage> pressMenu(ControlMessage request);
    // Clipboard (AgentServiceClipboard.cpp).
    asio::awaitable<ControlMessage> clipboard(ControlMessage request);
    void startClipboardSync();
    // Posts to every control channel the host has greeted; a send error
    // drops only that channel's copy.
    void postToHosts(const ControlMessage& message);
    void takeAsVideo(const std::shared_ptr<ControlChannel>& channel, const std::set<Channel>& channels);

    const AgentConfig _config;
    const PlatformServices platform;
    const ProcessExit exit;
    Logger log{"com.tessel.agent", "service"};
    InstallQueue installs;
    const std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
    std::vector<std::shared_ptr<ControlChannel>> _controls;
    std::vector<std::shared_ptr<ControlChannel>> _attached;
    // Channels whose hello is unanswered, with what each will serve.
    std::vector<std::pair<std::shared_ptr<ControlChannel>, std::set<Channel>>> _awaitingHello;
    decltype(_awaitingHello)::iterator awaitingHello(const std::shared_ptr<ControlChannel>& channel);
    std::shared_ptr<WireConnection> _videoConnection;
    const std::shared_ptr<WindowCache> _windowCache = std::make_shared<WindowCache>();
    WindowTracker tracking;
    WindowStreamHooks windowStreams;
    std::unique_ptr<RepeatingTimer> tracker;
    const std::shared_ptr<EchoCounter> echo = std::make_shared<EchoCounter>();
    const std::shared_ptr<StreamManager> streams;
    const std::shared_ptr<InputPath> input;
    ClipboardSync _clipboard;
};

}  // namespace tsl
