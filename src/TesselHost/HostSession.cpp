#include "TesselHost/HostSession.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <thread>

#include "TslCore/Measure/TestPattern.h"
#include "TslCore/Support/Error.h"
#include "TslCore/Support/MonoClock.h"
#include "TslCore/Support/TesselVersion.h"
#include "TslStream/Agent/AgentAcceptor.h"
#include "TslStream/Runtime/GlobalQueue.h"
#include "TslStream/Runtime/Task.h"
#include "TslStream/Transport/Channel.h"
#include "TslStream/Transport/Socket.h"

namespace tsl::host {
namespace {

constexpr double requestTimeout = 10.0;

template <class Task>
auto blocking(Task task, double seconds) {
    return runBlocking(GlobalQueue::executor(), std::move(task),
                       std::chrono::milliseconds(int64_t(seconds * 1000) + 5000));
}

// Polls: a link's channels attach on reader threads and announce nothing.
bool pollUntil(const std::function<bool()>& done, double seconds, const std::atomic<bool>* cancelled = nullptr) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline || (cancelled && *cancelled)) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

}  // namespace

Hello hostHello(std::vector<std::string> capabilities) {
    Hello hello;
    hello.protocolVersion = Hello::currentProtocolVersion;
    hello.role = Hello::Role::host;
    hello.softwareVersion = std::string(TesselVersion::string);
    utsname name{};
    hello.osVersion = ::uname(&name) == 0 ? std::string(name.sysname) + " " + name.release : "unknown";
    hello.arch = "arm64";
    hello.capabilities = std::move(capabilities);
    return hello;
}

std::shared_ptr<AgentLink> dialAgent(const SocketEndpoint& agent, double timeout) {
    std::shared_ptr<ControlChannel> channels[3];
    std::optional<Hello> agentHello;
    try {
        for (Channel c : allChannels) {
            auto channel = std::make_shared<ControlChannel>(
                std::make_shared<WireConnection>(connectSocket(agent), "agent-" + std::string(rawValue(c))));
            channel->start();
            auto reply = blocking(
                channel->request(ControlMessage::Hello{hostHello({std::string(rawValue(c))})}, timeout), timeout);
            auto* hello = reply.get<ControlMessage::Hello>();
            if (!hello) throw Error("the agent answered the hello with something else");
            if (c == Channel::control) agentHello = hello->value;
            channels[size_t(c)] = channel;
        }
    } catch (const Error&) {
        for (auto& c : channels)
            if (c) c->close();
        throw;
    } catch (const std::exception& e) {
        for (auto& c : channels)
            if (c) c->close();
        throw Error(std::string("cannot reach the agent: ") + e.what());
    }
    auto link = AgentLink::make(channels[0], *agentHello);
    link->attachVideoChannel(channels[1]);
    link->attachInputChannel(channels[2]);
    return link;
}

std::shared_ptr<AgentLink> awaitAgent(const SocketEndpoint& at, double timeout, const std::atomic<bool>& cancelled,
                                      const std::function<void(const std::string&)>& listening) {
    auto acceptor = std::make_shared<AgentAcceptor>(hostHello({}));
    std::shared_ptr<SocketListener> listener;
    try {
        listener = std::make_shared<SocketListener>(at, 8);
    } catch (const std::exception& e) {
        throw Error(std::string("cannot listen: ") + e.what());
    }
    if (listening) {
        std::string where = at.description();
        if (auto port = listener->boundTCPPort(); port && at.description().ends_with(":0"))
            where = where.substr(0, where.size() - 1) + std::to_string(*port);
        listening(where);
    }
    const bool unixSocket = at.description().starts_with("unix:");
    std::thread accepting([listener, weak = std::weak_ptr<AgentAcceptor>(acceptor), unixSocket] {
        setThreadName("tsl.view.accept");
        for (int n = 0;;) {
            int fd;
            try {
                fd = listener->accept();
            } catch (const std::exception&) {
                return;
            }
            auto target = weak.lock();
            if (!target || (unixSocket && !peerIsThisUser(fd))) {
                ::close(fd);
                continue;
            }
            target->accept(fd, "agent-" + std::to_string(++n), std::nullopt);
        }
    });
    std::shared_ptr<AgentLink> link;
    pollUntil(
        [&] {
            link = acceptor->currentLink();
            return link && link->isLive() && link->videoChannel() && link->inputChannel();
        },
        timeout, &cancelled);
    listener->close();
    accepting.join();
    if (!link || !link->videoChannel() || !link->inputChannel()) {
        if (link) link->close();
        throw Error(cancelled ? "interrupted while waiting for the agent" : "no agent dialled in");
    }
    return link;
}

HostSession::HostSession(std::shared_ptr<AgentLink> link, StreamSettings settings)
    : settings(settings), link(std::move(link)) {}

HostSession::~HostSession() {
    try {
        stop();
    } catch (...) {
    }
}

void HostSession::begin(PictureSink pictures, EventSink events) {
    sink = std::move(pictures);
    {
        std::lock_guard guard(lock);
        started = MonoClock::nowNs();
    }
    if (events) link->onEvent([events](ControlEnvelope e) { events(e.message); });
    link->onVideo([this](const VideoFrameHeader& header, const Bytes& payload) { onVideo(header, payload); });
}

ControlMessage HostSession::request(ControlMessage message) {
    if (!link) throw Error("the agent is gone");
    try {
        return blocking(link->control->request(std::move(message), requestTimeout), requestTimeout);
    } catch (const std::exception& e) {
        throw Error(std::string("the agent did not do it: ") + e.what());
    }
}

