#include "TslCore/Support/ByteSpan.h"

namespace tsl::ByteSpan {

std::optional<uint64_t> uintAt(std::span<const uint8_t> bytes, uint64_t offset, size_t width, Endian endian) {
    if (width < 1 || width > 8) return std::nullopt;
    const auto field = sliceAt(bytes, offset, width);
    if (!field) return std::nullopt;
    uint64_t value = 0;
    for (size_t i = 0; i < width; ++i) {
        const uint64_t b = (*field)[i];
        value |= endian == Endian::big ? b << (8 * (width - 1 - i)) : b << (8 * i);
    }
    return value;
}

std::optional<std::span<const uint8_t>> sliceAt(std::span<const uint8_t> bytes, uint64_t offset, uint64_t length) {
    if (offset > bytes.size() || bytes.size() - offset < length) return std::nullopt;
    return bytes.subspan(size_t(offset), size_t(length));
}

}  // namespace tsl::ByteSpan
