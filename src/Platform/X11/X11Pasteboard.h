#pragma once
#include <xcb/xcb.h>

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Pasteboard.h"
#include "Platform/X11/X11Connection.h"

namespace tsl::X11 {

// The CLIPBOARD selection as the general pasteboard. The change count counts
// owner changes, as XFIXES reports them. Reading asks the owner for TARGETS,
// then for the type, each answer (and each INCR chunk) within `answerTime`.
// Writing owns the selection with a hidden window of our own and answers
// TARGETS, TIMESTAMP and each stored type from memory until another client
// takes it. Data larger than one request travels in INCR chunks, both ways.
//
// The concealed marker is the hint password managers set here
// (x-kde-passwordManagerHint: secret); file URLs are text/uri-list.
class X11Pasteboard final : public Pasteboard {
public:
    static constexpr double answerTime = 0.5;  // seconds
    static constexpr const char* typeConcealed = "org.nspasteboard.ConcealedType";

    // A type larger than `readLimit` reads as its first readLimit + 1 bytes
    // and the rest is never fetched: enough for a size check to refuse it,
    // without holding an owner's whole offer in memory.
    X11Pasteboard(std::shared_ptr<Connection> x, size_t readLimit);
    ~X11Pasteboard() override;
    X11Pasteboard(const X11Pasteboard&) = delete;
    X11Pasteboard& operator=(const X11Pasteboard&) = delete;

    int64_t changeCount() override;
    std::vector<std::string> types() override;
    std::optional<Bytes> dataForType(const std::string& type) override;
    // Takes the selection; returns once the server has counted the change.
    int64_t clearContents() override;
    // Only while we own the selection, and only for types that have an X name.
    bool setData(const Bytes& data, const std::string& type) override;

    // Largest piece sent in one request; more goes by INCR.
    size_t chunkSize() const { return chunk; }

private:
    struct Transfer {
        std::shared_ptr<const Bytes> data;
        xcb_atom_t target = XCB_ATOM_NONE;
        size_t sent = 0;
    };
    using Offer = std::pair<std::string, std::shared_ptr<const Bytes>>;

    void onEvent(const xcb_generic_event_t& event);
    void answer(const xcb_selection_request_event_t& request);
    void continueTransfer(xcb_window_t requestor, xcb_atom_t property);
    bool waitFor(const std::function<bool()>& done);

    std::optional<Bytes> convert(xcb_atom_t target, size_t limit);
    std::vector<xcb_atom_t> targets();

    const std::shared_ptr<Connection> x;
    const size_t readLimit;
    xcb_window_t window = XCB_NONE;
    uint8_t xfixesEvent = 0;
    size_t chunk = 0;
    uint64_t listener = 0;

    std::mutex readLock;  // one conversion at a time

    std::mutex lock;
    int64_t count = 0;
    bool owning = false;
    xcb_timestamp_t ownedSince = 0;
    bool ownChangeSeen = false;
    std::vector<Offer> stored;
    std::optional<xcb_timestamp_t> stamp;
    std::optional<xcb_selection_notify_event_t> notified;
    uint64_t newValues = 0;
    std::map<std::pair<xcb_window_t, xcb_atom_t>, Transfer> transfers;
    int64_t targetsCount = -1;
    std::vector<xcb_atom_t> targetsSeen;
};

}  // namespace tsl::X11
