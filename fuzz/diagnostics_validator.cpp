// Batch and report bodies from anywhere. Validation ends in a Problem or a
// pass; a batch that passes decodes into records whose encoding passes again.
#include <nlohmann/json.hpp>

#include "FuzzSupport.h"
#include "TslCore/Diagnostics/DiagnosticsBatch.h"
#include "TslCore/Diagnostics/DiagnosticsValidator.h"

using namespace tsl;
using nlohmann::json;

namespace {

constexpr int64_t now = 1790000000;

template <typename Fn>
bool passes(Fn&& fn) {
    try {
        fn();
        return true;
    } catch (const DiagnosticsValidator::Problem&) {
        return false;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (passes([&] { DiagnosticsValidator::validateBatch(text, now); })) {
        DiagnosticsBatch batch;
        try {
            batch = json::parse(text).get<DiagnosticsBatch>();
        } catch (const std::exception&) {
            fuzz::finding("a valid batch does not decode");
        }
        const std::string again = json(batch).dump();
        if (again.size() <= 65536)
            fuzz::require(passes([&] { DiagnosticsValidator::validateBatch(again, now); }),
                          "a valid batch, decoded and encoded, fails");
    }
    passes([&] { DiagnosticsValidator::validateReport(text, now); });
    const json value = json::parse(text, nullptr, false);
    if (!value.is_discarded()) {
        passes([&] { DiagnosticsValidator::validateReportDiagnostics(&value, now); });
        passes([&] { DiagnosticsValidator::event(value, now, "event"); });
        passes([&] { DiagnosticsValidator::appPart(&value); });
    }
    (void)DiagnosticsValidator::cleanReportText(text);
    return 0;
}
