#include <gtest/gtest.h>

#include "Support/VideoFrames.h"
#include "TslStream/Pipeline/StreamReceiver.h"

namespace tsl::test {
namespace {

// What a receiver passed on and reported.
struct Outcome {
    std::vector<std::pair<uint32_t, uint32_t>> shown;  // stream, counter
    std::vector<uint32_t> failed;

    explicit Outcome(StreamReceiver& receiver) : receiver(receiver) {
        receiver.setOnDecodeError([this](uint32_t id) { failed.push_back(id); });
    }
    void feed(const EncodedFrame& frame) {
        receiver.handle(frame.header, frame.payload, [&](const DecodedFrame& d) {
            shown.emplace_back(d.header.streamID, counterShown(*d.pixelBuffer));
        });
    }
    StreamReceiver& receiver;
};

TEST(StreamReceiver, RestrictedPassesOnlyAllowedStreamsAndCountsNothingItDrops) {
    StreamReceiver receiver(true);
    Outcome out(receiver);
    PatternStream raw(VideoCodec::rawBGRA, 320, 200, 4);
    out.feed(raw.next());
    EXPECT_TRUE(out.shown.empty());
    EXPECT_EQ(receiver.decodeErrors(), 0u);
    receiver.allow(4);
    out.feed(raw.next());
    receiver.remove(4);
    out.feed(raw.next());  // dropped again until the next allow
    receiver.allow(4);
    out.feed(raw.next());
    EXPECT_EQ(out.shown, (std::vector<std::pair<uint32_t, uint32_t>>{{4, 2}, {4, 4}}));
    EXPECT_TRUE(out.failed.empty());

    StreamReceiver open(false);
    Outcome all(open);
    open.allow(9);  // no set to add to: every stream still passes
    all.feed(raw.next());
    open.remove(4);
    all.feed(raw.next());
    EXPECT_EQ(all.shown.size(), 2u);
}

TEST(StreamReceiver, EachStreamHasItsOwnDecoderAndRecoversAtTheNextKeyFrame) {
    StreamReceiver receiver(false);
    Outcome out(receiver);
    PatternStream h264(VideoCodec::h264, 320, 200, 1), raw(VideoCodec::rawBGRA, 160, 100, 2);

    EncodedFrame key = h264.next();
    out.feed(h264.next());  // not a key frame: nothing to decode with
    EXPECT_EQ(receiver.decodeErrors(), 1u);
    EXPECT_EQ(out.failed, std::vector<uint32_t>{1});

    out.feed(key);
    out.feed(raw.next());
    EncodedFrame broken = h264.next();
    broken.payload.resize(broken.payload.size() - 3);  // cut inside a NAL unit
    out.feed(broken);
    out.feed(raw.next());  // the other stream goes on
    out.feed(h264.next());  // session dropped with the failure
    out.feed(h264.next(true));  // same parameter sets, configured anew
    out.feed(h264.next());
    EXPECT_EQ(receiver.decodeErrors(), 3u);
    EXPECT_EQ(out.failed, (std::vector<uint32_t>{1, 1, 1}));
    EXPECT_EQ(out.shown, (std::vector<std::pair<uint32_t, uint32_t>>{{1, 1}, {2, 1}, {2, 2}, {1, 5}, {1, 6}}));
}

}  // namespace
}  // namespace tsl::test
