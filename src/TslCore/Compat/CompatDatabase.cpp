#include "TslCore/Compat/CompatDatabase.h"

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "TslCore/Compat/CompatError.h"
#include "TslCore/Compat/VersionNumber.h"
#include "TslCore/Support/JSONInteger.h"
#include "TslCore/Support/UnicodeText.h"

namespace tsl {

using json = nlohmann::json;

struct CompatDatabase::Index {
    size_t count = 0;
    std::unordered_map<std::string, std::vector<size_t>> byID;  // lower-cased identifier → positions
};

namespace {

constexpr std::array<std::string_view, 5> statusNames{"works", "limited", "wontRun", "untested", "nativeAvailable"};

[[noreturn]] void fail(const std::string& what) { throw json::other_error::create(501, what, nullptr); }

const json& required(const json& object, const char* key) {
    if (!object.is_object()) fail(std::string("expected an object holding \"") + key + "\"");
    const auto it = object.find(key);
    if (it == object.end() || it->is_null()) fail(std::string("missing key \"") + key + "\"");
    return *it;
}

std::string requiredString(const json& object, const char* key) { return required(object, key).get<std::string>(); }

// Absent and null both mean absent; any other type is an error.
std::optional<std::string> optionalString(const json& object, const char* key) {
    const auto it = object.find(key);
    if (it == object.end() || it->is_null()) return std::nullopt;
    return it->get<std::string>();
}

int64_t requiredInteger(const json& object, const char* key) {
    if (const auto value = jsonInteger<int64_t>(required(object, key))) return *value;
    fail(std::string("\"") + key + "\" is not a 64-bit integer");
}

CompatDatabase::Status requiredStatus(const json& object) {
    const std::string word = requiredString(object, "status");
    const auto status = statusFromString(word);
    if (!status) fail("unknown status \"" + word + "\"");
    return *status;
}

CompatDatabase::Entry decodeEntry(const json& j) {
    CompatDatabase::Entry entry;
    entry.bundleID = requiredString(j, "bundleID");
    entry.name = requiredString(j, "name");
    if (const auto it = j.find("versions"); it != j.end() && !it->is_null()) {
        if (!it->is_object()) fail("\"versions\" is not an object");
        entry.versions = CompatDatabase::VersionRange{optionalString(*it, "min"), optionalString(*it, "max")};
    }
    entry.status = requiredStatus(j);
    entry.note = optionalString(j, "note");
    entry.vendorURL = optionalString(j, "vendorURL");
    entry.recipe = optionalString(j, "recipe");
    return entry;
}

CompatDatabase decodeCurrent(const json& j) {
    CompatDatabase db;
    db.schema = requiredInteger(j, "schema");
    db.updated = optionalString(j, "updated");
    const json& apps = required(j, "apps");
    if (!apps.is_array()) fail("\"apps\" is not an array");
    db.apps.reserve(apps.size());
    for (const auto& app : apps) db.apps.push_back(decodeEntry(app));
    return db;
}

CompatDatabase::Status legacyStatus(std::string_view word) {
    if (word == "works") return CompatDatabase::Status::works;
    if (word == "partial") return CompatDatabase::Status::limited;
    if (word == "fails") return CompatDatabase::Status::wontRun;
    return CompatDatabase::Status::untested;
}

CompatDatabase decodeLegacy(const json& j) {
    if (!j.is_array()) fail("neither a database nor a list of records");
    CompatDatabase db;
    db.apps.reserve(j.size());
    for (const auto& record : j) {
        CompatDatabase::Entry entry;
        entry.bundleID = requiredString(record, "bundleID");
        entry.name = requiredString(record, "name");
        entry.status = legacyStatus(requiredString(record, "status"));
        entry.note = optionalString(record, "note");
        db.apps.push_back(std::move(entry));
    }
    return db;
}

size_t specificity(const CompatDatabase::Entry& entry) {
    if (!entry.versions) return 0;
    return (entry.versions->min ? 1 : 0) + (entry.versions->max ? 1 : 0);
}

}  // namespace

std::string_view toString(CompatDatabase::Status status) { return statusNames[static_cast<size_t>(status)]; }

std::optional<CompatDatabase::Status> statusFromString(std::string_view text) {
    for (size_t i = 0; i < statusNames.size(); ++i)
        if (statusNames[i] == text) return static_cast<CompatDatabase::Status>(i);
    return std::nullopt;
}

bool CompatDatabase::VersionRange::contains(const std::optional<std::string>& version) const {
    if (!min && !max) return true;
    if (!version) return false;
    if (min && VersionNumber::compare(*version, *min) < 0) return false;
    if (max && VersionNumber::compare(*version, *max) > 0) return false;
    return true;
}

CompatDatabase CompatDatabase::decode(std::span<const uint8_t> data) {
    CompatDatabase db;
    const json j = json::parse(data.begin(), data.end());
    bool current = true;
    try {
        db = decodeCurrent(j);
    } catch (const json::exception&) {
        current = false;
    }
    if (current && db.schema != schemaVersion) throw CompatError::unsupportedSchema(db.schema);
    if (!current) db = decodeLegacy(j);
    db.reindex();
    return db;
}

void CompatDatabase::reindex() {
    auto index = std::make_shared<Index>();
    index->count = apps.size();
    for (size_t i = 0; i < apps.size(); ++i) index->byID[lowercased(apps[i].bundleID)].push_back(i);
    _index = std::move(index);
}

const CompatDatabase::Entry* CompatDatabase::entry(const std::optional<std::string>& bundleID,
                                                   const std::optional<std::string>& version) const {
    if (!bundleID) return nullptr;
    const std::string key = lowercased(*bundleID);
    const Entry* best = nullptr;
    size_t bestSpecificity = 0;
    const auto consider = [&](const Entry& candidate) {
        if (candidate.versions && !candidate.versions->contains(version)) return;
        const size_t s = specificity(candidate);
        if (!best || s > bestSpecificity) best = &candidate, bestSpecificity = s;
    };
    if (_index && _index->count == apps.size()) {
        const auto it = _index->byID.find(key);
        if (it == _index->byID.end()) return nullptr;
        for (const size_t i : it->second) consider(apps[i]);
    } else {
        for (const auto& candidate : apps)
            if (lowercased(candidate.bundleID) == key) consider(candidate);
    }
    return best;
}

void to_json(json& j, const CompatDatabase& db) {
    j = json::object();
    j["schema"] = db.schema;
    if (db.updated) j["updated"] = *db.updated;
    json apps = json::array();
    for (const auto& entry : db.apps) {
        json e{{"bundleID", entry.bundleID}, {"name", entry.name}, {"status", toString(entry.status)}};
        if (entry.versions) {
            json range = json::object();
            if (entry.versions->min) range["min"] = *entry.versions->min;
            if (entry.versions->max) range["max"] = *entry.versions->max;
            e["versions"] = range;
        }
        if (entry.note) e["note"] = *entry.note;
        if (entry.vendorURL) e["vendorURL"] = *entry.vendorURL;
        if (entry.recipe) e["recipe"] = *entry.recipe;
        apps.push_back(std::move(e));
    }
    j["apps"] = std::move(apps);
}

}  // namespace tsl
