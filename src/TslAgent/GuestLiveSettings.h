#pragma once
#include <chrono>
#include <optional>
#include <string>

#include "Platform/Preferences.h"
#include "Platform/System.h"

namespace tsl {

// Facts of the guest that may have changed since the guest tools wrote their
// report; read afresh for each status request. Never throws, never logs.
namespace GuestLiveSettings {

inline constexpr const char* loginWindowDomain = "com.apple.loginwindow";
inline constexpr const char* fdesetupPath = "/usr/bin/fdesetup";
inline constexpr std::chrono::seconds fileVaultCacheLife{10};

// The user logged in automatically: the login window's preference for any
// user on this host, else on any host. A missing, non-text or empty value
// gives nothing.
std::optional<std::string> autoLoginUser(Preferences& preferences);

// Whether FileVault is on, by "fdesetup status"; nothing when that can't be
// told. One answer, including nothing, serves every caller for 10 seconds
// from when it came (`now` is the time of the call). Blocks for as long as
// the tool runs; the cache's lock is not held meanwhile, so two callers at
// once may both run it, and the later answer stays.
std::optional<bool> fileVaultOn(System& system,
                                std::chrono::system_clock::time_point now = std::chrono::system_clock::now());

// The answer in the tool's output: "FileVault is On" before "FileVault is Off".
std::optional<bool> parseFileVaultStatus(std::string_view output);

}  // namespace GuestLiveSettings

}  // namespace tsl
