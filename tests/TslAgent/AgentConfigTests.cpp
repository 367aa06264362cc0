#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>

#include "Support/TempDir.h"
#include "TslAgent/AgentConfig.h"

using namespace tsl;
namespace fs = std::filesystem;
using Kind = AgentConfig::ParseError::Kind;

namespace {

std::vector<SocketEndpoint> vsockEndpoints() {
    return {SocketEndpoint::vsock(2, 5000), SocketEndpoint::vsock(2, 5001), SocketEndpoint::vsock(2, 5002)};
}

std::vector<SocketEndpoint> tcpEndpoints(const std::string& host) {
    return {SocketEndpoint::tcp(host, 5000), SocketEndpoint::tcp(host, 5001), SocketEndpoint::tcp(host, 5002)};
}

std::optional<AgentConfig::ParseError> refusal(const std::vector<std::string>& args, const fs::path& home,
                                               bool inVM = false) {
    try {
        AgentConfig::parse(args, home, inVM);
    } catch (const AgentConfig::ParseError& e) {
        return e;
    }
    return std::nullopt;
}

fs::path makeTempDir(const std::string& pattern) {
    std::string text = pattern;
    if (!::mkdtemp(text.data())) throw std::runtime_error("mkdtemp " + pattern);
    return text;
}

// A fake home and room for simulation roots, outside the world-writable places.
class AgentConfigFS : public ::testing::Test {
protected:
    void SetUp() override {
        base = makeTempDir(tsl::test::TempDir::simulationBase() + "/agentconfig-XXXXXX");
        home = base / "home";
        fs::create_directories(home / "Library" / "Preferences");
    }
    void TearDown() override {
        std::error_code ec;
        if (!base.empty()) fs::remove_all(base, ec);
        if (!outside.empty()) fs::remove_all(outside, ec);
    }
    AgentConfig guestConfig() const {
        return AgentConfig::parse({"--vsock", "--shared-dir", (base / "share").string()}, home, true);
    }
    void writeTransport(const std::string& text) const {
        fs::create_directories(base / "share" / ".tessel");
        std::ofstream(base / "share" / ".tessel" / "transport", std::ios::binary | std::ios::trunc) << text;
    }

    fs::path base;
    fs::path home;
    fs::path outside;  // a folder in /tmp, for links that lead there
};

}  // namespace

TEST(AgentConfig, RefusalsInCommandLineOrder) {
    struct Case {
        std::vector<std::string> args;
        bool inVM;
        Kind kind;
        std::string description;
    };
    const std::string required = "one of --vsock, --connect unix:<path>, --listen unix:<path> is required";
    const std::string tcpHost = "--tcp-host needs a private IPv4 address (e.g. 192.168.64.1)";
    const std::vector<Case> cases = {
        {{}, false, Kind::usage, required},
        {{}, true, Kind::usage, required},
        {{"--connect", "unix:/tmp/a", "--sim-root", "/x"}, true, Kind::unsafe,
         "refusing to run: inside a virtual machine the agent runs only with --vsock (or --tcp-host)"},
        {{"--vsock", "--sim-root", "/x"}, false, Kind::usage, "--sim-root is for Simulation, not --vsock"},
        {{"--connect", "--sim-root", "/x"}, false, Kind::usage, "--connect needs a value"},
        {{"--vsock", "--sim-root"}, false, Kind::usage, "--sim-root needs a value"},
        {{"--vsock", "--shared-dir", "--inject"}, false, Kind::usage, "--shared-dir needs a value"},
        {{"--connect", "tcp:127.0.0.1:5000"}, false, Kind::usage, "--connect accepts unix:<path> endpoints only"},
        {{"--listen", "vsock:2:5000"}, false, Kind::usage, "--listen accepts unix:<path> endpoints only"},
        {{"--connect", "tcp::5000"}, false, Kind::usage, "bad endpoint tcp::5000"},
        {{"--tcp-host", "8.8.8.8"}, false, Kind::usage, tcpHost},
        {{"--tcp-host", "172.32.0.1"}, false, Kind::usage, tcpHost},
        {{"--tcp-host", "10.0.0"}, false, Kind::usage, tcpHost},
        {{"--tcp-host"}, false, Kind::usage, "--tcp-host needs a value"},
        {{"--vsock", "--inject", "usb"}, false, Kind::usage, "--inject pid|hid"},
        {{"--vsock", "--help"}, false, Kind::usage, "unknown argument --help"},
        {{"--vsock", "extra"}, false, Kind::usage, "unknown argument extra"},
        {{"--inject=pid", "--vsock"}, false, Kind::usage, "unknown argument --inject=pid"},
        // The first bad option is the one reported.
        {{"--inject", "usb", "--bogus"}, false, Kind::usage, "--inject pid|hid"},
        {{"--bogus", "--inject", "usb"}, false, Kind::usage, "unknown argument --bogus"},
        {{"--tcp-host", "8.8.8.8", "--connect", "nonsense"}, false, Kind::usage, tcpHost},
        {{"--connect", "unix:/a"}, false, Kind::usage, "--connect/--listen need --sim-root <dir>"},
        {{"--connect", "unix:/a", "--sim-root", "/s", "--inject", "hid"}, false, Kind::unsafe,
         "refusing to run: Simulation injects with postToPid only (HID events move the user's cursor)"},
        {{"--connect", "unix:/a", "--sim-root", "/tmp/x"}, false, Kind::unsafe,
         "refusing to run: /tmp/x/Applications is in a world-writable location"},
        {{"--listen", "unix:/a", "--sim-root", "/private/tmp/x/"}, false, Kind::unsafe,
         "refusing to run: /private/tmp/x/Applications is in a world-writable location"},
        {{"--connect", "unix:/a", "--sim-root", "/var/tmp/../tmp/./x"}, false, Kind::unsafe,
         "refusing to run: /var/tmp/x/Applications is in a world-writable location"},
        {{"--connect", "unix:/a", "--sim-root", "/"}, false, Kind::unsafe,
         "refusing to run: /Applications is a real user folder"},
    };
    for (const auto& c : cases) {
        std::string line;
        for (const auto& a : c.args) line += a + " ";
        SCOPED_TRACE(line);
        auto error = refusal(c.args, "/home/someone", c.inVM);
        ASSERT_TRUE(error.has_value());
        EXPECT_EQ(error->kind(), c.kind);
        EXPECT_EQ(error->description(), c.description);
        EXPECT_STREQ(error->what(), c.description.c_str());
    }
}

