#include "TslStream/Agent/AgentAcceptor.h"

#include <unistd.h>

#include "TslStream/Runtime/GlobalQueue.h"
#include "TslStream/Transport/HandshakeGate.h"

namespace tsl {
namespace {

std::string joinedChannels(const std::set<Channel>& channels) {
    std::set<std::string> names;
    for (Channel c : channels) names.emplace(rawValue(c));
    std::string text;
    for (auto& name : names) text += (text.empty() ? "" : ",") + name;
    return text;
}

}  // namespace

AgentAcceptor::AgentAcceptor(Hello hostHello, double handshakeLimit)
    : handshakeLimit(handshakeLimit), hostHello(std::move(hostHello)) {}

std::shared_ptr<AgentLink> AgentAcceptor::currentLink() const {
    std::lock_guard guard(lock);
    return link;
}

bool AgentAcceptor::hasLiveLink() const { return link && link->isLive(); }

void AgentAcceptor::accept(int fd, const std::string& label, std::optional<Channel> expected) {
    auto connection = std::make_shared<WireConnection>(fd, label);
    connection->setPayloadLimit(AgentHandshake::payloadLimit);
    auto channel = std::make_shared<ControlChannel>(connection);
    {
        std::unique_lock guard(lock);
        if (handshaking.size() >= maxPending) {
            guard.unlock();
            log.error("too many pending agent handshakes; dropping %{public}s", label);
            connection->close();
            return;
        }
        handshaking.emplace(channel.get(), channel);
    }
    auto gate = std::make_shared<HandshakeGate>(nullptr);
    std::weak_ptr<AgentAcceptor> weakSelf = weak_from_this();
    std::weak_ptr<ControlChannel> weakChannel = channel;
    channel->setOnUnsolicited([weakSelf, weakChannel, gate, expected](ControlEnvelope envelope) {
        auto self = weakSelf.lock();
        auto channel = weakChannel.lock();
        if (!self || !channel || !gate->pass()) return;
        self->firstMessage(channel, envelope, expected);
    });
    channel->setOnClose([weakSelf, raw = channel.get()](std::exception_ptr) {
        if (auto self = weakSelf.lock()) self->forget(raw);
    });
    channel->start();
    GlobalQueue::after(fromSeconds(handshakeLimit), [weakSelf, weakChannel, gate, label] {
        if (!gate->pass()) return;
        auto self = weakSelf.lock();
        auto channel = weakChannel.lock();
        if (!channel) return;
        if (self) {
            self->forget(channel.get());
            self->log.error("agent connection %{public}s sent no hello; closed", label);
        }
        channel->close();
    });
}

void AgentAcceptor::forget(const ControlChannel* channel) {
    std::shared_ptr<ControlChannel> released;  // goes after the lock
    std::lock_guard guard(lock);
    auto it = handshaking.find(channel);
    if (it == handshaking.end()) return;
    released = std::move(it->second);
    handshaking.erase(it);
}

void AgentAcceptor::firstMessage(const std::shared_ptr<ControlChannel>& channel, const ControlEnvelope& envelope,
                                 std::optional<Channel> expected) {
    forget(channel.get());
    if (auto reason = AgentHandshake::refusal(envelope.message, expected)) {
        refuse(channel, envelope, *reason);
        return;
    }
    const Hello& hello = envelope.message.get<ControlMessage::Hello>()->value;
    if (!registerChannel(channel, hello)) {
        refuse(channel, envelope, "an agent is already connected");
        return;
    }
    channel->connection->setPayloadLimit(std::nullopt);
    try {
        channel->reply(envelope, ControlMessage::Hello{hostHello});
    } catch (const std::exception&) {
        // the agent has gone; its close does the rest
    }
}

void AgentAcceptor::refuse(const std::shared_ptr<ControlChannel>& channel, const ControlEnvelope& envelope,
                           const std::string& reason) {
    log.error("refused agent connection: %{public}s", reason);
    try {
        channel->reply(envelope, ControlMessage::Error{ErrorInfo{"handshake", reason}});
    } catch (const std::exception&) {
    }
    channel->close();
}

bool AgentAcceptor::registerChannel(const std::shared_ptr<ControlChannel>& channel, const Hello& hello) {
    auto channels = channelsOf(hello);
    std::map<uint64_t, Waiter> resumed;
    std::shared_ptr<AgentLink> made, replaced;
    std::shared_ptr<ControlChannel> dropped;
    {
        std::lock_guard guard(lock);
        if (channels.empty() || channels.contains(Channel::control)) {
            if (hasLiveLink()) return false;
            made = AgentLink::make(channel, hello);
            replaced = std::exchange(link, made);
            if (pendingVideo) made->attachVideoChannel(std::exchange(pendingVideo, nullptr));
            if (pendingInput) made->attachInputChannel(std::exchange(pendingInput, nullptr));
            resumed.swap(waiters);
        } else if (channels.contains(Channel::video)) {
            channel->setOnUnsolicited(nullptr);
            if (hasLiveLink()) link->attachVideoChannel(channel);
            else dropped = std::exchange(pendingVideo, channel);
        } else {
            channel->setOnUnsolicited(nullptr);
            if (hasLiveLink()) link->attachInputChannel(channel);
            else dropped = std::exchange(pendingInput, channel);
        }
    }
    // Closing takes no lock of ours, but nothing needs it held either.
    if (replaced) replaced->close();
    if (dropped) dropped->close();
    log.info("agent connection: %{public}s", joinedChannels(channels));
    for (auto& [number, waiter] : resumed) waiter.resume(made);
    return true;
}

asio::awaitable<std::shared_ptr<AgentLink>> AgentAcceptor::waitForLink(double timeout) {
    auto acceptor = shared_from_this();
    co_return co_await Waiter::suspend([&](Waiter waiter) {
        // Copied out first: the waiter may resume, and this frame go, at once.
        std::shared_ptr<AgentAcceptor> self = acceptor;
        std::weak_ptr<AgentAcceptor> weak = self;
        double seconds = timeout;
        uint64_t number = 0;
        std::shared_ptr<AgentLink> live;
        {
            std::lock_guard guard(self->lock);
            if (self->hasLiveLink()) {
                live = self->link;
            } else {
                number = ++self->nextWaiter;
                self->waiters.emplace(number, waiter);
            }
        }
        if (live) {
            waiter.resume(std::move(live));
            return;
        }
        GlobalQueue::after(fromSeconds(seconds), [weak, number, seconds] {
            auto self = weak.lock();
            if (!self) return;
            std::optional<Waiter> expired;
            {
                std::lock_guard guard(self->lock);
                auto it = self->waiters.find(number);
                if (it == self->waiters.end()) return;
                expired = std::move(it->second);
                self->waiters.erase(it);
            }
            expired->fail(ControlError("timeout", "guest agent did not connect within " +
                                                      std::to_string(int64_t(seconds)) + " s"));
        });
    });
}

}  // namespace tsl
