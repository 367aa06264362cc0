#pragma once
#include <nlohmann/json.hpp>

#include "TslCore/Scanner/AppScanner.h"

// JSON coding of the scanner's records under their field names: slices as
// their description strings, classes by name, dates as ISO 8601 text.
// Optional fields are left out when absent; absent or null keys decode to
// absent. Decoding throws nlohmann::json::exception.
namespace tsl {

void to_json(nlohmann::json& j, const MachOArch& arch);
void from_json(const nlohmann::json& j, MachOArch& arch);
void to_json(nlohmann::json& j, ArchClass archClass);
void from_json(const nlohmann::json& j, ArchClass& archClass);
void to_json(nlohmann::json& j, const BundleTraits& traits);
void from_json(const nlohmann::json& j, BundleTraits& traits);
void to_json(nlohmann::json& j, const AppBundleInfo& info);
void from_json(const nlohmann::json& j, AppBundleInfo& info);
void to_json(nlohmann::json& j, const AppScanner::Report& report);
void from_json(const nlohmann::json& j, AppScanner::Report& report);

}  // namespace tsl
