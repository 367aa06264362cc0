#include "TslStream/Transport/Channel.h"

namespace tsl {

std::optional<Channel> channelFromRaw(std::string_view raw) {
    for (Channel c : allChannels)
        if (rawValue(c) == raw) return c;
    return std::nullopt;
}

std::set<Channel> channelsOf(const Hello& hello) {
    std::set<Channel> out;
    for (auto& capability : hello.capabilities)
        if (auto c = channelFromRaw(capability)) out.insert(*c);
    return out;
}

}  // namespace tsl
