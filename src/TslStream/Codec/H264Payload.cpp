#include "TslStream/Codec/H264Payload.h"

#include <string>

#include "TslCore/Wire/WireError.h"

namespace tsl {
namespace {

bool fits(const Bytes& set) { return set.size() <= H264Payload::maxParameterSetSize; }

template <class Each>
void forWritten(const std::vector<Bytes>& sets, Each each) {
    const size_t considered = std::min(sets.size(), H264Payload::maxParameterSets);
    for (size_t i = 0; i < considered; ++i)
        if (fits(sets[i])) each(sets[i]);
}

}  // namespace

bool H264Payload::writesParameterSets(const std::vector<Bytes>& parameterSets) {
    bool any = false;
    forWritten(parameterSets, [&](const Bytes&) { any = true; });
    return any;
}

Bytes H264Payload::encode(const std::vector<Bytes>& parameterSets, std::span<const uint8_t> avcc) {
    size_t count = 0, size = avcc.size();
    forWritten(parameterSets, [&](const Bytes& set) {
        ++count;
        size += 2 + set.size();
    });
    Bytes out;
    out.reserve(size + 1);
    if (count > 0) {
        out.push_back(uint8_t(count));
        forWritten(parameterSets, [&](const Bytes& set) {
            out.push_back(uint8_t(set.size()));
            out.push_back(uint8_t(set.size() >> 8));
            out.insert(out.end(), set.begin(), set.end());
        });
    }
    out.insert(out.end(), avcc.begin(), avcc.end());
    return out;
}

Bytes H264Payload::encoded() const { return encode(parameterSets, avcc); }

H264Payload H264Payload::decode(std::span<const uint8_t> payload, bool hasParameterSets) {
    H264Payload result;
    size_t offset = 0;
    auto need = [&](size_t n) {
        if (payload.size() - offset < n) throw WireError::truncated();
    };
    if (hasParameterSets) {
        need(1);
        const uint8_t count = payload[offset++];
        if (count < 1 || count > maxParameterSets)
            throw WireError::malformedPayload("h264 parameter set count " + std::to_string(count));
        for (uint8_t i = 0; i < count; ++i) {
            need(2);
            const size_t length = size_t(payload[offset]) | size_t(payload[offset + 1]) << 8;
            offset += 2;
            if (length == 0) throw WireError::malformedPayload("empty parameter set");
            need(length);
            result.parameterSets.emplace_back(payload.begin() + offset, payload.begin() + offset + length);
            offset += length;
        }
    }
    auto unit = payload.subspan(offset);
    validateAVCC(unit);
    result.avcc.assign(unit.begin(), unit.end());
    return result;
}

void H264Payload::validateAVCC(std::span<const uint8_t> avcc) {
    if (avcc.empty()) throw WireError::malformedPayload("empty access unit");
    size_t offset = 0;
    while (offset < avcc.size()) {
        const size_t left = avcc.size() - offset;
        if (left < 4) throw WireError::malformedPayload("truncated NAL length");
        const uint32_t length = uint32_t(avcc[offset]) << 24 | uint32_t(avcc[offset + 1]) << 16 |
                                uint32_t(avcc[offset + 2]) << 8 | uint32_t(avcc[offset + 3]);
        if (length == 0 || length > left - 4)
            throw WireError::malformedPayload("NAL length " + std::to_string(length) + " out of range");
        offset += 4 + length;
    }
}

}  // namespace tsl
