#pragma once
#include <sys/uio.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "TslCore/Wire/WireMessage.h"
#include "TslStream/Support/Logger.h"
#include "TslStream/Transport/SocketEndpoint.h"

namespace tsl {

// Frames on a stream socket: one reader thread, any number of senders.
//
// Ownership: the connection owns its descriptor; discarding it closes the
// descriptor if still open. Always held by shared_ptr: a started reader keeps
// its connection alive until it has finished and called onClose.
//
// Locks: writeLock (held across the blocking write) before stateLock (short
// field access only). Callbacks run on the reader thread with no lock held.
// The descriptor is closed only with both locks held, so never under a writer.
class WireConnection : public std::enable_shared_from_this<WireConnection> {
public:
    using MessageHandler = std::function<void(WireMessage)>;
    // Null: the stream ended cleanly (peer closed, or close() here).
    using CloseHandler = std::function<void(std::exception_ptr)>;

    WireConnection(int fd, std::string label);
    // Dials first; throws what connectSocket throws.
    WireConnection(const SocketEndpoint& connectingTo, std::string label);
    ~WireConnection();
    WireConnection(const WireConnection&) = delete;
    WireConnection& operator=(const WireConnection&) = delete;

    // Encodes and writes one frame whole; throws WireError or SocketError.
    // Never closes the connection itself. A video picture goes out from its
    // own buffer, behind its headers, in one gathered write.
    void send(const WireMessage& message);
    // A video frame whose picture lies in memory the caller keeps until this
    // returns, such as a locked capture buffer: written from there, uncopied.
    void sendVideo(const VideoFrameHeader& header, std::span<const uint8_t> picture);
    // Sends only if that needs no waiting: false, with nothing written, when
    // another writer holds the connection or the socket takes no byte now. A
    // frame the socket takes in part is finished as send would. Throws as send.
    bool trySend(const WireMessage& message);
    // Starts the reader thread "tsl.read.<label>". A second start, or a start
    // after close, calls onClose at once with SocketError("start", EBADF).
    void start(MessageHandler onMessage, CloseHandler onClose);
    // Applied by the reader from the next frame header on; set by a message
    // handler, it already meets the frame behind that message.
    void setPayloadLimit(std::optional<uint32_t> limit);
    // A frame that has begun must be whole within `base` plus one second per
    // `bytesPerSecond` of its payload, or the connection closes with
    // SocketError("read", ETIMEDOUT). An idle connection waits for ever.
    struct FrameDeadline {
        double base = 30.0;
        double bytesPerSecond = 65536;
    };
    // Applied by the reader from its next wait on; tests shorten it.
    void setFrameDeadline(FrameDeadline deadline);
    // Safe from any thread; onClose follows only if a reader was started.
    void close();

    bool isClosed() const;
    uint64_t bytesSent() const;
    uint64_t bytesReceived() const;
    const std::string& label() const { return _label; }

private:
    void readLoop(MessageHandler onMessage);
    // Waits for bytes, at most until a begun frame's deadline; false when it passed.
    bool awaitBytes(int s, std::optional<std::chrono::steady_clock::time_point> deadline);
    int openDescriptor() const;
    void writeAll(const Bytes& frame, size_t from = 0);
    void writeParts(iovec* parts, size_t count);

    Logger log{"com.tessel.stream", "connection"};
    std::mutex writeLock;
    mutable std::mutex stateLock;
    int fd;
    uint32_t sequence = 0;
    bool closed = false;
    bool readerRunning = false;
    std::optional<uint32_t> payloadLimit;
    FrameDeadline frameDeadline;
    CloseHandler onClose;
    const std::string _label;
    uint64_t _bytesSent = 0;
    uint64_t _bytesReceived = 0;
};

}  // namespace tsl
