#include "TslStream/Codec/H264Encoder.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <thread>

extern "C" {
#include <x264.h>
}

#include "TslStream/Codec/EncoderError.h"
#include "TslStream/Codec/H264Payload.h"
#include "TslStream/Codec/I420Conversion.h"
#include "TslStream/Codec/PixelBuffers.h"

namespace tsl {

// One open x264 encoder and its input picture. Encodes hold a reference, so
// an invalidate that comes during one closes the encoder only after it.
struct H264Encoder::Session {
    x264_t* handle = nullptr;
    x264_picture_t picture{};
    bool pictureAllocated = false;
    int64_t nextPts = 0;
    std::mutex use;  // one x264 call at a time
    I420Converter converter;

    ~Session() {
        if (handle) x264_encoder_close(handle);
        if (pictureAllocated) x264_picture_clean(&picture);
    }
};

namespace {

constexpr int nalSPS = 7;
constexpr int nalPPS = 8;

int sliceThreads() { return int(std::clamp(std::thread::hardware_concurrency(), 1u, 4u)); }

}  // namespace

int64_t H264Encoder::bitRate(int64_t width, int64_t height, int64_t fps, double bitsPerPixel) {
    const double bits = double(width) * double(height) * double(fps) * bitsPerPixel;
    return std::max<int64_t>(int64_t(bits), minimumBitRate);
}

H264Encoder::H264Encoder(int64_t width, int64_t height, int64_t fps, double bitsPerPixel)
    : width(width), height(height) {
    // 4:2:0 pictures need even sides; x264 would refuse them too, but leak on the way.
    if (width < 2 || height < 2 || width % 2 != 0 || height % 2 != 0) throw EncoderError::sessionCreate(-1);
    x264_param_t param;
    if (x264_param_default_preset(&param, "ultrafast", "zerolatency") < 0) throw EncoderError::sessionCreate(-1);
    // Parsed settings may own strings; the open encoder keeps copies of its own.
    struct Cleanup {
        x264_param_t* p;
        ~Cleanup() { x264_param_cleanup(p); }
    } cleanup{&param};
    param.i_width = int(width);
    param.i_height = int(height);
    param.i_csp = X264_CSP_I420;
    param.i_log_level = X264_LOG_NONE;
    param.b_annexb = 0;  // 4-byte big-endian lengths in front of each NAL
    param.b_repeat_headers = 0;
    param.b_vfr_input = 0;
    param.i_threads = sliceThreads();
    param.b_sliced_threads = 1;
    param.rc.i_rc_method = X264_RC_ABR;
    param.b_cabac = 1;  // the fastest preset drops it, and with it the Main profile

    const int64_t kbps = std::max<int64_t>(bitRate(width, height, fps, bitsPerPixel) / 1000, 1);
    const std::pair<const char*, std::string> settings[] = {
        {"fps", std::to_string(fps)},
        {"keyint", std::to_string(fps * 10)},
        {"bitrate", std::to_string(kbps)},
        {"bframes", "0"},
        {"rc-lookahead", "0"},
        {"sync-lookahead", "0"},
    };
    for (const auto& [name, value] : settings)
        if (int status = x264_param_parse(&param, name, value.c_str()); status != 0)
            log.notice("property %{public}s not accepted: %d", name, status);
    if (int status = x264_param_apply_profile(&param, "main"); status != 0)
        log.notice("property %{public}s not accepted: %d", "profile", status);

    // A buffer of one frame keeps every frame near its share of the rate;
    // without it the encoder still runs, with looser rate control.
    x264_param_t lowLatency = param;
    lowLatency.rc.i_vbv_max_bitrate = int(kbps);
    lowLatency.rc.i_vbv_buffer_size = int(std::max<int64_t>(kbps / std::max<int64_t>(fps, 1), 1));
    auto s = std::make_shared<Session>();
    s->handle = x264_encoder_open(&lowLatency);
    if (s->handle) {
        _lowLatencyRateControl = true;
    } else {
        s->handle = x264_encoder_open(&param);
    }
    if (!s->handle) throw EncoderError::sessionCreate(-1);
    if (x264_picture_alloc(&s->picture, X264_CSP_I420, int(width), int(height)) < 0)
        throw EncoderError::sessionCreate(-2);
    s->pictureAllocated = true;

    x264_nal_t* nals = nullptr;
    int count = 0;
    if (x264_encoder_headers(s->handle, &nals, &count) >= 0) {
        // Valid only until the next call into x264: copied now, without the length.
        for (int i = 0; i < count; ++i) {
            if (nals[i].i_type != nalSPS && nals[i].i_type != nalPPS) continue;
            if (nals[i].i_payload <= 4) continue;
            _parameterSets.emplace_back(nals[i].p_payload + 4, nals[i].p_payload + nals[i].i_payload);
        }
    }
    session = std::move(s);
}

H264Encoder::~H264Encoder() { invalidate(); }

EncodedFrame H264Encoder::package(std::span<const uint8_t> accessUnit, bool keyframe,
                                  const std::vector<Bytes>& parameterSets, const FrameInfo& info, int64_t width,
                                  int64_t height) {
    static const std::vector<Bytes> none;
    const std::vector<Bytes>& sets = keyframe ? parameterSets : none;
    EncodedFrame frame;
    VideoFrameHeader& h = frame.header;
    h.streamID = info.streamID;
    h.codec = VideoCodec::h264;
    if (keyframe) {
        h.flags.rawValue = VideoFrameHeader::Flags::keyframe;
        if (H264Payload::writesParameterSets(sets)) h.flags.rawValue |= VideoFrameHeader::Flags::parameterSets;
    }
    h.contentScale = info.contentScale;
    h.frameID = info.frameID;
    h.guestTimestampNs = info.timestampNs;
    h.width = uint32_t(width);
    h.height = uint32_t(height);
    h.inputEcho = info.inputEcho;
    h.nativeScale = info.nativeScale;
    frame.payload = H264Payload::encode(sets, accessUnit);
    return frame;
}

void H264Encoder::encode(PixelBuffer& buffer, const FrameInfo& info, const Output& output) {
    if (buffer.width() != width || buffer.height() != height) throw EncoderError::sizeChanged();
    bool key;
    std::shared_ptr<Session> s;
    {
        std::lock_guard g(lock);
        key = forceKey;
        forceKey = false;
        s = session;
    }
    if (!s) throw EncoderError::encode(-1);
    if (buffer.pixelFormat() != PixelBuffers::bgra) throw PixelBufferError::unsupportedFormat(buffer.pixelFormat());

    EncodedFrame frame;
    {
        std::lock_guard use(s->use);
        {
            PixelBufferLock locked(buffer, PixelBuffer::lockReadOnly);
            if (locked.status() != 0) throw PixelBufferError::lockFailed(locked.status());
            if (!locked.base()) throw PixelBufferError::lockFailed(-1);
            const x264_image_t& img = s->picture.img;
            I420Planes planes{img.plane[0], img.i_stride[0], img.plane[1], img.i_stride[1], img.plane[2], img.i_stride[2]};
            if (!s->converter.convert(locked.base(), buffer.bytesPerRow(), width, height, planes))
                throw EncoderError::encode(-2);
        }
        s->picture.i_type = key ? X264_TYPE_IDR : X264_TYPE_AUTO;
        s->picture.i_pts = s->nextPts++;
        x264_nal_t* nals = nullptr;
        int count = 0;
        x264_picture_t out;
        const int size = x264_encoder_encode(s->handle, &nals, &count, &s->picture, &out);
        if (size < 0) throw EncoderError::encode(size);
        if (size == 0 || count == 0) return;  // nothing came out: the frame is simply missing
        // x264 lays a frame's NAL units out back to back.
        frame = package(std::span<const uint8_t>(nals[0].p_payload, size_t(size)), out.b_keyframe != 0,
                        _parameterSets, info, width, height);
    }
    output(std::move(frame));
}

void H264Encoder::requestKeyframe() {
    std::lock_guard g(lock);
    forceKey = true;
}

void H264Encoder::invalidate() {
    std::shared_ptr<Session> s;
    {
        std::lock_guard g(lock);
        s = std::move(session);
    }
    // An encode under way keeps its own reference; x264 closes after it.
}

}  // namespace tsl
