#include "Platform/Sim/Desktop.h"

#include "Platform/Sim/SimCaptureStream.h"
#include "Platform/Sim/SimPorts.h"
#include "Platform/Sim/World.h"

namespace tsl::Sim {

Desktop::Desktop(Options options) : _options(std::move(options)), _world(std::make_unique<World>()) {}

std::shared_ptr<Desktop> Desktop::make(Options options) {
    return std::shared_ptr<Desktop>(new Desktop(std::move(options)));
}

Desktop::~Desktop() {
    // Their threads find the desktop gone and end.
    for (auto& weak : _world->streams)
        if (auto stream = weak.lock()) stream->wake();
}

PlatformServices Desktop::services() {
    auto self = shared_from_this();
    return {.windowServer = std::make_shared<SimWindowServer>(self),
            .workspace = std::make_shared<SimWorkspace>(self),
            .accessibility = std::make_shared<SimAccessibility>(self),
            .screenCapture = std::make_shared<SimScreenCapture>(self),
            .eventPoster = std::make_shared<SimEventPoster>(self),
            .pasteboard = std::make_shared<SimPasteboard>(self),
            .preferences = std::make_shared<SimPreferences>(self),
            .system = std::make_shared<SimSystem>(self)};
}

bool Desktop::takeWindowsRemoved() {
    const bool removed = _world->windowsRemoved;
    _world->windowsRemoved = false;
    return removed;
}

void Desktop::notifyStreams() {
    std::vector<std::shared_ptr<SimCaptureStream>> live;
    {
        std::lock_guard g(_lock);
        auto& streams = _world->streams;
        std::erase_if(streams, [](const std::weak_ptr<SimCaptureStream>& s) { return s.expired(); });
        for (auto& weak : streams)
            if (auto s = weak.lock()) live.push_back(std::move(s));
    }
    for (auto& s : live) s->wake();
}

void Desktop::registerStream(const std::shared_ptr<SimCaptureStream>& stream) {
    std::lock_guard g(_lock);
    std::erase_if(_world->streams, [](const std::weak_ptr<SimCaptureStream>& s) { return s.expired(); });
    _world->streams.push_back(stream);
}

int32_t Desktop::addProcess(ProcessSetup setup) {
    return change([&](World& w) { return w.addProcess(std::move(setup)); });
}

std::optional<int32_t> Desktop::launch(const std::filesystem::path& bundle, bool activate) {
    std::error_code ec;
    if (!std::filesystem::is_directory(bundle, ec)) return std::nullopt;
    const auto path = bundle.lexically_normal();
    const AppBundleInfo info = AppBundleInfo::read(path);
    return change([&](World& w) { return w.launchBundle(path, info, activate, {}); });
}

bool Desktop::quit(int32_t pid) {
    return change([&](World& w) { return w.quit(pid); });
}

void Desktop::vanish(int32_t pid) {
    change([&](World& w) { w.removeProcess(pid); });
}

void Desktop::activate(int32_t pid) {
    change([&](World& w) { w.activate(pid); });
}

void Desktop::setAnswerDelay(int32_t pid, double seconds) {
    change([&](World& w) {
        if (SimProcess* p = w.process(pid)) p->setup.answerDelay = seconds;
    });
}

static ProcessInfo infoOf(const SimProcess& p) {
    return {.pid = p.pid, .name = p.setup.name, .bundleID = p.setup.bundleID, .bundleURL = p.setup.bundleURL,
            .kind = p.setup.kind, .openedDocuments = p.documents};
}

std::vector<ProcessInfo> Desktop::processes() const {
    return read([](World& w) {
        std::vector<ProcessInfo> out;
        for (auto& [pid, p] : w.processes) out.push_back(infoOf(p));
        return out;
    });
}

std::optional<ProcessInfo> Desktop::process(int32_t pid) const {
    return read([&](World& w) -> std::optional<ProcessInfo> {
        SimProcess* p = w.process(pid);
        return p ? std::optional(infoOf(*p)) : std::nullopt;
    });
}

std::optional<int32_t> Desktop::frontmostPid() const {
    return read([](World& w) { return w.frontmost; });
}

uint32_t Desktop::addWindow(int32_t pid, WindowSetup setup) {
    return change([&](World& w) { return w.addWindow(pid, std::move(setup)); });
}

void Desktop::closeWindow(uint32_t id) {
    change([&](World& w) { w.removeWindow(id); });
}

void Desktop::setFrame(uint32_t id, Rect frame) {
    change([&](World& w) { w.setFrame(id, frame); });
}

void Desktop::raise(uint32_t id) {
    change([&](World& w) { w.raise(id); });
}

void Desktop::setMinimized(uint32_t id, bool minimized) {
    change([&](World& w) { w.setMinimized(id, minimized); });
}

std::optional<WindowInfo> Desktop::window(uint32_t id) const {
    return read([&](World& w) -> std::optional<WindowInfo> {
        SimWindow* win = w.window(id);
        return win ? std::optional(w.info(*win)) : std::nullopt;
    });
}

std::vector<WindowInfo> Desktop::windows() const {
    return read([](World& w) {
        std::vector<WindowInfo> out;
        for (const SimWindow* win : w.stacked()) out.push_back(w.info(*win));
        return out;
    });
}

void Desktop::setMenuBar(int32_t pid, std::optional<std::vector<MenuItemSetup>> menuBar) {
    change([&](World& w) {
        if (SimProcess* p = w.process(pid)) {
            w.closeMenu(*p);
            p->setup.menuBar = std::move(menuBar);
            p->validatedMenus.clear();
        }
    });
}

std::optional<std::vector<MenuItemSetup>> Desktop::menuBar(int32_t pid) const {
    return read([&](World& w) {
        SimProcess* p = w.process(pid);
        return p ? p->setup.menuBar : std::nullopt;
    });
}

std::vector<std::vector<size_t>> Desktop::menuPresses(int32_t pid) const {
    return read([&](World& w) {
        SimProcess* p = w.process(pid);
        return p ? p->presses : std::vector<std::vector<size_t>>{};
    });
}

std::optional<size_t> Desktop::openMenu(int32_t pid) const {
    return read([&](World& w) {
        SimProcess* p = w.process(pid);
        return p ? p->openMenu : std::nullopt;
    });
}

std::optional<std::string> Desktop::textAreaValue(uint32_t windowID) const {
    return read([&](World& w) -> std::optional<std::string> {
        ElementSetup* text = w.textArea(windowID);
        return text ? text->value : std::nullopt;
    });
}

bool Desktop::squareIsWhite(int32_t pid) const {
    return read([&](World& w) {
        SimProcess* p = w.process(pid);
        return p && p->squareWhite;
    });
}

std::vector<std::string> Desktop::buttonPresses(int32_t pid) const {
    return read([&](World& w) {
        SimProcess* p = w.process(pid);
        return p ? p->buttonPresses : std::vector<std::string>{};
    });
}

std::vector<PostedEvent> Desktop::postedEvents() const {
    return read([](World& w) { return std::vector<PostedEvent>(w.posted.begin(), w.posted.end()); });
}

Point Desktop::cursorLocation() const {
    return read([](World& w) { return w.cursor; });
}

void Desktop::setEventCreationFails(bool fails) {
    change([&](World& w) { w.eventCreationFails = fails; });
}

void Desktop::setScreenRecordingGranted(bool granted) {
    change([&](World& w) { w.screenRecordingGranted = granted; });
}

void Desktop::setAccessibilityTrusted(bool trusted) {
    change([&](World& w) { w.accessibilityTrusted = trusted; });
}

int Desktop::permissionPrompts() const {
    return read([](World& w) { return w.permissionPrompts; });
}

void Desktop::setWindowListFilter(WindowListFilter filter) {
    change([&](World& w) { w.windowListFilter = std::move(filter); });
}

void Desktop::setCaptureFaults(CaptureFaults faults) {
    change([&](World& w) { w.captureFaults = faults; });
}

CaptureCounts Desktop::captureCounts() const {
    return read([](World& w) { return w.captureCounts; });
}

void Desktop::setAttachmentFilter(uint32_t windowID, AttachmentFilter filter) {
    change([&](World& w) {
        if (filter) w.attachmentFilters[windowID] = std::move(filter);
        else w.attachmentFilters.erase(windowID);
    });
}

size_t Desktop::stepCapture() {
    std::vector<std::shared_ptr<SimCaptureStream>> live;
    {
        std::lock_guard g(_lock);
        for (auto& weak : _world->streams)
            if (auto s = weak.lock()) live.push_back(std::move(s));
    }
    std::vector<std::pair<std::shared_ptr<SimCaptureStream>, uint64_t>> waits;
    for (auto& s : live)
        if (auto target = s->requestFrame()) waits.emplace_back(s, *target);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    size_t done = 0;
    for (auto& [s, target] : waits) done += s->waitForFrames(target, deadline) ? 1 : 0;
    return done;
}

void Desktop::scriptChild(const std::filesystem::path& executable, ChildScript script) {
    change([&](World& w) { w.children[executable] = std::move(script); });
}

int Desktop::childRuns(const std::filesystem::path& executable) const {
    return read([&](World& w) {
        auto it = w.childRuns.find(executable);
        return it == w.childRuns.end() ? 0 : it->second;
    });
}

void Desktop::setSysctl(const std::string& name, int64_t value) {
    change([&](World& w) { w.sysctls[name] = value; });
}

}  // namespace tsl::Sim
