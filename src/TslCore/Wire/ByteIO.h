#pragma once
#include <cstddef>
#include <cstdint>
#include <span>

#include "TslCore/Support/ByteSpan.h"
#include "TslCore/Support/Bytes.h"

namespace tsl {

// Appends little-endian values, whatever the processor.
struct ByteWriter {
    Bytes data;

    ByteWriter() = default;
    explicit ByteWriter(size_t capacity) { data.reserve(capacity); }

    void u8(uint8_t v) { data.push_back(v); }
    void u16(uint16_t v) { put(v, 2); }
    void u32(uint32_t v) { put(v, 4); }
    void u64(uint64_t v) { put(v, 8); }
    void f32(float v);
    void bytes(std::span<const uint8_t> b) { data.insert(data.end(), b.begin(), b.end()); }
    void zeros(size_t count) { data.resize(data.size() + count, 0); }

private:
    void put(uint64_t v, int width) {
        for (int i = 0; i < width; ++i) data.push_back(uint8_t(v >> (8 * i)));
    }
};

// Reads little-endian values byte by byte, so no alignment is needed. Every
// read goes through one bounds check; a short read throws WireError::truncated
// and leaves the offset where it was.
struct ByteReader {
    Bytes bytes;
    int64_t offset = 0;

    ByteReader() = default;
    explicit ByteReader(Bytes b) : bytes(std::move(b)) {}
    explicit ByteReader(std::span<const uint8_t> b) : bytes(b.begin(), b.end()) {}

    int64_t remaining() const { return int64_t(bytes.size()) - offset; }

    uint8_t u8() { return uint8_t(get(1)); }
    uint16_t u16() { return uint16_t(get(2)); }
    uint32_t u32() { return uint32_t(get(4)); }
    uint64_t u64() { return get(8); }
    float f32();
    void skip(int64_t n) { take(n); }
    Bytes data(int64_t n);
    Bytes rest() const { return Bytes(bytes.begin() + offset, bytes.end()); }

private:
    const uint8_t* take(int64_t n);
    uint64_t get(int width) {
        const int64_t at = offset;
        take(width);
        return *ByteSpan::uintAt(bytes, uint64_t(at), size_t(width), Endian::little);
    }
};

}  // namespace tsl
