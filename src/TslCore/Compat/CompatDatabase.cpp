#include "TslCore/Compat/CompatDatabase.h"

#include <nlohmann/json.hpp>
#include <unordered_map>

#include "TslCore/Compat/CompatError.h"
#include "TslCore/Compat/VersionNumber.h"
#include "TslCore/Support/JSONFields.h"
#include "TslCore/Support/UnicodeText.h"

namespace tsl {

using json = nlohmann::json;

struct CompatDatabase::Index {
    size_t count = 0;
    std::unordered_map<std::string, std::vector<size_t>> byID;  // lower-cased identifier → positions
};

json toJSON(CompatDatabase::Status status) { return toString(status); }
void fromJSON(const json& j, const JSONFields::Path& at, CompatDatabase::Status& out) {
    JSONFields::parsedFromJSON(j, at, out, statusFromString);
}

template <class V, JSONFields::Is<CompatDatabase::VersionRange> R>
void fields(V& v, R& r) {
    v("min", r.min);
    v("max", r.max);
}

template <class V, JSONFields::Is<CompatDatabase::Entry> R>
void fields(V& v, R& r) {
    v("bundleID", r.bundleID);
    v("name", r.name);
    v("versions", r.versions);
    v("status", r.status);
    v("note", r.note);
    v("vendorURL", r.vendorURL);
    v("recipe", r.recipe);
}

template <class V, JSONFields::Is<CompatDatabase> R>
void fields(V& v, R& r) {
    v("schema", r.schema);
    v("updated", r.updated);
    v("apps", r.apps);
}

namespace {

constexpr std::array<std::string_view, 5> statusNames{"works", "limited", "wontRun", "untested", "nativeAvailable"};

// The records of the legacy form: a bare list, with its own status words.
struct LegacyRecord {
    std::string bundleID;
    std::string name;
    std::string status;
    std::optional<std::string> note;
};

template <class V, JSONFields::Is<LegacyRecord> R>
void fields(V& v, R& r) {
    v("bundleID", r.bundleID);
    v("name", r.name);
    v("status", r.status);
    v("note", r.note);
}

CompatDatabase::Status legacyStatus(std::string_view word) {
    if (word == "works") return CompatDatabase::Status::works;
    if (word == "partial") return CompatDatabase::Status::limited;
    if (word == "fails") return CompatDatabase::Status::wontRun;
    return CompatDatabase::Status::untested;
}

CompatDatabase decodeLegacy(const json& j) {
    if (!j.is_array()) JSONFields::fail("neither a database nor a list of records", {});
    std::vector<LegacyRecord> records;
    JSONFields::fromJSON(j, {}, records);
    CompatDatabase db;
    db.apps.reserve(records.size());
    for (auto& record : records) {
        CompatDatabase::Entry entry;
        entry.bundleID = std::move(record.bundleID);
        entry.name = std::move(record.name);
        entry.status = legacyStatus(record.status);
        entry.note = std::move(record.note);
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
    const json j = json::parse(data.begin(), data.end());
    CompatDatabase db;
    try {
        try {
            db = JSONFields::decode<CompatDatabase>(j);
            if (db.schema != schemaVersion) throw CompatError::unsupportedSchema(db.schema);
        } catch (const JSONFields::DecodeError&) {
            db = decodeLegacy(j);
        }
    } catch (const JSONFields::DecodeError& e) {
        throw JSONFields::libraryError(e);
    }
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

void to_json(json& j, const CompatDatabase& db) { j = JSONFields::toJSON(db); }

}  // namespace tsl
