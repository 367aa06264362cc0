#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Support/Errors.h"
#include "TslCore/Compat/CompatError.h"
#include "TslCore/Compat/CompatUpdater.h"
#include "TslCore/Compat/SignedFeed.h"

using namespace tsl;

namespace {

std::vector<uint8_t> bytes(std::string_view text) { return {text.begin(), text.end()}; }

struct Keys {
    SignedFeed::PrivateKey key = SignedFeed::generateKey();
    SignedFeed::PrivateKey other = SignedFeed::generateKey();
    SignedFeed::TrustedKeys trusted{{"k1", SignedFeed::publicKey(key)}, {"k2", SignedFeed::publicKey(other)}};
    CompatUpdater::Verify verify() const {
        return [this](std::span<const uint8_t> body, const std::optional<std::string>& header) {
            return SignedFeed::verifyFeed(body, header, trusted);
        };
    }
};

const std::string feed = R"({"schema":1,"updated":"2026-11-01","apps":[{"bundleID":"a","name":"A","status":"works"}]})";

}  // namespace

TEST(SignedFeed, ASignatureVerifiesOnlyForItsBodyAndKey) {
    Keys k;
    const auto body = bytes(feed);
    const std::string header = SignedFeed::signFeed(body, "k1", k.key);
    ASSERT_TRUE(header.starts_with("k1."));
    EXPECT_EQ(header.size(), 3u + 86u);  // 64 bytes, unpadded
    EXPECT_TRUE(SignedFeed::verifyFeed(body, header, k.trusted));

    auto flipped = body;
    flipped[10] ^= 0x01;
    EXPECT_FALSE(SignedFeed::verifyFeed(flipped, header, k.trusted));
    EXPECT_FALSE(SignedFeed::verifyFeed(body, "k2" + header.substr(2), k.trusted));  // another trusted key
    EXPECT_FALSE(SignedFeed::verifyFeed(body, "k3" + header.substr(2), k.trusted));  // an unknown key id
    EXPECT_FALSE(SignedFeed::verifyFeed(body, std::nullopt, k.trusted));
    EXPECT_FALSE(SignedFeed::verifyFeed(body, "k1", k.trusted));
    EXPECT_FALSE(SignedFeed::verifyFeed(body, header + "=", k.trusted));     // padding
    EXPECT_FALSE(SignedFeed::verifyFeed(body, header + "AA", k.trusted));    // 66 bytes
    EXPECT_FALSE(SignedFeed::verifyFeed(body, header + "A", k.trusted));     // no Base64 has this length
    EXPECT_FALSE(SignedFeed::verifyFeed(body, header.substr(0, 60) + "+" + header.substr(61), k.trusted));
    EXPECT_FALSE(SignedFeed::verifyFeed(body, "k1.", k.trusted));

    // A key id may hold no "."; the signature is everything after the first.
    SignedFeed::TrustedKeys dotted{{"feed", SignedFeed::publicKey(k.key)}};
    EXPECT_TRUE(SignedFeed::verifyFeed(body, SignedFeed::signFeed(body, "feed", k.key), dotted));
    EXPECT_FALSE(SignedFeed::verifyFeed(body, "feed.x" + SignedFeed::signFeed(body, "", k.key), dotted));

    // The prefix is part of what is signed.
    const auto unprefixed = bytes("TslF1\n" + feed);
    EXPECT_NE(SignedFeed::signFeed(unprefixed, "k1", k.key), header);
}

TEST(SignedFeed, TheGatesRefuseInTheirOrderBeforeAnyParsing) {
    Keys k;
    const auto body = bytes(feed);
    const std::string good = SignedFeed::signFeed(body, "k1", k.key);
    const auto kind = [&](std::span<const uint8_t> data, std::string_view url, std::optional<std::string> sig) {
        return test::thrownBy<CompatError>([&] { CompatUpdater::validate(data, url, sig, k.verify()); }).kind;
    };
    using K = CompatError::Kind;
    EXPECT_EQ(kind(body, "http://feed.example/compat/v1.json", good), K::notHTTPS);
    EXPECT_EQ(kind(body, "HTTPS://feed.example/compat/v1.json", good), K::notHTTPS);
    EXPECT_EQ(kind(body, "feed.example/compat/v1.json", good), K::notHTTPS);
    EXPECT_EQ(kind(body, "", good), K::notHTTPS);

    std::vector<uint8_t> large(CompatUpdater::maxBytes + 1, ' ');
    EXPECT_EQ(kind(large, "http://x/", "k1.bad"), K::notHTTPS);
    EXPECT_EQ(kind(large, "https://x/", "k1.bad"), K::tooLarge);
    EXPECT_EQ(kind(large, "https://x/", SignedFeed::signFeed(large, "k1", k.key)), K::tooLarge);
    EXPECT_EQ(kind(body, "https://x/", std::nullopt), K::badSignature);
    EXPECT_EQ(kind(body, "https://x/", good + "="), K::badSignature);

    // Garbage that is signed gets through the gates and fails as JSON.
    const auto garbage = bytes("{not json");
    EXPECT_THROW(CompatUpdater::validate(garbage, "https://x/", SignedFeed::signFeed(garbage, "k1", k.key), k.verify()),
                 nlohmann::json::exception);
    // Exactly maxBytes passes the size gate: a JSON list padded with spaces.
    std::vector<uint8_t> full(CompatUpdater::maxBytes, ' ');
    full[0] = '[', full[1] = ']';
    EXPECT_TRUE(CompatUpdater::validate(full, "https://x/", SignedFeed::signFeed(full, "k1", k.key), k.verify()).apps.empty());

    const auto db = CompatUpdater::validate(body, "https://x/compat/v1.json", good, k.verify());
    EXPECT_EQ(db.apps.size(), 1u);
    EXPECT_EQ(db.updated, "2026-11-01");
}

TEST(SignedFeed, NewerTakesOnlyAStrictlyLaterStamp) {
    CompatDatabase current, candidate;
    current.updated = "2026-10-01";
    candidate.updated = "2026-10-02";
    EXPECT_EQ(&CompatUpdater::newer(&candidate, current), &candidate);
    candidate.updated = "2026-10-01";
    EXPECT_EQ(&CompatUpdater::newer(&candidate, current), &current);
    candidate.updated = std::nullopt;
    EXPECT_EQ(&CompatUpdater::newer(&candidate, current), &current);
    EXPECT_EQ(&CompatUpdater::newer(nullptr, current), &current);
    current.updated = std::nullopt;
    candidate.updated = "";
    EXPECT_EQ(&CompatUpdater::newer(&candidate, current), &current);
    candidate.updated = "0";
    EXPECT_EQ(&CompatUpdater::newer(&candidate, current), &candidate);
}
