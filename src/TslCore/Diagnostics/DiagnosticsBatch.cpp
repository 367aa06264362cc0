#include "TslCore/Diagnostics/DiagnosticsBatch.h"

#include <sodium.h>

#include "TslCore/Support/Base64.h"

namespace tsl {

using nlohmann::json;

std::string DiagnosticsBatch::newID() {
    [[maybe_unused]] static const int ready = sodium_init();
    uint8_t bytes[16];
    randombytes_buf(bytes, sizeof bytes);
    std::string id;
    for (char c : Base64::encode(bytes, sizeof bytes)) {
        if (c == '=') continue;
        id += c == '+' ? '-' : c == '/' ? '_' : c;
    }
    return id;
}

void to_json(json& j, const DiagnosticsBatch::AppPart& v) { j = {{"version", v.version}, {"build", v.build}}; }
void from_json(const json& j, DiagnosticsBatch::AppPart& v) {
    j.at("version").get_to(v.version);
    j.at("build").get_to(v.build);
}

void to_json(json& j, const DiagnosticsBatch::Consent& v) {
    j = {{"diagnostics", v.diagnostics}, {"version", v.version}};
}
void from_json(const json& j, DiagnosticsBatch::Consent& v) {
    j.at("diagnostics").get_to(v.diagnostics);
    j.at("version").get_to(v.version);
}

void to_json(json& j, const DiagnosticsBatch& v) {
    j = {{"schema", v.schema}, {"batch", v.batch}, {"app", v.app}, {"consent", v.consent}, {"events", v.events}};
}
void from_json(const json& j, DiagnosticsBatch& v) {
    j.at("schema").get_to(v.schema);
    j.at("batch").get_to(v.batch);
    j.at("app").get_to(v.app);
    j.at("consent").get_to(v.consent);
    j.at("events").get_to(v.events);
}

}  // namespace tsl
