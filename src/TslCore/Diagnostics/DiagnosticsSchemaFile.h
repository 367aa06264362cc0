#pragma once
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "TslCore/Diagnostics/SchemaNode.h"

namespace tsl::DiagnosticsSchemaFile {

// The name of the root definition: a whole batch.
inline constexpr const char* root = "diagnosticsBatch";

// The rules that a schema cannot state; DiagnosticsValidator applies them.
const std::vector<std::string>& rules();

// The thirteen definitions every bound and pattern comes from, built once.
const SchemaDefs& defs();

// The node at a path of a definition's name and property names below it;
// none when the schema has no such node.
std::optional<SchemaNode> nodeAt(std::initializer_list<const char*> path);

// The same schema as a document in the language, which SchemaNode::parseFile
// reads back into equal definitions.
nlohmann::json document();

}  // namespace tsl::DiagnosticsSchemaFile
