#include "Platform/X11/X11ClientWindow.h"

#include <xcb/res.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string_view>

#include "Platform/X11/X11OwnerPid.h"

namespace tsl::X11 {
namespace {

constexpr uint32_t iconicState = 3, withdrawnState = 0;
constexpr uint32_t longestText = 1024;  // 32-bit units of a name read

xcb_get_property_cookie_t ask(Connection& x, xcb_window_t w, xcb_atom_t property, uint32_t length = 1) {
    return xcb_get_property(x.raw(), 0, w, property, XCB_GET_PROPERTY_TYPE_ANY, 0, length);
}

using PropertyReply = Reply<xcb_get_property_reply_t>;

PropertyReply take(Connection& x, xcb_get_property_cookie_t cookie) {
    return wait(x.raw(), xcb_get_property_reply, cookie);
}

std::vector<uint32_t> cardinals(const PropertyReply& r) {
    if (!r || r->format != 32) return {};
    const int bytes = xcb_get_property_value_length(r.get());
    std::vector<uint32_t> out(size_t(bytes) / 4);
    if (!out.empty()) std::memcpy(out.data(), xcb_get_property_value(r.get()), out.size() * 4);
    return out;
}

std::optional<std::string> bytesOf(const PropertyReply& r) {
    if (!r || r->format != 8 || r->type == XCB_NONE) return std::nullopt;
    return std::string(static_cast<const char*>(xcb_get_property_value(r.get())),
                       size_t(xcb_get_property_value_length(r.get())));
}

std::string utf8FromLatin1(const std::string& s) {
    std::string out;
    for (unsigned char ch : s) {
        if (ch < 0x80) {
            out += char(ch);
        } else {
            out += char(0xC0 | (ch >> 6));
            out += char(0x80 | (ch & 0x3F));
        }
    }
    return out;
}

// The second of WM_CLASS's two strings.
std::string classOf(const std::optional<std::string>& wmClass) {
    if (!wmClass) return {};
    size_t end = wmClass->find('\0');
    if (end == std::string::npos) return {};
    std::string rest = wmClass->substr(end + 1);
    return rest.substr(0, rest.find('\0'));
}

struct Layering {
    int64_t layer = 0;
    bool desktop = false;
    bool known = false;
};

// A dialog the user must answer first, modal or standing for no window of
// its own, sits above documents; other dialogs stay with them, as sheets.
constexpr int64_t dialogLayer = 8;

Layering layerOf(Connection& x, const std::vector<uint32_t>& types, const std::vector<uint32_t>& netState,
                 bool transient) {
    const xcb_atom_t modal = x.atom("_NET_WM_STATE_MODAL");
    if (std::find(netState.begin(), netState.end(), modal) != netState.end()) return {dialogLayer, false, true};
    for (uint32_t t : types) {
        auto is = [&](std::string_view name) { return t == x.atom(name); };
        if (is("_NET_WM_WINDOW_TYPE_DIALOG")) return {transient ? 0 : dialogLayer, false, true};
        if (is("_NET_WM_WINDOW_TYPE_NORMAL")) return {0, false, true};
        if (is("_NET_WM_WINDOW_TYPE_DOCK")) return {20, false, true};
        if (is("_NET_WM_WINDOW_TYPE_MENU") || is("_NET_WM_WINDOW_TYPE_DROPDOWN_MENU") ||
            is("_NET_WM_WINDOW_TYPE_POPUP_MENU") || is("_NET_WM_WINDOW_TYPE_COMBO"))
            return {101, false, true};
        if (is("_NET_WM_WINDOW_TYPE_TOOLTIP") || is("_NET_WM_WINDOW_TYPE_NOTIFICATION")) return {1000, false, true};
        if (is("_NET_WM_WINDOW_TYPE_DESKTOP")) return {0, true, true};
    }
    return {};
}

// What the second step learns of a child of the root.
struct TopLevel {
    xcb_window_t id = 0;
    bool overrideRedirect = false;
    bool inputOnly = false;
    bool viewable = false;
    bool hasState = false;
    std::vector<xcb_window_t> children;
};

// The per-client requests of the last step, sent together.
struct ClientCookies {
    xcb_get_property_cookie_t pid, netName, name, wmClass, type, netState, wmState, transient, protocols;
    xcb_get_window_attributes_cookie_t attributes;
    xcb_get_geometry_cookie_t geometry;
    xcb_translate_coordinates_cookie_t position;
    std::optional<xcb_res_query_client_ids_cookie_t> owner;
};

ClientCookies askAbout(Connection& x, xcb_window_t w, bool hasRes) {
    ClientCookies c{};
    c.pid = ask(x, w, x.atom("_NET_WM_PID"));
    c.netName = ask(x, w, x.atom("_NET_WM_NAME"), longestText);
    c.name = ask(x, w, XCB_ATOM_WM_NAME, longestText);
    c.wmClass = ask(x, w, XCB_ATOM_WM_CLASS, 256);
    c.type = ask(x, w, x.atom("_NET_WM_WINDOW_TYPE"), 16);
    c.netState = ask(x, w, x.atom("_NET_WM_STATE"), 32);
    c.wmState = ask(x, w, x.atom("WM_STATE"), 2);
    c.transient = ask(x, w, XCB_ATOM_WM_TRANSIENT_FOR);
    c.protocols = ask(x, w, x.atom("WM_PROTOCOLS"), 32);
    c.attributes = xcb_get_window_attributes(x.raw(), w);
    c.geometry = xcb_get_geometry(x.raw(), w);
    c.position = xcb_translate_coordinates(x.raw(), w, x.root(), 0, 0);
    if (hasRes) {
        c.owner = askOwnerPid(x.raw(), w);
    }
    return c;
}

std::optional<int32_t> pidFromResource(Connection& x, xcb_res_query_client_ids_cookie_t cookie) {
    auto reply = wait(x.raw(), xcb_res_query_client_ids_reply, cookie);
    if (!reply) return std::nullopt;
    for (auto it = xcb_res_query_client_ids_ids_iterator(reply.get()); it.rem; xcb_res_client_id_value_next(&it)) {
        if (it.data->length < 4) continue;  // only the pid was asked for
        return int32_t(*xcb_res_client_id_value_value(it.data));
    }
    return std::nullopt;
}

// Collects the answers; nothing for a window that went away meanwhile or
// that is no client after all.
std::optional<ClientWindow> collect(Connection& x, xcb_window_t w, const TopLevel& top, ClientCookies& c) {
    ClientWindow out;
    out.id = w;
    out.topLevel = top.id;
    std::vector<uint32_t> pid = cardinals(take(x, c.pid));
    std::optional<std::string> netName = bytesOf(take(x, c.netName));
    std::optional<std::string> name = bytesOf(take(x, c.name));
    std::optional<std::string> wmClass = bytesOf(take(x, c.wmClass));
    std::vector<uint32_t> types = cardinals(take(x, c.type));
    std::vector<uint32_t> netState = cardinals(take(x, c.netState));
    std::vector<uint32_t> wmState = cardinals(take(x, c.wmState));
    std::vector<uint32_t> transient = cardinals(take(x, c.transient));
    std::vector<uint32_t> protocols = cardinals(take(x, c.protocols));
    auto attributes = wait(x.raw(), xcb_get_window_attributes_reply, c.attributes);
    auto geometry = wait(x.raw(), xcb_get_geometry_reply, c.geometry);
    auto position = wait(x.raw(), xcb_translate_coordinates_reply, c.position);
    std::optional<int32_t> ownerPid = c.owner ? pidFromResource(x, *c.owner) : std::nullopt;
    if (!attributes || !geometry || !position) return std::nullopt;
    if (!wmState.empty() && wmState[0] == withdrawnState) return std::nullopt;

    out.pid = ownerPid ? ownerPid : pid.empty() ? std::nullopt : std::optional<int32_t>(int32_t(pid[0]));
    if (netName) out.title = *netName;
    else if (name) out.title = utf8FromLatin1(*name);
    out.ownerName = out.pid ? x.processName(*out.pid, w) : std::string();
    if (out.ownerName.empty()) out.ownerName = classOf(wmClass);
    // Without a window manager a top level with neither class nor name is
    // nobody's application window.
    if (!top.hasState && !top.overrideRedirect && w == top.id && !wmClass && !out.title) return std::nullopt;

    out.bounds =
        Rect{double(position->dst_x), double(position->dst_y), double(geometry->width), double(geometry->height)};
    out.overrideRedirect = attributes->override_redirect;
    out.viewable = attributes->map_state == XCB_MAP_STATE_VIEWABLE;
    const xcb_atom_t hiddenAtom = x.atom("_NET_WM_STATE_HIDDEN");
    out.hidden = (!wmState.empty() && wmState[0] == iconicState) ||
                 std::find(netState.begin(), netState.end(), hiddenAtom) != netState.end();
    Layering layering = layerOf(x, types, netState, !transient.empty() && transient[0] != 0);
    out.layer = layering.known ? layering.layer : out.overrideRedirect ? 101 : 0;
    out.desktopElement = layering.desktop;
    out.transientFor = transient.empty() ? 0 : transient[0];
    const xcb_atom_t deleteAtom = x.atom("WM_DELETE_WINDOW");
    out.takesDelete = std::find(protocols.begin(), protocols.end(), deleteAtom) != protocols.end();
    return out;
}

// Which child of the root holds each client; the index into the stacking order.
using Placement = std::vector<std::pair<xcb_window_t, size_t>>;

void readTopLevel(Connection& x, TopLevel& top, xcb_get_window_attributes_cookie_t cookie) {
    auto attributes = wait(x.raw(), xcb_get_window_attributes_reply, cookie);
    // A window gone meanwhile is passed over like an input-only one.
    top.inputOnly = !attributes || attributes->_class == XCB_WINDOW_CLASS_INPUT_ONLY;
    if (!attributes) return;
    top.overrideRedirect = attributes->override_redirect;
    top.viewable = attributes->map_state == XCB_MAP_STATE_VIEWABLE;
}

// Hidden popups are no windows anyone can bring back; they are left out.
bool shownPopup(const TopLevel& t) { return !t.inputOnly && t.overrideRedirect && t.viewable; }

// Under a window manager that publishes its client list: each client's
// frame is its parent, so no frame is searched. Client requests go out with
// the first batch.
Placement placeManaged(Connection& x, std::vector<TopLevel>& tops, const std::vector<uint32_t>& managed,
                       std::map<xcb_window_t, ClientCookies>& asked, bool hasRes) {
    xcb_connection_t* c = x.raw();
    std::vector<xcb_get_window_attributes_cookie_t> attributes;
    for (const TopLevel& t : tops) attributes.push_back(xcb_get_window_attributes(c, t.id));
    std::vector<xcb_query_tree_cookie_t> parents;
    for (uint32_t client : managed) {
        parents.push_back(xcb_query_tree(c, client));
        asked.emplace(client, askAbout(x, client, hasRes));
    }
    for (size_t i = 0; i < tops.size(); ++i) readTopLevel(x, tops[i], attributes[i]);
    std::map<xcb_window_t, size_t> index;
    for (size_t i = 0; i < tops.size(); ++i) index[tops[i].id] = i;
    Placement placed;
    for (size_t k = 0; k < managed.size(); ++k) {
        auto tree = wait(c, xcb_query_tree_reply, parents[k]);
        xcb_window_t at = managed[k], parent = tree ? tree->parent : XCB_NONE;
        // A manager may nest a client deeper than one frame.
        for (int depth = 0; parent != XCB_NONE && parent != x.root() && !index.count(parent) && depth < 8; ++depth) {
            auto up = wait(c, xcb_query_tree_reply, xcb_query_tree(c, parent));
            parent = up ? up->parent : XCB_NONE;
        }
        if (parent != x.root()) at = parent;
        auto it = index.find(at);
        if (parent != XCB_NONE && it != index.end() && !tops[it->second].inputOnly) {
            tops[it->second].hasState = true;
            placed.emplace_back(managed[k], it->second);
        }
    }
    for (size_t i = 0; i < tops.size(); ++i)
        if (shownPopup(tops[i]) && !tops[i].hasState) {
            asked.emplace(tops[i].id, askAbout(x, tops[i].id, hasRes));
            placed.emplace_back(tops[i].id, i);
        }
    return placed;
}

// Without a client list: WM_STATE on each child of the root, else on its
// children (inside a frame); a top level without it counts only when no
// window manager runs.
Placement placeBySearch(Connection& x, std::vector<TopLevel>& tops, const std::vector<uint32_t>& checkWindow,
                        std::map<xcb_window_t, ClientCookies>& asked, bool hasRes) {
    xcb_connection_t* c = x.raw();
    const xcb_atom_t wmState = x.atom("WM_STATE");
    const xcb_atom_t wmCheck = x.atom("_NET_SUPPORTING_WM_CHECK");
    struct Second {
        xcb_get_window_attributes_cookie_t attributes;
        xcb_get_property_cookie_t state;
        xcb_query_tree_cookie_t tree;
    };
    std::vector<Second> second;
    for (const TopLevel& t : tops)
        second.push_back({xcb_get_window_attributes(c, t.id), ask(x, t.id, wmState), xcb_query_tree(c, t.id)});
    for (size_t i = 0; i < tops.size(); ++i) {
        readTopLevel(x, tops[i], second[i].attributes);
        auto state = take(x, second[i].state);
        auto subtree = wait(c, xcb_query_tree_reply, second[i].tree);
        if (!subtree) tops[i].inputOnly = true;
        if (tops[i].inputOnly) continue;
        tops[i].hasState = state && state->type != XCB_NONE;
        const xcb_window_t* sub = xcb_query_tree_children(subtree.get());
        tops[i].children.assign(sub, sub + xcb_query_tree_children_length(subtree.get()));
    }
    std::vector<std::vector<xcb_get_property_cookie_t>> third(tops.size());
    for (size_t i = 0; i < tops.size(); ++i)
        if (!tops[i].inputOnly && !tops[i].hasState && !tops[i].overrideRedirect)
            for (xcb_window_t child : tops[i].children) third[i].push_back(ask(x, child, wmState));
    std::optional<xcb_get_property_cookie_t> checkSelf;
    if (!checkWindow.empty()) checkSelf = ask(x, checkWindow[0], wmCheck);
    Placement placed;
    std::vector<bool> bare;  // a top level standing for itself, without WM_STATE
    for (size_t i = 0; i < tops.size(); ++i) {
        std::optional<xcb_window_t> inside;
        for (size_t k = 0; k < third[i].size(); ++k) {
            auto state = take(x, third[i][k]);
            if (!inside && state && state->type != XCB_NONE) inside = tops[i].children[k];
        }
        const TopLevel& t = tops[i];
        if (t.inputOnly || (t.overrideRedirect && !shownPopup(t))) continue;
        placed.emplace_back(t.hasState || t.overrideRedirect || !inside ? t.id : *inside, i);
        bare.push_back(!t.hasState && !t.overrideRedirect && !inside);
    }
    std::vector<uint32_t> self = checkSelf ? cardinals(take(x, *checkSelf)) : std::vector<uint32_t>{};
    const bool managed = !checkWindow.empty() && !self.empty() && self[0] == checkWindow[0];
    Placement kept;
    for (size_t k = 0; k < placed.size(); ++k) {
        if (managed && bare[k]) continue;
        kept.push_back(placed[k]);
        asked.emplace(placed[k].first, askAbout(x, placed[k].first, hasRes));
    }
    return kept;
}

}  // namespace

std::vector<ClientWindow> ClientWindow::list(Connection& x) {
    xcb_connection_t* c = x.raw();
    x.intern({"_NET_WM_WINDOW_TYPE_NORMAL", "_NET_WM_WINDOW_TYPE_DIALOG", "_NET_WM_WINDOW_TYPE_DOCK",
              "_NET_WM_WINDOW_TYPE_MENU", "_NET_WM_WINDOW_TYPE_DROPDOWN_MENU", "_NET_WM_WINDOW_TYPE_POPUP_MENU",
              "_NET_WM_WINDOW_TYPE_COMBO", "_NET_WM_WINDOW_TYPE_TOOLTIP", "_NET_WM_WINDOW_TYPE_NOTIFICATION",
              "_NET_WM_WINDOW_TYPE_DESKTOP", "_NET_CLIENT_LIST", "_NET_WM_STATE_MODAL"});
    const xcb_query_extension_reply_t* res = xcb_get_extension_data(c, &xcb_res_id);
    const bool hasRes = res && res->present;

    // The stacking order, bottom first, and what a window manager says of itself.
    auto treeCookie = xcb_query_tree(c, x.root());
    auto clientList = xcb_get_property(c, 0, x.root(), x.atom("_NET_CLIENT_LIST"), XCB_ATOM_WINDOW, 0, 1 << 16);
    auto rootCheck = ask(x, x.root(), x.atom("_NET_SUPPORTING_WM_CHECK"));
    auto tree = wait(c, xcb_query_tree_reply, treeCookie);
    const std::vector<uint32_t> managed = cardinals(take(x, clientList));
    const std::vector<uint32_t> checkWindow = cardinals(take(x, rootCheck));
    if (!tree) return {};
    const xcb_window_t* kids = xcb_query_tree_children(tree.get());
    std::vector<TopLevel> tops(size_t(xcb_query_tree_children_length(tree.get())));
    for (size_t i = 0; i < tops.size(); ++i) tops[i].id = kids[i];

    std::map<xcb_window_t, ClientCookies> asked;
    Placement placed = !managed.empty() && !checkWindow.empty() ? placeManaged(x, tops, managed, asked, hasRes)
                                                                : placeBySearch(x, tops, checkWindow, asked, hasRes);
    // Every reply is read, also of clients that found no place.
    std::map<xcb_window_t, std::optional<ClientWindow>> collected;
    std::map<xcb_window_t, size_t> topOf;
    for (const auto& [w, i] : placed) topOf[w] = i;
    for (auto& [w, cookies] : asked) {
        auto it = topOf.find(w);
        TopLevel none;
        collected[w] = collect(x, w, it == topOf.end() ? none : tops[it->second], cookies);
    }
    std::sort(placed.begin(), placed.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    std::vector<ClientWindow> out;
    for (const auto& [w, i] : placed)  // front to back
        if (auto& window = collected[w]) out.push_back(std::move(*window));
    return out;
}

std::optional<ClientWindow> ClientWindow::containing(Connection& x, xcb_window_t window,
                                                     const std::vector<ClientWindow>& clients) {
    for (int depth = 0; window != XCB_NONE && window != x.root() && depth < 16; ++depth) {
        for (const ClientWindow& client : clients)
            if (client.id == window) return client;
        auto tree = wait(x.raw(), xcb_query_tree_reply, xcb_query_tree(x.raw(), window));
        if (!tree) return std::nullopt;
        window = tree->parent;
    }
    return std::nullopt;
}

}  // namespace tsl::X11