std::vector<GuestWindow> HostSession::windows(std::optional<int32_t> pid) {
    std::vector<GuestWindow> out;
    auto reply = request(ControlMessage::ListWindows{{.pid = pid}});
    if (auto* list = reply.get<ControlMessage::WindowList>())
        for (const auto& w : list->value)
            if (w.isOnScreen && !w.isMinimized) out.push_back(w);
    return out;
}

void HostSession::stream(const GuestWindow& window) {
    uint32_t streamID;
    {
        std::lock_guard guard(lock);
        for (const auto& [id, w] : windowOfStream)
            if (w == window.windowID) return;
        streamID = ++lastStreamID;
        windowOfStream[streamID] = window.windowID;
        mappers[window.windowID] = std::make_shared<SharedInputMapper>(window.windowID);
    }
    receiver.allow(streamID);
    request(ControlMessage::StartStream{{streamID, window.windowID, settings.fps, settings.scale, settings.codec}});
}

void HostSession::unstream(uint32_t windowID, bool askAgent) {
    std::optional<uint32_t> streamID;
    {
        std::lock_guard guard(lock);
        for (auto it = windowOfStream.begin(); it != windowOfStream.end(); ++it)
            if (it->second == windowID) {
                streamID = it->first;
                windowOfStream.erase(it);
                break;
            }
        mappers.erase(windowID);
    }
    if (streamID && askAgent) request(ControlMessage::StopStream{*streamID});
}

bool HostSession::streams(uint32_t windowID) const {
    std::lock_guard guard(lock);
    return mappers.contains(windowID);
}

void HostSession::measureWindow(uint32_t windowID) { patternWindow = windowID; }

void HostSession::onVideo(const VideoFrameHeader& header, const Bytes& payload) {
    const uint64_t arrived = MonoClock::nowNs();
    std::shared_ptr<PixelBuffer> picture;
    receiver.handle(header, payload, [&](const DecodedFrame& frame) { picture = frame.pixelBuffer; });
    const uint64_t decoded = MonoClock::nowNs();
    const double scale = header.contentScale / 100.0;
    uint32_t window = 0;
    {
        std::lock_guard guard(lock);
        framesReceived += 1;
        lastEcho = header.inputEcho;
        // The agent runs on this machine: one clock on both sides.
        if (header.guestTimestampNs <= arrived)
            captureToArrivalMs.push_back(double(arrived - header.guestTimestampNs) / 1e6);
        decodeMs.push_back(double(decoded - arrived) / 1e6);
        size_t second = size_t((arrived - started) / 1'000'000'000ull);
        if (second < 100000) {
            if (perSecond.size() <= second) perSecond.resize(second + 1);
            perSecond[second] += 1;
        }
        auto found = windowOfStream.find(header.streamID);
        if (found != windowOfStream.end()) window = found->second;
    }
    if (!picture || window == 0) return;
    if (window == patternWindow) probe.onFrame(*picture, scale);
    if (sink) sink(window, picture, scale);
}

std::optional<double> HostSession::measureOnce(bool white) {
    auto mapper = inputFor(patternWindow);
    if (!mapper) return std::nullopt;
    auto event = mapper->map(InputMapper::HostEvent{.type = white ? InputMapper::keyDown : InputMapper::keyUp,
                                                    .keyCode = TestPatternSpec::f1KeyCode});
    auto latency = probe.measure(white, 2.0, [&] { link->sendInput(*event); });
    if (latency) {
        std::lock_guard guard(lock);
        latencyMs.push_back(*latency);
    }
    return latency;
}

void HostSession::measureRoundTrips(int count, int fps, const std::atomic<bool>& stop,
                                    const std::function<void(int)>& step) {
    std::mt19937 random(12345);
    std::uniform_real_distribution<double> phase(0.0, 1.0 / std::max(fps, 1));
    for (int i = 0; i < count && !stop; ++i) {
        std::this_thread::sleep_for(std::chrono::duration<double>(phase(random)));
        measureOnce(i % 2 == 0);
        if (step) step(i + 1);
    }
}

void HostSession::sendInput(const InputEvent& event) {
    if (link) link->sendInput(event);
}

std::shared_ptr<SharedInputMapper> HostSession::inputFor(uint32_t windowID) const {
    std::lock_guard guard(lock);
    auto found = mappers.find(windowID);
    return found == mappers.end() ? nullptr : found->second;
}

void HostSession::stop() {
    if (!link) return;
    std::map<uint32_t, uint32_t> streaming;
    {
        std::lock_guard guard(lock);
        streaming = windowOfStream;
    }
    if (link->isLive())
        for (const auto& [streamID, window] : streaming) {
            try {
                request(ControlMessage::StopStream{streamID});
            } catch (const std::exception&) {
                // The link goes next anyway.
            }
        }
    link->invalidate();
    link->close();
    link.reset();
}

SimFigures HostSession::figures() const {
    SimFigures f;
    auto snapshot = probe.snapshot();
    f.framesLost = snapshot.dropped;
    f.decodeErrors = receiver.decodeErrors();
    std::lock_guard guard(lock);
    f.framesReceived = framesReceived;
    f.lastEcho = lastEcho;
    f.latencyMs = latencyMs;
    f.captureToArrivalMs = captureToArrivalMs;
    f.decodeMs = decodeMs;
    f.seconds = started ? double(MonoClock::nowNs() - started) / 1e9 : 0;
    // The second under way is partial: its count would read as a drop.
    f.framesPerSecond.assign(perSecond.begin(), perSecond.begin() + std::min(perSecond.size(), size_t(f.seconds)));
    return f;
}

}  // namespace tsl::host
