// tessel view: the host's window onto a running agent, one view per guest window.
#include <CLI/CLI.hpp>
#include <SDL2/SDL.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

#include "TesselHost/AgentAddress.h"
#include "TesselHost/Commands.h"
#include "TesselHost/FrameMailbox.h"
#include "TesselHost/HostSession.h"
#include "TesselHost/SimReport.h"
#include "TslCore/Measure/TestPattern.h"
#include "TslCore/Support/Error.h"
#include "TslStream/Measure/ResultWriter.h"
#include "TslStream/Render/StreamView.h"

namespace tsl::host {
namespace {

std::atomic<bool> viewInterrupted{false};

void onViewSignal(int) { viewInterrupted = true; }

struct ViewArguments {
    AgentAddress address;
    bool headless = false;
    std::string codec = "h264";
    int fps = 60;
    double scale = 1.0;
    std::string window;  // an ID or a title; empty for every window
    int measure = 0;
    double duration = 0;
    std::string out;  // the user's cache when empty
    bool stats = false;
    bool json = false;
};

bool viewDisplayPresent() {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "SDL_VIDEODRIVER"})
        if (const char* v = std::getenv(name); v && *v) return true;
    return false;
}

bool isChosen(const GuestWindow& w, const std::string& wanted) {
    if (wanted.empty()) return true;
    return std::to_string(w.windowID) == wanted || w.title == wanted;
}

// One view per streamed guest window, opened and closed on the main thread.
class Views {
public:
    Views(HostSession& session, bool shown) : session(session), shown(shown) {}

    void open(const GuestWindow& w) {
        session.stream(w);
        titles[w.windowID] = w.title;
        if (!shown) return;
        auto view = std::make_unique<StreamView>(session.inputFor(w.windowID), w.frame.x, w.frame.y, w.frame.width,
                                                 w.frame.height, w.title);
        view->onInput = [this](const InputEvent& e) { session.sendInput(e); };
        const uint32_t id = w.windowID;
        view->onResize = [this, id](double width, double height) {
            // The guest window follows the host's; an equal size changes nothing there.
            auto guest = frames.find(id);
            if (guest == frames.end() || (guest->second.width == width && guest->second.height == height)) return;
            guest->second.width = width, guest->second.height = height;
            try {
                session.request(ControlMessage::WindowAction{
                    {.windowID = id, .kind = WindowAction::Kind::resize, .frame = WireRect{0, 0, width, height}}});
            } catch (const std::exception& e) {
                std::cerr << "tessel view: " << e.what() << "\n";
            }
        };
        frames[id] = w.frame;
        views[id] = std::move(view);
    }
    void close(uint32_t id) {
        session.unstream(id, false);
        views.erase(id);
        titles.erase(id);
        frames.erase(id);
    }
    void resized(const GuestWindow& w) {
        auto view = views.find(w.windowID);
        auto known = frames.find(w.windowID);
        if (view == views.end() || known == frames.end()) return;
        if (known->second.width == w.frame.width && known->second.height == w.frame.height) return;
        known->second = w.frame;
        view->second->resizeWindow(w.frame.width, w.frame.height);
    }
    void show(FrameMailbox::Pictures& due) {
        for (auto& [id, view] : views)
            if (auto found = due.find(id); found != due.end())
                view->show(std::move(found->second.first), found->second.second);
    }
    void retitle(const std::string& suffix) {
        for (auto& [id, view] : views) view->setTitle(titles[id] + suffix);
    }
    bool has(uint32_t id) const { return titles.contains(id); }
    size_t count() const { return titles.size(); }

private:
    HostSession& session;
    const bool shown;
    std::map<uint32_t, std::unique_ptr<StreamView>> views;
    std::map<uint32_t, std::string> titles;
    std::map<uint32_t, WireRect> frames;
};

