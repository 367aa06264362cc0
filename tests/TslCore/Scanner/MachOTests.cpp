// Hand-made bytes for what no toolchain produces: oversized and 64-bit fat
// tables, truncation, big-endian thin headers and damaged load commands.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <vector>

#include "Support/Errors.h"
#include "Support/Files.h"
#include "Support/TempDir.h"
#include "TslCore/Scanner/MachO.h"
#include "TslCore/Support/Bytes.h"

using namespace tsl;
using namespace tsl::test;

namespace {

constexpr int32_t cpuX86_64 = 0x1000007;
constexpr int32_t cpuArm64 = 0x100000C;
constexpr int32_t cpuI386 = 7;
constexpr int32_t cpuArm = 12;

struct Writer {
    Bytes data;
    Writer& be32(uint32_t v) {
        for (int s = 24; s >= 0; s -= 8) data.push_back(static_cast<uint8_t>(v >> s));
        return *this;
    }
    Writer& be64(uint64_t v) { return be32(static_cast<uint32_t>(v >> 32)).be32(static_cast<uint32_t>(v)); }
    Writer& le32(uint32_t v) {
        for (int s = 0; s <= 24; s += 8) data.push_back(static_cast<uint8_t>(v >> s));
        return *this;
    }
    Writer& text(const std::string& t) {
        data.insert(data.end(), t.begin(), t.end());
        return *this;
    }
    Writer& pad(size_t to) {
        data.resize(std::max(data.size(), to), 0);
        return *this;
    }
    std::string str() const { return std::string(data.begin(), data.end()); }
};

struct Slice {
    int32_t cpu;
    int32_t subtype;
    uint64_t offset;
};

Bytes fat(const std::vector<Slice>& slices, bool fat64, uint32_t count) {
    Writer w;
    w.be32(fat64 ? 0xCAFEBABF : 0xCAFEBABE).be32(count);
    for (const auto& s : slices) {
        w.be32(static_cast<uint32_t>(s.cpu)).be32(static_cast<uint32_t>(s.subtype));
        if (fat64) {
            w.be64(s.offset).be64(0x1000).be32(12).be32(0);
        } else {
            w.be32(static_cast<uint32_t>(s.offset)).be32(0x1000).be32(12);
        }
    }
    return w.data;
}
Bytes fat(const std::vector<Slice>& slices, bool fat64) {
    return fat(slices, fat64, static_cast<uint32_t>(slices.size()));
}

// A little-endian 64-bit thin header followed by `commands`.
Bytes thin(const Bytes& commands, uint32_t ncmds, uint32_t sizeofcmds) {
    Writer w;
    w.le32(0xFEEDFACF).le32(cpuX86_64).le32(3).le32(2).le32(ncmds).le32(sizeofcmds).le32(0).le32(0);
    w.data.insert(w.data.end(), commands.begin(), commands.end());
    return w.data;
}
Bytes thin(const Bytes& commands, uint32_t ncmds) {
    return thin(commands, ncmds, static_cast<uint32_t>(commands.size()));
}

// A dylib command whose name starts at `nameOffset`, padded to `size`.
Bytes dylib(uint32_t cmd, const std::string& name, uint32_t nameOffset = 24, uint32_t size = 0) {
    if (size == 0) size = static_cast<uint32_t>((nameOffset + name.size() + 1 + 7) / 8 * 8);
    Writer w;
    w.le32(cmd).le32(size).le32(nameOffset).le32(2).le32(0x10000).le32(0x10000);
    w.pad(nameOffset).text(name).pad(size);
    w.data.resize(size);
    return w.data;
}

Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

MachOError machOErrorOf(const Bytes& data) {
    return thrownBy<MachOError>([&] { MachO::archs(data); });
}

}  // namespace

