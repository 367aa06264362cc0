// A host's view of a simulation run's applications, through the executable.
#include <gtest/gtest.h>

#include "Support/AgentTestSupport.h"
#include "Support/ChildProcess.h"
#include "Support/Errors.h"
#include "Support/Files.h"
#include "Support/TempDir.h"
#include "Support/TestPaths.h"
#include "TslStream/Agent/SampleApps.h"
#include "TslStream/Runtime/GlobalQueue.h"
#include "TslStream/Runtime/Task.h"

using namespace tsl;
using namespace tsl::test;

namespace {

// A real agent in a simulation root, and a host's control channel to it.
struct SimulatedAgent {
    explicit SimulatedAgent(const std::filesystem::path& root)
        : socket((root / "agent.sock").string()),
          agent(agentExecutable(), {"--listen", "unix:" + socket, "--sim-root", root.string()}) {
        if (!agent.waitForOutput("TesselAgent listening on unix:" + socket + "\n"))
            throw std::runtime_error("no agent: " + agent.standardError());
        channel =
            std::make_shared<ControlChannel>(std::make_shared<WireConnection>(SocketEndpoint::unix(socket), "test"));
        channel->start();
        request(ControlMessage::Hello{hostHello()});
    }
    ~SimulatedAgent() { channel->close(); }

    ControlMessage request(ControlMessage message) {
        return runBlocking(GlobalQueue::executor(), channel->request(std::move(message), 10), limit);
    }
    std::vector<GuestApp> list() { return request(ControlMessage::ListApps{}).get<ControlMessage::AppList>()->value; }

    std::string socket;
    ChildProcess agent;
    std::shared_ptr<ControlChannel> channel;
};

}  // namespace

TEST(SimulationApps, HostListsLaunchesAndQuitsTheSampleApplications) {
    auto root = TempDir::forSimulation();
    ASSERT_TRUE(placeSampleApps(root / "Applications"));  // as the host's simulated guest does
    SimulatedAgent guest(root.path());
    auto request = [&](ControlMessage message) { return guest.request(std::move(message)); };
    auto list = [&] { return guest.list(); };

    auto apps = list();
    ASSERT_EQ(apps.size(), 2u);
    EXPECT_EQ(apps[0].path, (root / "Applications" / "Tsl Scratchpad.app").string());
    EXPECT_EQ(apps[1].bundleID, "com.tessel.testpattern");
    EXPECT_EQ(apps[1].version, "1.0");

    auto launched = request(ControlMessage::LaunchApp{{.bundleID = "com.tessel.testpattern"}});
    const int32_t pid = launched.get<ControlMessage::Launched>()->value.pid;
    EXPECT_EQ(list()[1].pid, pid);
    EXPECT_EQ(request(ControlMessage::QuitApp{pid}), ControlMessage(ControlMessage::Ok{}));
    EXPECT_FALSE(list()[1].running);

    auto refused = thrownBy<ControlError>([&] { request(ControlMessage::QuitApp{1}); });
    EXPECT_EQ(refused.info().message, "forbidden: not a Tessel app: 1");
}

TEST(SimulationApps, TheAgentPutsNothingIntoTheApplicationsOfTheRootItIsGiven) {
    auto bare = TempDir::forSimulation();
    {
        SimulatedAgent guest(bare.path());
        EXPECT_TRUE(guest.list().empty());
    }
    EXPECT_FALSE(std::filesystem::exists(bare / "Applications"));

    auto own = TempDir::forSimulation();
    const auto bundle = own / "Applications" / "Pattern.app";
    writeFile(bundle / "Contents" / "Info.plist",
              "<plist><dict><key>CFBundleIdentifier</key><string>com.tessel.testpattern</string>"
              "<key>CFBundlePackageType</key><string>APPL</string></dict></plist>");
    SimulatedAgent guest(own.path());
    const auto apps = guest.list();
    ASSERT_EQ(apps.size(), 1u) << "listed once, as it was put there";
    EXPECT_EQ(apps[0].path, bundle.string());
}
