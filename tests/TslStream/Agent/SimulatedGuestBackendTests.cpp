#include <gtest/gtest.h>

#include <fstream>

#include "Support/Errors.h"
#include "Support/TempDir.h"
#include "Support/TestPaths.h"
#include "TslStream/Agent/SimulatedGuestBackend.h"
#include "TslStream/Runtime/GlobalQueue.h"

namespace tsl::test {
namespace {

constexpr auto backendLimit = std::chrono::seconds(30);

template <class T>
T runOnBackend(asio::awaitable<T> task) {
    return runBlocking(GlobalQueue::executor(), std::move(task), backendLimit);
}

bool waitUntil(const std::function<bool()>& condition) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

class SimulatedGuestBackendTest : public ::testing::Test {
protected:
    TempDir dir = TempDir::forSimulation();
    SimulatedGuestBackend backend{dir / "guest", agentExecutable()};
    std::vector<std::string> progress;
    GuestBackend::Progress record = [this](const std::string& text) { progress.push_back(text); };

    void TearDown() override { runOnBackend(backend.stop()); }
};

TEST_F(SimulatedGuestBackendTest, StartsOneAgentThatAnswersOverTheLinkAndStopsIt) {
    EXPECT_FALSE(backend.isRunning());
    auto link = runOnBackend(backend.start(record));
    ASSERT_TRUE(link);
    EXPECT_TRUE(link->isLive());
    EXPECT_TRUE(backend.isRunning());
    EXPECT_EQ(progress, (std::vector<std::string>{"Starting the simulated virtual Mac…", "The virtual Mac is ready."}));
    EXPECT_TRUE(std::filesystem::is_directory(dir / "guest" / "Applications"));
    EXPECT_TRUE(std::filesystem::is_directory(dir / "guest" / "Shared"));
    EXPECT_EQ(link->agentHello.role, Hello::Role::agent);

    // The agent's three channels all arrive over the one socket.
    ASSERT_TRUE(waitUntil([&] { return link->videoChannel() && link->inputChannel(); }));
    auto reply = runOnBackend(link->control->request(ControlMessage::Status{}, 10));
    ASSERT_TRUE(reply.get<ControlMessage::Status>());

    // Started again while it lives: the same link, no second child, no progress.
    progress.clear();
    EXPECT_EQ(runOnBackend(backend.start(record)), link);
    EXPECT_TRUE(progress.empty());

    runOnBackend(backend.stop());
    EXPECT_FALSE(backend.isRunning());
    EXPECT_FALSE(link->isLive());
    EXPECT_FALSE(std::filesystem::exists(backend.socketPath));
}

TEST_F(SimulatedGuestBackendTest, AnAgentThatHasExitedIsReplacedOnTheNextStart) {
    auto first = runOnBackend(backend.start(nullptr));
    first->close();  // a simulated agent exits when its host goes
    ASSERT_TRUE(waitUntil([&] { return !backend.isRunning(); }));
    auto second = runOnBackend(backend.start(nullptr));
    EXPECT_NE(second, first);
    EXPECT_TRUE(second->isLive());
    EXPECT_TRUE(backend.isRunning());
}

TEST_F(SimulatedGuestBackendTest, AMissingAgentIsReportedWithItsPath) {
    SimulatedGuestBackend missing(dir / "guest", dir / "no-agent");
    auto error = thrownBy<BackendError>([&] { runOnBackend(missing.start(nullptr)); });
    EXPECT_EQ(error.kind(), BackendError::Kind::agentMissing);
    EXPECT_EQ(error.description(), "Tessel’s agent is missing (" + (dir / "no-agent").string() +
                                       "). Download Tessel again from tessel.app.");
    // A file that isn't executable is missing as well.
    std::ofstream(dir / "plain") << "#!/bin/sh\n";
    SimulatedGuestBackend plain(dir / "guest", dir / "plain");
    EXPECT_EQ(thrownBy<BackendError>([&] { runOnBackend(plain.start(nullptr)); }).kind(),
              BackendError::Kind::agentMissing);
    EXPECT_FALSE(missing.isRunning());
}

TEST_F(SimulatedGuestBackendTest, SharedEntriesStartWithTheProductsOwnAndMapPathsAsTheHostSeesThem) {
    std::filesystem::create_directories(dir / "guest" / "Shared" / "Docs");
    std::filesystem::create_directories(dir / "Mine");
    std::filesystem::create_symlink(dir / "guest" / "Shared", dir / "link");
    auto shared = std::filesystem::canonical(dir / "guest" / "Shared").string();
    auto mine = std::filesystem::canonical(dir / "Mine").string();

    EXPECT_EQ(backend.sharedEntries(), (std::vector<SharedFolder>{{"Tessel", shared}}));
    backend.setUserFolders({{"Mine", mine}});
    EXPECT_EQ(backend.sharedEntries(), (std::vector<SharedFolder>{{"Tessel", shared}, {"Mine", mine}}));

    EXPECT_EQ(backend.guestPath(dir / "link" / "Docs" / "a.txt"), shared + "/Docs/a.txt");
    EXPECT_EQ(backend.guestPath(dir / "Mine" / "b.txt"), mine + "/b.txt");
    EXPECT_EQ(backend.guestPath(dir / "Elsewhere" / "c.txt"), std::nullopt);
    // A sibling whose name begins with the folder's name is outside it.
    EXPECT_EQ(backend.guestPath(dir / "Mine2" / "d.txt"), std::nullopt);
    EXPECT_EQ(backend.displayName(), "Simulation");
    EXPECT_TRUE(backend.isSimulation());
}

TEST(SimulatedGuestBackend, EachInstanceHasASocketOfItsOwnInTheTemporaryFolder) {
    SimulatedGuestBackend a("/nonexistent/a", "/nonexistent/agent"), b("/nonexistent/b", "/nonexistent/agent");
    EXPECT_NE(a.socketPath, b.socketPath);
    auto name = std::filesystem::path(a.socketPath).filename().string();
    EXPECT_TRUE(name.starts_with("tslsim-" + std::to_string(::getpid()) + "-")) << name;
    EXPECT_TRUE(name.ends_with(".sock")) << name;
    EXPECT_EQ(SimulatedGuestBackend::defaultRoot("/home/u"), "/home/u/Library/Application Support/Tessel-dev/sim-guest");
}

}  // namespace
}  // namespace tsl::test
