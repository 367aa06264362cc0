#pragma once
#include <cstdint>
#include <optional>

namespace tsl {

struct ByteWriter;
struct ByteReader;

enum class MessageType : uint8_t { control = 1, video = 2, input = 3, ping = 4, pong = 5 };

std::optional<MessageType> messageTypeFromRaw(uint8_t raw);
uint32_t maxPayload(MessageType type);

// The 16-byte header in front of every frame.
struct WireHeader {
    static constexpr int size = 16;
    static constexpr uint32_t magic = 0x506C7354;  // "TslP" read little-endian
    static constexpr uint8_t currentVersion = 1;

    uint8_t version = currentVersion;
    MessageType type = MessageType::control;
    uint16_t flags = 0;
    uint32_t length = 0;
    uint32_t sequence = 0;

    WireHeader() = default;
    WireHeader(MessageType type, uint32_t length, uint16_t flags, uint32_t sequence)
        : type(type), flags(flags), length(length), sequence(sequence) {}

    void encode(ByteWriter& w) const;
    // Checks magic, version, type, then length against the type's limit.
    static WireHeader decode(ByteReader& r);

    bool operator==(const WireHeader&) const = default;
};

}  // namespace tsl
