#include "TslStream/Pipeline/StreamReceiver.h"

namespace tsl {

StreamReceiver::StreamReceiver(bool restricted) {
    if (restricted) allowed.emplace();
}

void StreamReceiver::allow(uint32_t streamID) {
    std::lock_guard guard(lock);
    if (allowed) allowed->insert(streamID);
}

void StreamReceiver::handle(const VideoFrameHeader& header, std::span<const uint8_t> payload,
                            const VideoDecoder::Output& output) {
    std::shared_ptr<VideoDecoder> decoder;
    {
        std::lock_guard guard(lock);
        if (allowed && !allowed->contains(header.streamID)) return;
        auto& slot = decoders[header.streamID];
        if (!slot) slot = std::make_shared<VideoDecoder>();
        decoder = slot;
    }
    try {
        decoder->decode(header, payload, output);
    } catch (const std::exception&) {
        decoder->invalidate();
        DecodeErrorHandler handler;
        {
            std::lock_guard guard(lock);
            ++_decodeErrors;
            handler = _onDecodeError;
        }
        if (handler) handler(header.streamID);
    }
}

void StreamReceiver::remove(uint32_t streamID) {
    // The decoder ends with its last holder: a frame of the stream being
    // decoded on another thread right now finishes on it first.
    std::shared_ptr<VideoDecoder> decoder;
    std::lock_guard guard(lock);
    if (allowed) allowed->erase(streamID);
    if (auto it = decoders.find(streamID); it != decoders.end()) {
        decoder = std::move(it->second);
        decoders.erase(it);
    }
}

uint64_t StreamReceiver::decodeErrors() const {
    std::lock_guard guard(lock);
    return _decodeErrors;
}

StreamReceiver::DecodeErrorHandler StreamReceiver::onDecodeError() const {
    std::lock_guard guard(lock);
    return _onDecodeError;
}

void StreamReceiver::setOnDecodeError(DecodeErrorHandler handler) {
    std::lock_guard guard(lock);
    _onDecodeError = std::move(handler);
}

}  // namespace tsl
