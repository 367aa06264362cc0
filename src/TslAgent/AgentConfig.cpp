#include "TslAgent/AgentConfig.h"

#include <array>

#include "Platform/Linux/LinuxSystem.h"
#include "TslAgent/AgentEndpoints.h"
#include "TslAgent/DefaultRoute.h"
#include "TslCore/Model/GuestShare.h"
#include "TslCore/Model/SharedFolderConstants.h"
#include "TslCore/Support/BoundedFile.h"
#include "TslCore/Support/Decimal.h"
#include "TslCore/Support/PathNames.h"
#include "TslCore/Support/PhysicalPath.h"

namespace tsl {
namespace fs = std::filesystem;
namespace {

// A transport file is a few bytes; anything far larger is not one.
constexpr size_t transportFileLimit = 64 * 1024;

}  // namespace

AgentConfig::ParseError::ParseError(Kind kind, std::string message)
    : Error(kind == Kind::unsafe ? "refusing to run: " + message : message), _kind(kind), _message(std::move(message)) {}

AgentConfig::AgentConfig(Mode mode, fs::path appsDir, fs::path sharedDir, fs::path prefsDir, fs::path supportDir,
                         bool isSimulation, bool exitOnDisconnect, bool clipboardSync, InjectionMode injectionMode)
    : mode(std::move(mode)),
      appsDir(std::move(appsDir)),
      sharedDir(std::move(sharedDir)),
      prefsDir(std::move(prefsDir)),
      supportDir(std::move(supportDir)),
      isSimulation(isSimulation),
      exitOnDisconnect(exitOnDisconnect),
      clipboardSync(clipboardSync),
      injectionMode(injectionMode) {}

AgentConfig AgentConfig::simulation(Mode mode, const fs::path& root, bool exitOnDisconnect) {
    return AgentConfig(std::move(mode), root / "Applications", root / "Shared", root / "Library" / "Preferences",
                       root / "Library" / "Application Support", true, exitOnDisconnect, false, InjectionMode::pid);
}

AgentConfig AgentConfig::parse(const std::vector<std::string>& arguments, const fs::path& home,
                               bool inVirtualMachine) {
    std::optional<Mode> mode;
    bool guestRun = false;  // sticky: a later --connect changes the mode, not the kind of run
    std::optional<fs::path> simRoot;
    std::optional<fs::path> sharedDirOverride;
    std::optional<InjectionMode> inject;
    Desktop desktop = Desktop::sim;
    std::optional<CommandAs> commandAs;

    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& option = arguments[i];
        auto value = [&]() -> const std::string& {
            if (i + 1 >= arguments.size() || arguments[i + 1].starts_with("--"))
                throw ParseError::usage(option + " needs a value");
            return arguments[++i];
        };
        if (option == "--vsock") {
            mode = Mode::connect(AgentEndpoints::channels(std::nullopt));
            guestRun = true;
        } else if (option == "--tcp-host") {
            const std::string& host = value();
            if (!isPrivateIPv4(host))
                throw ParseError::usage("--tcp-host needs a private IPv4 address (e.g. 192.168.64.1)");
            mode = Mode::connect(AgentEndpoints::channels(host));
            guestRun = true;
        } else if (option == "--connect") {
            mode = Mode::connect({AgentEndpoints::parse(value(), option)});
        } else if (option == "--listen") {
            mode = Mode::listen(AgentEndpoints::parse(value()));
        } else if (option == "--sim-root") {
            simRoot = PathNames::standardizedPath(value());
        } else if (option == "--shared-dir") {
            sharedDirOverride = PathNames::absolutePath(value());
        } else if (option == "--inject") {
            const std::string& route = value();
            if (route != "pid" && route != "hid") throw ParseError::usage("--inject pid|hid");
            inject = route == "pid" ? InjectionMode::pid : InjectionMode::hid;
        } else if (option == "--desktop") {
            const std::string& kind = value();
            if (kind != "sim" && kind != "x11") throw ParseError::usage("--desktop sim|x11");
            desktop = kind == "x11" ? Desktop::x11 : Desktop::sim;
        } else if (option == "--command-as") {
            const std::string& key = value();
            if (key != "control" && key != "super") throw ParseError::usage("--command-as control|super");
            commandAs = key == "super" ? CommandAs::super : CommandAs::control;
        } else {
            throw ParseError::usage("unknown argument " + option);
        }
    }

    if (mode) AgentEndpoints::checkListening(*mode, desktop);
    if (commandAs && desktop != Desktop::x11) throw ParseError::usage("--command-as is for --desktop x11");
    if (!mode) throw ParseError::usage("one of --vsock, --connect unix:<path>, --listen unix:<path> is required");
    const bool realDesktop = desktop == Desktop::x11;
    if (inVirtualMachine && !guestRun && !realDesktop)
        throw ParseError::unsafe("inside a virtual machine the agent runs only with --vsock (or --tcp-host)");

