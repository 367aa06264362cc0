// A saved scan report read back (its dates are ISO 8601 text). A report that
// decodes encodes and decodes back to itself.
#include <nlohmann/json.hpp>

#include "FuzzSupport.h"
#include "TslCore/Scanner/ScannerJSON.h"
#include "TslCore/Support/ISO8601.h"

using namespace tsl;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    if (auto time = ISO8601::parse(text)) {
        auto again = ISO8601::parse(ISO8601::format(*time));
        fuzz::require(again && *again == *time, "a date changed in a round trip");
    }
    AppScanner::Report report;
    try {
        nlohmann::json j = nlohmann::json::parse(text);
        report = j.get<AppScanner::Report>();
    } catch (const nlohmann::json::exception&) {
        return 0;
    }
    nlohmann::json encoded = report;
    fuzz::require(encoded.get<AppScanner::Report>() == report, "a scan report changed in a round trip");
    return 0;
}
