#include "TslAgent/AgentRunner.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

#include "TslAgent/BlockingRequest.h"
#include "TslStream/Transport/HandshakeGate.h"
#include "TslStream/Runtime/MainActor.h"

namespace tsl {
namespace {

constexpr double helloTimeout = 10.0;
constexpr double listenHelloLimit = 5.0;
constexpr double firstRetryDelay = 0.5;
constexpr double longestRetryDelay = 5.0;
constexpr double shortagePause = 0.05;

bool isAcceptableHostHello(const ControlMessage& message) {
    auto hello = message.get<ControlMessage::Hello>();
    return hello && hello->value.role == Hello::Role::host &&
           hello->value.protocolVersion == Hello::currentProtocolVersion;
}

std::string joinedDescriptions(const std::vector<SocketEndpoint>& endpoints) {
    std::string text;
    for (const auto& e : endpoints) text += (text.empty() ? "" : ",") + e.description();
    return text;
}

}  // namespace

AgentRunner::AgentRunner(AgentConfig config, std::shared_ptr<AgentService> service, ProcessExit exit)
    : config(std::move(config)), service(std::move(service)), exit(std::move(exit)) {}

AgentRunner::~AgentRunner() {
    stop();
    if (thread.joinable()) thread.join();
}

void AgentRunner::run() {
    thread = std::thread([this] {
        setThreadName("tsl.runner");
        if (auto listen = config.mode.get<AgentConfig::Mode::Listen>())
            listenLoop(listen->endpoint);
        else
            dialLoop(config.mode.get<AgentConfig::Mode::Connect>()->endpoints);
    });
}

void AgentRunner::stop() {
    std::shared_ptr<DialRound> round;
    std::shared_ptr<SocketListener> open;
    {
        std::lock_guard guard(lock);
        stopping = true;
        round = currentRound;
        open = listener;
    }
    wake.notify_all();
    if (round) round->closeAll();
    if (open) open->close();
}

bool AgentRunner::isStopping() {
    std::lock_guard guard(lock);
    return stopping;
}

bool AgentRunner::pause(double seconds) {
    std::unique_lock guard(lock);
    return !wake.wait_for(guard, fromSeconds(seconds), [&] { return stopping; });
}

std::vector<std::pair<SocketEndpoint, Channel>> AgentRunner::plan(const std::vector<SocketEndpoint>& endpoints) {
    std::vector<std::pair<SocketEndpoint, Channel>> result;
    if (endpoints.empty()) return result;
    for (size_t i = 0; i < allChannels.size(); ++i)
        result.emplace_back(endpoints.size() >= 3 ? endpoints[i] : endpoints[0], allChannels[i]);
    return result;
}

void AgentRunner::dialLoop(const std::vector<SocketEndpoint>& endpoints) {
    double delay = firstRetryDelay;
    while (!isStopping()) {
        auto round = dialOnce(config.currentEndpoints(endpoints));
        if (!round) {
            if (!pause(delay)) return;
            delay = std::min(delay * 2, longestRetryDelay);
            continue;
        }
        round->sem.acquire();
        if (isStopping()) return;
        if (config.exitOnDisconnect) {
            exit(0);
            return;
        }
        delay = firstRetryDelay;
    }
}

std::shared_ptr<DialRound> AgentRunner::dialOnce(const std::vector<SocketEndpoint>& endpoints) {
    auto round = std::make_shared<DialRound>();
    {
        std::lock_guard guard(lock);
        if (stopping) return nullptr;
        currentRound = round;
    }
    for (const auto& [endpoint, channel] : plan(endpoints)) {
        if (!dialChannel(round, endpoint, channel)) {
            round->closeAll();
            return nullptr;
        }
    }
    if (round->arm()) {
        round->closeAll();
        return nullptr;
    }
    log.info("connected to host on %{public}s", joinedDescriptions(endpoints));
    return round;
}

bool AgentRunner::dialChannel(const std::shared_ptr<DialRound>& round, const SocketEndpoint& endpoint,
                              Channel channel) {
    std::string label = "agent-" + std::string(rawValue(channel));
    int fd;
    try {
        fd = connectSocket(endpoint);
    } catch (const std::exception&) {
        return false;  // what a guest meets all the time while the host is away
    }
    auto control = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(fd, label));
    round->add(control);
    MainActor::current().sync([&] {
        // Until the host answers our hello the service sends nothing of its
        // own on this channel: the host takes only a hello first.
        service->attach(control, {channel}, AgentService::Greeting::awaitingHello);
        if (channel == Channel::control) {
            auto previous = control->onClose();
            // Weakly: the round holds its channels.
            control->setOnClose([previous, weakRound = std::weak_ptr<DialRound>(round)](std::exception_ptr error) {
                if (previous) previous(error);
                if (auto r = weakRound.lock()) r->controlClosed();
            });
        }
    });
    if (isStopping()) return false;
    control->start();
    Hello hello = AgentService::agentHelloBase();
    hello.capabilities.emplace_back(rawValue(channel));
    auto reply = BlockingRequest::run(control, ControlMessage::Hello{hello}, helloTimeout);
    if (!reply || !isAcceptableHostHello(*reply)) {
        log.error("handshake failed on %{public}s", rawValue(channel));
        return false;
    }
    MainActor::current().sync([&] { service->helloAnswered(control); });
    return true;
}