    if (guestRun || realDesktop) {
        if (simRoot)
            throw ParseError::usage(realDesktop ? "--sim-root is for --desktop sim"
                                                : "--sim-root is for Simulation, not --vsock");
        // The real user's folders, and the real clipboard kept in step with the host's.
        AgentConfig config(std::move(*mode), "/Applications", sharedDirOverride.value_or(guestSharedDir()),
                           home / "Library" / "Preferences", home / "Library" / "Application Support", false, false,
                           true, inject.value_or(InjectionMode::hid));
        config.openRoots = {guestMountPoint()};
        config.desktop = desktop;
        config.commandAs = commandAs.value_or(CommandAs::control);
        return config;
    }

    if (!simRoot) throw ParseError::usage("--connect/--listen need --sim-root <dir>");
    if (inject == InjectionMode::hid)
        throw ParseError::unsafe("Simulation injects with postToPid only (HID events move the user's cursor)");
    bool exitOnDisconnect = mode->isConnect();
    AgentConfig config = simulation(std::move(*mode), *simRoot, exitOnDisconnect);
    config.openRoots = {config.sharedDir, home};
    config.openExclusions = {home / "Library"};
    config.checkSimulationSafety(home);
    return config;
}

bool AgentConfig::runningInVirtualMachine() {
    // The hypervisor-presence key exists only on the guest's own system; where
    // it can't be read the answer is no.
    return false;
}

bool AgentConfig::isPrivateIPv4(std::string_view text) {
    size_t pieces = 0;
    std::vector<uint8_t> numbers;
    size_t start = 0;
    while (start <= text.size()) {
        size_t dot = text.find('.', start);
        size_t end = dot == std::string_view::npos ? text.size() : dot;
        if (end > start) {
            ++pieces;
            if (auto n = parseDecimal<uint8_t>(text.substr(start, end - start))) numbers.push_back(*n);
        }
        start = end + 1;
    }
    if (pieces != 4 || numbers.size() != 4) return false;
    return numbers[0] == 10 || (numbers[0] == 192 && numbers[1] == 168) ||
           (numbers[0] == 172 && (numbers[1] & 0xF0) == 16);
}

void AgentConfig::checkSimulationSafety(const fs::path& home) const {
    if (!isSimulation) return;
    std::vector<std::string> realFolders{PhysicalPath::resolved("/Applications"), PhysicalPath::resolved(home)};
    for (const char* inHome : {"Library/Preferences", "Library/Application Support", "Library", "Applications"})
        realFolders.push_back(PhysicalPath::resolved(home / inHome));
    static const std::array<std::string_view, 5> worldWritable = {"/tmp", "/private/tmp", "/Users/Shared", "/var/tmp",
                                                                  "/private/var/tmp"};
    for (const fs::path* dir : {&appsDir, &sharedDir, &prefsDir, &supportDir}) {
        std::string normalised = PhysicalPath::resolved(*dir);
        for (const auto& real : realFolders)
            if (normalised == real) throw ParseError::unsafe(dir->string() + " is a real user folder");
        for (std::string_view place : worldWritable) {
            bool inside = normalised.starts_with(place) &&
                          (normalised.size() == place.size() || normalised[place.size()] == '/');
            if (inside) throw ParseError::unsafe(dir->string() + " is in a world-writable location");
        }
    }
}

std::vector<SocketEndpoint> AgentConfig::currentEndpoints(
    const std::vector<SocketEndpoint>& defaultEndpoints,
    const std::function<std::optional<std::string>()>& gateway) const {
    if (isSimulation || defaultEndpoints.empty() || !defaultEndpoints.front().isVsock()) return defaultEndpoints;
    auto choice = BoundedFile::bytesOf(sharedDir / GuestShare::transportChoiceRelativePath, transportFileLimit);
    if (!choice) return defaultEndpoints;
    auto host = GuestShare::tcpHostFromTransportChoice(*choice);
    if (!host) return defaultEndpoints;
    // Never on the file's word alone: the host must be this guest's own gateway.
    auto gatewayHost = gateway ? gateway() : std::nullopt;
    if (gatewayHost != host) return defaultEndpoints;
    return AgentEndpoints::channels(host);
}

std::optional<std::string> AgentConfig::defaultGateway() {
    LinuxSystem system;
    return DefaultRoute::gateway(system);
}

const fs::path& AgentConfig::guestMountPoint() {
    static const fs::path mountPoint{std::string(SharedFolders::guestMountPoint)};
    return mountPoint;
}

const fs::path& AgentConfig::guestSharedDir() {
    static const fs::path sharedDir = guestMountPoint() / std::string(SharedFolders::tesselEntryName);
    return sharedDir;
}

}  // namespace tsl
