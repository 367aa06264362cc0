// A Mach-O file in a bundle: its slice table from the first bytes, the slice
// that stands for the file, and the libraries that slice links (from a file in
// the scratch folder, as the scanner reads them).
#include "FuzzSupport.h"
#include "TslCore/Scanner/MachO.h"

using namespace tsl;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::span<const uint8_t> bytes(data, size);
    try {
        auto archs = MachO::archs(bytes.first(std::min(size, MachO::headerProbeSize)));
        fuzz::require(archs.size() <= 32, "more slices than the probe can hold");
    } catch (const MachOError&) {
    }
    MachO::preferredSliceOffset(bytes, false);
    MachO::preferredSliceOffset(bytes, true);
    if (size >= 4) {
        uint32_t count = uint32_t(data[0]) | uint32_t(data[1]) << 8;
        MachO::parseDylibs(bytes.subspan(4), count, (data[2] & 1) != 0);
    }

    auto file = fuzz::scratchDir() / "binary";
    fuzz::writeFile(file, data, size);
    auto all = MachO::linkedDylibs(file, true);
    auto strong = MachO::linkedDylibs(file, false);
    fuzz::require(strong.size() <= all.size(), "fewer libraries with the weak ones than without");
    try {
        MachO::archs(file);
    } catch (const MachOError&) {
    }
    return 0;
}
