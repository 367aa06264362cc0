#pragma once
#include <cstdint>
#include <string>

#include "TslCore/Support/Error.h"

namespace tsl {

// Why a video frame could not be decoded. Statuses are the decoder
// library's (negative error codes), or 0 for a frame that gave no picture.
class DecoderError : public Error {
public:
    enum class Kind : uint8_t { formatDescription, session, decode, noParameterSets };

    // The parameter sets describe no picture format.
    static DecoderError formatDescription(int32_t status) { return {Kind::formatDescription, status, "formatDescription"}; }
    // No decoder session could be made for them.
    static DecoderError session(int32_t status) { return {Kind::session, status, "session"}; }
    // The frame could not be decoded, or gave no picture.
    static DecoderError decode(int32_t status) { return {Kind::decode, status, "decode"}; }
    // A frame came before any parameter sets.
    static DecoderError noParameterSets() { return {Kind::noParameterSets, 0, "noParameterSets"}; }

    Kind kind() const { return _kind; }
    int32_t status() const { return _status; }
    bool operator==(const DecoderError& o) const { return _kind == o._kind && _status == o._status; }

private:
    DecoderError(Kind kind, int32_t status, const char* name)
        : Error(std::string(name) + (kind == Kind::noParameterSets ? "" : "(" + std::to_string(status) + ")")),
          _kind(kind), _status(status) {}
    Kind _kind;
    int32_t _status;
};

}  // namespace tsl
