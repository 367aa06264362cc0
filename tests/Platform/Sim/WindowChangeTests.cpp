// Changes windows go through on their own on the simulated desktop: titles,
// ordering out and in, and the capture indicator over captured windows.
#include <gtest/gtest.h>

#include "Platform/Sim/Desktop.h"

using namespace tsl;
using namespace tsl::Sim;

namespace {

std::vector<uint32_t> listed(WindowServer& server, uint32_t options, uint32_t relativeTo = 0) {
    std::vector<uint32_t> out;
    const std::optional<PlatformValue> list = server.copyWindowInfo(options, relativeTo);
    for (auto& entry : *list->asList())
        out.push_back(uint32_t(*entry.find(WindowServer::keyNumber)->asInteger()));
    return out;
}

}  // namespace

TEST(SimWindowChanges, TitlesAndOrderingOutAndIn) {
    auto desktop = Desktop::make();
    auto services = desktop->services();
    const int32_t pid = desktop->addProcess({.name = "App"});
    const uint32_t a = desktop->addWindow(pid, {.title = "One"});
    const uint32_t b = desktop->addWindow(pid, {.title = "Two"});
    desktop->setTitle(a, "Renamed");
    EXPECT_EQ(desktop->window(a)->title, "Renamed");

    desktop->setShown(b, false);
    EXPECT_FALSE(desktop->window(b)->isOnScreen);
    EXPECT_EQ(listed(*services.windowServer, WindowServer::optionOnScreenOnly), (std::vector<uint32_t>{a}));
    // Ordered back in, it comes to the front.
    desktop->raise(a);
    desktop->setShown(b, true);
    EXPECT_EQ(listed(*services.windowServer, WindowServer::optionOnScreenOnly), (std::vector<uint32_t>{b, a}));
    desktop->setTitle(999, "nobody");  // no such window: nothing happens
}

TEST(SimWindowChanges, CapturedWindowsCarryAnIndicatorWhileAnyStreamRuns) {
    auto desktop = Desktop::make(Desktop::Options{.manualCapture = true});
    auto services = desktop->services();
    const int32_t pid = desktop->addProcess({.name = "App"});
    const uint32_t w = desktop->addWindow(pid, {.frame = {100, 100, 640, 400}});
    auto start = [&] {
        auto stream = services.screenCapture->makeStream(services.screenCapture->filter({.windowID = w}),
                                                         {.width = 64, .height = 40}, nullptr);
        stream->startCapture([](std::exception_ptr) {});
        return stream;
    };
    auto first = start();
    auto second = start();
    const auto indicator = desktop->captureIndicator(w);
    ASSERT_TRUE(indicator);
    auto& server = *services.windowServer;
    EXPECT_EQ(listed(server, WindowServer::optionOnScreenOnly), (std::vector<uint32_t>{*indicator, w}));
    EXPECT_EQ(listed(server, WindowServer::optionIncludingWindow, *indicator), (std::vector<uint32_t>{*indicator}));
    const auto answer = server.copyWindowInfo(WindowServer::optionIncludingWindow, *indicator);
    const PlatformValue entry = answer->asList()->at(0);
    EXPECT_EQ(entry.find(WindowServer::keyOwnerPID)->asInteger(), pid);
    Rect bounds = *rectFromDictionary(*entry.find(WindowServer::keyBounds));
    EXPECT_LE(bounds.width, 100);
    EXPECT_LE(bounds.y + bounds.height, 140);

    // Off screen with its window, and gone when the last stream stops.
    desktop->setMinimized(w, true);
    EXPECT_TRUE(listed(server, WindowServer::optionOnScreenOnly).empty());
    EXPECT_EQ(listed(server, WindowServer::optionAll), (std::vector<uint32_t>{*indicator, w}));
    desktop->setMinimized(w, false);
    first->stopCapture([](std::exception_ptr) {});
    EXPECT_EQ(desktop->captureIndicator(w), indicator);
    second.reset();
    EXPECT_FALSE(desktop->captureIndicator(w));
    EXPECT_EQ(listed(server, WindowServer::optionAll), (std::vector<uint32_t>{w}));
}
