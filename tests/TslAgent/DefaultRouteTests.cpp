// The gateway look-up through the System port, on the simulated desktop.
#include <gtest/gtest.h>

#include "Platform/Sim/Desktop.h"
#include "TslAgent/DefaultRoute.h"

using namespace tsl;

TEST(DefaultRoute, GatewayFromRouteOutput) {
    const std::string output =
        "   route to: default\n"
        "destination: default\n"
        "       mask: default\n"
        "    gateway: 192.168.64.1\n"
        "  interface: en0\n"
        "      flags: <UP,GATEWAY,DONE,STATIC,PRCLONING,GLOBAL>\n"
        " recvpipe  sendpipe  ssthresh  rtt,msec    rttvar  hopcount      mtu     expire\n"
        "       0         0         0         0         0         0      1500         0\n";
    EXPECT_EQ(DefaultRoute::gatewayFromRouteOutput(output), "192.168.64.1");
    EXPECT_EQ(DefaultRoute::gatewayFromRouteOutput("\tgateway\t:\t10.0.0.1 \t"), "10.0.0.1");
    EXPECT_EQ(DefaultRoute::gatewayFromRouteOutput("gateway: fe80::1%en0\n"), "fe80::1%en0");
    EXPECT_EQ(DefaultRoute::gatewayFromRouteOutput("gateway: 10.0.0.1\ngateway: 10.0.0.2\n"), "10.0.0.1");
    EXPECT_EQ(DefaultRoute::gatewayFromRouteOutput("gateway:\ngateway: 10.0.0.2"), "10.0.0.2");
    for (const char* text :
         {"", "\n\n", "route to: default\n", "gateways: 10.0.0.1", "gate way: 10.0.0.1", "gateway 10.0.0.1"}) {
        EXPECT_EQ(DefaultRoute::gatewayFromRouteOutput(text), std::nullopt) << text;
    }
}

TEST(DefaultRoute, AsksTheRouteToolThroughTheSystemPort) {
    auto desktop = Sim::Desktop::make();
    auto system = desktop->services().system;
    EXPECT_EQ(DefaultRoute::gateway(*system), std::nullopt) << "no route tool: no gateway";

    std::vector<std::string> asked;
    desktop->scriptChild("/sbin/route", [&asked](const std::vector<std::string>& args) {
        asked = args;
        const std::string text = "    gateway: 192.168.64.1\n";
        return System::ChildResult{0, Bytes(text.begin(), text.end())};
    });
    EXPECT_EQ(DefaultRoute::gateway(*system), "192.168.64.1");
    EXPECT_EQ(asked, (std::vector<std::string>{"-n", "get", "default"}));
}
