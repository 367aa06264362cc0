#pragma once
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace tsl {

enum class Endian : uint8_t { little, big };

// Bounds-checked reads of binary formats, whatever the processor's byte
// order: a field that does not lie wholly inside the bytes reads as nothing.
// The one reader under Mach-O, the binary property list check and the wire.
namespace ByteSpan {

// An unsigned field of 1 to 8 bytes at `offset`.
std::optional<uint64_t> uintAt(std::span<const uint8_t> bytes, uint64_t offset, size_t width, Endian endian);

// `length` bytes at `offset`.
std::optional<std::span<const uint8_t>> sliceAt(std::span<const uint8_t> bytes, uint64_t offset, uint64_t length);

}  // namespace ByteSpan
}  // namespace tsl
