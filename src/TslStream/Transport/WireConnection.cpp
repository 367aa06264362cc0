#include "TslStream/Transport/WireConnection.h"

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <system_error>
#include <thread>

#include "TslCore/Wire/FrameDecoder.h"
#include "TslCore/Wire/WireError.h"
#include "TslStream/Transport/Socket.h"
#include "TslStream/Transport/SocketError.h"

namespace tsl {
namespace {
constexpr size_t readSize = 262144;
}

WireConnection::WireConnection(int fd, std::string label) : fd(fd), _label(std::move(label)) {}

WireConnection::WireConnection(const SocketEndpoint& connectingTo, std::string label)
    : fd(connectSocket(connectingTo)), _label(std::move(label)) {}

WireConnection::~WireConnection() {
    if (fd >= 0) ::close(fd);
}

void WireConnection::sendVideo(const VideoFrameHeader& header, std::span<const uint8_t> picture) {
    std::lock_guard write(writeLock);
    uint32_t seq;
    {
        std::lock_guard state(stateLock);
        seq = ++sequence;  // spent even if encoding fails
    }
    Bytes head = WireMessage::videoHead(header, picture.size(), seq);
    iovec parts[2] = {{head.data(), head.size()}, {const_cast<uint8_t*>(picture.data()), picture.size()}};
    writeParts(parts, picture.empty() ? 1 : 2);
    std::lock_guard state(stateLock);
    _bytesSent += head.size() + picture.size();
}

void WireConnection::send(const WireMessage& message) {
    if (const auto* video = message.get<WireMessage::Video>()) return sendVideo(video->header, video->data);
    std::lock_guard write(writeLock);
    uint32_t seq;
    {
        std::lock_guard state(stateLock);
        seq = ++sequence;  // spent even if encoding fails
    }
    Bytes frame = message.encoded(seq);
    writeAll(frame);
    std::lock_guard state(stateLock);
    _bytesSent += frame.size();
}

int WireConnection::openDescriptor() const {
    std::lock_guard state(stateLock);
    if (closed || fd < 0) throw SocketError("write", EPIPE);
    return fd;
}

void WireConnection::writeAll(const Bytes& frame, size_t from) {
    if (from >= frame.size()) return;  // all out: a close since then is no failure
    iovec part{const_cast<uint8_t*>(frame.data()) + from, frame.size() - from};
    writeParts(&part, 1);
}

void WireConnection::writeParts(iovec* parts, size_t count) {
    int s = openDescriptor();
    while (count > 0) {
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = count;
        ssize_t n = ::sendmsg(s, &message, MSG_NOSIGNAL);
        if (n < 0) {
            if (errno == EINTR) continue;
            throw SocketError("write", errno);
        }
        auto left = size_t(n);
        while (count > 0 && left >= parts->iov_len) {
            left -= parts->iov_len;
            ++parts, --count;
        }
        if (count > 0) {
            parts->iov_base = static_cast<uint8_t*>(parts->iov_base) + left;
            parts->iov_len -= left;
        }
    }
}

bool WireConnection::trySend(const WireMessage& message) {
    std::unique_lock write(writeLock, std::try_to_lock);
    if (!write.owns_lock()) return false;
    uint32_t seq;
    {
        std::lock_guard state(stateLock);
        seq = sequence + 1;  // a socket that takes nothing leaves it for the queue's send
    }
    auto spend = [&] {
        std::lock_guard state(stateLock);
        sequence = seq;
    };
    Bytes frame;
    int s;
    try {
        frame = message.encoded(seq);
        s = openDescriptor();
    } catch (...) {
        spend();  // a failed send spends its number, as the queue's does
        throw;
    }
    ssize_t n;
    do n = ::send(s, frame.data(), frame.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    while (n < 0 && errno == EINTR);
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return false;
    spend();
    if (n < 0) throw SocketError("write", errno);
    writeAll(frame, size_t(n));
    std::lock_guard state(stateLock);
    _bytesSent += frame.size();
    return true;
}

void WireConnection::start(MessageHandler onMessage, CloseHandler onCloseHandler) {
    std::exception_ptr refused = std::make_exception_ptr(SocketError("start", EBADF));
    {
        std::unique_lock state(stateLock);
        if (!closed && !readerRunning) {
            onClose = std::move(onCloseHandler);
            readerRunning = true;
            state.unlock();
            try {
                std::thread([self = shared_from_this(), handler = std::move(onMessage)]() mutable {
                    std::string name = ("tsl.read." + self->_label).substr(0, 15);
                    pthread_setname_np(pthread_self(), name.c_str());
                    self->readLoop(std::move(handler));
                }).detach();
                return;
            } catch (const std::system_error& e) {
                // Out of threads: the connection is refused, not the process.
                refused = std::make_exception_ptr(SocketError("start", e.code().value()));
                state.lock();
                readerRunning = false;
                onCloseHandler = std::move(onClose);
                onClose = nullptr;
                state.unlock();
                close();
            }
        }
    }
    if (onCloseHandler) onCloseHandler(refused);
}

bool WireConnection::awaitBytes(int s, std::optional<std::chrono::steady_clock::time_point> deadline) {
    if (!deadline) return true;  // a blocking read waits
    for (;;) {
        auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        pollfd p{s, POLLIN, 0};
        int rc = ::poll(&p, 1, int(std::min<int64_t>(left.count(), INT32_MAX)));
        if (rc > 0) return true;  // bytes, an end or an error: the read tells
        if (rc < 0 && errno != EINTR) return true;
    }
}

void WireConnection::readLoop(MessageHandler onMessage) {
    using Clock = std::chrono::steady_clock;
    FrameDecoder decoder;
    std::unique_ptr<uint8_t[]> buffer(new uint8_t[readSize]);
    std::exception_ptr error;
    std::optional<Clock::time_point> frameBegan;
    for (;;) {
        int s;
        FrameDeadline limits;
        {
            std::lock_guard state(stateLock);
            s = fd;
            limits = frameDeadline;
        }
        std::optional<Clock::time_point> deadline;
        if (auto partial = decoder.partialFrame(); partial && frameBegan) {
            double seconds = limits.base + double(*partial) / limits.bytesPerSecond;
            deadline =
                *frameBegan + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
        }
        if (!awaitBytes(s, deadline)) {
            std::lock_guard state(stateLock);
            if (!closed) {
                log.error("%{public}s: a frame stalled past its deadline", _label);
                error = std::make_exception_ptr(SocketError("read", ETIMEDOUT));
            }
            break;
        }
        ssize_t n = ::read(s, buffer.get(), readSize);
        if (n == 0) break;
        if (n < 0) {
            if (errno == EINTR) continue;
            int code = errno;
            std::lock_guard state(stateLock);
            if (!closed) error = std::make_exception_ptr(SocketError("read", code));
            break;
        }
        Clock::time_point arrived = Clock::now();
        bool completedOne = false;
        {
            std::lock_guard state(stateLock);
            _bytesReceived += uint64_t(n);
            decoder.maxPayload = payloadLimit;
        }
        try {
            decoder.feed(std::span<const uint8_t>(buffer.get(), size_t(n)), [&](WireMessage m) {
                completedOne = true;
                if (onMessage) onMessage(std::move(m));
                // A hello handled just now may have lifted the limit for the
                // frames that came right behind it in the same read.
                std::lock_guard state(stateLock);
                decoder.maxPayload = payloadLimit;
            });
        } catch (const WireError& e) {
            log.error("%{public}s: protocol error %{public}s", _label, e.description());
            error = std::current_exception();
            break;
        }
        // A frame's time counts from the read that brought its first bytes.
        if (!decoder.partialFrame()) frameBegan.reset();
        else if (!frameBegan || completedOne) frameBegan = arrived;
    }

    // Wake a sender blocked in write (it holds writeLock) before taking writeLock.
    {
        std::lock_guard state(stateLock);
        closed = true;
        if (fd >= 0) ::shutdown(fd, SHUT_RDWR);
    }
    CloseHandler handler;
    {
        std::lock_guard write(writeLock);
        std::lock_guard state(stateLock);
        readerRunning = false;
        handler = std::move(onClose);
        onClose = nullptr;
        if (fd >= 0) ::close(fd);
        fd = -1;
    }
    buffer.reset();
    if (handler) handler(error);
}

void WireConnection::setPayloadLimit(std::optional<uint32_t> limit) {
    std::lock_guard state(stateLock);
    payloadLimit = limit;
}

void WireConnection::setFrameDeadline(FrameDeadline deadline) {
    std::lock_guard state(stateLock);
    frameDeadline = deadline;
}

void WireConnection::close() {
    int remembered;
    {
        std::lock_guard state(stateLock);
        if (closed) return;
        closed = true;
        if (fd >= 0) ::shutdown(fd, SHUT_RDWR);
        if (readerRunning) return;  // the reader finishes the job, onClose included
        remembered = fd;
    }
    if (remembered < 0) return;
    std::lock_guard write(writeLock);
    std::lock_guard state(stateLock);
    if (fd == remembered) {
        ::close(fd);
        fd = -1;
    }
}

bool WireConnection::isClosed() const {
    std::lock_guard state(stateLock);
    return closed;
}

uint64_t WireConnection::bytesSent() const {
    std::lock_guard state(stateLock);
    return _bytesSent;
}

uint64_t WireConnection::bytesReceived() const {
    std::lock_guard state(stateLock);
    return _bytesReceived;
}

}  // namespace tsl
