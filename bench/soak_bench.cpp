// A listening agent in this process under a stream of short connections, at
// the default limit of 1024 descriptors: memory growth per 1,000 connect,
// hello and close cycles (goal: under 64 KiB), what a connection awaiting its
// hello costs, and whether rapid connect-and-close cycles leave the agent
// listening, serving, and back at its descriptors and threads.
#include <dirent.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "BenchSupport.h"
#include "ListeningAgent.h"
#include "TslCore/Wire/FrameDecoder.h"
#include "TslStream/Runtime/MainActor.h"
#include "TslStream/Transport/HandshakeGate.h"

using namespace tsl;
using namespace tsl::bench;

namespace {

struct Figures {
    size_t residentKiB = 0;
    size_t threads = 0;
    size_t descriptors = 0;
};

Figures figures() {
    Figures f;
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) f.residentKiB = std::stoul(line.substr(6));
        if (line.starts_with("Threads:")) f.threads = std::stoul(line.substr(8));
    }
    if (DIR* d = ::opendir("/proc/self/fd")) {
        while (::readdir(d)) ++f.descriptors;
        ::closedir(d);
        f.descriptors -= 3;  // ".", ".." and the listing's own
    }
    return f;
}

// Waits until the threads are down to `threads` (readers end a moment after
// their peer has gone), for at most a few seconds.
Figures settled(size_t threads) {
    for (int i = 0; i < 500; ++i) {
        Figures f = figures();
        if (f.threads <= threads) return f;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return figures();
}

// The figures once the thread count has held still for a while.
Figures still() {
    Figures f = figures();
    for (int same = 0; same < 20;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        Figures now = figures();
        same = now.threads == f.threads ? same + 1 : 0;
        f = now;
    }
    return f;
}

const Bytes& helloFrame() {
    static const Bytes frame = [] {
        Hello h;
        h.role = Hello::Role::host;
        return WireMessage::control(ControlEnvelope{1, std::nullopt, ControlMessage::Hello{h}}).encoded(1);
    }();
    return frame;
}

// One connection: optionally a hello and its reply, then the close.
bool cycle(const std::string& socket, bool greet) {
    int fd;
    try {
        fd = connectSocket(SocketEndpoint::unix(socket));
    } catch (const std::exception&) {
        return false;
    }
    bool answered = !greet;
    if (greet && ::send(fd, helloFrame().data(), helloFrame().size(), MSG_NOSIGNAL) == ssize_t(helloFrame().size())) {
        FrameDecoder decoder;
        uint8_t buffer[4096];
        while (!answered) {
            ssize_t n = ::read(fd, buffer, sizeof buffer);
            if (n <= 0) break;
            answered = !decoder.feed(std::span<const uint8_t>(buffer, size_t(n))).empty();
        }
    }
    ::close(fd);
    return answered;
}

}  // namespace

int main() {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(1024, limit.rlim_max);
    ::setrlimit(RLIMIT_NOFILE, &limit);

    const int cycles = 10000;
    std::vector<size_t> residentKiB;
    Figures base, afterGreeted, afterRapid, ungreeted;
    int failures = 0;
    bool servedAfterRapid = false;
    withListeningAgent(std::chrono::minutes(20), [&](const std::string& socket) {
        for (int i = 0; i < 1000; ++i) failures += !cycle(socket, true);  // pools and caches fill first
        base = settled(figures().threads);
        residentKiB.push_back(base.residentKiB);
        for (int i = 1; i <= cycles; ++i) {
            failures += !cycle(socket, true);
            if (i % 1000 == 0) residentKiB.push_back(settled(base.threads).residentKiB);
        }
        afterGreeted = settled(base.threads);

        for (int i = 0; i < cycles; ++i) cycle(socket, false);
        afterRapid = settled(base.threads);
        servedAfterRapid = cycle(socket, true);

        Figures quiet = still();
        std::vector<int> silent;
        for (size_t i = 0; i < HandshakeGate::maxPending; ++i)
            silent.push_back(connectSocket(SocketEndpoint::unix(socket)));
        for (int i = 0; i < 500 && figures().threads < quiet.threads + silent.size(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));  // the agent takes them in
        ungreeted = figures();
        ungreeted.threads -= quiet.threads;
        ungreeted.descriptors -= quiet.descriptors;
        for (int fd : silent) ::close(fd);
        settled(base.threads);
    });

    double growthPer1000 =
        double(residentKiB.back() - std::min(residentKiB.back(), residentKiB.front())) / double(residentKiB.size() - 1);
    std::printf("descriptor limit %zu; %d greeted cycles, %d failed\n", size_t(limit.rlim_cur), cycles, failures);
    std::printf("resident KiB every 1000 cycles:");
    for (size_t k : residentKiB) std::printf(" %zu", k);
    std::printf("\nmemory growth per 1000 connect, hello and close cycles: %.1f KiB\n", growthPer1000);
    std::printf("after %d connect-and-close cycles: %s; descriptors %zu -> %zu, threads %zu -> %zu\n", cycles,
                servedAfterRapid ? "still serving" : "NOT SERVING", base.descriptors, afterRapid.descriptors,
                base.threads, afterRapid.threads);
    size_t pending = HandshakeGate::maxPending;
    // The client's own descriptors for the silent connections are in the count too.
    std::printf("per connection awaiting its hello: %.2f threads, %.2f descriptors (agent side)\n",
                double(ungreeted.threads) / double(pending), double(ungreeted.descriptors - pending) / double(pending));
    std::printf("%s\n",
                tsl::ratioLine("memory growth per 1000 cycles / 64 KiB", growthPer1000 / 64.0, 1.0, false).c_str());
    return servedAfterRapid && failures == 0 ? 0 : 1;
}