// The host's clipboard through SDL's, kept in step with the guest's.
class ClipboardSync {
public:
    explicit ClipboardSync(HostSession& session) : session(session) {
        if (char* text = SDL_GetClipboardText()) {
            last = text;
            SDL_free(text);
        }
    }
    // A change on the host goes to the guest.
    void poll() {
        char* text = SDL_GetClipboardText();
        if (!text) return;
        std::string now = text;
        SDL_free(text);
        if (now == last) return;
        last = now;
        ClipboardPayload payload{.origin = Hello::Role::host, .changeCount = ++changes};
        payload.items.push_back({std::string(ClipboardPayload::supportedTypes[0]), Bytes(now.begin(), now.end())});
        try {
            session.request(ControlMessage::Clipboard{payload});
        } catch (const std::exception& e) {
            std::cerr << "tessel view: " << e.what() << "\n";
        }
    }
    // The guest's text becomes the host's.
    void received(const ClipboardPayload& payload) {
        for (const ClipboardItem& item : payload.items)
            if (item.type == ClipboardPayload::supportedTypes[0]) {
                last.assign(item.data.begin(), item.data.end());
                SDL_SetClipboardText(last.c_str());
                return;
            }
    }

private:
    HostSession& session;
    std::string last;
    int64_t changes = 0;
};

std::string statsSuffix(const SimFigures& now, const SimFigures& before) {
    const uint64_t frames = now.framesReceived - before.framesReceived;
    std::vector<double> recent(now.captureToArrivalMs.begin() + long(before.captureToArrivalMs.size()),
                               now.captureToArrivalMs.end());
    std::string text = " — " + std::to_string(frames) + " fps";
    if (!recent.empty()) {
        std::nth_element(recent.begin(), recent.begin() + long(recent.size() / 2), recent.end());
        char latency[32];
        std::snprintf(latency, sizeof latency, ", %.1f ms", recent[recent.size() / 2]);
        text += latency;
    }
    return text;
}

int runView(ViewArguments& args) {
    SimOptions o;
    o.codec = args.codec == "raw" ? VideoCodec::rawBGRA : VideoCodec::h264;
    o.fps = args.fps, o.scale = args.scale, o.measure = args.measure, o.duration = args.duration, o.out = args.out;
    o.json = args.json;
    struct sigaction action {};
    action.sa_handler = onViewSignal;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);

    const bool shown = !args.headless && viewDisplayPresent() && StreamView::displayAvailable();
    if (!args.headless && !shown) std::cerr << "tessel view: no display; running headless\n";

    std::unique_ptr<HostSession> session;
    FrameMailbox mailbox(shown);
    try {
        session = std::make_unique<HostSession>(reachAgent(args.address, viewInterrupted),
                                                StreamSettings{o.codec, o.fps, o.scale});
        session->begin(
            [&mailbox, shown](uint32_t window, std::shared_ptr<PixelBuffer> picture, double scale) {
                if (shown) mailbox.post(window, std::move(picture), scale);
            },
            [&mailbox](const ControlMessage& message) { mailbox.post(message); });

        Views views(*session, shown);
        uint32_t pattern = 0;
        for (const GuestWindow& w : session->windows()) {
            if (!isChosen(w, args.window)) continue;
            views.open(w);
            if (w.title == TestPatternSpec::windowTitle && !pattern) pattern = w.windowID;
        }
        if (!args.window.empty() && views.count() == 0) throw Error("no guest window is " + args.window);
        if (o.measure > 0) {
            if (!pattern) throw Error("no guest window shows the test pattern to measure");
            session->measureWindow(pattern);
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
            while (session->patternFrames() == 0 && !viewInterrupted && std::chrono::steady_clock::now() < deadline)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            if (session->patternFrames() == 0) throw Error("no frame of the test pattern arrived");
        }

        std::optional<ClipboardSync> clipboard;
        if (shown) clipboard.emplace(*session);
        std::atomic<bool> measured{o.measure == 0};
        std::thread measurer([&] {
            session->measureRoundTrips(o.measure, o.fps, viewInterrupted);
            measured = true;
        });
        const auto start = std::chrono::steady_clock::now();
        auto lastStats = start, lastClipboard = start;
        SimFigures before = session->figures();
        while (!viewInterrupted) {
            // Woken by mail; the limit keeps the periodic work below going.
            if (!mailbox.wait(std::chrono::milliseconds(50))) break;
            FrameMailbox::Mail mail = mailbox.take();
            for (const ControlMessage& m : mail.messages) {
                if (auto* event = m.get<ControlMessage::WindowEvent>()) {
                    const GuestWindow& w = event->value.window;
                    using Kind = WindowEvent::Kind;
                    if ((event->value.kind == Kind::created || event->value.kind == Kind::restored) &&
                        !views.has(w.windowID) && isChosen(w, args.window) && w.isOnScreen) {
                        // A window may go again before its stream starts; the others go on.
                        try {
                            views.open(w);
                        } catch (const std::exception& e) {
                            views.close(w.windowID);
                            std::cerr << "tessel view: " << e.what() << "\n";
                        }
                    } else if ((event->value.kind == Kind::closed || event->value.kind == Kind::minimized) &&
                               views.has(w.windowID))
                        views.close(w.windowID);
                    else if (event->value.kind == Kind::resized) views.resized(w);
                } else if (auto* clip = m.get<ControlMessage::Clipboard>(); clip && clipboard) {
                    clipboard->received(clip->value);
                }
            }
            views.show(mail.pictures);
            const auto now = std::chrono::steady_clock::now();
            if (clipboard && now - lastClipboard > std::chrono::milliseconds(500)) {
                clipboard->poll();
                lastClipboard = now;
            }
            if (args.stats && now - lastStats >= std::chrono::seconds(1)) {
                SimFigures figures = session->figures();
                const std::string suffix = statsSuffix(figures, before);
                if (shown) views.retitle(suffix);
                else std::cerr << "tessel view:" << suffix.substr(suffix.find(' ', 1)) << "\n";
                before = std::move(figures);
                lastStats = now;
            }
            if (!session->agent()->isLive()) break;
            const bool timeUp = o.duration > 0 && now - start > std::chrono::duration<double>(o.duration);
            if (measured && (o.measure > 0 || o.duration > 0) && (o.duration == 0 || timeUp)) break;
        }
        viewInterrupted = true;  // ends the measurer early if the user quit
        measurer.join();
    } catch (const std::exception& e) {
        if (session) session->stop();
        std::cerr << "tessel view: " << e.what() << "\n";
        return 1;
    }
    SimFigures figures = session->figures();
    session->stop();
    if (o.measure == 0) {
        if (o.json)
            std::cout << nlohmann::json{{"frames", figures.framesReceived}, {"seconds", figures.seconds}} << "\n";
        return 0;
    }
    SimSummary summary = SimSummary::of(figures, o);
    std::string text = summaryText(summary, o);
    std::vector<std::string> files;
    try {
        files = writeResults(figures, summary, resultsFolder(o.out, "view"), "view", text);
    } catch (const std::exception& e) {
        std::cerr << "tessel view: " << e.what() << "\n";
        return 1;
    }
    if (o.json) std::cout << summaryJSON(summary, o, files) << "\n";
    else std::cout << text << "\n" << floorLine(summary) << "\n\nResults in " << resultsFolder(o.out, "view") << "\n";
    return summary.roundTrips == 0 ? 1 : 0;
}

}  // namespace

