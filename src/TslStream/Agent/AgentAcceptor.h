#pragma once
#include <asio/awaitable.hpp>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "TslStream/Agent/AgentHandshake.h"
#include "TslStream/Agent/AgentLink.h"
#include "TslStream/Runtime/Resumption.h"
#include "TslStream/Support/Logger.h"
#include "TslStream/Transport/Channel.h"
#include "TslStream/Transport/ControlChannel.h"
#include "TslStream/Transport/HandshakeGate.h"

namespace tsl {

// Takes the connections that arrive on the host's listeners, runs the
// first-message handshake on each and joins the three channels of one agent,
// in any order, into one AgentLink.
//
// Held by shared_ptr: connection callbacks and time-outs hold it weakly.
// `lock` covers all state and is taken before a link's lock, never after;
// waiters are resumed and lines logged after it is released.
class AgentAcceptor : public std::enable_shared_from_this<AgentAcceptor> {
public:
    static constexpr double handshakeTimeout = 5.0;
    static constexpr size_t maxPending = HandshakeGate::maxPending;

    // `handshakeLimit` is for tests that cross the time-out.
    explicit AgentAcceptor(Hello hostHello, double handshakeLimit = handshakeTimeout);

    // Takes over an accepted descriptor; returns at once. `expected` is the
    // port's channel, absent on a shared listener.
    void accept(int fd, const std::string& label, std::optional<Channel> expected);

    // The live link, now or when one comes up; ControlError "timeout" else.
    asio::awaitable<std::shared_ptr<AgentLink>> waitForLink(double timeout);

    // The present link, live or not.
    std::shared_ptr<AgentLink> currentLink() const;

private:
    using Waiter = Resumption<std::shared_ptr<AgentLink>>;

    void firstMessage(const std::shared_ptr<ControlChannel>& channel, const ControlEnvelope& envelope,
                      std::optional<Channel> expected);
    void refuse(const std::shared_ptr<ControlChannel>& channel, const ControlEnvelope& envelope, const std::string& reason);
    bool registerChannel(const std::shared_ptr<ControlChannel>& channel, const Hello& hello);
    void forget(const ControlChannel* channel);
    bool hasLiveLink() const;  // under lock

    Logger log{"com.tessel.stream", "acceptor"};
    const double handshakeLimit;
    mutable std::mutex lock;
    std::shared_ptr<AgentLink> link;
    std::shared_ptr<ControlChannel> pendingVideo, pendingInput;
    std::map<uint64_t, Waiter> waiters;
    uint64_t nextWaiter = 0;
    std::map<const ControlChannel*, std::shared_ptr<ControlChannel>> handshaking;
    const Hello hostHello;
};

}  // namespace tsl
