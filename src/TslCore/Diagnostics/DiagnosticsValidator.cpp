#include "TslCore/Diagnostics/DiagnosticsValidator.h"

#include <unicode/uchar.h>

#include <initializer_list>

#include "TslCore/Diagnostics/DiagnosticsBatch.h"
#include "TslCore/Diagnostics/DiagnosticsSchemaFile.h"
#include "TslCore/Diagnostics/SchemaNode.h"
#include "TslCore/Support/Utf8.h"

namespace tsl::DiagnosticsValidator {

using nlohmann::json;

namespace {

constexpr int64_t pastWindow = 34560000;  // 400 days
constexpr int64_t futureWindow = 300;

json parsedObject(std::string_view data) {
    json value = json::parse(data.begin(), data.end(), nullptr, false);
    if (value.is_discarded() || !value.is_object()) throw Problem("body", "not a JSON object");
    return value;
}

void validateAgainst(const char* definition, const json* value, const std::string& field) {
    SchemaNode(SchemaNode::Ref{definition}).validate(value, DiagnosticsSchemaFile::defs(), field);
}

std::string indexed(const std::string& field, size_t i) { return field + "[" + std::to_string(i) + "]"; }

void eventRule(const json& value, int64_t now, const std::string& field) {
    const json* at = value.is_object() && value.contains("at") ? &value.at("at") : nullptr;
    const auto seconds = at ? SchemaJSON::integer(*at) : std::nullopt;
    if (!seconds) throw Problem(field + ".at", "missing or not an integer");
    if (*seconds < now - pastWindow || *seconds > now + futureWindow) throw Problem(field + ".at", "out of range");
    auto sleepWake = value.find("sleepWake");
    if (sleepWake == value.end() || !sleepWake->is_object()) return;
    auto attempts = sleepWake->find("attempts"), ok = sleepWake->find("ok");
    if (attempts == sleepWake->end() || ok == sleepWake->end()) return;
    const auto a = SchemaJSON::integer(*attempts), o = SchemaJSON::integer(*ok);
    if (a && o && *o > *a) throw Problem(field + ".sleepWake.ok", "more than attempts");
}

void eventRules(const json* list, int64_t now, const std::string& field) {
    if (!list || !list->is_array()) return;
    for (size_t i = 0; i < list->size(); ++i) eventRule((*list)[i], now, indexed(field, i));
}

const json* member(const json& object, const char* key) {
    auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

bool isBidiControl(char32_t c) {
    return c == 0x061C || c == 0x200E || c == 0x200F || (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

void appendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += char(c);
    } else if (c < 0x800) {
        out += char(0xC0 | (c >> 6));
        out += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += char(0xE0 | (c >> 12));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    } else {
        out += char(0xF0 | (c >> 18));
        out += char(0x80 | ((c >> 12) & 0x3F));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    }
}

template <typename T>
std::optional<std::pair<T, T>> rangeAt(std::initializer_list<const char*> path) {
    const auto node = DiagnosticsSchemaFile::nodeAt(path);
    if (!node) return std::nullopt;
    const auto& defs = DiagnosticsSchemaFile::defs();
    if constexpr (std::is_same_v<T, double>) return node->numberRange(defs);
    else return node->intRange(defs);
}

}  // namespace

void validateBatch(std::string_view data, int64_t now) {
    if (data.size() > DiagnosticsSchema::maxBytes) throw Problem("body", "larger than 64 KiB");
    const json value = parsedObject(data);
    validateAgainst(DiagnosticsSchemaFile::root, &value, "");
    eventRules(member(value, "events"), now, "events");
}

void validateReport(std::string_view data, int64_t now) {
    const json value = parsedObject(data);
    validateAgainst("report", &value, "");
    const json* text = member(value, "text");
    const std::string cleaned = cleanReportText(text && text->is_string() ? text->get_ref<const std::string&>() : "");
    const size_t length = SchemaJSON::scalarCount(cleaned);
    if (length < 1 || length > 5000) throw Problem("text", "must be 1\u20135000 characters after cleaning");
    if (const json* diagnostics = member(value, "diagnostics"))
        eventRules(diagnostics->is_object() ? member(*diagnostics, "events") : nullptr, now, "diagnostics.events");
}

void validateReportDiagnostics(const json* value, int64_t now) {
    validateAgainst("reportDiagnostics", value, "diagnostics");
    eventRules(value && value->is_object() ? member(*value, "events") : nullptr, now, "diagnostics.events");
}

void event(const json& value, int64_t now, const std::string& field) {
    const auto& defs = DiagnosticsSchemaFile::defs();
    auto events = defs.find("events");
    const auto* list = events == defs.end() ? nullptr : events->second.as<SchemaNode::Array>();
    if (!list) throw Problem(field, "schema has no events");
    list->items.validate(&value, defs, field);
    eventRule(value, now, field);
}

void appPart(const json* value) { validateAgainst("app", value, "app"); }

std::string cleanReportText(std::string_view input) {
    const std::string text = repairedUtf8(input);
    std::string kept;
    kept.reserve(text.size());
    for (size_t at = 0; at < text.size();) {
        const auto scalar = readUtf8Scalar(text, at);
        if (!scalar) break;  // cannot happen after the repair
        const char32_t c = *scalar;
        const bool control = u_charType(UChar32(c)) == U_CONTROL_CHAR && c != U'\t' && c != U'\n';
        if (control || isBidiControl(c)) continue;
        appendUtf8(kept, c);
    }
    // Trim White_Space scalars at both ends.
    size_t begin = 0, end = kept.size();
    for (size_t at = 0; at < kept.size();) {
        if (!isUnicodeWhitespace(*readUtf8Scalar(kept, at))) break;
        begin = at;
    }
    while (end > begin) {
        size_t start = end - 1;
        while (start > begin && (uint8_t(kept[start]) & 0xC0) == 0x80) --start;
        size_t at = start;
        if (!isUnicodeWhitespace(*readUtf8Scalar(kept, at))) break;
        end = start;
    }
    return kept.substr(begin, end - begin);
}

const Ranges& ranges() {
    static const Ranges built{
        rangeAt<int64_t>({"appEvent", "ttfwMs"}),
        rangeAt<int64_t>({"sessionEvent", "stream", "latencyP95Ms"}),
        rangeAt<int64_t>({"sessionEvent", "mac", "ramGB"}),
        rangeAt<int64_t>({"sessionEvent", "agentProto"}),
        rangeAt<int64_t>({"sessionEvent", "guestMemoryMB"}),
        rangeAt<int64_t>({"durationS"}),
        rangeAt<int64_t>({"sessionEvent", "sleepWake", "attempts"}),
        rangeAt<double>({"sessionEvent", "stream", "fpsMedian"}),
    };
    return built;
}

}  // namespace tsl::DiagnosticsValidator
