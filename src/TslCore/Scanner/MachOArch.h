#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tsl {

// One processor slice of a Mach-O file. `cpuType` and `cpuSubtype` carry the
// file's numbers for `other` only and are zero for the named kinds, so that
// equality is field-wise.
struct MachOArch {
    enum class Kind : uint8_t { other, i386, x86_64, x86_64h, arm64, arm64e, arm, ppc, ppc64 };

    Kind kind = Kind::other;
    int32_t cpuType = 0;
    int32_t cpuSubtype = 0;

    constexpr MachOArch() = default;
    constexpr MachOArch(Kind kind) : kind(kind) {}  // NOLINT: a named kind reads as a value

    // The slice that a header's numbers stand for; the capability bits in the
    // top byte of the subtype don't count.
    static MachOArch fromCPU(int32_t cpuType, int32_t cpuSubtype);
    static constexpr MachOArch other(int32_t cpuType, int32_t cpuSubtype) {
        MachOArch arch;
        arch.cpuType = cpuType;
        arch.cpuSubtype = cpuSubtype;
        return arch;
    }

    // "x86_64", "arm64e", ..., or "cpu(<type>,<subtype>)" in decimal for `other`.
    std::string description() const;
    // The inverse for the eight names; any other text is other(-1, -1).
    static MachOArch fromDescription(std::string_view text);

    bool isIntel64() const { return kind == Kind::x86_64 || kind == Kind::x86_64h; }
    bool isAppleSilicon() const { return kind == Kind::arm64 || kind == Kind::arm64e; }
    bool isLegacy() const { return kind == Kind::i386 || kind == Kind::ppc || kind == Kind::ppc64; }

    bool operator==(const MachOArch&) const = default;

    static const MachOArch i386, x86_64, x86_64h, arm64, arm64e, arm, ppc, ppc64;
};

inline constexpr MachOArch MachOArch::i386{Kind::i386};
inline constexpr MachOArch MachOArch::x86_64{Kind::x86_64};
inline constexpr MachOArch MachOArch::x86_64h{Kind::x86_64h};
inline constexpr MachOArch MachOArch::arm64{Kind::arm64};
inline constexpr MachOArch MachOArch::arm64e{Kind::arm64e};
inline constexpr MachOArch MachOArch::arm{Kind::arm};
inline constexpr MachOArch MachOArch::ppc{Kind::ppc};
inline constexpr MachOArch MachOArch::ppc64{Kind::ppc64};

// The summary of a whole executable's slices. The raw value is the case's name.
enum class ArchClass : uint8_t { intelOnly, universal, appleSilicon, legacy32bit, unknown };

inline constexpr ArchClass allArchClasses[] = {ArchClass::intelOnly, ArchClass::universal, ArchClass::appleSilicon,
                                               ArchClass::legacy32bit, ArchClass::unknown};

std::string_view toString(ArchClass archClass);
std::optional<ArchClass> archClassFromString(std::string_view text);

// Intel-only means an x86_64 or x86_64h slice and no arm64 or arm64e slice:
// the applications this product exists for.
ArchClass classify(const std::vector<MachOArch>& archs);

}  // namespace tsl

template <>
struct std::hash<tsl::MachOArch> {
    size_t operator()(const tsl::MachOArch& arch) const noexcept {
        const uint64_t bits = (uint64_t{static_cast<uint8_t>(arch.kind)} << 56) ^
                              (uint64_t{static_cast<uint32_t>(arch.cpuType)} << 24) ^
                              uint64_t { static_cast<uint32_t>(arch.cpuSubtype) };
        return std::hash<uint64_t>{}(bits);
    }
};
