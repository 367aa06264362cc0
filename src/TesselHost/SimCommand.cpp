// tessel sim: the whole system on this machine, measured.
#include <CLI/CLI.hpp>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "TesselHost/Commands.h"
#include "TesselHost/FrameMailbox.h"
#include "TesselHost/HostText.h"
#include "TesselHost/SimChart.h"
#include "TesselHost/SimReport.h"
#include "TesselHost/SimSession.h"
#include "TslCore/Support/Error.h"
#include "TslCore/Support/FileTree.h"
#include "TslCore/Support/HomeDirectory.h"
#include "TslStream/Measure/ResultWriter.h"
#include "TslStream/Render/StreamView.h"

namespace tsl::host {
namespace {

std::atomic<bool> interrupted{false};

void onSignal(int) { interrupted = true; }

struct SimArguments {
    SimOptions options;
    std::string codec = "h264";
};

bool displayPresent() {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "SDL_VIDEODRIVER"})
        if (const char* v = std::getenv(name); v && *v) return true;
    return false;
}

void waitUntil(std::chrono::steady_clock::time_point end) {
    while (!interrupted && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

ExitStatus runSim(SimArguments& args) {
    SimOptions& o = args.options;
    o.codec = args.codec == "raw" ? VideoCodec::rawBGRA : VideoCodec::h264;
    struct sigaction action {};
    action.sa_handler = onSignal;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);

    bool views = !o.headless && displayPresent() && StreamView::displayAvailable();
    if (!o.headless && !views) std::cerr << "tessel sim: no display; running headless\n";

    StatusLine line;
    auto progress = [&line](const std::string& text) {
        if (line.active()) line.show(text);
    };
    SimSession session(o, progress);
    FrameMailbox mailbox(views);
    {
        SimSession::PictureSink sink;
        if (views) {
            sink = [&mailbox](uint32_t window, std::shared_ptr<PixelBuffer> picture, double scale) {
                mailbox.post(window, std::move(picture), scale);
            };
        }
        session.start(sink);
        auto end = std::chrono::steady_clock::now() +
                   std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(o.duration));
        auto step = [&](int done) { progress("Measuring… " + std::to_string(done) + "/" + std::to_string(o.measure)); };
        if (views) {
            std::vector<std::unique_ptr<StreamView>> shown;
            for (const auto& w : session.windows()) {
                auto view = std::make_unique<StreamView>(session.inputFor(w.windowID), w.frame.x, w.frame.y, w.frame.width,
                                                         w.frame.height, w.title);
                view->onInput = [&session](const InputEvent& e) { session.sendInput(e); };
                shown.push_back(std::move(view));
            }
            std::atomic<bool> measured{false};
            std::thread measurer([&] {
                session.measureRoundTrips(o.measure, o.fps, interrupted, step);
                measured = true;
            });
            // With views the run goes on until the user closes them, unless a duration was given.
            while (!interrupted && mailbox.wait(std::chrono::milliseconds(50))) {
                // Taken out under the lock, drawn outside it: the decoder never
                // waits for the renderer, nor the renderer's locks for ours.
                FrameMailbox::Pictures due = mailbox.take().pictures;
                for (auto& view : shown)
                    if (auto found = due.find(view->windowID()); found != due.end())
                        view->show(std::move(found->second.first), found->second.second);
                if (measured && o.duration > 0 && std::chrono::steady_clock::now() > end) break;
            }
            interrupted = true;  // ends the measurer early if the user quit
            measurer.join();
        } else {
            session.measureRoundTrips(o.measure, o.fps, interrupted, step);
            waitUntil(end);
        }
    }
    SimFigures figures = session.figures();
    session.stop();
    SimSummary summary = SimSummary::of(figures, o);
    std::string text = summaryText(summary, o);
    const std::vector<std::string> files = writeResults(figures, summary, resultsFolder(o.out, "sim"), "sim", text);
    if (o.json) printJSON(summaryJSON(summary, o, files));
    else std::cout << text << "\n" << floorLine(summary) << "\n\nResults in " << resultsFolder(o.out, "sim") << "\n";
    if (summary.roundTrips == 0 && o.measure > 0) throw CommandFailure("no round trip was measured");
    return ExitStatus::success;
}

}  // namespace

void addSimCommand(CLI::App& app, ExitStatus& status) {
    auto args = std::make_shared<SimArguments>();
    CLI::App* sim = app.add_subcommand(
        "sim", "Run a simulated guest on this machine, stream the test pattern and measure input to pixel");
    sim->add_flag("--headless", args->options.headless,
                  "Show no windows (also chosen by itself when there is no display)");
    sim->add_option("--codec", args->codec, "Video codec of the streams")
        ->check(CLI::IsMember({"h264", "raw"}))
        ->capture_default_str();
    sim->add_option("--fps", args->options.fps, "Frames per second asked of the guest")
        ->check(CLI::Range(1, 120))
        ->capture_default_str();
    sim->add_option("--scale", args->options.scale, "Pixels per point of the streams")
        ->check(CLI::Range(0.1, 2.0))
        ->capture_default_str();
    sim->add_option("--measure", args->options.measure,
                    "Input-to-pixel round trips to time with key 122 (alternately down and up)")
        ->check(CLI::Range(0, 100000))
        ->capture_default_str();
    sim->add_option("--duration", args->options.duration,
                    "Seconds to stream in all, for the frame rate (with windows: 0 runs until they are closed)")
        ->check(CLI::Range(0.0, 86400.0))
        ->capture_default_str();
    sim->add_option("--out", args->options.out,
                    "Folder for the CSV, text and SVG results (default: ~/.cache/tessel/sim-results)");
    sim->add_option("--agent", args->options.agent, "The agent executable (default: TesselAgent beside tessel)");
    sim->add_flag("--json", args->options.json, "Print the summary as JSON");
    setAction(sim, status, [args] { return runSim(*args); });
}

}  // namespace tsl::host
