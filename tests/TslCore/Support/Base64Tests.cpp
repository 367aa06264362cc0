#include <gtest/gtest.h>

#include "TslCore/Support/Base64.h"

namespace tsl {
namespace {

Bytes bytesOf(std::string_view s) { return Bytes(s.begin(), s.end()); }

TEST(Base64, StandardVectorsBothWays) {
    const std::pair<std::string_view, std::string_view> vectors[] = {
        {"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},          {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {"\xfb\xff", "+/8="},
    };
    for (auto [plain, text] : vectors) {
        EXPECT_EQ(Base64::encode(bytesOf(plain)), text);
        EXPECT_EQ(Base64::decode(text), bytesOf(plain));
    }
    Bytes all(256);
    for (size_t i = 0; i < all.size(); ++i) all[i] = uint8_t(i);
    EXPECT_EQ(Base64::decode(Base64::encode(all)), all);
}

TEST(Base64, RefusesWhatIsNotStrictBase64) {
    for (std::string_view bad : {"Zg", "Zg=", "Z===", "====", "Zg==Zg==", "Zm9v\n", "Zm-v", "Zm_v", " Zm9v", "Zm9=v="}) {
        SCOPED_TRACE(bad);
        EXPECT_EQ(Base64::decode(bad), std::nullopt);
    }
}

}  // namespace
}  // namespace tsl
