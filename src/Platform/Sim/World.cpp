#include <algorithm>

#include "Platform/Sim/World.h"

namespace tsl::Sim {

SimProcess* World::process(int32_t pid) {
    auto it = processes.find(pid);
    return it == processes.end() ? nullptr : &it->second;
}

SimWindow* World::window(uint32_t id) {
    auto it = windows.find(id);
    return it == windows.end() ? nullptr : &it->second;
}

int32_t World::addProcess(ProcessSetup setup) {
    const int32_t pid = nextPid++;
    processes[pid] = SimProcess{.pid = pid, .setup = std::move(setup)};
    return pid;
}

uint32_t World::addWindow(int32_t pid, WindowSetup setup) {
    const uint32_t id = nextWindowID++;
    const bool ordinary = !setup.sheetOf && setup.layer == 0 && !setup.desktopElement;
    auto parent = setup.sheetOf ? std::find(order.begin(), order.end(), *setup.sheetOf) : order.end();
    windows[id] = SimWindow{.id = id, .pid = pid, .setup = std::move(setup)};
    // A new window comes in front; a sheet right in front of its parent.
    order.insert(parent != order.end() ? parent : order.begin(), id);
    if (SimProcess* p = process(pid); p && ordinary) p->mainWindow = id;
    return id;
}

void World::removeWindow(uint32_t id) {
    std::vector<uint32_t> sheets;
    for (auto& [sid, w] : windows)
        if (w.setup.sheetOf == id) sheets.push_back(sid);
    for (uint32_t sid : sheets) removeWindow(sid);
    SimWindow* w = window(id);
    if (!w) return;
    const int32_t pid = w->pid;
    windows.erase(id);
    captureIndicators.erase(id);
    windowsRemoved = true;
    order.erase(std::remove(order.begin(), order.end(), id), order.end());
    if (SimProcess* p = process(pid)) {
        if (p->menuWindow == id) {
            p->menuWindow = 0;
            p->openMenu.reset();
        }
        if (p->mainWindow == id) p->mainWindow = keyWindow(pid);
    }
}

void World::removeProcess(int32_t pid) {
    for (uint32_t id : windowsOf(pid)) removeWindow(id);
    processes.erase(pid);
    if (frontmost == pid) {
        // The application that owns the front window takes over.
        frontmost.reset();
        for (const SimWindow* w : stacked()) {
            if (w->setup.layer == 0 && isVisible(*w)) {
                frontmost = w->pid;
                break;
            }
        }
    }
}

bool World::isVisible(const SimWindow& w) const {
    if (!w.setup.shown || w.minimized) return false;
    if (w.setup.sheetOf) {
        auto it = windows.find(*w.setup.sheetOf);
        return it != windows.end() && isVisible(it->second);
    }
    return true;
}

std::vector<const SimWindow*> World::stacked() const {
    std::vector<const SimWindow*> out;
    out.reserve(order.size());
    for (uint32_t id : order) out.push_back(&windows.at(id));
    std::stable_sort(out.begin(), out.end(),
                     [](const SimWindow* a, const SimWindow* b) { return a->setup.layer > b->setup.layer; });
    return out;
}

std::vector<uint32_t> World::windowsOf(int32_t pid) const {
    std::vector<uint32_t> out;
    for (const SimWindow* w : stacked())
        if (w->pid == pid) out.push_back(w->id);
    return out;
}

void World::raise(uint32_t id) {
    SimWindow* w = window(id);
    if (!w) return;
    if (w->setup.sheetOf) return raise(*w->setup.sheetOf);
    std::vector<uint32_t> group;
    for (uint32_t other : order) {
        const SimWindow& o = windows.at(other);
        if (o.setup.sheetOf == id) group.push_back(other);
    }
    group.push_back(id);
    order.erase(std::remove_if(order.begin(), order.end(),
                               [&](uint32_t x) { return std::find(group.begin(), group.end(), x) != group.end(); }),
                order.end());
    order.insert(order.begin(), group.begin(), group.end());
    if (SimProcess* p = process(w->pid); p && w->setup.layer == 0 && !w->isMenuWindow) p->mainWindow = id;
}

void World::activate(int32_t pid) {
    if (!process(pid)) return;
    frontmost = pid;
    // All of its windows come forward, keeping their order among themselves.
    std::vector<uint32_t> mine, rest;
    for (uint32_t id : order) (windows.at(id).pid == pid ? mine : rest).push_back(id);
    order = std::move(mine);
    order.insert(order.end(), rest.begin(), rest.end());
}

void World::setFrame(uint32_t id, Rect frame) {
    SimWindow* w = window(id);
    if (!w) return;
    const double dx = frame.x - w->setup.frame.x, dy = frame.y - w->setup.frame.y;
    w->setup.frame = frame;
    for (auto& [sid, sheet] : windows) {
        if (sheet.setup.sheetOf == id) setFrame(sid, {sheet.setup.frame.x + dx, sheet.setup.frame.y + dy,
                                                     sheet.setup.frame.width, sheet.setup.frame.height});
    }
}

void World::setMinimized(uint32_t id, bool minimized) {
    SimWindow* w = window(id);
    if (!w || w->setup.sheetOf) return;
    w->minimized = minimized;
    if (!minimized) raise(id);
}

std::optional<uint32_t> World::keyWindow(int32_t pid) const {
    for (const SimWindow* w : stacked()) {
        if (w->pid == pid && w->setup.layer == 0 && !w->setup.sheetOf && !w->setup.desktopElement && isVisible(*w))
            return w->id;
    }
    return std::nullopt;
}

std::optional<uint32_t> World::topmostWindowAt(Point p) const {
    for (const SimWindow* w : stacked()) {
        if (isVisible(*w) && w->setup.alpha > 0 && w->setup.frame.contains(p)) return w->id;
    }
    return std::nullopt;
}

Rect World::nextPlacement(Size size) {
    const int step = cascade++ % 10;
    return {80.0 + 30 * step, 60.0 + 30 * step, size.width, size.height};
}

WindowInfo World::info(const SimWindow& w) const {
    auto p = processes.find(w.pid);
    return {.id = w.id,
            .pid = w.pid,
            .title = w.setup.title,
            .frame = w.setup.frame,
            .layer = w.setup.layer,
            .alpha = w.setup.alpha,
            .isOnScreen = isVisible(w),
            .isMinimized = w.minimized,
            .sheetOf = w.setup.sheetOf,
            .isMain = p != processes.end() && p->second.mainWindow == w.id};
}

const MenuItemSetup* World::menuItem(int32_t pid, const std::vector<size_t>& path) const {
    auto p = processes.find(pid);
    if (p == processes.end() || !p->second.setup.menuBar || path.empty()) return nullptr;
    const std::vector<MenuItemSetup>* items = &*p->second.setup.menuBar;
    const MenuItemSetup* item = nullptr;
    for (size_t index : path) {
        if (index >= items->size()) return nullptr;
        item = &(*items)[index];
        items = &item->submenu;
    }
    return item;
}

bool World::menuItemEnabled(const SimProcess& p, const std::vector<size_t>& path) const {
    const MenuItemSetup* item = menuItem(p.pid, path);
    if (!item) return false;
    if (item->enabledOnlyWhileOpen && !p.validatedMenus.contains(path.front())) return false;
    return item->enabled.value_or(true);
}

void World::openMenu(SimProcess& p, size_t index) {
    closeMenu(p);
    const MenuItemSetup* top = menuItem(p.pid, {index});
    if (!top) return;
    p.openMenu = index;
    p.validatedMenus.insert(index);
    // The open menu is a window of its application, above ordinary windows.
    WindowSetup setup{.title = "",
                      .frame = {10.0 + 80 * double(index), 24, 220, 10 + 22 * double(top->submenu.size())},
                      .layer = Desktop::menuWindowLayer,
                      .hasCloseButton = false,
                      .movable = false,
                      .resizable = false,
                      .accessible = false};
    p.menuWindow = addWindow(p.pid, std::move(setup));
    windows.at(p.menuWindow).isMenuWindow = true;
}

void World::closeMenu(SimProcess& p) {
    if (p.menuWindow) {
        const uint32_t id = p.menuWindow;
        p.menuWindow = 0;
        removeWindow(id);
    }
    p.openMenu.reset();
}

bool World::pressMenuItem(int32_t pid, const std::vector<size_t>& path) {
    SimProcess* p = process(pid);
    const MenuItemSetup* item = menuItem(pid, path);
    if (!p || !item || path.size() < 2 || !menuItemEnabled(*p, path)) return false;
    if (!item->submenu.empty()) return true;  // opens its submenu, nothing else
    closeMenu(*p);
    p->presses.push_back(path);
    const std::string action = item->action;
    performAction(pid, action, path);
    return true;
}

}  // namespace tsl::Sim
