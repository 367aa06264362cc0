#include "TslStream/Codec/RawEncoder.h"

#include "TslStream/Codec/PixelBuffers.h"

namespace tsl {

void RawEncoder::encode(PixelBuffer& buffer, const FrameInfo& info, const Output& output) {
    PixelBuffers::RawPayload raw = PixelBuffers::rawPayload(buffer);
    EncodedFrame frame;
    VideoFrameHeader& h = frame.header;
    h.streamID = info.streamID;
    h.codec = VideoCodec::rawBGRA;
    h.flags.rawValue = VideoFrameHeader::Flags::keyframe;
    h.contentScale = info.contentScale;
    h.frameID = info.frameID;
    h.guestTimestampNs = info.timestampNs;
    h.width = uint32_t(buffer.width());
    h.height = uint32_t(buffer.height());
    h.bytesPerRow = raw.bytesPerRow;
    h.pixelFormat = PixelBuffers::bgra;
    h.inputEcho = info.inputEcho;
    h.nativeScale = info.nativeScale;
    frame.payload = std::move(raw.data);
    output(std::move(frame));
}

}  // namespace tsl
