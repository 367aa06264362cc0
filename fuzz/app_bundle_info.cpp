// A bundle's Info.plist, XML or binary, in a scratch bundle with an executable
// cut from the same input. Reading never fails, whatever the files hold.
#include <fuzzer/FuzzedDataProvider.h>

#include "FuzzSupport.h"
#include "TslCore/Scanner/AppBundleInfo.h"

using namespace tsl;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    auto executable = in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 2048));
    auto plist = in.ConsumeRemainingBytes<uint8_t>();

    auto bundle = fuzz::scratchDir() / "Fuzzed.app";
    fuzz::writeFile(bundle / "Contents" / "Info.plist", plist.data(), plist.size());
    // The executable under the names a plist most likely gives.
    fuzz::writeFile(bundle / "Contents" / "MacOS" / "Fuzzed", executable.data(), executable.size());
    fuzz::writeFile(bundle / "Contents" / "MacOS" / "A", executable.data(), executable.size());

    AppBundleInfo info = AppBundleInfo::read(bundle);
    fuzz::require(!info.name.empty(), "a bundle read without a name");
    fuzz::clearScratch();
    return 0;
}
