#include "Platform/X11/X11Workspace.h"

#include <algorithm>
#include <set>

namespace tsl::X11 {
namespace {

RunningApplication running(const ClientWindow& w) {
    return {.processIdentifier = *w.pid, .localizedName = w.ownerName};
}

bool isApplicationWindow(const ClientWindow& w) { return w.pid && !w.overrideRedirect && !w.desktopElement; }

}  // namespace

std::optional<RunningApplication> X11Workspace::frontmostApplication() {
    const std::vector<ClientWindow> all = ClientWindow::list(control->connection());
    std::optional<ClientWindow> focus = control->focused(all);
    if (!focus || !focus->pid) return std::nullopt;
    return running(*focus);
}

std::vector<RunningApplication> X11Workspace::runningApplications() {
    std::vector<RunningApplication> out;
    std::set<int32_t> seen;
    for (const ClientWindow& w : ClientWindow::list(control->connection()))
        if (isApplicationWindow(w) && seen.insert(*w.pid).second) out.push_back(running(w));
    return out;
}

std::optional<RunningApplication> X11Workspace::runningApplication(int32_t pid) {
    for (const ClientWindow& w : ClientWindow::list(control->connection()))
        if (isApplicationWindow(w) && w.pid == pid) return running(w);
    return std::nullopt;
}

bool X11Workspace::activate(int32_t pid, uint32_t) {
    const std::vector<ClientWindow> all = ClientWindow::list(control->connection());
    const ClientWindow* best = nullptr;
    for (const ClientWindow& w : all) {
        if (!isApplicationWindow(w) || w.pid != pid) continue;
        if (!best || (w.onScreen() && !best->onScreen())) best = &w;
    }
    return best && control->activate(*best);
}

bool X11Workspace::terminate(int32_t pid) {
    bool any = false;
    for (const ClientWindow& w : ClientWindow::list(control->connection()))
        if (isApplicationWindow(w) && w.pid == pid) any = control->close(w) || any;
    return any;
}

void X11Workspace::openApplication(const std::filesystem::path& application, const OpenConfiguration&,
                                   OpenCompletion completion) {
    completion(std::nullopt,
               std::make_exception_ptr(WorkspaceError("cannot open " + application.string() + " on this desktop")));
}

void X11Workspace::openURLs(const std::vector<std::filesystem::path>&, const std::filesystem::path& application,
                            const OpenConfiguration& configuration, OpenCompletion completion) {
    openApplication(application, configuration, std::move(completion));
}

}  // namespace tsl::X11
