#include "TesselHost/SimSession.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <thread>

#include "TslCore/Measure/TestPattern.h"
#include "TslCore/Support/Error.h"
#include "TslCore/Support/FileTree.h"
#include "TslCore/Support/HomeDirectory.h"
#include "TslCore/Support/MonoClock.h"
#include "TslStream/Runtime/GlobalQueue.h"
#include "TslStream/Runtime/Task.h"

namespace tsl::host {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr double requestTimeout = 10.0;

// Polls until `done` holds or `seconds` pass; for waiting on a child process
// and the window server, which announce nothing.
bool waitFor(const std::function<bool()>& done, double seconds) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(10ms);
    }
    return true;
}

// A private folder for the guest, outside world-writable places (the agent refuses those).
fs::path makeRoot() {
    const fs::path base = fs::path(homeDirectory()) / ".cache" / "tessel";
    if (int error = FileTree::makeFolders(base.string(), 0700); error != 0)
        throw Error("cannot create " + base.string() + ": " + std::strerror(error));
    std::string tmpl = (base / "sim-XXXXXX").string();
    if (!::mkdtemp(tmpl.data())) throw Error("cannot create a folder in " + base.string());
    return tmpl;
}

fs::path agentBesideThisProgram() {
    std::error_code ec;
    return fs::read_symlink("/proc/self/exe", ec).parent_path() / "TesselAgent";
}

// The test pattern as the share would hold it for installing.
fs::path stageTestPattern(const fs::path& share) {
    const std::string bundleID(TestPatternSpec::bundleID);
    fs::path bundle = share / "Migrate" / bundleID / (std::string(TestPatternSpec::windowTitle) + ".app");
    fs::create_directories(bundle / "Contents");
    std::ofstream out(bundle / "Contents" / "Info.plist", std::ios::trunc);
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
        << "\t<key>CFBundleIdentifier</key>\n\t<string>" << bundleID << "</string>\n"
        << "\t<key>CFBundleName</key>\n\t<string>" << TestPatternSpec::windowTitle << "</string>\n"
        << "\t<key>CFBundlePackageType</key>\n\t<string>APPL</string>\n"
        << "\t<key>CFBundleShortVersionString</key>\n\t<string>1.0</string>\n</dict>\n</plist>\n";
    if (!out) throw Error("cannot write the test pattern into " + bundle.string());
    return bundle;
}

}  // namespace

SimSession::SimSession(SimOptions options, Progress progress)
    : options(std::move(options)), progress(std::move(progress)) {}

SimSession::~SimSession() {
    try {
        stop();
    } catch (...) {
    }
}

ControlMessage SimSession::request(ControlMessage message) {
    try {
        return runBlocking(GlobalQueue::executor(), link->control->request(std::move(message), requestTimeout),
                           std::chrono::seconds(int(requestTimeout) + 5));
    } catch (const std::exception& e) {
        throw Error(std::string("the agent did not do it: ") + e.what());
    }
}

void SimSession::start(PictureSink pictureSink) {
    sink = std::move(pictureSink);
    fs::path agent = options.agent.empty() ? agentBesideThisProgram() : fs::path(options.agent);
    root = makeRoot();
    backend = std::make_unique<SimulatedGuestBackend>(root / "guest", agent);
    link = runBlocking(GlobalQueue::executor(), backend->start(progress), std::chrono::seconds(30));
    if (!waitFor([&] { return link->videoChannel() && link->inputChannel(); }, 10))
        throw Error("the agent opened no video and input channels");
    {
        std::lock_guard guard(lock);
        started = MonoClock::nowNs();
    }
    link->onVideo([this](const VideoFrameHeader& header, const Bytes& payload) { onVideo(header, payload); });

    progress("Installing the test pattern from the shared folder…");
    fs::path staged = stageTestPattern(backend->sharedFolder());
    auto guestBundle = backend->guestPath(staged);
    if (!guestBundle) throw Error("the shared folder is not visible to the guest");
    request(ControlMessage::InstallApp{{*guestBundle, std::string(TestPatternSpec::bundleID)}});

    progress("Launching the test pattern…");
    auto launched = request(ControlMessage::LaunchApp{{.bundleID = std::string(TestPatternSpec::bundleID)}});
    auto* result = launched.get<ControlMessage::Launched>();
    if (!result) throw Error("the agent launched nothing");
    const int32_t pid = result->value.pid;
    waitFor([&] {
        auto reply = request(ControlMessage::ListWindows{{.pid = pid}});
        if (auto* list = reply.get<ControlMessage::WindowList>()) {
            _windows.clear();
            for (const auto& w : list->value)
                if (w.isOnScreen && !w.isMinimized) _windows.push_back(w);
        }
        return !_windows.empty();
    }, 10);
    if (_windows.empty()) throw Error("the test pattern showed no window");
    patternWindow = _windows.front().windowID;
    for (const auto& w : _windows)
        if (w.title == TestPatternSpec::windowTitle) patternWindow = w.windowID;
    for (const auto& w : _windows) mappers[w.windowID] = std::make_shared<SharedInputMapper>(w.windowID);

    progress("Streaming…");
    uint32_t streamID = 0;
    for (const auto& w : _windows) {
        StreamRequest stream{++streamID, w.windowID, options.fps, options.scale, options.codec};
        {
            std::lock_guard guard(lock);
            windowOfStream[streamID] = w.windowID;
        }
        receiver.allow(streamID);
        request(ControlMessage::StartStream{stream});
    }
    if (!waitFor([&] { return probe.snapshot().frames > 0; }, 10)) throw Error("no frame of the test pattern arrived");
}

