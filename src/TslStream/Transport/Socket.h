#pragma once
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <utility>

#include "TslStream/Transport/SocketEndpoint.h"
#include "TslStream/Transport/SocketError.h"

namespace tsl {

// A connected, tuned stream socket. Throws SocketError.
int connectSocket(const SocketEndpoint& to);

// Whether the peer of a unix socket runs as this process's user.
bool peerIsThisUser(int fd);

// Lifts the soft descriptor limit to the hard one, so a listener has the
// most room it may have before it must push back.
void raiseDescriptorLimit();

// Two connected ends of a unix stream pair, both tuned.
std::pair<int, int> socketPair();

// Binds and listens on construction; accept() blocks until a peer arrives.
// close() (from any thread) wakes a blocked accept and removes a unix path.
class SocketListener {
public:
    SocketListener(const SocketEndpoint& endpoint, int backlog = 16);
    ~SocketListener();
    SocketListener(const SocketListener&) = delete;
    SocketListener& operator=(const SocketListener&) = delete;

    int accept();
    // Waits until accept would not block, or the listener closes (true), or
    // `limit` passes (false); no limit waits for ever.
    bool awaitPeer(std::optional<std::chrono::milliseconds> limit);
    void close();

    const SocketEndpoint& endpoint() const { return _endpoint; }
    // The port actually bound, for IPv4 listeners (useful with port 0).
    std::optional<uint16_t> boundTCPPort() const;

private:
    const SocketEndpoint _endpoint;
    mutable std::mutex lock;
    int fd = -1;
};

}  // namespace tsl
