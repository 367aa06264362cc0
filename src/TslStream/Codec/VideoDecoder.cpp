#include "TslStream/Codec/VideoDecoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
}
#include <libyuv/convert_argb.h>

#include <cstring>

#include "TslStream/Codec/H264Payload.h"
#include "TslStream/Codec/PixelBuffers.h"

namespace tsl {
namespace {

constexpr int nalTypeSPS = 7;
constexpr int nalTypePPS = 8;
// What the platform's format description reports for sets it can't use.
constexpr int32_t invalidParameterSets = -12712;
// Pictures kept for reuse; a viewer holds one or two at a time.
constexpr size_t bufferPoolSize = 4;

int nalType(const Bytes& nal) { return nal.empty() ? -1 : nal[0] & 0x1f; }

// An avcC record: the decoder reads 4-byte NAL lengths, and these sets.
Bytes avcConfiguration(const std::vector<Bytes>& sets) {
    std::vector<const Bytes*> sps, pps;
    for (const Bytes& set : sets) {
        if (nalType(set) == nalTypeSPS && set.size() >= 4) sps.push_back(&set);
        else if (nalType(set) == nalTypePPS) pps.push_back(&set);
    }
    if (sps.empty() || pps.empty() || sps.size() > 31) throw DecoderError::formatDescription(invalidParameterSets);
    const Bytes& first = *sps.front();
    Bytes record{1, first[1], first[2], first[3], 0xff, uint8_t(0xe0 | sps.size())};
    auto append = [&](const Bytes& set) {
        record.push_back(uint8_t(set.size() >> 8));
        record.push_back(uint8_t(set.size()));
        record.insert(record.end(), set.begin(), set.end());
    };
    for (auto* set : sps) append(*set);
    record.push_back(uint8_t(pps.size()));
    for (auto* set : pps) append(*set);
    return record;
}

}  // namespace

struct VideoDecoder::Session {
    AVCodecContext* context = nullptr;
    AVPacket* packet = nullptr;
    AVFrame* frame = nullptr;

    ~Session() {
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&context);
    }
};

VideoDecoder::VideoDecoder() = default;
VideoDecoder::~VideoDecoder() = default;

void VideoDecoder::decode(const VideoFrameHeader& header, std::span<const uint8_t> payload, const Output& output) {
    if (header.codec == VideoCodec::rawBGRA) decodeRaw(header, payload, output);
    else decodeH264(header, payload, output);
}

void VideoDecoder::invalidate() {
    session.reset();
    lastSets.clear();
}

std::shared_ptr<PixelBuffer> VideoDecoder::freeBuffer(int64_t width, int64_t height) {
    for (auto& buffer : buffers)
        if (buffer.use_count() == 1 && buffer->width() == width && buffer->height() == height) return buffer;
    auto made = PixelBuffers::make(width, height);
    std::erase_if(buffers, [](auto& b) { return b.use_count() == 1; });
    if (buffers.size() < bufferPoolSize) buffers.push_back(made);
    return made;
}

void VideoDecoder::decodeRaw(const VideoFrameHeader& header, std::span<const uint8_t> payload, const Output& output) {
    // A picture no frame could carry would only cost memory.
    if (uint64_t(header.width) * header.height > maxPixels)
        throw PixelBufferError::createFailed(PixelBuffer::statusInvalidSize);
    auto buffer = PixelBuffers::fromRaw(header.width, header.height, header.bytesPerRow, payload);
    output(DecodedFrame{header, std::move(buffer)});
}

void VideoDecoder::configure(const std::vector<Bytes>& sets) {
    invalidate();
    Bytes record = avcConfiguration(sets);
    auto made = std::make_unique<Session>();
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_H264);
    if (!codec) throw DecoderError::session(AVERROR_DECODER_NOT_FOUND);
    made->context = avcodec_alloc_context3(codec);
    made->packet = av_packet_alloc();
    made->frame = av_frame_alloc();
    if (!made->context || !made->packet || !made->frame) throw DecoderError::session(AVERROR(ENOMEM));
    // One thread and low delay: each packet's picture comes out of its own call.
    made->context->thread_count = 1;
    made->context->flags |= AV_CODEC_FLAG_LOW_DELAY;
    made->context->max_pixels = int64_t(maxPixels);
    made->context->extradata = static_cast<uint8_t*>(av_mallocz(record.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!made->context->extradata) throw DecoderError::session(AVERROR(ENOMEM));
    std::memcpy(made->context->extradata, record.data(), record.size());
    made->context->extradata_size = int(record.size());
    if (int status = avcodec_open2(made->context, codec, nullptr); status < 0) throw DecoderError::session(status);
    session = std::move(made);
    lastSets = sets;
    ++_sessionsMade;
}

void VideoDecoder::decodeH264(const VideoFrameHeader& header, std::span<const uint8_t> payload, const Output& output) {
    H264Payload unit = H264Payload::decode(payload, header.flags.contains(VideoFrameHeader::Flags::parameterSets));
    if (!unit.parameterSets.empty() && unit.parameterSets != lastSets) configure(unit.parameterSets);
    if (!session) throw DecoderError::noParameterSets();

    packet.assign(unit.avcc.begin(), unit.avcc.end());
    packet.resize(unit.avcc.size() + AV_INPUT_BUFFER_PADDING_SIZE, 0);
    AVPacket* p = session->packet;
    p->data = packet.data();
    p->size = int(unit.avcc.size());
    p->pts = int64_t(header.guestTimestampNs & INT64_MAX);
    if (header.flags.contains(VideoFrameHeader::Flags::keyframe)) p->flags |= AV_PKT_FLAG_KEY;
    else p->flags &= ~AV_PKT_FLAG_KEY;
    int status = avcodec_send_packet(session->context, p);
    if (status < 0) throw DecoderError::decode(status);
    AVFrame* frame = session->frame;
    status = avcodec_receive_frame(session->context, frame);
    if (status == AVERROR(EAGAIN)) throw DecoderError::decode(0);
    if (status < 0) throw DecoderError::decode(status);
    struct Unref {
        AVFrame* f;
        ~Unref() { av_frame_unref(f); }
    } unref{frame};

    const bool fullRange = frame->format == AV_PIX_FMT_YUVJ420P || frame->color_range == AVCOL_RANGE_JPEG;
    if (frame->format != AV_PIX_FMT_YUV420P && frame->format != AV_PIX_FMT_YUVJ420P)
        throw DecoderError::decode(AVERROR_PATCHWELCOME);
    auto buffer = freeBuffer(frame->width, frame->height);
    {
        PixelBufferLock locked(*buffer, 0);
        if (locked.status() != 0) throw PixelBufferError::lockFailed(locked.status());
        if (!locked.base()) throw PixelBufferError::lockFailed(-1);
        // libyuv's ARGB is B, G, R, A in memory: our BGRA.
        auto convert = fullRange ? libyuv::J420ToARGB : libyuv::I420ToARGB;
        convert(frame->data[0], frame->linesize[0], frame->data[1], frame->linesize[1], frame->data[2],
                frame->linesize[2], locked.base(), int(buffer->bytesPerRow()), frame->width, frame->height);
    }
    output(DecodedFrame{header, std::move(buffer)});
}

}  // namespace tsl
