#include "TslCore/Scanner/ScannerJSON.h"

#include "TslCore/Support/JSONFields.h"

namespace tsl {

using JSONFields::Is;
using JSONFields::Path;
using nlohmann::json;

json toJSON(const MachOArch& arch) { return arch.description(); }
void fromJSON(const json& j, const Path& at, MachOArch& out) {
    JSONFields::parsedFromJSON(j, at, out,
                               [](std::string_view text) { return std::optional(MachOArch::fromDescription(text)); });
}

json toJSON(ArchClass archClass) { return std::string(toString(archClass)); }
void fromJSON(const json& j, const Path& at, ArchClass& out) {
    JSONFields::parsedFromJSON(j, at, out, archClassFromString);
}

template <class V, Is<BundleTraits> R>
void fields(V& v, R& r) {
    v("usesOpenGL", r.usesOpenGL);
    v("usesOpenCL", r.usesOpenCL);
    v("appStoreReceipt", r.appStoreReceipt);
    v("drivers", r.drivers);
}

template <class V, Is<AppBundleInfo> R>
void fields(V& v, R& r) {
    v("path", r.path);
    v("name", r.name);
    v("bundleID", r.bundleID);
    v("version", r.version);
    v("executable", r.executable);
    v("minimumSystemVersion", r.minimumSystemVersion);
    v("archs", r.archs);
    v("archClass", r.archClass);
    v("traits", r.traits);
}

template <class V, Is<AppScanner::Report> R>
void fields(V& v, R& r) {
    v("scannedAt", r.scannedAt);
    v("durationSeconds", r.durationSeconds);
    v("roots", r.roots);
    v("apps", r.apps);
}

void to_json(json& j, const MachOArch& arch) { j = toJSON(arch); }
void from_json(const json& j, MachOArch& arch) { JSONFields::decodeAsLibrary(j, arch); }
void to_json(json& j, ArchClass archClass) { j = toJSON(archClass); }
void from_json(const json& j, ArchClass& archClass) { JSONFields::decodeAsLibrary(j, archClass); }
void to_json(json& j, const BundleTraits& traits) { j = JSONFields::toJSON(traits); }
void from_json(const json& j, BundleTraits& traits) { JSONFields::decodeAsLibrary(j, traits); }
void to_json(json& j, const AppBundleInfo& info) { j = JSONFields::toJSON(info); }
void from_json(const json& j, AppBundleInfo& info) { JSONFields::decodeAsLibrary(j, info); }
void to_json(json& j, const AppScanner::Report& report) { j = JSONFields::toJSON(report); }
void from_json(const json& j, AppScanner::Report& report) { JSONFields::decodeAsLibrary(j, report); }

}  // namespace tsl