TEST(MachOArch, TableCapabilityBitsAndStringForm) {
    EXPECT_EQ(MachOArch::fromCPU(cpuX86_64, 3), MachOArch::x86_64);
    EXPECT_EQ(MachOArch::fromCPU(cpuX86_64, static_cast<int32_t>(0x80000003)), MachOArch::x86_64);
    EXPECT_EQ(MachOArch::fromCPU(cpuX86_64, 8), MachOArch::x86_64h);
    EXPECT_EQ(MachOArch::fromCPU(cpuArm64, 0), MachOArch::arm64);
    EXPECT_EQ(MachOArch::fromCPU(cpuArm64, static_cast<int32_t>(0x80000002)), MachOArch::arm64e);
    EXPECT_EQ(MachOArch::fromCPU(cpuI386, 3), MachOArch::i386);
    EXPECT_EQ(MachOArch::fromCPU(cpuArm, 9), MachOArch::arm);
    EXPECT_EQ(MachOArch::fromCPU(18, 0), MachOArch::ppc);
    EXPECT_EQ(MachOArch::fromCPU(0x1000012, 0), MachOArch::ppc64);
    const MachOArch odd = MachOArch::fromCPU(0x2000000C, -5);
    EXPECT_EQ(odd, MachOArch::other(0x2000000C, -5));
    EXPECT_EQ(odd.description(), "cpu(536870924,-5)");

    for (const auto& a : {MachOArch::i386, MachOArch::x86_64, MachOArch::x86_64h, MachOArch::arm64, MachOArch::arm64e,
                          MachOArch::arm, MachOArch::ppc, MachOArch::ppc64})
        EXPECT_EQ(MachOArch::fromDescription(a.description()), a);
    // Other slices don't survive the text form: any other string is other(-1, -1).
    EXPECT_EQ(MachOArch::fromDescription("cpu(536870924,-5)"), MachOArch::other(-1, -1));
    EXPECT_EQ(MachOArch::fromDescription("ARM64"), MachOArch::other(-1, -1));
}

TEST(MachOArch, Classification) {
    using A = MachOArch;
    EXPECT_EQ(classify({A::x86_64, A::arm64}), ArchClass::universal);
    EXPECT_EQ(classify({A::arm64e, A::x86_64h}), ArchClass::universal);
    EXPECT_EQ(classify({A::i386, A::x86_64}), ArchClass::intelOnly);
    EXPECT_EQ(classify({A::x86_64h}), ArchClass::intelOnly);
    EXPECT_EQ(classify({A::arm64, A::i386}), ArchClass::appleSilicon);
    EXPECT_EQ(classify({A::i386, A::ppc}), ArchClass::legacy32bit);
    EXPECT_EQ(classify({A::arm}), ArchClass::unknown);
    EXPECT_EQ(classify({A::other(1, 2)}), ArchClass::unknown);
    EXPECT_EQ(classify({}), ArchClass::unknown);
    for (const ArchClass c : allArchClasses) EXPECT_EQ(archClassFromString(toString(c)), c);
    EXPECT_EQ(archClassFromString("IntelOnly"), std::nullopt);
}

TEST(MachOHeader, FatTablesAreBoundedAndChecked) {
    // 32 entries of the 32-byte form fill the probe to the byte.
    std::vector<Slice> many(32, Slice{cpuArm64, 2, 0x4000});
    many[31] = Slice{cpuX86_64, 8, 0x8000};
    const Bytes full = fat(many, true);
    ASSERT_EQ(full.size(), MachO::headerProbeSize);
    const auto archs = MachO::archs(full);
    ASSERT_EQ(archs.size(), 32u);
    EXPECT_EQ(archs[0], MachOArch::arm64e);
    EXPECT_EQ(archs[31], MachOArch::x86_64h);
    // One byte short of the table.
    EXPECT_EQ(machOErrorOf(Bytes(full.begin(), full.end() - 1)), MachOError::truncated());

    many.push_back(Slice{cpuX86_64, 3, 0});
    EXPECT_EQ(machOErrorOf(fat(many, true)), MachOError::tooManyArchs(33));
    EXPECT_EQ(machOErrorOf(fat(many, false)), MachOError::tooManyArchs(33));
    EXPECT_EQ(machOErrorOf(fat({}, false, 0xFFFFFFFF)).description(), "tooManyArchs(4294967295)");
    EXPECT_EQ(machOErrorOf(fat({}, false, 0)), MachOError::notMachO());
    EXPECT_EQ(machOErrorOf(fat({{cpuX86_64, 3, 0}}, false, 2)), MachOError::truncated());
    // Doubles stay, in file order.
    EXPECT_EQ(MachO::archs(fat({{cpuArm64, 0, 0}, {cpuArm64, 0, 0}}, false)),
              (std::vector<MachOArch>{MachOArch::arm64, MachOArch::arm64}));
}

