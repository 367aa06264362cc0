// The guest tools' provision report, read from its file as the agent reads
// it. A report that decodes encodes and decodes back to itself.
#include "FuzzSupport.h"
#include "TslAgent/StatusReport.h"
#include "TslCore/Wire/WireJSON.h"

using namespace tsl;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto file = fuzz::scratchDir() / "provision-status.json";
    fuzz::writeFile(file, data, size);
    PlatformServices none;  // not consulted for a report that is not live
    auto report = StatusReport::provisionReport(file, false, none);
    if (!report) return 0;
    fuzz::require(size <= StatusReport::largestReport, "a report over the size limit was read");
    Bytes encoded = WireJSON::encode(*report);
    fuzz::require(WireJSON::decodeProvisionReport(encoded.data(), encoded.size()) == *report,
                  "a provision report changed in a round trip");
    return 0;
}
