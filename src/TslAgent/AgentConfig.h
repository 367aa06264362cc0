#pragma once
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "TslCore/Support/Error.h"
#include "TslStream/Input/InjectionMode.h"
#include "TslStream/Transport/SocketEndpoint.h"

namespace tsl {

// The parsed command line: a plain value, copied to whoever needs it and never
// changed after parsing.
//
// A guest run (--vsock, --tcp-host) dials the host from inside the virtual Mac.
// A simulation run (--connect, --listen, always with --sim-root) works in a
// throw-away folder tree, and the parser refuses whatever could let it touch the
// real user's folders, cursor or clipboard.
//
// An X11 run (--desktop x11) serves the real desktop of $DISPLAY: it dials as a
// guest does, or listens on a unix socket or on loopback TCP, without a tree.
struct AgentConfig {
    enum class Desktop : uint8_t { sim, x11 };
    // The X modifier the host's Command key becomes.
    enum class CommandAs : uint8_t { control, super };

    struct Mode {
        // One endpoint per channel (control, video, input), or one for all three.
        struct Connect {
            std::vector<SocketEndpoint> endpoints;
            bool operator==(const Connect&) const = default;
        };
        struct Listen {
            SocketEndpoint endpoint;
            bool operator==(const Listen&) const = default;
        };

        std::variant<Connect, Listen> value;

        static Mode connect(std::vector<SocketEndpoint> endpoints) { return {Connect{std::move(endpoints)}}; }
        static Mode listen(SocketEndpoint endpoint) { return {Listen{std::move(endpoint)}}; }

        template <typename T> const T* get() const { return std::get_if<T>(&value); }
        bool isConnect() const { return get<Connect>() != nullptr; }

        bool operator==(const Mode&) const = default;
    };

    // A plain usage error, or a refusal on grounds of safety.
    class ParseError : public Error {
    public:
        enum class Kind : uint8_t { usage, unsafe };

        static ParseError usage(std::string message) { return {Kind::usage, std::move(message)}; }
        static ParseError unsafe(std::string message) { return {Kind::unsafe, std::move(message)}; }

        Kind kind() const { return _kind; }
        const std::string& message() const { return _message; }

        bool operator==(const ParseError& o) const { return _kind == o._kind && _message == o._message; }

    private:
        ParseError(Kind kind, std::string message);
        Kind _kind;
        std::string _message;
    };

    Mode mode;
    std::filesystem::path appsDir;
    std::filesystem::path sharedDir;
    std::vector<std::filesystem::path> openRoots;  // where launchApp may open documents
    std::vector<std::filesystem::path> openExclusions;
    std::filesystem::path prefsDir;
    std::filesystem::path supportDir;
    bool isSimulation = false;
    bool exitOnDisconnect = false;
    bool clipboardSync = false;
    InjectionMode injectionMode = InjectionMode::pid;
    Desktop desktop = Desktop::sim;
    CommandAs commandAs = CommandAs::control;

    // Both direct constructors leave openRoots and openExclusions empty.
    AgentConfig(Mode mode, std::filesystem::path appsDir, std::filesystem::path sharedDir,
                std::filesystem::path prefsDir, std::filesystem::path supportDir, bool isSimulation,
                bool exitOnDisconnect, bool clipboardSync, InjectionMode injectionMode);
    static AgentConfig simulation(Mode mode, const std::filesystem::path& root, bool exitOnDisconnect);

    // `arguments` excludes the program's own name. Throws ParseError.
    static AgentConfig parse(const std::vector<std::string>& arguments, const std::filesystem::path& home,
                             bool inVirtualMachine);

    static bool runningInVirtualMachine();
    static bool isPrivateIPv4(std::string_view text);

    // Throws ParseError::unsafe when a simulation's folders are, or lie in, folders
    // that belong to the real user or to everyone. Nothing to check for a guest run.
    void checkSimulationSafety(const std::filesystem::path& home) const;

    // The endpoints to dial this round: the TCP endpoints of the host that the
    // share's transport file names, when that host is this guest's default
    // gateway; otherwise `defaultEndpoints`. Blocks for the gateway lookup.
    std::vector<SocketEndpoint> currentEndpoints(
        const std::vector<SocketEndpoint>& defaultEndpoints,
        const std::function<std::optional<std::string>()>& gateway = &AgentConfig::defaultGateway) const;

    // Asks "/sbin/route" for the default route; nothing when it can't be run.
    static std::optional<std::string> defaultGateway();
    static std::optional<std::string> gatewayFromRouteOutput(std::string_view output);

    static const std::filesystem::path& guestMountPoint();
    static const std::filesystem::path& guestSharedDir();

    bool operator==(const AgentConfig&) const = default;
};

}  // namespace tsl
