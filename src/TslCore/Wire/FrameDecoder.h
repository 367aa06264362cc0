#pragma once
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "TslCore/Support/Bytes.h"
#include "TslCore/Wire/WireHeader.h"
#include "TslCore/Wire/WireMessage.h"

namespace tsl {

// Turns a byte stream into messages, however the bytes are split. The first
// bad frame poisons it for good: a stream has no resynchronisation.
// One per stream; used by one thread at a time.
class FrameDecoder {
public:
    // Absent: only the per-type limits apply. Takes effect at the next header.
    std::optional<uint32_t> maxPayload;

    FrameDecoder() = default;

    // Hands each message to `deliver` as soon as it is whole, before the next
    // header is read, so a limit the message changes applies to the frames
    // behind it in the same bytes. A throwing `deliver` ends the stream.
    void feed(std::span<const uint8_t> bytes, const std::function<void(WireMessage)>& deliver);
    std::vector<WireMessage> feed(std::span<const uint8_t> bytes);

    // Bytes held that no message has been made of yet.
    size_t bufferedCount() const { return buffer.size() - start + directHead.size() + directPicture.size(); }
    // Bytes of storage held, used or not: what a connection costs in memory.
    size_t reservedCount() const { return buffer.capacity() + directHead.capacity() + directPicture.capacity(); }
    bool isPoisoned() const { return poisoned; }
    // Between frames nothing; inside one, the payload length its header
    // announced, 0 while the header itself is still incomplete.
    std::optional<uint32_t> partialFrame() const {
        if (pendingHeader) return pendingHeader->length;
        if (buffer.size() > start) return 0;
        return std::nullopt;
    }

private:
    std::optional<WireMessage> next();
    void compact();
    // Large video payloads skip the buffer: their bytes go straight from the
    // input into the picture handed to the caller. The picture's storage grows
    // with the bytes that arrive, never to more than a few times them, so a
    // header that claims a large payload and sends nothing costs nothing;
    // up to the largest picture the peer has already sent whole, it is
    // reserved at once, so a stream of frames copies each picture only once.
    void beginDirect();
    std::span<const uint8_t> absorbDirect(std::span<const uint8_t> in);
    size_t directNeed() const;
    WireMessage finishDirect();
    void resetDirect();

    Bytes buffer;
    size_t start = 0;
    std::optional<WireHeader> pendingHeader;
    bool poisoned = false;
    bool direct = false;
    Bytes directHead;
    Bytes directPicture;
    size_t largestPicture = 0;
};

}  // namespace tsl
