#pragma once
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "TslCore/Support/Bytes.h"

namespace tsl::Base64 {

// Standard alphabet with padding.
std::string encode(const uint8_t* data, size_t size);
inline std::string encode(const Bytes& bytes) { return encode(bytes.data(), bytes.size()); }

// Strict: a length that is a multiple of four, the standard alphabet, padding
// only at the end, no whitespace, zero bits below the last byte (so each
// byte string has one text). Nothing when the text is not Base64.
std::optional<Bytes> decode(std::string_view text);

}  // namespace tsl::Base64
