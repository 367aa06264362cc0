// The two application behaviours of the simulated desktop, and how windows
// look when captured.
#include <cctype>

#include "Platform/Sim/World.h"
#include "TslCore/Measure/TestPattern.h"

namespace tsl::Sim {
namespace {

MenuItemSetup item(std::string title, std::string action, std::optional<std::string> cmd = std::nullopt,
                   int64_t modifiers = 0) {
    return {.title = std::move(title), .cmdChar = std::move(cmd), .cmdModifiers = modifiers, .action = std::move(action)};
}

MenuItemSetup separator() { return {.title = "", .enabled = false}; }

MenuItemSetup menu(std::string title, std::vector<MenuItemSetup> items) {
    return {.title = std::move(title), .submenu = std::move(items)};
}

MenuItemSetup appMenu(const std::string& appName) {
    return menu(appName, {item("About " + appName, "about"), separator(), item("Hide " + appName, "hide", "H"),
                          item("Quit " + appName, "quit", "Q")});
}

ElementSetup* findRole(std::vector<ElementSetup>& elements, const std::string& role) {
    for (ElementSetup& e : elements) {
        if (e.role == role) return &e;
        if (ElementSetup* inner = findRole(e.children, role)) return inner;
    }
    return nullptr;
}

// Drops the last UTF-8 character.
void deleteBackward(std::string& text) {
    while (!text.empty()) {
        const bool continuation = (uint8_t(text.back()) & 0xC0) == 0x80;
        text.pop_back();
        if (!continuation) break;
    }
}

// The menu item with this command character and exactly these modifiers.
std::optional<std::vector<size_t>> shortcut(const std::vector<MenuItemSetup>& items, std::vector<size_t> path, char key,
                                            int64_t modifiers) {
    for (size_t i = 0; i < items.size(); ++i) {
        path.push_back(i);
        const MenuItemSetup& it = items[i];
        if (it.cmdChar && it.cmdChar->size() == 1 && std::tolower(uint8_t((*it.cmdChar)[0])) == std::tolower(uint8_t(key)) &&
            it.cmdModifiers == modifiers)
            return path;
        if (auto inner = shortcut(it.submenu, path, key, modifiers)) return inner;
        path.pop_back();
    }
    return std::nullopt;
}

}  // namespace

std::vector<MenuItemSetup> plainMenuBar(const std::string& appName) {
    MenuItemSetup print = item("Print…", "print", "P");
    print.enabled = false;
    MenuItemSetup undo = item("Undo", "undo", "Z");
    undo.enabled = false;
    MenuItemSetup pdf = item("PDF", "toggleMark");
    MenuItemSetup plainText = item("Plain Text", "toggleMark");
    plainText.markChar = "✓";
    return {menu("Apple", {item("About This Mac", "aboutThisMac")}),
            appMenu(appName),
            menu("File", {item("New Window", "newWindow", "N"), item("Close Window", "close", "W"),
                          menu("Export As", {pdf, plainText}), separator(), print}),
            menu("Edit", {undo, separator(), item("Copy", "copy", "C"), item("Paste", "paste", "V"),
                          item("Paste and Match Style", "paste", "V", 1 | 2), item("Select All", "selectAll", "A")}),
            menu("Window", {item("Minimize", "minimize", "M")})};
}

std::vector<MenuItemSetup> testPatternMenuBar(const std::string& appName) {
    return {menu("Apple", {item("About This Mac", "aboutThisMac")}), appMenu(appName)};
}

std::vector<ElementSetup> plainWindowContent() {
    return {ElementSetup{.role = "AXScrollArea", .children = {ElementSetup{.role = "AXTextArea", .value = ""}}}};
}

int32_t World::launchBundle(const std::filesystem::path& bundle, const AppBundleInfo& info, bool activate,
                            const std::vector<std::filesystem::path>& documents) {
    knownBundles.insert(bundle);
    std::optional<int32_t> running;
    for (auto& [pid, p] : processes) {
        if (p.setup.bundleURL == bundle) {
            running = pid;
            break;
        }
    }
    int32_t pid;
    if (running) {
        pid = *running;
    } else {
        const bool testPattern = info.bundleID == std::string(TestPatternSpec::bundleID);
        ProcessSetup setup{.name = info.name,
                           .bundleID = info.bundleID,
                           .bundleURL = bundle,
                           .kind = testPattern ? AppKind::testPattern : AppKind::plain,
                           .menuBar = testPattern ? testPatternMenuBar(info.name) : plainMenuBar(info.name)};
        pid = addProcess(std::move(setup));
        if (testPattern) {
            addWindow(pid, {.title = std::string(TestPatternSpec::windowTitle),
                            .frame = nextPlacement({TestPatternSpec::contentWidth, TestPatternSpec::contentHeight})});
        } else {
            addWindow(pid, {.title = info.name, .frame = nextPlacement({800, 600}), .content = plainWindowContent()});
        }
    }
    for (const auto& document : documents) openDocument(*process(pid), document);
    if (activate) this->activate(pid);
    return pid;
}

void World::openDocument(SimProcess& p, const std::filesystem::path& document) {
    p.documents.push_back(document);
    if (p.setup.kind == AppKind::plain)
        addWindow(p.pid, {.title = document.filename().string(), .frame = nextPlacement({800, 600}),
                          .content = plainWindowContent()});
}

ElementSetup* World::textArea(uint32_t windowID) {
    SimWindow* w = window(windowID);
    return w ? findRole(w->setup.content, "AXTextArea") : nullptr;
}

bool World::quit(int32_t pid) {
    SimProcess* p = process(pid);
    if (!p || p->setup.refusesQuit) return false;
    removeProcess(pid);
    return true;
}

void World::performAction(int32_t pid, const std::string& action, const std::vector<size_t>& path) {
    SimProcess* p = process(pid);
    if (!p || p->setup.kind == AppKind::scripted) return;
    const std::optional<uint32_t> key = keyWindow(pid);
    if (action == "quit") {
        quit(pid);
    } else if (action == "close") {
        if (key) removeWindow(*key);
    } else if (action == "minimize") {
        if (key) setMinimized(*key, true);
    } else if (action == "newWindow") {
        addWindow(pid, {.title = "Untitled", .frame = nextPlacement({800, 600}), .content = plainWindowContent()});
    } else if (action == "copy") {
        ElementSetup* text = key ? textArea(*key) : nullptr;
        if (!text) return;
        const std::string value = text->value.value_or("");
        ++pasteboardCount;
        pasteboardItems = {{Pasteboard::typeString, Bytes(value.begin(), value.end())}};
    } else if (action == "paste") {
        ElementSetup* text = key ? textArea(*key) : nullptr;
        for (auto& [type, data] : pasteboardItems) {
            if (text && type == Pasteboard::typeString) text->value = text->value.value_or("") + std::string(data.begin(), data.end());
        }
    } else if (action == "toggleMark") {
        // The item's own setup lives in the process's menu bar.
        std::vector<MenuItemSetup>* items = &*p->setup.menuBar;
        MenuItemSetup* it = nullptr;
        for (size_t index : path) {
            it = &(*items)[index];
            items = &it->submenu;
        }
        if (it) it->markChar = it->markChar ? std::nullopt : std::optional<std::string>("✓");
    }
}

void World::deliver(int32_t pid, std::optional<uint32_t> target, const PlatformEvent& event, Route route) {
    SimProcess* p = process(pid);
    if (!p) return;
    const uint32_t type = event.type;
    if (route == Route::hid && (type == PlatformEvent::leftMouseDown || type == PlatformEvent::rightMouseDown ||
                                type == PlatformEvent::otherMouseDown)) {
        // A click at the device level brings its application and window forward.
        activate(pid);
        if (target) raise(*target);
        return;
    }
    if (type != PlatformEvent::keyDown && type != PlatformEvent::keyUp) return;
    const auto keyCode = uint16_t(event.integerField(PlatformEvent::fieldKeyboardKeycode));
    if (p->setup.kind == AppKind::testPattern) {
        if (keyCode == TestPatternSpec::f1KeyCode) p->squareWhite = type == PlatformEvent::keyDown;
        return;
    }
    if (p->setup.kind != AppKind::plain || type != PlatformEvent::keyDown) return;
    const bool shift = event.flags & PlatformEvent::flagShift;
    if (event.flags & PlatformEvent::flagCommand) {
        const auto character = characterForKey(keyCode, false);
        if (!character || !p->setup.menuBar) return;
        const int64_t modifiers = (shift ? 1 : 0) | ((event.flags & PlatformEvent::flagOption) ? 2 : 0) |
                                  ((event.flags & PlatformEvent::flagControl) ? 4 : 0);
        if (auto path = shortcut(*p->setup.menuBar, {}, *character, modifiers)) pressMenuItem(pid, *path);
        return;
    }
    const std::optional<uint32_t> key = keyWindow(pid);
    ElementSetup* text = key ? textArea(*key) : nullptr;
    if (!text) return;
    std::string value = text->value.value_or("");
    if (keyCode == 51) deleteBackward(value);
    else if (keyCode == 36) value += '\n';
    else if (auto c = characterForKey(keyCode, shift)) value += *c;
    text->value = std::move(value);
}

void drawWindowContent(const ContentSnapshot& content, uint8_t* base, int64_t width, int64_t height,
                       size_t bytesPerRow, double scale, uint64_t frameNumber) {
    if (content.kind == AppKind::testPattern) {
        drawTestPattern(base, width, height, bytesPerRow, scale, frameNumber, content.squareWhite);
        return;
    }
    auto px = [scale](double points) { return int64_t(points * scale); };
    fillBGRA(base, width, height, bytesPerRow, 0, 0, width, height, content.tint);
    fillBGRA(base, width, height, bytesPerRow, 0, 0, width, px(28), 0xFFD6D6D6);  // title bar
    if (content.kind == AppKind::plain)
        fillBGRA(base, width, height, bytesPerRow, px(12), px(40), px(content.size.width - 24),
             px(content.size.height - 52), 0xFFFFFFFF);  // text area
}

}  // namespace tsl::Sim
