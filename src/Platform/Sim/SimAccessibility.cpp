#include <atomic>
#include <thread>

#include "Platform/Sim/SimPorts.h"
#include "Platform/Sim/World.h"

namespace tsl::Sim {
namespace {

constexpr float defaultTimeout = 6.0f;  // the platform's own, until an element is given another

struct SimElement final : AXElementRef {
    enum class Kind : uint8_t { application, window, closeButton, content, menuBar, menuBarItem, menu, menuItem };

    SimElement(const Desktop* d, Kind k, int32_t p, uint32_t w, std::vector<size_t> pa, float t)
        : desktop(d), kind(k), pid(p), windowID(w), path(std::move(pa)), timeout(t) {}

    const Desktop* desktop;
    Kind kind;
    int32_t pid;
    uint32_t windowID;         // window, closeButton, content
    std::vector<size_t> path;  // content: indices into the window's content; menus: the item path
    mutable std::atomic<float> timeout;
};
using Kind = SimElement::Kind;

// Elements read through another element answer within its time-out.
AXElement child(const SimElement& from, Kind kind, uint32_t windowID = 0, std::vector<size_t> path = {}) {
    return std::make_shared<SimElement>(from.desktop, kind, from.pid, windowID, std::move(path),
                                        from.timeout.load());
}

ElementSetup* contentAt(SimWindow& w, const std::vector<size_t>& path) {
    std::vector<ElementSetup>* level = &w.setup.content;
    ElementSetup* e = nullptr;
    for (size_t i : path) {
        if (i >= level->size()) return nullptr;
        e = &(*level)[i];
        level = &e->children;
    }
    return e;
}

// Whether the element still names something.
AXError check(World& w, const SimElement& e) {
    SimProcess* p = w.process(e.pid);
    if (!p) return e.kind == Kind::application ? AXError::cannotComplete : AXError::invalidUIElement;
    switch (e.kind) {
    case Kind::application:
        return AXError::success;
    case Kind::window:
    case Kind::closeButton:
    case Kind::content: {
        SimWindow* win = w.window(e.windowID);
        if (!win || win->pid != e.pid) return AXError::invalidUIElement;
        if (e.kind == Kind::closeButton && !win->setup.hasCloseButton) return AXError::invalidUIElement;
        if (e.kind == Kind::content && !contentAt(*win, e.path)) return AXError::invalidUIElement;
        return AXError::success;
    }
    case Kind::menuBar:
        return p->setup.menuBar ? AXError::success : AXError::invalidUIElement;
    case Kind::menuBarItem:
    case Kind::menuItem:
        return w.menuItem(e.pid, e.path) ? AXError::success : AXError::invalidUIElement;
    case Kind::menu: {
        const MenuItemSetup* item = w.menuItem(e.pid, e.path);
        return item && !item->submenu.empty() ? AXError::success : AXError::invalidUIElement;
    }
    }
    return AXError::invalidUIElement;
}

std::vector<AXElement> menuItems(const SimElement& e, const std::vector<MenuItemSetup>& items, bool bar) {
    std::vector<AXElement> out;
    for (size_t i = 0; i < items.size(); ++i) {
        std::vector<size_t> path = e.path;
        path.push_back(i);
        out.push_back(child(e, bar ? Kind::menuBarItem : Kind::menuItem, 0, std::move(path)));
    }
    return out;
}

std::optional<AXAttributeValue> readAttribute(World& w, const SimElement& e, const std::string& name) {
    SimProcess& p = *w.process(e.pid);
    auto submenu = [&](const MenuItemSetup& item) -> AXAttributeValue {
        if (item.submenu.empty()) return std::vector<AXElement>{};
        return std::vector<AXElement>{child(e, Kind::menu, 0, e.path)};
    };
    switch (e.kind) {
    case Kind::application: {
        auto windowElement = [&](uint32_t id) { return child(e, Kind::window, id); };
        std::vector<AXElement> windows;
        for (uint32_t id : w.windowsOf(e.pid)) {
            const SimWindow& win = *w.window(id);
            if (!win.setup.sheetOf && win.setup.accessible && !win.isMenuWindow) windows.push_back(windowElement(id));
        }
        if (name == "AXRole") return std::string("AXApplication");
        if (name == "AXTitle") return p.setup.name;
        if (name == "AXWindows") return windows;
        if (name == "AXFrontmost") return w.frontmost == e.pid;
        if (name == "AXFocusedWindow") {
            auto key = w.keyWindow(e.pid);
            if (key && w.window(*key)->setup.accessible) return windowElement(*key);
            return std::nullopt;
        }
        if (name == "AXMainWindow" && p.mainWindow) return windowElement(*p.mainWindow);
        if (name == "AXMenuBar" && p.setup.menuBar) return child(e, Kind::menuBar);
        if (name == "AXChildren") {
            if (p.setup.menuBar) windows.push_back(child(e, Kind::menuBar));
            return windows;
        }
        return std::nullopt;
    }
    case Kind::window: {
        const SimWindow& win = *w.window(e.windowID);
        const Rect& f = win.setup.frame;
        if (name == "AXRole") return std::string(win.setup.sheetOf ? "AXSheet" : "AXWindow");
        if (name == "AXTitle") return win.setup.title;
        if (name == "AXPosition") return AXValue::point(f.origin());
        if (name == "AXSize") return AXValue::size(f.size());
        if (name == "AXMain") return p.mainWindow == e.windowID;
        if (name == "AXMinimized") return win.minimized;
        if (name == "AXCloseButton" && win.setup.hasCloseButton) return child(e, Kind::closeButton, e.windowID);
        if (name == "AXChildren") {
            std::vector<AXElement> children;
            for (uint32_t id : w.windowsOf(e.pid)) {
                const SimWindow& sheet = *w.window(id);
                if (sheet.setup.sheetOf == e.windowID && sheet.setup.accessible) children.push_back(child(e, Kind::window, id));
            }
            for (size_t i = 0; i < win.setup.content.size(); ++i) children.push_back(child(e, Kind::content, e.windowID, {i}));
            if (win.setup.hasCloseButton) children.push_back(child(e, Kind::closeButton, e.windowID));
            return children;
        }
        return std::nullopt;
    }
    case Kind::closeButton:
        if (name == "AXRole") return std::string("AXButton");
        if (name == "AXSubrole") return std::string("AXCloseButton");
        return std::nullopt;
    case Kind::content: {
        const ElementSetup& el = *contentAt(*w.window(e.windowID), e.path);
        if (name == "AXRole") return el.role;
        if (name == "AXTitle" && el.title) return *el.title;
        if (name == "AXValue" && el.value) return *el.value;
        if (name == "AXChildren") {
            std::vector<AXElement> children;
            for (size_t i = 0; i < el.children.size(); ++i) {
                std::vector<size_t> path = e.path;
                path.push_back(i);
                children.push_back(child(e, Kind::content, e.windowID, std::move(path)));
            }
            return children;
        }
        return std::nullopt;
    }
    case Kind::menuBar:
        if (name == "AXRole") return std::string("AXMenuBar");
        if (name == "AXChildren") return menuItems(e, *p.setup.menuBar, true);
        return std::nullopt;
    case Kind::menu: {
        const MenuItemSetup& item = *w.menuItem(e.pid, e.path);
        if (name == "AXRole") return std::string("AXMenu");
        if (name == "AXChildren") return menuItems(e, item.submenu, false);
        return std::nullopt;
    }
    case Kind::menuBarItem:
    case Kind::menuItem: {
        const MenuItemSetup& item = *w.menuItem(e.pid, e.path);
        const bool barItem = e.kind == Kind::menuBarItem;
        if (name == "AXRole") return std::string(barItem ? "AXMenuBarItem" : "AXMenuItem");
        if (name == "AXTitle") return item.title;
        if (name == "AXChildren") return submenu(item);
        if (name == "AXEnabled") {
            if (!item.enabled) return std::nullopt;
            if (barItem) return *item.enabled;
            return w.menuItemEnabled(p, e.path);
        }
        if (barItem) return std::nullopt;
        if (name == "AXMenuItemMarkChar" && item.markChar) return *item.markChar;
        if (name == "AXMenuItemCmdChar" && item.cmdChar) return *item.cmdChar;
        if (name == "AXMenuItemCmdModifiers") return item.cmdModifiers;
        return std::nullopt;
    }
    }
    return std::nullopt;
}

AXError writeAttribute(World& w, const SimElement& e, const std::string& name, const AXAttributeValue& value) {
    const bool* flag = std::get_if<bool>(&value);
    const AXValue* packed = std::get_if<AXValue>(&value);
    switch (e.kind) {
    case Kind::application:
        if (name != "AXFrontmost") return AXError::attributeUnsupported;
        if (!flag) return AXError::illegalArgument;
        if (*flag) w.activate(e.pid);
        return AXError::success;
    case Kind::window: {
        SimWindow& win = *w.window(e.windowID);
        const Rect f = win.setup.frame;
        if (name == "AXPosition") {
            auto point = packed ? packed->pointValue() : std::nullopt;
            if (!point) return AXError::illegalArgument;
            if (!win.setup.movable) return AXError::cannotComplete;
            w.setFrame(e.windowID, {point->x, point->y, f.width, f.height});
            return AXError::success;
        }
        if (name == "AXSize") {
            auto size = packed ? packed->sizeValue() : std::nullopt;
            if (!size || size->width < 0 || size->height < 0) return AXError::illegalArgument;
            if (!win.setup.resizable) return AXError::cannotComplete;
            w.setFrame(e.windowID, {f.x, f.y, size->width, size->height});
            return AXError::success;
        }
        if (name == "AXMain") {
            if (!flag) return AXError::illegalArgument;
            if (*flag && !win.setup.sheetOf) w.process(e.pid)->mainWindow = e.windowID;
            return AXError::success;
        }
        if (name == "AXMinimized") {
            if (!flag) return AXError::illegalArgument;
            if (win.setup.sheetOf) return AXError::cannotComplete;
            w.setMinimized(e.windowID, *flag);
            return AXError::success;
        }
        return AXError::attributeUnsupported;
    }
    case Kind::content: {
        ElementSetup& el = *contentAt(*w.window(e.windowID), e.path);
        if (name != "AXValue" || (el.role != "AXTextArea" && el.role != "AXTextField"))
            return AXError::attributeUnsupported;
        const std::string* text = std::get_if<std::string>(&value);
        if (!text) return AXError::illegalArgument;
        el.value = *text;
        return AXError::success;
    }
    default:
        return AXError::attributeUnsupported;
    }
}

AXError performOn(World& w, const SimElement& e, const std::string& action) {
    SimProcess& p = *w.process(e.pid);
    switch (e.kind) {
    case Kind::window:
        if (action != "AXRaise") return AXError::actionUnsupported;
        w.raise(e.windowID);
        return AXError::success;
    case Kind::closeButton:
        if (action != "AXPress") return AXError::actionUnsupported;
        w.removeWindow(e.windowID);
        return AXError::success;
    case Kind::content: {
        SimWindow& win = *w.window(e.windowID);
        const ElementSetup& el = *contentAt(win, e.path);
        if (action != "AXPress" || el.role != "AXButton") return AXError::actionUnsupported;
        p.buttonPresses.push_back(el.title.value_or(""));
        // A button of a sheet answers it, and the sheet goes.
        if (win.setup.sheetOf) w.removeWindow(e.windowID);
        return AXError::success;
    }
    case Kind::menuBarItem:
        if (action == "AXPress") {
            // A menu of the bar disabled as a whole (behind a modal window) won't open.
            if (w.menuItem(e.pid, e.path)->enabled == false) return AXError::cannotComplete;
            w.openMenu(p, e.path.front());
            return AXError::success;
        }
        if (action == "AXCancel") {
            w.closeMenu(p);
            return AXError::success;
        }
        return AXError::actionUnsupported;
    case Kind::menu:
        if (action != "AXCancel") return AXError::actionUnsupported;
        w.closeMenu(p);
        return AXError::success;
    case Kind::menuItem:
        if (action == "AXCancel") {
            w.closeMenu(p);
            return AXError::success;
        }
        if (action != "AXPress") return AXError::actionUnsupported;
        return w.pressMenuItem(e.pid, e.path) ? AXError::success : AXError::cannotComplete;
    default:
        return AXError::actionUnsupported;
    }
}

}  // namespace

bool SimAccessibility::isProcessTrusted() {
    return _desktop->read([](World& w) { return w.accessibilityTrusted; });
}

bool SimAccessibility::isProcessTrustedWithOptions(bool prompt) {
    return _desktop->change([&](World& w) {
        if (prompt && !w.accessibilityTrusted) ++w.permissionPrompts;
        return w.accessibilityTrusted;
    });
}

AXElement SimAccessibility::createApplication(int32_t pid) {
    return std::make_shared<SimElement>(_desktop.get(), Kind::application, pid, 0, std::vector<size_t>{},
                                        defaultTimeout);
}

AXError SimAccessibility::setMessagingTimeout(const AXElement& element, float seconds) {
    auto* e = dynamic_cast<const SimElement*>(element.get());
    if (!e || e->desktop != _desktop.get() || !(seconds >= 0)) return AXError::illegalArgument;
    e->timeout.store(seconds == 0 ? defaultTimeout : seconds);
    return AXError::success;
}

namespace {

// Checks the element, then waits for the application as long as it takes to
// answer, but no longer than the element's time-out; then runs `f` on the
// world. An answer that comes too late is lost, and so is its effect.
template <typename F>
AXError call(Desktop& desktop, const AXElement& element, F&& f) {
    auto* e = dynamic_cast<const SimElement*>(element.get());
    if (!e || e->desktop != &desktop) return AXError::illegalArgument;
    double delay = 0;
    AXError status = desktop.read([&](World& w) {
        if (!w.accessibilityTrusted) return AXError::apiDisabled;
        AXError s = check(w, *e);
        if (s == AXError::success) delay = w.process(e->pid)->setup.answerDelay;
        return s;
    });
    if (status != AXError::success) return status;
    if (delay > 0) {
        const double timeout = e->timeout.load();
        std::this_thread::sleep_for(std::chrono::duration<double>(std::min(delay, timeout)));
        if (delay > timeout) return AXError::cannotComplete;
    }
    return desktop.change([&](World& w) {
        AXError s = check(w, *e);  // it may have gone while we waited
        return s == AXError::success ? f(w, *e) : s;
    });
}

}  // namespace

AXError SimAccessibility::copyAttributeValue(const AXElement& element, const std::string& attribute,
                                             std::optional<AXAttributeValue>& value) {
    value.reset();
    return call(*_desktop, element, [&](World& w, const SimElement& e) {
        value = readAttribute(w, e, attribute);
        if (value) return AXError::success;
        return attribute == "AXFocusedWindow" ? AXError::noValue : AXError::attributeUnsupported;
    });
}

AXError SimAccessibility::setAttributeValue(const AXElement& element, const std::string& attribute,
                                            const AXAttributeValue& value) {
    return call(*_desktop, element, [&](World& w, const SimElement& e) { return writeAttribute(w, e, attribute, value); });
}

AXError SimAccessibility::performAction(const AXElement& element, const std::string& action) {
    return call(*_desktop, element, [&](World& w, const SimElement& e) { return performOn(w, e, action); });
}

}  // namespace tsl::Sim