TEST(MachOHeader, ShortFilesAndByteOrder) {
    EXPECT_EQ(machOErrorOf(Writer().text("1234567").data), MachOError::notMachO());
    EXPECT_EQ(machOErrorOf(Writer().text("plain text").data), MachOError::truncated());
    EXPECT_EQ(machOErrorOf(Writer().le32(0xFEEDFACF).le32(cpuX86_64).data), MachOError::truncated());
    EXPECT_EQ(machOErrorOf(Writer().text("just some plain text").data), MachOError::notMachO());
    // Big-endian thin headers, as PowerPC executables have them.
    EXPECT_EQ(MachO::archs(Writer().be32(0xFEEDFACE).be32(18).be32(0).data), std::vector{MachOArch::ppc});
    EXPECT_EQ(MachO::archs(Writer().be32(0xFEEDFACF).be32(0x1000012).be32(0).data), std::vector{MachOArch::ppc64});
    EXPECT_EQ(classify(MachO::archs(Writer().be32(0xFEEDFACE).be32(18).be32(0).data)), ArchClass::legacy32bit);
    EXPECT_EQ(MachO::archs(Writer().le32(0xFEEDFACE).le32(cpuI386).le32(3).data), std::vector{MachOArch::i386});
}

TEST(MachOHeader, PreferredSliceIsIntelThenTheFirstKnownOne) {
    using MachO::preferredSliceOffset;
    EXPECT_EQ(preferredSliceOffset(fat({{cpuArm64, 0, 0x4000}, {cpuX86_64, 3, 0x8000}}, false), false), 0x8000u);
    EXPECT_EQ(preferredSliceOffset(fat({{cpuArm64, 2, 0x4000}, {cpuX86_64, 8, 0x8000}}, false), false), 0x8000u);
    EXPECT_EQ(
        preferredSliceOffset(
            fat({{cpuArm, 9, 0x1000}, {0x99, 0, 0x2000}, {cpuArm64, 0, 0x4000}, {cpuI386, 3, 0x8000}}, false), false),
        0x4000u);
    EXPECT_EQ(preferredSliceOffset(fat({{cpuArm, 9, 0x1000}, {18, 0, 0x2000}}, false), false), std::nullopt);
    EXPECT_EQ(preferredSliceOffset(fat({{cpuX86_64, 3, 0x123456789AB}}, true), true), 0x123456789ABu);
    EXPECT_EQ(preferredSliceOffset(fat({{cpuX86_64, 3, 0x4000}}, false, 2), false), std::nullopt);
    EXPECT_EQ(preferredSliceOffset(fat({}, false, 0), false), std::nullopt);
}

TEST(MachOLoadCommands, WalkStopsAtDamageAndKeepsWhatItFound) {
    using MachO::parseDylibs;
    const Bytes a = dylib(0xC, "/usr/lib/libA.dylib");
    const Bytes weak = dylib(0x80000018, "/usr/lib/libWeak.dylib");
    const Bytes b = dylib(0x8000001F, "/usr/lib/libB.dylib");
    EXPECT_EQ(parseDylibs(joined({a, weak, b}), 3, false),
              (std::vector<std::string>{"/usr/lib/libA.dylib", "/usr/lib/libB.dylib"}));
    EXPECT_EQ(parseDylibs(joined({a, weak, b}), 3, true).size(), 3u);
    EXPECT_EQ(parseDylibs(joined({a, weak, b}), 1, true), std::vector<std::string>{"/usr/lib/libA.dylib"});

    // cmdsize 0 ends the walk; so does a command running past the bytes.
    Bytes zero = Writer().le32(0xC).le32(0).pad(24).data;
    EXPECT_EQ(parseDylibs(joined({a, zero, b}), 3, false), std::vector<std::string>{"/usr/lib/libA.dylib"});
    Bytes cut = joined({a, b});
    cut.resize(cut.size() - 1);
    EXPECT_EQ(parseDylibs(cut, 2, false), std::vector<std::string>{"/usr/lib/libA.dylib"});

    // A name offset at or past cmdsize, or inside the fixed part, skips that command only.
    EXPECT_EQ(parseDylibs(joined({dylib(0xC, "x", 48, 48), dylib(0xC, "y", 16, 40), b}), 3, false),
              std::vector<std::string>{"/usr/lib/libB.dylib"});
    // A name without NUL ends with its command; invalid UTF-8 is skipped.
    Bytes open = Writer().le32(0xC).le32(34).le32(24).le32(0).le32(0).le32(0).text("/lib/NoNul").data;
    EXPECT_EQ(parseDylibs(joined({open, b}), 2, false),
              (std::vector<std::string>{"/lib/NoNul", "/usr/lib/libB.dylib"}));
    EXPECT_EQ(parseDylibs(joined({dylib(0xC, "/lib/\xC0\xAF"), b}), 2, false),
              std::vector<std::string>{"/usr/lib/libB.dylib"});
    // A dylib command too short for its fixed part names nothing.
    EXPECT_EQ(parseDylibs(joined({Writer().le32(0xC).le32(16).le32(8).le32(0).data, b}), 2, false),
              std::vector<std::string>{"/usr/lib/libB.dylib"});
}

