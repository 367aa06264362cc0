// Arbitrary video frames for the host's decoder: the first 48 bytes are the
// frame header as it travels, the rest the picture. A run of frames shares
// one decoder, as a stream does: a byte after each picture's length (a
// 16-bit prefix) starts the next frame. Decoding must refuse with an error
// or give one picture, and never allocate beyond the frame limits:
// video_decoder.options sets libFuzzer's malloc limit to 97 MiB, just above
// the largest picture those limits allow (maxPixels of BGRA with each row
// padded to 64 bytes, at most 96.9 MiB), so any larger block is a finding.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <span>

#include "TslCore/Wire/ByteIO.h"
#include "TslCore/Wire/VideoFrameHeader.h"
#include "TslStream/Codec/VideoDecoder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::span<const uint8_t> rest(data, size);
    tsl::VideoDecoder decoder;
    for (int frames = 0; frames < 4 && rest.size() >= tsl::VideoFrameHeader::size + 2; ++frames) {
        tsl::VideoFrameHeader header;
        try {
            tsl::ByteReader reader(rest.first(tsl::VideoFrameHeader::size));
            header = tsl::VideoFrameHeader::decode(reader);
        } catch (const std::exception&) {
            return 0;
        }
        rest = rest.subspan(tsl::VideoFrameHeader::size);
        size_t length = std::min<size_t>(rest[0] | size_t(rest[1]) << 8, rest.size() - 2);
        auto picture = rest.subspan(2, length);
        rest = rest.subspan(2 + length);
        try {
            decoder.decode(header, picture, [&](const tsl::DecodedFrame& frame) {
                if (!frame.pixelBuffer || frame.pixelBuffer->width() < 1) __builtin_trap();
            });
        } catch (const std::exception&) {
            decoder.invalidate();
        }
    }
    return 0;
}