TEST(AgentConfig, GuestMarkIsStickyAndTheLastModeWins) {
    const fs::path home = "/home/someone";
    auto c = AgentConfig::parse({"--vsock", "--connect", "unix:/x"}, home, true);
    EXPECT_EQ(c.mode, AgentConfig::Mode::connect({SocketEndpoint::unix("/x")}));
    EXPECT_FALSE(c.isSimulation);
    EXPECT_TRUE(c.clipboardSync);
    EXPECT_FALSE(c.exitOnDisconnect);
    EXPECT_EQ(c.injectionMode, InjectionMode::hid);
    EXPECT_EQ(c.appsDir, "/Applications");

    c = AgentConfig::parse({"--tcp-host", "10.1.2.3", "--listen", "unix:/y"}, home, true);
    EXPECT_EQ(c.mode, AgentConfig::Mode::listen(SocketEndpoint::unix("/y")));
    EXPECT_FALSE(c.isSimulation);

    c = AgentConfig::parse({"--connect", "unix:/x", "--vsock"}, home, false);
    EXPECT_EQ(c.mode, AgentConfig::Mode::connect(vsockEndpoints()));

    c = AgentConfig::parse({"--vsock", "--tcp-host", "192.168.64.1"}, home, false);
    EXPECT_EQ(c.mode, AgentConfig::Mode::connect(tcpEndpoints("192.168.64.1")));
    c = AgentConfig::parse({"--tcp-host", "172.31.0.1", "--vsock"}, home, false);
    EXPECT_EQ(c.mode, AgentConfig::Mode::connect(vsockEndpoints()));

    // The value goes on the wire as written.
    c = AgentConfig::parse({"--tcp-host", "10.0.0.1."}, home, false);
    EXPECT_EQ(c.mode, AgentConfig::Mode::connect(tcpEndpoints("10.0.0.1.")));
}

TEST(AgentConfig, GuestRunDefaults) {
    const fs::path home = "/home/someone";
    AgentConfig expected(AgentConfig::Mode::connect(vsockEndpoints()), "/Applications",
                         "/Volumes/My Shared Files/Tessel", "/home/someone/Library/Preferences",
                         "/home/someone/Library/Application Support", false, false, true, InjectionMode::hid);
    expected.openRoots = {"/Volumes/My Shared Files"};
    EXPECT_EQ(AgentConfig::parse({"--vsock"}, home, true), expected);
    EXPECT_EQ(AgentConfig::guestSharedDir(), "/Volumes/My Shared Files/Tessel");

    // --inject pid changes the route only; --shared-dir is kept as written.
    expected.injectionMode = InjectionMode::pid;
    expected.sharedDir = "/Volumes/x/../y/";
    EXPECT_EQ(AgentConfig::parse({"--inject", "pid", "--shared-dir", "/Volumes/x/../y/", "--vsock"}, home, true),
              expected);
    EXPECT_EQ(AgentConfig::parse({"--vsock", "--inject", "hid", "--inject", "pid", "--shared-dir",
                                  "/elsewhere", "--shared-dir", "/Volumes/x/../y/"},
                                 home, false),
              expected);
}

