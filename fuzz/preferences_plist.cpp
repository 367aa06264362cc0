// Preferences bytes from the share, as the installer checks them before they
// are imported: any bytes give an answer, and a list nested past the depth
// the parser survives is never taken.
#include "FuzzSupport.h"
#include "TslAgent/AppInstaller.h"
#include "TslCore/Scanner/PlistDepth.h"

using namespace tsl;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::span<const uint8_t> bytes(data, size);
    const bool dictionary = AppInstaller::isDictionaryPlist(bytes);
    fuzz::require(!dictionary || PlistDepth::within(bytes), "a list past the depth limit was parsed");
    return 0;
}
