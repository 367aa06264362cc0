// A listening agent in this process: the time from a fresh connection to the
// agent's hello reply, and sustained hello requests on one control channel,
// beside the raw 100-byte round trip of a socket pair.
#include <filesystem>

#include "BenchSupport.h"
#include "ListeningAgent.h"
#include "TslStream/Runtime/GlobalQueue.h"
#include "TslStream/Runtime/MainActor.h"
#include "TslStream/Runtime/Task.h"

using namespace tsl;
using namespace tsl::bench;

namespace {

Hello hostHello() {
    Hello h;
    h.role = Hello::Role::host;
    return h;
}

ControlMessage request(const std::shared_ptr<ControlChannel>& channel) {
    return runBlocking(GlobalQueue::executor(), channel->request(ControlMessage::Hello{hostHello()}, 10));
}

}  // namespace

int main() {
    auto raw = rawPingPongMicros(5000);

    std::vector<double> freshMicros, helloMicros;
    double perSecond = 0;
    withListeningAgent(std::chrono::minutes(5), [&](const std::string& socket) {
        for (int i = 0; i < 300; ++i) {
            uint64_t t0 = MonoClock::nowNs();
            auto channel = std::make_shared<ControlChannel>(
                std::make_shared<WireConnection>(SocketEndpoint::unix(socket), "bench"));
            channel->start();
            request(channel);
            freshMicros.push_back(double(MonoClock::nowNs() - t0) / 1e3);
            channel->close();
        }
        auto channel =
            std::make_shared<ControlChannel>(std::make_shared<WireConnection>(SocketEndpoint::unix(socket), "bench"));
        channel->start();
        request(channel);
        const int count = 5000;
        uint64_t t0 = MonoClock::nowNs();
        for (int i = 0; i < count; ++i) {
            uint64_t t1 = MonoClock::nowNs();
            request(channel);
            helloMicros.push_back(double(MonoClock::nowNs() - t1) / 1e3);
        }
        perSecond = count / (double(MonoClock::nowNs() - t0) / 1e9);
        channel->close();
    });

    double rawP50 = percentile(raw, 0.5);
    std::printf("raw 100-byte round trip:            p50 %.1f us\n", rawP50);
    std::printf("fresh connection to hello reply:    p50 %.1f us  p99 %.1f us\n", percentile(freshMicros, 0.5),
                percentile(freshMicros, 0.99));
    std::printf("hello requests on one channel:      %.0f per second (%.1f us each; raw round trip %.1f us)\n",
                perSecond, 1e6 / perSecond, rawP50);
    ratioLine("hello on an open channel / raw round trip, p50", percentile(helloMicros, 0.5), rawP50, 3.0, false);
}
