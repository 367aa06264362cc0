#include <gtest/gtest.h>

#include "Support/ChildProcess.h"
#include "Support/TempDir.h"
#include "TslStream/Transport/WireConnection.h"
#include "TslStream/Transport/Socket.h"

using namespace tsl;
using tsl::test::ChildProcess;
using tsl::test::TempDir;

TEST(TesselAgentEntry, RefusedCommandLinesExitWithStatusTwo) {
    struct Case {
        std::vector<std::string> args;
        std::string line;
    };
    std::vector<Case> cases{
        {{}, "TesselAgent: one of --vsock, --connect unix:<path>, --listen unix:<path> is required\n"},
        {{"--vsock", "--sim-root", "/x"}, "TesselAgent: --sim-root is for Simulation, not --vsock\n"},
        {{"--connect", "--sim-root", "/x"}, "TesselAgent: --connect needs a value\n"},
        {{"--listen", "unix:/a", "--sim-root", "/tmp/x"}, "TesselAgent: refusing to run: /tmp/x/Applications is in a world-writable location\n"},
        {{"--bogus"}, "TesselAgent: unknown argument --bogus\n"},
    };
    for (auto& c : cases) {
        ChildProcess agent(TSL_AGENT_EXE, c.args);
        EXPECT_EQ(agent.wait(), 2);
        EXPECT_EQ(agent.standardError(), c.line);
        EXPECT_EQ(agent.standardOutput(), "");
    }
}

TEST(TesselAgentEntry, ListeningSimulationAnswersPingWithPong) {
    TempDir root(TSL_BINARY_DIR);
    std::string socket = (root / "agent.sock").string();
    ChildProcess agent(TSL_AGENT_EXE, {"--listen", "unix:" + socket, "--sim-root", root.path().string()});
    ASSERT_TRUE(agent.waitForOutput("TesselAgent listening on unix:" + socket + "\n")) << agent.standardError();

    auto connection = std::make_shared<WireConnection>(SocketEndpoint::unix(socket), "test");
    std::mutex m;
    std::condition_variable cv;
    std::optional<uint64_t> pong;
    connection->start(
        [&](WireMessage msg) {
            if (auto p = msg.get<WireMessage::Pong>()) {
                std::lock_guard g(m);
                pong = p->value;
                cv.notify_all();
            }
        },
        nullptr);
    connection->send(WireMessage::ping(0xFEEDFACECAFEBEEFull));
    std::unique_lock g(m);
    ASSERT_TRUE(cv.wait_for(g, std::chrono::seconds(10), [&] { return pong.has_value(); }));
    EXPECT_EQ(*pong, 0xFEEDFACECAFEBEEFull);
    g.unlock();
    connection->close();
}
