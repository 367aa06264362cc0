#include "Platform/Sim/SimPorts.h"

#include <unistd.h>

#include <algorithm>

#include "Platform/Sim/World.h"

namespace tsl::Sim {

// Window server.

namespace {

// The capture indicator belongs to the captured window's process and layer.
PlatformValue indicatorEntry(World& w, const SimWindow& captured, uint32_t id, bool visible) {
    ValueDict entry{{WindowServer::keyNumber, id},
                    {WindowServer::keyOwnerPID, captured.pid},
                    {WindowServer::keyName, ""},
                    {WindowServer::keyBounds, dictionaryFromRect(World::indicatorFrame(captured.setup.frame))},
                    {WindowServer::keyLayer, captured.setup.layer},
                    {WindowServer::keyAlpha, 1.0}};
    if (SimProcess* p = w.process(captured.pid)) entry[WindowServer::keyOwnerName] = p->setup.name;
    if (visible) entry[WindowServer::keyIsOnscreen] = true;
    return entry;
}

}  // namespace

std::optional<PlatformValue> SimWindowServer::copyWindowInfo(uint32_t options, uint32_t relativeToWindow) {
    Desktop::WindowListFilter filter;
    ValueList list = _desktop->read([&](World& w) {
        filter = w.windowListFilter;
        ValueList out;
        for (const SimWindow* win : w.stacked()) {
            const bool visible = w.isVisible(*win);
            const bool single = options & WindowServer::optionIncludingWindow;
            const bool passes = !((options & WindowServer::optionOnScreenOnly) && !visible) &&
                                !((options & WindowServer::optionExcludeDesktopElements) && win->setup.desktopElement);
            if (auto it = w.captureIndicators.find(win->id); it != w.captureIndicators.end()) {
                const uint32_t id = it->second.id;
                if (single ? id == relativeToWindow : passes) out.emplace_back(indicatorEntry(w, *win, id, visible));
            }
            if (single ? win->id != relativeToWindow : !passes) continue;
            ValueDict entry{{WindowServer::keyNumber, win->id},
                            {WindowServer::keyOwnerPID, win->pid},
                            {WindowServer::keyName, win->setup.title},
                            {WindowServer::keyBounds, dictionaryFromRect(win->setup.frame)},
                            {WindowServer::keyLayer, win->setup.layer},
                            {WindowServer::keyAlpha, win->setup.alpha}};
            if (SimProcess* p = w.process(win->pid)) entry[WindowServer::keyOwnerName] = p->setup.name;
            // Like the real server, the key is there only for windows on screen.
            if (visible) entry[WindowServer::keyIsOnscreen] = true;
            out.emplace_back(std::move(entry));
        }
        return out;
    });
    std::optional<PlatformValue> result = PlatformValue(std::move(list));
    return filter ? filter(std::move(result), options, relativeToWindow) : result;
}

// Workspace.

namespace {

RunningApplication running(const SimProcess& p) {
    return {.processIdentifier = p.pid, .bundleIdentifier = p.setup.bundleID, .bundleURL = p.setup.bundleURL,
            .localizedName = p.setup.name};
}

}  // namespace

std::optional<RunningApplication> SimWorkspace::frontmostApplication() {
    return _desktop->read([](World& w) -> std::optional<RunningApplication> {
        SimProcess* p = w.frontmost ? w.process(*w.frontmost) : nullptr;
        return p ? std::optional(running(*p)) : std::nullopt;
    });
}

std::vector<RunningApplication> SimWorkspace::runningApplications() {
    return _desktop->read([](World& w) {
        std::vector<RunningApplication> out;
        for (auto& [pid, p] : w.processes) out.push_back(running(p));
        return out;
    });
}

std::optional<RunningApplication> SimWorkspace::runningApplication(int32_t pid) {
    return _desktop->read([&](World& w) -> std::optional<RunningApplication> {
        SimProcess* p = w.process(pid);
        return p ? std::optional(running(*p)) : std::nullopt;
    });
}

bool SimWorkspace::activate(int32_t pid, uint32_t) {
    return _desktop->change([&](World& w) {
        if (!w.process(pid)) return false;
        w.activate(pid);
        return true;
    });
}

bool SimWorkspace::terminate(int32_t pid) {
    // The request goes out; whether the application obeys is its own affair.
    return _desktop->change([&](World& w) {
        if (!w.process(pid)) return false;
        w.quit(pid);
        return true;
    });
}

std::optional<std::filesystem::path> SimWorkspace::urlForApplication(const std::string& bundleID) {
    std::vector<std::filesystem::path> candidates = _desktop->read([](World& w) {
        return std::vector<std::filesystem::path>(w.knownBundles.begin(), w.knownBundles.end());
    });
    for (const auto& dir : _desktop->options().applicationDirs) {
        std::error_code ec;
        std::vector<std::filesystem::path> found;
        for (auto it = std::filesystem::directory_iterator(dir, ec); !ec && it != std::filesystem::directory_iterator();
             it.increment(ec)) {
            if (it->path().extension() == ".app") found.push_back(it->path());
        }
        std::sort(found.begin(), found.end());
        candidates.insert(candidates.end(), found.begin(), found.end());
    }
    for (const auto& bundle : candidates) {
        if (AppBundleInfo::read(bundle).bundleID == bundleID) return bundle;
    }
    return std::nullopt;
}

void SimWorkspace::openApplication(const std::filesystem::path& application, const OpenConfiguration& configuration,
                                   OpenCompletion completion) {
    openURLs({}, application, configuration, std::move(completion));
}

void SimWorkspace::openURLs(const std::vector<std::filesystem::path>& urls, const std::filesystem::path& application,
                            const OpenConfiguration& configuration, OpenCompletion completion) {
    std::error_code ec;
    const auto bundle = application.lexically_normal();
    if (!std::filesystem::is_directory(bundle, ec)) {
        completion(std::nullopt, std::make_exception_ptr(WorkspaceError(
                                     "The application “" + bundle.stem().string() + "” can’t be opened.")));
        return;
    }
    const AppBundleInfo info = AppBundleInfo::read(bundle);
    auto app = _desktop->change([&](World& w) {
        const int32_t pid = w.launchBundle(bundle, info, configuration.activates, urls);
        return running(*w.process(pid));
    });
    completion(app, nullptr);
}

// Events.

std::optional<EventPoster::Source> SimEventPoster::createSource(int32_t stateID) { return Source{stateID}; }

std::optional<PlatformEvent> SimEventPoster::make(const std::optional<Source>& source, uint32_t type) {
    const bool fails = _desktop->read([](World& w) { return w.eventCreationFails; });
    if (fails) return std::nullopt;
    PlatformEvent event;
    event.type = type;
    if (source) event.sourceStateID = source->stateID;
    return event;
}

std::optional<PlatformEvent> SimEventPoster::createMouseEvent(const std::optional<Source>& source, uint32_t type,
                                                              Point location, uint32_t button) {
    auto event = make(source, type);
    if (!event) return std::nullopt;
    event->location = location;
    event->setIntegerField(PlatformEvent::fieldMouseButtonNumber, button);
    return event;
}

std::optional<PlatformEvent> SimEventPoster::createScrollWheelEvent(const std::optional<Source>& source,
                                                                    ScrollUnit units, uint32_t wheelCount,
                                                                    int32_t wheel1, int32_t wheel2, int32_t wheel3) {
    auto event = make(source, PlatformEvent::scrollWheel);
    if (!event) return std::nullopt;
    event->location = _desktop->read([](World& w) { return w.cursor; });
    const int32_t wheels[3] = {wheel1, wheel2, wheel3};
    const uint32_t fields[3] = {PlatformEvent::fieldScrollDeltaAxis1, PlatformEvent::fieldScrollDeltaAxis2,
                                PlatformEvent::fieldScrollDeltaAxis3};
    for (uint32_t i = 0; i < 3; ++i) event->setIntegerField(fields[i], i < wheelCount ? wheels[i] : 0);
    event->setIntegerField(PlatformEvent::fieldScrollIsContinuous, units == ScrollUnit::pixel ? 1 : 0);
    return event;
}

std::optional<PlatformEvent> SimEventPoster::createKeyboardEvent(const std::optional<Source>& source, uint16_t keyCode,
                                                                 bool keyDown) {
    auto event = make(source, keyDown ? PlatformEvent::keyDown : PlatformEvent::keyUp);
    if (event) event->setIntegerField(PlatformEvent::fieldKeyboardKeycode, keyCode);
    return event;
}

std::optional<PlatformEvent> SimEventPoster::createEvent(const std::optional<Source>& source) {
    return make(source, 0);
}

namespace {

void record(World& w, PostedEvent posted) {
    constexpr size_t kept = 10000;
    if (w.posted.size() == kept) w.posted.pop_front();
    w.posted.push_back(std::move(posted));
}

}  // namespace

void SimEventPoster::post(Tap, const PlatformEvent& event) {
    _desktop->change([&](World& w) {
        std::optional<int32_t> pid;
        std::optional<uint32_t> window;
        if (event.isMouse()) {
            if (event.location) w.cursor = *event.location;
            window = w.topmostWindowAt(w.cursor);
            if (window) pid = w.window(*window)->pid;
        } else if (event.isKeyboard()) {
            pid = w.frontmost;
            if (pid) window = w.keyWindow(*pid);
        }
        record(w, {.route = Route::hid, .event = event, .deliveredTo = pid, .window = window});
        if (pid) w.deliver(*pid, window, event, Route::hid);
    });
}

void SimEventPoster::postToPid(int32_t pid, const PlatformEvent& event) {
    _desktop->change([&](World& w) {
        std::optional<int32_t> delivered;
        std::optional<uint32_t> window;
        if (w.process(pid)) {
            delivered = pid;
            if (event.isMouse()) {
                // The window the event names, if it is this process's.
                const auto named = uint32_t(event.integerField(PlatformEvent::fieldWindowUnderMousePointer));
                SimWindow* target = w.window(named);
                if (target && target->pid == pid) window = named;
            } else {
                window = w.keyWindow(pid);
            }
        }
        record(w, {.route = Route::pid, .requestedPid = pid, .event = event, .deliveredTo = delivered,
                   .window = window});
        if (delivered) w.deliver(pid, window, event, Route::pid);
    });
}

// Pasteboard.

int64_t SimPasteboard::changeCount() {
    return _desktop->read([](World& w) { return w.pasteboardCount; });
}

std::vector<std::string> SimPasteboard::types() {
    return _desktop->read([](World& w) {
        std::vector<std::string> out;
        for (auto& [type, data] : w.pasteboardItems) out.push_back(type);
        return out;
    });
}

std::optional<Bytes> SimPasteboard::dataForType(const std::string& type) {
    return _desktop->read([&](World& w) -> std::optional<Bytes> {
        for (auto& [t, data] : w.pasteboardItems)
            if (t == type) return data;
        return std::nullopt;
    });
}

int64_t SimPasteboard::clearContents() {
    return _desktop->change([](World& w) {
        w.pasteboardItems.clear();
        return ++w.pasteboardCount;
    });
}

bool SimPasteboard::setData(const Bytes& data, const std::string& type) {
    return _desktop->change([&](World& w) {
        for (auto& [t, d] : w.pasteboardItems) {
            if (t == type) {
                d = data;
                return true;
            }
        }
        w.pasteboardItems.emplace_back(type, data);
        return true;
    });
}

// Preferences.

std::optional<PlatformValue> SimPreferences::copyValue(const std::string& key, const std::string& application,
                                                       User user, Host host) {
    return _desktop->read([&](World& w) -> std::optional<PlatformValue> {
        auto domain = w.preferences.find({application, user, host});
        if (domain == w.preferences.end()) return std::nullopt;
        auto it = domain->second.find(key);
        return it == domain->second.end() ? std::nullopt : std::optional(it->second);
    });
}

void SimPreferences::setValue(const std::string& key, const std::optional<PlatformValue>& value,
                              const std::string& application, User user, Host host) {
    _desktop->change([&](World& w) {
        ValueDict& domain = w.preferences[{application, user, host}];
        if (value) domain[key] = *value;
        else domain.erase(key);
    });
}

bool SimPreferences::synchronize(const std::string&, User, Host) { return true; }

// System.

std::optional<int64_t> SimSystem::sysctlInteger(const std::string& name) {
    return _desktop->read([&](World& w) -> std::optional<int64_t> {
        auto it = w.sysctls.find(name);
        return it == w.sysctls.end() ? std::nullopt : std::optional(it->second);
    });
}

std::string SimSystem::operatingSystemVersionString() { return "Version 14.5 (Simulated)"; }

std::filesystem::path SimSystem::homeDirectory() { return _desktop->options().home; }

// The agent itself is a real process; simulated ones never share its id.
int32_t SimSystem::processIdentifier() { return int32_t(::getpid()); }

System::ChildResult SimSystem::run(const std::filesystem::path& executable, const std::vector<std::string>& arguments) {
    Desktop::ChildScript script = _desktop->change([&](World& w) -> Desktop::ChildScript {
        auto it = w.children.find(executable);
        if (it == w.children.end()) return nullptr;
        ++w.childRuns[executable];
        return it->second;
    });
    if (!script) throw LaunchError("The file “" + executable.filename().string() + "” doesn’t exist.");
    return script(arguments);
}

}  // namespace tsl::Sim
