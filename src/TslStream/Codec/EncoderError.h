#pragma once
#include <cstdint>

#include "TslCore/Support/Error.h"

namespace tsl {

// Why an encoder could not be made or could not take a frame.
class EncoderError : public Error {
public:
    enum class Kind : uint8_t { sessionCreate, encode, sizeChanged };

    static EncoderError sessionCreate(int32_t status);
    // Status -1: the encoder has been invalidated.
    static EncoderError encode(int32_t status);
    static EncoderError sizeChanged();

    Kind kind() const { return _kind; }
    int32_t status() const { return _status; }
    bool operator==(const EncoderError& o) const { return _kind == o._kind && _status == o._status; }

private:
    EncoderError(Kind kind, int32_t status, std::string description)
        : Error(std::move(description)), _kind(kind), _status(status) {}
    Kind _kind;
    int32_t _status;
};

}  // namespace tsl
