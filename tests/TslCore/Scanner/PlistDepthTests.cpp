// Property lists nested past what the parser's recursion survives read as a
// damaged bundle; the depth scan errs only towards refusing.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Support/Files.h"
#include "Support/TempDir.h"
#include "TslCore/Scanner/AppBundleInfo.h"
#include "TslCore/Scanner/PlistDepth.h"

using namespace tsl;
using namespace tsl::test;

namespace {

std::string nestedXml(size_t levels) {
    std::string body;
    for (size_t i = 0; i < levels; ++i) body += "<dict><key>k</key>";
    body += "<string>x</string>";
    for (size_t i = 0; i < levels; ++i) body += "</dict>";
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n" + body + "\n</plist>\n";
}

// A binary list of arrays: `members[i]` are the objects array i holds.
// Four-byte references and offsets; the top object is 0.
std::string binaryArrays(const std::vector<std::vector<uint32_t>>& members) {
    std::string out = "bplist00";
    std::vector<uint32_t> offsets;
    auto be = [&](uint64_t v, int width) {
        for (int i = width - 1; i >= 0; --i) out += char(uint8_t(v >> (8 * i)));
    };
    for (const auto& m : members) {
        offsets.push_back(uint32_t(out.size()));
        if (m.size() < 15) {
            out += char(0xA0 | m.size());
        } else {
            out += char(0xAF);
            out += char(0x12);
            be(m.size(), 4);
        }
        for (uint32_t r : m) be(r, 4);
    }
    uint64_t table = out.size();
    for (uint32_t o : offsets) be(o, 4);
    out += std::string(6, '\0');
    out += char(4);  // offset size
    out += char(4);  // reference size
    be(members.size(), 8);
    be(0, 8);
    be(table, 8);
    return out;
}

std::vector<std::vector<uint32_t>> chain(uint32_t levels) {
    std::vector<std::vector<uint32_t>> m(levels);
    for (uint32_t i = 0; i + 1 < levels; ++i) m[i] = {i + 1};
    return m;
}

bool within(const std::string& bytes) {
    return PlistDepth::within(std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
}

}  // namespace

TEST(PlistDepth, HostileDeepInfoPlistReadsAsADamagedBundle) {
    TempDir tmp;
    writeFile(tmp / "Deep.app/Contents/Info.plist", nestedXml(200000));
    auto info = AppBundleInfo::read(tmp / "Deep.app");
    EXPECT_EQ(info.name, "Deep");
    EXPECT_EQ(info.bundleID, std::nullopt);
    EXPECT_EQ(info.archClass, ArchClass::unknown);

    writeFile(tmp / "DeepBinary.app/Contents/Info.plist", binaryArrays(chain(100000)));
    info = AppBundleInfo::read(tmp / "DeepBinary.app");
    EXPECT_EQ(info.name, "DeepBinary");
    EXPECT_EQ(info.bundleID, std::nullopt);
}

TEST(PlistDepth, XmlCountsEveryOpenContainer) {
    EXPECT_TRUE(within(nestedXml(PlistDepth::limit)));
    EXPECT_FALSE(within(nestedXml(PlistDepth::limit + 1)));
    // Empty containers don't nest; unclosed ones and those in comments count.
    std::string flat;
    for (int i = 0; i < 1000; ++i) flat += "<array/><dict />";
    EXPECT_TRUE(within("<plist><dict>" + flat + "</dict></plist>"));
    std::string unclosed;
    for (size_t i = 0; i <= PlistDepth::limit; ++i) unclosed += "<array></dictx><!-- <dict> -->";
    EXPECT_FALSE(within(unclosed));
    // A tag that hides another "<" inside is no empty container.
    std::string hidden;
    for (size_t i = 0; i <= PlistDepth::limit; ++i) hidden += "<dict <x/>";
    EXPECT_FALSE(within(hidden));
}

TEST(PlistDepth, BinaryWalksTheObjectGraph) {
    EXPECT_TRUE(within(binaryArrays(chain(PlistDepth::limit))));
    EXPECT_FALSE(within(binaryArrays(chain(PlistDepth::limit + 1))));
    // Wide is fine; a shared leaf counts wherever it is reached.
    std::vector<std::vector<uint32_t>> wide(1);
    for (uint32_t i = 1; i <= 2000; ++i) {
        wide[0].push_back(i);
        wide.push_back({});
    }
    EXPECT_TRUE(within(binaryArrays(wide)));
    // Each array holding the next twice: 60 levels stand for 2^60 nodes.
    std::vector<std::vector<uint32_t>> doubling(60);
    for (uint32_t i = 0; i + 1 < 60; ++i) doubling[i] = {i + 1, i + 1};
    EXPECT_FALSE(within(binaryArrays(doubling)));
    EXPECT_FALSE(within(binaryArrays({{1}, {0}}))) << "a cycle";
    EXPECT_FALSE(within(binaryArrays({{7}}))) << "a reference out of bounds";
    std::string cut = binaryArrays(chain(3));
    cut[cut.size() - 1] = char(0xF0);  // the offset table beyond the end
    EXPECT_FALSE(within(cut));
}
