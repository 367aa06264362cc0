#include "TslCore/Diagnostics/ProblemReport.h"

#include <stdexcept>

#include "TslCore/Diagnostics/SchemaNode.h"
#include "TslCore/Support/JSONInteger.h"

namespace tsl {

using nlohmann::json;

ProblemReport::ProblemReport(std::optional<std::string> id, Category category, std::string_view text,
                             DiagnosticsBatch::AppPart app,
                             const std::optional<std::vector<DiagnosticEvent>>& diagnostics)
    : id(std::move(id)), category(category), text(clip(text)), app(std::move(app)) {
    if (diagnostics && !diagnostics->empty()) this->diagnostics = Diagnostics{DiagnosticsSchema::version, *diagnostics};
}

std::string ProblemReport::clip(std::string_view text) {
    size_t scalars = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if ((uint8_t(text[i]) & 0xC0) == 0x80) continue;
        if (scalars++ == maxText) return std::string(text.substr(0, i));
    }
    return std::string(text);
}

size_t ProblemReport::length(std::string_view text) { return SchemaJSON::scalarCount(text); }

Bytes ProblemReport::encoded() const {
    try {
        const std::string text = json(*this).dump();
        return Bytes(text.begin(), text.end());
    } catch (const json::exception&) {
        return {};  // text that is not UTF-8
    }
}

ProblemReport::Category category(ReportTopic topic) {
    switch (topic) {
        case ReportTopic::setup: return ProblemReport::Category::setup;
        case ReportTopic::appDoesNotWork:
        case ReportTopic::windows:
        case ReportTopic::typingOrMouse: return ProblemReport::Category::app;
        case ReportTopic::speed: return ProblemReport::Category::performance;
        case ReportTopic::other: return ProblemReport::Category::other;
    }
    return ProblemReport::Category::other;
}

std::optional<std::string_view> tag(ReportTopic topic) {
    if (topic == ReportTopic::windows) return "[Windows look wrong]";
    if (topic == ReportTopic::typingOrMouse) return "[Typing or mouse]";
    return std::nullopt;
}

std::string_view toString(ReportTopic topic) {
    static constexpr std::string_view names[]{"setup", "appDoesNotWork", "windows", "typingOrMouse", "speed", "other"};
    return names[size_t(topic)];
}

void to_json(json& j, const ProblemReport& v) {
    j = {{"category", ProblemReport::categoryTexts[size_t(v.category)]}, {"text", v.text}, {"app", v.app}};
    if (v.id) j["id"] = *v.id;
    if (v.diagnostics) j["diagnostics"] = {{"schema", v.diagnostics->schema}, {"events", v.diagnostics->events}};
}

void from_json(const json& j, ProblemReport& v) {
    if (auto id = j.find("id"); id != j.end() && !id->is_null()) v.id = id->get<std::string>();
    else v.id.reset();
    const auto category = j.at("category").get<std::string>();
    size_t i = 0;
    while (i < ProblemReport::categoryTexts.size() && ProblemReport::categoryTexts[i] != category) ++i;
    if (i == ProblemReport::categoryTexts.size()) throw std::invalid_argument("unknown category " + category);
    v.category = ProblemReport::Category(i);
    j.at("text").get_to(v.text);
    j.at("app").get_to(v.app);
    if (auto d = j.find("diagnostics"); d != j.end() && !d->is_null()) {
        const auto schema = jsonInteger<int64_t>(d->at("schema"));
        if (!schema) throw std::invalid_argument("diagnostics.schema is not an integer");
        v.diagnostics = ProblemReport::Diagnostics{*schema, d->at("events").get<std::vector<DiagnosticEvent>>()};
    } else {
        v.diagnostics.reset();
    }
}

}  // namespace tsl
