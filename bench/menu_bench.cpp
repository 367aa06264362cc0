// Reading gtk3-demo-application's menu bar through the Accessibility port,
// as the agent's getMenu does, against a bare libatspi walk that asks for
// the same facts: from the process's application to its frame's menu bar,
// then each item's name, role, states and key binding, and its children.
#include <atspi/atspi.h>

#include <cstdio>

#include "BenchSupport.h"
#include "Platform/X11/AtspiThread.h"
#include "Platform/X11/X11Desktop.h"
#include "Support/GtkDemo.h"
#include "Support/XDisplay.h"
#include "TslAgent/MenuReader.h"

using namespace tsl;

namespace {

int walk(AtspiAccessible* a) {
    int nodes = 1;
    g_free(atspi_accessible_get_name(a, nullptr));
    const AtspiRole role = atspi_accessible_get_role(a, nullptr);
    g_object_unref(atspi_accessible_get_state_set(a));
    if (AtspiAction* action = atspi_accessible_get_action_iface(a)) {
        g_free(atspi_action_get_key_binding(action, 0, nullptr));
        g_object_unref(action);
    }
    if (role != ATSPI_ROLE_MENU && role != ATSPI_ROLE_MENU_BAR) return nodes;
    const int count = atspi_accessible_get_child_count(a, nullptr);
    for (int i = 0; i < count; ++i) {
        AtspiAccessible* child = atspi_accessible_get_child_at_index(a, i, nullptr);
        if (!child) continue;
        nodes += walk(child);
        g_object_unref(child);
    }
    return nodes;
}

AtspiAccessible* child(AtspiAccessible* a, int i) { return atspi_accessible_get_child_at_index(a, i, nullptr); }

int bareWalk(int32_t pid) {
    return X11::AtspiThread::shared().call([pid] {
        AtspiAccessible* desktop = atspi_get_desktop(0);
        AtspiAccessible* app = nullptr;
        const int apps = atspi_accessible_get_child_count(desktop, nullptr);
        for (int i = 0; i < apps && !app; ++i) {
            AtspiAccessible* a = child(desktop, i);
            if (a && atspi_accessible_get_process_id(a, nullptr) == guint(pid)) app = a;
            else if (a) g_object_unref(a);
        }
        g_object_unref(desktop);
        if (!app) return 0;
        AtspiAccessible* frame = child(app, 0);
        g_free(atspi_accessible_get_name(frame, nullptr));
        int nodes = 0;
        const int count = atspi_accessible_get_child_count(frame, nullptr);
        for (int i = 0; i < count && !nodes; ++i) {
            AtspiAccessible* c = child(frame, i);
            if (atspi_accessible_get_role(c, nullptr) == ATSPI_ROLE_MENU_BAR) nodes = walk(c);
            g_object_unref(c);
        }
        g_object_unref(frame);
        g_object_unref(app);
        return nodes;
    });
}

int count(const std::vector<MenuNode>& nodes) {
    int n = 0;
    for (const MenuNode& m : nodes) n += 1 + count(m.children);
    return n;
}

}  // namespace

int main() {
    test::XDisplay display(true);
    auto window = display.ready() ? test::GtkDemo::start(display) : std::nullopt;
    if (!window) {
        std::fprintf(stderr, "menu_bench: no gtk3-demo-application on an accessibility bus\n");
        return 1;
    }
    auto desktop = X11::X11Desktop::open(display.name());
    const PlatformServices platform = desktop->services({});
    const int32_t pid = *window->pid;
    int ourNodes = 0, bareNodes = 0;
    auto [ours, bare] = bench::medianMicrosInTurns(
        30, [&] { ourNodes = count(MenuReader::menuBar(platform, pid, false)); }, [&] { bareNodes = bareWalk(pid); });
    std::printf("menu walk: %d items in %.0f us, bare libatspi %d nodes in %.0f us\n", ourNodes, ours, bareNodes, bare);
    bench::ratioLine("menu walk of gtk3-demo-application, against a bare libatspi walk", ours, bare, 1.5, false);
}
