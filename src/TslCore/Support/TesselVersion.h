#pragma once
#include <string_view>

namespace tsl {

// Version constants of this build, reported in both sides' hellos.
struct TesselVersion {
    static constexpr std::string_view string = "0.9.0-beta.6";
    static constexpr std::string_view build = "2026.10.7";
#if defined(__aarch64__)
    static constexpr std::string_view arch = "arm64";
#elif defined(__x86_64__)
    static constexpr std::string_view arch = "x86_64";
#else
    static constexpr std::string_view arch = "unknown";
#endif
};

}  // namespace tsl
