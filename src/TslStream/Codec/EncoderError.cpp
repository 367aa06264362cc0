#include "TslStream/Codec/EncoderError.h"

#include <string>

namespace tsl {

EncoderError EncoderError::sessionCreate(int32_t status) {
    return {Kind::sessionCreate, status, "encoder session could not be created (status " + std::to_string(status) + ")"};
}

EncoderError EncoderError::encode(int32_t status) {
    return {Kind::encode, status, "encode failed (status " + std::to_string(status) + ")"};
}

EncoderError EncoderError::sizeChanged() {
    return {Kind::sizeChanged, 0, "pixel buffer size differs from the encoder's"};
}

}  // namespace tsl
