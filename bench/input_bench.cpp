// Host input to injection in the guest: the host's link queues each event on
// its input queue, the agent's reading thread hands it to the input path,
// which places it through the window cache and posts it to the simulated
// desktop. Against a raw 40-byte round trip over the same kind of socket, and
// sustained events against raw 40-byte frames sent one way.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>

#include "BenchSupport.h"
#include "Platform/Sim/Desktop.h"
#include "TslAgent/InputPath.h"
#include "TslAgent/WindowList.h"
#include "TslStream/Agent/AgentLink.h"

using namespace tsl;

int main() {
    auto desktop = Sim::Desktop::make();
    PlatformServices platform = desktop->services();
    int32_t pid = desktop->addProcess({.name = "Bench"});
    uint32_t window = desktop->addWindow(pid, {.title = "w", .frame = {100, 100, 400, 300}});
    auto cache = std::make_shared<WindowCache>();
    cache->replace(WindowList::current(platform, {}, false));
    auto echo = std::make_shared<EchoCounter>();
    InputPath path(platform, cache, InputInjector(InjectionMode::pid, platform.eventPoster), echo);

    constexpr int latencyRounds = 3000;
    std::vector<uint64_t> injectedAt(latencyRounds + 1);
    std::atomic<uint32_t> last{0};
    auto [hostFd, agentFd] = socketPair();
    auto agent = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(agentFd, "agent-input"));
    agent->setOnFrame([&](WireMessage frame) {
        auto* event = std::get_if<InputEvent>(&frame.payload);
        if (!event) return;
        path.inject(*event);
        if (event->sequence < injectedAt.size()) injectedAt[event->sequence] = MonoClock::nowNs();
        last.store(event->sequence, std::memory_order_release);
    });
    agent->start();
    auto host = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(hostFd, "host"));
    auto link = AgentLink::make(host, Hello{});
    host->start();

    auto waitFor = [&](uint32_t sequence) {
        while (last.load(std::memory_order_acquire) != sequence) std::this_thread::yield();
    };
    InputEvent event;
    event.kind = InputEvent::Kind::mouseDown;
    event.windowID = window;
    event.x = 10;
    event.y = 10;

    // One event at a time: from the host's send to the post in the guest.
    std::vector<double> micros;
    for (uint32_t i = 1; i <= latencyRounds; ++i) {
        event.sequence = i;
        uint64_t t0 = MonoClock::nowNs();
        link->sendInput(event);
        waitFor(i);
        micros.push_back(double(injectedAt[i] - t0) / 1e3);
    }
    std::vector<double> raw = bench::rawPingPongMicros(latencyRounds, InputEvent::size);
    double p50 = bench::percentile(micros, 0.5), p99 = bench::percentile(micros, 0.99);
    double rawP50 = bench::percentile(raw, 0.5);
    std::printf("send to injection: p50 %.1f us, p99 %.1f us; raw 40-byte round trip p50 %.1f us\n", p50, p99, rawP50);
    bench::ratioLine("input send-to-injection p50 vs raw round trip", p50, rawP50, 2.0, false);

    // Sustained: bursts below the link's shedding bound, each waited for.
    constexpr int bursts = 200, burst = 200;
    uint32_t sequence = latencyRounds;
    double seconds = bench::bestSeconds(1, [&] {
        for (int b = 0; b < bursts; ++b) {
            for (int i = 0; i < burst; ++i) {
                event.sequence = ++sequence;
                link->sendInput(event);
            }
            waitFor(sequence);
        }
    });
    double eventsPerSecond = bursts * burst / seconds;
    // The same number of 40-byte frames written back to back in one direction.
    double rawPerSecond = std::max(bench::rawOneWayFramesPerSecond(bursts * burst, InputEvent::size),
                                   bench::rawOneWayFramesPerSecond(bursts * burst, InputEvent::size));
    std::printf("sustained: %.0f events/s injected on one input channel (echo %u); raw one-way 40-byte frames %.0f/s\n",
                eventsPerSecond, echo->value(), rawPerSecond);
    bench::ratioLine("sustained input events vs raw one-way frames", eventsPerSecond, rawPerSecond, 0.25);
    link->close();
    agent->connection->close();
    return 0;
}
