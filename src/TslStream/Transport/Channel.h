#pragma once
#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <string_view>

#include "TslCore/Wire/ControlRecords.h"

namespace tsl {

// The three connections of one agent. Their raw values travel in
// Hello.capabilities and are all that tells them apart on a shared socket.
enum class Channel : uint8_t { control, video, input };

constexpr std::array<Channel, 3> allChannels{Channel::control, Channel::video, Channel::input};

constexpr std::string_view rawValue(Channel c) {
    switch (c) {
        case Channel::control: return "channel:control";
        case Channel::video: return "channel:video";
        case Channel::input: return "channel:input";
    }
    return "";
}

// The port of a channel on vsock and tcp.
constexpr uint32_t port(Channel c) { return 5000 + uint32_t(c); }

std::optional<Channel> channelFromRaw(std::string_view raw);

// The channels a hello names; other capabilities are skipped.
std::set<Channel> channelsOf(const Hello& hello);

}  // namespace tsl
