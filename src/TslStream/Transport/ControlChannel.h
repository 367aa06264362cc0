#pragma once
#include <asio/awaitable.hpp>

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "TslCore/Wire/ControlMessage.h"
#include "TslStream/Runtime/Resumption.h"
#include "TslStream/Runtime/SerialQueue.h"
#include "TslStream/Transport/Channel.h"
#include "TslStream/Transport/ControlError.h"
#include "TslStream/Transport/WireConnection.h"

namespace tsl {

// Request and reply over one connection: numbers outgoing envelopes, parks
// callers until their reply, a time-out or the close, answers pings, and
// passes everything else on.
//
// Held by shared_ptr. The connection's reader holds the channel weakly, and
// so do the send and time-out tasks: a discarded channel leaves nothing
// behind. `lock` guards the fields below it and is never held while a
// callback runs, a waiter resumes or a frame is written. Callbacks run on the
// connection's reader thread, one at a time, in frame order.
class ControlChannel : public std::enable_shared_from_this<ControlChannel> {
public:
    using UnsolicitedHandler = std::function<void(ControlEnvelope)>;
    using FrameHandler = std::function<void(WireMessage)>;
    using CloseHandler = std::function<void(std::exception_ptr)>;

    // Takes over an unstarted connection; nothing runs until start().
    explicit ControlChannel(std::shared_ptr<WireConnection> connection);
    ~ControlChannel();

    const std::shared_ptr<WireConnection> connection;

    // Set the handlers first.
    void start();

    // The reply, or ControlError (the peer's error, "timeout", "closed"), or
    // what the send threw.
    asio::awaitable<ControlMessage> request(ControlMessage message, double timeout);
    // Sends on the calling thread; throws what send throws.
    void post(const ControlMessage& message);
    // Sends on the send queue; a failure is dropped.
    void postAsync(ControlMessage message);
    // Answers an envelope on the calling thread; throws what send throws.
    void reply(const ControlEnvelope& to, const ControlMessage& message);
    void close();

    static std::string caseName(const ControlMessage& message) { return std::string(message.caseName()); }

    // Tests start the numbering near its wrap.
    void setLastID(uint32_t last);

    UnsolicitedHandler onUnsolicited() const;
    void setOnUnsolicited(UnsolicitedHandler handler);
    FrameHandler onFrame() const;
    void setOnFrame(FrameHandler handler);
    CloseHandler onClose() const;
    void setOnClose(CloseHandler handler);

private:
    uint32_t drawID();
    std::optional<Resumption<ControlMessage>> takeWaiter(uint32_t id);
    void sendOffCaller(ControlEnvelope envelope, std::function<void(std::exception_ptr)> onFailure);
    std::shared_ptr<SerialQueue> queue();
    void dispatch(WireMessage message);
    void failAll(std::exception_ptr error);

    mutable std::mutex lock;
    uint32_t nextID = 0;
    std::map<uint32_t, Resumption<ControlMessage>> waiters;
    std::exception_ptr closedError;
    std::shared_ptr<SerialQueue> sendQueue;  // made when first needed
    std::atomic<int> queuedSends = 0;
    UnsolicitedHandler _onUnsolicited;
    FrameHandler _onFrame;
    CloseHandler _onClose;
};

}  // namespace tsl
