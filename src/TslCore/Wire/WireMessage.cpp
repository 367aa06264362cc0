#include "TslCore/Wire/WireMessage.h"

#include <algorithm>

#include "TslCore/Wire/ByteIO.h"
#include "TslCore/Wire/WireError.h"
#include "TslCore/Wire/WireJSON.h"

namespace tsl {
namespace {

Bytes payloadOf(const WireMessage& m) {
    struct Visitor {
        Bytes operator()(const ControlEnvelope& e) const { return WireJSON::encode(e); }
        Bytes operator()(const WireMessage::Video&) const { return {}; }  // written in place by encoded()
        Bytes operator()(const InputEvent& e) const {
            ByteWriter w(InputEvent::size);
            e.encode(w);
            return std::move(w.data);
        }
        Bytes operator()(const WireMessage::Ping& p) const { return u64(p.value); }
        Bytes operator()(const WireMessage::Pong& p) const { return u64(p.value); }
        static Bytes u64(uint64_t v) {
            ByteWriter w(8);
            w.u64(v);
            return std::move(w.data);
        }
    };
    return std::visit(Visitor{}, m.payload);
}

uint32_t clampU32(uint64_t v) { return uint32_t(std::min<uint64_t>(v, UINT32_MAX)); }

}  // namespace

Bytes WireMessage::videoHead(const VideoFrameHeader& header, size_t pictureSize, uint32_t sequence) {
    constexpr MessageType t = MessageType::video;
    uint64_t size = uint64_t(VideoFrameHeader::size) + pictureSize;
    if (size > maxPayload(t)) throw WireError::payloadTooLarge(uint8_t(t), clampU32(size));
    // Only the two headers: a gathered write sends the picture from where it lies.
    ByteWriter w(WireHeader::size + VideoFrameHeader::size);
    WireHeader(t, uint32_t(size), 0, sequence).encode(w);
    header.encode(w);
    return std::move(w.data);
}

Bytes WireMessage::encoded(uint32_t sequence) const {
    MessageType t = type();
    if (const Video* v = get<Video>()) {
        // The picture is written once, straight into the frame buffer.
        Bytes frame = videoHead(v->header, v->data.size(), sequence);
        frame.reserve(frame.size() + v->data.size());
        frame.insert(frame.end(), v->data.begin(), v->data.end());
        return frame;
    }
    Bytes payload = payloadOf(*this);
    if (payload.size() > maxPayload(t)) throw WireError::payloadTooLarge(uint8_t(t), clampU32(payload.size()));
    ByteWriter w(WireHeader::size + payload.size());
    WireHeader(t, uint32_t(payload.size()), 0, sequence).encode(w);
    w.bytes(payload);
    return std::move(w.data);
}

WireMessage WireMessage::decode(const WireHeader& header, std::span<const uint8_t> payload) {
    switch (header.type) {
        case MessageType::control:
            try {
                return control(WireJSON::decodeEnvelope(payload.data(), payload.size()));
            } catch (const WireJSON::DecodeError& e) {
                throw WireError::malformedPayload("control JSON: " + e.description());
            } catch (const std::exception& e) {
                throw WireError::malformedPayload(std::string("control JSON: ") + e.what());
            }
        case MessageType::video: {
            size_t headSize = std::min<size_t>(payload.size(), VideoFrameHeader::size);
            auto picture = payload.subspan(headSize);
            return decodeVideo(header, payload.first(headSize), Bytes(picture.begin(), picture.end()));
        }
        case MessageType::input: {
            if (payload.size() != InputEvent::size)
                throw WireError::malformedPayload("input size " + std::to_string(payload.size()));
            ByteReader r(payload);
            return input(InputEvent::decode(r));
        }
        case MessageType::ping:
        case MessageType::pong: {
            if (payload.size() != 8) throw WireError::malformedPayload("ping size " + std::to_string(payload.size()));
            ByteReader r(payload);
            uint64_t v = r.u64();
            return header.type == MessageType::ping ? ping(v) : pong(v);
        }
    }
    throw WireError::unknownType(uint8_t(header.type));
}

WireMessage WireMessage::decodeVideo(const WireHeader&, std::span<const uint8_t> head, Bytes picture) {
    ByteReader r(head);
    VideoFrameHeader h = VideoFrameHeader::decode(r);
    h.validateRaw(picture.size());
    return video(h, std::move(picture));
}

}  // namespace tsl
