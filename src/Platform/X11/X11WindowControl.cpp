#include "Platform/X11/X11WindowControl.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace tsl::X11 {
namespace {

constexpr uint32_t staticGravity = XCB_GRAVITY_STATIC;
constexpr uint32_t sourcePager = 2;  // EWMH: the request comes from a tool acting for the user
constexpr uint32_t iconicWindowState = 3;

}  // namespace

std::optional<Rect> WindowControl::frame(xcb_window_t client) {
    xcb_connection_t* c = x->raw();
    auto geometryCookie = xcb_get_geometry(c, client);
    auto positionCookie = xcb_translate_coordinates(c, client, x->root(), 0, 0);
    auto geometry = wait(c, xcb_get_geometry_reply, geometryCookie);
    auto position = wait(c, xcb_translate_coordinates_reply, positionCookie);
    if (!geometry || !position) return std::nullopt;
    return Rect{double(position->dst_x), double(position->dst_y), double(geometry->width), double(geometry->height)};
}

bool WindowControl::sendToRoot(xcb_window_t window, xcb_atom_t type, std::initializer_list<uint32_t> data) {
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window;
    message.type = type;
    std::copy(data.begin(), data.end(), message.data.data32);
    auto cookie = xcb_send_event_checked(x->raw(), 0, x->root(),
                                         XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                                         reinterpret_cast<const char*>(&message));
    return !x->check(cookie);
}

bool WindowControl::waitFor(xcb_window_t client, const std::function<bool()>& done) {
    x->watch(client);
    const auto deadline = Connection::Clock::now() + std::chrono::duration_cast<Connection::Clock::duration>(
                                                         std::chrono::duration<double>(settle));
    return x->waitUntil(done, deadline);
}

bool WindowControl::setFrame(xcb_window_t client, std::optional<Point> origin, std::optional<Size> size) {
    if (!origin && !size) return false;
    const int32_t px = origin ? int32_t(std::lround(origin->x)) : 0, py = origin ? int32_t(std::lround(origin->y)) : 0;
    const uint32_t width = size ? uint32_t(std::max(1L, std::lround(size->width))) : 0;
    const uint32_t height = size ? uint32_t(std::max(1L, std::lround(size->height))) : 0;
    auto geometry = wait(x->raw(), xcb_get_geometry_reply, xcb_get_geometry(x->raw(), client));
    const std::optional<Rect> before = frame(client);
    if (!geometry || !before) return false;
    const bool managed = x->hasWindowManager();
    // Both ways place the outer corner of the border; the client's area starts inside it.
    auto request = [&](int32_t left, int32_t top) {
        if (managed) {
            uint32_t flags = staticGravity | (sourcePager << 12);
            if (origin) flags |= (1 << 8) | (1 << 9);
            if (size) flags |= (1 << 10) | (1 << 11);
            return sendToRoot(client, x->atom("_NET_MOVERESIZE_WINDOW"),
                              {flags, uint32_t(left), uint32_t(top), width, height});
        }
        uint16_t mask = 0;
        std::vector<uint32_t> values;
        if (origin) {
            mask |= XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y;
            values.insert(values.end(), {uint32_t(left), uint32_t(top)});
        }
        if (size) {
            mask |= XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT;
            values.insert(values.end(), {width, height});
        }
        return !x->check(xcb_configure_window_checked(x->raw(), client, mask, values.data()));
    };
    auto placed = [&](const Rect& now) { return !origin || (now.x == px && now.y == py); };
    auto sized = [&](const Rect& now) { return !size || (now.width == width && now.height == height); };
    const int32_t border = geometry->border_width;
    if (!request(px - border, py - border)) return false;
    std::optional<Rect> now;
    waitFor(client, [&] {
        now = frame(client);
        return now && ((placed(*now) && sized(*now)) || *now != *before);
    });
    if (!now) return false;
    // A window manager may count a border the client no longer has: put it
    // right once, by what it was off.
    if (!placed(*now) && *now != *before) {
        if (!request(px - border - int32_t(now->x - px), py - border - int32_t(now->y - py))) return false;
        waitFor(client, [&] {
            now = frame(client);
            return now && placed(*now) && sized(*now);
        });
    } else if (!sized(*now)) {
        waitFor(client, [&] {
            now = frame(client);
            return now && sized(*now);
        });
    }
    // A client that sizes itself in steps (a terminal's cells) lands near the size asked for.
    return now && placed(*now) && (sized(*now) || now->size() != before->size());
}

