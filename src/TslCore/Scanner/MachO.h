#pragma once
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "TslCore/Scanner/MachOArch.h"
#include "TslCore/Support/Error.h"

namespace tsl {

// Why a header isn't read as Mach-O. The description is the case's name.
struct MachOError : Error {
    enum class Kind : uint8_t { tooManyArchs, notMachO, truncated };

    Kind kind;
    uint32_t count = 0;  // the entry count found, for tooManyArchs

    static MachOError tooManyArchs(uint32_t count);
    static MachOError notMachO();
    static MachOError truncated();
    bool operator==(const MachOError& other) const { return kind == other.kind && count == other.count; }

private:
    MachOError(Kind kind, uint32_t count, std::string description);
};

// Reads what the product needs of a Mach-O file from its first bytes, without
// loading it. Every length in the file is tested before it is believed.
namespace MachO {

// 8 bytes of fat header and 32 entries of the 32-byte form, exactly.
inline constexpr size_t headerProbeSize = 1032;

// The slices named by the first headerProbeSize bytes, in file order.
// Throws MachOError.
std::vector<MachOArch> archs(std::span<const uint8_t> data);

// The same from a file, reading at most headerProbeSize bytes. Throws
// std::system_error when the file can't be opened or read, else MachOError.
std::vector<MachOArch> archs(const std::filesystem::path& ofFile);

// The libraries the file links (with `includeWeak`, also the weak ones), from
// the slice that preferredSliceOffset picks. Never fails: damage ends the
// list where it begins.
std::vector<std::string> linkedDylibs(const std::filesystem::path& ofFile, bool includeWeak);

// The offset of the slice whose libraries stand for the whole of a fat file:
// the first Intel 64-bit slice, else the first i386, arm64 or arm64e slice.
// Nothing when the entry table is out of bounds or no slice qualifies.
std::optional<uint64_t> preferredSliceOffset(std::span<const uint8_t> bytes, bool fat64);

// The names of the library load commands among the first `count` commands in
// `bytes` (little-endian), up to the first command that doesn't fit.
std::vector<std::string> parseDylibs(std::span<const uint8_t> bytes, uint32_t count, bool includeWeak);

}  // namespace MachO
}  // namespace tsl
