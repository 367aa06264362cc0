#pragma once
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "Platform/Platform.h"
#include "TslCore/Wire/ControlRecords.h"

namespace tsl {

// An opt-in trace: while the marker file exists, the readable text of each
// new dialog-like window goes to a log file in the guest. It never touches
// the protocol; without the marker it costs one look for a file per window
// that could be a dialog. Text that a user may have typed is never read.
//
// Main actor: windowCreated runs inside the tracking tick and reads the
// window later in a task of its own.
namespace DialogTextLog {

constexpr double readDelay = 0.6;  // seconds, so that the window has its content
constexpr int deepestLevel = 7;
constexpr size_t textsBeforeSkipping = 40;
constexpr const char* nothingReadable = "(no text readable)";

// System services that put up windows for other processes.
const std::set<std::string>& services();
std::filesystem::path markerFile(const PlatformServices& platform);
std::filesystem::path logFile(const PlatformServices& platform);

// Called for each window the host is told was created; returns at once.
void windowCreated(const PlatformServices& platform, const GuestWindow& window);

// Static texts, then "[Title]" of buttons, depth first; text fields and text
// areas are neither read nor entered.
std::vector<std::string> collect(const PlatformServices& platform, const AXElement& element, int depth);

}  // namespace DialogTextLog
}  // namespace tsl
