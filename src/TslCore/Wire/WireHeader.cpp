#include "TslCore/Wire/WireHeader.h"

#include "TslCore/Wire/ByteIO.h"
#include "TslCore/Wire/WireError.h"

namespace tsl {

std::optional<MessageType> messageTypeFromRaw(uint8_t raw) {
    if (raw >= 1 && raw <= 5) return MessageType(raw);
    return std::nullopt;
}

uint32_t maxPayload(MessageType type) {
    switch (type) {
        case MessageType::control: return 0x400000;
        case MessageType::video: return 0x6000000;
        case MessageType::input: return 40;
        case MessageType::ping:
        case MessageType::pong: return 8;
    }
    return 0;
}

void WireHeader::encode(ByteWriter& w) const {
    w.u32(magic);
    w.u8(version);
    w.u8(uint8_t(type));
    w.u16(flags);
    w.u32(length);
    w.u32(sequence);
}

WireHeader WireHeader::decode(ByteReader& r) {
    uint32_t m = r.u32();
    if (m != magic) throw WireError::badMagic(m);
    uint8_t version = r.u8();
    if (version != currentVersion) throw WireError::unsupportedVersion(version);
    uint8_t rawType = r.u8();
    auto type = messageTypeFromRaw(rawType);
    if (!type) throw WireError::unknownType(rawType);
    uint16_t flags = r.u16();
    uint32_t length = r.u32();
    if (length > maxPayload(*type)) throw WireError::payloadTooLarge(rawType, length);
    WireHeader h(*type, length, flags, r.u32());
    h.version = version;
    return h;
}

}  // namespace tsl
