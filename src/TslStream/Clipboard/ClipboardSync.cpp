#include "TslStream/Clipboard/ClipboardSync.h"

#include <algorithm>

#include "TslStream/Runtime/MainActor.h"

namespace tsl {
namespace {

struct TypePair {
    std::string_view wire;
    const char* pasteboard;
};

// In the order items travel.
constexpr std::array<TypePair, 3> travelling{{
    {ClipboardPayload::supportedTypes[0], Pasteboard::typeString},
    {ClipboardPayload::supportedTypes[1], Pasteboard::typeRTF},
    {ClipboardPayload::supportedTypes[2], Pasteboard::typePNG},
}};

const TypePair* travellingType(std::string_view wire) {
    auto it = std::find_if(travelling.begin(), travelling.end(), [&](const TypePair& t) { return t.wire == wire; });
    return it == travelling.end() ? nullptr : &*it;
}

}  // namespace

ClipboardSync::ClipboardSync(Hello::Role origin, std::shared_ptr<Pasteboard> pasteboard)
    : _origin(origin), pasteboard(std::move(pasteboard)), lastSeen(this->pasteboard->changeCount()) {}

void ClipboardSync::start(double interval) {
    timer = std::make_unique<RepeatingTimer>(MainActor::current().executor(), fromSeconds(interval),
                                             [this] { poll(); });
}

void ClipboardSync::stop() { timer.reset(); }

void ClipboardSync::poll() {
    const int64_t count = pasteboard->changeCount();
    if (count == lastSeen) return;
    // Moves on even when nothing travels, so a private copy isn't looked at again.
    lastSeen = count;
    std::optional<ClipboardPayload> payload = snapshot();
    if (payload && _onLocalChange) _onLocalChange(*payload);
}

std::optional<ClipboardPayload> ClipboardSync::snapshot() {
    const std::vector<std::string> types = pasteboard->types();
    for (std::string_view marker : privateMarkers)
        if (std::find(types.begin(), types.end(), marker) != types.end()) return std::nullopt;
    ClipboardPayload payload;
    payload.origin = _origin;
    size_t total = 0;
    for (const TypePair& type : travelling) {
        std::optional<Bytes> data = pasteboard->dataForType(type.pasteboard);
        if (!data) continue;
        total += data->size();
        // Never cut down: a picture over the limit holds back the text beside it.
        if (total > ClipboardPayload::maxBytes) return std::nullopt;
        payload.items.push_back({std::string(type.wire), std::move(*data)});
    }
    if (payload.items.empty()) return std::nullopt;
    payload.changeCount = pasteboard->changeCount();
    return payload;
}

std::optional<ClipboardPayload> ClipboardSync::snapshotIfChanged() {
    const int64_t count = pasteboard->changeCount();
    if (count == lastPushed) return std::nullopt;
    lastPushed = count;
    return snapshot();
}

void ClipboardSync::apply(const ClipboardPayload& payload) {
    if (payload.origin == _origin) return;
    std::vector<std::pair<const TypePair*, const Bytes*>> kept;
    size_t total = 0;
    for (const ClipboardItem& item : payload.items) {
        if (const TypePair* type = travellingType(item.type)) {
            kept.emplace_back(type, &item.data);
            total += item.data.size();
        }
    }
    if (kept.empty() || total > ClipboardPayload::maxBytes) return;
    pasteboard->clearContents();
    for (const auto& [type, data] : kept) pasteboard->setData(*data, type->pasteboard);
    // Our own write is not a local change: it must not bounce back.
    lastSeen = lastPushed = pasteboard->changeCount();
}

}  // namespace tsl
