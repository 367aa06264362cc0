// One window tracking tick (list from the window server, diff, cache swap,
// encoding of the events) with 50 and 500 windows, against a plain JSON
// encoding of the same window list measured in the same run. Two windows
// move every tick, as while the user drags one and another follows.
#include <nlohmann/json.hpp>

#include <cstdio>

#include "BenchSupport.h"
#include "Platform/Sim/Desktop.h"
#include "TslAgent/WindowCache.h"
#include "TslAgent/WindowList.h"
#include "TslAgent/WindowTracking.h"
#include "TslCore/Wire/WireJSON.h"

using namespace tsl;

namespace {

struct Scene {
    std::shared_ptr<Sim::Desktop> desktop = Sim::Desktop::make();
    PlatformServices platform = desktop->services();
    std::vector<uint32_t> windows;

    explicit Scene(int count) {
        std::vector<int32_t> pids;
        for (int p = 0; p < 10; ++p)
            pids.push_back(desktop->addProcess({.name = "App " + std::to_string(p),
                                                .bundleID = "com.example.app" + std::to_string(p)}));
        for (int i = 0; i < count; ++i) {
            const double x = 20.0 * (i % 40), y = 15.0 * (i % 50);
            windows.push_back(desktop->addWindow(pids[size_t(i) % pids.size()],
                                                 {.title = "Document " + std::to_string(i), .frame = {x, y, 640, 480}}));
        }
        desktop->activate(pids[0]);
    }
};

void measure(int count) {
    Scene scene(count);
    WindowTracker tracker;
    WindowCache cache;
    size_t bytes = 0;
    int step = 0;
    auto tick = [&] {
        ++step;
        scene.desktop->setFrame(scene.windows[0], {double(step % 100), 10, 640, 480});
        scene.desktop->setFrame(scene.windows[1], {double(step % 100), 40, 640, 480});
        auto windows = WindowList::current(scene.platform, {}, true);
        cache.replace(windows);
        for (const WindowEvent& event : tracker.update(windows, WindowTracker::Clock::now()))
            bytes += WireJSON::encode(ControlEnvelope{1, std::nullopt, ControlMessage::WindowEvent{event}}).size();
    };
    tick();  // the first picture announces every window
    const std::vector<GuestWindow> list = WindowList::current(scene.platform, {}, false);
    // The baseline: the list as a JSON array of objects, written straight
    // with the JSON library, field by field.
    auto plainJSON = [&] {
        nlohmann::json array = nlohmann::json::array();
        for (const GuestWindow& w : list) {
            nlohmann::json o{{"windowID", w.windowID}, {"pid", w.pid}, {"title", w.title},
                             {"frame", {{"x", w.frame.x}, {"y", w.frame.y}, {"width", w.frame.width}, {"height", w.frame.height}}},
                             {"layer", w.layer}, {"zIndex", w.zIndex}, {"isOnScreen", w.isOnScreen},
                             {"isMinimized", w.isMinimized}, {"isFocused", w.isFocused}};
            if (w.bundleID) o["bundleID"] = *w.bundleID;
            array.push_back(std::move(o));
        }
        return array.dump();
    };
    const int rounds = count >= 500 ? 40 : 400;
    const double encodeSeconds = bench::bestSeconds(5, [&] {
        for (int i = 0; i < rounds; ++i) bytes += plainJSON().size();
    }) / rounds;
    const double tickSeconds = bench::bestSeconds(5, [&] {
        for (int i = 0; i < rounds; ++i) tick();
    }) / rounds;
    std::printf("%d windows: tick %.1f us, JSON encoding of the list %.1f us (%zu bytes made)\n", count,
                tickSeconds * 1e6, encodeSeconds * 1e6, bytes);
    const std::string what = "tracking tick at " + std::to_string(count) + " windows vs list encoding";
    bench::ratioLine(what.c_str(), tickSeconds, encodeSeconds, 3.0, false);
}

}  // namespace

int main() {
    measure(50);
    measure(500);
}
