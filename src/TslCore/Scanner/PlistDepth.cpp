#include "TslCore/Scanner/PlistDepth.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "TslCore/Support/ByteSpan.h"

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

// The last 32 bytes of a binary property list: how to find its objects.
struct Trailer {
    static constexpr size_t size = 32;
    size_t offsetSize = 0;  // bytes per entry of the offset table
    size_t refSize = 0;     // bytes per object reference
    uint64_t objectCount = 0;
    uint64_t topObject = 0;
    uint64_t offsetTableAt = 0;

    static Trailer of(std::span<const uint8_t> data) {
        const auto t = data.last(size);
        const auto field = [&t](size_t at, size_t width) { return *ByteSpan::uintAt(t, at, width, Endian::big); };
        return {size_t(t[6]), size_t(t[7]), field(8, 8), field(16, 8), field(24, 8)};
    }
};

// An object's marker byte: its kind in the high half, a count in the low.
struct Marker {
    static constexpr uint8_t array = 0xA, set = 0xB, orderedSet = 0xC, dict = 0xD, integer = 0x1;
    static constexpr uint8_t countFollows = 0x0F;  // the count is an integer object after the marker
    uint8_t kind, count;
    explicit Marker(uint8_t byte) : kind(byte >> 4), count(byte & 0x0F) {}
    bool isContainer() const { return kind == array || kind == set || kind == orderedSet || kind == dict; }
};

// Past the end reads as a value no check lets through.
uint64_t bigEndian(std::span<const uint8_t> bytes, size_t at, size_t width) {
    return ByteSpan::uintAt(bytes, at, width, Endian::big).value_or(UINT64_MAX);
}

// A list whose shared members, copied out, would make more nodes than this
// is refused too: a few kilobytes of references to references can stand for
// billions of nodes.
constexpr uint64_t maxExpandedNodes = 1u << 20;

// Walks the object graph from the top object without recursion: the depth of
// a container is one more than its deepest member's.
bool binaryWithin(std::span<const uint8_t> data, size_t maxDepth) {
    constexpr size_t headerSize = 8;
    if (data.size() < headerSize + Trailer::size) return true;  // too short to parse at all
    const Trailer trailer = Trailer::of(data);
    const size_t offsetSize = trailer.offsetSize, refSize = trailer.refSize;
    const uint64_t objectCount = trailer.objectCount, top = trailer.topObject, tableAt = trailer.offsetTableAt;
    if (offsetSize < 1 || offsetSize > 8 || refSize < 1 || refSize > 8 || top >= objectCount ||
        tableAt >= data.size() || objectCount > (data.size() - tableAt) / offsetSize)
        return false;

    auto offsetOf = [&](uint64_t object) { return bigEndian(data, size_t(tableAt + object * offsetSize), offsetSize); };
    // The member references of a container, or an empty span for anything
    // else; nothing at all when the object runs out of bounds.
    struct Members {
        bool ok = true;
        std::span<const uint8_t> refs;
    };
    auto membersOf = [&](uint64_t object) -> Members {
        uint64_t at = offsetOf(object);
        if (at >= data.size()) return {false, {}};
        const Marker marker(data[size_t(at)]);
        if (!marker.isContainer()) return {};
        uint64_t count = marker.count;
        ++at;
        if (count == Marker::countFollows) {
            if (at >= data.size() || Marker(data[size_t(at)]).kind != Marker::integer) return {false, {}};
            const size_t width = size_t(1) << Marker(data[size_t(at)]).count;
            const auto counted = ByteSpan::uintAt(data, at + 1, width, Endian::big);
            if (!counted) return {false, {}};
            count = *counted;
            at += 1 + width;
        }
        const uint64_t refCount = marker.kind == Marker::dict ? count * 2 : count;  // keys, then values
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
        const uint64_t member = bigEndian(frame.refs, 0, refSize);
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