TEST(AgentConfig, X11RunServesTheRealDesktopWithoutATree) {
    const fs::path home = "/home/someone";
    AgentConfig expected(AgentConfig::Mode::listen(SocketEndpoint::tcp("127.0.0.1", 7000)), "/Applications",
                         "/Volumes/My Shared Files/Tessel", "/home/someone/Library/Preferences",
                         "/home/someone/Library/Application Support", false, false, true, InjectionMode::hid);
    expected.openRoots = {"/Volumes/My Shared Files"};
    expected.desktop = AgentConfig::Desktop::x11;
    EXPECT_EQ(AgentConfig::parse({"--listen", "tcp:127.0.0.1:7000", "--desktop", "x11"}, home, false), expected);
    // Dialling stays up through disconnects, as a guest's does; Command may become Super.
    expected.mode = AgentConfig::Mode::connect({SocketEndpoint::unix("/run/host.sock")});
    expected.commandAs = AgentConfig::CommandAs::super;
    expected.injectionMode = InjectionMode::pid;
    EXPECT_EQ(AgentConfig::parse(
                  {"--desktop", "x11", "--connect", "unix:/run/host.sock", "--command-as", "super", "--inject", "pid"},
                  home, true),
              expected);
    EXPECT_EQ(AgentConfig::parse({"--desktop", "x11", "--listen", "unix:/run/a.sock"}, home, false).mode,
              AgentConfig::Mode::listen(SocketEndpoint::unix("/run/a.sock")));

    struct Case {
        std::vector<std::string> args;
        std::string message;
    };
    for (const Case& c : std::vector<Case>{
             {{"--desktop", "x11", "--listen", "tcp:0.0.0.0:7000"},
              "--listen accepts unix:<path> or tcp:127.0.0.1:<port> endpoints only"},
             {{"--listen", "tcp:127.0.0.1:7000", "--sim-root", "/x"}, "--listen accepts unix:<path> endpoints only"},
             {{"--desktop", "x11", "--listen", "unix:/a", "--sim-root", "/x"}, "--sim-root is for --desktop sim"},
             {{"--listen", "unix:/a", "--command-as", "super", "--sim-root", "/x"},
              "--command-as is for --desktop x11"},
             {{"--desktop", "wayland"}, "--desktop sim|x11"},
             {{"--desktop", "x11", "--command-as", "meta"}, "--command-as control|super"},
         }) {
        auto e = refusal(c.args, home);
        ASSERT_TRUE(e) << c.message;
        EXPECT_EQ(e->kind(), Kind::usage);
        EXPECT_EQ(e->message(), c.message);
    }
}

TEST_F(AgentConfigFS, SimulationRunDefaults) {
    const fs::path root = base / "sim";
    AgentConfig expected(AgentConfig::Mode::connect({SocketEndpoint::unix("/s/agent.sock")}), root / "Applications",
                         root / "Shared", root / "Library/Preferences", root / "Library/Application Support", true,
                         true, false, InjectionMode::pid);
    expected.openRoots = {root / "Shared", home};
    expected.openExclusions = {home / "Library"};

    // The root is standardised; --shared-dir and --inject pid change nothing.
    std::string messyRoot = (base / "x" / ".." / "sim" / "." / "").string();
    EXPECT_EQ(AgentConfig::parse({"--connect", "unix:/s/agent.sock", "--sim-root", messyRoot, "--shared-dir",
                                  "/elsewhere", "--inject", "pid"},
                                 home, false),
              expected);

    expected.mode = AgentConfig::Mode::listen(SocketEndpoint::unix("/s/agent.sock"));
    expected.exitOnDisconnect = false;
    EXPECT_EQ(AgentConfig::parse({"--sim-root", root.string(), "--listen", "unix:/s/agent.sock"}, home, false),
              expected);

    // A relative root is taken from the working directory.
    const fs::path cwd = fs::current_path();
    fs::current_path(base);
    auto parsed = AgentConfig::parse({"--listen", "unix:/s", "--sim-root", "x/../sim"}, home, false);
    fs::current_path(cwd);
    EXPECT_EQ(parsed.appsDir, root / "Applications");

    // The direct constructor derives the same folders but bounds no documents.
    auto direct = AgentConfig::simulation(expected.mode, root, false);
    expected.openRoots.clear();
    expected.openExclusions.clear();
    EXPECT_EQ(direct, expected);
}

