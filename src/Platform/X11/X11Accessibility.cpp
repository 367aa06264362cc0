#include "Platform/X11/X11Accessibility.h"

#include <algorithm>

namespace tsl::X11 {
namespace {

struct Element final : AXElementRef {
    enum class Kind { application, window, closeButton };
    Kind kind;
    int32_t pid;
    xcb_window_t window;
    Element(Kind kind, int32_t pid, xcb_window_t window) : kind(kind), pid(pid), window(window) {}
};

const Element* elementOf(const AXElement& e) { return dynamic_cast<const Element*>(e.get()); }

AXElement make(Element::Kind kind, int32_t pid, xcb_window_t window = 0) {
    return std::make_shared<Element>(kind, pid, window);
}

// Application windows of a process, front to back: not popups.
std::vector<ClientWindow> windowsOf(const std::vector<ClientWindow>& all, int32_t pid) {
    std::vector<ClientWindow> out;
    for (const ClientWindow& w : all)
        if (w.pid == pid && !w.overrideRedirect && !w.desktopElement) out.push_back(w);
    return out;
}

std::vector<AXElement> windowElements(const std::vector<ClientWindow>& windows) {
    std::vector<AXElement> out;
    for (const ClientWindow& w : windows) out.push_back(make(Element::Kind::window, w.pid.value_or(0), w.id));
    return out;
}

const ClientWindow* find(const std::vector<ClientWindow>& all, xcb_window_t id) {
    auto it = std::find_if(all.begin(), all.end(), [&](const ClientWindow& w) { return w.id == id; });
    return it == all.end() ? nullptr : &*it;
}

// A dialog that stays with its window; one above the documents (modal) is
// a window of its own, as the window list shows it.
bool isSheet(const ClientWindow& w) { return w.transientFor && !w.overrideRedirect && w.layer == 0; }

AtspiElements::Window inAtspiTerms(const ClientWindow& w) {
    return {w.pid.value_or(0), w.title.value_or(""), w.bounds};
}

}  // namespace

AXElement X11Accessibility::createApplication(int32_t pid) { return make(Element::Kind::application, pid); }

AXError X11Accessibility::setMessagingTimeout(const AXElement& element, float seconds) {
    // Nothing here waits for an application; the server answers for it.
    return elementOf(element) && seconds >= 0 ? AXError::success : AXError::illegalArgument;
}

AXError X11Accessibility::copyAttributeValue(const AXElement& element, const std::string& attribute,
                                             std::optional<AXAttributeValue>& value) {
    value.reset();
    if (AtspiElements::owns(element)) return atspi.copyAttributeValue(element, attribute, value);
    const Element* e = elementOf(element);
    if (!e) return AXError::illegalArgument;
    Connection& x = control->connection();
    if (x.lost()) return AXError::cannotComplete;
    const std::vector<ClientWindow> all = ClientWindow::list(x);

    if (e->kind == Element::Kind::closeButton) {
        if (!find(all, e->window)) return AXError::invalidUIElement;
        if (attribute == "AXRole") value = std::string("AXButton");
        else return AXError::attributeUnsupported;
        return AXError::success;
    }

    if (e->kind == Element::Kind::application) {
        std::vector<ClientWindow> mine = windowsOf(all, e->pid);
        if (mine.empty()) return AXError::invalidUIElement;
        if (attribute == "AXRole") {
            value = std::string("AXApplication");
        } else if (attribute == "AXTitle") {
            value = mine.front().ownerName;
        } else if (attribute == "AXWindows" || attribute == "AXChildren") {
            value = windowElements(mine);
        } else if (attribute == "AXFrontmost") {
            std::optional<ClientWindow> focus = control->focused(all);
            value = focus && focus->pid == e->pid;
        } else if (attribute == "AXFocusedWindow" || attribute == "AXMainWindow") {
            std::optional<ClientWindow> focus = control->focused(all);
            const ClientWindow& chosen = focus && focus->pid == e->pid ? *focus : mine.front();
            value = make(Element::Kind::window, e->pid, chosen.id);
        } else if (attribute == "AXMenuBar") {
            std::optional<ClientWindow> focus = control->focused(all);
            std::optional<AXElement> bar =
                atspi.menuBar(inAtspiTerms(focus && focus->pid == e->pid ? *focus : mine.front()));
            if (!bar) return AXError::noValue;
            value = *bar;
        } else {
            return AXError::attributeUnsupported;
        }
        return AXError::success;
    }

    const ClientWindow* w = find(all, e->window);
    if (!w) return AXError::invalidUIElement;
    if (attribute == "AXRole") {
        value = std::string(isSheet(*w) ? "AXSheet" : "AXWindow");
    } else if (attribute == "AXTitle") {
        value = w->title.value_or("");
    } else if (attribute == "AXPosition") {
        value = AXValue::point(w->bounds.origin());
    } else if (attribute == "AXSize") {
        value = AXValue::size(w->bounds.size());
    } else if (attribute == "AXMinimized") {
        value = !w->onScreen();
    } else if (attribute == "AXMain" || attribute == "AXFocused") {
        value = control->hasFocus(w->id);
    } else if (attribute == "AXCloseButton") {
        if (!w->takesDelete && !x.hasWindowManager()) return AXError::noValue;
        value = make(Element::Kind::closeButton, e->pid, w->id);
    } else if (attribute == "AXChildren") {
        std::vector<ClientWindow> sheets;
        for (const ClientWindow& other : all)
            if (other.transientFor == w->id && isSheet(other)) sheets.push_back(other);
        std::vector<AXElement> children = windowElements(sheets);
        children.push_back(AtspiElements::content(inAtspiTerms(*w)));
        value = children;
    } else {
        return AXError::attributeUnsupported;
    }
    return AXError::success;
}

AXError X11Accessibility::setAttributeValue(const AXElement& element, const std::string& attribute,
                                            const AXAttributeValue& value) {
    const Element* e = elementOf(element);
    if (!e || e->kind == Element::Kind::closeButton) return AXError::attributeUnsupported;
    Connection& x = control->connection();
    if (x.lost()) return AXError::cannotComplete;
    const std::vector<ClientWindow> all = ClientWindow::list(x);
    const bool* flag = std::get_if<bool>(&value);

    if (e->kind == Element::Kind::application) {
        if (attribute != "AXFrontmost") return AXError::attributeUnsupported;
        if (!flag || !*flag) return AXError::illegalArgument;
        std::vector<ClientWindow> mine = windowsOf(all, e->pid);
        if (mine.empty()) return AXError::invalidUIElement;
        auto shown = std::find_if(mine.begin(), mine.end(), [](const ClientWindow& w) { return w.onScreen(); });
        return control->activate(shown == mine.end() ? mine.front() : *shown) ? AXError::success : AXError::failure;
    }

    const ClientWindow* w = find(all, e->window);
    if (!w) return AXError::invalidUIElement;
    const AXValue* packed = std::get_if<AXValue>(&value);
    bool done;
    if (attribute == "AXPosition") {
        if (!packed || !packed->pointValue()) return AXError::illegalArgument;
        done = control->setFrame(w->id, packed->pointValue(), std::nullopt);
    } else if (attribute == "AXSize") {
        if (!packed || !packed->sizeValue()) return AXError::illegalArgument;
        done = control->setFrame(w->id, std::nullopt, packed->sizeValue());
    } else if (attribute == "AXMinimized") {
        if (!flag) return AXError::illegalArgument;
        done = *flag ? control->minimise(w->id) : control->restore(w->id);
    } else if (attribute == "AXMain" || attribute == "AXFocused") {
        if (!flag || !*flag) return AXError::illegalArgument;
        done = control->activate(*w);
    } else {
        return AXError::attributeUnsupported;
    }
    return done ? AXError::success : AXError::failure;
}

AXError X11Accessibility::performAction(const AXElement& element, const std::string& action) {
    if (AtspiElements::owns(element)) return atspi.performAction(element, action);
    const Element* e = elementOf(element);
    if (!e || e->kind == Element::Kind::application) return AXError::actionUnsupported;
    Connection& x = control->connection();
    if (x.lost()) return AXError::cannotComplete;
    const std::vector<ClientWindow> all = ClientWindow::list(x);
    const ClientWindow* w = find(all, e->window);
    if (!w) return AXError::invalidUIElement;
    bool done;
    if (e->kind == Element::Kind::closeButton && action == "AXPress") done = control->close(*w);
    else if (e->kind == Element::Kind::window && action == "AXRaise") done = control->activate(*w);
    else return AXError::actionUnsupported;
    return done ? AXError::success : AXError::failure;
}

}  // namespace tsl::X11
