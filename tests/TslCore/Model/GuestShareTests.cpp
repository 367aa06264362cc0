#include <gtest/gtest.h>

#include "TslCore/Model/GuestShare.h"
#include "TslCore/Model/SharedFolderConstants.h"

using namespace tsl;

TEST(GuestShare, TransportChoiceNamesAPrivateTcpHost) {
    struct Case {
        std::string text;
        std::optional<std::string> host;
    };
    const std::vector<Case> cases = {
        {"tcp 192.168.64.1", "192.168.64.1"},
        {"  tcp\t\t10.0.0.1\n", "10.0.0.1"},
        {"\r\ntcp\n172.16.0.1\r\n", "172.16.0.1"},
        {"tcp 172.31.255.255", "172.31.255.255"},
        {"tcp 010.000.0.1", "010.000.0.1"},          // handed on exactly as written
        {"tcp\u00A010.0.0.1\u2028", "10.0.0.1"},      // Unicode spaces separate too
        {"tcp\u200B10.0.0.1", std::nullopt},          // a zero-width space is no space
        {"tcp 8.8.8.8", std::nullopt},
        {"tcp 172.32.0.1", std::nullopt},
        {"tcp 172.15.0.1", std::nullopt},
        {"tcp 192.169.0.1", std::nullopt},
        {"tcp 127.0.0.1", std::nullopt},
        {"tcp 10.0.0.1.5", std::nullopt},
        {"tcp 10.0.0.256", std::nullopt},
        {"tcp 10.0.0", std::nullopt},
        {"tcp 10.0.0.1.", std::nullopt},
        {"tcp 10..0.1", std::nullopt},
        {"tcp 10.0.0.x", std::nullopt},
        {"TCP 10.0.0.1", std::nullopt},
        {"udp 10.0.0.1", std::nullopt},
        {"tcp", std::nullopt},
        {"10.0.0.1", std::nullopt},
        {"tcp 10.0.0.1 5000", std::nullopt},
        {"tcp:10.0.0.1", std::nullopt},
        {"", std::nullopt},
        {std::string("tcp 10.0.0.1\0", 13), std::nullopt},
        {"tcp 10.0.0.1 \xC0\xA0", std::nullopt},  // not UTF-8
    };
    for (const auto& c : cases) {
        EXPECT_EQ(GuestShare::tcpHostFromTransportChoice(c.text), c.host) << c.text;
    }
}

TEST(GuestShare, Constants) {
    EXPECT_EQ(GuestShare::transportChoiceRelativePath, ".tessel/transport");
    EXPECT_EQ(SharedFolders::guestMountPoint, "/Volumes/My Shared Files");
    EXPECT_EQ(SharedFolders::tesselEntryName, "Tessel");
}
