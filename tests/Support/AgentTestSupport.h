#pragma once
#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Support/LogLines.h"
#include "Support/Waiter.h"
#include "TslAgent/AgentService.h"
#include "TslStream/Runtime/MainActor.h"
#include "TslStream/Transport/ControlChannel.h"
#include "TslStream/Transport/Socket.h"

namespace tsl::test {

constexpr auto limit = std::chrono::seconds(20);

inline Hello hostHello(std::vector<std::string> capabilities = {}) {
    Hello h;
    h.role = Hello::Role::host;
    h.softwareVersion = "test";
    h.capabilities = std::move(capabilities);
    return h;
}

// Statuses the agent would have exited with.
struct ExitRecorder {
    std::atomic<int> status{-1};
    Waiter exited;
    ProcessExit function() {
        return [this](int s) {
            status = s;
            exited.signal();
        };
    }
};

// A simulation run's service over a desktop of the test's own, with no
// folder tree behind it: for tests that drive windows and streams only.
inline std::shared_ptr<AgentService> desktopService(const PlatformServices& platform, ExitRecorder& exits) {
    return std::make_shared<AgentService>(
        AgentConfig::simulation(AgentConfig::Mode::listen(SocketEndpoint::unix("/unused")), "/nonexistent-root", false),
        platform, exits.function());
}

// The host's end of one connection: a control channel that records what the
// agent sends and whether it closed.
struct HostEnd {
    std::shared_ptr<ControlChannel> channel;
    std::mutex m;
    std::vector<ControlEnvelope> received;
    Waiter arrived, closed;

    explicit HostEnd(std::shared_ptr<WireConnection> connection)
        : channel(std::make_shared<ControlChannel>(std::move(connection))) {
        channel->setOnUnsolicited([this](ControlEnvelope e) {
            {
                std::lock_guard g(m);
                received.push_back(std::move(e));
            }
            arrived.signal();
        });
        channel->setOnClose([this](std::exception_ptr) { closed.signal(); });
    }
    ~HostEnd() {
        channel->close();
        closed.waitFor(1);
    }
    ControlEnvelope at(size_t i) {
        std::lock_guard g(m);
        return received.at(i);
    }
};

// A host that listens: accepts every connection on its own thread and
// answers each hello with a host hello, unless told to stay silent.
class FakeHost {
public:
    explicit FakeHost(const std::string& path, bool answerHellos = true)
        : listener(SocketEndpoint::unix(path)), answer(answerHellos) {
        thread = std::thread([this] {
            for (;;) {
                int fd;
                try {
                    fd = listener.accept();
                } catch (const std::exception&) {
                    return;
                }
                auto end = std::make_shared<HostEnd>(std::make_shared<WireConnection>(fd, "fake-host"));
                end->channel->setOnUnsolicited([this, end = end.get()](ControlEnvelope e) {
                    if (auto hello = e.message.get<ControlMessage::Hello>()) {
                        std::lock_guard g(m);
                        helloCapabilities.push_back(hello->value.capabilities.back());
                    }
                    try {
                        if (answer) end->channel->reply(e, ControlMessage::Hello{hostHello()});
                    } catch (const std::exception&) {
                        // the agent has gone already
                    }
                    hellos.signal();
                });
                end->channel->start();
                {
                    std::lock_guard g(m);
                    ends.push_back(end);
                }
                accepted.signal();
            }
        });
    }
    ~FakeHost() {
        stopListening();
        // The ends' readers call back into this object: end them first.
        std::vector<std::shared_ptr<HostEnd>> closing;
        {
            std::lock_guard g(m);
            closing.swap(ends);
        }
        closing.clear();
    }
    // Takes no more connections (the socket's path goes); the ones made stay.
    void stopListening() {
        listener.close();
        if (thread.joinable()) thread.join();
    }
    std::shared_ptr<HostEnd> end(size_t i) {
        std::lock_guard g(m);
        return ends.at(i);
    }
    std::vector<std::string> channelNames() {
        std::lock_guard g(m);
        return helloCapabilities;
    }

    Waiter accepted, hellos;

private:
    SocketListener listener;
    const bool answer;
    std::thread thread;
    std::mutex m;
    std::vector<std::shared_ptr<HostEnd>> ends;
    std::vector<std::string> helloCapabilities;
};

}  // namespace tsl::test
