#include "Platform/X11/X11Pasteboard.h"

#include <xcb/xfixes.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "Platform/Linux/UriList.h"

namespace tsl::X11 {
namespace {

constexpr std::string_view clipboardAtom = "CLIPBOARD";
constexpr std::string_view readProperty = "_TSL_CLIPBOARD";
constexpr std::string_view timeProperty = "_TSL_CLIPBOARD_TIME";
constexpr std::string_view secretHint = "x-kde-passwordManagerHint";
constexpr size_t largestChunk = 1 << 20;

// A pasteboard type and its X targets: all of `names` are offered when we
// own the selection; on reading the first one the owner offers is taken.
struct XType {
    const char* pasteboard;
    std::array<std::string_view, 2> names;
    bool offerSecond;  // the second name is read but not offered
};

constexpr std::array<XType, 5> xTypes{{
    {Pasteboard::typeString, {"UTF8_STRING", "text/plain;charset=utf-8"}, true},
    {Pasteboard::typeRTF, {"text/rtf", "application/rtf"}, false},
    {Pasteboard::typePNG, {"image/png", ""}, false},
    {Pasteboard::typeFileURL, {"text/uri-list", ""}, false},
    {X11Pasteboard::typeConcealed, {secretHint, ""}, false},
}};

const XType* xTypeOf(std::string_view pasteboard) {
    for (const XType& t : xTypes)
        if (t.pasteboard == pasteboard) return &t;
    return nullptr;
}

}  // namespace

X11Pasteboard::X11Pasteboard(std::shared_ptr<Connection> connection, size_t readLimit)
    : x(std::move(connection)), readLimit(readLimit) {
    xcb_connection_t* c = x->raw();
    x->intern({clipboardAtom, readProperty, timeProperty, secretHint, "TARGETS", "TIMESTAMP", "INCR", "ATOM", "INTEGER",
               "UTF8_STRING", "text/plain;charset=utf-8", "text/rtf", "application/rtf", "image/png", "text/uri-list"});
    // One whole request less its header; BIG-REQUESTS is asked for here, off the event thread.
    chunk = std::min(largestChunk, size_t(xcb_get_maximum_request_length(c)) * 4 - 64);

    window = xcb_generate_id(c);
    const uint32_t values[] = {1, XCB_EVENT_MASK_PROPERTY_CHANGE};
    xcb_create_window(c, XCB_COPY_FROM_PARENT, window, x->root(), -1, -1, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
    // Known before the listener runs, which reads it on the event thread.
    const xcb_query_extension_reply_t* xfixes = xcb_get_extension_data(c, &xcb_xfixes_id);
    if (xfixes && xfixes->present) xfixesEvent = xfixes->first_event;
    listener = x->listen([this](const xcb_generic_event_t& event) { onEvent(event); });

    if (xfixes && xfixes->present) {
        std::free(xcb_xfixes_query_version_reply(c, xcb_xfixes_query_version(c, 4, 0), nullptr));
        xcb_xfixes_select_selection_input(c, window, x->atom(clipboardAtom),
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                              XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                              XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    }
    x->flush();
}

X11Pasteboard::~X11Pasteboard() {
    x->unlisten(listener);
    // Gives up the selection if we hold it; requestors of unfinished INCR
    // transfers see their data stop.
    xcb_destroy_window(x->raw(), window);
    x->flush();
}

int64_t X11Pasteboard::changeCount() {
    std::lock_guard guard(lock);
    return count;
}

bool X11Pasteboard::waitFor(const std::function<bool()>& done) {
    const auto deadline = Connection::Clock::now() + std::chrono::duration_cast<Connection::Clock::duration>(
                                                         std::chrono::duration<double>(answerTime));
    return x->waitUntil(done, deadline);
}

// Events arrive on the connection's event thread. Nothing here waits for the
// server: requests are sent and the next event carries on.
void X11Pasteboard::onEvent(const xcb_generic_event_t& event) {
    const uint8_t type = event.response_type & 0x7f;
    if (xfixesEvent && type == xfixesEvent + XCB_XFIXES_SELECTION_NOTIFY) {
        const auto& e = reinterpret_cast<const xcb_xfixes_selection_notify_event_t&>(event);
        if (e.window != window) return;
        std::lock_guard guard(lock);
        ++count;
        if (e.owner == window && e.selection_timestamp == ownedSince) ownChangeSeen = true;
        return;
    }
    switch (type) {
        case XCB_SELECTION_REQUEST: answer(reinterpret_cast<const xcb_selection_request_event_t&>(event)); return;
        case XCB_SELECTION_CLEAR: {
            const auto& e = reinterpret_cast<const xcb_selection_clear_event_t&>(event);
            if (e.owner != window) return;
            std::lock_guard guard(lock);
            if (e.time != XCB_CURRENT_TIME && e.time < ownedSince) return;
            owning = false;
            stored.clear();
            return;
        }
        case XCB_SELECTION_NOTIFY: {
            const auto& e = reinterpret_cast<const xcb_selection_notify_event_t&>(event);
            if (e.requestor != window) return;
            std::lock_guard guard(lock);
            notified = e;
            return;
        }
        case XCB_PROPERTY_NOTIFY: {
            const auto& e = reinterpret_cast<const xcb_property_notify_event_t&>(event);
            if (e.window == window) {
                std::lock_guard guard(lock);
                if (e.atom == x->atom(timeProperty)) stamp = e.time;
                else if (e.atom == x->atom(readProperty) && e.state == XCB_PROPERTY_NEW_VALUE) ++newValues;
            }
            if (e.state == XCB_PROPERTY_DELETE) continueTransfer(e.window, e.atom);
            return;
        }
        case XCB_DESTROY_NOTIFY: {
            const auto& e = reinterpret_cast<const xcb_destroy_notify_event_t&>(event);
            std::lock_guard guard(lock);
            std::erase_if(transfers, [&](const auto& entry) { return entry.first.first == e.window; });
            return;
        }
        default: return;
    }
}

void X11Pasteboard::answer(const xcb_selection_request_event_t& request) {
    xcb_connection_t* c = x->raw();
    const xcb_atom_t property = request.property == XCB_ATOM_NONE ? request.target : request.property;
    xcb_atom_t answered = XCB_ATOM_NONE;
    std::vector<Offer> offers;
    xcb_timestamp_t since = 0;
    bool serving = false;
    {
        std::lock_guard guard(lock);
        const bool current = request.time == XCB_CURRENT_TIME || request.time >= ownedSince;
        if (owning && current && request.selection == x->atom(clipboardAtom)) {
            offers = stored;
            since = ownedSince;
            serving = true;
        }
    }
    if (serving) {
        if (request.target == x->atom("TARGETS")) {
            std::vector<xcb_atom_t> list{x->atom("TARGETS"), x->atom("TIMESTAMP")};
            for (const auto& [type, data] : offers) {
                const XType* t = xTypeOf(type);
                list.push_back(x->atom(t->names[0]));
                if (t->offerSecond) list.push_back(x->atom(t->names[1]));
            }
            xcb_change_property(c, XCB_PROP_MODE_REPLACE, request.requestor, property, x->atom("ATOM"), 32,
                                uint32_t(list.size()), list.data());
            answered = property;
        } else if (request.target == x->atom("TIMESTAMP")) {
            xcb_change_property(c, XCB_PROP_MODE_REPLACE, request.requestor, property, x->atom("INTEGER"), 32, 1,
                                &since);
            answered = property;
        } else {
            for (const auto& [type, data] : offers) {
                const XType* t = xTypeOf(type);
                const bool named = request.target == x->atom(t->names[0]) ||
                                   (t->offerSecond && request.target == x->atom(t->names[1]));
                if (!named) continue;
                std::shared_ptr<const Bytes> payload = data;
                if (t->pasteboard == std::string_view(typeFileURL))
                    payload = std::make_shared<const Bytes>(UriList::of(*data));
                else if (t->pasteboard == std::string_view(typeConcealed))
                    payload = std::make_shared<const Bytes>(Bytes{'s', 'e', 'c', 'r', 'e', 't'});
                if (payload->size() <= chunk) {
                    xcb_change_property(c, XCB_PROP_MODE_REPLACE, request.requestor, property, request.target, 8,
                                        uint32_t(payload->size()), payload->data());
                } else {
                    // INCR: the size first; each deletion by the requestor asks for the next piece.
                    {
                        std::lock_guard guard(lock);
                        transfers[{request.requestor, property}] = Transfer{payload, request.target, 0};
                    }
                    x->watch(request.requestor);
                    const uint32_t size = uint32_t(payload->size());
                    xcb_change_property(c, XCB_PROP_MODE_REPLACE, request.requestor, property, x->atom("INCR"), 32, 1,
                                        &size);
                }
                answered = property;
                break;
            }
        }
    }
    xcb_selection_notify_event_t notify{};
    notify.response_type = XCB_SELECTION_NOTIFY;
    notify.time = request.time;
    notify.requestor = request.requestor;
    notify.selection = request.selection;
    notify.target = request.target;
    notify.property = answered;
    xcb_send_event(c, 0, request.requestor, XCB_EVENT_MASK_NO_EVENT, reinterpret_cast<const char*>(&notify));
    xcb_flush(c);
}

void X11Pasteboard::continueTransfer(xcb_window_t requestor, xcb_atom_t property) {
    std::shared_ptr<const Bytes> data;
    xcb_atom_t target;
    size_t from, size;
    {
        std::lock_guard guard(lock);
        auto it = transfers.find({requestor, property});
        if (it == transfers.end()) return;
        Transfer& t = it->second;
        data = t.data;
        target = t.target;
        from = t.sent;
        size = std::min(chunk, data->size() - from);
        t.sent += size;
        // The empty piece ends the transfer.
        if (size == 0) transfers.erase(it);
    }
    xcb_change_property(x->raw(), XCB_PROP_MODE_REPLACE, requestor, property, target, 8, uint32_t(size),
                        data->data() + from);
    xcb_flush(x->raw());
}

int64_t X11Pasteboard::clearContents() {
    xcb_connection_t* c = x->raw();
    // A server time to own the selection by: the time of a change to our own window.
    {
        std::lock_guard guard(lock);
        stamp.reset();
    }
    xcb_change_property(c, XCB_PROP_MODE_APPEND, window, x->atom(timeProperty), x->atom("INTEGER"), 32, 0, nullptr);
    x->flush();
    waitFor([&] {
        std::lock_guard guard(lock);
        return stamp.has_value();
    });
    {
        std::lock_guard guard(lock);
        ownedSince = stamp.value_or(XCB_CURRENT_TIME);
        owning = true;
        ownChangeSeen = false;
        stored.clear();
    }
    xcb_set_selection_owner(c, window, x->atom(clipboardAtom), ownedSince);
    x->flush();
    // Our own change is counted before we answer, so that it never reads as someone else's.
    if (xfixesEvent) {
        waitFor([&] {
            std::lock_guard guard(lock);
            return ownChangeSeen;
        });
    }
    std::lock_guard guard(lock);
    if (!xfixesEvent) ++count;
    return count;
}

bool X11Pasteboard::setData(const Bytes& data, const std::string& type) {
    if (!xTypeOf(type)) return false;
    std::lock_guard guard(lock);
    if (!owning) return false;
    auto payload = std::make_shared<const Bytes>(data);
    auto it = std::find_if(stored.begin(), stored.end(), [&](const Offer& o) { return o.first == type; });
    if (it != stored.end()) it->second = payload;
    else stored.emplace_back(type, payload);
    return true;
}

std::vector<std::string> X11Pasteboard::types() {
    {
        std::lock_guard guard(lock);
        if (owning) {
            std::vector<std::string> names;
            for (const auto& offer : stored) names.push_back(offer.first);
            return names;
        }
    }
    const std::vector<xcb_atom_t> offered = targets();
    auto has = [&](std::string_view name) {
        return !name.empty() && std::find(offered.begin(), offered.end(), x->atom(name)) != offered.end();
    };
    std::vector<std::string> names;
    for (const XType& t : xTypes) {
        if (!has(t.names[0]) && !has(t.names[1])) continue;
        if (t.pasteboard == std::string_view(typeConcealed)) {
            const std::optional<Bytes> hint = convert(x->atom(secretHint), 64);
            if (!hint || std::string(hint->begin(), hint->end()) != "secret") continue;
        }
        names.emplace_back(t.pasteboard);
    }
    return names;
}

std::optional<Bytes> X11Pasteboard::dataForType(const std::string& type) {
    const XType* t = xTypeOf(type);
    if (!t) return std::nullopt;
    {
        std::lock_guard guard(lock);
        if (owning) {
            for (const auto& [name, data] : stored)
                if (name == type) return *data;
            return std::nullopt;
        }
    }
    const std::vector<xcb_atom_t> offered = targets();
    for (std::string_view name : t->names) {
        if (name.empty() || std::find(offered.begin(), offered.end(), x->atom(name)) == offered.end()) continue;
        std::optional<Bytes> data = convert(x->atom(name), readLimit);
        if (data && t->pasteboard == std::string_view(typeFileURL)) return UriList::first(*data);
        return data;
    }
    return std::nullopt;
}

// The owner's TARGETS, asked once per change of owner.
std::vector<xcb_atom_t> X11Pasteboard::targets() {
    int64_t now;
    {
        std::lock_guard guard(lock);
        if (targetsCount == count) return targetsSeen;
        now = count;
    }
    std::vector<xcb_atom_t> list;
    if (std::optional<Bytes> data = convert(x->atom("TARGETS"), 64 * 1024)) {
        list.resize(data->size() / 4);
        std::memcpy(list.data(), data->data(), list.size() * 4);
    }
    std::lock_guard guard(lock);
    targetsCount = now;
    targetsSeen = list;
    return list;
}

std::optional<Bytes> X11Pasteboard::convert(xcb_atom_t target, size_t limit) {
    std::lock_guard reading(readLock);
    xcb_connection_t* c = x->raw();
    const xcb_atom_t property = x->atom(readProperty);
    {
        std::lock_guard guard(lock);
        notified.reset();
    }
    xcb_delete_property(c, window, property);
    xcb_convert_selection(c, window, x->atom(clipboardAtom), target, property, XCB_CURRENT_TIME);
    x->flush();
    uint64_t seen = 0;
    xcb_atom_t answered = XCB_ATOM_NONE;
    waitFor([&] {
        std::lock_guard guard(lock);
        seen = newValues;
        if (notified) answered = notified->property;
        return notified.has_value();
    });
    if (answered == XCB_ATOM_NONE) return std::nullopt;

    // Reads and deletes the property: at most limit + 1 bytes.
    const uint32_t words = uint32_t(std::min<size_t>(limit / 4 + 1, UINT32_MAX / 4));
    auto take = [&](Bytes& into) -> std::optional<xcb_atom_t> {
        auto reply = wait(c, xcb_get_property_reply,
                          xcb_get_property(c, 1, window, property, XCB_GET_PROPERTY_TYPE_ANY, 0, words));
        if (!reply) return std::nullopt;
        const auto* bytes = static_cast<const uint8_t*>(xcb_get_property_value(reply.get()));
        const int length = xcb_get_property_value_length(reply.get());
        into.insert(into.end(), bytes, bytes + length);
        if (reply->bytes_after) into.resize(std::max(into.size(), limit + 1));
        return reply->type;
    };
    Bytes data;
    const std::optional<xcb_atom_t> type = take(data);
    if (!type) return std::nullopt;
    if (*type != x->atom("INCR")) {
        if (data.size() > limit) data.resize(limit + 1);
        return data;
    }
    // INCR: each new value of the property is the next piece, the empty one the end.
    data.clear();
    while (true) {
        const bool more = waitFor([&] {
            std::lock_guard guard(lock);
            if (newValues == seen) return false;
            seen = newValues;
            return true;
        });
        if (!more) return std::nullopt;
        const size_t before = data.size();
        if (!take(data)) return std::nullopt;
        if (data.size() == before) return data;
        if (data.size() > limit) {
            data.resize(limit + 1);
            return data;
        }
    }
}

}  // namespace tsl::X11
