#pragma once
#include <asio/awaitable.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Platform.h"
#include "TslCore/Wire/ControlRecords.h"

namespace tsl {

// Reads an application's menu bar through Accessibility into the tree the
// host shows, and presses an item named by its path in that tree.
//
// A path's first entry indexes the bar's children; each further entry
// indexes the items of the submenu below, so one entry stands for two levels
// of the Accessibility tree (an item, then its one menu). Nothing throws: an
// unreadable tree is an empty list, a bad path nothing or false.
//
// Runs on the caller's thread (the main actor in the agent); no state.
namespace MenuReader {

constexpr int maxDepth = 4;
constexpr int maxItems = 2000;  // nodes per read, spent depth first across the bar

// The whole bar; with `assumeEnabled` every node is enabled without asking
// (items of a closed menu may report themselves disabled).
std::vector<MenuNode> menuBar(const PlatformServices& platform, int32_t pid, bool assumeEnabled);

// Modifier glyphs (control, option, shift, command) before the character.
// `axModifiers` are the menu-item bits: 1 shift, 2 option, 4 control, 8 no command.
std::string shortcutString(const std::string& cmd, int64_t axModifiers);

std::optional<AXElement> item(const PlatformServices& platform, int32_t pid, const std::vector<int64_t>& path);

// Presses the item as it stands; true only if it was found and pressed.
bool press(const PlatformServices& platform, int32_t pid, const std::vector<int64_t>& path);

// Presses the item once it is enabled, or at `timeout` all the same. An item
// disabled while its menu is closed gets the menu opened for a moment first.
// Main actor: suspends between looks.
asio::awaitable<bool> pressWhenEnabled(PlatformServices platform, int32_t pid, std::vector<int64_t> path,
                                       double timeout);

}  // namespace MenuReader
}  // namespace tsl
