#include "TslCore/Scanner/ScannerJSON.h"

#include "TslCore/Support/ISO8601.h"

namespace tsl {
namespace {

template <typename T>
void putOptional(nlohmann::json& j, const char* key, const std::optional<T>& value) {
    if (value) j[key] = *value;
}

template <typename T>
void getOptional(const nlohmann::json& j, const char* key, std::optional<T>& value) {
    const auto it = j.find(key);
    if (it == j.end() || it->is_null()) {
        value.reset();
    } else {
        value = it->template get<T>();
    }
}

}  // namespace

void to_json(nlohmann::json& j, const MachOArch& arch) { j = arch.description(); }

void from_json(const nlohmann::json& j, MachOArch& arch) { arch = MachOArch::fromDescription(j.get<std::string>()); }

void to_json(nlohmann::json& j, ArchClass archClass) { j = std::string(toString(archClass)); }

void from_json(const nlohmann::json& j, ArchClass& archClass) {
    const auto value = archClassFromString(j.get<std::string>());
    if (!value) throw nlohmann::json::other_error::create(501, "unknown archClass " + j.dump(), &j);
    archClass = *value;
}

void to_json(nlohmann::json& j, const BundleTraits& traits) {
    j = nlohmann::json{{"usesOpenGL", traits.usesOpenGL},
                       {"usesOpenCL", traits.usesOpenCL},
                       {"appStoreReceipt", traits.appStoreReceipt},
                       {"drivers", traits.drivers}};
}

void from_json(const nlohmann::json& j, BundleTraits& traits) {
    j.at("usesOpenGL").get_to(traits.usesOpenGL);
    j.at("usesOpenCL").get_to(traits.usesOpenCL);
    j.at("appStoreReceipt").get_to(traits.appStoreReceipt);
    j.at("drivers").get_to(traits.drivers);
}

void to_json(nlohmann::json& j, const AppBundleInfo& info) {
    j = nlohmann::json{{"path", info.path}, {"name", info.name}, {"archs", info.archs}, {"archClass", info.archClass}};
    putOptional(j, "bundleID", info.bundleID);
    putOptional(j, "version", info.version);
    putOptional(j, "executable", info.executable);
    putOptional(j, "minimumSystemVersion", info.minimumSystemVersion);
    putOptional(j, "traits", info.traits);
}

void from_json(const nlohmann::json& j, AppBundleInfo& info) {
    j.at("path").get_to(info.path);
    j.at("name").get_to(info.name);
    j.at("archs").get_to(info.archs);
    j.at("archClass").get_to(info.archClass);
    getOptional(j, "bundleID", info.bundleID);
    getOptional(j, "version", info.version);
    getOptional(j, "executable", info.executable);
    getOptional(j, "minimumSystemVersion", info.minimumSystemVersion);
    getOptional(j, "traits", info.traits);
}

void to_json(nlohmann::json& j, const AppScanner::Report& report) {
    j = nlohmann::json{{"scannedAt", ISO8601::format(report.scannedAt)},
                       {"durationSeconds", report.durationSeconds},
                       {"roots", report.roots},
                       {"apps", report.apps}};
}

void from_json(const nlohmann::json& j, AppScanner::Report& report) {
    const auto parsed = ISO8601::parse(j.at("scannedAt").get<std::string>());
    const auto date = parsed ? ISO8601::clockTime(*parsed) : std::nullopt;
    if (!date) throw nlohmann::json::other_error::create(501, "scannedAt is no ISO 8601 date", &j);
    report.scannedAt = *date;
    j.at("durationSeconds").get_to(report.durationSeconds);
    j.at("roots").get_to(report.roots);
    j.at("apps").get_to(report.apps);
}

}  // namespace tsl
