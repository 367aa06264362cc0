// tessel menus and tessel press: a guest window's menu bar, through a
// running agent. The window is brought to the front first, since the agent
// reads the bar of the application's front window.
#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "TesselHost/AgentAddress.h"
#include "TesselHost/Commands.h"
#include "TesselHost/HostSession.h"
#include "TslCore/Support/Error.h"

namespace tsl::host {
namespace {

struct Arguments {
    AgentAddress address;
    bool json = false;
    std::string window;
    std::string path;
};

// WINDOW is a window number, else a window's exact title.
GuestWindow findWindow(HostSession& session, const std::string& name) {
    const std::vector<GuestWindow> windows = session.windows();
    for (const GuestWindow& w : windows)
        if (std::to_string(w.windowID) == name) return w;
    std::optional<GuestWindow> titled;
    for (const GuestWindow& w : windows) {
        if (w.title != name) continue;
        if (titled) throw CommandFailure("more than one window is titled \"" + name + "\"; give its number");
        titled = w;
    }
    if (!titled) throw CommandFailure("no window " + name + " on the guest's screen");
    return *titled;
}

std::vector<MenuNode> menuOf(HostSession& session, const GuestWindow& window) {
    session.request(ControlMessage::WindowAction{{.windowID = window.windowID, .kind = WindowAction::Kind::focus}});
    auto reply = session.request(ControlMessage::GetMenu{window.pid});
    auto* menu = reply.get<ControlMessage::Menu>();
    if (!menu) throw Error("the agent answered with something else");
    return menu->items;
}

std::string dotted(const std::vector<int64_t>& path) {
    std::string out;
    for (int64_t i : path) out += (out.empty() ? "" : ".") + std::to_string(i);
    return out;
}

// "1.4" names items by position; "Preferences > Bold" by title.
std::optional<std::vector<int64_t>> resolve(const std::vector<MenuNode>& bar, const std::string& text) {
    if (!text.empty() && text.find_first_not_of("0123456789.") == std::string::npos) {
        std::vector<int64_t> path;
        size_t start = 0;
        for (size_t dot; start <= text.size(); start = dot + 1) {
            dot = std::min(text.find('.', start), text.size());
            if (dot == start) return std::nullopt;
            path.push_back(std::stoll(text.substr(start, dot - start)));
        }
        return path;
    }
    std::vector<int64_t> path;
    const std::vector<MenuNode>* level = &bar;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = std::min(text.find('>', start), text.size());
        std::string title = text.substr(start, end - start);
        title.erase(0, title.find_first_not_of(' '));
        title.erase(title.find_last_not_of(' ') + 1);
        auto found = std::find_if(level->begin(), level->end(), [&](const MenuNode& n) { return n.title == title; });
        if (found == level->end()) return std::nullopt;
        path = found->path;
        level = &found->children;
        start = end + 1;
    }
    return path;
}

nlohmann::json toJSON(const MenuNode& n) {
    nlohmann::json out{{"title", n.title},
                       {"path", n.path},
                       {"enabled", n.enabled},
                       {"checked", n.checked},
                       {"children", nlohmann::json::array()}};
    if (n.shortcut) out["shortcut"] = *n.shortcut;
    for (const MenuNode& c : n.children) out["children"].push_back(toJSON(c));
    return out;
}

void printTree(const std::vector<MenuNode>& nodes, int depth) {
    for (const MenuNode& n : nodes) {
        std::cout << dotted(n.path) << "\t" << std::string(size_t(depth) * 2, ' ') << (n.title.empty() ? "-" : n.title);
        if (n.shortcut) std::cout << "\t" << *n.shortcut;
        if (n.checked) std::cout << "\t(checked)";
        if (!n.enabled) std::cout << "\t(disabled)";
        std::cout << "\n";
        printTree(n.children, depth + 1);
    }
}

}  // namespace

void addMenusCommands(CLI::App& app, ExitStatus& status) {
    auto menus = std::make_shared<Arguments>();
    CLI::App* list = app.add_subcommand("menus", "Print a guest window's menus");
    addAgentAddressOptions(*list, menus->address);
    list->add_option("WINDOW", menus->window, "The window's number or its exact title")->required();
    list->add_flag("--json", menus->json, "Print the menus as JSON");
    setAction(list, status, [menus] {
        return withAgent(menus->address, [&](HostSession& session) {
            const GuestWindow window = findWindow(session, menus->window);
            const std::vector<MenuNode> bar = menuOf(session, window);
            if (menus->json) {
                nlohmann::json out = nlohmann::json::array();
                for (const MenuNode& n : bar) out.push_back(toJSON(n));
                printJSON(out);
            } else {
                printTree(bar, 0);
            }
        });
    });

    auto press = std::make_shared<Arguments>();
    CLI::App* item = app.add_subcommand("press", "Press an item of a guest window's menus");
    addAgentAddressOptions(*item, press->address);
    item->add_option("WINDOW", press->window, "The window's number or its exact title")->required();
    item->add_option("PATH", press->path,
                     "The item: positions as tessel menus prints them (1.4), or titles (File > Open)")
        ->required();
    item->add_flag("--json", press->json, "Print the result as JSON");
    setAction(item, status, [press] {
        return withAgent(press->address, [&](HostSession& session) {
            const GuestWindow window = findWindow(session, press->window);
            const std::optional<std::vector<int64_t>> path = resolve(menuOf(session, window), press->path);
            if (!path) throw CommandFailure("no menu item " + press->path);
            session.request(ControlMessage::PressMenu{window.pid, *path});
            if (press->json) printJSON(nlohmann::json{{"window", window.windowID}, {"path", *path}});
            else std::cout << "Pressed " << dotted(*path) << " of window " << window.windowID << "\n";
        });
    });
}

}  // namespace tsl::host
