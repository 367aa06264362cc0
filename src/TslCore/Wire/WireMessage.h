#pragma once
#include <cstdint>
#include <span>
#include <variant>

#include "TslCore/Support/Bytes.h"
#include "TslCore/Wire/ControlMessage.h"
#include "TslCore/Wire/InputEvent.h"
#include "TslCore/Wire/VideoFrameHeader.h"
#include "TslCore/Wire/WireHeader.h"

namespace tsl {

// The payload of one frame.
struct WireMessage {
    struct Video {
        VideoFrameHeader header;
        Bytes data;  // the picture behind the 48-byte header
        bool operator==(const Video&) const = default;
    };
    struct Ping {
        uint64_t value = 0;
        bool operator==(const Ping&) const = default;
    };
    struct Pong {
        uint64_t value = 0;
        bool operator==(const Pong&) const = default;
    };

    std::variant<ControlEnvelope, Video, InputEvent, Ping, Pong> payload;

    static WireMessage control(ControlEnvelope e) { return {std::move(e)}; }
    static WireMessage video(const VideoFrameHeader& h, Bytes data) { return {Video{h, std::move(data)}}; }
    static WireMessage input(const InputEvent& e) { return {e}; }
    static WireMessage ping(uint64_t v) { return {Ping{v}}; }
    static WireMessage pong(uint64_t v) { return {Pong{v}}; }

    MessageType type() const { return MessageType(payload.index() + 1); }

    template <typename T> const T* get() const { return std::get_if<T>(&payload); }

    // A whole frame, header included, in one exactly sized buffer.
    Bytes encoded(uint32_t sequence) const;
    // What goes in front of a video picture: the frame header and the video
    // header, so that the picture can be written from its own buffer.
    // Throws WireError.payloadTooLarge as encoded does.
    static Bytes videoHead(const VideoFrameHeader& header, size_t pictureSize, uint32_t sequence);
    static WireMessage decode(const WireHeader& header, std::span<const uint8_t> payload);
    // A video payload whose picture already sits in its own buffer.
    static WireMessage decodeVideo(const WireHeader& header, std::span<const uint8_t> head, Bytes picture);

    bool operator==(const WireMessage&) const = default;
};

}  // namespace tsl
