#include "TslStream/Transport/ControlChannel.h"

#include "TslCore/Support/DoubleText.h"
#include "TslStream/Runtime/GlobalQueue.h"
#include "TslStream/Runtime/Runtime.h"

namespace tsl {

ControlChannel::ControlChannel(std::shared_ptr<WireConnection> connection) : connection(std::move(connection)) {}

ControlChannel::~ControlChannel() = default;

void ControlChannel::start() {
    std::weak_ptr<ControlChannel> weak = weak_from_this();
    connection->start(
        [weak](WireMessage m) {
            if (auto self = weak.lock()) self->dispatch(std::move(m));
        },
        [weak](std::exception_ptr error) {
            if (auto self = weak.lock()) self->failAll(error);
        });
}

uint32_t ControlChannel::drawID() {
    std::lock_guard guard(lock);
    nextID = nextID == UINT32_MAX ? 1 : nextID + 1;
    return nextID;
}

void ControlChannel::setLastID(uint32_t last) {
    std::lock_guard guard(lock);
    nextID = last;
}

std::optional<Resumption<ControlMessage>> ControlChannel::takeWaiter(uint32_t id) {
    std::lock_guard guard(lock);
    auto it = waiters.find(id);
    if (it == waiters.end()) return std::nullopt;
    Resumption<ControlMessage> waiter = std::move(it->second);
    waiters.erase(it);
    return waiter;
}

asio::awaitable<ControlMessage> ControlChannel::request(ControlMessage message, double timeout) {
    auto self = shared_from_this();  // a caller awaiting a reply keeps the channel
    uint32_t id = drawID();
    co_return co_await Resumption<ControlMessage>::suspend([&](Resumption<ControlMessage> waiter) {
        // On a pool the caller may resume, and its frame go, while this still
        // runs: copy out what is needed before the waiter can be reached.
        std::shared_ptr<ControlChannel> channel = self;
        std::weak_ptr<ControlChannel> weak = self;
        uint32_t requestID = id;
        double seconds = timeout;
        std::string name(message.caseName());
        ControlEnvelope envelope{requestID, std::nullopt, std::move(message)};
        std::exception_ptr refused;
        {
            std::lock_guard guard(channel->lock);
            refused = channel->closedError;
            if (!refused) channel->waiters.emplace(requestID, waiter);
        }
        if (refused) {
            waiter.fail(refused);
            return;
        }
        // Armed before the send, which may block on a full socket: the time
        // counts from the request. Never cancelled: after a reply or a failed
        // send it simply finds no waiter.
        GlobalQueue::after(fromSeconds(seconds), [weak, requestID, name, seconds] {
            auto self = weak.lock();
            if (!self) return;
            if (auto w = self->takeWaiter(requestID))
                w->fail(ControlError("timeout", "no reply to " + name + " within " + doubleText(seconds) + " s"));
        });
        channel->sendOffCaller(std::move(envelope), [weak, requestID](std::exception_ptr error) {
            if (auto self = weak.lock())
                if (auto w = self->takeWaiter(requestID)) w->fail(error);
        });
    });
}

void ControlChannel::post(const ControlMessage& message) {
    connection->send(WireMessage::control(ControlEnvelope{drawID(), std::nullopt, message}));
}

void ControlChannel::postAsync(ControlMessage message) {
    sendOffCaller(ControlEnvelope{drawID(), std::nullopt, std::move(message)}, [](std::exception_ptr) {});
}

// The send queue keeps a caller off a socket that blocks. When nothing is
// queued and the socket takes the frame at once, the caller sends it itself:
// the order stays that of enqueueing and a round trip saves a thread hop.
void ControlChannel::sendOffCaller(ControlEnvelope envelope, std::function<void(std::exception_ptr)> onFailure) {
    WireMessage frame = WireMessage::control(std::move(envelope));
    if (queuedSends.load() == 0) {
        bool sent = false;
        if (auto error = caughtError([&] { sent = connection->trySend(frame); })) return onFailure(std::move(error));
        if (sent) return;
    }
    std::shared_ptr<SerialQueue> serial;
    if (auto error = caughtError([&] { serial = queue(); })) return onFailure(std::move(error));  // out of threads
    ++queuedSends;
    std::weak_ptr<ControlChannel> weak = weak_from_this();
    serial->post([weak, frame = std::move(frame), onFailure = std::move(onFailure)] {
        auto self = weak.lock();
        if (!self) return;
        if (auto error = caughtError([&] { self->connection->send(frame); })) onFailure(std::move(error));
        --self->queuedSends;
    });
}

// Made at the first send that must wait: most connections never need it, and
// a queue is a thread and two descriptors, which a flood of connections that
// never get that far must not cost.
std::shared_ptr<SerialQueue> ControlChannel::queue() {
    std::lock_guard guard(lock);
    if (!sendQueue) sendQueue = std::make_shared<SerialQueue>("tsl.control.send");
    return sendQueue;
}

void ControlChannel::reply(const ControlEnvelope& to, const ControlMessage& message) {
    connection->send(WireMessage::control(ControlEnvelope{drawID(), to.id, message}));
}

void ControlChannel::close() { connection->close(); }

void ControlChannel::dispatch(WireMessage message) {
    if (auto ping = message.get<WireMessage::Ping>()) {
        try {
            connection->send(WireMessage::pong(ping->value));
        } catch (...) {
        }
        return;
    }
    if (auto envelope = message.get<ControlEnvelope>()) {
        if (envelope->replyTo) {
            if (auto waiter = takeWaiter(*envelope->replyTo)) {
                if (auto error = envelope->message.get<ControlMessage::Error>()) waiter->fail(ControlError(error->value));
                else waiter->resume(envelope->message);
                return;
            }
        }
        if (auto handler = onUnsolicited()) handler(std::move(*envelope));
        return;
    }
    if (auto handler = onFrame()) handler(std::move(message));
}

void ControlChannel::failAll(std::exception_ptr error) {
    std::map<uint32_t, Resumption<ControlMessage>> taken;
    std::exception_ptr reason = error ? error : std::make_exception_ptr(ControlError("closed", "connection closed"));
    {
        std::lock_guard guard(lock);
        closedError = reason;
        taken.swap(waiters);
    }
    for (auto& [id, waiter] : taken) waiter.fail(reason);
    if (auto handler = onClose()) handler(error);
}

ControlChannel::UnsolicitedHandler ControlChannel::onUnsolicited() const {
    std::lock_guard guard(lock);
    return _onUnsolicited;
}
void ControlChannel::setOnUnsolicited(UnsolicitedHandler handler) {
    std::lock_guard guard(lock);
    _onUnsolicited = std::move(handler);
}
ControlChannel::FrameHandler ControlChannel::onFrame() const {
    std::lock_guard guard(lock);
    return _onFrame;
}
void ControlChannel::setOnFrame(FrameHandler handler) {
    std::lock_guard guard(lock);
    _onFrame = std::move(handler);
}
ControlChannel::CloseHandler ControlChannel::onClose() const {
    std::lock_guard guard(lock);
    return _onClose;
}
void ControlChannel::setOnClose(CloseHandler handler) {
    std::lock_guard guard(lock);
    _onClose = std::move(handler);
}

}  // namespace tsl
