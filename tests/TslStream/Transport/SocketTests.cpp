#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "Support/TempDir.h"
#include "TslStream/Transport/Socket.h"
#include "TslStream/Transport/SocketEndpoint.h"

using namespace tsl;
using tsl::test::TempDir;

TEST(SocketEndpoint, ParsesAndPrintsTheTextForms) {
    auto e = SocketEndpoint::parse("unix:/tmp/a:b");
    ASSERT_TRUE(e);
    EXPECT_EQ(e->get<SocketEndpoint::Unix>()->path, "/tmp/a:b");
    EXPECT_EQ(e->description(), "unix:/tmp/a:b");
    EXPECT_EQ(SocketEndpoint::parse("vsock:2:5000"), SocketEndpoint::vsock(2, 5000));
    EXPECT_EQ(SocketEndpoint::parse("tcp:10.0.0.1:+80"), SocketEndpoint::tcp("10.0.0.1", 80));
    EXPECT_EQ(SocketEndpoint::parse("tcp:localhost:65535")->description(), "tcp:localhost:65535");
    EXPECT_EQ(SocketEndpoint::vsock(4294967295u, 1).description(), "vsock:4294967295:1");
    for (const char* bad : {"", "unix:", "unix", "vsock:2", "vsock:2:5000:1", "tcp:10.0.0.1:70000", "tcp::5000",
                            "tcp:h:", "tcp:h:5x", "vsock:-1:2", "udp:a:1", ":::", "tcp:h:1:2"}) {
        EXPECT_FALSE(SocketEndpoint::parse(bad)) << bad;
    }
}

TEST(SocketListener, UnixPathLimitAndPrivateMode) {
    TempDir dir;
    std::string base = dir.path().string() + "/";
    std::string p103 = base + std::string(103 - base.size(), 'a');
    std::string p104 = base + std::string(104 - base.size(), 'b');
    mode_t before = ::umask(022);
    {
        SocketListener ok(SocketEndpoint::unix(p103));
        struct stat st{};
        ASSERT_EQ(::stat(p103.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 0777, 0600u);
        EXPECT_FALSE(ok.boundTCPPort());
    }
    EXPECT_NE(::access(p103.c_str(), F_OK), 0) << "discarding the listener removes its path";
    try {
        SocketListener refused(SocketEndpoint::unix(p104));
        ADD_FAILURE() << "104-byte path bound";
    } catch (const SocketError& e) {
        EXPECT_EQ(e.op(), "unix path too long");
        EXPECT_EQ(e.code(), ENAMETOOLONG);
    }
    EXPECT_EQ(::umask(before), 022) << "mask restored";
    EXPECT_THROW(connectSocket(SocketEndpoint::unix(p104)), SocketError);
}

TEST(SocketListener, StaleSocketIsReplacedAndCloseWakesAccept) {
    TempDir dir;
    auto endpoint = SocketEndpoint::unix((dir / "s").string());
    auto first = std::make_unique<SocketListener>(endpoint);
    SocketListener second(endpoint);  // unlinks the first one's file
    int c = connectSocket(endpoint);
    int a = second.accept();
    EXPECT_GE(a, 0);
    ::close(a);
    ::close(c);

    std::string thrownOp;
    std::thread t([&] {
        try {
            second.accept();
        } catch (const SocketError& e) {
            thrownOp = e.op();
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // let accept block; the result does not depend on it
    second.close();
    t.join();
    EXPECT_EQ(thrownOp, "accept");
    try {
        second.accept();
        ADD_FAILURE();
    } catch (const SocketError& e) {
        EXPECT_EQ(e.code(), EBADF);
    }
    second.close();  // twice is harmless
}

TEST(SocketListener, TcpOnLoopbackWithPortZero) {
    SocketListener l(SocketEndpoint::tcp("localhost", 0));
    auto port = l.boundTCPPort();
    ASSERT_TRUE(port);
    EXPECT_NE(*port, 0);
    int c = connectSocket(SocketEndpoint::tcp("127.0.0.1", *port));
    int a = l.accept();
    EXPECT_EQ(::write(c, "x", 1), 1);
    char ch = 0;
    EXPECT_EQ(::read(a, &ch, 1), 1);
    EXPECT_EQ(ch, 'x');
    ::close(a);
    ::close(c);
}

TEST(SocketErrors, OperationTextsAndCodes) {
    try {
        connectSocket(SocketEndpoint::tcp("example.com", 80));
        ADD_FAILURE();
    } catch (const SocketError& e) {
        EXPECT_EQ(e.op(), "bad IPv4 address example.com");
        EXPECT_EQ(e.code(), EINVAL);
        EXPECT_EQ(e.description(), "bad IPv4 address example.com failed: Invalid argument (22)");
    }
    TempDir dir;
    auto missing = SocketEndpoint::unix((dir / "none").string());
    try {
        connectSocket(missing);
        ADD_FAILURE();
    } catch (const SocketError& e) {
        EXPECT_EQ(e.op(), "connect(" + missing.description() + ")");
        EXPECT_EQ(e.code(), ENOENT);
    }
    try {
        SocketListener l(SocketEndpoint::unix((dir / "no/such/dir/s").string()));
        ADD_FAILURE();
    } catch (const SocketError& e) {
        EXPECT_EQ(e.op(), "bind/listen(unix:" + (dir / "no/such/dir/s").string() + ")");
    }
}
