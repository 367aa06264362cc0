#include "TslCore/Wire/ControlMessage.h"

#include <array>
#include <utility>

namespace tsl {
namespace {

constexpr std::array<std::string_view, ControlMessage::kindCount> caseNames{
    "hello",        "listApps",    "appList",       "launchApp",       "launched",     "quitApp",
    "listWindows",  "windowList",  "startStream",   "stopStream",      "streamStarted", "requestKeyframe",
    "updateStream", "windowEvent", "windowAction",  "clipboard",       "installApp",   "installed",
    "getMenu",      "menu",        "pressMenu",     "status",          "ok",           "error",
};

// Each case struct sits at the index of its own kind.
template <size_t... I>
constexpr bool kindsMatchOrder(std::index_sequence<I...>) {
    return ((size_t(std::variant_alternative_t<I, ControlMessage::Payload>::kind) == I) && ...);
}
static_assert(kindsMatchOrder(std::make_index_sequence<ControlMessage::kindCount>{}));

constexpr std::array<std::string_view, 2> roleNames{"host", "agent"};
constexpr std::array<std::string_view, 8> windowEventKindNames{"created",   "closed",       "moved",
                                                                 "resized",   "focused",      "titleChanged",
                                                                 "minimized", "restored"};
constexpr std::array<std::string_view, 7> windowActionKindNames{"move",  "resize",   "setFrame", "close",
                                                                  "focus", "minimize", "restore"};

template <class E, size_t N>
std::optional<E> lookup(const std::array<std::string_view, N>& names, std::string_view text) {
    for (size_t i = 0; i < N; ++i)
        if (names[i] == text) return E(i);
    return std::nullopt;
}

template <size_t N>
std::string_view nameAt(const std::array<std::string_view, N>& names, size_t index) {
    return index < N ? names[index] : std::string_view("?");
}

}  // namespace

std::string_view caseName(ControlMessage::Kind kind) { return nameAt(caseNames, size_t(kind)); }

std::string_view ControlMessage::caseName() const { return tsl::caseName(kind()); }

std::optional<ControlMessage::Kind> controlKindFromName(std::string_view name) {
    return lookup<ControlMessage::Kind>(caseNames, name);
}

std::string_view toString(Hello::Role role) { return nameAt(roleNames, size_t(role)); }
std::string_view toString(WindowEvent::Kind kind) { return nameAt(windowEventKindNames, size_t(kind)); }
std::string_view toString(WindowAction::Kind kind) { return nameAt(windowActionKindNames, size_t(kind)); }

template <>
std::optional<Hello::Role> fromString<Hello::Role>(std::string_view text) {
    return lookup<Hello::Role>(roleNames, text);
}
template <>
std::optional<WindowEvent::Kind> fromString<WindowEvent::Kind>(std::string_view text) {
    return lookup<WindowEvent::Kind>(windowEventKindNames, text);
}
template <>
std::optional<WindowAction::Kind> fromString<WindowAction::Kind>(std::string_view text) {
    return lookup<WindowAction::Kind>(windowActionKindNames, text);
}

}  // namespace tsl
