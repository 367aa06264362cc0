#pragma once
#include <array>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "TslCore/Diagnostics/DiagnosticEvent.h"
#include "TslCore/Diagnostics/DiagnosticsBatch.h"
#include "TslCore/Support/Bytes.h"

namespace tsl {

// A text the user wrote about a problem, with an optional selection of events.
struct ProblemReport {
    enum class Category : uint8_t { crash, app, setup, performance, other };
    static constexpr std::array<std::string_view, 5> categoryTexts{"crash", "app", "setup", "performance", "other"};

    struct Diagnostics {
        int64_t schema = DiagnosticsSchema::version;
        std::vector<DiagnosticEvent> events;
        bool operator==(const Diagnostics&) const = default;
    };

    static constexpr size_t maxText = 5000;
    static constexpr size_t maxBytes = 65536;

    std::optional<std::string> id;  // a version 4 UUID
    Category category = Category::other;
    std::string text;
    DiagnosticsBatch::AppPart app;
    std::optional<Diagnostics> diagnostics;

    ProblemReport() = default;
    // Clips the text; an absent or empty event list leaves `diagnostics` absent.
    ProblemReport(std::optional<std::string> id, Category category, std::string_view text,
                  DiagnosticsBatch::AppPart app, const std::optional<std::vector<DiagnosticEvent>>& diagnostics);

    // The first 5000 Unicode scalars.
    static std::string clip(std::string_view text);
    static size_t length(std::string_view text);
    // JSON with sorted keys; empty if encoding fails.
    Bytes encoded() const;

    bool operator==(const ProblemReport&) const = default;
};

// What the user picks as the subject of a report.
enum class ReportTopic : uint8_t { setup, appDoesNotWork, windows, typingOrMouse, speed, other };
ProblemReport::Category category(ReportTopic topic);
std::optional<std::string_view> tag(ReportTopic topic);
std::string_view toString(ReportTopic topic);

void to_json(nlohmann::json& j, const ProblemReport& v);
void from_json(const nlohmann::json& j, ProblemReport& v);

}  // namespace tsl
