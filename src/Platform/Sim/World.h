#pragma once
// The simulated desktop's state and rules. Every function here expects the
// desktop's lock to be held; none of them calls out of the desktop.
#include <deque>
#include <map>
#include <set>

#include "Platform/Sim/Desktop.h"
#include "TslCore/Scanner/AppBundleInfo.h"

namespace tsl::Sim {

struct SimWindow {
    uint32_t id = 0;
    int32_t pid = 0;
    WindowSetup setup;
    bool minimized = false;
    bool isMenuWindow = false;
};

struct SimProcess {
    int32_t pid = 0;
    ProcessSetup setup;
    bool squareWhite = false;
    uint64_t patternCounter = 0;  // pictures the test pattern has drawn; the first is 1
    std::optional<size_t> openMenu;
    std::set<size_t> validatedMenus;  // top-level menus opened since the bar was set
    uint32_t menuWindow = 0;
    std::optional<uint32_t> mainWindow;
    std::vector<std::vector<size_t>> presses;
    std::vector<std::string> buttonPresses;
    std::vector<std::filesystem::path> documents;
};

struct World {
    std::map<int32_t, SimProcess> processes;
    std::map<uint32_t, SimWindow> windows;
    std::vector<uint32_t> order;  // front to back, before sorting by layer
    std::optional<int32_t> frontmost;
    int32_t nextPid = Desktop::firstPid;
    uint32_t nextWindowID = 1;
    int cascade = 0;
    Point cursor{720, 450};
    bool windowsRemoved = false;  // since the streams were last told

    bool screenRecordingGranted = true;
    bool accessibilityTrusted = true;
    int permissionPrompts = 0;
    bool eventCreationFails = false;
    std::deque<PostedEvent> posted;

    Desktop::WindowListFilter windowListFilter;
    CaptureFaults captureFaults;
    CaptureCounts captureCounts;
    std::map<uint32_t, Desktop::AttachmentFilter> attachmentFilters;
    std::vector<std::weak_ptr<SimCaptureStream>> streams;

    // Pasteboard.
    int64_t pasteboardCount = 0;
    std::vector<std::pair<std::string, Bytes>> pasteboardItems;

    // Preferences by (application, user, host), then key.
    std::map<std::tuple<std::string, Preferences::User, Preferences::Host>, ValueDict> preferences;

    std::map<std::filesystem::path, Desktop::ChildScript> children;
    std::map<std::filesystem::path, int> childRuns;
    std::map<std::string, int64_t> sysctls;
    std::set<std::filesystem::path> knownBundles;  // launched once, so the system can find them by identifier

    // The overlay the system lays on each captured window, by that window.
    struct CaptureIndicator {
        uint32_t id = 0;
        int streams = 0;
    };
    std::map<uint32_t, CaptureIndicator> captureIndicators;
    void captureBegan(uint32_t windowID);
    void captureEnded(uint32_t windowID);
    static Rect indicatorFrame(const Rect& window);

    // Processes and windows.
    SimProcess* process(int32_t pid);
    SimWindow* window(uint32_t id);
    int32_t addProcess(ProcessSetup setup);
    uint32_t addWindow(int32_t pid, WindowSetup setup);
    void removeWindow(uint32_t id);  // with its sheets
    void removeProcess(int32_t pid);
    bool isVisible(const SimWindow& w) const;
    // Front to back, by layer first, then stacking.
    std::vector<const SimWindow*> stacked() const;
    std::vector<uint32_t> windowsOf(int32_t pid) const;  // in stacking order
    void raise(uint32_t id);                              // with its sheets, within its layer
    void activate(int32_t pid);
    void setFrame(uint32_t id, Rect frame);
    void setMinimized(uint32_t id, bool minimized);
    // The window keys go to: the frontmost visible ordinary window of the process.
    std::optional<uint32_t> keyWindow(int32_t pid) const;
    std::optional<uint32_t> topmostWindowAt(Point p) const;
    Rect nextPlacement(Size size);
    WindowInfo info(const SimWindow& w) const;

    // Menus.
    const MenuItemSetup* menuItem(int32_t pid, const std::vector<size_t>& path) const;
    bool menuItemEnabled(const SimProcess& p, const std::vector<size_t>& path) const;
    void openMenu(SimProcess& p, size_t index);
    void closeMenu(SimProcess& p);
    // Presses an item if it is enabled; false otherwise.
    bool pressMenuItem(int32_t pid, const std::vector<size_t>& path);

    // Applications (Apps.cpp).
    // `info` is the bundle's record, read before the lock was taken.
    int32_t launchBundle(const std::filesystem::path& bundle, const AppBundleInfo& info, bool activate,
                         const std::vector<std::filesystem::path>& documents);
    void openDocument(SimProcess& p, const std::filesystem::path& document);
    void performAction(int32_t pid, const std::string& action, const std::vector<size_t>& path);
    void deliver(int32_t pid, std::optional<uint32_t> window, const PlatformEvent& event, Route route);
    ElementSetup* textArea(uint32_t windowID);
    bool quit(int32_t pid);
};

// The default user interface of each kind of application.
std::vector<MenuItemSetup> plainMenuBar(const std::string& appName);
std::vector<MenuItemSetup> testPatternMenuBar(const std::string& appName);
std::vector<ElementSetup> plainWindowContent();

// Draws a window's content into a locked BGRA picture at `scale` pixels per point.
struct ContentSnapshot {
    AppKind kind = AppKind::scripted;
    bool squareWhite = false;
    Size size;
    uint32_t tint = 0;
};
void drawWindowContent(const ContentSnapshot& content, uint8_t* base, int64_t width, int64_t height,
                       size_t bytesPerRow, double scale, uint64_t frameNumber);

// The character a key makes on a US keyboard, if any.
std::optional<char> characterForKey(uint16_t keyCode, bool shift);

}  // namespace tsl::Sim