TEST_F(AgentConfigFS, SimulationRootsThatReachRealOrSharedFolders) {
    auto unsafe = [&](const fs::path& root) {
        return refusal({"--connect", "unix:/a", "--sim-root", root.string()}, home);
    };
    // A subfolder of home is fine; home itself is not, however it is spelt.
    EXPECT_FALSE(unsafe(home / "sim"));
    for (const fs::path& root : {home, home / "Library" / "..", fs::path(home.string() + "/")}) {
        auto e = unsafe(root);
        ASSERT_TRUE(e) << root;
        EXPECT_EQ(e->kind(), Kind::unsafe);
        EXPECT_EQ(e->message(), home.string() + "/Applications is a real user folder");
    }

    // Links are followed first; the message names the configured path.
    fs::create_directory_symlink(home, base / "toHome");
    auto e = unsafe(base / "toHome");
    ASSERT_TRUE(e);
    EXPECT_EQ(e->message(), (base / "toHome").string() + "/Applications is a real user folder");

    outside = makeTempDir("/tmp/agentconfig-XXXXXX");
    fs::create_directory_symlink(outside, base / "toTmp");
    e = unsafe(base / "toTmp" / "sim");
    ASSERT_TRUE(e);
    EXPECT_EQ(e->message(), (base / "toTmp/sim/Applications").string() + " is in a world-writable location");

    // A link whose target doesn't exist yet leads there all the same.
    fs::create_directory_symlink(outside / "later", base / "dangling");
    e = unsafe(base / "dangling");
    ASSERT_TRUE(e);
    EXPECT_EQ(e->message(), (base / "dangling/Applications").string() + " is in a world-writable location");

    // Relative links, and ".." after a link, go by the real tree.
    fs::create_directories(base / "deep");
    fs::create_directory_symlink("../toTmp", base / "deep" / "up");
    e = unsafe(base / "deep" / "up");
    ASSERT_TRUE(e);
    EXPECT_EQ(e->message(), (base / "deep/up/Applications").string() + " is in a world-writable location");

    // A loop of links is no way out.
    fs::create_directory_symlink(base / "loopB", base / "loopA");
    fs::create_directory_symlink(base / "loopA", base / "loopB");
    EXPECT_FALSE(unsafe(base / "loopA"));
}

TEST_F(AgentConfigFS, EachSimulationFolderIsChecked) {
    auto mode = AgentConfig::Mode::connect({SocketEndpoint::unix("/a")});
    auto check = [&](const AgentConfig& c) -> std::string {
        try {
            c.checkSimulationSafety(home);
        } catch (const AgentConfig::ParseError& e) {
            EXPECT_EQ(e.kind(), Kind::unsafe);
            return e.message();
        }
        return "";
    };
    const fs::path ok = base / "ok";
    auto make = [&](fs::path apps, fs::path shared, fs::path prefs, fs::path support) {
        return AgentConfig(mode, apps, shared, prefs, support, true, true, false, InjectionMode::pid);
    };
    EXPECT_EQ(check(make(ok / "A", ok / "S", ok / "P", ok / "U")), "");
    EXPECT_EQ(check(make(ok / "A", home, ok / "P", ok / "U")), home.string() + " is a real user folder");
    EXPECT_EQ(check(make(ok / "A", ok / "S", ok / "P", home / "Library/Application Support")),
              (home / "Library/Application Support").string() + " is a real user folder");
    EXPECT_EQ(check(make("/Applications", ok / "S", ok / "P", ok / "U")), "/Applications is a real user folder");
    EXPECT_EQ(check(make(ok / "A", "/tmp", ok / "P", ok / "U")), "/tmp is in a world-writable location");
    // Folders are taken in order: apps, shared, prefs, support.
    EXPECT_EQ(check(make(ok / "A", "/var/tmp/s", home, "/tmp/u")), "/var/tmp/s is in a world-writable location");
    // Only whole components count, and only listed folders.
    EXPECT_EQ(check(make("/tmpfoo/A", "/private/tmpx", home / "Library/Caches", home / "Documents")), "");

    // A guest run has nothing to check.
    AgentConfig guest(mode, "/tmp/a", home, "/tmp/p", "/tmp/u", false, false, true, InjectionMode::hid);
    EXPECT_EQ(check(guest), "");
}

