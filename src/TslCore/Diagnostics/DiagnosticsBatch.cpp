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

template <class V, JSONFields::Is<DiagnosticsBatch::Consent> R>
void fields(V& v, R& r) {
    v("diagnostics", r.diagnostics);
    v("version", r.version);
}

template <class V, JSONFields::Is<DiagnosticsBatch> R>
void fields(V& v, R& r) {
    v("schema", r.schema);
    v("batch", r.batch);
    v("app", r.app);
    v("consent", r.consent);
    v("events", r.events);
}

void to_json(json& j, const DiagnosticsBatch::AppPart& v) { j = JSONFields::toJSON(v); }
void from_json(const json& j, DiagnosticsBatch::AppPart& v) { JSONFields::fromJSON(j, JSONFields::Path{}, v); }

void to_json(json& j, const DiagnosticsBatch& v) { j = JSONFields::toJSON(v); }
void from_json(const json& j, DiagnosticsBatch& v) { JSONFields::fromJSON(j, JSONFields::Path{}, v); }

}  // namespace tsl
