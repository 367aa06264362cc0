#pragma once
#include <gtest/gtest.h>

#include <memory>

#include "Platform/X11/X11Desktop.h"
#include "Support/XDisplay.h"

namespace tsl::test {

// A desktop over a display of the test's own; the parameter says whether
// openbox manages it.
class X11DesktopTest : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        display = std::make_unique<XDisplay>(GetParam());
        ASSERT_TRUE(display->ready());
        desktop = X11::X11Desktop::open(display->name());
        platform = desktop->services({});
    }
    void TearDown() override {
        platform = {};
        desktop.reset();
        display.reset();
    }

    std::unique_ptr<XDisplay> display;
    std::shared_ptr<X11::X11Desktop> desktop;
    PlatformServices platform;
};

}  // namespace tsl::test
