#include "TslCore/Diagnostics/ProblemReport.h"

#include "TslCore/Diagnostics/SchemaNode.h"

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

json toJSON(ProblemReport::Category v) { return JSONFields::textToJSON(v, ProblemReport::categoryTexts); }
void fromJSON(const json& j, const JSONFields::Path& at, ProblemReport::Category& out) {
    JSONFields::textFromJSON(j, at, out, ProblemReport::categoryTexts);
}

template <class V, JSONFields::Is<ProblemReport::Diagnostics> R>
void fields(V& v, R& r) {
    v("schema", r.schema);
    v("events", r.events);
}

template <class V, JSONFields::Is<ProblemReport> R>
void fields(V& v, R& r) {
    v("id", r.id);
    v("category", r.category);
    v("text", r.text);
    v("app", r.app);
    v("diagnostics", r.diagnostics);
}

void to_json(json& j, const ProblemReport& v) { j = JSONFields::toJSON(v); }
void from_json(const json& j, ProblemReport& v) { JSONFields::fromJSON(j, JSONFields::Path{}, v); }

}  // namespace tsl