bool WindowControl::minimise(xcb_window_t client) {
    bool sent = x->hasWindowManager() ? sendToRoot(client, x->atom("WM_CHANGE_STATE"), {iconicWindowState})
                                      : !x->check(xcb_unmap_window_checked(x->raw(), client));
    if (!sent) return false;
    return waitFor(client, [&] {
        auto attributes = wait(x->raw(), xcb_get_window_attributes_reply, xcb_get_window_attributes(x->raw(), client));
        return attributes && attributes->map_state != XCB_MAP_STATE_VIEWABLE;
    });
}

bool WindowControl::restore(xcb_window_t client) {
    // A window manager turns the map request of an iconic client into a restore.
    if (x->check(xcb_map_window_checked(x->raw(), client))) return false;
    return waitFor(client, [&] {
        auto attributes = wait(x->raw(), xcb_get_window_attributes_reply, xcb_get_window_attributes(x->raw(), client));
        return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
    });
}

bool WindowControl::activate(const ClientWindow& client) {
    if (hasFocus(client.id) && nothingAbove(client.topLevel)) return true;
    if (x->hasWindowManager()) {
        if (!sendToRoot(client.id, x->atom("_NET_ACTIVE_WINDOW"), {sourcePager, XCB_CURRENT_TIME, 0})) return false;
    } else {
        const uint32_t above = XCB_STACK_MODE_ABOVE;
        xcb_configure_window(x->raw(), client.topLevel, XCB_CONFIG_WINDOW_STACK_MODE, &above);
        if (x->check(xcb_set_input_focus_checked(x->raw(), XCB_INPUT_FOCUS_PARENT, client.id, XCB_CURRENT_TIME)))
            return false;
    }
    if (waitFor(client.id, [&] { return hasFocus(client.id); })) return true;
    return nothingAbove(client.topLevel);
}

bool WindowControl::close(const ClientWindow& client) {
    if (x->hasWindowManager())
        return sendToRoot(client.id, x->atom("_NET_CLOSE_WINDOW"), {XCB_CURRENT_TIME, sourcePager});
    if (!client.takesDelete) return false;
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = client.id;
    message.type = x->atom("WM_PROTOCOLS");
    message.data.data32[0] = x->atom("WM_DELETE_WINDOW");
    message.data.data32[1] = XCB_CURRENT_TIME;
    return !x->check(xcb_send_event_checked(x->raw(), 0, client.id, XCB_EVENT_MASK_NO_EVENT,
                                            reinterpret_cast<const char*>(&message)));
}

std::optional<ClientWindow> WindowControl::focused(const std::vector<ClientWindow>& clients) {
    auto focus = wait(x->raw(), xcb_get_input_focus_reply, xcb_get_input_focus(x->raw()));
    if (!focus) return std::nullopt;
    return ClientWindow::containing(*x, focus->focus, clients);
}

bool WindowControl::hasFocus(xcb_window_t client) {
    auto focus = wait(x->raw(), xcb_get_input_focus_reply, xcb_get_input_focus(x->raw()));
    if (!focus) return false;
    xcb_window_t w = focus->focus;
    for (int depth = 0; w != XCB_NONE && w != XCB_INPUT_FOCUS_POINTER_ROOT && w != x->root() && depth < 16; ++depth) {
        if (w == client) return true;
        auto tree = wait(x->raw(), xcb_query_tree_reply, xcb_query_tree(x->raw(), w));
        if (!tree) return false;
        w = tree->parent;
    }
    return false;
}

bool WindowControl::nothingAbove(xcb_window_t topLevel) {
    xcb_connection_t* c = x->raw();
    auto tree = wait(c, xcb_query_tree_reply, xcb_query_tree(c, x->root()));
    if (!tree) return false;
    const xcb_window_t* kids = xcb_query_tree_children(tree.get());
    const int count = xcb_query_tree_children_length(tree.get());
    const xcb_window_t* at = std::find(kids, kids + count, topLevel);
    if (at == kids + count) return false;
    std::vector<xcb_get_window_attributes_cookie_t> cookies;
    for (const xcb_window_t* w = at + 1; w < kids + count; ++w) cookies.push_back(xcb_get_window_attributes(c, *w));
    bool covered = false;
    for (auto cookie : cookies) {
        auto a = wait(c, xcb_get_window_attributes_reply, cookie);
        // Popups and input-only windows above don't count as covering.
        if (a && a->map_state == XCB_MAP_STATE_VIEWABLE && !a->override_redirect &&
            a->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT)
            covered = true;
    }
    return !covered;
}

}  // namespace tsl::X11
