#include "TslCore/Diagnostics/DiagnosticsPattern.h"

#include <initializer_list>

#include "TslCore/Diagnostics/DiagnosticsSchemaFile.h"

namespace tsl {

namespace {

using DiagnosticsSchemaFile::nodeAt;

DiagnosticsPattern::Regex regexAt(std::initializer_list<const char*> path) {
    const auto node = nodeAt(path);
    const auto pattern = node ? node->pattern(DiagnosticsSchemaFile::defs()) : std::nullopt;
    return pattern ? SchemaRegex::compiled(*pattern) : nullptr;
}

DiagnosticsPattern buildPattern() {
    DiagnosticsPattern p;
    p.bundleIDNode = nodeAt({"appEvent", "bundleId"});
    p.version = regexAt({"appEvent", "version"});
    p.crashType = regexAt({"appEvent", "crash", "type"});
    p.signal = regexAt({"appEvent", "crash", "signal"});
    p.hash = regexAt({"appEvent", "crash", "hash"});
    p.model = regexAt({"sessionEvent", "mac", "model"});
    p.chip = regexAt({"sessionEvent", "mac", "chip"});
    p.os = regexAt({"os", "os"});
    p.osBuild = regexAt({"os", "build"});
    p.code = regexAt({"code"});
    if (const auto arch = nodeAt({"appEvent", "arch"}))
        if (const auto* list = arch->as<SchemaNode::OneOfStrings>()) p.arch.insert(list->values.begin(), list->values.end());
    return p;
}

}  // namespace

const DiagnosticsPattern& DiagnosticsPattern::shared() {
    static const DiagnosticsPattern built = buildPattern();
    return built;
}

}  // namespace tsl
