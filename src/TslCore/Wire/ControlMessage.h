#pragma once
#include <cstdint>
#include <optional>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "TslCore/Wire/ControlRecords.h"

namespace tsl {

// One request, reply or event of the control protocol: a tagged union with one
// small struct per case. A case with one unlabelled payload holds it in `value`
// (it travels under "_0"); labelled payloads keep their labels.
//
//   ControlMessage m = ControlMessage::StartStream{request};
//   if (auto* s = m.get<ControlMessage::StartStream>()) use(s->value);
//   switch (m.kind()) { case ControlMessage::Kind::ok: ... }
struct ControlMessage {
    // The cases in declaration order; the order is also that of `payload`.
    enum class Kind : uint8_t {
        hello,
        listApps,
        appList,
        launchApp,
        launched,
        quitApp,
        listWindows,
        windowList,
        startStream,
        stopStream,
        streamStarted,
        requestKeyframe,
        updateStream,
        windowEvent,
        windowAction,
        clipboard,
        installApp,
        installed,
        getMenu,
        menu,
        pressMenu,
        status,
        ok,
        error,
    };
    static constexpr size_t kindCount = size_t(Kind::error) + 1;

    struct Hello {
        static constexpr Kind kind = Kind::hello;
        tsl::Hello value;
        bool operator==(const Hello&) const = default;
    };
    struct ListApps {
        static constexpr Kind kind = Kind::listApps;
        bool operator==(const ListApps&) const = default;
    };
    struct AppList {
        static constexpr Kind kind = Kind::appList;
        std::vector<GuestApp> value;
        bool operator==(const AppList&) const = default;
    };
    struct LaunchApp {
        static constexpr Kind kind = Kind::launchApp;
        LaunchRequest value;
        bool operator==(const LaunchApp&) const = default;
    };
    struct Launched {
        static constexpr Kind kind = Kind::launched;
        LaunchResult value;
        bool operator==(const Launched&) const = default;
    };
    struct QuitApp {
        static constexpr Kind kind = Kind::quitApp;
        int32_t pid = 0;
        bool operator==(const QuitApp&) const = default;
    };
    struct ListWindows {
        static constexpr Kind kind = Kind::listWindows;
        WindowQuery value;
        bool operator==(const ListWindows&) const = default;
    };
    struct WindowList {
        static constexpr Kind kind = Kind::windowList;
        std::vector<GuestWindow> value;
        bool operator==(const WindowList&) const = default;
    };
    struct StartStream {
        static constexpr Kind kind = Kind::startStream;
        StreamRequest value;
        bool operator==(const StartStream&) const = default;
    };
    struct StopStream {
        static constexpr Kind kind = Kind::stopStream;
        uint32_t streamID = 0;
        bool operator==(const StopStream&) const = default;
    };
    struct StreamStarted {
        static constexpr Kind kind = Kind::streamStarted;
        StreamRequest value;  // the request as accepted
        bool operator==(const StreamStarted&) const = default;
    };
    struct RequestKeyframe {
        static constexpr Kind kind = Kind::requestKeyframe;
        uint32_t streamID = 0;
        bool operator==(const RequestKeyframe&) const = default;
    };
    struct UpdateStream {
        static constexpr Kind kind = Kind::updateStream;
        StreamRequest value;
        bool operator==(const UpdateStream&) const = default;
    };
    struct WindowEvent {
        static constexpr Kind kind = Kind::windowEvent;
        tsl::WindowEvent value;
        bool operator==(const WindowEvent&) const = default;
    };
    struct WindowAction {
        static constexpr Kind kind = Kind::windowAction;
        tsl::WindowAction value;
        bool operator==(const WindowAction&) const = default;
    };
    struct Clipboard {
        static constexpr Kind kind = Kind::clipboard;
        ClipboardPayload value;
        bool operator==(const Clipboard&) const = default;
    };
    struct InstallApp {
        static constexpr Kind kind = Kind::installApp;
        InstallRequest value;
        bool operator==(const InstallApp&) const = default;
    };
    struct Installed {
        static constexpr Kind kind = Kind::installed;
        std::string bundleID;
        std::string path;
        bool operator==(const Installed&) const = default;
    };
    struct GetMenu {
        static constexpr Kind kind = Kind::getMenu;
        int32_t pid = 0;
        bool operator==(const GetMenu&) const = default;
    };
    struct Menu {
        static constexpr Kind kind = Kind::menu;
        int32_t pid = 0;
        std::vector<MenuNode> items;
        bool operator==(const Menu&) const = default;
    };
    struct PressMenu {
        static constexpr Kind kind = Kind::pressMenu;
        int32_t pid = 0;
        std::vector<int64_t> path;
        bool operator==(const PressMenu&) const = default;
    };
    // Without a value it asks for the status; the reply carries one.
    struct Status {
        static constexpr Kind kind = Kind::status;
        std::optional<AgentStatus> value;
        bool operator==(const Status&) const = default;
    };
    struct Ok {
        static constexpr Kind kind = Kind::ok;
        bool operator==(const Ok&) const = default;
    };
    struct Error {
        static constexpr Kind kind = Kind::error;
        ErrorInfo value;
        bool operator==(const Error&) const = default;
    };

    using Payload = std::variant<Hello, ListApps, AppList, LaunchApp, Launched, QuitApp, ListWindows, WindowList,
                                 StartStream, StopStream, StreamStarted, RequestKeyframe, UpdateStream, WindowEvent,
                                 WindowAction, Clipboard, InstallApp, Installed, GetMenu, Menu, PressMenu, Status,
                                 Ok, Error>;
    static_assert(std::variant_size_v<Payload> == kindCount);

    template <class C>
    static constexpr bool isCase = requires { C::kind; } && std::is_constructible_v<Payload, C>;

    template <class C>
        requires isCase<std::remove_cvref_t<C>>
    ControlMessage(C&& c) : payload(std::forward<C>(c)) {}

    Kind kind() const { return Kind(payload.index()); }
    std::string_view caseName() const;

    template <class C>
    const C* get() const {
        return std::get_if<C>(&payload);
    }
    template <class C>
    C* get() {
        return std::get_if<C>(&payload);
    }

    Payload payload;

    bool operator==(const ControlMessage&) const = default;
};

// The case's name as it appears in JSON, e.g. "listApps".
std::string_view caseName(ControlMessage::Kind kind);
std::optional<ControlMessage::Kind> controlKindFromName(std::string_view name);

// The root of every control frame.
struct ControlEnvelope {
    uint32_t id = 0;                  // sender's number, never 0
    std::optional<uint32_t> replyTo;  // the request this answers
    ControlMessage message;
    bool operator==(const ControlEnvelope&) const = default;
};

}  // namespace tsl
