#pragma once
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "Platform/Platform.h"

namespace tsl::Sim {

struct World;
class SimCaptureStream;

// What a simulated process does on its own.
//   plain:       types keys into its key window's text area, handles its
//                menu items' actions (copy, paste, quit, ...) and their
//                command-key shortcuts.
//   testPattern: draws the test pattern in its windows; key 122 turns the
//                square white while down.
//   scripted:    nothing but what a test sets up.
enum class AppKind : uint8_t { scripted, plain, testPattern };

// One node of a window's Accessibility content.
struct ElementSetup {
    std::string role;  // "AXStaticText", "AXButton", "AXTextArea", "AXTextField", "AXGroup", ...
    std::optional<std::string> title;
    std::optional<std::string> value;
    std::vector<ElementSetup> children;
    bool operator==(const ElementSetup&) const = default;
};

// One menu item, or a menu of the bar when it has a submenu.
struct MenuItemSetup {
    std::string title;
    // Absent: the item has no enabled attribute at all. A disabled menu of
    // the bar doesn't open when pressed.
    std::optional<bool> enabled = true;
    // Reads as disabled until its top-level menu has been opened once, as an
    // application that validates its items only when the menu opens.
    bool enabledOnlyWhileOpen = false;
    std::optional<std::string> markChar;
    std::optional<std::string> cmdChar;
    int64_t cmdModifiers = 0;  // menu modifier bits: 1 shift, 2 option, 4 control, 8 no command key
    // What pressing it does in a plain application: "quit", "close",
    // "newWindow", "minimize", "copy", "paste", "toggleMark"; anything else
    // is only recorded.
    std::string action;
    std::vector<MenuItemSetup> submenu;
    bool operator==(const MenuItemSetup&) const = default;
};

struct WindowSetup {
    std::string title;
    Rect frame{100, 100, 400, 300};
    int64_t layer = 0;
    double alpha = 1.0;
    bool shown = true;  // false: ordered out, listed only with off-screen windows
    std::optional<uint32_t> sheetOf;  // a sheet: stacked, moved, hidden and closed with that window
    bool hasCloseButton = true;
    bool movable = true;
    bool resizable = true;
    bool desktopElement = false;  // left out when the desktop's own windows are excluded
    bool accessible = true;       // listed among its application's Accessibility windows
    std::vector<ElementSetup> content;
};

struct ProcessSetup {
    std::string name;
    std::optional<std::string> bundleID;
    std::optional<std::filesystem::path> bundleURL;
    AppKind kind = AppKind::scripted;
    std::optional<std::vector<MenuItemSetup>> menuBar;  // absent: no menu bar
    double answerDelay = 0;  // seconds each Accessibility call takes to be answered
    bool refusesQuit = false;
};

struct WindowInfo {
    uint32_t id = 0;
    int32_t pid = 0;
    std::string title;
    Rect frame;
    int64_t layer = 0;
    double alpha = 1.0;
    bool isOnScreen = false;
    bool isMinimized = false;
    std::optional<uint32_t> sheetOf;
    bool isMain = false;  // its application's main window
    bool operator==(const WindowInfo&) const = default;
};

struct ProcessInfo {
    int32_t pid = 0;
    std::string name;
    std::optional<std::string> bundleID;
    std::optional<std::filesystem::path> bundleURL;
    AppKind kind = AppKind::scripted;
    std::vector<std::filesystem::path> openedDocuments;
    bool operator==(const ProcessInfo&) const = default;
};

enum class Route : uint8_t { hid, pid };

// One posted event, and where it went: nothing when no process took it.
struct PostedEvent {
    Route route = Route::hid;
    std::optional<int32_t> requestedPid;  // the pid route's target
    PlatformEvent event;
    std::optional<int32_t> deliveredTo;
    std::optional<uint32_t> window;  // the window it landed in, if any
};

// Capture calls to refuse, for tests of the failure paths.
struct CaptureFaults {
    bool content = false;
    bool addOutput = false;
    bool start = false;
    bool update = false;
};

struct CaptureCounts {
    int streamsMade = 0;
    int starts = 0;
    int updates = 0;
    int stops = 0;
    uint64_t framesDelivered = 0;
    uint64_t framesSkipped = 0;  // no free buffer: the client held all `queueDepth` of them
};

// A small desktop in this process that implements every platform port:
// processes with synthetic pids, windows with ids from 1, their stacking and
// focus, Accessibility trees, menus, a pasteboard, preferences, event
// delivery by route and window capture. Its one display is 1440×900 points
// at a backing scale of 1.0. Everything but the timing of automatic capture
// is deterministic.
//
// Ports returned by services() keep the desktop alive. Capture streams don't:
// they end when the desktop is gone. Thread-safe; no callback runs with the
// desktop's lock held.
class Desktop : public std::enable_shared_from_this<Desktop> {
public:
    struct Options {
        // Frames only on stepCapture(), not on the streams' own timers.
        bool manualCapture = false;
        std::filesystem::path home = "/Users/sim";
        // Where the system-wide look-up by bundle identifier searches, after
        // the applications already launched.
        std::vector<std::filesystem::path> applicationDirs;
    };

