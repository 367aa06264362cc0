#include "TslCore/Wire/VideoFrameHeader.h"

#include "TslCore/Wire/ByteIO.h"
#include "TslCore/Wire/WireError.h"

namespace tsl {

void VideoFrameHeader::encode(ByteWriter& w) const {
    w.u32(streamID);
    w.u8(uint8_t(codec));
    w.u8(flags.rawValue);
    w.u16(contentScale);
    w.u64(frameID);
    w.u64(guestTimestampNs);
    w.u32(width);
    w.u32(height);
    w.u32(bytesPerRow);
    w.u32(pixelFormat);
    w.u32(inputEcho);
    w.u16(nativeScale);
    w.zeros(2);
}

VideoFrameHeader VideoFrameHeader::decode(ByteReader& r) {
    VideoFrameHeader h;
    h.streamID = r.u32();
    uint8_t rawCodec = r.u8();
    auto codec = videoCodecFromRaw(rawCodec);
    if (!codec) throw WireError::malformedPayload("codec " + std::to_string(rawCodec));
    h.codec = *codec;
    h.flags.rawValue = r.u8();
    h.contentScale = r.u16();
    h.frameID = r.u64();
    h.guestTimestampNs = r.u64();
    h.width = r.u32();
    h.height = r.u32();
    h.bytesPerRow = r.u32();
    h.pixelFormat = r.u32();
    h.inputEcho = r.u32();
    h.nativeScale = r.u16();
    r.skip(2);
    auto inRange = [](uint32_t v) { return v >= 1 && v <= 16384; };
    if (!inRange(h.width) || !inRange(h.height))
        throw WireError::malformedPayload("dimensions " + std::to_string(h.width) + "x" + std::to_string(h.height));
    return h;
}

void VideoFrameHeader::validateRaw(uint64_t payloadCount) const {
    if (codec != VideoCodec::rawBGRA) return;
    if (uint64_t(bytesPerRow) < uint64_t(width) * 4)
        throw WireError::malformedPayload("bytesPerRow " + std::to_string(bytesPerRow) + " < width\u00D74");
    if (payloadCount != uint64_t(height) * bytesPerRow)
        throw WireError::malformedPayload("raw payload " + std::to_string(payloadCount) + " != " +
                                          std::to_string(bytesPerRow) + "\u00D7" + std::to_string(height));
}

}  // namespace tsl
