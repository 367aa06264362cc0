// A control request's round trip over a socket pair, a task on the main actor
// awaiting a status-sized reply, against a raw 100-byte ping-pong between two
// threads on a socket pair of their own, both measured here.
#include <unistd.h>

#include <thread>

#include "BenchSupport.h"
#include "TslCore/Support/MonoClock.h"
#include "TslStream/Runtime/MainActor.h"
#include "TslStream/Transport/ControlChannel.h"
#include "TslStream/Transport/Socket.h"

using namespace tsl;
using namespace tsl::bench;

namespace {

constexpr int rounds = 5000;

AgentStatus statusReply() {
    AgentStatus s;
    s.uptimeSeconds = 12345.5;
    s.activeStreams = {1, 2, 3};
    s.screenRecordingGranted = s.accessibilityGranted = true;
    s.rosettaInstalled = true;
    return s;
}

std::vector<double> requests() {
    MainActor main;
    auto [a, b] = socketPair();
    // The answering side: a channel that replies from its reader thread.
    auto server = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(b, "bench.server"));
    ControlMessage reply = ControlMessage::Status{statusReply()};
    server->setOnUnsolicited([server = server.get(), reply](ControlEnvelope e) { server->reply(e, reply); });
    server->start();
    auto client = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(a, "bench.client"));
    client->start();

    std::vector<double> micros;
    main.runTask(
        [](std::shared_ptr<ControlChannel> client, std::vector<double>* micros) -> asio::awaitable<void> {
            for (int i = 0; i < rounds; ++i) {
                uint64_t t0 = MonoClock::nowNs();
                auto answer = co_await client->request(ControlMessage::Status{}, 5);
                micros->push_back(double(MonoClock::nowNs() - t0) / 1e3);
                if (!answer.get<ControlMessage::Status>()) std::abort();
            }
        }(client, &micros),
        std::chrono::minutes(5));
    client->close();
    server->close();
    return micros;
}

}  // namespace

int main() {
    auto raw = rawPingPongMicros(rounds);
    auto ours = requests();
    double rawP50 = percentile(raw, 0.5), oursP50 = percentile(ours, 0.5);
    std::printf("raw 100-byte ping-pong:  p50 %.1f us  p99 %.1f us\n", rawP50, percentile(raw, 0.99));
    std::printf("control request (status): p50 %.1f us  p99 %.1f us\n", oursP50, percentile(ours, 0.99));
    ratioLine("request / raw round trip, p50", oursP50, rawP50, 2.0, false);
}
