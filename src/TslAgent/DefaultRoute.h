#pragma once
#include <optional>
#include <string>
#include <string_view>

namespace tsl {

class System;

// The guest's default gateway, as its route tool tells it.
namespace DefaultRoute {

// Runs "route -n get default" through the System port; nothing when it
// can't be run or names no gateway. Blocks for the child.
std::optional<std::string> gateway(System& system);

// The value of the first "gateway:" line with one.
std::optional<std::string> gatewayFromRouteOutput(std::string_view output);

}  // namespace DefaultRoute
}  // namespace tsl