void SimSession::onVideo(const VideoFrameHeader& header, const Bytes& payload) {
    const uint64_t arrived = MonoClock::nowNs();
    std::shared_ptr<PixelBuffer> picture;
    receiver.handle(header, payload, [&](const DecodedFrame& frame) { picture = frame.pixelBuffer; });
    const uint64_t decoded = MonoClock::nowNs();
    const double scale = header.contentScale / 100.0;
    uint32_t window = 0;
    {
        std::lock_guard guard(lock);
        framesReceived += 1;
        lastEcho = header.inputEcho;
        // One clock on both sides of a simulation.
        if (header.guestTimestampNs <= arrived) captureToArrivalMs.push_back(double(arrived - header.guestTimestampNs) / 1e6);
        decodeMs.push_back(double(decoded - arrived) / 1e6);
        size_t second = size_t((arrived - started) / 1'000'000'000ull);
        if (second < 100000) {
            if (perSecond.size() <= second) perSecond.resize(second + 1);
            perSecond[second] += 1;
        }
        auto found = windowOfStream.find(header.streamID);
        if (found != windowOfStream.end()) window = found->second;
    }
    if (!picture) return;
    if (window == patternWindow) probe.onFrame(*picture, scale);
    if (sink) sink(window, picture, scale);
}

std::optional<double> SimSession::measureOnce(bool white) {
    auto event = mappers.at(patternWindow)->map(InputMapper::HostEvent{
        .type = white ? InputMapper::keyDown : InputMapper::keyUp, .keyCode = TestPatternSpec::f1KeyCode});
    auto latency = probe.measure(white, 2.0, [&] { link->sendInput(*event); });
    if (latency) {
        std::lock_guard guard(lock);
        latencyMs.push_back(*latency);
    }
    return latency;
}

void SimSession::sendInput(const InputEvent& event) {
    if (link) link->sendInput(event);
}

std::shared_ptr<SharedInputMapper> SimSession::inputFor(uint32_t windowID) const {
    auto found = mappers.find(windowID);
    return found == mappers.end() ? nullptr : found->second;
}

void SimSession::stop() {
    if (link) {
        for (const auto& [streamID, window] : windowOfStream) {
            try {
                request(ControlMessage::StopStream{streamID});
            } catch (const std::exception&) {
                // The guest goes next anyway.
            }
        }
        link->invalidate();
        link.reset();
    }
    if (backend) {
        runBlocking(GlobalQueue::executor(), backend->stop(), std::chrono::seconds(10));
        backend.reset();
    }
    if (!root.empty()) {
        FileTree::removeAll(root.string());
        root.clear();
    }
}

SimFigures SimSession::figures() const {
    SimFigures f;
    auto snapshot = probe.snapshot();
    f.framesLost = snapshot.dropped;
    f.decodeErrors = receiver.decodeErrors();
    std::lock_guard guard(lock);
    f.framesReceived = framesReceived;
    f.lastEcho = lastEcho;
    f.latencyMs = latencyMs;
    f.captureToArrivalMs = captureToArrivalMs;
    f.decodeMs = decodeMs;
    f.seconds = started ? double(MonoClock::nowNs() - started) / 1e9 : 0;
    // The second under way is partial: its count would read as a drop.
    f.framesPerSecond.assign(perSecond.begin(), perSecond.begin() + std::min(perSecond.size(), size_t(f.seconds)));
    return f;
}

}  // namespace tsl::host
