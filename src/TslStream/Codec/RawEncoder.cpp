#include "TslStream/Codec/RawEncoder.h"

#include "TslStream/Codec/PixelBuffers.h"

namespace tsl {

VideoFrameHeader RawEncoder::header(const PixelBuffer& buffer, const FrameInfo& info, uint32_t bytesPerRow) {
    VideoFrameHeader h;
    h.streamID = info.streamID;
    h.codec = VideoCodec::rawBGRA;
    h.flags.rawValue = VideoFrameHeader::Flags::keyframe;
    h.contentScale = info.contentScale;
    h.frameID = info.frameID;
    h.guestTimestampNs = info.timestampNs;
    h.width = uint32_t(buffer.width());
    h.height = uint32_t(buffer.height());
    h.bytesPerRow = bytesPerRow;
    h.pixelFormat = PixelBuffers::bgra;
    h.inputEcho = info.inputEcho;
    h.nativeScale = info.nativeScale;
    return h;
}

void RawEncoder::encode(PixelBuffer& buffer, const FrameInfo& info, const Output& output) {
    PixelBuffers::RawPayload raw = PixelBuffers::rawPayload(buffer);
    EncodedFrame frame;
    frame.header = header(buffer, info, raw.bytesPerRow);
    frame.payload = std::move(raw.data);
    output(std::move(frame));
}

}  // namespace tsl
