#include "TslCore/Wire/WireError.h"

#include <cstdio>

namespace tsl {
namespace {

std::string describeWireError(WireError::Kind kind, uint32_t value, uint32_t length, const std::string& text) {
    char buf[96];
    switch (kind) {
        case WireError::Kind::badMagic:
            std::snprintf(buf, sizeof buf, "badMagic(0x%08X)", value);
            return buf;
        case WireError::Kind::unsupportedVersion: return "unsupportedVersion(" + std::to_string(value) + ")";
        case WireError::Kind::unknownType: return "unknownType(" + std::to_string(value) + ")";
        case WireError::Kind::payloadTooLarge:
            return "payloadTooLarge(type: " + std::to_string(value) + ", length: " + std::to_string(length) + ")";
        case WireError::Kind::malformedPayload: return "malformedPayload(" + text + ")";
        case WireError::Kind::truncated: return "truncated";
        case WireError::Kind::decoderPoisoned: return "decoderPoisoned";
    }
    return "wire error";
}

}  // namespace

WireError::WireError(Kind kind, uint32_t value, uint32_t length, std::string text)
    : Error(describeWireError(kind, value, length, text)),
      _kind(kind),
      _value(value),
      _length(length),
      _text(std::move(text)) {}

WireError WireError::badMagic(uint32_t v) { return {Kind::badMagic, v, 0, {}}; }
WireError WireError::unsupportedVersion(uint8_t v) { return {Kind::unsupportedVersion, v, 0, {}}; }
WireError WireError::unknownType(uint8_t v) { return {Kind::unknownType, v, 0, {}}; }
WireError WireError::payloadTooLarge(uint8_t type, uint32_t length) { return {Kind::payloadTooLarge, type, length, {}}; }
WireError WireError::malformedPayload(std::string text) { return {Kind::malformedPayload, 0, 0, std::move(text)}; }
WireError WireError::truncated() { return {Kind::truncated, 0, 0, {}}; }
WireError WireError::decoderPoisoned() { return {Kind::decoderPoisoned, 0, 0, {}}; }

}  // namespace tsl
