// JSON from anywhere through the guard, and events through the sanitizer: the
// guard refuses or passes, and whatever the sanitizer keeps has the schema's
// shape (only its time may lie outside the window of the moment).
#include <nlohmann/json.hpp>

#include "FuzzSupport.h"
#include "TslCore/Diagnostics/DiagnosticsGuard.h"
#include "TslCore/Diagnostics/DiagnosticsSanitizer.h"
#include "TslCore/Diagnostics/DiagnosticsValidator.h"

using namespace tsl;
using nlohmann::json;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::vector<std::string> personal{"jdoe", "Jane Q. Doe", "/Users/jdoe", "Jane’s MacBook Pro"};
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    try {
        DiagnosticsGuard::check(text, personal);
    } catch (const DiagnosticsGuard::Problem&) {
    }
    (void)DiagnosticsGuard::looksLikeFileName(text);

    DiagnosticEvent event;
    try {
        event = json::parse(text).get<DiagnosticEvent>();
    } catch (const std::exception&) {
        return 0;
    }
    const auto cleaned = DiagnosticsSanitizer::sanitize(event);
    if (!cleaned) return 0;
    const bool stored = DiagnosticsGuard::check(*cleaned, personal, cleaned->at);
    if (cleaned->at < 0 || cleaned->at > 4102444800) return 0;
    json encoded;
    try {
        encoded = json::parse(json(*cleaned).dump());
    } catch (const json::exception&) {
        return 0;  // text that is no UTF-8 never reaches the schema
    }
    try {
        DiagnosticsValidator::event(encoded, cleaned->at, "event");
    } catch (const DiagnosticsValidator::Problem& problem) {
        std::fprintf(stderr, "%s\n", problem.what());
        fuzz::finding("a sanitized event does not have the schema's shape");
    }
    (void)stored;
    return 0;
}
