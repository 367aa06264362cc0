// Arbitrary bytes as a compatibility database: decoded or refused, never a crash.
#include <cstddef>
#include <cstdint>
#include <exception>

#include "TslCore/Compat/CompatDatabase.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    try {
        const auto db = tsl::CompatDatabase::decode({data, size});
        // Lookups over whatever decoded, by the first entry's identifier and an odd version.
        if (!db.apps.empty()) {
            (void)db.entry(db.apps.front().bundleID, db.apps.back().versions ? db.apps.back().versions->max : std::nullopt);
            (void)db.entry(db.apps.back().name, db.apps.front().note);
        }
    } catch (const std::exception&) {
    }
    return 0;
}
