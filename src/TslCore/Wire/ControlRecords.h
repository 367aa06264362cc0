#pragma once
// The records that control messages carry. Their JSON form lives in WireJSON;
// an optional field is left out of the JSON when it has no value.
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "TslCore/Model/ProvisionReport.h"
#include "TslCore/Support/Bytes.h"
#include "TslCore/Wire/VideoCodec.h"

namespace tsl {

// Capabilities beyond the base set that a peer announces in its hello.
struct Capability {
    static constexpr std::string_view streamUpdate = "stream-update";  // understands updateStream
};

// Revision of the agent's behaviour, reported as Hello::agentProto.
struct AgentProtocol {
    static constexpr int64_t current = 2;
};

// Window geometry in guest screen points.
struct WireRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
    bool operator==(const WireRect&) const = default;
};

struct Hello {
    static constexpr int64_t currentProtocolVersion = 1;  // the only version a receiver accepts

    enum class Role : uint8_t { host, agent };

    int64_t protocolVersion = currentProtocolVersion;
    Role role = Role::host;
    std::string softwareVersion;
    std::string osVersion;
    std::string arch;
    std::vector<std::string> capabilities;
    std::optional<int64_t> agentProto;

    bool operator==(const Hello&) const = default;
};

struct GuestApp {
    std::string bundleID;
    std::string name;
    std::string path;
    std::optional<std::string> version;
    bool running = false;
    std::optional<int32_t> pid;
    bool operator==(const GuestApp&) const = default;
};

struct LaunchRequest {
    std::optional<std::string> bundleID;
    std::optional<std::string> path;
    std::vector<std::string> openFiles;
    bool operator==(const LaunchRequest&) const = default;
};

struct LaunchResult {
    std::string bundleID;
    int32_t pid = 0;
    bool operator==(const LaunchResult&) const = default;
};

struct GuestWindow {
    uint32_t windowID = 0;
    int32_t pid = 0;
    std::optional<std::string> bundleID;
    std::string title;
    WireRect frame;
    int64_t layer = 0;
    int64_t zIndex = 0;
    bool isOnScreen = false;
    bool isMinimized = false;
    bool isFocused = false;
    std::optional<uint32_t> attachedTo;  // parent window of a sheet
    bool operator==(const GuestWindow&) const = default;
};

// Which windows to list; both empty means all.
struct WindowQuery {
    std::optional<int32_t> pid;
    std::optional<std::string> bundleID;
    bool operator==(const WindowQuery&) const = default;
};

struct StreamRequest {
    uint32_t streamID = 0;
    uint32_t windowID = 0;
    int64_t fps = 0;
    double scale = 0;
    VideoCodec codec = VideoCodec::h264;
    bool operator==(const StreamRequest&) const = default;
};

struct WindowEvent {
    enum class Kind : uint8_t { created, closed, moved, resized, focused, titleChanged, minimized, restored };
    Kind kind = Kind::created;
    GuestWindow window;
    bool operator==(const WindowEvent&) const = default;
};

struct WindowAction {
    enum class Kind : uint8_t { move, resize, setFrame, close, focus, minimize, restore };
    uint32_t windowID = 0;
    Kind kind = Kind::move;
    std::optional<WireRect> frame;
    bool operator==(const WindowAction&) const = default;
};

struct ClipboardItem {
    std::string type;  // uniform type identifier
    Bytes data;
    bool operator==(const ClipboardItem&) const = default;
};

struct ClipboardPayload {
    static constexpr std::array<std::string_view, 3> supportedTypes{"public.utf8-plain-text", "public.rtf",
                                                                    "public.png"};
    static constexpr size_t maxBytes = 2'621'440;

    Hello::Role origin = Hello::Role::host;
    int64_t changeCount = 0;
    std::vector<ClipboardItem> items;
    bool operator==(const ClipboardPayload&) const = default;
};

// Paths lie under the shared folder.
struct InstallRequest {
    std::string sharedAppPath;
    std::string bundleID;
    std::optional<std::string> sharedPrefsPath;
    std::optional<std::string> sharedSupportPath;
    bool operator==(const InstallRequest&) const = default;
};

struct AgentStatus {
    double uptimeSeconds = 0;
    std::vector<uint32_t> activeStreams;
    bool screenRecordingGranted = false;
    bool accessibilityGranted = false;
    std::optional<bool> rosettaInstalled;  // absent when not determined
    std::optional<ProvisionReport> provision;
    bool operator==(const AgentStatus&) const = default;
};

struct ErrorInfo {
    std::string code;  // short machine word
    std::string message;
    bool operator==(const ErrorInfo&) const = default;
};

struct MenuNode {
    std::string title;
    std::vector<int64_t> path;  // index path from the menu bar; pressMenu sends it back
    bool enabled = false;
    bool checked = false;
    std::optional<std::string> shortcut;
    std::vector<MenuNode> children;  // empty on a leaf
    bool operator==(const MenuNode&) const = default;
};

// Text values of the enumerations that travel as JSON strings.
std::string_view toString(Hello::Role role);
std::string_view toString(WindowEvent::Kind kind);
std::string_view toString(WindowAction::Kind kind);

template <class E>
std::optional<E> fromString(std::string_view text);
template <>
std::optional<Hello::Role> fromString<Hello::Role>(std::string_view text);
template <>
std::optional<WindowEvent::Kind> fromString<WindowEvent::Kind>(std::string_view text);
template <>
std::optional<WindowAction::Kind> fromString<WindowAction::Kind>(std::string_view text);

}  // namespace tsl