TEST(MachOLoadCommands, FileLimitsAndHostileOffsets) {
    TempDir tmp;
    const auto dylibsOf = [&](const Bytes& bytes) {
        writeFile(tmp / "f", std::string(bytes.begin(), bytes.end()));
        return MachO::linkedDylibs(tmp / "f", false);
    };
    const Bytes a = dylib(0xC, "/usr/lib/libA.dylib");
    const std::vector<std::string> justA{"/usr/lib/libA.dylib"};
    EXPECT_EQ(dylibsOf(thin(a, 1)), justA);
    EXPECT_EQ(dylibsOf(thin(a, 9999)), justA) << "the walk ends at the bytes, not at ncmds";
    EXPECT_TRUE(dylibsOf(thin(a, 10000)).empty());
    EXPECT_TRUE(dylibsOf(thin(a, 0)).empty());
    EXPECT_TRUE(dylibsOf(thin(a, 1, 0)).empty());
    EXPECT_TRUE(dylibsOf(thin(a, 1, 0x100001)).empty());
    EXPECT_TRUE(dylibsOf(thin(a, 1, static_cast<uint32_t>(a.size() + 8))).empty()) << "fewer bytes than sizeofcmds";
    Bytes bigEndian = thin(a, 1);
    bigEndian[0] = 0xFE, bigEndian[1] = 0xED, bigEndian[2] = 0xFA, bigEndian[3] = 0xCF;
    EXPECT_TRUE(dylibsOf(bigEndian).empty());
    EXPECT_TRUE(dylibsOf(Writer().text("1234567").data).empty());

    // The x86_64 slice is read wherever it stands; offsets past the file read nothing.
    Bytes file = fat({{cpuArm64, 0, 0x1000}, {cpuX86_64, 3, 0x2000}}, false);
    file.resize(0x1000);
    const Bytes armSlice = thin(dylib(0xC, "/arm/lib"), 1);
    file.insert(file.end(), armSlice.begin(), armSlice.end());
    file.resize(0x2000);
    const Bytes intelSlice = thin(a, 1);
    file.insert(file.end(), intelSlice.begin(), intelSlice.end());
    EXPECT_EQ(dylibsOf(file), justA);
    EXPECT_TRUE(dylibsOf(fat({{cpuX86_64, 3, 0xFFFFFFFF}}, false)).empty());
    EXPECT_TRUE(dylibsOf(fat({{cpuX86_64, 3, 0xFFFFFFFFFFFFFFF0}}, true)).empty());
    EXPECT_TRUE(dylibsOf(fat({{cpuArm, 9, 0}}, false)).empty());
    EXPECT_TRUE(MachO::linkedDylibs(tmp / "missing", true).empty());
}

TEST(MachOFile, ReadsTheHeadOfFilesAndNeverWaitsOnAPipe) {
    TempDir tmp;
    Bytes big = thin(dylib(0xC, "/usr/lib/libA.dylib"), 1);
    big.resize(1 << 20, 0xAB);
    writeFile(tmp / "big", std::string(big.begin(), big.end()));
    EXPECT_EQ(MachO::archs(tmp / "big"), std::vector{MachOArch::x86_64});

    ASSERT_EQ(::mkfifo((tmp / "pipe").c_str(), 0600), 0);
    EXPECT_THROW(MachO::archs(tmp / "pipe"), MachOError);
    EXPECT_TRUE(MachO::linkedDylibs(tmp / "pipe", false).empty());
    try {
        MachO::archs(tmp / "missing");
        ADD_FAILURE() << "a missing file read";
    } catch (const std::system_error& e) {
        EXPECT_EQ(e.code().value(), ENOENT);
    }
}
