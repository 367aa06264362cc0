#include "TslCore/Scanner/PlistDepth.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace tsl::PlistDepth {
namespace {

// Counts open <dict> and <array> tags, less their closing tags, wherever they
// stand, comments and CDATA included: more than the parser would nest, never
// less. Text can't hold a raw "<" in XML, so only markup is seen.
bool xmlWithin(std::string_view text, size_t maxDepth) {
    // Positions only move forward, so each search resumes where it stopped.
    auto nextAfter = [&](char c, size_t from, size_t& cached) {
        if (cached != text.npos && cached < from) cached = text.find(c, from);
        return cached;
    };
    size_t nextClose = 0, nextOpen = 0;
    size_t depth = 0;
    size_t at = 0;
    while ((at = text.find('<', at)) != text.npos) {
        ++at;
        const bool closing = at < text.size() && text[at] == '/';
        if (closing) ++at;
        size_t nameEnd = at;
        while (nameEnd < text.size() && std::string_view("<>/ \t\r\n").find(text[nameEnd]) == std::string_view::npos)
            ++nameEnd;
        const std::string_view name = text.substr(at, nameEnd - at);
        at = nameEnd;  // a "<" inside the tag is seen too
        if (name != "dict" && name != "array") continue;
        if (closing) {
            if (depth > 0) --depth;
            continue;
        }
        const size_t close = nextAfter('>', nameEnd, nextClose);
        const bool selfClosing =
            close != text.npos && text[close - 1] == '/' && nextAfter('<', nameEnd, nextOpen) > close;
        if (!selfClosing && ++depth > maxDepth) return false;
    }
    return true;
}

uint64_t bigEndian(std::span<const uint8_t> bytes) {
    uint64_t v = 0;
    for (uint8_t b : bytes) v = v << 8 | b;
    return v;
}

// A list whose shared members, copied out, would make more nodes than this
// is refused too: a few kilobytes of references to references can stand for
// billions of nodes.
constexpr uint64_t maxExpandedNodes = 1u << 20;

// Walks the object graph from the top object without recursion: the depth of
// a container is one more than its deepest member's.
bool binaryWithin(std::span<const uint8_t> data, size_t maxDepth) {
    constexpr size_t headerSize = 8, trailerSize = 32;
    if (data.size() < headerSize + trailerSize) return true;  // too short to parse at all
    auto trailer = data.last(trailerSize);
    const size_t offsetSize = trailer[6];
    const size_t refSize = trailer[7];
    const uint64_t objectCount = bigEndian(trailer.subspan(8, 8));
    const uint64_t top = bigEndian(trailer.subspan(16, 8));
    const uint64_t tableAt = bigEndian(trailer.subspan(24, 8));
    if (offsetSize < 1 || offsetSize > 8 || refSize < 1 || refSize > 8 || top >= objectCount ||
        tableAt >= data.size() || objectCount > (data.size() - tableAt) / offsetSize)
        return false;

    auto offsetOf = [&](uint64_t object) {
        return bigEndian(data.subspan(size_t(tableAt + object * offsetSize), offsetSize));
    };
    // The member references of a container, or an empty span for anything
    // else; nothing at all when the object runs out of bounds.
    struct Members {
        bool ok = true;
        std::span<const uint8_t> refs;
    };
    auto membersOf = [&](uint64_t object) -> Members {
        uint64_t at = offsetOf(object);
        if (at >= data.size()) return {false, {}};
        const uint8_t marker = data[size_t(at)];
        const uint8_t kind = marker >> 4;
        if (kind != 0xA && kind != 0xB && kind != 0xC && kind != 0xD) return {};
        uint64_t count = marker & 0x0F;
        ++at;
        if (count == 0x0F) {
            if (at >= data.size() || (data[size_t(at)] >> 4) != 0x1) return {false, {}};
            const size_t width = size_t(1) << (data[size_t(at)] & 0x0F);
            if (width > 8 || at + 1 + width > data.size()) return {false, {}};
            count = bigEndian(data.subspan(size_t(at + 1), width));
            at += 1 + width;
        }
        const uint64_t refCount = kind == 0xD ? count * 2 : count;
        if (count > data.size() || refCount > (data.size() - at) / refSize) return {false, {}};
        return {true, data.subspan(size_t(at), size_t(refCount * refSize))};
    };

    // Per object: its height (levels from it down, itself included) and the
    // nodes it stands for once every shared reference is copied out, as the
    // parser does; both worked out once, after its members.
    enum : uint8_t { unseen, open, done };
    std::vector<uint8_t> state(size_t(objectCount), unseen);
    std::vector<uint32_t> height(size_t(objectCount), 0);
    std::vector<uint64_t> nodes(size_t(objectCount), 0);
    struct Frame {
        uint64_t object;
        std::span<const uint8_t> refs;  // the members not yet walked
        uint32_t height = 1;
        uint64_t nodes = 1;
    };
    std::vector<Frame> path;
    auto enter = [&](uint64_t object) {
        Members m = membersOf(object);
        if (!m.ok) return false;
        state[size_t(object)] = open;
        path.push_back({object, m.refs});
        return path.size() <= maxDepth;
    };
    if (!enter(top)) return false;
    while (!path.empty()) {
        Frame& frame = path.back();
        if (frame.refs.empty()) {
            const Frame finished = frame;
            path.pop_back();
            state[size_t(finished.object)] = done;
            height[size_t(finished.object)] = finished.height;
            nodes[size_t(finished.object)] = finished.nodes;
            if (path.empty()) break;
            Frame& parent = path.back();
            parent.height = std::max(parent.height, finished.height + 1);
            parent.nodes += finished.nodes;
            if (parent.height > maxDepth || parent.nodes > maxExpandedNodes) return false;
            continue;
        }
        const uint64_t member = bigEndian(frame.refs.first(refSize));
        frame.refs = frame.refs.subspan(refSize);
        if (member >= objectCount || state[size_t(member)] == open) return false;
        if (state[size_t(member)] == unseen) {
            if (!enter(member)) return false;
            continue;
        }
        frame.height = std::max(frame.height, height[size_t(member)] + 1);
        frame.nodes += nodes[size_t(member)];
        if (frame.height > maxDepth || frame.nodes > maxExpandedNodes) return false;
    }
    return true;
}

}  // namespace

bool within(std::span<const uint8_t> data, size_t maxDepth) {
    std::string_view head(reinterpret_cast<const char*>(data.data()), std::min<size_t>(data.size(), 6));
    if (head == "bplist") return binaryWithin(data, maxDepth);
    return xmlWithin(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()), maxDepth);
}

}  // namespace tsl::PlistDepth
