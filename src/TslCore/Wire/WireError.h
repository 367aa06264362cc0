#pragma once
#include <cstdint>
#include <string>

#include "TslCore/Support/Error.h"

namespace tsl {

// The one error of the wire layer. Any of these ends the stream it came from.
class WireError : public Error {
public:
    enum class Kind : uint8_t {
        badMagic,
        unsupportedVersion,
        unknownType,
        payloadTooLarge,
        malformedPayload,
        truncated,
        decoderPoisoned,
    };

    static WireError badMagic(uint32_t value);
    static WireError unsupportedVersion(uint8_t value);
    static WireError unknownType(uint8_t value);
    static WireError payloadTooLarge(uint8_t type, uint32_t length);
    static WireError malformedPayload(std::string text);
    static WireError truncated();
    static WireError decoderPoisoned();

    Kind kind() const { return _kind; }
    uint32_t value() const { return _value; }  // magic, version, type byte, or payloadTooLarge's type
    uint32_t length() const { return _length; }  // payloadTooLarge only
    const std::string& text() const { return _text; }  // malformedPayload only

    bool operator==(const WireError& o) const {
        return _kind == o._kind && _value == o._value && _length == o._length && _text == o._text;
    }

private:
    WireError(Kind kind, uint32_t value, uint32_t length, std::string text);
    Kind _kind;
    uint32_t _value;
    uint32_t _length;
    std::string _text;
};

}  // namespace tsl