TEST(AgentConfig, PrivateIPv4) {
    for (const char* text : {"10.0.0.1", "10.255.255.255", "192.168.64.1", "172.16.0.1", "172.31.255.255",
                             "10.1.2.3", "10.0.0.1.", ".10..0.0.1", "+10.0.0.1"}) {
        EXPECT_TRUE(AgentConfig::isPrivateIPv4(text)) << text;
    }
    for (const char* text : {"8.8.8.8", "172.15.0.1", "172.32.0.1", "192.169.0.1", "127.0.0.1", "169.254.1.1",
                             "10.0.0", "10.0.0.1.5", "10.0.0.256", "10.0.0.x", "10.0.0.-1", "", "...",
                             "10.0.0.1 ", " 10.0.0.1", "0x0a.0.0.1"}) {
        EXPECT_FALSE(AgentConfig::isPrivateIPv4(text)) << text;
    }
}

TEST(AgentConfig, DefaultGatewayLeavesNoChildOrDescriptorBehind) {
    auto countDescriptors = [] {
        int n = 0;
        for ([[maybe_unused]] auto& entry : fs::directory_iterator("/proc/self/fd")) ++n;
        return n;
    };
    int before = countDescriptors();
    auto gateway = AgentConfig::defaultGateway();
    if (gateway) {
        EXPECT_FALSE(gateway->empty());
    }
    EXPECT_EQ(countDescriptors(), before);
    errno = 0;
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
    EXPECT_FALSE(AgentConfig::runningInVirtualMachine());
}

TEST_F(AgentConfigFS, TransportFileSwitchesToTcpOnlyForTheGateway) {
    const auto config = guestConfig();
    const auto vsock = vsockEndpoints();
    int lookups = 0;
    auto gatewayIs = [&](std::optional<std::string> answer) {
        return [&lookups, answer] {
            ++lookups;
            return answer;
        };
    };

    // No file: the gateway isn't even asked.
    EXPECT_EQ(config.currentEndpoints(vsock, gatewayIs("192.168.64.1")), vsock);
    EXPECT_EQ(lookups, 0);

    writeTransport("tcp 192.168.64.1");
    EXPECT_EQ(config.currentEndpoints(vsock, gatewayIs("192.168.64.1")), tcpEndpoints("192.168.64.1"));
    EXPECT_EQ(config.currentEndpoints(vsock, gatewayIs("192.168.64.2")), vsock);
    EXPECT_EQ(config.currentEndpoints(vsock, gatewayIs(std::nullopt)), vsock);
    EXPECT_EQ(config.currentEndpoints(vsock, gatewayIs("192.168.64.1 ")), vsock);
    EXPECT_EQ(lookups, 4);

    // Read afresh each round.
    writeTransport("\n\ttcp   10.0.0.7 \r\n");
    EXPECT_EQ(config.currentEndpoints(vsock, gatewayIs("10.0.0.7")), tcpEndpoints("10.0.0.7"));
    writeTransport("vsock");
    EXPECT_EQ(config.currentEndpoints(vsock, gatewayIs("10.0.0.7")), vsock);
    writeTransport("tcp 8.8.8.8");
    EXPECT_EQ(config.currentEndpoints(vsock, gatewayIs("8.8.8.8")), vsock);
    writeTransport(std::string("tcp 10.0.0.7\xff", 13));
    EXPECT_EQ(config.currentEndpoints(vsock, gatewayIs("10.0.0.7")), vsock);

    // Only a default list that starts with vsock is replaced, and never in a simulation.
    writeTransport("tcp 10.0.0.7");
    auto gw = gatewayIs("10.0.0.7");
    EXPECT_EQ(config.currentEndpoints({}, gw), std::vector<SocketEndpoint>{});
    const std::vector<SocketEndpoint> unixOnly = {SocketEndpoint::unix("/s")};
    EXPECT_EQ(config.currentEndpoints(unixOnly, gw), unixOnly);
    auto sim = AgentConfig::simulation(AgentConfig::Mode::connect(unixOnly), base / "sim", true);
    sim.sharedDir = base / "share";
    EXPECT_EQ(sim.currentEndpoints(vsock, gw), vsock);

    // Whatever isn't a small regular file is no choice; a pipe must not block the round.
    const fs::path transport = base / "share" / ".tessel" / "transport";
    writeTransport("tcp 10.0.0.7" + std::string(100000, ' '));
    EXPECT_EQ(config.currentEndpoints(vsock, gw), vsock);
    fs::remove(transport);
    ASSERT_EQ(::mkfifo(transport.c_str(), 0600), 0);
    EXPECT_EQ(config.currentEndpoints(vsock, gw), vsock);
}
