#include <gtest/gtest.h>

#include "TslCore/Wire/WireError.h"
#include "TslStream/Codec/H264Payload.h"

namespace tsl {
namespace {

std::string refusal(const Bytes& payload, bool hasSets) {
    try {
        H264Payload::decode(payload, hasSets);
    } catch (const WireError& e) {
        return e.kind() == WireError::Kind::truncated ? "truncated" : e.text();
    }
    return "accepted";
}

const Bytes oneNal = {0, 0, 0, 1, 0x65};

TEST(H264Payload, RoundTripsSetsAndAccessUnit) {
    H264Payload p{{{0x67, 1, 2}, {0x68, 3}}, {0, 0, 0, 2, 0x65, 9, 0, 0, 0, 1, 0x41}};
    Bytes bytes = p.encoded();
    EXPECT_EQ(bytes[0], 2);
    EXPECT_EQ(bytes[1], 3);  // little-endian set length
    EXPECT_EQ(bytes[2], 0);
    EXPECT_EQ(H264Payload::decode(bytes, true), p);
    // Without the flag the first byte already belongs to the access unit.
    EXPECT_EQ(H264Payload::decode(p.avcc, false), (H264Payload{{}, p.avcc}));
}

TEST(H264Payload, EncodedKeepsAtMostEightSetsThatFitSixteenBits) {
    H264Payload nine{std::vector<Bytes>(9, Bytes{7}), oneNal};
    Bytes bytes = nine.encoded();
    EXPECT_EQ(bytes[0], 8);
    EXPECT_EQ(H264Payload::decode(bytes, true).parameterSets.size(), 8u);

    H264Payload onlyHuge{{Bytes(65536, 1)}, oneNal};
    EXPECT_EQ(onlyHuge.encoded(), oneNal);  // no count at all
    EXPECT_FALSE(H264Payload::writesParameterSets(onlyHuge.parameterSets));

    H264Payload mixed{{Bytes(65536, 1), Bytes(65535, 2)}, oneNal};
    EXPECT_EQ(H264Payload::decode(mixed.encoded(), true).parameterSets, (std::vector<Bytes>{Bytes(65535, 2)}));
}

TEST(H264Payload, DecodeRefusesBadParameterSets) {
    EXPECT_EQ(refusal({0, 0, 0, 0, 1, 5}, true), "h264 parameter set count 0");
    EXPECT_EQ(refusal({9, 1, 0, 7, 0, 0, 0, 1, 5}, true), "h264 parameter set count 9");
    EXPECT_EQ(refusal({1, 0, 0, 0, 0, 0, 1, 5}, true), "empty parameter set");
    EXPECT_EQ(refusal({}, true), "truncated");
    EXPECT_EQ(refusal({1, 5}, true), "truncated");              // half a length
    EXPECT_EQ(refusal({1, 5, 0, 1, 2}, true), "truncated");     // set runs past the end
    EXPECT_EQ(refusal({1, 1, 0, 7}, true), "empty access unit");  // sets but no picture
}

TEST(H264Payload, ValidateAVCCWalksEveryNal) {
    auto check = [](const Bytes& avcc) {
        try {
            H264Payload::validateAVCC(avcc);
        } catch (const WireError& e) {
            return e.text();
        }
        return std::string("valid");
    };
    EXPECT_EQ(check(oneNal), "valid");
    EXPECT_EQ(check({}), "empty access unit");
    EXPECT_EQ(check({0, 0, 0, 1, 5, 0, 0, 0}), "truncated NAL length");
    EXPECT_EQ(check({0, 0, 0, 0}), "NAL length 0 out of range");
    EXPECT_EQ(check({0, 0, 0, 2, 5}), "NAL length 2 out of range");
    // A length near 2^32 must not wrap the offset.
    EXPECT_EQ(check({0xFF, 0xFF, 0xFF, 0xFF, 5}), "NAL length 4294967295 out of range");
    EXPECT_EQ(check({0, 0, 0, 1, 5, 0, 0, 0, 2, 6, 7}), "valid");
}

}  // namespace
}  // namespace tsl
