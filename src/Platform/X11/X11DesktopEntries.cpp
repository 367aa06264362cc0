#include "Platform/X11/X11DesktopEntries.h"

#include <gio/gdesktopappinfo.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <set>

#include "TslCore/Support/PathNames.h"

namespace tsl::X11 {
namespace {

constexpr std::string_view suffix = ".desktop";
constexpr size_t environmentLimit = 1 << 20;
constexpr size_t commandNameLength = 15;  // what /proc keeps of a program's name

template <class T>
struct GFree {
    void operator()(T* p) const { g_object_unref(p); }
};
template <class T>
using GOwned = std::unique_ptr<T, GFree<T>>;

std::string lowered(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return s;
}

// The desktop file a process was launched from by GIO, when the variable
// beside it names the process itself (a child's inherited copy doesn't).
std::optional<std::string> launchedFrom(int32_t pid) {
    // Read in pieces: most environments are a few kilobytes, and this runs
    // for every process at each look at the windows.
    std::ifstream in("/proc/" + std::to_string(pid) + "/environ", std::ios::binary);
    std::string environment;
    char piece[16384];
    while (in && environment.size() < environmentLimit) {
        in.read(piece, sizeof piece);
        environment.append(piece, size_t(in.gcount()));
    }
    std::optional<std::string> file, filePid;
    size_t start = 0;
    while (start < environment.size()) {
        size_t end = environment.find('\0', start);
        if (end == std::string::npos) end = environment.size();
        const std::string_view item(environment.data() + start, end - start);
        if (item.starts_with("GIO_LAUNCHED_DESKTOP_FILE=")) file = std::string(item.substr(26));
        else if (item.starts_with("GIO_LAUNCHED_DESKTOP_FILE_PID=")) filePid = std::string(item.substr(30));
        start = end + 1;
    }
    if (!file || filePid != std::to_string(pid)) return std::nullopt;
    return file;
}

}  // namespace

DesktopEntries::DesktopEntries(std::shared_ptr<Workspace> workspace, std::vector<std::filesystem::path> dataDirs)
    : workspace(std::move(workspace)) {
    for (const auto& dir : dataDirs) {
        std::string root = PathNames::standardizedPath((dir / "applications").native());
        if (!root.ends_with('/')) root += '/';
        roots.push_back(std::move(root));
    }
}

std::vector<std::filesystem::path> DesktopEntries::systemDataDirs() {
    const char* value = std::getenv("XDG_DATA_DIRS");
    std::string dirs = value && *value ? value : "/usr/local/share/:/usr/share/";
    std::vector<std::filesystem::path> out;
    size_t start = 0;
    while (start <= dirs.size()) {
        size_t end = dirs.find(':', start);
        if (end == std::string::npos) end = dirs.size();
        // Relative entries mean nothing here and are left out, as the standard says.
        if (end > start && dirs[start] == '/') out.emplace_back(dirs.substr(start, end - start));
        start = end + 1;
    }
    return out;
}

DesktopEntries::Listing DesktopEntries::walk() const {
    Listing out;
    for (size_t r = 0; r < roots.size(); ++r) {
        std::error_code ec;
        std::filesystem::recursive_directory_iterator it(
            roots[r], std::filesystem::directory_options::skip_permission_denied, ec);
        for (; !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
            std::string path = it->path().native();
            struct stat st {};
            if (!path.ends_with(suffix) || ::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
            const int64_t changed = int64_t(st.st_ctim.tv_sec) * 1'000'000'000 + st.st_ctim.tv_nsec;
            out.push_back({r, std::move(path), changed, int64_t(st.st_size)});
        }
    }
    return out;
}

std::shared_ptr<const std::vector<DesktopEntries::Entry>> DesktopEntries::entries() const {
    Listing listing = walk();
    std::lock_guard guard(cacheLock);
    if (cached && listing == cachedListing) return cached;
    auto out = std::make_shared<std::vector<Entry>>();
    std::set<std::string> seen;
    for (const Seen& file : listing) {
        const std::string& root = roots[file.root];
        const std::string& path = file.path;
        std::string id = path.substr(root.size(), path.size() - root.size() - suffix.size());
        std::replace(id.begin(), id.end(), '/', '-');
        // An entry hides those of the same id behind it, even when it is itself hidden.
        if (!seen.insert(id).second) continue;
        GOwned<GDesktopAppInfo> info(g_desktop_app_info_new_from_filename(path.c_str()));
        if (!info || !g_app_info_should_show(G_APP_INFO(info.get()))) continue;
        Entry entry{.app = {.id = id, .name = g_app_info_get_name(G_APP_INFO(info.get())), .path = path}};
        if (const char* exe = g_app_info_get_executable(G_APP_INFO(info.get())))
            entry.executable = std::filesystem::path(exe).filename().native();
        if (const char* wmClass = g_desktop_app_info_get_startup_wm_class(info.get())) entry.windowClass = wmClass;
        out->push_back(std::move(entry));
    }
    std::sort(out->begin(), out->end(), [](const Entry& a, const Entry& b) {
        return std::tie(a.app.name, a.app.id) < std::tie(b.app.name, b.app.id);
    });
    cachedListing = std::move(listing);
    cached = std::move(out);
    return cached;
}

std::vector<InstalledApp> DesktopEntries::installed() const {
    std::vector<InstalledApp> out;
    for (const Entry& entry : *entries()) out.push_back(entry.app);
    return out;
}

void DesktopEntries::mark(RunningApplication& process, const std::vector<Entry>& all) const {
    process.bundleIdentifier.reset();
    process.bundleURL.reset();
    if (std::optional<std::string> file = launchedFrom(process.processIdentifier)) {
        const std::string path = PathNames::standardizedPath(*file);
        if (!holds(path)) return;
        process.bundleURL = path;
        for (const Entry& entry : all)
            if (entry.app.path == path) process.bundleIdentifier = entry.app.id;
        return;
    }
    if (!process.localizedName || process.localizedName->empty()) return;
    const std::string name = lowered(*process.localizedName);
    for (const Entry& entry : all) {
        const bool byClass = !entry.windowClass.empty() && lowered(entry.windowClass) == name;
        const bool byProgram =
            !entry.executable.empty() && lowered(entry.executable.substr(0, commandNameLength)) == name;
        if (byClass || byProgram) {
            process.bundleURL = entry.app.path;
            process.bundleIdentifier = entry.app.id;
            return;
        }
    }
}

std::vector<RunningApplication> DesktopEntries::running() const {
    std::vector<RunningApplication> processes = workspace->runningApplications();
    const auto all = entries();
    for (auto& process : processes) mark(process, *all);
    return processes;
}

std::optional<RunningApplication> DesktopEntries::running(int32_t pid) const {
    std::optional<RunningApplication> process = workspace->runningApplication(pid);
    if (process) mark(*process, *entries());
    return process;
}

void DesktopEntries::name(RunningApplication& process) const { mark(process, *entries()); }

bool DesktopEntries::holds(const std::string& path) const {
    return std::any_of(roots.begin(), roots.end(), [&](const std::string& root) { return path.starts_with(root); });
}

bool DesktopEntries::launchable(const std::string& path) const { return holds(path) && path.ends_with(suffix); }

std::string DesktopEntries::place() const {
    std::string out;
    for (const std::string& root : roots) out += (out.empty() ? "" : ", ") + root.substr(0, root.size() - 1);
    return out;
}

void DesktopEntries::open(const std::filesystem::path& application, const std::vector<std::filesystem::path>& documents,
                          Workspace::OpenCompletion completion) const {
    GOwned<GDesktopAppInfo> info(g_desktop_app_info_new_from_filename(application.c_str()));
    if (!info) {
        completion(std::nullopt, std::make_exception_ptr(WorkspaceError("cannot open " + application.native())));
        return;
    }
    GList* uris = nullptr;
    for (const auto& document : documents)
        if (gchar* uri = g_filename_to_uri(document.c_str(), nullptr, nullptr)) uris = g_list_append(uris, uri);
    GOwned<GAppLaunchContext> context(g_app_launch_context_new());
    GPid pid = 0;
    GError* error = nullptr;
    // GIO spawns through an intermediate child, so the application is never ours to reap.
    const bool launched = g_desktop_app_info_launch_uris_as_manager(
        info.get(), uris, context.get(), G_SPAWN_SEARCH_PATH, nullptr, nullptr,
        [](GDesktopAppInfo*, GPid launchedPid, gpointer first) {
            if (*static_cast<GPid*>(first) == 0) *static_cast<GPid*>(first) = launchedPid;
        },
        &pid, &error);
    g_list_free_full(uris, g_free);
    if (!launched) {
        const std::string message = error ? error->message : "cannot open " + application.native();
        if (error) g_error_free(error);
        completion(std::nullopt, std::make_exception_ptr(WorkspaceError(message)));
        return;
    }
    RunningApplication app{.processIdentifier = pid,
                           .bundleURL = application,
                           .localizedName = g_app_info_get_name(G_APP_INFO(info.get()))};
    const std::string path = PathNames::standardizedPath(application.native());
    for (const Entry& entry : *entries())
        if (entry.app.path == path) app.bundleIdentifier = entry.app.id;
    completion(app, nullptr);
}

}  // namespace tsl::X11
