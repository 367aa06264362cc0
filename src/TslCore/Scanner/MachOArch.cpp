#include "TslCore/Scanner/MachOArch.h"

#include <algorithm>
#include <array>
#include <utility>

namespace tsl {
namespace {

constexpr int32_t cpuX86 = 7;
constexpr int32_t cpuX86_64 = 0x1000007;
constexpr int32_t cpuArm = 12;
constexpr int32_t cpuArm64 = 0x100000C;
constexpr int32_t cpuPPC = 18;
constexpr int32_t cpuPPC64 = 0x1000012;
constexpr uint32_t subtypeMask = 0x00FFFFFF;
constexpr uint32_t subtypeX86_64H = 8;
constexpr uint32_t subtypeArm64E = 2;

constexpr std::array<std::pair<MachOArch::Kind, std::string_view>, 8> names{{
    {MachOArch::Kind::i386, "i386"},
    {MachOArch::Kind::x86_64, "x86_64"},
    {MachOArch::Kind::x86_64h, "x86_64h"},
    {MachOArch::Kind::arm64, "arm64"},
    {MachOArch::Kind::arm64e, "arm64e"},
    {MachOArch::Kind::arm, "arm"},
    {MachOArch::Kind::ppc, "ppc"},
    {MachOArch::Kind::ppc64, "ppc64"},
}};

constexpr std::array<std::string_view, 5> classNames{"intelOnly", "universal", "appleSilicon", "legacy32bit",
                                                     "unknown"};

}  // namespace

MachOArch MachOArch::fromCPU(int32_t cpuType, int32_t cpuSubtype) {
    const uint32_t sub = static_cast<uint32_t>(cpuSubtype) & subtypeMask;
    switch (cpuType) {
        case cpuX86: return i386;
        case cpuX86_64: return sub == subtypeX86_64H ? x86_64h : x86_64;
        case cpuArm64: return sub == subtypeArm64E ? arm64e : arm64;
        case cpuArm: return arm;
        case cpuPPC: return ppc;
        case cpuPPC64: return ppc64;
        default: return other(cpuType, cpuSubtype);
    }
}

std::string MachOArch::description() const {
    for (const auto& [k, name] : names)
        if (k == kind) return std::string(name);
    return "cpu(" + std::to_string(cpuType) + "," + std::to_string(cpuSubtype) + ")";
}

MachOArch MachOArch::fromDescription(std::string_view text) {
    for (const auto& [k, name] : names)
        if (name == text) return MachOArch(k);
    return other(-1, -1);
}

std::string_view toString(ArchClass archClass) { return classNames[static_cast<size_t>(archClass)]; }

std::optional<ArchClass> archClassFromString(std::string_view text) {
    for (const ArchClass c : allArchClasses)
        if (toString(c) == text) return c;
    return std::nullopt;
}

ArchClass classify(const std::vector<MachOArch>& archs) {
    const auto any = [&](bool (MachOArch::*test)() const) {
        return std::any_of(archs.begin(), archs.end(), [&](const MachOArch& a) { return (a.*test)(); });
    };
    const bool intel = any(&MachOArch::isIntel64);
    const bool silicon = any(&MachOArch::isAppleSilicon);
    if (intel) return silicon ? ArchClass::universal : ArchClass::intelOnly;
    if (silicon) return ArchClass::appleSilicon;
    return any(&MachOArch::isLegacy) ? ArchClass::legacy32bit : ArchClass::unknown;
}

}  // namespace tsl
