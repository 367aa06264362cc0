#include "Platform/X11/AtspiElements.h"

#include <atspi/atspi.h>

#include <cmath>
#include <deque>
#include <memory>
#include <vector>

#include "Platform/X11/AtspiShortcut.h"
#include "Platform/X11/AtspiThread.h"

namespace tsl::X11 {
namespace {

// Everything below runs on the AT-SPI thread.

// A reference owned here; one that outlives its job is released on the thread.
struct Held {
    AtspiAccessible* object;
    explicit Held(AtspiAccessible* object) : object(object) {}
    ~Held() { AtspiThread::shared().release(object); }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
};
using Object = std::shared_ptr<Held>;

Object hold(AtspiAccessible* object) { return object ? std::make_shared<Held>(object) : nullptr; }

// Says whether a call went through, dropping its error.
struct Status {
    GError* error = nullptr;
    ~Status() { g_clear_error(&error); }
    bool ok() const { return error == nullptr; }
};

struct Facts {
    AtspiRole role = ATSPI_ROLE_INVALID;
    std::string name;
    bool enabled = true;
    bool checked = false;
    bool multiLine = false;
};

struct Node final : AXElementRef {
    Object object;
    bool asMenu;  // the menu of a menu item, as Accessibility has it
    Node(Object object, bool asMenu) : object(std::move(object)), asMenu(asMenu) {}
    mutable std::optional<Facts> facts;
    mutable std::optional<std::optional<MenuShortcut>> shortcut;
};

struct Content final : AXElementRef {
    AtspiElements::Window window;
    explicit Content(AtspiElements::Window window) : window(std::move(window)) {}
};

std::string text(gchar* owned) {
    std::string out = owned ? owned : "";
    g_free(owned);
    return out;
}

std::vector<Object> children(AtspiAccessible* a) {
    std::vector<Object> out;
    Status s;
    const gint count = atspi_accessible_get_child_count(a, &s.error);
    for (gint i = 0; s.ok() && i < count; ++i) {
        Status c;
        if (Object child = hold(atspi_accessible_get_child_at_index(a, i, &c.error))) out.push_back(child);
    }
    return out;
}

std::optional<Facts> readFacts(AtspiAccessible* a) {
    Facts f;
    Status role, name;
    f.role = atspi_accessible_get_role(a, &role.error);
    if (!role.ok()) return std::nullopt;
    f.name = text(atspi_accessible_get_name(a, &name.error));
    if (AtspiStateSet* states = atspi_accessible_get_state_set(a)) {
        f.enabled = atspi_state_set_contains(states, ATSPI_STATE_ENABLED);
        f.checked = atspi_state_set_contains(states, ATSPI_STATE_CHECKED);
        f.multiLine = atspi_state_set_contains(states, ATSPI_STATE_MULTI_LINE);
        g_object_unref(states);
    }
    return f;
}

const Facts* factsOf(const Node& n) {
    if (!n.facts) n.facts = readFacts(n.object->object);
    return n.facts ? &*n.facts : nullptr;
}

bool isMenuItem(AtspiRole r) {
    return r == ATSPI_ROLE_MENU || r == ATSPI_ROLE_MENU_ITEM || r == ATSPI_ROLE_CHECK_MENU_ITEM ||
           r == ATSPI_ROLE_RADIO_MENU_ITEM || r == ATSPI_ROLE_TEAROFF_MENU_ITEM || r == ATSPI_ROLE_SEPARATOR;
}

std::string roleName(const Facts& f) {
    if (isMenuItem(f.role)) return "AXMenuItem";
    switch (f.role) {
        case ATSPI_ROLE_MENU_BAR: return "AXMenuBar";
        case ATSPI_ROLE_LABEL:
        case ATSPI_ROLE_STATIC:
        case ATSPI_ROLE_CAPTION:
        case ATSPI_ROLE_HEADING: return "AXStaticText";
        case ATSPI_ROLE_PUSH_BUTTON:
        case ATSPI_ROLE_TOGGLE_BUTTON: return "AXButton";
        case ATSPI_ROLE_ENTRY:
        case ATSPI_ROLE_PASSWORD_TEXT:
        case ATSPI_ROLE_SPIN_BUTTON: return "AXTextField";
        case ATSPI_ROLE_TEXT: return f.multiLine ? "AXTextArea" : "AXTextField";
        case ATSPI_ROLE_DOCUMENT_TEXT:
        case ATSPI_ROLE_TERMINAL: return "AXTextArea";
        case ATSPI_ROLE_FRAME:
        case ATSPI_ROLE_WINDOW:
        case ATSPI_ROLE_DIALOG: return "AXWindow";
        default: return "AXGroup";
    }
}

std::optional<MenuShortcut> readShortcut(AtspiAccessible* a, CommandKey command) {
    AtspiAction* action = atspi_accessible_get_action_iface(a);
    if (!action) return std::nullopt;
    Status s;
    const std::string binding = text(atspi_action_get_key_binding(action, 0, &s.error));
    g_object_unref(action);
    return menuShortcut(binding, command);
}

std::vector<AXElement> elements(const std::vector<Object>& objects) {
    std::vector<AXElement> out;
    for (const Object& o : objects) out.push_back(std::make_shared<Node>(o, false));
    return out;
}

// The process's application on the bus.
Object application(int32_t pid) {
    Object desktop = hold(atspi_get_desktop(0));
    if (!desktop) return nullptr;
    for (const Object& app : children(desktop->object)) {
        Status s;
        if (atspi_accessible_get_process_id(app->object, &s.error) == guint(pid) && s.ok()) return app;
    }
    return nullptr;
}

std::optional<Rect> extents(AtspiAccessible* a) {
    AtspiComponent* component = atspi_accessible_get_component_iface(a);
    if (!component) return std::nullopt;
    Status s;
    AtspiRect* r = atspi_component_get_extents(component, ATSPI_COORD_TYPE_SCREEN, &s.error);
    g_object_unref(component);
    if (!r) return std::nullopt;
    Rect out{double(r->x), double(r->y), double(r->width), double(r->height)};
    g_free(r);
    return out;
}

bool closeTo(const Rect& a, const Rect& b) {
    return std::abs(a.x - b.x) < 2 && std::abs(a.y - b.y) < 2 && std::abs(a.width - b.width) < 2 &&
           std::abs(a.height - b.height) < 2;
}

// The frame by its title; among several (or none) of that title, by where
// it is; else the process's only frame.
Object frameOf(const std::vector<Object>& frames, const AtspiElements::Window& window) {
    std::vector<Object> named;
    for (const Object& f : frames) {
        Status s;
        if (text(atspi_accessible_get_name(f->object, &s.error)) == window.title) named.push_back(f);
    }
    if (named.size() == 1) return named.front();
    for (const Object& f : named.empty() ? frames : named)
        if (auto r = extents(f->object); r && closeTo(*r, window.bounds)) return f;
    return frames.size() == 1 ? frames.front() : nullptr;
}

Object frameOf(const AtspiElements::Window& window) {
    Object app = application(window.pid);
    return app ? frameOf(children(app->object), window) : nullptr;
}

// A menu bar sits near the top of its frame: looked for three levels down.
Object menuBarIn(const Object& frame) {
    constexpr int deepest = 3;
    constexpr size_t mostLooks = 64;
    std::deque<std::pair<Object, int>> queue{{frame, 0}};
    for (size_t looks = 0; !queue.empty() && looks < mostLooks; ++looks) {
        auto [o, depth] = queue.front();
        queue.pop_front();
        Status s;
        const AtspiRole role = atspi_accessible_get_role(o->object, &s.error);
        if (role == ATSPI_ROLE_MENU_BAR) return o;
        if (depth < deepest && !isMenuItem(role) && role != ATSPI_ROLE_MENU_BAR)
            for (Object& child : children(o->object)) queue.emplace_back(std::move(child), depth + 1);
    }
    return nullptr;
}

AXError copyFromNode(const Node& n, const std::string& attribute, std::optional<AXAttributeValue>& value,
                     CommandKey command) {
    const Facts* f = factsOf(n);
    if (!f) return AXError::cannotComplete;
    if (n.asMenu) {
        if (attribute == "AXRole") value = std::string("AXMenu");
        else if (attribute == "AXChildren") value = elements(children(n.object->object));
        else return AXError::attributeUnsupported;
        return AXError::success;
    }
    const bool menuItem = isMenuItem(f->role);
    if (attribute == "AXRole") {
        value = roleName(*f);
    } else if (attribute == "AXTitle") {
        value = f->name;
    } else if (attribute == "AXValue" && roleName(*f) == "AXStaticText") {
        value = f->name;
    } else if (attribute == "AXEnabled") {
        value = f->enabled;
    } else if (attribute == "AXChildren") {
        if (f->role == ATSPI_ROLE_MENU) value = std::vector<AXElement>{std::make_shared<Node>(n.object, true)};
        else if (menuItem) value = std::vector<AXElement>{};
        else value = elements(children(n.object->object));
    } else if (attribute == "AXMenuItemMarkChar" && menuItem) {
        if (!f->checked) return AXError::noValue;
        value = std::string("\u2713");
    } else if ((attribute == "AXMenuItemCmdChar" || attribute == "AXMenuItemCmdModifiers") && menuItem) {
        if (!n.shortcut) n.shortcut = readShortcut(n.object->object, command);
        if (!*n.shortcut) return AXError::noValue;
        if (attribute == "AXMenuItemCmdChar") value = (*n.shortcut)->character;
        else value = (*n.shortcut)->modifiers;
    } else {
        return AXError::attributeUnsupported;
    }
    return AXError::success;
}

// Closing a menu is taking the selection off its item in the menu above.
AXError cancel(const Node& n) {
    Status p;
    Object parent = hold(atspi_accessible_get_parent(n.object->object, &p.error));
    AtspiSelection* selection = parent ? atspi_accessible_get_selection_iface(parent->object) : nullptr;
    if (!selection) return AXError::actionUnsupported;
    Status s;
    const bool done = atspi_selection_clear_selection(selection, &s.error);
    g_object_unref(selection);
    return done && s.ok() ? AXError::success : AXError::cannotComplete;
}

AXError press(const Node& n) {
    AtspiAction* action = atspi_accessible_get_action_iface(n.object->object);
    if (!action) return AXError::actionUnsupported;
    Status s;
    const bool done = atspi_action_do_action(action, 0, &s.error);
    g_object_unref(action);
    return done && s.ok() ? AXError::success : AXError::cannotComplete;
}

}  // namespace

bool AtspiElements::busAnswers() {
    return AtspiThread::shared().call([] {
        if (!AtspiThread::shared().connect()) return false;
        Object desktop = hold(atspi_get_desktop(0));
        if (!desktop) return false;
        Status s;
        atspi_accessible_get_child_count(desktop->object, &s.error);
        return s.ok();
    });
}

std::optional<AXElement> AtspiElements::menuBar(const Window& window) {
    return AtspiThread::shared().call([&]() -> std::optional<AXElement> {
        if (!AtspiThread::shared().connect()) return std::nullopt;
        Object app = application(window.pid);
        if (!app) return std::nullopt;
        const std::vector<Object> frames = children(app->object);
        Object bar;
        if (Object frame = frameOf(frames, window)) bar = menuBarIn(frame);
        for (size_t i = 0; !bar && i < frames.size(); ++i) bar = menuBarIn(frames[i]);
        if (!bar) return std::nullopt;
        return std::make_shared<Node>(bar, false);
    });
}

AXElement AtspiElements::content(const Window& window) { return std::make_shared<Content>(window); }

bool AtspiElements::owns(const AXElement& element) {
    return dynamic_cast<const Node*>(element.get()) || dynamic_cast<const Content*>(element.get());
}

AXError AtspiElements::copyAttributeValue(const AXElement& element, const std::string& attribute,
                                          std::optional<AXAttributeValue>& value) {
    value.reset();
    if (auto* c = dynamic_cast<const Content*>(element.get())) {
        if (attribute == "AXRole") {
            value = std::string("AXGroup");
            return AXError::success;
        }
        if (attribute != "AXChildren") return AXError::attributeUnsupported;
        return AtspiThread::shared().call([&] {
            if (!AtspiThread::shared().connect()) return AXError::cannotComplete;
            Object frame = frameOf(c->window);
            value = frame ? elements(children(frame->object)) : std::vector<AXElement>{};
            return AXError::success;
        });
    }
    auto* n = dynamic_cast<const Node*>(element.get());
    if (!n) return AXError::illegalArgument;
    return AtspiThread::shared().call([&] { return copyFromNode(*n, attribute, value, command); });
}

AXError AtspiElements::performAction(const AXElement& element, const std::string& action) {
    auto* n = dynamic_cast<const Node*>(element.get());
    if (!n) return AXError::actionUnsupported;
    return AtspiThread::shared().call([&] {
        if (action == "AXCancel") return cancel(*n);
        if (action == "AXPress" && !n->asMenu) return press(*n);
        return AXError::actionUnsupported;
    });
}

}  // namespace tsl::X11
