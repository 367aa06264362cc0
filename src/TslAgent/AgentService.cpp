#include "TslAgent/AgentService.h"

#include <sys/utsname.h>

#include <algorithm>
#include <cmath>

#include "TslAgent/GuestDocuments.h"
#include "TslAgent/StatusReport.h"
#include "TslCore/Support/TesselVersion.h"
#include "TslStream/Runtime/MainActor.h"

namespace tsl {
namespace {

std::string operatingSystemVersion() {
    utsname name{};
    if (::uname(&name) != 0) return "unknown";
    return std::string(name.sysname) + " " + name.release + " (" + name.version + ")";
}

constexpr const char* buildArch() {
#if defined(__aarch64__)
    return "arm64";
#else
    return "x86_64";
#endif
}

// Channel callbacks run on reader threads, which may outlive the main actor
// as the process (or a test) ends; work for a main actor that is gone is dropped.
template <class Post>
void toMainActor(Post post) {
    try {
        post(MainActor::current());
    } catch (const std::logic_error&) {
    }
}

bool finiteBelow(double v, double bound) { return std::isfinite(v) && std::fabs(v) < bound; }

}  // namespace

AgentService::AgentService(AgentConfig config, PlatformServices platform, ProcessExit exit)
    : _config(std::move(config)),
      platform(std::move(platform)),
      exit(std::move(exit)),
      streams(std::make_shared<StreamManager>(this->platform.screenCapture, echo)),
      input(std::make_shared<InputPath>(this->platform, _windowCache,
                                        InputInjector(_config.injectionMode, this->platform.eventPoster), echo)),
      _clipboard(Hello::Role::agent, this->platform.pasteboard) {
    // Streams follow their windows: a resize re-sizes the capture, a close ends it.
    windowStreams = WindowStreamHooks::of(*streams);
}

Hello AgentService::agentHelloBase() {
    Hello hello;
    hello.protocolVersion = Hello::currentProtocolVersion;
    hello.role = Hello::Role::agent;
    hello.softwareVersion = std::string(TesselVersion::string);
    hello.osVersion = operatingSystemVersion();
    hello.arch = buildArch();
    hello.capabilities = {"h264", "raw", "clipboard", "menus", std::string(Capability::streamUpdate)};
    hello.agentProto = AgentProtocol::current;
    return hello;
}

void AgentService::startBackgroundWork() {
    if (!_config.isSimulation) {
        // Both only bring up the system's dialog; status tells the host what was granted.
        if (!platform.screenCapture->preflightAccess()) platform.screenCapture->requestAccess();
        if (!platform.accessibility->isProcessTrusted()) platform.accessibility->isProcessTrustedWithOptions(true);
        GuestDocuments::pointPanelsAtSharedDocuments(platform);
    }
    if (_config.clipboardSync) startClipboardSync();
    startWindowTracking();
}

const AgentService::RowTable& AgentService::rows() {
    static const RowTable table = [] {
        RowTable t{};
        t[size_t(ControlMessage::Kind::hello)] = &AgentService::hello;
        t[size_t(ControlMessage::Kind::status)] = &AgentService::status;
        t[size_t(ControlMessage::Kind::listWindows)] = &AgentService::listWindows;
        t[size_t(ControlMessage::Kind::windowAction)] = &AgentService::windowAction;
        t[size_t(ControlMessage::Kind::startStream)] = &AgentService::startStream;
        t[size_t(ControlMessage::Kind::stopStream)] = &AgentService::stopStream;
        t[size_t(ControlMessage::Kind::updateStream)] = &AgentService::updateStream;
        t[size_t(ControlMessage::Kind::requestKeyframe)] = &AgentService::requestKeyframe;
        t[size_t(ControlMessage::Kind::listApps)] = &AgentService::listApps;
        t[size_t(ControlMessage::Kind::launchApp)] = &AgentService::launchApp;
        t[size_t(ControlMessage::Kind::quitApp)] = &AgentService::quitApp;
        t[size_t(ControlMessage::Kind::installApp)] = &AgentService::installApp;
        t[size_t(ControlMessage::Kind::getMenu)] = &AgentService::getMenu;
        t[size_t(ControlMessage::Kind::pressMenu)] = &AgentService::pressMenu;
        t[size_t(ControlMessage::Kind::clipboard)] = &AgentService::clipboard;
        return t;
    }();
    return table;
}

asio::awaitable<ControlMessage> AgentService::respond(ControlMessage message) {
    Row row = rows()[size_t(message.kind())];
    if (!row) throw ControlError("unsupported", "agent does not handle " + ControlChannel::caseName(message));
    co_return co_await (this->*row)(std::move(message));
}

asio::awaitable<ControlMessage> AgentService::hello(ControlMessage) { co_return ControlMessage::Hello{agentHelloBase()}; }

asio::awaitable<ControlMessage> AgentService::status(ControlMessage) {
    StatusReport::Inputs inputs;
    inputs.uptimeSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    inputs.isSimulation = _config.isSimulation;
    inputs.activeStreams = streams->activeStreams();
    co_return ControlMessage::Status{StatusReport::make(inputs, platform)};
}

void AgentService::attach(const std::shared_ptr<ControlChannel>& channel, const std::set<Channel>& channels,
                          Greeting greeting) {
    bool isControl = channels.empty() || channels.contains(Channel::control);
    _attached.push_back(channel);
    if (greeting == Greeting::awaitingHello) _awaitingHello.emplace_back(channel, channels);
    else takeAsVideo(channel, channels);
    // Input goes straight from the reading thread into the guest, never
    // through the main actor; the closure holds the input path, not the service.
    channel->setOnFrame([input = input](WireMessage frame) {
        if (auto* event = std::get_if<InputEvent>(&frame.payload)) input->inject(*event);
    });
    std::weak_ptr<AgentService> weakSelf = weak_from_this();
    std::weak_ptr<ControlChannel> weakChannel = channel;
    if (isControl) {
        _controls.push_back(channel);
        channel->setOnUnsolicited([weakSelf, weakChannel](ControlEnvelope envelope) {
            toMainActor([&](MainActor& main) {
                main.spawn([weakSelf, weakChannel, envelope = std::move(envelope)]() -> asio::awaitable<void> {
                    auto self = weakSelf.lock();
                    auto channel = weakChannel.lock();
                    if (self && channel) co_await self->handle(envelope, channel);
                });
            });
        });
    }
    channel->setOnClose([weakSelf, weakChannel](std::exception_ptr) {
        toMainActor([&](MainActor& main) {
            main.post([weakSelf, weakChannel] {
                if (auto self = weakSelf.lock()) self->detach(weakChannel.lock());
            });
        });
    });
}

void AgentService::takeAsVideo(const std::shared_ptr<ControlChannel>& channel, const std::set<Channel>& channels) {
    if (channels.contains(Channel::video) || (channels.empty() && !_videoConnection))
        _videoConnection = channel->connection;
}

auto AgentService::awaitingHello(const std::shared_ptr<ControlChannel>& channel) -> decltype(_awaitingHello)::iterator {
    return std::find_if(_awaitingHello.begin(), _awaitingHello.end(),
                        [&](const auto& entry) { return entry.first == channel; });
}

void AgentService::helloAnswered(const std::shared_ptr<ControlChannel>& channel) {
    const auto it = awaitingHello(channel);
    if (it == _awaitingHello.end()) return;
    const std::set<Channel> channels = std::move(it->second);
    _awaitingHello.erase(it);
    if (!channel->connection->isClosed()) takeAsVideo(channel, channels);
}

void AgentService::postToHosts(const ControlMessage& message) {
    for (const auto& channel : _controls) {
        if (awaitingHello(channel) != _awaitingHello.end()) continue;
        try {
            channel->post(message);
        } catch (const std::exception&) {
            // A dead channel is cleaned up by its close handler.
        }
    }
}

void AgentService::detach(const std::shared_ptr<ControlChannel>& channel) {
    if (channel) {
        channel->setOnUnsolicited(nullptr);
        channel->setOnFrame(nullptr);
    }
    auto gone = [&](const std::shared_ptr<ControlChannel>& entry) {
        return entry == channel || entry->connection->isClosed();
    };
    std::erase_if(_controls, gone);
    std::erase_if(_attached, gone);
    std::erase_if(_awaitingHello, [&](const auto& entry) { return gone(entry.first); });
    if (_videoConnection && _videoConnection->isClosed()) {
        auto closed = std::move(_videoConnection);
        _videoConnection.reset();
        MainActor::current().spawn([manager = streams, closed]() -> asio::awaitable<void> { co_await manager->stopAll(closed); });
    }
    if (_controls.empty()) {
        MainActor::current().spawn([manager = streams]() -> asio::awaitable<void> { co_await manager->stopAll(); });
        if (_config.exitOnDisconnect) {
            log.notice("host disconnected; exiting (simulation)");
            exit(0);
        }
    }
}

asio::awaitable<void> AgentService::handle(ControlEnvelope envelope, std::shared_ptr<ControlChannel> channel) {
    ControlMessage reply = ControlMessage::Ok{};
    try {
        reply = co_await respond(envelope.message);
    } catch (const std::exception& e) {
        std::string description = e.what();
        log.error("request failed: %{public}s", description);
        reply = ControlMessage::Error{ErrorInfo{"failed", description}};
    }
    try {
        channel->reply(envelope, reply);
    } catch (const std::exception&) {
        // The channel is closing; its close handler cleans up.
    }
}

void AgentService::validateStreamRequest(const StreamRequest& request) {
    bool fpsOK = request.fps >= 1 && request.fps <= 120;
    bool scaleOK = std::isfinite(request.scale) && request.scale >= 0.1 && request.scale <= 2.0;
    if (!fpsOK || !scaleOK) throw ControlError("badRequest", "fps must be 1…120 and scale 0.1…2.0");
}

void AgentService::validate(const WindowAction& action) {
    if (!action.frame) return;
    const WireRect& f = *action.frame;
    constexpr double bound = 100000;
    bool ok = finiteBelow(f.x, bound) && finiteBelow(f.y, bound) && finiteBelow(f.width, bound) &&
              finiteBelow(f.height, bound) && f.width >= 0 && f.height >= 0;
    if (!ok) throw ControlError("badRequest", "window frame out of range");
}

}  // namespace tsl
