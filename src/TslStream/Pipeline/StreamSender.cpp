#include "TslStream/Pipeline/StreamSender.h"

#include <cmath>

#include "TslCore/Support/MonoClock.h"
#include "TslStream/Codec/H264Encoder.h"
#include "TslStream/Codec/PixelBuffers.h"
#include "TslStream/Codec/RawEncoder.h"

namespace tsl {

StreamSender::StreamSender(uint32_t streamID, VideoCodec codec, int64_t fps, std::shared_ptr<WireConnection> connection,
                           EncoderFactory makeEncoder)
    : streamID(streamID), codec(codec), fps(fps), connection(std::move(connection)), makeEncoder(std::move(makeEncoder)) {}

uint16_t StreamSender::wireScale(double scale) {
    if (!std::isfinite(scale)) return 0;
    const double hundredths = std::round(scale * 100);  // halves away from zero
    return uint16_t(std::clamp(hundredths, 0.0, 65535.0));
}

void StreamSender::submit(PixelBuffer& buffer, double contentScale, double nativeScale, uint32_t inputEcho,
                          uint64_t timestampNs) {
    const std::pair<int64_t, int64_t> bufferSize{buffer.width(), buffer.height()};
    std::shared_ptr<VideoEncoder> retired, current;
    uint64_t id;
    {
        std::lock_guard g(lock);
        if (stopped) return;
        if (!encoder || size != bufferSize) {
            retired = std::move(encoder);
            try {
                encoder = makeEncoder(codec, bufferSize.first, bufferSize.second, fps);
            } catch (const std::exception&) {
                encoder.reset();
                ++_sendErrors;
            }
            size = bufferSize;
        }
        id = ++frameID;
        current = encoder;
    }
    // The old encoder's last frames go out before the new encoder's first.
    if (retired) retired->invalidate();
    if (!current) return;

    const FrameInfo info{streamID, id, timestampNs, wireScale(contentScale), inputEcho, wireScale(nativeScale)};
    if (std::dynamic_pointer_cast<RawEncoder>(current)) return sendRaw(buffer, info);
    std::weak_ptr<StreamSender> weak = weak_from_this();
    try {
        current->encode(buffer, info, [weak](EncodedFrame frame) {
            if (auto self = weak.lock()) self->send(std::move(frame));
        });
    } catch (const std::exception& e) {
        {
            std::lock_guard g(lock);
            ++_sendErrors;
        }
        log.error("encode failed: %{public}s", std::string(e.what()));
    }
}

void StreamSender::send(EncodedFrame frame) {
    const uint64_t captured = frame.header.guestTimestampNs;
    bool sent = true;
    try {
        connection->send(std::move(frame).message());
    } catch (const std::exception&) {
        sent = false;
    }
    count(sent, captured);
}

// Raw pictures go out of the locked capture buffer itself: the frame is
// written before submit returns, so it needs no copy of its own.
void StreamSender::sendRaw(PixelBuffer& buffer, const FrameInfo& info) {
    bool sent = true;
    try {
        if (buffer.pixelFormat() != PixelBuffers::bgra) throw PixelBufferError::unsupportedFormat(buffer.pixelFormat());
        PixelBufferLock locked(buffer, PixelBuffer::lockReadOnly);
        if (locked.status() != 0) throw PixelBufferError::lockFailed(locked.status());
        if (!locked.base()) throw PixelBufferError::lockFailed(-1);
        const size_t bytesPerRow = buffer.bytesPerRow();
        connection->sendVideo(RawEncoder::header(buffer, info, uint32_t(bytesPerRow)),
                              {locked.base(), bytesPerRow * size_t(buffer.height())});
    } catch (const PixelBufferError& e) {
        log.error("encode failed: %{public}s", std::string(e.what()));
        sent = false;
    } catch (const std::exception&) {
        sent = false;
    }
    count(sent, info.timestampNs);
}

void StreamSender::count(bool sent, uint64_t capturedNs) {
    const uint64_t now = MonoClock::nowNs();
    std::lock_guard g(lock);
    if (sent) {
        ++_framesSent;
        _encodeDelayNsTotal += now > capturedNs ? now - capturedNs : 0;
    } else {
        ++_sendErrors;
    }
}

void StreamSender::requestKeyframe() {
    std::shared_ptr<VideoEncoder> current;
    {
        std::lock_guard g(lock);
        current = encoder;
    }
    if (current) current->requestKeyframe();
}

void StreamSender::stop() {
    std::shared_ptr<VideoEncoder> current;
    {
        std::lock_guard g(lock);
        stopped = true;
        current = std::move(encoder);
    }
    if (current) current->invalidate();
}

uint64_t StreamSender::framesSent() const {
    std::lock_guard g(lock);
    return _framesSent;
}

uint64_t StreamSender::sendErrors() const {
    std::lock_guard g(lock);
    return _sendErrors;
}

double StreamSender::meanEncodeAndSendMs() const {
    std::lock_guard g(lock);
    if (_framesSent == 0) return 0;
    return double(_encodeDelayNsTotal) / double(_framesSent) / 1e6;
}

bool StreamSender::lowLatencyRateControl() const {
    std::lock_guard g(lock);
    auto h264 = std::dynamic_pointer_cast<H264Encoder>(encoder);
    return h264 && h264->lowLatencyRateControl();
}

}  // namespace tsl
