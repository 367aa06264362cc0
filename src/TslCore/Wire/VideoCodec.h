#pragma once
#include <cstdint>
#include <optional>

namespace tsl {

enum class VideoCodec : uint8_t { rawBGRA = 1, h264 = 2 };

inline std::optional<VideoCodec> videoCodecFromRaw(uint8_t raw) {
    if (raw == 1 || raw == 2) return VideoCodec(raw);
    return std::nullopt;
}

}  // namespace tsl
