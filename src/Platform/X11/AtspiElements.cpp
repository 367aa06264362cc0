#include "Platform/X11/AtspiElements.h"

#include <atspi/atspi.h>

#include <cmath>
#include <memory>
#include <mutex>
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
    std::optional<MenuShortcut> shortcut;  // menu items only
};

// Facts are read once, on the AT-SPI thread; once there, any thread answers
// from them without a trip to that thread.
struct Node final : AXElementRef {
    Object object;
    bool asMenu;  // the menu of a menu item, as Accessibility has it
    Node(Object object, bool asMenu) : object(std::move(object)), asMenu(asMenu) {}

    std::optional<Facts> known() const {
        std::lock_guard g(lock);
        return facts;
    }
    void learn(Facts f) const {
        std::lock_guard g(lock);
        facts = std::move(f);
    }

private:
    mutable std::mutex lock;
    mutable std::optional<Facts> facts;
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

std::optional<Facts> readFacts(AtspiAccessible* a, CommandKey command) {
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
    if (isMenuItem(f.role)) f.shortcut = readShortcut(a, command);
    return f;
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

// A menu bar sits near the top of its frame: looked for three levels down,
// each level's roles seen before any level below is opened.
Object menuBarIn(const Object& frame) {
    constexpr int deepest = 3;
    constexpr size_t mostLooks = 64;
    std::vector<Object> level{frame};
    size_t looks = 0;
    for (int depth = 0; depth < deepest && !level.empty(); ++depth) {
        std::vector<Object> next;
        for (const Object& o : level)
            for (Object& child : children(o->object)) {
                if (++looks > mostLooks) return nullptr;
                Status s;
                const AtspiRole role = atspi_accessible_get_role(child->object, &s.error);
                if (role == ATSPI_ROLE_MENU_BAR) return child;
                if (s.ok() && !isMenuItem(role)) next.push_back(std::move(child));
            }
        level = std::move(next);
    }
    return nullptr;
}

// Children are read whole with their facts: whoever lists them goes on to
// ask each, and one trip to the thread for the lot saves one per child.
std::vector<AXElement> elements(const std::vector<Object>& objects, CommandKey command) {
    std::vector<AXElement> out;
    for (const Object& o : objects) {
        auto node = std::make_shared<Node>(o, false);
        if (auto f = readFacts(o->object, command)) node->learn(std::move(*f));
        out.push_back(std::move(node));
    }
    return out;
}

// What the facts alone answer; nothing when the answer needs the thread.
std::optional<AXError> answer(const Node& n, const Facts& f, const std::string& attribute,
                              std::optional<AXAttributeValue>& value) {
    const bool menuItem = isMenuItem(f.role);
    if (n.asMenu) {
        if (attribute == "AXChildren") return std::nullopt;
        if (attribute != "AXRole") return AXError::attributeUnsupported;
        value = std::string("AXMenu");
    } else if (attribute == "AXRole") {
        value = roleName(f);
    } else if (attribute == "AXTitle") {
        value = f.name;
    } else if (attribute == "AXValue" && roleName(f) == "AXStaticText") {
        value = f.name;
    } else if (attribute == "AXEnabled") {
        value = f.enabled;
    } else if (attribute == "AXChildren") {
        if (f.role == ATSPI_ROLE_MENU) {
            auto menu = std::make_shared<Node>(n.object, true);
            menu->learn(f);
            value = std::vector<AXElement>{std::move(menu)};
        } else if (menuItem) {
            value = std::vector<AXElement>{};
        } else {
            return std::nullopt;
        }
    } else if (attribute == "AXMenuItemMarkChar" && menuItem) {
        if (!f.checked) return AXError::noValue;
        value = std::string("\u2713");
    } else if (attribute == "AXMenuItemCmdChar" && menuItem) {
        if (!f.shortcut) return AXError::noValue;
        value = f.shortcut->character;
    } else if (attribute == "AXMenuItemCmdModifiers" && menuItem) {
        if (!f.shortcut) return AXError::noValue;
        value = f.shortcut->modifiers;
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
        auto node = std::make_shared<Node>(bar, false);
        Facts known;  // its role is all a bar is asked for but its items
        known.role = ATSPI_ROLE_MENU_BAR;
        node->learn(std::move(known));
        return node;
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
            value = frame ? elements(children(frame->object), command) : std::vector<AXElement>{};
            return AXError::success;
        });
    }
    auto* n = dynamic_cast<const Node*>(element.get());
    if (!n) return AXError::illegalArgument;
    if (auto f = n->known())
        if (auto done = answer(*n, *f, attribute, value)) return *done;
    return AtspiThread::shared().call([&] {
        std::optional<Facts> f = n->known();
        if (!f) {
            f = readFacts(n->object->object, command);
            if (!f) return AXError::cannotComplete;
            n->learn(*f);
        }
        if (auto done = answer(*n, *f, attribute, value)) return *done;
        value = elements(children(n->object->object), command);
        return AXError::success;
    });
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
