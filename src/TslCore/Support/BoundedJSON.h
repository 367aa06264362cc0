#pragma once
#include <cstddef>
#include <cstdint>

#include "TslCore/Support/JSONFields.h"

namespace tsl::JSONFields {

// Parses as the library's own parser does, but refuses nesting past
// maxDepth as it is met, skipped values included, and never builds a value
// under a key outside `known`. Without both a 4 MiB document could cost forty
// times its size: every '[' becomes a value of its own. Throws DecodeError,
// with the library's text for a syntax error.
json parseBounded(const uint8_t* data, size_t size, const KeySet& known);

}  // namespace tsl::JSONFields
