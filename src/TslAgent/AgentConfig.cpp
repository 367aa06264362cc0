#include "TslAgent/AgentConfig.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <deque>

#include "TslCore/Model/GuestShare.h"
#include "TslCore/Model/SharedFolderConstants.h"
#include "TslCore/Support/Decimal.h"

extern char** environ;

namespace tsl {
namespace fs = std::filesystem;
namespace {

constexpr uint32_t hostCid = 2;
constexpr std::array<uint16_t, 3> channelPorts{5000, 5001, 5002};  // control, video, input

// A transport file is a few bytes; anything far larger is not one.
constexpr off_t transportFileLimit = 64 * 1024;

std::vector<SocketEndpoint> vsockEndpoints() {
    std::vector<SocketEndpoint> out;
    for (uint16_t port : channelPorts) out.push_back(SocketEndpoint::vsock(hostCid, port));
    return out;
}

std::vector<SocketEndpoint> tcpEndpoints(const std::string& host) {
    std::vector<SocketEndpoint> out;
    for (uint16_t port : channelPorts) out.push_back(SocketEndpoint::tcp(host, port));
    return out;
}

// A command-line path as a file URL: taken from the working directory unless
// absolute (an empty path is the working directory itself).
fs::path fileURL(const std::string& text) {
    std::error_code ec;
    fs::path p = text.empty() ? fs::current_path(ec) : fs::absolute(text, ec);
    return ec ? fs::path(text) : p;
}

// Lexical normalisation without a trailing slash.
fs::path standardised(const fs::path& p) {
    std::string s = p.lexically_normal().string();
    while (s.size() > 1 && s.back() == '/') s.pop_back();
    return s;
}

// Symbolic links resolved component by component as far as the path exists
// (a dangling link still leads to its target), the rest only normalised.
std::string normalisedPath(const fs::path& p) {
    constexpr int linkLimit = 40;
    auto components = [](const fs::path& path) {
        fs::path relative = path.relative_path();
        return std::vector<fs::path>(relative.begin(), relative.end());
    };
    fs::path whole = fileURL(p.string());
    auto parts = components(whole);
    std::deque<fs::path> pending(parts.begin(), parts.end());
    fs::path resolved = "/";
    int links = 0;
    while (!pending.empty()) {
        fs::path component = std::move(pending.front());
        pending.pop_front();
        if (component.empty() || component == ".") continue;
        if (component == "..") {
            resolved = resolved.parent_path();
            continue;
        }
        fs::path candidate = resolved / component;
        struct stat st {};
        bool exists = ::lstat(candidate.c_str(), &st) == 0;
        if (!exists || !S_ISLNK(st.st_mode)) {
            resolved = std::move(candidate);
            if (!exists) break;
            continue;
        }
        std::error_code ec;
        fs::path target = fs::read_symlink(candidate, ec);
        if (ec || ++links > linkLimit) {  // unreadable, or a loop: resolve no further
            resolved = std::move(candidate);
            break;
        }
        if (target.is_absolute()) resolved = "/";
        auto targetParts = components(target);
        pending.insert(pending.begin(), targetParts.begin(), targetParts.end());
    }
    for (const auto& rest : pending) resolved /= rest;
    return standardised(resolved).string();
}

SocketEndpoint anyEndpoint(const std::string& text) {
    auto endpoint = SocketEndpoint::parse(text);
    if (!endpoint) throw AgentConfig::ParseError::usage("bad endpoint " + text);
    return *endpoint;
}

SocketEndpoint unixEndpoint(const std::string& option, const std::string& text) {
    SocketEndpoint endpoint = anyEndpoint(text);
    if (!endpoint.isUnix()) throw AgentConfig::ParseError::usage(option + " accepts unix:<path> endpoints only");
    return endpoint;
}

bool isLoopbackTCP(const SocketEndpoint& endpoint) {
    auto tcp = endpoint.get<SocketEndpoint::Tcp>();
    return tcp && tcp->host == "127.0.0.1";
}

// The whole of a small regular file; nothing for anything else (a pipe left in
// the share must not hang the caller).
std::optional<std::string> readSmallFile(const fs::path& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return std::nullopt;
    std::optional<std::string> out;
    struct stat st {};
    if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size <= transportFileLimit) {
        std::string text;
        char buffer[4096];
        while (text.size() <= size_t(transportFileLimit)) {
            ssize_t n = ::read(fd, buffer, sizeof buffer);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) break;
            if (n == 0) {
                out = std::move(text);
                break;
            }
            text.append(buffer, size_t(n));
        }
    }
    ::close(fd);
    return out;
}

