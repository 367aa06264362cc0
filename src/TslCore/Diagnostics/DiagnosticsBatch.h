#pragma once
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "TslCore/Diagnostics/DiagnosticEvent.h"

namespace tsl {

struct DiagnosticsSchema {
    static constexpr int64_t version = 1;
    static constexpr const char* noticeVersion = "2026-10-05";
    static constexpr size_t maxEvents = 200;
    static constexpr size_t maxBytes = 65536;
    static constexpr double minBatchInterval = 60.0;
    static constexpr int maxBatchesPerDay = 48;
};

// What leaves the machine in one request.
struct DiagnosticsBatch {
    struct AppPart {
        std::string version;
        std::string build;
        bool operator==(const AppPart&) const = default;
    };
    struct Consent {
        bool diagnostics = true;
        std::string version = DiagnosticsSchema::noticeVersion;
        bool operator==(const Consent&) const = default;
    };

    int64_t schema = DiagnosticsSchema::version;
    std::string batch;
    AppPart app;
    Consent consent;
    std::vector<DiagnosticEvent> events;

    // 16 random bytes in URL-safe Base64 without padding: 22 characters.
    static std::string newID();
    bool operator==(const DiagnosticsBatch&) const = default;
};

// Also part of a problem report.
template <class V, JSONFields::Is<DiagnosticsBatch::AppPart> R>
void fields(V& v, R& r) {
    v("version", r.version);
    v("build", r.build);
}

// Decoding throws JSONFields::DecodeError.
void to_json(nlohmann::json& j, const DiagnosticsBatch::AppPart& v);
void from_json(const nlohmann::json& j, DiagnosticsBatch::AppPart& v);
void to_json(nlohmann::json& j, const DiagnosticsBatch& v);
void from_json(const nlohmann::json& j, DiagnosticsBatch& v);

}  // namespace tsl
