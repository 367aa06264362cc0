#pragma once
#include <cstddef>
#include <cstdint>
#include <span>

namespace tsl::PlistDepth {

// The property list parser recurses once per level of nesting, so a deep
// enough file exhausts the stack. No real Info.plist comes near this.
inline constexpr size_t limit = 256;

// Whether the property list (XML or binary) nests its arrays and dictionaries
// no deeper than `maxDepth`, found by a scan that does not recurse. Errs on
// the safe side: a binary list with a cycle, a reference out of bounds or
// shared members that would expand past a million nodes, and XML that opens
// containers without closing them, count as too deep.
bool within(std::span<const uint8_t> data, size_t maxDepth = limit);

}  // namespace tsl::PlistDepth