    static constexpr int32_t firstPid = 5000001;  // above any real process id
    static constexpr Rect display{0, 0, 1440, 900};
    static constexpr int64_t menuWindowLayer = 101;

    static std::shared_ptr<Desktop> make(Options options);
    static std::shared_ptr<Desktop> make() { return make(Options{}); }
    ~Desktop();
    Desktop(const Desktop&) = delete;
    Desktop& operator=(const Desktop&) = delete;

    PlatformServices services();

    // Processes.
    int32_t addProcess(ProcessSetup setup);
    // Starts the bundle as the workspace would (reusing a running process of
    // the same bundle); nothing if there is no bundle folder there.
    std::optional<int32_t> launch(const std::filesystem::path& bundle, bool activate = true);
    // A polite quit, as from its menu or the workspace; false if refused.
    bool quit(int32_t pid);
    // The process ends at once, whatever it would say.
    void vanish(int32_t pid);
    void activate(int32_t pid);
    void setAnswerDelay(int32_t pid, double seconds);
    std::vector<ProcessInfo> processes() const;
    std::optional<ProcessInfo> process(int32_t pid) const;
    std::optional<int32_t> frontmostPid() const;

    // Windows.
    uint32_t addWindow(int32_t pid, WindowSetup setup);
    void closeWindow(uint32_t id);
    void setFrame(uint32_t id, Rect frame);
    void raise(uint32_t id);
    void setMinimized(uint32_t id, bool minimized);
    // A title change, as an application makes it.
    void setTitle(uint32_t id, std::string title);
    // Orders a window out (false) or back in (true), as an application hides it.
    void setShown(uint32_t id, bool shown);
    // The system's small overlay on a window being captured, while it is:
    // listed by the window server in front of the window, inside its top edge.
    std::optional<uint32_t> captureIndicator(uint32_t windowID) const;
    std::optional<WindowInfo> window(uint32_t id) const;
    // Every window, front to back in the window server's order.
    std::vector<WindowInfo> windows() const;

    // Application state.
    void setMenuBar(int32_t pid, std::optional<std::vector<MenuItemSetup>> menuBar);
    std::optional<std::vector<MenuItemSetup>> menuBar(int32_t pid) const;
    std::vector<std::vector<size_t>> menuPresses(int32_t pid) const;  // paths of the items pressed
    std::optional<size_t> openMenu(int32_t pid) const;                 // the top-level menu now open
    // The value of the first text area in the window's content.
    std::optional<std::string> textAreaValue(uint32_t windowID) const;
    bool squareIsWhite(int32_t pid) const;
    // Buttons pressed through Accessibility, by title, in order.
    std::vector<std::string> buttonPresses(int32_t pid) const;

    // Input.
    std::vector<PostedEvent> postedEvents() const;
    Point cursorLocation() const;
    void setEventCreationFails(bool fails);

    // Permissions, granted unless a test says otherwise.
    void setScreenRecordingGranted(bool granted);
    void setAccessibilityTrusted(bool trusted);
    int permissionPrompts() const;  // requests that would have asked the user

    // Lets a test reshape the window server's answers (missing keys, wrong types, no list).
    using WindowListFilter =
        std::function<std::optional<PlatformValue>(std::optional<PlatformValue> list, uint32_t options, uint32_t relativeTo)>;
    void setWindowListFilter(WindowListFilter filter);

    // Capture.
    void setCaptureFaults(CaptureFaults faults);
    CaptureCounts captureCounts() const;
    // Reshapes the attachments of the window's frames (drop a key, change a status).
    using AttachmentFilter = std::function<std::optional<ValueList>(std::optional<ValueList>)>;
    void setAttachmentFilter(uint32_t windowID, AttachmentFilter filter);
    // With manualCapture: one frame from every running stream, delivered
    // before this returns (or a 10-second limit passes). Gives the count.
    size_t stepCapture();

    // Child processes that exist on this desktop, with what they print.
    using ChildScript = std::function<System::ChildResult(const std::vector<std::string>& arguments)>;
    void scriptChild(const std::filesystem::path& executable, ChildScript script);
    int childRuns(const std::filesystem::path& executable) const;
    void setSysctl(const std::string& name, int64_t value);

    // Used by the ports and streams: `f` runs on the world under the lock;
    // afterwards, without the lock, streams learn of windows that went away.
    template <typename F> decltype(auto) change(F&& f) {
        std::unique_lock g(_lock);
        if constexpr (std::is_void_v<std::invoke_result_t<F, World&>>) {
            f(*_world);
            const bool removed = takeWindowsRemoved();
            g.unlock();
            if (removed) notifyStreams();
        } else {
            auto result = f(*_world);
            const bool removed = takeWindowsRemoved();
            g.unlock();
            if (removed) notifyStreams();
            return result;
        }
    }
    template <typename F> decltype(auto) read(F&& f) const {
        std::lock_guard g(_lock);
        return f(*_world);
    }
    const Options& options() const { return _options; }
    void registerStream(const std::shared_ptr<SimCaptureStream>& stream);

private:
    explicit Desktop(Options options);
    bool takeWindowsRemoved();
    void notifyStreams();

    const Options _options;
    mutable std::mutex _lock;
    std::unique_ptr<World> _world;
};

}  // namespace tsl::Sim
