#pragma once
#include <cstdint>
#include <vector>

namespace tsl {
// The project's byte buffer.
using Bytes = std::vector<uint8_t>;
}  // namespace tsl
