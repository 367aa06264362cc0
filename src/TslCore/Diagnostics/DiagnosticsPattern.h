#pragma once
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "TslCore/Diagnostics/SchemaNode.h"
#include "TslCore/Diagnostics/SchemaRegex.h"

namespace tsl {

// The patterns that code needs outside validation, read once out of the
// generated schema, never written a second time. A pattern the schema does
// not have stays null and matches nothing.
struct DiagnosticsPattern {
    using Regex = std::shared_ptr<const SchemaRegex::Compiled>;

    std::optional<SchemaNode> bundleIDNode;
    Regex version, crashType, signal, hash, model, chip, os, osBuild, code;
    std::set<std::string> arch;

    static const DiagnosticsPattern& shared();
    static bool matches(const Regex& regex, std::string_view text) {
        return regex && SchemaRegex::matches(*regex, text);
    }
};

}  // namespace tsl