void addViewCommand(CLI::App& app, ExitStatus& status) {
    auto args = std::make_shared<ViewArguments>();
    CLI::App* view = app.add_subcommand("view", "Show the windows of a running agent's guest, one window each");
    addAgentAddressOptions(*view, args->address);
    view->add_flag("--headless", args->headless, "Show no windows (also chosen by itself when there is no display)");
    view->add_option("--window", args->window, "Stream only the guest window with this ID or title");
    view->add_option("--codec", args->codec, "Video codec of the streams")
        ->check(CLI::IsMember({"h264", "raw"}))
        ->capture_default_str();
    view->add_option("--fps", args->fps, "Frames per second asked of the guest")
        ->check(CLI::Range(1, 120))
        ->capture_default_str();
    view->add_option("--scale", args->scale, "Pixels per point of the streams")
        ->check(CLI::Range(0.1, 2.0))
        ->capture_default_str();
    view->add_option("--measure", args->measure,
                     "Input-to-pixel round trips to time with key 122 on the test pattern's window")
        ->check(CLI::Range(0, 100000))
        ->capture_default_str();
    view->add_option("--duration", args->duration, "Seconds to run (0: until closed or interrupted)")
        ->check(CLI::Range(0.0, 86400.0))
        ->capture_default_str();
    view->add_option("--out", args->out, "Folder for the CSV, text and SVG results of --measure")
        ->capture_default_str();
    view->add_flag("--stats", args->stats, "Show the frame rate and latency in each title (on stderr when headless)");
    view->add_flag("--json", args->json, "Print the summary as JSON");
    setAction(view, status, [args] {
        if (auto usage = args->address.usage()) throw CommandFailure(*usage, ExitStatus::usage);
        return ExitStatus(runView(*args));
    });
}

}  // namespace tsl::host
