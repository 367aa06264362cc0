#pragma once
#include <cstdint>
#include <filesystem>
#include <string>

#include "Platform/PixelBuffer.h"
#include "Support/Files.h"

namespace tsl::test {

// A bundle folder that AppBundleInfo reads: an XML Info.plist and nothing else.
inline std::filesystem::path makeBundle(const std::filesystem::path& dir, const std::string& name,
                                        const std::string& bundleID) {
    const auto bundle = dir / (name + ".app");
    writeFile(bundle / "Contents" / "Info.plist",
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
              "<key>CFBundleIdentifier</key><string>" + bundleID + "</string>"
              "<key>CFBundleName</key><string>" + name + "</string>"
              "</dict></plist>\n");
    return bundle;
}

// The BGRA pixel at (x, y) as 0xAARRGGBB.
inline uint32_t pixelAt(PixelBuffer& buffer, int64_t x, int64_t y) {
    PixelBufferLock locked(buffer, PixelBuffer::lockReadOnly);
    const uint8_t* p = locked.base() + size_t(y) * buffer.bytesPerRow() + size_t(x) * 4;
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

}  // namespace tsl::test
