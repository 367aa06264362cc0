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

    // The same files are overwritten each time: reading never writes.
    // An empty name is a name (a plist may say so); a record made here
    // always has an executable and its bundle's path.
    AppBundleInfo info = AppBundleInfo::read(bundle);
    fuzz::require(info.executable.has_value(), "a bundle read without an executable");
    fuzz::require(info.path == bundle.native(), "a bundle read under another path");
    return 0;
}
