#pragma once
#include <nlohmann/json.hpp>
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

// The same schema as a document in the language, which SchemaNode::parseFile
// reads back into equal definitions.
nlohmann::json document();

}  // namespace tsl::DiagnosticsSchemaFile
