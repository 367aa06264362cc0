#include "TslCore/Diagnostics/DiagnosticsSchemaFile.h"

#include "TslCore/Diagnostics/DiagnosticEvent.h"
#include "TslCore/Diagnostics/DiagnosticsBatch.h"
#include "TslCore/Diagnostics/ProblemReport.h"

namespace tsl::DiagnosticsSchemaFile {

namespace {

using Node = SchemaNode;

Node ref(const char* name) { return Node::Ref{name}; }
Node textNode(const char* pattern) { return Node::String{pattern, std::nullopt, std::nullopt}; }
Node integerNode(int64_t minimum, int64_t maximum) { return Node::Integer{minimum, maximum}; }
Node number(double minimum, double maximum) { return Node::Number{minimum, maximum}; }
Node object(std::map<std::string, Node> properties, std::vector<std::string> required) {
    std::sort(required.begin(), required.end());
    return Node::Object{std::move(properties), std::move(required)};
}
template <size_t N>
Node oneOfStrings(const std::array<std::string_view, N>& texts) {
    return Node::OneOfStrings{std::vector<std::string>(texts.begin(), texts.end())};
}

SchemaDefs buildDefs() {
    SchemaDefs d;
    d.emplace("at", integerNode(0, 4102444800));
    d.emplace("durationS", integerNode(0, 2592000));
    d.emplace("code", textNode("^[a-z][a-z0-9_.]{0,39}$"));
    d.emplace("versionString", textNode("^[A-Za-z0-9][A-Za-z0-9 .()+_-]{0,39}$"));
    d.emplace("app",
              object({{"build", textNode("^[0-9]{4}\\.[0-9]{1,2}\\.[0-9]{1,4}$")}, {"version", ref("versionString")}},
                     {"build", "version"}));
    d.emplace("os", object({{"build", textNode("^[0-9]{2}[A-Z][0-9]{1,6}[a-z]?$")},
                            {"os", textNode("^[1-9][0-9]\\.[0-9]{1,2}(\\.[0-9]{1,2})?$")}},
                           {"os"}));
    d.emplace(
        "appEvent",
        object({{"arch", Node::OneOfStrings{{"x86_64", "x86_64h", "universal", "arm64"}}},
                {"at", ref("at")},
                {"bundleId", Node::String{"^[A-Za-z0-9][A-Za-z0-9-]{0,62}(\\.[A-Za-z0-9][A-Za-z0-9-]{0,62}){1,6}$",
                                          std::nullopt, 155}},
                {"crash", object({{"hash", textNode("^[0-9a-f]{64}$")},
                                  {"signal", textNode("^SIG[A-Z]{2,8}$")},
                                  {"type", textNode("^[A-Z][A-Z0-9_]{1,39}$")}},
                                 {"hash", "type"})},
                {"outcome", oneOfStrings(AppOutcome::outcomeTexts)},
                {"ttfwMs", integerNode(0, 600000)},
                {"type", Node::ConstString{"app"}},
                {"version", ref("versionString")}},
               {"at", "bundleId", "outcome", "type"}));
    d.emplace(
        "sessionEvent",
        object({{"agentProto", integerNode(0, 1000)},
                {"at", ref("at")},
                {"durationS", ref("durationS")},
                {"errors", Node::Array{ref("code"), std::nullopt, 20}},
                {"guest", ref("os")},
                {"guestMemoryMB", integerNode(0, 1048576)},
                {"host", ref("os")},
                {"mac", object({{"chip", textNode("^Apple [AM][0-9]{1,2}( Pro| Max| Ultra)?( \\(Virtual\\))?$")},
                                {"model", textNode("^(Mac|MacBook|MacBookAir|MacBookPro|iMac|Macmini|MacStudio|MacPro|"
                                                   "VirtualMac)[0-9]{1,3},[0-9]{1,3}$")},
                                {"ramGB", integerNode(4, 2048)}},
                               {"chip", "model", "ramGB"})},
                {"sleepWake",
                 object({{"attempts", integerNode(0, 10000)}, {"ok", integerNode(0, 10000)}}, {"attempts", "ok"})},
                {"stream", object({{"fpsMedian", number(0, 240)},
                                   {"fpsMin", number(0, 240)},
                                   {"latencyP50Ms", integerNode(0, 60000)},
                                   {"latencyP95Ms", integerNode(0, 60000)}},
                                  {})},
                {"type", Node::ConstString{"session"}}},
               {"at", "host", "mac", "type"}));
    d.emplace("setupEvent", object({{"at", ref("at")},
                                    {"durationS", ref("durationS")},
                                    {"failure", ref("code")},
                                    {"status", oneOfStrings(SetupStep::statusTexts)},
                                    {"step", oneOfStrings(SetupStep::stepTexts)},
                                    {"type", Node::ConstString{"setup"}}},
                                   {"at", "status", "step", "type"}));
    d.emplace("events", Node::Array{Node::OneOf{{ref("appEvent"), ref("sessionEvent"), ref("setupEvent")}}, 1,
                                    int64_t(DiagnosticsSchema::maxEvents)});
    d.emplace("diagnosticsBatch", object({{"app", ref("app")},
                                          {"batch", textNode("^[A-Za-z0-9_-]{22}$")},
                                          {"consent", object({{"diagnostics", Node::ConstBool{true}},
                                                              {"version", textNode("^[0-9]{4}-[0-9]{2}-[0-9]{2}$")}},
                                                             {"diagnostics", "version"})},
                                          {"events", ref("events")},
                                          {"schema", Node::ConstInt{DiagnosticsSchema::version}}},
                                         {"app", "batch", "consent", "events", "schema"}));
    d.emplace(
        "report",
        object(
            {{"app", ref("app")},
             {"category", oneOfStrings(ProblemReport::categoryTexts)},
             {"diagnostics", ref("reportDiagnostics")},
             {"id", textNode("^[0-9a-fA-F]{8}-[0-9a-fA-F]{4}-4[0-9a-fA-F]{3}-[89abAB][0-9a-fA-F]{3}-[0-9a-fA-F]{12}$")},
             {"text", Node::String{std::nullopt, 1, 20000}}},
            {"app", "category", "text"}));
    d.emplace("reportDiagnostics", object({{"events", ref("events")}, {"schema", Node::ConstInt{DiagnosticsSchema::version}}},
                                          {"events", "schema"}));
    return d;
}

}  // namespace

const std::vector<std::string>& rules() {
    static const std::vector<std::string> names{"eventAtWithinWindow", "sleepWakeOkNotAboveAttempts",
                                                "reportTextAfterCleaning"};
    return names;
}

const SchemaDefs& defs() {
    static const SchemaDefs built = buildDefs();
    return built;
}

std::optional<SchemaNode> nodeAt(std::initializer_list<const char*> path) {
    const auto& all = defs();
    auto it = path.begin();
    const auto found = all.find(*it);
    if (found == all.end()) return std::nullopt;
    std::optional<SchemaNode> node = found->second;
    for (++it; node && it != path.end(); ++it) node = node->property(*it, all);
    return node;
}

nlohmann::json document() {
    nlohmann::json definitions = nlohmann::json::object();
    for (const auto& [name, node] : defs()) definitions[name] = node.document();
    return {
        {"$schema", "https://json-schema.org/draft/2020-12/schema"},
        {"$id", "https://tessel.app/schemas/diagnostics/v1.json"},
        {"title", "Tessel diagnostics"},
        {"description", "Everything that may leave the machine; nothing outside it can be sent."},
        {"x-tsl-rules", rules()},
        {"$ref", std::string("#/$defs/") + root},
        {"$defs", definitions},
    };
}

}  // namespace tsl::DiagnosticsSchemaFile