void AgentRunner::listenLoop(const SocketEndpoint& endpoint) {
    std::shared_ptr<SocketListener> made;
    // The parser lets TCP through only on loopback, for a real desktop.
    const auto* tcp = endpoint.get<SocketEndpoint::Tcp>();
    const bool loopback = tcp && tcp->host == "127.0.0.1";
    try {
        if (!endpoint.isUnix() && !loopback) throw std::runtime_error("not a unix endpoint");
        made = std::make_shared<SocketListener>(endpoint, 8);
    } catch (const std::exception&) {
        log.error("cannot listen on %{public}s (unix sockets only)", endpoint.description());
        exit(1);
        return;
    }
    {
        std::lock_guard guard(lock);
        if (stopping) return;
        listener = made;
    }
    // Port 0 lets the system choose; the line names the port it chose.
    const SocketEndpoint shown =
        loopback ? SocketEndpoint::tcp(tcp->host, made->boundTCPPort().value_or(tcp->port)) : endpoint;
    std::printf("TesselAgent listening on %s\n", shown.description().c_str());
    std::fflush(stdout);
    // The listener stays open for the agent's life: a shortage of descriptors,
    // threads or memory only makes it wait a moment before it accepts again.
    bool shortReported = false;
    auto pushBack = [&](const std::string& what) {
        if (!std::exchange(shortReported, true)) log.error("cannot take connections for now (%{public}s); waiting", what);
        return pause(shortagePause);
    };
    // Connections awaiting their hello belong to this thread, which also ends
    // their wait at the limit: no timer per connection outlives it.
    std::vector<AwaitingHello> awaiting;
    for (int count = 0;;) {
        std::optional<std::chrono::milliseconds> wait;
        if (auto earliest = expireHellos(awaiting))
            wait = std::chrono::ceil<std::chrono::milliseconds>(*earliest - std::chrono::steady_clock::now());
        if (!made->awaitPeer(wait)) continue;
        int fd;
        try {
            fd = made->accept();
        } catch (const SocketError& e) {
            if (isStopping() || !pushBack(e.description())) break;
            continue;
        }
        if (endpoint.isUnix() && !peerIsThisUser(fd)) {
            log.error("rejected a connection from another user");
            ::close(fd);
            continue;
        }
        expireHellos(awaiting);
        if (awaiting.size() >= HandshakeGate::maxPending) {
            ::close(fd);  // as the host's acceptor does past its limit
            continue;
        }
        std::optional<AwaitingHello> accepted;
        if (auto error = caughtError([&] { accepted = acceptConnection(fd, ++count); })) {
            std::string what = "connection set-up failed";
            try {
                std::rethrow_exception(error);
            } catch (const std::exception& e) {
                what = e.what();
            }
            if (!pushBack(what)) break;
            continue;
        }
        awaiting.push_back(std::move(*accepted));
        shortReported = false;
    }
    for (auto& a : awaiting)
        if (auto channel = a.channel.lock()) channel->close();
    std::lock_guard guard(lock);
    listener.reset();
}

std::optional<std::chrono::steady_clock::time_point> AgentRunner::expireHellos(std::vector<AwaitingHello>& awaiting) {
    auto now = std::chrono::steady_clock::now();
    std::optional<std::chrono::steady_clock::time_point> earliest;
    std::erase_if(awaiting, [&](AwaitingHello& a) {
        if (a.deadline <= now) {
            auto channel = a.channel.lock();  // before the gate lets go of it
            if (a.gate->pass() && channel) channel->close();
        }
        if (!a.gate->isOpen()) return true;
        earliest = earliest ? std::min(*earliest, a.deadline) : a.deadline;
        return false;
    });
    return earliest;
}

// Takes over `fd` whatever happens: on a throw it has been closed.
AgentRunner::AwaitingHello AgentRunner::acceptConnection(int fd, int count) {
    std::shared_ptr<WireConnection> connection;
    try {
        connection = std::make_shared<WireConnection>(fd, "host-" + std::to_string(count));
    } catch (...) {
        ::close(fd);
        throw;
    }
    connection->setPayloadLimit(HandshakeGate::payloadLimit);
    auto channel = std::make_shared<ControlChannel>(connection);
    // Whichever of the hello, the peer's close and the limit comes first ends
    // the wait; a closed gate lets go of the channel.
    auto gate = std::make_shared<HandshakeGate>(channel);
    std::weak_ptr<ControlChannel> weak = channel;
    channel->setOnUnsolicited([weak, gate, service = service](ControlEnvelope envelope) {
        auto channel = weak.lock();
        if (!channel || !gate->pass()) return;
        if (!isAcceptableHostHello(envelope.message)) {
            channel->close();
            return;
        }
        auto channels = channelsOf(envelope.message.get<ControlMessage::Hello>()->value);
        try {
            MainActor::current().sync([&] { service->attach(channel, channels); });
            channel->connection->setPayloadLimit(std::nullopt);
            channel->reply(envelope, ControlMessage::Hello{AgentService::agentHelloBase()});
        } catch (const std::exception&) {
            // A failed reply means the channel is closing; no main actor means the process is.
        }
    });
    channel->setOnClose([gate](std::exception_ptr) { gate->pass(); });
    AwaitingHello awaiting{gate, weak, std::chrono::steady_clock::now() + fromSeconds(listenHelloLimit)};
    channel->start();
    return awaiting;
}

}  // namespace tsl
