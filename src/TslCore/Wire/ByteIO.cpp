#include "TslCore/Wire/ByteIO.h"

#include <bit>

#include "TslCore/Wire/WireError.h"

namespace tsl {

void ByteWriter::f32(float v) { u32(std::bit_cast<uint32_t>(v)); }

float ByteReader::f32() { return std::bit_cast<float>(u32()); }

Bytes ByteReader::data(int64_t n) {
    const uint8_t* p = take(n);
    return Bytes(p, p + n);
}

const uint8_t* ByteReader::take(int64_t n) {
    if (n < 0 || n > remaining()) throw WireError::truncated();
    const uint8_t* p = bytes.data() + offset;
    offset += n;
    return p;
}

}  // namespace tsl
