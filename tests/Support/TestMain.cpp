#include <gtest/gtest.h>
#include <csignal>

int main(int argc, char** argv) {
    // Writes to a dead peer must fail with EPIPE, never kill the test program.
    std::signal(SIGPIPE, SIG_IGN);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
