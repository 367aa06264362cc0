#pragma once
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
}

#include "TslCore/Measure/TestPattern.h"
#include "TslCore/Wire/VideoFrameHeader.h"
#include "TslStream/Codec/H264Payload.h"

namespace tsl::test {

// The luma plane of one decoded picture.
struct DecodedPicture {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> luma;  // width * height

    uint8_t at(int x, int y) const { return luma[size_t(y) * size_t(width) + size_t(x)]; }
};

// Decodes the agent's H.264 frames with libavcodec, one picture per frame:
// parameter sets and NAL units go in as Annex B.
class H264TestDecoder {
public:
    H264TestDecoder() {
        const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_H264);
        context = avcodec_alloc_context3(codec);
        context->thread_count = 1;
        context->flags |= AV_CODEC_FLAG_LOW_DELAY;
        if (avcodec_open2(context, codec, nullptr) < 0) throw std::runtime_error("h264 decoder");
        packet = av_packet_alloc();
        frame = av_frame_alloc();
    }
    ~H264TestDecoder() {
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&context);
    }
    H264TestDecoder(const H264TestDecoder&) = delete;
    H264TestDecoder& operator=(const H264TestDecoder&) = delete;

    std::optional<DecodedPicture> decode(const VideoFrameHeader& header, const Bytes& payload) {
        H264Payload p = H264Payload::decode(payload, header.flags.contains(VideoFrameHeader::Flags::parameterSets));
        Bytes annexB;
        auto startCode = [&] { annexB.insert(annexB.end(), {0, 0, 0, 1}); };
        for (const Bytes& set : p.parameterSets) {
            startCode();
            annexB.insert(annexB.end(), set.begin(), set.end());
        }
        for (size_t at = 0; at + 4 <= p.avcc.size();) {
            size_t length = size_t(p.avcc[at]) << 24 | size_t(p.avcc[at + 1]) << 16 | size_t(p.avcc[at + 2]) << 8 |
                            p.avcc[at + 3];
            startCode();
            annexB.insert(annexB.end(), p.avcc.begin() + long(at + 4), p.avcc.begin() + long(at + 4 + length));
            at += 4 + length;
        }
        annexB.resize(annexB.size() + AV_INPUT_BUFFER_PADDING_SIZE, 0);
        packet->data = annexB.data();
        packet->size = int(annexB.size() - AV_INPUT_BUFFER_PADDING_SIZE);
        if (avcodec_send_packet(context, packet) < 0) return std::nullopt;
        if (avcodec_receive_frame(context, frame) < 0) return std::nullopt;
        DecodedPicture picture{frame->width, frame->height, {}};
        picture.luma.resize(size_t(frame->width) * size_t(frame->height));
        for (int y = 0; y < frame->height; ++y)
            std::copy_n(frame->data[0] + size_t(y) * size_t(frame->linesize[0]), frame->width,
                        picture.luma.begin() + long(size_t(y) * size_t(frame->width)));
        av_frame_unref(frame);
        return picture;
    }

private:
    AVCodecContext* context = nullptr;
    AVPacket* packet = nullptr;
    AVFrame* frame = nullptr;
};

// The test pattern's 16-bit counter read back from a picture at `scale`
// pixels per point; `brightAt(x, y)` says whether a cell's centre is white.
template <class BrightAt>
uint32_t readPatternCounter(double scale, BrightAt brightAt) {
    uint32_t counter = 0;
    for (int i = 0; i < TestPatternSpec::barcodeBits; ++i) {
        const auto x = int(scale * (TestPatternSpec::barcodeX + TestPatternSpec::barcodeCell * (i + 0.5)));
        const auto y = int(scale * (TestPatternSpec::barcodeY + TestPatternSpec::barcodeHeight / 2));
        if (brightAt(x, y)) counter |= 1u << i;
    }
    return counter;
}

inline uint32_t readPatternCounter(const DecodedPicture& picture, double scale) {
    return readPatternCounter(scale, [&](int x, int y) { return picture.at(x, y) > 128; });
}

}  // namespace tsl::test
