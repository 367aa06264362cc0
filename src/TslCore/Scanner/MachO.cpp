#include "TslCore/Scanner/MachO.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string_view>
#include <system_error>

#include "TslCore/Support/ByteSpan.h"
#include "TslCore/Support/Bytes.h"
#include "TslCore/Support/UniqueFd.h"
#include "TslCore/Support/Utf8.h"

namespace tsl {

MachOError::MachOError(Kind kind, uint32_t count, std::string description)
    : Error(std::move(description)), kind(kind), count(count) {}

MachOError MachOError::tooManyArchs(uint32_t count) {
    return {Kind::tooManyArchs, count, "tooManyArchs(" + std::to_string(count) + ")"};
}
MachOError MachOError::notMachO() { return {Kind::notMachO, 0, "notMachO"}; }
MachOError MachOError::truncated() { return {Kind::truncated, 0, "truncated"}; }

namespace MachO {
namespace {

constexpr uint32_t fatMagic = 0xCAFEBABE;
constexpr uint32_t fatMagic64 = 0xCAFEBABF;
constexpr uint32_t magic32 = 0xFEEDFACE;
constexpr uint32_t magic64 = 0xFEEDFACF;
constexpr uint32_t cigam32 = 0xCEFAEDFE;
constexpr uint32_t cigam64 = 0xCFFAEDFE;
constexpr uint32_t maxFatArchs = 32;
constexpr uint32_t maxCommands = 9999;
constexpr uint32_t maxCommandBytes = 0x100000;
constexpr size_t thinHeaderRead = 32;

constexpr uint32_t lcLoadDylib = 0xC;
constexpr uint32_t lcLoadWeakDylib = 0x80000018;
constexpr uint32_t lcReexportDylib = 0x8000001F;
constexpr uint32_t lcLazyLoadDylib = 0x20;
constexpr uint32_t lcLoadUpwardDylib = 0x80000023;
constexpr uint32_t dylibCommandSize = 24;

std::optional<uint32_t> be32(std::span<const uint8_t> bytes, uint64_t offset) {
    const auto v = ByteSpan::uintAt(bytes, offset, 4, Endian::big);
    return v ? std::optional<uint32_t>(static_cast<uint32_t>(*v)) : std::nullopt;
}
std::optional<uint32_t> le32(std::span<const uint8_t> bytes, uint64_t offset) {
    const auto v = ByteSpan::uintAt(bytes, offset, 4, Endian::little);
    return v ? std::optional<uint32_t>(static_cast<uint32_t>(*v)) : std::nullopt;
}

MachOArch archAt(std::span<const uint8_t> bytes, uint64_t offset, Endian endian) {
    const auto type = ByteSpan::uintAt(bytes, offset, 4, endian).value_or(0);
    const auto subtype = ByteSpan::uintAt(bytes, offset + 4, 4, endian).value_or(0);
    return MachOArch::fromCPU(static_cast<int32_t>(static_cast<uint32_t>(type)),
                              static_cast<int32_t>(static_cast<uint32_t>(subtype)));
}

bool isFat(uint32_t word) { return word == fatMagic || word == fatMagic64; }

UniqueFd openForReading(const std::filesystem::path& path) {
    // O_NONBLOCK: a pipe or a terminal planted in a bundle must not hang a scan.
    return UniqueFd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
}

// Up to `length` bytes at `from`, or from where the descriptor stands when
// `from` is nothing (so that a pipe reads as what it holds); fewer at the
// end of the file. Nothing on a read error.
std::optional<Bytes> readAt(int fd, std::optional<uint64_t> from, size_t length) {
    const uint64_t offset = from.value_or(0);
    if (offset > static_cast<uint64_t>(LLONG_MAX)) return Bytes{};
    Bytes buffer(length);
    size_t have = 0;
    while (have < length) {
        const uint64_t at = offset + have;
        if (at > static_cast<uint64_t>(LLONG_MAX)) break;
        const ssize_t n = from ? ::pread(fd, buffer.data() + have, length - have, static_cast<off_t>(at))
                               : ::read(fd, buffer.data() + have, length - have);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno == EAGAIN) break;
        if (n < 0) return std::nullopt;
        if (n == 0) break;
        have += static_cast<size_t>(n);
    }
    buffer.resize(have);
    return buffer;
}

}  // namespace

std::vector<MachOArch> archs(std::span<const uint8_t> data) {
    const auto bytes = data.first(std::min(data.size(), headerProbeSize));
    if (bytes.size() < 8) throw MachOError::notMachO();
    const uint32_t first = *be32(bytes, 0);
    if (isFat(first)) {
        const uint32_t count = *be32(bytes, 4);
        if (count == 0) throw MachOError::notMachO();
        if (count > maxFatArchs) throw MachOError::tooManyArchs(count);
        const uint64_t entrySize = first == fatMagic ? 20 : 32;
        if (bytes.size() < 8 + entrySize * count) throw MachOError::truncated();
        std::vector<MachOArch> result;
        result.reserve(count);
        for (uint64_t i = 0; i < count; ++i) result.push_back(archAt(bytes, 8 + entrySize * i, Endian::big));
        return result;
    }
    if (bytes.size() < 12) throw MachOError::truncated();
    switch (*le32(bytes, 0)) {
        case magic32:
        case magic64: return {archAt(bytes, 4, Endian::little)};
        case cigam32:
        case cigam64: return {archAt(bytes, 4, Endian::big)};
        default: throw MachOError::notMachO();
    }
}

std::vector<MachOArch> archs(const std::filesystem::path& ofFile) {
    UniqueFd fd = openForReading(ofFile);
    if (!fd) throw std::system_error(errno, std::generic_category(), ofFile.native());
    const auto head = readAt(fd.get(), std::nullopt, headerProbeSize);
    if (!head) throw std::system_error(errno, std::generic_category(), ofFile.native());
    return archs(std::span<const uint8_t>(*head));
}

std::optional<uint64_t> preferredSliceOffset(std::span<const uint8_t> bytes, bool fat64) {
    const auto count = be32(bytes, 4);
    if (!count || *count == 0 || *count > maxFatArchs) return std::nullopt;
    const uint64_t entrySize = fat64 ? 32 : 20;
    if (bytes.size() < 8 + entrySize * *count) return std::nullopt;
    std::optional<uint64_t> fallback;
    for (uint64_t i = 0; i < *count; ++i) {
        const uint64_t entry = 8 + entrySize * i;
        const MachOArch arch = archAt(bytes, entry, Endian::big);
        const uint64_t offset = *ByteSpan::uintAt(bytes, entry + 8, fat64 ? 8 : 4, Endian::big);
        if (arch.isIntel64()) return offset;
        if (!fallback && (arch == MachOArch::i386 || arch.isAppleSilicon())) fallback = offset;
    }
    return fallback;
}

std::vector<std::string> parseDylibs(std::span<const uint8_t> bytes, uint32_t count, bool includeWeak) {
    std::vector<std::string> names;
    uint64_t at = 0;
    for (uint32_t i = 0; i < count; ++i) {
        if (bytes.size() - at < 8) break;
        const uint32_t cmd = *le32(bytes, at);
        const uint32_t size = *le32(bytes, at + 4);
        if (size < 8 || size > bytes.size() - at) break;
        const bool wanted = cmd == lcLoadDylib || cmd == lcReexportDylib || cmd == lcLazyLoadDylib ||
                            cmd == lcLoadUpwardDylib || (includeWeak && cmd == lcLoadWeakDylib);
        if (wanted && size >= dylibCommandSize) {
            const uint32_t nameOffset = *le32(bytes, at + 8);
            if (nameOffset >= dylibCommandSize && nameOffset < size) {
                const auto command = bytes.subspan(static_cast<size_t>(at), size);
                const auto field = command.subspan(nameOffset);
                const std::string_view raw(reinterpret_cast<const char*>(field.data()), field.size());
                const std::string_view name = raw.substr(0, raw.find('\0'));
                if (isValidUtf8(name)) names.emplace_back(name);
            }
        }
        at += size;
    }
    return names;
}

std::vector<std::string> linkedDylibs(const std::filesystem::path& ofFile, bool includeWeak) {
    UniqueFd fd = openForReading(ofFile);
    if (!fd) return {};
    const auto head = readAt(fd.get(), std::nullopt, headerProbeSize);
    if (!head || head->size() < 8) return {};
    uint64_t slice = 0;
    const uint32_t first = *be32(*head, 0);
    if (isFat(first)) {
        const auto offset = preferredSliceOffset(*head, first == fatMagic64);
        if (!offset) return {};
        slice = *offset;
    }
    const auto header = readAt(fd.get(), slice, thinHeaderRead);
    if (!header || header->size() < 28) return {};
    const uint32_t magic = *le32(*header, 0);
    if (magic != magic64 && magic != magic32) return {};
    const uint64_t headerSize = magic == magic64 ? 32 : 28;
    const uint32_t ncmds = *le32(*header, 16);
    const uint32_t sizeofcmds = *le32(*header, 20);
    if (ncmds < 1 || ncmds > maxCommands || sizeofcmds < 1 || sizeofcmds > maxCommandBytes) return {};
    if (slice > UINT64_MAX - headerSize) return {};
    const auto commands = readAt(fd.get(), slice + headerSize, sizeofcmds);
    if (!commands || commands->size() < sizeofcmds) return {};
    return parseDylibs(*commands, ncmds, includeWeak);
}

}  // namespace MachO
}  // namespace tsl
