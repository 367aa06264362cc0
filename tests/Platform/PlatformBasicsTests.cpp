// The ports' shared pieces: loosely typed values, pixel buffers, and the
// System port over this machine.
#include <gtest/gtest.h>

#include <cmath>

#include "Platform/Linux/LinuxSystem.h"
#include "Platform/PixelBuffer.h"
#include "Platform/PlatformValue.h"

using namespace tsl;

TEST(PlatformValue, TypedReadsOfLooseValues) {
    EXPECT_EQ(PlatformValue(3).asInteger(), 3);
    EXPECT_EQ(PlatformValue(3.0).asInteger(), 3);
    EXPECT_EQ(PlatformValue(3.5).asInteger(), std::nullopt);
    EXPECT_EQ(PlatformValue(1e300).asInteger(), std::nullopt);
    EXPECT_EQ(PlatformValue(NAN).asInteger(), std::nullopt);
    EXPECT_EQ(PlatformValue(true).asInteger(), std::nullopt);  // a flag is no number
    EXPECT_EQ(PlatformValue(true).asNumber(), std::nullopt);
    EXPECT_EQ(PlatformValue("7").asNumber(), std::nullopt);

    const PlatformValue bounds = dictionaryFromRect({1, 2, 3.5, 4});
    EXPECT_EQ(rectFromDictionary(bounds), (Rect{1, 2, 3.5, 4}));
    ValueDict partial = *bounds.asDict();
    partial.erase("Height");
    EXPECT_EQ(rectFromDictionary(PlatformValue(partial)), std::nullopt);
    partial["Height"] = "tall";
    EXPECT_EQ(rectFromDictionary(PlatformValue(partial)), std::nullopt);
    EXPECT_EQ(rectFromDictionary(PlatformValue(ValueList{})), std::nullopt);
    EXPECT_EQ(PlatformValue(ValueList{}).find("X"), nullptr);

    EXPECT_TRUE((Rect{0, 0, 10, 10}).contains({9.9, 0}));
    EXPECT_FALSE((Rect{0, 0, 10, 10}).contains({10, 5}));
}

TEST(PixelBuffer, MakeLockAndLimits) {
    auto buffer = PixelBuffer::make(1000, 3);
    ASSERT_TRUE(buffer);
    EXPECT_EQ(buffer->bytesPerRow(), 4032u);  // rows rounded up to 64 bytes
    EXPECT_TRUE(buffer->hasSharedSurface());
    EXPECT_EQ(buffer->baseAddress(), nullptr);  // nothing reachable unlocked
    {
        PixelBufferLock outer(*buffer, 0);
        PixelBufferLock inner(*buffer, PixelBuffer::lockReadOnly);
        ASSERT_NE(inner.base(), nullptr);
        EXPECT_EQ(inner.base()[4031 + 2 * 4032], 0);  // zero-filled to the last byte
    }
    EXPECT_EQ(buffer->baseAddress(), nullptr);
    EXPECT_EQ(buffer->unlockBaseAddress(0), PixelBuffer::statusInvalidArgument);

    auto plain = PixelBuffer::make(2, 2, {.sharedSurface = false, .bytesPerRow = 8});
    ASSERT_TRUE(plain);
    EXPECT_FALSE(plain->hasSharedSurface());
    EXPECT_EQ(plain->bytesPerRow(), 8u);
    EXPECT_FALSE(PixelBuffer::make(2, 2, {.bytesPerRow = 7}));
    EXPECT_FALSE(PixelBuffer::make(0, 2));
    EXPECT_FALSE(PixelBuffer::make(16385, 2));
    EXPECT_TRUE(PixelBuffer::make(16384, 1));
}

TEST(LinuxSystem, ChildProcessesAndSettings) {
    LinuxSystem system;
    const auto result = system.run("/bin/sh", {"-c", "echo out; echo err >&2; exit 3"});
    EXPECT_EQ(result.exitStatus, 3);
    EXPECT_EQ(std::string(result.standardOutput.begin(), result.standardOutput.end()), "out\n");
    EXPECT_EQ(system.run("/bin/sh", {"-c", "kill -9 $$"}).exitStatus, 128 + 9);
    EXPECT_THROW(system.run("/nonexistent/tool", {}), LaunchError);

    EXPECT_EQ(system.sysctlInteger("kern.hv_vmm_present"), std::nullopt);  // only the guest's system has it
    EXPECT_EQ(system.sysctlInteger("../etc/passwd"), std::nullopt);
    EXPECT_EQ(system.processIdentifier(), int32_t(::getpid()));
    EXPECT_FALSE(system.homeDirectory().empty());
}
