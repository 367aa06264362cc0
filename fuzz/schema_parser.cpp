// Schema documents from anywhere. A document the parser accepts prints back
// into one it reads as equal nodes, and validating any value against it ends
// in a problem or a pass, bounded in time by the pattern engine's limits and
// the validator's count of steps.
#include <nlohmann/json.hpp>

#include "FuzzSupport.h"
#include "TslCore/Diagnostics/SchemaNode.h"

using namespace tsl;
using nlohmann::json;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    SchemaNode::File file;
    try {
        file = SchemaNode::parseFile(text);
    } catch (const SchemaNode::ParseError&) {
        return 0;
    }
    json printed = json::object();
    for (const auto& [name, node] : file.defs) printed[name] = node.document();
    const json document{{"$ref", "#/$defs/" + file.root}, {"$defs", printed}, {"x-tsl-rules", file.rules}};
    SchemaNode::File again;
    try {
        again = SchemaNode::parseFile(document.dump());
    } catch (const SchemaNode::ParseError& e) {
        fuzz::finding("a printed schema does not parse back");
    }
    fuzz::require(again.defs == file.defs && again.root == file.root && again.rules == file.rules,
                  "a printed schema parses back into other nodes");

    // The document itself as the value: it names real keys of its own schema.
    const json value = json::parse(text, nullptr, false);
    try {
        SchemaNode(SchemaNode::Ref{file.root}).validate(&value, file.defs, "");
    } catch (const DiagnosticsValidator::Problem&) {
    }
    return 0;
}
