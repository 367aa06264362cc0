#include "TslCore/Wire/FrameDecoder.h"

#include <algorithm>

#include "TslCore/Wire/ByteIO.h"
#include "TslCore/Wire/WireError.h"

namespace tsl {
namespace {
constexpr uint32_t directThreshold = 1u << 20;
// The picture's storage is at most this many times the bytes received.
constexpr size_t pictureGrowth = 4;
}

std::vector<WireMessage> FrameDecoder::feed(std::span<const uint8_t> bytes) {
    std::vector<WireMessage> out;
    feed(bytes, [&](WireMessage m) { out.push_back(std::move(m)); });
    return out;
}

void FrameDecoder::feed(std::span<const uint8_t> bytes, const std::function<void(WireMessage)>& deliver) {
    if (poisoned) throw WireError::decoderPoisoned();
    try {
        for (;;) {
            if (direct) {
                bytes = absorbDirect(bytes);
                if (directNeed() > 0) break;
                deliver(finishDirect());
                continue;
            }
            buffer.insert(buffer.end(), bytes.begin(), bytes.end());
            bytes = {};
            while (auto m = next()) deliver(std::move(*m));
            if (!direct) break;
        }
    } catch (...) {
        poisoned = true;
        buffer = Bytes();
        start = 0;
        pendingHeader.reset();
        resetDirect();
        throw;
    }
    compact();
}

std::optional<WireMessage> FrameDecoder::next() {
    if (!pendingHeader) {
        size_t available = buffer.size() - start;
        if (available < 4) return std::nullopt;
        const uint8_t* p = buffer.data() + start;
        if (available < size_t(WireHeader::size)) {
            // Refuse a garbage stream as soon as four bytes are in.
            uint32_t m = uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
            if (m != WireHeader::magic) throw WireError::badMagic(m);
            return std::nullopt;
        }
        ByteReader r(std::span<const uint8_t>(p, WireHeader::size));
        WireHeader h = WireHeader::decode(r);
        if (maxPayload && h.length > *maxPayload) throw WireError::payloadTooLarge(uint8_t(h.type), h.length);
        pendingHeader = h;
        start += WireHeader::size;
        if (h.type == MessageType::video && h.length >= directThreshold) {
            beginDirect();
            size_t take = std::min(buffer.size() - start, directNeed());
            absorbDirect(std::span<const uint8_t>(buffer.data() + start, take));
            start += take;
            if (directNeed() > 0) return std::nullopt;
            return finishDirect();
        }
    }
    if (buffer.size() - start < pendingHeader->length) return std::nullopt;
    WireHeader h = *pendingHeader;
    std::span<const uint8_t> payload(buffer.data() + start, h.length);
    start += h.length;
    pendingHeader.reset();
    return WireMessage::decode(h, payload);
}

void FrameDecoder::beginDirect() {
    direct = true;
    directHead.clear();
    directHead.reserve(VideoFrameHeader::size);
    directPicture = Bytes();
}

size_t FrameDecoder::directNeed() const {
    return pendingHeader->length - directHead.size() - directPicture.size();
}

std::span<const uint8_t> FrameDecoder::absorbDirect(std::span<const uint8_t> in) {
    size_t toHead = std::min(in.size(), VideoFrameHeader::size - directHead.size());
    directHead.insert(directHead.end(), in.begin(), in.begin() + std::ptrdiff_t(toHead));
    in = in.subspan(toHead);
    size_t toPicture = std::min(in.size(), directNeed());
    size_t received = directPicture.size() + toPicture;
    if (received > directPicture.capacity()) {
        size_t total = pendingHeader->length - VideoFrameHeader::size;
        directPicture.reserve(std::min(total, std::max(received * pictureGrowth, largestPicture)));
    }
    directPicture.insert(directPicture.end(), in.begin(), in.begin() + std::ptrdiff_t(toPicture));
    return in.subspan(toPicture);
}

WireMessage FrameDecoder::finishDirect() {
    WireHeader h = *pendingHeader;
    pendingHeader.reset();
    direct = false;
    Bytes head = std::move(directHead);
    Bytes picture = std::move(directPicture);
    largestPicture = std::max(largestPicture, picture.size());
    resetDirect();
    return WireMessage::decodeVideo(h, head, std::move(picture));
}

void FrameDecoder::resetDirect() {
    direct = false;
    directHead = Bytes();
    directPicture = Bytes();
}

void FrameDecoder::compact() {
    if (start == buffer.size()) {
        // Give a large frame's storage back; keep small traffic's storage.
        if (start >= (size_t(1) << 20)) buffer = Bytes();
        else buffer.clear();
        start = 0;
    } else if (start >= 1 && start >= buffer.size() / 2) {
        buffer.erase(buffer.begin(), buffer.begin() + std::ptrdiff_t(start));
        start = 0;
    }
}

}  // namespace tsl
