#include "TslAgent/DialogTextLog.h"

#include <fstream>

#include "TslAgent/AXSupport.h"
#include "TslCore/Support/ISO8601.h"
#include "TslStream/Runtime/MainActor.h"
#include "TslStream/Runtime/Timers.h"

namespace tsl::DialogTextLog {
namespace {

bool mayBeDialog(const PlatformServices& platform, const GuestWindow& window) {
    if (!window.bundleID) return false;
    if (services().contains(*window.bundleID)) return true;
    return window.layer >= 1 && window.layer <= 24 && window.pid != platform.system->processIdentifier();
}

std::string lineFor(const GuestWindow& window, const std::vector<std::string>& texts) {
    std::string joined;
    for (const std::string& t : texts) joined += (joined.empty() ? "" : " | ") + t;
    if (texts.empty()) joined = nothingReadable;
    return ISO8601::format(std::chrono::system_clock::now()) + " " + window.bundleID.value_or("") + " pid " +
           std::to_string(window.pid) + " window " + std::to_string(window.windowID) + " layer " +
           std::to_string(window.layer) + " \u201C" + window.title + "\u201D: " + joined + "\n";
}

void append(const std::filesystem::path& file, const std::string& line) {
    std::error_code ec;
    std::filesystem::create_directories(file.parent_path(), ec);
    // Opening for appending makes the file when it is missing.
    std::ofstream out(file, std::ios::binary | std::ios::app);
    out.write(line.data(), std::streamsize(line.size()));
}

asio::awaitable<void> readAndLog(PlatformServices platform, GuestWindow window) {
    co_await sleepFor(fromSeconds(readDelay));
    std::vector<std::string> texts;
    for (const AXElement& w : AX::windows(platform, window.pid)) {
        std::vector<std::string> more = collect(platform, w, 0);
        texts.insert(texts.end(), more.begin(), more.end());
    }
    append(logFile(platform), lineFor(window, texts));
}

}  // namespace

const std::set<std::string>& services() {
    static const std::set<std::string> table{
        "com.apple.UserNotificationCenter", "com.apple.coreservices.uiagent", "com.apple.SecurityAgent",
        "com.apple.CoreLocationAgent", "com.apple.appkit.xpc.openAndSavePanelService"};
    return table;
}

std::filesystem::path markerFile(const PlatformServices& platform) {
    return platform.system->homeDirectory() / "Library/Application Support/TesselAgent/log-dialog-text";
}

std::filesystem::path logFile(const PlatformServices& platform) {
    return platform.system->homeDirectory() / "Library/Logs/TesselAgent-dialogs.log";
}

void windowCreated(const PlatformServices& platform, const GuestWindow& window) {
    if (!mayBeDialog(platform, window)) return;
    std::error_code ec;
    if (!std::filesystem::exists(markerFile(platform), ec)) return;
    MainActor::current().spawn([platform, window]() { return readAndLog(platform, window); });
}

std::vector<std::string> collect(const PlatformServices& platform, const AXElement& element, int depth) {
    if (depth > deepestLevel) return {};
    std::vector<std::string> texts;
    const std::string role = AX::attr<std::string>(platform, element, "AXRole").value_or("");
    if (role == "AXStaticText") {
        auto value = AX::attr<std::string>(platform, element, "AXValue");
        if (value && !value->empty()) texts.push_back(*value);
    }
    if (role == "AXButton") {
        auto title = AX::attr<std::string>(platform, element, "AXTitle");
        if (title && !title->empty()) texts.push_back("[" + *title + "]");
    }
    if (role == "AXTextField" || role == "AXTextArea") return texts;
    for (const AXElement& child : AX::elements(platform, element, "AXChildren")) {
        if (texts.size() >= textsBeforeSkipping) continue;
        std::vector<std::string> more = collect(platform, child, depth + 1);
        texts.insert(texts.end(), more.begin(), more.end());
    }
    return texts;
}

}  // namespace tsl::DialogTextLog
