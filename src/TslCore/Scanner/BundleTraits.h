#pragma once
#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tsl {

// What the compatibility assessment needs to know of a bundle beyond its
// slices. The inspection stays inside the bundle: a symbolic link can't make
// it read a file elsewhere, and its work is bounded however large the bundle.
struct BundleTraits {
    bool usesOpenGL = false;           // the executable or an embedded framework links OpenGL or AGL
    bool usesOpenCL = false;           // ... links OpenCL
    bool appStoreReceipt = false;      // Contents/_MASReceipt/receipt exists
    std::vector<std::string> drivers;  // names of driver bundles inside, sorted

    bool operator==(const BundleTraits&) const = default;

    static constexpr std::array<std::string_view, 3> driverExtensions{"kext", "dext", "systemextension"};

    // Whether `executable` can only name a file directly in Contents/MacOS:
    // no "/" and no leading ".". Nothing else is opened on a bundle's word.
    static bool isPlainExecutableName(std::string_view executable) {
        return executable.find('/') == std::string_view::npos && !executable.starts_with('.');
    }

    // Never fails: what can't be read contributes nothing.
    static BundleTraits inspect(const std::filesystem::path& bundleAt, const std::optional<std::string>& executable);
};

}  // namespace tsl
