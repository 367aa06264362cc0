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
#include "TslStream/Runtime/GlobalQueue.h"
#include "TslStream/Runtime/Task.h"

namespace tsl::host {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

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

void SimSession::start(PictureSink pictureSink) {
    fs::path agent = options.agent.empty() ? agentBesideThisProgram() : fs::path(options.agent);
    root = makeRoot();
    backend = std::make_unique<SimulatedGuestBackend>(root / "guest", agent);
    auto link = runBlocking(GlobalQueue::executor(), backend->start(progress), std::chrono::seconds(30));
    if (!waitFor([&] { return link->videoChannel() && link->inputChannel(); }, 10))
        throw Error("the agent opened no video and input channels");
    session = std::make_unique<HostSession>(link, StreamSettings{options.codec, options.fps, options.scale});
    session->begin(std::move(pictureSink));

    progress("Installing the test pattern from the shared folder…");
    fs::path staged = stageTestPattern(backend->sharedFolder());
    auto guestBundle = backend->guestPath(staged);
    if (!guestBundle) throw Error("the shared folder is not visible to the guest");
    session->request(ControlMessage::InstallApp{{*guestBundle, std::string(TestPatternSpec::bundleID)}});

    progress("Launching the test pattern…");
    auto launched = session->request(ControlMessage::LaunchApp{{.bundleID = std::string(TestPatternSpec::bundleID)}});
    auto* result = launched.get<ControlMessage::Launched>();
    if (!result) throw Error("the agent launched nothing");
    const int32_t pid = result->value.pid;
    waitFor(
        [&] {
            _windows = session->windows(pid);
            return !_windows.empty();
        },
        10);
    if (_windows.empty()) throw Error("the test pattern showed no window");
    uint32_t patternWindow = _windows.front().windowID;
    for (const auto& w : _windows)
        if (w.title == TestPatternSpec::windowTitle) patternWindow = w.windowID;
    session->measureWindow(patternWindow);

    progress("Streaming…");
    for (const auto& w : _windows) session->stream(w);
    if (!waitFor([&] { return session->patternFrames() > 0; }, 10)) throw Error("no frame of the test pattern arrived");
}

void SimSession::measureRoundTrips(int count, int fps, const std::atomic<bool>& stop,
                                   const std::function<void(int)>& step) {
    session->measureRoundTrips(count, fps, stop, step);
}

void SimSession::sendInput(const InputEvent& event) {
    if (session) session->sendInput(event);
}

std::shared_ptr<SharedInputMapper> SimSession::inputFor(uint32_t windowID) const {
    return session ? session->inputFor(windowID) : nullptr;
}

void SimSession::stop() {
    if (session) session->stop();
    if (backend) {
        runBlocking(GlobalQueue::executor(), backend->stop(), std::chrono::seconds(10));
        backend.reset();
    }
    if (!root.empty()) {
        FileTree::removeAll(root.string());
        root.clear();
    }
}

SimFigures SimSession::figures() const { return session ? session->figures() : SimFigures{}; }

}  // namespace tsl::host