// Runs a tool with standard error discarded and returns its standard output;
// nothing when it can't be started. Its exit status doesn't matter here.
std::optional<std::string> runCapturingOutput(const char* tool, std::vector<std::string> arguments) {
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) return std::nullopt;

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);

    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(tool));
    for (auto& a : arguments) argv.push_back(a.data());
    argv.push_back(nullptr);

    pid_t pid = -1;
    int spawned = ::posix_spawn(&pid, tool, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipeFds[1]);
    if (spawned != 0) {
        ::close(pipeFds[0]);
        return std::nullopt;
    }

    std::string output;
    char buffer[4096];
    while (true) {
        ssize_t n = ::read(pipeFds[0], buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        output.append(buffer, size_t(n));
    }
    ::close(pipeFds[0]);
    while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
    return output;
}

// At the first ":" only; empty pieces are dropped and don't use up the split.
std::vector<std::string_view> splitAtFirstColon(std::string_view line) {
    std::vector<std::string_view> out;
    size_t start = 0;
    for (size_t colon; (colon = line.find(':', start)) != std::string_view::npos;) {
        bool empty = colon == start;
        if (!empty) out.push_back(line.substr(start, colon - start));
        start = colon + 1;
        if (!empty) break;
    }
    if (start < line.size()) out.push_back(line.substr(start));
    return out;
}

