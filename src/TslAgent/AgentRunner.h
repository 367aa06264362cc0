#pragma once
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "TslAgent/AgentConfig.h"
#include "TslAgent/AgentService.h"
#include "TslAgent/DialRound.h"
#include "TslAgent/ProcessExit.h"
#include "TslStream/Support/Logger.h"
#include "TslStream/Transport/HandshakeGate.h"
#include "TslStream/Transport/Socket.h"

namespace tsl {

// The agent's side of the connection life: dials the host again and again,
// or listens and is dialled, brings each channel through its hello exchange
// and hands it to the service.
//
// All blocking work runs on one thread of its own. The runner crosses to the
// main actor only with synchronous calls around AgentService::attach, so the
// main actor must be running while a hello is exchanged.
class AgentRunner {
public:
    AgentRunner(AgentConfig config, std::shared_ptr<AgentService> service, ProcessExit exit = exitProcess);
    // Stops and joins the thread.
    ~AgentRunner();
    AgentRunner(const AgentRunner&) = delete;
    AgentRunner& operator=(const AgentRunner&) = delete;

    // Starts the runner's thread and returns.
    void run();
    // Ends the thread: closes the listener or the round, wakes a back-off.
    // The executable never stops its runner; embedders and tests do.
    void stop();

    // Which endpoint serves which channel.
    static std::vector<std::pair<SocketEndpoint, Channel>> plan(const std::vector<SocketEndpoint>& endpoints);

private:
    void dialLoop(const std::vector<SocketEndpoint>& endpoints);
    std::shared_ptr<DialRound> dialOnce(const std::vector<SocketEndpoint>& endpoints);
    bool dialChannel(const std::shared_ptr<DialRound>& round, const SocketEndpoint& endpoint, Channel channel);
    void listenLoop(const SocketEndpoint& endpoint);
    struct AwaitingHello {
        std::shared_ptr<HandshakeGate> gate;
        std::weak_ptr<ControlChannel> channel;
        std::chrono::steady_clock::time_point deadline;
    };
    AwaitingHello acceptConnection(int fd, int count);
    // Closes the connections whose time is up and forgets those no longer
    // waiting; the earliest deadline left, if any.
    static std::optional<std::chrono::steady_clock::time_point> expireHellos(std::vector<AwaitingHello>& awaiting);
    // Sleeps unless stopped meanwhile; false once stopped.
    bool pause(double seconds);
    bool isStopping();

    const AgentConfig config;
    const std::shared_ptr<AgentService> service;
    const ProcessExit exit;
    Logger log{"com.tessel.agent", "runner"};

    std::mutex lock;  // guards the fields below
    std::condition_variable wake;
    bool stopping = false;
    std::shared_ptr<DialRound> currentRound;
    std::shared_ptr<SocketListener> listener;
    std::thread thread;
};

}  // namespace tsl