std::string_view trimmedOfSpacesAndTabs(std::string_view s) {
    size_t first = s.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

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
            mode = Mode::connect(vsockEndpoints());
            guestRun = true;
        } else if (option == "--tcp-host") {
            const std::string& host = value();
            if (!isPrivateIPv4(host))
                throw ParseError::usage("--tcp-host needs a private IPv4 address (e.g. 192.168.64.1)");
            mode = Mode::connect(tcpEndpoints(host));
            guestRun = true;
        } else if (option == "--connect") {
            mode = Mode::connect({unixEndpoint(option, value())});
        } else if (option == "--listen") {
            // Which kinds may listen depends on the desktop, known only at the end.
            mode = Mode::listen(anyEndpoint(value()));
        } else if (option == "--sim-root") {
            simRoot = standardised(fileURL(value()));
        } else if (option == "--shared-dir") {
            sharedDirOverride = fileURL(value());
        } else if (option == "--inject") {
            const std::string& route = value();
            if (route == "pid") {
                inject = InjectionMode::pid;
            } else if (route == "hid") {
                inject = InjectionMode::hid;
            } else {
                throw ParseError::usage("--inject pid|hid");
            }
        } else if (option == "--desktop") {
            const std::string& kind = value();
            if (kind == "sim") desktop = Desktop::sim;
            else if (kind == "x11") desktop = Desktop::x11;
            else throw ParseError::usage("--desktop sim|x11");
        } else if (option == "--command-as") {
            const std::string& key = value();
            if (key == "control") commandAs = CommandAs::control;
            else if (key == "super") commandAs = CommandAs::super;
            else throw ParseError::usage("--command-as control|super");
        } else {
            throw ParseError::usage("unknown argument " + option);
        }
    }
    if (auto listen = mode ? mode->get<Mode::Listen>() : nullptr) {
        const bool allowed = listen->endpoint.isUnix() || (desktop == Desktop::x11 && isLoopbackTCP(listen->endpoint));
        if (!allowed)
            throw ParseError::usage(desktop == Desktop::x11
                                        ? "--listen accepts unix:<path> or tcp:127.0.0.1:<port> endpoints only"
                                        : "--listen accepts unix:<path> endpoints only");
    }
    if (commandAs && desktop != Desktop::x11) throw ParseError::usage("--command-as is for --desktop x11");

    if (!mode) throw ParseError::usage("one of --vsock, --connect unix:<path>, --listen unix:<path> is required");
    if (desktop == Desktop::x11) {
        if (simRoot) throw ParseError::usage("--sim-root is for --desktop sim");
        // A real desktop: the real user's folders, and the route the user asks for.
        AgentConfig config(std::move(*mode), "/Applications", sharedDirOverride.value_or(guestSharedDir()),
                           home / "Library" / "Preferences", home / "Library" / "Application Support", false, false,
                           false, inject.value_or(InjectionMode::hid));
        config.openRoots = {guestMountPoint()};
        config.desktop = desktop;
        config.commandAs = commandAs.value_or(CommandAs::control);
        return config;
    }
    if (inVirtualMachine && !guestRun)
        throw ParseError::unsafe("inside a virtual machine the agent runs only with --vsock (or --tcp-host)");

    if (guestRun) {
        if (simRoot) throw ParseError::usage("--sim-root is for Simulation, not --vsock");
        AgentConfig config(std::move(*mode), "/Applications", sharedDirOverride.value_or(guestSharedDir()),
                           home / "Library" / "Preferences", home / "Library" / "Application Support", false, false,
                           true, inject.value_or(InjectionMode::hid));
        config.openRoots = {guestMountPoint()};
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
    const std::vector<std::string> realFolders = {
        normalisedPath(home / "Library" / "Preferences"),
        normalisedPath(home / "Library" / "Application Support"),
        normalisedPath(home / "Library"),
        normalisedPath(home / "Applications"),
        normalisedPath("/Applications"),
        normalisedPath(home),
    };
    static const std::array<std::string_view, 5> worldWritable = {"/tmp", "/private/tmp", "/Users/Shared", "/var/tmp",
                                                                  "/private/var/tmp"};
    for (const fs::path* dir : {&appsDir, &sharedDir, &prefsDir, &supportDir}) {
        std::string normalised = normalisedPath(*dir);
        for (const auto& real : realFolders) {
            if (normalised == real) throw ParseError::unsafe(dir->string() + " is a real user folder");
        }
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
    auto choice = readSmallFile(sharedDir / GuestShare::transportChoiceRelativePath);
    if (!choice) return defaultEndpoints;
    auto host = GuestShare::tcpHostFromTransportChoice(*choice);
    if (!host) return defaultEndpoints;
    // Never on the file's word alone: the host must be this guest's own gateway.
    auto gatewayHost = gateway ? gateway() : std::nullopt;
    if (gatewayHost != host) return defaultEndpoints;
    return tcpEndpoints(*host);
}

std::optional<std::string> AgentConfig::defaultGateway() {
    auto output = runCapturingOutput("/sbin/route", {"-n", "get", "default"});
    if (!output) return std::nullopt;
    return gatewayFromRouteOutput(*output);
}

std::optional<std::string> AgentConfig::gatewayFromRouteOutput(std::string_view output) {
    size_t start = 0;
    while (start <= output.size()) {
        size_t newline = output.find('\n', start);
        size_t end = newline == std::string_view::npos ? output.size() : newline;
        auto pieces = splitAtFirstColon(output.substr(start, end - start));
        if (pieces.size() == 2 && trimmedOfSpacesAndTabs(pieces[0]) == "gateway")
            return std::string(trimmedOfSpacesAndTabs(pieces[1]));
        start = end + 1;
    }
    return std::nullopt;
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
